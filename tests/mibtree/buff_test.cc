// The bounded text buffer: counting, appending, and what a full buffer holds.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "qmibtree.h"

namespace {

constexpr size_t kPointer = sizeof(void*);

TEST(BuffRecord, IsStartPositionSizeAndLeft) {
  EXPECT_EQ(offsetof(qmibtree_buff_t, start), 0u);
  EXPECT_EQ(offsetof(qmibtree_buff_t, pos), kPointer);
  EXPECT_EQ(offsetof(qmibtree_buff_t, size), 2 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_buff_t, left), 2 * kPointer + 4);
}

TEST(BuffCounting, AddsUpTheLengths) {
  qmibtree_buff_t buff = {};
  EXPECT_EQ(qmibtree_buff_dump(&buff, "abc"), 0u);
  EXPECT_EQ(qmibtree_buff_dump(&buff, "%d", 1234), 0u);
  EXPECT_EQ(qmibtree_buff_dump(&buff, "%s", "12345"), 0u);
  EXPECT_EQ(buff.size, 12u);
}

TEST(BuffCounting, AnEmptyTextAddsNothing) {
  qmibtree_buff_t buff = {};
  EXPECT_EQ(qmibtree_buff_dump(&buff, "%s", ""), QMIBTREE_RC_OK);
  EXPECT_EQ(buff.size, 0u);
}

TEST(BuffCounting, WritesNothing) {
  char text[] = "untouched";
  qmibtree_buff_t buff = {text, nullptr, 0, sizeof text};
  EXPECT_EQ(qmibtree_buff_dump(&buff, "abc"), 0u);
  EXPECT_STREQ(text, "untouched");
  EXPECT_EQ(buff.pos, nullptr);
  EXPECT_EQ(buff.left, sizeof text);
}

TEST(BuffCounting, IgnoresWhatIsLeft) {
  qmibtree_buff_t buff = {};
  buff.left = 2;
  EXPECT_EQ(qmibtree_buff_dump(&buff, "%0200d", 0), 0u);
  EXPECT_EQ(buff.size, 200u);
}

// A writing buffer over storage with a guard byte behind it.
class BuffWriting : public testing::Test {
 protected:
  void SetUp() override { std::memset(text_, '#', sizeof text_); }

  void make(uint32_t size) { buff_ = {text_, text_, size, size}; }
  void expect_untouched_from(size_t offset) {
    for (size_t i = offset; i < sizeof text_; ++i) EXPECT_EQ(text_[i], '#') << i;
  }

  char text_[32];
  qmibtree_buff_t buff_ = {};
};

TEST_F(BuffWriting, AppendsBehindWhatIsThere) {
  make(16);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%s=", "key"), 0u);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%u", 7u), 0u);
  EXPECT_STREQ(text_, "key=7");
  EXPECT_EQ(buff_.start, text_);
  EXPECT_EQ(buff_.pos, text_ + 5);
  EXPECT_EQ(buff_.left, 11u);
  EXPECT_EQ(buff_.size, 16u);
}

TEST_F(BuffWriting, ATextThatFitsWithItsNulFits) {
  make(5);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "abcd"), 0u);
  EXPECT_STREQ(text_, "abcd");
  EXPECT_EQ(buff_.pos, text_ + 4);
  EXPECT_EQ(buff_.left, 1u);
  expect_untouched_from(5);
}

TEST_F(BuffWriting, ATextTooLongByItsNulIsCutAndRefused) {
  make(5);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "abcde"), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_STREQ(text_, "abcd");
  EXPECT_EQ(buff_.pos, text_);
  EXPECT_EQ(buff_.left, 5u);
  expect_untouched_from(5);
}

TEST_F(BuffWriting, AShorterTextFitsAfterARefusal) {
  make(5);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "abcdefghij"), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "xy"), 0u);
  EXPECT_STREQ(text_, "xy");
}

TEST_F(BuffWriting, WithRoomForANulOnlyTheEmptyTextFits) {
  make(1);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%s", ""), 0u);
  EXPECT_EQ(buff_.left, 1u);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "a"), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_STREQ(text_, "");
  expect_untouched_from(1);
}

TEST_F(BuffWriting, WithNothingLeftNothingIsTouched) {
  make(0);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%s", ""), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "a"), QMIBTREE_RC_DUMP_EXCEEDED);
  expect_untouched_from(0);
}

// No multibyte form of the character exists in the "C" locale, so formatting fails.
TEST_F(BuffWriting, AFailedFormattingCountsAsFull) {
  make(16);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%ls", L"\x4e2d"), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(buff_.pos, text_);
  EXPECT_EQ(buff_.left, 16u);
}

TEST_F(BuffWriting, CountingFirstGivesTheSizeThatFits) {
  qmibtree_buff_t counted = {};
  ASSERT_EQ(qmibtree_buff_dump(&counted, "%s-%d", "abc", -5), 0u);
  make(counted.size + 1);
  EXPECT_EQ(qmibtree_buff_dump(&buff_, "%s-%d", "abc", -5), 0u);
  EXPECT_STREQ(text_, "abc--5");
  EXPECT_EQ(buff_.left, 1u);
}

}  // namespace
