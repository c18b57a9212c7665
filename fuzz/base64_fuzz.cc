// base64 both ways: the input as bytes to encode, and as text to decode.
#include <cstring>
#include <memory>

#include "input.hh"
#include "plain.hh"

namespace {

using text_block = std::unique_ptr<char, decltype(&qfree)>;
using bytes_block = std::unique_ptr<uint8_t, decltype(&qfree)>;

void check_decoding(const std::string& text) {
  // A block of just its size: what reads beyond it is found.
  const text_block block(static_cast<char*>(qmalloc(text.size() + 1, "input")), qfree);
  std::memcpy(block.get(), text.c_str(), text.size() + 1);
  uint32_t length = 77;
  const bytes_block bytes(base64_decode(block.get(), &length), qfree);
  const auto expected = plain::decoded(text);
  FUZZ_CHECK(!bytes == !expected);
  FUZZ_CHECK(length == (expected ? expected->size() : 0));
  if (expected) FUZZ_CHECK(std::memcmp(bytes.get(), expected->c_str(), length + 1) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const text_block text(base64_encode(data, static_cast<uint32_t>(size)), qfree);
  FUZZ_CHECK(text && text.get() == plain::encoded(bytes));
  FUZZ_CHECK(plain::decoded(text.get()) == bytes);
  check_decoding(text.get());
  check_decoding(bytes.c_str());
  return 0;
}
