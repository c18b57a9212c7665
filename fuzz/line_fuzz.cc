// Lines of a batch from anywhere: texts survive being quoted, patterns match what they should, the
// difference of two texts leads from one to the other, and what is written and said not to be lost
// comes back from a document.
#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "error.hh"
#include "input.hh"
#include "line_diff.hh"
#include "lint.hh"
#include "small_model.hh"
#include "text.hh"
#include "tree.hh"

namespace {

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return lines;
}

void check_quoting(std::string_view text) {
  const std::string quoted = mibctl::quoted_value(text);
  FUZZ_CHECK(mibctl::unquoted_value(quoted) == text);
  for (const char c : quoted) FUZZ_CHECK(static_cast<unsigned char>(c) >= ' ' && c != 0x7F);
  if (const auto value = mibctl::unquoted_value(text))
    FUZZ_CHECK(mibctl::unquoted_value(mibctl::quoted_value(*value)) == value);
}

void check_number(std::string_view text) {
  const auto number = mibctl::parse_number(text, INT64_MIN, INT64_MAX);
  if (!number) return;
  FUZZ_CHECK(mibctl::parse_number(std::to_string(*number), *number, *number) == number);
  if (*number < INT64_MAX) FUZZ_CHECK(!mibctl::parse_number(text, *number + 1, INT64_MAX));
}

// The rules of patterns word for word; how long it takes grows with each wildcard.
bool fits(std::string_view pattern, std::string_view name) {
  if (pattern.empty()) return name.empty();
  const std::string_view more = name.substr(name.empty() ? 0 : 1);
  if (pattern.starts_with("**"))
    return fits(pattern.substr(2), name) || (!name.empty() && fits(pattern, more));
  if (pattern[0] == '*')
    return fits(pattern.substr(1), name) ||
           (!name.empty() && name[0] != '.' && fits(pattern, more));
  if (name.empty()) return false;
  return (pattern[0] == '?' ? name[0] != '.' : name[0] == pattern[0]) &&
         fits(pattern.substr(1), more);
}

void check_pattern(std::string_view pattern, std::string_view name) {
  constexpr size_t kFew = 6, kShort = 40;
  const bool matches = mibctl::matches(pattern, name);
  const auto stars = std::count(pattern.begin(), pattern.end(), '*');
  if (stars <= static_cast<long>(kFew) && name.size() <= kShort)
    FUZZ_CHECK(matches == fits(pattern, name));
}

void check_difference(std::string_view from, std::string_view to) {
  const std::vector<std::string_view> from_lines = lines_of(from);
  std::vector<std::string_view> result;
  size_t taken = 0;
  const auto keep_to = [&](auto is_there) {
    while (!is_there()) result.push_back(from_lines.at(taken++));
  };
  for (const mibctl::LineEdit& edit : mibctl::diff_lines(from, to)) {
    if (edit.added) {
      keep_to([&] { return result.size() + 1 == edit.line; });
      result.push_back(edit.text);
    } else {
      keep_to([&] { return taken + 1 == edit.line; });
      FUZZ_CHECK(from_lines.at(taken++) == edit.text);
    }
  }
  keep_to([&] { return taken == from_lines.size(); });
  FUZZ_CHECK(result == lines_of(to));
}

// "Full.Name=value" or a table's full name, which gets an instance. Throws Error.
void take(mibctl::Tree& tree, std::string_view line, std::map<std::string, std::string>& written) {
  const size_t equals = line.find('=');
  const std::string name(line.substr(0, equals));
  qmibtree_node* const node = tree.find(name);
  if (equals == line.npos) return void(tree.add(node, 0));
  const auto text = mibctl::unquoted_value(line.substr(equals + 1));
  if (!text) return;
  tree.write(node, *text, 0);
  if (!tree.has_value(node)) return;
  const std::string value = tree.value(node);
  FUZZ_CHECK(mibctl::refusal(tree.entry(node), value).empty());
  written[name] = value;
}

void check_batch(const std::vector<std::string_view>& lines) {
  static const mibctl::Model model = small_model_with_overlay();
  mibctl::Tree tree(model);
  std::map<std::string, std::string> written;
  for (const std::string_view line : lines) try {
      take(tree, line, written);
    } catch (const mibctl::Error&) {
    }
  for (const auto& [name, value] : written)
    if (!mibctl::loss(tree.entry(tree.find(name)), value).empty()) return;
  mibctl::Tree again(model);
  const std::string document = tree.document();
  FUZZ_CHECK(again.load(document));
  for (const mibctl::Finding& finding : mibctl::lint(model, document)) FUZZ_CHECK(!finding.lost);
  for (const auto& [name, value] : written) FUZZ_CHECK(again.value(again.find(name)) == value);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string_view> lines = lines_of(text);
  for (const std::string_view line : lines) {
    check_quoting(line);
    check_number(line);
    check_pattern(line, lines.back());
  }
  check_difference(text.substr(0, size / 2), text.substr(size / 2));
  check_batch(lines);
  return 0;
}
