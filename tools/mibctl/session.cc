#include "session.hh"

#include <algorithm>
#include <cstring>
#include <vector>

#include "lint.hh"
#include "text.hh"

namespace mibctl {

namespace {

// The words of an attribute group and their bits.
constexpr struct {
  const char* setting;
  uint32_t bit;
} settings[] = {
    {"notify=off", QMIBTREE_ATTR_NOTIF_OFF},
    {"notify=passive", QMIBTREE_ATTR_NOTIF_PASSIVE},
    {"notify=active", QMIBTREE_ATTR_NOTIF_ACTIVE},
    {"access=none", QMIBTREE_ATTR_ACCESS_NONE},
    {"access=subscriber", QMIBTREE_ATTR_ACCESS_SUBSCRIBER},
};

uint32_t bit_of(const std::string& name, std::string_view setting) {
  for (const auto& known : settings)
    if (setting == known.setting) return known.bit;
  throw refused(name, "unknown attribute setting " + std::string(setting),
                "notify=off, notify=passive, notify=active, access=none or access=subscriber");
}

// The first word of a line, which is taken off it together with the blanks behind it.
std::string_view take_word(std::string_view& line) {
  const size_t end = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
  return word;
}

qmibtree_node* find_or_null(const Tree& tree, const std::string& name) {
  return qmibtree_find_node_by_name(tree.inst(), name.c_str());
}

// "A.B.3." as its table "A.B." and 3; 0 when the name has no such form.
uint32_t split_instance(const std::string& name, std::string& table) {
  if (!name.ends_with('.') || name.size() < 2) return 0;
  const size_t dot = name.rfind('.', name.size() - 2);
  if (dot == std::string::npos) return 0;
  table = name.substr(0, dot + 1);
  const std::string_view number(name.data() + dot + 1, name.size() - dot - 2);
  return static_cast<uint32_t>(parse_number(number, 1, INT32_MAX).value_or(0));
}

}  // namespace

Attributes attributes_of(const qmibtree_node* node) {
  Attributes words{"off", "none"};
  if (node->flags & QMIBTREE_NODE_NOTIF_PASSIVE) words.notify = "passive";
  if (node->flags & QMIBTREE_NODE_NOTIF_ACTIVE) words.notify = "active";
  if (node->flags & QMIBTREE_NODE_ACCESS) words.access = "subscriber";
  return words;
}

Error located(const Place& place, const Error& error) {
  if (place.file.empty()) return error;
  return {error.status, place, error.name + ": " + error.text, error.detail};
}

Session::Session(const Options& options, Start start)
    : model_(model_of(options)), store_(store_of(options)) {
  if (start == Start::stored)
    reload();
  else
    tree_ = std::make_unique<Tree>(model_);
}

void Session::reload() {
  std::string document = store_->load();
  auto tree = std::make_unique<Tree>(model_);
  if (!tree->load(document))
    throw Error(Status::storage, store_->name(), "does not load", document_problem(document));
  stored_ = std::move(document);
  tree_ = std::move(tree);
  touched_.clear();
  changed_ = false;
}

void Session::touch(const std::string& name) {
  touched_[name] = place_;
  changed_ = true;
}

void Session::set(const std::string& name, const std::string& text, uint32_t flags) {
  tree_->write(tree_->find(name), text, flags);
  touch(name);
}

std::string Session::add(const std::string& table, uint32_t wish) {
  const qmibtree_node* const instance = tree_->add(tree_->find(table), wish);
  touch(instance->fullName);
  return instance->fullName;
}

void Session::del(const std::string& name) {
  tree_->del(tree_->find(name));
  changed_ = true;
}

void Session::set_attribute(const std::string& name, std::string_view setting) {
  qmibtree_node* const node = tree_->find(name);
  if (!(node->flags & QMIBTREE_NODE_PARAM))
    throw refused(name, "not a parameter", "a document keeps the attributes of parameters only");
  qmibtree_set_attr_by_node(tree_->inst(), node, bit_of(name, setting));
  touch(name);
}

namespace {

void replay_assignment(Session& session, std::string_view line) {
  const size_t equals = line.find('=');
  const std::string name(line.substr(0, equals));
  if (equals == std::string_view::npos) throw refused(name, "not an assignment", "NAME=VALUE");
  const auto value = unquoted_value(line.substr(equals + 1));
  if (!value) throw refused(name, "malformed quoted value", std::string(line.substr(equals + 1)));
  session.set(name, *value, 0);
}

void replay_instance(Session& session, std::string_view line) {
  std::string table;
  const std::string name(line);
  const uint32_t number = split_instance(name, table);
  if (!number)
    throw refused(name, "not an instance", "an instance's full name ends in a number and a dot");
  if (!find_or_null(session.tree(), name)) session.add(table, number);
}

void replay_attributes(Session& session, std::string_view rest) {
  const std::string name(take_word(rest));
  if (rest.empty())
    throw refused(name, "no attribute given", "notify=off|passive|active, access=subscriber|none");
  while (!rest.empty()) session.set_attribute(name, take_word(rest));
}

void replay_add(Session& session, std::string_view rest) {
  session.add(std::string(take_word(rest)), 0);
}

void replay_del(Session& session, std::string_view rest) {
  session.del(std::string(take_word(rest)));
}

constexpr struct {
  std::string_view word;
  void (*act)(Session& session, std::string_view rest);
  const char* arguments;
} verbs[] = {
    {"set", replay_assignment, "set NAME=VALUE"},
    {"add", replay_add, "add TABLE"},
    {"del", replay_del, "del INSTANCE"},
    {"attr", replay_attributes, "attr NAME notify=... access=..."},
};

void replay_line(Session& session, std::string_view line) {
  // A value may hold blanks, a name cannot: a verb is a word with nothing or a blank behind it.
  std::string_view rest = line;
  const std::string_view word = take_word(rest);
  for (const auto& verb : verbs)
    if (word == verb.word && rest.empty())
      throw refused(std::string(word), "needs more", verb.arguments);
    else if (word == verb.word)
      return verb.act(session, rest);
  if (line.find('=') < word.size()) return replay_assignment(session, line);
  if (rest.empty()) return replay_instance(session, word);
  throw refused(std::string(word), "unknown verb",
                "a line is Full.Name=value, an instance, set, add, del or attr");
}

}  // namespace

void Session::replay(std::string_view line, const Place& place) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  if (line.empty() || line.starts_with('#')) return;
  place_ = place;
  try {
    replay_line(*this, line);
  } catch (const Error& error) {
    throw located(place, error);
  }
  place_ = {};
}

namespace {

const Finding* first_lost(const std::vector<Finding>& findings) {
  const auto found = std::find_if(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.lost; });
  return found == findings.end() ? nullptr : &*found;
}

std::string described(const Finding& finding) {
  return "line " + std::to_string(finding.line) + ": " + finding.name + ": " + finding.text;
}

}  // namespace

void Session::import(const std::string& document, const std::string& name, bool force) {
  auto tree = std::make_unique<Tree>(model_);
  if (!tree->load(document)) throw refused(name, "does not load", document_problem(document));
  const std::vector<Finding> findings = force ? std::vector<Finding>() : lint(model_, document);
  if (const Finding* lost = first_lost(findings))
    throw refused(name,
                  "something in it would be lost; mibctl check shows all, --force imports the rest",
                  described(*lost));
  tree_ = std::move(tree);
  stored_.clear();  // replaced as a whole: nothing of it is missed
  touched_.clear();
  changed_ = true;
}

void Session::check_stored(bool force) const {
  if (force || stored_.empty()) return;
  const std::vector<Finding> findings = lint(model_, stored_);
  if (const Finding* lost = first_lost(findings))
    throw refused(store_->name(),
                  "a save would drop something that is stored; mibctl check shows all, --force "
                  "saves the rest",
                  described(*lost));
}

namespace {

// Why an edit would not come back, where the value and the attributes say so; else "".
std::string reason_for(const Tree& tree, qmibtree_node* node) {
  if (!(node->flags & QMIBTREE_NODE_PARAM)) return "";
  const Entry* const entry = find_entry_of_node(*tree.model().root, node->fullName);
  const std::string why = tree.has_value(node) ? loss(*entry, tree.value(node)) : "";
  if (!why.empty()) return why;
  if (entry->notify != Notify::normal && attributes_of(node).notify == "off")
    return "notification off is not stored, and the model switches it on";
  return "";
}

bool same(const Tree& a, qmibtree_node* left, const Tree& b, qmibtree_node* right) {
  if (!right || attributes_of(left) != attributes_of(right)) return false;
  if (!(left->flags & QMIBTREE_NODE_PARAM) || !a.has_value(left)) return true;
  return b.has_value(right) && a.value(left) == b.value(right);
}

}  // namespace

void Session::check_edits(const std::string& document) const {
  Tree fresh(model_);
  const bool loads = fresh.load(document);
  for (const auto& [name, place] : touched_) {
    qmibtree_node* const node = find_or_null(*tree_, name);
    if (!node || (loads && same(*tree_, node, fresh, find_or_null(fresh, name)))) continue;
    const std::string why = reason_for(*tree_, node);
    if (loads || !why.empty())
      throw located(place, refused(name, "a start would not bring this back", why));
  }
  if (!loads)
    throw refused(store_->name(), "the document would not load", document_problem(document));
}

void Session::save(bool force) {
  check_stored(force);
  const std::string document = tree_->document();
  check_edits(document);
  store_->save(document);
  stored_ = document;
  touched_.clear();
  changed_ = false;
}

}  // namespace mibctl
