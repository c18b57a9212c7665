// Shows how each function fails when it is made to, and that it fails once.
#include "qmibtree_testkit/calls.hh"

#include <errno.h>
#include <expat.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>

using namespace qmibtree_testkit;

namespace {

// Makes a good call of each function; whether it succeeded. What it opens it closes again.
struct Call {
  const char* name;
  int error;
  bool (*succeeds)();
};

FILE* const scratch = tmpfile();

const Call kCalls[] = {
    {"XML_ParserCreate", ENOMEM,
     [] {
       const XML_Parser parser = XML_ParserCreate(nullptr);
       if (parser) XML_ParserFree(parser);
       return parser != nullptr;
     }},
    {"fclose", EIO, [] { return fclose(tmpfile()) == 0; }},
    {"fflush", ENOSPC, [] { return fflush(scratch) == 0; }},
    {"fopen", EMFILE,
     [] {
       FILE* const file = fopen("/dev/null", "r");
       if (file) fclose(file);
       return file != nullptr;
     }},
    {"fork", EAGAIN,
     [] {
       const pid_t child = fork();
       if (child == 0) _exit(0);
       return child > 0 && waitpid(child, nullptr, 0) == child;
     }},
    {"fread", EIO,
     [] {
       char bytes[4];
       rewind(scratch);
       const size_t put = fwrite("1234", 1, 4, scratch);
       rewind(scratch);
       const size_t got = fread(bytes, 1, 4, scratch);
       EXPECT_TRUE(put == 4 && (got == 4 || got == 2)) << got;
       return got == 4;
     }},
    {"fseek", ESPIPE, [] { return fseek(scratch, 0, SEEK_SET) == 0; }},
    {"ftell", ESPIPE, [] { return ftell(scratch) >= 0; }},
    {"fwrite", ENOSPC,
     [] {
       const size_t put = fwrite("12345", 1, 5, scratch);
       EXPECT_TRUE(put == 5 || put == 2) << put;
       return put == 5;
     }},
    {"gmtime_r", EOVERFLOW,
     [] {
       const time_t start = 0;
       tm parts;
       return gmtime_r(&start, &parts) == &parts;
     }},
    {"ioctl", ENODEV,
     [] {
       int waiting = 0;
       int ends[2];
       EXPECT_EQ(pipe(ends), 0);
       const bool answered = ioctl(ends[0], FIONREAD, &waiting) == 0;
       close(ends[0]);
       close(ends[1]);
       return answered;
     }},
    {"open", EMFILE,
     [] {
       const int fd = open("/dev/null", O_RDONLY);
       if (fd >= 0) close(fd);
       return fd >= 0;
     }},
    {"pclose", ECHILD,
     [] {
       FILE* const command = popen("exit 0", "r");
       const bool ended = pclose(command) == 0;
       if (!ended) wait(nullptr);
       return ended;
     }},
    {"popen", EMFILE,
     [] {
       FILE* const command = popen("exit 0", "r");
       if (command) pclose(command);
       return command != nullptr;
     }},
    {"pthread_create", EAGAIN,
     [] {
       pthread_t thread;
       const int rc = pthread_create(
           &thread, nullptr, [](void* none) { return none; }, nullptr);
       if (rc == 0) pthread_join(thread, nullptr);
       EXPECT_TRUE(rc == 0 || rc == EAGAIN) << rc;
       return rc == 0;
     }},
    {"read", EIO,
     [] {
       char byte;
       const int fd = open("/dev/zero", O_RDONLY);
       const bool got = read(fd, &byte, 1) == 1;
       close(fd);
       return got;
     }},
    {"socket", EMFILE,
     [] {
       const int fd = socket(AF_INET, SOCK_DGRAM, 0);
       if (fd >= 0) close(fd);
       return fd >= 0;
     }},
    {"stat", EACCES,
     [] {
       struct stat status;
       return stat("/", &status) == 0;
     }},
    {"system", EAGAIN, [] { return system("exit 0") == 0; }},
};

class EachCall : public testing::TestWithParam<Call> {
 protected:
  ~EachCall() override { calls_work(); }

  const std::string name = GetParam().name;
};

TEST_P(EachCall, FailsOnce) {
  fail_call(name, 0);
  EXPECT_FALSE(GetParam().succeeds());
  EXPECT_TRUE(calls_work());
  EXPECT_TRUE(GetParam().succeeds());
}

TEST_P(EachCall, FailsAfterAsManyGoodOnesAsWereAskedFor) {
  fail_call(name, 1);
  EXPECT_TRUE(GetParam().succeeds());
  EXPECT_FALSE(GetParam().succeeds());
  EXPECT_TRUE(GetParam().succeeds());
}

TEST_P(EachCall, IsCountedWhetherItFailsOrNot) {
  const long made = calls_made(name), failed = calls_failed();
  fail_call(name, 1);
  for (int i = 0; i < 3; ++i) GetParam().succeeds();
  EXPECT_EQ(calls_made(name), made + 3);
  EXPECT_EQ(calls_failed(), failed + 1);
}

TEST_P(EachCall, IsUnharmedByAFailureThatIsTakenBack) {
  fail_call(name, 0);
  EXPECT_FALSE(calls_work());
  EXPECT_TRUE(GetParam().succeeds());
}

INSTANTIATE_TEST_SUITE_P(, EachCall, testing::ValuesIn(kCalls),
                         [](const auto& tested) { return tested.param.name; });

TEST(Calls, AreTriedAboveToTheLast) {
  std::vector<std::string> tried;
  for (const Call& call : kCalls) tried.emplace_back(call.name);
  std::vector<std::string> all = faultable_calls();
  EXPECT_EQ(tried, all);
}

TEST(Calls, AFailureLeavesItsErrorBehind) {
  fail_call("stat", 0);
  errno = 0;
  struct stat status;
  EXPECT_EQ(stat("/", &status), -1);
  EXPECT_EQ(errno, EACCES);
}

TEST(Calls, AStreamIsClosedThoughItsCloseFails) {
  FILE* const file = fopen("/dev/null", "r");
  const int fd = fileno(file);
  fail_call("fclose", 0);
  EXPECT_EQ(fclose(file), EOF);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_TRUE(calls_work());
}

TEST(Calls, ALaterFailureReplacesTheOneThatIsDue) {
  fail_call("socket", 0);
  fail_call("stat", 0);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_GE(fd, 0);
  close(fd);
  struct stat status;
  EXPECT_EQ(stat("/", &status), -1);
  EXPECT_TRUE(calls_work());
}

TEST(Calls, AFileThatIsMadeHasTheModeAskedFor) {
  const std::string path = testing::TempDir() + "/made" + std::to_string(getpid());
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  struct stat status;
  EXPECT_EQ(fstat(fd, &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  close(fd);
  unlink(path.c_str());
}

TEST(CallsDeathTest, AFunctionThatCannotFailIsNamed) {
  EXPECT_DEATH(fail_call("puts", 0), "calls of puts cannot be made to fail");
}

}  // namespace
