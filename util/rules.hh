// The few questions that every folder asks of a result or a node.
#ifndef UTIL_RULES_HH
#define UTIL_RULES_HH

#include "qmibtree.h"

namespace qmib {

inline bool failed(uint32_t rc) { return rc >= QMIBTREE_RC_ERROR; }

inline bool is_param(const qmibtree_node* node) { return (node->flags & QMIBTREE_NODE_PARAM) != 0; }

inline bool is_instance(const qmibtree_node* node) {
  return (node->flags & QMIBTREE_NODE_INSTANCE) != 0;
}

// The host owns the value: every read asks its get_fn.
inline bool is_dynamic(const qmibtree_node* node) {
  return (node->uidinfo->flags & QMIBTREE_UID_DYNAMIC) != 0;
}

// The {i} of the data model: a multi-instance object that is not one of its instances.
inline bool is_template(const qmibtree_node* node) {
  return !is_param(node) && (node->uidinfo->flags & QMIBTREE_UID_MULTI) != 0 && !is_instance(node);
}

}  // namespace qmib

#endif
