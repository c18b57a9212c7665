#include "qmibtree_testkit/checker.hh"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

namespace qmibtree_testkit {
namespace {

// The hash of full names, byte by byte.
uint32_t hash_of(const std::string& name) {
  uint32_t hash = 0;
  for (const char byte : name) {
    const int digit = static_cast<signed char>(byte);
    hash = hash * 131 + static_cast<uint32_t>(digit);
  }
  return hash & 0x7fffffff;
}

std::string name_of_instance(uint32_t number) {
  return (std::to_string(number) + ".").substr(0, 4);
}

bool is_param_type(uint32_t type) {
  return type >= QMIBTREE_TYPE_INT && type <= QMIBTREE_TYPE_BOOL;
}

bool is_template(const qmibtree_node* node) {
  constexpr uint32_t kNone = QMIBTREE_NODE_PARAM | QMIBTREE_NODE_INSTANCE;
  return !(node->flags & kNone) && (node->uidinfo->flags & QMIBTREE_UID_MULTI);
}

class Checker {
 public:
  explicit Checker(const qmibtree_inst_t* inst) : inst_(inst) {}

  std::vector<std::string> run(Events events) {
    if (!inst_->root) return {"the tree has no root"};
    where_ = "the root";
    expect(!inst_->root->parent, "has a parent");
    expect(!inst_->root->next, "has a sibling");
    expect(inst_->root->uidinfo == inst_->uidinfo, "is not of the schema's first record");
    check_node(inst_->root, nullptr);
    where_ = "the tree";
    expect(inst_->obj_changes >= changes_, "counts fewer changes than its templates do");
    check_index(inst_->name_hash, 0, "full names", &qmibtree_node::name_next);
    if (inst_->uid_hash) check_index(inst_->uid_hash, 1, "unique ids", &qmibtree_node::uid_next);
    check_events(events);
    return std::move(problems_);
  }

 private:
  void expect(bool holds, const std::string& what) {
    if (!holds) problems_.push_back(where_ + " " + what);
  }

  // --- nodes ---

  const qmibtree_uidinfo_t* record_of(int32_t uid) const {
    const bool there = uid >= 0 && static_cast<uint32_t>(uid) < inst_->uidinfo_num;
    return there ? inst_->uidinfo + uid : nullptr;
  }

  bool is_record(const qmibtree_uidinfo_t* record) const {
    return record && record->uid < inst_->uidinfo_num && record == inst_->uidinfo + record->uid;
  }

  void check_node(const qmibtree_node* node, const qmibtree_node* parent) {
    if (!nodes_.insert(node).second) return expect(false, "is in the tree twice");
    where_ = node->fullName ? node->fullName : "a node without a full name";
    if (!node->fullName || !node->name || !is_record(node->uidinfo))
      return expect(false, "lacks its name or its schema record");
    expect(node->inst == inst_, "is of another tree");
    expect(node->parent == parent, "has another parent");
    check_names(node, parent);
    const bool is_param = node->flags & QMIBTREE_NODE_PARAM;
    expect(is_param == is_param_type(node->uidinfo->type),
           "is a parameter by its flags or its type");
    check_value(node->value);
    check_value(node->default_value);
    if (is_param) {
      expect(!node->first_child && !node->last_child && node->childnum == 0, "has children");
      return;
    }
    expect(node->value.type == 0 && node->default_value.type == 0, "has a value, as an object");
    check_children(node);
  }

  void check_names(const qmibtree_node* node, const qmibtree_node* parent) {
    const bool is_instance = parent && is_template(parent);
    expect(is_instance == !!(node->flags & QMIBTREE_NODE_INSTANCE), "is an instance, or is not");
    expect(is_instance || node->instance == 0, "has an instance number");
    const std::string name = is_instance ? name_of_instance(node->instance) : node->uidinfo->name;
    expect(node->name == name, "has the name " + std::string(node->name));
    expect(node->fullName == (parent ? parent->fullName : "") + name, "is not named by its place");
    expect(node->hash == hash_of(node->fullName), "has another name's hash");
  }

  // A value that owns storage is the only one to.
  void check_value(const qmibtree_value_t& value) {
    expect(value.owned <= 1, "has a value with an ownership of " + std::to_string(value.owned));
    if (!value.owned) return;
    const bool has_storage =
        value.type == QMIBTREE_TYPE_STRING || value.type == QMIBTREE_TYPE_BASE64;
    expect(has_storage && value.str, "owns storage that is not there");
    expect(storage_.insert(value.str).second, "owns another value's storage");
  }

  // --- children ---

  void check_children(const qmibtree_node* node) {
    const std::string name = where_;
    std::vector<const qmibtree_node*> children;
    for (const qmibtree_node* child = node->first_child; child; child = child->next) {
      if (children.size() == node->childnum)
        return expect(false, "has more children than it counts");
      children.push_back(child);
    }
    expect(children.size() == node->childnum, "has fewer children than it counts");
    expect(node->last_child == (children.empty() ? nullptr : children.back()),
           "has another last child");
    if (is_template(node))
      check_instances(node, children);
    else
      check_records(node, children);
    for (const qmibtree_node* child : children) check_node(child, node);
    where_ = name;
  }

  void check_instances(const qmibtree_node* node,
                       const std::vector<const qmibtree_node*>& children) {
    uint32_t highest = 0;
    for (const qmibtree_node* child : children) {
      expect(child->uidinfo == node->uidinfo, "has an instance of another record");
      expect(child->instance > highest, "has instance " + std::to_string(child->instance) +
                                            " after " + std::to_string(highest));
      highest = child->instance;
    }
    expect(node->last_instance == highest,
           "counts " + std::to_string(node->last_instance) + " as its highest instance");
    expect(node->added - node->deleted >= node->childnum, "has instances that were never added");
    changes_ += node->added + node->deleted;
  }

  void check_records(const qmibtree_node* node, const std::vector<const qmibtree_node*>& children) {
    expect(node->last_instance == 0 && node->added == 0 && node->deleted == 0,
           "counts instances, and is no template");
    const qmibtree_uidinfo_t* record = record_of(node->uidinfo->child_uid);
    for (const qmibtree_node* child : children) {
      if (child->uidinfo != record) return expect(false, "has other children than the schema");
      record = record_of(record->next_uid);
    }
    expect(!record, "lacks children that the schema has");
  }

  // --- indexes ---

  void check_index(const qmibtree_hash_t* index, uint32_t kind, const std::string& name,
                   qmibtree_node* qmibtree_node::*next) {
    where_ = "the index of " + name;
    if (!index) return expect(false, "is missing");
    expect(index->kind == kind, "is of another kind");
    std::unordered_set<const qmibtree_node*> found;
    for (uint32_t bucket = 0; bucket < index->size; ++bucket) {
      for (const qmibtree_node* node = index->buckets[bucket]; node; node = node->*next) {
        if (!nodes_.count(node)) return expect(false, "holds a node that is not in the tree");
        if (!found.insert(node).second)
          return expect(false, "holds " + std::string(node->fullName) + " twice");
        const uint32_t key = kind == 0 ? node->hash : node->uidinfo->uid;
        expect(key % index->size == bucket,
               "holds " + std::string(node->fullName) + " out of place");
      }
    }
    expect(found.size() == nodes_.size(), "holds " + std::to_string(found.size()) + " of " +
                                              std::to_string(nodes_.size()) + " nodes");
  }

  // --- events ---

  void check_events(Events events) {
    where_ = "the event queue";
    if (!inst_->notif) return expect(false, "is missing");
    const qmibtree_notif_t& queue = *inst_->notif;
    if (queue.num > QMIBTREE_NOTIF_MAX) return expect(false, "holds more events than it can");
    if (events == Events::kMayBeGone) return;
    uint32_t active = 0;
    std::unordered_set<const qmibtree_node*> found;
    for (uint32_t i = 0; i < queue.num; ++i) {
      const qmibtree_notif_entry_t& entry = queue.entries[i];
      if (!nodes_.count(entry.node)) return expect(false, "holds a node that is not in the tree");
      expect(found.insert(entry.node).second,
             "holds " + std::string(entry.node->fullName) + " twice");
      expect(entry.active <= 1, "holds an event that is neither active nor passive");
      active += entry.active;
    }
    expect(queue.active_num == active, "counts " + std::to_string(queue.active_num) + " of " +
                                           std::to_string(active) + " active events");
  }

  const qmibtree_inst_t* inst_;
  std::string where_;  // what `expect` speaks of
  std::vector<std::string> problems_;
  std::unordered_set<const qmibtree_node*> nodes_;
  std::unordered_set<const void*> storage_;
  uint64_t changes_ = 0;  // of all templates together
};

}  // namespace

std::vector<std::string> problems_of(const qmibtree_inst_t* inst, Events events) {
  return Checker(inst).run(events);
}

}  // namespace qmibtree_testkit
