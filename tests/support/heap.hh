// The library's allocator under test control: every qmalloc and qfree of the library and of
// the tests passes here (the test programs link with --wrap=qmalloc,--wrap=qfree).
#ifndef TESTS_SUPPORT_HEAP_HH
#define TESTS_SUPPORT_HEAP_HH

#include <cstddef>
#include <string>
#include <vector>

// Blocks from qmalloc that are not freed yet.
int live_blocks();

// Counts qmalloc calls since the program started, failed ones included.
long allocations_made();

// Lets `n` more allocations succeed and fails the one after them, once. Calls with size 0
// do not count.
void fail_allocation_after(int n);

// Fails every allocation after `n` more, until allocations_work() is called.
void fail_allocations_after(int n);

// Takes an injected failure back. True when it had struck.
bool allocations_work();

// The tags of the blocks allocated since the last call, in order.
std::vector<std::string> allocation_tags();

#endif
