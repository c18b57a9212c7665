#include <cstring>

#include "mibtree/mibtree_internal.hh"

qmibtree_node* qmibtree_find_node_by_name(qmibtree_inst_t* inst, const char* name) {
  return qmibtree_hash_lookup_name(inst->name_hash, name);
}

qmibtree_node* qmibtree_find_node_by_name_v2(qmibtree_inst_t* inst, const char* prefix,
                                             const char* suffix) {
  return qmibtree_find_node_by_name(inst, qmib::joined_name(prefix, suffix).get());
}

uint32_t qmibtree_get_arg(qmibtree_inst_t* inst, const char* name) {
  const qmibtree_node* const node = qmibtree_find_node_by_name(inst, name);
  return node ? node->arg : 0;
}

uint32_t qmibtree_get_arg_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix) {
  return qmibtree_get_arg(inst, qmib::joined_name(prefix, suffix).get());
}

int32_t qmibtree_get_childnum(qmibtree_inst_t* inst, const char* name) {
  const qmibtree_node* const node = qmibtree_find_node_by_name(inst, name);
  return node ? static_cast<int32_t>(node->childnum) : -1;
}

uint32_t qmibtree_lookup(qmibtree_inst_t* inst, const char* name, uint32_t uid,
                         qmibtree_walk_fn_t fn, void* arg) {
  uint32_t rc = QMIBTREE_RC_OK;
  qmibtree_node* next = nullptr;
  for (qmibtree_node* node = qmibtree_hash_lookup_uid(inst->uid_hash, uid); node; node = next) {
    next = qmibtree_hash_lookup_uid_next(node, uid);  // first: the callback may delete the node
    if (qmib::is_template(node)) continue;
    if (name && std::strcmp(name, node->fullName) != 0) continue;
    if (rc = fn(inst, node, arg); qmib::failed(rc)) break;
  }
  return rc;
}
