// What every fixture wants to be sure of at its end: members of it that look for themselves. This
// header needs GoogleTest.
//
//   class Door : public testing::Test {
//    protected:
//     LeakCheck leaks;  // first, so that it looks when everything else is gone
//     Schema schema = door_schema();
//     CheckedTree tree{schema};
//   };
#ifndef QMIBTREE_TESTKIT_GUARDS_HH
#define QMIBTREE_TESTKIT_GUARDS_HH

#include <gtest/gtest.h>

#include "qmibtree_testkit/checker.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/schema.hh"

namespace qmibtree_testkit {

// Fails the test when its scope ends with more or fewer blocks than it began with.
class LeakCheck {
 public:
  LeakCheck() = default;
  ~LeakCheck() {
    EXPECT_EQ(live_blocks(), live_) << "blocks were left behind, or others' were freed";
  }
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;

  // That many blocks stay, as the library documents it: those that base64 text is decoded into.
  void expect_kept(int blocks) { live_ += blocks; }

 private:
  int live_ = live_blocks();
};

// A tree that must be sound when it is destroyed.
class CheckedTree : public Tree {
 public:
  using Tree::Tree;
  ~CheckedTree() { destroy(); }

  void destroy() {
    if (inst && checked_)
      for (const std::string& problem : problems_of(inst, events)) ADD_FAILURE() << problem;
    Tree::destroy();
  }

  // The test does to the tree what the checker does not foresee.
  void leave_unchecked() { checked_ = false; }

  Events events = Events::kExact;  // how much the queue can be held to

 private:
  bool checked_ = true;
};

}  // namespace qmibtree_testkit

#endif
