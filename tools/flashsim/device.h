/* Served files once they are open. A partition is a device: a fixed number of bytes that can be
 * rewritten in place. The one way into its bytes: faults of the flash work behind these functions.
 */
#ifndef FLASHSIM_DEVICE_H
#define FLASHSIM_DEVICE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "served.h"

/* Marks `fd` as open on a served file. It stays so in its duplicates and in the programs that
 * inherit it. */
void device_mark(int fd, const struct served_file* file);

/* The served file that `fd` is marked for; null: none. errno is only changed for a descriptor that
 * is not open. */
const struct served_file* device_file(int fd);

/* Whether `fd` is a device: marked for a partition. */
bool device_is(int fd);

/* The open() flags a partition is opened with, of the flags asked for: it is neither made nor
 * emptied nor extended. */
int device_open_flags(int flags);

/* How many bytes the device that `fd` may be open on is shorter than its file. */
int64_t device_shortage(int fd);

/* How many of `size` bytes a read from a marked `fd` at `offset` gets at most. */
size_t device_readable(int fd, int64_t offset, size_t size);

/* Records a step without bytes, if `fd` is a device. With the power cut it does not return. */
void device_step(const char* verb, int fd, int64_t offset);

/* A write to a marked descriptor. */
struct device_write {
  const struct served_file* file;
  int fd;
  int64_t offset;
  const void* bytes; /* to be written */
  size_t size;       /* so many of them */
  void* copy;        /* of the bytes, where they had to be changed; else null */
  bool torn;
  bool power_off;
};

/* What of `size` bytes at `offset` is to be written. False, with errno: nothing. */
bool device_write_begin(struct device_write* write, int fd, int64_t offset, const void* bytes,
                        size_t size);

/* Ends it, after `count` bytes were written, or -1: what the caller gets to know. */
ssize_t device_write_end(struct device_write* write, ssize_t count);

/* The open() flags of a stream's mode. */
int device_mode_flags(const char* mode);

/* A stream on a marked descriptor, which owns `fd`. Null with errno, `fd` still the caller's: out
 * of memory, or the mode means nothing. */
FILE* device_stream(int fd, const char* mode);

#endif
