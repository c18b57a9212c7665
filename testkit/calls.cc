#include "qmibtree_testkit/calls.hh"

#include <expat.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace qmibtree_testkit {
namespace {

// One function: how often it was called, and what its failure leaves in errno.
struct faultable {
  const char* name;
  int error;
  std::atomic<long> made{0};
};

#define FAULTABLE(name, error) constinit faultable name##_calls = {#name, error}
FAULTABLE(XML_ParserCreate, ENOMEM);
FAULTABLE(fclose, EIO);
FAULTABLE(fflush, ENOSPC);
FAULTABLE(fopen, EMFILE);
FAULTABLE(fork, EAGAIN);
FAULTABLE(fread, EIO);
FAULTABLE(fseek, ESPIPE);
FAULTABLE(ftell, ESPIPE);
FAULTABLE(fwrite, ENOSPC);
FAULTABLE(gmtime_r, EOVERFLOW);
FAULTABLE(ioctl, ENODEV);
FAULTABLE(open, EMFILE);
FAULTABLE(pclose, ECHILD);
FAULTABLE(popen, EMFILE);
FAULTABLE(pthread_create, EAGAIN);
FAULTABLE(read, EIO);
FAULTABLE(socket, EMFILE);
FAULTABLE(stat, EACCES);
FAULTABLE(system, EAGAIN);
#undef FAULTABLE

faultable* const kFaultables[] = {&XML_ParserCreate_calls,
                                  &fclose_calls,
                                  &fflush_calls,
                                  &fopen_calls,
                                  &fork_calls,
                                  &fread_calls,
                                  &fseek_calls,
                                  &ftell_calls,
                                  &fwrite_calls,
                                  &gmtime_r_calls,
                                  &ioctl_calls,
                                  &open_calls,
                                  &pclose_calls,
                                  &popen_calls,
                                  &pthread_create_calls,
                                  &read_calls,
                                  &socket_calls,
                                  &stat_calls,
                                  &system_calls};

// The failure that is due. The library's threads call as they like, so all of it is atomic.
struct {
  std::atomic<faultable*> which{nullptr};
  std::atomic<int> until{0};
  std::atomic<bool> struck{false};
} fault;

std::atomic<long> failed{0};

bool strikes(faultable& called) {
  ++called.made;
  if (fault.which != &called) return false;
  if (fault.until-- > 0) return false;
  faultable* due = &called;
  if (!fault.which.compare_exchange_strong(due, nullptr)) return false;  // another thread's call
  fault.struck = true;
  ++failed;
  errno = called.error;
  return true;
}

faultable& faultable_of(const std::string& name) {
  const auto found = std::find_if(std::begin(kFaultables), std::end(kFaultables),
                                  [&](const faultable* call) { return call->name == name; });
  if (found != std::end(kFaultables)) return **found;
  std::fprintf(stderr, "qmibtree_testkit: calls of %s cannot be made to fail\n", name.c_str());
  std::abort();
}

}  // namespace

const std::vector<std::string>& faultable_calls() {
  static const auto* const names = [] {
    auto* const all = new std::vector<std::string>;
    for (const faultable* call : kFaultables) all->emplace_back(call->name);
    return all;
  }();
  return *names;
}

void fail_call(const std::string& name, int n) {
  calls_work();
  fault.until = n;
  fault.which = &faultable_of(name);
}

bool calls_work() {
  fault.which = nullptr;
  return fault.struck.exchange(false);
}

long calls_failed() { return failed; }

long calls_made(const std::string& name) { return faultable_of(name).made; }

extern "C" {

// A function whose failure does nothing but answer so.
#define WRAPPED(result, name, parameters, arguments, failure) \
  result __real_##name parameters;                            \
  result __wrap_##name parameters;                            \
  result __wrap_##name parameters {                           \
    if (strikes(name##_calls)) return failure;                \
    return __real_##name arguments;                           \
  }

WRAPPED(XML_Parser, XML_ParserCreate, (const XML_Char* encoding), (encoding), nullptr)
WRAPPED(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr)
WRAPPED(FILE*, popen, (const char* command, const char* mode), (command, mode), nullptr)
WRAPPED(int, fflush, (FILE * stream), (stream), EOF)
WRAPPED(int, fseek, (FILE * stream, long offset, int whence), (stream, offset, whence), -1)
WRAPPED(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
WRAPPED(int, stat, (const char* path, struct stat* status), (path, status), -1)
WRAPPED(int, system, (const char* command), (command), -1)
WRAPPED(long, ftell, (FILE * stream), (stream), -1)
WRAPPED(pid_t, fork, (), (), -1)
WRAPPED(ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size), -1)
WRAPPED(tm*, gmtime_r, (const time_t* seconds, tm* parts), (seconds, parts), nullptr)
WRAPPED(int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
        (thread, attributes, run, argument), EAGAIN)
#undef WRAPPED

// One that closes its stream all the same.
#define CLOSING(name, failure)                \
  int __real_##name(FILE* stream);            \
  int __wrap_##name(FILE* stream);            \
  int __wrap_##name(FILE* stream) {           \
    const bool fails = strikes(name##_calls); \
    const int result = __real_##name(stream); \
    if (fails) errno = name##_calls.error;    \
    return fails ? failure : result;          \
  }

CLOSING(fclose, EOF)
CLOSING(pclose, -1)
#undef CLOSING

size_t __real_fread(void* items, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* items, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* items, size_t size, size_t count, FILE* stream) {
  return __real_fread(items, size, strikes(fread_calls) ? count / 2 : count, stream);
}

#ifdef __GLIBC__
// What the GNU C library's headers make of an fread into an array, where the library is hardened.
size_t __real___fread_chk(void* items, size_t room, size_t size, size_t count, FILE* stream);
size_t __wrap___fread_chk(void* items, size_t room, size_t size, size_t count, FILE* stream);
size_t __wrap___fread_chk(void* items, size_t room, size_t size, size_t count, FILE* stream) {
  return __real___fread_chk(items, room, size, strikes(fread_calls) ? count / 2 : count, stream);
}
#endif

size_t __real_fwrite(const void* items, size_t size, size_t count, FILE* stream);
size_t __wrap_fwrite(const void* items, size_t size, size_t count, FILE* stream);
size_t __wrap_fwrite(const void* items, size_t size, size_t count, FILE* stream) {
  return __real_fwrite(items, size, strikes(fwrite_calls) ? count / 2 : count, stream);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, void* argument);
int __wrap_ioctl(int fd, unsigned long request, void* argument) {
  return strikes(ioctl_calls) ? -1 : __real_ioctl(fd, request, argument);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  if (strikes(open_calls)) return -1;
  va_list rest;
  va_start(rest, flags);
  const int mode = flags & O_CREAT ? va_arg(rest, int) : 0;
  va_end(rest);
  return __real_open(path, flags, mode);
}

}  // extern "C"

}  // namespace qmibtree_testkit
