#include "mibtree/mibtree_internal.hh"

namespace {

constexpr uint32_t kUidBuckets = 2000;  // one for each unique id that a schema may have

void free_indexes_and_queue(qmibtree_inst_t* inst) {
  qmibtree_hash_destroy(inst->name_hash);
  qmibtree_hash_destroy(inst->uid_hash);
  qmibtree_notif_destroy(inst->notif);
}

template <typename Hook>
void take_over(Hook* target, Hook offered) {
  if (!*target && offered) *target = offered;
}

}  // namespace

constinit uint32_t qmibtree_global_status = 0;

qmibtree_inst_t* qmibtree_init(qmibtree_schema_t* schema) {
  qmib::owned<qmibtree_inst_t> inst = qmib::make_zeroed<qmibtree_inst_t>("qmibtree_inst_t");
  if (!inst) return nullptr;
  inst->name_hash = qmibtree_hash_create(0, qmib::kNameBuckets);
  inst->uid_hash = qmibtree_hash_create(1, kUidBuckets);  // may be null: finds nothing then
  inst->notif = qmibtree_notif_create();
  inst->schema_tag = schema->schema_tag;
  inst->uidinfo_num = schema->uidinfo_num;
  inst->uidinfo = schema->uidinfo;
  if (inst->name_hash && inst->notif) inst->root = qmibtree_populate_root(inst.get());
  if (inst->root) return inst.release();
  free_indexes_and_queue(inst.get());
  return nullptr;
}

uint32_t qmibtree_destroy(qmibtree_inst_t* inst) {
  qmib::qmibtree_call_destroy_hooks(inst, inst->root);
  // Nobody asks them any more, and to take each node out of long chains would take most of the
  // time.
  qmib::qmibtree_hash_empty(inst->name_hash);
  qmib::qmibtree_hash_empty(inst->uid_hash);
  qmibtree_notif_cleanup(inst->notif);
  qmib::qmibtree_free_subtree(inst, inst->root, nullptr);
  free_indexes_and_queue(inst);
  qfree(inst);
  return QMIBTREE_RC_OK;
}

uint32_t qmibtree_reg_uidinfo(qmibtree_inst_t* inst, int32_t uid,
                              const qmibtree_uidinfo_t* record) {
  if (!inst || !record) return QMIBTREE_RC_ERROR;
  qmibtree_uidinfo_t* const target = find_uidinfo_from_uid(inst, uid);
  if (!target) return QMIBTREE_RC_OK;
  target->flags = record->flags;
  take_over(&target->create_fn, record->create_fn);
  take_over(&target->destroy_fn, record->destroy_fn);
  take_over(&target->set_fn, record->set_fn);
  take_over(&target->get_fn, record->get_fn);
  for (size_t i = 0; i < sizeof target->ext_fn / sizeof *target->ext_fn; ++i)
    take_over(&target->ext_fn[i], record->ext_fn[i]);
  return QMIBTREE_RC_OK;
}

qmibtree_uidinfo_t* find_uidinfo_from_uid(qmibtree_inst_t* inst, int32_t uid) {
  if (uid < 0 || static_cast<uint32_t>(uid) >= inst->uidinfo_num) return nullptr;
  return &inst->uidinfo[uid];
}
