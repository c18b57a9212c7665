// Reading, and comparing with what is read.
#include "mibtree/mibtree_internal.hh"

namespace {

uint32_t read_stored(qmibtree_node* node, qmibtree_value_t* value) {
  const qmibtree_datafn_t* const fn = qmib::datafn_of(node->value.type);
  if (fn->assign) fn->assign(value, &node->value);
  return QMIBTREE_RC_OK;
}

uint32_t compare_values(const qmibtree_value_t* value, const qmibtree_value_t* current) {
  if (current->type != value->type) return QMIBTREE_RC_TYPE_MISMATCH;
  const qmibtree_datafn_t* const fn = qmib::datafn_of(value->type);
  if (!fn->equal) return QMIBTREE_RC_NO_HOOK;
  return fn->equal(value, current) ? QMIBTREE_RC_OK : QMIBTREE_RC_DIFFERENT;
}

}  // namespace

uint32_t qmibtree_read(qmibtree_inst_t* inst, const char* name, qmibtree_value_t* value,
                       uint32_t flags) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    return qmibtree_read_by_node(inst, node, value, flags);
  });
}

uint32_t qmibtree_read_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix,
                          qmibtree_value_t* value, uint32_t flags) {
  return qmibtree_read(inst, qmib::joined_name(prefix, suffix).get(), value, flags);
}

uint32_t qmibtree_read_by_node(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                               uint32_t flags) {
  if (!qmib::is_dynamic(node)) return read_stored(node, value);
  if (!node->uidinfo->get_fn) return QMIBTREE_RC_NO_HOOK;
  const uint32_t rc = node->uidinfo->get_fn(inst, node, value, flags);
  if (qmib::failed(rc) || qmib::is_dynamic(node)) return rc;
  // The hook cleared the flag: from now on the tree keeps the value. Without mark, event or
  // callback: nothing was written.
  if (!qmib::qmibtree_value_same(value, &node->value))
    qmib::qmibtree_value_store(&node->value, value);
  return rc;
}

uint32_t qmibtree_compare(qmibtree_inst_t* inst, const char* name, const qmibtree_value_t* value,
                          uint32_t flags) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    return qmibtree_compare_by_node(inst, node, value, flags);
  });
}

uint32_t qmibtree_compare_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix,
                             const qmibtree_value_t* value, uint32_t flags) {
  return qmibtree_compare(inst, qmib::joined_name(prefix, suffix).get(), value, flags);
}

uint32_t qmibtree_compare_by_node(qmibtree_inst_t* inst, qmibtree_node* node,
                                  const qmibtree_value_t* value, uint32_t flags) {
  qmib::temp_value current;
  const uint32_t rc = qmibtree_read_by_node(inst, node, current.get(), flags);
  return qmib::failed(rc) ? rc : compare_values(value, current.get());
}
