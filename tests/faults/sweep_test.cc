// Every failure of memory and of system calls, one at a time, over scenarios that reach every
// exported function: the result that was promised, a sound tree, no block or descriptor left behind
// beyond those that are known, and a library that works afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "memory.hh"
#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/checker.hh"
#include "qmibtree_testkit/heap.hh"
#include "scene.hh"

using namespace qmibtree_testkit;

namespace {

std::set<std::string>& names() {
  static auto* const used = new std::set<std::string>;
  return *used;
}

// --- what can fail ---

struct Fault {
  std::string what;
  std::function<void(int n)> fail_after;
  bool (*take_back)();
};

std::vector<Fault> faults() {
  std::vector<Fault> all = {{kMemory, fail_allocation_after, allocations_work},
                            {kNoMoreMemory, fail_allocations_after, allocations_work},
                            {kParserMemory, fail_parser_memory, parser_memory_works}};
#ifdef __GLIBC__  // elsewhere the C++ library is linked in, and its memory would fail with the
                  // library's
  all.push_back({kPlainMemory, fail_plain_memory, plain_memory_works});
#endif
  for (const std::string& name : faultable_calls())
    all.push_back({name, [name](int n) { fail_call(name, n); }, calls_work});
  return all;
}

// --- one run ---

std::set<int> open_descriptors() {
  std::set<int> all;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    all.insert(std::stoi(entry.path().filename()));
  std::erase_if(all, [](int fd) { return fcntl(fd, F_GETFD) == -1; });  // the iterator's own
  return all;
}

// Names the files that are open and were not. Their descriptors lead nowhere from now on: a stream
// may still hold bytes, which must not come out later.
std::string left_open(const std::set<int>& before) {
  std::string files;
  for (const int fd : open_descriptors()) {
    if (before.count(fd) > 0) continue;
    const std::filesystem::path link = "/proc/self/fd/" + std::to_string(fd);
    files += ", left open: " + std::filesystem::read_symlink(link).filename().string();
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, fd);
    close(nowhere);
  }
  return files;
}

// Plays a scenario, with a failure due when one is given; `*struck` tells whether it came to that.
std::string play(const Scenario& played, const Fault* fault, int n, bool* struck) {
  const int live = live_blocks();
  std::unique_ptr<Scene> scene = played.set_up();
  testing::internal::CaptureStdout();
  const std::set<int> descriptors = open_descriptors();
  if (fault) fault->fail_after(n);
  scene->act();
  *struck = fault && fault->take_back();
  const std::string open = left_open(descriptors);  // first: what follows flushes all streams
  scene->printed = testing::internal::GetCapturedStdout();
  std::string outcome = scene->outcome();
  if (scene->tree()) {
    EXPECT_EQ(problems_of(scene->tree()), std::vector<std::string>());
  }
  scene.reset();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was not waited for";
  const int kept = live_blocks() - live;
  if (kept != 0) outcome += ", blocks kept: " + std::to_string(kept);
  return outcome + open;
}

std::string play(const Scenario& played) {
  bool struck;
  return play(played, nullptr, 0, &struck);
}

// --- one sweep ---

struct Promise {
  std::vector<std::string> in_turn;
  std::set<std::string> any;
};

// Where nothing is said about malloc its failures are those of qmalloc.
Promise promise_of(const Scenario& played, const std::string& what) {
  Promise promise;
  for (const Cost& cost : played.costs) {
    if (cost.what != what) continue;
    for (const Outcomes& each : cost.outcomes) {
      if (each.count == kAny)
        promise.any.insert(each.outcome);
      else
        promise.in_turn.insert(promise.in_turn.end(), static_cast<size_t>(each.count),
                               each.outcome);
    }
  }
  const bool nothing = promise.in_turn.empty() && promise.any.empty();
  return nothing && what == kPlainMemory ? promise_of(played, kMemory) : promise;
}

void expect_promised(const Promise& promise, int n, const std::string& outcome) {
  const auto place = static_cast<size_t>(n);
  if (place < promise.in_turn.size())
    EXPECT_EQ(outcome, promise.in_turn[place]);
  else
    EXPECT_EQ(promise.any.count(outcome), 1u) << "not foreseen: " << outcome;
}

std::map<std::string, int> failures;  // that struck, by what failed

void sweep(const Scenario& played, const Fault& fault) {
  const Promise promise = promise_of(played, fault.what);
  for (int n = 0; !testing::Test::HasFailure(); ++n) {
    SCOPED_TRACE(fault.what + " fails, with " + std::to_string(n) + " good ones before");
    bool struck = false;
    const std::string outcome = play(played, &fault, n, &struck);
    if (!struck) {
      EXPECT_EQ(outcome, played.whole);
      EXPECT_LE(promise.in_turn.size(), static_cast<size_t>(n)) << "more was foreseen";
      return;
    }
    ++failures[fault.what];
    expect_promised(promise, n, outcome);
    EXPECT_EQ(play(played), played.whole) << "does not work afterwards";
  }
}

// --- the tests ---

std::vector<Scenario> scenarios() {
  std::vector<Scenario> all = tree_scenarios();
  for (const auto& some : {store_scenarios(), host_scenarios()})
    all.insert(all.end(), some.begin(), some.end());
#ifndef __GLIBC__
  // The stand-in for the commands opens its files by the C++ library, which is linked in here.
  for (Scenario& each : all)
    if (std::regex_match(each.name, std::regex("(Download|Upgrade|Clear).*")))
      each.lacking = "the test's own calls cannot be told from the library's";
#endif
  return all;
}

class Sweep : public ::testing::TestWithParam<Scenario> {};

TEST_P(Sweep, EachFailureCostsWhatIsSaidAndNoMore) {
  if (!GetParam().lacking.empty()) GTEST_SKIP() << GetParam().lacking;
  ASSERT_EQ(play(GetParam()), GetParam().whole);
  for (const Fault& fault : faults()) sweep(GetParam(), fault);
}

INSTANTIATE_TEST_SUITE_P(, Sweep, ::testing::ValuesIn(scenarios()),
                         [](const auto& info) { return info.param.name; });

std::set<std::string> exported_names() {
  std::ifstream in(SYMBOL_MAP);
  const std::string map{std::istreambuf_iterator<char>(in), {}};
  const std::regex symbol(R"(\n    (\w+);)");
  std::set<std::string> exported;
  for (std::sregex_iterator found(map.begin(), map.end(), symbol), end; found != end; ++found)
    exported.insert((*found)[1]);
  return exported;
}

TEST(Scenarios, UseEveryExportedName) {
  names().clear();
  for (const Scenario& each : scenarios()) play(each);
  EXPECT_GT(used_names().size(), 100u);
  EXPECT_EQ(used_names(), exported_names());
}

// Prints how many runs met a failure, once all is done.
class Figures : public ::testing::Environment {
 public:
  void TearDown() override {
    int all = 0;
    int calls = 0;
    std::printf("scenarios: %zu\n", scenarios().size());
    for (const auto& [what, count] : failures) {
      std::printf("failed %s: %d\n", what.c_str(), count);
      all += count;
    }
    for (const std::string& name : faultable_calls()) calls += failures[name];
    std::printf("allocations failed: %d\ncalls failed: %d\n", all - calls, calls);
  }
};

const auto* const figures = ::testing::AddGlobalTestEnvironment(new Figures);

}  // namespace

void note_use(const char* name) { names().insert(name); }
const std::set<std::string>& used_names() { return names(); }
