#include "show.hh"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "session.hh"
#include "text.hh"

namespace mibctl {

namespace {

using Json = nlohmann::ordered_json;

bool is_parameter(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_PARAM; }
bool is_instance(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_INSTANCE; }

// Bytes that are not UTF-8 would not make a JSON text.
std::string json_text(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

// The attributes that a node of this entry starts with.
Attributes initial_attributes(const qmibtree_node* node) {
  constexpr uint32_t on = QMIBTREE_UID_NOTIF_DEFAULT | QMIBTREE_UID_NOTIF_FORCED;
  return {node->uidinfo->flags & on ? "active" : "off", "none"};
}

// What a line of `show` tells of one node.
struct Line {
  const Tree* tree;
  qmibtree_node* node;

  bool has_value() const { return is_parameter(node) && tree->has_value(node); }
  bool odd_attributes() const {
    return is_parameter(node) && attributes_of(node) != initial_attributes(node);
  }
  bool is_changed() const {
    return is_instance(node) || node->flags & QMIBTREE_NODE_MODIFIED || odd_attributes();
  }
  std::string assignment() const {
    return std::string(node->fullName) + "=" + quoted_value(tree->value(node));
  }
  std::string attributes() const {
    const Attributes words = attributes_of(node);
    return std::string("attr ") + node->fullName + " notify=" + words.notify +
           " access=" + words.access;
  }
  // Empty for a node that has nothing to show.
  std::vector<std::string> texts() const {
    std::vector<std::string> lines;
    if (is_instance(node)) lines.push_back(node->fullName);
    if (has_value()) lines.push_back(assignment());
    if (odd_attributes()) lines.push_back(attributes());
    return lines;
  }
  Json json() const {
    Json record = {{"name", node->fullName}};
    if (!is_parameter(node)) return record;
    record["type"] = qmibtree_datatype_get_type_str(node->uidinfo->type);
    if (has_value()) record["value"] = tree->value(node);
    const Attributes words = attributes_of(node);
    record["notify"] = words.notify;
    record["access"] = words.access;
    return record;
  }
};

struct Printer {
  const Tree& tree;
  const std::string& prefix;
  const ShowOptions& options;
  std::FILE* out;
  Json records = Json::array();
  bool found = false;

  void print(qmibtree_node* node) {
    if (!std::string_view(node->fullName).starts_with(prefix)) return;
    found = true;
    const Line line{&tree, node};
    if (options.changed && !line.is_changed()) return;
    const std::vector<std::string> texts = line.texts();
    if (texts.empty()) return;
    if (options.json) return records.push_back(line.json());
    for (const std::string& text : texts) std::fprintf(out, "%s\n", text.c_str());
  }
};

uint32_t print_node(qmibtree_inst_t* /*inst*/, qmibtree_node* node, void* /*ctx*/,
                    int32_t /*level*/, void* printer, uint32_t phase) {
  if (phase == QMIBTREE_PHASE_ENTER) static_cast<Printer*>(printer)->print(node);
  return QMIBTREE_RC_OK;
}

}  // namespace

void show(const Tree& tree, const std::string& prefix, const ShowOptions& options, std::FILE* out) {
  Printer printer{tree, prefix, options, out};
  qmibtree_dump(tree.inst(), nullptr, nullptr, INT32_MAX, print_node, &printer);
  if (!printer.found) tree.find(prefix);  // tells what is near
  if (options.json) std::fprintf(out, "%s\n", json_text(printer.records).c_str());
}

namespace {

// What of a node can differ; of a node that the other side lacks, only what is not the model's.
std::vector<std::string> content(const Tree& tree, qmibtree_node* node, bool other_has_it) {
  if (!node) return {};
  const Line line{&tree, node};
  if (!other_has_it) return line.is_changed() ? line.texts() : std::vector<std::string>();
  std::vector<std::string> lines;
  if (line.has_value()) lines.push_back(line.assignment());
  if (is_parameter(node)) lines.push_back(line.attributes());
  return lines;
}

void print_sides(const std::vector<std::string>& left, const std::vector<std::string>& right,
                 std::FILE* out) {
  for (const std::string& text : left)
    if (std::find(right.begin(), right.end(), text) == right.end())
      std::fprintf(out, "-%s\n", text.c_str());
  for (const std::string& text : right)
    if (std::find(left.begin(), left.end(), text) == left.end())
      std::fprintf(out, "+%s\n", text.c_str());
}

}  // namespace

bool show_differences(const Tree& left, const Tree& right, bool json, std::FILE* out) {
  bool any = false;
  Json records = Json::array();
  compare_trees(left, right, [&](qmibtree_node* a, qmibtree_node* b) {
    const std::vector<std::string> before = content(left, a, b != nullptr);
    const std::vector<std::string> after = content(right, b, a != nullptr);
    if (before == after) return;
    any = true;
    if (!json) return print_sides(before, after, out);
    records.push_back({{"name", (a ? a : b)->fullName},
                       {"left", a ? Line{&left, a}.json() : Json()},
                       {"right", b ? Line{&right, b}.json() : Json()}});
  });
  if (json) std::fprintf(out, "%s\n", json_text(records).c_str());
  return any;
}

}  // namespace mibctl
