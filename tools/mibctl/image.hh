// Partition images and upgrade files.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "error.hh"

namespace mibctl {

constexpr size_t kImageHeader = 8;
constexpr size_t kMaxDocument = 65528;            // longest text that an image can hold
constexpr size_t kPartition = 65536;              // an image with the longest text
constexpr uint64_t kMaxDump = 64 << 20;           // longest dump that is read
constexpr uint64_t kMaxDocumentFile = 256 << 10;  // longest document file that is read

// One image, as found in a dump of any length.
struct Image {
  size_t size = 0;               // bytes of the dump
  uint32_t magic = 0;            // as found; 0 where the dump is shorter
  uint32_t length = 0xFFFFFFFF;  // of the text, as the header has it
  std::string problem;           // why a start refuses the header, "" when it is valid
  bool truncated = false;        // the dump ends before the text does
  std::string text;              // the text, as much of it as there is; "" without a valid header
                                 // (length 0: all that is behind it)
  bool valid() const { return problem.empty(); }
};
Image parse_image(std::string_view dump);
// The bytes of a dump that a load with this header length takes; 0: all behind the header.
std::string_view text_in(std::string_view dump, uint32_t length);
// An image of a document; throws (refused, about `name`) when it is too long.
std::string make_image(const std::string& name, std::string_view document);

// The payload of an upgrade file; throws (refused) with what is wrong with it.
std::string parse_upgrade(const std::string& name, std::string_view bytes);
std::string make_upgrade(std::string_view document);

// Whether bytes begin like a document. Those of an image do not, whatever became of it.
bool looks_like_document(std::string_view bytes);

// Throws (refused, about `name`) for a document that no image can hold.
void check_length(const std::string& name, std::string_view document);

// "" for a text that parses as a document within the limits (nesting, path length); else why not,
// with line and column. What is behind a zero byte is not looked at: no load reaches it.
std::string document_problem(const std::string& text);

// An element of a document, by the path at which a load would look for it.
struct Element {
  const std::string& path;
  bool object;        // not a PARAM
  size_t begin, end;  // its bytes in the text, both tags included
};
// document_problem(), with every element shown as it ends.
std::string walk_document(const std::string& text,
                          const std::function<void(const Element&)>& leave);

}  // namespace mibctl
