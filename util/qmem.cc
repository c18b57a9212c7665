#include <cstdlib>

#include "qmibtree.h"

void* qmalloc(size_t size, const char* tag) {
  (void)tag;
  return size == 0 ? nullptr : std::malloc(size);
}

void qfree(void* block) { std::free(block); }
