// Texts to numbers, and a dump, a URL's host and a tokenizer.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "qmibtree.h"
#include "util/decimal.hh"

namespace {

// The value of a hexadecimal digit; 0 for every other character.
uint8_t nibble(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  return 0;
}

void print_gap(uint32_t index) {
  if (index % 32 == 0)
    std::putchar('\n');
  else if (index % 4 == 0)
    std::putchar(' ');
}

}  // namespace

void qstrmac2digit(const char* text, uint8_t* mac) {
  for (int i = 0; i < 6; ++i, text += 3)
    mac[i] = static_cast<uint8_t>(nibble(text[0]) << 4 | nibble(text[1]));
}

void qprintf_buffer(const void* bytes, uint32_t count) {
  std::printf("\nbuffer (%u bytes):", static_cast<unsigned>(count));
  for (uint32_t i = 0; i < count; ++i) {
    print_gap(i);
    std::printf("%02x", static_cast<const uint8_t*>(bytes)[i]);
  }
  std::fflush(stdout);
}

// Deliberate: copying ends once half of what follows the scheme, rounded up, is copied, and the NUL
// may stand at host[limit]. Hosts hand over URLs with a path as long as the host, and buffers one
// longer than they say. Kept by strnum_test.cc.
void qstrurl2host(const char* url, char* host, uint32_t limit) {
  if (!std::strstr(url, "http://") && !std::strstr(url, "https://")) {
    host[0] = '\0';
    return;
  }
  const char* from = url + (url[7] == '/' ? 8 : 7);
  size_t left = std::strlen(from);
  uint32_t copied = 0;
  for (; copied < left && copied < limit && *from != '/' && *from != ':'; --left)
    host[copied++] = *from++;
  host[copied] = '\0';
}

int32_t qstring2hex(const char* text) {
  uint32_t number = 0;
  for (; *text; ++text)
    if (std::isxdigit(static_cast<unsigned char>(*text))) number = number * 16 + nibble(*text);
  return static_cast<int32_t>(number);
}

int32_t qstring2dec(const char* text) { return static_cast<int32_t>(qmib::decimal(text)); }

int32_t qstring2digit(const char* text) {
  const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  return hex ? qstring2hex(text + 2) : qstring2dec(text);
}

// Deliberate: the position moves one character past the field whatever the separator's length, so
// the rest of a longer separator begins the next field. Kept by strnum_test.cc.
char* qutil_get_next_string(const char* base, uint32_t* position, const char* separator) {
  const char* const start = base + *position;
  if (*start == '\0') return nullptr;  // here too the empty separator would be found
  const char* const end = std::strstr(start, separator);
  const size_t length = end ? static_cast<size_t>(end - start) : std::strlen(start);
  *position += static_cast<uint32_t>(length + (end ? 1 : 0));
  if (length == 0) return nullptr;
  auto* const field = static_cast<char*>(qmalloc(length + 1, "string"));
  if (!field) return nullptr;
  std::memcpy(field, start, length);
  field[length] = '\0';
  return field;
}
