#include "shell.hh"

#include <algorithm>
#include <memory>

#include "complete.hh"
#include "image.hh"
#include "show.hh"
#include "text.hh"

namespace mibctl {

namespace {

using Words = std::vector<std::string>;

Words words_of(std::string_view text) {
  Words words;
  for (size_t at = text.find_first_not_of(' '); at < text.size();
       at = text.find_first_not_of(' ', at)) {
    const size_t end = std::min(text.find(' ', at), text.size());
    words.emplace_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// --- the verbs: each gets what stands behind it on the line ---

void do_show(Shell& shell, std::string_view rest) {
  ShowOptions options;
  std::string prefix = shell.where;
  for (const std::string& word : words_of(rest)) {
    if (word == "--changed")
      options.changed = true;
    else
      prefix = shell.full_name(word);
  }
  show(shell.session.tree(), prefix, options, stdout);
}

void do_get(Shell& shell, std::string_view rest) {
  const Words names = words_of(rest);
  const Tree& tree = shell.session.tree();
  for (const std::string& name : names) {
    const std::string value = tree.value(tree.find(shell.full_name(name)));
    if (names.size() == 1)
      std::printf("%s\n", value.c_str());
    else
      std::printf("%s=%s\n", name.c_str(), quoted_value(value).c_str());
  }
}

// One assignment a line: a value may hold blanks.
void do_set(Shell& shell, std::string_view rest) {
  const size_t equals = rest.find('=');
  if (equals == std::string_view::npos)
    throw refused(std::string(rest), "not an assignment", "set NAME=VALUE");
  const std::string name = shell.full_name(rest.substr(0, equals));
  const auto value = unquoted_value(rest.substr(equals + 1));
  if (!value) throw refused(name, "malformed quoted value");
  shell.session.set(name, *value, QMIBTREE_WRITE_APPLY);
}

void do_add(Shell& shell, std::string_view rest) {
  const std::string name = shell.session.add(shell.full_name(rest), 0);
  std::printf("%s\n", name.c_str());
}

void do_del(Shell& shell, std::string_view rest) {
  for (const std::string& name : words_of(rest)) shell.session.del(shell.full_name(name));
  if (!qmibtree_find_node_by_name(shell.session.tree().inst(), shell.where.c_str()))
    shell.where.clear();
}

void do_list(Shell& shell, std::string_view rest) {
  const std::string name = shell.full_name(rest);
  const qmibtree_node* const object =
      name.empty() ? shell.session.tree().inst()->root : shell.session.tree().find(name);
  for (const qmibtree_node* child = object->first_child; child; child = child->next)
    std::printf("%s\n", child->name);
}

void do_attr(Shell& shell, std::string_view rest) {
  const Words words = words_of(rest);
  if (words.empty()) throw refused("attr", "no parameter named");
  const std::string name = shell.full_name(words[0]);
  for (size_t i = 1; i < words.size(); ++i) shell.session.set_attribute(name, words[i]);
  const Attributes attributes = attributes_of(shell.session.tree().find(name));
  std::printf("notify=%s access=%s\n", attributes.notify.c_str(), attributes.access.c_str());
}

void do_cd(Shell& shell, std::string_view rest) {
  const std::string name = rest.empty() ? "" : shell.full_name(rest);
  if (!name.empty() && shell.session.tree().find(name)->flags & QMIBTREE_NODE_PARAM)
    throw refused(name, "a parameter, not an object");
  shell.where = name;
}

void do_events(Shell& shell, std::string_view /*rest*/) {
  qmibtree_notif_t* const queue = shell.session.tree().inst()->notif;
  while (queue->num) {
    const bool active = queue->entries[queue->num - 1].active;
    const qmibtree_node* const node = qmibtree_notif_deq_event(queue);
    if (node) std::printf("%s %s\n", active ? "active" : "passive", node->fullName);
  }
}

void do_marks(Shell& shell, std::string_view rest) {
  if (rest == "clear") return qmibtree_comp_unmark_all();
  for (const auto& [name, id] : shell.session.tree().model().components)
    if (qmibtree_comp_chk_mark(id, QMIBTREE_COMP_MARK_CHANGED)) std::printf("%s\n", name.c_str());
}

void do_dump(Shell& shell, std::string_view rest) {
  const std::string name = rest.empty() ? shell.where : shell.full_name(rest);
  const Tree& tree = shell.session.tree();
  qmibtree_node* const node = name.empty() ? tree.inst()->root : tree.find(name);
  const auto list = [&](qmibtree_buff_t& buff) {
    qmibtree_dump_by_node(tree.inst(), node, &buff, INT32_MAX, 0, qmibtree_dump_dbg, nullptr);
  };
  qmibtree_buff_t count = {};
  list(count);
  std::string text(count.size + 1, '\0');
  qmibtree_buff_t buff = {text.data(), text.data(), count.size + 1, count.size + 1};
  list(buff);
  std::printf("%s\n", text.c_str());
}

std::unique_ptr<Tree> stored_tree(const Shell& shell, Store& store) {
  auto tree = std::make_unique<Tree>(shell.session.tree().model());
  const std::string document = store.load();
  if (!tree->load(document))
    throw Error(Status::storage, store.name(), "does not load", document_problem(document));
  return tree;
}

void do_diff(Shell& shell, std::string_view rest) {
  const auto other = rest.empty() ? nullptr : open_any(std::string(rest));
  const auto tree = stored_tree(shell, other ? *other : shell.session.store());
  show_differences(*tree, shell.session.tree(), false, stdout);
}

void do_export(Shell& shell, std::string_view rest) {
  const std::string document = shell.session.tree().document();
  if (rest.empty())
    std::fwrite(document.data(), 1, document.size(), stdout);
  else
    write_file(std::string(rest), document);
}

void do_import(Shell& shell, std::string_view rest) {
  const std::string file(rest);
  shell.session.import(read_file(file, kMaxDocumentFile), file, false);
  shell.where.clear();
}

void do_reset(Shell& shell, std::string_view /*rest*/) {
  if (shell.options.factory.empty())
    throw refused("reset", "no factory default document", "start with --factory FILE");
  do_import(shell, shell.options.factory);
}

void do_check(Shell& shell, std::string_view /*rest*/) {
  print_check(shell.session.tree().model(), shell.session.store(), false);
}

void do_save(Shell& shell, std::string_view rest) { shell.session.save(rest == "--force"); }

void do_reload(Shell& shell, std::string_view /*rest*/) {
  shell.session.reload();
  shell.where.clear();
}

void do_help(Shell& shell, std::string_view rest);

enum class Takes { nothing, names, value, file };

constexpr struct {
  std::string_view word;
  void (*act)(Shell& shell, std::string_view rest);
  Takes takes;
  bool needs;  // refused with nothing behind it
  const char* arguments;
  const char* help;
} verbs[] = {
    {"show", do_show, Takes::names, false, "[--changed] [NAME]",
     "print parameters as lines that batch replays"},
    {"get", do_get, Takes::names, true, "NAME...", "print values as they are now"},
    {"set", do_set, Takes::value, true, "NAME=VALUE", "write, as a management server would"},
    {"add", do_add, Takes::names, true, "TABLE", "add an instance"},
    {"del", do_del, Takes::names, true, "INSTANCE...", "delete instances"},
    {"list", do_list, Takes::names, false, "[OBJECT]", "print what is in an object"},
    {"attr", do_attr, Takes::names, true, "NAME [SETTING...]",
     "print or set notify=off|passive|active, access=subscriber|none"},
    {"cd", do_cd, Takes::names, false, "[OBJECT]",
     "go to an object: names begin there; .. is one up"},
    {"events", do_events, Takes::nothing, false, "", "drain the change events, newest first"},
    {"marks", do_marks, Takes::nothing, false, "[clear]", "print the components marked as changed"},
    {"dump", do_dump, Takes::names, false, "[NAME]", "print the tree as the library lists it"},
    {"diff", do_diff, Takes::file, false, "[CONFIGURATION]",
     "compare with what is stored, or with another"},
    {"check", do_check, Takes::nothing, false, "",
     "print what of the stored document would be lost"},
    {"export", do_export, Takes::file, false, "[FILE]", "write the live tree as a document"},
    {"import", do_import, Takes::file, true, "FILE", "replace the live tree by a document"},
    {"reset", do_reset, Takes::nothing, false, "", "go back to the factory default document"},
    {"save", do_save, Takes::nothing, false, "[--force]", "store the live tree"},
    {"reload", do_reload, Takes::nothing, false, "", "drop edits and load what is stored"},
    {"help", do_help, Takes::nothing, false, "", "print this"},
    {"quit", nullptr, Takes::nothing, false, "", "end; the end of the input does too"},
};

void do_help(Shell& /*shell*/, std::string_view /*rest*/) {
  for (const auto& verb : verbs) {
    const std::string line = std::string(verb.word) + " " + verb.arguments;
    std::printf("%-28s %s\n", line.c_str(), verb.help);
  }
}

Words verb_words() {
  Words words;
  for (const auto& verb : verbs) words.emplace_back(verb.word);
  return words;
}

std::string_view trimmed(std::string_view text) {
  const size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(" \t\r\n") - start + 1);
}

}  // namespace

Shell::Shell(Session& opened, const Options& chosen) : session(opened), options(chosen) {
  for (const auto& [name, id] : session.tree().model().components)
    qmibtree_comp_register(id, 0, nullptr, nullptr, nullptr, nullptr);
}

bool Shell::execute(std::string_view line) {
  line = trimmed(line);
  if (line.empty() || line.starts_with('#')) return true;
  const std::string_view word = line.substr(0, line.find(' '));
  const std::string_view rest = trimmed(line.substr(word.size()));
  if (word == "quit" || word == "exit") {
    if (!session.changed() || warned) return false;
    warned = true;
    throw refused("quit", "there are unsaved edits", "save, or quit again to drop them");
  }
  warned = false;
  const auto* const verb = std::find_if(std::begin(verbs), std::end(verbs),
                                        [&](const auto& v) { return v.word == word; });
  if (verb == std::end(verbs))
    throw refused(std::string(word), "unknown verb", did_you_mean(word, verb_words()));
  if (verb->needs && rest.empty())
    throw refused(std::string(word), "needs more", std::string(word) + " " + verb->arguments);
  verb->act(*this, rest);
  return true;
}

std::string Shell::prompt() const { return where + (session.changed() ? "*> " : "> "); }

std::string Shell::full_name(std::string_view typed) const {
  std::string base = where;
  while (typed == ".." || typed.starts_with("../")) {
    const size_t dot = base.size() < 2 ? std::string::npos : base.rfind('.', base.size() - 2);
    base.resize(dot == std::string::npos ? 0 : dot + 1);
    typed.remove_prefix(std::min<size_t>(3, typed.size()));
  }
  const std::string_view root = session.tree().inst()->root->fullName;
  return typed.starts_with(root) ? std::string(typed) : base + std::string(typed);
}

Shell::Completion Shell::complete(std::string_view line) const {
  const size_t blank = line.rfind(' ');
  if (blank == std::string_view::npos) {
    Words words = verb_words();
    std::erase_if(words, [&](const std::string& word) { return !word.starts_with(line); });
    return {0, words};
  }
  const std::string_view word = line.substr(0, line.find(' '));
  const auto* const verb = std::find_if(std::begin(verbs), std::end(verbs),
                                        [&](const auto& v) { return v.word == word; });
  if (verb == std::end(verbs)) return {};
  const std::string_view typed = line.substr(blank + 1);
  const size_t equals = typed.find('=');
  if (verb->takes == Takes::value && equals != std::string_view::npos)
    return {blank + 1 + equals + 1,
            complete_value(session.tree(), full_name(typed.substr(0, equals)),
                           typed.substr(equals + 1))};
  if (verb->takes == Takes::nothing) return {};
  return {blank + 1, verb->takes == Takes::file ? complete_file(typed) : names_for(typed)};
}

// As typed: below the current object, or one above it, or from the root.
Words Shell::names_for(std::string_view typed) const {
  const std::string root = session.tree().inst()->root->fullName;
  if (typed.starts_with(root)) return complete_name(session.tree(), typed);
  const size_t up = typed.rfind("../");
  const std::string_view head = typed.substr(0, up == std::string_view::npos ? 0 : up + 3);
  const size_t above = full_name(head).size();
  Words names = complete_name(session.tree(), full_name(typed));
  for (std::string& name : names) name.replace(0, above, head);
  if (!where.empty() && !typed.empty() && root.starts_with(typed)) names.push_back(root);
  return names;
}

}  // namespace mibctl
