// Sweeps: a scenario is run with its first allocation (or call of a function) failing, then with
// its second, and so on, until it comes to its end without having met the failure. This header
// needs GoogleTest.
//
//   const int failed = sweep_allocations([] {
//     Tree tree(schema);
//     if (!tree.inst) return;  // refused: whatever was built until then must be gone
//     EXPECT_EQ(problems_of(tree.inst), std::vector<std::string>());
//   });
//
// Each run must leave as many blocks as it found. A scenario that cannot go wrong any more, because
// what is left of it only looks at the outcome, takes the failure back itself: allocations_work()
// and calls_work() answer whether it had struck. A sweep ends with the first run after which the
// test has failed; the failure's message tells which run it was.
#ifndef QMIBTREE_TESTKIT_SWEEP_HH
#define QMIBTREE_TESTKIT_SWEEP_HH

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"

namespace qmibtree_testkit {

// What can fail: how a failure after `n` is made due and taken back, and how many there were.
struct Fault {
  std::string what;
  std::function<void(int n)> fail_after;
  bool (*take_back)();
  long (*failures)();
};

// The number of runs in which the failure struck.
inline int sweep(const Fault& fault, const std::function<void()>& scenario) {
  for (int n = 0;; ++n) {
    SCOPED_TRACE(fault.what + ", with " + std::to_string(n) + " good ones before");
    const long failures = fault.failures();
    fault.fail_after(n);
    {
      LeakCheck leaks;
      scenario();
    }
    fault.take_back();
    if (fault.failures() == failures || testing::Test::HasFailure()) return n;
  }
}

// Each allocation of the scenario fails in turn, those after it work again.
inline int sweep_allocations(const std::function<void()>& scenario) {
  return sweep(
      {"one failing allocation", fail_allocation_after, allocations_work, allocations_failed},
      scenario);
}

// Memory runs out at each allocation of the scenario in turn, and those after it fail too.
inline int sweep_memory(const std::function<void()>& scenario) {
  return sweep({"no more memory", fail_allocations_after, allocations_work, allocations_failed},
               scenario);
}

// Each call of one of faultable_calls() fails in turn.
inline int sweep_call(const std::string& name, const std::function<void()>& scenario) {
  return sweep({"a failing " + name, [&](int n) { fail_call(name, n); }, calls_work, calls_failed},
               scenario);
}

}  // namespace qmibtree_testkit

#endif
