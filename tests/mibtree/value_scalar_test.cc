// Operations of int, unsignedInt and bool values.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"

using namespace qmibtree_testkit;

namespace {

class Scalar : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(live_blocks(), blocks_before_); }

  static const qmibtree_datafn_t* fn(uint32_t type) { return qmibtree_datatype_get_datafn(type); }

  // A value of another type with a block of its own.
  static qmibtree_value_t owned_string(const char* text) {
    qmibtree_value_t value = {};
    const qmibtree_value_t lent = string_value(text);
    fn(QMIBTREE_TYPE_STRING)->copy(&value, &lent);
    return value;
  }

  const int blocks_before_ = live_blocks();
};

using IntValue = Scalar;
using UintValue = Scalar;
using BoolValue = Scalar;

// What int, unsignedInt and bool do alike.
class EveryScalar : public Scalar, public testing::WithParamInterface<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(, EveryScalar,
                         testing::Values(QMIBTREE_TYPE_INT, QMIBTREE_TYPE_UINT, QMIBTREE_TYPE_BOOL),
                         [](const auto& tested) {
                           return qmibtree_datatype_get_type_str(tested.param);
                         });

TEST_P(EveryScalar, AssignAndCopyTakeTheWholeRecord) {
  qmibtree_value_t source;
  std::memset(&source, 0x5a, sizeof source);
  for (const auto slot : {fn(GetParam())->assign, fn(GetParam())->copy}) {
    qmibtree_value_t value = {};
    slot(&value, &source);
    EXPECT_EQ(value.type, 0x5a5a5a5au);
    EXPECT_EQ(value.data, source.data);
    EXPECT_EQ(value.len, 0x5a5a5a5au);
    EXPECT_EQ(value.owned, 0x5a);
  }
}

TEST_P(EveryScalar, AssignAndCopyReleaseNothing) {
  for (const auto slot : {fn(GetParam())->assign, fn(GetParam())->copy}) {
    qmibtree_value_t value = owned_string("lost");
    const char* const block = value.str;
    const int blocks = live_blocks();
    const qmibtree_value_t source = bool_value(true);
    slot(&value, &source);
    EXPECT_EQ(live_blocks(), blocks);
    qfree(const_cast<char*>(block));
  }
}

TEST_P(EveryScalar, ParsingReleasesWhatItReplaces) {
  qmibtree_value_t value = owned_string("before");
  EXPECT_EQ(fn(GetParam())->from_str(&value, "1"), 0u);
  EXPECT_EQ(value.type, GetParam());
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_P(EveryScalar, MayBeParsedFromTheTextItReplaces) {
  qmibtree_value_t value = owned_string("1");
  EXPECT_EQ(fn(GetParam())->from_str(&value, value.str), 0u);
  EXPECT_EQ(text_of(value), GetParam() == QMIBTREE_TYPE_BOOL ? "true" : "1");
}

TEST_P(EveryScalar, DoesNotRenderIntoAFullBuffer) {
  char text[] = "#";
  qmibtree_buff_t buff = {text, text, 1, 1};
  qmibtree_value_t value = {};
  ASSERT_EQ(fn(GetParam())->from_str(&value, "1"), 0u);
  EXPECT_EQ(fn(GetParam())->to_buff(&value, &buff), QMIBTREE_RC_DUMP_EXCEEDED);
}

TEST_P(EveryScalar, EqualLooksAtThePayloadAlone) {
  qmibtree_value_t a = {}, b = {};
  fn(GetParam())->from_str(&a, "1");
  fn(GetParam())->from_str(&b, "1");
  b.type = QMIBTREE_TYPE_DATETIME;
  b.len = 7;
  b.owned = 1;
  EXPECT_EQ(fn(GetParam())->equal(&a, &b), 1);
  fn(GetParam())->from_str(&b, "0");
  b.type = a.type;
  EXPECT_EQ(fn(GetParam())->equal(&a, &b), 0);
}

// datetime is a word like them.
TEST_F(Scalar, AssignAndCopyOfAWordAnswerZero) {
  for (const uint32_t type :
       {QMIBTREE_TYPE_INT, QMIBTREE_TYPE_UINT, QMIBTREE_TYPE_BOOL, QMIBTREE_TYPE_DATETIME}) {
    for (const auto slot : {fn(type)->assign, fn(type)->copy}) {
      qmibtree_value_t source = int_value(1), value = {};
      source.type = type;
      EXPECT_EQ(slot(&value, &source), 0u) << type;
    }
  }
}

struct parsed {
  const char* text;
  int32_t number;
};

constexpr parsed kDecimals[] = {
    {"0", 0},
    {"42", 42},
    {"+7", 7},
    {"-1", -1},
    {" \t\n12", 12},
    {"12abc", 12},
    {"12.9", 12},
    {"abc", 0},
    {"", 0},
    {"0x10", 0},
    {"-", 0},
    {"007", 7},
    {"- 5", 0},
    {"2147483647", INT32_MAX},
    {"-2147483648", INT32_MIN},
};

TEST_F(IntValue, ParsesTheDecimalInFrontAndRefusesNoText) {
  for (const parsed& each : kDecimals) {
    qmibtree_value_t value = int_value(99);
    EXPECT_EQ(fn(QMIBTREE_TYPE_INT)->from_str(&value, each.text), 0u) << each.text;
    EXPECT_EQ(value.type, QMIBTREE_TYPE_INT);
    EXPECT_EQ(value.i, each.number) << each.text;
  }
}

TEST_F(UintValue, ParsesTheSameSignedDecimals) {
  for (const parsed& each : kDecimals) {
    qmibtree_value_t value = uint_value(99);
    EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->from_str(&value, each.text), 0u) << each.text;
    EXPECT_EQ(value.type, QMIBTREE_TYPE_UINT);
    EXPECT_EQ(value.u, static_cast<uint32_t>(each.number)) << each.text;
  }
}

TEST_F(UintValue, MinusOneIsTheLargestNumberAndFailsTheBound) {
  qmibtree_uidinfo_t record = {};
  record.uint_max = 100;
  qmibtree_value_t value = {};
  EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->from_str(&value, "-1"), 0u);
  EXPECT_EQ(value.u, 4294967295u);
  EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->check(&record, &value), QMIBTREE_RC_OUT_OF_RANGE);
}

TEST_F(UintValue, TheUpperHalfComesBackFromItsText) {
  for (const uint32_t number : {0x80000000u, 3000000000u, UINT32_MAX}) {
    qmibtree_value_t value = {};
    EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->from_str(&value, std::to_string(number).c_str()), 0u);
    EXPECT_EQ(value.u, number);
  }
}

struct int_bound {
  int32_t min, max, value;
  uint32_t rc;
};

TEST_F(IntValue, IsCheckedAgainstItsSignedBounds) {
  constexpr int_bound kBounds[] = {
      {-10, 10, -10, 0}, {-10, 10, 10, 0},
      {-10, 10, 0, 0},   {-10, 10, -11, 70},
      {-10, 10, 11, 70}, {INT32_MIN, INT32_MAX, INT32_MIN, 0},
      {5, 5, 5, 0},      {INT32_MIN, INT32_MAX, INT32_MAX, 0},
      {5, 5, 4, 70},     {0, INT32_MAX, -1, 70},
      {10, -10, 0, 70},  {INT32_MIN, -1, 0, 70},
  };
  for (const int_bound& each : kBounds) {
    qmibtree_uidinfo_t record = {};
    record.int_min = each.min;
    record.int_max = each.max;
    record.uint_min = record.uint_max = record.max_len = 1;  // the bounds of other types
    const qmibtree_value_t value = int_value(each.value);
    EXPECT_EQ(fn(QMIBTREE_TYPE_INT)->check(&record, &value), each.rc)
        << each.value << " in " << each.min << ".." << each.max;
  }
}

struct uint_bound {
  uint32_t min, max, value, rc;
};

TEST_F(UintValue, IsCheckedAgainstItsUnsignedBounds) {
  constexpr uint_bound kBounds[] = {
      {10, 20, 10, 0},
      {10, 20, 20, 0},
      {10, 20, 9, 70},
      {10, 20, 21, 70},
      {0, 0x80000000u, 1, 0},
      {0, UINT32_MAX, UINT32_MAX, 0},
      {0x80000000u, UINT32_MAX, 0x80000000u, 0},
      {0x80000000u, UINT32_MAX, 0x7fffffffu, 70},
  };
  for (const uint_bound& each : kBounds) {
    qmibtree_uidinfo_t record = {};
    record.uint_min = each.min;
    record.uint_max = each.max;
    record.int_min = record.int_max = 1;
    record.max_len = 1;
    const qmibtree_value_t value = uint_value(each.value);
    EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->check(&record, &value), each.rc)
        << each.value << " in " << each.min << ".." << each.max;
  }
}

TEST_F(IntValue, BothBoundsZeroAdmitOnlyZero) {
  const qmibtree_uidinfo_t record = {};
  for (const int32_t number : {-1, 1}) {
    const qmibtree_value_t value = int_value(number);
    EXPECT_EQ(fn(QMIBTREE_TYPE_INT)->check(&record, &value), QMIBTREE_RC_OUT_OF_RANGE);
  }
  const qmibtree_value_t zero = int_value(0);
  EXPECT_EQ(fn(QMIBTREE_TYPE_INT)->check(&record, &zero), 0u);
}

TEST_F(UintValue, BothBoundsZeroAdmitOnlyZero) {
  const qmibtree_uidinfo_t record = {};
  const qmibtree_value_t zero = uint_value(0), one = uint_value(1);
  EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->check(&record, &zero), 0u);
  EXPECT_EQ(fn(QMIBTREE_TYPE_UINT)->check(&record, &one), QMIBTREE_RC_OUT_OF_RANGE);
}

TEST_F(IntValue, RendersSigned) {
  EXPECT_EQ(text_of(int_value(0)), "0");
  EXPECT_EQ(text_of(int_value(INT32_MIN)), "-2147483648");
  EXPECT_EQ(text_of(int_value(INT32_MAX)), "2147483647");
}

TEST_F(UintValue, RendersUnsigned) {
  EXPECT_EQ(text_of(uint_value(0)), "0");
  EXPECT_EQ(text_of(uint_value(UINT32_MAX)), "4294967295");
}

struct word {
  const char* text;
  uint8_t value;
};

TEST_F(BoolValue, KnowsFourWords) {
  for (const word& each : {word{"true", 1}, word{"1", 1}, word{"0", 0}, word{"false", 0}}) {
    qmibtree_value_t value = bool_value(!each.value);
    EXPECT_EQ(fn(QMIBTREE_TYPE_BOOL)->from_str(&value, each.text), 0u) << each.text;
    EXPECT_EQ(value.type, QMIBTREE_TYPE_BOOL);
    EXPECT_EQ(value.b, each.value) << each.text;
  }
}

TEST_F(BoolValue, RefusesEveryOtherWordAndKeepsTheOldValue) {
  for (const char* text : {"TRUE", "True", "FALSE", "yes", "no", "", "2", "-1", "01", "10", "true ",
                           " true", "tru", "falsey"}) {
    qmibtree_value_t value = owned_string("before");
    EXPECT_EQ(fn(QMIBTREE_TYPE_BOOL)->from_str(&value, text), QMIBTREE_RC_ERROR) << text;
    EXPECT_EQ(value.type, QMIBTREE_TYPE_STRING) << text;
    EXPECT_STREQ(value.str, "before") << text;
    EXPECT_EQ(value.owned, 1) << text;
    fn(QMIBTREE_TYPE_STRING)->release(&value);
  }
}

TEST_F(BoolValue, OnlyItsByteIsCompared) {
  qmibtree_value_t a = {}, b = {};
  a.u = 0xffffffff;
  a.b = 1;
  b.u = 0;
  b.b = 1;
  EXPECT_EQ(fn(QMIBTREE_TYPE_BOOL)->equal(&a, &b), 1);
  b.b = 0;
  EXPECT_EQ(fn(QMIBTREE_TYPE_BOOL)->equal(&a, &b), 0);
}

TEST_F(BoolValue, ParsingClearsTheWholePayload) {
  qmibtree_value_t fresh = {}, value = int_value(-1);
  ASSERT_EQ(fn(QMIBTREE_TYPE_BOOL)->from_str(&fresh, "true"), 0u);
  ASSERT_EQ(fn(QMIBTREE_TYPE_BOOL)->from_str(&value, "true"), 0u);
  EXPECT_EQ(value.u, fresh.u);
}

TEST_F(BoolValue, RendersAWord) {
  EXPECT_EQ(text_of(bool_value(true)), "true");
  EXPECT_EQ(text_of(bool_value(false)), "false");
}

TEST_F(BoolValue, EveryByteButZeroRendersTrue) {
  qmibtree_value_t value = bool_value(true);
  value.b = 0x80;
  EXPECT_EQ(text_of(value), "true");
  value.u = 0xffffffff;
  value.b = 0;
  EXPECT_EQ(text_of(value), "false");
}

}  // namespace
