#define _FILE_OFFSET_BITS 64
#include "journal.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "served.h"

bool journal_is_kept(void) { return getenv(FLASHSIM_JOURNAL_VARIABLE) != NULL; }

/* One write at the file's end: the steps of several programs stay whole, and in order. */
static bool append(const struct iovec parts[2]) {
  const int fd =
      open(getenv(FLASHSIM_JOURNAL_VARIABLE), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const size_t size = parts[0].iov_len + parts[1].iov_len;
  const bool whole = writev(fd, parts, 2) == (ssize_t)size;
  close(fd);
  return whole;
}

void journal_add(const char* verb, const char* partition, int64_t offset, const void* bytes,
                 size_t size) {
  if (!journal_is_kept()) return;
  const int error = errno;
  char line[80];
  const int length =
      snprintf(line, sizeof line, "%s %s %" PRId64 " %zu\n", verb, partition, offset, size);
  const struct iovec parts[] = {{line, (size_t)length}, {(void*)bytes, size}};
  if (!append(parts)) {
    perror("flashsim: cannot write the journal");
    abort(); /* a journal with a gap would tell of a flash that never was */
  }
  errno = error;
}

static const char* partition_of(int fd) {
  const char* const folder = getenv(FLASHSIM_DIR_VARIABLE);
  struct stat device;
  struct stat file;
  char path[PATH_MAX];
  if (!folder || fstat(fd, &device) != 0) return NULL;
  for (size_t i = 0; i < served_file_count; ++i) {
    if (!served_files[i].partition) continue;
    snprintf(path, sizeof path, "%s/%s", folder, served_files[i].file);
    if (stat(path, &file) == 0 && file.st_dev == device.st_dev && file.st_ino == device.st_ino)
      return served_files[i].partition;
  }
  return NULL;
}

void journal_add_device(const char* verb, int fd, int64_t offset, const void* bytes, size_t size) {
  if (!journal_is_kept()) return;
  const int error = errno;
  const char* const partition = partition_of(fd);
  if (partition) journal_add(verb, partition, offset, bytes, size);
  errno = error;
}
