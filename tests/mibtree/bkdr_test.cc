// The ways to sum the hash, each on every machine that can, against the byte loop.
#include "../../mibtree/bkdr.hh"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

uint32_t by_bytes(uint32_t before, const char* text, const char* end) {
  uint32_t hash = before;
  for (; text < end; ++text)
    hash = hash * 131 + static_cast<uint32_t>(static_cast<signed char>(*text));
  return hash;
}

template <typename Block>
class BkdrBlock : public ::testing::Test {
 protected:
  // A text of that length behind `ahead` bytes, in a block of its own that ends with it.
  void compare(size_t ahead, size_t length, const std::string& bytes, uint32_t before) {
    const std::vector<char> block(bytes.begin(), bytes.begin() + static_cast<long>(ahead + length));
    const char* const start = block.data();
    const char* const end = start + block.size();
    ASSERT_EQ(qmib::bkdr_continue_by<Block>(before, start, start + ahead, end),
              by_bytes(before, start + ahead, end))
        << length << " bytes behind " << ahead;
  }

  static constexpr size_t kLongest = 70;
  std::mt19937 generator{1};
};

// Of types of the test's own, for the library's own sums to be counted where they are.
struct Byte : qmib::bkdr_byte {};
struct Word : qmib::bkdr_word {
  using Smaller = Byte;
};
#if defined(__SSE2__)
struct Vector : qmib::bkdr_vector {
  using Smaller = Word;
};
using Blocks = ::testing::Types<Byte, Word, Vector>;
#else
using Blocks = ::testing::Types<Byte, Word>;
#endif
TYPED_TEST_SUITE(BkdrBlock, Blocks);

TYPED_TEST(BkdrBlock, SumsTextsOfEveryLengthBehindOthersOfEveryLength) {
  std::string bytes(2 * this->kLongest, '\0');
  for (char& byte : bytes) byte = static_cast<char>(this->generator());
  for (size_t ahead = 0; ahead <= this->kLongest; ++ahead)
    for (size_t length = 0; length <= this->kLongest; ++length)
      this->compare(ahead, length, bytes, static_cast<uint32_t>(this->generator()));
}

TYPED_TEST(BkdrBlock, SumsTheLowestAndTheHighestBytes) {
  for (const char byte : {'\x80', '\xff', '\x01', '\x7f'})
    for (size_t length = 0; length <= this->kLongest; ++length)
      this->compare(0, length, std::string(this->kLongest, byte), 0x7fffffff);
}

}  // namespace
