// What component actions do to processes.
#include <alloca.h>
#include <signal.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qmibtree.h"
#include "util/owned.hh"

namespace {

// The decimal number that a stream begins with, behind white space. Negative when there is none, it
// is negative, or it is more than a process id holds.
int32_t read_pid(std::FILE* stream) {
  int c = std::fgetc(stream);
  while (std::isspace(c)) c = std::fgetc(stream);
  const bool negative = c == '-';
  if (c == '+' || c == '-') c = std::fgetc(stream);
  if (!std::isdigit(c)) return -1;
  int64_t number = 0;
  for (; std::isdigit(c); c = std::fgetc(stream)) {
    number = number * 10 + (c - '0');
    if (number > INT32_MAX) return -1;
  }
  return static_cast<int32_t>(negative ? -number : number);
}

// The number of arguments up to the null one, that one included.
size_t count_arguments(va_list args) {
  size_t count = 1;
  while (va_arg(args, const char*)) ++count;
  return count;
}

}  // namespace

void qmibtree_comp_kill_pid(uint32_t id, int32_t pid) {
  (void)id;
  // Deliberate: 0 goes through and signals the caller's own process group, the way hosts end a
  // component with all it started. Kept by process_test.cc.
  if (pid >= 0) (void)kill(pid, SIGKILL);
}

void qmibtree_comp_kill_pidfile(uint32_t id, const char* path) {
  qmib::file stream(std::fopen(path, "r"));
  if (!stream) return;
  const int32_t pid = read_pid(stream.get());
  stream.reset();
  qmibtree_comp_kill_pid(id, pid);
}

int qmibtree_comp_system(uint32_t id, const char* format, ...) {
  (void)id;
  char command[512];
  va_list args;
  va_start(args, format);
  (void)std::vsnprintf(command, sizeof command, format, args);
  va_end(args);
  return std::system(command);
}

int32_t qmibtree_comp_fork_and_execl(uint32_t id, const char* path, const char* arg, ...) {
  (void)id;
  const pid_t child = fork();
  if (child != 0) return child;

  va_list args;
  va_start(args, arg);
  va_list counted;
  va_copy(counted, args);
  const size_t count = count_arguments(counted);
  va_end(counted);

  // On the stack: between fork and execve the child must not allocate.
  // cppcheck-suppress allocaCalled
  auto* const vector = static_cast<char**>(alloca((count + 2) * sizeof(char*)));
  vector[0] = const_cast<char*>(path);
  vector[1] = const_cast<char*>(arg);
  for (size_t i = 0; i < count; ++i) vector[i + 2] = va_arg(args, char*);
  va_end(args);
  (void)execve(path, vector, environ);
  // Deliberate: a program that cannot be run ends like one that did its work, exit handlers and
  // all. Hosts that watch their children restart on any end alike. Kept by process_test.cc.
  std::exit(0);
}

int run_pipeResult(char* result, uint32_t length, const char* command) {
  std::FILE* const pipe = popen(command, "r");
  if (!pipe) return -1;
  char line[256] = "";
  (void)!std::fgets(line, 255, pipe);
  (void)pclose(pipe);
  // As strncpy does: cut without a NUL when the line is too long, filled up with NULs when not.
  const size_t used = strnlen(line, length);
  std::memcpy(result, line, used);
  std::memset(result + used, 0, length - used);
  if (used > 0 && result[used - 1] == '\n') result[used - 1] = '\0';
  return 0;
}
