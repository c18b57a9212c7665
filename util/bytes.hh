// Words from and to bytes of a fixed order, whatever the processor's.
#ifndef UTIL_BYTES_HH
#define UTIL_BYTES_HH

#include <cstdint>

namespace qmib {

inline uint32_t load_be32(const unsigned char* bytes) {
  return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
         static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

inline uint32_t load_le32(const unsigned char* bytes) {
  return static_cast<uint32_t>(bytes[3]) << 24 | static_cast<uint32_t>(bytes[2]) << 16 |
         static_cast<uint32_t>(bytes[1]) << 8 | bytes[0];
}

inline void store_be32(unsigned char* bytes, uint32_t word) {
  bytes[0] = static_cast<unsigned char>(word >> 24);
  bytes[1] = static_cast<unsigned char>(word >> 16);
  bytes[2] = static_cast<unsigned char>(word >> 8);
  bytes[3] = static_cast<unsigned char>(word);
}

}  // namespace qmib

#endif
