#include "flash.hh"

#include <fstream>
#include <iterator>
#include <sstream>

#include "served.h"

namespace flashsim {

namespace fs = std::filesystem;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw Error(path.string() + ": cannot be read");
  return bytes;
}

void write_file(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw Error(path.string() + ": cannot be written");
}

std::vector<Step> read_journal(const fs::path& path) {
  const std::string text = read_file(path);
  std::vector<Step> steps;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    std::istringstream line(text.substr(at, end - at));
    Step step;
    size_t size = 0;
    if (end == std::string::npos || !(line >> step.verb >> step.partition >> step.offset >> size) ||
        size > text.size() - end - 1)
      throw Error(path.string() + ": no journal (byte " + std::to_string(at) + ")");
    step.bytes = text.substr(end + 1, size);
    at = end + 1 + size;
    if (step.verb == "erase" && !steps.empty() && steps.back().verb == "erase") {
      steps.back().bytes += step.bytes;  // the command erases block by block, from the first on
    } else {
      steps.push_back(std::move(step));
    }
  }
  return steps;
}

namespace {

// A byte's share of the key: a finalizer that spreads place and value over all 64 bits.
uint64_t share(char partition, size_t offset, char byte) {
  uint64_t x = uint64_t{offset} << 16 | uint64_t{static_cast<unsigned char>(partition)} << 8 |
               static_cast<unsigned char>(byte);
  x += 0x9e3779b97f4a7c15;
  x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
  x = (x ^ x >> 27) * 0x94d049bb133111eb;
  return x ^ x >> 31;
}

// Names of partitions differ in length; that tells their bytes apart.
static_assert(sizeof "NVRAM" != sizeof "NVRAMBAK");
uint64_t share_of(const std::string& partition, size_t offset, char byte) {
  return share(static_cast<char>(partition.size()), offset, byte);
}

}  // namespace

Flash::Flash(const fs::path& folder) {
  for (const served_file& served : served_files) {
    if (!served.partition || !fs::exists(folder / served.file)) continue;
    const Partition& added =
        partitions_[served.partition] = {served.file, read_file(folder / served.file)};
    for (size_t i = 0; i < added.bytes.size(); ++i)
      key_ ^= share_of(served.partition, i, added.bytes[i]);
  }
}

void Flash::program(const std::string& partition, size_t offset, char byte) {
  char& held = partitions_.at(partition).bytes.at(offset);
  key_ ^= share_of(partition, offset, held) ^ share_of(partition, offset, byte);
  held = byte;
}

void Flash::erase() {
  for (const auto& [name, partition] : partitions_)
    for (size_t i = 0; i < partition.bytes.size(); ++i)
      program(name, i, static_cast<char>(FLASHSIM_ERASED));
}

void Flash::store(const fs::path& folder) const {
  for (const auto& [name, partition] : partitions_)
    write_file(folder / partition.file, partition.bytes);
}

}  // namespace flashsim
