#include "store.hh"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "text.hh"

namespace mibctl {

namespace {

bool is_missing(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) != 0 && errno == ENOENT;
}

bool is_among_devices(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code missing;
  return std::filesystem::canonical(folder.empty() ? "." : folder, missing) == "/dev";
}

// Written in place, and never longer than it is. A simulated device may look like a regular file.
bool is_device(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && (!S_ISREG(status.st_mode) || is_among_devices(path));
}

// --- writing an image ---

[[noreturn]] void fail_missing_device(const std::string& path) {
  throw Error(Status::storage, path, "is missing", "a file of a device's name would not be one");
}

struct Device {
  explicit Device(const std::string& path)
      : path(path), fd(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (fd < 0) fail("cannot be opened for writing");
  }
  ~Device() { close(fd); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  [[noreturn]] void fail(const char* doing) const {
    throw Error(Status::storage, path, doing, std::strerror(errno));
  }

  void write(std::string_view bytes, size_t offset) const {
    while (!bytes.empty()) {
      const ssize_t count = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail("cannot be written");
      if (count == 0) throw Error(Status::storage, path, "cannot be written", "it is too small");
      bytes.remove_prefix(static_cast<size_t>(count));
      offset += static_cast<size_t>(count);
    }
  }

  void sync() const {
    if (fsync(fd) != 0 && errno != EINVAL && errno != EROFS) fail("cannot be written");
  }

  const std::string& path;
  int fd;
};

// What power lost in between leaves behind: "text" the old header before a torn text, so that a
// start reads the other copy by the old length, "header" the new one, so that it does by the new
// length.
enum class First { text, header };

void write_to_device(const std::string& path, std::string_view image, First first) {
  const Device device(path);
  const auto write_part = [&](First part) {
    if (part == First::header)
      device.write(image.substr(0, kImageHeader), 0);
    else
      device.write(image.substr(kImageHeader), kImageHeader);
    device.sync();
  };
  write_part(first);
  write_part(first == First::text ? First::header : First::text);
  if (!read_file(path, kMaxDump).starts_with(image))
    throw Error(Status::storage, path, "does not hold what was written");
}

void save_image(const std::string& path, const std::string& document, First first = First::text) {
  const std::string image = make_image(path, document);
  if (is_device(path)) return write_to_device(path, image, first);
  const bool missing = is_missing(path);
  if (missing && is_among_devices(path)) fail_missing_device(path);
  std::string dump = missing ? std::string(kPartition, '\xff') : read_file(path, kMaxDump);
  dump.replace(0, image.size(), image);
  write_file(path, dump);
}

// --- reading one ---

// A load ends at a zero byte.
std::string load_text(std::string_view dump, uint32_t length) {
  const std::string_view text = text_in(dump, length);
  return std::string(text.substr(0, text.find('\0')));
}

// What a start loads from the copy by a header's length.
void take_text(Copy& copy, uint32_t length) {
  copy.text = load_text(copy.dump, length);
  copy.problem = document_problem(copy.text);
  if (copy.problem.empty()) return;
  const size_t there = text_in(copy.dump, length).size();
  const std::string what =
      there < length ? "the text is cut, " + grouped(there) + " of " + grouped(length) + " bytes"
                     : "the text does not parse";
  copy.problem = what + ": " + copy.problem;
}

}  // namespace

Copy read_copy(const std::string& path) {
  Copy copy;
  copy.path = path;
  copy.dump = read_file(path, kMaxDump);
  copy.readable = true;
  copy.image = parse_image(copy.dump);
  copy.problem = copy.image.problem;
  if (copy.image.valid()) take_text(copy, copy.image.length);
  return copy;
}

namespace {

Copy try_copy(const std::string& path) {
  try {
    return read_copy(path);
  } catch (const Error& error) {
    Copy copy;
    copy.path = path;
    copy.image.problem = copy.problem = error.text + ": " + error.detail;
    return copy;
  }
}

}  // namespace

Pair read_pair(const std::string& folder) {
  Pair pair{try_copy(folder + "/nvram"), try_copy(folder + "/nvrambak")};
  // The backup's own header is not looked at on this path.
  if (pair.main.image.valid() && !pair.main.problem.empty() && pair.backup.readable)
    take_text(pair.backup, pair.main.image.length);
  return pair;
}

const Copy* Pair::loaded() const {
  if (main.problem.empty()) return &main;
  return backup.problem.empty() ? &backup : nullptr;
}

namespace {
// What stands before an error is in the tree by then, and stays there.
std::string before_error(const char* copy) { return std::string(copy) + " up to its error, then "; }
}  // namespace

std::string Pair::route() const {
  if (loaded() == &main) return "loads main and rewrites both";
  const bool torn = main.image.valid();
  std::string route = "loads " + (torn ? before_error("main") : "");
  if (!loaded()) {
    if (torn ? backup.readable : backup.image.valid()) route += before_error("the backup");
    return route + "the factory default and rewrites neither";
  }
  route += "the backup";
  if (torn) route += " by the length in main's header (" + grouped(main.image.length) + ")";
  return route + " and rewrites both";
}

std::string state_of(const Copy& copy) {
  return copy.problem.empty() ? "valid, " + counted(copy.text.size(), "byte") : copy.problem;
}

// --- the three kinds of store ---

namespace {

class PathStore : public Store {
 public:
  explicit PathStore(const std::string& path) : path_(path) {}
  const std::string& name() const override { return path_; }

 private:
  std::string path_;
};

class DocumentStore : public PathStore {
 public:
  using PathStore::PathStore;
  std::string load() override { return read_file(name(), kMaxDocumentFile); }
  void save(const std::string& document) override {
    if (name() == "-")
      throw Error(Status::usage, name(), "standard input cannot be stored to", "name a file");
    check_length(name(), document);
    write_file(name(), document);
  }
};

// A text that does not parse is handed out all the same: there is no other, and it can be looked
// at.
class ImageStore : public PathStore {
 public:
  using PathStore::PathStore;
  std::string load() override {
    const std::string dump = read_file(name(), kMaxDump);
    const Image image = parse_image(dump);
    if (!image.valid())
      throw Error(Status::storage, name(), "holds no configuration", image.problem);
    return load_text(dump, image.length);
  }
  void save(const std::string& document) override { save_image(name(), document); }
};

class FlashStore : public PathStore {
 public:
  using PathStore::PathStore;
  std::string load() override {
    const Pair pair = read_pair(name());
    if (const Copy* const copy = pair.loaded()) return copy->text;
    throw Error(Status::storage, name(), "holds no configuration",
                "main: " + pair.main.problem + "; backup: " + pair.backup.problem);
  }
  // One copy is whole at any time, and as long as a start loads main, a failure changes nothing of
  // what it loads: the backup is written first then.
  void save(const std::string& document) override {
    const std::string main = name() + "/nvram", backup = name() + "/nvrambak";
    check_partner(main, backup);
    check_partner(backup, main);
    const Pair pair = read_pair(name());
    if (pair.loaded() == &pair.main) {
      save_image(backup, document);
      save_image(main, document, First::header);
    } else {
      save_image(main, document);
      save_image(backup, document);
    }
  }

 private:
  static void check_partner(const std::string& path, const std::string& other) {
    if (is_missing(path) && is_device(other)) fail_missing_device(path);
  }
};

// The first bytes of a file or device that can be read again; none of a pipe.
std::string first_bytes(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0 || S_ISFIFO(status.st_mode)) return "";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                             &std::fclose);
  std::string bytes(4, '\0');
  bytes.resize(file ? std::fread(bytes.data(), 1, bytes.size(), file.get()) : 0);
  return bytes;
}

}  // namespace

bool is_folder(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::unique_ptr<Store> open_document(const std::string& path) {
  return std::make_unique<DocumentStore>(path);
}

std::unique_ptr<Store> open_image(const std::string& path) {
  return std::make_unique<ImageStore>(path);
}

std::unique_ptr<Store> open_flash(const std::string& folder) {
  return std::make_unique<FlashStore>(folder);
}

std::unique_ptr<Store> open_any(const std::string& path) {
  if (is_folder(path)) return open_flash(path);
  if (looks_like_document(first_bytes(path))) return open_document(path);
  return open_image(path);
}

}  // namespace mibctl
