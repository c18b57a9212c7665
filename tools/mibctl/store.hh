// Where a configuration is kept: a document, one partition image, or a pair of them.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "image.hh"

namespace mibctl {

class Store {
 public:
  virtual ~Store() = default;
  // The stored document, by the route that a start would take; throws (storage) when there is none.
  virtual std::string load() = 0;
  // Replaces it; throws (storage), or (refused) when it does not fit. What was stored is then still
  // there, in at least one copy.
  virtual void save(const std::string& document) = 0;
  // What it is, for messages: a path.
  virtual const std::string& name() const = 0;
};

std::unique_ptr<Store> open_document(const std::string& path);
std::unique_ptr<Store> open_image(const std::string& path);
// A folder with "nvram" and "nvrambak": images, or the devices themselves.
std::unique_ptr<Store> open_flash(const std::string& folder);
// Whichever of the three the path is: a folder, an image by its first bytes, else a document.
std::unique_ptr<Store> open_any(const std::string& path);

// One of a pair of images, as a start meets it.
struct Copy {
  std::string path;
  bool readable = false;
  std::string dump;
  Image image;          // where it cannot be read, the problem says so
  std::string text;     // what a start would load from it
  std::string problem;  // why that would fail, "" when it would not
};

// The pair of a folder, and the route of a start over it.
struct Pair {
  Copy main, backup;
  const Copy* loaded() const;  // null: neither
  // In words, as "loads the backup and rewrites both".
  std::string route() const;
};
Pair read_pair(const std::string& folder);

// "valid, 12,345 bytes", or the copy's problem.
std::string state_of(const Copy& copy);

// One image by itself; throws (storage) when it cannot be read.
Copy read_copy(const std::string& path);

bool is_folder(const std::string& path);

}  // namespace mibctl
