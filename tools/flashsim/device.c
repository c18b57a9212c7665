#define _FILE_OFFSET_BITS 64
#include "device.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "faults.h"
#include "journal.h"

/* The mark lives in the open file itself, as the signal it would send were it asynchronous, which a
 * file on disk never is. No table of descriptors: the mark follows dup(), fork() and exec(), and
 * goes with the last close(). One for each of `served_files`. */
static const int marks[served_file_count] = {SIGPWR, SIGSYS, SIGXCPU, SIGXFSZ, SIGVTALRM};

void device_mark(int fd, const struct served_file* file) {
  (void)fcntl(fd, F_SETSIG, marks[file - served_files]);
}

const struct served_file* device_file(int fd) {
  const int mark = fcntl(fd, F_GETSIG);
  for (size_t i = 0; i < served_file_count; ++i) {
    if (marks[i] == mark) return &served_files[i];
  }
  return NULL;
}

bool device_is(int fd) {
  const struct served_file* const file = device_file(fd);
  return file && file->partition;
}

int device_open_flags(int flags) { return flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND); }

/* --- sizes --- */

static int64_t size_of(int fd, const struct served_file* file) {
  struct stat status;
  if (!file || fstat(fd, &status) != 0) return 0; /* closed meanwhile */
  return file->partition ? faults_device_size(file->partition, status.st_size) : status.st_size;
}

int64_t device_shortage(int fd) {
  struct stat status;
  const struct served_file* const file = device_file(fd);
  if (!file || fstat(fd, &status) != 0) return 0;
  return status.st_size - size_of(fd, file);
}

/* `size` bytes at `offset`, as far as they come before `end`. */
static size_t clip(int64_t offset, size_t size, int64_t end) {
  const uint64_t room = offset < end ? (uint64_t)end - (uint64_t)offset : 0;
  return size < room ? size : (size_t)room;
}

static size_t least(size_t one, size_t other) { return one < other ? one : other; }

size_t device_readable(int fd, int64_t offset, size_t size) {
  return clip(offset, least(size, faults_read_limit()), size_of(fd, device_file(fd)));
}

/* How long a file of /tmp may become: the other takes its share. */
static int64_t tmp_end(const struct served_file* file) {
  const uint64_t all = faults_tmp_size();
  if (all > INT64_MAX) return INT64_MAX;
  uint64_t others = 0;
  char path[PATH_MAX];
  struct stat status;
  for (size_t i = 0; i < served_file_count; ++i) {
    if (&served_files[i] == file || strncmp(served_files[i].path, "/tmp/", 5) != 0) continue;
    snprintf(path, sizeof path, "%s/%s", getenv(FLASHSIM_DIR_VARIABLE), served_files[i].file);
    if (stat(path, &status) == 0) others += (uint64_t)status.st_size;
  }
  return others < all ? (int64_t)(all - others) : 0;
}

static int64_t end_of(int fd, const struct served_file* file) {
  if (!file || file->partition) return size_of(fd, file);
  return strncmp(file->path, "/tmp/", 5) == 0 ? tmp_end(file) : INT64_MAX;
}

/* --- steps --- */

void device_step(const char* verb, int fd, int64_t offset) {
  if (!journal_is_kept() && !faults_are_set()) return;
  const struct served_file* const file = device_file(fd);
  if (!file || !file->partition) return;
  if (faults_count_step(verb, 0).power_off) faults_cut_power();
  journal_add(verb, file->partition, offset, NULL, 0);
}

/* --- writing --- */

/* Where the last torn write stopped: what goes on from there fails. */
static __thread int torn_fd = -1;
static __thread int64_t torn_at;

static bool fail(int error) {
  errno = error;
  return false;
}

/* Puts a copy in the place of bytes that a stuck bit changes. */
static bool stick(struct device_write* write) {
  if (!faults_stick_at(write->file->partition, write->offset, write->size)) return true;
  write->copy = malloc(write->size);
  if (!write->copy) return false;
  memcpy(write->copy, write->bytes, write->size);
  faults_stick(write->file->partition, write->offset, write->copy, write->size);
  write->bytes = write->copy;
  return true;
}

static bool program(struct device_write* write) {
  const bool goes_on = torn_fd == write->fd && torn_at == write->offset;
  torn_fd = -1;
  if (goes_on) return fail(EIO);
  if (write->size > 0) {
    const struct faults_step step = faults_count_step("write", write->size);
    write->size = step.size;
    write->torn = step.torn;
    write->power_off = step.power_off;
  }
  return stick(write);
}

bool device_write_begin(struct device_write* write, int fd, int64_t offset, const void* bytes,
                        size_t size) {
  const struct served_file* const file = device_file(fd);
  *write = (struct device_write){file, fd, offset, bytes, 0, NULL, false, false};
  write->size = clip(offset, least(size, faults_write_limit()), end_of(fd, file));
  if (!file) return fail(EBADF);
  if (write->size == 0 && size > 0) return fail(ENOSPC);
  return !file->partition || program(write);
}

static ssize_t tear(const struct device_write* write, ssize_t count) {
  if (count == 0) {
    errno = EIO;
    return -1;
  }
  torn_fd = write->fd;
  torn_at = write->offset + count;
  return count;
}

ssize_t device_write_end(struct device_write* write, ssize_t count) {
  if (count > 0 && write->file->partition)
    journal_add("write", write->file->partition, write->offset, write->bytes, (size_t)count);
  free(write->copy);
  if (write->power_off) faults_cut_power();
  return write->torn && count >= 0 ? tear(write, count) : count;
}

/* --- the stream: its descriptor is all its state --- */

int device_mode_flags(const char* mode) {
  static const struct {
    char letter;
    int flags;
  } ways[] = {{'r', 0}, {'w', O_CREAT | O_TRUNC}, {'a', O_CREAT | O_APPEND}};
  int flags = mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  if (strchr(mode, '+')) flags = O_RDWR;
  for (size_t i = 0; i < sizeof ways / sizeof ways[0]; ++i) {
    if (mode[0] == ways[i].letter) flags |= ways[i].flags;
  }
  if (strchr(mode, 'x')) flags |= O_EXCL;
  return flags | (strchr(mode, 'e') ? O_CLOEXEC : 0);
}

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
