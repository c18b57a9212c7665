// Shows what the matchers match, and what they say when they do not.
#include "qmibtree_testkit/matchers.hh"

#include <gtest/gtest.h>

#include <string>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"

using namespace qmibtree_testkit;
using testing::HasSubstr;
using testing::Not;

namespace {

// What a failing EXPECT_THAT prints.
template <typename Value, typename Matcher>
std::string message(const Value& value, const Matcher& matcher) {
  testing::StringMatchResultListener listener;
  testing::SafeMatcherCast<const Value&>(matcher).MatchAndExplain(value, &listener);
  return "expected: " + testing::DescribeMatcher<const Value&>(matcher) +
         "; actual: " + testing::PrintToString(value) + ", " + listener.str();
}

TEST(RcMatchers, ASuccessIsBelow32) {
  EXPECT_THAT(0u, Succeeds());
  EXPECT_THAT(31u, Succeeds());
  EXPECT_THAT(32u, Not(Succeeds()));
}

TEST(RcMatchers, AFailureIs32AndAbove) {
  EXPECT_THAT(32u, Fails());
  EXPECT_THAT(0xffffffffu, Fails());
  EXPECT_THAT(31u, Not(Fails()));
}

TEST(RcMatchers, OneFailureIsNotAnother) {
  EXPECT_THAT(70u, FailsWith(QMIBTREE_RC_OUT_OF_RANGE));
  EXPECT_THAT(71u, Not(FailsWith(QMIBTREE_RC_OUT_OF_RANGE)));
}

TEST(RcMatchers, SayWhatACodeMeans) {
  EXPECT_EQ(message(40u, Succeeds()),
            "expected: is a success; actual: 40, 40 (mib name not found)");
  EXPECT_EQ(message(0u, Fails()), "expected: is a failure; actual: 0, 0 (ok)");
  EXPECT_EQ(message(70u, FailsWith(QMIBTREE_RC_NOT_ALLOWED)),
            "expected: is 71 (write not allowed); actual: 70, 70 (write out of range)");
}

class TreeMatchers : public testing::Test {
 protected:
  void SetUp() override {
    schema.add(0, "A.");
    schema.add(1, "Name", QMIBTREE_TYPE_STRING, 0, "home");
    schema.add(1, "Level", QMIBTREE_TYPE_INT, 0, "5");
    tree = std::make_unique<CheckedTree>(schema);
    ASSERT_NE(tree->inst, nullptr);
  }

  LeakCheck leaks;
  Schema schema;
  std::unique_ptr<CheckedTree> tree;
};

TEST_F(TreeMatchers, ATreeHoldsAParametersText) {
  EXPECT_THAT(*tree, Holds("A.Name", "home"));
  EXPECT_THAT(*tree, Holds("A.Level", "5"));
  EXPECT_THAT(*tree, Not(Holds("A.Name", "away")));
}

TEST_F(TreeMatchers, AnInstanceDoesAsWellAsATree) {
  EXPECT_THAT(tree->inst, Holds("A.Name", "home"));
  EXPECT_THAT(tree->inst, IsConsistent());
}

TEST_F(TreeMatchers, ATextMayBeMatchedInItsTurn) {
  EXPECT_THAT(*tree, Holds("A.Name", HasSubstr("om")));
  EXPECT_THAT(*tree, Not(Holds("A.Name", HasSubstr("way"))));
}

TEST_F(TreeMatchers, AParameterThatIsNotThereHoldsItsResultCode) {
  EXPECT_THAT(*tree, Holds("A.Lost", "(40)"));
}

TEST_F(TreeMatchers, HoldsSaysWhatIsThere) {
  EXPECT_EQ(message(*tree, Holds("A.Name", "away")),
            "expected: holds A.Name with a text that is equal to \"away\"; "
            "actual: the tree of A., which holds \"home\" there");
}

TEST_F(TreeMatchers, ADamagedTreeIsInconsistentAndSaysWhy) {
  tree->inst->root->reserved = 1;
  EXPECT_THAT(*tree, Not(IsConsistent()));
  EXPECT_EQ(message(*tree, IsConsistent()),
            "expected: is consistent; actual: the tree of A., "
            "\n  A. has a reserved word in use");
  tree->inst->root->reserved = 0;
}

TEST_F(TreeMatchers, ConsistencyMayLeaveTheEventsOut) {
  tree->inst->notif->active_num = 1;
  EXPECT_THAT(*tree, Not(IsConsistent()));
  EXPECT_THAT(*tree, IsConsistent(Events::kMayBeGone));
  tree->inst->notif->active_num = 0;
}

}  // namespace
