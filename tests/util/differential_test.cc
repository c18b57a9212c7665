// The helpers for texts and numbers, and the hashes, against the plain form of their rules.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "../../fuzz/plain.hh"
#include "qmibtree.h"

namespace {

constexpr int kTexts = 3000;
constexpr size_t kLongest = 80;  // several times what an unrolled loop takes at once

// Texts of every length up to kLongest, of bytes of `alphabet`.
class Differential : public ::testing::Test {
 protected:
  template <typename Check>
  void for_texts(const std::string& alphabet, Check check) {
    for (int i = 0; i < kTexts && !HasFailure(); ++i) {
      std::string text(static_cast<size_t>(i) % (kLongest + 1), '\0');
      for (char& c : text) c = alphabet[generator() % alphabet.size()];
      SCOPED_TRACE(text);
      check(text);
    }
  }

  void expect_same(uint32_t (*hash)(const char*), uint32_t (*rule)(const std::string&)) {
    for_texts(every_byte(), [&](const std::string& text) {
      // At every alignment: a hash may read words.
      for (size_t at = 0; at < text.size() && at < 8; ++at)
        ASSERT_EQ(hash(text.c_str() + at), rule(text.substr(at)));
    });
    EXPECT_EQ(hash(""), rule(""));
  }

  static std::string every_byte() {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
    return all;
  }

  std::mt19937 generator{20100506};
};

TEST_F(Differential, Sdbm) { expect_same(SDBMHash, plain::sdbm); }
TEST_F(Differential, Rs) { expect_same(RSHash, plain::rs); }
TEST_F(Differential, Js) { expect_same(JSHash, plain::js); }
TEST_F(Differential, Pjw) { expect_same(PJWHash, plain::folded); }
TEST_F(Differential, Elf) { expect_same(ELFHash, plain::folded); }
TEST_F(Differential, Djb) { expect_same(DJBHash, plain::djb); }
TEST_F(Differential, Ap) { expect_same(APHash, plain::ap); }

TEST_F(Differential, DecimalNumbers) {
  for_texts(" \t+-0123456789x", [](const std::string& text) {
    ASSERT_EQ(static_cast<uint32_t>(qstring2dec(text.c_str())), plain::decimal(text));
  });
}

TEST_F(Differential, HexadecimalNumbers) {
  for_texts("0123456789abcdefABCDEFgG xX-", [](const std::string& text) {
    ASSERT_EQ(static_cast<uint32_t>(qstring2hex(text.c_str())), plain::hex(text));
  });
}

TEST_F(Differential, NumbersWithAPrefix) {
  for_texts("0123456789abcdefABCDEF", [](const std::string& text) {
    for (const char* prefix : {"0x", "0X"})
      ASSERT_EQ(static_cast<uint32_t>(qstring2digit((prefix + text).c_str())), plain::hex(text));
    ASSERT_EQ(static_cast<uint32_t>(qstring2digit(text.c_str())), plain::decimal(text));
  });
}

}  // namespace
