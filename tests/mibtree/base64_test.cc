// The base64 codec: every length, every character in every place, padding and what follows it.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "../support/long_text.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

class Codec : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(live_blocks(), blocks_before_); }

  static std::string encode(const std::string& bytes) {
    char* const text = base64_encode(bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (!text) return "(null)";
    std::string encoded = text;
    qfree(text);
    return encoded;
  }

  // The decoded bytes, or nothing for a text that is refused.
  static std::optional<std::string> decode(const std::string& text) {
    uint32_t len = 0xdead;
    uint8_t* const bytes = base64_decode(text.c_str(), &len);
    if (!bytes) {
      EXPECT_EQ(len, 0u) << text;
      return std::nullopt;
    }
    std::string decoded(reinterpret_cast<char*>(bytes), len);
    EXPECT_EQ(bytes[len], 0) << text;
    qfree(bytes);
    return decoded;
  }

  const int blocks_before_ = live_blocks();
};

using Base64Encode = Codec;
using Base64Decode = Codec;

struct pair {
  const char* plain;
  const char* encoded;
};

constexpr pair kPairs[] = {
    {"", ""},
    {"a", "YQ=="},
    {"ab", "YWI="},
    {"abc", "YWJj"},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
    {"\xff\xfe\xfd", "//79"},
    {"\xfb\xf0", "+/A="},
};

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Bytes whose encoding is the alphabet in order.
std::string alphabet_bytes() {
  std::string bytes;
  for (unsigned i = 0; i < 64; i += 4) {
    const unsigned group = i << 18 | (i + 1) << 12 | (i + 2) << 6 | (i + 3);
    for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift);
  }
  return bytes;
}

TEST_F(Base64Encode, PadsToFourCharacters) {
  for (const pair& each : kPairs) EXPECT_EQ(encode(each.plain), each.encoded);
}

TEST_F(Base64Encode, UsesTheWholeStandardAlphabet) {
  EXPECT_EQ(encode(alphabet_bytes()), kAlphabet);
}

TEST_F(Base64Encode, KeepsALongTextOnOneLine) {
  EXPECT_EQ(encode(std::string(300, '\0')), std::string(400, 'A'));
}

TEST_F(Base64Encode, NoBytesMayBeANullPointer) {
  char* const text = base64_encode(nullptr, 0);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  qfree(text);
}

TEST_F(Base64Encode, WithoutMemoryGivesNull) {
  fail_allocation_after(0);
  EXPECT_EQ(base64_encode("abc", 3), nullptr);
  EXPECT_TRUE(allocations_work());
}

TEST_F(Base64Encode, AllocatesUnderItsTag) {
  allocation_tags();
  encode("abc");
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"base64 encode"});
}

TEST_F(Base64Decode, DropsThePadding) {
  for (const pair& each : kPairs) EXPECT_EQ(decode(each.encoded), each.plain);
}

TEST_F(Base64Decode, KnowsTheWholeStandardAlphabet) {
  EXPECT_EQ(decode(kAlphabet), alphabet_bytes());
}

TEST_F(Base64Decode, TheEmptyTextGivesABlock) {
  uint32_t len = 7;
  uint8_t* const bytes = base64_decode("", &len);
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(len, 0u);
  qfree(bytes);
}

TEST_F(Base64Decode, RefusesALengthThatIsNoMultipleOfFour) {
  for (const char* text : {"Y", "YQ", "YQ=", "YWJ", "YWJjY", "YWJjYQ", "YWJjYQ="}) {
    EXPECT_EQ(decode(text), std::nullopt) << text;
  }
}

TEST_F(Base64Decode, SkipsNoWhiteSpace) {
  for (const char* text : {"Y Q=", " YQ==", "YWJj\n", "YWJj\nYWJ", "YQ==    "}) {
    EXPECT_EQ(decode(text), std::nullopt) << text;
  }
}

// Every byte in each of the four places of the second group; the NUL would end the text.
TEST_F(Base64Decode, AcceptsJustTheAlphabetAndPaddingInTheLastTwoPlaces) {
  for (size_t place = 0; place < 4; ++place) {
    for (int byte = 1; byte < 256; ++byte) {
      std::string text = "YWJjAAAA";
      text[4 + place] = static_cast<char>(byte);
      const bool valid = std::strchr(kAlphabet, byte) || (byte == '=' && place >= 2);
      EXPECT_EQ(decode(text).has_value(), valid) << "byte " << byte << " in place " << place;
    }
  }
}

TEST_F(Base64Decode, TheFourthCharacterIsLookedAtBehindPaddingToo) {
  EXPECT_EQ(decode("YQ=-"), std::nullopt);
  EXPECT_EQ(decode("YQ=\xc1"), std::nullopt);
}

TEST_F(Base64Decode, PaddingInTheThirdPlaceEndsTheGroupsBytes) { EXPECT_EQ(decode("YQ=A"), "a"); }

TEST_F(Base64Decode, GoesOnBehindPadding) {
  EXPECT_EQ(decode("YQ==YWI="), "aab");
  EXPECT_EQ(decode("YQ=AYWJj"), "aabc");
}

TEST_F(Base64Decode, IgnoresTheBitsThatPaddingCutsOff) {
  EXPECT_EQ(decode("YR=="), "a");
  EXPECT_EQ(decode("YWL="), "ab");
}

TEST_F(Base64Decode, UndoesEncodingForEveryLength) {
  std::string bytes;
  for (unsigned i = 0; i < 70; ++i) {
    EXPECT_EQ(decode(encode(bytes)), bytes);
    bytes += static_cast<char>(i * 37);
  }
}

TEST_F(Base64Decode, WithoutMemoryGivesNull) {
  uint32_t len = 7;
  fail_allocation_after(0);
  EXPECT_EQ(base64_decode("YWJj", &len), nullptr);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(len, 0u);
}

// The size of a block is a 32-bit word.
TEST_F(Base64Decode, ATextThatTakesMoreThanAWordCountsIsRefusedBeforeAllocating) {
  if (sizeof(size_t) == 4) GTEST_SKIP() << "no text is so long";
  constexpr uint64_t kLongest = 5726623059;  // three quarters and the NUL make 2^32 - 1
  for (const uint64_t length : {kLongest, kLongest + 1}) {
    LongText text("", 'A', length);
    uint32_t len = 7;
    fail_allocation_after(0);
    EXPECT_EQ(base64_decode(text.get(), &len), nullptr);
    EXPECT_EQ(allocations_work(), length == kLongest);
    EXPECT_EQ(len, 0u);
  }
}

TEST_F(Base64Decode, AllocatesUnderItsTag) {
  allocation_tags();
  decode("YWJj");
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"base64 decode"});
}

}  // namespace
