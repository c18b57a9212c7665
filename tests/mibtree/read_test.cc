// Shows what a read gives: the shared stored value, or the answer of the host's hook.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t { kRoot, kInt, kUint, kString, kBool, kBase64, kDatetime, kUnset, kDynamic, kText };

constexpr uint32_t kComponent = 5;

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "i", QMIBTREE_TYPE_INT, 0, "-5");
  schema.add(1, "u", QMIBTREE_TYPE_UINT, 0, "7");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, 0, "text");
  schema.add(1, "b", QMIBTREE_TYPE_BOOL, 0, "true");
  schema.add(1, "k", QMIBTREE_TYPE_BASE64);
  schema.add(1, "d", QMIBTREE_TYPE_DATETIME);
  schema.add(1, "unset", QMIBTREE_TYPE_STRING);
  schema.add(1, "dyn", QMIBTREE_TYPE_INT, QMIBTREE_UID_DYNAMIC | QMIBTREE_UID_NOTIF_DEFAULT, "1");
  schema.add(1, "text", QMIBTREE_TYPE_STRING, QMIBTREE_UID_DYNAMIC | QMIBTREE_UID_NOTIF_DEFAULT,
             "old");
  schema.record(kDynamic).comp = schema.record(kText).comp = kComponent;
  return schema;
}

// The host behind get_fn: what it was asked, and what it answers.
struct Host {
  int asked = 0;
  qmibtree_inst_t* inst = nullptr;
  qmibtree_node* node = nullptr;
  qmibtree_value_t* value = nullptr;
  bool value_was_zeroed = false;
  uint32_t flags = 0;

  uint32_t result = 0;
  qmibtree_value_t answer = {};
  bool gives_up = false;  // hands the value over to the tree: no longer dynamic
} host;

uint32_t get(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, uint32_t flags) {
  const qmibtree_value_t zeroed = {};
  ++host.asked;
  host.inst = inst;
  host.node = node;
  host.value = value;
  host.value_was_zeroed = std::memcmp(value, &zeroed, sizeof(zeroed)) == 0;
  host.flags = flags;
  *value = host.answer;
  if (host.gives_up) node->uidinfo->flags &= ~QMIBTREE_UID_DYNAMIC;
  return host.result;
}

class Read : public ::testing::Test {
 protected:
  void SetUp() override {
    host = Host();
    changes().clear();
    qmibtree_comp_register(kComponent, 0, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(tree.inst, nullptr);
    schema.record(kDynamic).get_fn = schema.record(kText).get_fn = get;
  }

  uint32_t read(const char* name, uint32_t flags = 0) {
    return qmibtree_read(tree.inst, name, &value, flags);
  }

  // That a read had none of a write's effects on the node.
  void expect_no_write_effects(const char* name) {
    EXPECT_EQ(tree.node(name)->flags, QMIBTREE_NODE_PARAM | QMIBTREE_NODE_NOTIF_ACTIVE);
    EXPECT_EQ(tree.inst->notif->num, 0u);
    EXPECT_EQ(qmibtree_comp_chk_mark(kComponent, UINT32_MAX), 0);
    EXPECT_TRUE(changes().empty());
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
  qmibtree_value_t value = {};
};

TEST_F(Read, GivesEveryTypesStoredValue) {
  const qmibtree_value_t bytes = base64_value("abc", 3), time = datetime_value(1000000000);
  ASSERT_EQ(qmibtree_write(tree.inst, "A.k", &bytes, 0), 0u);
  ASSERT_EQ(qmibtree_write(tree.inst, "A.d", &time, 0), 0u);
  const struct {
    const char* name;
    uint32_t type;
    const char* text;
  } rows[] = {{"A.i", QMIBTREE_TYPE_INT, "-5"},
              {"A.u", QMIBTREE_TYPE_UINT, "7"},
              {"A.s", QMIBTREE_TYPE_STRING, "text"},
              {"A.b", QMIBTREE_TYPE_BOOL, "true"},
              {"A.k", QMIBTREE_TYPE_BASE64, "YWJj"},
              {"A.d", QMIBTREE_TYPE_DATETIME, "2001-09-09T01:46:40"},
              {"A.unset", QMIBTREE_TYPE_STRING, "<null>"}};
  for (const auto& row : rows) {
    value = {};
    EXPECT_EQ(read(row.name), 0u) << row.name;
    EXPECT_EQ(value.type, row.type) << row.name;
    EXPECT_EQ(text_of(value), row.text) << row.name;
  }
}

TEST_F(Read, SharesTheNodesText) {
  const int before = live_blocks();
  EXPECT_EQ(read("A.s"), 0u);
  EXPECT_EQ(value.str, tree.node("A.s")->value.str);
  EXPECT_EQ(value.owned, 0);
  EXPECT_EQ(live_blocks(), before);
}

TEST_F(Read, SharesTheNodesBytes) {
  const qmibtree_value_t bytes = base64_value("abc", 3);
  ASSERT_EQ(qmibtree_write(tree.inst, "A.k", &bytes, 0), 0u);
  const int before = live_blocks();
  EXPECT_EQ(read("A.k"), 0u);
  EXPECT_EQ(value.data, tree.node("A.k")->value.data);
  EXPECT_EQ(value.len, 3u);
  EXPECT_EQ(value.owned, 0);
  EXPECT_EQ(live_blocks(), before);
}

TEST_F(Read, GivesTheTypeOfTheStoredValueNotOfTheRecord) {
  const qmibtree_value_t text = string_value("seven");
  ASSERT_EQ(qmibtree_write(tree.inst, "A.i", &text, 0), 0u);
  EXPECT_EQ(read("A.i"), 0u);
  EXPECT_EQ(value.type, QMIBTREE_TYPE_STRING);
  EXPECT_STREQ(value.str, "seven");
}

TEST_F(Read, OfAnObjectGivesNoValue) {
  EXPECT_EQ(read("A."), 0u);
  EXPECT_EQ(value.type, 0u);
}

TEST_F(Read, AsksNoHookForAValueTheTreeOwns) {
  schema.record(kInt).get_fn = get;
  EXPECT_EQ(read("A.i"), 0u);
  EXPECT_EQ(value.i, -5);
  EXPECT_EQ(host.asked, 0);
}

TEST_F(Read, TakesTheNameInTwoPieces) {
  EXPECT_EQ(qmibtree_read_v2(tree.inst, "A.", "u", &value, 0), 0u);
  EXPECT_EQ(value.u, 7u);
}

TEST_F(Read, AnswersNotFoundForAnUnknownName) {
  EXPECT_EQ(read("A.x"), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(qmibtree_read_v2(tree.inst, "A.", "x", &value, 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(value.type, 0u);
}

TEST_F(Read, OfADynamicParameterAsksTheHookWithTheReadersWords) {
  host.answer = int_value(42);
  EXPECT_EQ(read("A.dyn", 0x1234), 0u);
  EXPECT_EQ(value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(value.i, 42);
  EXPECT_EQ(host.asked, 1);
  EXPECT_EQ(host.inst, tree.inst);
  EXPECT_EQ(host.node, tree.node("A.dyn"));
  EXPECT_EQ(host.value, &value);
  EXPECT_TRUE(host.value_was_zeroed);
  EXPECT_EQ(host.flags, 0x1234u);
}

TEST_F(Read, OfADynamicParameterLeavesTheStoredValueAlone) {
  host.answer = int_value(42);
  EXPECT_EQ(read("A.dyn"), 0u);
  EXPECT_EQ(tree.node("A.dyn")->value.i, 1);
  expect_no_write_effects("A.dyn");
}

TEST_F(Read, AsksTheHookEveryTime) {
  host.answer = int_value(42);
  EXPECT_EQ(read("A.dyn"), 0u);
  host.answer = int_value(43);
  EXPECT_EQ(read("A.dyn"), 0u);
  EXPECT_EQ(value.i, 43);
}

TEST_F(Read, PassesTheHooksResultUp) {
  for (const uint32_t result : {1u, 31u, 32u, 72u, UINT32_MAX}) {
    host.result = result;
    EXPECT_EQ(read("A.dyn"), result);
  }
}

TEST_F(Read, OfADynamicParameterWithoutAHookAnswersNoHook) {
  schema.record(kDynamic).get_fn = nullptr;
  EXPECT_EQ(read("A.dyn"), QMIBTREE_RC_NO_HOOK);
  EXPECT_EQ(value.type, 0u);
}

TEST_F(Read, OfADynamicParameterWithoutAHookLeavesTheReadersValue) {
  schema.record(kDynamic).get_fn = nullptr;
  qmibtree_value_t before;
  std::memset(&before, 0x5a, sizeof before);
  std::memset(&value, 0x5a, sizeof value);
  EXPECT_EQ(read("A.dyn"), 50u);
  EXPECT_EQ(std::memcmp(&value, &before, sizeof value), 0);
}

TEST_F(Read, TakesTheValueOverWhenTheHookGivesItUp) {
  char text[] = "new";
  host.answer = string_value(text);
  host.gives_up = true;
  host.result = 5;
  EXPECT_EQ(read("A.text"), 5u);
  text[0] = 'N';  // the node has its own copy
  const qmibtree_value_t& stored = tree.node("A.text")->value;
  EXPECT_EQ(stored.type, QMIBTREE_TYPE_STRING);
  EXPECT_STREQ(stored.str, "new");
  EXPECT_EQ(stored.owned, 1);
  EXPECT_STREQ(tree.node("A.text")->default_value.str, "old");
  expect_no_write_effects("A.text");
}

TEST_F(Read, AfterATakeoverReadsTheStoredValue) {
  host.answer = int_value(42);
  host.gives_up = true;
  EXPECT_EQ(read("A.dyn"), 0u);
  host.answer = int_value(43);
  EXPECT_EQ(read("A.dyn"), 0u);
  EXPECT_EQ(value.i, 42);
  EXPECT_EQ(host.asked, 1);
}

TEST_F(Read, TakesNothingOverWhenTheValueIsTheSame) {
  const char* const stored = tree.node("A.text")->value.str;
  const long made = allocations_made();
  host.answer = string_value("old");
  host.gives_up = true;
  host.result = 3;
  EXPECT_EQ(read("A.text"), 3u);
  EXPECT_EQ(tree.node("A.text")->value.str, stored);
  EXPECT_EQ(allocations_made(), made);
}

TEST_F(Read, TakesNothingOverFromAHookThatFails) {
  host.answer = string_value("new");
  host.gives_up = true;
  host.result = QMIBTREE_RC_NO_RESOURCE;
  EXPECT_EQ(read("A.text"), QMIBTREE_RC_NO_RESOURCE);
  EXPECT_STREQ(tree.node("A.text")->value.str, "old");
}

TEST_F(Read, ATakeoverStoresAnotherTypeAndFreesTheOldText) {
  const int before = live_blocks();
  host.answer = int_value(42);
  host.gives_up = true;
  EXPECT_EQ(read("A.text"), 0u);
  EXPECT_EQ(tree.node("A.text")->value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(tree.node("A.text")->value.i, 42);
  EXPECT_EQ(live_blocks(), before - 1);
}

TEST_F(Read, ATakeoverComparesTypesBeforeValues) {
  host.answer = uint_value(1);
  host.gives_up = true;
  EXPECT_EQ(read("A.dyn"), 0u);
  EXPECT_EQ(tree.node("A.dyn")->value.type, QMIBTREE_TYPE_UINT);
}

TEST_F(Read, ATakeoverOfNoValueKeepsTheStoredOne) {
  host.gives_up = true;
  EXPECT_EQ(read("A.dyn"), 0u);
  EXPECT_EQ(tree.node("A.dyn")->value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(tree.node("A.dyn")->value.i, 1);
}

TEST_F(Read, ATakeoverWithoutMemoryLeavesTheNodeTypedAndEmpty) {
  host.answer = string_value("new");
  host.gives_up = true;
  fail_allocation_after(0);
  EXPECT_EQ(read("A.text"), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(tree.node("A.text")->value.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(tree.node("A.text")->value.str, nullptr);
}

}  // namespace
