// The tree as a configuration document.
#include "config/config_internal.hh"
#include "util/append.hh"

namespace {

using qmib::append;
using qmib::digits;
using qmib::failed;
using qmib::number;
using qmib::piece;

constexpr int32_t kDepthLimit = 255;

// The deepest element that is open, null at first: the walk's cookie.
using open_element = qmibtree_node*;

// Whether a parameter is written, and whether its value is.
struct saved_parts {
  bool element;
  bool value;
};

constexpr uint32_t kAttributes =
    QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE | QMIBTREE_NODE_ACCESS;

saved_parts parts_of(const qmibtree_node* node) {
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
  return append(buff, "<", node->name, ">\n");
}

uint32_t open_instance(qmibtree_buff_t* buff, const qmibtree_node* node) {
  const bool neutral = node->right == 255;
  const digits instance(number(static_cast<int32_t>(node->instance)));
  const digits right(number(static_cast<int32_t>(node->right)));
  const piece pieces[] = {
      piece("<"),     piece(node->parent->name),           piece(" instance=\""),
      instance.get(), piece(neutral ? "" : "\" right=\""), neutral ? piece("") : right.get(),
      piece("\">\n")};
  return qmib::append_pieces(buff, pieces, sizeof pieces / sizeof *pieces);
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
  return append(buff, " notification=\"", active ? "2" : "1", "\"");
}

#ifndef __OPTIMIZE_SIZE__

// Writes the element of a parameter in one step; false where it does not fit. Always inline:
// handing a number over costs as much as writing it.
template <typename Text>
[[gnu::always_inline]] inline bool write_whole(qmibtree_buff_t* buff, const char* name, Text text) {
  return qmib::append_whole(buff, piece("<PARAM name=\""), piece(name), piece("\">"), text,
                            piece("</PARAM>\n"));
}

bool write_int(qmibtree_buff_t* buff, const char* name, const qmibtree_value_t& value) {
  return write_whole(buff, name, number(value.i));
}
bool write_uint(qmibtree_buff_t* buff, const char* name, const qmibtree_value_t& value) {
  return write_whole(buff, name, number(value.u));
}
bool write_string(qmibtree_buff_t* buff, const char* name, const qmibtree_value_t& value) {
  return value.str && write_whole(buff, name, piece(value.str));
}
bool write_bool(qmibtree_buff_t* buff, const char* name, const qmibtree_value_t& value) {
  return write_whole(buff, name, value.b ? piece("true") : piece("false"));
}

// By type id: the types whose text is at hand, or is counted without being made.
using write_fn = bool (*)(qmibtree_buff_t* buff, const char* name, const qmibtree_value_t& value);
constexpr write_fn writers[] = {nullptr,      nullptr, write_int, write_uint,
                                write_string, nullptr, nullptr,   write_bool};
static_assert(sizeof writers / sizeof *writers == 8 && QMIBTREE_TYPE_BOOL == 7);

// The usual parameter, without attributes and of a stored value, in one step. False where it is not
// one, or does not fit: then it goes step by step, and is cut where that cuts. Two fifths of the
// time of the steps; a build for size does without.
bool write_usual_param(const qmibtree_node* node, qmibtree_buff_t* buff) {
  if ((node->flags & kAttributes) != 0 || qmib::is_dynamic(node)) return false;
  const write_fn write = writers[node->value.type & 7];  // a stored value has no other type
  return write && write(buff, node->name, node->value);
}

#else
bool write_usual_param(const qmibtree_node*, qmibtree_buff_t*) { return false; }
#endif

// Not inline: it would double the frame of the usual way past it.
[[gnu::noinline]] uint32_t write_param_by_steps(qmibtree_inst_t* inst, qmibtree_node* node,
                                                qmibtree_buff_t* buff, bool with_value) {
  uint32_t rc = append(buff, "<PARAM name=\"", node->name, "\"");
  if (!failed(rc)) rc = write_notification(buff, node);
  if (!failed(rc) && (node->flags & QMIBTREE_NODE_ACCESS) != 0)
    rc = append(buff, piece(" accesslist=\"subscriber\""));
  if (!failed(rc) && !with_value) rc = append(buff, piece(" ignorevalue=\"yes\""));
  if (!failed(rc)) rc = append(buff, piece(">"));
  if (!failed(rc) && with_value)
    rc = qmibtree_dump_rawvalue(inst, node, buff, 0, nullptr, QMIBTREE_PHASE_ENTER);
  return failed(rc) ? rc : append(buff, piece("</PARAM>\n"));
}

// Deliberate: the value goes out as it is, nothing is escaped, and a text with "<" or "&" makes the
// document unreadable. Hosts keep such characters out of saved values; kept by xml_write_test.cc.
uint32_t write_param(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                     open_element* open) {
  const saved_parts parts = parts_of(node);
  if (!parts.element) return QMIBTREE_RC_OK;
  uint32_t rc = QMIBTREE_RC_OK;
  if (*open != node->parent) rc = qmibtree_xml_open_parents(buff, node->parent, *open);
  *open = node->parent;
  if (failed(rc) || (parts.value && write_usual_param(node, buff))) return rc;
  return write_param_by_steps(inst, node, buff, parts.value);
}

uint32_t leave(qmibtree_buff_t* buff, qmibtree_node* node, open_element* open) {
  if (*open != node) return QMIBTREE_RC_OK;  // nothing below it was written
  const qmibtree_node* const named = qmib::is_instance(node) ? node->parent : node;
  *open = named->parent;
  return append(buff, "</", named->name, ">\n");
}

// An instance is one whatever else it is: a hook may have made a parameter into one.
bool is_plain_param(const qmibtree_node* node) {
  constexpr uint32_t kKinds = QMIBTREE_NODE_PARAM | QMIBTREE_NODE_INSTANCE;
  return (node->flags & kKinds) == QMIBTREE_NODE_PARAM;
}

// An object and what is below it, down to `depth` levels: qmibtree_dump without a call through a
// pointer on the way into each node and out of it.
uint32_t write_object(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                      int32_t depth, open_element* open) {
  const bool is_template = qmib::is_template(node);
  uint32_t rc = QMIBTREE_RC_OK;
  // Other objects are opened once something below them is written.
  if (!is_template && qmib::is_instance(node)) rc = enter_instance(buff, node, open);
  qmibtree_node* child = depth > 1 && !qmib::is_param(node) ? node->first_child : nullptr;
  for (; child && !failed(rc); child = child->next) {
    if (child->next) {  // on its way while this one is written: a twentieth of a large save
      __builtin_prefetch(child->next);
      __builtin_prefetch(&child->next->value);
    }
    rc = is_plain_param(child) ? write_param(inst, child, buff, open)
                               : write_object(inst, child, buff, depth - 1, open);
  }
  return failed(rc) || is_template ? rc : leave(buff, node, open);
}

}  // namespace

uint32_t qmibtree_xml_dump_config(qmibtree_inst_t* inst, const char* name, qmibtree_buff_t* buff,
                                  uint32_t flags) {
  (void)flags;
  const uint32_t rc = qmibtree_buff_dump(buff, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  if (failed(rc)) return rc;
  open_element open = nullptr;
  qmibtree_node* const top = name ? qmibtree_find_node_by_name(inst, name) : inst->root;
  if (!top) return QMIBTREE_RC_NOT_FOUND;
  return is_plain_param(top) ? write_param(inst, top, buff, &open)
                             : write_object(inst, top, buff, kDepthLimit, &open);
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
