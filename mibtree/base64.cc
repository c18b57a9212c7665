#include <cstring>

#include "mibtree/mibtree_internal.hh"

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kInvalid = 64;
constexpr uint8_t kPadding = 65;

struct decode_table {
  uint8_t digit[128];
};

constexpr decode_table make_decode_table() {
  decode_table table = {};
  for (uint8_t& digit : table.digit) digit = kInvalid;
  for (uint8_t i = 0; i < 64; ++i) table.digit[static_cast<uint8_t>(alphabet[i])] = i;
  table.digit[static_cast<uint8_t>('=')] = kPadding;
  return table;
}

constexpr decode_table table = make_decode_table();

// The character's six bits, kPadding for "=", kInvalid for all else, the terminating NUL included.
uint8_t digit_of(char c) {
  const auto byte = static_cast<uint8_t>(c);
  return byte < 128 ? table.digit[byte] : kInvalid;
}

// Encodes 1 to 3 bytes as four characters; the end of the output.
char* encode_group(const uint8_t* bytes, uint32_t count, char* out) {
  const uint8_t second = count > 1 ? bytes[1] : 0;
  const uint8_t third = count > 2 ? bytes[2] : 0;
  *out++ = alphabet[bytes[0] >> 2];
  *out++ = alphabet[(bytes[0] & 3) << 4 | second >> 4];
  *out++ = count > 1 ? alphabet[(second & 15) << 2 | third >> 6] : '=';
  *out++ = count > 2 ? alphabet[third & 63] : '=';
  return out;
}

// Decodes the four characters at `text`, reading none beyond an invalid one; the end of the output,
// null when they are no group.
uint8_t* decode_group(const char* text, uint8_t* out) {
  uint8_t digits[4];
  for (int i = 0; i < 4; ++i) {
    digits[i] = digit_of(text[i]);
    if (digits[i] == kInvalid || (i < 2 && digits[i] == kPadding)) return nullptr;
  }
  *out++ = static_cast<uint8_t>(digits[0] << 2 | digits[1] >> 4);
  if (digits[2] == kPadding) return out;  // whatever the fourth character is
  *out++ = static_cast<uint8_t>(digits[1] << 4 | digits[2] >> 2);
  if (digits[3] == kPadding) return out;
  *out++ = static_cast<uint8_t>(digits[2] << 6 | digits[3]);
  return out;
}

}  // namespace

char* base64_encode(const void* bytes, uint32_t len) {
  const uint64_t size = uint64_t{len} * 4 / 3 + 5;
  if (size > SIZE_MAX) return nullptr;
  auto* const text = static_cast<char*>(qmalloc(static_cast<size_t>(size), "base64 encode"));
  if (!text) return nullptr;
  const auto* from = static_cast<const uint8_t*>(bytes);
  char* out = text;
  for (; len >= 3; len -= 3, from += 3) out = encode_group(from, 3, out);
  if (len > 0) out = encode_group(from, len, out);
  *out = '\0';
  return text;
}

// Deliberate: padding ends a group, not the text, and a letter behind "=" passes. Stored values
// were made by encoders that rely on both; kept by base64_test.cc.
uint8_t* base64_decode(const char* text, uint32_t* len) {
  *len = 0;
  const uint64_t size = uint64_t{std::strlen(text)} * 3 / 4 + 1;
  if (size > UINT32_MAX) return nullptr;
  qmib::owned<uint8_t> bytes(
      static_cast<uint8_t*>(qmalloc(static_cast<size_t>(size), "base64 decode")));
  if (!bytes) return nullptr;
  uint8_t* out = bytes.get();
  for (; *text; text += 4)
    if (out = decode_group(text, out); !out) return nullptr;
  *out = 0;
  *len = static_cast<uint32_t>(out - bytes.get());
  return bytes.release();
}
