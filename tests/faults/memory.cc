#include "memory.hh"

#include <expat.h>

#include <cstdlib>
#include <utility>

extern "C" {
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);
}

namespace {

struct supply {
  int until = -1;  // allocations to go before the failure; -1: none is due
  bool struck = false;

  void fail_after(int n) { *this = {n, false}; }

  bool strikes() {
    if (until < 0 || until-- > 0) return false;
    struck = true;
    return true;
  }

  bool take_back() {
    until = -1;
    return std::exchange(struck, false);
  }
};

supply plain;
supply parser;

void* parser_malloc(size_t size) { return parser.strikes() ? nullptr : __real_malloc(size); }

void* parser_realloc(void* block, size_t size) {
  return parser.strikes() ? nullptr : std::realloc(block, size);
}

}  // namespace

void fail_plain_memory(int n) { plain.fail_after(n); }
void fail_parser_memory(int n) { parser.fail_after(n); }
bool plain_memory_works() { return plain.take_back(); }
bool parser_memory_works() { return parser.take_back(); }

extern "C" {

void* __wrap_malloc(size_t size) { return plain.strikes() ? nullptr : __real_malloc(size); }

// Stands before the parser's own, which takes its memory from malloc.
XML_Parser XML_ParserCreate(const XML_Char* encoding) {
  const XML_Memory_Handling_Suite memory = {parser_malloc, parser_realloc, std::free};
  return XML_ParserCreate_MM(encoding, &memory, nullptr);
}

}  // extern "C"
