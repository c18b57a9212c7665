#include "complete.hh"

#include <algorithm>
#include <filesystem>

namespace mibctl {

std::vector<std::string> complete_name(const Tree& tree, std::string_view prefix) {
  const size_t dot = prefix.rfind('.');
  std::vector<std::string> names;
  const auto take = [&](const qmibtree_node* node) {
    if (std::string_view(node->fullName).starts_with(prefix)) names.push_back(node->fullName);
  };
  if (dot == std::string_view::npos) {
    take(tree.inst()->root);
    return names;
  }
  const std::string above(prefix.substr(0, dot + 1));
  const qmibtree_node* const object = qmibtree_find_node_by_name(tree.inst(), above.c_str());
  if (!object) return names;
  for (const qmibtree_node* child = object->first_child; child; child = child->next) take(child);
  return names;
}

std::vector<std::string> complete_value(const Tree& tree, const std::string& name,
                                        std::string_view prefix) {
  const Entry* const entry = find_entry_of_node(*tree.model().root, name);
  if (!entry) return {};
  std::vector<std::string> words = entry->words;
  if (entry->type == QMIBTREE_TYPE_BOOL) words = {"true", "false"};
  std::erase_if(words, [&](const std::string& word) { return !word.starts_with(prefix); });
  return words;
}

std::vector<std::string> complete_file(std::string_view prefix) {
  const std::string folder(prefix.substr(0, prefix.rfind('/') + 1));  // "" without a slash
  std::vector<std::string> files;
  std::error_code unreadable;  // then there is nothing to complete
  for (std::filesystem::directory_iterator i(folder.empty() ? "." : folder, unreadable), end;
       i != end; i.increment(unreadable)) {
    const std::string file = folder + i->path().filename().string();
    if (file.starts_with(prefix)) files.push_back(i->is_directory(unreadable) ? file + "/" : file);
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string common_prefix(const std::vector<std::string>& candidates) {
  if (candidates.empty()) return "";
  std::string prefix = candidates[0];
  for (const std::string& candidate : candidates) {
    const auto differ =
        std::mismatch(prefix.begin(), prefix.end(), candidate.begin(), candidate.end());
    prefix.erase(differ.first, prefix.end());
  }
  return prefix;
}

}  // namespace mibctl
