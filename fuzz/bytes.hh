// Takes an input apart: the choices that a target makes are bytes of it.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

  bool left() const { return at_ != end_; }
  // 0 behind the end, as in all that follows.
  uint8_t byte() { return left() ? *at_++ : uint8_t{0}; }
  uint32_t below(uint32_t n) { return byte() % n; }
  uint32_t word() {
    uint32_t all = 0;
    for (int i = 0; i < 4; ++i) all = all << 8 | byte();
    return all;
  }
  std::string rest() {
    const std::string all(reinterpret_cast<const char*>(at_), static_cast<size_t>(end_ - at_));
    at_ = end_;
    return all;
  }
  std::string take(size_t size) {
    const size_t count = std::min(size, static_cast<size_t>(end_ - at_));
    at_ += count;
    return {reinterpret_cast<const char*>(at_ - count), count};
  }
  // Up to the next NUL, which goes too.
  std::string text() {
    const void* const nul = left() ? std::memchr(at_, 0, static_cast<size_t>(end_ - at_)) : nullptr;
    const uint8_t* const end = nul ? static_cast<const uint8_t*>(nul) : end_;
    const std::string all = take(static_cast<size_t>(end - at_));
    byte();
    return all;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};
