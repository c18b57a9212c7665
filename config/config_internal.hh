// What the sources of the persistence share and no other folder includes.
#ifndef CONFIG_CONFIG_INTERNAL_HH
#define CONFIG_CONFIG_INTERNAL_HH

#include "qmibtree.h"
#include "util/owned.hh"
#include "util/rules.hh"

namespace qmib {

// A text buffer with room for `length` bytes and a NUL, zeroed, header and text in one block; null
// when memory is exhausted or the size does not fit a word.
owned<qmibtree_buff_t> qmibtree_buff_create(size_t length);

// One flash partition.
struct nvram_partition {
  char device[16];         // in place: pointers would need relocating at load
  char erase_command[20];  // for the system shell
};

inline constexpr nvram_partition kMainPartition = {"/dev/nvram", "mtd erase NVRAM"};
inline constexpr nvram_partition kBackupPartition = {"/dev/nvrambak", "mtd erase NVRAMBAK"};

inline constexpr long kNvramTextOffset = 8;  // behind the header's two words

// 0 and the text's length when the partition's header is valid, else -1.
int qmibtree_nvram_read_header(const nvram_partition& partition, uint32_t* length);

// 0, -1 when the device cannot be opened. A short write is not noticed.
int qmibtree_nvram_write_header(const nvram_partition& partition, uint32_t length);

// Erases the partition and writes a new image of `length` bytes of text. 0 when it is all there;
// else -1, with the partition left erased or with no more than its header.
int qmibtree_nvram_replace_image(const nvram_partition& partition, const unsigned char* text,
                                 uint32_t length);

// Runs the partition's erase command; the shell's status.
int qmibtree_nvram_erase(const nvram_partition& partition);

}  // namespace qmib

#endif
