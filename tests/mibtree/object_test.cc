// Shows how instances of multi-instance objects are numbered, added and deleted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t { kRoot, kPlain, kTable, kNumber, kText, kInner, kLeaf };

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "p", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "1");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "n", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
  schema.add(2, "s", QMIBTREE_TYPE_STRING, 0, "none");
  schema.add(2, "U.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(3, "x", QMIBTREE_TYPE_BOOL, 0, "1");
  return schema;
}

// What the hooks saw: "create A.T.1. changes=1 added=1 deleted=0 last=1".
std::vector<std::string> trace;

void note(const char* hook, const qmibtree_inst_t* inst, const qmibtree_node* node) {
  const qmibtree_node* const table = qmibtree_hash_lookup_name(inst->name_hash, "A.T.");
  trace.push_back(
      std::string(hook) + " " + node->fullName + " changes=" + std::to_string(inst->obj_changes) +
      " added=" + std::to_string(table->added) + " deleted=" + std::to_string(table->deleted) +
      " last=" + std::to_string(table->last_instance));
}

uint32_t note_create(qmibtree_inst_t* inst, qmibtree_node* node) {
  note("create", inst, node);
  return 32;  // has no effect
}

uint32_t note_destroy(qmibtree_inst_t* inst, qmibtree_node* node) {
  note("destroy", inst, node);
  return 32;  // has no effect
}

uint32_t refuse_get(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*, uint32_t) {
  return QMIBTREE_RC_NO_RESOURCE;
}

using Trace = std::vector<std::string>;

class Object : public ::testing::Test {
 protected:
  void SetUp() override {
    trace.clear();
    ASSERT_NE(tree.inst, nullptr);
    table = tree.node("A.T.");
  }

  uint32_t add(const char* name, uint32_t wish = 0) {
    last = wish;
    return qmibtree_add_object(tree.inst, name, &last, 0, 255);
  }
  void add_many(int times) {
    for (; times > 0; --times) ASSERT_EQ(add("A.T."), 0u);
  }
  uint32_t del(const char* name) { return qmibtree_del_object(tree.inst, name, 0); }

  void watch(std::initializer_list<uint32_t> uids) {
    for (const uint32_t uid : uids) {
      schema.record(uid).create_fn = note_create;
      schema.record(uid).destroy_fn = note_destroy;
    }
  }

  // The instances in order, then the counters: "1,2,7 last=7 added=3 deleted=0 changes=3".
  std::string state() const {
    std::string text;
    for (const qmibtree_node* node = table->first_child; node; node = node->next)
      text += (text.empty() ? "" : ",") + std::to_string(node->instance);
    return text + " last=" + std::to_string(table->last_instance) +
           " added=" + std::to_string(table->added) + " deleted=" + std::to_string(table->deleted) +
           " changes=" + std::to_string(tree.inst->obj_changes);
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
  qmibtree_node* table = nullptr;
  uint32_t last = 0;  // the number handed in and out by add()
};

TEST_F(Object, TheFirstInstanceIsNumberOne) {
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 1u);
  EXPECT_EQ(state(), "1 last=1 added=1 deleted=0 changes=1");
}

TEST_F(Object, WithoutAWishTheNextNumberIsGiven) {
  add_many(2);
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 3u);
  ASSERT_NE(tree.node("A.T.3."), nullptr);
  EXPECT_STREQ(tree.node("A.T.3.")->name, "3.");
}

TEST_F(Object, AWishAboveTheNextNumberIsHonoured) {
  add_many(2);
  EXPECT_EQ(add("A.T.", 7), 0u);
  EXPECT_EQ(last, 7u);
  EXPECT_EQ(table->last_instance, 7u);
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 8u);
  EXPECT_EQ(state(), "1,2,7,8 last=8 added=4 deleted=0 changes=4");
}

TEST_F(Object, AWishForTheNextNumberIsHonoured) {
  add_many(2);
  EXPECT_EQ(add("A.T.", 3), 0u);
  EXPECT_EQ(last, 3u);
}

TEST_F(Object, AWishJustAboveTheNextNumberIsHonoured) {
  add_many(2);
  EXPECT_EQ(add("A.T.", 4), 0u);
  EXPECT_EQ(last, 4u);
}

TEST_F(Object, AWishForAFreeLowerNumberIsIgnored) {
  add_many(5);
  ASSERT_EQ(del("A.T.3."), 0u);
  EXPECT_EQ(add("A.T.", 3), 0u);
  EXPECT_EQ(last, 6u);
  EXPECT_EQ(state(), "1,2,4,5,6 last=6 added=6 deleted=1 changes=7");
}

TEST_F(Object, AWishForANumberInUseIsRefused) {
  add_many(3);
  EXPECT_EQ(add("A.T.", 2), QMIBTREE_RC_ERROR);
  EXPECT_EQ(last, 2u);
  EXPECT_EQ(state(), "1,2,3 last=3 added=3 deleted=0 changes=3");
}

TEST_F(Object, ANumberInUseIsToldFromOthersThatAreCutToTheSameName) {
  ASSERT_EQ(add("A.T.", 12345), 0u);
  EXPECT_EQ(add("A.T.", 12345), QMIBTREE_RC_ERROR);
  EXPECT_EQ(add("A.T.", 12346), 0u);
}

TEST_F(Object, ANumberIsFreeWhileOnlyATableOfTheSameHashUsesIt) {
  Schema alike;
  alike.add(0, "A.");
  alike.add(1, "a@.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  alike.add(1, "b\xbd.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  const CheckedTree other(alike);
  for (const char* const table : {"A.a@.", "A.b\xbd."}) {
    uint32_t number = 1;
    ASSERT_EQ(BKDRHash(table), BKDRHash("A.a@."));
    EXPECT_EQ(qmibtree_add_object(other.inst, table, &number, 0, 255), QMIBTREE_RC_OK);
  }
}

TEST_F(Object, DeletingTheHighestFreesItsNumber) {
  add_many(3);
  ASSERT_EQ(del("A.T.3."), 0u);
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 3u);
}

TEST_F(Object, DeletingTheHighestFreesTheGapBelowItToo) {
  add_many(2);
  ASSERT_EQ(add("A.T.", 7), 0u);
  ASSERT_EQ(del("A.T.7."), 0u);
  EXPECT_EQ(table->last_instance, 2u);
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 3u);
}

TEST_F(Object, DeletingALowerInstanceFreesNoNumber) {
  add_many(3);
  ASSERT_EQ(del("A.T.2."), 0u);
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 4u);
}

TEST_F(Object, WhenAllAreGoneNumbersStartAgain) {
  add_many(2);
  ASSERT_EQ(del("A.T.2."), 0u);
  ASSERT_EQ(del("A.T.1."), 0u);
  EXPECT_EQ(state(), " last=0 added=2 deleted=2 changes=4");
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 1u);
}

TEST_F(Object, EachTemplateNumbersItsOwnInstances) {
  add_many(2);
  EXPECT_EQ(add("A.T.2.U.", 5), 0u);
  EXPECT_EQ(add("A.T.1.U."), 0u);
  EXPECT_EQ(last, 1u);
  EXPECT_NE(tree.node("A.T.2.U.5.x"), nullptr);
  EXPECT_NE(tree.node("A.T.1.U.1.x"), nullptr);
  EXPECT_EQ(state(), "1,2 last=2 added=2 deleted=0 changes=4");
  EXPECT_EQ(tree.node("A.T.2.U.")->added, 1u);
}

TEST_F(Object, NumbersFrom1000OnLoseTheDotOfTheirName) {
  ASSERT_EQ(add("A.T.", 999), 0u);
  ASSERT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 1000u);
  EXPECT_NE(tree.node("A.T.999.n"), nullptr);
  EXPECT_NE(tree.node("A.T.1000n"), nullptr);
}

TEST_F(Object, NumbersFrom10000OnAreCutToFourDigits) {
  ASSERT_EQ(add("A.T.", 12345), 0u);
  EXPECT_EQ(last, 12345u);
  ASSERT_NE(tree.node("A.T.1234"), nullptr);
  EXPECT_EQ(tree.node("A.T.1234")->instance, 12345u);
}

TEST_F(Object, AnInstanceIsBuiltWithItsChildrenAndDefaults) {
  add_many(1);
  const qmibtree_node* const node = tree.node("A.T.1.");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->parent, table);
  EXPECT_EQ(node->uidinfo, &schema.record(kTable));
  EXPECT_EQ(node->flags, QMIBTREE_NODE_INSTANCE);
  EXPECT_EQ(node->instance, 1u);
  EXPECT_EQ(node->childnum, 3u);
  EXPECT_EQ(read_text(tree.inst, "A.T.1.n"), "5");
  EXPECT_EQ(read_text(tree.inst, "A.T.1.s"), "none");
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T.1.U."), 0);
}

TEST_F(Object, TheRightIsStoredInTheInstanceAlone) {
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 3), 0u);
  EXPECT_EQ(tree.node("A.T.1.")->right, 3u);
  EXPECT_EQ(tree.node("A.T.1.n")->right, 255u);
  EXPECT_EQ(table->right, 255u);
}

TEST_F(Object, TheOptionWordsAreIgnored) {
  for (const uint32_t opt : {0u, 1u, 0xffffffffu}) {
    uint32_t number = 0;
    EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, opt, 255), 0u);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(qmibtree_del_object(tree.inst, "A.T.1.", opt), 0u);
  }
}

TEST_F(Object, OnlyATemplateTakesInstances) {
  add_many(1);
  const std::string before = state();
  for (const char* name : {"A.", "A.p", "A.T.1.", "A.T.1.n"}) {
    EXPECT_EQ(add(name), QMIBTREE_RC_ERROR) << name;
    EXPECT_EQ(add(name, 9), QMIBTREE_RC_ERROR) << name;
    EXPECT_EQ(last, 9u) << name;
  }
  EXPECT_EQ(state(), before);
}

TEST_F(Object, AParameterTakesNoInstancesWhateverItsRecordSays) {
  schema.record(kPlain).flags |= QMIBTREE_UID_MULTI;
  EXPECT_EQ(add("A.p"), QMIBTREE_RC_ERROR);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.p"), 0);
}

TEST_F(Object, AddingToAnUnknownNameIsNotFound) {
  EXPECT_EQ(add("A.T.1.U."), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(tree.inst->obj_changes, 0u);
}

TEST_F(Object, AddingWithNowhereToPutTheNumberIsRefused) {
  EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", nullptr, 0, 255), QMIBTREE_RC_ERROR);
  EXPECT_EQ(state(), " last=0 added=0 deleted=0 changes=0");
}

TEST_F(Object, TheNodeFormsDoTheSame) {
  uint32_t number = 4;
  EXPECT_EQ(qmibtree_add_object_by_node(tree.inst, table, &number, 0, 7), 0u);
  EXPECT_EQ(number, 4u);
  qmibtree_node* const node = tree.node("A.T.4.");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->right, 7u);
  EXPECT_EQ(qmibtree_del_object_by_node(tree.inst, node, 0), 0u);
  EXPECT_EQ(state(), " last=0 added=1 deleted=1 changes=2");
}

TEST_F(Object, AnAdditionIsCountedBeforeItsHooksRunParentsFirst) {
  watch({kTable, kNumber, kText, kInner});
  ASSERT_EQ(add("A.T.", 4), 0u);
  EXPECT_EQ(trace, (Trace{"create A.T.4. changes=1 added=1 deleted=0 last=4",
                          "create A.T.4.n changes=1 added=1 deleted=0 last=4",
                          "create A.T.4.s changes=1 added=1 deleted=0 last=4"}));
}

TEST_F(Object, ADeletionIsCountedAfterItsHooksRanChildrenFirst) {
  add_many(2);
  ASSERT_EQ(add("A.T.2.U."), 0u);
  watch({kTable, kNumber, kInner, kLeaf});
  ASSERT_EQ(del("A.T.2."), 0u);
  EXPECT_EQ(trace, (Trace{"destroy A.T.2.n changes=3 added=2 deleted=0 last=2",
                          "destroy A.T.2.U.1.x changes=3 added=2 deleted=0 last=2",
                          "destroy A.T.2.U.1. changes=3 added=2 deleted=0 last=2",
                          "destroy A.T.2. changes=3 added=2 deleted=0 last=2"}));
  EXPECT_EQ(state(), "1 last=1 added=2 deleted=1 changes=4");
}

TEST_F(Object, ARefusedBuildLeavesTheCountersCounted) {
  add_many(2);
  schema.record(kText).defval = nullptr;
  schema.record(kText).get_fn = refuse_get;
  EXPECT_EQ(add("A.T.", 9), QMIBTREE_RC_ERROR);
  EXPECT_EQ(last, 9u);
  EXPECT_EQ(state(), "1,2 last=2 added=3 deleted=0 changes=3");
  EXPECT_EQ(table->childnum, 2u);
  for (const char* name : {"A.T.9.", "A.T.9.n", "A.T.9.s"}) EXPECT_EQ(tree.node(name), nullptr);
}

TEST_F(Object, ARefusedBuildDestroysWhatItHadMade) {
  schema.record(kText).defval = nullptr;
  schema.record(kText).get_fn = refuse_get;
  watch({kTable, kNumber, kText});
  EXPECT_EQ(add("A.T."), QMIBTREE_RC_ERROR);
  EXPECT_EQ(trace, (Trace{"create A.T.1. changes=1 added=1 deleted=0 last=1",
                          "create A.T.1.n changes=1 added=1 deleted=0 last=1",
                          "create A.T.1.s changes=1 added=1 deleted=0 last=1",
                          "destroy A.T.1.s changes=1 added=1 deleted=0 last=1",
                          "destroy A.T.1.n changes=1 added=1 deleted=0 last=1",
                          "destroy A.T.1. changes=1 added=1 deleted=0 last=1"}));
}

TEST_F(Object, AfterARefusedBuildTheNumberIsGivenAgain) {
  schema.record(kText).defval = nullptr;
  schema.record(kText).get_fn = refuse_get;
  ASSERT_EQ(add("A.T."), QMIBTREE_RC_ERROR);
  schema.record(kText).get_fn = nullptr;
  EXPECT_EQ(add("A.T."), 0u);
  EXPECT_EQ(last, 1u);
}

TEST_F(Object, OnlyAnInstanceCanBeDeleted) {
  add_many(1);
  const std::string before = state();
  for (const char* name : {"A.", "A.p", "A.T.", "A.T.1.n", "A.T.1.U."}) {
    EXPECT_EQ(del(name), QMIBTREE_RC_ERROR) << name;
    EXPECT_NE(tree.node(name), nullptr) << name;
  }
  EXPECT_EQ(state(), before);
}

TEST_F(Object, DeletingAnUnknownNameIsNotFound) {
  EXPECT_EQ(del("A.T.1."), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(tree.inst->obj_changes, 0u);
}

TEST_F(Object, ADeletionTakesTheWholeSubtreeOutOfBothIndexes) {
  add_many(2);
  ASSERT_EQ(add("A.T.1.U."), 0u);
  ASSERT_EQ(del("A.T.1."), 0u);
  for (const char* name : {"A.T.1.", "A.T.1.n", "A.T.1.s", "A.T.1.U.", "A.T.1.U.1.x"})
    EXPECT_EQ(tree.node(name), nullptr) << name;
  EXPECT_EQ(qmibtree_hash_lookup_uid(tree.inst->uid_hash, kLeaf), nullptr);
  qmibtree_node* const left = qmibtree_hash_lookup_uid(tree.inst->uid_hash, kNumber);
  EXPECT_EQ(left, tree.node("A.T.2.n"));
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(left, kNumber), nullptr);
}

TEST_F(Object, DeletionsKeepTheOrderOfTheRest) {
  add_many(5);
  ASSERT_EQ(del("A.T.1."), 0u);
  EXPECT_EQ(state(), "2,3,4,5 last=5 added=5 deleted=1 changes=6");
  ASSERT_EQ(del("A.T.3."), 0u);
  EXPECT_EQ(state(), "2,4,5 last=5 added=5 deleted=2 changes=7");
  ASSERT_EQ(del("A.T.5."), 0u);
  EXPECT_EQ(state(), "2,4 last=4 added=5 deleted=3 changes=8");
  EXPECT_EQ(table->first_child, tree.node("A.T.2."));
  EXPECT_EQ(table->last_child, tree.node("A.T.4."));
  EXPECT_EQ(table->childnum, 2u);
}

TEST_F(Object, ANestedDeletionCountsOnItsOwnTemplate) {
  add_many(1);
  ASSERT_EQ(add("A.T.1.U."), 0u);
  ASSERT_EQ(del("A.T.1.U.1."), 0u);
  EXPECT_EQ(tree.node("A.T.1.U.")->deleted, 1u);
  EXPECT_EQ(state(), "1 last=1 added=1 deleted=0 changes=3");
}

TEST_F(Object, ADeletionDropsTheEventsBelowIt) {
  add_many(1);
  ASSERT_EQ(qmibtree_notify(tree.inst, "A.p", 0), 0u);
  ASSERT_EQ(qmibtree_notify(tree.inst, "A.T.1.n", 0), 0u);
  ASSERT_EQ(tree.inst->notif->num, 2u);
  ASSERT_EQ(del("A.T.1."), 0u);
  ASSERT_EQ(tree.inst->notif->num, 1u);
  EXPECT_EQ(qmibtree_notif_get_event(tree.inst->notif, 0), tree.node("A.p"));
}

TEST_F(Object, AnAdditionOrDeletionQueuesNoEventAndCallsNobody) {
  changes().clear();
  add_many(1);
  ASSERT_EQ(del("A.T.1."), 0u);
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_TRUE(changes().empty());
}

// A text that cannot be copied leaves the new parameter without it; every other failure
// fails the addition, and then only the counters tell.
TEST_F(Object, AFailedAllocationLeavesTheTreeAsItWas) {
  add_many(2);
  for (int n = 0;; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 100);
    const int before = live_blocks();
    const uint32_t added = table->added;
    fail_allocation_after(n);
    const uint32_t rc = add("A.T.", 5);
    const bool struck = allocations_work();
    EXPECT_EQ(table->added, added + 1);
    if (QMIBTREE_FAILED(rc)) {
      EXPECT_TRUE(struck);
      EXPECT_EQ(rc, QMIBTREE_RC_ERROR);
      EXPECT_EQ(last, 5u);
    } else {
      const qmibtree_node* const text = tree.node("A.T.5.s");
      ASSERT_NE(text, nullptr);
      EXPECT_EQ(struck, !text->value.str || !text->default_value.str);
      EXPECT_EQ(text->value.type, QMIBTREE_TYPE_STRING);
      ASSERT_EQ(del("A.T.5."), 0u);
    }
    EXPECT_EQ(table->childnum, 2u);
    EXPECT_EQ(table->last_instance, 2u);
    EXPECT_EQ(table->last_child, tree.node("A.T.2."));
    EXPECT_EQ(table->last_child->next, nullptr);
    for (const char* name : {"A.T.5.", "A.T.5.n", "A.T.5.s", "A.T.5.U."})
      EXPECT_EQ(tree.node(name), nullptr) << name;
    EXPECT_EQ(live_blocks(), before);
    if (!struck) break;
  }
}

}  // namespace
