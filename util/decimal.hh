// Decimal text to a 32-bit word.
#ifndef UTIL_DECIMAL_HH
#define UTIL_DECIMAL_HH

#include <cstdint>

namespace qmib {

// atoi, with the numbers that atoi leaves undefined taken modulo 2^32. So an unsigned value of
// 2^31 and above comes back from its text on every target, where an atoi that clamps to
// 2147483647 (32-bit C libraries do) would lose it.
inline uint32_t decimal(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  uint32_t number = 0;
  for (; *text >= '0' && *text <= '9'; ++text)
    number = number * 10 + static_cast<uint32_t>(*text - '0');
  return negative ? 0 - number : number;
}

}  // namespace qmib

#endif
