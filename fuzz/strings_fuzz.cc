// The helpers for texts and numbers, and the hashes. Input: a limit, a separator, a text.
#include <cstring>
#include <memory>
#include <vector>

#include "bytes.hh"
#include "input.hh"
#include "plain.hh"

namespace {

// A text in a block of just its size: what reads beyond it is found.
std::unique_ptr<char[]> block_of(const std::string& text) {
  auto block = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(block.get(), text.c_str(), text.size() + 1);
  return block;
}

void check_hashes(const char* text) {
  FUZZ_CHECK(BKDRHash(text) == plain::bkdr(text));
  FUZZ_CHECK(SDBMHash(text) == plain::sdbm(text));
  FUZZ_CHECK(RSHash(text) == plain::rs(text));
  FUZZ_CHECK(JSHash(text) == plain::js(text));
  FUZZ_CHECK(PJWHash(text) == plain::folded(text));
  FUZZ_CHECK(ELFHash(text) == plain::folded(text));
  FUZZ_CHECK(DJBHash(text) == plain::djb(text));
  FUZZ_CHECK(APHash(text) == plain::ap(text));
}

void check_numbers(const std::string& text) {
  const auto block = block_of(text);
  const uint32_t dec = plain::decimal(text), hex = plain::hex(text);
  const bool has_prefix = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
  FUZZ_CHECK(static_cast<uint32_t>(qstring2dec(block.get())) == dec);
  FUZZ_CHECK(static_cast<uint32_t>(qstring2hex(block.get())) == hex);
  FUZZ_CHECK(static_cast<uint32_t>(qstring2digit(block.get())) ==
             (has_prefix ? plain::hex(text.substr(2)) : dec));
}

void check_mac(const std::string& text) {
  if (text.size() < 17) return;
  const auto block = block_of(text.substr(0, 17));
  uint8_t mac[6];
  qstrmac2digit(block.get(), mac);
  for (size_t i = 0; i < 6; ++i)
    FUZZ_CHECK(mac[i] == plain::hex_digit(text[3 * i]).value_or(0) * 16 +
                             plain::hex_digit(text[3 * i + 1]).value_or(0));
}

std::string host_of(const std::string& url, size_t limit) {
  if (url.find("http://") == url.npos && url.find("https://") == url.npos) return "";
  const std::string rest = url.substr(url[7] == '/' ? 8 : 7);
  const size_t end = std::min(rest.find('/'), rest.find(':'));
  return rest.substr(0, std::min({end, limit, (rest.size() + 1) / 2}));
}

void check_host(const std::string& url, uint32_t limit) {
  const auto block = block_of(url);
  const auto host = std::make_unique<char[]>(limit + 1);
  qstrurl2host(block.get(), host.get(), limit);
  FUZZ_CHECK(host.get() == host_of(url, limit));
}

void check_fields(const std::string& text, const std::string& separator) {
  const auto block = block_of(text);
  uint32_t position = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find(separator, at);
    const std::string expected = text.substr(at, end - at);
    const std::unique_ptr<char, decltype(&qfree)> field(
        qutil_get_next_string(block.get(), &position, separator.c_str()), qfree);
    FUZZ_CHECK(expected.empty() ? !field : field && field.get() == expected);
    if (separator.empty()) return;  // each field is empty, and so are those that follow
    at = end == text.npos ? text.size() : end + 1;
    FUZZ_CHECK(position == at);
  }
  FUZZ_CHECK(!qutil_get_next_string(block.get(), &position, separator.c_str()));
  FUZZ_CHECK(position == text.size());
}

void check_copy(const std::string& text) {
  const auto block = block_of(text);
  const std::unique_ptr<char, decltype(&qfree)> copy(qstrdup(block.get(), "copy"), qfree);
  FUZZ_CHECK(copy && copy.get() != block.get() && copy.get() == text);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  const uint32_t limit = bytes.byte();
  const std::string separator = bytes.text(), text = bytes.text();
  check_hashes(text.c_str());
  check_numbers(text);
  check_mac(text);
  check_host(text, limit);
  check_fields(text, separator);
  check_copy(text);
  return 0;
}
