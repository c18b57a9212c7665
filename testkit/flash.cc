#include "qmibtree_testkit/flash.hh"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qmibtree_testkit {
namespace {

constexpr size_t kPartitionSize = 65536;

std::string be32(uint32_t word) {
  return {static_cast<char>(word >> 24), static_cast<char>(word >> 16),
          static_cast<char>(word >> 8), static_cast<char>(word)};
}

uint32_t be32_at(const std::string& bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return word;
}

}  // namespace

std::string flash_path(const std::string& file) {
  const char* const dir = std::getenv("FLASHSIM_DIR");
  if (!dir) {
    std::fputs("FLASHSIM_DIR is not set: run this program under flashsim\n", stderr);
    std::abort();
  }
  return std::string(dir) + "/" + file;
}

void flash_reset() {
  flash_resize(kMain, kPartitionSize);
  flash_resize(kBackup, kPartitionSize);
  for (const char* file : {kDefault, kTrace, kDownload}) flash_remove(file);
}

std::string flash_read(const std::string& file) {
  if (!std::filesystem::is_regular_file(flash_path(file))) return "(missing)";
  std::ifstream in(flash_path(file), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void flash_write(const std::string& file, const std::string& bytes) {
  std::ofstream(flash_path(file), std::ios::binary | std::ios::trunc) << bytes;
}

void flash_remove(const std::string& file) { std::filesystem::remove_all(flash_path(file)); }

void flash_poke(const std::string& file, size_t offset, const std::string& bytes) {
  flash_write(file, flash_read(file).replace(offset, bytes.size(), bytes));
}

void flash_resize(const std::string& file, size_t size) {
  flash_write(file, std::string(size, '\xff'));
}

std::string header_of(uint32_t magic, uint32_t length) { return be32(magic) + be32(length); }

std::string image_of(const std::string& text) {
  return header_of(0xabcd1234, static_cast<uint32_t>(text.size())) + text;
}

std::string flash_text(const std::string& file) {
  const std::string bytes = flash_read(file);
  if (bytes.size() < 8 || be32_at(bytes, 0) != 0xabcd1234 || be32_at(bytes, 4) >= 65529)
    return "(invalid)";
  return bytes.substr(8, be32_at(bytes, 4));
}

std::string upgrade_of(const std::string& payload) {
  const auto length = static_cast<uint32_t>(payload.size());
  std::string bytes = "zoremcfg" + std::string(4, '\x5a');
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(length >> shift);
  return bytes + payload + std::string(4, '\0');
}

}  // namespace qmibtree_testkit
