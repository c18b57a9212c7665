// Reads a document beside a tree of the model on which each step of a load is made as it comes, so
// that what is found is what a load does; then saves that tree and loads what was saved.
#include "lint.hh"

#include <expat.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "image.hh"
#include "text.hh"
#include "tree.hh"

namespace mibctl {

namespace {

constexpr uint32_t kFirstUnloadable = 1000;  // its segment has no dot
constexpr size_t kNumberSize = 9;            // characters of an instance number, its dot included
constexpr uint32_t kNeutralRight = 255;
constexpr char kWhole[] = "document";  // the name in findings on the document as such

struct Spot {
  unsigned line = 0, column = 0;
};

// Lines and columns of byte offsets that never go back.
class Lines {
 public:
  explicit Lines(std::string_view text) : text_(text) {}
  Spot at(size_t offset) {
    for (; next_ < std::min(offset, text_.size()); ++next_) {
      if (text_[next_] != '\n') continue;
      ++line_;
      start_ = next_ + 1;
    }
    return {line_, static_cast<unsigned>(next_ - start_) + 1};
  }

 private:
  std::string_view text_;
  size_t next_ = 0, start_ = 0;
  unsigned line_ = 1;
};

// --- attributes ---

// A start tag: its element, and the attributes that a load looks at.
struct Tag {
  const char* element;
  const char** attributes;  // pairs of name and value, null behind the last

  const char* get(std::string_view name) const {
    for (const char** pair = attributes; *pair; pair += 2)
      if (name == pair[0]) return pair[1];
    return nullptr;
  }
  bool has(std::string_view name, std::string_view value) const {
    const char* const given = get(name);
    return given && value == given;
  }
  bool is_param() const { return std::strcmp(element, "PARAM") == 0; }
};

bool is_any(std::string_view /*value*/) { return true; }
bool is_instance_number(std::string_view value) {
  return parse_number(value, 1, INT32_MAX).has_value();
}
bool is_number(std::string_view value) {
  return parse_number(value, INT32_MIN, INT32_MAX).has_value();
}
bool is_notification(std::string_view value) {
  return value.size() == 1 && strchr("012", value[0]);
}
bool is_access_list(std::string_view value) { return value.empty() || value == "subscriber"; }
bool is_yes_or_no(std::string_view value) { return value == "yes" || value == "no"; }

enum Kind : unsigned { on_parameter = 1, on_instance = 2, on_object = 4, on_all = 7 };

constexpr struct {
  std::string_view name;
  unsigned kinds;  // where it is kept
  bool (*is_good)(std::string_view value);
  const char* rule;
} known_attributes[] = {
    {"name", on_all, is_any, ""},
    {"instance", on_instance, is_instance_number, "a number from 1 on"},
    {"right", on_instance, is_number, "a number"},
    {"notification", on_parameter, is_notification, "0, 1 or 2"},
    {"accesslist", on_parameter, is_access_list, "subscriber or nothing"},
    {"ignorevalue", on_parameter, is_yes_or_no, "yes or no"},
};

uint32_t notification_bit(const Tag& tag) {
  if (!tag.get("notification")) return 0;
  if (tag.has("notification", "1")) return QMIBTREE_ATTR_NOTIF_PASSIVE;
  if (tag.has("notification", "2")) return QMIBTREE_ATTR_NOTIF_ACTIVE;
  return QMIBTREE_ATTR_NOTIF_OFF;
}

uint32_t access_bit(const Tag& tag) {
  if (!tag.get("accesslist")) return 0;
  return tag.has("accesslist", "subscriber") ? QMIBTREE_ATTR_ACCESS_SUBSCRIBER
                                             : QMIBTREE_ATTR_ACCESS_NONE;
}

// --- texts ---

bool is_blank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == text.npos; }

// A value in a finding.
std::string shown(const std::string& value) { return value.empty() ? "\"\"" : quoted_value(value); }

// What a document brings into a finding stays in its line.
std::string in_line(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
  return text;
}

// --- nodes ---

bool is_parameter(const qmibtree_node* node) { return node && node->flags & QMIBTREE_NODE_PARAM; }
bool is_instance(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_INSTANCE; }

Kind kind_of(const qmibtree_node* node) {
  if (is_parameter(node)) return on_parameter;
  return is_instance(node) ? on_instance : on_object;
}

std::string value_or_nothing(const Tree& tree, qmibtree_node* node) {
  return tree.has_value(node) ? tree.value(node) : "";
}

uint32_t attributes_of(const qmibtree_node* node) {
  return node->flags &
         (QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE | QMIBTREE_NODE_ACCESS);
}

// --- the linter ---

// An open element.
struct Frame {
  size_t above;         // bytes of the path that leads to it
  Spot spot;            // of its start tag
  qmibtree_node* node;  // what it leads to, or null
  bool told;            // nothing below it can be loaded, and a finding says so
  bool ignored;         // ignorevalue="yes"
  bool told_text;       // a finding tells of text that is skipped

  // Its text, where it is loaded.
  size_t pieces = 0;
  Spot text_spot;    // of the first piece
  std::string text;  // the last piece
  uint32_t result;   // of writing that
};

class Linter {
 public:
  Linter(const Model& model, const std::string& document, size_t limit)
      : document_(document), limit_(limit), lines_(document), tree_(model) {}

  std::vector<Finding> run() {
    parse();
    check_size();
    if (!broken_) check_tables(tree_.inst()->root);
    if (!broken_) check_next_start();
    std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
      const auto line = [](const Finding& f) { return f.line ? f.line : UINT32_MAX; };
      return std::pair(line(a), a.column) < std::pair(line(b), b.column);
    });
    if (full_)
      findings_.push_back({0, 0, kWhole, "there is more",
                           "only the first " + counted(limit_, "finding") + " are shown", true});
    return std::move(findings_);
  }

 private:
  void add(Spot spot, const std::string& name, const std::string& text, const std::string& detail,
           bool lost) {
    if (findings_.size() == limit_) {
      full_ = true;
      return stop();
    }
    findings_.push_back(
        {spot.line, spot.column, in_line(name), in_line(text), in_line(detail), lost});
    if (lost) reported_.insert(name);
  }
  void lost(Spot spot, const std::string& name, const std::string& text,
            const std::string& detail = "") {
    add(spot, name, text, detail, true);
  }
  void note(Spot spot, const std::string& name, const std::string& text,
            const std::string& detail) {
    add(spot, name, text, detail, false);
  }

  void parse();
  void stop();
  Spot here();
  void report_error();
  void take_encoding(const XML_Char* encoding);
  void take_doctype();

  void start_element(const Tag& tag);
  void end_element();
  void take_text(std::string_view piece);

  Frame frame_of(const Tag& tag, Spot spot);
  void report_unknown(const Tag& tag, Spot spot);
  qmibtree_node* enter_instance(const Tag& tag, Frame& frame);
  void report_number(const qmibtree_node* table, uint32_t wish, uint32_t number, Frame& frame);
  void check_room(const qmibtree_node* table, Spot spot);
  void check_element(const Tag& tag, const Frame& frame);
  void check_attribute(std::string_view name, const char* value, const Frame& frame);

  void skip_text(Frame& frame, std::string_view piece);
  void check_value(const Frame& frame);
  void check_empty(const Frame& frame);
  void check_text(const Frame& frame);

  void check_size();
  void check_tables(const qmibtree_node* node);
  void check_next_start();
  void compare_with(const Tree& next);

  const std::string& document_;
  const size_t limit_;
  Lines lines_;
  Tree tree_;
  XML_Parser parser_ = nullptr;

  std::string path_;  // full name of the open element
  std::vector<Frame> open_;
  bool ignore_ = false;                                      // as the last start tag said
  std::unordered_map<const qmibtree_node*, unsigned> seen_;  // and the line of its first element

  std::vector<Finding> findings_;
  std::unordered_set<std::string> reported_;  // names in findings of something lost
  bool full_ = false;                         // there are more findings than the limit
  bool broken_ = false;                       // a load does not reach the end
};

// --- the parser ---

Linter& linter(void* user) { return *static_cast<Linter*>(user); }

void Linter::parse() {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) throw std::bad_alloc();
  parser_ = parser.get();
  XML_SetUserData(parser_, this);
  XML_SetElementHandler(
      parser_,
      [](void* user, const XML_Char* element, const XML_Char** attributes) {
        linter(user).start_element({element, attributes});
      },
      [](void* user, const XML_Char*) { linter(user).end_element(); });
  XML_SetCharacterDataHandler(parser_, [](void* user, const XML_Char* text, int size) {
    linter(user).take_text({text, static_cast<size_t>(size)});
  });
  XML_SetXmlDeclHandler(parser_, [](void* user, const XML_Char*, const XML_Char* encoding, int) {
    linter(user).take_encoding(encoding);
  });
  XML_SetStartDoctypeDeclHandler(
      parser_, [](void* user, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        linter(user).take_doctype();
      });
  const size_t size = std::strlen(document_.c_str());  // as much of it as a load looks at
  const bool parsed =
      XML_Parse(parser_, document_.c_str(), static_cast<int>(size), XML_TRUE) == XML_STATUS_OK;
  if (!parsed && !broken_) report_error();
  if (document_.find_first_not_of('\0', size) != std::string::npos)
    lost(lines_.at(size), kWhole, "a zero byte", "a load ends here");
  parser_ = nullptr;
}

// For an empty element the parser still tells of its end.
void Linter::stop() {
  broken_ = true;
  if (parser_) XML_StopParser(parser_, XML_FALSE);
}

Spot Linter::here() { return lines_.at(static_cast<size_t>(XML_GetCurrentByteIndex(parser_))); }

void Linter::report_error() {
  const bool in_value = !open_.empty() && is_parameter(open_.back().node);
  lost(here(), open_.empty() ? kWhole : path_,
       std::string("not well-formed: ") + XML_ErrorString(XML_GetErrorCode(parser_)),
       in_value ? "a load stops here: a save does not escape \"<\" and \"&\" in values"
                : "a load stops here");
  broken_ = true;
}

void Linter::take_encoding(const XML_Char* encoding) {
  if (encoding && strcasecmp(encoding, "UTF-8") != 0)
    note(here(), kWhole, std::string("encoding ") + encoding, "a save writes UTF-8");
}

void Linter::take_doctype() {
  note(here(), kWhole, "a document type declaration", "a save leaves it out");
}

// --- elements ---

void Linter::start_element(const Tag& tag) {
  if (broken_) return;
  const Spot spot = here();
  if (open_.size() == kMaxDepth) {
    lost(spot, path_, "more than " + grouped(kMaxDepth) + " nested elements", "a load stops here");
    return stop();
  }
  ignore_ = tag.has("ignorevalue", "yes");
  Frame frame = frame_of(tag, spot);
  if (path_.size() > kMaxFullName) {
    lost(spot, path_.substr(0, kMaxFullName),
         "a full name of more than " + grouped(kMaxFullName) + " bytes", "a load stops here");
    return stop();
  }
  if (frame.node) {
    const uint32_t bits = notification_bit(tag) | access_bit(tag);
    qmibtree_set_attr_by_node(tree_.inst(), frame.node, bits);
    check_element(tag, frame);
  }
  open_.push_back(std::move(frame));
}

// Extends the path as a load does, and adds the instance.
Frame Linter::frame_of(const Tag& tag, Spot spot) {
  Frame frame = {};
  frame.above = path_.size();
  frame.spot = spot;
  frame.ignored = ignore_;
  frame.told = !open_.empty() && open_.back().told;
  const char* const name = tag.get("name");
  path_ += name ? name : tag.element;
  if (path_.size() > kMaxFullName) return frame;
  frame.node = qmibtree_find_node_by_name(tree_.inst(), path_.c_str());
  if (!frame.node && !frame.told) report_unknown(tag, spot);
  frame.told = !frame.node;
  if (tag.get("instance")) {
    frame.node = enter_instance(tag, frame);
  } else if (frame.node && is_template(frame.node)) {
    lost(spot, path_, "a table's element without an instance number", "nothing in it is loaded");
    frame.told = true;
  }
  return frame;
}

void Linter::report_unknown(const Tag& tag, Spot spot) {
  if (tag.is_param() && !tag.get("name"))
    return lost(spot, path_, "a PARAM without a name", "a load skips it");
  if (std::strcmp(tag.element, "null") == 0 && !open_.empty() && is_parameter(open_.back().node))
    return lost(spot, path_, "a string without a value was saved as <null>",
                "a document with it does not load");
  lost(spot, path_, tag.is_param() ? "unknown parameter" : "unknown object",
       tree_.suggestion(path_));
}

// Null where nothing can be loaded below it.
qmibtree_node* Linter::enter_instance(const Tag& tag, Frame& frame) {
  const auto wish = static_cast<uint32_t>(qstring2dec(tag.get("instance")));
  if (wish == 0) {
    frame.told = true;
    return frame.node;
  }
  const char* const right = tag.get("right");
  uint32_t number = wish;
  (void)qmibtree_add_object(tree_.inst(), path_.c_str(), &number, 0,
                            right ? static_cast<uint32_t>(qstring2dec(right)) : kNeutralRight);
  qmibtree_node* const table = frame.node;
  path_ += (std::to_string(static_cast<int32_t>(number)) + ".").substr(0, kNumberSize);
  if (table) {
    report_number(table, wish, number, frame);
    check_room(table, frame.spot);
  }
  return qmibtree_find_node_by_name(tree_.inst(), path_.c_str());
}

void Linter::report_number(const qmibtree_node* table, uint32_t wish, uint32_t number,
                           Frame& frame) {
  if (!is_template(table)) {
    lost(frame.spot, path_, "an instance of what is no table", "nothing in it is loaded");
    frame.told = true;
  } else if (number >= kFirstUnloadable &&
             !qmibtree_find_node_by_name(tree_.inst(), path_.c_str())) {
    lost(frame.spot, path_, "an instance number of 1000 or above", "nothing in it is loaded");
    frame.told = true;
  } else if (number != wish) {
    lost(frame.spot, path_, "instance " + std::to_string(wish) + " is not given its number",
         "it becomes " + std::to_string(number) + ": numbers have to grow");
  }
}

void Linter::check_room(const qmibtree_node* table, Spot spot) {
  const uint32_t most = is_template(table) ? tree_.entry(table).max_entries : 0;
  if (most && table->childnum == most + 1)
    note(spot, path_, "more instances than the model has", "at most " + grouped(most));
}

void Linter::check_element(const Tag& tag, const Frame& frame) {
  for (const char** pair = tag.attributes; *pair; pair += 2)
    check_attribute(pair[0], pair[1], frame);
  if (tag.is_param() && !is_parameter(frame.node))
    lost(frame.spot, path_, "not a parameter", "an object's element is named as the object");
  if (!tag.is_param() && is_parameter(frame.node))
    note(frame.spot, path_, "a parameter in an element of its name", "a save makes it a PARAM");
  const auto [first, is_new] = seen_.emplace(frame.node, frame.spot.line);
  if (is_new) return;
  const std::string where = "the first is in line " + std::to_string(first->second);
  if (is_parameter(frame.node))
    lost(frame.spot, path_, "a second element of the parameter", "the last one counts; " + where);
  else
    note(frame.spot, path_, "a second element of the object", "a save makes one of them; " + where);
}

void Linter::check_attribute(std::string_view name, const char* value, const Frame& frame) {
  const std::string shown = std::string(name) + "=\"" + value + "\"";
  for (const auto& known : known_attributes) {
    if (known.name != name) continue;
    if (!known.is_good(value)) return lost(frame.spot, path_, "bad attribute " + shown, known.rule);
    if ((known.kinds & kind_of(frame.node)) == 0)
      lost(frame.spot, path_, "misplaced attribute " + shown, "it is not kept here");
    return;
  }
  lost(frame.spot, path_, "unknown attribute " + shown, "a load skips it");
}

void Linter::end_element() {
  if (broken_) return;
  const Frame& frame = open_.back();
  if (is_parameter(frame.node) && !frame.ignored) check_value(frame);
  path_.resize(frame.above);
  open_.pop_back();
}

// --- values ---

void Linter::take_text(std::string_view piece) {
  if (broken_) return;
  Frame& frame = open_.back();
  if (!is_parameter(frame.node) || ignore_) return skip_text(frame, piece);
  if (frame.pieces++ == 0) frame.text_spot = here();
  frame.text = piece;
  frame.result = qmibtree_write_strvalue_by_node(tree_.inst(), frame.node, frame.text.c_str(), 0);
}

void Linter::skip_text(Frame& frame, std::string_view piece) {
  if (frame.told || frame.told_text || is_blank(piece)) return;
  frame.told_text = true;
  lost(here(), path_,
       is_parameter(frame.node) ? "a value besides ignorevalue=\"yes\"" : "text in an object",
       "a load skips it");
}

void Linter::check_value(const Frame& frame) {
  if (frame.pieces == 0) return check_empty(frame);
  if (frame.pieces == 1) return check_text(frame);
  lost(frame.text_spot, path_, "a value in " + counted(frame.pieces, "piece"),
       "references and line breaks divide it, and the last piece counts: " + shown(frame.text));
}

void Linter::check_empty(const Frame& frame) {
  const std::string value = value_or_nothing(tree_, frame.node);
  const uint32_t type = frame.node->uidinfo->type;
  if (value.empty()) return;
  add(frame.spot, path_, "an empty element", "a load leaves the value as it is, " + shown(value),
      type == QMIBTREE_TYPE_STRING || type == QMIBTREE_TYPE_BASE64);
}

void Linter::check_text(const Frame& frame) {
  const Entry& entry = tree_.entry(frame.node);
  const bool refused = QMIBTREE_FAILED(frame.result) && frame.result != QMIBTREE_RC_NO_HOOK;
  const bool known = tree_.has_value(frame.node);
  const std::string stored = known ? tree_.value(frame.node) : frame.text;
  const std::string why = refusal(entry, frame.text);
  if (refused && stored == frame.text) return;  // it is there without a load
  if (refused)
    return lost(frame.text_spot, path_, "refused value",
                why.empty() ? "a load refuses every date and time" : why);
  if (!why.empty() && stored != frame.text)
    return lost(frame.text_spot, path_, "stored as " + shown(stored), why);
  if (!why.empty()) note(frame.text_spot, path_, "a value that the model does not allow", why);
  const std::string later = loss(entry, stored);
  if (!later.empty()) lost(frame.text_spot, path_, "lost with the next save", later);
}

// --- the whole document ---

void Linter::check_size() {
  if (document_.size() > kMaxDocument)
    lost({}, kWhole, "too long for an image",
         counted(document_.size(), "byte") + ", at most " + grouped(kMaxDocument));
}

void Linter::check_tables(const qmibtree_node* node) {
  const Entry& entry = tree_.entry(node);
  if (is_template(node) && node->childnum < entry.min_entries)
    note({}, node->fullName, "fewer instances than the model has",
         grouped(node->childnum) + ", at least " + grouped(entry.min_entries));
  for (const qmibtree_node* child = node->first_child; child; child = child->next)
    check_tables(child);
}

void Linter::check_next_start() {
  const std::string saved = tree_.document();
  if (saved.size() > kMaxDocument)
    lost({}, kWhole, "what a save makes of it is too long for an image",
         counted(saved.size(), "byte") + ", at most " + grouped(kMaxDocument));
  if (saved.find('\n') + 1 == saved.size())
    return lost({}, kWhole, "a save has nothing to store",
                "the start after it takes the factory default");
  Tree next(tree_.model());
  if (!next.load(saved))
    return lost({}, kWhole, "what a save makes of it does not load", document_problem(saved));
  compare_with(next);
}

void Linter::compare_with(const Tree& next) {
  compare_trees(tree_, next, [&](qmibtree_node* now, qmibtree_node* then) {
    if (!is_parameter(now) || !is_parameter(then) || full_) return;
    const std::string value = value_or_nothing(next, then);
    const bool same_value = value == value_or_nothing(tree_, now);
    if ((same_value && attributes_of(now) == attributes_of(then)) || reported_.count(now->fullName))
      return;
    if (!same_value)
      lost({}, now->fullName, "does not last beyond the next save", "it becomes " + shown(value));
    else
      lost({}, now->fullName, "its attributes do not last beyond the next save",
           "notification off is not stored, and the model switches it on");
  });
}

}  // namespace

std::vector<Finding> lint(const Model& model, const std::string& document, size_t limit) {
  return Linter(model, document, limit).run();
}

}  // namespace mibctl
