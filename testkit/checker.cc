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
  return (std::to_string(static_cast<int32_t>(number)) + ".").substr(0, 4);
}

bool is_param_type(uint32_t type) {
  return type >= QMIBTREE_TYPE_INT && type <= QMIBTREE_TYPE_BOOL;
}

bool is_param(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_PARAM; }

bool is_template(const qmibtree_node* node) {
  constexpr uint32_t kNone = QMIBTREE_NODE_PARAM | QMIBTREE_NODE_INSTANCE;
  return !(node->flags & kNone) && (node->uidinfo->flags & QMIBTREE_UID_MULTI);
}

constexpr uint32_t kNotified = QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE;
constexpr uint32_t kNodeFlags = QMIBTREE_NODE_INSTANCE | QMIBTREE_NODE_MODIFIED |
                                QMIBTREE_NODE_PARAM | kNotified | QMIBTREE_NODE_ACCESS;
constexpr uint32_t kNeutralRight = 255;

bool may_have_storage(const qmibtree_value_t& value) {
  return value.type == QMIBTREE_TYPE_STRING || value.type == QMIBTREE_TYPE_BASE64;
}

// True for a text or bytes that are not there.
bool is_lost(const qmibtree_value_t& value) { return may_have_storage(value) && !value.str; }

bool same(const qmibtree_value_t& a, const qmibtree_value_t& b) {
  if (a.type != b.type) return false;
  const qmibtree_datafn_t* const fn = qmibtree_datatype_get_datafn(a.type);
  return !fn->equal || fn->equal(&a, &b);
}

class Checker {
 public:
  explicit Checker(const qmibtree_inst_t* inst) : inst_(inst) {}

  std::vector<std::string> run(Events events) {
    if (!inst_ || !inst_->root) return {"there is no tree"};
    where_ = "the root";
    expect(!inst_->root->parent, "has a parent");
    expect(!inst_->root->next, "has a sibling");
    expect(inst_->root->uidinfo == inst_->uidinfo, "is not of the schema's first record");
    check_node(inst_->root, nullptr);
    if (!readable_) return std::move(problems_);
    where_ = "the tree";
    expect(inst_->obj_changes >= changes_, "counts fewer changes than its templates do");
    check_index(inst_->name_hash, kByName);
    if (inst_->uid_hash) check_index(inst_->uid_hash, kByUid);
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
    where_ = node->fullName ? node->fullName : "a node without a full name";
    if (!node->fullName || !node->name || !is_record(node->uidinfo)) {
      readable_ = false;
      return expect(false, "lacks its name or its schema record");
    }
    if (!nodes_.insert(node).second) return expect(false, "is in the tree twice");
    expect(node->inst == inst_, "is of another tree");
    expect(node->parent == parent, "has another parent");
    check_names(node, parent);
    check_flags(node);
    check_value(node->value, "value");
    check_value(node->default_value, "default value");
    check_modified(node);
    if (is_param(node))
      expect(!node->first_child && !node->last_child && node->childnum == 0, "has children");
    else
      check_children(node);
  }

  void check_names(const qmibtree_node* node, const qmibtree_node* parent) {
    const bool is_instance = parent && is_template(parent);
    expect(is_instance == !!(node->flags & QMIBTREE_NODE_INSTANCE),
           "differs from its parent on whether it is an instance");
    expect(is_instance || node->instance == 0, "has an instance number");
    expect(is_instance || node->right == kNeutralRight, "has a right");
    const std::string name = is_instance ? name_of_instance(node->instance) : node->uidinfo->name;
    expect(node->name == name, "has the name " + std::string(node->name));
    // The node frees a name that is not its record's.
    expect((node->name != node->uidinfo->name) == is_instance, "does not own what it should");
    if (is_instance) check_storage(node->name, "name");
    expect(node->fullName == (parent ? parent->fullName : "") + name, "is not named by its place");
    check_storage(node->fullName, "full name");
    expect(node->hash == hash_of(node->fullName), "has another name's hash");
  }

  void check_flags(const qmibtree_node* node) {
    expect((node->flags & ~kNodeFlags) == 0, "has flags that there are not");
    expect((node->flags & kNotified) != kNotified, "has both kinds of notification");
    expect(node->reserved == 0, "has a reserved word in use");
    expect(is_param(node) == is_param_type(node->uidinfo->type),
           "differs from its record on whether it is a parameter");
  }

  // A node has storage of its own, or none.
  void check_value(const qmibtree_value_t& value, const std::string& which) {
    expect(value.owned <= 1,
           "has a " + which + " with an ownership of " + std::to_string(value.owned));
    const bool has_storage = may_have_storage(value) && value.str;
    expect(has_storage == !!value.owned, has_storage ? "has a " + which + " in others' storage"
                                                     : "has a " + which + " that owns nothing");
    if (has_storage) check_storage(value.str, which);
    if (value.type == QMIBTREE_TYPE_BASE64)
      expect(has_storage == (value.len > 0),
             "has a " + which + " of another length than its bytes");
  }

  void check_storage(const void* storage, const std::string& which) {
    expect(storage_.insert(storage).second, "has a " + which + " that something else owns");
  }

  // A hook may make a parameter the tree's own, with a value that was never written; and memory may
  // run out for a text, and leave it without one.
  void check_modified(const qmibtree_node* node) {
    if ((node->flags & QMIBTREE_NODE_MODIFIED) || node->uidinfo->get_fn) return;
    if (is_lost(node->value) || is_lost(node->default_value)) return;
    expect(same(node->value, node->default_value), "differs from its default, unmarked");
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

  // What distinguishes the two indexes.
  struct Index {
    const char* name;
    uint32_t kind;
    uint32_t size;
    qmibtree_node* qmibtree_node::*next;
  };
  static constexpr Index kByName = {"full names", 0, 5000, &qmibtree_node::name_next};
  static constexpr Index kByUid = {"unique ids", 1, 2000, &qmibtree_node::uid_next};

  void check_index(const qmibtree_hash_t* hash, const Index& index) {
    where_ = std::string("the index of ") + index.name;
    if (!hash) return expect(false, "is missing");
    expect(hash->kind == index.kind, "is of another kind");
    if (hash->size != index.size)
      return expect(false, "has " + std::to_string(hash->size) + " buckets");
    std::unordered_set<const qmibtree_node*> found;
    for (uint32_t bucket = 0; bucket < hash->size; ++bucket)
      if (!check_chain(hash->buckets[bucket], bucket, index, found)) return;
    expect(found.size() == nodes_.size(), "holds " + std::to_string(found.size()) + " of " +
                                              std::to_string(nodes_.size()) + " nodes");
  }

  // False when the chain cannot be followed to its end.
  bool check_chain(const qmibtree_node* head, uint32_t bucket, const Index& index,
                   std::unordered_set<const qmibtree_node*>& found) {
    std::unordered_map<const qmibtree_node*, uint32_t> lowest;  // instance seen, by template
    for (const qmibtree_node* node = head; node; node = node->*index.next) {
      if (!nodes_.count(node)) return expect(false, "holds a node that is not in the tree"), false;
      const std::string name = node->fullName;
      if (!found.insert(node).second) return expect(false, "holds " + name + " twice"), false;
      const uint32_t key = index.kind == kByName.kind ? node->hash : node->uidinfo->uid;
      expect(key % index.size == bucket, "holds " + name + " out of place");
      if (!(node->flags & QMIBTREE_NODE_INSTANCE)) continue;
      const auto [newer, first] = lowest.emplace(node->parent, node->instance);
      expect(first || node->instance < newer->second, "holds " + name + " behind an older one");
      newer->second = node->instance;
    }
    return true;
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
  bool readable_ = true;  // every node has what the further checks look at
  std::unordered_set<const qmibtree_node*> nodes_;
  std::unordered_set<const void*> storage_;
  uint64_t changes_ = 0;  // of all templates together
};

}  // namespace

std::vector<std::string> problems_of(const qmibtree_inst_t* inst, Events events) {
  return Checker(inst).run(events);
}

}  // namespace qmibtree_testkit
