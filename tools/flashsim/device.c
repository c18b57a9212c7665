#define _FILE_OFFSET_BITS 64
#include "device.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* The mark lives in the open file itself, as the signal it would send were it asynchronous, which a
 * file on disk never is. No table of descriptors: the mark follows dup(), fork() and exec(), and
 * goes with the last close(). */
#define DEVICE_MARK SIGPWR

void device_mark(int fd) { (void)fcntl(fd, F_SETSIG, DEVICE_MARK); }

bool device_is(int fd) { return fcntl(fd, F_GETSIG) == DEVICE_MARK; }

int device_open_flags(int flags) { return flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND); }

bool device_clip(int fd, int64_t offset, size_t* size) {
  struct stat status;
  if (fstat(fd, &status) != 0) return false;
  const uint64_t room = offset < status.st_size ? (uint64_t)status.st_size - (uint64_t)offset : 0;
  if (room == 0 && *size > 0) {
    errno = ENOSPC;
    return false;
  }
  if (*size > room) *size = (size_t)room;
  return true;
}

bool device_clip_here(int fd, size_t* size) {
  const off_t offset = lseek(fd, 0, SEEK_CUR);
  return offset >= 0 && device_clip(fd, offset, size);
}

int device_mode_flags(const char* mode) {
  const int direction = mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  return (strchr(mode, '+') ? O_RDWR : direction) | (strchr(mode, 'e') ? O_CLOEXEC : 0);
}

/* --- the stream: its descriptor is all its state --- */

static int descriptor_of(void* cookie) { return (int)(intptr_t)cookie; }

static ssize_t stream_read(void* cookie, char* bytes, size_t size) {
  return read(descriptor_of(cookie), bytes, size);
}

/* The two C libraries ask for a short write in different words: glibc wants the count, 0 at worst,
 * and takes a smaller one for an error; musl takes only a negative one for an error. */
static ssize_t write_result(size_t size, size_t done) {
#ifdef __GLIBC__
  (void)size;
  return (ssize_t)done;
#else
  return done < size ? -1 : (ssize_t)done;
#endif
}

static ssize_t stream_write(void* cookie, const char* bytes, size_t size) {
  size_t done = 0;
  while (done < size) {
    /* By its public name: that is the write() which stops at the device's end. */
    const ssize_t count = write(descriptor_of(cookie), bytes + done, size - done);
    if (count <= 0) break;
    done += (size_t)count;
  }
  return write_result(size, done);
}

static int stream_seek(void* cookie, off_t* offset, int whence) {
  const off_t position = lseek(descriptor_of(cookie), *offset, whence);
  if (position < 0) return -1;
  *offset = position;
  return 0;
}

static int stream_close(void* cookie) { return close(descriptor_of(cookie)); }

FILE* device_stream(int fd, const char* mode) {
  static const cookie_io_functions_t functions = {stream_read, stream_write, stream_seek,
                                                  stream_close};
  const char plain_mode[] = {mode[0], strchr(mode, '+') ? '+' : '\0', '\0'};
  FILE* const stream = fopencookie((void*)(intptr_t)fd, plain_mode, functions);
  if (!stream) return NULL;
  if (mode[0] == 'a') (void)lseek(fd, 0, SEEK_END);
#ifdef __GLIBC__
  stream->_fileno = fd; /* for fileno(), through which C++ streams read and write */
#endif
  return stream;
}
