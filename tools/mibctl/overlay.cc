// The vendor's side of a model: an overlay, in TOML. All of it may be left out.
//
//   [model]
//   name = "gateway"         # of the generated files and names: a C identifier
//   tag = 7                  # the schema's tag
//   words = 0                # the ext_fn word, 0 to 7, that gets the values allowed: "A|B|C";
//                            # none where the value is a list
//   leave_out = ["Gw.Old.**"]            # entries to leave out, with all below them
//   leave_out_status = ["deleted"]       # likewise: "deprecated", "obsoleted", "deleted"
//
//   [components]             # name = id, 0 to 31
//   lan = 0
//
//   [[object]]               # an object that the model lacks; a table where it ends in "{i}."
//   name = "Gw.X_00005E_Port.{i}."       # what is above must be there, or be added before
//   access = "readWrite"                 # default "readOnly"
//   min_entries = 0                      # tables: instances there always are
//   max_entries = 8                      # tables: 0 for any number
//   entries = "X_00005E_PortNumberOfEntries"   # tables: the parameter beside it that counts
//
//   [[parameter]]            # a parameter that the model lacks; takes the keys of a rule too
//   name = "Gw.X_00005E_Port.{i}.Label"
//   type = "string"          # int, unsignedInt, boolean, dateTime, base64
//
//   [[rule]]                 # later rules win, key by key
//   match = "Gw.LAN*.**"     # a pattern over paths ("{i}" as it is), or an array of them
//   only = ["string", "readWrite"]       # of these only what has all the properties: readWrite,
//                            # readOnly, parameter, object, table, list, or a type
//   optional = true          # a pattern may match nothing
//   component = "lan"
//   save = "always"          # modified, never
//   dynamic = false
//   access = "readWrite"     # readOnly
//   notify = "forced"        # default, normal
//   default = "text"         # numbers and booleans may stand without quotes
//   min = 1                  # limits: at most as loose as the model's
//   max = 10
//   max_length = 64
//   words = ["A", "B"]       # the values allowed: of the model's, or beginning with "X_"
//   arg = 1                  # the record's own word
//   create = "c_function"    # hooks: functions of the host
//   destroy = "c_function"
//   set = "c_function"
//   get = "c_function"
//
// An added name begins with "X_" where the model ends. No line has more than 64 dots. A pattern
// with a wildcard passes over the entries that a key means nothing for (save on an object, a
// component on one that is no table); one without makes that an error.
#include <toml++/toml.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <set>

#include "model.hh"
#include "text.hh"
#include "tree.hh"

namespace mibctl {

namespace {

constexpr uint64_t kMaxOverlay = 1 << 20;

// toml++ bounds the nesting of values, but not how deep the dots of a key lead, and recurses over
// both.
constexpr long kMaxDots = 64;

using Change = std::function<void(Entry&)>;

std::string range_text(int64_t min, int64_t max) {
  return std::to_string(min) + " to " + std::to_string(max);
}

// Words that C or C++ keeps for itself: no function can be named so in a header for both.
constexpr std::string_view keywords[] = {"alignas",
                                         "alignof",
                                         "and",
                                         "and_eq",
                                         "asm",
                                         "auto",
                                         "bitand",
                                         "bitor",
                                         "bool",
                                         "break",
                                         "case",
                                         "catch",
                                         "char",
                                         "char16_t",
                                         "char32_t",
                                         "char8_t",
                                         "class",
                                         "co_await",
                                         "co_return",
                                         "co_yield",
                                         "compl",
                                         "concept",
                                         "const",
                                         "const_cast",
                                         "consteval",
                                         "constexpr",
                                         "constinit",
                                         "continue",
                                         "decltype",
                                         "default",
                                         "delete",
                                         "do",
                                         "double",
                                         "dynamic_cast",
                                         "else",
                                         "enum",
                                         "explicit",
                                         "export",
                                         "extern",
                                         "false",
                                         "float",
                                         "for",
                                         "friend",
                                         "goto",
                                         "if",
                                         "inline",
                                         "int",
                                         "long",
                                         "mutable",
                                         "namespace",
                                         "new",
                                         "noexcept",
                                         "not",
                                         "not_eq",
                                         "nullptr",
                                         "operator",
                                         "or",
                                         "or_eq",
                                         "private",
                                         "protected",
                                         "public",
                                         "register",
                                         "reinterpret_cast",
                                         "requires",
                                         "restrict",
                                         "return",
                                         "short",
                                         "signed",
                                         "sizeof",
                                         "static",
                                         "static_assert",
                                         "static_cast",
                                         "struct",
                                         "switch",
                                         "template",
                                         "this",
                                         "thread_local",
                                         "throw",
                                         "true",
                                         "try",
                                         "typedef",
                                         "typeid",
                                         "typename",
                                         "typeof",
                                         "typeof_unqual",
                                         "union",
                                         "unsigned",
                                         "using",
                                         "virtual",
                                         "void",
                                         "volatile",
                                         "wchar_t",
                                         "while",
                                         "xor",
                                         "xor_eq"};

constexpr const char* kWildcards = "*?";

bool has_wildcard(std::string_view pattern) {
  return pattern.find_first_of(kWildcards) != std::string_view::npos;
}

// --- values of the file ---

// What is in the file, with the place of whatever is wrong with it.
class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {}

  toml::table parse() const {
    const std::string text = read_file(file_, kMaxOverlay);
    check_dots(text);
    try {
      return toml::parse(text);
    } catch (const toml::parse_error& problem) {
      throw Error(Status::refused, place(problem.source()), std::string(problem.description()));
    }
  }

  Place place(const toml::source_region& source) const {
    return {file_, source.begin.line, source.begin.column};
  }
  Place place(const toml::node& node) const { return place(node.source()); }

  Error error(const toml::node& node, const std::string& text,
              const std::string& detail = "") const {
    return {Status::refused, place(node), text, detail};
  }

  void check_keys(const toml::table& table, const std::vector<std::string>& known) const {
    for (const auto& [key, value] : table)
      if (std::find(known.begin(), known.end(), key.str()) == known.end())
        throw Error(Status::refused, place(key.source()), "unknown key " + quoted_value(key.str()),
                    did_you_mean(key.str(), known));
  }

  const toml::table& table(const toml::node& node) const {
    if (!node.is_table()) throw error(node, "not a table");
    return *node.as_table();
  }

  const toml::node& required(const toml::table& table, const char* key) const {
    const toml::node* const node = table.get(key);
    if (!node) throw error(table, std::string("lacks its ") + key);
    return *node;
  }

  std::string text(const toml::node& node) const {
    const toml::value<std::string>* const value = node.as_string();
    if (!value) throw error(node, "not a text in quotes");
    if (value->get().find('\0') != std::string::npos) throw error(node, "a NUL in a text");
    return value->get();
  }

  // One text or an array of them, with their places.
  std::vector<const toml::node*> list(const toml::node& node) const {
    if (!node.is_array()) return {&node};
    std::vector<const toml::node*> items;
    for (const toml::node& item : *node.as_array()) items.push_back(&item);
    return items;
  }

  std::vector<std::string> texts(const toml::node& node) const {
    std::vector<std::string> all;
    for (const toml::node* const item : list(node)) all.push_back(text(*item));
    return all;
  }

  int64_t number(const toml::node& node, int64_t lowest, int64_t highest) const {
    const toml::value<int64_t>* const value = node.as_integer();
    if (!value) throw error(node, "not a whole number");
    if (value->get() < lowest || value->get() > highest)
      throw error(node, "out of range", range_text(lowest, highest));
    return value->get();
  }
  uint32_t word(const toml::node& node, uint32_t highest = UINT32_MAX) const {
    return static_cast<uint32_t>(number(node, 0, highest));
  }

  bool boolean(const toml::node& node) const {
    const toml::value<bool>* const value = node.as_boolean();
    if (!value) throw error(node, "neither true nor false");
    return value->get();
  }

  std::string identifier(const toml::node& node) const {
    const std::string name = text(node);
    if (!is_identifier(name)) throw error(node, "not a C identifier: " + quoted_value(name));
    return name;
  }

  // The value that a word stands for.
  template <class T>
  T choice(const toml::node& node, std::initializer_list<std::pair<const char*, T>> choices) const {
    const std::string word = text(node);
    std::string all;
    for (const auto& [name, value] : choices) {
      if (word == name) return value;
      all += (all.empty() ? "" : ", ") + std::string(name);
    }
    throw error(node, "unknown word " + quoted_value(word), "one of " + all);
  }

 private:
  void check_dots(std::string_view text) const {
    for (unsigned line = 1; !text.empty(); ++line) {
      const std::string_view one = text.substr(0, text.find('\n'));
      if (std::count(one.begin(), one.end(), '.') > kMaxDots)
        throw Error(Status::refused, Place{file_, line, 0},
                    "more than " + std::to_string(kMaxDots) + " dots: break the line");
      text.remove_prefix(std::min(one.size() + 1, text.size()));
    }
  }

  std::string file_;
};

// --- which keys mean something for which entries ---

// Why a key with this value means nothing for an entry; null when it means something.
using Misfit = const char* (*)(const Entry&, const toml::node& value);

const char* needs_nothing(const Entry&, const toml::node&) { return nullptr; }
const char* needs_value(const Entry& entry, const toml::node&) {
  return entry.is_object() ? "an object has no value" : nullptr;
}
const char* needs_savable(const Entry& entry, const toml::node& save) {
  if (entry.type == QMIBTREE_TYPE_DATETIME && save.value<std::string>() != "never")
    return "a dateTime cannot be saved: documents do not bring datetimes back";
  return needs_value(entry, save);
}
const char* needs_changes(const Entry& entry, const toml::node&) {
  return entry.is_object() && !entry.multi ? "the object is no table" : nullptr;
}
const char* needs_number(const Entry& entry, const toml::node&) {
  const bool fits = entry.type == QMIBTREE_TYPE_INT || entry.type == QMIBTREE_TYPE_UINT;
  return fits ? nullptr : "neither int nor unsignedInt";
}
const char* needs_string(const Entry& entry, const toml::node&) {
  return entry.type == QMIBTREE_TYPE_STRING ? nullptr : "not a string";
}
const char* needs_bytes(const Entry& entry, const toml::node&) {
  const bool fits = entry.type == QMIBTREE_TYPE_BASE64 || entry.type == QMIBTREE_TYPE_STRING;
  return fits ? nullptr : "neither string nor base64";
}

// --- what a rule may be only for ---

template <uint32_t kType>
bool is_of(const Entry& entry) {
  return entry.type == kType;
}

constexpr struct Property {
  const char* name;
  bool (*holds)(const Entry& entry);
} properties[] = {
    {"readWrite", [](const Entry& entry) { return entry.writable; }},
    {"readOnly", [](const Entry& entry) { return !entry.writable; }},
    {"parameter", [](const Entry& entry) { return !entry.is_object(); }},
    {"object", [](const Entry& entry) { return entry.is_object(); }},
    {"table", [](const Entry& entry) { return entry.multi; }},
    {"list", [](const Entry& entry) { return entry.list; }},
    {"string", is_of<QMIBTREE_TYPE_STRING>},
    {"int", is_of<QMIBTREE_TYPE_INT>},
    {"unsignedInt", is_of<QMIBTREE_TYPE_UINT>},
    {"boolean", is_of<QMIBTREE_TYPE_BOOL>},
    {"dateTime", is_of<QMIBTREE_TYPE_DATETIME>},
    {"base64", is_of<QMIBTREE_TYPE_BASE64>},
};

// --- the overlay ---

class Overlay {
 public:
  Overlay(Model& model, const std::string& file) : model_(model), read_(file) {}
  void apply();

 private:
  // A key of rules: what it does to an entry that it fits.
  struct Key {
    const char* name;
    Misfit misfit;
    Change (Overlay::*read)(const toml::node& node);
  };
  static const Key keys[];

  // A key as a rule has it.
  struct Setting {
    const Key* key;
    const toml::node* node;
    Change change;
  };

  // What a rule does, and to which of the entries that it matches.
  struct Rule {
    std::vector<const Property*> only;
    std::vector<Setting> settings;
  };

  // The model's own limits of an entry that the overlay changes, and where it did so.
  struct Changed {
    int64_t min, max;
    uint32_t max_len;
    std::vector<std::string> words;
    std::optional<Place> limits, defval;
  };

  struct Hook {
    std::string_view kind;
    Place place;
  };

  void read_model(const toml::table& table);
  void read_components(const toml::table& table);
  void leave_out(const toml::table& table);
  size_t remove(const std::function<bool(const Entry&)>& condition);

  Entry& add(const toml::table& table, uint32_t type);
  void add_object(const toml::table& table);
  void add_parameter(const toml::table& table);
  void check_entries() const;
  bool writable(const toml::node& node) const;

  void apply_rule(const toml::table& table);
  size_t apply_to_matches(const std::string& pattern, const Rule& rule);
  std::vector<const Property*> read_only(const toml::table& table) const;
  std::vector<Setting> read_settings(const toml::table& table);
  void change(Entry& entry, const std::vector<Setting>& settings, bool pass_over_misfits) const;

  Change read_component(const toml::node& node);
  Change read_save(const toml::node& node);
  Change read_dynamic(const toml::node& node);
  Change read_access(const toml::node& node);
  Change read_notify(const toml::node& node);
  Change read_default(const toml::node& node);
  template <int64_t Entry::*kBound>
  Change read_bound(const toml::node& node);
  Change read_max_length(const toml::node& node);
  Change read_words(const toml::node& node);
  Change read_arg(const toml::node& node);
  template <std::string Hooks::*kHook>
  Change read_hook(const toml::node& node);

  Changed& changed(const Entry& entry);
  Error looser(const toml::node& node, const Entry& entry, const std::string& limit) const;
  void check_result() const;
  void check_entry(Entry& entry, const Changed& changed) const;

  Model& model_;
  Reader read_;
  std::set<const Entry*> added_;
  std::map<std::string, Entry*> entries_;  // all by path, when rules apply
  std::map<const Entry*, Changed> changed_;
  std::map<std::string, Hook> hooks_;
};

const Overlay::Key Overlay::keys[] = {
    {"component", needs_changes, &Overlay::read_component},
    {"save", needs_savable, &Overlay::read_save},
    {"dynamic", needs_value, &Overlay::read_dynamic},
    {"access", needs_changes, &Overlay::read_access},
    {"notify", needs_value, &Overlay::read_notify},
    {"default", needs_value, &Overlay::read_default},
    {"min", needs_number, &Overlay::read_bound<&Entry::min>},
    {"max", needs_number, &Overlay::read_bound<&Entry::max>},
    {"max_length", needs_bytes, &Overlay::read_max_length},
    {"words", needs_string, &Overlay::read_words},
    {"arg", needs_nothing, &Overlay::read_arg},
    {"create", needs_nothing, &Overlay::read_hook<&Hooks::create>},
    {"destroy", needs_nothing, &Overlay::read_hook<&Hooks::destroy>},
    {"set", needs_value, &Overlay::read_hook<&Hooks::set>},
    {"get", needs_value, &Overlay::read_hook<&Hooks::get>},
};

void Overlay::apply() {
  const toml::table file = read_.parse();
  read_.check_keys(file, {"model", "components", "object", "parameter", "rule"});
  const auto each = [&](const char* key, void (Overlay::*take)(const toml::table&)) {
    const toml::node* const node = file.get(key);
    if (!node) return;
    if (!node->is_array()) throw read_.error(*node, std::string("not an array: [[") + key + "]]");
    for (const toml::node& item : *node->as_array()) (this->*take)(read_.table(item));
  };
  if (const toml::node* const node = file.get("model")) read_model(read_.table(*node));
  if (const toml::node* const node = file.get("components")) read_components(read_.table(*node));
  each("object", &Overlay::add_object);
  each("parameter", &Overlay::add_parameter);
  check_entries();
  for_each(*model_.root, [&](Entry& entry) { entries_.emplace(entry.path(), &entry); });
  each("rule", &Overlay::apply_rule);
  check_result();
}

// --- [model], [components] ---

void Overlay::read_model(const toml::table& table) {
  read_.check_keys(table, {"name", "tag", "words", "leave_out", "leave_out_status"});
  if (const toml::node* const node = table.get("name")) model_.prefix = read_.identifier(*node);
  if (const toml::node* const node = table.get("tag")) model_.tag = read_.word(*node);
  if (const toml::node* const node = table.get("words")) model_.words_slot = read_.word(*node, 7);
  leave_out(table);
}

void Overlay::leave_out(const toml::table& table) {
  if (const toml::node* const node = table.get("leave_out_status"))
    for (const toml::node* const item : read_.list(*node)) {
      const std::string status = read_.choice<const char*>(
          *item,
          {{"deprecated", "deprecated"}, {"obsoleted", "obsoleted"}, {"deleted", "deleted"}});
      remove([&](const Entry& entry) { return entry.status == status; });
    }
  if (const toml::node* const node = table.get("leave_out"))
    for (const toml::node* const item : read_.list(*node)) {
      const std::string pattern = read_.text(*item);
      if (!remove([&](const Entry& entry) { return matches(pattern, entry.path()); }))
        throw read_.error(*item, quoted_value(pattern) + " matches nothing that can be left out");
    }
}

// Removes the entries that meet a condition, with all below them; the root always stays. Their
// number, without those below.
size_t Overlay::remove(const std::function<bool(const Entry&)>& condition) {
  size_t count = 0;
  for_each(*model_.root, [&](Entry& entry) {
    count += std::erase_if(entry.children, [&](const auto& child) { return condition(*child); });
  });
  return count;
}

void Overlay::read_components(const toml::table& table) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    const Place place = read_.place(key.source());
    if (!is_identifier(name))
      throw Error(Status::refused, place, "not a C identifier: " + quoted_value(name));
    if (component_constant(model_, name) == component_count_constant(model_))
      throw Error(Status::refused, place, "has the constant of the components' number: " + name);
    const uint32_t id = read_.word(node, kNoComponent - 1);
    for (const auto& [other, other_id] : model_.components)
      if (id == other_id || component_constant(model_, name) == component_constant(model_, other))
        throw Error(Status::refused, place,
                    (id == other_id ? "has the id of " : "has the constant of ") + other);
    model_.components[name] = id;
  }
}

// --- [[object]], [[parameter]] ---

// A path of an entry to be added.
struct NewName {
  std::string above;    // path of the object that it is to stand in
  std::string segment;  // own segment, with an object's dot
  bool multi;
};

std::optional<NewName> split_path(std::string_view path) {
  NewName name;
  name.multi = path.ends_with(".{i}.");
  if (name.multi) path.remove_suffix(4);
  const std::string_view plain = path.substr(0, path.size() - path.ends_with('.'));
  const size_t dot = plain.rfind('.');
  if (dot == std::string_view::npos || !is_segment(plain.substr(dot + 1))) return {};
  name.above = path.substr(0, dot + 1);
  name.segment = path.substr(dot + 1);
  return name;
}

Entry& Overlay::add(const toml::table& table, uint32_t type) {
  const toml::node& node = read_.required(table, "name");
  const std::string path = read_.text(node);
  const std::optional<NewName> name = split_path(path);
  const bool as_object = type == QMIBTREE_TYPE_OBJECT;
  if (!name || name->segment.ends_with('.') != as_object)
    throw read_.error(node, quoted_value(path) + " is no full name of " +
                                (as_object ? "an object" : "a parameter"));
  Entry* const above = find_entry(*model_.root, name->above);
  if (!above) throw read_.error(node, "there is no object " + quoted_value(name->above));
  if (const Entry* const known = above->child(name->segment))
    throw read_.error(node, known->path() + " is there already", "at " + known->place.text());
  if (!added_.contains(above) && !name->segment.starts_with("X_"))
    throw read_.error(node, name->segment + " does not begin with X_");
  const auto depth = std::count(path.begin(), path.end(), '.') -
                     std::count(path.begin(), path.end(), '{') + !as_object;
  if (path.size() > kMaxFullName || depth > kMaxDepth)
    throw read_.error(node, "too long or too deep for a document",
                      "at most " + std::to_string(kMaxFullName) + " bytes and " +
                          std::to_string(kMaxDepth) + " levels");

  auto entry = std::make_unique<Entry>();
  entry->name = name->segment;
  entry->place = read_.place(node);
  entry->type = type;
  entry->multi = name->multi;
  added_.insert(entry.get());
  return *above->add(std::move(entry));
}

void Overlay::add_object(const toml::table& table) {
  read_.check_keys(table, {"name", "access", "min_entries", "max_entries", "entries"});
  Entry& object = add(table, QMIBTREE_TYPE_OBJECT);
  for (const char* const key : {"access", "min_entries", "max_entries", "entries"})
    if (const toml::node* const node = table.get(key); node && !object.multi)
      throw read_.error(*node, std::string(key) + " is for tables: names that end in \"{i}.\"");
  if (const toml::node* const node = table.get("access")) object.writable = writable(*node);
  if (const toml::node* const node = table.get("min_entries"))
    object.min_entries = read_.word(*node);
  if (const toml::node* const node = table.get("max_entries"))
    object.max_entries = read_.word(*node);
  if (object.max_entries && object.min_entries > object.max_entries)
    throw read_.error(table, "min_entries is above max_entries");
  if (const toml::node* const node = table.get("entries")) object.entries = read_.text(*node);
}

constexpr struct {
  const char* name;
  uint32_t type;
  int64_t min, max;
} parameter_types[] = {
    {"string", QMIBTREE_TYPE_STRING, 0, 0},
    {"int", QMIBTREE_TYPE_INT, INT32_MIN, INT32_MAX},
    {"unsignedInt", QMIBTREE_TYPE_UINT, 0, UINT32_MAX},
    {"boolean", QMIBTREE_TYPE_BOOL, 0, 0},
    {"dateTime", QMIBTREE_TYPE_DATETIME, 0, 0},
    {"base64", QMIBTREE_TYPE_BASE64, 0, 0},
};

void Overlay::add_parameter(const toml::table& table) {
  std::vector<std::string> known = {"name", "type"};
  for (const Key& key : keys) known.emplace_back(key.name);
  read_.check_keys(table, known);
  const toml::node& node = read_.required(table, "type");
  const std::string name = read_.text(node);
  const auto* const type = std::find_if(std::begin(parameter_types), std::end(parameter_types),
                                        [&](const auto& row) { return row.name == name; });
  if (type == std::end(parameter_types))
    throw read_.error(node, "unknown type " + quoted_value(name),
                      "one of string, int, unsignedInt, boolean, dateTime, base64");
  Entry& parameter = add(table, type->type);
  parameter.source = name;
  parameter.min = type->min;
  parameter.max = type->max;
  change(parameter, read_settings(table), false);
}

void Overlay::check_entries() const {
  for_each(static_cast<const Entry&>(*model_.root), [&](const Entry& entry) {
    if (entry.entries.empty() || !added_.contains(&entry)) return;
    const Entry* const counter = entry.parent->child(entry.entries);
    if (!counter || counter->is_object())
      throw Error(Status::refused, entry.place,
                  "there is no parameter " + quoted_value(entry.parent->path() + entry.entries));
  });
}

// --- [[rule]] ---

std::vector<Overlay::Setting> Overlay::read_settings(const toml::table& table) {
  std::vector<Setting> settings;
  for (const Key& key : keys)
    if (const toml::node* const node = table.get(key.name))
      settings.push_back({&key, node, (this->*key.read)(*node)});
  return settings;
}

void Overlay::change(Entry& entry, const std::vector<Setting>& settings,
                     bool pass_over_misfits) const {
  for (const Setting& setting : settings) {
    const char* const why = setting.key->misfit(entry, *setting.node);
    if (!why)
      setting.change(entry);
    else if (!pass_over_misfits)
      throw read_.error(*setting.node,
                        std::string(setting.key->name) + " means nothing for " + entry.path(), why);
  }
}

std::vector<const Property*> Overlay::read_only(const toml::table& table) const {
  std::vector<const Property*> only;
  const toml::node* const node = table.get("only");
  if (!node) return only;
  std::vector<std::string> names;
  for (const Property& property : properties) names.emplace_back(property.name);
  for (const toml::node* const item : read_.list(*node)) {
    const std::string name = read_.text(*item);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
      throw read_.error(*item, "unknown property " + quoted_value(name), did_you_mean(name, names));
    only.push_back(&properties[found - names.begin()]);
  }
  return only;
}

void Overlay::apply_rule(const toml::table& table) {
  std::vector<std::string> known = {"match", "only", "optional"};
  for (const Key& key : keys) known.emplace_back(key.name);
  read_.check_keys(table, known);
  const toml::node* const optional = table.get("optional");
  const bool may_match_nothing = optional && read_.boolean(*optional);
  const Rule rule = {read_only(table), read_settings(table)};
  for (const toml::node* const item : read_.list(read_.required(table, "match"))) {
    const std::string pattern = read_.text(*item);
    if (apply_to_matches(pattern, rule) || may_match_nothing) continue;
    std::vector<std::string> names;
    for (const auto& [path, entry] : entries_) names.push_back(path);
    throw read_.error(
        *item,
        quoted_value(pattern) + " matches nothing" + (rule.only.empty() ? "" : " of this kind"),
        has_wildcard(pattern) || !rule.only.empty() ? "" : did_you_mean(pattern, names));
  }
}

// The number of entries that the rule changes. Only those that begin as the pattern are looked at.
size_t Overlay::apply_to_matches(const std::string& pattern, const Rule& rule) {
  const std::string start = pattern.substr(0, pattern.find_first_of(kWildcards));
  size_t count = 0;
  for (auto at = entries_.lower_bound(start); at != entries_.end() && at->first.starts_with(start);
       ++at) {
    const auto holds = [&](const Property* property) { return property->holds(*at->second); };
    if (!matches(pattern, at->first) || !std::all_of(rule.only.begin(), rule.only.end(), holds))
      continue;
    change(*at->second, rule.settings, has_wildcard(pattern));
    ++count;
  }
  return count;
}

Change Overlay::read_component(const toml::node& node) {
  const std::string name = read_.text(node);
  const auto found = model_.components.find(name);
  if (found == model_.components.end()) {
    std::vector<std::string> names;
    for (const auto& [known, id] : model_.components) names.push_back(known);
    throw read_.error(node, "unknown component " + quoted_value(name), did_you_mean(name, names));
  }
  return [id = found->second](Entry& entry) { entry.component = id; };
}

Change Overlay::read_save(const toml::node& node) {
  const Save save = read_.choice<Save>(
      node, {{"always", Save::always}, {"modified", Save::modified}, {"never", Save::never}});
  return [save](Entry& entry) { entry.save = save; };
}

Change Overlay::read_dynamic(const toml::node& node) {
  return [dynamic = read_.boolean(node)](Entry& entry) { entry.dynamic = dynamic; };
}

bool Overlay::writable(const toml::node& node) const {
  return read_.choice<bool>(node, {{"readOnly", false}, {"readWrite", true}});
}

Change Overlay::read_access(const toml::node& node) {
  return [writable = writable(node)](Entry& entry) { entry.writable = writable; };
}

Change Overlay::read_notify(const toml::node& node) {
  const Notify notify = read_.choice<Notify>(
      node,
      {{"normal", Notify::normal}, {"default", Notify::by_default}, {"forced", Notify::forced}});
  return [notify](Entry& entry) { entry.notify = notify; };
}

Change Overlay::read_default(const toml::node& node) {
  std::string text;
  if (const auto* const flag = node.as_boolean())
    text = flag->get() ? "true" : "false";
  else if (const auto* const number = node.as_integer())
    text = std::to_string(number->get());
  else
    text = read_.text(node);
  return [this, text, place = read_.place(node)](Entry& entry) {
    changed(entry).defval = place;
    entry.defval = text;
  };
}

Error Overlay::looser(const toml::node& node, const Entry& entry, const std::string& limit) const {
  return read_.error(node, "looser than the model's limit for " + entry.path(), limit);
}

template <int64_t Entry::*kBound>
Change Overlay::read_bound(const toml::node& node) {
  return [this, &node, bound = read_.number(node, INT32_MIN, UINT32_MAX)](Entry& entry) {
    Changed& model = changed(entry);
    if (bound < model.min || bound > model.max)
      throw looser(node, entry, range_text(model.min, model.max));
    model.limits = read_.place(node);
    entry.*kBound = bound;
  };
}

Change Overlay::read_max_length(const toml::node& node) {
  return [this, &node, length = read_.word(node, INT32_MAX)](Entry& entry) {
    Changed& model = changed(entry);
    if (model.max_len && (length == 0 || length > model.max_len))
      throw looser(node, entry, "at most " + counted(model.max_len, "byte"));
    model.limits = read_.place(node);
    entry.max_len = length;
  };
}

Change Overlay::read_words(const toml::node& node) {
  return [this, &node, words = read_.texts(node)](Entry& entry) {
    Changed& model = changed(entry);
    for (const std::string& word : words)
      if (!model.words.empty() && !word.starts_with("X_") &&
          std::find(model.words.begin(), model.words.end(), word) == model.words.end())
        throw read_.error(node,
                          quoted_value(word) + " is none of the model's words for " + entry.path(),
                          did_you_mean(word, model.words));
    model.limits = read_.place(node);
    entry.words = words;
  };
}

Change Overlay::read_arg(const toml::node& node) {
  return [arg = read_.word(node)](Entry& entry) { entry.arg = arg; };
}

// A function stands in slots of one kind only: it is declared once.
template <std::string Hooks::*kHook>
Change Overlay::read_hook(const toml::node& node) {
  const std::string_view kind = kHook == &Hooks::set   ? "set"
                                : kHook == &Hooks::get ? "get"
                                                       : "create or destroy";
  const std::string name = read_.identifier(node);
  if (std::find(std::begin(keywords), std::end(keywords), name) != std::end(keywords))
    throw read_.error(node, "a keyword of C or C++: " + name);
  const auto known = hooks_.emplace(name, Hook{kind, read_.place(node)}).first;
  if (known->second.kind != kind)
    throw read_.error(node, name + " is a " + std::string(known->second.kind) + " hook already",
                      "first at " + known->second.place.text());
  return [name](Entry& entry) { entry.hooks.*kHook = name; };
}

// --- the result ---

Overlay::Changed& Overlay::changed(const Entry& entry) {
  return changed_.emplace(&entry, Changed{entry.min, entry.max, entry.max_len, entry.words, {}, {}})
      .first->second;
}

// Why a parameter refuses its default, "" when it does not. The default is set aside meanwhile: any
// text is allowed that is the default.
std::string refusal_of_default(Entry& entry) {
  std::optional<std::string> text;
  text.swap(entry.defval);
  const std::string why = refusal(entry, *text);
  text.swap(entry.defval);
  return why;
}

void Overlay::check_entry(Entry& entry, const Changed& changed) const {
  if (changed.limits && entry.min > entry.max)
    throw Error(Status::refused, *changed.limits,
                "the lowest value of " + entry.path() + " is above its highest",
                range_text(entry.min, entry.max));
  if (!entry.defval) return;
  const Place& place = changed.defval ? *changed.defval : *changed.limits;
  if (const std::string why = refusal_of_default(entry); !why.empty())
    throw Error(Status::refused, place,
                "the default of " + entry.path() + " is refused: " + quoted_value(*entry.defval),
                why);
}

void Overlay::check_result() const {
  for (const auto& [path, entry] : entries_) {
    const auto found = changed_.find(entry);
    const bool is_changed = found != changed_.end();
    if (is_changed) check_entry(*entry, found->second);
    if (!entry->defval) continue;
    const std::string why = loss(*entry, *entry->defval);
    if (why.empty()) continue;
    const bool given_here = is_changed && found->second.defval;
    throw Error(Status::refused, given_here ? *found->second.defval : entry->place,
                "a saved default that a document cannot hold: " + path, why);
  }
}

}  // namespace

void apply_overlay(Model& model, const std::string& file) {
  Overlay(model, file).apply();
  model.files.push_back(file);
}

// --- what is still without a value ---

namespace {

constexpr struct {
  uint32_t type;
  const char* kind;
} notes_by_type[] = {
    {QMIBTREE_TYPE_STRING, "string without a default: empty"},
    {QMIBTREE_TYPE_INT, "number without a default: 0 or the bound next to it"},
    {QMIBTREE_TYPE_UINT, "number without a default: 0 or the bound next to it"},
    {QMIBTREE_TYPE_BOOL, "boolean without a default: false"},
};

std::string neutral_value(const Entry& entry) {
  if (entry.type == QMIBTREE_TYPE_STRING) return "";
  if (entry.type == QMIBTREE_TYPE_BOOL) return "false";
  return std::to_string(std::clamp<int64_t>(0, entry.min, entry.max));
}

}  // namespace

void complete(Model& model) {
  for_each(*model.root, [&](Entry& entry) {
    if (entry.defval || entry.dynamic || !entry.hooks.get.empty()) return;
    for (const auto& note : notes_by_type)
      if (note.type == entry.type) {
        entry.defval = neutral_value(entry);
        model.notes.push_back({entry.place, entry.path(), note.kind, *entry.defval});
      }
  });
}

}  // namespace mibctl
