// The flash stand-in's folder, as the tests of the store see it: they run under tools/flashsim,
// which serves the fixed device and file paths from the folder named by FLASHSIM_DIR.
#ifndef QMIBTREE_TESTKIT_FLASH_HH
#define QMIBTREE_TESTKIT_FLASH_HH

#include <cstdint>
#include <string>

namespace qmibtree_testkit {

// Files of the stand-in's folder, for flash_read and flash_write.
inline constexpr char kMain[] = "nvram";
inline constexpr char kBackup[] = "nvrambak";
inline constexpr char kDefault[] = "default-conf.xml";
inline constexpr char kTrace[] = "tobixopen";
inline constexpr char kDownload[] = "temp_config_for_download";

// Both partitions present, 64 KiB and erased; no other file.
void flash_reset();

// Path of a file in the folder, as it is outside the stand-in.
std::string flash_path(const std::string& file);

// The whole file; "(missing)" when there is none, or it is no regular file.
std::string flash_read(const std::string& file);
void flash_write(const std::string& file, const std::string& bytes);
void flash_remove(const std::string& file);

// Overwrites the partition's first bytes, and keeps its size.
void flash_poke(const std::string& file, size_t offset, const std::string& bytes);

// A device of `size` bytes, erased.
void flash_resize(const std::string& file, size_t size);

// A partition image's bytes: header and text.
std::string image_of(const std::string& text);
std::string header_of(uint32_t magic, uint32_t length);

// The text that a partition's header announces; "(invalid)" for an invalid image.
std::string flash_text(const std::string& file);

// An upgrade file's bytes around a payload.
std::string upgrade_of(const std::string& payload);

}  // namespace qmibtree_testkit

#endif
