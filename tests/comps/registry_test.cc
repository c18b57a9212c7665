// Shows the component table: registration, marks and actions. The table is the process's own
// and knows no way back, so each test takes slots that no other test relies on being empty.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

constexpr uint32_t kId = 5, kOtherId = 6;   // registered anew for every test
constexpr uint32_t kFirst = 0, kLast = 31;  // the ends of the table, likewise
constexpr uint32_t kNever = 20;             // registered by no test
constexpr uint32_t kMarkedEarly = 21;       // registered by one test alone
constexpr uint32_t kAll = UINT32_MAX;
constexpr uint32_t kChanged = QMIBTREE_COMP_MARK_CHANGED;

using Calls = std::vector<std::string>;
Calls calls;

// Actions: each leaves its name.
void init() { calls.push_back("init"); }
void start() { calls.push_back("start"); }
void stop() { calls.push_back("stop"); }
void restart() { calls.push_back("restart"); }
void other_init() { calls.push_back("other init"); }
void other_start() { calls.push_back("other start"); }
void other_stop() { calls.push_back("other stop"); }
void other_restart() { calls.push_back("other restart"); }
void mark_action() { calls.push_back("mark action"); }

void register_empty(uint32_t id) {
  qmibtree_comp_register(id, 0, nullptr, nullptr, nullptr, nullptr);
}

// The marks of a component, bit by bit.
uint32_t marks(uint32_t id) {
  uint32_t mask = 0;
  for (uint32_t bit = 1; bit != 0; bit <<= 1)
    if (qmibtree_comp_chk_mark(id, bit)) mask |= bit;
  return mask;
}

void run_all_actions(uint32_t id) {
  qmibtree_comp_init(id);
  qmibtree_comp_start(id);
  qmibtree_comp_stop(id);
  qmibtree_comp_restart(id);
}

void run_all_hooks() {
  qmibtree_comps_init();
  qmibtree_comps_start();
  qmibtree_comps_stop();
  qmibtree_comps_restart();
  qmibtree_comps_mark_action();
}

// How a process ends that runs everything at load, before anything was registered. Its own, so that
// a call that leads nowhere ends none of the tests.
const int status_at_load = [] {
  const pid_t child = fork();
  if (child == 0) {
    run_all_hooks();
    for (uint32_t id = 0; id < QMIBTREE_COMP_MAX; ++id) run_all_actions(id);
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}();

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    calls.clear();
    qmibtree_comps_register(&none);
    qmibtree_comp_register(kId, 1, init, start, stop, restart);
    for (const uint32_t id : {kOtherId, kFirst, kLast}) register_empty(id);
  }
  void TearDown() override { EXPECT_EQ(allocations_made(), allocations); }

  const long allocations = allocations_made();
  const qmibtree_comps_t none = {};
};

TEST_F(Registry, HooksAndActionsAreAbsentAtLoad) { EXPECT_EQ(status_at_load, 0); }

TEST_F(Registry, ANewComponentHasNoMarks) {
  EXPECT_EQ(marks(kId), 0u);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, kAll), 0);
}

TEST_F(Registry, MarksAddUp) {
  qmibtree_comp_mark(kId, 0x1);
  qmibtree_comp_mark(kId, 0x80000004);
  qmibtree_comp_mark(kId, 0);
  EXPECT_EQ(marks(kId), 0x80000005u);
}

TEST_F(Registry, MarksAreEachComponentsOwn) {
  qmibtree_comp_mark(kId, 0x3);
  qmibtree_comp_mark(kOtherId, 0x4);
  EXPECT_EQ(marks(kId), 0x3u);
  EXPECT_EQ(marks(kOtherId), 0x4u);
}

TEST_F(Registry, TheEndsOfTheTableCanBeMarked) {
  qmibtree_comp_mark(kFirst, 1);
  qmibtree_comp_mark(kLast, 2);
  EXPECT_EQ(marks(kFirst), 1u);
  EXPECT_EQ(marks(kLast), 2u);
}

TEST_F(Registry, MarkingBeyondTheTableChangesNothing) {
  qmibtree_comp_unmark_all();
  for (const uint32_t id : {32u, 40u, 32u + kId, 0x80000000u, UINT32_MAX})
    qmibtree_comp_mark(id, 1);
  for (uint32_t id = 0; id < QMIBTREE_COMP_MAX; ++id) EXPECT_EQ(marks(id), 0u) << id;
}

TEST_F(Registry, AMarkOnAnEmptySlotIsLost) {
  static bool registered = false;
  if (registered) GTEST_SKIP() << "the slot is no longer empty, this process ran the test before";
  registered = true;
  qmibtree_comp_mark(kMarkedEarly, 1);
  EXPECT_EQ(qmibtree_comp_chk_mark(kMarkedEarly, kAll), 0);
  register_empty(kMarkedEarly);
  EXPECT_EQ(qmibtree_comp_chk_mark(kMarkedEarly, 1), 0);
  qmibtree_comp_mark(kMarkedEarly, 1);
  EXPECT_EQ(qmibtree_comp_chk_mark(kMarkedEarly, 1), 1);
}

TEST_F(Registry, AnEmptySlotIgnoresEverything) {
  qmibtree_comp_mark(kNever, kAll);
  qmibtree_comp_unmark(kNever, kAll);
  qmibtree_comp_unmark_all();
  run_all_actions(kNever);
  EXPECT_EQ(marks(kNever), 0u);
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, CheckingAnswersOneWhenAnyBitOfTheMaskIsMarked) {
  qmibtree_comp_mark(kId, 0x6);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, 0x2), 1);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, 0x5), 1);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, 0x9), 0);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, kAll), 1);
}

TEST_F(Registry, CheckingTheHighestBitAnswersOne) {
  qmibtree_comp_mark(kId, 0x80000000u);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, 0x80000000u), 1);
}

TEST_F(Registry, CheckingWithoutABitAnswersZero) {
  qmibtree_comp_mark(kId, kAll);
  EXPECT_EQ(qmibtree_comp_chk_mark(kId, 0), 0);
}

TEST_F(Registry, UnmarkingClearsTheBitsGivenAlone) {
  qmibtree_comp_mark(kId, 0xf);
  qmibtree_comp_mark(kOtherId, 0xf);
  qmibtree_comp_unmark(kId, 0x6);
  EXPECT_EQ(marks(kId), 0x9u);
  EXPECT_EQ(marks(kOtherId), 0xfu);
}

TEST_F(Registry, UnmarkingAllClearsEveryComponent) {
  for (const uint32_t id : {kFirst, kId, kOtherId, kLast}) qmibtree_comp_mark(id, kAll);
  qmibtree_comp_unmark_all();
  for (const uint32_t id : {kFirst, kId, kOtherId, kLast}) EXPECT_EQ(marks(id), 0u) << id;
}

TEST_F(Registry, UnmarkingAllLeavesEmptySlotsEmpty) {
  qmibtree_comp_unmark_all();
  qmibtree_comp_mark(kNever, 1);
  EXPECT_EQ(marks(kNever), 0u);
}

TEST_F(Registry, EachActionRunsWhenCalled) {
  qmibtree_comp_init(kId);
  EXPECT_EQ(calls, Calls{"init"});
  qmibtree_comp_start(kId);
  qmibtree_comp_stop(kId);
  qmibtree_comp_restart(kId);
  EXPECT_EQ(calls, (Calls{"init", "start", "stop", "restart"}));
}

TEST_F(Registry, MissingActionsAreSkipped) {
  run_all_actions(kOtherId);
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, MarkingRunsNoAction) {
  qmibtree_comp_mark(kId, kAll);
  qmibtree_comp_unmark(kId, kAll);
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, RegisteringAgainReplacesTheActionsAndClearsTheMarks) {
  qmibtree_comp_mark(kId, 0x3);
  qmibtree_comp_register(kId, 2, other_init, other_start, other_stop, other_restart);
  EXPECT_EQ(marks(kId), 0u);
  run_all_actions(kId);
  EXPECT_EQ(calls, (Calls{"other init", "other start", "other stop", "other restart"}));
}

TEST_F(Registry, RegisteringAgainCanTakeActionsAway) {
  register_empty(kId);
  run_all_actions(kId);
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, RestartWithoutAnActionClearsTheChangedMarkAlone) {
  qmibtree_comp_mark(kOtherId, 0x3);
  qmibtree_comp_restart(kOtherId);
  EXPECT_EQ(marks(kOtherId), 0x2u);
}

TEST_F(Registry, RestartWithoutAnActionStopsAndStartsNothing) {
  qmibtree_comp_register(kId, 0, init, start, stop, nullptr);
  qmibtree_comp_mark(kId, kChanged);
  qmibtree_comp_restart(kId);
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, ActionsLeaveTheMarks) {
  qmibtree_comp_mark(kId, 0x3);
  run_all_actions(kId);
  EXPECT_EQ(marks(kId), 0x3u);
}

TEST_F(Registry, WithoutHooksNothingRuns) {
  run_all_hooks();
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Registry, EachHookRunsWhenCalled) {
  qmibtree_comps_t hooks = {init, start, stop, restart, mark_action};
  qmibtree_comps_register(&hooks);
  hooks = none;  // the table has its own copy
  run_all_hooks();
  EXPECT_EQ(calls, (Calls{"init", "start", "stop", "restart", "mark action"}));
}

TEST_F(Registry, RegisteringHooksAgainReplacesAllFive) {
  const qmibtree_comps_t first = {init, start, stop, restart, mark_action};
  const qmibtree_comps_t second = {other_init, nullptr, other_stop, nullptr, nullptr};
  qmibtree_comps_register(&first);
  qmibtree_comps_register(&second);
  run_all_hooks();
  EXPECT_EQ(calls, (Calls{"other init", "other stop"}));
}

TEST_F(Registry, TheMarkActionLooksAtNoMarkItself) {
  const qmibtree_comps_t hooks = {nullptr, nullptr, nullptr, nullptr, mark_action};
  qmibtree_comps_register(&hooks);
  qmibtree_comp_mark(kId, kChanged);
  qmibtree_comps_mark_action();
  EXPECT_EQ(calls, Calls{"mark action"});
  EXPECT_EQ(marks(kId), kChanged);
}

TEST_F(Registry, TheMarkActionMayRunAndUnmarkTheMarkedComponents) {
  const qmibtree_comps_t hooks = {nullptr, nullptr, nullptr, nullptr, [] {
                                    for (uint32_t id = 0; id < QMIBTREE_COMP_MAX; ++id) {
                                      if (!qmibtree_comp_chk_mark(id, kChanged)) continue;
                                      qmibtree_comp_restart(id);
                                      qmibtree_comp_unmark(id, kChanged);
                                    }
                                  }};
  qmibtree_comps_register(&hooks);
  qmibtree_comp_mark(kId, kChanged);
  qmibtree_comps_mark_action();
  qmibtree_comps_mark_action();
  EXPECT_EQ(calls, Calls{"restart"});
}

TEST_F(Registry, HooksAndActionsAreApart) {
  const qmibtree_comps_t hooks = {other_init, other_start, other_stop, other_restart, nullptr};
  qmibtree_comps_register(&hooks);
  qmibtree_comps_init();
  qmibtree_comp_init(kId);
  EXPECT_EQ(calls, (Calls{"other init", "init"}));
}

}  // namespace
