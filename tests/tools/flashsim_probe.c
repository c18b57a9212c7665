/* Does what its arguments say, one operation after the other, and prints what came of each. It
 * knows nothing of flashsim: any program that works on files. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

enum { MAX_BYTES = 1 << 17 };

static FILE* stream;
static int fd = -1;
static char bytes[MAX_BYTES];

/* --- printing --- */

static void show_number(const char* name, long number) {
  printf("%s=%ld", name, number);
  if (number < 0) printf(" (%s)", strerror(errno));
  putchar('\n');
}

/* What was read, in hexadecimal, a run of equal bytes as "ff*20". */
static void show_bytes(const char* name, long count) {
  printf("%s=%ld", name, count);
  for (long i = 0, run; i < count; i += run) {
    for (run = 1; i + run < count && bytes[i + run] == bytes[i];) ++run;
    printf(" %02x*%ld", (unsigned char)bytes[i], run);
  }
  putchar('\n');
}

static long number(const char* text) { return strtol(text, NULL, 10); }

static size_t fill(const char* with, const char* count) {
  const long size = number(count);
  if (size < 0 || size > MAX_BYTES) exit(100);
  memset(bytes, with[0], (size_t)size);
  return (size_t)size;
}

/* --- streams --- */

static void do_fopen(char** argument) {
  stream = fopen(argument[0], argument[1]);
  show_number("fopen", stream ? 0 : -1);
  if (!stream) exit(1);
}

static void do_fdopen(char** argument) {
  stream = fdopen(fd, argument[0]);
  show_number("fdopen", stream ? 0 : -1);
}

static void do_freopen(char** argument) {
  stream = freopen(argument[0], argument[1], stream);
  show_number("freopen", stream ? 0 : -1);
}

static void do_fseek(char** argument) {
  show_number("fseek", fseek(stream, number(argument[0]), SEEK_SET));
}

static void do_fseek_end(char** argument) {
  (void)argument;
  show_number("fseek_end", fseek(stream, 0, SEEK_END));
}

static void do_ftell(char** argument) {
  (void)argument;
  show_number("ftell", ftell(stream));
}

static void do_fwrite(char** argument) {
  const size_t size = fill(argument[0], argument[1]);
  show_number("fwrite", (long)fwrite(bytes, 1, size, stream));
}

static void do_fread(char** argument) {
  show_bytes("fread", (long)fread(bytes, 1, fill("", argument[0]), stream));
}

static void do_ferror(char** argument) {
  (void)argument;
  show_number("ferror", ferror(stream) != 0);
}

static void do_fileno(char** argument) {
  (void)argument;
  show_number("fileno", fileno(stream) >= 0 ? 0 : -1);
}

static void do_fclose(char** argument) {
  (void)argument;
  show_number("fclose", fclose(stream));
}

/* --- descriptors --- */

static int flag_of(char letter) {
  static const struct {
    char letter;
    int flag;
  } flags[] = {{'r', O_RDONLY}, {'w', O_WRONLY}, {'+', O_RDWR},
               {'c', O_CREAT},  {'t', O_TRUNC},  {'a', O_APPEND}};
  for (size_t i = 0; i < sizeof flags / sizeof flags[0]; ++i) {
    if (flags[i].letter == letter) return flags[i].flag;
  }
  exit(100);
}

static void do_open(char** argument) {
  int flags = 0;
  for (const char* letter = argument[1]; *letter; ++letter) flags |= flag_of(*letter);
  fd = open(argument[0], flags, 0666);
  show_number("open", fd < 0 ? -1 : 0);
  if (fd < 0) exit(1);
}

static void do_dup(char** argument) {
  (void)argument;
  const int twin = dup(fd);
  show_number("dup", twin < 0 ? -1 : 0);
  close(fd);
  fd = twin;
}

/* The number that the next open descriptor gets. */
static void do_free_fd(char** argument) {
  (void)argument;
  const int next = dup(STDIN_FILENO);
  show_number("free_fd", next);
  close(next);
}

static void do_lseek(char** argument) {
  show_number("lseek", (long)lseek(fd, number(argument[0]), SEEK_SET));
}

static void do_lseek_end(char** argument) {
  (void)argument;
  show_number("lseek_end", (long)lseek(fd, 0, SEEK_END));
}

static void do_write(char** argument) {
  const size_t size = fill(argument[0], argument[1]);
  show_number("write", (long)write(fd, bytes, size));
}

static void do_pwrite(char** argument) {
  const size_t size = fill(argument[0], argument[1]);
  show_number("pwrite", (long)pwrite(fd, bytes, size, number(argument[2])));
}

/* Two equal halves. */
static void do_writev(char** argument) {
  const size_t half = fill(argument[0], argument[1]) / 2;
  const struct iovec parts[] = {{bytes, half}, {bytes, half}};
  show_number("writev", (long)writev(fd, parts, 2));
}

static void do_read(char** argument) {
  show_bytes("read", (long)read(fd, bytes, fill("", argument[0])));
}

static void do_ftruncate(char** argument) {
  show_number("ftruncate", ftruncate(fd, number(argument[0])));
}

static void do_close(char** argument) {
  (void)argument;
  show_number("close", close(fd));
}

/* --- paths and commands --- */

static void do_stat(char** argument) {
  struct stat status;
  const int result = stat(argument[0], &status);
  show_number("stat", result < 0 ? result : (long)status.st_size);
}

static void do_access(char** argument) { show_number("access", access(argument[0], F_OK)); }

static void do_unlink(char** argument) { show_number("unlink", unlink(argument[0])); }

static void do_rename(char** argument) { show_number("rename", rename(argument[0], argument[1])); }

static void do_truncate(char** argument) {
  show_number("truncate", truncate(argument[0], number(argument[1])));
}

static void do_system(char** argument) {
  fflush(stdout);
  const int status = system(argument[0]);
  show_number("system", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

static void do_exit(char** argument) { exit((int)number(argument[0])); }

static const struct operation {
  const char* name;
  int arguments;
  void (*run)(char** argument);
} operations[] = {
    {"fopen", 2, do_fopen},
    {"fdopen", 1, do_fdopen},
    {"freopen", 2, do_freopen},
    {"fseek", 1, do_fseek},
    {"fseek_end", 0, do_fseek_end},
    {"ftell", 0, do_ftell},
    {"fwrite", 2, do_fwrite},
    {"fread", 1, do_fread},
    {"ferror", 0, do_ferror},
    {"fileno", 0, do_fileno},
    {"fclose", 0, do_fclose},
    {"open", 2, do_open},
    {"dup", 0, do_dup},
    {"free_fd", 0, do_free_fd},
    {"lseek", 1, do_lseek},
    {"lseek_end", 0, do_lseek_end},
    {"write", 2, do_write},
    {"pwrite", 3, do_pwrite},
    {"writev", 2, do_writev},
    {"read", 1, do_read},
    {"ftruncate", 1, do_ftruncate},
    {"close", 0, do_close},
    {"stat", 1, do_stat},
    {"access", 1, do_access},
    {"unlink", 1, do_unlink},
    {"rename", 2, do_rename},
    {"truncate", 2, do_truncate},
    {"system", 1, do_system},
    {"exit", 1, do_exit},
};

static const struct operation* find_operation(const char* name, int arguments) {
  for (size_t i = 0; i < sizeof operations / sizeof operations[0]; ++i) {
    if (strcmp(operations[i].name, name) == 0 && operations[i].arguments <= arguments)
      return &operations[i];
  }
  return NULL;
}

int main(int argc, char** argv) {
  for (int i = 1; i < argc;) {
    const struct operation* const operation = find_operation(argv[i], argc - i - 1);
    if (!operation) {
      fprintf(stderr, "flashsim_probe: cannot do '%s'\n", argv[i]);
      return 100;
    }
    operation->run(argv + i + 1);
    i += 1 + operation->arguments;
  }
  return 0;
}
