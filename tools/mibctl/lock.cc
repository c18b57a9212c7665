// The lock file: which unique id each entry of the model has, kept from one generation to the next.
#include <algorithm>

#include "model.hh"
#include "text.hh"

namespace mibctl {

namespace {

bool is_path(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) > ' ' && c != 0x7F;
  });
}

// Reads one file, line by line.
struct LockReader {
  Place place;
  Lock lock;
  std::map<uint32_t, unsigned> lines;  // where an id was given

  void take(std::string_view line) {
    ++place.line;
    if (line.empty() || line[0] == '#') return;
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos || !is_path(line.substr(blank + 1)))
      throw Error(Status::refused, place, "not a line of a lock file", "expected: ID PATH");
    add(line.substr(0, blank), std::string(line.substr(blank + 1)));
  }

  void add(std::string_view id, const std::string& path) {
    const std::optional<int64_t> uid = parse_number(id, 0, kMaxIds - 1);
    if (!uid)
      throw Error(Status::refused, place, "not a unique id: " + quoted_value(id), "0 to 1999");
    const auto [line, is_new] = lines.emplace(static_cast<uint32_t>(*uid), place.line);
    if (!is_new)
      throw Error(Status::refused, place, "unique id " + std::to_string(*uid) + " is given twice",
                  "first at " + Place{place.file, line->second, 0}.text());
    const auto [known, path_is_new] = lock.ids.emplace(path, line->first);
    if (!path_is_new)
      throw Error(Status::refused, place, path + " has an id already",
                  "first at " + Place{place.file, lines[known->second], 0}.text());
  }
};

}  // namespace

Lock parse_lock(const std::string& file, std::string_view text) {
  LockReader reader{{file, 0, 0}, {}, {}};
  while (!text.empty()) {
    const size_t end = text.find('\n');
    reader.take(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return reader.lock;
}

std::string render_lock(const Model& model, const Lock& lock) {
  std::string name = model.name;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
  std::string text =
      "# Unique ids of " + name +
      ".\n"
      "# Made by mibctl schema compile; keep it with the sources: ids in it stay\n"
      "# what they are, and those of entries that are gone are not given out again.\n";
  std::map<uint32_t, std::string_view> paths;
  for (const auto& [path, uid] : lock.ids) paths.emplace(uid, path);
  for (const auto& [uid, path] : paths) {
    text += std::to_string(uid) + ' ';
    text += path;
    text += '\n';
  }
  return text;
}

namespace {

struct Subtree {
  const Entry* object;
  uint32_t count;
};

void append_objects(std::vector<Subtree>& subtrees, const Entry& above) {
  for (const auto& child : above.children)
    if (child->is_object()) subtrees.push_back({child.get(), count_entries(*child)});
}

// The biggest first, none inside another. One that is most of the model says little: the objects
// in it stand in its place.
std::vector<Subtree> biggest_subtrees(const Entry& root) {
  const uint32_t most = count_entries(root) / 2;
  std::vector<Subtree> subtrees = {{&root, count_entries(root)}};
  const auto bigger = [](const Subtree& a, const Subtree& b) { return a.count > b.count; };
  while (!subtrees.empty() && subtrees[0].count > most) {
    const Entry& above = *subtrees[0].object;
    subtrees.erase(subtrees.begin());
    append_objects(subtrees, above);
    std::stable_sort(subtrees.begin(), subtrees.end(), bigger);
  }
  return subtrees;
}

// `others`: ids that the lock keeps for entries which are not in the model.
Error too_many(const Model& model, size_t ids, size_t others) {
  const std::string text = grouped(ids) + " unique ids, at most " + grouped(kMaxIds);
  if (ids - others <= kMaxIds)
    return refused(model.name, text,
                   grouped(others) +
                       " of them kept for what is not in it: delete the lock file to number anew, "
                       "which changes every id");
  std::vector<Subtree> subtrees = biggest_subtrees(*model.root);
  if (subtrees.size() > 5) subtrees.resize(5);
  std::string detail = "choose a subset with --profile or --keep";
  const char* before = "; biggest: ";
  for (const Subtree& subtree : subtrees) {
    detail += before + subtree.object->path() + ' ' + grouped(subtree.count);
    before = ", ";
  }
  return refused(model.name, text, detail);
}

// Id 0 is the root's, whatever else the lock keeps.
void check_root(const Lock& lock, const std::string& root) {
  for (const auto& [path, uid] : lock.ids)
    if ((uid == 0) != (path == root))
      throw refused(path, "has unique id " + std::to_string(uid) + " in the lock file",
                    "0 is for the root, " + root + ": is it another model's lock file?");
}

}  // namespace

void assign_ids(Model& model, Lock& lock) {
  check_root(lock, model.root->path());
  const size_t locked = lock.ids.size();
  std::vector<bool> taken(kMaxIds);
  for (const auto& [path, uid] : lock.ids) taken[uid] = true;

  std::vector<std::pair<Entry*, std::string>> fresh;
  size_t found = 0;
  for_each(*model.root, [&](Entry& entry) {
    std::string path = entry.path();
    const auto known = lock.ids.find(path);
    if (known == lock.ids.end()) return fresh.emplace_back(&entry, std::move(path)), void();
    entry.uid = known->second;
    ++found;
  });
  if (locked + fresh.size() > kMaxIds) throw too_many(model, locked + fresh.size(), locked - found);

  uint32_t uid = 0;
  for (const auto& [entry, path] : fresh) {
    while (taken[uid]) ++uid;
    entry->uid = uid;
    lock.ids.emplace(path, uid++);
  }
}

}  // namespace mibctl
