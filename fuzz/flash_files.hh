// The flash partitions and the other files of the store, in memory: what the library opens by their
// fixed paths, and the erase commands that it runs, come here (--wrap=fopen,--wrap=system).
#pragma once
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "input.hh"

namespace flash_files {

constexpr size_t kPartitionSize = 65536;
constexpr char kMain[] = "/dev/nvram", kBackup[] = "/dev/nvrambak";
constexpr char kDefault[] = "/etc/igd/default-conf.xml", kTrace[] = "/tmp/tobixopen";

struct Flash {
  // A device is there when it holds bytes or none; nothing that is written makes it longer.
  std::optional<std::string> main, backup;
  std::optional<std::string> defaults;  // the factory default
  std::string trace;
  std::vector<std::string> commands;  // given to the shell
};

Flash& flash();

// Closes the streams that the library left open; how many they were.
size_t close_streams();

// A device of `size` bytes that begins with these, erased behind them.
std::string device_of(const std::string& bytes, size_t size = kPartitionSize);

// A partition image by its rules: magic, length in big-endian order, text.
std::string image_of(const std::string& text);

// The text length in a device's header; nothing when the header is not valid.
std::optional<uint32_t> length_of(const std::optional<std::string>& device);

// A device's bytes once `bytes` were written to its front, as far as they fit.
std::string written_over(std::string device, const std::string& bytes);

}  // namespace flash_files
