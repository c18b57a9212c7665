// Shows what the fixtures' guards let pass, and what not.
#include "qmibtree_testkit/guards.hh"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>

#include "qmibtree.h"

using namespace qmibtree_testkit;

namespace {

TEST(LeakCheckGuard, LetsPassWhatIsFreed) {
  LeakCheck leaks;
  qfree(qmalloc(1, "test"));
}

TEST(LeakCheckGuard, FailsOnABlockLeftBehind) {
  void* left = nullptr;
  auto leaks = std::make_unique<LeakCheck>();
  left = qmalloc(1, "test");
  EXPECT_NONFATAL_FAILURE(leaks.reset(), "blocks were left behind");
  qfree(left);
}

TEST(LeakCheckGuard, FailsOnABlockThatWasFreedForAnother) {
  void* const block = qmalloc(1, "test");
  auto leaks = std::make_unique<LeakCheck>();
  qfree(block);
  EXPECT_NONFATAL_FAILURE(leaks.reset(), "others' were freed");
}

TEST(LeakCheckGuard, ABlockMayBeExpectedToStay) {
  void* kept = nullptr;
  {
    LeakCheck leaks;
    kept = qmalloc(1, "test");
    leaks.expect_kept(1);
  }
  qfree(kept);
}

TEST(CheckedTreeGuard, FailsWhenADamagedTreeIsDestroyed) {
  Schema schema;
  schema.add(0, "A.");
  CheckedTree tree(schema);
  tree.inst->root->reserved = 1;
  EXPECT_NONFATAL_FAILURE(tree.destroy(), "A. has a reserved word in use");
  EXPECT_EQ(tree.inst, nullptr);
}

TEST(CheckedTreeGuard, ATreeMayBeLeftUnchecked) {
  Schema schema;
  schema.add(0, "A.");
  CheckedTree tree(schema);
  tree.inst->root->reserved = 1;
  tree.leave_unchecked();
}

TEST(CheckedTreeGuard, ATreeThatCouldNotBeBuiltIsNoFailure) {
  Schema schema;
  CheckedTree tree(schema);
  EXPECT_EQ(tree.inst, nullptr);
}

TEST(CheckedTreeGuard, HoldsTheQueueToAsMuchAsItIsTold) {
  Schema schema;
  schema.add(0, "A.");
  CheckedTree tree(schema);
  tree.inst->notif->active_num = 1;
  tree.events = Events::kMayBeGone;
}

}  // namespace
