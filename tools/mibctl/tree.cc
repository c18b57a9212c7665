#include "tree.hh"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>
#include <set>

#include "text.hh"

namespace mibctl {

// --- values and their texts ---

namespace {

constexpr uint32_t kFirstUnloadable = 1000;  // its segment has no dot: no document leads below it
constexpr char kDateTime[] = "%Y-%m-%dT%H:%M:%S";

// Whether a value would do: a result code, and in words why not.
struct Verdict {
  uint32_t rc = QMIBTREE_RC_OK;
  std::string why;
};

Verdict out_of_range(const std::string& why) { return {QMIBTREE_RC_OUT_OF_RANGE, why}; }
Verdict invalid(const std::string& why) { return {QMIBTREE_RC_INVALID_VALUE, why}; }

struct FreeBlock {
  void operator()(void* block) const { qfree(block); }
};

// A value as parsed. A string's refers to the text that was parsed.
struct Parsed {
  qmibtree_value_t value = {};
  std::unique_ptr<uint8_t, FreeBlock> bytes;  // what a base64 value refers to
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

Verdict parse_bounded(const Entry& entry, const std::string& text, int64_t& number) {
  const auto parsed = parse_number(text, INT64_MIN, INT64_MAX);
  if (!parsed) return invalid("not a whole number");
  if (*parsed < entry.min)
    return out_of_range("below the lowest value, " + std::to_string(entry.min));
  if (*parsed > entry.max)
    return out_of_range("above the highest value, " + std::to_string(entry.max));
  number = *parsed;
  return {};
}

Verdict parse_int(const Entry& entry, const std::string& text, Parsed& out) {
  int64_t number = 0;
  const Verdict verdict = parse_bounded(entry, text, number);
  out.value.i = static_cast<int32_t>(number);
  return verdict;
}

Verdict parse_uint(const Entry& entry, const std::string& text, Parsed& out) {
  int64_t number = 0;
  const Verdict verdict = parse_bounded(entry, text, number);
  out.value.u = static_cast<uint32_t>(number);
  return verdict;
}

Verdict check_length(const Entry& entry, size_t size) {
  if (entry.max_len == 0 || size <= entry.max_len) return {};
  return out_of_range(counted(size, "byte") + ", at most " + grouped(entry.max_len));
}

std::string_view trimmed(std::string_view text) {
  const size_t start = std::min(text.find_first_not_of(' '), text.size());
  return text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

// Whether each item of a list is one of the words.
bool are_words(const std::vector<std::string>& words, std::string_view list) {
  for (;;) {
    const size_t comma = list.find(',');
    if (std::find(words.begin(), words.end(), trimmed(list.substr(0, comma))) == words.end())
      return false;
    if (comma == std::string_view::npos) return true;
    list.remove_prefix(comma + 1);
  }
}

// An empty list has no item; a default is good whatever the words are.
bool is_allowed(const Entry& entry, const std::string& text) {
  if (entry.words.empty() || text == entry.defval) return true;
  if (entry.list) return text.empty() || are_words(entry.words, text);
  return std::find(entry.words.begin(), entry.words.end(), text) != entry.words.end();
}

Verdict parse_string(const Entry& entry, const std::string& text, Parsed& out) {
  out.value.str = text.c_str();
  if (!is_allowed(entry, text)) return invalid("not one of " + joined(entry.words));
  return check_length(entry, text.size());
}

// Only the one form of a date that exists comes back from its seconds as it was.
Verdict parse_datetime(const Entry& /*entry*/, const std::string& text, Parsed& out) {
  struct tm parts = {};
  const char* const end = strptime(text.c_str(), kDateTime, &parts);
  const time_t seconds = timegm(&parts);
  char back[64];
  back[std::strftime(back, sizeof back, kDateTime, &parts)] = '\0';
  if (!end || text != back) return invalid("not a date and time as 2001-02-03T04:05:06");
  if (seconds < INT32_MIN || seconds > INT32_MAX)
    return out_of_range("not between 1901-12-13T20:45:52 and 2038-01-19T03:14:07");
  out.value.t = static_cast<int32_t>(seconds);
  return {};
}

Verdict parse_base64(const Entry& entry, const std::string& text, Parsed& out) {
  out.bytes.reset(base64_decode(text.c_str(), &out.value.len));
  if (!out.bytes) return invalid("not base64");
  out.value.data = out.bytes.get();
  return check_length(entry, out.value.len);
}

constexpr struct {
  std::string_view text;
  uint8_t b;
} bool_words[] = {{"true", 1}, {"false", 0}, {"1", 1}, {"0", 0}};

Verdict parse_bool(const Entry& /*entry*/, const std::string& text, Parsed& out) {
  for (const auto& word : bool_words) {
    if (word.text != text) continue;
    out.value.b = word.b;
    return {};
  }
  return invalid("not one of true, false, 1, 0");
}

// By type, from QMIBTREE_TYPE_INT on.
constexpr Verdict (*parsers[])(const Entry& entry, const std::string& text, Parsed& out) = {
    parse_int, parse_uint, parse_string, parse_datetime, parse_base64, parse_bool,
};
static_assert(std::size(parsers) == QMIBTREE_TYPE_BOOL - QMIBTREE_TYPE_INT + 1);

// `text` must outlive `out`.
Verdict parse(const Entry& entry, const std::string& text, Parsed& out) {
  if (text.find('\0') != std::string::npos) return invalid("a zero byte in it");
  out.value.type = entry.type;
  return parsers[entry.type - QMIBTREE_TYPE_INT](entry, text, out);
}

// What `print` appends to a buffer, which it is called twice for.
template <class Print>
std::string printed(const Print& print) {
  qmibtree_buff_t counting = {};
  print(&counting);
  std::string text(counting.size, '\0');
  const uint32_t size = counting.size + 1;
  qmibtree_buff_t buff = {text.data(), text.data(), size, size};
  print(&buff);
  return text;
}

std::string text_of(const qmibtree_value_t& value) {
  const qmibtree_datafn_t* const fn = qmibtree_datatype_get_datafn(value.type);
  return printed([&](qmibtree_buff_t* buff) { fn->to_buff(&value, buff); });
}

}  // namespace

std::string refusal(const Entry& entry, std::string_view text) {
  const std::string copy(text);
  Parsed parsed;
  return parse(entry, copy, parsed).why;
}

// --- what a document brings back ---

namespace {

// Bytes of the UTF-8 character that `text` begins with; 0 when it is none that a document may hold.
size_t character_size(std::string_view text) {
  const auto byte = [text](size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC0 || lead >= 0xF8) return 0;
  const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  uint32_t code = lead & (0x7Fu >> size);
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  constexpr uint32_t lowest[] = {0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool none = code == 0xFFFE || code == 0xFFFF || code > 0x10FFFF;
  if (code < lowest[size - 2] || surrogate || none) return 0;
  return size;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const size_t size = character_size(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
}

// Why a text cannot stand in a document as it is.
std::string unwritable(std::string_view text) {
  if (text.find_first_of("<&") != std::string_view::npos || text.find("]]>") != text.npos)
    return "values are not escaped: with \"<\", \"&\" or \"]]>\" the document does not load";
  if (std::any_of(text.begin(), text.end(), is_control))
    return "with a control character the document does not load";
  if (text.find_first_of("\r\n") != std::string_view::npos)
    return "of a text with line breaks only the last piece is loaded";
  if (!is_utf8(text)) return "with bytes that are not UTF-8 the document does not load";
  return "";
}

}  // namespace

std::string loss(const Entry& entry, std::string_view text) {
  const bool is_default = entry.defval == text;
  if (is_default && entry.save != Save::always) return "";  // it is not written
  if (entry.save == Save::never) return "not saved: the model keeps neither its value nor changes";
  const std::string why = unwritable(text);
  if (!why.empty() || is_default) return why;
  if (entry.type == QMIBTREE_TYPE_DATETIME) return "a load refuses every date and time";
  if (text.empty() && entry.defval && !entry.defval->empty())
    return "an empty element leaves the default, " + *entry.defval;
  return "";
}

// --- the tree ---

namespace {

// The hook of parameters whose value the gateway supplies: here they have none.
uint32_t supply_nothing(qmibtree_inst_t* /*inst*/, qmibtree_node* /*node*/,
                        qmibtree_value_t* /*value*/, uint32_t /*flags*/) {
  return QMIBTREE_RC_OK;
}

// What of a record differs from the gateway's. A parameter that is saved is read as it was loaded;
// as long as it has no value none can be written to a document.
void adapt(const Entry& entry, qmibtree_uidinfo_t& record) {
  if (!entry.dynamic && entry.hooks.get.empty()) return;
  record.get_fn = supply_nothing;
  if (entry.save == Save::never) return;
  record.flags &= ~QMIBTREE_UID_DYNAMIC;
  if (entry.defval) return;
  record.flags &= ~QMIBTREE_UID_SAVE;
  record.flags |= QMIBTREE_UID_SAVE_MODIFIED;
}

qmibtree_value_t read(const Tree& tree, qmibtree_node* node) {
  qmibtree_value_t value = {};
  (void)qmibtree_read_by_node(tree.inst(), node, &value, 0);
  return value;
}

bool is_some(const qmibtree_value_t& value) {
  return value.type != 0 && (value.type != QMIBTREE_TYPE_STRING || value.str);
}

bool is_parameter(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_PARAM; }

}  // namespace

Tree::Tree(const Model& model) : model_(&model), block_(model) {
  qmibtree_schema_t* const schema = block_.schema();
  entries_.resize(schema->uidinfo_num);
  for_each(static_cast<const Entry&>(*model.root), [&](const Entry& entry) {
    entries_[entry.uid] = &entry;
    adapt(entry, schema->uidinfo[entry.uid]);
  });
  inst_ = qmibtree_init(schema);
  if (!inst_) throw std::bad_alloc();
}

namespace {

// The newest first: the library's indexes find a node the sooner the newer it is, and a document
// may hold thousands of instances.
void remove_instances(qmibtree_inst_t* inst, qmibtree_node* node) {
  if (is_template(node))
    while (node->last_child) qmibtree_del_object_by_node(inst, node->last_child, 0);
  for (qmibtree_node* child = node->first_child; child; child = child->next)
    remove_instances(inst, child);
}

}  // namespace

Tree::~Tree() {
  remove_instances(inst_, inst_->root);
  qmibtree_destroy(inst_);
}

const Entry& Tree::entry(const qmibtree_node* node) const { return *entries_[node->uidinfo->uid]; }

bool Tree::load(const std::string& document) {
  std::string text = document;  // the library reads it only, by a pointer that may write
  const auto size = static_cast<uint32_t>(text.size() + 1);
  qmibtree_buff_t buff = {text.data(), text.data(), size, size};
  return !QMIBTREE_FAILED(qmibtree_xml_load(inst_, &buff, 0));
}

std::string Tree::document() const {
  return printed(
      [this](qmibtree_buff_t* buff) { qmibtree_xml_dump_config(inst_, nullptr, buff, 0); });
}

std::string Tree::suggestion(const std::string& name) const {
  // The deepest object that there is, and the segment behind it.
  size_t above = name.size();
  const qmibtree_node* object = nullptr;
  while (!object && above > 0) {
    above = above > 1 ? name.rfind('.', above - 2) + 1 : 0;
    object = qmibtree_find_node_by_name(inst_, name.substr(0, above).c_str());
  }
  const size_t dot = name.find('.', above);
  const std::string segment = name.substr(above, dot == std::string::npos ? dot : dot + 1 - above);
  std::vector<std::string> names;
  if (!object) names.push_back(inst_->root->name);
  for (const qmibtree_node* child = object ? object->first_child : nullptr; child;
       child = child->next)
    names.push_back(child->name);
  // Of the whole names more would be close enough.
  std::vector<std::string> nearest = similar(segment, names);
  for (std::string& found : nearest) found.insert(0, name, 0, above);
  return did_you_mean(name.substr(0, above) + segment, nearest);
}

qmibtree_node* Tree::find(const std::string& name) const {
  if (qmibtree_node* const node = qmibtree_find_node_by_name(inst_, name.c_str())) return node;
  throw refused(name.empty() ? "\"\"" : name, qmibtree_rc_string(QMIBTREE_RC_NOT_FOUND),
                suggestion(name));
}

bool Tree::has_value(qmibtree_node* node) const { return is_some(read(*this, node)); }

std::string Tree::value(qmibtree_node* node) const {
  const qmibtree_value_t value = read(*this, node);
  if (is_some(value)) return text_of(value);
  throw refused(node->fullName, "no value",
                is_parameter(node) ? "only a running gateway has it" : "not a parameter");
}

namespace {

Error refused_write(const qmibtree_node* node, uint32_t rc, const std::string& why) {
  return refused(node->fullName, qmibtree_rc_string(rc), why);
}

const char* reason_not_allowed(const qmibtree_node* node) {
  return node->uidinfo->flags & QMIBTREE_UID_READONLY ? "read-only"
                                                      : "its access list has no subscriber";
}

}  // namespace

void Tree::write(qmibtree_node* node, const std::string& text, uint32_t flags) {
  if (!is_parameter(node)) throw refused_write(node, QMIBTREE_RC_NOT_ALLOWED, "not a parameter");
  const qmibtree_value_t present = read(*this, node);
  if (is_some(present) && text_of(present) == text) return;
  if (node->uidinfo->flags & QMIBTREE_UID_DYNAMIC)
    throw refused_write(node, QMIBTREE_RC_NO_HOOK, "only a running gateway takes it");
  Parsed parsed;
  const Verdict verdict = parse(entry(node), text, parsed);
  if (!verdict.why.empty()) throw refused_write(node, verdict.rc, verdict.why);
  if (is_some(present) && text_of(present) == text_of(parsed.value)) return;
  const uint32_t rc = qmibtree_write_by_node(inst_, node, &parsed.value, flags);
  if (QMIBTREE_FAILED(rc)) throw refused_write(node, rc, reason_not_allowed(node));
}

bool is_template(const qmibtree_node* node) {
  return node->uidinfo->flags & QMIBTREE_UID_MULTI && !(node->flags & QMIBTREE_NODE_INSTANCE);
}

namespace {

bool has_instance(const qmibtree_node* table, uint32_t number) {
  for (const qmibtree_node* child = table->first_child; child; child = child->next)
    if (child->instance == number) return true;
  return false;
}

// Why a table would not give an instance this number.
std::string unhad(const qmibtree_node* table, uint32_t number) {
  const uint32_t next = table->last_instance + 1;
  if (has_instance(table, number)) return "it is in use";
  if (number < next) return "the next is " + std::to_string(next);
  if (number >= kFirstUnloadable) return "1000 and above do not load back";
  return "";
}

}  // namespace

qmibtree_node* Tree::add(qmibtree_node* table, uint32_t wish) {
  if (!is_template(table))
    throw refused(table->fullName, "not a table", "the object of an {i} in the model");
  const uint32_t most = entry(table).max_entries;
  if (most && table->childnum >= most)
    throw refused(table->fullName, "no room for another instance",
                  "the model has at most " + grouped(most));
  uint32_t number = wish ? wish : table->last_instance + 1;
  const std::string why = unhad(table, number);
  if (!why.empty())
    throw refused(table->fullName, "instance number " + std::to_string(number) + " cannot be had",
                  why);
  constexpr uint32_t kNeutralRight = 255;
  if (QMIBTREE_FAILED(qmibtree_add_object_by_node(inst_, table, &number, 0, kNeutralRight)))
    throw std::bad_alloc();
  return table->last_child;
}

namespace {

bool is_below(const qmibtree_node* top, const qmibtree_node* node) {
  while (node && node != top) node = node->parent;
  return node != nullptr;
}

}  // namespace

// A later deletion can bring back events that were drained: of nodes that go now none is left.
void Tree::del(qmibtree_node* instance) {
  if (!(instance->flags & QMIBTREE_NODE_INSTANCE))
    throw refused(instance->fullName, "not an instance",
                  "an instance's full name ends in a number and a dot");
  std::set<const qmibtree_node*> gone;
  for (const qmibtree_notif_entry_t& entry : inst_->notif->entries)
    if (is_below(instance, entry.node)) gone.insert(entry.node);
  qmibtree_del_object_by_node(inst_, instance, 0);
  for (qmibtree_notif_entry_t& entry : inst_->notif->entries)
    if (gone.count(entry.node)) entry.node = nullptr;
}

// --- two trees ---

namespace {

struct Pair {
  const Tree& left;
  const Tree& right;
  const Visit& visit;

  static qmibtree_node* counterpart(const Tree& other, const qmibtree_node* node) {
    return qmibtree_find_node_by_name(other.inst(), node->fullName);
  }

  void walk_instances(const qmibtree_node* a, const qmibtree_node* b) const {
    for (qmibtree_node* child = a->first_child; child; child = child->next)
      walk(child, counterpart(right, child));
    for (qmibtree_node* child = b->first_child; child; child = child->next)
      if (!counterpart(left, child)) walk(nullptr, child);
  }

  void walk(qmibtree_node* a, qmibtree_node* b) const {
    visit(a, b);
    if (a && b && is_template(a)) return walk_instances(a, b);
    // All else has the children that the model gives it, in the same order.
    qmibtree_node* left_child = a ? a->first_child : nullptr;
    qmibtree_node* right_child = b ? b->first_child : nullptr;
    while (left_child || right_child) {
      walk(left_child, right_child);
      if (left_child) left_child = left_child->next;
      if (right_child) right_child = right_child->next;
    }
  }
};

}  // namespace

void compare_trees(const Tree& left, const Tree& right, const Visit& visit) {
  Pair{left, right, visit}.walk(left.inst()->root, right.inst()->root);
}

}  // namespace mibctl

// The function that every host of the library supplies. Changes are read back from the tree and its
// event queue: there is nothing to do here.
uint32_t mibtree_changed_callback2(qmibtree_inst_t* /*inst*/, qmibtree_node* /*node*/,
                                   qmibtree_value_t* /*value*/) {
  return QMIBTREE_RC_OK;
}
