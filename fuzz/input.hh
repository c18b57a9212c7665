// What the fuzz targets share.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

// Ends the run as a crash does, so that the input is kept.
#define FUZZ_CHECK(condition)                                                      \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (0)

// The input as a file named "input" in a folder of its own, for functions that take a path: what it
// names beside it is not there, or itself.
class InputFile {
 public:
  InputFile(const uint8_t* data, size_t size) {
    FUZZ_CHECK(mkdtemp(folder_.data()));
    const int fd = open(path().c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    FUZZ_CHECK(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size));
    close(fd);
  }
  ~InputFile() { std::filesystem::remove_all(folder_); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  std::string path() const { return folder_ + "/input"; }

 private:
  std::string folder_ = std::filesystem::temp_directory_path() / "fuzz.XXXXXX";
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
