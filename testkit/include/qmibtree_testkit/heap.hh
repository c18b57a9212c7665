// The library's allocator under test control: every qmalloc and qfree of the library and of the
// program passes here (--wrap=qmalloc,--wrap=qfree, which linking the kit brings along).
#ifndef QMIBTREE_TESTKIT_HEAP_HH
#define QMIBTREE_TESTKIT_HEAP_HH

#include <cstddef>
#include <string>
#include <vector>

namespace qmibtree_testkit {

// Blocks from qmalloc that are not freed yet.
int live_blocks();

// Counts qmalloc calls since the program started, failed ones included.
long allocations_made();

// Counts those that were made to fail.
long allocations_failed();

// Lets `n` more allocations succeed and fails the one after them, once. Calls with size 0
// do not count.
void fail_allocation_after(int n);

// Fails every allocation after `n` more, until allocations_work() is called.
void fail_allocations_after(int n);

// Takes an injected failure back. True when it had struck.
bool allocations_work();

// The tags of the blocks allocated since the last call, in order; the first call starts the list.
std::vector<std::string> allocation_tags();

}  // namespace qmibtree_testkit

#endif
