#include "mibtree/mibtree_internal.hh"

uint32_t qmibtree_loop(qmibtree_inst_t* inst, const char* name, qmibtree_walk_fn_t fn, void* arg) {
  return qmib::on_named_node_or_root(
      inst, name, [=](qmibtree_node* node) { return qmibtree_loop_by_node(inst, node, fn, arg); });
}

uint32_t qmibtree_loop_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix,
                          qmibtree_walk_fn_t fn, void* arg) {
  return qmibtree_loop(inst, qmib::joined_name(prefix, suffix).get(), fn, arg);
}

uint32_t qmibtree_loop_by_node(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_walk_fn_t fn,
                               void* arg) {
  if (qmib::is_param(node)) return QMIBTREE_RC_ERROR;
  uint32_t rc = QMIBTREE_RC_OK;
  for (qmibtree_node* child = node->first_child; child; child = child->next)
    if (rc = fn(inst, child, arg); qmib::failed(rc)) break;
  return rc;
}

uint32_t qmibtree_dump(qmibtree_inst_t* inst, const char* name, void* ctx, int32_t depth,
                       qmibtree_dump_fn_t fn, void* arg) {
  return qmib::on_named_node_or_root(inst, name, [=](qmibtree_node* node) {
    return qmibtree_dump_by_node(inst, node, ctx, depth, 0, fn, arg);
  });
}

uint32_t qmibtree_dump_by_node(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx, int32_t depth,
                               int32_t level, qmibtree_dump_fn_t fn, void* arg) {
  if (depth <= 0) return QMIBTREE_RC_OK;
  uint32_t rc = fn(inst, node, ctx, level, arg, QMIBTREE_PHASE_ENTER);
  if (qmib::failed(rc)) return rc;
  if (!qmib::is_param(node)) {
    for (qmibtree_node* child = node->first_child; child; child = child->next) {
      rc = qmibtree_dump_by_node(inst, child, ctx, depth - 1, level + 1, fn, arg);
      if (qmib::failed(rc)) return rc;
    }
  }
  return fn(inst, node, ctx, level, arg, QMIBTREE_PHASE_LEAVE);
}

uint32_t qmibtree_load(void* a, void* b, qmibtree_load_fn_t step, void* c) {
  constexpr uint32_t kAgain = 1;
  uint32_t rc = kAgain;
  while (rc == kAgain) rc = step(a, b, c, 0);
  return rc;
}
