#include "text.hh"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "error.hh"

namespace mibctl {

std::string grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, ",");
  return text;
}

std::string counted(uint64_t number, const std::string& one) {
  return grouped(number) + " " + one + (number == 1 ? "" : "s");
}

namespace {
bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool is_word(char c) { return is_letter(c) || (c >= '0' && c <= '9'); }
}  // namespace

bool is_identifier(std::string_view text) {
  return !text.empty() && is_letter(text[0]) && std::all_of(text.begin(), text.end(), is_word);
}

bool is_segment(std::string_view text) {
  constexpr size_t longest = 256;
  return !text.empty() && text.size() <= longest && is_letter(text[0]) &&
         std::all_of(text.begin(), text.end(), [](char c) { return is_word(c) || c == '-'; });
}

std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  int64_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size()) return {};
  if (number < lowest || number > highest) return {};
  return number;
}

namespace {

// One row of the table of "pattern up to here matches name up to there" at a time: no pattern makes
// it slow.
struct Token {
  enum { character, one, some, any } kind;
  char c = 0;
};

// Takes the first token off a pattern. Stars side by side are one.
Token take_token(std::string_view& pattern) {
  const char c = pattern[0];
  const size_t stars = std::min(pattern.find_first_not_of('*'), pattern.size());
  pattern.remove_prefix(std::max<size_t>(stars, 1));
  if (stars > 0) return {stars > 1 ? Token::any : Token::some};
  return c == '?' ? Token{Token::one} : Token{Token::character, c};
}

bool is_wildcard(char c) { return c == '*' || c == '?'; }

// Bytes of text before the first wildcard, and behind the last.
size_t text_before(std::string_view pattern) {
  return static_cast<size_t>(std::find_if(pattern.begin(), pattern.end(), is_wildcard) -
                             pattern.begin());
}
size_t text_behind(std::string_view pattern) {
  return static_cast<size_t>(std::find_if(pattern.rbegin(), pattern.rend(), is_wildcard) -
                             pattern.rbegin());
}

// Whether the texts between the wildcards stand in the name, in their order.
bool has_texts(std::string_view pattern, std::string_view name) {
  while (!pattern.empty()) {
    const std::string_view text = pattern.substr(0, text_before(pattern));
    const size_t found = name.find(text);
    if (found == std::string_view::npos) return false;
    name.remove_prefix(found + text.size());
    pattern.remove_prefix(text.size());
    while (!pattern.empty() && is_wildcard(pattern[0])) pattern.remove_prefix(1);
  }
  return true;
}

}  // namespace

bool matches(std::string_view pattern, std::string_view name) {
  // The texts before, behind and between the wildcards decide most comparisons.
  const size_t before = text_before(pattern);
  if (before == pattern.size()) return pattern == name;
  const size_t behind = text_behind(pattern);
  if (name.size() < before + behind || !name.starts_with(pattern.substr(0, before)) ||
      !name.ends_with(pattern.substr(pattern.size() - behind)))
    return false;
  pattern = pattern.substr(before, pattern.size() - before - behind);
  name = name.substr(before, name.size() - before - behind);
  if (pattern == "**") return true;
  if (!has_texts(pattern, name)) return false;

  std::vector<char> reached(name.size() + 1, 0);
  reached[0] = 1;
  while (!pattern.empty()) {
    const Token token = take_token(pattern);
    std::vector<char> next(name.size() + 1, 0);
    if (token.kind == Token::some || token.kind == Token::any) {
      for (size_t i = 0; i <= name.size(); ++i) {
        const bool onward =
            i > 0 && next[i - 1] && (token.kind == Token::any || name[i - 1] != '.');
        next[i] = reached[i] || onward;
      }
    } else {
      for (size_t i = 0; i < name.size(); ++i) {
        const bool fits = token.kind == Token::one ? name[i] != '.' : name[i] == token.c;
        next[i + 1] = reached[i] && fits;
      }
    }
    if (std::find(next.begin(), next.end(), 1) == next.end()) return false;
    reached.swap(next);
  }
  return reached[name.size()];
}

namespace {

constexpr struct {
  char letter, character;
} escapes[] = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'"', '"'}, {'\\', '\\'}};

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }

void append_escaped(std::string& out, char c) {
  for (const auto& escape : escapes)
    if (c == escape.character) {
      out += '\\';
      out += escape.letter;
      return;
    }
  if (!is_control(c)) {
    out += c;
    return;
  }
  char hex[5];
  std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
  out += hex;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Takes one escape (behind its backslash) off the front of `text`.
std::optional<char> take_escape(std::string_view& text) {
  if (text.empty()) return {};
  const char letter = text[0];
  if (letter == 'x') {
    if (text.size() < 3 || hex_digit(text[1]) < 0 || hex_digit(text[2]) < 0) return {};
    const char c = static_cast<char>(hex_digit(text[1]) * 16 + hex_digit(text[2]));
    text.remove_prefix(3);
    return c;
  }
  for (const auto& escape : escapes)
    if (letter == escape.letter) {
      text.remove_prefix(1);
      return escape.character;
    }
  return {};
}

}  // namespace

std::string quoted_value(std::string_view value) {
  const bool odd = std::any_of(value.begin(), value.end(), is_control) || value.starts_with('"') ||
                   value.starts_with(' ') || value.ends_with(' ');
  if (!odd) return std::string(value);
  std::string out = "\"";
  for (const char c : value) append_escaped(out, c);
  return out + '"';
}

std::optional<std::string> unquoted_value(std::string_view text) {
  if (!text.starts_with('"')) return std::string(text);
  text.remove_prefix(1);
  std::string value;
  while (!text.empty()) {
    const char c = text[0];
    text.remove_prefix(1);
    if (c == '"') return text.empty() ? std::optional(value) : std::nullopt;
    if (c != '\\') {
      value += c;
      continue;
    }
    const std::optional<char> escaped = take_escape(text);
    if (!escaped) return {};
    value += *escaped;
  }
  return {};
}

namespace {

// Letters inserted, left out or exchanged; stops counting at `limit`.
size_t distance(std::string_view a, std::string_view b, size_t limit) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) >= limit) return limit;
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t exchanged = diagonal + (a[i - 1] != b[j - 1]);
      diagonal = row[j];
      row[j] = std::min({exchanged, row[j] + 1, row[j - 1] + 1});
    }
  }
  return std::min(row[b.size()], limit);
}

}  // namespace

std::vector<std::string> similar(std::string_view word, const std::vector<std::string>& words) {
  const size_t limit = std::min<size_t>(6, word.size() / 3 + 2);
  std::vector<std::pair<size_t, std::string>> found;
  for (const std::string& candidate : words) {
    const size_t far = distance(word, candidate, limit);
    if (far < limit) found.emplace_back(far, candidate);
  }
  std::sort(found.begin(), found.end());
  if (found.size() > 3) found.resize(3);
  std::vector<std::string> nearest;
  for (auto& [far, candidate] : found) nearest.push_back(candidate);
  return nearest;
}

std::string did_you_mean(std::string_view word, const std::vector<std::string>& words) {
  const std::vector<std::string> nearest = similar(word, words);
  if (nearest.empty()) return "";
  std::string text = "did you mean " + nearest[0];
  for (size_t i = 1; i < nearest.size(); ++i)
    text += (i + 1 == nearest.size() ? " or " : ", ") + nearest[i];
  return text + "?";
}

namespace {

struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
};

Error storage_error(const std::string& path, const char* doing) {
  return {Status::storage, path, doing, std::strerror(errno)};
}

void write_all(int fd, const std::string& path, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = write(fd, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw storage_error(path, "cannot be written");
    content.remove_prefix(static_cast<size_t>(count));
  }
}

void write_through(const std::string& path, std::string_view content) {
  const Descriptor file{open(path.c_str(), O_WRONLY | O_CLOEXEC)};
  if (file.fd < 0) throw storage_error(path, "cannot be opened for writing");
  write_all(file.fd, path, content);
}

void replace_file(const std::string& path, std::string_view content, mode_t mode) {
  std::string beside = path + ".XXXXXX";
  const Descriptor file{mkostemp(beside.data(), O_CLOEXEC)};
  if (file.fd < 0) throw storage_error(path, "cannot be written");
  try {
    write_all(file.fd, path, content);
    if (fchmod(file.fd, mode) != 0 || fsync(file.fd) != 0 ||
        std::rename(beside.c_str(), path.c_str()) != 0)
      throw storage_error(path, "cannot be written");
  } catch (...) {
    unlink(beside.c_str());
    throw;
  }
}

mode_t usual_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

std::string read_file(const std::string& path, uint64_t limit) {
  const bool standard_input = path == "-";
  const Descriptor file{standard_input ? dup(STDIN_FILENO)
                                       : open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) throw storage_error(path, "cannot be read");
  std::string content;
  char block[65536];
  for (;;) {
    const ssize_t count = read(file.fd, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw storage_error(path, "cannot be read");
    if (count == 0) return content;
    content.append(block, static_cast<size_t>(count));
    if (content.size() > limit)
      throw Error(Status::storage, path, "too large", "at most " + grouped(limit) + " bytes");
  }
}

void write_file(const std::string& path, std::string_view content) {
  struct stat status;
  const bool there = stat(path.c_str(), &status) == 0;
  if (there && !S_ISREG(status.st_mode)) return write_through(path, content);
  // A link is followed: the file it leads to is replaced, not the link.
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                         &std::free);
  replace_file(real ? real.get() : path, content, there ? status.st_mode & 07777 : usual_mode());
}

}  // namespace mibctl
