// One operation, some number of times: what a run of two takes more than a run of one, in
// instructions, is the operation's own. `heap` prints the parameters, the nodes and the bytes that
// they take. Usage: count W1|W2 lookup|load|save|build|heap TIMES
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "workload.hh"

namespace bench {
namespace {

struct Operation {
  const char* name;
  void (*run)(const Workload& work, int times);
};

void look_up(const Workload& work, int times) {
  const Tree tree = work.filled_tree();
  for (int i = 0; i < times; ++i)
    for (const std::string_view name : work.names)
      if (!qmibtree_find_node_by_name(tree.get(), name.data())) std::abort();
}

// Trees stay: taking them down is not part of making them.
void load_all(const Workload& work, int times) {
  for (int i = 0; i < times; ++i) (void)load(work.document).release();
}

void save_all(const Workload& work, int times) {
  const Tree tree = work.filled_tree();
  std::string text = work.document;
  for (int i = 0; i < times; ++i) save(tree.get(), &text);
}

void build(const Workload& work, int times) {
  for (int i = 0; i < times; ++i) (void)work.empty_tree().release();
}

void weigh(const Workload& work, int) {
  const size_t before = mallinfo2().uordblks;
  (void)work.filled_tree().release();
  std::printf("%zu %zu %zu\n", work.parameters.size(), work.nodes.size(),
              mallinfo2().uordblks - before);
}

constexpr Operation kOperations[] = {
    {"lookup", look_up}, {"load", load_all}, {"save", save_all}, {"build", build}, {"heap", weigh},
};

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const bool small = std::strcmp(argv[1], "W1") == 0;
  const bench::Workload work = small ? bench::make_small() : bench::make_large();
  for (const bench::Operation& operation : bench::kOperations) {
    if (std::strcmp(operation.name, argv[2]) != 0) continue;
    operation.run(work, std::atoi(argv[3]));
    return 0;
  }
  return 2;
}
