// What single operations cost, and how that grows. Rows of WHAT/OVER: nanoseconds for each item.
#include <cstdlib>
#include <cstring>
#include <string>

#include "rounds.hh"
#include "workload.hh"

namespace bench {
namespace {

constexpr uint32_t kInstances[] = {1, 10, 100, 999};
constexpr int kSamples = 31;

void expect(uint32_t rc) {
  if (QMIBTREE_FAILED(rc)) std::abort();
}

// The median of the side's times, less what asking for the time takes.
void measure(benchmark::State& state, size_t items, const Side& side) {
  const Side nothing = {[] {}};
  for (auto _ : state) {
    std::vector<double> clock, seconds;
    for (int i = 0; i < kSamples; ++i) clock.push_back(seconds_of(nothing));
    for (int i = 0; i < kSamples; ++i) seconds.push_back(seconds_of(side));
    const double cost = median(seconds) - median(clock);
    state.SetIterationTime(cost);
    state.counters["items"] = static_cast<double>(items);
    state.counters["ns"] = cost / static_cast<double>(items) * 1e9;
  }
}

template <typename Run>
void add(const std::string& row, Run run) {
  benchmark::RegisterBenchmark(row.c_str(), run)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

// The table of port mappings of one connection, in a tree with one instance of every other table.
class Table {
 public:
  explicit Table(const Workload& work) : tree_(work.empty_tree()) {
    constexpr std::string_view kEnd = ".PortMapping.";
    for (const std::string& table : work.tables)
      if (table.size() > kEnd.size() && table.substr(table.size() - kEnd.size()) == kEnd)
        table_ = qmibtree_find_node_by_name(tree_.get(), table.c_str());
    if (!table_) std::abort();
  }

  qmibtree_inst_t* tree() const { return tree_.get(); }
  qmibtree_node* oldest() const { return table_->first_child; }
  qmibtree_node* newest() const { return table_->last_child; }
  qmibtree_node* middle() const {
    qmibtree_node* node = oldest();
    for (uint32_t i = table_->childnum / 2; i > 0; --i) node = node->next;
    return node;
  }

  void add() {
    uint32_t number = 0;
    expect(qmibtree_add_object_by_node(tree_.get(), table_, &number, 0, 255));
  }
  void remove(qmibtree_node* instance) {
    expect(qmibtree_del_object_by_node(tree_.get(), instance, 0));
  }
  // The instances 1 to `count`, made anew.
  void fill(uint32_t count) {
    while (newest()) remove(newest());
    for (uint32_t i = 0; i < count; ++i) add();
  }

 private:
  Tree tree_;
  qmibtree_node* table_ = nullptr;
};

void add_instance_rows(const Workload& work) {
  struct Victim {
    const char* name;
    qmibtree_node* (Table::*get)() const;
  };
  static constexpr Victim kVictims[] = {{"delete the newest", &Table::newest},
                                        {"delete one in the middle", &Table::middle},
                                        {"delete the oldest", &Table::oldest}};
  for (const uint32_t count : kInstances) {
    const std::string over = "/" + std::to_string(count);
    add("add" + over, [&work, count](benchmark::State& state) {
      Table table(work);
      measure(state, 1,
              {[&] { table.add(); }, [&] { table.fill(count - 1); }, [&] { table.fill(0); }});
    });
    for (const Victim& victim : kVictims)
      add(victim.name + over, [&work, &victim, count](benchmark::State& state) {
        Table table(work);
        qmibtree_node* instance = nullptr;
        const auto before = [&] {
          table.fill(count);
          instance = (table.*victim.get)();
        };
        measure(state, 1, {[&] { table.remove(instance); }, before});
      });
  }
}

// A text parameter of the port mappings; each sweep changes it in all of them.
void add_write_rows(const Workload& work) {
  for (const uint32_t count : kInstances)
    add("write by unique id/" + std::to_string(count), [&work, count](benchmark::State& state) {
      Table table(work);
      table.fill(count);
      const qmibtree_node* node = table.oldest()->first_child;
      while (node->uidinfo->type != QMIBTREE_TYPE_STRING) node = node->next;
      const uint32_t uid = node->uidinfo->uid;
      bool which = false;
      measure(state, count, {[&] {
                which = !which;
                expect(qmibtree_write_strvalue_by_uniqueid(table.tree(), uid,
                                                           which ? "one" : "other", 0));
              }});
    });
}

uint32_t ignore_phase(qmibtree_inst_t*, qmibtree_node*, void*, int32_t, void*, uint32_t) {
  return QMIBTREE_RC_OK;
}
uint32_t ignore_node(qmibtree_inst_t*, qmibtree_node*, void*) { return QMIBTREE_RC_OK; }

void add_tree_rows(const Workload& work) {
  const size_t nodes = work.nodes.size();
  add("build/" + work.title, [&work, nodes](benchmark::State& state) {
    Tree tree;
    measure(state, nodes, {[&] { tree = work.empty_tree(); }, [] {}, [&] { tree.reset(); }});
  });
  add("destroy/" + work.title, [&work, nodes](benchmark::State& state) {
    Tree tree;
    measure(state, nodes, {[&] { tree.reset(); }, [&] { tree = work.filled_tree(); }});
  });
  add("qmibtree_dump, a callback/" + work.title, [&work, nodes](benchmark::State& state) {
    const Tree tree = work.empty_tree();
    constexpr int32_t kDepth = 255;
    measure(state, 2 * nodes,  // on entering and on leaving
            {[&] { qmibtree_dump(tree.get(), nullptr, nullptr, kDepth, ignore_phase, nullptr); }});
  });
  add("qmibtree_loop_by_node, a callback/" + work.title, [&work, nodes](benchmark::State& state) {
    const Tree tree = work.empty_tree();
    std::vector<qmibtree_node*> objects;
    for (const std::string& name : work.nodes) {
      qmibtree_node* const node = qmibtree_find_node_by_name(tree.get(), name.c_str());
      if (node->first_child) objects.push_back(node);
    }
    measure(state, nodes - 1, {[&] {
              for (qmibtree_node* const object : objects)
                qmibtree_loop_by_node(tree.get(), object, ignore_node, nullptr);
            }});
  });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  bench::keep_memory();
  const bench::Workload small = bench::make_small();
  const bench::Workload large = bench::make_large();
  bench::add_instance_rows(small);
  bench::add_write_rows(small);
  for (const bench::Workload* work : {&small, &large}) bench::add_tree_rows(*work);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
