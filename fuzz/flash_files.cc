#include "flash_files.hh"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

namespace flash_files {
namespace {

// One open stream. A device keeps its length; another file grows.
struct Stream {
  std::string* bytes;
  bool grows;
  size_t at = 0;
  std::FILE* file = nullptr;
};

std::set<Stream*>& streams() {
  static std::set<Stream*> open;
  return open;
}

ssize_t read_some(void* cookie, char* out, size_t size) {
  auto* const stream = static_cast<Stream*>(cookie);
  if (stream->at >= stream->bytes->size()) return 0;
  const size_t count = std::min(size, stream->bytes->size() - stream->at);
  std::memcpy(out, stream->bytes->data() + stream->at, count);
  stream->at += count;
  return static_cast<ssize_t>(count);
}

ssize_t write_some(void* cookie, const char* from, size_t size) {
  auto* const stream = static_cast<Stream*>(cookie);
  std::string& bytes = *stream->bytes;
  if (stream->grows && bytes.size() < stream->at + size) bytes.resize(stream->at + size);
  const size_t room = bytes.size() - std::min(stream->at, bytes.size());
  const size_t count = std::min(size, room);
  std::memcpy(bytes.data() + bytes.size() - room, from, count);
  stream->at += count;
  // What does not fit is a failure of the whole: a smaller count is no failure to every C library.
  return count < size ? -1 : static_cast<ssize_t>(count);
}

template <typename Offset>
int seek_to(void* cookie, Offset* offset, int whence) {
  auto* const stream = static_cast<Stream*>(cookie);
  const auto size = static_cast<Offset>(stream->bytes->size());
  const Offset base = whence == SEEK_END   ? size
                      : whence == SEEK_CUR ? static_cast<Offset>(stream->at)
                                           : 0;
  if (base + *offset < 0) return -1;
  *offset += base;
  stream->at = static_cast<size_t>(*offset);
  return 0;
}

int close_it(void* cookie) {
  auto* const stream = static_cast<Stream*>(cookie);
  streams().erase(stream);
  delete stream;
  return 0;
}

std::FILE* open_stream(std::string* bytes, const char* mode, bool grows) {
  if (grows && *mode == 'w') bytes->clear();
  auto* const stream = new Stream{bytes, grows};
  stream->file = fopencookie(stream, mode, {read_some, write_some, seek_to, close_it});
  FUZZ_CHECK(stream->file);
  streams().insert(stream);
  return stream->file;
}

std::FILE* open_if_there(std::optional<std::string>& file, const char* mode) {
  return file ? open_stream(&*file, mode, false) : nullptr;
}

}  // namespace

Flash& flash() {
  static Flash the_flash;
  return the_flash;
}

size_t close_streams() {
  const std::set<Stream*> left = streams();
  for (Stream* stream : left) std::fclose(stream->file);
  return left.size();
}

std::string device_of(const std::string& bytes, size_t size) {
  return written_over(std::string(size, '\xff'), bytes);
}

std::string image_of(const std::string& text) {
  std::string image = "\xab\xcd\x12\x34";
  for (int shift = 24; shift >= 0; shift -= 8) image += static_cast<char>(text.size() >> shift);
  return image + text;
}

std::optional<uint32_t> length_of(const std::optional<std::string>& device) {
  if (!device || device->size() < 8 || device->substr(0, 4) != "\xab\xcd\x12\x34") return {};
  uint32_t length = 0;
  for (size_t i = 4; i < 8; ++i) length = length * 256 + static_cast<unsigned char>((*device)[i]);
  if (length >= 65529) return {};
  return length;
}

std::string written_over(std::string device, const std::string& bytes) {
  const size_t count = std::min(device.size(), bytes.size());
  return device.replace(0, count, bytes, 0, count);
}

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
  const std::string name = path;
  if (name == kMain) return open_if_there(flash().main, mode);
  if (name == kBackup) return open_if_there(flash().backup, mode);
  if (name == kDefault) return open_if_there(flash().defaults, mode);
  if (name == kTrace) return open_stream(&flash().trace, mode, true);
  return __real_fopen(path, mode);
}

int __wrap_system(const char* command);
int __wrap_system(const char* command) {
  Flash& all = flash();
  all.commands.emplace_back(command);
  auto& device = all.commands.back() == "mtd erase NVRAM" ? all.main : all.backup;
  if (device) device->assign(device->size(), '\xff');
  return 0;
}

}  // extern "C"

}  // namespace flash_files
