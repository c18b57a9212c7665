// Nodes: the layout of their records, how they are built from the schema, and how they go.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

struct field {
  const char* name;
  size_t offset;
  size_t with_32_bits;
  size_t with_64_bits;
};

void expect_offsets(const std::vector<field>& fields) {
  for (const field& each : fields) {
    EXPECT_EQ(each.offset, sizeof(void*) == 8 ? each.with_64_bits : each.with_32_bits) << each.name;
  }
}

#define FIELD(name, with_32_bits, with_64_bits) \
  { #name, offsetof(record, name), with_32_bits, with_64_bits }

TEST(SchemaRecord, EveryFieldIsInItsPlace) {
  using record = qmibtree_uidinfo_t;
  expect_offsets({FIELD(uid, 0, 0),          FIELD(next_uid, 4, 4),    FIELD(child_uid, 8, 8),
                  FIELD(name, 12, 16),       FIELD(reserved1, 16, 24), FIELD(type, 20, 28),
                  FIELD(flags, 24, 32),      FIELD(arg, 28, 36),       FIELD(defval, 32, 40),
                  FIELD(max_len, 36, 48),    FIELD(int_min, 40, 52),   FIELD(int_max, 44, 56),
                  FIELD(uint_min, 48, 60),   FIELD(uint_max, 52, 64),  FIELD(reserved2, 56, 68),
                  FIELD(comp, 60, 72),       FIELD(create_fn, 64, 80), FIELD(destroy_fn, 68, 88),
                  FIELD(set_fn, 72, 96),     FIELD(get_fn, 76, 104),   FIELD(ext_fn, 80, 112),
                  FIELD(ext_fn[7], 108, 168)});
  EXPECT_EQ(sizeof(record), sizeof(void*) == 8 ? 176u : 28 * 4u);
}

TEST(NodeRecord, EveryFieldIsInItsPlace) {
  using record = qmibtree_node;
  expect_offsets({FIELD(hash, 0, 0),
                  FIELD(name_next, 4, 8),
                  FIELD(uid_next, 8, 16),
                  FIELD(inst, 12, 24),
                  FIELD(parent, 16, 32),
                  FIELD(next, 20, 40),
                  FIELD(instance, 24, 48),
                  FIELD(uidinfo, 28, 56),
                  FIELD(arg, 32, 64),
                  FIELD(flags, 36, 68),
                  FIELD(name, 40, 72),
                  FIELD(fullName, 44, 80),
                  FIELD(last_instance, 48, 88),
                  FIELD(reserved, 52, 92),
                  FIELD(added, 56, 96),
                  FIELD(deleted, 60, 100),
                  FIELD(childnum, 64, 104),
                  FIELD(first_child, 68, 112),
                  FIELD(last_child, 72, 120),
                  FIELD(value, 76, 128),
                  FIELD(default_value, 92, 152),
                  FIELD(right, 108, 176)});
}

TEST(SchemaRecord, TheFlagsHaveTheirBits) {
  EXPECT_EQ(QMIBTREE_UID_MULTI, 0x1u);
  EXPECT_EQ(QMIBTREE_UID_DYNAMIC, 0x2u);
  EXPECT_EQ(QMIBTREE_UID_READONLY, 0x10u);
  EXPECT_EQ(QMIBTREE_UID_SAVE_MODIFIED, 0x20u);
  EXPECT_EQ(QMIBTREE_UID_NOTIF_DEFAULT, 0x80u);
  EXPECT_EQ(QMIBTREE_UID_NOTIF_FORCED, 0x100u);
  EXPECT_EQ(QMIBTREE_UID_SAVE, 0x200u);
}

TEST(NodeRecord, TheFlagsHaveTheirBits) {
  EXPECT_EQ(QMIBTREE_NODE_INSTANCE, 0x1u);
  EXPECT_EQ(QMIBTREE_NODE_MODIFIED, 0x2u);
  EXPECT_EQ(QMIBTREE_NODE_PARAM, 0x4u);
  EXPECT_EQ(QMIBTREE_NODE_NOTIF_ACTIVE, 0x100u);
  EXPECT_EQ(QMIBTREE_NODE_NOTIF_PASSIVE, 0x200u);
  EXPECT_EQ(QMIBTREE_NODE_ACCESS, 0x400u);
}

using strings = std::vector<std::string>;

// The hooks of all records: they log the call and then do what the test wants.
strings g_calls;
std::function<void(qmibtree_inst_t*, qmibtree_node*)> g_on_create;
std::function<void(qmibtree_inst_t*, qmibtree_node*)> g_on_destroy;
std::function<uint32_t(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*, uint32_t)> g_on_get;

uint32_t create(qmibtree_inst_t* inst, qmibtree_node* node) {
  g_calls.push_back(std::string("create ") + node->fullName);
  if (g_on_create) g_on_create(inst, node);
  return QMIBTREE_RC_ERROR;  // which nobody looks at
}

uint32_t destroy(qmibtree_inst_t* inst, qmibtree_node* node) {
  g_calls.push_back(std::string("destroy ") + node->fullName);
  if (g_on_destroy) g_on_destroy(inst, node);
  return QMIBTREE_RC_ERROR;  // which nobody looks at
}

uint32_t get(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, uint32_t flags) {
  g_calls.push_back(std::string("get ") + node->fullName);
  return g_on_get ? g_on_get(inst, node, value, flags) : 0;
}

class NodeTest : public testing::Test {
 protected:
  void SetUp() override { forget_hooks(); }

  void TearDown() override {
    forget_hooks();
    tree_.reset();
    EXPECT_EQ(live_blocks(), blocks_before_ + leaked_);
  }

  void forget_hooks() {
    g_calls.clear();
    g_on_create = nullptr;
    g_on_destroy = nullptr;
    g_on_get = nullptr;
  }

  qmibtree_uidinfo_t& add(int depth, const char* name, uint32_t type = QMIBTREE_TYPE_OBJECT,
                          uint32_t flags = 0, const char* defval = nullptr) {
    qmibtree_uidinfo_t& record = schema_.add(depth, name, type, flags, defval);
    record.create_fn = create;
    record.destroy_fn = destroy;
    return record;
  }

  // False when there is no tree.
  bool build() {
    tree_ = std::make_unique<CheckedTree>(schema_);
    return tree_->inst != nullptr;
  }

  qmibtree_inst_t* inst() { return tree_->inst; }
  qmibtree_node* node(const char* name) { return tree_->node(name); }

  // Adds an instance; its number, or 0 when that failed.
  uint32_t add_instance(const char* name, uint32_t wish = 0, uint32_t right = 255) {
    uint32_t number = wish;
    const uint32_t rc = qmibtree_add_object(inst(), name, &number, 0, right);
    return QMIBTREE_FAILED(rc) ? 0 : number;
  }

  strings children_of(const char* name) {
    strings names;
    for (const qmibtree_node* each = node(name)->first_child; each; each = each->next) {
      names.push_back(each->name);
    }
    return names;
  }

  const int blocks_before_ = live_blocks();
  int leaked_ = 0;
  Schema schema_;
  std::unique_ptr<CheckedTree> tree_;
};

using NodeBuild = NodeTest;
using NodeNames = NodeTest;
using NodeValues = NodeTest;

TEST_F(NodeBuild, ANodeRefersToItsRecordInTheHostsBlock) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT).arg = 0xabcd;
  ASSERT_TRUE(build());
  EXPECT_EQ(inst()->root->uidinfo, &schema_.block()->uidinfo[0]);
  EXPECT_EQ(node("A.P")->uidinfo, &schema_.block()->uidinfo[1]);
  EXPECT_EQ(node("A.P")->inst, inst());
  EXPECT_EQ(node("A.P")->arg, 0xabcdu);
}

TEST_F(NodeBuild, FieldsWithoutAMeaningHereAreZero) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  ASSERT_TRUE(build());
  const qmibtree_node* const made = node("A.T.");
  EXPECT_EQ(made->instance, 0u);
  EXPECT_EQ(made->last_instance, 0u);
  EXPECT_EQ(made->reserved, 0u);
  EXPECT_EQ(made->added, 0u);
  EXPECT_EQ(made->deleted, 0u);
  EXPECT_EQ(made->flags, 0u);
  EXPECT_EQ(made->value.type, 0u);
  EXPECT_EQ(made->default_value.type, 0u);
}

TEST_F(NodeBuild, TheRootHasNoParentAndNoSibling) {
  add(0, "A.");
  add(0, "B.");  // a sibling of the root is no part of the tree
  ASSERT_TRUE(build());
  EXPECT_EQ(inst()->root->parent, nullptr);
  EXPECT_EQ(inst()->root->next, nullptr);
  EXPECT_EQ(node("B."), nullptr);
  EXPECT_EQ(g_calls, strings{"create A."});
}

TEST_F(NodeBuild, ChildrenStandInTheOrderOfTheSchema) {
  add(0, "A.");
  add(1, "B.");
  add(2, "Deep", QMIBTREE_TYPE_INT);
  add(1, "P", QMIBTREE_TYPE_INT);
  add(1, "C.");
  ASSERT_TRUE(build());
  EXPECT_EQ(children_of("A."), (strings{"B.", "P", "C."}));
  EXPECT_EQ(inst()->root->childnum, 3u);
  EXPECT_EQ(inst()->root->first_child, node("A.B."));
  EXPECT_EQ(inst()->root->last_child, node("A.C."));
  EXPECT_EQ(node("A.P")->parent, inst()->root);
  EXPECT_EQ(node("A.B.Deep")->parent, node("A.B."));
  EXPECT_EQ(node("A.C.")->childnum, 0u);
  EXPECT_EQ(node("A.C.")->first_child, nullptr);
}

TEST_F(NodeBuild, AChainEndsAtANegativeIdAndAtOnePastTheSchema) {
  for (const int32_t end : {-1, INT32_MIN, 2, 3, INT32_MAX}) {
    Schema schema;
    schema.add(0, "A.").next_uid = end;
    schema.add(1, "O.").child_uid = end;
    schema.record(1).next_uid = end;
    CheckedTree tree(schema);
    ASSERT_NE(tree.inst, nullptr) << end;
    EXPECT_EQ(tree.inst->root->childnum, 1u) << end;
    EXPECT_EQ(tree.node("A.O.")->childnum, 0u) << end;
  }
}

struct kind {
  uint32_t type;
  bool parameter;
};

TEST_F(NodeBuild, TypesTwoToSevenMakeParameters) {
  constexpr kind kKinds[] = {{0, false},  {1, false},  {2, true},          {3, true},  {4, true},
                             {5, true},   {6, true},   {7, true},          {8, false}, {9, false},
                             {10, false}, {11, false}, {0xffffffff, false}};
  for (const kind& each : kKinds) {
    Schema schema;
    schema.add(0, "A.");
    schema.add(1, "X.", each.type, 0, "1");
    schema.add(2, "Below", QMIBTREE_TYPE_INT);
    CheckedTree tree(schema);
    ASSERT_NE(tree.inst, nullptr) << each.type;
    const qmibtree_node* const made = tree.node("A.X.");
    EXPECT_EQ(made->flags, each.parameter ? QMIBTREE_NODE_PARAM : 0u) << each.type;
    EXPECT_EQ(made->value.type, each.parameter ? each.type : 0u) << each.type;
    EXPECT_EQ(made->default_value.type, each.parameter ? each.type : 0u) << each.type;
    EXPECT_EQ(made->childnum, each.parameter ? 0u : 1u) << each.type;
  }
}

TEST_F(NodeBuild, NotificationByDefaultOrForcedStartsActive) {
  add(0, "A.");
  add(1, "Default", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT);
  add(1, "Forced", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_FORCED);
  add(1, "Object.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_NOTIF_DEFAULT);
  add(1, "Other", QMIBTREE_TYPE_INT,
      ~(QMIBTREE_UID_NOTIF_DEFAULT | QMIBTREE_UID_NOTIF_FORCED | QMIBTREE_UID_MULTI));
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.Default")->flags, QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_PARAM);
  EXPECT_EQ(node("A.Forced")->flags, QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_PARAM);
  EXPECT_EQ(node("A.Object.")->flags, QMIBTREE_NODE_NOTIF_ACTIVE);
  EXPECT_EQ(node("A.Other")->flags, QMIBTREE_NODE_PARAM);
}

TEST_F(NodeBuild, NodesOfTheSchemaHaveRight255) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_EQ(inst()->root->right, 255u);
  EXPECT_EQ(node("A.P")->right, 255u);
}

TEST_F(NodeBuild, ATemplateStartsWithoutChildren) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.T.")->childnum, 0u);
  EXPECT_EQ(node("A.T.")->first_child, nullptr);
  EXPECT_EQ(node("A.T.P"), nullptr);
}

TEST_F(NodeBuild, AMultiParameterIsNoTemplate) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT, QMIBTREE_UID_MULTI, "5");
  ASSERT_TRUE(build());
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.P"}));
  EXPECT_EQ(node("A.P")->value.i, 5);
}

TEST_F(NodeBuild, AnInstanceIsBuiltFromItsTemplatesRecord) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI | QMIBTREE_UID_NOTIF_DEFAULT).arg = 9;
  add(2, "P", QMIBTREE_TYPE_INT, 0, "5");
  ASSERT_TRUE(build());
  ASSERT_EQ(add_instance("A.T.", 0, 7), 1u);
  const qmibtree_node* const made = node("A.T.1.");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->uidinfo, node("A.T.")->uidinfo);
  EXPECT_EQ(made->parent, node("A.T."));
  EXPECT_EQ(made->instance, 1u);
  EXPECT_EQ(made->arg, 9u);
  EXPECT_EQ(made->flags, QMIBTREE_NODE_INSTANCE | QMIBTREE_NODE_NOTIF_ACTIVE);
  EXPECT_EQ(made->childnum, 1u);
  EXPECT_EQ(text_of(node("A.T.1.P")->value), "5");
}

TEST_F(NodeBuild, TheRightGivenIsTheInstancesAlone) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  ASSERT_EQ(add_instance("A.T.", 0, 7), 1u);
  EXPECT_EQ(node("A.T.1.")->right, 7u);
  EXPECT_EQ(node("A.T.1.P")->right, 255u);
  EXPECT_EQ(node("A.T.")->right, 255u);
}

TEST_F(NodeBuild, ATemplateInAnInstanceIsOneAgain) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "U.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(3, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  ASSERT_EQ(add_instance("A.T."), 1u);
  EXPECT_EQ(node("A.T.1.U.")->flags, 0u);
  EXPECT_EQ(node("A.T.1.U.")->instance, 0u);
  EXPECT_EQ(node("A.T.1.U.")->childnum, 0u);
  ASSERT_EQ(add_instance("A.T.1.U."), 1u);
  EXPECT_NE(node("A.T.1.U.1.P"), nullptr);
}

TEST_F(NodeBuild, AnInstanceTakesTheNumberInItsTemplate) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  ASSERT_TRUE(build());
  node("A.T.")->last_instance = 12;
  const qmibtree_node* const made =
      qmibtree_build_node(inst(), node("A.T."), &schema_.record(1), 255);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->instance, 12u);
  EXPECT_STREQ(made->fullName, "A.T.12.");
  tree_->leave_unchecked();
}

TEST_F(NodeBuild, OneIdFindsInstancesNewestFirstAndThenTheTemplate) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  ASSERT_TRUE(build());
  add_instance("A.T.");
  add_instance("A.T.");
  strings names;
  for (qmibtree_node* each = qmibtree_hash_lookup_uid(inst()->uid_hash, 1); each;
       each = qmibtree_hash_lookup_uid_next(each, 1)) {
    names.push_back(each->fullName);
  }
  EXPECT_EQ(names, (strings{"A.T.2.", "A.T.1.", "A.T."}));
}

TEST_F(NodeBuild, OfTwoNodesWithOneFullNameTheNewerIsFound) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  add(1, "P", QMIBTREE_TYPE_BOOL);
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.P"), inst()->root->last_child);
}

TEST_F(NodeBuild, TellsOfEveryNodeButTemplatesParentsFirst) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "X", QMIBTREE_TYPE_INT);
  add(1, "O.");
  add(2, "Y", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.P", "create A.O.", "create A.O.Y"}));
  g_calls.clear();
  add_instance("A.T.");
  EXPECT_EQ(g_calls, (strings{"create A.T.1.", "create A.T.1.X"}));
}

TEST_F(NodeBuild, HooksMayBeAbsent) {
  schema_.add(0, "A.");
  schema_.add(1, "P", QMIBTREE_TYPE_INT);
  EXPECT_TRUE(build());
}

TEST_F(NodeBuild, TheCreateHookSeesTheNodeIndexedAndEmpty) {
  add(0, "A.");
  add(1, "O.");
  add(2, "P", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
  g_on_create = [](qmibtree_inst_t* inst, qmibtree_node* made) {
    EXPECT_EQ(qmibtree_hash_lookup_name(inst->name_hash, made->fullName), made);
    EXPECT_EQ(qmibtree_hash_lookup_uid(inst->uid_hash, made->uidinfo->uid), made);
    EXPECT_EQ(made->hash, BKDRHash(made->fullName));
    EXPECT_EQ(made->value.type, 0u);
    EXPECT_EQ(made->default_value.type, 0u);
    EXPECT_EQ(made->first_child, nullptr);
    EXPECT_TRUE(!made->parent || made->parent->last_child == made);
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(g_calls.size(), 3u);
}

TEST_F(NodeBuild, TheFlagsCountAsTheCreateHookLeavesThem) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT, 0, "5").get_fn = get;
  g_on_create = [](qmibtree_inst_t*, qmibtree_node* made) { made->flags &= ~QMIBTREE_NODE_PARAM; };
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.P")->value.type, 0u);
  EXPECT_EQ(node("A.P")->default_value.type, 0u);
  tree_->leave_unchecked();
}

TEST_F(NodeBuild, AParameterWhoseTypeHasNoOperationsTakesNoDefault) {
  add(0, "A.");
  add(1, "O.", QMIBTREE_TYPE_OBJECT, 0, "5");
  g_on_create = [](qmibtree_inst_t*, qmibtree_node* made) {
    if (made->parent) made->flags |= QMIBTREE_NODE_PARAM;
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.O.")->value.type, 0u);
  EXPECT_EQ(node("A.O.")->default_value.type, 0u);
  tree_->leave_unchecked();
}

TEST_F(NodeNames, AFullNameIsThePlainConcatenation) {
  add(0, "A.");
  add(1, "Bare");
  add(2, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_STREQ(inst()->root->fullName, "A.");
  EXPECT_NE(inst()->root->fullName, schema_.record(0).name);
  EXPECT_STREQ(node("A.Bare")->fullName, "A.Bare");
  EXPECT_STREQ(node("A.BareP")->fullName, "A.BareP");
}

TEST_F(NodeNames, ASegmentIsTheRecordsOwnText) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.P")->name, schema_.record(1).name);
}

struct numbered {
  uint32_t number;
  const char* name;
};

TEST(NodeName, OneWithoutASegmentIsNamedAsItsParent) {
  Schema schema;
  schema.add(0, "AnObjectOfSomeLength.");
  schema.add(1, "", QMIBTREE_TYPE_INT);
  const CheckedTree tree(schema);
  const qmibtree_node* const node = tree.inst->root->first_child;
  EXPECT_STREQ(node->fullName, "AnObjectOfSomeLength.");
  EXPECT_EQ(node->hash, BKDRHash("AnObjectOfSomeLength."));
}

TEST_F(NodeNames, NumbersAreCutToFourCharacters) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "Enable", QMIBTREE_TYPE_BOOL);
  ASSERT_TRUE(build());
  for (const numbered& each :
       {numbered{1, "1."}, numbered{42, "42."}, numbered{999, "999."}, numbered{1000, "1000"},
        numbered{1001, "1001"}, numbered{12345, "1234"}, numbered{0x7fffffff, "2147"}}) {
    ASSERT_EQ(add_instance("A.T.", each.number), each.number);
    const qmibtree_node* const made = node("A.T.")->last_child;
    EXPECT_STREQ(made->name, each.name);
    EXPECT_EQ(made->fullName, std::string("A.T.") + each.name);
    EXPECT_EQ(made->first_child->fullName, std::string("A.T.") + each.name + "Enable");
    EXPECT_EQ(made->instance, each.number);
  }
}

TEST_F(NodeValues, ADefaultIsParsedIntoBothValues) {
  add(0, "A.");
  add(1, "I", QMIBTREE_TYPE_INT, 0, "-12");
  add(1, "U", QMIBTREE_TYPE_UINT, 0, "12");
  add(1, "S", QMIBTREE_TYPE_STRING, 0, "text");
  add(1, "B", QMIBTREE_TYPE_BOOL, 0, "true");
  add(1, "Bytes", QMIBTREE_TYPE_BASE64, 0, "YWJj");
  leaked_ = 1;  // the block decoded from "YWJj" is freed by nobody
  ASSERT_TRUE(build());
  const strings texts = {"-12", "12", "text", "true", "YWJj"};
  const qmibtree_node* each = inst()->root->first_child;
  for (const std::string& text : texts) {
    EXPECT_EQ(each->value.type, each->uidinfo->type) << each->name;
    EXPECT_EQ(each->default_value.type, each->uidinfo->type) << each->name;
    EXPECT_EQ(text_of(each->value), text) << each->name;
    EXPECT_EQ(text_of(each->default_value), text) << each->name;
    each = each->next;
  }
}

TEST_F(NodeValues, BothValuesOwnCopiesOfTheDefault) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING, 0, "text");
  ASSERT_TRUE(build());
  const qmibtree_node* const made = node("A.S");
  EXPECT_EQ(made->value.owned, 1);
  EXPECT_EQ(made->default_value.owned, 1);
  EXPECT_NE(made->value.str, made->default_value.str);
  EXPECT_NE(made->value.str, schema_.record(1).defval);
  EXPECT_NE(made->default_value.str, schema_.record(1).defval);
}

TEST_F(NodeValues, ADatetimeDefaultIsTakenThoughItsTextIsRefused) {
  constexpr char kText[] = "2010-05-06T07:08:09";
  add(0, "A.");
  add(1, "When", QMIBTREE_TYPE_DATETIME, 0, kText);
  ASSERT_TRUE(build());
  qmibtree_value_t expected = {};
  qmibtree_datatype_get_datafn(QMIBTREE_TYPE_DATETIME)->from_str(&expected, kText);
  ASSERT_NE(expected.t, 0);
  EXPECT_EQ(node("A.When")->value.type, QMIBTREE_TYPE_DATETIME);
  EXPECT_EQ(node("A.When")->value.t, expected.t);
  EXPECT_EQ(node("A.When")->default_value.t, expected.t);
}

TEST_F(NodeValues, AnUnknownBoolWordAsDefaultIsFalse) {
  add(0, "A.");
  add(1, "B", QMIBTREE_TYPE_BOOL, 0, "maybe");
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.B")->value.type, QMIBTREE_TYPE_BOOL);
  EXPECT_EQ(node("A.B")->value.b, 0);
}

TEST_F(NodeValues, ADefaultOutOfRangeIsTaken) {
  add(0, "A.");
  add(1, "I", QMIBTREE_TYPE_INT, 0, "50").int_max = 10;
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.I")->value.i, 50);
}

TEST_F(NodeValues, WithADefaultTheHostIsNotAsked) {
  add(0, "A.");
  add(1, "I", QMIBTREE_TYPE_INT, 0, "5").get_fn = get;
  g_on_get = [](auto...) { return QMIBTREE_RC_ERROR; };
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.I")->value.i, 5);
}

TEST_F(NodeValues, WithoutDefaultAndHookBothValuesAreTypedAndEmpty) {
  add(0, "A.");
  for (uint32_t type = QMIBTREE_TYPE_INT; type <= QMIBTREE_TYPE_BOOL; ++type) add(1, "P", type);
  ASSERT_TRUE(build());
  uint32_t type = QMIBTREE_TYPE_INT;
  for (const qmibtree_node* each = inst()->root->first_child; each; each = each->next, ++type) {
    for (const qmibtree_value_t* value : {&each->value, &each->default_value}) {
      EXPECT_EQ(value->type, type);
      EXPECT_EQ(value->data, nullptr) << type;
      EXPECT_EQ(value->len, 0u) << type;
      EXPECT_EQ(value->owned, 0) << type;
    }
  }
}

TEST_F(NodeValues, TheHostIsAskedOnceWithAZeroedValueAndNoFlags) {
  add(0, "A.");
  add(1, "I", QMIBTREE_TYPE_INT).get_fn = get;
  g_on_get = [](qmibtree_inst_t* inst, qmibtree_node* asked, qmibtree_value_t* value,
                uint32_t flags) {
    EXPECT_EQ(qmibtree_find_node_by_name(inst, "A.I"), asked);
    EXPECT_NE(value, &asked->value);
    EXPECT_EQ(value->type, 0u);
    EXPECT_EQ(value->data, nullptr);
    EXPECT_EQ(value->len, 0u);
    EXPECT_EQ(value->owned, 0);
    EXPECT_EQ(flags, 0u);
    *value = int_value(5);
    return 0u;
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.I", "get A.I"}));
  EXPECT_EQ(node("A.I")->value.i, 5);
  EXPECT_EQ(node("A.I")->default_value.i, 5);
}

TEST_F(NodeValues, WhatTheHostHandsOverIsCopiedAndReleased) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  const char* handed_over = nullptr;
  g_on_get = [&](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    const qmibtree_value_t text = string_value("text");
    qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(value, &text);
    handed_over = value->str;
    return 0u;
  };
  ASSERT_TRUE(build());
  const qmibtree_node* const made = node("A.S");
  EXPECT_STREQ(made->value.str, "text");
  EXPECT_STREQ(made->default_value.str, "text");
  EXPECT_NE(made->value.str, made->default_value.str);
  EXPECT_NE(made->value.str, handed_over);
  EXPECT_NE(made->default_value.str, handed_over);
}

TEST_F(NodeValues, WhatTheHostLendsStaysTheHosts) {
  const char text[] = "text";
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  g_on_get = [&](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    *value = string_value(text);
    return 0u;
  };
  ASSERT_TRUE(build());
  EXPECT_STREQ(node("A.S")->value.str, "text");
  EXPECT_NE(node("A.S")->value.str, text);
  EXPECT_EQ(node("A.S")->value.owned, 1);
}

TEST_F(NodeValues, TheTypeIsTheOneTheHostAnswers) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  g_on_get = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    *value = int_value(5);
    return 0u;
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.S")->value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(node("A.S")->default_value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(node("A.S")->value.i, 5);
}

TEST_F(NodeValues, AnAliasOfStringIsStoredAsString) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  g_on_get = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    *value = string_value("text");
    value->type = 9;
    return 0u;
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.S")->value.type, QMIBTREE_TYPE_STRING);
  EXPECT_STREQ(node("A.S")->value.str, "text");
}

TEST_F(NodeValues, AHostThatFillsNothingLeavesNoValue) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  ASSERT_TRUE(build());
  EXPECT_EQ(node("A.S")->value.type, 0u);
  EXPECT_EQ(node("A.S")->default_value.type, 0u);
}

TEST_F(NodeValues, AnAnswerBelow32Succeeds) {
  add(0, "A.");
  add(1, "I", QMIBTREE_TYPE_INT).get_fn = get;
  g_on_get = [](auto...) { return 31u; };
  EXPECT_TRUE(build());
}

TEST_F(NodeValues, ARefusalUnwindsTheWholeTree) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  add(1, "O.");
  add(2, "X", QMIBTREE_TYPE_INT);
  add(2, "Refused", QMIBTREE_TYPE_INT).get_fn = get;
  add(1, "Later", QMIBTREE_TYPE_INT);
  g_on_get = [](auto...) { return 32u; };
  EXPECT_FALSE(build());
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.P", "create A.O.", "create A.O.X",
                              "create A.O.Refused", "get A.O.Refused", "destroy A.O.Refused",
                              "destroy A.O.X", "destroy A.O.", "destroy A.P", "destroy A."}));
}

TEST_F(NodeValues, ARefusedNodeHoldsWhatTheHostFilledIn) {
  std::string held;
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  g_on_get = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    *value = string_value("filled in");
    return 32u;
  };
  g_on_destroy = [&](qmibtree_inst_t*, qmibtree_node* going) {
    if (going->parent) held = text_of(going->value) + ", " + text_of(going->default_value);
  };
  EXPECT_FALSE(build());
  EXPECT_EQ(held, "filled in, filled in");
}

TEST_F(NodeValues, WhatARefusingHostHandsOverIsReleasedToo) {
  add(0, "A.");
  add(1, "S", QMIBTREE_TYPE_STRING).get_fn = get;
  g_on_get = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
    const qmibtree_value_t text = string_value("text");
    EXPECT_EQ(qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(value, &text), 1u);
    return 32u;
  };
  EXPECT_FALSE(build());
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.S", "get A.S", "destroy A.S", "destroy A."}));
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(NodeValues, ARefusalFailsJustTheAddition) {
  add(0, "A.");
  add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  add(2, "P", QMIBTREE_TYPE_INT).get_fn = get;
  ASSERT_TRUE(build());
  ASSERT_EQ(add_instance("A.T."), 1u);
  g_on_get = [](auto...) { return 32u; };
  g_calls.clear();
  EXPECT_EQ(add_instance("A.T."), 0u);
  EXPECT_EQ(g_calls, (strings{"create A.T.2.", "create A.T.2.P", "get A.T.2.P", "destroy A.T.2.P",
                              "destroy A.T.2."}));
  EXPECT_EQ(children_of("A.T."), strings{"1."});
  EXPECT_EQ(node("A.T.")->childnum, 1u);
  EXPECT_EQ(node("A.T.")->last_instance, 1u);
  EXPECT_EQ(node("A.T.2."), nullptr);
}

// An instance of a template with a parameter of each way to get a value.
class NodeMemory : public NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    add(0, "A.");
    add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(2, "S", QMIBTREE_TYPE_STRING, 0, "text");
    add(2, "O.");
    add(3, "Bytes", QMIBTREE_TYPE_BASE64).get_fn = get;
    add(3, "Empty", QMIBTREE_TYPE_STRING);
    g_on_get = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
      *value = base64_value("abc", 3);
      return 0u;
    };
    ASSERT_TRUE(build());
    g_calls.clear();
  }

  // Adds an instance with the n-th allocation failing.
  uint32_t add_with_failure(int n) {
    fail_allocation_after(n);
    const uint32_t number = add_instance("A.T.");
    struck_ = allocations_work();
    return number;
  }

  // Full names of the logged calls of one kind, sorted.
  static strings names_of(const std::string& prefix) {
    strings names;
    for (const std::string& call : g_calls) {
      if (call.compare(0, prefix.size(), prefix) == 0) names.push_back(call.substr(prefix.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  bool struck_ = false;
};

TEST_F(NodeMemory, BlocksAreAllocatedUnderTheirTags) {
  allocation_tags();
  ASSERT_EQ(add_instance("A.T."), 1u);
  EXPECT_EQ(allocation_tags(),
            (strings{"qmibtree_node", "qmibtree node name", "qmibtree_node fullName",  // 1.
                     "qmibtree_node", "qmibtree_node fullName",                        // S
                     "mib string data", "mib string data",                             //
                     "qmibtree_node", "qmibtree_node fullName",                        // O.
                     "qmibtree_node", "qmibtree_node fullName",                        // Bytes
                     "mib base64 data", "mib base64 data",                             //
                     "qmibtree_node", "qmibtree_node fullName"}));                     // Empty
}

TEST_F(NodeMemory, AFailedAllocationAnywhereLeavesNothingBehind) {
  const int blocks = live_blocks();
  for (int n = 0;; ++n) {
    g_calls.clear();
    const uint32_t number = add_with_failure(n);
    if (number) qmibtree_destroy_node(inst(), node("A.T.")->last_child);
    ASSERT_EQ(live_blocks(), blocks) << n;
    ASSERT_EQ(node("A.T.")->childnum, 0u) << n;
    ASSERT_EQ(node("A.T.")->first_child, nullptr) << n;
    ASSERT_EQ(node("A.T.")->last_child, nullptr) << n;
    ASSERT_EQ(names_of("create "), names_of("destroy ")) << n;
    for (uint32_t uid = 2; uid < schema_.size(); ++uid) {
      ASSERT_EQ(qmibtree_hash_lookup_uid(inst()->uid_hash, uid), nullptr) << n;
    }
    ASSERT_EQ(qmibtree_hash_lookup_uid(inst()->uid_hash, 1), node("A.T.")) << n;
    if (!struck_) break;
  }
}

TEST_F(NodeMemory, AFailedNameOrFullNameCallsNoHookAndTakesTheNumberBack) {
  for (const int n : {1, 2}) {
    EXPECT_EQ(add_with_failure(n), 0u);
    EXPECT_TRUE(struck_);
    EXPECT_EQ(g_calls, strings{});
    EXPECT_EQ(node("A.T.")->childnum, 0u);
    EXPECT_EQ(node("A.T.")->last_instance, 0u);
    EXPECT_EQ(node("A.T.1."), nullptr);
  }
}

TEST_F(NodeMemory, AFailedCopyOfAValueLeavesItTypedAndEmpty) {
  ASSERT_EQ(add_with_failure(5), 1u);  // the first copy of the default of S
  EXPECT_TRUE(struck_);
  const qmibtree_node* const made = node("A.T.1.S");
  EXPECT_EQ(made->value.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(made->value.str, nullptr);
  EXPECT_STREQ(made->default_value.str, "text");
}

// A.T.1. to A.T.3., each with P and O.Q, and the parameters A.First and A.Last around them.
class NodeRemoval : public NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    add(0, "A.");
    add(1, "First", QMIBTREE_TYPE_STRING, 0, "text");
    add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(2, "P", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_FORCED, "text");
    add(2, "O.");
    add(3, "Q", QMIBTREE_TYPE_INT);
    add(1, "Last", QMIBTREE_TYPE_INT);
    ASSERT_TRUE(build());
    blocks_without_instances_ = live_blocks();
    for (uint32_t number = 1; number <= 3; ++number) ASSERT_EQ(add_instance("A.T."), number);
    g_calls.clear();
  }

  uint32_t remove(const char* name) { return qmibtree_destroy_node(inst(), node(name)); }

  int blocks_without_instances_ = 0;
};

TEST_F(NodeRemoval, AnswersZeroAndFreesAll) {
  for (const char* name : {"A.T.1.", "A.T.2.", "A.T.3."}) EXPECT_EQ(remove(name), 0u);
  EXPECT_EQ(live_blocks(), blocks_without_instances_);
}

TEST_F(NodeRemoval, TellsOfTheChildrenFirst) {
  remove("A.T.2.");
  EXPECT_EQ(g_calls, (strings{"destroy A.T.2.P", "destroy A.T.2.O.Q", "destroy A.T.2.O.",
                              "destroy A.T.2."}));
}

TEST_F(NodeRemoval, TellsOfInstancesButNotOfTheirTemplate) {
  remove("A.T.2.");
  remove("A.T.3.");
  g_calls.clear();
  remove("A.T.");
  EXPECT_EQ(g_calls, (strings{"destroy A.T.1.P", "destroy A.T.1.O.Q", "destroy A.T.1.O.",
                              "destroy A.T.1."}));
  tree_->leave_unchecked();
}

TEST_F(NodeRemoval, NothingIsGoneWhileTheHooksRun) {
  qmibtree_notif_add_event(inst()->notif, node("A.T.2.P"));
  const int blocks = live_blocks();
  g_on_destroy = [&](qmibtree_inst_t* tree, qmibtree_node* going) {
    EXPECT_EQ(qmibtree_find_node_by_name(tree, going->fullName), going);
    EXPECT_NE(qmibtree_find_node_by_name(tree, "A.T.2.P"), nullptr);
    EXPECT_NE(qmibtree_find_node_by_name(tree, "A.T.2.O.Q"), nullptr);
    EXPECT_NE(going->parent, nullptr);
    EXPECT_EQ(tree->notif->num, 1u);
    EXPECT_EQ(live_blocks(), blocks);
  };
  remove("A.T.2.");
  EXPECT_EQ(g_calls.size(), 4u);
}

TEST_F(NodeRemoval, TheHooksAreThoseOfTheRecordAtThatTime) {
  for (const uint32_t uid : {3u, 4u, 5u}) schema_.record(uid).destroy_fn = nullptr;
  remove("A.T.2.");
  EXPECT_EQ(g_calls, strings{"destroy A.T.2."});
}

TEST_F(NodeRemoval, TheNodesAreFoundNoMore) {
  remove("A.T.2.");
  for (const char* name : {"A.T.2.", "A.T.2.P", "A.T.2.O.", "A.T.2.O.Q"}) {
    EXPECT_EQ(node(name), nullptr) << name;
  }
  for (uint32_t uid = 2; uid <= 5; ++uid) {
    for (const qmibtree_node* each = qmibtree_hash_lookup_uid(inst()->uid_hash, uid); each;
         each = each->uid_next) {
      EXPECT_EQ(std::string(each->fullName).find("A.T.2."), std::string::npos) << each->fullName;
    }
  }
}

TEST_F(NodeRemoval, TheOtherInstancesAreStillFound) {
  remove("A.T.2.");
  EXPECT_NE(node("A.T.1.O.Q"), nullptr);
  EXPECT_NE(node("A.T.3.O.Q"), nullptr);
  EXPECT_EQ(qmibtree_hash_lookup_uid(inst()->uid_hash, 2), node("A.T.3."));
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(node("A.T.3."), 2), node("A.T.1."));
}

TEST_F(NodeRemoval, TheirEventsGo) {
  qmibtree_notif_add_event(inst()->notif, node("A.T.2.P"));
  remove("A.T.2.");
  EXPECT_EQ(inst()->notif->num, 0u);
  EXPECT_EQ(inst()->notif->active_num, 0u);
}

struct removal {
  const char* name;
  strings left;
  uint32_t last_instance;
};

TEST_F(NodeRemoval, TheChildListIsMendedAndTheLastNumberFoundAnew) {
  const removal removals[] = {
      {"A.T.2.", {"1.", "3."}, 3},  // from the middle
      {"A.T.1.", {"3."}, 3},        // the first
      {"A.T.3.", {}, 0},            // the last and only
  };
  for (const removal& each : removals) {
    remove(each.name);
    const qmibtree_node* const parent = node("A.T.");
    EXPECT_EQ(children_of("A.T."), each.left);
    EXPECT_EQ(parent->childnum, each.left.size());
    EXPECT_EQ(parent->last_instance, each.last_instance);
    EXPECT_EQ(parent->last_child ? parent->last_child->name : "",
              each.left.empty() ? "" : each.left.back());
  }
}

TEST_F(NodeRemoval, TheHighestNumberIsHandedOutAgain) {
  remove("A.T.3.");
  EXPECT_EQ(node("A.T.")->last_instance, 2u);
  EXPECT_EQ(children_of("A.T."), (strings{"1.", "2."}));
  EXPECT_EQ(node("A.T.")->last_child, node("A.T.2."));
  EXPECT_EQ(add_instance("A.T."), 3u);
}

TEST_F(NodeRemoval, ALowerNumberIsNotHandedOutAgain) {
  remove("A.T.2.");
  EXPECT_EQ(node("A.T.")->last_instance, 3u);
  EXPECT_EQ(add_instance("A.T."), 4u);
}

TEST_F(NodeRemoval, TheLastNumberIsTheLargestWhereverItStands) {
  qmibtree_node* const parent = node("A.T.");
  parent->last_instance = 2;
  ASSERT_NE(qmibtree_build_node(inst(), parent, parent->uidinfo, 255), nullptr);
  remove("A.T.1.");
  EXPECT_EQ(children_of("A.T."), (strings{"2.", "3.", "2."}));
  EXPECT_EQ(parent->last_instance, 3u);
  tree_->leave_unchecked();
}

TEST_F(NodeRemoval, RemovingDoesNotCountAsADeletion) {
  const uint32_t changes = inst()->obj_changes;
  remove("A.T.1.");
  EXPECT_EQ(node("A.T.")->deleted, 0u);
  EXPECT_EQ(node("A.T.")->added, 3u);
  EXPECT_EQ(inst()->obj_changes, changes);
}

TEST_F(NodeRemoval, AChildOfAPlainObjectMayGo) {
  remove("A.First");
  EXPECT_EQ(children_of("A."), (strings{"T.", "Last"}));
  remove("A.Last");
  EXPECT_EQ(children_of("A."), strings{"T."});
  EXPECT_EQ(inst()->root->last_child, node("A.T."));
  tree_->leave_unchecked();
}

TEST_F(NodeBuild, ARecordIsFoundByItsId) {
  add(0, "A.");
  add(1, "P", QMIBTREE_TYPE_INT);
  ASSERT_TRUE(build());
  EXPECT_EQ(find_uidinfo_from_uid(inst(), 0), &schema_.record(0));
  EXPECT_EQ(find_uidinfo_from_uid(inst(), 1), &schema_.record(1));
  for (const int32_t uid : {2, INT32_MAX, -1, INT32_MIN}) {
    EXPECT_EQ(find_uidinfo_from_uid(inst(), uid), nullptr) << uid;
  }
}

TEST_F(NodeBuild, ThereIsNoRootWithoutRecords) {
  add(0, "A.");
  ASSERT_TRUE(build());
  qmibtree_inst_t empty = *inst();
  empty.uidinfo_num = 0;
  EXPECT_EQ(qmibtree_populate_root(&empty), nullptr);
}

}  // namespace
