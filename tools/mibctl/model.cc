// Paths and look-ups in a model's tree.
#include "model.hh"

#include <algorithm>

namespace mibctl {

std::string Entry::path() const {
  std::string path = parent ? parent->path() : "";
  path += name;
  if (multi) path += "{i}.";
  return path;
}

Entry* Entry::child(std::string_view segment) const {
  const auto found =
      std::find_if(children.begin(), children.end(),
                   [segment](const std::unique_ptr<Entry>& c) { return c->name == segment; });
  return found == children.end() ? nullptr : found->get();
}

Entry* Entry::add(std::unique_ptr<Entry> entry) {
  entry->parent = this;
  children.push_back(std::move(entry));
  return children.back().get();
}

std::string Model::component_name(uint32_t id) const {
  for (const auto& [name, number] : components)
    if (number == id) return name;
  return "";
}

uint32_t count_entries(const Entry& entry) {
  uint32_t count = 0;
  for_each(entry, [&count](const Entry&) { ++count; });
  return count;
}

namespace {

// Takes the first segment, with its dot, off the front of a name.
std::string_view take_segment(std::string_view& name) {
  const size_t size = std::min(name.find('.'), name.size() - 1) + 1;
  const std::string_view segment = name.substr(0, size);
  name.remove_prefix(size);
  return segment;
}

bool is_placeholder(std::string_view segment) { return segment == "{i}."; }

bool is_number(std::string_view segment) {
  return segment.size() > 1 && segment.back() == '.' &&
         segment.find_first_not_of("0123456789") == segment.size() - 1;
}

// `templates`: a table's name without an instance behind it is its template's.
Entry* follow(const Entry& root, std::string_view name, bool (*is_instance)(std::string_view),
              bool templates) {
  if (name.empty() || take_segment(name) != root.name) return nullptr;
  Entry* entry = const_cast<Entry*>(&root);
  while (!name.empty()) {
    entry = entry->child(take_segment(name));
    if (!entry) return nullptr;
    if (!entry->multi) continue;
    if (name.empty()) return templates ? entry : nullptr;
    if (!is_instance(take_segment(name))) return nullptr;
  }
  return entry;
}

}  // namespace

Entry* find_entry(const Entry& root, std::string_view path) {
  return follow(root, path, is_placeholder, false);
}

Entry* find_entry_of_node(const Entry& root, std::string_view full_name) {
  return follow(root, full_name, is_number, true);
}

}  // namespace mibctl
