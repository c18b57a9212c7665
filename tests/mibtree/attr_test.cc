// Shows the attributes of a node, notification mode and access list, and the notify calls.
#include <gtest/gtest.h>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr uint32_t kActive = QMIBTREE_NODE_NOTIF_ACTIVE;
constexpr uint32_t kPassive = QMIBTREE_NODE_NOTIF_PASSIVE;
constexpr uint32_t kAccess = QMIBTREE_NODE_ACCESS;
constexpr uint32_t kAttributes = kActive | kPassive | kAccess;

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "p", QMIBTREE_TYPE_INT, 0, "5");
  schema.add(1, "reported", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
  schema.add(1, "forced", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_FORCED, "5");
  return schema;
}

class Attr : public ::testing::Test {
 protected:
  void SetUp() override {
    changes().clear();
    ASSERT_NE(tree.inst, nullptr);
    node = tree.node("A.p");
  }

  uint32_t get(const char* name) {
    uint32_t attr = 0xdead;
    EXPECT_EQ(qmibtree_get_attr(tree.inst, name, &attr), 0u);
    return attr;
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
  qmibtree_node* node = nullptr;
};

struct Row {
  uint32_t flags;
  uint32_t attr;
};

// Every state of a node, and the attributes it reads as.
const Row kStates[] = {{kActive | kAccess, 9}, {kPassive | kAccess, 10}, {kAccess, 12},
                       {kActive, 17},          {kPassive, 18},           {0, 20}};

TEST_F(Attr, ANodeWithoutAttributesReadsAs20) {
  EXPECT_EQ(get("A.p"), 20u);
  EXPECT_EQ(get("A."), 20u);
}

TEST_F(Attr, ReadsAsExactlyOneBitOfEachGroup) {
  for (const Row& row : kStates) {
    node->flags = QMIBTREE_NODE_PARAM | row.flags;
    EXPECT_EQ(get("A.p"), row.attr);
  }
}

TEST_F(Attr, ActiveIsReadBeforePassive) {
  node->flags |= kActive | kPassive;
  EXPECT_EQ(get("A.p"), QMIBTREE_ATTR_NOTIF_ACTIVE | QMIBTREE_ATTR_ACCESS_NONE);
  tree.leave_unchecked();
}

TEST_F(Attr, WhatWasReadRestoresTheSameFlags) {
  for (const Row& row : kStates) {
    for (const Row& other : kStates) {
      node->flags = QMIBTREE_NODE_PARAM | other.flags;
      EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", row.attr), 0u);
      EXPECT_EQ(node->flags, QMIBTREE_NODE_PARAM | row.flags) << other.attr;
      EXPECT_EQ(get("A.p"), row.attr) << other.attr;
    }
  }
}

// By the three notification bits as a number: the flags set, or ~0 for unchanged.
const uint32_t kNotifAfter[8] = {~0u, kActive, kPassive, kActive, 0, kActive, kPassive, kActive};
// By the two access bits.
const uint32_t kAccessAfter[4] = {~0u, kAccess, 0, kAccess};

TEST_F(Attr, TheFirstBitOfAGroupWinsAndAGroupWithoutOneStays) {
  for (uint32_t attr = 0; attr < 32; ++attr) {
    for (const Row& start : kStates) {
      SCOPED_TRACE(::testing::Message() << attr << " on " << start.attr);
      const uint32_t notif = kNotifAfter[attr & 7], access = kAccessAfter[attr >> 3];
      node->flags = QMIBTREE_NODE_PARAM | start.flags;
      EXPECT_EQ(qmibtree_set_attr_by_node(tree.inst, node, attr), 0u);
      EXPECT_EQ(node->flags, QMIBTREE_NODE_PARAM |
                                 (notif == ~0u ? start.flags & (kActive | kPassive) : notif) |
                                 (access == ~0u ? start.flags & kAccess : access));
    }
  }
}

TEST_F(Attr, OtherBitsAreIgnored) {
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", 0xffffffe0), 0u);
  EXPECT_EQ(get("A.p"), 20u);
}

TEST_F(Attr, SettingLeavesTheOtherFlagsAlone) {
  node->flags = ~kAttributes;
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", 9), 0u);
  EXPECT_EQ(node->flags, ~kAttributes | kActive | kAccess);
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", 20), 0u);
  EXPECT_EQ(node->flags, ~kAttributes);
  node->flags = QMIBTREE_NODE_PARAM;
}

TEST_F(Attr, SettingChangesOneNodeAndTellsNobody) {
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", 9), 0u);
  EXPECT_EQ(get("A."), 20u);
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_TRUE(changes().empty());
}

TEST_F(Attr, AnObjectHasAttributesToo) {
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.", 10), 0u);
  EXPECT_EQ(get("A."), 10u);
}

TEST_F(Attr, AReportedParameterStartsActive) {
  EXPECT_EQ(get("A.reported"), 17u);
  EXPECT_EQ(get("A.forced"), 17u);
}

TEST_F(Attr, TheNodeFormReadsTheSame) {
  uint32_t attr = 0;
  EXPECT_EQ(qmibtree_get_attr_by_node(tree.inst, tree.node("A.reported"), &attr), 0u);
  EXPECT_EQ(attr, 17u);
}

TEST_F(Attr, AnswersNotFoundForAnUnknownName) {
  uint32_t attr = 0xdead;
  EXPECT_EQ(qmibtree_get_attr(tree.inst, "A.x", &attr), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(attr, 0xdeadu);
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.x", 9), QMIBTREE_RC_NOT_FOUND);
}

using Notify = Attr;

TEST_F(Notify, QueuesAnEventForTheNode) {
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.reported", 0), 0u);
  ASSERT_EQ(tree.inst->notif->num, 1u);
  EXPECT_EQ(qmibtree_notif_get_event(tree.inst->notif, 0), tree.node("A.reported"));
}

TEST_F(Notify, DoesNotLookAtItsArgument) {
  for (const uint32_t arg : {0u, 1u, UINT32_MAX}) {
    EXPECT_EQ(qmibtree_notify(tree.inst, "A.reported", arg), 0u);
    EXPECT_EQ(qmibtree_notif_deq_event(tree.inst->notif), tree.node("A.reported"));
  }
}

TEST_F(Notify, AnswersOkWhenNothingIsQueued) {
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.p", 0), 0u);
  EXPECT_EQ(tree.inst->notif->num, 0u);
}

TEST_F(Notify, NeedsAnyOfTheTwoModes) {
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.p", QMIBTREE_ATTR_NOTIF_PASSIVE), 0u);
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.p", 0), 0u);
  EXPECT_EQ(tree.inst->notif->num, 1u);
  EXPECT_EQ(tree.inst->notif->active_num, 0u);
}

TEST_F(Notify, AForcedParameterIsQueuedAsActiveEvenWithNotificationOff) {
  EXPECT_EQ(qmibtree_set_attr(tree.inst, "A.forced", QMIBTREE_ATTR_NOTIF_OFF), 0u);
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.forced", 0), 0u);
  EXPECT_EQ(tree.inst->notif->num, 1u);
  EXPECT_EQ(tree.inst->notif->active_num, 1u);
}

TEST_F(Notify, ChangesNoValueAndCallsNobody) {
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.reported", 0), 0u);
  EXPECT_EQ(tree.node("A.reported")->flags, QMIBTREE_NODE_PARAM | kActive);
  EXPECT_TRUE(changes().empty());
}

TEST_F(Notify, TakesTheNameInTwoPiecesOrANode) {
  EXPECT_EQ(qmibtree_notify_v2(tree.inst, "A.", "reported", 0), 0u);
  EXPECT_EQ(qmibtree_notify_by_node(tree.inst, tree.node("A.forced"), 0), 0u);
  EXPECT_EQ(tree.inst->notif->num, 2u);
}

TEST_F(Notify, AnswersNotFoundForAnUnknownName) {
  EXPECT_EQ(qmibtree_notify(tree.inst, "A.x", 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(qmibtree_notify_v2(tree.inst, "A.", "x", 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(tree.inst->notif->num, 0u);
}

}  // namespace
