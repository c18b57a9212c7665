#include "image.hh"

#include <expat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "text.hh"

namespace mibctl {

namespace {

constexpr uint32_t kMagic = 0xabcd1234;
constexpr uint32_t kMagicSwapped = 0x3412cdab;
constexpr uint32_t kErased = 0xffffffff;

uint32_t byte_at(std::string_view bytes, size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

uint32_t load_be32(std::string_view bytes, size_t at) {
  return byte_at(bytes, at) << 24 | byte_at(bytes, at + 1) << 16 | byte_at(bytes, at + 2) << 8 |
         byte_at(bytes, at + 3);
}

uint32_t load_le32(std::string_view bytes, size_t at) {
  return byte_at(bytes, at + 3) << 24 | byte_at(bytes, at + 2) << 16 | byte_at(bytes, at + 1) << 8 |
         byte_at(bytes, at);
}

void append_be32(std::string& out, size_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(word >> shift & 0xff);
}

void append_le32(std::string& out, size_t word) {
  for (int shift = 0; shift < 32; shift += 8) out += static_cast<char>(word >> shift & 0xff);
}

std::string magic_problem(uint32_t magic) {
  char text[32];
  std::snprintf(text, sizeof text, "magic %08x, not %08x", static_cast<unsigned>(magic),
                static_cast<unsigned>(kMagic));
  if (magic == kErased) return text + std::string(": erased");
  if (magic == kMagicSwapped) return text + std::string(": the bytes of each word are swapped");
  return text;
}

std::string header_problem(const Image& image) {
  if (image.size == 0) return "empty";
  if (image.size >= 4 && image.magic != kMagic) return magic_problem(image.magic);
  if (image.size < kImageHeader)
    return counted(image.size, "byte") + ": shorter than a header (" + grouped(kImageHeader) + ")";
  if (image.length > kMaxDocument)
    return "length " + grouped(image.length) + ", above the highest (" + grouped(kMaxDocument) +
           ")";
  return "";
}

}  // namespace

Image parse_image(std::string_view dump) {
  Image image;
  image.size = dump.size();
  if (dump.size() >= 4) image.magic = load_be32(dump, 0);
  if (dump.size() >= kImageHeader) image.length = load_be32(dump, 4);
  image.problem = header_problem(image);
  if (!image.valid()) return image;
  image.truncated = dump.size() - kImageHeader < image.length;
  image.text = text_in(dump, image.length);
  return image;
}

std::string_view text_in(std::string_view dump, uint32_t length) {
  if (dump.size() < kImageHeader) return {};
  return dump.substr(kImageHeader, length == 0 ? std::string_view::npos : length);
}

void check_length(const std::string& name, std::string_view document) {
  if (document.size() > kMaxDocument)
    throw refused(name, "too long for an image",
                  counted(document.size(), "byte") + ", at most " + grouped(kMaxDocument));
}

std::string make_image(const std::string& name, std::string_view document) {
  check_length(name, document);
  std::string image;
  append_be32(image, kMagic);
  append_be32(image, document.size());
  return image.append(document);
}

namespace {
constexpr std::string_view kUpgradeMagic = "zoremcfg";
constexpr size_t kUpgradeLengthOffset = 12;
constexpr size_t kUpgradeHeader = 16;
constexpr std::string_view kUpgradeTrailer("\0\0\0\0", 4);
}  // namespace

std::string parse_upgrade(const std::string& name, std::string_view bytes) {
  if (!bytes.starts_with(kUpgradeMagic))
    throw refused(name, "not an upgrade file",
                  "it does not begin with \"" + std::string(kUpgradeMagic) + "\"");
  if (bytes.size() < kUpgradeHeader)
    throw refused(name, "cut in its header",
                  counted(bytes.size(), "byte") + " of " + grouped(kUpgradeHeader));
  const uint32_t length = load_le32(bytes, kUpgradeLengthOffset);
  if (length > INT32_MAX) throw refused(name, "the payload's length is negative");
  if (length > kMaxDocument)
    throw refused(name, "the payload is too long for an image",
                  counted(length, "byte") + ", at most " + grouped(kMaxDocument));
  const std::string_view behind = bytes.substr(kUpgradeHeader);
  if (behind.size() < length)
    throw refused(name, "cut in its payload",
                  counted(behind.size(), "byte") + " of " + grouped(length));
  const std::string_view trailer = behind.substr(length, kUpgradeTrailer.size());
  if (trailer.size() < kUpgradeTrailer.size())
    throw refused(name, "cut in its trailer",
                  counted(trailer.size(), "byte") + " of " + grouped(kUpgradeTrailer.size()));
  if (trailer != kUpgradeTrailer)
    throw refused(name, "the trailer is not zero",
                  "the four bytes behind the payload of " + counted(length, "byte"));
  return std::string(behind.substr(0, length));
}

std::string make_upgrade(std::string_view document) {
  std::string file(kUpgradeMagic);
  file.resize(kUpgradeLengthOffset);
  append_le32(file, document.size());
  return file.append(document).append(kUpgradeTrailer);
}

bool looks_like_document(std::string_view bytes) {
  constexpr std::string_view kFirst = "< \t\r\n";
  return bytes.empty() || bytes.starts_with("\xef\xbb\xbf") || kFirst.find(bytes[0]) != kFirst.npos;
}

// --- documents ---

namespace {

constexpr size_t kMaxDepth = 31;
constexpr size_t kMaxPath = 511;
constexpr size_t kMaxNumber = 9;  // characters of an instance number, its dot included

struct Frame {
  size_t path;   // bytes of the path around the element
  size_t begin;  // of its start tag
  bool object;
};

// Follows a document as the loader does: an element adds its "name" attribute to the path, or else
// its tag, and then its instance number.
struct Walk {
  XML_Parser parser;
  const std::function<void(const Element&)>& leave;
  std::string path{};
  std::vector<Frame> open{};
  std::string problem{};  // a limit that is passed
  size_t where = 0;       // it is

  // Bytes before the event; expat has none, and tells -1, where the text is empty.
  size_t position() const {
    return static_cast<size_t>(std::max<XML_Index>(XML_GetCurrentByteIndex(parser), 0));
  }
  void stop(const std::string& why) {
    problem = why;
    where = position();
    XML_StopParser(parser, XML_FALSE);
  }
};

// An instance number as the loader reads it: like atoi, but modulo 2^32.
uint32_t number_of(const char* text) {
  text += std::strspn(text, " \t\n\v\f\r");
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;
  uint32_t number = 0;
  for (; *text >= '0' && *text <= '9'; ++text)
    number = number * 10 + static_cast<uint32_t>(*text - '0');
  return negative ? 0 - number : number;
}

// As wished: only a tree could tell which number the instance would get.
void append_number(std::string& path, uint32_t number) {
  path += (std::to_string(static_cast<int32_t>(number)) + ".").substr(0, kMaxNumber);
}

void XMLCALL enter(void* user, const XML_Char* tag, const XML_Char** attributes) {
  Walk& walk = *static_cast<Walk*>(user);
  if (!walk.problem.empty()) return;
  if (walk.open.size() == kMaxDepth)
    return walk.stop("more than " + grouped(kMaxDepth) + " nested elements");
  const char* name = nullptr;
  uint32_t number = 0;
  for (; *attributes; attributes += 2) {
    if (std::strcmp(attributes[0], "name") == 0) name = attributes[1];
    if (std::strcmp(attributes[0], "instance") == 0) number = number_of(attributes[1]);
  }
  walk.open.push_back({walk.path.size(), walk.position(), name == nullptr});
  walk.path += name ? name : tag;
  if (number != 0) append_number(walk.path, number);
  if (walk.path.size() > kMaxPath)
    walk.stop("a full name of more than " + grouped(kMaxPath) + " bytes");
}

void XMLCALL leave(void* user, const XML_Char*) {
  Walk& walk = *static_cast<Walk*>(user);
  if (!walk.problem.empty()) return;
  const Frame frame = walk.open.back();
  const size_t end = walk.position() + static_cast<size_t>(XML_GetCurrentByteCount(walk.parser));
  if (walk.leave) walk.leave({walk.path, frame.object, frame.begin, end});
  walk.path.resize(frame.path);
  walk.open.pop_back();
}

std::string place_in(std::string_view text, size_t at) {
  const std::string_view before = text.substr(0, at);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const size_t start = before.rfind('\n') + 1;  // 0 in the first line
  return "line " + std::to_string(line) + ", column " + std::to_string(at - start + 1);
}

}  // namespace

std::string walk_document(const std::string& text,
                          const std::function<void(const Element&)>& show) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) throw std::bad_alloc();
  Walk walk{parser.get(), show};
  XML_SetUserData(parser.get(), &walk);
  XML_SetElementHandler(parser.get(), enter, leave);
  const int length = static_cast<int>(std::strlen(text.c_str()));
  if (XML_Parse(parser.get(), text.c_str(), length, XML_TRUE) == XML_STATUS_OK) return "";
  if (!walk.problem.empty()) return place_in(text, walk.where) + ": " + walk.problem;
  return place_in(text, walk.position()) + ": " + XML_ErrorString(XML_GetErrorCode(parser.get()));
}

std::string document_problem(const std::string& text) { return walk_document(text, {}); }

}  // namespace mibctl
