#include <cstdarg>
#include <cstdio>

#include "qmibtree.h"

namespace {

uint32_t count(qmibtree_buff_t* buff, int length) {
  if (length > 0) buff->size += static_cast<uint32_t>(length);
  return QMIBTREE_RC_OK;
}

uint32_t advance(qmibtree_buff_t* buff, int length) {
  if (static_cast<uint32_t>(length) >= buff->left) return QMIBTREE_RC_DUMP_EXCEEDED;
  buff->pos += length;
  buff->left -= static_cast<uint32_t>(length);
  return QMIBTREE_RC_OK;
}

}  // namespace

uint32_t qmibtree_buff_dump(qmibtree_buff_t* buff, const char* format, ...) {
  const bool counting = buff->pos == nullptr;
  if (!counting && buff->left == 0) return QMIBTREE_RC_DUMP_EXCEEDED;
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(buff->pos, counting ? 0 : buff->left, format, args);
  va_end(args);
  return counting ? count(buff, length) : advance(buff, length);
}
