#include "error.hh"

namespace mibctl {

std::string Place::text() const {
  std::string text = file;
  if (line) text += ":" + std::to_string(line);
  if (line && column) text += ":" + std::to_string(column);
  return text;
}

namespace {
std::string line_of(const std::string& name, const std::string& text, const std::string& detail) {
  return name + ": " + text + (detail.empty() ? "" : " (" + detail + ")");
}
}  // namespace

Error::Error(Status status, const std::string& name, const std::string& text,
             const std::string& detail)
    : std::runtime_error(line_of(name, text, detail)),
      status(status),
      name(name),
      text(text),
      detail(detail) {}

}  // namespace mibctl
