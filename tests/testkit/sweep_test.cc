// Shows which runs a sweep makes, and when it ends.
#include "qmibtree_testkit/sweep.hh"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

// Which of three allocations worked: "110".
std::string three_allocations() {
  std::string outcome;
  for (int i = 0; i < 3; ++i) {
    void* const block = qmalloc(1, "test");
    outcome += block ? '1' : '0';
    qfree(block);
  }
  return outcome;
}

TEST(Sweep, FailsEachAllocationInTurnAndThenNone) {
  std::vector<std::string> runs;
  EXPECT_EQ(sweep_allocations([&] { runs.push_back(three_allocations()); }), 3);
  EXPECT_EQ(runs, (std::vector<std::string>{"011", "101", "110", "111"}));
}

TEST(Sweep, WithoutMemoryAllLaterAllocationsFailToo) {
  std::vector<std::string> runs;
  EXPECT_EQ(sweep_memory([&] { runs.push_back(three_allocations()); }), 3);
  EXPECT_EQ(runs, (std::vector<std::string>{"000", "100", "110", "111"}));
}

TEST(Sweep, FailsEachCallInTurnAndThenNone) {
  std::vector<std::string> runs;
  const int struck = sweep_call("stat", [&] {
    struct stat status;
    runs.emplace_back();
    for (int i = 0; i < 2; ++i) runs.back() += stat("/", &status) == 0 ? '1' : '0';
  });
  EXPECT_EQ(struck, 2);
  EXPECT_EQ(runs, (std::vector<std::string>{"01", "10", "11"}));
}

TEST(Sweep, AScenarioWithoutAnyIsRunOnce) {
  int runs = 0;
  EXPECT_EQ(sweep_allocations([&] { ++runs; }), 0);
  EXPECT_EQ(runs, 1);
}

TEST(Sweep, AScenarioMayTakeTheFailureBackItself) {
  std::vector<std::string> runs;
  const int struck = sweep_allocations([&] {
    qfree(qmalloc(1, "test"));
    runs.emplace_back(allocations_work() ? "struck " : "sound ");
    runs.back() += three_allocations();
  });
  EXPECT_EQ(struck, 1);
  EXPECT_EQ(runs, (std::vector<std::string>{"struck 111", "sound 111"}));
}

TEST(Sweep, LeavesNoFailureBehind) {
  sweep_allocations([] {});
  EXPECT_EQ(three_allocations(), "111");
}

TEST(Sweep, ABlockLeftBehindIsAFailureThatNamesItsRun) {
  void* left = nullptr;
  EXPECT_NONFATAL_FAILURE(sweep_allocations([&] {
                            void* const first = qmalloc(1, "test");
                            void* const second = qmalloc(1, "test");
                            if (second)
                              qfree(first);
                            else
                              left = first;
                            qfree(second);
                          }),
                          "one failing allocation, with 1 good ones before");
  qfree(left);
}

TEST(Sweep, BuildsATreeWhateverAllocationFails) {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "B", QMIBTREE_TYPE_STRING, 0, "text");
  int refused = 0;
  const int struck = sweep_allocations([&] {
    CheckedTree tree(schema);
    refused += !tree.inst;
  });
  EXPECT_EQ(struck, 10);  // instance, two indexes, queue, and for each node itself and its name,
  EXPECT_EQ(refused, 7);  // and two texts; a tree does without its second index and the texts
}

}  // namespace
