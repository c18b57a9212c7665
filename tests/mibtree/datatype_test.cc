// The type table: names, operations records and their absent slots, and the value's layout.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "qmibtree.h"

namespace {

constexpr size_t kPointer = sizeof(void*);

TEST(ValueRecord, IsTypePayloadLengthAndOwnership) {
  EXPECT_EQ(offsetof(qmibtree_value_t, type), 0u);
  EXPECT_EQ(offsetof(qmibtree_value_t, len), 2 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, owned), 2 * kPointer + 4);
  EXPECT_EQ(sizeof(qmibtree_value_t), kPointer == 8 ? 24u : 16u);
}

TEST(ValueRecord, OverlaysThePayloads) {
  EXPECT_EQ(offsetof(qmibtree_value_t, i), kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, u), kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, t), kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, b), kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, str), kPointer);
  EXPECT_EQ(offsetof(qmibtree_value_t, data), kPointer);
}

TEST(DatafnRecord, IsTheTypeAndSevenSlotsInOrder) {
  EXPECT_EQ(offsetof(qmibtree_datafn_t, type), 0u);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, assign), 1 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, copy), 2 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, equal), 3 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, check), 4 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, from_str), 5 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, to_buff), 6 * kPointer);
  EXPECT_EQ(offsetof(qmibtree_datafn_t, release), 7 * kPointer);
  EXPECT_EQ(sizeof(qmibtree_datafn_t), 8 * kPointer);
}

TEST(DatatypeTable, TheTypesHaveTheirNumbers) {
  EXPECT_EQ(QMIBTREE_TYPE_OBJECT, 1u);
  EXPECT_EQ(QMIBTREE_TYPE_INT, 2u);
  EXPECT_EQ(QMIBTREE_TYPE_UINT, 3u);
  EXPECT_EQ(QMIBTREE_TYPE_STRING, 4u);
  EXPECT_EQ(QMIBTREE_TYPE_DATETIME, 5u);
  EXPECT_EQ(QMIBTREE_TYPE_BASE64, 6u);
  EXPECT_EQ(QMIBTREE_TYPE_BOOL, 7u);
}

struct type_row {
  uint32_t id;
  const char* name;
  uint32_t served;    // type in the operations record
  const char* slots;  // the slots present, by initial; "" for none
};

// a assign, c copy, e equal, k check, f from_str, t to_buff, r release
constexpr type_row kTypes[] = {
    {0, "unkown", 0, ""},          {1, "object", 0, ""},
    {2, "int", 2, "acekft"},       {3, "unsignedInt", 3, "acekft"},
    {4, "string", 4, "acekftr"},   {5, "datetime", 5, "aceft"},
    {6, "base64", 6, "acekftr"},   {7, "bool", 7, "aceft"},
    {8, "string", 4, "acekftr"},   {9, "string", 4, "acekftr"},
    {10, "string", 4, "acekftr"},  {11, "unkown", 0, ""},
    {99, "unkown", 0, ""},         {0x80000004, "unkown", 0, ""},
    {0xffffffff, "unkown", 0, ""},
};

std::string slots_of(const qmibtree_datafn_t* fn) {
  std::string slots;
  if (fn->assign) slots += 'a';
  if (fn->copy) slots += 'c';
  if (fn->equal) slots += 'e';
  if (fn->check) slots += 'k';
  if (fn->from_str) slots += 'f';
  if (fn->to_buff) slots += 't';
  if (fn->release) slots += 'r';
  return slots;
}

class Datatype : public testing::TestWithParam<type_row> {};

TEST_P(Datatype, HasItsName) {
  EXPECT_STREQ(qmibtree_datatype_get_type_str(GetParam().id), GetParam().name);
}

TEST_P(Datatype, HasItsOperations) {
  const qmibtree_datafn_t* const fn = qmibtree_datatype_get_datafn(GetParam().id);
  ASSERT_NE(fn, nullptr);
  EXPECT_EQ(fn->type, GetParam().served);
  EXPECT_EQ(slots_of(fn), GetParam().slots);
}

INSTANTIATE_TEST_SUITE_P(, Datatype, testing::ValuesIn(kTypes), [](const auto& tested) {
  return "Type" + std::to_string(tested.param.id);
});

TEST(DatatypeTable, TypesEightToTenShareTheRecordOfString) {
  for (const uint32_t id : {8u, 9u, 10u}) {
    EXPECT_EQ(qmibtree_datatype_get_datafn(id), qmibtree_datatype_get_datafn(4)) << id;
  }
}

TEST(DatatypeTable, AllOtherTypesShareTheEmptyRecord) {
  for (const uint32_t id : {1u, 11u, 99u, 0xffffffffu}) {
    EXPECT_EQ(qmibtree_datatype_get_datafn(id), qmibtree_datatype_get_datafn(0)) << id;
  }
}

}  // namespace
