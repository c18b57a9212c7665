// A text of gigabytes that takes little memory: the same few megabytes, mapped one behind the
// other.
#ifndef TESTS_SUPPORT_LONG_TEXT_HH
#define TESTS_SUPPORT_LONG_TEXT_HH

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

class LongText {
 public:
  // `start`, then `fill` up to `length` characters, which an address must reach.
  LongText(const std::string& start, char fill, uint64_t length)
      : size_(static_cast<size_t>(length / kPiece * kPiece + kPiece)),
        text_(static_cast<char*>(
            mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    const int piece = memfd_create("long text", 0);
    const std::string bytes(kPiece, fill);
    EXPECT_EQ(write(piece, bytes.data(), kPiece), static_cast<ssize_t>(kPiece));
    for (size_t at = 0; at < size_; at += kPiece)
      EXPECT_EQ(mmap(text_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, piece, 0),
                text_ + at);
    close(piece);
    std::memcpy(text_, start.data(), start.size());
    text_[static_cast<size_t>(length)] = '\0';
  }
  ~LongText() { munmap(text_, size_); }
  LongText(const LongText&) = delete;
  LongText& operator=(const LongText&) = delete;

  char* get() { return text_; }

 private:
  static constexpr size_t kPiece = size_t{1} << 22;

  size_t size_;
  char* text_;
};

#endif
