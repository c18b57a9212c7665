#include <cstring>

#include "mibtree/bkdr.hh"
#include "mibtree/mibtree_internal.hh"

namespace {

constexpr uint32_t kNeutralRight = 255;

bool is_param_type(uint32_t type) {
  return type >= QMIBTREE_TYPE_INT && type <= QMIBTREE_TYPE_BOOL;
}

uint32_t initial_flags(const qmibtree_uidinfo_t* record) {
  constexpr uint32_t kNotified = QMIBTREE_UID_NOTIF_DEFAULT | QMIBTREE_UID_NOTIF_FORCED;
  return (is_param_type(record->type) ? QMIBTREE_NODE_PARAM : 0) |
         ((record->flags & kNotified) != 0 ? QMIBTREE_NODE_NOTIF_ACTIVE : 0);
}

void append_child(qmibtree_node* parent, qmibtree_node* child) {
  child->parent = parent;
  (parent->last_child ? parent->last_child->next : parent->first_child) = child;
  parent->last_child = child;
  ++parent->childnum;
}

qmibtree_node* new_node(qmibtree_inst_t* inst, qmibtree_node* parent, qmibtree_uidinfo_t* record,
                        uint32_t right) {
  qmibtree_node* const node = qmib::make_zeroed<qmibtree_node>("qmibtree_node").release();
  if (!node) return nullptr;
  node->right = right;
  node->uidinfo = record;
  node->arg = record->arg;
  node->inst = inst;
  node->flags = initial_flags(record);
  if (parent) append_child(parent, node);
  return node;
}

bool set_name(qmibtree_node* node) {
  if (!node->parent || !qmib::is_template(node->parent)) {
    node->name = node->uidinfo->name;
    return true;
  }
  node->instance = node->parent->last_instance;
  node->flags |= QMIBTREE_NODE_INSTANCE;
  auto* const text = static_cast<char*>(qmalloc(6, "qmibtree node name"));
  if (!text) return false;
  const qmib::instance_name name(node->instance);
  std::memcpy(text, name.text(), static_cast<size_t>(name.end() - name.text()) + 1);
  node->name = text;  // the node frees it, in qmibtree_free_subtree
  return true;
}

// What the full names below a node begin with.
struct name_above {
  explicit name_above(const qmibtree_node* parent)
      : text(parent ? parent->fullName : ""),
        length(std::strlen(text)),
        hash(parent ? parent->hash : 0) {}
  const char* text;
  size_t length;
  uint32_t hash;
};

// The name above and the node's own, and the hash of both.
bool set_full_name(qmibtree_node* node, const name_above& above) {
  const size_t length = std::strlen(node->name);
  auto* const text =
      static_cast<char*>(qmalloc(above.length + length + 1, "qmibtree_node fullName"));
  if (!text) return false;
  std::memcpy(text, above.text, above.length);
  std::memcpy(text + above.length, node->name, length + 1);
  node->fullName = text;  // the node frees it, in qmibtree_free_subtree
  node->hash =
      qmib::bkdr_continue(above.hash, text, text + above.length, text + above.length + length) &
      qmib::kBkdrMask;
  return true;
}

bool set_initial_value(qmibtree_inst_t* inst, qmibtree_node* node) {
  const qmibtree_uidinfo_t* const record = node->uidinfo;
  if (!record->defval && !record->get_fn) {
    // What a create_fn wrote stays if the record's type can take care of it.
    if (qmib::datafn_of(node->value.type) != qmib::datafn_of(record->type)) {
      qmib::qmibtree_value_release(&node->value);
      node->value = {};
      node->flags &= ~QMIBTREE_NODE_MODIFIED;
    }
    node->value.type = node->default_value.type = record->type;
    return true;
  }
  uint32_t rc = QMIBTREE_RC_OK;
  qmib::temp_value initial(record->defval ? record->type : 0);
  if (record->defval) {
    // The parse's result does not count: a datetime default is good although its parse says 32.
    if (initial.fn()->from_str) initial.fn()->from_str(initial.get(), record->defval);
  } else {
    rc = record->get_fn(inst, node, initial.get(), 0);
  }
  qmib::qmibtree_value_store(&node->value, initial.get());
  qmib::qmibtree_value_store(&node->default_value, initial.get());
  return !qmib::failed(rc);
}

qmibtree_node* build(qmibtree_inst_t* inst, qmibtree_node* parent, const name_above& above,
                     qmibtree_uidinfo_t* record, uint32_t right);

bool build_children(qmibtree_inst_t* inst, qmibtree_node* node) {
  node->childnum = 0;
  node->first_child = node->last_child = nullptr;
  if (qmib::is_template(node)) return true;  // its instances come one by one, added later
  const name_above above(node);
  qmibtree_uidinfo_t* child = find_uidinfo_from_uid(inst, node->uidinfo->child_uid);
  for (; child; child = find_uidinfo_from_uid(inst, child->next_uid))
    if (!build(inst, node, above, child, kNeutralRight)) return false;
  return true;
}

void remove_child(qmibtree_node* parent, qmibtree_node* child) {
  qmibtree_node* before = nullptr;
  for (qmibtree_node* other = parent->first_child; other != child; other = other->next)
    before = other;
  (before ? before->next : parent->first_child) = child->next;
  if (parent->last_child == child) parent->last_child = before;
  --parent->childnum;
}

void detach(qmibtree_node* node) {
  qmibtree_node* const parent = node->parent;
  if (!parent) return;
  remove_child(parent, node);
  if (qmib::is_instance(node)) qmib::qmibtree_recompute_last_instance(parent);
}

// Takes a node that is linked so far as it was built, and all below it, out of the tree, and frees
// them.
void remove_subtree(qmibtree_inst_t* inst, qmibtree_node* node) {
  qmibtree_node* const twin = qmib::is_instance(node) ? node->next : nullptr;
  detach(node);
  qmib::qmibtree_free_subtree(inst, node, twin);
}

qmibtree_node* build(qmibtree_inst_t* inst, qmibtree_node* parent, const name_above& above,
                     qmibtree_uidinfo_t* record, uint32_t right) {
  qmibtree_node* const node = new_node(inst, parent, record, right);
  if (!node) return nullptr;
  if (!set_name(node) || !set_full_name(node, above)) {
    remove_subtree(inst, node);  // without destroy_fn: its create_fn never ran
    return nullptr;
  }
  qmibtree_hash_link_uid(inst->uid_hash, node);
  qmib::qmibtree_hash_link_hashed(inst->name_hash, node);
  if (!qmib::is_template(node) && record->create_fn) record->create_fn(inst, node);
  // The hook may have changed the flags: they are read again from here on.
  if (qmib::is_param(node) ? set_initial_value(inst, node) : build_children(inst, node))
    return node;
  qmibtree_destroy_node(inst, node);
  return nullptr;
}

}  // namespace

void qmib::qmibtree_call_destroy_hooks(qmibtree_inst_t* inst, qmibtree_node* node) {
  if (!is_param(node))
    for (qmibtree_node* child = node->first_child; child; child = child->next)
      qmibtree_call_destroy_hooks(inst, child);
  if (!is_template(node) && node->uidinfo->destroy_fn) node->uidinfo->destroy_fn(inst, node);
}

// Children are not taken off their parent one by one: it goes with them.
void qmib::qmibtree_free_subtree(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_node* twin) {
  qmibtree_node* next = is_param(node) ? nullptr : node->first_child;
  qmibtree_node* twins_child = twin ? twin->first_child : nullptr;
  while (qmibtree_node* const child = next) {
    next = child->next;
    qmibtree_free_subtree(inst, child, is_instance(child) ? next : twins_child);
    if (twins_child) twins_child = twins_child->next;
  }
  qmibtree_hash_unlink_uid_behind(inst->uid_hash, node, twin);
  if (node->fullName) qmibtree_hash_unlink_hashed(inst->name_hash, node);
  qmibtree_notif_del_event(inst->notif, node);
  qfree(const_cast<char*>(node->fullName));
  if (node->name != node->uidinfo->name) qfree(const_cast<char*>(node->name));
  qmibtree_value_release(&node->value);
  qmibtree_value_release(&node->default_value);
  qfree(node);
}

qmib::instance_name::instance_name(uint32_t instance) {
  constexpr size_t kLongest = 4;
  const number decimal(static_cast<int32_t>(instance));
  decimal.put(text_);
  text_[decimal.length()] = '.';
  length_ = decimal.length() < kLongest ? decimal.length() + 1 : kLongest;
  text_[length_] = '\0';
}

// Deliberate: the number of the highest instance is handed out again once that instance is gone,
// a lower one's never is while a higher lives. Kept by node_test.cc and object_test.cc.
void qmib::qmibtree_recompute_last_instance(qmibtree_node* template_node) {
  template_node->last_instance = 0;
  for (const qmibtree_node* child = template_node->first_child; child; child = child->next)
    if (child->instance > template_node->last_instance)
      template_node->last_instance = child->instance;
}

qmibtree_node* qmibtree_populate_root(qmibtree_inst_t* inst) {
  qmibtree_uidinfo_t* const record = find_uidinfo_from_uid(inst, 0);
  return record ? qmibtree_build_node(inst, nullptr, record, kNeutralRight) : nullptr;
}

qmibtree_node* qmibtree_build_node(qmibtree_inst_t* inst, qmibtree_node* parent,
                                   qmibtree_uidinfo_t* record, uint32_t right) {
  return build(inst, parent, name_above(parent), record, right);
}

uint32_t qmibtree_destroy_node(qmibtree_inst_t* inst, qmibtree_node* node) {
  qmib::qmibtree_call_destroy_hooks(inst, node);
  remove_subtree(inst, node);
  return QMIBTREE_RC_OK;
}
