// The generated C source: the schema block, and a header with its names.
#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "model.hh"
#include "text.hh"

namespace mibctl {

namespace {

// --- pieces of C ---

constexpr size_t kWidth = 100;
constexpr size_t kPromisedText = 4095;  // longest literal that every C compiler takes

// A text that stays in the comment it is put into. A line's end is a blank: behind a backslash it
// would join "*" and "/".
std::string in_comment(std::string_view text) {
  std::string safe;
  for (const char c : text) {
    const bool ends = c == '/' && safe.ends_with('*');
    const bool begins = c == '*' && safe.ends_with('/');
    if (ends || begins) safe += ' ';
    safe += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
  }
  return safe;
}

// Three octal digits end an escape whatever follows; "?" is one too, for "??/" would be a
// backslash.
std::string literal(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const unsigned code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\' || c == '?') {
      out += '\\';
      out += c;
    } else if (code < ' ' || code > '~') {
      char octal[5];
      std::snprintf(octal, sizeof octal, "\\%03o", code);
      out += octal;
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string upper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return text;
}

std::string int_text(int32_t number) {
  if (number == INT32_MIN) return "INT32_MIN";
  if (number == INT32_MAX) return "INT32_MAX";
  return std::to_string(number);
}

std::string uint_text(uint32_t number) {
  return number == UINT32_MAX ? "UINT32_MAX" : std::to_string(number);
}

constexpr struct {
  uint32_t type;
  const char* name;
} type_names[] = {
    {QMIBTREE_TYPE_OBJECT, "QMIBTREE_TYPE_OBJECT"},
    {QMIBTREE_TYPE_INT, "QMIBTREE_TYPE_INT"},
    {QMIBTREE_TYPE_UINT, "QMIBTREE_TYPE_UINT"},
    {QMIBTREE_TYPE_STRING, "QMIBTREE_TYPE_STRING"},
    {QMIBTREE_TYPE_DATETIME, "QMIBTREE_TYPE_DATETIME"},
    {QMIBTREE_TYPE_BASE64, "QMIBTREE_TYPE_BASE64"},
    {QMIBTREE_TYPE_BOOL, "QMIBTREE_TYPE_BOOL"},
};

std::string type_text(uint32_t type) {
  return std::find_if(std::begin(type_names), std::end(type_names),
                      [type](const auto& row) { return row.type == type; })
      ->name;
}

constexpr struct {
  uint32_t flag;
  const char* name;
} flag_names[] = {
    {QMIBTREE_UID_MULTI, "QMIBTREE_UID_MULTI"},
    {QMIBTREE_UID_DYNAMIC, "QMIBTREE_UID_DYNAMIC"},
    {QMIBTREE_UID_READONLY, "QMIBTREE_UID_READONLY"},
    {QMIBTREE_UID_SAVE_MODIFIED, "QMIBTREE_UID_SAVE_MODIFIED"},
    {QMIBTREE_UID_NOTIF_DEFAULT, "QMIBTREE_UID_NOTIF_DEFAULT"},
    {QMIBTREE_UID_NOTIF_FORCED, "QMIBTREE_UID_NOTIF_FORCED"},
    {QMIBTREE_UID_SAVE, "QMIBTREE_UID_SAVE"},
};

std::string flags_text(uint32_t flags) {
  std::string text;
  for (const auto& row : flag_names)
    if (flags & row.flag) text += (text.empty() ? "" : " | ") + std::string(row.name);
  return text;
}

}  // namespace

// --- names ---

std::string component_constant(const Model& model, const std::string& name) {
  return upper(model.prefix) + "_COMP_" + upper(name);
}

std::string component_count_constant(const Model& model) {
  return component_constant(model, "count");
}

namespace {

std::vector<const Entry*> entries_by_uid(const Model& model, size_t count) {
  std::vector<const Entry*> entries(count);
  for_each(static_cast<const Entry&>(*model.root),
           [&](const Entry& entry) { entries[entry.uid] = &entry; });
  return entries;
}

// "Gw.T.{i}.Some-Name" as "Gw_T_Some_Name".
std::string as_identifier(const Entry& entry) {
  std::string name = entry.parent ? as_identifier(*entry.parent) : "";
  for (const char c : entry.name) name += c == '.' || c == '-' ? '_' : c;
  return name;
}

std::string count_constant(const Model& model) { return upper(model.prefix) + "_UIDS"; }
std::string words_constant(const Model& model) { return upper(model.prefix) + "_WORDS"; }
std::string guard_macro(const Model& model) { return upper(model.prefix) + "_SCHEMA_H"; }
std::string schema_function(const Model& model) { return model.prefix + "_schema"; }
std::string block_variable(const Model& model) { return model.prefix + "_block"; }

// What is defined besides the entries' constants.
std::vector<std::string> general_names(const Model& model) {
  std::vector<std::string> names = {count_constant(model),  words_constant(model),
                                    guard_macro(model),     component_count_constant(model),
                                    schema_function(model), block_variable(model)};
  for (const auto& [name, id] : model.components) names.push_back(component_constant(model, name));
  return names;
}

// The constants of the entries by unique id; "" where no entry has the id. One that is made twice
// gets the id behind it, all of them so that none depends on the order. What that makes may be
// another's name: again, then, until each is alone.
std::vector<std::string> uid_constants(const Model& model,
                                       const std::vector<const Entry*>& entries) {
  std::vector<std::string> names(entries.size());
  for (size_t uid = 0; uid < entries.size(); ++uid)
    if (entries[uid]) names[uid] = upper(model.prefix) + '_' + as_identifier(*entries[uid]);
  for (bool again = true; again;) {
    std::map<std::string, unsigned> uses;
    for (const std::string& name : general_names(model)) ++uses[name];
    for (const std::string& name : names) ++uses[name];
    again = false;
    for (size_t uid = 0; uid < names.size(); ++uid)
      if (entries[uid] && uses[names[uid]] > 1) {
        names[uid] += '_' + std::to_string(uid);
        again = true;
      }
  }
  return names;
}

// --- hooks ---

constexpr const char* kNodeArguments = "qmibtree_inst_t* inst, qmibtree_node* node";

constexpr struct {
  std::string Hooks::*function;
  const char* field;
  const char* more_arguments;
} hook_slots[] = {
    {&Hooks::create, ".create_fn", ""},
    {&Hooks::destroy, ".destroy_fn", ""},
    {&Hooks::set, ".set_fn", ", qmibtree_value_t* value"},
    {&Hooks::get, ".get_fn", ", qmibtree_value_t* value, uint32_t flags"},
};

// Hooks are named by the host, and everything else after the prefix.
void check_names(const Model& model, const std::vector<std::string>& constants) {
  if (upper(model.prefix).starts_with("QMIBTREE"))
    throw refused(model.prefix, "begins as the library's own names do");
  std::set<std::string> taken(constants.begin(), constants.end());
  for (const std::string& name : general_names(model)) taken.insert(name);
  for_each(static_cast<const Entry&>(*model.root), [&](const Entry& entry) {
    for (const auto& slot : hook_slots)
      if (const std::string& name = entry.hooks.*slot.function;
          !name.empty() && taken.contains(name))
        throw refused(name, "no name for a hook: the generated source has it already");
  });
}

// The declarations of all hooks, by name.
std::string hook_declarations(const Model& model) {
  std::map<std::string, const char*> functions;
  for_each(static_cast<const Entry&>(*model.root), [&](const Entry& entry) {
    for (const auto& slot : hook_slots)
      if (const std::string& name = entry.hooks.*slot.function; !name.empty())
        functions.emplace(name, slot.more_arguments);
  });
  if (functions.empty()) return "";
  std::string text = "/* The host's hooks, which it defines. */\n";
  for (const auto& [name, more] : functions)
    text += "uint32_t " + name + '(' + kNodeArguments + more + ");\n";
  return text + '\n';
}

// --- the header ---

std::string head_comment(const Model& model, const char* what) {
  return "/* " + std::string(what) + in_comment(model.name) +
         ". Made by mibctl schema compile: do not edit. */\n";
}

std::string uid_enum(const Model& model, const std::vector<const Entry*>& entries,
                     const std::vector<std::string>& names) {
  std::string text = "/* Unique ids. */\nenum {\n";
  for (size_t uid = 0; uid < names.size(); ++uid)
    if (entries[uid]) text += "  " + names[uid] + " = " + std::to_string(uid) + ",\n";
  return text + "  " + count_constant(model) + " = " + std::to_string(entries.size()) +
         " /* records, those that no entry has included */\n};\n\n";
}

std::string component_enum(const Model& model) {
  if (model.components.empty()) return "";
  std::map<uint32_t, std::string> names;
  for (const auto& [name, id] : model.components) names[id] = component_constant(model, name);
  std::string text = "/* Components. */\nenum {\n";
  for (const auto& [id, name] : names) text += "  " + name + " = " + std::to_string(id) + ",\n";
  return text + "  " + component_count_constant(model) + " = " +
         std::to_string(names.rbegin()->first + 1) + " /* the highest and 1 */\n};\n\n";
}

std::string words_enum(const Model& model) {
  if (!model.words_slot) return "";
  return "/* The ext_fn word of a record that has the values allowed, \"A|B\"; null: any. */\n"
         "enum { " +
         words_constant(model) + " = " + std::to_string(*model.words_slot) + " };\n\n";
}

std::string header_text(const Model& model, const std::vector<const Entry*>& entries,
                        const std::vector<std::string>& names) {
  const std::string guard = guard_macro(model);
  return head_comment(model, "The schema of ") + "#ifndef " + guard + "\n#define " + guard +
         "\n\n#include <qmibtree.h>\n\n"
         "#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n" +
         uid_enum(model, entries, names) + component_enum(model) + words_enum(model) +
         hook_declarations(model) +
         "/* The schema, with its hooks: for qmibtree_init.\n"
         " *\n"
         " * Always the same block, which lives as long as the program. The library writes into\n"
         " * it (qmibtree_reg_uidinfo): trees of it are for one thread at a time. */\n"
         "qmibtree_schema_t* " +
         schema_function(model) +
         "(void);\n\n"
         "#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
}

// --- the source ---

// Fields of one record, a new line where the next would not fit.
class Initializer {
 public:
  void add(const std::string& field, const std::string& value) {
    const std::string item = field + " = " + value;
    if (!line_.empty() && line_.size() + item.size() + 4 > kWidth) break_line();
    line_ += (line_.empty() ? text_.empty() ? "        {" : "         " : ", ") + item;
  }
  std::string text() { return text_ + line_ + "},\n"; }

 private:
  void break_line() {
    text_ += line_ + ",\n";
    line_.clear();
  }
  std::string text_, line_;
};

void add_limits(Initializer& fields, const qmibtree_uidinfo_t& record) {
  if (record.max_len) fields.add(".max_len", std::to_string(record.max_len));
  if (record.type == QMIBTREE_TYPE_INT) {
    fields.add(".int_min", int_text(record.int_min));
    fields.add(".int_max", int_text(record.int_max));
  } else if (record.type == QMIBTREE_TYPE_UINT) {
    fields.add(".uint_min", uint_text(record.uint_min));
    fields.add(".uint_max", uint_text(record.uint_max));
  }
}

// The values allowed, as their slot has them; nothing where there is none or any is allowed. A list
// has none: its items are not whole values.
std::optional<std::string> words_text(const Model& model, const Entry& entry) {
  if (!model.words_slot || entry.words.empty() || entry.list) return {};
  std::string text;
  const char* separator = "";
  for (const std::string& word : entry.words) {
    if (word.find('|') != std::string::npos)
      throw Error(Status::refused, entry.place,
                  "a value allowed for " + entry.path() + " has a |: " + quoted_value(word),
                  "the overlay can give it others, or no slot for words");
    text += separator + word;
    separator = "|";
  }
  return text;
}

// What the library does not read: the hooks of the entry's own, and the words for the host's.
void add_host_fields(Initializer& fields, const Model& model, const Entry& entry) {
  for (const auto& slot : hook_slots)
    if (const std::string& name = entry.hooks.*slot.function; !name.empty())
      fields.add(slot.field, name);
  if (const std::optional<std::string> words = words_text(model, entry))
    fields.add(".ext_fn[" + words_constant(model) + "]", "(void*)" + literal(*words));
}

std::string component_text(const Model& model, uint32_t id) {
  const std::string name = model.component_name(id);
  return name.empty() ? "QMIBTREE_COMP_MAX" : component_constant(model, name);
}

std::string record_text(const Model& model, const Entry* entry, const qmibtree_uidinfo_t& record) {
  Initializer fields;
  fields.add(".uid", std::to_string(record.uid));
  fields.add(".next_uid", std::to_string(record.next_uid));
  fields.add(".child_uid", std::to_string(record.child_uid));
  fields.add(".name", literal(record.name));
  fields.add(".type", type_text(record.type));
  if (record.flags) fields.add(".flags", flags_text(record.flags));
  if (record.arg) fields.add(".arg", std::to_string(record.arg));
  if (record.defval) fields.add(".defval", literal(record.defval));
  add_limits(fields, record);
  fields.add(".comp", component_text(model, record.comp));
  if (entry) add_host_fields(fields, model, *entry);
  const std::string what = entry ? in_comment(entry->path()) : "no entry";
  return "        /* " + std::to_string(record.uid) + ' ' + what + " */\n" + fields.text();
}

bool has_long_text(const Model& model) {
  bool found = false;
  for_each(static_cast<const Entry&>(*model.root), [&](const Entry& entry) {
    found |= entry.defval && entry.defval->size() > kPromisedText;
    found |= words_text(model, entry).value_or("").size() > kPromisedText;
  });
  return found;
}

std::string source_text(const Model& model, const std::string& header_name,
                        const std::vector<const Entry*>& entries,
                        const std::vector<qmibtree_uidinfo_t>& records) {
  std::string text = head_comment(model, "The schema of ") + "#include \"" + header_name + "\"\n\n";
  if (has_long_text(model))
    text +=
        "/* Texts longer than C promises to take. */\n"
        "#if defined(__GNUC__)\n"
        "#pragma GCC diagnostic ignored \"-Woverlength-strings\"\n"
        "#endif\n\n";
  text += "static QMIBTREE_SCHEMA_BLOCK(" + count_constant(model) + ") " + block_variable(model) +
          " = {\n    " + std::to_string(model.tag) + ", " + count_constant(model) + ",\n    {\n";
  for (const qmibtree_uidinfo_t& record : records)
    text += record_text(model, entries[record.uid], record);
  return text + "    }};\n\nqmibtree_schema_t* " + schema_function(model) +
         "(void) { return QMIBTREE_SCHEMA(&" + block_variable(model) + "); }\n";
}

}  // namespace

Generated generate(const Model& model) {
  const std::vector<qmibtree_uidinfo_t> records = records_of(model);
  const std::vector<const Entry*> entries = entries_by_uid(model, records.size());
  const std::vector<std::string> names = uid_constants(model, entries);
  check_names(model, names);
  Generated generated;
  generated.source_name = model.prefix + "_schema.c";
  generated.header_name = model.prefix + "_schema.h";
  generated.header = header_text(model, entries, names);
  generated.source = source_text(model, generated.header_name, entries, records);
  return generated;
}

}  // namespace mibctl
