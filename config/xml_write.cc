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

// In one step, where the build is not for size and there is room.
[[gnu::always_inline]] inline uint32_t write_tag(qmibtree_buff_t* buff, const char* before,
                                                 const char* name, const char* after) {
#ifndef __OPTIMIZE_SIZE__
  if (qmib::append_whole(buff, piece(before), piece(name), piece(after))) return QMIBTREE_RC_OK;
#endif
  return append(buff, before, name, after);
}

// Writes the open tags from just below `stop` down to `node`, top first.
uint32_t qmibtree_xml_open_parents(qmibtree_buff_t* buff, const qmibtree_node* node,
                                   const qmibtree_node* stop) {
  if (!node || node == stop) return QMIBTREE_RC_OK;
  const uint32_t rc = qmibtree_xml_open_parents(buff, node->parent, stop);
  if (failed(rc) || qmib::is_template(node)) return rc;  // a template has no element of its own
  return write_tag(buff, "<", node->name, ">\n");
}

// Not inline: its texts would lie in the frame of each level of the walk.
[[gnu::noinline]] uint32_t open_instance(qmibtree_buff_t* buff, const qmibtree_node* node) {
  const bool neutral = node->right == 255;
  const piece name(node->parent->name);
  const number instance(static_cast<int32_t>(node->instance));
#ifndef __OPTIMIZE_SIZE__
  if (neutral &&
      qmib::append_whole(buff, piece("<"), name, piece(" instance=\""), instance, piece("\">\n")))
    return QMIBTREE_RC_OK;
#endif
  const digits instance_text(instance);
  const digits right_text(number(static_cast<int32_t>(node->right)));
  const piece pieces[] = {piece("<"),
                          name,
                          piece(" instance=\""),
                          instance_text.get(),
                          piece(neutral ? "" : "\" right=\""),
                          neutral ? piece("") : right_text.get(),
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

// What stands around the name and the value of a parameter without attributes.
constexpr char kBefore[] = "<PARAM name=\"", kBetween[] = "\">", kAfter[] = "</PARAM>\n";
constexpr size_t kAround = sizeof kBefore + sizeof kBetween + sizeof kAfter - 3;

// Puts such an element without a NUL; the end of it, null where there is no room for it and a NUL.
// Always inline: handing a number over costs as much as writing it.
template <typename Text>
[[gnu::always_inline]] inline char* put_param(char* to, size_t room, const char* name, Text text) {
  const size_t name_length = std::strlen(name);
  if (kAround + name_length + text.length() >= room) return nullptr;
  const auto put = [&to](const char* from, size_t length) {
    std::memcpy(to, from, length);
    to += length;
  };
  put(kBefore, sizeof kBefore - 1);
  put(name, name_length);
  put(kBetween, sizeof kBetween - 1);
  text.put(to);
  to += text.length();
  put(kAfter, sizeof kAfter - 1);
  return to;
}

number text_of_int(const qmibtree_value_t& value) { return number(value.i); }
number text_of_uint(const qmibtree_value_t& value) { return number(value.u); }
piece text_of_string(const qmibtree_value_t& value) {
  return piece(value.str ? value.str : "<null>");
}
piece text_of_bool(const qmibtree_value_t& value) {
  return value.b ? piece("true") : piece("false");
}

// What `use` makes of the text of a value that is at hand, or is counted without being made;
// nothing of other values. With a table of functions a save takes 15 to 40 % longer.
template <typename Use>
[[gnu::always_inline]] inline auto with_text(const qmibtree_value_t& value, Use use) {
  switch (value.type) {
    case QMIBTREE_TYPE_INT:
      return use(text_of_int(value));
    case QMIBTREE_TYPE_UINT:
      return use(text_of_uint(value));
    case QMIBTREE_TYPE_STRING:
      return use(text_of_string(value));
    case QMIBTREE_TYPE_BOOL:
      return use(text_of_bool(value));
    default:
      return decltype(use(text_of_bool(value))){};
  }
}

// The usual parameter: no instance, no attributes, its value is stored and is written.
bool is_usual(const qmibtree_node* node) {
  constexpr uint32_t kUnusual = kAttributes | QMIBTREE_NODE_INSTANCE;
  if ((node->flags & (kUnusual | QMIBTREE_NODE_PARAM)) != QMIBTREE_NODE_PARAM) return false;
  return !qmib::is_dynamic(node) && parts_of(node).value;
}

// The next one is on its way while a node is written: a twentieth of a large save.
void prefetch_next(const qmibtree_node* node) {
  if (!node->next) return;
  __builtin_prefetch(node->next);
  __builtin_prefetch(&node->next->value);
}

qmibtree_node* count_usual_params(qmibtree_node* node, qmibtree_buff_t* buff) {
  size_t size = 0;
  for (; node; node = node->next) {
    prefetch_next(node);
    if (!is_usual(node)) break;
    const size_t length =
        with_text(node->value, [](auto text) -> size_t { return kAround + text.length(); });
    if (length == 0) break;
    size += length + std::strlen(node->name);
  }
  buff->size += static_cast<uint32_t>(size);
  return node;
}

// Writes usual parameters from `node` on in one step each; the sibling that it stops at, which is
// not one or does not fit: that goes step by step, and is cut where that cuts. A fourth of the
// time of the steps; a build for size does without.
qmibtree_node* write_usual_params(qmibtree_node* node, qmibtree_buff_t* buff) {
  if (!buff->pos) return count_usual_params(node, buff);
  char* to = buff->pos;
  size_t room = buff->left;
  for (; node; node = node->next) {
    prefetch_next(node);
    if (!is_usual(node)) break;
    char* const end =
        with_text(node->value, [=](auto text) { return put_param(to, room, node->name, text); });
    if (!end) break;
    room -= static_cast<size_t>(end - to);
    to = end;
  }
  if (to == buff->pos) return node;
  *to = '\0';
  buff->pos = to;
  buff->left = static_cast<uint32_t>(room);
  return node;
}

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

// Opens what a parameter stands in.
uint32_t open_around(const qmibtree_node* param, qmibtree_buff_t* buff, open_element* open) {
  if (*open == param->parent) return QMIBTREE_RC_OK;
  const uint32_t rc = qmibtree_xml_open_parents(buff, param->parent, *open);
  *open = param->parent;
  return rc;
}

// Deliberate: the value goes out as it is, nothing is escaped, and a text with "<" or "&" makes the
// document unreadable. Hosts keep such characters out of saved values; kept by xml_write_test.cc.
uint32_t write_param(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                     open_element* open) {
  const saved_parts parts = parts_of(node);
  if (!parts.element) return QMIBTREE_RC_OK;
  const uint32_t rc = open_around(node, buff, open);
  return failed(rc) ? rc : write_param_by_steps(inst, node, buff, parts.value);
}

// A parameter, and the usual ones among those behind it; `*next` is the sibling to go on with.
uint32_t write_params(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_buff_t* buff,
                      open_element* open, qmibtree_node** next) {
#ifndef __OPTIMIZE_SIZE__
  if (parts_of(node).element) {
    const uint32_t rc = open_around(node, buff, open);
    if (failed(rc)) return rc;
    *next = write_usual_params(node, buff);
    if (*next != node) return QMIBTREE_RC_OK;
  }
#endif
  const uint32_t rc = write_param(inst, node, buff, open);
  *next = node->next;
  return rc;
}

uint32_t leave(qmibtree_buff_t* buff, qmibtree_node* node, open_element* open) {
  if (*open != node) return QMIBTREE_RC_OK;  // nothing below it was written
  const qmibtree_node* const named = qmib::is_instance(node) ? node->parent : node;
  *open = named->parent;
  return write_tag(buff, "</", named->name, ">\n");
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
  uint32_t rc = QMIBTREE_RC_OK;
  // Other objects are opened once something below them is written.
  if (qmib::is_instance(node)) rc = enter_instance(buff, node, open);
  qmibtree_node* child = depth > 1 && !qmib::is_param(node) ? node->first_child : nullptr;
  while (child && !failed(rc)) {
    if (is_plain_param(child)) {
      rc = write_params(inst, child, buff, open, &child);
    } else {
      rc = write_object(inst, child, buff, depth - 1, open);
      child = child->next;
    }
  }
  // A template is not left: a hook may have made an instance of it a parameter, which opened it.
  return failed(rc) || qmib::is_template(node) ? rc : leave(buff, node, open);
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
