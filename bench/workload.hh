// What is measured on: a tree of the whole model, and two values for each of its parameters.
#ifndef BENCH_WORKLOAD_HH
#define BENCH_WORKLOAD_HH

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qmibtree.h"

namespace bench {

struct destroy_tree {
  void operator()(qmibtree_inst_t* inst) const { qmibtree_destroy(inst); }
};
using Tree = std::unique_ptr<qmibtree_inst_t, destroy_tree>;

// One value of a parameter: the library's record, which refers to the text here, and that text.
struct Value {
  std::string text;   // as a document has it
  std::string bytes;  // base64: decoded
  qmibtree_value_t record() const;
  uint32_t type;
};

struct Parameter {
  std::string name;
  size_t place;          // among the parameters, in the tree's order
  uint32_t write_flags;  // an external write where the model allows one
  Value values[2];       // neither is the default, and they differ but where a bound leaves no room
};

struct Workload {
  std::string title;
  std::vector<std::string> tables;    // templates to add an instance to, in this order
  std::vector<std::string> nodes;     // full names of all nodes, in the tree's order
  std::vector<Parameter> parameters;  // in an order of no meaning, the same in each run
  // The parameters' names again, each with a NUL behind it, one after the other in memory: a caller
  // has just been given the name it looks up, and fetching it is not what is measured.
  std::vector<std::string_view> names;
  std::string name_texts;
  std::string document;  // of the tree with the first values

  // `names` refers to `name_texts`: a workload may be moved where it is made, and not copied.
  Workload() = default;
  Workload(Workload&&) = default;
  Workload& operator=(Workload&&) = default;

  std::vector<size_t> in_tree_order() const;  // the parameters, by their index
  Tree empty_tree() const;                    // with its instances, values as they are by default
  Tree filled_tree() const;                   // with the first values
};

// One instance of every table, and many of some: about 1,800 and 10,500 parameters.
Workload make_small();
Workload make_large();

Tree init();  // the model's tree, without instances
// The same with the document loaded.
Tree load(const std::string& document);

// A whole document, counted and then written; its size is that of `*text`, which is made once.
void save(qmibtree_inst_t* inst, std::string* text);

}  // namespace bench

#endif
