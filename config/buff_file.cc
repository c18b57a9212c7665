// Text buffers to and from files and devices.
#include <cstring>

#include "config/config_internal.hh"

namespace {

// A directory's or a device's end may not fit a word: then there is nothing to read either.
long bytes_behind(std::FILE* stream, long offset) {
  if (offset < 0 || std::fseek(stream, 0, SEEK_END) != 0) return -1;
  const long size = std::ftell(stream);
  return size < offset ? -1 : size - offset;
}

uint32_t dump_to_file(const qmibtree_buff_t* buff, const char* path, long offset, int whence) {
  qmib::file stream(std::fopen(path, "w"));
  if (!stream) return QMIBTREE_RC_ERROR;
  const size_t length = std::strlen(buff->start);
  if (std::fseek(stream.get(), offset, whence) != 0) return QMIBTREE_RC_ERROR;
  if (std::fwrite(buff->start, 1, length, stream.get()) < length) {
    // Deliberate: after a short write the stream stays open; a host may tell by its count of open
    // files that a device refused bytes. Kept by buff_file_test.cc.
    (void)stream.release();
    return QMIBTREE_RC_ERROR;
  }
  return qmib::close_written(std::move(stream)) ? QMIBTREE_RC_OK : QMIBTREE_RC_ERROR;
}

}  // namespace

qmib::owned<qmibtree_buff_t> qmib::qmibtree_buff_create(size_t length) {
  if (length > UINT32_MAX - sizeof(qmibtree_buff_t) - 1) return nullptr;
  owned<qmibtree_buff_t> buff =
      make_zeroed<qmibtree_buff_t>("mibtree buffer", sizeof(qmibtree_buff_t) + length + 1);
  if (!buff) return nullptr;
  buff->start = buff->pos = reinterpret_cast<char*>(buff.get() + 1);
  buff->size = buff->left = static_cast<uint32_t>(length + 1);
  return buff;
}

uint32_t qmibtree_buff_dump_to_file(qmibtree_buff_t* buff, const char* path, int32_t offset) {
  return dump_to_file(buff, path, offset, SEEK_SET);
}

// Deliberate: the name says "end", the mode decides. A regular file is empty once opened, so the
// text replaces what it held; hosts use this to rewrite files whole.
uint32_t qmibtree_buff_dump_to_file_end(qmibtree_buff_t* buff, const char* path) {
  return dump_to_file(buff, path, 0, SEEK_END);
}

qmibtree_buff_t* qmibtree_buff_create_from_file(const char* path, int32_t offset, uint32_t length) {
  const qmib::file stream(std::fopen(path, "r"));
  if (!stream) return nullptr;
  const long wanted = length == 0 ? bytes_behind(stream.get(), offset) : static_cast<long>(length);
  if (wanted < 0) return nullptr;
  qmib::owned<qmibtree_buff_t> buff = qmib::qmibtree_buff_create(static_cast<size_t>(wanted));
  if (!buff) return nullptr;
  --buff->left;
  // A short read is not reported: the text ends early, in zeros.
  if (std::fseek(stream.get(), offset, SEEK_SET) == 0)
    (void)!std::fread(buff->start, 1, buff->left, stream.get());
  return buff.release();
}
