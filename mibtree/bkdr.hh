// The hash of full names: a polynomial in 131 over the bytes, modulo 2^31.
//
// Its mask commutes with it, so the hash of a name goes on from that of the name's beginning. And
// it is summed block by block instead of byte by byte: the bytes of a block in pairs, pairs of
// pairs and so on, all pairs at once in lanes of one word, so that only one multiplication a block
// waits for the block before. bench/ measures it against the byte loop.
#ifndef MIBTREE_BKDR_HH
#define MIBTREE_BKDR_HH

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "qmibtree.h"

namespace qmib {

constexpr uint32_t kBkdrMask = 0x7FFFFFFF;

// 131 to the power of n, modulo 2^32.
constexpr uint32_t bkdr_power(size_t n) {
  uint32_t power = 1;
  for (uint32_t square = 131; n > 0; n >>= 1, square *= square)
    if ((n & 1) != 0) power *= square;
  return power;
}

template <size_t size>
struct bkdr_powers {
  uint32_t of[size + 1];
  constexpr bkdr_powers() : of() {
    for (size_t n = 0; n <= size; ++n) of[n] = bkdr_power(n);
  }
};

// A block is a byte.
class bkdr_byte {
 public:
  static constexpr size_t kSize = 1;
  using Smaller = bkdr_byte;
  static uint32_t sum(const char* byte) {
    return static_cast<uint32_t>(static_cast<signed char>(*byte));
  }
  static uint32_t sum_last(const char* byte, size_t) { return sum(byte); }
};

// A block is a machine word, as wide as the processor multiplies at once.
class bkdr_word {
 public:
  static constexpr size_t kSize = sizeof(size_t);
  using Smaller = bkdr_byte;

  static uint32_t sum(const char* bytes) { return sum_signed(load(bytes)); }

  // Of the last `count` bytes alone, at least one.
  static uint32_t sum_last(const char* bytes, size_t count) {
    const size_t kept = keep_last(count);
    return sum_signed((load(bytes) & kept) | (kSigns & ~kept));
  }

 private:
  static constexpr size_t kSigns = SIZE_MAX / 0xFF * 0x80;

  // The word with each of its bytes, which count as signed, 128 higher.
  static size_t load(const char* bytes) {
    size_t word;
    std::memcpy(&word, bytes, kSize);
    return word ^ kSigns;
  }
  static size_t keep_last(size_t count) {
    const size_t gone = 8 * (kSize - count);
    return std::endian::native == std::endian::little ? SIZE_MAX << gone : SIZE_MAX >> gone;
  }

  // Sums lanes of `bits` bits in pairs: the one of the earlier bytes times `factor`, and the other.
  static constexpr size_t pairs(size_t lanes, unsigned bits, uint32_t factor) {
    const size_t every_other = SIZE_MAX / ((size_t{1} << bits) + 1);
    const size_t low = lanes & every_other;
    const size_t high = lanes >> bits & every_other;
    return std::endian::native == std::endian::little ? low * factor + high : high * factor + low;
  }
  static constexpr uint32_t sum_of(size_t word) {
    size_t sum = pairs(pairs(word, 8, bkdr_power(1)), 16, bkdr_power(2));
    if constexpr (kSize == 8) sum = pairs(sum, 32, bkdr_power(4));
    return static_cast<uint32_t>(sum);
  }
  static uint32_t sum_signed(size_t word) {
    constexpr uint32_t kOfSigns = sum_of(kSigns);
    return sum_of(word) - kOfSigns;
  }
};

#if defined(__SSE2__)

// A block is a vector of 16 bytes: half the time of words.
class bkdr_vector {
 public:
  static constexpr size_t kSize = 16;
  using Smaller = std::conditional_t<(SIZE_MAX > UINT32_MAX), bkdr_word, bkdr_byte>;

  static uint32_t sum(const char* bytes) { return sum_of(load(bytes)); }

  static uint32_t sum_last(const char* bytes, size_t count) {
    alignas(16) static constexpr uint8_t kMask[2 * kSize] = {
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
        0,    0,    0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    return sum_of(_mm_and_si128(load(bytes), load(kMask + count)));
  }

 private:
  static __m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
  }
  static constexpr auto power(size_t n) { return static_cast<int>(bkdr_power(n)); }
  static uint32_t sum_of(__m128i bytes) {
    // Pairs of bytes fit 16 bits, fours of them 32; of the rest the low 32 bits count.
    const __m128i first = _mm_srai_epi16(_mm_slli_epi16(bytes, 8), 8);
    const __m128i second = _mm_srai_epi16(bytes, 8);
    const __m128i pairs = _mm_add_epi16(_mm_mullo_epi16(first, _mm_set1_epi16(131)), second);
    const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(power(2) | 1 << 16));
    const __m128i even = _mm_mul_epu32(fours, _mm_set_epi32(0, power(4), 0, power(12)));
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(fours, 32), _mm_set_epi32(0, 1, 0, power(8)));
    const __m128i eights = _mm_add_epi64(even, odd);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(eights)) +
           static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(eights, eights)));
  }
};
#endif

// What is fastest here. Words of four bytes take as many instructions as their bytes.
#if defined(__SSE2__)
using bkdr_block = bkdr_vector;
#elif SIZE_MAX > UINT32_MAX
using bkdr_block = bkdr_word;
#else
using bkdr_block = bkdr_byte;
#endif

// The hash, not masked yet, of the text from `text` to `end` behind one whose hash is `before`,
// masked or not; what stands from `start` to `text` can be read as well. Deliberate: bytes count as
// signed, whatever `char` is on this processor, so that names with bytes above 0x7F keep the hashes
// that hosts have stored.
template <typename Block>
uint32_t bkdr_continue_by(uint32_t before, const char* start, const char* text, const char* end) {
  static constexpr bkdr_powers<Block::kSize> kPowers;
  if (text == end) return before;
  if (static_cast<size_t>(end - start) < Block::kSize)
    return bkdr_continue_by<typename Block::Smaller>(before, start, text, end);
  uint32_t hash = before;
  const char* const last = end - Block::kSize;
  for (; text < last; text += Block::kSize)
    hash = hash * bkdr_power(Block::kSize) + Block::sum(text);
  // The last block begins with bytes that are counted already, or stand before the text.
  const auto left = static_cast<size_t>(end - text);
  return hash * kPowers.of[left] + Block::sum_last(last, left);
}
uint32_t bkdr_continue(uint32_t before, const char* start, const char* text, const char* end);

// qmibtree_hash_lookup_name of a name whose masked hash is known.
qmibtree_node* qmibtree_hash_lookup_hashed(qmibtree_hash_t* hash, const char* fullName,
                                           uint32_t key);

}  // namespace qmib

#endif
