// The life of one write: qmibtree_write_by_node.
#include "mibtree/mibtree_internal.hh"

namespace {

constexpr uint32_t kExternal =
    QMIBTREE_WRITE_NOEVENT | QMIBTREE_WRITE_SUBSCRIBER | QMIBTREE_WRITE_APPLY;

bool access_allowed(const qmibtree_node* node, uint32_t flags) {
  if ((node->uidinfo->flags & QMIBTREE_UID_READONLY) != 0) return (flags & kExternal) == 0;
  return (flags & QMIBTREE_WRITE_SUBSCRIBER) == 0 || (node->flags & QMIBTREE_NODE_ACCESS) != 0;
}

uint32_t check_range(const qmibtree_node* node, const qmibtree_value_t* value) {
  const qmibtree_datafn_t* const fn = qmib::datafn_of(value->type);
  return fn->check ? fn->check(node->uidinfo, value) : QMIBTREE_RC_OK;
}

// The hook's answer goes into `*rc`; false when it refused.
bool ask_host(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, uint32_t* rc) {
  const qmibtree_uidinfo_t& record = *node->uidinfo;
  if (record.set_fn) {
    *rc = record.set_fn(inst, node, value);
    return !qmib::failed(*rc);
  }
  // Deliberate: a dynamic parameter without set_fn answers NO_HOOK and is stored all the same.
  // Hosts rely on both; kept by write_test.cc.
  if ((record.flags & QMIBTREE_UID_DYNAMIC) != 0) *rc = QMIBTREE_RC_NO_HOOK;
  return true;
}

void track_default(qmibtree_node* node, const qmibtree_value_t* value) {
  if (qmib::qmibtree_value_same(value, &node->default_value))
    node->flags &= ~QMIBTREE_NODE_MODIFIED;
  else
    node->flags |= QMIBTREE_NODE_MODIFIED;
}

void commit(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, uint32_t flags) {
  if ((flags & kExternal) != 0) qmibtree_comp_mark(node->uidinfo->comp, QMIBTREE_COMP_MARK_CHANGED);
  if ((flags & QMIBTREE_WRITE_NOEVENT) == 0) qmibtree_notif_add_event(inst->notif, node);
  qmib::temp_value replaced;  // until the host was told: `value` may refer to its storage
  qmib::qmibtree_value_store(&node->value, value, replaced.get());
  mibtree_changed_callback2(inst, node, value);
}

}  // namespace

uint32_t qmibtree_write(qmibtree_inst_t* inst, const char* name, const qmibtree_value_t* value,
                        uint32_t flags) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    return qmibtree_write_by_node(inst, node, value, flags);
  });
}

uint32_t qmibtree_write_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix,
                           const qmibtree_value_t* value, uint32_t flags) {
  return qmibtree_write(inst, qmib::joined_name(prefix, suffix).get(), value, flags);
}

uint32_t qmibtree_write_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                const qmibtree_value_t* value, uint32_t flags) {
  auto* const shown = const_cast<qmibtree_value_t*>(value);  // hooks take plain pointers
  uint32_t rc = QMIBTREE_RC_OK;
  if (!access_allowed(node, flags)) return QMIBTREE_RC_NOT_ALLOWED;
  if (rc = check_range(node, value); qmib::failed(rc)) return rc;
  if (!ask_host(inst, node, shown, &rc)) return rc;
  track_default(node, value);  // before the early return: it must also see a repeated value
  if (qmib::qmibtree_value_same(value, &node->value)) return rc;
  commit(inst, node, shown, flags);  // mark, queue, store, call back, in that order
  return rc;
}

uint32_t qmibtree_write_strvalue(qmibtree_inst_t* inst, const char* name, const char* text,
                                 uint32_t flags) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    if (!qmib::is_param(node)) return QMIBTREE_RC_NOT_ALLOWED;
    return qmibtree_write_strvalue_by_node(inst, node, text, flags);
  });
}

uint32_t qmibtree_write_strvalue_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                         const char* text, uint32_t flags) {
  qmib::temp_value parsed(node->uidinfo->type);
  if (parsed.fn()->from_str) {
    const uint32_t rc = parsed.fn()->from_str(parsed.get(), text);
    if (qmib::failed(rc)) return rc;
  }
  return qmibtree_write_by_node(inst, node, parsed.get(), flags);
}

uint32_t qmibtree_write_strvalue_by_uniqueid(qmibtree_inst_t* inst, uint32_t uid, const char* text,
                                             uint32_t flags) {
  uint32_t rc = QMIBTREE_RC_OK;
  qmibtree_node* node = qmibtree_hash_lookup_uid(inst->uid_hash, uid);
  while (node && !qmib::failed(rc)) {
    const char* const name = node->fullName;
    node = qmibtree_hash_lookup_uid_next(node, uid);  // first: the callback may delete what it saw
    rc = qmibtree_write_strvalue(inst, name, text, flags);
  }
  return rc;
}
