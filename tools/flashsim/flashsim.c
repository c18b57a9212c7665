/* flashsim: runs a program with a gateway's flash and fixed paths served from a folder. */
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "served.h"

enum { EXIT_USAGE = 2, EXIT_NOT_STARTED = 127 };

static const char usage[] = "usage: flashsim --dir DIR [--preload FILE] -- PROGRAM [ARGUMENT...]\n";

static const char help[] =
    "Runs PROGRAM, unmodified and without privileges, with these paths served from DIR:\n"
    "\n"
    "  /dev/nvram                       DIR/nvram\n"
    "  /dev/nvrambak                    DIR/nvrambak\n"
    "  /etc/igd/default-conf.xml        DIR/default-conf.xml\n"
    "  /tmp/tobixopen                   DIR/tobixopen\n"
    "  /tmp/temp_config_for_download    DIR/temp_config_for_download\n"
    "\n"
    "The first two behave like flash: a fixed size (that of the file), never emptied nor\n"
    "made by opening them, full at the end. Commands that PROGRAM runs find these first:\n"
    "\n"
    "  mtd erase NVRAM|NVRAMBAK         sets every byte of the partition to 0xff\n"
    "  zorem_cfg -v 0 -i IN -o OUT      wraps the text IN into the upgrade file OUT\n"
    "\n"
    "DIR is made where it is missing (its parent is not). Two erased partitions of 64 KiB\n"
    "are made in it when it has neither; one that is missing beside the other stays a\n"
    "missing device, and a shorter file is a shorter device. PROGRAM finds the absolute\n"
    "path of DIR in FLASHSIM_DIR.\n"
    "\n"
    "Served are opens, streams, status, access, removal and renaming by these absolute\n"
    "paths, from PROGRAM and the commands it runs. Not served: paths spelt otherwise, names\n"
    "in folder listings, and programs that are statically linked or of another machine\n"
    "word or C library than flashsim: these reach the machine's own files. Status tells of\n"
    "the file in DIR. Buffered standard output that a shell redirected to a partition does\n"
    "not stop at its end.\n"
    "\n"
    "--preload FILE loads FILE instead of flashsim's own library, for a PROGRAM of another\n"
    "machine word or C library. With $LIB in FILE each loader takes the one built for it, so\n"
    "that commands of this machine are served too.\n"
    "\n"
    "Exit status: PROGRAM's; 127 when it could not be started, 2 for wrong usage.\n"
    "\n"
    "Example: a first boot from the factory default, then its trace\n"
    "  mkdir flash && cp default-conf.xml flash\n"
    "  flashsim --dir flash -- ./gateway\n"
    "  flashsim --dir flash -- cat /tmp/tobixopen\n";

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

/* --- the command line --- */

static int refuse(const char* why) {
  fprintf(stderr, "flashsim: %s\n%sTry 'flashsim --help'.\n", why, usage);
  return EXIT_USAGE;
}

/* getopt_long() tells a short option by its letter, a long one by having stepped over it. */
static int refuse_option(const char* stepped_over) {
  const char letter[] = {'-', (char)optopt, '\0'};
  fprintf(stderr, "flashsim: unknown option '%s'\n", optopt ? letter : stepped_over);
  return refuse("only --dir, --preload and --help are options of its own");
}

static int run(const char* dir, const char* preload, char** program) {
  char folder[PATH_MAX];
  if (!prepare_folder(dir, folder) || !set_environment(folder, preload)) return EXIT_NOT_STARTED;
  execvp(program[0], program);
  complain("start", program[0], strerror(errno));
  return EXIT_NOT_STARTED;
}

int main(int argc, char** argv) {
  static const struct option options[] = {{"dir", required_argument, NULL, 'd'},
                                          {"preload", required_argument, NULL, 'p'},
                                          {"help", no_argument, NULL, 'h'},
                                          {0}};
  const char* dir = NULL;
  const char* preload = NULL;
  for (int option; (option = getopt_long(argc, argv, "+:", options, NULL)) != -1;) {
    if (option == 'h') return printf("%s%s", usage, help) < 0;
    if (option == ':')
      return refuse(optopt == 'd' ? "--dir needs a folder" : "--preload needs a file");
    if (option == '?') return refuse_option(argv[optind - 1]);
    *(option == 'd' ? &dir : &preload) = optarg;
  }
  if (!dir) return refuse("--dir is missing: which folder serves the flash?");
  if (optind == argc) return refuse("which program should run?");
  return run(dir, preload, argv + optind);
}
