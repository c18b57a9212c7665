// General-purpose string hashes, for hosts; the tree's own, BKDRHash, is with its index.
//
// Deliberate in all of them: bytes count as signed, whatever `char` is on this processor, so that
// every target gives the results that hosts have stored. Kept by strhash_test.cc.
#include "qmibtree.h"

namespace {

constexpr uint32_t kResult = 0x7FFFFFFF;

uint32_t word(char c) { return static_cast<uint32_t>(static_cast<signed char>(c)); }

}  // namespace

uint32_t SDBMHash(const char* text) {
  uint32_t hash = 0;
  for (; *text; ++text) hash = word(*text) + (hash << 6) + (hash << 16) - hash;
  return hash & kResult;
}

uint32_t RSHash(const char* text) {
  uint32_t hash = 0;
  uint32_t factor = 63689;
  for (; *text; ++text) {
    hash = hash * factor + word(*text);
    factor *= 378551;
  }
  return hash & kResult;
}

uint32_t JSHash(const char* text) {
  uint32_t hash = 1315423911;
  for (; *text; ++text) hash ^= (hash << 5) + word(*text) + (hash >> 2);
  return hash & kResult;
}

uint32_t PJWHash(const char* text) {
  uint32_t hash = 0;
  for (; *text; ++text) {
    hash = (hash << 4) + word(*text);
    const uint32_t top = hash & 0xF0000000;
    if (top != 0) hash = (hash ^ (top >> 24)) & 0x0FFFFFFF;
  }
  return hash & kResult;
}

uint32_t ELFHash(const char* text) {
  uint32_t hash = 0;
  for (; *text; ++text) {
    hash = (hash << 4) + word(*text);
    const uint32_t top = hash & 0xF0000000;
    if (top != 0) hash ^= top >> 24;
    hash &= ~top;
  }
  return hash & kResult;
}

uint32_t DJBHash(const char* text) {
  uint32_t hash = 5381;
  for (; *text; ++text) hash = (hash << 5) + hash + word(*text);
  return hash & kResult;
}

uint32_t APHash(const char* text) {
  uint32_t hash = 0;
  for (uint32_t i = 0; text[i]; ++i) {
    if (i % 2 == 0)
      hash ^= (hash << 7) ^ word(text[i]) ^ (hash >> 3);
    else
      hash ^= ~((hash << 11) ^ word(text[i]) ^ (hash >> 5));
  }
  return hash & kResult;
}
