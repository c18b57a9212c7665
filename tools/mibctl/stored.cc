#include "stored.hh"

#include <optional>
#include <string_view>

#include "error.hh"
#include "image.hh"

namespace mibctl {

namespace {

// Bytes of the tag that an element begins with: an attribute may have a ">" too.
size_t tag_size(std::string_view element) {
  char quote = 0;
  for (size_t i = 0; i < element.size(); ++i) {
    const char c = element[i];
    if (quote)
      quote = c == quote ? 0 : quote;
    else if (c == '"' || c == '\'')
      quote = c;
    else if (c == '>')
      return i + 1;
  }
  return element.size();
}

// What stands between an element's tags; nothing where the element has no value to load.
std::optional<std::string_view> content_of(std::string_view element) {
  const size_t start = tag_size(element);
  const std::string_view tag = element.substr(0, start);
  const bool ignored = tag.find("ignorevalue") != tag.npos && tag.find("yes") != tag.npos;
  if (tag.ends_with("/>") || ignored) return {};
  const std::string_view content = element.substr(start, element.rfind('<') - start);
  if (content.empty()) return {};
  return content;
}

// A load takes such a text in pieces, and the last one counts.
bool is_divided(std::string_view content) {
  return content.find_first_of("<&\r\n") != content.npos;
}

}  // namespace

std::string stored_value(const std::string& document_name, const std::string& document,
                         const std::string& name) {
  std::optional<std::string_view> value;
  const std::string problem = walk_document(document, [&](const Element& element) {
    if (element.object || element.path != name) return;
    const std::string_view whole(document.data() + element.begin, element.end - element.begin);
    if (const auto content = content_of(whole)) value = content;
  });
  if (!problem.empty()) throw Error(Status::storage, document_name, "does not load", problem);
  if (!value) throw refused(name, "not stored", "name the model to see its default: --model FILE");
  if (is_divided(*value))
    throw refused(name, "stored in pieces", "name the model to see what a load makes of it");
  return std::string(*value);
}

}  // namespace mibctl
