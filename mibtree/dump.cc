#include <cstdio>

#include "mibtree/mibtree_internal.hh"

namespace {

qmibtree_buff_t* buffer_of(void* ctx) { return static_cast<qmibtree_buff_t*>(ctx); }

bool leaving(uint32_t phase) { return (phase & QMIBTREE_PHASE_LEAVE) != 0; }

uint32_t dump_param(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                    int32_t level, uint32_t phase) {
  const char* const type = qmibtree_datatype_get_type_str(node->uidinfo->type);
  const uint32_t rc = qmibtree_buff_dump(buff, "%s (%s) = ", node->fullName, type);
  return qmib::failed(rc) ? rc : qmibtree_dump_rawvalue(inst, node, buff, level, nullptr, phase);
}

}  // namespace

uint32_t qmibtree_dump_dbg(qmibtree_inst_t* inst, qmibtree_node* node, void* buff, int32_t level,
                           void* arg, uint32_t phase) {
  (void)arg;
  if (leaving(phase)) return QMIBTREE_RC_OK;
  qmibtree_buff_t* const text = buffer_of(buff);
  const uint32_t rc = qmibtree_buff_dump(text, "\n%*s", static_cast<int>(level), "");
  if (qmib::failed(rc)) return rc;
  if (qmib::is_param(node)) return dump_param(inst, node, text, level, phase);
  return qmibtree_buff_dump(text, qmib::is_template(node) ? "+%s{i}." : "+%s", node->fullName);
}

uint32_t qmibtree_dump_calc_node_num(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                                     int32_t level, void* counter, uint32_t phase) {
  (void)inst, (void)node, (void)buff, (void)level;
  if (leaving(phase)) ++*static_cast<uint32_t*>(counter);
  return QMIBTREE_RC_OK;
}

uint32_t qmibtree_dump_rawtype(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                               int32_t level, void* arg, uint32_t phase) {
  (void)inst, (void)level, (void)arg;
  if (leaving(phase)) return QMIBTREE_RC_OK;
  return qmibtree_buff_dump(buffer_of(buff), "%s",
                            qmibtree_datatype_get_type_str(node->uidinfo->type));
}

uint32_t qmibtree_dump_rawvalue(qmibtree_inst_t* inst, qmibtree_node* node, void* buff,
                                int32_t level, void* arg, uint32_t phase) {
  (void)level, (void)arg;
  if (leaving(phase)) return QMIBTREE_RC_OK;
  // Not released: a stored value is the node's, and what a get_fn gave stays the host's.
  qmibtree_value_t value = node->value;
  if (qmib::is_dynamic(node)) {
    value = {};
    const uint32_t rc = qmibtree_read_by_node(inst, node, &value, phase);
    if (qmib::failed(rc)) return rc;
  }
  const qmibtree_datafn_t* const fn = qmib::datafn_of(value.type);
  return fn->to_buff ? fn->to_buff(&value, buffer_of(buff)) : QMIBTREE_RC_OK;
}

uint32_t qmibtree_dump_rawdynattr(qmibtree_inst_t* inst, qmibtree_buff_t* buff, int32_t level,
                                  void* arg, uint32_t phase) {
  (void)inst, (void)level, (void)arg;
  return leaving(phase) ? QMIBTREE_RC_OK : qmibtree_buff_dump(buff, "-");
}

uint32_t qmibtree_lookup_dbg(qmibtree_inst_t* inst, qmibtree_node* node, void* arg) {
  (void)inst, (void)arg;
  std::printf("\n[lookup dbg]: %s", node->fullName);
  return QMIBTREE_RC_OK;
}
