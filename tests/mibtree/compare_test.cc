// Shows how a value is compared with a parameter's current one.
#include <gtest/gtest.h>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t { kRoot, kInt, kUint, kString, kBool, kBase64, kDatetime, kUnset, kDynamic };

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "i", QMIBTREE_TYPE_INT, 0, "5");
  schema.add(1, "u", QMIBTREE_TYPE_UINT, 0, "5");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, "text");
  schema.add(1, "b", QMIBTREE_TYPE_BOOL, 0, "true");
  schema.add(1, "k", QMIBTREE_TYPE_BASE64);
  schema.add(1, "d", QMIBTREE_TYPE_DATETIME);
  schema.add(1, "unset", QMIBTREE_TYPE_STRING);
  schema.add(1, "dyn", QMIBTREE_TYPE_STRING, QMIBTREE_UID_DYNAMIC, "stored");
  return schema;
}

uint32_t get_result;
uint32_t get_flags;

// Hands over a text that the reader must release.
uint32_t get(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t flags) {
  get_flags = flags;
  const qmibtree_value_t text = string_value("fresh");
  if (!QMIBTREE_FAILED(get_result))
    qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(value, &text);
  return get_result;
}

class Compare : public ::testing::Test {
 protected:
  void SetUp() override {
    changes().clear();
    get_result = get_flags = 0;
    ASSERT_NE(tree.inst, nullptr);
    schema.record(kDynamic).get_fn = get;
    const qmibtree_value_t bytes = base64_value("abc", 3), time = datetime_value(5);
    ASSERT_EQ(qmibtree_write(tree.inst, "A.k", &bytes, 0), 0u);
    ASSERT_EQ(qmibtree_write(tree.inst, "A.d", &time, 0), 0u);
  }

  uint32_t compare(const char* name, const qmibtree_value_t& value, uint32_t flags = 0) {
    return qmibtree_compare(tree.inst, name, &value, flags);
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
};

TEST_F(Compare, AnEqualValueOfEveryTypeGivesOk) {
  EXPECT_EQ(compare("A.i", int_value(5)), 0u);
  EXPECT_EQ(compare("A.u", uint_value(5)), 0u);
  EXPECT_EQ(compare("A.s", string_value("text")), 0u);
  EXPECT_EQ(compare("A.b", bool_value(true)), 0u);
  EXPECT_EQ(compare("A.k", base64_value("abc", 3)), 0u);
  EXPECT_EQ(compare("A.d", datetime_value(5)), 0u);
  EXPECT_EQ(compare("A.unset", string_value(nullptr)), 0u);
}

TEST_F(Compare, AnotherValueOfEveryTypeIsDifferent) {
  EXPECT_EQ(compare("A.i", int_value(-5)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.u", uint_value(6)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.s", string_value("texts")), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.s", string_value(nullptr)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.b", bool_value(false)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.k", base64_value("abd", 3)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.k", base64_value("abc", 2)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.d", datetime_value(6)), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.unset", string_value("")), QMIBTREE_RC_DIFFERENT);
}

TEST_F(Compare, AnotherTypeIsAMismatch) {
  EXPECT_EQ(compare("A.s", int_value(5)), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(compare("A.i", uint_value(5)), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(compare("A.d", int_value(5)), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(compare("A.i", qmibtree_value_t{}), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(compare("A.", int_value(0)), QMIBTREE_RC_TYPE_MISMATCH);
}

TEST_F(Compare, NoValueCannotBeComparedWithNoValue) {
  EXPECT_EQ(compare("A.", qmibtree_value_t{}), QMIBTREE_RC_NO_HOOK);
}

TEST_F(Compare, TheStoredValuesTypeCountsNotTheRecords) {
  const qmibtree_value_t text = string_value("seven");
  ASSERT_EQ(qmibtree_write(tree.inst, "A.i", &text, 0), 0u);
  EXPECT_EQ(compare("A.i", int_value(5)), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(compare("A.i", text), 0u);
}

TEST_F(Compare, ADynamicParameterIsAskedForItsValueWithTheCallersFlags) {
  EXPECT_EQ(compare("A.dyn", string_value("fresh"), 0x77), 0u);
  EXPECT_EQ(get_flags, 0x77u);
  EXPECT_EQ(compare("A.dyn", string_value("stored")), QMIBTREE_RC_DIFFERENT);
}

TEST_F(Compare, TheTextAHookHandedOverIsReleased) {
  const int before = live_blocks();
  EXPECT_EQ(compare("A.dyn", string_value("fresh")), 0u);
  EXPECT_EQ(compare("A.dyn", string_value("stale")), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(compare("A.dyn", int_value(1)), QMIBTREE_RC_TYPE_MISMATCH);
  EXPECT_EQ(live_blocks(), before);
}

TEST_F(Compare, AHooksSuccessCodeIsNotPassedUp) {
  get_result = 31;
  EXPECT_EQ(compare("A.dyn", string_value("fresh")), 0u);
  EXPECT_EQ(compare("A.dyn", string_value("stale")), QMIBTREE_RC_DIFFERENT);
}

TEST_F(Compare, AHooksFailureIsPassedUp) {
  get_result = QMIBTREE_RC_NO_RESOURCE;
  EXPECT_EQ(compare("A.dyn", string_value("fresh")), QMIBTREE_RC_NO_RESOURCE);
}

TEST_F(Compare, ADynamicParameterWithoutAHookCannotBeRead) {
  schema.record(kDynamic).get_fn = nullptr;
  EXPECT_EQ(compare("A.dyn", string_value("stored")), QMIBTREE_RC_NO_HOOK);
}

TEST_F(Compare, ChangesNothing) {
  changes().clear();
  const qmibtree_node before = *tree.node("A.s");
  const long made = allocations_made();
  EXPECT_EQ(compare("A.s", string_value("other")), QMIBTREE_RC_DIFFERENT);
  EXPECT_EQ(tree.node("A.s")->value.str, before.value.str);
  EXPECT_STREQ(before.value.str, "text");
  EXPECT_EQ(tree.node("A.s")->flags, before.flags);
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_EQ(allocations_made(), made);
  EXPECT_TRUE(changes().empty());
}

TEST_F(Compare, TakesTheNameInTwoPieces) {
  const qmibtree_value_t five = int_value(5), six = int_value(6);
  EXPECT_EQ(qmibtree_compare_v2(tree.inst, "A.", "i", &five, 0), 0u);
  EXPECT_EQ(qmibtree_compare_v2(tree.inst, "A.", "i", &six, 0), QMIBTREE_RC_DIFFERENT);
}

TEST_F(Compare, TakesANode) {
  const qmibtree_value_t five = int_value(5);
  EXPECT_EQ(qmibtree_compare_by_node(tree.inst, tree.node("A.i"), &five, 0), 0u);
}

TEST_F(Compare, AnswersNotFoundForAnUnknownName) {
  const qmibtree_value_t five = int_value(5);
  EXPECT_EQ(compare("A.x", five), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(qmibtree_compare_v2(tree.inst, "A.", "x", &five, 0), QMIBTREE_RC_NOT_FOUND);
}

}  // namespace
