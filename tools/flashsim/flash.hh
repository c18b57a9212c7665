// The flash as it was at any moment of a journal.
#ifndef FLASHSIM_FLASH_HH
#define FLASHSIM_FLASH_HH

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace flashsim {

// What went wrong, as the user is told.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Whole files. Throw Error.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& bytes);

// One line of a journal, and the bytes behind it.
struct Step {
  std::string verb;
  std::string partition;
  size_t offset;
  std::string bytes;
};

// Throws Error where the file cannot be read or is no journal.
std::vector<Step> read_journal(const std::filesystem::path& path);

// The partitions' bytes. A partition without a file is a missing device.
class Flash {
 public:
  // As the partitions lie in a flash folder.
  explicit Flash(const std::filesystem::path& folder);

  void erase();
  void program(const std::string& partition, size_t offset, char byte);
  void store(const std::filesystem::path& folder) const;

  // Equal for equal bytes; for others by a chance of one in 2^64.
  uint64_t key() const { return key_; }

 private:
  struct Partition {
    std::string file;
    std::string bytes;
  };
  std::map<std::string, Partition> partitions_;
  uint64_t key_ = 0;
};

}  // namespace flashsim

#endif
