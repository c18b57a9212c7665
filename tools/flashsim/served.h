/* What flashsim serves from its folder: one table for the launcher, the preload library and mtd. */
#ifndef FLASHSIM_SERVED_H
#define FLASHSIM_SERVED_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FLASHSIM_DIR_VARIABLE \
  "FLASHSIM_DIR"                      /* the folder, absolute, in the program's environment */
#define FLASHSIM_PARTITION_SIZE 65536 /* bytes of a partition that flashsim makes */
#define FLASHSIM_ERASED 0xff          /* a byte of erased flash */

struct served_file {
  const char* path;      /* what the program asks for */
  const char* file;      /* the file of the folder that it gets */
  const char* partition; /* the partition's name for mtd; null: an ordinary file */
};

enum { served_file_count = 5 };

extern const struct served_file served_files[served_file_count];

#ifdef __cplusplus
}
#endif

#endif
