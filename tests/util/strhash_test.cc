// The string hashes: their fixed values, signed bytes, and agreement with the plain formulas.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "qmibtree.h"

namespace {

constexpr uint64_t kWord = uint64_t{1} << 32;  // all sums below are modulo this

// The bytes of a text as the hashes take them: signed, modulo 2^32.
std::vector<uint64_t> signed_bytes(const std::string& text) {
  std::vector<uint64_t> bytes;
  for (const char c : text) {
    const uint64_t byte = static_cast<unsigned char>(c);
    bytes.push_back(byte < 128 ? byte : kWord - 256 + byte);
  }
  return bytes;
}

uint32_t low_31_bits(uint64_t word) { return static_cast<uint32_t>(word % (kWord / 2)); }

// The text as the digits of a number to this base, behind a first digit.
uint32_t polynomial(const std::string& text, uint64_t first, uint64_t base) {
  uint64_t sum = first;
  for (const uint64_t c : signed_bytes(text)) sum = (sum * base + c) % kWord;
  return low_31_bits(sum);
}

// Shifting by 6 and by 16 and taking one away is multiplying by 64 + 65536 - 1.
uint32_t plain_sdbm(const std::string& text) { return polynomial(text, 0, 65599); }
uint32_t plain_bkdr(const std::string& text) { return polynomial(text, 0, 131); }
uint32_t plain_djb(const std::string& text) { return polynomial(text, 5381, 33); }

uint32_t plain_rs(const std::string& text) {
  uint64_t sum = 0;
  uint64_t base = 63689;
  for (const uint64_t c : signed_bytes(text)) {
    sum = (sum * base + c) % kWord;
    base = base * 378551 % kWord;
  }
  return low_31_bits(sum);
}

uint32_t plain_js(const std::string& text) {
  uint64_t word = 1315423911;
  for (const uint64_t c : signed_bytes(text)) word ^= (word * 32 + c + word / 4) % kWord;
  return low_31_bits(word);
}

// Seven hexadecimal digits; an eighth is taken off and put over the second lowest.
uint32_t plain_fold(const std::string& text) {
  constexpr uint64_t kSevenDigits = uint64_t{1} << 28;
  uint64_t word = 0;
  for (const uint64_t c : signed_bytes(text)) {
    word = (word * 16 + c) % kWord;
    word = (word % kSevenDigits) ^ (word / kSevenDigits * 16);
  }
  return low_31_bits(word);
}

uint32_t plain_ap(const std::string& text) {
  uint64_t word = 0;
  bool even = true;
  for (const uint64_t c : signed_bytes(text)) {
    if (even) {
      word ^= (word * 128 % kWord) ^ c ^ (word / 8);
    } else {
      word ^= kWord - 1 - ((word * 2048 % kWord) ^ c ^ (word / 32));
    }
    even = !even;
  }
  return low_31_bits(word);
}

struct hash_function {
  const char* name;
  uint32_t (*hash)(const char* text);
  uint32_t (*plain)(const std::string& text);
  uint32_t of_empty;
};

constexpr hash_function kFunctions[] = {
    {"SDBM", SDBMHash, plain_sdbm, 0},    {"RS", RSHash, plain_rs, 0},
    {"JS", JSHash, plain_js, 1315423911}, {"PJW", PJWHash, plain_fold, 0},
    {"ELF", ELFHash, plain_fold, 0},      {"BKDR", BKDRHash, plain_bkdr, 0},
    {"DJB", DJBHash, plain_djb, 5381},    {"AP", APHash, plain_ap, 0},
};

class EveryHash : public testing::TestWithParam<hash_function> {
 protected:
  static void agrees_for(const std::string& text) {
    EXPECT_EQ(GetParam().hash(text.c_str()), GetParam().plain(text))
        << testing::PrintToString(text);
  }
};

INSTANTIATE_TEST_SUITE_P(, EveryHash, testing::ValuesIn(kFunctions),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(EveryHash, OfTheEmptyTextIsItsStartValue) {
  EXPECT_EQ(GetParam().hash(""), GetParam().of_empty);
}

TEST_P(EveryHash, OfEachSingleByteIsThePlainFormula) {
  for (int byte = 1; byte < 256; ++byte) agrees_for(std::string(1, static_cast<char>(byte)));
}

TEST_P(EveryHash, OfAParameterNameIsThePlainFormula) {
  agrees_for("InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.Enable");
}

// Long enough for every bit of the state to have been set, shifted out and folded.
TEST_P(EveryHash, OfRandomBytesIsThePlainFormula) {
  std::mt19937 random(20250101);
  for (size_t length = 1; length <= 200; ++length) {
    std::string text;
    while (text.size() < length) text += static_cast<char>(1 + random() % 255);
    agrees_for(text);
  }
}

TEST_P(EveryHash, IsBelowTwoToThe31) {
  std::mt19937 random(31);
  for (int n = 0; n < 500; ++n) {
    std::string text;
    while (text.size() < 12) text += static_cast<char>(1 + random() % 255);
    EXPECT_LT(GetParam().hash(text.c_str()), uint32_t{1} << 31) << testing::PrintToString(text);
  }
}

TEST_P(EveryHash, EndsAtTheFirstNul) {
  const char text[] = "ab\0cd";
  EXPECT_EQ(GetParam().hash(text), GetParam().hash("ab"));
}

// The storage ends with the NUL, so that a checker of memory sees a read behind it.
TEST_P(EveryHash, ReadsNothingBehindTheNul) {
  const std::vector<char> text = {'u', 'p', '\0'};
  EXPECT_EQ(GetParam().hash(text.data()), GetParam().hash("up"));
}

// Worked out elsewhere, in a language with whole numbers of any length.
struct fixed_values {
  const char* text;
  uint32_t sdbm, rs, js, pjw, elf, bkdr, djb, ap;
};

constexpr fixed_values kFixed[] = {
    {"a", 97, 97, 787808333, 97, 97, 97, 177670, 97},
    {"ab", 6363201, 15167409, 615008856, 1650, 1650, 12805, 5863208, 2147284991},
    {"\xe9", 2147483625, 2147483625, 787808469, 268435225, 268435225, 2147483625, 177550,
     2147483625},
    {"caf\xe9", 776778433, 303615653, 1083392298, 431945, 431945, 224238965, 2090140344, 446707794},
    {"\x80\xff\x7f", 1089945536, 1821905638, 446491412, 268394911, 268394911, 2145287036, 193237699,
     2030288396},
    {"InternetGatewayDevice.DeviceInfo.UpTime", 2137164829, 373342753, 1535332901, 77476101,
     77476101, 909207561, 1979441596, 1401777306},
    {"The quick brown fox jumps over the lazy dog", 212300147, 698634251, 1609563704, 69733463,
     69733463, 1159206503, 885799134, 1172222415},
};

TEST(FixedHash, Sdbm) {
  for (const auto& each : kFixed) EXPECT_EQ(SDBMHash(each.text), each.sdbm) << each.text;
}

TEST(FixedHash, Rs) {
  for (const auto& each : kFixed) EXPECT_EQ(RSHash(each.text), each.rs) << each.text;
}

TEST(FixedHash, Js) {
  for (const auto& each : kFixed) EXPECT_EQ(JSHash(each.text), each.js) << each.text;
}

TEST(FixedHash, Pjw) {
  for (const auto& each : kFixed) EXPECT_EQ(PJWHash(each.text), each.pjw) << each.text;
}

TEST(FixedHash, Elf) {
  for (const auto& each : kFixed) EXPECT_EQ(ELFHash(each.text), each.elf) << each.text;
}

TEST(FixedHash, Bkdr) {
  for (const auto& each : kFixed) EXPECT_EQ(BKDRHash(each.text), each.bkdr) << each.text;
}

TEST(FixedHash, Djb) {
  for (const auto& each : kFixed) EXPECT_EQ(DJBHash(each.text), each.djb) << each.text;
}

TEST(FixedHash, Ap) {
  for (const auto& each : kFixed) EXPECT_EQ(APHash(each.text), each.ap) << each.text;
}

TEST(SignedByte, IsAddedAsANegativeNumber) {
  EXPECT_EQ(DJBHash("a"), 5381u * 33 + 97);
  EXPECT_EQ(DJBHash("\xe9"), 5381u * 33 - 23);
}

// The first byte is at an even place and the start value is 0, so only the byte is left.
TEST(ApHash, OfOneByteIsThatByte) { EXPECT_EQ(APHash("x"), uint32_t{'x'}); }

// The second byte meets the first multiplier times the factor.
TEST(RsHash, MultiplierGrowsAfterEachByte) {
  EXPECT_EQ(RSHash("\x01"), 1u);
  EXPECT_EQ(RSHash("\x01\x01"), static_cast<uint32_t>(63689ull * 378551 + 1) & 0x7fffffffu);
}

}  // namespace
