// Shows what the kit's allocator counts and fails.
#include "qmibtree_testkit/heap.hh"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "qmibtree.h"

using namespace qmibtree_testkit;

namespace {

bool allocates() {
  void* const block = qmalloc(1, "test");
  qfree(block);
  return block != nullptr;
}

TEST(Heap, ABlockLivesUntilItIsFreed) {
  const int live = live_blocks();
  void* const block = qmalloc(1, "test");
  EXPECT_EQ(live_blocks(), live + 1);
  qfree(block);
  EXPECT_EQ(live_blocks(), live);
}

TEST(Heap, FreeingNullChangesNothing) {
  const int live = live_blocks();
  qfree(nullptr);
  EXPECT_EQ(live_blocks(), live);
}

TEST(Heap, CountsAllocationsThatFailedToo) {
  const long made = allocations_made();
  fail_allocation_after(0);
  EXPECT_FALSE(allocates());
  EXPECT_TRUE(allocates());
  allocations_work();
  EXPECT_EQ(allocations_made(), made + 2);
}

TEST(Heap, AnAllocationOfNothingDoesNotCount) {
  const long made = allocations_made();
  fail_allocation_after(0);
  EXPECT_EQ(qmalloc(0, "test"), nullptr);
  EXPECT_EQ(allocations_made(), made);
  EXPECT_FALSE(allocations_work());
}

TEST(Heap, FailsOneAllocationAfterAsManyAsWereAskedFor) {
  const long failed = allocations_failed();
  fail_allocation_after(1);
  EXPECT_TRUE(allocates());
  EXPECT_FALSE(allocates());
  EXPECT_TRUE(allocates());
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(allocations_failed(), failed + 1);
}

TEST(Heap, FailsAllAllocationsFromOneOn) {
  fail_allocations_after(1);
  EXPECT_TRUE(allocates());
  EXPECT_FALSE(allocates());
  EXPECT_FALSE(allocates());
  EXPECT_TRUE(allocations_work());
  EXPECT_TRUE(allocates());
}

TEST(Heap, AFailureThatIsTakenBackDoesNotStrike) {
  fail_allocation_after(0);
  EXPECT_FALSE(allocations_work());
  EXPECT_TRUE(allocates());
}

TEST(Heap, ThatItHadStruckIsAnsweredOnce) {
  fail_allocation_after(0);
  EXPECT_FALSE(allocates());
  EXPECT_TRUE(allocations_work());
  EXPECT_FALSE(allocations_work());
}

TEST(Heap, KeepsTheTagsOfAllocations) {
  allocation_tags();
  qfree(qmalloc(1, "one"));
  qfree(qmalloc(1, "two"));
  EXPECT_EQ(allocation_tags(), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(allocation_tags(), std::vector<std::string>());
}

TEST(Heap, CountsWhatThreadsDoAtTheSameTime) {
  constexpr int kEach = 1000;
  const int live = live_blocks();
  const long made = allocations_made();
  const auto work = [] {
    for (int i = 0; i < kEach; ++i) allocates();
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(live_blocks(), live);
  EXPECT_EQ(allocations_made(), made + 2 * kEach);
}

}  // namespace
