/* A partition as an open device: a fixed number of bytes that can be rewritten in place. The one
 * way into the bytes of a partition: faults of the flash belong behind these functions. */
#ifndef FLASHSIM_DEVICE_H
#define FLASHSIM_DEVICE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* Makes `fd` a device. It stays one in its duplicates and in the programs that inherit it. */
void device_mark(int fd);

/* Whether `fd` is a device. errno is only changed for a descriptor that is not open. */
bool device_is(int fd);

/* The open() flags a partition is opened with, of the flags asked for: it is neither made nor
 * emptied nor extended. */
int device_open_flags(int flags);

/* Shortens a write of `*size` bytes at `offset` to what the device has room for. False, with
 * errno: there is no room at all. */
bool device_clip(int fd, int64_t offset, size_t* size);

/* The same for a write at the descriptor's own position. */
bool device_clip_here(int fd, size_t* size);

/* The open() flags of a stream's mode. */
int device_mode_flags(const char* mode);

/* A stream on a device, which owns `fd`. Null with errno, `fd` still the caller's: out of memory,
 * or the mode means nothing. */
FILE* device_stream(int fd, const char* mode);

#endif
