#include "qmibtree_testkit/heap.hh"

#include <set>

#include "qmibtree.h"

namespace qmibtree_testkit {
namespace {

struct heap_state {
  std::set<void*> live;
  std::vector<std::string> tags;
  bool keeps_tags = false;
  long made = 0;
  int until_failure = -1;  // allocations to go before the injected failure; -1: none is due
  bool keeps_failing = false;
  bool struck = false;
};

heap_state& state() {
  static heap_state* const the_state = new heap_state;  // outlives static destructors
  return *the_state;
}

bool failure_is_due() {
  heap_state& heap = state();
  if (heap.until_failure < 0) return false;
  if (heap.until_failure > 0) {
    --heap.until_failure;
    return false;
  }
  if (!heap.keeps_failing) heap.until_failure = -1;
  heap.struck = true;
  return true;
}

}  // namespace

int live_blocks() { return static_cast<int>(state().live.size()); }

long allocations_made() { return state().made; }

void fail_allocation_after(int n) {
  state().until_failure = n;
  state().keeps_failing = false;
  state().struck = false;
}

void fail_allocations_after(int n) {
  fail_allocation_after(n);
  state().keeps_failing = true;
}

bool allocations_work() {
  state().until_failure = -1;
  state().keeps_failing = false;
  const bool struck = state().struck;
  state().struck = false;
  return struck;
}

std::vector<std::string> allocation_tags() {
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
  if (size != 0) {
    ++heap.made;
    if (failure_is_due()) return nullptr;
  }
  void* const block = __real_qmalloc(size, tag);
  if (block) {
    heap.live.insert(block);
    if (heap.keeps_tags) heap.tags.emplace_back(tag);
  }
  return block;
}

void __wrap_qfree(void* block) {
  state().live.erase(block);
  __real_qfree(block);
}

}  // extern "C"

}  // namespace qmibtree_testkit
