#include "report.hh"

#include <algorithm>
#include <functional>
#include <unordered_map>

namespace mibctl {

namespace {

uint64_t length(const std::string& text) { return text.size(); }

uint64_t digits(int64_t number) { return std::to_string(number).size(); }

// The longest text of a value; 0 with `bounded` false where there is no longest.
uint64_t longest_value(const Entry& entry, bool& bounded) {
  bounded = true;
  switch (entry.type) {
    case QMIBTREE_TYPE_INT:
    case QMIBTREE_TYPE_UINT:
      return std::max(digits(entry.min), digits(entry.max));
    case QMIBTREE_TYPE_BOOL:
      return sizeof "false" - 1;
    case QMIBTREE_TYPE_DATETIME:
      return sizeof "2000-01-01T00:00:00" - 1;
    case QMIBTREE_TYPE_BASE64:
      bounded = entry.max_len != 0;
      return (uint64_t{entry.max_len} + 2) / 3 * 4;
    default:
      break;
  }
  if (!entry.words.empty() && !entry.list) {
    const auto by_size = [](const auto& a, const auto& b) { return a.size() < b.size(); };
    return std::max_element(entry.words.begin(), entry.words.end(), by_size)->size();
  }
  bounded = entry.max_len != 0;
  return entry.max_len;
}

constexpr uint64_t kDeclaration = sizeof "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" - 1;
constexpr uint64_t kParameter = sizeof "<PARAM name=\"\"></PARAM>\n" - 1;
constexpr uint64_t kObject = sizeof "<>\n</>\n" - 1;
constexpr uint64_t kInstance = sizeof " instance=\"\"" - 1;

constexpr uint64_t kNotification = sizeof " notification=\"2\"" - 1;
constexpr uint64_t kNoValue = sizeof " ignorevalue=\"yes\"" - 1;

DocumentSize parameter_size(const Entry& entry) {
  const bool notifies = entry.notify != Notify::normal;
  const uint64_t around = kParameter + length(entry.name) + (notifies ? kNotification : 0);
  const uint64_t alone = notifies ? around + kNoValue : 0;  // without its value
  if (entry.save == Save::never) return {alone, alone, alone, 0};
  const uint64_t usual = entry.defval ? entry.defval->size() : 0;
  bool bounded;
  const uint64_t longest = longest_value(entry, bounded);
  return {entry.save == Save::always ? around + usual : alone, around + usual,
          around + (bounded ? longest : usual), bounded ? 0u : 1u};
}

void add(DocumentSize& sum, const DocumentSize& part, uint64_t times = 1) {
  sum.defaults += part.defaults * times;
  sum.modified += part.modified * times;
  sum.longest += part.longest * times;
  sum.unbounded += static_cast<uint32_t>(part.unbounded * times);
}

uint32_t instances_of(const Entry& table, const InstanceCounts& counts) {
  const auto named = counts.find(table.path());
  return named != counts.end() ? named->second : std::max(table.min_entries, 1u);
}

DocumentSize entry_size(const Entry& entry, const InstanceCounts& counts) {
  if (!entry.is_object()) return parameter_size(entry);
  DocumentSize below;
  for (const auto& child : entry.children) add(below, entry_size(*child, counts));
  const uint64_t tags = kObject + 2 * length(entry.name);
  DocumentSize sum;
  if (!entry.multi) {  // an object is there when something below it is
    for (uint64_t* bytes : {&below.defaults, &below.modified, &below.longest})
      if (*bytes) *bytes += tags;
    return below;
  }
  const uint32_t count = instances_of(entry, counts);
  add(sum, below, count);
  for (uint32_t number = 1; number <= count; ++number) {
    const uint64_t around = tags + kInstance + digits(number);
    add(sum, {around, around, around, 0});
  }
  return sum;
}

}  // namespace

DocumentSize document_size(const Model& model, const InstanceCounts& counts) {
  DocumentSize size = entry_size(*model.root, counts);
  add(size, {kDeclaration, kDeclaration, kDeclaration, 0});
  return size;
}

namespace {

constexpr struct {
  Save save;
  const char* name;
} savings[] = {{Save::always, "always"}, {Save::modified, "when modified"}, {Save::never, "never"}};

const char* name_of(Save save) {
  for (const auto& known : savings)
    if (known.save == save) return known.name;
  return "";
}

// Three digits stand for every {i}, which has three characters too.
void note_name(Report& report, const std::string& path) {
  if (path.size() <= report.longest_bytes) return;
  report.longest_bytes = static_cast<uint32_t>(path.size());
  report.longest = path;
}

void count_object(Report& report, const Entry& entry) {
  ++report.objects;
  if (!entry.multi) return;
  ++report.tables;
  if (entry.min_entries) report.least.emplace_back(entry.path(), entry.min_entries);
}

void count_parameter(Report& report, const Model& model, const Entry& entry) {
  const std::string owner = model.component_name(entry.component);
  ++report.parameters;
  ++report.by_type[qmibtree_datatype_get_type_str(entry.type)];
  ++report.by_owner[owner.empty() ? "none" : owner];
  ++report.by_source[entry.source];
  ++report.by_saving[name_of(entry.save)];
}

}  // namespace

Report report_of(const Model& model) {
  Report report;
  const std::function<void(const Entry&, uint32_t, const std::string&)> visit =
      [&](const Entry& entry, uint32_t depth, const std::string& above) {
        const std::string path = above + entry.name + (entry.multi ? "{i}." : "");
        report.depth = std::max(report.depth, depth);
        if (entry.uid != kNoUid) report.ids = std::max(report.ids, entry.uid + 1);
        ++report.by_status[entry.status];
        note_name(report, path);
        if (entry.is_object())
          count_object(report, entry);
        else
          count_parameter(report, model, entry);
        for (const auto& child : entry.children) visit(*child, depth + 1, path);
      };
  visit(*model.root, 1, "");
  return report;
}

std::vector<NoteKind> kinds_of(const std::vector<Note>& notes) {
  std::vector<NoteKind> kinds;
  std::unordered_map<std::string, size_t> places;
  for (const Note& note : notes) {
    const auto [at, is_new] = places.try_emplace(note.kind, kinds.size());
    if (is_new) kinds.push_back({note.kind, 0, note.path});
    ++kinds[at->second].count;
  }
  return kinds;
}

std::string type_text(const Entry& entry) {
  if (entry.is_object()) return entry.multi ? "table" : "object";
  std::string text = qmibtree_datatype_get_type_str(entry.type);
  if (entry.type == QMIBTREE_TYPE_INT || entry.type == QMIBTREE_TYPE_UINT)
    return text + " " + std::to_string(entry.min) + ".." + std::to_string(entry.max);
  if (entry.max_len) text += "(" + std::to_string(entry.max_len) + ")";
  if (entry.list) text += " list";
  const char* separator = ": ";
  for (const std::string& word : entry.words) {
    text += separator + word;
    separator = "|";
  }
  return text;
}

namespace {

constexpr const char* notify_words[] = {"", ", notification on", ", notification forced"};

std::string summary(const Model& model, const Entry& entry) {
  std::string text = type_text(entry) + (entry.writable ? ", readWrite" : ", readOnly");
  text += notify_words[static_cast<size_t>(entry.notify)];
  if (entry.save != Save::never) text += std::string(", saved ") + name_of(entry.save);
  if (entry.dynamic) text += ", dynamic";
  if (entry.defval) text += ", default \"" + *entry.defval + "\"";
  const std::string owner = model.component_name(entry.component);
  if (!owner.empty()) text += ", owner " + owner;
  if (entry.status != "current") text += ", " + entry.status;
  return text;
}

std::vector<std::pair<std::string, std::string>> summaries(const Model& model) {
  std::vector<std::pair<std::string, std::string>> all;
  for_each(*model.root,
           [&](const Entry& entry) { all.emplace_back(entry.path(), summary(model, entry)); });
  return all;
}

}  // namespace

std::vector<ModelDifference> compare_models(const Model& left, const Model& right) {
  const auto before = summaries(left);
  const auto after = summaries(right);
  const std::unordered_map<std::string, std::string> in_left(before.begin(), before.end());
  const std::unordered_map<std::string, std::string> in_right(after.begin(), after.end());
  std::vector<ModelDifference> differences;
  for (const auto& [path, text] : before) {
    const auto other = in_right.find(path);
    if (other == in_right.end())
      differences.push_back({path, text, ""});
    else if (other->second != text)
      differences.push_back({path, text, other->second});
  }
  for (const auto& [path, text] : after)
    if (!in_left.contains(path)) differences.push_back({path, "", text});
  return differences;
}

}  // namespace mibctl
