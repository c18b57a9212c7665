// The tree as a configuration document.
#include "config/config_internal.hh"

namespace {

using qmib::failed;

constexpr int32_t kDepthLimit = 255;

// The deepest element that is open, null at first: the walk's cookie.
using open_element = qmibtree_node*;

// Whether a parameter is written, and whether its value is.
struct saved_parts {
  bool element;
  bool value;
};

saved_parts parts_of(const qmibtree_node* node) {
  constexpr uint32_t kAttributes =
      QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE | QMIBTREE_NODE_ACCESS;
  const uint32_t rules = node->uidinfo->flags;
  const bool value =
      (rules & QMIBTREE_UID_SAVE) != 0 ||
      ((rules & QMIBTREE_UID_SAVE_MODIFIED) != 0 && (node->flags & QMIBTREE_NODE_MODIFIED) != 0);
  return {value || (node->flags & kAttributes) != 0, value};
}

// Writes the open tags from just below `stop` down to `node`, top first.
uint32_t qmibtree_xml_open_parents(qmibtree_buff_t* buff, const qmibtree_node* node,
                                   const qmibtree_node* stop) {
  if (!node || node == stop) return QMIBTREE_RC_OK;
  const uint32_t rc = qmibtree_xml_open_parents(buff, node->parent, stop);
  if (failed(rc) || qmib::is_template(node)) return rc;  // a template has no element of its own
  return qmibtree_buff_dump(buff, "<%s>\n", node->name);
}

uint32_t open_instance(qmibtree_buff_t* buff, const qmibtree_node* node) {
  const char* const name = node->parent->name;
  const auto number = static_cast<int>(node->instance);
  if (node->right == 255) return qmibtree_buff_dump(buff, "<%s instance=\"%d\">\n", name, number);
  return qmibtree_buff_dump(buff, "<%s instance=\"%d\" right=\"%d\">\n", name, number,
                            static_cast<int>(node->right));
}

uint32_t enter_instance(qmibtree_buff_t* buff, qmibtree_node* node, open_element* open) {
  uint32_t rc = qmibtree_xml_open_parents(buff, node->parent, *open);
  if (!failed(rc)) rc = open_instance(buff, node);
  *open = node;
  return rc;
}

uint32_t write_notification(qmibtree_buff_t* buff, const qmibtree_node* node) {
  if ((node->flags & (QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE)) == 0)
    return QMIBTREE_RC_OK;
  const bool active = (node->flags & QMIBTREE_NODE_NOTIF_ACTIVE) != 0;
  return qmibtree_buff_dump(buff, " notification=\"%d\"", active ? 2 : 1);
}

// Deliberate: the value goes out as it is, nothing is escaped, and a text with "<" or "&" makes the
// document unreadable. Hosts keep such characters out of saved values; kept by xml_write_test.cc.
uint32_t write_param(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                     int32_t level, bool with_value) {
  uint32_t rc = qmibtree_buff_dump(buff, "<PARAM name=\"%s\"", node->name);
  if (!failed(rc)) rc = write_notification(buff, node);
  if (!failed(rc) && (node->flags & QMIBTREE_NODE_ACCESS) != 0)
    rc = qmibtree_buff_dump(buff, " accesslist=\"subscriber\"");
  if (!failed(rc) && !with_value) rc = qmibtree_buff_dump(buff, " ignorevalue=\"yes\"");
  if (!failed(rc)) rc = qmibtree_buff_dump(buff, ">");
  if (!failed(rc) && with_value)
    rc = qmibtree_dump_rawvalue(inst, node, buff, level, nullptr, QMIBTREE_PHASE_ENTER);
  return failed(rc) ? rc : qmibtree_buff_dump(buff, "</PARAM>\n");
}

uint32_t enter_param(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                     int32_t level, open_element* open) {
  const saved_parts parts = parts_of(node);
  if (!parts.element) return QMIBTREE_RC_OK;
  uint32_t rc = qmibtree_xml_open_parents(buff, node->parent, *open);
  if (!failed(rc)) rc = write_param(inst, node, buff, level, parts.value);
  *open = node->parent;
  return rc;
}

uint32_t leave(qmibtree_buff_t* buff, qmibtree_node* node, open_element* open) {
  if (*open != node) return QMIBTREE_RC_OK;  // nothing below it was written
  const qmibtree_node* const named = qmib::is_instance(node) ? node->parent : node;
  *open = named->parent;
  return qmibtree_buff_dump(buff, "</%s>\n", named->name);
}

uint32_t qmibtree_xml_dump_node(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx,
                                int32_t level, void* cookie, uint32_t phase) {
  auto* const buff = static_cast<qmibtree_buff_t*>(ctx);
  auto* const open = static_cast<open_element*>(cookie);
  if (qmib::is_template(node)) return QMIBTREE_RC_OK;
  if (phase == QMIBTREE_PHASE_LEAVE) return leave(buff, node, open);
  if (qmib::is_instance(node)) return enter_instance(buff, node, open);
  if (!qmib::is_param(node)) return QMIBTREE_RC_OK;  // opened once something below it is written
  return enter_param(inst, node, buff, level, open);
}

}  // namespace

uint32_t qmibtree_xml_dump_config(qmibtree_inst_t* inst, const char* name, qmibtree_buff_t* buff,
                                  uint32_t flags) {
  (void)flags;
  const uint32_t rc = qmibtree_buff_dump(buff, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  if (failed(rc)) return rc;
  open_element open = nullptr;
  return qmibtree_dump(inst, name, buff, kDepthLimit, qmibtree_xml_dump_node, &open);
}

uint32_t qmibtree_xml_dump_config_to_file(qmibtree_inst_t* inst, const char* name, const char* path,
                                          int32_t offset, uint32_t* length, uint32_t flags) {
  qmibtree_buff_t counted = {};
  uint32_t rc = qmibtree_xml_dump_config(inst, name, &counted, flags);
  if (failed(rc)) return rc;
  *length = counted.size;
  const qmib::owned<qmibtree_buff_t> buff = qmib::qmibtree_buff_create(counted.size);
  // Deliberate: without memory for the text nothing is written and the answer is a success. Hosts
  // go on as after any save; the next one brings the file up to date. Kept by xml_write_test.cc.
  if (!buff) return rc;
  rc = qmibtree_xml_dump_config(inst, name, buff.get(), flags);
  if (failed(rc)) return rc;
  rc = qmibtree_buff_dump_to_file(buff.get(), path, offset);
  *length = static_cast<uint32_t>(buff->pos - buff->start);
  std::printf("\n **********+=+ length = %d ********\n", static_cast<int>(*length));
  return rc;
}
