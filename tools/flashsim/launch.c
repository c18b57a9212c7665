#include "launch.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "faults.h"
#include "journal.h"
#include "served.h"

static bool complain(const char* doing, const char* what, const char* why) {
  fprintf(stderr, "flashsim: cannot %s '%s': %s\n", doing, what, why);
  return false;
}

/* --- the folder --- */

static bool join(char path[PATH_MAX], const char* folder, const char* file) {
  if (snprintf(path, PATH_MAX, "%s/%s", folder, file) < PATH_MAX) return true;
  return complain("use", folder, strerror(ENAMETOOLONG));
}

static bool write_erased(int fd) {
  unsigned char bytes[FLASHSIM_PARTITION_SIZE];
  memset(bytes, FLASHSIM_ERASED, sizeof bytes);
  for (size_t done = 0; done < sizeof bytes;) {
    const ssize_t count = write(fd, bytes + done, sizeof bytes - done);
    if (count < 0) return false;
    done += (size_t)count;
  }
  return true;
}

static bool make_partition(const char* path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return complain("make partition", path, strerror(errno));
  const bool written = write_erased(fd);
  if (close(fd) == 0 && written) return true;
  return complain("write partition", path, strerror(errno));
}

static bool make_partitions(const char* folder) {
  char path[PATH_MAX];
  struct stat status;
  for (size_t i = 0; i < served_file_count; ++i) {
    if (!join(path, folder, served_files[i].file)) return false;
    if (served_files[i].partition && lstat(path, &status) == 0) return true; /* not the first use */
  }
  for (size_t i = 0; i < served_file_count; ++i) {
    if (!served_files[i].partition) continue;
    if (!join(path, folder, served_files[i].file) || !make_partition(path)) return false;
  }
  return true;
}

/* The folder's absolute path, the folder and its partitions made where they are missing. */
static bool prepare_folder(const char* dir, char folder[PATH_MAX]) {
  if (mkdir(dir, 0777) != 0 && errno != EEXIST)
    return complain("make folder", dir, strerror(errno));
  if (!realpath(dir, folder)) return complain("use folder", dir, strerror(errno));
  struct stat status;
  if (stat(folder, &status) != 0) return complain("use folder", dir, strerror(errno));
  if (!S_ISDIR(status.st_mode)) return complain("use folder", dir, strerror(ENOTDIR));
  return make_partitions(folder);
}

/* --- the program's environment --- */

/* Where the preload library and the commands are: ../lib/flashsim, seen from flashsim's folder. */
static bool find_parts(char parts[PATH_MAX]) {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length < 0) return complain("read", "/proc/self/exe", strerror(errno));
  self[length] = '\0';
  for (int up = 0; up < 2; ++up) *strrchr(self, '/') = '\0';
  return join(parts, self, "lib/flashsim");
}

/* Puts `text` before what the variable, a list with colons, holds, or behind it. */
static bool extend_variable(const char* name, const char* text, bool in_front) {
  const char* const old = getenv(name);
  char* both = NULL;
  if (!old || old[0] == '\0') return setenv(name, text, 1) == 0;
  if (asprintf(&both, "%s:%s", in_front ? text : old, in_front ? old : text) < 0) return false;
  const bool set = setenv(name, both, 1) == 0;
  free(both);
  return set;
}

static bool set_environment(const char* folder, const char* given) {
  char parts[PATH_MAX];
  char own[PATH_MAX];
  if (!find_parts(parts) || !join(own, parts, "libflashsim.so")) return false;
  const char* const preload = given ? given : own;
  /* Without it the program would run all the same, and work on the machine's own devices. */
  if (!strchr(preload, '$') && access(preload, R_OK) != 0)
    return complain("load", preload, strerror(errno));
  if (strpbrk(preload, ": ")) return complain("load", preload, "its path has a blank or a colon");
  /* A program built with the address sanitizer refuses a library loaded before its runtime. */
  const bool set = setenv(FLASHSIM_DIR_VARIABLE, folder, 1) == 0 &&
                   extend_variable("LD_PRELOAD", preload, true) &&
                   extend_variable("PATH", parts, true) &&
                   extend_variable("ASAN_OPTIONS", "verify_asan_link_order=0", false);
  return set || complain("set up the environment for", folder, strerror(errno));
}

static bool begin_journal(const char* path) {
  char place[PATH_MAX];
  if (!path) return unsetenv(FLASHSIM_JOURNAL_VARIABLE) == 0;
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return complain("make journal", path, strerror(errno));
  close(fd);
  /* Absolute: the program may go to another folder. */
  if (realpath(path, place) && setenv(FLASHSIM_JOURNAL_VARIABLE, place, 1) == 0) return true;
  return complain("use journal", path, strerror(errno));
}

/* --- faults --- */

static bool set_bits_of(const char* path, const char* partition) {
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT || complain("open partition", path, strerror(errno));
  const bool set = faults_set_bits(fd, partition) || complain("set bits of", path, strerror(errno));
  close(fd);
  return set;
}

static bool begin_faults(const char* faults, const char* folder) {
  char path[PATH_MAX];
  if (!faults) return unsetenv(FLASHSIM_FAULTS_VARIABLE) == 0;
  for (size_t i = 0; i < served_file_count; ++i) {
    const char* const partition = served_files[i].partition;
    if (!partition) continue;
    if (!join(path, folder, served_files[i].file) || !set_bits_of(path, partition)) return false;
  }
  return true;
}

int launch(const struct launch* wanted) {
  char folder[PATH_MAX];
  if (!prepare_folder(wanted->dir, folder) || !set_environment(folder, wanted->preload) ||
      !begin_journal(wanted->journal) || !begin_faults(wanted->faults, folder))
    return EXIT_NOT_STARTED;
  execvp(wanted->program[0], wanted->program);
  complain("start", wanted->program[0], strerror(errno));
  return EXIT_NOT_STARTED;
}
