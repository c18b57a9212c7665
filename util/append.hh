// Known text into a text buffer, as qmibtree_buff_dump would put it there, without a format to read
// (and where text goes beyond the 2 GiB that formats end at, put or counted all the same). bench/
// measures it: a save spends its time here.
#ifndef UTIL_APPEND_HH
#define UTIL_APPEND_HH

#include <bit>
#include <cstdint>
#include <cstring>

#include "qmibtree.h"

namespace qmib {

// A part of a text: its bytes, without a NUL.
class piece {
 public:
  piece(const char* text, size_t length) : text_(text), length_(length) {}
  explicit piece(const char* terminated) : piece(terminated, std::strlen(terminated)) {}
  const char* text() const { return text_; }
  size_t length() const { return length_; }
  void put(char* to) const { std::memcpy(to, text_, length_); }

 private:
  const char* text_;
  size_t length_;
};

// A part of a text: a number in decimal. It is written where it goes, and only counted while the
// text is counted.
class number {
 public:
  explicit number(uint32_t value) : number(value, false) {}
  explicit number(int32_t value)
      : number(value < 0 ? 0 - static_cast<uint32_t>(value) : static_cast<uint32_t>(value),
               value < 0) {}
  size_t length() const { return length_; }
  void put(char* to) const {
    uint32_t rest = magnitude_;
    size_t left = length_;
    if (negative_) *to = '-';
    for (; rest >= 10; rest /= 100) {  // two at a time: each division waits for the one before
      to[--left] = static_cast<char>('0' + rest % 100 % 10);
      to[--left] = static_cast<char>('0' + rest % 100 / 10);
    }
    if (left > negative_) to[--left] = static_cast<char>('0' + rest);
  }

 private:
  number(uint32_t magnitude, bool negative)
      : magnitude_(magnitude), negative_(negative), length_(count_digits(magnitude) + negative) {}

  // 1233 / 4096 is the logarithm of 2 to the base of 10, or less by so little that one step of the
  // table mends it.
  static uint32_t count_digits(uint32_t value) {
    static constexpr uint32_t kPowersOfTen[] = {1,      10,      100,      1000,      10000,
                                                100000, 1000000, 10000000, 100000000, 1000000000};
    const uint32_t least = static_cast<uint32_t>(std::bit_width(value | 1)) * 1233 >> 12;
    return least + ((value | 1) >= kPowersOfTen[least] ? 1 : 0);
  }

  uint32_t magnitude_;
  uint32_t negative_;  // 0 or 1
  uint32_t length_;
};

// A number's text, for as long as this object lives.
class digits {
 public:
  explicit digits(number value);
  piece get() const { return {text_, length_}; }

 private:
  char text_[11];  // "-2147483648"
  size_t length_;
};

// Appends the parts in one step where they fit with their NUL; changes nothing where they do not.
template <typename... Parts>
[[gnu::always_inline]] inline bool append_whole(qmibtree_buff_t* buff, const Parts&... parts) {
  const size_t length = (parts.length() + ...);
  if (!buff->pos) {  // counting
    buff->size += static_cast<uint32_t>(length);
    return true;
  }
  if (length >= buff->left) return false;
  char* to = buff->pos;
  ((parts.put(to), to += parts.length()), ...);
  *to = '\0';
  buff->pos = to;
  buff->left -= static_cast<uint32_t>(length);
  return true;
}

// Appends the pieces, all or none, with the results of qmibtree_buff_dump. What did not fit stands
// there as far as it does, NUL-terminated, and the buffer does not move.
uint32_t append_pieces(qmibtree_buff_t* buff, const piece* pieces, size_t count);

uint32_t append(qmibtree_buff_t* buff, piece text);
uint32_t append(qmibtree_buff_t* buff, int32_t value);
uint32_t append(qmibtree_buff_t* buff, uint32_t value);
uint32_t append(qmibtree_buff_t* buff, const char* before, const char* text, const char* after);

}  // namespace qmib

#endif
