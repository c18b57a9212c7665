/* mtd: the erase command of the flash stand-in. Works on the folder itself, never on a device. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "journal.h"
#include "served.h"

static const char usage[] =
    "usage: mtd erase NVRAM|NVRAMBAK\n"
    "Sets every byte of a partition served by flashsim to 0xff.\n";

static const struct served_file* find_partition(const char* name) {
  for (size_t i = 0; i < served_file_count; ++i) {
    const char* const partition = served_files[i].partition;
    if (partition && strcmp(partition, name) == 0) return &served_files[i];
  }
  return NULL;
}

static int erase(int fd, const char* partition) {
  unsigned char block[4096];
  struct stat status;
  if (fstat(fd, &status) != 0) return -1;
  memset(block, FLASHSIM_ERASED, sizeof block);
  journal_add("command", partition, 0, NULL, 0);
  for (off_t done = 0; done < status.st_size;) {
    const off_t left = status.st_size - done;
    const size_t size = left < (off_t)sizeof block ? (size_t)left : sizeof block;
    const ssize_t count = write(fd, block, size);
    if (count < 0) return -1;
    journal_add("erase", partition, done, block, (size_t)count);
    done += count;
  }
  journal_add("done", partition, 0, NULL, 0);
  return 0;
}

static int erase_partition(const struct served_file* partition, const char* folder) {
  char place[4096];
  if (snprintf(place, sizeof place, "%s/%s", folder, partition->file) >= (int)sizeof place) {
    fprintf(stderr, "mtd: the path of the folder in %s is too long\n", FLASHSIM_DIR_VARIABLE);
    return 1;
  }
  const int fd = open(place, O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    fprintf(stderr, "mtd: cannot open %s (%s): %s\n", partition->path, place, strerror(errno));
    return 1;
  }
  if (erase(fd, partition->partition) != 0 || close(fd) != 0) {
    fprintf(stderr, "mtd: cannot erase %s (%s): %s\n", partition->path, place, strerror(errno));
    return 1;
  }
  return 0;
}

int main(int argc, char** argv) {
  const struct served_file* const partition =
      argc == 3 && strcmp(argv[1], "erase") == 0 ? find_partition(argv[2]) : NULL;
  if (!partition) {
    fputs(usage, stderr);
    return 2;
  }
  const char* const folder = getenv(FLASHSIM_DIR_VARIABLE);
  if (!folder) {
    fprintf(stderr, "mtd: %s is not set: run under flashsim\n", FLASHSIM_DIR_VARIABLE);
    return 1;
  }
  return erase_partition(partition, folder);
}
