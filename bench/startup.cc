// A first and a second start under flashsim, with as much of the small workload as a partition
// holds: each step and its milliseconds of wall time.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "workload.hh"

namespace bench {
namespace {

double milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

void step(const char* name, const std::function<void()>& run) {
  const double start = milliseconds();
  run();
  std::printf("%s\t%.2f\n", name, milliseconds() - start);
}

void set_factory_file(const std::string& text) {
  std::FILE* const file = std::fopen("/etc/igd/default-conf.xml", "w");
  if (!file || std::fputs(text.c_str(), file) < 0 || std::fclose(file) != 0) std::abort();
}

// What a partition holds of a workload: as many of its instances as fit.
Workload fitting(Workload work) {
  while (work.document.size() >= QMIBTREE_NVRAM_MAX) {
    work.tables.pop_back();
    const Tree tree = work.empty_tree();
    std::erase_if(work.parameters, [&](const Parameter& parameter) {
      return !qmibtree_find_node_by_name(tree.get(), parameter.name.c_str());
    });
    save(work.filled_tree().get(), &work.document);
  }
  return work;
}

void expect_loaded(qmibtree_inst_t* inst, const std::string& document) {
  std::string text;
  save(inst, &text);
  if (text.c_str() != document) std::abort();
}

// Names of the steps of a start.
struct Start {
  const char* build;
  const char* load;
  const char* save;  // null: nothing is saved
};
constexpr Start kFirst = {"first start: qmibtree_init",
                          "qmibtree_load_config, from the factory file", "qmibtree_save_config"};
constexpr Start kSecond = {"second start: qmibtree_init",
                           "qmibtree_load_config, from the partition; rewrites both", nullptr};

void run(const Workload& work, const Start& start) {
  Tree tree;
  step(start.build, [&] { tree = init(); });
  step(start.load, [&] { qmibtree_load_config(tree.get()); });
  expect_loaded(tree.get(), work.document);
  if (start.save) step(start.save, [&] { qmibtree_save_config(tree.get()); });
}

}  // namespace
}  // namespace bench

int main() {
  const bench::Workload work = bench::fitting(bench::make_small());
  std::printf("%zu parameters, %zu bytes\n", work.parameters.size(), work.document.size());
  bench::set_factory_file(work.document);
  for (const bench::Start& start : {bench::kFirst, bench::kSecond}) bench::run(work, start);
  return 0;
}
