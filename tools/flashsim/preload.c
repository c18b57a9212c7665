/* Loaded into the program before the C library: its file functions, for the paths that flashsim
 * serves. Every other path and descriptor is passed on as it is.
 *
 * Defined under each name that a C library's headers can give a function (64-bit offsets, 64-bit
 * time, checked forms). So the options that make the headers rename are off here. */
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE
#undef _TIME_BITS
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "device.h"
#include "faults.h"
#include "served.h"

#define EXPORT __attribute__((visibility("default")))

typedef void (*any_function)(void);

/* --- the function behind ours --- */

static any_function next_function(any_function* slot, const char* name) {
  any_function next = __atomic_load_n(slot, __ATOMIC_RELAXED);
  if (next) return next;
  void* const symbol = dlsym(RTLD_NEXT, name);
  if (!symbol) {
    fprintf(stderr, "flashsim: the C library has no function %s\n", name);
    abort();
  }
  memcpy(&next, &symbol, sizeof next);
  __atomic_store_n(slot, next, __ATOMIC_RELAXED);
  return next;
}

/* Declares `next`, the function `name` of the library behind this one. */
#define NEXT(result, name, parameters) \
  static any_function next_slot;       \
  result(*const next) parameters = (result(*) parameters)next_function(&next_slot, #name)

/* --- the served paths --- */

/* One byte more than the kernel takes: with a folder too long to serve, opening fails by itself. */
static char places[served_file_count][PATH_MAX + 1];

static void find_places(void) {
  const char* const folder = getenv(FLASHSIM_DIR_VARIABLE);
  for (size_t i = 0; i < served_file_count; ++i) {
    if (folder) {
      snprintf(places[i], sizeof places[i], "%s/%s", folder, served_files[i].file);
    } else {
      snprintf(places[i], sizeof places[i], "%s", served_files[i].path);
    }
  }
}

/* The place in `served_files` of a path; -1 when it is not served. */
static int find_served(const char* path) {
  for (int i = 0; path && i < served_file_count; ++i) {
    if (strcmp(path, served_files[i].path) == 0) return i;
  }
  return -1;
}

/* Where a path leads: to the file of the folder, or where it says. */
static const char* served(const char* path) {
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  const int index = find_served(path);
  if (index < 0) return path;
  pthread_once(&once, find_places);
  return places[index];
}

static bool is_partition(const char* path) {
  const int index = find_served(path);
  return index >= 0 && served_files[index].partition;
}

/* Whether what happens to the open file is flashsim's business: with faults, to each served one. */
static bool is_special(const char* path) {
  return is_partition(path) || (faults_are_set() && find_served(path) >= 0);
}

/* --- functions that only need the path changed --- */

#define FORWARD(result, name, parameters, arguments) \
  EXPORT result name parameters;                     \
  EXPORT result name parameters {                    \
    NEXT(result, name, parameters);                  \
    return next arguments;                           \
  }

FORWARD(int, access, (const char* path, int mode), (served(path), mode))
FORWARD(int, eaccess, (const char* path, int mode), (served(path), mode))
FORWARD(int, euidaccess, (const char* path, int mode), (served(path), mode))
FORWARD(int, faccessat, (int dir, const char* path, int mode, int flags),
        (dir, served(path), mode, flags))
FORWARD(int, remove, (const char* path), (served(path)))
FORWARD(int, unlink, (const char* path), (served(path)))
FORWARD(int, unlinkat, (int dir, const char* path, int flags), (dir, served(path), flags))
FORWARD(int, rename, (const char* from, const char* to), (served(from), served(to)))
FORWARD(int, renameat, (int from_dir, const char* from, int to_dir, const char* to),
        (from_dir, served(from), to_dir, served(to)))
#ifdef RENAME_NOREPLACE
FORWARD(int, renameat2,
        (int from_dir, const char* from, int to_dir, const char* to, unsigned flags),
        (from_dir, served(from), to_dir, served(to), flags))
#endif

/* musl's headers rename these three where time was once 32 bits wide; see below. */
#ifndef _REDIR_TIME64
FORWARD(int, stat, (const char* path, struct stat* status), (served(path), status))
FORWARD(int, lstat, (const char* path, struct stat* status), (served(path), status))
FORWARD(int, fstatat, (int dir, const char* path, struct stat* status, int flags),
        (dir, served(path), status, flags))
#else
FORWARD(int, __stat_time64, (const char* path, void* status), (served(path), status))
FORWARD(int, __lstat_time64, (const char* path, void* status), (served(path), status))
FORWARD(int, __fstatat_time64, (int dir, const char* path, void* status, int flags),
        (dir, served(path), status, flags))
#endif
#ifdef __GLIBC__
FORWARD(int, stat64, (const char* path, struct stat64* status), (served(path), status))
FORWARD(int, lstat64, (const char* path, struct stat64* status), (served(path), status))
FORWARD(int, fstatat64, (int dir, const char* path, struct stat64* status, int flags),
        (dir, served(path), status, flags))
#if __TIMESIZE == 32
FORWARD(int, __stat64_time64, (const char* path, void* status), (served(path), status))
FORWARD(int, __lstat64_time64, (const char* path, void* status), (served(path), status))
FORWARD(int, __fstatat64_time64, (int dir, const char* path, void* status, int flags),
        (dir, served(path), status, flags))
#endif
#endif
#ifdef STATX_BASIC_STATS
FORWARD(int, statx, (int dir, const char* path, int flags, unsigned mask, struct statx* status),
        (dir, served(path), flags, mask, status))
#endif

/* --- opening --- */

static const char* open_verb(int flags) {
  const int access_mode = flags & O_ACCMODE;
  if (access_mode == O_RDWR) return "open-rw";
  return access_mode == O_WRONLY ? "open-w" : "open-r";
}

static int open_at(int dir, const char* path, int flags, mode_t mode) {
  NEXT(int, openat, (int, const char*, int, ...));
  if (!is_special(path)) return next(dir, served(path), flags, mode);
  const int error = faults_count_open();
  if (error) {
    errno = error;
    return -1;
  }
  const struct served_file* const file = &served_files[find_served(path)];
  const int fd = next(dir, served(path), file->partition ? device_open_flags(flags) : flags, mode);
  if (fd < 0) return fd;
  device_mark(fd, file);
  device_step(open_verb(flags), fd, 0);
  return fd;
}

/* The mode behind the last named argument, which only callers that may make a file hand over. */
#define GET_MODE(mode, flags)                                \
  mode_t mode = 0;                                           \
  if (flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE) { \
    va_list arguments;                                       \
    va_start(arguments, flags);                              \
    mode = (mode_t)va_arg(arguments, unsigned);              \
    va_end(arguments);                                       \
  }

#define OPEN_FUNCTIONS(open_name, openat_name, creat_name, more_flags)                 \
  EXPORT int open_name(const char* path, int flags, ...) {                             \
    GET_MODE(mode, flags)                                                              \
    return open_at(AT_FDCWD, path, flags | (more_flags), mode);                        \
  }                                                                                    \
  EXPORT int openat_name(int dir, const char* path, int flags, ...) {                  \
    GET_MODE(mode, flags)                                                              \
    return open_at(dir, path, flags | (more_flags), mode);                             \
  }                                                                                    \
  EXPORT int creat_name(const char* path, mode_t mode) {                               \
    return open_at(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC | (more_flags), mode); \
  }

OPEN_FUNCTIONS(open, openat, creat, 0)
#ifdef __GLIBC__
OPEN_FUNCTIONS(open64, openat64, creat64, O_LARGEFILE)

/* What the checked forms of open() come to: flags that are not constant, and no mode. */
#define CHECKED_OPEN_FUNCTIONS(open_name, openat_name, more_flags) \
  EXPORT int open_name(const char* path, int flags);               \
  EXPORT int open_name(const char* path, int flags) {              \
    return open_at(AT_FDCWD, path, flags | (more_flags), 0);       \
  }                                                                \
  EXPORT int openat_name(int dir, const char* path, int flags);    \
  EXPORT int openat_name(int dir, const char* path, int flags) {   \
    return open_at(dir, path, flags | (more_flags), 0);            \
  }

CHECKED_OPEN_FUNCTIONS(__open_2, __openat_2, 0)
CHECKED_OPEN_FUNCTIONS(__open64_2, __openat64_2, O_LARGEFILE)
#endif

/* --- streams --- */

static FILE* open_special(const char* path, const char* mode) {
  const int fd = open_at(AT_FDCWD, path, device_mode_flags(mode), 0666);
  if (fd < 0) return NULL;
  FILE* const stream = device_stream(fd, mode);
  if (!stream) close(fd);
  return stream;
}

/* A stream cannot turn into one on a device; the old one is closed, as by any failure to reopen. */
static FILE* refuse_to_reopen(FILE* stream) {
  fclose(stream);
  errno = ENOTSUP;
  return NULL;
}

#define FOPEN_FUNCTIONS(fopen_name, freopen_name)                                            \
  EXPORT FILE* fopen_name(const char* path, const char* mode) {                              \
    NEXT(FILE*, fopen_name, (const char*, const char*));                                     \
    return is_special(path) ? open_special(path, mode) : next(served(path), mode);           \
  }                                                                                          \
  EXPORT FILE* freopen_name(const char* path, const char* mode, FILE* stream) {              \
    NEXT(FILE*, freopen_name, (const char*, const char*, FILE*));                            \
    return is_partition(path) ? refuse_to_reopen(stream) : next(served(path), mode, stream); \
  }

FOPEN_FUNCTIONS(fopen, freopen)
#ifdef __GLIBC__
FOPEN_FUNCTIONS(fopen64, freopen64)
#endif

EXPORT FILE* fdopen(int fd, const char* mode) {
  NEXT(FILE*, fdopen, (int, const char*));
  return device_file(fd) ? device_stream(fd, mode) : next(fd, mode);
}

/* --- seeking and closing --- */

#define SEEK_FUNCTION(offset_type, name)                                          \
  EXPORT offset_type name(int fd, offset_type offset, int whence) {               \
    NEXT(offset_type, name, (int, offset_type, int));                             \
    const bool from_end = whence == SEEK_END && faults_are_set();                 \
    const offset_type shortage = from_end ? (offset_type)device_shortage(fd) : 0; \
    const offset_type position = next(fd, offset - shortage, whence);             \
    const bool moved = offset != 0 || whence != SEEK_CUR; /* else it only asks */ \
    if (position >= 0 && moved) device_step("seek", fd, position);                \
    return position;                                                              \
  }

SEEK_FUNCTION(off_t, lseek)
#ifdef __GLIBC__
SEEK_FUNCTION(off64_t, lseek64)
#endif

EXPORT int close(int fd) {
  NEXT(int, close, (int));
  device_step("close", fd, 0);
  return next(fd);
}

/* --- reading from descriptors, where faults can shorten it --- */

enum { HERE = -1 }; /* for an offset: where the descriptor stands */

static size_t readable(int fd, int64_t offset, size_t size) {
  if (!faults_are_set() || !device_file(fd)) return size;
  return device_readable(fd, offset == HERE ? lseek(fd, 0, SEEK_CUR) : offset, size);
}

/* The size a caller says its block has is for the C library to check. */
#define READ_FUNCTION(name, parameters, arguments, offset) \
  EXPORT ssize_t name parameters;                          \
  EXPORT ssize_t name parameters {                         \
    NEXT(ssize_t, name, parameters);                       \
    size = readable(fd, offset, size);                     \
    return next arguments;                                 \
  }

READ_FUNCTION(read, (int fd, void* bytes, size_t size), (fd, bytes, size), HERE)
READ_FUNCTION(pread, (int fd, void* bytes, size_t size, off_t at), (fd, bytes, size, at), at)
#ifdef __GLIBC__
READ_FUNCTION(pread64, (int fd, void* bytes, size_t size, off64_t at), (fd, bytes, size, at), at)
READ_FUNCTION(__read_chk, (int fd, void* bytes, size_t size, size_t block),
              (fd, bytes, size, block), HERE)
READ_FUNCTION(__pread_chk, (int fd, void* bytes, size_t size, off_t at, size_t block),
              (fd, bytes, size, at, block), at)
READ_FUNCTION(__pread64_chk, (int fd, void* bytes, size_t size, off64_t at, size_t block),
              (fd, bytes, size, at, block), at)
#endif

static ssize_t read_parts(int fd, const struct iovec* parts, int count) {
  ssize_t done = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t got = read(fd, parts[i].iov_base, parts[i].iov_len);
    if (got > 0) done += got;
    if (got < (ssize_t)parts[i].iov_len) return done > 0 ? done : got;
  }
  return done;
}

EXPORT ssize_t readv(int fd, const struct iovec* parts, int count) {
  NEXT(ssize_t, readv, (int, const struct iovec*, int));
  const bool shortened = faults_are_set() && device_file(fd);
  return shortened ? read_parts(fd, parts, count) : next(fd, parts, count);
}

/* --- writing to descriptors --- */

EXPORT ssize_t write(int fd, const void* bytes, size_t size) {
  NEXT(ssize_t, write, (int, const void*, size_t));
  struct device_write write;
  if (!device_file(fd)) return next(fd, bytes, size);
  const int whence = fcntl(fd, F_GETFL) & O_APPEND ? SEEK_END : SEEK_CUR;
  if (!device_write_begin(&write, fd, lseek(fd, 0, whence), bytes, size)) return -1;
  return device_write_end(&write, next(fd, write.bytes, write.size));
}

/* One part after the other; a device's end stops it within any of them. */
static ssize_t write_parts(int fd, const struct iovec* parts, int count) {
  ssize_t done = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t written = write(fd, parts[i].iov_base, parts[i].iov_len);
    if (written > 0) done += written;
    if (written < (ssize_t)parts[i].iov_len) return done > 0 ? done : written;
  }
  return done;
}

EXPORT ssize_t writev(int fd, const struct iovec* parts, int count) {
  NEXT(ssize_t, writev, (int, const struct iovec*, int));
  return device_file(fd) ? write_parts(fd, parts, count) : next(fd, parts, count);
}

/* Answered with "invalid": the callers of these then copy with read() and write(). */
static ssize_t refuse_to_copy(void) {
  errno = EINVAL;
  return -1;
}

#define OFFSET_FUNCTIONS(offset_type, pwrite_name, sendfile_name, truncate_name, ftruncate_name) \
  EXPORT ssize_t pwrite_name(int fd, const void* bytes, size_t size, offset_type offset) {       \
    NEXT(ssize_t, pwrite_name, (int, const void*, size_t, offset_type));                         \
    struct device_write write;                                                                   \
    if (!device_file(fd)) return next(fd, bytes, size, offset);                                  \
    if (!device_write_begin(&write, fd, offset, bytes, size)) return -1;                         \
    return device_write_end(&write, next(fd, write.bytes, write.size, offset));                  \
  }                                                                                              \
  EXPORT ssize_t sendfile_name(int out, int in, offset_type* offset, size_t size) {              \
    NEXT(ssize_t, sendfile_name, (int, int, offset_type*, size_t));                              \
    const bool goes_around = device_file(out) || device_file(in);                                \
    return goes_around ? refuse_to_copy() : next(out, in, offset, size);                         \
  }                                                                                              \
  /* A partition keeps its size, as when it is opened to be emptied. */                          \
  EXPORT int truncate_name(const char* path, offset_type size) {                                 \
    NEXT(int, truncate_name, (const char*, offset_type));                                        \
    return is_partition(path) ? access(path, W_OK) : next(served(path), size);                   \
  }                                                                                              \
  EXPORT int ftruncate_name(int fd, offset_type size) {                                          \
    NEXT(int, ftruncate_name, (int, offset_type));                                               \
    return device_is(fd) ? 0 : next(fd, size);                                                   \
  }

OFFSET_FUNCTIONS(off_t, pwrite, sendfile, truncate, ftruncate)
#ifdef __GLIBC__
OFFSET_FUNCTIONS(off64_t, pwrite64, sendfile64, truncate64, ftruncate64)
#define copy_offset off64_t
#else
#define copy_offset off_t
#endif

EXPORT ssize_t copy_file_range(int in, copy_offset* in_offset, int out, copy_offset* out_offset,
                               size_t size, unsigned flags) {
  NEXT(ssize_t, copy_file_range, (int, copy_offset*, int, copy_offset*, size_t, unsigned));
  const bool goes_around = device_file(out) || device_file(in);
  return goes_around ? refuse_to_copy() : next(in, in_offset, out, out_offset, size, flags);
}
