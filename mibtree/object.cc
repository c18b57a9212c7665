#include "mibtree/mibtree_internal.hh"

uint32_t qmibtree_add_object(qmibtree_inst_t* inst, const char* name, uint32_t* instance,
                             uint32_t opt, uint32_t right) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    return qmibtree_add_object_by_node(inst, node, instance, opt, right);
  });
}

uint32_t qmibtree_add_object_by_node(qmibtree_inst_t* inst, qmibtree_node* template_node,
                                     uint32_t* instance, uint32_t opt, uint32_t right) {
  (void)opt;
  if (!instance || !qmib::is_template(template_node)) return QMIBTREE_RC_ERROR;
  const uint32_t wished = *instance;
  if (wished != 0 && qmib::qmibtree_hash_lookup_instance(inst->name_hash, template_node, wished))
    return QMIBTREE_RC_ERROR;
  ++inst->obj_changes;
  ++template_node->added;
  // Deliberate: a wish at or below the next number is not honoured, so that numbers only grow
  // while the highest instance lives. Kept by object_test.cc.
  ++template_node->last_instance;
  if (wished > template_node->last_instance) template_node->last_instance = wished;
  qmibtree_node* const added =
      qmibtree_build_node(inst, template_node, template_node->uidinfo, right);
  if (!added) {
    qmib::qmibtree_recompute_last_instance(template_node);
    return QMIBTREE_RC_ERROR;
  }
  *instance = added->instance;  // not last_instance: a create_fn may have added further ones
  return QMIBTREE_RC_OK;
}

uint32_t qmibtree_del_object(qmibtree_inst_t* inst, const char* name, uint32_t opt) {
  return qmib::on_named_node(inst, name, [=](qmibtree_node* node) {
    return qmibtree_del_object_by_node(inst, node, opt);
  });
}

uint32_t qmibtree_del_object_by_node(qmibtree_inst_t* inst, qmibtree_node* node, uint32_t opt) {
  (void)opt;
  if (!qmib::is_instance(node)) return QMIBTREE_RC_ERROR;
  qmibtree_node* const template_node = node->parent;
  qmibtree_destroy_node(inst, node);
  ++inst->obj_changes;
  ++template_node->deleted;
  return QMIBTREE_RC_OK;
}
