#include "workload.hh"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>

#include "bench_schema.h"

namespace bench {
namespace {

// How many instances the large workload has of a table, by the last segment of its name.
struct Count {
  const char* table;
  uint32_t instances;
};
constexpr Count kCounts[] = {{"LANDevice.", 4},       {"WLANConfiguration.", 8},
                             {"WANDevice.", 2},       {"WANConnectionDevice.", 4},
                             {"WANIPConnection.", 4}, {"PortMapping.", 7}};

bool is_table(const qmibtree_node* node) {
  constexpr uint32_t kOther = QMIBTREE_NODE_INSTANCE | QMIBTREE_NODE_PARAM;
  return (node->uidinfo->flags & QMIBTREE_UID_MULTI) && !(node->flags & kOther);
}

uint32_t one_instance(const qmibtree_node*) { return 1; }

uint32_t many_instances(const qmibtree_node* table) {
  for (const Count& count : kCounts)
    if (count.table == std::string(table->name)) return count.instances;
  return 1;
}

using Instances = uint32_t (*)(const qmibtree_node* table);

// Adds the instances below a node, and notes what they were added to.
void add_instances(qmibtree_inst_t* inst, qmibtree_node* node, Instances instances,
                   std::vector<std::string>* tables) {
  for (uint32_t i = is_table(node) ? instances(node) : 0; i > 0; --i) {
    uint32_t number = 0;
    if (QMIBTREE_FAILED(qmibtree_add_object_by_node(inst, node, &number, 0, 255))) std::abort();
    tables->push_back(node->fullName);
  }
  for (qmibtree_node* child = node->first_child; child; child = child->next)
    add_instances(inst, child, instances, tables);
}

void visit(const qmibtree_node* node, const std::function<void(const qmibtree_node*)>& see) {
  see(node);
  for (const qmibtree_node* child = node->first_child; child; child = child->next)
    visit(child, see);
}

std::string cut(std::string text, uint32_t max_len) {
  if (max_len > 0 && text.size() > max_len) text.erase(0, text.size() - max_len);
  return text;
}

// A number within the bounds that is not `but` where there is another.
int64_t number_within(int64_t min, int64_t max, int64_t wish, int64_t but) {
  const int64_t span = max - min + 1;
  int64_t number = min + wish % span;
  if (number == but) number = min + (wish + 1) % span;
  return number;
}

Value value_of(const qmibtree_node* node, size_t i, int which) {
  const qmibtree_uidinfo_t& record = *node->uidinfo;
  const auto wish = static_cast<int64_t>(i * 7919 + 17) + which;
  Value value = {};
  value.type = record.type;
  switch (record.type) {
    case QMIBTREE_TYPE_INT:
      value.text = std::to_string(
          number_within(record.int_min, record.int_max, wish, node->default_value.i));
      break;
    case QMIBTREE_TYPE_UINT:
      value.text = std::to_string(
          number_within(record.uint_min, record.uint_max, wish, node->default_value.u));
      break;
    case QMIBTREE_TYPE_BOOL:
      value.text = (node->default_value.b != 0) == (which != 0) ? "true" : "false";
      break;
    case QMIBTREE_TYPE_DATETIME:
      value.text = std::to_string(1000000000 + wish);  // seconds; documents have no use for it
      break;
    case QMIBTREE_TYPE_BASE64: {
      value.bytes = cut("bytes " + std::to_string(wish), record.max_len);
      char* const text =
          base64_encode(value.bytes.data(), static_cast<uint32_t>(value.bytes.size()));
      value.text = text;
      qfree(text);
      break;
    }
    default:
      value.text = cut("value " + std::to_string(wish), record.max_len);
  }
  return value;
}

// All but the title, the names and their texts.
Workload make_here(Instances instances) {
  Workload work;
  const Tree tree = init();
  add_instances(tree.get(), tree->root, instances, &work.tables);
  visit(tree->root, [&](const qmibtree_node* node) {
    work.nodes.push_back(node->fullName);
    if (!(node->flags & QMIBTREE_NODE_PARAM)) return;
    const size_t i = work.parameters.size();
    const bool readonly = node->uidinfo->flags & QMIBTREE_UID_READONLY;
    work.parameters.push_back({node->fullName,
                               i,
                               readonly ? 0 : QMIBTREE_WRITE_APPLY,
                               {value_of(node, i, 0), value_of(node, i, 1)}});
  });
  std::shuffle(work.parameters.begin(), work.parameters.end(), std::mt19937(1));
  save(work.filled_tree().get(), &work.document);
  return work;
}

// A workload as one text: its fields in turn, a NUL behind each; lists begin with their number.
std::string packed(const Workload& work) {
  std::string text;
  const auto put = [&text](const std::string& field) { (text += field) += '\0'; };
  for (const std::vector<std::string>* list : {&work.tables, &work.nodes}) {
    put(std::to_string(list->size()));
    for (const std::string& name : *list) put(name);
  }
  put(std::to_string(work.parameters.size()));
  for (const Parameter& parameter : work.parameters) {
    put(parameter.name);
    put(std::to_string(parameter.place));
    put(std::to_string(parameter.write_flags));
    for (const Value& value : parameter.values) {
      put(value.text);
      put(value.bytes);
      put(std::to_string(value.type));
    }
  }
  put(work.document);
  return text;
}

Workload unpacked(const char* at) {
  Workload work;
  const auto text = [&at] {
    const char* const field = at;
    at += std::strlen(field) + 1;
    return field;
  };
  const auto number = [&] { return static_cast<uint32_t>(std::strtoul(text(), nullptr, 10)); };
  const auto value = [&] { return Value{.text = text(), .bytes = text(), .type = number()}; };
  for (std::vector<std::string>* list : {&work.tables, &work.nodes}) {
    const size_t count = number();
    list->reserve(count);
    while (list->size() < count) list->emplace_back(text());
  }
  const size_t count = number();
  work.parameters.reserve(count);
  while (work.parameters.size() < count)
    work.parameters.push_back(
        {.name = text(), .place = number(), .write_flags = number(), .values = {value(), value()}});
  work.document = text();
  return work;
}

void note_names(Workload* work) {
  size_t size = 0;
  for (const Parameter& parameter : work->parameters) size += parameter.name.size() + 1;
  work->name_texts.reserve(size);
  work->names.reserve(work->parameters.size());
  for (const Parameter& parameter : work->parameters) {
    const size_t at = work->name_texts.size();
    (work->name_texts += parameter.name) += '\0';
    work->names.emplace_back(work->name_texts.data() + at, parameter.name.size());
  }
}

// Made in a child process and handed over as a text: this process's heap stays as clean as that of
// a gateway that has just started, and what is measured does not depend on the holes that making a
// workload leaves.
Workload make(const char* title, Instances instances) {
  constexpr size_t kRoom = 64 << 20;
  void* const shared =
      mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    const std::string text = packed(make_here(instances));
    if (text.size() > kRoom) std::abort();
    std::memcpy(shared, text.data(), text.size());
    _exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) std::abort();
  Workload work = unpacked(static_cast<const char*>(shared));
  munmap(shared, kRoom);
  work.title = title;
  note_names(&work);
  return work;
}

}  // namespace

qmibtree_value_t Value::record() const {
  qmibtree_value_t value = {};
  value.type = type;
  switch (type) {
    case QMIBTREE_TYPE_INT:
      value.i = std::stoi(text);
      break;
    case QMIBTREE_TYPE_UINT:
      value.u = static_cast<uint32_t>(std::stoul(text));
      break;
    case QMIBTREE_TYPE_BOOL:
      value.b = text == "true";
      break;
    case QMIBTREE_TYPE_DATETIME:
      value.t = std::stoi(text);
      break;
    case QMIBTREE_TYPE_BASE64:
      value.data = reinterpret_cast<const uint8_t*>(bytes.data());
      value.len = static_cast<uint32_t>(bytes.size());
      break;
    default:
      value.str = text.c_str();
  }
  return value;
}

std::vector<size_t> Workload::in_tree_order() const {
  std::vector<size_t> order(parameters.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [this](size_t a, size_t b) { return parameters[a].place < parameters[b].place; });
  return order;
}

Tree Workload::empty_tree() const {
  Tree tree = init();
  for (const std::string& table : tables) {
    uint32_t number = 0;
    if (QMIBTREE_FAILED(qmibtree_add_object(tree.get(), table.c_str(), &number, 0, 255)))
      std::abort();
  }
  return tree;
}

Tree Workload::filled_tree() const {
  Tree tree = empty_tree();
  for (const size_t i : in_tree_order()) {
    const Parameter& parameter = parameters[i];
    const qmibtree_value_t value = parameter.values[0].record();
    if (QMIBTREE_FAILED(qmibtree_write(tree.get(), parameter.name.c_str(), &value, 0)))
      std::abort();
  }
  return tree;
}

Workload make_small() { return make("W1", one_instance); }
Workload make_large() { return make("W2", many_instances); }

Tree init() { return Tree(qmibtree_init(bench_schema())); }

Tree load(const std::string& document) {
  Tree tree = init();
  auto* const text = const_cast<char*>(document.c_str());
  const auto size = static_cast<uint32_t>(document.size() + 1);
  qmibtree_buff_t buff = {text, text, size, size};
  if (QMIBTREE_FAILED(qmibtree_xml_load(tree.get(), &buff, 0))) std::abort();
  return tree;
}

void save(qmibtree_inst_t* inst, std::string* text) {
  qmibtree_buff_t counted = {};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, nullptr, &counted, 0))) std::abort();
  if (text->size() != counted.size) text->assign(counted.size, '\0');
  qmibtree_buff_t buff = {text->data(), text->data(), counted.size + 1, counted.size + 1};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, nullptr, &buff, 0))) std::abort();
}

}  // namespace bench

extern "C" uint32_t mibtree_changed_callback2(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) {
  return 0;
}
