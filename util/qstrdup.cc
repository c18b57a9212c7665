// Apart from qmalloc, so that a host or a test that wraps qmalloc at link time sees this call too.
#include <cstring>

#include "qmibtree.h"

char* qstrdup(const char* text, const char* tag) {
  if (!text) return nullptr;
  const size_t size = std::strlen(text) + 1;
  auto* const copy = static_cast<char*>(qmalloc(size, tag));
  return copy ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
}
