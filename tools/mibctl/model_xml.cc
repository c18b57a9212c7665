// From published documents to the tree of a model.
#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <unordered_map>

#include "model.hh"
#include "model_document.hh"
#include "model_syntax.hh"
#include "text.hh"

namespace mibctl {

namespace {

constexpr size_t kMaxEntries = 20'000;  // of a model before a subset is chosen
constexpr size_t kMaxComponents = 64;   // components that use each other
constexpr std::string_view kPlaceholder = "{i}.";

// --- names ---

// Takes "Name." or "Name.{i}." off the front of a path; "" when it begins with neither.
std::string_view take_object(std::string_view& path) {
  const size_t dot = path.find('.');
  if (dot == std::string_view::npos || !is_segment(path.substr(0, dot))) return {};
  const size_t size = dot + 1 + (path.substr(dot + 1).starts_with(kPlaceholder) ? 4 : 0);
  const std::string_view object = path.substr(0, size);
  path.remove_prefix(size);
  return object;
}

// "B." of "B." and "B.{i}.".
std::string_view own_name(std::string_view object) {
  return object.substr(0, object.find('.') + 1);
}

// The objects of a path, from the outermost: "A.", "B.{i}.". Throws when it is no object's path.
std::vector<std::string_view> objects_of(std::string_view path, const Part& part) {
  if (path.size() > kMaxFullName)
    throw part.refused("longer than " + grouped(kMaxFullName) + " bytes: " + shown(path));
  std::vector<std::string_view> objects;
  for (std::string_view rest = path; !rest.empty();) {
    objects.push_back(take_object(rest));
    if (objects.back().empty())
      throw part.refused("not an object's name: " + shown(path),
                         "names each ending in a dot, {i}. only behind a name");
  }
  return objects;
}

void check_path(std::string_view path, const Part& part) { objects_of(path, part); }

// --- attributes with a choice of words ---

template <class T>
struct Choice {
  std::string_view word;
  T value;
};

constexpr Choice<bool> accesses[] = {
    {"readOnly", false}, {"readWrite", true}, {"writeOnceReadOnly", true}};
constexpr Choice<Notify> notifies[] = {{"normal", Notify::normal},
                                       {"canDeny", Notify::normal},
                                       {"willDeny", Notify::normal},
                                       {"forceDefaultEnabled", Notify::by_default},
                                       {"forceEnabled", Notify::forced}};
constexpr Choice<const char*> statuses[] = {{"current", "current"},
                                            {"deprecated", "deprecated"},
                                            {"obsoleted", "obsoleted"},
                                            {"deleted", "deleted"}};
constexpr Choice<bool> truths[] = {{"true", true}, {"1", true}, {"false", false}, {"0", false}};

template <class T, size_t N>
T choose_word(const Part& part, const std::string& name, const std::string& word,
              const Choice<T> (&choices)[N]) {
  std::string known;
  for (const Choice<T>& choice : choices) {
    if (choice.word == word) return choice.value;
    known += (known.empty() ? "" : ", ") + std::string(choice.word);
  }
  throw part.refused("unknown " + name + " " + shown(word), "one of " + known);
}

// Sets `target` when the attribute is there.
template <class T, class U, size_t N>
void take_choice(const Part& part, const std::string& name, const Choice<U> (&choices)[N],
                 T& target) {
  if (const std::string* const word = part.attribute(name))
    target = choose_word(part, name, *word, choices);
}

void take_number(const Part& part, const std::string& name, int64_t lowest, uint32_t& target) {
  const std::string* const text = part.attribute(name);
  if (!text) return;
  const std::optional<int64_t> number = parse_number(*text, lowest, UINT32_MAX);
  if (!number)
    throw part.refused("not a number for " + name + ": " + shown(*text),
                       grouped(static_cast<uint64_t>(lowest)) + " to " + grouped(UINT32_MAX));
  target = static_cast<uint32_t>(*number);
}

// --- one model's entries ---

// An object, or a parameter that stands outside of one, and where it belongs.
struct Item {
  Part part;
  std::string where;  // path of the object, or of the one that the parameter belongs to
  size_t order;       // objects before what is in them
};

// Lists a model's items; components are laid out where they are used.
class Layout {
 public:
  Layout(Library& library, std::string prefix) : library_(library), prefix_(std::move(prefix)) {}

  std::vector<Item> items_of(const Part& model) {
    expand(model, prefix_);
    std::stable_sort(items_.begin(), items_.end(),
                     [](const Item& a, const Item& b) { return a.order < b.order; });
    return std::move(items_);
  }

 private:
  void expand(const Part& container, const std::string& where) {
    for (const Part& part : container.children()) {
      if (part.name() == "object") expand_object(part, where);
      if (part.name() == "parameter") add_parameter(part, where);
      if (part.name() == "component") expand_component(part, where);
    }
  }

  // Outside of all objects it is the root's.
  void add_parameter(const Part& part, const std::string& where) {
    const size_t depth = std::max<size_t>(objects_of(where, part).size(), 1);
    add({part, where, 2 * depth + 1});
  }

  void expand_object(const Part& part, const std::string& where) {
    const std::string* const base = part.attribute("base");
    const std::string& name = base ? *base : part.required("name");
    if (name.empty()) throw part.refused("an object without a name");
    const std::string path = where + name;
    add({part, path, 2 * objects_of(path, part).size()});
    for (const Part& component : part.children("component")) expand_component(component, path);
  }

  void expand_component(const Part& use, const std::string& where) {
    const std::string& ref = use.required("ref");
    const std::string* const path = use.attribute("path");
    const Part component = library_.find("component", ref, use);
    if (std::find(open_.begin(), open_.end(), component.element) != open_.end())
      throw use.refused("component " + shown(ref) + " contains itself");
    if (open_.size() == kMaxComponents)
      throw use.refused("components nested too deep", "at most " + grouped(kMaxComponents));
    const std::string below = path ? where + *path : where;
    check_path(below, use);
    library_.spend(sizeof *use.element, use);
    open_.push_back(component.element);
    expand(component, below);
    open_.pop_back();
  }

  void add(Item item) {
    library_.spend(sizeof item + item.where.size(), item.part);
    items_.push_back(std::move(item));
  }

  Library& library_;
  const std::string prefix_;
  std::vector<Item> items_;
  std::vector<const XmlElement*> open_;  // components being laid out
};

// Builds the tree.
class Builder {
 public:
  Builder(Library& library, Model& model) : library_(library), model_(model) {}

  void set_root(std::unique_ptr<Entry> root) {
    model_.root = std::move(root);
    defined_.emplace(model_.root->name, model_.root.get());
  }

  // `model` and what it bases on, below the object with the path `prefix`.
  void add_model(const Part& model, const std::string& prefix) {
    const std::vector<Part> chain = chain_of(model);
    for (const Part& each : chain)
      for (const Item& item : Layout(library_, prefix).items_of(each)) add_item(item);
    if (!model_.root) throw model.refused("a model without objects");
    add_profiles(chain, prefix);
  }

  // What needs all of the tree.
  void finish() {
    for_each(*model_.root, [this](Entry& entry) {
      const auto syntax = syntaxes_.find(&entry);
      if (syntax != syntaxes_.end())
        apply_syntax(library_, syntax->second, entry, model_.notes);
      else
        check_counter(entry);
    });
  }

 private:
  // The model, behind those that it bases on.
  std::vector<Part> chain_of(Part model) {
    std::vector<Part> chain = {model};
    std::set<const XmlElement*> passed = {model.element};
    while (const std::string* const base = model.attribute("base")) {
      const Part user = model;
      model = library_.find("model", *base, user);
      if (!passed.insert(model.element).second)
        throw user.refused("model " + shown(*base) + " bases on itself");
      chain.push_back(model);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
  }

  void add_item(const Item& item) {
    if (item.part.name() == "parameter")
      add_parameter(item.where.empty() ? root(item.part) : object_at(item.where, item.part),
                    item.part);
    else if (item.part.attribute("base"))
      fill_object(object_at(item.where, item.part), item.part);
    else
      add_object(item.where, item.part);
  }

  Entry& root(const Part& part) {
    if (!model_.root) throw part.refused("no object that it could belong to");
    return *model_.root;
  }

  // The entry with this path, or null.
  Entry* find(const std::string& path) const {
    const bool is_table = path.ends_with(kPlaceholder);
    const auto found = defined_.find(is_table ? path.substr(0, path.size() - 4) : path);
    return found != defined_.end() && found->second->multi == is_table ? found->second : nullptr;
  }

  Entry& object_at(const std::string& path, const Part& part) const {
    if (Entry* const object = find(path)) return *object;
    throw unknown_object(path, part);
  }

  Error unknown_object(const std::string& path, const Part& part) const {
    std::string above;
    for (const std::string_view object : objects_of(path, part)) {
      const std::string name = above + std::string(own_name(object));
      const auto found = defined_.find(name);
      if (found == defined_.end()) break;
      const bool is_instance = object.ends_with(kPlaceholder);
      if (found->second->multi && !is_instance)
        return part.refused("missing {i} behind " + name, "it is a table");
      if (!found->second->multi && is_instance)
        return part.refused(name + " has no instances", "it is defined without {i}");
      above += object;
    }
    return part.refused("unknown object " + path);
  }

  void add_object(const std::string& path, const Part& part) {
    const std::string_view own = objects_of(path, part).back();
    auto entry = std::make_unique<Entry>();
    entry->multi = own.ends_with(kPlaceholder);
    entry->name = own_name(own);
    entry->place = part.place();
    if (own.size() < path.size()) {
      Entry& parent = object_at(path.substr(0, path.size() - own.size()), part);
      return fill_object(add_entry(parent, std::move(entry), part), part);
    }
    if (model_.root && model_.root->name == entry->name) throw twice(path, *model_.root, part);
    if (model_.root)
      throw part.refused("a second root object " + path, "the root is " + model_.root->name);
    if (entry->multi) throw part.refused("the root object cannot have instances: " + path);
    set_root(std::move(entry));
    fill_object(*model_.root, part);
  }

  void fill_object(Entry& entry, const Part& part) {
    take_attributes(entry, part);
    take_entries(entry, part);
    for (const Part& parameter : part.children("parameter")) add_parameter(entry, parameter);
  }

  // What objects and parameters have in common.
  void take_attributes(Entry& entry, const Part& part) {
    if (!part.attribute("base")) part.required("access");
    take_choice(part, "access", accesses, entry.writable);
    take_choice(part, "status", statuses, entry.status);
    const std::string* const access = part.attribute("access");
    if (access && *access == "writeOnceReadOnly")
      model_.notes.push_back({part.place(), entry.path(), "write once as readWrite", ""});
  }

  void take_entries(Entry& entry, const Part& part) {
    uint32_t min = entry.min_entries, max = entry.max_entries;
    const std::string* const most = part.attribute("maxEntries");
    take_number(part, "minEntries", 0, min);
    if (most && *most == "unbounded")
      max = 0;
    else
      take_number(part, "maxEntries", 1, max);
    if (max && min > max) throw part.refused("minEntries is above maxEntries");
    if (!entry.multi) {
      if (most && max != 1)
        throw part.refused("missing {i} behind " + entry.path(), "maxEntries is " + shown(*most));
      return;
    }
    entry.min_entries = min;
    entry.max_entries = max;
    if (const std::string* const counter = part.attribute("numEntriesParameter"))
      entry.entries = *counter;
  }

  void add_parameter(Entry& object, const Part& part) {
    if (part.attribute("base")) return change_parameter(object, part);
    const std::string& name = part.required("name");
    if (!is_segment(name))
      throw part.refused("not a parameter's name: " + shown(name),
                         "letters, digits, _ and -, a letter or _ first");
    Syntax syntax = syntax_of(part);
    if (!syntax.primitive) throw part.refused("parameter " + name + " without a type");
    auto entry = std::make_unique<Entry>();
    entry->name = name;
    entry->place = part.place();
    entry->type = type_of(syntax);
    Entry& added = add_entry(object, std::move(entry), part);
    fill_parameter(added, part);
    syntaxes_.emplace(&added, std::move(syntax));
  }

  void change_parameter(Entry& object, const Part& part) {
    const std::string& name = part.required("base");
    Entry* const entry = find(object.path() + name);
    if (!entry || entry->is_object())
      throw part.refused("unknown parameter " + object.path() + shown(name));
    Syntax& syntax = syntaxes_[entry];
    library_.spend((1 + syntax.holders.size()) * sizeof syntax, part);
    amend(syntax, syntax_of(part));
    fill_parameter(*entry, part);
  }

  Syntax syntax_of(const Part& part) {
    const std::vector<Part> found = part.children("syntax");
    return found.empty() ? Syntax{} : read_syntax(library_, found.front());
  }

  void fill_parameter(Entry& entry, const Part& part) {
    take_attributes(entry, part);
    take_choice(part, "activeNotify", notifies, entry.notify);
  }

  // A parameter goes in front of the object's objects.
  Entry& add_entry(Entry& parent, std::unique_ptr<Entry> entry, const Part& part) {
    if (defined_.size() == kMaxEntries)
      throw part.refused("too many objects and parameters", "at most " + grouped(kMaxEntries));
    const auto [first, is_new] = defined_.emplace(parent.path() + entry->name, entry.get());
    if (!is_new) throw twice(first->second->path(), *first->second, part);
    Entry& added = *parent.add(std::move(entry));
    check_limits(added, part);
    if (added.is_object()) return added;
    const auto own = std::prev(parent.children.end());
    const auto at = std::partition_point(parent.children.begin(), own,
                                         [](const auto& sibling) { return !sibling->is_object(); });
    std::rotate(at, own, parent.children.end());
    return added;
  }

  // {i} stands for a number of as many digits.
  void check_limits(const Entry& entry, const Part& part) {
    const std::string path = entry.path();
    if (path.size() > kMaxFullName)
      throw part.refused("the full name is longer than " + grouped(kMaxFullName) + " bytes",
                         shown(path));
    uint32_t depth = 0;
    for (const Entry* each = &entry; each; each = each->parent) ++depth;
    if (depth > kMaxDepth)
      throw part.refused("nested more than " + grouped(kMaxDepth) + " deep", shown(path));
  }

  static Error twice(const std::string& path, const Entry& first, const Part& part) {
    return part.refused(path + " is defined twice", "first at " + first.place.text());
  }

  void check_counter(Entry& table) {
    if (table.entries.empty()) return;
    const Entry* const counter = find(table.parent->path() + table.entries);
    if (counter && !counter->is_object()) return;
    model_.notes.push_back(
        {table.place, table.path(), "unknown numEntriesParameter", shown(table.entries)});
    table.entries.clear();
  }

  // --- profiles ---

  // Services may have profiles named like ones of the first model: those get the model's name in
  // front.
  void add_profiles(const std::vector<Part>& chain, const std::string& prefix) {
    std::map<std::string, Part> own;
    for (const Part& model : chain)
      for (const Part& part : model.children("profile")) list_profile(own, part);
    const std::string model_name = chain.back().required("name");
    std::map<std::string, std::string> names;
    for (const auto& [name, part] : own)
      names[name] = profiles_.insert(name).second ? name : model_name + "/" + name;
    for (const Part& model : chain)
      for (const Part& part : model.children("profile")) add_profile(names, part, prefix);
  }

  static void list_profile(std::map<std::string, Part>& own, const Part& part) {
    const std::string& name = part.required("name");
    if (!is_definition_name(name)) throw part.refused("not a name: " + shown(name));
    const auto [first, is_new] = own.emplace(name, part);
    if (!is_new)
      throw part.refused("profile " + name + " is defined twice",
                         "first at " + first->second.place().text());
  }

  void add_profile(const std::map<std::string, std::string>& names, const Part& part,
                   const std::string& prefix) {
    Profile profile = {names.at(part.required("name")), part.place(), {}, {}};
    for (const char* const attribute : {"base", "extends"}) {
      const std::string* const list = part.attribute(attribute);
      if (list) include(profile, names, *list);
    }
    for (const Part& child : part.children()) {
      const std::string path = prefix + child.required("ref");
      add_entry_of(profile, path, child);
      for (const Part& parameter : child.children("parameter"))
        add_entry_of(profile, path + parameter.required("ref"), parameter);
    }
    model_.profiles.push_back(std::move(profile));
  }

  void include(Profile& profile, const std::map<std::string, std::string>& names,
               std::string_view list) {
    while (!list.empty()) {
      const size_t blank = std::min(list.find(' '), list.size());
      const std::string name(list.substr(0, blank));
      list.remove_prefix(std::min(blank + 1, list.size()));
      const auto known = names.find(name);
      if (known != names.end())
        profile.includes.push_back(known->second);
      else if (!name.empty())
        model_.notes.push_back({profile.place, "", "unknown profile", shown(name)});
    }
  }

  void add_entry_of(Profile& profile, const std::string& path, const Part& part) {
    library_.spend(path.size(), part);
    if (find(path))
      profile.entries.push_back(path);
    else
      model_.notes.push_back({part.place(), "", "profile of an unknown entry", shown(path)});
  }

  Library& library_;
  Model& model_;
  std::unordered_map<std::string, Entry*> defined_;    // by path, without an own {i}
  std::unordered_map<const Entry*, Syntax> syntaxes_;  // of all parameters
  std::set<std::string> profiles_;                     // names taken
};

// --- the files ---

bool is_service(const Part& model) {
  bool service = false;
  take_choice(model, "isService", truths, service);
  return service;
}

std::string names_of(const std::vector<Part>& models) {
  std::string names;
  for (const Part& model : models) names += (names.empty() ? "" : ", ") + model.required("name");
  return names;
}

// The file's model, or the one of its models that is wished.
Part model_of(const Document& document, const std::string& wish) {
  const std::vector<Part> models = document.whole().children("model");
  if (models.empty()) throw document.whole().refused("no model in it");
  for (const Part& model : models)
    if (model.required("name") == wish) return model;
  if (models.size() > 1)
    throw document.whole().refused("several models, choose one with --select",
                                   shown(names_of(models)));
  return models[0];
}

std::unique_ptr<Entry> services_root(const Part& model) {
  auto root = std::make_unique<Entry>();
  root->name = "Services.";
  root->place = model.place();
  return root;
}

// Where a further file's service goes.
std::string services_of(const Model& first, const Part& model) {
  if (!is_service(model))
    throw model.refused("not a service model: " + model.required("name"),
                        "only the first may be another");
  if (first.root->name == "Services.") return "Services.";
  const std::string path = first.root->name + "Services.";
  if (!find_entry(*first.root, path))
    throw model.refused("no place for a service", first.name + " has no " + path);
  return path;
}

}  // namespace

Model read_model(const std::vector<std::string>& files, const std::string& select) {
  Model model;
  Library library(model.notes);
  Builder builder(library, model);
  bool selected = select.empty();
  for (const std::string& file : files) {
    const Part part = model_of(library.read(file), select);
    const std::string& name = part.required("name");
    selected = selected || name == select;
    std::string prefix;
    if (model.root) {
      prefix = services_of(model, part);
    } else if (is_service(part)) {
      builder.set_root(services_root(part));
      prefix = model.root->name;
    }
    builder.add_model(part, prefix);
    model.name += (model.name.empty() ? "" : " + ") + name;
  }
  if (!selected) throw refused(select, "no such model", "there is " + model.name);
  builder.finish();
  model.files = library.files();
  return model;
}

}  // namespace mibctl
