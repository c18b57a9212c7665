#include "qmibtree_testkit/heap.hh"

#include <mutex>
#include <set>

#include "qmibtree.h"

namespace qmibtree_testkit {
namespace {

struct heap_state {
  std::mutex lock;  // the library allocates on whatever thread it is called
  std::set<void*> live;
  std::vector<std::string> tags;
  bool keeps_tags = false;
  long made = 0;
  long failed = 0;
  int until_failure = -1;  // allocations to go before the injected failure; -1: none is due
  bool keeps_failing = false;
  bool struck = false;

  bool failure_is_due() {
    if (until_failure < 0) return false;
    if (until_failure > 0) {
      --until_failure;
      return false;
    }
    if (!keeps_failing) until_failure = -1;
    struck = true;
    ++failed;
    return true;
  }
};

heap_state& state() {
  static heap_state* const the_state = new heap_state;  // outlives static destructors
  return *the_state;
}

using guard = std::lock_guard<std::mutex>;

void set_failure(int n, bool keeps_failing) {
  const guard locked(state().lock);
  state().until_failure = n;
  state().keeps_failing = keeps_failing;
  state().struck = false;
}

}  // namespace

int live_blocks() {
  const guard locked(state().lock);
  return static_cast<int>(state().live.size());
}

long allocations_made() {
  const guard locked(state().lock);
  return state().made;
}

long allocations_failed() {
  const guard locked(state().lock);
  return state().failed;
}

void fail_allocation_after(int n) { set_failure(n, false); }

void fail_allocations_after(int n) { set_failure(n, true); }

bool allocations_work() {
  const guard locked(state().lock);
  const bool struck = state().struck;
  state().until_failure = -1;
  state().struck = false;
  return struck;
}

std::vector<std::string> allocation_tags() {
  const guard locked(state().lock);
  std::vector<std::string> tags;
  tags.swap(state().tags);
  state().keeps_tags = true;
  return tags;
}

extern "C" {

void* __real_qmalloc(size_t size, const char* tag);
void __real_qfree(void* block);
void* __wrap_qmalloc(size_t size, const char* tag);
void __wrap_qfree(void* block);

void* __wrap_qmalloc(size_t size, const char* tag) {
  heap_state& heap = state();
  const guard locked(heap.lock);
  if (size != 0) {
    ++heap.made;
    if (heap.failure_is_due()) return nullptr;
  }
  void* const block = __real_qmalloc(size, tag);
  if (block) {
    heap.live.insert(block);
    if (heap.keeps_tags) heap.tags.emplace_back(tag);
  }
  return block;
}

void __wrap_qfree(void* block) {
  const guard locked(state().lock);
  state().live.erase(block);
  __real_qfree(block);
}

}  // extern "C"

}  // namespace qmibtree_testkit
