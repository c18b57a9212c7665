// What hosts may do to the tree from inside its hooks and callback.
#include <gtest/gtest.h>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

class Reentry : public testing::Test {
 protected:
  void SetUp() override {
    on_change() = nullptr;
    changes().clear();
    schema.add(0, "A.");
    schema.add(1, "s", QMIBTREE_TYPE_STRING, 0, "text of eight and more");
    schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema.add(2, "i", QMIBTREE_TYPE_INT, 0, "1");
  }
  void TearDown() override { on_change() = nullptr; }

  enum : uint32_t { kRoot, kString, kTemplate, kInt };
  LeakCheck leaks;
  Schema schema;
};

TEST_F(Reentry, AValueOfAnotherTypeMayReferToTheTextItReplaces) {
  CheckedTree tree(schema);
  qmibtree_value_t read = {};
  ASSERT_EQ(qmibtree_read(tree.inst, "A.s", &read, 0), 0u);
  const qmibtree_value_t bytes = base64_value(read.str, 4);
  EXPECT_EQ(qmibtree_write(tree.inst, "A.s", &bytes, 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.s"), "dGV4dA==");
}

TEST_F(Reentry, APartOfATextMayBeWrittenOverIt) {
  CheckedTree tree(schema);
  qmibtree_value_t part = {};
  ASSERT_EQ(qmibtree_read(tree.inst, "A.s", &part, 0), 0u);
  part.str += 8;
  EXPECT_EQ(qmibtree_write(tree.inst, "A.s", &part, 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.s"), "eight and more");
}

TEST_F(Reentry, TheCallbackIsHandedAPartOfTheTextItReplaces) {
  static std::string seen;
  CheckedTree tree(schema);
  on_change() = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
    seen = value->str;
    return 0u;
  };
  qmibtree_value_t part = {};
  ASSERT_EQ(qmibtree_read(tree.inst, "A.s", &part, 0), 0u);
  part.str += 8;
  EXPECT_EQ(qmibtree_write(tree.inst, "A.s", &part, 0), 0u);
  EXPECT_EQ(seen, "eight and more");
}

TEST_F(Reentry, AValueWithoutATypeLeavesAText) {
  CheckedTree tree(schema);
  const qmibtree_value_t none = {};
  EXPECT_EQ(qmibtree_write(tree.inst, "A.s", &none, 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.s"), "text of eight and more");
}

TEST_F(Reentry, TheCallbackMayDeleteTheInstanceItWasToldOf) {
  CheckedTree tree(schema);
  for (int i = 0; i < 3; ++i) {
    uint32_t number = 0;
    ASSERT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  }
  on_change() = [](qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t*) {
    return qmibtree_del_object_by_node(inst, node->parent, 0);
  };
  EXPECT_EQ(qmibtree_write_strvalue_by_uniqueid(tree.inst, kInt, "2", 0), 0u);
  EXPECT_EQ(changes().size(), 3u);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T."), 0);
}

TEST_F(Reentry, AnInstanceAddedByACreateHookHasANumberOfItsOwn) {
  schema.record(kTemplate).create_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
    uint32_t second = 0;
    return node->instance == 1 ? qmibtree_add_object(inst, "A.T.", &second, 0, 255) : 0u;
  };
  CheckedTree tree(schema);
  uint32_t number = 0;
  EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  EXPECT_EQ(number, 1u);
  EXPECT_EQ(tree.node("A.T.1.")->instance, 1u);
  EXPECT_EQ(tree.node("A.T.2.")->instance, 2u);
  EXPECT_EQ(tree.node("A.T.")->last_instance, 2u);
}

TEST_F(Reentry, ACreateHookMayWriteAnotherTypeBeforeTheDefaultComes) {
  schema.record(kInt).create_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
    const qmibtree_value_t text = string_value("early");
    return qmibtree_write_by_node(inst, node, &text, 0);
  };
  CheckedTree tree(schema);
  uint32_t number = 0;
  EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.T.1.i"), "1");
}

TEST_F(Reentry, ACreateHooksValueOfAnotherTypeGoesWhereThereIsNoDefault) {
  schema.record(kInt).defval = nullptr;
  schema.record(kInt).create_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
    const qmibtree_value_t text = string_value("early");
    return qmibtree_write_by_node(inst, node, &text, 0);
  };
  schema.record(kString).defval = nullptr;
  schema.record(kString).create_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
    const qmibtree_value_t bytes = base64_value("bytes", 5);
    return qmibtree_write_by_node(inst, node, &bytes, 0);
  };
  CheckedTree tree(schema);
  EXPECT_EQ(tree.node("A.s")->value.str, nullptr);
  EXPECT_EQ(tree.node("A.s")->flags, QMIBTREE_NODE_PARAM);
  uint32_t number = 0;
  EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.T.1.i"), "0");
}

TEST_F(Reentry, ACreateHooksValueOfTheRecordsTypeStaysWhereThereIsNoDefault) {
  schema.record(kString).defval = nullptr;
  schema.record(kString).create_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
    const qmibtree_value_t text = string_value("early");
    return qmibtree_write_by_node(inst, node, &text, 0);
  };
  CheckedTree tree(schema);
  EXPECT_EQ(read_text(tree.inst, "A.s"), "early");
}

TEST_F(Reentry, AnInstanceFlagSetByACreateHookFreesNoNameOfTheSchema) {
  schema.record(kString).create_fn = [](qmibtree_inst_t*, qmibtree_node* node) {
    node->flags |= QMIBTREE_NODE_INSTANCE;
    return 0u;
  };
  Tree tree(schema);
  tree.destroy();
  EXPECT_STREQ(schema.record(kString).name, "s");
}

TEST_F(Reentry, TheRootIsNotFoundWhileTheTreeIsBuilt) {
  static uint32_t looped;
  static uint32_t dumped;
  schema.record(kString).create_fn = [](qmibtree_inst_t* inst, qmibtree_node*) {
    looped = qmibtree_loop(inst, nullptr, qmibtree_lookup_dbg, nullptr);
    dumped = qmibtree_dump(inst, nullptr, nullptr, 9, qmibtree_dump_dbg, nullptr);
    return 0u;
  };
  CheckedTree tree(schema);
  EXPECT_EQ(looped, QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(dumped, QMIBTREE_RC_NOT_FOUND);
}

}  // namespace
