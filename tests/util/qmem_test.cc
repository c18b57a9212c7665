// The allocator: what it refuses, and that copies of texts come from it.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

#if !defined(__has_feature)
#define __has_feature(feature) 0
#endif

namespace {

class Qmem : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(live_blocks(), blocks_before_); }

  const int blocks_before_ = live_blocks();
};

TEST_F(Qmem, GivesABlockOfTheSizeAsked) {
  for (const size_t size : {size_t{1}, size_t{100}, size_t{100000}}) {
    auto* const block = static_cast<char*>(qmalloc(size, "test"));
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5a, size);
    EXPECT_EQ(block[size - 1], 0x5a);
    qfree(block);
  }
}

TEST_F(Qmem, BlocksAreAlignedForEveryType) {
  void* const block = qmalloc(1, "test");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
  qfree(block);
}

TEST_F(Qmem, SizeZeroGivesNull) { EXPECT_EQ(qmalloc(0, "test"), nullptr); }

// The sanitizer's own allocator ends the program instead.
#if !defined(__SANITIZE_ADDRESS__) && !__has_feature(address_sanitizer)
TEST_F(Qmem, MoreThanThereIsGivesNull) { EXPECT_EQ(qmalloc(SIZE_MAX - 4096, "test"), nullptr); }
#endif

TEST_F(Qmem, NullIsFreed) {
  qfree(nullptr);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

class Qstrdup : public Qmem {};

TEST_F(Qstrdup, CopiesTheText) {
  for (const char* text : {"", "a", "some text \xe9"}) {
    char* const copy = qstrdup(text, "test");
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, text);
    EXPECT_STREQ(copy, text);
    qfree(copy);
  }
}

TEST_F(Qstrdup, TakesItsBlockFromQmallocUnderTheTagGiven) {
  allocation_tags();
  qfree(qstrdup("text", "some tag"));
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"some tag"});
}

TEST_F(Qstrdup, ANullTextGivesNull) {
  const long made = allocations_made();
  EXPECT_EQ(qstrdup(nullptr, "test"), nullptr);
  EXPECT_EQ(allocations_made(), made);
}

TEST_F(Qstrdup, WithoutMemoryGivesNull) {
  fail_allocation_after(0);
  EXPECT_EQ(qstrdup("text", "test"), nullptr);
  EXPECT_TRUE(allocations_work());
}

}  // namespace
