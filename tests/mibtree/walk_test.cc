// Shows the walks over a tree: the loop over children, the depth-first walk, the stepped loader.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "p", QMIBTREE_TYPE_INT, 0, "1");
  schema.add(1, "O.");
  schema.add(2, "q", QMIBTREE_TYPE_INT, 0, "2");
  schema.add(2, "r", QMIBTREE_TYPE_INT, 0, "3");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "x", QMIBTREE_TYPE_BOOL, 0, "1");
  schema.add(1, "Empty.");
  return schema;
}

using Calls = std::vector<std::string>;

// The calls of a walk, and what they are answered: `results` in turn, then 0.
struct Record {
  Calls calls;
  std::vector<uint32_t> results;
  qmibtree_inst_t* inst = nullptr;
  void* ctx = nullptr;

  uint32_t add(const std::string& call) {
    calls.push_back(call);
    return calls.size() <= results.size() ? results[calls.size() - 1] : 0;
  }
};

uint32_t visit(qmibtree_inst_t* inst, qmibtree_node* node, void* arg) {
  Record& record = *static_cast<Record*>(arg);
  record.inst = inst;
  return record.add(node->fullName);
}

// Written "+1 A.p" on entering at level 1 and "-1 A.p" on leaving.
uint32_t trace(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx, int32_t level, void* arg,
               uint32_t phase) {
  Record& record = *static_cast<Record*>(arg);
  record.inst = inst;
  record.ctx = ctx;
  EXPECT_TRUE(phase == QMIBTREE_PHASE_ENTER || phase == QMIBTREE_PHASE_LEAVE);
  return record.add((phase == QMIBTREE_PHASE_ENTER ? "+" : "-") + std::to_string(level) + " " +
                    node->fullName);
}

class Walk : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(tree.inst, nullptr); }

  void add_instances(std::initializer_list<uint32_t> wishes) {
    for (uint32_t number : wishes)
      ASSERT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  }
  uint32_t loop(const char* name) { return qmibtree_loop(tree.inst, name, visit, &record); }
  uint32_t dump(const char* name, int32_t depth) {
    return qmibtree_dump(tree.inst, name, nullptr, depth, trace, &record);
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
  Record record;
};

using Loop = Walk;

TEST_F(Loop, VisitsTheDirectChildrenInOrder) {
  EXPECT_EQ(loop("A.O."), 0u);
  EXPECT_EQ(record.calls, (Calls{"A.O.q", "A.O.r"}));
}

TEST_F(Loop, WithoutANameVisitsTheRootsChildrenAndNothingBelow) {
  add_instances({0});
  EXPECT_EQ(loop(nullptr), 0u);
  EXPECT_EQ(record.calls, (Calls{"A.p", "A.O.", "A.T.", "A.Empty."}));
}

TEST_F(Loop, VisitsATemplatesInstancesInTheOrderTheyWereAdded) {
  add_instances({0, 7, 0});
  EXPECT_EQ(loop("A.T."), 0u);
  EXPECT_EQ(record.calls, (Calls{"A.T.1.", "A.T.7.", "A.T.8."}));
}

TEST_F(Loop, TakesTheNameInTwoPieces) {
  EXPECT_EQ(qmibtree_loop_v2(tree.inst, "A.", "O.", visit, &record), 0u);
  EXPECT_EQ(record.calls, (Calls{"A.O.q", "A.O.r"}));
}

TEST_F(Loop, GoesOverTheChildrenOfANode) {
  EXPECT_EQ(qmibtree_loop_by_node(tree.inst, tree.node("A.O."), visit, &record), 0u);
  EXPECT_EQ(record.calls, (Calls{"A.O.q", "A.O.r"}));
  EXPECT_EQ(record.inst, tree.inst);
}

TEST_F(Loop, RefusesAParameter) {
  EXPECT_EQ(loop("A.p"), QMIBTREE_RC_ERROR);
  EXPECT_EQ(record.calls, Calls{});
}

TEST_F(Loop, AnswersNotFoundForAnUnknownName) {
  EXPECT_EQ(loop("A.X."), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(qmibtree_loop_v2(tree.inst, "A.", "X.", visit, &record), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(record.calls, Calls{});
}

TEST_F(Loop, CallsNothingForAnObjectWithoutChildren) {
  record.results = {7};
  EXPECT_EQ(loop("A.Empty."), 0u);
  EXPECT_EQ(loop("A.T."), 0u);
  EXPECT_EQ(record.calls, Calls{});
}

TEST_F(Loop, StopsAtAResultOf32AndAnswersIt) {
  record.results = {31, 32};
  EXPECT_EQ(loop(nullptr), 32u);
  EXPECT_EQ(record.calls, (Calls{"A.p", "A.O."}));
}

TEST_F(Loop, AnswersTheLastResult) {
  record.results = {4, 31};
  EXPECT_EQ(loop("A.O."), 31u);
}

TEST_F(Walk, EntersParentsFirstAndLeavesThemLast) {
  add_instances({0, 0});
  EXPECT_EQ(dump(nullptr, INT_MAX), 0u);
  EXPECT_EQ(
      record.calls,
      (Calls{"+0 A.",      "+1 A.p",      "-1 A.p",      "+1 A.O.",    "+2 A.O.q",   "-2 A.O.q",
             "+2 A.O.r",   "-2 A.O.r",    "-1 A.O.",     "+1 A.T.",    "+2 A.T.1.",  "+3 A.T.1.x",
             "-3 A.T.1.x", "-2 A.T.1.",   "+2 A.T.2.",   "+3 A.T.2.x", "-3 A.T.2.x", "-2 A.T.2.",
             "-1 A.T.",    "+1 A.Empty.", "-1 A.Empty.", "-0 A."}));
}

TEST_F(Walk, StartsWhereTheNameSays) {
  EXPECT_EQ(dump("A.O.", 9), 0u);
  EXPECT_EQ(record.calls,
            (Calls{"+0 A.O.", "+1 A.O.q", "-1 A.O.q", "+1 A.O.r", "-1 A.O.r", "-0 A.O."}));
}

TEST_F(Walk, EntersAndLeavesAParameter) {
  EXPECT_EQ(dump("A.p", 9), 0u);
  EXPECT_EQ(record.calls, (Calls{"+0 A.p", "-0 A.p"}));
}

TEST_F(Walk, AnswersNotFoundForAnUnknownName) {
  EXPECT_EQ(dump("A.X.", 9), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(record.calls, Calls{});
}

TEST_F(Walk, CallsNothingAtADepthOfZeroOrLess) {
  record.results = {7};
  for (const int32_t depth : {0, -1, INT_MIN}) EXPECT_EQ(dump(nullptr, depth), 0u) << depth;
  EXPECT_EQ(record.calls, Calls{});
}

TEST_F(Walk, VisitsTheStartAloneAtADepthOfOne) {
  EXPECT_EQ(dump(nullptr, 1), 0u);
  EXPECT_EQ(record.calls, (Calls{"+0 A.", "-0 A."}));
}

TEST_F(Walk, GoesAsManyLevelsDownAsTheDepthSays) {
  add_instances({0});
  EXPECT_EQ(dump("A.T.", 2), 0u);
  EXPECT_EQ(record.calls, (Calls{"+0 A.T.", "+1 A.T.1.", "-1 A.T.1.", "-0 A.T."}));
}

TEST_F(Walk, CountsLevelsFromTheOneGiven) {
  EXPECT_EQ(qmibtree_dump_by_node(tree.inst, tree.node("A.O."), nullptr, 2, 5, trace, &record), 0u);
  EXPECT_EQ(record.calls,
            (Calls{"+5 A.O.", "+6 A.O.q", "-6 A.O.q", "+6 A.O.r", "-6 A.O.r", "-5 A.O."}));
}

TEST_F(Walk, PassesTheCallersWordsOn) {
  int word = 0;
  EXPECT_EQ(qmibtree_dump(tree.inst, nullptr, &word, 3, trace, &record), 0u);
  EXPECT_EQ(record.ctx, &word);
  EXPECT_EQ(record.inst, tree.inst);
}

TEST_F(Walk, AnEnterRefusedEndsItWithoutAnyLeaveCall) {
  record.results = {0, 0, 0, 0, QMIBTREE_RC_DUMP_EXCEEDED};
  EXPECT_EQ(dump(nullptr, 9), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(record.calls, (Calls{"+0 A.", "+1 A.p", "-1 A.p", "+1 A.O.", "+2 A.O.q"}));
}

TEST_F(Walk, AnEnterRefusedAtTheStartEndsItThere) {
  record.results = {32};
  EXPECT_EQ(dump("A.O.", 9), 32u);
  EXPECT_EQ(record.calls, Calls{"+0 A.O."});
}

TEST_F(Walk, ALeaveRefusedEndsItToo) {
  record.results = {0, 0, 33};
  EXPECT_EQ(dump(nullptr, 9), 33u);
  EXPECT_EQ(record.calls, (Calls{"+0 A.", "+1 A.p", "-1 A.p"}));
}

TEST_F(Walk, ResultsBelow32GoOn) {
  record.results = {31, 31, 31, 31, 31, 31};
  EXPECT_EQ(dump("A.O.", 9), 31u);
  EXPECT_EQ(record.calls.size(), 6u);
}

TEST_F(Walk, AnswersTheStartsLeaveResult) {
  record.results = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(dump("A.O.", 9), 6u);
}

// A loader that answers 1 until `slices` are used up, then `end`.
struct Loader {
  int slices;
  uint32_t end;
  int calls = 0;
  void* b = nullptr;
  void* c = nullptr;
};

uint32_t step(void* a, void* b, void* c, uint32_t zero) {
  EXPECT_EQ(zero, 0u);
  Loader& loader = *static_cast<Loader*>(a);
  loader.b = b;
  loader.c = c;
  return loader.calls++ < loader.slices ? 1 : loader.end;
}

TEST(Load, CallsAgainForAsLongAsTheStepAnswersOne) {
  for (Loader loader : {Loader{0, 0}, Loader{2, 0}, Loader{0, 2}, Loader{1, 31}, Loader{3, 40},
                        Loader{0, UINT32_MAX}}) {
    EXPECT_EQ(qmibtree_load(&loader, nullptr, step, nullptr), loader.end);
    EXPECT_EQ(loader.calls, loader.slices + 1);
  }
}

TEST(Load, PassesTheCallersWordsOn) {
  Loader loader = {1, 0};
  int b = 0, c = 0;
  EXPECT_EQ(qmibtree_load(&loader, &b, step, &c), 0u);
  EXPECT_EQ(loader.b, &b);
  EXPECT_EQ(loader.c, &c);
}

}  // namespace
