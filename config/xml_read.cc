// A configuration document into the tree.
#include <expat.h>

#include <cstring>

#include "config/config_internal.hh"
#include "mibtree/bkdr.hh"
#include "util/decimal.hh"

namespace {

constexpr int32_t kMaxDepth = sizeof qmibtree_xml_load_ctx_t::lengths / sizeof(uint32_t) - 1;
static_assert(kMaxDepth == 31);

// The load's state, as the parser hands it round.
struct loader {
  qmibtree_xml_load_ctx_t ctx;
  XML_Parser parser;
  bool stopped;   // the parser still ends an empty element in whose start it was told to stop
  size_t used;    // length of the path
  uint32_t hash;  // of the path; goes on with each segment, as the names of nodes do
  // A bit for each depth: the element open there is known to name an object, and its text is
  // nothing. Most texts are the line feeds between elements. Known no more once the host added or
  // deleted objects meanwhile: a newer node may have the object's name.
  uint32_t objects;
  uint32_t hashes[kMaxDepth + 1];  // of the path at each of ctx.lengths
};

// What an element's attributes ask for.
struct element {
  uint32_t instance = 0;
  uint32_t right = 255;
  uint32_t attr = 0;
  bool named = false;
};

struct destroy_parser {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using parser_owner = std::unique_ptr<XML_ParserStruct, destroy_parser>;

void stop(loader* load) {
  load->stopped = true;
  XML_StopParser(load->parser, XML_FALSE);
}

// Appends to the path; stops the load when there is no room.
void append_path(loader* load, const char* text) {
  const size_t more = std::strlen(text);
  if (more >= sizeof load->ctx.path - load->used) return stop(load);
  std::memcpy(load->ctx.path + load->used, text, more + 1);
  load->used += more;
  load->hash = qmib::bkdr_continue(load->hash, text, text, text + more) & qmib::kBkdrMask;
}

// The node of the path, as qmibtree_find_node_by_name finds it.
qmibtree_node* named_node(const loader* load) {
  return qmib::qmibtree_hash_lookup_hashed(load->ctx.inst->name_hash, load->ctx.path, load->hash);
}

void take_name(loader* load, element* seen, const char* value) {
  append_path(load, value);
  seen->named = true;
}

void take_instance(loader*, element* seen, const char* value) {
  seen->instance = qmib::decimal(value);
}

void take_right(loader*, element* seen, const char* value) { seen->right = qmib::decimal(value); }

void take_notification(loader*, element* seen, const char* value) {
  if (std::strcmp(value, "1") == 0)
    seen->attr |= QMIBTREE_ATTR_NOTIF_PASSIVE;
  else if (std::strcmp(value, "2") == 0)
    seen->attr |= QMIBTREE_ATTR_NOTIF_ACTIVE;
  else
    seen->attr |= QMIBTREE_ATTR_NOTIF_OFF;
}

void take_accesslist(loader*, element* seen, const char* value) {
  seen->attr |= std::strcmp(value, "subscriber") == 0 ? QMIBTREE_ATTR_ACCESS_SUBSCRIBER
                                                      : QMIBTREE_ATTR_ACCESS_NONE;
}

void take_ignorevalue(loader* load, element*, const char* value) {
  if (std::strcmp(value, "yes") == 0) load->ctx.ignore = 1;
}

struct attribute {
  char name[13];
  void (*take)(loader* load, element* seen, const char* value);
};

constexpr attribute attributes[] = {
    {"name", take_name},
    {"instance", take_instance},
    {"right", take_right},
    {"notification", take_notification},
    {"accesslist", take_accesslist},
    {"ignorevalue", take_ignorevalue},
};

void take_attribute(loader* load, element* seen, const char* name, const char* value) {
  for (const attribute& known : attributes)
    if (std::strcmp(name, known.name) == 0) return known.take(load, seen, value);
}

// Adds the instance and extends the path by its number: by the wished one where the tree refused,
// which is how a document addresses an instance that exists.
void enter_instance(loader* load, element* seen) {
  qmibtree_xml_load_ctx_t& ctx = load->ctx;
  if (qmibtree_node* const node = named_node(load)) {
    const uint32_t changes = ctx.inst->obj_changes;
    (void)qmibtree_add_object_by_node(ctx.inst, node, &seen->instance, ctx.flags, seen->right);
    if (ctx.inst->obj_changes - changes > 1) load->objects = 0;
  }
  char number[10];
  std::snprintf(number, sizeof number, "%d.", static_cast<int>(seen->instance));
  append_path(load, number);
}

void XMLCALL qmibtree_xml_start_element(void* user, const XML_Char* name, const XML_Char** pairs) {
  auto* const load = static_cast<loader*>(user);
  qmibtree_xml_load_ctx_t& ctx = load->ctx;
  if (ctx.depth >= kMaxDepth) return stop(load);
  ctx.ignore = 0;
  element seen;
  for (; *pairs && !load->stopped; pairs += 2) take_attribute(load, &seen, pairs[0], pairs[1]);
  if (!seen.named) append_path(load, name);
  if (!load->stopped && seen.instance != 0) enter_instance(load, &seen);
  if (load->stopped) return;
  if (seen.attr != 0)
    if (qmibtree_node* const node = named_node(load))
      (void)qmibtree_set_attr_by_node(ctx.inst, node, seen.attr);
  ctx.lengths[++ctx.depth] = static_cast<uint32_t>(load->used);
  load->hashes[ctx.depth] = load->hash;
  load->objects &= ~(uint32_t{1} << ctx.depth);
}

void XMLCALL qmibtree_xml_end_element(void* user, const XML_Char*) {
  auto* const load = static_cast<loader*>(user);
  if (load->stopped) return;
  load->used = load->ctx.lengths[--load->ctx.depth];
  load->hash = load->hashes[load->ctx.depth];
  load->ctx.path[load->used] = '\0';
}

// A text may come in pieces; each is written as the whole value, so the last one stays.
void XMLCALL qmibtree_xml_char_data(void* user, const XML_Char* text, int len) {
  auto* const load = static_cast<loader*>(user);
  qmibtree_xml_load_ctx_t& ctx = load->ctx;
  if (ctx.ignore || load->objects >> ctx.depth & 1) return;
  qmibtree_node* const node = named_node(load);
  if (!node) return;
  if (!qmib::is_param(node)) {
    load->objects |= uint32_t{1} << ctx.depth;
    return;
  }
  const auto size = static_cast<size_t>(len);
  const qmib::owned<char> copy(static_cast<char*>(qmalloc(size + 1, "xml_data")));
  if (!copy) return;
  std::memcpy(copy.get(), text, size);
  copy.get()[size] = '\0';
  const uint32_t changes = ctx.inst->obj_changes;
  (void)qmibtree_write_strvalue_by_node(ctx.inst, node, copy.get(), ctx.flags);
  if (ctx.inst->obj_changes != changes) load->objects = 0;
}

}  // namespace

uint32_t qmibtree_xml_load(qmibtree_inst_t* inst, qmibtree_buff_t* buff, uint32_t flags) {
  const parser_owner parser(XML_ParserCreate(nullptr));
  const size_t length = std::strlen(buff->start);
  if (!parser || length > INT32_MAX) return QMIBTREE_RC_ERROR;
  loader load = {};
  load.ctx.inst = inst;
  load.ctx.flags = flags;
  load.parser = parser.get();
  XML_SetElementHandler(parser.get(), qmibtree_xml_start_element, qmibtree_xml_end_element);
  XML_SetCharacterDataHandler(parser.get(), qmibtree_xml_char_data);
  XML_SetUserData(parser.get(), &load);
  const XML_Status status =
      XML_Parse(parser.get(), buff->start, static_cast<int>(length), XML_TRUE);
  return status == XML_STATUS_OK ? QMIBTREE_RC_OK : QMIBTREE_RC_ERROR;
}

uint32_t qmibtree_xml_load_from_file(qmibtree_inst_t* inst, const char* path, int32_t offset,
                                     uint32_t length, uint32_t flags) {
  const qmib::owned<qmibtree_buff_t> buff(qmibtree_buff_create_from_file(path, offset, length));
  return buff ? qmibtree_xml_load(inst, buff.get(), flags) : QMIBTREE_RC_NO_FILE;
}
