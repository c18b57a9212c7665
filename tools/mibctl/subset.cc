// A part of the model: what profiles name and patterns match.
#include <algorithm>
#include <set>

#include "model.hh"
#include "text.hh"

namespace mibctl {

namespace {

const Profile* find_profile(const Model& model, const std::string& name) {
  const auto found = std::find_if(model.profiles.begin(), model.profiles.end(),
                                  [&](const Profile& profile) { return profile.name == name; });
  return found == model.profiles.end() ? nullptr : &*found;
}

Error unknown_profile(const Model& model, const std::string& name) {
  std::vector<std::string> names;
  for (const Profile& profile : model.profiles) names.push_back(profile.name);
  return refused(name, "the model has no such profile", did_you_mean(name, names));
}

// The profiles and all that they include, directly or not, each once.
std::vector<const Profile*> with_included(const Model& model,
                                          const std::vector<std::string>& names) {
  std::vector<const Profile*> found;
  std::set<const Profile*> seen;
  for (const std::string& name : names) {
    const Profile* const profile = find_profile(model, name);
    if (!profile) throw unknown_profile(model, name);
    if (seen.insert(profile).second) found.push_back(profile);
  }
  for (size_t i = 0; i < found.size(); ++i)
    for (const std::string& name : found[i]->includes) {
      const Profile* const included = find_profile(model, name);
      if (!included)
        throw Error(Status::refused, found[i]->place,
                    "profile " + found[i]->name + " includes " + name + ", which there is not");
      if (seen.insert(included).second) found.push_back(included);
    }
  return found;
}

// The entries that stay.
class Choice {
 public:
  // With the objects above, and the parameters that count the instances of tables among them.
  void keep(const Entry* entry) {
    for (; entry && kept_.insert(entry).second; entry = entry->parent)
      if (!entry->entries.empty() && entry->parent)
        kept_.insert(entry->parent->child(entry->entries));
  }

  void keep_profiles(const Model& model, const std::vector<std::string>& names) {
    for (const Profile* const profile : with_included(model, names))
      for (const std::string& path : profile->entries) keep(find_entry(*model.root, path));
  }

  void keep_matches(const Model& model, const std::string& pattern) {
    std::vector<std::string> paths;
    bool found = false;
    for_each(static_cast<const Entry&>(*model.root), [&](const Entry& entry) {
      paths.push_back(entry.path());
      if (!matches(pattern, paths.back())) return;
      keep(&entry);
      found = true;
    });
    if (found) return;
    const bool plain = pattern.find_first_of("*?") == std::string::npos;
    throw refused(pattern, "matches nothing in the model",
                  plain ? did_you_mean(pattern, paths) : "");
  }

  void remove_others(Entry& above) const {
    std::erase_if(above.children,
                  [this](const auto& child) { return !kept_.contains(child.get()); });
    for (const auto& child : above.children) remove_others(*child);
  }

 private:
  std::set<const Entry*> kept_;
};

}  // namespace

void choose(Model& model, const std::vector<std::string>& profiles,
            const std::vector<std::string>& patterns) {
  if (profiles.empty() && patterns.empty()) return;
  Choice choice;
  choice.keep_profiles(model, profiles);
  for (const std::string& pattern : patterns) choice.keep_matches(model, pattern);
  choice.remove_others(*model.root);
}

}  // namespace mibctl
