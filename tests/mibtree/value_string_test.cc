// Operations of string values: sharing, owning and releasing text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"

using namespace qmibtree_testkit;

namespace {

class StringValue : public testing::Test {
 protected:
  void TearDown() override {
    fn_->release(&owner_);
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  // Makes owner_ hold a copy of `text`.
  void own(const char* text) {
    const qmibtree_value_t lent = string_value(text);
    ASSERT_EQ(fn_->copy(&owner_, &lent), 1u);
  }

  uint32_t check(const char* text, uint32_t max_len) {
    qmibtree_uidinfo_t record = {};
    record.max_len = max_len;
    const qmibtree_value_t value = string_value(text);
    return fn_->check(&record, &value);
  }

  int equal(const char* a, const char* b) {
    const qmibtree_value_t first = string_value(a), second = string_value(b);
    return fn_->equal(&first, &second);
  }

  const int blocks_before_ = live_blocks();
  const qmibtree_datafn_t* const fn_ = qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING);
  qmibtree_value_t owner_ = {};
};

TEST_F(StringValue, AssignSharesTheText) {
  own("text");
  qmibtree_value_t sharing = {};
  fn_->assign(&sharing, &owner_);
  EXPECT_EQ(sharing.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(sharing.str, owner_.str);
  EXPECT_EQ(sharing.owned, 0);
  EXPECT_EQ(owner_.owned, 1);
}

TEST_F(StringValue, AssignAnswersTheTypeId) {
  for (const char* text : {"text", static_cast<const char*>(nullptr)}) {
    const qmibtree_value_t lent = string_value(text);
    EXPECT_EQ(fn_->assign(&owner_, &lent), 4u);
  }
}

TEST_F(StringValue, AssignReleasesWhatItReplaces) {
  own("before");
  const qmibtree_value_t lent = string_value("after");
  fn_->assign(&owner_, &lent);
  EXPECT_EQ(owner_.str, lent.str);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, AssignOfNoTextGivesNone) {
  own("before");
  const qmibtree_value_t none = string_value(nullptr);
  fn_->assign(&owner_, &none);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(owner_.str, nullptr);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, CopyOwnsATextOfItsOwn) {
  const qmibtree_value_t lent = string_value("text");
  allocation_tags();
  EXPECT_EQ(fn_->copy(&owner_, &lent), 1u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_NE(owner_.str, lent.str);
  EXPECT_STREQ(owner_.str, "text");
  EXPECT_EQ(owner_.owned, 1);
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"mib string data"});
}

TEST_F(StringValue, CopyReleasesWhatItReplaces) {
  own("before");
  own("after");
  EXPECT_STREQ(owner_.str, "after");
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

TEST_F(StringValue, CopyOfNoTextGivesNone) {
  own("before");
  const qmibtree_value_t none = string_value(nullptr);
  EXPECT_EQ(fn_->copy(&owner_, &none), 0u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(owner_.str, nullptr);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, CopyOfTheEmptyTextOwnsABlock) {
  own("");
  EXPECT_STREQ(owner_.str, "");
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

TEST_F(StringValue, CopyWithoutMemoryLeavesATypedEmptyValue) {
  own("before");
  const qmibtree_value_t lent = string_value("after");
  fail_allocation_after(0);
  EXPECT_EQ(fn_->copy(&owner_, &lent), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(owner_.str, nullptr);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, ReplacingABase64ValueReleasesItsBytes) {
  const qmibtree_value_t bytes = base64_value("abc", 3);
  const qmibtree_datafn_t* const base64 = qmibtree_datatype_get_datafn(QMIBTREE_TYPE_BASE64);
  ASSERT_EQ(base64->copy(&owner_, &bytes), 1u);
  own("text");
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

// Eight, nine and ten are other names of the string type.
TEST_F(StringValue, EverySlotThatFillsAValueTurnsAnAliasIntoString) {
  const qmibtree_value_t lent = string_value("text");
  for (const uint32_t alias : {8u, 9u, 10u}) {
    owner_.type = alias;
    fn_->assign(&owner_, &lent);
    EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
    owner_.type = alias;
    fn_->from_str(&owner_, "text");
    EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
    owner_.type = alias;
    fn_->copy(&owner_, &lent);
    EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
    owner_.type = alias;
    own("an alias owns and releases its text");
  }
}

TEST_F(StringValue, EqualComparesTheTexts) {
  const std::string one = "text", other = "text";
  EXPECT_EQ(equal(one.c_str(), one.c_str()), 1);
  EXPECT_EQ(equal(one.c_str(), other.c_str()), 1);
  EXPECT_EQ(equal("text", "Text"), 0);
  EXPECT_EQ(equal("text", "text2"), 0);
  EXPECT_EQ(equal("", ""), 1);
}

TEST_F(StringValue, NoTextEqualsOnlyNoText) {
  EXPECT_EQ(equal(nullptr, nullptr), 1);
  EXPECT_EQ(equal(nullptr, ""), 0);
  EXPECT_EQ(equal("", nullptr), 0);
}

TEST_F(StringValue, ATextOfTheMaximumLengthPasses) {
  EXPECT_EQ(check("abc", 3), 0u);
  EXPECT_EQ(check("ab", 3), 0u);
  EXPECT_EQ(check("", 1), 0u);
}

TEST_F(StringValue, ALongerTextIsOutOfRange) {
  EXPECT_EQ(check("abcd", 3), QMIBTREE_RC_OUT_OF_RANGE);
  EXPECT_EQ(check("ab", 1), QMIBTREE_RC_OUT_OF_RANGE);
}

TEST_F(StringValue, AMaximumOfZeroOrLessIsNone) {
  for (const uint32_t max_len : {0u, 0xffffffffu, 0x80000000u}) {
    EXPECT_EQ(check("abcd", max_len), 0u) << max_len;
  }
}

TEST_F(StringValue, NoTextPassesEveryMaximum) { EXPECT_EQ(check(nullptr, 1), 0u); }

TEST_F(StringValue, ParsingRefersToTheCallersText) {
  const char text[] = "text";
  own("before");
  EXPECT_EQ(fn_->from_str(&owner_, text), 0u);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(owner_.str, text);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, RendersItsText) {
  EXPECT_EQ(text_of(string_value("text")), "text");
  EXPECT_EQ(text_of(string_value("")), "");
}

TEST_F(StringValue, NoTextRendersAsNull) { EXPECT_EQ(text_of(string_value(nullptr)), "<null>"); }

TEST_F(StringValue, RendersConversionsAsTheyAre) {
  EXPECT_EQ(text_of(string_value("100%s %n %d")), "100%s %n %d");
}

TEST_F(StringValue, DoesNotRenderIntoAFullBuffer) {
  char text[4];
  qmibtree_buff_t buff = {text, text, 4, 4};
  const qmibtree_value_t value = string_value("text");
  EXPECT_EQ(fn_->to_buff(&value, &buff), QMIBTREE_RC_DUMP_EXCEEDED);
}

TEST_F(StringValue, ReleaseFreesAnOwnedTextAndKeepsTheType) {
  own("text");
  fn_->release(&owner_);
  EXPECT_EQ(owner_.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(owner_.str, nullptr);
  EXPECT_EQ(owner_.owned, 0);
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(StringValue, ReleaseLeavesALentText) {
  own("text");
  qmibtree_value_t sharing = {};
  fn_->assign(&sharing, &owner_);
  fn_->release(&sharing);
  EXPECT_EQ(sharing.str, nullptr);
  EXPECT_STREQ(owner_.str, "text");
  EXPECT_EQ(live_blocks(), blocks_before_ + 1);
}

TEST_F(StringValue, ReleaseKeepsAnAlias) {
  own("text");
  owner_.type = 9;
  fn_->release(&owner_);
  EXPECT_EQ(owner_.type, 9u);
}

}  // namespace
