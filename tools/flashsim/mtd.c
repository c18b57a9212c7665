/* mtd: the erase command of the flash stand-in. Works on the folder itself, never on a device. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "faults.h"
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

/* A step without bytes. */
static void step(const char* verb, const char* partition) {
  if (faults_count_step(verb, 0).power_off) faults_cut_power();
  journal_add(verb, partition, 0, NULL, 0);
}

static int erase_bytes(int fd, const char* partition, size_t size) {
  unsigned char block[4096];
  for (size_t done = 0; done < size;) {
    const size_t left = size - done;
    const size_t part = left < sizeof block ? left : sizeof block;
    memset(block, FLASHSIM_ERASED, part);
    faults_stick(partition, (int64_t)done, block, part);
    const ssize_t count = write(fd, block, part);
    if (count < 0) return -1;
    journal_add("erase", partition, (int64_t)done, block, (size_t)count);
    done += (size_t)count;
  }
  return 0;
}

static int erase(int fd, const char* partition) {
  struct stat status;
  if (fstat(fd, &status) != 0) return -1;
  step("command", partition);
  const size_t size = (size_t)faults_device_size(partition, status.st_size);
  const struct faults_step erased = faults_count_step("erase", size);
  if (erase_bytes(fd, partition, erased.size) != 0) return -1;
  if (erased.power_off) faults_cut_power();
  if (erased.torn) {
    errno = EIO;
    return -1;
  }
  step("done", partition);
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
