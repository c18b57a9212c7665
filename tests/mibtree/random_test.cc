// Drives a tree and a plain model of it through the same random steps and compares all they hold
// after each: nodes, values, flags, counters, order, indexes, events, marks, calls, memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/checker.hh"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr uint32_t kSteps = 6000;
constexpr uint32_t kWave = 1000;     // steps for which the tree grows, then shrinks
constexpr uint32_t kNodesMax = 240;  // where it grows no more
constexpr uint32_t kComponents = 4;  // the record of unique id n belongs to component n % 4
constexpr uint32_t kExternal =
    QMIBTREE_WRITE_NOEVENT | QMIBTREE_WRITE_SUBSCRIBER | QMIBTREE_WRITE_APPLY;
constexpr uint32_t kReported = QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE;
constexpr int32_t kDynamicAnswer = 42;
constexpr uint32_t kRefusedCount = 7, kRemarkableCount = 6, kRemark = 3;

// The data model, for the tree and for the model of it.
struct Line {
  int depth;
  const char* name;
  uint32_t type;
  uint32_t flags;
  const char* defval;
  int32_t min, max;  // of int and unsignedInt; max is the longest value of the others, 0 for any
};

const Line kLines[] = {
    {0, "A.", QMIBTREE_TYPE_OBJECT, 0, nullptr, 0, 0},
    {1, "i", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5", -5, 50},
    {1, "u", QMIBTREE_TYPE_UINT, 0, "3", 1, 9},
    {1, "s", QMIBTREE_TYPE_STRING, 0, "abc", 0, 4},
    {1, "b", QMIBTREE_TYPE_BOOL, QMIBTREE_UID_NOTIF_FORCED, "1", 0, 0},
    {1, "k", QMIBTREE_TYPE_BASE64, 0, nullptr, 0, 0},
    {1, "d", QMIBTREE_TYPE_DATETIME, 0, nullptr, 0, 0},
    {1, "ro", QMIBTREE_TYPE_INT, QMIBTREE_UID_READONLY, "5", 0, 99},
    {1, "dyn", QMIBTREE_TYPE_INT, QMIBTREE_UID_DYNAMIC, "5", 0, 99},
    {1, "O.", QMIBTREE_TYPE_OBJECT, 0, nullptr, 0, 0},
    {2, "x", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, nullptr, 0, 0},
    {1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI, nullptr, 0, 0},
    {2, "n", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5", 0, 50},
    {2, "t", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_FORCED, "none", 0, 0},
    {2, "W.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI, nullptr, 0, 0},
    {3, "v", QMIBTREE_TYPE_BOOL, 0, "false", 0, 0},
    {3, "w", QMIBTREE_TYPE_UINT, QMIBTREE_UID_NOTIF_DEFAULT, "7", 0, 50},
    {1, "R.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI | QMIBTREE_UID_NOTIF_DEFAULT, nullptr, 0, 0},
    {2, "f", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_FORCED, nullptr, 0, 0},
};
constexpr uint32_t kUids = std::size(kLines);
constexpr uint32_t kTop = 13;  // the nodes that are always there; they stand first in nodes()
constexpr uint32_t kCount = 2, kBytes = 5;  // the unique ids with a set_fn

// Bytes and what they are as base64. Other base64 texts of this test are not valid.
const struct {
  std::string bytes;
  const char* text;
} kBase64[] = {{"", ""},
               {"a", "YQ=="},
               {"abc", "YWJj"},
               {std::string("\0\xff\x10", 3), "AP8Q"},
               {"\xb6\xbb\x9e", "true"},
               {"\x9e\x89\xde", "none"}};

const struct {
  int32_t seconds;
  const char* text;
} kTimes[] = {{0, "1970-01-01T00:00:00"},
              {-1, "1969-12-31T23:59:59"},
              {1000000000, "2001-09-09T01:46:40"},
              {INT32_MAX, "2038-01-19T03:14:07"}};

const char* const kTexts[] = {"",
                              "4",
                              "-3",
                              "99",
                              "6",
                              "7x",
                              "7",
                              "true",
                              "0",
                              "1",
                              "false",
                              "none",
                              "abc",
                              "YQ==",
                              "YWJj",
                              "AP8Q",
                              "abcde",
                              "YQ==!",
                              "2001-09-09T01:46:40"};

// A value of the model.
struct Val {
  uint32_t type = 0;
  int64_t number = 0;                // int, unsignedInt, bool, datetime
  std::optional<std::string> bytes;  // string, base64

  bool operator==(const Val&) const = default;
};

// The value that refers to `val`'s storage.
qmibtree_value_t as_real(const Val& val) {
  const char* const bytes = val.bytes ? val.bytes->c_str() : nullptr;
  switch (val.type) {
    case QMIBTREE_TYPE_INT:
      return int_value(static_cast<int32_t>(val.number));
    case QMIBTREE_TYPE_UINT:
      return uint_value(static_cast<uint32_t>(val.number));
    case QMIBTREE_TYPE_BOOL:
      return bool_value(val.number != 0);
    case QMIBTREE_TYPE_DATETIME:
      return datetime_value(static_cast<int32_t>(val.number));
    case QMIBTREE_TYPE_STRING:
      return string_value(bytes);
    case QMIBTREE_TYPE_BASE64:
      return base64_value(bytes, val.bytes ? static_cast<uint32_t>(val.bytes->size()) : 0);
    default:
      return {};
  }
}

// What a value of the tree is in the model.
Val as_model(const qmibtree_value_t& value) {
  Val val = {value.type, 0, {}};
  switch (value.type) {
    case QMIBTREE_TYPE_INT:
      val.number = value.i;
      break;
    case QMIBTREE_TYPE_UINT:
      val.number = value.u;
      break;
    case QMIBTREE_TYPE_BOOL:
      val.number = value.b;
      break;
    case QMIBTREE_TYPE_DATETIME:
      val.number = value.t;
      break;
    case QMIBTREE_TYPE_STRING:
      if (value.str) val.bytes = value.str;
      break;
    case QMIBTREE_TYPE_BASE64:
      if (value.data) val.bytes.emplace(reinterpret_cast<const char*>(value.data), value.len);
      break;
    default:
      break;
  }
  return val;
}

std::string rendered(const Val& val) {
  switch (val.type) {
    case QMIBTREE_TYPE_BOOL:
      return val.number ? "true" : "false";
    case QMIBTREE_TYPE_STRING:
      return val.bytes.value_or("<null>");
    case QMIBTREE_TYPE_BASE64:
      for (const auto& row : kBase64)
        if (row.bytes == val.bytes) return row.text;
      return "";
    case QMIBTREE_TYPE_DATETIME:
      for (const auto& row : kTimes)
        if (row.seconds == val.number) return row.text;
      return "?";
    default:
      return std::to_string(val.number);
  }
}

// The value of a text, or none for a text that is refused.
std::optional<Val> parsed(uint32_t type, const std::string& text) {
  Val val = {type, 0, {}};
  switch (type) {
    case QMIBTREE_TYPE_INT:
      val.number = std::strtol(text.c_str(), nullptr, 10);
      return val;
    case QMIBTREE_TYPE_UINT:
      val.number = static_cast<uint32_t>(std::strtol(text.c_str(), nullptr, 10));
      return val;
    case QMIBTREE_TYPE_BOOL:
      val.number = text == "true" || text == "1";
      if (!val.number && text != "false" && text != "0") return {};
      return val;
    case QMIBTREE_TYPE_STRING:
      val.bytes = text;
      return val;
    case QMIBTREE_TYPE_BASE64:
      for (const auto& row : kBase64)
        if (row.text == text) val.bytes = row.bytes;
      return val;
    default:
      return {};
  }
}

struct Node {
  uint32_t uid = 0;
  Node* parent = nullptr;
  std::vector<std::unique_ptr<Node>> children;
  std::string name, full_name;
  uint32_t flags = 0, right = 255;
  uint32_t instance = 0, last_instance = 0, added = 0, deleted = 0;
  Val value, initial;
  uint64_t born = 0;              // grows from node to node
  qmibtree_node* real = nullptr;  // its counterpart, found by the first comparison

  const Line& line() const { return kLines[uid]; }
  bool is_parameter() const { return flags & QMIBTREE_NODE_PARAM; }
  bool is_instance() const { return flags & QMIBTREE_NODE_INSTANCE; }
  bool is_template() const {
    return !is_parameter() && (line().flags & QMIBTREE_UID_MULTI) && !is_instance();
  }
};

// The event queue, with what stands in the slots past its end.
struct Queue {
  struct Entry {
    const void* node = nullptr;
    bool active = false;
  };
  std::array<Entry, QMIBTREE_NOTIF_MAX + 1> entries;  // the last is always empty
  uint32_t num = 0, active_num = 0;

  uint32_t find(const void* node) const {
    uint32_t at = 0;
    while (at < num && entries[at].node != node) ++at;
    return at;
  }
  void add(const Node& node) {
    const bool forced = node.line().flags & QMIBTREE_UID_NOTIF_FORCED;
    if (!forced && !(node.flags & kReported)) return;
    if (num == QMIBTREE_NOTIF_MAX || find(node.real) < num) return;
    const bool active = forced || (node.flags & QMIBTREE_NODE_NOTIF_ACTIVE);
    entries[num++] = {node.real, active};
    active_num += active;
  }
  void remove(const void* node) {
    const uint32_t at = find(node);
    if (at == num) return;
    active_num -= entries[at].active;
    entries[at] = entries[num--];
  }
  const void* take() {
    if (num == 0) return nullptr;
    active_num -= entries[--num].active;
    return entries[num].node;
  }
};

class Model {
 public:
  Model() { root = build(nullptr, 0, 255); }

  // All nodes, parents before their children.
  std::vector<Node*> nodes() const {
    std::vector<Node*> all = {root.get()};
    for (size_t i = 0; i < all.size(); ++i)
      for (const auto& child : all[i]->children) all.push_back(child.get());
    return all;
  }
  // The nodes of a unique id, newest first.
  std::vector<Node*> nodes_of(uint32_t uid) const {
    std::vector<Node*> some = nodes();
    std::erase_if(some, [&](const Node* node) { return node->uid != uid; });
    std::sort(some.begin(), some.end(),
              [](const Node* a, const Node* b) { return a->born > b->born; });
    return some;
  }
  // The newest node of a full name, or null.
  Node* find(const std::string& name) const {
    Node* newest = nullptr;
    for (Node* node : nodes())
      if (node->full_name == name && (!newest || node->born > newest->born)) newest = node;
    return newest;
  }
  // Blocks that the nodes take.
  int blocks() const {
    int count = 0;
    for (const Node* node : nodes()) {
      count += 2 + node->is_instance();
      for (const Val* val : {&node->value, &node->initial}) count += val->bytes.has_value();
    }
    return count;
  }

  uint32_t add(Node* node, uint32_t* instance, uint32_t right) {
    if (!node->is_template()) return 32;
    for (const auto& child : node->children)
      if (*instance != 0 && child->instance == *instance) return 32;
    ++obj_changes;
    ++node->added;
    *instance = node->last_instance = std::max(node->last_instance + 1, *instance);
    node->children.push_back(build(node, node->uid, right));
    return 0;
  }

  uint32_t del(Node* node) {
    if (!node->is_instance()) return 32;
    Node* const parent = node->parent;
    drop_events(*node);
    std::erase_if(parent->children, [&](const auto& child) { return child.get() == node; });
    parent->last_instance = 0;
    for (const auto& child : parent->children)
      parent->last_instance = std::max(parent->last_instance, child->instance);
    ++obj_changes;
    ++parent->deleted;
    return 0;
  }

  uint32_t write(Node* node, Val val, uint32_t flags) {
    const Line& line = node->line();
    const bool external = flags & kExternal;
    if (line.flags & QMIBTREE_UID_READONLY) {
      if (external) return 71;
    } else if ((flags & QMIBTREE_WRITE_SUBSCRIBER) && !(node->flags & QMIBTREE_NODE_ACCESS)) {
      return 71;
    }
    if (!in_range(line, val)) return 70;
    uint32_t rc = 0;
    if (node->uid == kCount) {
      if (val.number == kRefusedCount) return 72;
      if (val.number == kRemarkableCount) rc = kRemark;
    } else if (line.flags & QMIBTREE_UID_DYNAMIC) {
      rc = 50;
    }
    node->flags &= ~QMIBTREE_NODE_MODIFIED;
    if (val != node->initial) node->flags |= QMIBTREE_NODE_MODIFIED;
    if (val == node->value) return rc;
    if (external) marked.insert(node->uid % kComponents);
    if (!(flags & QMIBTREE_WRITE_NOEVENT)) queue.add(*node);
    if (val.type == QMIBTREE_TYPE_BASE64 && val.bytes == "") val.bytes.reset();
    node->value = val;
    called.push_back(node->real);
    return rc;
  }

  uint32_t write_text(const std::string& name, const std::string& text, uint32_t flags) {
    Node* const node = find(name);
    if (!node) return 40;
    if (!node->is_parameter()) return 71;
    const std::optional<Val> val = parsed(node->line().type, text);
    return val ? write(node, *val, flags) : 32;
  }

  uint32_t write_text_by_uid(uint32_t uid, const std::string& text, uint32_t flags) {
    uint32_t rc = 0;
    for (const Node* node : nodes_of(uid))
      if (rc = write_text(node->full_name, text, flags); rc > 31) break;
    return rc;
  }

  void set_attr(Node* node, uint32_t attr) {
    if (attr & 7) node->flags &= ~kReported;
    if (attr & 1)
      node->flags |= QMIBTREE_NODE_NOTIF_ACTIVE;
    else if (attr & 2)
      node->flags |= QMIBTREE_NODE_NOTIF_PASSIVE;
    if (attr & 24) node->flags &= ~QMIBTREE_NODE_ACCESS;
    if (attr & 8) node->flags |= QMIBTREE_NODE_ACCESS;
  }

  // What a read gives.
  static Val read(const Node* node) {
    if (node->line().flags & QMIBTREE_UID_DYNAMIC) return {QMIBTREE_TYPE_INT, kDynamicAnswer, {}};
    return node->value;
  }

  std::string listing(const Node* node, int level = 0) const {
    std::string text = "\n" + std::string(static_cast<size_t>(level), ' ');
    if (node->is_parameter()) {
      text += node->full_name + " (" + type_name(node->line().type) + ") = " + rendered(read(node));
    } else {
      text += "+" + node->full_name + (node->is_template() ? "{i}." : "");
    }
    for (const auto& child : node->children) text += listing(child.get(), level + 1);
    return text;
  }

  std::unique_ptr<Node> root;
  Queue queue;
  uint32_t obj_changes = 0;
  std::set<uint32_t> marked;
  std::vector<const void*> called;  // nodes whose change was called back in this step

 private:
  std::unique_ptr<Node> build(Node* parent, uint32_t uid, uint32_t right) {
    auto node = std::make_unique<Node>();
    const Line& line = kLines[uid];
    const bool is_parameter = line.type >= QMIBTREE_TYPE_INT && line.type <= QMIBTREE_TYPE_BOOL;
    node->uid = uid;
    node->parent = parent;
    node->born = ++births_;
    node->right = right;
    if (is_parameter) node->flags = QMIBTREE_NODE_PARAM;
    if (line.flags & (QMIBTREE_UID_NOTIF_DEFAULT | QMIBTREE_UID_NOTIF_FORCED))
      node->flags |= QMIBTREE_NODE_NOTIF_ACTIVE;
    node->name = line.name;
    if (parent && parent->is_template()) {
      node->flags |= QMIBTREE_NODE_INSTANCE;
      node->instance = parent->last_instance;
      node->name = (std::to_string(node->instance) + ".").substr(0, 4);
    }
    node->full_name = (parent ? parent->full_name : "") + node->name;
    if (is_parameter) {
      node->value.type = line.type;
      if (line.defval) node->value = *parsed(line.type, line.defval);
      node->initial = node->value;
    } else if (!node->is_template()) {
      for (uint32_t child = uid + 1; child < kUids && kLines[child].depth > line.depth; ++child)
        if (kLines[child].depth == line.depth + 1)
          node->children.push_back(build(node.get(), child, 255));
    }
    return node;
  }

  void drop_events(const Node& node) {
    for (const auto& child : node.children) drop_events(*child);
    queue.remove(node.real);
  }

  static bool in_range(const Line& line, const Val& val) {
    const bool numeric = line.type == QMIBTREE_TYPE_INT || line.type == QMIBTREE_TYPE_UINT;
    switch (val.type) {
      case QMIBTREE_TYPE_INT:
        return line.type != QMIBTREE_TYPE_INT || (val.number >= line.min && val.number <= line.max);
      case QMIBTREE_TYPE_UINT:
        return line.type != QMIBTREE_TYPE_UINT ||
               (val.number >= line.min && val.number <= line.max);
      case QMIBTREE_TYPE_STRING:
      case QMIBTREE_TYPE_BASE64:
        return numeric || line.max == 0 || !val.bytes ||
               val.bytes->size() <= static_cast<size_t>(line.max);
      default:
        return true;
    }
  }

  static const char* type_name(uint32_t type) {
    static const char* const names[] = {"",       "object",   "int",    "unsignedInt",
                                        "string", "datetime", "base64", "bool"};
    return names[type];
  }

  uint64_t births_ = 0;
};

// Blocks that base64 texts were decoded into. Nobody frees them, so the test does.
std::vector<const uint8_t*> decoded;
bool writing_text;

uint32_t watch_bytes(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
  if (writing_text) decoded.push_back(value->data);
  return 0;
}

uint32_t watch_count(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
  const int64_t number = as_model(*value).number;
  if (number == kRefusedCount) return QMIBTREE_RC_INVALID_VALUE;
  return number == kRemarkableCount ? kRemark : 0;
}

uint32_t answer(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = int_value(kDynamicAnswer);
  return 0;
}

Schema schema_of_lines() {
  Schema schema;
  for (const Line& line : kLines) {
    qmibtree_uidinfo_t& record =
        schema.add(line.depth, line.name, line.type, line.flags, line.defval);
    record.comp = record.uid % kComponents;
    if (line.type == QMIBTREE_TYPE_INT) {
      record.int_min = line.min;
      record.int_max = line.max;
    } else if (line.type == QMIBTREE_TYPE_UINT) {
      record.uint_min = static_cast<uint32_t>(line.min);
      record.uint_max = static_cast<uint32_t>(line.max);
    } else {
      record.max_len = static_cast<uint32_t>(line.max);
    }
    if (line.flags & QMIBTREE_UID_DYNAMIC) record.get_fn = answer;
  }
  schema.record(kCount).set_fn = watch_count;
  schema.record(kBytes).set_fn = watch_bytes;
  return schema;
}

// The calls of a walk, which is stopped with 80 at the call after `allowed`.
struct Calls {
  size_t allowed;
  std::vector<std::string> made;

  uint32_t add(const std::string& call) {
    made.push_back(call);
    return made.size() > allowed ? QMIBTREE_RC_DUMP_EXCEEDED : 0;
  }
};

uint32_t record_visit(qmibtree_inst_t*, qmibtree_node* node, void* arg) {
  return static_cast<Calls*>(arg)->add(node->fullName);
}

uint32_t record_phase(qmibtree_inst_t*, qmibtree_node* node, void*, int32_t level, void* arg,
                      uint32_t phase) {
  return static_cast<Calls*>(arg)->add(std::to_string(phase) + std::to_string(level) +
                                       node->fullName);
}

// The depth-first walk over the model.
uint32_t walk(const Node* node, int depth, int level, Calls* calls) {
  if (depth <= 0) return 0;
  if (const uint32_t rc = calls->add("1" + std::to_string(level) + node->full_name); rc) return rc;
  for (const auto& child : node->children)
    if (const uint32_t rc = walk(child.get(), depth - 1, level + 1, calls); rc) return rc;
  return calls->add("2" + std::to_string(level) + node->full_name);
}

class Random : public ::testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    ASSERT_NE(tree.inst, nullptr);
    for (uint32_t id = 0; id < kComponents; ++id)
      qmibtree_comp_register(id, 0, nullptr, nullptr, nullptr, nullptr);
    changes().clear();
    decoded.clear();
    tree.events = Events::kMayBeGone;
  }

  uint32_t below(uint32_t n) { return static_cast<uint32_t>(generator() % n); }
  bool one_in(uint32_t n) { return below(n) == 0; }
  template <typename T, size_t n>
  const T& any(const T (&table)[n]) {
    return table[below(n)];
  }
  // Half of the time one of the nodes that are always there.
  Node* any_node() {
    const std::vector<Node*> nodes = model.nodes();
    return nodes[below(static_cast<uint32_t>(one_in(2) ? kTop : nodes.size()))];
  }
  std::string any_name() { return one_in(30) ? "A.nothing" : any_node()->full_name; }
  uint32_t any_flags() {
    static const uint32_t choices[] = {0, 0, 0x4, 0x8, 0x10, 0x10, 0x14, 0x1c, 0x20};
    return any(choices);
  }
  Val any_value(uint32_t type) {
    Val val = {type, 0, {}};
    switch (type) {
      case QMIBTREE_TYPE_STRING:
        if (!one_in(8)) val.bytes = any(kTexts);
        break;
      case QMIBTREE_TYPE_BASE64:
        if (!one_in(8)) val.bytes = any(kBase64).bytes;
        break;
      case QMIBTREE_TYPE_DATETIME:
        val.number = any(kTimes).seconds;
        break;
      case QMIBTREE_TYPE_BOOL:
        val.number = below(2);
        break;
      default:
        val.number = below(12);
        break;
    }
    return val;
  }
  // A value that fits the node, mostly.
  Val any_value(const Node* node) {
    const uint32_t type = node->line().type;
    return any_value(!node->is_parameter() || one_in(6) ? 2 + below(6) : type);
  }

  void expect_result(uint32_t actual, uint32_t expected) {
    EXPECT_EQ(actual, expected);
    results.insert(expected);
  }

  // The steps. Each does one thing to the tree and to the model.

  void add() {
    if (!growing || model.nodes().size() > kNodesMax) return;
    Node* node = model.find(any_name());
    if (const auto tables = templates(); !one_in(5))
      node = tables[below(static_cast<uint32_t>(tables.size()))];
    static const uint32_t wishes[] = {0, 0, 0, 0, 1, 2, 3, 7, 20, 999, 1000, 12345};
    uint32_t given = any(wishes), expected = given;
    const uint32_t right = below(256);
    const std::string name = node ? node->full_name : "A.nothing";
    node = model.find(name);
    expect_result(qmibtree_add_object(tree.inst, name.c_str(), &given, below(3), right),
                  node ? model.add(node, &expected, right) : 40);
    EXPECT_EQ(given, expected);
  }

  void del() {
    if (growing && !one_in(8)) return;
    std::string name = any_name();
    for (int tries = 0; tries < 3; ++tries)
      if (Node* const node = any_node(); node->is_instance()) name = node->full_name;
    Node* const node = model.find(name);
    expect_result(qmibtree_del_object(tree.inst, name.c_str(), below(3)),
                  node ? model.del(node) : 40);
  }

  void write() {
    const std::string name = any_name();
    Node* const node = model.find(name);
    const Val val = any_value(node ? node : any_node());
    if (node && !node->is_parameter()) return;
    const qmibtree_value_t value = as_real(val);
    const uint32_t flags = any_flags();
    expect_result(qmibtree_write(tree.inst, name.c_str(), &value, flags),
                  node ? model.write(node, val, flags) : 40);
  }

  void write_text() {
    const std::string name = any_name();
    const char* const text = any(kTexts);
    const uint32_t flags = text_flags(model.find(name));
    writing_text = true;
    const uint32_t rc = qmibtree_write_strvalue(tree.inst, name.c_str(), text, flags);
    writing_text = false;
    expect_result(rc, model.write_text(name, text, flags));
  }

  void write_by_uid() {
    const uint32_t uid = below(kUids + 2);
    const char* const text = any(kTexts);
    const uint32_t flags = text_flags(uid == kBytes ? model.nodes_of(uid)[0] : nullptr);
    writing_text = true;
    const uint32_t rc = qmibtree_write_strvalue_by_uniqueid(tree.inst, uid, text, flags);
    writing_text = false;
    expect_result(rc, model.write_text_by_uid(uid, text, flags));
  }

  void read() {
    const std::string name = any_name();
    const Node* const node = model.find(name);
    qmibtree_value_t value = {};
    expect_result(qmibtree_read(tree.inst, name.c_str(), &value, 0), node ? 0 : 40);
    if (node) {
      EXPECT_EQ(as_model(value), Model::read(node));
    }
  }

  void compare() {
    const std::string name = any_name();
    const Node* const node = model.find(name);
    if (!node || !node->is_parameter()) return;
    const Val held = Model::read(node), val = one_in(2) ? held : any_value(node);
    const qmibtree_value_t value = as_real(val);
    const uint32_t unequal = val.type == held.type ? 34 : 61;
    expect_result(qmibtree_compare(tree.inst, name.c_str(), &value, 0), val == held ? 0 : unequal);
  }

  void set_attr() {
    const std::string name = any_name();
    Node* const node = model.find(name);
    const uint32_t attr = below(32);
    expect_result(qmibtree_set_attr(tree.inst, name.c_str(), attr), node ? 0 : 40);
    if (node) model.set_attr(node, attr);
  }

  void notify() {
    const std::string name = any_name();
    Node* const node = model.find(name);
    expect_result(qmibtree_notify(tree.inst, name.c_str(), 0), node ? 0 : 40);
    if (node) model.queue.add(*node);
  }

  void notify_all() {
    if (!one_in(4)) return;
    for (const Node* node : model.nodes()) {
      expect_result(qmibtree_notify_by_node(tree.inst, node->real, 0), 0);
      model.queue.add(*node);
    }
  }

  void drain() {
    for (uint32_t left = below(12); left > 0; --left)
      EXPECT_EQ(qmibtree_notif_deq_event(tree.inst->notif), model.queue.take());
  }

  void drop_event() {
    const std::string name = any_name();
    if (one_in(2))
      qmibtree_notif_add_event_by_name(tree.inst, name.c_str());
    else
      qmibtree_notif_del_event_by_name(tree.inst, name.c_str());
    if (const Node* const node = model.find(name)) model.queue.remove(node->real);
  }

  void empty_queue() {
    if (!one_in(10)) return;
    qmibtree_notif_cleanup(tree.inst->notif);
    model.queue.num = model.queue.active_num = 0;
  }

  void unmark() {
    qmibtree_comp_unmark_all();
    model.marked.clear();
  }

  void loop() {
    const std::string name = any_name();
    const Node* const node = model.find(name);
    Calls made = {below(12), {}}, expected = made;
    const uint32_t rc = qmibtree_loop(tree.inst, name.c_str(), record_visit, &made);
    uint32_t expected_rc = !node ? 40 : node->is_parameter() ? 32 : 0;
    if (expected_rc == 0) {
      for (const auto& child : node->children)
        if (expected_rc = expected.add(child->full_name); expected_rc) break;
    }
    expect_result(rc, expected_rc);
    EXPECT_EQ(made.made, expected.made);
  }

  void dump() {
    const std::string name = any_name();
    const Node* const node = model.find(name);
    Calls made = {below(100), {}}, expected = made;
    const auto depth = static_cast<int32_t>(below(7)) - 1;
    const uint32_t rc = qmibtree_dump(tree.inst, name.c_str(), nullptr, depth, record_phase, &made);
    expect_result(rc, node ? walk(node, depth, 0, &expected) : 40);
    EXPECT_EQ(made.made, expected.made);
  }

  void lookup() {
    const uint32_t uid = below(kUids + 2);
    const std::string name = any_name();
    const bool all = one_in(2);
    Calls made = {below(12), {}}, expected = made;
    const uint32_t rc =
        qmibtree_lookup(tree.inst, all ? nullptr : name.c_str(), uid, record_visit, &made);
    uint32_t expected_rc = 0;
    for (const Node* node : model.nodes_of(uid)) {
      if (node->is_template() || (!all && node->full_name != name)) continue;
      if (expected_rc = expected.add(node->full_name); expected_rc) break;
    }
    expect_result(rc, expected_rc);
    EXPECT_EQ(made.made, expected.made);
  }

  using Step = void (Random::*)();

  Step any_step() {
    static constexpr struct {
      uint32_t weight;
      Step step;
    } steps[] = {
        {3, &Random::add},        {2, &Random::del},          {3, &Random::write},
        {3, &Random::write_text}, {1, &Random::write_by_uid}, {2, &Random::set_attr},
        {1, &Random::notify},     {1, &Random::notify_all},   {1, &Random::drain},
        {1, &Random::drop_event}, {1, &Random::empty_queue},  {1, &Random::unmark},
        {1, &Random::read},       {1, &Random::compare},      {1, &Random::loop},
        {1, &Random::dump},       {1, &Random::lookup},
    };
    uint32_t total = 0;
    for (const auto& row : steps) total += row.weight;
    uint32_t at = below(total);
    const auto* row = steps;
    while (at >= row->weight) at -= row++->weight;
    return row->step;
  }

  void step() {
    changes().clear();
    model.called.clear();
    (this->*any_step())();
    for (const uint8_t* block : decoded) qfree(const_cast<uint8_t*>(block));
    decoded.clear();
    fullest = std::max(fullest, model.queue.num);
  }

  // The comparisons.

  void compare_node(Node* node, qmibtree_node* real) {
    SCOPED_TRACE(node->full_name);
    if (!node->real) node->real = real;
    ASSERT_EQ(node->real, real);
    ASSERT_EQ(real->uidinfo, &schema.record(node->uid));
    ASSERT_EQ(real->fullName, node->full_name);
    ASSERT_EQ(real->name, node->name);
    ASSERT_EQ(real->flags, node->flags);
    ASSERT_EQ(real->right, node->right);
    ASSERT_EQ(real->instance, node->instance);
    ASSERT_EQ(real->last_instance, node->last_instance);
    ASSERT_EQ(real->added, node->added);
    ASSERT_EQ(real->deleted, node->deleted);
    ASSERT_EQ(real->childnum, node->children.size());
    ASSERT_EQ(as_model(real->value), node->value);
    ASSERT_EQ(as_model(real->default_value), node->initial);
    qmibtree_node* child = real->first_child;
    qmibtree_node* last = nullptr;
    for (const auto& expected : node->children) {
      ASSERT_NE(child, nullptr);
      ASSERT_EQ(child->parent, real);
      ASSERT_NO_FATAL_FAILURE(compare_node(expected.get(), child));
      last = child;
      child = child->next;
    }
    ASSERT_EQ(child, nullptr);
    ASSERT_EQ(real->last_child, last);
  }

  void compare_queues() const {
    const qmibtree_notif_t& queue = *tree.inst->notif;
    ASSERT_EQ(queue.num, model.queue.num);
    ASSERT_EQ(queue.active_num, model.queue.active_num);
    for (uint32_t i = 0; i < queue.num; ++i) {
      ASSERT_EQ(queue.entries[i].node, model.queue.entries[i].node) << i;
      ASSERT_EQ(queue.entries[i].active, model.queue.entries[i].active) << i;
    }
  }

  void compare_effects() const {
    ASSERT_EQ(tree.inst->obj_changes, model.obj_changes);
    for (uint32_t id = 0; id < kComponents; ++id)
      ASSERT_EQ(qmibtree_comp_chk_mark(id, UINT32_MAX), model.marked.count(id)) << id;
    ASSERT_EQ(changes().size(), model.called.size());
    for (size_t i = 0; i < changes().size(); ++i) ASSERT_EQ(changes()[i].node, model.called[i]);
  }

  void compare_indexes() const {
    for (const Node* node : model.nodes())
      ASSERT_EQ(tree.node(node->full_name.c_str()), model.find(node->full_name)->real);
    for (uint32_t uid = 0; uid < kUids + 1; ++uid) {
      qmibtree_node* real = qmibtree_hash_lookup_uid(tree.inst->uid_hash, uid);
      for (const Node* node : model.nodes_of(uid)) {
        ASSERT_EQ(real, node->real);
        real = qmibtree_hash_lookup_uid_next(real, uid);
      }
      ASSERT_EQ(real, nullptr);
    }
  }

  void compare_listings() const {
    uint32_t count = 0;
    qmibtree_dump(tree.inst, nullptr, nullptr, 99, qmibtree_dump_calc_node_num, &count);
    ASSERT_EQ(count, model.nodes().size());
    ASSERT_EQ(render([&](qmibtree_buff_t* buff) {
                return qmibtree_dump(tree.inst, nullptr, buff, 99, qmibtree_dump_dbg, nullptr);
              }),
              model.listing(model.root.get()));
  }

  LeakCheck leaks;
  std::mt19937 generator{GetParam()};
  Schema schema = schema_of_lines();
  CheckedTree tree{schema};
  Model model;
  std::set<uint32_t> results;  // every result that was expected of the tree
  uint32_t fullest = 0;        // most events queued
  bool growing = true;

 private:
  std::vector<Node*> templates() const {
    std::vector<Node*> some = model.nodes();
    std::erase_if(some, [](const Node* node) { return !node->is_template(); });
    return some;
  }
  // Flags for a text write. Base64 text is always let through to set_fn, where the block it
  // was decoded into is got hold of.
  uint32_t text_flags(const Node* node) {
    const bool is_base64 = node && node->line().type == QMIBTREE_TYPE_BASE64;
    return any_flags() & (is_base64 ? ~QMIBTREE_WRITE_SUBSCRIBER : ~0u);
  }
};

TEST_P(Random, TheTreeDoesWhatItsModelDoes) {
  std::cout << "seed " << GetParam() << std::endl;
  ASSERT_NO_FATAL_FAILURE(compare_node(model.root.get(), tree.inst->root));
  const int overhead = live_blocks() - model.blocks();
  for (uint32_t number = 0; number < kSteps; ++number) {
    SCOPED_TRACE(::testing::Message() << "seed " << GetParam() << ", step " << number);
    growing = number / kWave % 2 == 0;
    step();
    ASSERT_NO_FATAL_FAILURE(compare_node(model.root.get(), tree.inst->root));
    ASSERT_NO_FATAL_FAILURE(compare_queues());
    ASSERT_NO_FATAL_FAILURE(compare_effects());
    ASSERT_EQ(live_blocks() - model.blocks(), overhead);
    if (number % 32 == 0) {
      ASSERT_EQ(problems_of(tree.inst, Events::kMayBeGone), std::vector<std::string>());
      ASSERT_NO_FATAL_FAILURE(compare_indexes());
      ASSERT_NO_FATAL_FAILURE(compare_listings());
    }
    ASSERT_FALSE(HasFailure());
  }
  // The steps went everywhere.
  EXPECT_EQ(results, (std::set<uint32_t>{0, 3, 32, 34, 40, 50, 61, 70, 71, 72, 80}));
  EXPECT_EQ(fullest, uint32_t{QMIBTREE_NOTIF_MAX});
}

INSTANTIATE_TEST_SUITE_P(Seeds, Random, ::testing::Values(1, 2, 3, 20100506));

}  // namespace
