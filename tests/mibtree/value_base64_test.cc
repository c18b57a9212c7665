// Operations of base64 values: sharing, owning and releasing bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"

using namespace qmibtree_testkit;

namespace {

class Base64Value : public testing::Test {
 protected:
  void TearDown() override {
    fn_->release(&owner_);
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  void own(const char* bytes, uint32_t len) {
    const qmibtree_value_t lent = base64_value(bytes, len);
    ASSERT_EQ(fn_->copy(&owner_, &lent), 1u);
  }

  uint32_t check(const void* bytes, uint32_t len, uint32_t max_len) {
    qmibtree_uidinfo_t record = {};
    record.max_len = max_len;
    const qmibtree_value_t value = base64_value(bytes, len);
    return fn_->check(&record, &value);
  }

  int equal(const void* a, uint32_t a_len, const void* b, uint32_t b_len) {
    const qmibtree_value_t first = base64_value(a, a_len), second = base64_value(b, b_len);
    return fn_->equal(&first, &second);
  }

  // A parsed value's block is marked as nobody's, so that release leaves it: the test frees it.
  void free_decoded(qmibtree_value_t* value) {
    qfree(const_cast<uint8_t*>(value->data));
    value->data = nullptr;
  }

  const int blocks_before_ = live_blocks();
  const qmibtree_datafn_t* const fn_ = qmibtree_datatype_get_datafn(QMIBTREE_TYPE_BASE64);
  qmibtree_value_t owner_ = {};
};

TEST_F(Base64Value, AssignSharesTheBytes) {
  own("a\0c", 3);
  qmibtree_value_t sharing = {};
  fn_->assign(&sharing, &owner_);
  EXPECT_EQ(sharing.type, QMIBTREE_TYPE_BASE64);
  EXPECT_EQ(sharing.data, owner_.data);
  EXPECT_EQ(sharing.len, 3u);
  EXPECT_EQ(sharing.owned, 0);
  EXPECT_EQ(owner_.owned, 1);
}

TEST_F(Base64Value, AssignAnswersTheTypeId) {
  for (const char* bytes : {"abc", static_cast<const char*>(nullptr)}) {
    const qmibtree_value_t lent = base64_value(bytes, bytes ? 3 : 0);
    EXPECT_EQ(fn_->assign(&owner_, &lent), 6u);
  }
}

TEST_F(Base64Value, AssignReleasesWhatItReplaces) {
  own("before", 6);
  const qmibtree_value_t lent = base64_value("after", 5);
  fn_->assign(&owner_, &lent);
  EXPECT_EQ(owner_.data, lent.data);
  EXPECT_EQ(owner_.len, 5u);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(Base64Value, CopyOwnsBytesOfItsOwn) {
  const qmibtree_value_t lent = base64_value("a\0c", 3);
  allocation_tags();
  EXPECT_EQ(fn_->copy(&owner_, &lent), 1u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  EXPECT_NE(owner_.data, lent.data);
  ASSERT_EQ(owner_.len, 3u);
  EXPECT_EQ(std::memcmp(owner_.data, "a\0c", 3), 0);
  EXPECT_EQ(owner_.owned, 1);
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"mib base64 data"});
}

TEST_F(Base64Value, CopyReleasesWhatItReplaces) {
  own("before", 6);
  own("after", 5);
  EXPECT_EQ(owner_.len, 5u);
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

TEST_F(Base64Value, CopyOfNoBytesGivesNone) {
  own("before", 6);
  for (const void* bytes : {static_cast<const void*>(nullptr), static_cast<const void*>("x")}) {
    const qmibtree_value_t none = base64_value(bytes, 0);
    EXPECT_EQ(fn_->copy(&owner_, &none), 0u);
    EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
    EXPECT_EQ(owner_.data, nullptr);
    EXPECT_EQ(owner_.len, 0u);
    EXPECT_EQ(owner_.owned, 0);
  }
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(Base64Value, CopyWithoutMemoryLeavesATypedEmptyValue) {
  own("before", 6);
  const qmibtree_value_t lent = base64_value("after", 5);
  fail_allocation_after(0);
  EXPECT_EQ(fn_->copy(&owner_, &lent), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  EXPECT_EQ(owner_.data, nullptr);
  EXPECT_EQ(owner_.len, 0u);
  EXPECT_EQ(owner_.owned, 0);
}

TEST_F(Base64Value, ReplacingAStringReleasesItsText) {
  const qmibtree_value_t text = string_value("text");
  ASSERT_EQ(qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(&owner_, &text), 1u);
  own("abc", 3);
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

TEST_F(Base64Value, EqualComparesTheBytes) {
  const char one[] = "a\0c", other[] = "a\0c";
  EXPECT_EQ(equal(one, 3, one, 3), 1);
  EXPECT_EQ(equal(one, 3, other, 3), 1);
  EXPECT_EQ(equal("a\0c", 3, "a\0d", 3), 0);
  EXPECT_EQ(equal("abcX", 3, "abcY", 3), 1);
}

TEST_F(Base64Value, DifferentLengthsAreNotEqual) {
  const char bytes[] = "abc";
  EXPECT_EQ(equal(bytes, 3, bytes, 2), 0);
  EXPECT_EQ(equal(nullptr, 0, nullptr, 1), 0);
}

TEST_F(Base64Value, NoBlockEqualsOnlyNoBlock) {
  EXPECT_EQ(equal(nullptr, 0, nullptr, 0), 1);
  EXPECT_EQ(equal(nullptr, 0, "", 0), 0);
  EXPECT_EQ(equal("", 0, nullptr, 0), 0);
}

TEST_F(Base64Value, TheMaximumCountsDecodedBytes) {
  EXPECT_EQ(check("abc", 3, 3), 0u);
  EXPECT_EQ(check("abcd", 4, 3), QMIBTREE_RC_OUT_OF_RANGE);
}

TEST_F(Base64Value, AMaximumOfZeroOrLessIsNone) {
  for (const uint32_t max_len : {0u, 0xffffffffu, 0x80000000u}) {
    EXPECT_EQ(check("abcd", 4, max_len), 0u) << max_len;
    EXPECT_EQ(check("abcd", UINT32_MAX, max_len), 0u) << max_len;  // the bytes are not looked at
  }
}

TEST_F(Base64Value, NoBlockPassesEveryMaximum) { EXPECT_EQ(check(nullptr, 9, 1), 0u); }

TEST_F(Base64Value, ParsingDecodes) {
  own("before", 6);
  EXPECT_EQ(fn_->from_str(&owner_, "AGIA"), 0u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  ASSERT_EQ(owner_.len, 3u);
  EXPECT_EQ(std::memcmp(owner_.data, "\0b\0", 3), 0);
  free_decoded(&owner_);
}

TEST_F(Base64Value, TheDecodedBlockIsFreedByNobody) {
  EXPECT_EQ(fn_->from_str(&owner_, "YWJj"), 0u);
  EXPECT_EQ(owner_.owned, 0);
  qmibtree_value_t decoded = owner_;
  fn_->release(&owner_);
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
  free_decoded(&decoded);
}

TEST_F(Base64Value, InvalidTextParsesAsNoBytes) {
  own("before", 6);
  EXPECT_EQ(fn_->from_str(&owner_, "Y Q="), 0u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  EXPECT_EQ(owner_.data, nullptr);
  EXPECT_EQ(owner_.len, 0u);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(Base64Value, ParsingWithoutMemoryGivesNoBytes) {
  fail_allocation_after(0);
  EXPECT_EQ(fn_->from_str(&owner_, "YWJj"), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  EXPECT_EQ(owner_.data, nullptr);
  EXPECT_EQ(owner_.len, 0u);
}

TEST_F(Base64Value, MayBeParsedFromTheTextItReplaces) {
  const qmibtree_value_t text = string_value("YWJj");
  ASSERT_EQ(qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(&owner_, &text), 1u);
  EXPECT_EQ(fn_->from_str(&owner_, owner_.str), 0u);
  ASSERT_EQ(owner_.len, 3u);
  EXPECT_EQ(std::memcmp(owner_.data, "abc", 3), 0);
  free_decoded(&owner_);
}

TEST_F(Base64Value, RendersEncoded) {
  EXPECT_EQ(text_of(base64_value("a", 1)), "YQ==");
  EXPECT_EQ(text_of(base64_value("\0b\0", 3)), "AGIA");
  EXPECT_EQ(text_of(base64_value("", 0)), "");
}

TEST_F(Base64Value, NoBlockRendersAsNothing) { EXPECT_EQ(text_of(base64_value(nullptr, 0)), ""); }

TEST_F(Base64Value, WithoutMemoryToEncodeRendersAsNull) {
  char text[16];
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  const qmibtree_value_t value = base64_value("abc", 3);
  fail_allocation_after(0);
  EXPECT_EQ(fn_->to_buff(&value, &buff), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_STREQ(text, "<null>");
}

TEST_F(Base64Value, DoesNotRenderIntoAFullBuffer) {
  char text[4];
  qmibtree_buff_t buff = {text, text, 4, 4};
  const qmibtree_value_t value = base64_value("abc", 3);
  EXPECT_EQ(fn_->to_buff(&value, &buff), QMIBTREE_RC_DUMP_EXCEEDED);
}

TEST_F(Base64Value, ReleaseFreesOwnedBytesAndKeepsTheType) {
  own("abc", 3);
  fn_->release(&owner_);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_BASE64);
  EXPECT_EQ(owner_.data, nullptr);
  EXPECT_EQ(owner_.len, 0u);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(Base64Value, ReleaseLeavesLentBytes) {
  own("abc", 3);
  qmibtree_value_t sharing = {};
  fn_->assign(&sharing, &owner_);
  fn_->release(&sharing);
  EXPECT_EQ(sharing.data, nullptr);
  EXPECT_EQ(sharing.len, 0u);
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

}  // namespace
