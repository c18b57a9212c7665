// An upgrade file from anywhere, onto partitions that hold another configuration: refused, it
// changes nothing; accepted, both hold its payload. Input: which devices are there and how long
// they are, then the file.
#include <fcntl.h>
#include <unistd.h>

#include "bytes.hh"
#include "flash_files.hh"
#include "qmibtree.h"

using namespace flash_files;

namespace {

using Device = std::optional<std::string>;
using Commands = std::vector<std::string>;

// The payload of a whole upgrade file.
std::optional<std::string> payload_of(const std::string& file) {
  if (file.size() < 16 || file.substr(0, 8) != "zoremcfg") return {};
  uint32_t length = 0;
  for (size_t i = 15; i >= 12; --i) length = length * 256 + static_cast<unsigned char>(file[i]);
  if (length > 65528 || file.size() < 16 + size_t{length} + 4) return {};
  if (file.substr(16 + length, 4) != std::string(4, '\0')) return {};
  return file.substr(16, length);
}

// Replaces a device's image; true when it is all there. A torn one is erased again.
bool replace(Device& device, const std::string& payload, const char* erase, Commands& commands) {
  commands.emplace_back(erase);
  if (!device) return false;
  const bool whole = payload.empty() || 8 + payload.size() <= device->size();
  if (!whole) commands.emplace_back(erase);
  *device = device_of(whole ? image_of(payload) : "", device->size());
  return whole;
}

// By the number that the next one to be opened gets.
int lowest_free_descriptor() {
  const int fd = dup(STDERR_FILENO);
  close(fd);
  return fd;
}

// A file too short for its header leaves a descriptor open, and nothing else does.
void check_descriptors(int before, bool too_short) {
  const bool left_open = fcntl(before, F_GETFD) != -1;
  FUZZ_CHECK(left_open == too_short);
  if (left_open) close(before);
  FUZZ_CHECK(lowest_free_descriptor() == before);
  FUZZ_CHECK(close_streams() == 0);
}

Device device(uint8_t choice) {
  constexpr size_t kSizes[] = {kPartitionSize, kPartitionSize, 0, 4, 8, 20, 40, 65535};
  if (choice % 16 == 15) return {};
  return device_of(image_of("<A.></A.>"), kSizes[choice % std::size(kSizes)]);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  const uint8_t choice = bytes.byte();
  flash() = {};
  flash().main = device(choice & 15);
  flash().backup = device(choice >> 4);
  Flash expected = flash();
  const std::string file = bytes.rest();
  const auto payload = payload_of(file);
  if (payload) replace(expected.backup, *payload, "mtd erase NVRAMBAK", expected.commands);
  const bool done =
      payload && replace(expected.main, *payload, "mtd erase NVRAM", expected.commands);

  const InputFile input(reinterpret_cast<const uint8_t*>(file.data()), file.size());
  const int free_descriptor = lowest_free_descriptor();
  FUZZ_CHECK(qmibtree_upgrade_config(input.path().c_str()) == (done ? 0 : -1));
  check_descriptors(free_descriptor, file.size() < 16);
  FUZZ_CHECK(flash().main == expected.main && flash().backup == expected.backup);
  FUZZ_CHECK(flash().commands == expected.commands);
  FUZZ_CHECK(qmibtree_check_nvram() == (length_of(expected.main).value_or(0) > 0));
  return 0;
}
