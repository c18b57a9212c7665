// Shows that the checker sees each kind of damage, and nothing in a sound tree. A tree is damaged
// through its public records, by hand, and mended again.
#include "qmibtree_testkit/checker.hh"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/matchers.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;
using testing::Contains;

namespace {

enum : uint32_t { kRoot, kName, kLevel, kKey, kBox, kOn, kTable, kNumber, kInner, kFlag };

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "Name", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, "none");
  schema.add(1, "Level", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
  schema.add(1, "Key", QMIBTREE_TYPE_BASE64);
  schema.add(1, "Box.");
  schema.add(2, "On", QMIBTREE_TYPE_BOOL, 0, "true");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "N", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "0");
  schema.add(2, "U.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(3, "F", QMIBTREE_TYPE_BOOL, 0, "false");
  return schema;
}

// Two instances, bytes, and an active and a passive event.
class Checker : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(tree.inst, nullptr);
    add("A.T.");
    add("A.T.");
    const qmibtree_value_t bytes = base64_value("abc", 3);
    ASSERT_THAT(qmibtree_write(tree.inst, "A.Key", &bytes, 0), Succeeds());
    qmibtree_set_attr(tree.inst, "A.Name", QMIBTREE_ATTR_NOTIF_PASSIVE);
    for (const char* name : {"A.Name", "A.Level"}) qmibtree_notify(tree.inst, name, 0);
  }

  void add(const char* name, uint32_t wish = 0) {
    ASSERT_THAT(qmibtree_add_object(tree.inst, name, &wish, 0, 255), Succeeds());
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
};

// --- damage ---

using Undo = std::function<void()>;

template <typename Field>
Undo change(Field& field, std::type_identity_t<Field> to) {
  return [&field, before = std::exchange(field, to)] { field = before; };
}

// The changes are made in the order of the braces.
Undo all(std::initializer_list<Undo> changes) {
  return [undos = std::vector<Undo>(changes)] {
    std::for_each(undos.rbegin(), undos.rend(), [](const Undo& undo) { undo(); });
  };
}

struct Damage {
  const char* what;
  Undo (*make)(Tree&);
  const char* problem;
};

void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.what; }

class CheckerSees : public Checker, public testing::WithParamInterface<Damage> {};

TEST_P(CheckerSees, AndNothingElseOnceItIsMended) {
  ASSERT_THAT(tree, IsConsistent());
  const Undo mend = GetParam().make(tree);
  EXPECT_THAT(problems_of(tree.inst), Contains(GetParam().problem));
  mend();
  EXPECT_THAT(tree, IsConsistent());
}

qmibtree_uidinfo_t stray_record;
qmibtree_node stray_node;
char stray_text[] = "none";

// The chain that the node is first in.
qmibtree_node*& chain_of(Tree& tree, const qmibtree_node* node) {
  return tree.inst->name_hash->buckets[node->hash % tree.inst->name_hash->size];
}

// Swaps a chain's first two, which the link `next` leads through.
Undo swap_first_two(qmibtree_node*& head, qmibtree_node* qmibtree_node::*next) {
  qmibtree_node *const first = head, *const second = first->*next, *const third = second->*next;
  return all({change(head, second), change(second->*next, first), change(first->*next, third)});
}

const Damage kDamages[] = {
    // The root.
    {"ARootWithAParent",
     [](Tree& tree) { return change(tree.inst->root->parent, tree.node("A.Box.")); },
     "the root has a parent"},
    {"ARootWithASibling",
     [](Tree& tree) { return change(tree.inst->root->next, tree.node("A.Box.")); },
     "the root has a sibling"},
    {"ARootOfAnotherRecord",
     [](Tree& tree) { return change(tree.inst->root->uidinfo, tree.node("A.Box.")->uidinfo); },
     "the root is not of the schema's first record"},
    {"AMissingRoot", [](Tree& tree) { return change(tree.inst->root, nullptr); },
     "there is no tree"},

    // A node.
    {"ANodeWithoutAName", [](Tree& tree) { return change(tree.node("A.Level")->name, nullptr); },
     "A.Level lacks its name or its schema record"},
    {"ANodeWithoutAFullName",
     [](Tree& tree) { return change(tree.node("A.Level")->fullName, nullptr); },
     "a node without a full name lacks its name or its schema record"},
    {"ANodeWithoutARecord",
     [](Tree& tree) { return change(tree.node("A.Level")->uidinfo, nullptr); },
     "A.Level lacks its name or its schema record"},
    {"ANodeOfARecordThatIsNotTheSchemas",
     [](Tree& tree) { return change(tree.node("A.Level")->uidinfo, &stray_record); },
     "A.Level lacks its name or its schema record"},
    {"ANodeInTwoPlaces",
     [](Tree& tree) { return change(tree.node("A.Box.")->first_child, tree.node("A.T.")); },
     "A.T. is in the tree twice"},
    {"ANodeOfAnotherTree", [](Tree& tree) { return change(tree.node("A.Level")->inst, nullptr); },
     "A.Level is of another tree"},
    {"ANodeOfAnotherParent",
     [](Tree& tree) { return change(tree.node("A.Level")->parent, tree.node("A.Box.")); },
     "A.Level has another parent"},

    // Names.
    {"AnInstanceThatIsNotMarked", [](Tree& tree) { return change(tree.node("A.T.1.")->flags, 0); },
     "A.T.1. differs from its parent on whether it is an instance"},
    {"AnInstanceOutsideATemplate",
     [](Tree& tree) { return change(tree.node("A.Box.")->flags, QMIBTREE_NODE_INSTANCE); },
     "A.Box. differs from its parent on whether it is an instance"},
    {"AnInstanceNumberOfNoInstance",
     [](Tree& tree) { return change(tree.node("A.Box.")->instance, 1); },
     "A.Box. has an instance number"},
    {"ARightOfNoInstance", [](Tree& tree) { return change(tree.node("A.Box.")->right, 1); },
     "A.Box. has a right"},
    {"AnotherName", [](Tree& tree) { return change(tree.node("A.Box.")->name, "Bax."); },
     "A.Box. has the name Bax."},
    {"AnInstanceWithAnothersName",
     [](Tree& tree) { return change(tree.node("A.T.1.")->name, "2."); }, "A.T.1. has the name 2."},
    {"ANameThatWouldBeFreed",
     [](Tree& tree) { return change(tree.node("A.Name")->name, stray_text); },
     "A.Name does not own what it should"},
    {"AFullNameOfAnotherPlace",
     [](Tree& tree) { return change(tree.node("A.Level")->fullName, "A.Box.Level"); },
     "A.Box.Level is not named by its place"},
    {"AFullNameOfTwoOwners",
     [](Tree& tree) {
       return change(tree.node("A.Level")->fullName, tree.node("A.Name")->fullName);
     },
     "A.Name has a full name that something else owns"},
    {"AnotherHash", [](Tree& tree) { return change(tree.node("A.Level")->hash, 1); },
     "A.Level has another name's hash"},

    // Flags.
    {"AnUnknownFlag",
     [](Tree& tree) {
       return change(tree.node("A.Level")->flags, tree.node("A.Level")->flags | 0x800);
     },
     "A.Level has flags that there are not"},
    {"BothNotifications",
     [](Tree& tree) {
       return change(tree.node("A.Level")->flags,
                     tree.node("A.Level")->flags | QMIBTREE_NODE_NOTIF_PASSIVE);
     },
     "A.Level has both kinds of notification"},
    {"AReservedWordInUse", [](Tree& tree) { return change(tree.node("A.Level")->reserved, 1); },
     "A.Level has a reserved word in use"},
    {"AParameterThatIsNotMarked", [](Tree& tree) { return change(tree.node("A.Level")->flags, 0); },
     "A.Level differs from its record on whether it is a parameter"},
    {"AnObjectMarkedAsParameter",
     [](Tree& tree) { return change(tree.node("A.Box.")->flags, QMIBTREE_NODE_PARAM); },
     "A.Box. differs from its record on whether it is a parameter"},

    // Values.
    {"AnOwnershipThatIsNone",
     [](Tree& tree) { return change(tree.node("A.Name")->value.owned, 2); },
     "A.Name has a value with an ownership of 2"},
    {"ATextThatNobodyOwns", [](Tree& tree) { return change(tree.node("A.Name")->value.owned, 0); },
     "A.Name has a value in others' storage"},
    {"ADefaultThatNobodyOwns",
     [](Tree& tree) { return change(tree.node("A.Name")->default_value.owned, 0); },
     "A.Name has a default value in others' storage"},
    {"BytesThatNobodyOwns", [](Tree& tree) { return change(tree.node("A.Key")->value.owned, 0); },
     "A.Key has a value in others' storage"},
    {"ANumberThatOwnsSomething",
     [](Tree& tree) { return change(tree.node("A.Level")->value.owned, 1); },
     "A.Level has a value that owns nothing"},
    {"AnOwnerOfNoText", [](Tree& tree) { return change(tree.node("A.Name")->value.str, nullptr); },
     "A.Name has a value that owns nothing"},
    {"ATextOfTwoOwners",
     [](Tree& tree) {
       return change(tree.node("A.Name")->value.str, tree.node("A.Name")->default_value.str);
     },
     "A.Name has a default value that something else owns"},
    {"BytesWithoutALength", [](Tree& tree) { return change(tree.node("A.Key")->value.len, 0); },
     "A.Key has a value of another length than its bytes"},
    {"ALengthWithoutBytes",
     [](Tree& tree) { return change(tree.node("A.Key")->default_value.len, 1); },
     "A.Key has a default value of another length than its bytes"},
    {"AnUnmarkedModification", [](Tree& tree) { return change(tree.node("A.Level")->value.i, 6); },
     "A.Level differs from its default, unmarked"},
    {"AnUnmarkedModificationOfTheType",
     [](Tree& tree) { return change(tree.node("A.Level")->value.type, QMIBTREE_TYPE_UINT); },
     "A.Level differs from its default, unmarked"},

    // Children.
    {"AParameterThatCountsChildren",
     [](Tree& tree) { return change(tree.node("A.Level")->childnum, 1); }, "A.Level has children"},
    {"AParameterWithAFirstChild",
     [](Tree& tree) { return change(tree.node("A.Level")->first_child, &stray_node); },
     "A.Level has children"},
    {"AParameterWithALastChild",
     [](Tree& tree) { return change(tree.node("A.Level")->last_child, &stray_node); },
     "A.Level has children"},
    {"MoreChildrenThanCounted", [](Tree& tree) { return change(tree.node("A.T.")->childnum, 1); },
     "A.T. has more children than it counts"},
    {"FewerChildrenThanCounted", [](Tree& tree) { return change(tree.node("A.T.")->childnum, 3); },
     "A.T. has fewer children than it counts"},
    {"ChildrenInACircle",
     [](Tree& tree) { return change(tree.node("A.T.2.")->next, tree.node("A.T.1.")); },
     "A.T. has more children than it counts"},
    {"AnotherLastChild",
     [](Tree& tree) { return change(tree.node("A.T.")->last_child, tree.node("A.T.1.")); },
     "A.T. has another last child"},
    {"ChildrenOutOfTheSchemasOrder",
     [](Tree& tree) { return swap_first_two(tree.inst->root->first_child, &qmibtree_node::next); },
     "A. has other children than the schema"},
    {"AChildTooFew",
     [](Tree& tree) {
       qmibtree_node* const box = tree.node("A.Box.");
       return all({change(box->first_child, nullptr), change(box->last_child, nullptr),
                   change(box->childnum, 0)});
     },
     "A.Box. lacks children that the schema has"},
    {"ARecordTooFew",
     [](Tree& tree) { return change(tree.node("A.Box.")->uidinfo->child_uid, -1); },
     "A.Box. has other children than the schema"},

    // Instances and counters.
    {"AnInstanceOfAnotherRecord",
     [](Tree& tree) { return change(tree.node("A.T.1.")->uidinfo, tree.node("A.Box.")->uidinfo); },
     "A.T. has an instance of another record"},
    {"InstancesOutOfOrder",
     [](Tree& tree) {
       return swap_first_two(tree.node("A.T.")->first_child, &qmibtree_node::next);
     },
     "A.T. has instance 1 after 2"},
    {"ANumberTwice", [](Tree& tree) { return change(tree.node("A.T.2.")->instance, 1); },
     "A.T. has instance 1 after 1"},
    {"AnotherHighestNumber", [](Tree& tree) { return change(tree.node("A.T.")->last_instance, 3); },
     "A.T. counts 3 as its highest instance"},
    {"AnInstanceThatWasNotAdded", [](Tree& tree) { return change(tree.node("A.T.")->added, 1); },
     "A.T. has instances that were never added"},
    {"AnInstanceThatWasDeleted", [](Tree& tree) { return change(tree.node("A.T.")->deleted, 1); },
     "A.T. has instances that were never added"},
    {"AnAdditionToNoTemplate", [](Tree& tree) { return change(tree.node("A.Box.")->added, 1); },
     "A.Box. counts instances, and is no template"},
    {"ADeletionFromNoTemplate", [](Tree& tree) { return change(tree.node("A.Box.")->deleted, 1); },
     "A.Box. counts instances, and is no template"},
    {"ANumberOfNoTemplate",
     [](Tree& tree) { return change(tree.node("A.Box.")->last_instance, 1); },
     "A.Box. counts instances, and is no template"},
    {"UncountedChanges", [](Tree& tree) { return change(tree.inst->obj_changes, 1); },
     "the tree counts fewer changes than its templates do"},

    // Indexes.
    {"AMissingNameIndex", [](Tree& tree) { return change(tree.inst->name_hash, nullptr); },
     "the index of full names is missing"},
    {"ANameIndexOfAnotherKind", [](Tree& tree) { return change(tree.inst->name_hash->kind, 1); },
     "the index of full names is of another kind"},
    {"AnIdIndexOfAnotherKind", [](Tree& tree) { return change(tree.inst->uid_hash->kind, 0); },
     "the index of unique ids is of another kind"},
    {"ANameIndexOfAnotherSize", [](Tree& tree) { return change(tree.inst->name_hash->size, 4999); },
     "the index of full names has 4999 buckets"},
    {"AnIdIndexOfAnotherSize", [](Tree& tree) { return change(tree.inst->uid_hash->size, 1); },
     "the index of unique ids has 1 buckets"},
    {"ANodeThatCannotBeFoundByName",
     [](Tree& tree) { return change(chain_of(tree, tree.node("A.Level")), nullptr); },
     "the index of full names holds 12 of 13 nodes"},
    {"ANodeThatCannotBeFoundById",
     [](Tree& tree) { return change(tree.inst->uid_hash->buckets[kLevel], nullptr); },
     "the index of unique ids holds 12 of 13 nodes"},
    {"AForeignNodeInTheNameIndex",
     [](Tree& tree) { return change(tree.node("A.Level")->name_next, &stray_node); },
     "the index of full names holds a node that is not in the tree"},
    {"AForeignNodeInTheIdIndex",
     [](Tree& tree) { return change(tree.node("A.Level")->uid_next, &stray_node); },
     "the index of unique ids holds a node that is not in the tree"},
    {"ACircleInTheNameIndex",
     [](Tree& tree) { return change(tree.node("A.Level")->name_next, tree.node("A.Level")); },
     "the index of full names holds A.Level twice"},
    {"ACircleInTheIdIndex",
     [](Tree& tree) { return change(tree.node("A.Level")->uid_next, tree.node("A.Level")); },
     "the index of unique ids holds A.Level twice"},
    {"ANodeInAnothersNameChain",
     [](Tree& tree) { return change(tree.node("A.Level")->name_next, tree.node("A.Name")); },
     "the index of full names holds A.Name out of place"},
    {"ANodeInAnothersIdChain",
     [](Tree& tree) { return change(tree.node("A.Name")->uid_next, tree.node("A.Level")); },
     "the index of unique ids holds A.Level out of place"},
    {"AnOlderInstanceBeforeANewer",
     [](Tree& tree) {
       return swap_first_two(tree.inst->uid_hash->buckets[kTable], &qmibtree_node::uid_next);
     },
     "the index of unique ids holds A.T.2. behind an older one"},

    // Events.
    {"AMissingQueue", [](Tree& tree) { return change(tree.inst->notif, nullptr); },
     "the event queue is missing"},
    {"MoreEventsThanThereIsRoomFor",
     [](Tree& tree) { return change(tree.inst->notif->num, QMIBTREE_NOTIF_MAX + 1); },
     "the event queue holds more events than it can"},
    {"AnEventOfAForeignNode",
     [](Tree& tree) { return change(tree.inst->notif->entries[0].node, &stray_node); },
     "the event queue holds a node that is not in the tree"},
    {"AnEventOfNoNode",
     [](Tree& tree) { return change(tree.inst->notif->entries[0].node, nullptr); },
     "the event queue holds a node that is not in the tree"},
    {"TwoEventsOfANode",
     [](Tree& tree) { return change(tree.inst->notif->entries[0].node, tree.node("A.Level")); },
     "the event queue holds A.Level twice"},
    {"AnActivityThatIsNone",
     [](Tree& tree) { return change(tree.inst->notif->entries[0].active, 2); },
     "the event queue holds an event that is neither active nor passive"},
    {"AnotherNumberOfActiveEvents",
     [](Tree& tree) { return change(tree.inst->notif->active_num, 2); },
     "the event queue counts 2 of 1 active events"},
};

INSTANTIATE_TEST_SUITE_P(, CheckerSees, testing::ValuesIn(kDamages),
                         [](const auto& tested) { return tested.param.what; });

// --- sound trees ---

TEST_F(Checker, ANullInstanceIsNoTree) {
  EXPECT_EQ(problems_of(nullptr), std::vector<std::string>{"there is no tree"});
}

TEST_F(Checker, InstancesMayComeAndGo) {
  add("A.T.", 7);
  add("A.T.7.U.");
  for (const char* name : {"A.T.1.", "A.T.7."})
    ASSERT_THAT(qmibtree_del_object(tree.inst, name, 0), Succeeds());
  add("A.T.");
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, NamesThatWereCutMayBeEqual) {
  for (const uint32_t number : {1000u, 12340u, 12345u}) add("A.T.", number);
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, NumbersMayBeNamedAsNegativeOnes) {
  for (const uint32_t number : {0xfffffc00u, 0xffffffffu}) add("A.T.", number);
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, AnAdditionThatFailedMayHaveBeenCounted) {
  fail_allocation_after(0);
  uint32_t number = 0;
  EXPECT_THAT(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), Fails());
  ASSERT_TRUE(allocations_work());
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, AnInstanceMayHaveARight) {
  uint32_t number = 0;
  ASSERT_THAT(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 3), Succeeds());
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, ATextMayBeLostWhenMemoryRunsOut) {
  ASSERT_THAT(qmibtree_write_strvalue(tree.inst, "A.Name", "other", 0), Succeeds());
  fail_allocation_after(0);
  EXPECT_THAT(qmibtree_write_strvalue(tree.inst, "A.Name", "none", 0), Succeeds());
  ASSERT_TRUE(allocations_work());
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, AModificationMayComeAndGo) {
  for (const char* text : {"6", "5"}) {
    ASSERT_THAT(qmibtree_write_strvalue(tree.inst, "A.Level", text, 0), Succeeds());
    EXPECT_THAT(tree, IsConsistent());
  }
}

TEST_F(Checker, AValueMayBeWrittenToAnObject) {
  const qmibtree_value_t text = string_value("kept");
  ASSERT_THAT(qmibtree_write(tree.inst, "A.Box.", &text, 0), Succeeds());
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, AValueMayBeHandedOverByItsHook) {
  schema.record(kLevel).flags = QMIBTREE_UID_DYNAMIC;
  schema.record(kLevel).get_fn = [](qmibtree_inst_t*, qmibtree_node* node, qmibtree_value_t* value,
                                    uint32_t) {
    node->uidinfo->flags = 0;
    *value = int_value(9);
    return 0u;
  };
  ASSERT_EQ(read_text(tree.inst, "A.Level"), "9");
  ASSERT_EQ(tree.node("A.Level")->value.i, 9);
  EXPECT_THAT(tree, IsConsistent());
}

TEST(CheckerWithoutIds, TheIndexOfUniqueIdsMayBeMissing) {
  Schema schema = outline();
  fail_allocation_after(2);  // the instance, the index of names, the index of unique ids
  CheckedTree tree(schema);
  ASSERT_TRUE(allocations_work());
  ASSERT_NE(tree.inst, nullptr);
  ASSERT_EQ(tree.inst->uid_hash, nullptr);
  EXPECT_THAT(tree, IsConsistent());
}

TEST_F(Checker, DroppingAnEarlierEventLeavesAQueueThatMayBeAnything) {
  ASSERT_EQ(tree.inst->notif->num, 2u);
  qmibtree_notif_del_event(tree.inst->notif, tree.node("A.Name"));
  EXPECT_THAT(problems_of(tree.inst),
              Contains("the event queue holds a node that is not in the tree"));
  EXPECT_THAT(tree, IsConsistent(Events::kMayBeGone));
  qmibtree_notif_cleanup(tree.inst->notif);
}

TEST_F(Checker, AQueueThatMayBeAnythingHasItsLimitAllTheSame) {
  const Undo mend = change(tree.inst->notif->num, QMIBTREE_NOTIF_MAX + 1);
  EXPECT_THAT(problems_of(tree.inst, Events::kMayBeGone),
              Contains("the event queue holds more events than it can"));
  mend();
}

}  // namespace
