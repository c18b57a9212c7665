#include "mibtree/mibtree_internal.hh"

namespace {

bool always_active(const qmibtree_node* node) {
  return (node->uidinfo->flags & QMIBTREE_UID_NOTIF_FORCED) != 0;
}

bool wants_events(const qmibtree_node* node) {
  constexpr uint32_t kNotified = QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE;
  return always_active(node) || (node->flags & kNotified) != 0;
}

// The index of the node's live entry, `num` without one.
uint32_t find_entry(const qmibtree_notif_t* queue, const qmibtree_node* node) {
  uint32_t index = 0;
  while (index < queue->num && queue->entries[index].node != node) ++index;
  return index;
}

// Deliberate: "add" drops the event as "del" does, and never queues one. Hosts call it to
// acknowledge an event; kept by notif_test.cc.
void del_event_by_name(qmibtree_inst_t* inst, const char* name) {
  qmibtree_node* const node = qmibtree_find_node_by_name(inst, name);
  if (node) qmibtree_notif_del_event(inst->notif, node);
}

}  // namespace

qmibtree_notif_t* qmibtree_notif_create() {
  // Zeroed, so that a slot which was never used holds a null node and not what the memory held.
  return qmib::make_zeroed<qmibtree_notif_t>("qmibtree_notif_t").release();
}

void qmibtree_notif_destroy(qmibtree_notif_t* queue) { qfree(queue); }

void qmibtree_notif_cleanup(qmibtree_notif_t* queue) { queue->active_num = queue->num = 0; }

void qmibtree_notif_add_event(qmibtree_notif_t* queue, qmibtree_node* node) {
  if (!wants_events(node)) return;
  if (queue->num >= QMIBTREE_NOTIF_MAX) return;
  if (find_entry(queue, node) < queue->num) return;  // stays where it is, active as it was
  const bool active = always_active(node) || (node->flags & QMIBTREE_NODE_NOTIF_ACTIVE) != 0;
  queue->entries[queue->num++] = {node, active};
  if (active) ++queue->active_num;
}

void qmibtree_notif_del_event(qmibtree_notif_t* queue, qmibtree_node* node) {
  const uint32_t index = find_entry(queue, node);
  if (index >= queue->num) return;
  if (queue->entries[index].active) --queue->active_num;
  // Deliberate: the slot is filled from just past the last live entry, not with the last live one.
  // So dropping an earlier event drops the newest too, and what was once removed from that slot
  // is back. Hosts count on the number of entries that are left; kept by notif_test.cc.
  constexpr qmibtree_notif_entry_t kNothing = {nullptr, 0};
  queue->entries[index] = queue->num < QMIBTREE_NOTIF_MAX ? queue->entries[queue->num] : kNothing;
  --queue->num;
}

qmibtree_node* qmibtree_notif_get_event(qmibtree_notif_t* queue, uint32_t index) {
  return index < queue->num ? queue->entries[index].node : nullptr;
}

qmibtree_node* qmibtree_notif_deq_event(qmibtree_notif_t* queue) {
  if (queue->num == 0) return nullptr;
  const qmibtree_notif_entry_t& newest = queue->entries[--queue->num];
  if (newest.active) --queue->active_num;
  return newest.node;
}

void qmibtree_notif_add_event_by_name(qmibtree_inst_t* inst, const char* name) {
  del_event_by_name(inst, name);
}

void qmibtree_notif_del_event_by_name(qmibtree_inst_t* inst, const char* name) {
  del_event_by_name(inst, name);
}

uint32_t qmibtree_notify(qmibtree_inst_t* inst, const char* name, uint32_t arg) {
  return qmib::on_named_node(
      inst, name, [=](qmibtree_node* node) { return qmibtree_notify_by_node(inst, node, arg); });
}

uint32_t qmibtree_notify_v2(qmibtree_inst_t* inst, const char* prefix, const char* suffix,
                            uint32_t arg) {
  return qmibtree_notify(inst, qmib::joined_name(prefix, suffix).get(), arg);
}

uint32_t qmibtree_notify_by_node(qmibtree_inst_t* inst, qmibtree_node* node, uint32_t arg) {
  (void)arg;
  qmibtree_notif_add_event(inst->notif, node);
  return QMIBTREE_RC_OK;
}
