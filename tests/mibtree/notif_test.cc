// The queue of change events: what is queued, how it drains, and what a deletion takes with it.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr bool k64 = sizeof(void*) == 8;

// A queue of its own and nodes that belong to no tree: the queue looks at nothing but their
// flags and their records' flags.
class Notif : public testing::Test {
 protected:
  void SetUp() override {
    queue_ = qmibtree_notif_create();
    ASSERT_NE(queue_, nullptr);
    forced_.flags = QMIBTREE_UID_NOTIF_FORCED;
    for (qmibtree_node& each : nodes_) {
      each.uidinfo = &plain_;
      each.flags = QMIBTREE_NODE_NOTIF_ACTIVE;
    }
  }

  void TearDown() override { qmibtree_notif_destroy(queue_); }

  qmibtree_node* node(size_t index) { return &nodes_[index]; }
  void add(size_t index) { qmibtree_notif_add_event(queue_, node(index)); }
  void del(size_t index) { qmibtree_notif_del_event(queue_, node(index)); }

  void add_first(size_t count) {
    for (size_t i = 0; i < count; ++i) add(i);
  }

  // Indexes of the queued nodes, oldest first; -1 for a null node.
  std::vector<int> queued() {
    std::vector<int> indexes;
    for (uint32_t i = 0; i < queue_->num; ++i) {
      const qmibtree_node* const each = qmibtree_notif_get_event(queue_, i);
      indexes.push_back(each ? static_cast<int>(each - nodes_.data()) : -1);
    }
    return indexes;
  }

  LeakCheck leaks;
  qmibtree_notif_t* queue_ = nullptr;
  qmibtree_uidinfo_t plain_ = {};
  qmibtree_uidinfo_t forced_ = {};
  std::vector<qmibtree_node> nodes_ = std::vector<qmibtree_node>(QMIBTREE_NOTIF_MAX + 2);
};

using indexes = std::vector<int>;

TEST(NotifRecord, HoldsAHundredEntriesAndThenTheTwoCounts) {
  EXPECT_EQ(QMIBTREE_NOTIF_MAX, 100);
  EXPECT_EQ(offsetof(qmibtree_notif_entry_t, node), 0u);
  EXPECT_EQ(offsetof(qmibtree_notif_entry_t, active), k64 ? 8u : 4u);
  EXPECT_EQ(offsetof(qmibtree_notif_t, entries), 0u);
  EXPECT_EQ(offsetof(qmibtree_notif_t, active_num), k64 ? 1600u : 800u);
  EXPECT_EQ(offsetof(qmibtree_notif_t, num), k64 ? 1604u : 804u);
}

TEST(NotifCreate, WithoutMemoryGivesNull) {
  fail_allocation_after(0);
  EXPECT_EQ(qmibtree_notif_create(), nullptr);
  EXPECT_TRUE(allocations_work());
}

TEST_F(Notif, StartsEmpty) {
  EXPECT_EQ(queue_->num, 0u);
  EXPECT_EQ(queue_->active_num, 0u);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 0), nullptr);
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), nullptr);
  EXPECT_EQ(queue_->num, 0u);
}

TEST_F(Notif, QueueingNeedsNoMemory) {
  const long made = allocations_made();
  add_first(3);
  del(1);
  qmibtree_notif_deq_event(queue_);
  EXPECT_EQ(allocations_made(), made);
}

struct eligibility {
  const char* what;
  uint32_t node_flags;
  uint32_t record_flags;
  uint32_t queued;
  uint32_t active;
};

class NotifEligible : public Notif, public testing::WithParamInterface<eligibility> {};

TEST_P(NotifEligible, IsQueuedByTheFlagsOfNodeAndRecord) {
  qmibtree_uidinfo_t record = {};
  record.flags = GetParam().record_flags;
  node(0)->uidinfo = &record;
  node(0)->flags = GetParam().node_flags;
  add(0);
  EXPECT_EQ(queue_->num, GetParam().queued);
  EXPECT_EQ(queue_->active_num, GetParam().active);
  EXPECT_EQ(queue_->entries[0].active, GetParam().active);
}

constexpr uint32_t kEveryOtherNodeFlag =
    ~(QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE);

INSTANTIATE_TEST_SUITE_P(
    , NotifEligible,
    testing::Values(eligibility{"Off", kEveryOtherNodeFlag, 0, 0, 0},
                    eligibility{"Passive", QMIBTREE_NODE_NOTIF_PASSIVE, 0, 1, 0},
                    eligibility{"Active", QMIBTREE_NODE_NOTIF_ACTIVE, 0, 1, 1},
                    eligibility{"ForcedThoughOff", 0, QMIBTREE_UID_NOTIF_FORCED, 1, 1},
                    eligibility{"ForcedThoughPassive", QMIBTREE_NODE_NOTIF_PASSIVE,
                                QMIBTREE_UID_NOTIF_FORCED, 1, 1},
                    eligibility{"ForcedAndActive", QMIBTREE_NODE_NOTIF_ACTIVE,
                                QMIBTREE_UID_NOTIF_FORCED, 1, 1},
                    eligibility{"DefaultOfTheRecordAlone", 0, ~QMIBTREE_UID_NOTIF_FORCED, 0, 0}),
    [](const auto& tested) { return tested.param.what; });

TEST_F(Notif, ANodeIsQueuedOnce) {
  add(0);
  add(1);
  add(0);
  EXPECT_EQ(queued(), (indexes{0, 1}));
  EXPECT_EQ(queue_->active_num, 2u);
}

TEST_F(Notif, ALaterEventDoesNotUpgradeTheEntry) {
  node(0)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add(0);
  node(0)->flags = QMIBTREE_NODE_NOTIF_ACTIVE;
  add(0);
  EXPECT_EQ(queue_->entries[0].active, 0);
  EXPECT_EQ(queue_->active_num, 0u);
}

TEST_F(Notif, OnlyActiveEntriesCountAsActive) {
  node(1)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  node(2)->uidinfo = &forced_;
  add_first(3);
  EXPECT_EQ(queue_->num, 3u);
  EXPECT_EQ(queue_->active_num, 2u);
}

TEST_F(Notif, AHundredNodesFit) {
  add_first(QMIBTREE_NOTIF_MAX);
  EXPECT_EQ(queue_->num, 100u);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 99), node(99));
}

TEST_F(Notif, TheHundredAndFirstIsLostSilently) {
  add_first(QMIBTREE_NOTIF_MAX + 1);
  EXPECT_EQ(queue_->num, 100u);
  EXPECT_EQ(queue_->active_num, 100u);
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), node(99));
}

TEST_F(Notif, DeletingTheNewestIsAPlainRemoval) {
  add_first(3);
  del(2);
  EXPECT_EQ(queued(), (indexes{0, 1}));
  EXPECT_EQ(queue_->active_num, 2u);
}

TEST_F(Notif, DeletingTheOnlyEventEmptiesTheQueue) {
  add(0);
  del(0);
  EXPECT_EQ(queue_->num, 0u);
  EXPECT_EQ(queue_->active_num, 0u);
}

TEST_F(Notif, DeletingAnEarlierEventDropsTheNewest) {
  add_first(3);
  del(0);
  EXPECT_EQ(queue_->num, 2u);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 1), node(1));
  add(2);  // it is no longer queued, and so it goes to the end
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 2), node(2));
}

TEST_F(Notif, DeletingAnEarlierEventLeavesANullNodeWhereNothingEverWas) {
  add_first(3);
  del(0);
  EXPECT_EQ(queued(), (indexes{-1, 1}));
  EXPECT_EQ(queue_->entries[0].active, 0);
}

TEST_F(Notif, DeletingAnEarlierEventBringsBackWhatWasLastRemovedBehindTheNewest) {
  node(3)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add_first(4);
  ASSERT_EQ(qmibtree_notif_deq_event(queue_), node(3));
  del(0);
  EXPECT_EQ(queued(), (indexes{3, 1}));
  EXPECT_EQ(queue_->entries[0].active, 0);
}

TEST_F(Notif, TheActiveMarkComesBackWithTheNode) {
  node(0)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add_first(4);
  ASSERT_EQ(qmibtree_notif_deq_event(queue_), node(3));
  del(0);
  EXPECT_EQ(queued(), (indexes{3, 1}));
  EXPECT_EQ(queue_->entries[0].active, 1);
}

TEST_F(Notif, DeletingAnEarlierEventUncountsItAndNotTheNewest) {
  node(0)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add_first(3);
  ASSERT_EQ(queue_->active_num, 2u);
  del(0);
  EXPECT_EQ(queue_->active_num, 2u);  // though the newest, an active one, went too
}

TEST_F(Notif, DeletingAnActiveEventCountsOneLess) {
  node(1)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add_first(2);
  del(0);
  EXPECT_EQ(queue_->active_num, 0u);
}

TEST_F(Notif, DeletingAnEarlierEventOfAFullQueueLeavesANullNode) {
  add_first(QMIBTREE_NOTIF_MAX);
  del(40);
  EXPECT_EQ(queue_->num, 99u);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 40), nullptr);
  EXPECT_EQ(queue_->entries[40].active, 0);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 98), node(98));
}

TEST_F(Notif, DeletingTheNewestOfAFullQueueIsAPlainRemoval) {
  add_first(QMIBTREE_NOTIF_MAX);
  del(99);
  EXPECT_EQ(queue_->num, 99u);
  EXPECT_EQ(queue_->active_num, 99u);
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), node(98));
}

TEST_F(Notif, DeletingAnUnqueuedNodeChangesNothing) {
  add_first(2);
  del(5);
  EXPECT_EQ(queued(), (indexes{0, 1}));
  EXPECT_EQ(queue_->active_num, 2u);
}

TEST_F(Notif, DeletingFromAnEmptyQueueChangesNothing) {
  add(0);
  qmibtree_notif_deq_event(queue_);
  del(0);
  EXPECT_EQ(queue_->num, 0u);
  EXPECT_EQ(queue_->active_num, 0u);
}

TEST_F(Notif, AnEventThatWasTakenCannotBeDeleted) {
  add_first(2);
  qmibtree_notif_deq_event(queue_);
  del(1);
  EXPECT_EQ(queued(), (indexes{0}));
}

TEST_F(Notif, LookingAtAnEventLeavesItQueued) {
  add_first(2);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 0), node(0));
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 0), node(0));
  EXPECT_EQ(queue_->num, 2u);
}

TEST_F(Notif, ThereIsNoEventPastTheLast) {
  add_first(2);
  qmibtree_notif_deq_event(queue_);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 1), nullptr);
  EXPECT_EQ(qmibtree_notif_get_event(queue_, 0xffffffffu), nullptr);
}

TEST_F(Notif, DrainsNewestFirst) {
  add_first(2);
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), node(1));
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), node(0));
  EXPECT_EQ(qmibtree_notif_deq_event(queue_), nullptr);
}

TEST_F(Notif, DrainingUncountsOnlyActiveEvents) {
  node(1)->flags = QMIBTREE_NODE_NOTIF_PASSIVE;
  add_first(2);
  qmibtree_notif_deq_event(queue_);
  EXPECT_EQ(queue_->active_num, 1u);
  qmibtree_notif_deq_event(queue_);
  EXPECT_EQ(queue_->active_num, 0u);
}

TEST_F(Notif, ATakenEventMayBeQueuedAgain) {
  add(0);
  qmibtree_notif_deq_event(queue_);
  add(0);
  EXPECT_EQ(queued(), (indexes{0}));
}

TEST_F(Notif, CleanupEmptiesTheQueue) {
  add_first(5);
  qmibtree_notif_cleanup(queue_);
  EXPECT_EQ(queue_->num, 0u);
  EXPECT_EQ(queue_->active_num, 0u);
  add(3);
  EXPECT_EQ(queued(), (indexes{3}));
}

// The queue of a tree: A.P0, A.P1 and A.P2 have notification on, A.Off has not.
class TreeEvents : public testing::Test {
 protected:
  void SetUp() override {
    schema_.add(0, "A.");
    for (const char* name : {"P0", "P1", "P2"}) {
      schema_.add(1, name, QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "0");
    }
    schema_.add(1, "Off", QMIBTREE_TYPE_INT, 0, "0");
    schema_.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema_.add(2, "P", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_FORCED, "0");
    tree_ = std::make_unique<CheckedTree>(schema_);
    ASSERT_NE(tree_->inst, nullptr);
  }

  qmibtree_node* node(const char* name) { return tree_->node(name); }
  void add(const char* name) { qmibtree_notif_add_event(queue(), node(name)); }
  qmibtree_notif_t* queue() { return tree_->inst->notif; }

  LeakCheck leaks;
  Schema schema_;
  std::unique_ptr<CheckedTree> tree_;
};

TEST_F(TreeEvents, AddingByNameDeletesTheEvent) {
  add("A.P0");
  qmibtree_notif_add_event_by_name(tree_->inst, "A.P0");
  EXPECT_EQ(queue()->num, 0u);
}

TEST_F(TreeEvents, AddingByNameNeverQueues) {
  qmibtree_notif_add_event_by_name(tree_->inst, "A.P0");
  EXPECT_EQ(queue()->num, 0u);
}

TEST_F(TreeEvents, AddingAnEarlierEventByNameDropsTheNewest) {
  for (const char* name : {"A.P0", "A.P1", "A.P2"}) add(name);
  qmibtree_notif_add_event_by_name(tree_->inst, "A.P0");
  EXPECT_EQ(queue()->num, 2u);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 0), nullptr);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 1), node("A.P1"));
  tree_->events = Events::kMayBeGone;
}

TEST_F(TreeEvents, DeletingByNameDeletesTheEvent) {
  add("A.P0");
  add("A.P1");
  qmibtree_notif_del_event_by_name(tree_->inst, "A.P1");
  EXPECT_EQ(queue()->num, 1u);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 0), node("A.P0"));
}

TEST_F(TreeEvents, UnknownNamesAreIgnored) {
  add("A.P0");
  qmibtree_notif_add_event_by_name(tree_->inst, "A.Nowhere");
  qmibtree_notif_del_event_by_name(tree_->inst, "A.Nowhere");
  EXPECT_EQ(queue()->num, 1u);
}

TEST_F(TreeEvents, ANodeThatGoesTakesItsEventAlong) {
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(tree_->inst, "A.T.", &number, 0, 255), 0u);
  add("A.P0");
  add("A.T.1.P");
  ASSERT_EQ(qmibtree_destroy_node(tree_->inst, node("A.T.1.")), 0u);
  EXPECT_EQ(queue()->num, 1u);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 0), node("A.P0"));
}

TEST_F(TreeEvents, ANodeThatGoesTakesTheNewestEventAlong) {
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(tree_->inst, "A.T.", &number, 0, 255), 0u);
  for (const char* name : {"A.P0", "A.T.1.P", "A.P1", "A.P2"}) add(name);
  ASSERT_EQ(qmibtree_destroy_node(tree_->inst, node("A.T.1.")), 0u);
  EXPECT_EQ(queue()->num, 3u);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 0), node("A.P0"));
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 1), nullptr);
  EXPECT_EQ(qmibtree_notif_get_event(queue(), 2), node("A.P1"));
  tree_->events = Events::kMayBeGone;
}

}  // namespace
