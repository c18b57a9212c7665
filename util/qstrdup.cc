// Apart from qmalloc, so that a host or a test that wraps qmalloc at link time sees these calls
// too.
#include <cstring>

#include "qmibtree.h"
#include "util/owned.hh"

char* qstrdup(const char* text, const char* tag) {
  if (!text) return nullptr;
  const size_t size = std::strlen(text) + 1;
  auto* const copy = static_cast<char*>(qmalloc(size, tag));
  return copy ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
}

void* qmib::zeroed_block(size_t size, const char* tag) {
  void* const block = qmalloc(size, tag);
  return block ? std::memset(block, 0, size) : nullptr;
}
