#define _FILE_OFFSET_BITS 64
#include "journal.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/uio.h>
#include <unistd.h>

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
