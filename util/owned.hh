// Owners: a block, a stream or a descriptor that is given up on every way out.
#ifndef UTIL_OWNED_HH
#define UTIL_OWNED_HH

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qmibtree.h"

namespace qmib {

struct qfree_block {
  void operator()(void* block) const { qfree(block); }
};
template <typename T>
using owned = std::unique_ptr<T, qfree_block>;

// A zeroed block from qmalloc, or null. Not inline: with a size known to the compiler the zeroing
// becomes a string instruction, which takes longer than the C library's way.
void* zeroed_block(size_t size, const char* tag);

template <typename T>
owned<T> make_zeroed(const char* tag, size_t size = sizeof(T)) {
  return owned<T>(static_cast<T*>(zeroed_block(size, tag)));
}

// Storage from the platform's allocator rather than qmalloc.
struct free_block {
  void operator()(void* block) const { std::free(block); }
};
using plain_bytes = std::unique_ptr<unsigned char, free_block>;

struct close_stream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using file = std::unique_ptr<std::FILE, close_stream>;

// Closes and says whether everything written had reached the file.
inline bool close_written(file stream) { return std::fclose(stream.release()) == 0; }

class descriptor {
 public:
  explicit descriptor(int fd) : fd_(fd) {}
  ~descriptor() { reset(); }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  void release() { fd_ = -1; }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

}  // namespace qmib

#endif
