// Scenarios, and what each failure in them may cost. A sweep plays a scenario again and again, with
// its first allocation (or call of a function) failing, then with its second, and so on.
#ifndef TESTS_FAULTS_SCENE_HH
#define TESTS_FAULTS_SCENE_HH

#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qmibtree.h"

// An exported function (or datum), noted as used: CALL(qmibtree_read)(inst, ...).
#define CALL(name) (note_use(#name), name)
void note_use(const char* name);
const std::set<std::string>& used_names();

// One run of a scenario: its constructor sets up and its destructor clears up without failures.
class Scene {
 public:
  Scene() = default;
  virtual ~Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // What the failures strike.
  virtual void act() = 0;

  // What is there afterwards, in words.
  virtual std::string outcome() = 0;

  // The tree to look at afterwards; null when there is none.
  virtual const qmibtree_inst_t* tree() const { return nullptr; }

  std::string printed;  // on standard output by act()

 protected:
  // Adds a result to `told`.
  template <typename T>
  void tell(const T& result) {
    std::ostringstream out;
    out << (told.empty() ? "" : " ") << result;
    told += out.str();
  }
  std::string told;
};

// The outcome of `count` failures in a row; with kAny, one that any failure behind those may have.
struct Outcomes {
  int count;
  std::string outcome;
};
inline constexpr int kAny = -1;

// What the failures of one function cost, the first call's first. A function that is not named in a
// scenario is not called by it.
struct Cost {
  std::string what;
  std::vector<Outcomes> outcomes;
};

struct Scenario {
  std::string name;
  std::function<std::unique_ptr<Scene>()> set_up;
  std::string whole;  // the outcome without a failure
  std::vector<Cost> costs;
  std::string lacking;  // what it needs and this machine lacks, if anything
};

// Its name, where a test fails.
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

template <typename Played>
Scenario scenario(const std::string& name, const std::string& whole, std::vector<Cost> costs) {
  return {name, [] { return std::make_unique<Played>(); }, whole, std::move(costs), ""};
}

std::vector<Scenario> tree_scenarios();
std::vector<Scenario> store_scenarios();
std::vector<Scenario> host_scenarios();

// Names of what fails, beside those of faultable_calls().
inline constexpr char kMemory[] = "qmalloc";
inline constexpr char kNoMoreMemory[] = "qmalloc from there on";
inline constexpr char kPlainMemory[] = "malloc";
inline constexpr char kParserMemory[] = "the XML parser's malloc";

#endif
