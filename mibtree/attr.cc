#include "mibtree/mibtree_internal.hh"

namespace {

// What an attribute bit does to a node's flags. The first bit of a group that is given counts.
struct attr_rule {
  uint32_t attr;
  uint32_t clears;
  uint32_t sets;
};

constexpr uint32_t kNotified = QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE;

constexpr attr_rule notif_rules[] = {
    {QMIBTREE_ATTR_NOTIF_ACTIVE, kNotified, QMIBTREE_NODE_NOTIF_ACTIVE},
    {QMIBTREE_ATTR_NOTIF_PASSIVE, kNotified, QMIBTREE_NODE_NOTIF_PASSIVE},
    {QMIBTREE_ATTR_NOTIF_OFF, kNotified, 0},
};
constexpr attr_rule access_rules[] = {
    {QMIBTREE_ATTR_ACCESS_SUBSCRIBER, QMIBTREE_NODE_ACCESS, QMIBTREE_NODE_ACCESS},
    {QMIBTREE_ATTR_ACCESS_NONE, QMIBTREE_NODE_ACCESS, 0},
};

template <size_t kCount>
void apply(const attr_rule (&rules)[kCount], qmibtree_node* node, uint32_t attr) {
  for (const attr_rule& rule : rules) {
    if ((attr & rule.attr) == 0) continue;
    node->flags = (node->flags & ~rule.clears) | rule.sets;
    return;
  }
}

uint32_t notif_attr(const qmibtree_node* node) {
  if ((node->flags & QMIBTREE_NODE_NOTIF_ACTIVE) != 0) return QMIBTREE_ATTR_NOTIF_ACTIVE;
  if ((node->flags & QMIBTREE_NODE_NOTIF_PASSIVE) != 0) return QMIBTREE_ATTR_NOTIF_PASSIVE;
  return QMIBTREE_ATTR_NOTIF_OFF;
}

uint32_t access_attr(const qmibtree_node* node) {
  return (node->flags & QMIBTREE_NODE_ACCESS) != 0 ? QMIBTREE_ATTR_ACCESS_SUBSCRIBER
                                                   : QMIBTREE_ATTR_ACCESS_NONE;
}

}  // namespace

uint32_t qmibtree_set_attr(qmibtree_inst_t* inst, const char* name, uint32_t attr) {
  return qmib::on_named_node(
      inst, name, [=](qmibtree_node* node) { return qmibtree_set_attr_by_node(inst, node, attr); });
}

uint32_t qmibtree_set_attr_by_node(qmibtree_inst_t* inst, qmibtree_node* node, uint32_t attr) {
  (void)inst;
  apply(notif_rules, node, attr);
  apply(access_rules, node, attr);
  return QMIBTREE_RC_OK;
}

uint32_t qmibtree_get_attr(qmibtree_inst_t* inst, const char* name, uint32_t* attr) {
  return qmib::on_named_node(
      inst, name, [=](qmibtree_node* node) { return qmibtree_get_attr_by_node(inst, node, attr); });
}

uint32_t qmibtree_get_attr_by_node(qmibtree_inst_t* inst, qmibtree_node* node, uint32_t* attr) {
  (void)inst;
  *attr = notif_attr(node) | access_attr(node);
  return QMIBTREE_RC_OK;
}
