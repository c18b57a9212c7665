// The image of a flash partition, and the device that holds it.
#include <cstdlib>

#include "config/config_internal.hh"
#include "util/bytes.hh"

namespace {

using qmib::nvram_partition;

// A big-endian word; `word` stays when the device ends before it does.
void read_word(std::FILE* stream, uint32_t* word) {
  unsigned char bytes[4];
  if (std::fread(bytes, sizeof bytes, 1, stream) == 1) *word = qmib::load_be32(bytes);
}

bool write_text(const nvram_partition& partition, const unsigned char* text, uint32_t length,
                bool* opened) {
  qmib::file stream(std::fopen(partition.device, "w"));
  *opened = stream != nullptr;
  if (!stream || std::fseek(stream.get(), qmib::kNvramTextOffset, SEEK_SET) != 0) return false;
  const bool whole = std::fwrite(text, 1, length, stream.get()) == length;
  const bool closed = qmib::close_written(std::move(stream));
  return whole && closed;
}

}  // namespace

int qmib::qmibtree_nvram_read_header(const nvram_partition& partition, uint32_t* length) {
  const file stream(std::fopen(partition.device, "r"));
  if (!stream) return -1;
  uint32_t magic = 0;
  uint32_t text_length = UINT32_MAX;
  read_word(stream.get(), &magic);
  read_word(stream.get(), &text_length);
  if (magic != QMIBTREE_NVRAM_MAGIC || text_length >= QMIBTREE_NVRAM_MAX) return -1;
  *length = text_length;
  return 0;
}

int qmib::qmibtree_nvram_write_header(const nvram_partition& partition, uint32_t length) {
  const file stream(std::fopen(partition.device, "w"));
  if (!stream) return -1;
  unsigned char header[kNvramTextOffset];
  store_be32(header, QMIBTREE_NVRAM_MAGIC);
  store_be32(header + 4, length);
  (void)std::fwrite(header, sizeof header, 1, stream.get());
  return 0;
}

int qmib::qmibtree_nvram_replace_image(const nvram_partition& partition, const unsigned char* text,
                                       uint32_t length) {
  qmibtree_nvram_erase(partition);
  if (qmibtree_nvram_write_header(partition, length) != 0) return -1;
  bool opened = false;
  if (write_text(partition, text, length, &opened)) return 0;
  if (opened) qmibtree_nvram_erase(partition);  // a header over half a text must not look valid
  return -1;
}

int qmib::qmibtree_nvram_erase(const nvram_partition& partition) {
  return std::system(partition.erase_command);
}
