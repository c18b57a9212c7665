// Shows the process helpers on real children: signals, pid files, shell commands, executed programs
// and pipes. kill passes through this program, which can hold it back: some of the calls under
// test would end more than a test may.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

struct Kill {
  pid_t pid;
  int signal;
  bool operator==(const Kill&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Kill& kill) {
  return out << "kill(" << kill.pid << ", " << kill.signal << ')';
}
using Kills = std::vector<Kill>;
Kills kills;
bool kills_are_held_back;
int free_descriptor_at_kill;  // the lowest one when the last signal was sent

int lowest_free_descriptor() {
  const int free = dup(STDERR_FILENO);
  close(free);
  return free;
}

// Calls `act` and gives the signals it would have sent, none of which is.
Kills kills_of(const std::function<void()>& act) {
  kills.clear();
  kills_are_held_back = true;
  act();
  kills_are_held_back = false;
  return kills;
}

}  // namespace

extern "C" int kill(pid_t pid, int signal) {
  kills.push_back({pid, signal});
  free_descriptor_at_kill = lowest_free_descriptor();
  if (!kills_are_held_back && pid != -1) return static_cast<int>(syscall(SYS_kill, pid, signal));
  errno = ESRCH;
  return -1;
}

namespace {

constexpr uint32_t kId = 7;
constexpr pid_t kSomePid = 4711;  // appears in pid files alone

constexpr auto kPatience = std::chrono::minutes(1);

void end_process(pid_t process) { syscall(SYS_kill, process, SIGKILL); }

// The wait status of a child; -1 when it has to be ended since it does not end by itself.
int status_of(pid_t child) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  int status = -1;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      end_process(child);
      waitpid(child, nullptr, 0);
      return -1;
    }
    usleep(1000);
  }
  return status;
}

bool is_killed(pid_t child) {
  const int status = status_of(child);
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

bool is_running(pid_t child) { return waitpid(child, nullptr, WNOHANG) == 0; }

// A pipe. `text` reads all there is until nobody is left to write.
struct Pipe {
  Pipe() {
    if (pipe(ends) != 0) std::abort();
  }
  ~Pipe() {
    close(ends[0]);
    close_write();
  }
  void close_write() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }
  void put(const std::string& text) {
    if (write(ends[1], text.data(), text.size()) < 0) std::abort();
  }
  // Whether the last process that could write ends.
  bool is_left() {
    close_write();
    pollfd end = {ends[0], 0, 0};
    return poll(&end, 1, std::chrono::milliseconds(kPatience).count()) == 1;
  }
  std::string text() {
    close_write();
    std::string read_text;
    char byte;
    while (read(ends[0], &byte, 1) == 1) read_text += byte;
    return read_text;
  }
  int ends[2];
};

// A child that runs `act` and ends with its result, without exit handlers.
pid_t start_child(const std::function<int()>& act) {
  const pid_t child = fork();
  if (child == 0) _exit(act());
  return child;
}

// A child that lives until it is killed. SIGTERM does not end it.
pid_t start_sleeper() {
  return start_child([] {
    std::signal(SIGTERM, SIG_IGN);
    for (;;) pause();
    return 0;
  });
}

void end_sleeper(pid_t child) {
  end_process(child);
  waitpid(child, nullptr, 0);
}

// Each test has an empty folder of its own, and leaves no child and no descriptor behind.
class Process : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string path = testing::TempDir() + "process_XXXXXX";
    ASSERT_NE(mkdtemp(path.data()), nullptr);
    folder = path;
  }
  void TearDown() override {
    std::filesystem::remove_all(folder);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(lowest_free_descriptor(), descriptor);
    EXPECT_EQ(live_blocks(), blocks);
  }

  std::string path(const char* name) const { return folder + "/" + name; }
  std::string write_file(const std::string& text) const {
    std::ofstream(path("file"), std::ios::binary) << text;
    return path("file");
  }
  std::string read_file(const char* name) const {
    if (!std::filesystem::exists(path(name))) return "(missing)";
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::string folder;
  const int descriptor = lowest_free_descriptor();
  const int blocks = live_blocks();
};

// --- kill by pid ---

using KillPid = Process;

TEST_F(KillPid, KillsTheProcess) {
  const pid_t child = start_sleeper();
  qmibtree_comp_kill_pid(kId, child);
  EXPECT_TRUE(is_killed(child));
}

TEST_F(KillPid, SendsOneSignalThatNobodyCanRefuse) {
  EXPECT_EQ(kills_of([] { qmibtree_comp_kill_pid(kId, kSomePid); }), (Kills{{kSomePid, 9}}));
}

TEST_F(KillPid, IgnoresTheComponent) {
  for (const uint32_t id : {0u, 31u, 32u, UINT32_MAX})
    EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pid(id, kSomePid); }), (Kills{{kSomePid, 9}}));
}

TEST_F(KillPid, NegativePidSendsNothing) {
  for (const int32_t pid : {-1, -2, -kSomePid, INT32_MIN})
    EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pid(kId, pid); }), Kills{});
}

TEST_F(KillPid, NegativePidLeavesTheGroupOfThatNumberAlive) {
  const pid_t child = start_sleeper();
  ASSERT_EQ(setpgid(child, child), 0);
  qmibtree_comp_kill_pid(kId, -child);
  EXPECT_TRUE(is_running(child));
  end_sleeper(child);
}

// Deliberate: 0 is passed on, and stands for the caller's process group.
TEST_F(KillPid, ZeroKillsTheWholeProcessGroup) {
  Pipe held;
  const pid_t leader = start_child([] {
    setpgid(0, 0);
    start_sleeper();  // holds the pipe open for as long as it lives
    qmibtree_comp_kill_pid(kId, 0);
    return 0;
  });
  EXPECT_TRUE(is_killed(leader));
  EXPECT_TRUE(held.is_left());
  end_process(-leader);
}

TEST_F(KillPid, ZeroLeavesOtherGroupsAlive) {
  const pid_t outsider = start_sleeper();
  const pid_t leader = start_child([] {
    setpgid(0, 0);
    qmibtree_comp_kill_pid(kId, 0);
    return 0;
  });
  EXPECT_TRUE(is_killed(leader));
  EXPECT_TRUE(is_running(outsider));
  end_sleeper(outsider);
}

// --- kill by pid file ---

using KillPidfile = Process;

TEST_F(KillPidfile, KillsTheProcess) {
  const pid_t child = start_sleeper();
  const std::string file = write_file(std::to_string(child) + "\n");
  qmibtree_comp_kill_pidfile(kId, file.c_str());
  EXPECT_TRUE(is_killed(child));
}

TEST_F(KillPidfile, LeavesTheFileAsItIs) {
  const std::string file = write_file("4711\n");
  kills_of([&] { qmibtree_comp_kill_pidfile(kId, file.c_str()); });
  EXPECT_EQ(read_file("file"), "4711\n");
}

TEST_F(KillPidfile, IgnoresTheComponent) {
  const std::string file = write_file("4711");
  for (const uint32_t id : {0u, 32u, UINT32_MAX})
    EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pidfile(id, file.c_str()); }),
              (Kills{{kSomePid, 9}}));
}

TEST_F(KillPidfile, SendsNothingWithoutAFile) {
  EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pidfile(kId, path("none").c_str()); }), Kills{});
}

TEST_F(KillPidfile, SendsNothingForAFolder) {
  EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pidfile(kId, folder.c_str()); }), Kills{});
}

TEST_F(KillPidfile, ClosesTheFileBeforeTheSignal) {
  const std::string file = write_file("4711");
  kills_of([&] { qmibtree_comp_kill_pidfile(kId, file.c_str()); });
  EXPECT_EQ(free_descriptor_at_kill, descriptor);
}

struct PidText {
  const char* name;
  std::string text;
  Kills kills;
};

std::ostream& operator<<(std::ostream& out, const PidText& pid) { return out << pid.name; }

class KillPidfileText : public KillPidfile, public ::testing::WithParamInterface<PidText> {};

TEST_P(KillPidfileText, IsReadAsOneDecimalNumber) {
  const std::string file = write_file(GetParam().text);
  EXPECT_EQ(kills_of([&] { qmibtree_comp_kill_pidfile(kId, file.c_str()); }), GetParam().kills);
}

TEST_P(KillPidfileText, IsClosedAgain) {
  const std::string file = write_file(GetParam().text);
  kills_of([&] { qmibtree_comp_kill_pidfile(kId, file.c_str()); });
  EXPECT_EQ(lowest_free_descriptor(), descriptor);
}

const Kills kSome = {{kSomePid, 9}};
INSTANTIATE_TEST_SUITE_P(
    All, KillPidfileText,
    testing::Values(PidText{"Number", "4711", kSome}, PidText{"Line", "4711\n", kSome},
                    PidText{"WhiteSpaceBefore", " \t\r\n\v\f4711", kSome},
                    PidText{"LeadingZeros", "004711", kSome},
                    PidText{"ManyLeadingZeros", std::string(600, '0') + "4711", kSome},
                    PidText{"MuchWhiteSpace", std::string(5000, ' ') + "4711", kSome},
                    PidText{"Largest", "2147483647", {{INT32_MAX, 9}}},
                    PidText{"TooLarge", "2147483648", {}},
                    PidText{"FarTooLarge", std::string(40, '9'), {}},
                    PidText{"FarTooSmall", "-" + std::string(40, '9'), {}},
                    PidText{"PlusSign", "+4711", kSome}, PidText{"LettersBehind", "4711abc", kSome},
                    PidText{"SecondNumber", "4711 4712\n4713\n", kSome},
                    PidText{"Fraction", "4711.9", kSome}, PidText{"Zero", "0", {{0, 9}}},
                    PidText{"Hexadecimal", "0x1267", {{0, 9}}}, PidText{"Negative", "-4711", {}},
                    PidText{"NegativeZero", "-0", {{0, 9}}}, PidText{"Empty", "", {}},
                    PidText{"WhiteSpace", " \n", {}}, PidText{"Letters", "abc\n", {}},
                    PidText{"LettersBefore", "pid 4711", {}}, PidText{"SignAlone", "-\n4711", {}},
                    PidText{"BothSigns", "+-4711", {}}, PidText{"Nul", std::string(1, '\0'), {}}),
    [](const auto& info) { return info.param.name; });

// --- shell command ---

using System = Process;

TEST_F(System, RunsTheFormattedCommand) {
  testing::internal::CaptureStdout();
  const int status = qmibtree_comp_system(kId, "echo %s %d%%; echo %c", "eth0", -5, 'z');
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "eth0 -5%\nz\n");
  EXPECT_EQ(status, 0);
}

TEST_F(System, FormatsOnce) {
  testing::internal::CaptureStdout();
  qmibtree_comp_system(kId, "echo %s", "%d%%");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "%d%%\n");
}

TEST_F(System, AnswersWhatThePlatformAnswers) {
  for (const char* command : {"exit 0", "exit 3", "kill -9 $$", ""})
    EXPECT_EQ(qmibtree_comp_system(kId, "%s", command), std::system(command)) << command;
}

TEST_F(System, AnswersAnExitStatusAsAWaitStatus) {
  const int status = qmibtree_comp_system(kId, "exit 3");
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(System, IgnoresTheComponent) {
  for (const uint32_t id : {0u, 32u, UINT32_MAX})
    EXPECT_EQ(WEXITSTATUS(qmibtree_comp_system(id, "exit 4")), 4);
}

class SystemLength : public System, public ::testing::WithParamInterface<size_t> {};

TEST_P(SystemLength, IsCutTo511Characters) {
  const std::string command = "printf ";
  const std::string text(GetParam() - command.size(), 'x');
  testing::internal::CaptureStdout();
  EXPECT_EQ(qmibtree_comp_system(kId, "%s%s", command.c_str(), text.c_str()), 0);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(command.size() + printed.size(), std::min<size_t>(GetParam(), 511));
}

INSTANTIATE_TEST_SUITE_P(All, SystemLength, testing::Values(510, 511, 512, 513, 2000));

TEST_F(System, CutDropsTheEndOfTheCommand) {
  const std::string command = "exit 12" + std::string(503, ' ') + "3";  // 511 characters
  EXPECT_EQ(WEXITSTATUS(qmibtree_comp_system(kId, "%s;exit 1", command.c_str())), 12);
}

// --- fork and execute ---

constexpr char kShell[] = "/bin/sh";
// Where a shell that runs it was started with which arguments, one NUL behind each.
constexpr char kPrintArguments[] = "cat /proc/$$/cmdline >\"$OUT\"; exit 5";

template <typename... Rest>
int32_t execute(const char* path, const char* first, Rest... rest) {
  return qmibtree_comp_fork_and_execl(kId, path, first, rest..., static_cast<char*>(nullptr));
}

std::string with_nuls(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += text + '\0';
  return joined;
}

class ForkAndExecl : public Process {
 protected:
  void SetUp() override {
    Process::SetUp();
    setenv("OUT", path("out").c_str(), 1);
  }
  void TearDown() override {
    unsetenv("OUT");
    Process::TearDown();
  }

  // What `act` answers while standard input is the end of a pipe.
  static int32_t with_input(const Pipe& input, const std::function<int32_t()>& act) {
    const int saved = dup(STDIN_FILENO);
    dup2(input.ends[0], STDIN_FILENO);
    const int32_t answer = act();
    dup2(saved, STDIN_FILENO);
    close(saved);
    return answer;
  }
  // The same while standard input holds `text`.
  static int32_t with_input(const std::string& text, const std::function<int32_t()>& act) {
    Pipe input;
    input.put(text);
    input.close_write();
    return with_input(input, act);
  }
};

TEST_F(ForkAndExecl, PathIsArgumentZeroAndTheListFollows) {
  const std::string program = path("sh");
  ASSERT_EQ(symlink(kShell, program.c_str()), 0);
  const int32_t child = execute(program.c_str(), "-c", kPrintArguments, "a", "b");
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({program, "-c", kPrintArguments, "a", "b"}));
}

TEST_F(ForkAndExecl, OneArgumentIsEnough) {
  const int32_t child = with_input(kPrintArguments, [] { return execute(kShell, "-s"); });
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({kShell, "-s"}));
}

TEST_F(ForkAndExecl, NullFirstArgumentLeavesThePathAlone) {
  const int32_t child = with_input(kPrintArguments, [] { return execute(kShell, nullptr); });
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({kShell}));
}

TEST_F(ForkAndExecl, NullFirstArgumentHidesTheArgumentsBehindIt) {
  const int32_t child =
      with_input(kPrintArguments, [] { return execute(kShell, nullptr, "-c", "exit 6"); });
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({kShell}));
}

TEST_F(ForkAndExecl, EmptyArgumentsArePassed) {
  const int32_t child = execute(kShell, "-c", kPrintArguments, "", "", "b", "");
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({kShell, "-c", kPrintArguments, "", "", "b", ""}));
}

TEST_F(ForkAndExecl, ArgumentsAreNotFormats) {
  const int32_t child = execute(kShell, "-c", kPrintArguments, "%s%n", "100%");
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({kShell, "-c", kPrintArguments, "%s%n", "100%"}));
}

TEST_F(ForkAndExecl, LongArgumentsArePassedWhole) {
  for (const size_t length : {509, 510, 511, 512, 513, 5000}) {
    const std::string text(length, 'x');
    const int32_t child =
        execute(kShell, "-c", kPrintArguments, text.c_str(), "b", text.c_str(), "d");
    EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
    EXPECT_EQ(read_file("out"), with_nuls({kShell, "-c", kPrintArguments, text, "b", text, "d"}));
  }
}

template <size_t... kIndex>
int32_t execute_with_all(const std::vector<std::string>& texts, std::index_sequence<kIndex...>) {
  return execute(kShell, "-c", kPrintArguments, texts[kIndex].c_str()...);
}

TEST_F(ForkAndExecl, ManyArgumentsArePassedWhole) {
  constexpr size_t kCount = 700;
  std::vector<std::string> expected = {kShell, "-c", kPrintArguments};
  std::vector<std::string> texts;
  for (size_t i = 0; i < kCount; ++i) texts.push_back(std::to_string(i));
  expected.insert(expected.end(), texts.begin(), texts.end());
  const int32_t child = execute_with_all(texts, std::make_index_sequence<kCount>());
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls(expected));
}

TEST_F(ForkAndExecl, EnvironmentIsTheCurrentOne) {
  setenv("PROCESS_TEST", "as it is now", 1);
  const int32_t child = execute(kShell, "-c", "printf %s \"$PROCESS_TEST\" >\"$OUT\"");
  unsetenv("PROCESS_TEST");
  EXPECT_EQ(status_of(child), 0);
  EXPECT_EQ(read_file("out"), "as it is now");
}

TEST_F(ForkAndExecl, IgnoresTheComponent) {
  for (const uint32_t id : {0u, 32u, UINT32_MAX}) {
    const int32_t child =
        qmibtree_comp_fork_and_execl(id, kShell, "-c", "exit 4", static_cast<char*>(nullptr));
    EXPECT_EQ(WEXITSTATUS(status_of(child)), 4);
  }
}

TEST_F(ForkAndExecl, DoesNotWaitForTheProgram) {
  Pipe input;
  const int32_t child =
      with_input(input, [] { return execute(kShell, "-c", "read line; exit \"$line\""); });
  EXPECT_TRUE(is_running(child));
  input.put("8\n");  // it cannot end before this
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 8);
}

TEST_F(ForkAndExecl, LeavesTheChildForTheCallerToReap) {
  const int32_t child = execute(kShell, "-c", "exit 0");
  ASSERT_GT(child, 0);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// Changes the working folder for as long as it lives.
class WorkingFolder {
 public:
  explicit WorkingFolder(const std::string& folder) { std::filesystem::current_path(folder); }
  ~WorkingFolder() { std::filesystem::current_path(before_); }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_F(ForkAndExecl, DoesNotSearchThePath) {
  const WorkingFolder working_folder(folder);
  const int32_t child = execute("sh", "-c", "exit 5");
  EXPECT_EQ(status_of(child), 0);
}

TEST_F(ForkAndExecl, RelativePathStartsAtTheWorkingFolder) {
  ASSERT_EQ(symlink(kShell, path("sh").c_str()), 0);
  const WorkingFolder working_folder(folder);
  const int32_t child = execute("sh", "-c", kPrintArguments);
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
  EXPECT_EQ(read_file("out"), with_nuls({"sh", "-c", kPrintArguments}));
}

// Deliberate: a program that cannot be executed looks like one that succeeded.
TEST_F(ForkAndExecl, ProgramThatCannotBeExecutedEndsWithStatusZero) {
  const std::string not_executable = write_file("exit 5\n");
  for (const std::string& program : {path("none"), not_executable, folder, std::string()}) {
    const int32_t child = execute(program.c_str(), "a");
    EXPECT_GT(child, 0);
    EXPECT_EQ(status_of(child), 0) << program;
  }
}

// Deliberate: that child ends by exit, so what is left to do at an exit is done in it too.
TEST_F(ForkAndExecl, ProgramThatCannotBeExecutedRunsExitHandlers) {
  static int report_end;
  Pipe report;
  report_end = report.ends[1];
  const pid_t caller = start_child([&] {
    std::atexit([] { EXPECT_EQ(write(report_end, "handler", 7), 7); });
    const int32_t child = execute(path("none").c_str(), "a");
    return status_of(child) == 0 ? 0 : 1;
  });
  EXPECT_EQ(report.text(), "handler");
  EXPECT_EQ(status_of(caller), 0);
}

TEST_F(ForkAndExecl, ProgramThatCannotBeExecutedFlushesStreams) {
  const pid_t caller = start_child([&] {
    FILE* const stream = std::fopen(path("stream").c_str(), "w");
    if (!stream || std::fputs("pending", stream) < 0) return 1;
    const int32_t child = execute(path("none").c_str(), "a");
    return status_of(child) == 0 ? 0 : 2;
  });
  EXPECT_EQ(status_of(caller), 0);
  EXPECT_EQ(read_file("stream"), "pending");
}

TEST_F(ForkAndExecl, AnswersTheFailureOfFork) {
  constexpr int kCannotMakeForkFail = 77;
  const pid_t caller = start_child([] {
    constexpr uid_t kNobody = 65534;  // the limit does not hold for the superuser
    if (geteuid() == 0 && setuid(kNobody) != 0) return kCannotMakeForkFail;
    const rlimit none = {0, 0};
    if (setrlimit(RLIMIT_NPROC, &none) != 0) return kCannotMakeForkFail;
    const pid_t probe = fork();
    if (probe == 0) _exit(0);
    if (probe > 0) return kCannotMakeForkFail;
    return execute(kShell, "-c", "exit 5") == -1 ? 0 : 1;
  });
  const int status = status_of(caller);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotMakeForkFail)
    GTEST_SKIP() << "fork cannot be made to fail on this machine";
  EXPECT_EQ(status, 0);
}

// --- first line of a command's output ---

// A result buffer that shows which of its bytes were written.
constexpr char kUntouched = '~';
struct Result {
  Result() { bytes.fill(kUntouched); }
  std::array<char, 400> bytes;
};

using PipeResult = Process;

struct Output {
  const char* name;
  const char* command;
  const char* line;
};

class PipeResultLine : public PipeResult, public ::testing::WithParamInterface<Output> {};

TEST_P(PipeResultLine, IsTheFirstOfTheOutput) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 32, GetParam().command), 0);
  EXPECT_STREQ(result.bytes.data(), GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    All, PipeResultLine,
    testing::Values(Output{"WithLineFeed", "echo abc", "abc"},
                    Output{"WithoutLineFeed", "printf abc", "abc"}, Output{"NoOutput", "true", ""},
                    Output{"SeveralLines", "echo abc; echo def", "abc"},
                    Output{"EmptyLine", "echo; echo def", ""},
                    Output{"LineFeedAlone", "printf '\\n'", ""},
                    Output{"CarriageReturnStays", "printf 'abc\\r\\n'", "abc\r"},
                    Output{"WhiteSpaceStays", "printf ' a b \\n'", " a b "},
                    Output{"ExitStatusIgnored", "echo abc; exit 7", "abc"},
                    Output{"FailureWithoutOutput", "exit 7", ""},
                    Output{"PercentSignStays", "echo %s%d", "%s%d"},
                    Output{"EndsAtANul", "printf 'ab\\000cd\\n'", "ab"}),
    [](const auto& info) { return info.param.name; });

TEST_F(PipeResult, LeavesStandardErrorAlone) {
  Result result;
  testing::internal::CaptureStderr();
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 32, "echo abc >&2; echo def"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc\n");
  EXPECT_STREQ(result.bytes.data(), "def");
}

TEST_F(PipeResult, FillsTheResultUpWithNuls) {
  for (const uint32_t length : {4u, 5u, 10u, 255u, 256u, 257u, 399u}) {
    Result result;
    ASSERT_EQ(run_pipeResult(result.bytes.data(), length, "printf abc"), 0);
    const std::string written(result.bytes.data(), length);
    EXPECT_EQ(written, "abc" + std::string(length - 3, '\0'));
    EXPECT_EQ(result.bytes[length], kUntouched);
  }
}

TEST_F(PipeResult, NoOutputFillsTheResultWithNuls) {
  Result result;
  ASSERT_EQ(run_pipeResult(result.bytes.data(), 10, "true"), 0);
  EXPECT_EQ(std::string(result.bytes.data(), 10), std::string(10, '\0'));
  EXPECT_EQ(result.bytes[10], kUntouched);
}

// Deliberate: a line that fills the result has no NUL behind it.
TEST_F(PipeResult, LineAsLongAsTheResultIsNotTerminated) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 3, "printf abc"), 0);
  EXPECT_EQ(std::string(result.bytes.data(), 4), "abc~");
}

TEST_F(PipeResult, LongerLineIsCutAndNotTerminated) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 3, "echo abcdef"), 0);
  EXPECT_EQ(std::string(result.bytes.data(), 4), "abc~");
}

TEST_F(PipeResult, LineFeedAtTheResultsEndBecomesTheNul) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 4, "echo abc"), 0);
  EXPECT_EQ(std::string(result.bytes.data(), 5), std::string("abc\0~", 5));
}

TEST_F(PipeResult, LineFeedBehindTheResultIsNotTheLines) {
  Result result;
  result.bytes[3] = '\n';
  result.bytes[4] = '\0';
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 3, "echo abcdef"), 0);
  EXPECT_EQ(result.bytes[3], '\n');
}

TEST_F(PipeResult, LineFeedBeforeTheResultIsNotTheLines) {
  Result result;
  result.bytes[0] = '\n';
  EXPECT_EQ(run_pipeResult(&result.bytes[1], 3, "true"), 0);
  EXPECT_EQ(result.bytes[0], '\n');
}

TEST_F(PipeResult, ResultWithoutRoomIsLeftAlone) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 0, "echo abc"), 0);
  EXPECT_EQ(result.bytes[0], kUntouched);
}

TEST_F(PipeResult, KeepsAtMost254Characters) {
  for (const int length : {253, 254, 255, 256, 300}) {
    Result result;
    const std::string command = "printf '%0" + std::to_string(length) + "d\\n' 0";
    EXPECT_EQ(run_pipeResult(result.bytes.data(), 400, command.c_str()), 0);
    EXPECT_EQ(result.bytes.data(), std::string(static_cast<size_t>(std::min(length, 254)), '0'));
  }
}

TEST_F(PipeResult, EndlessOutputIsCutOff) {
  Result result;
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 32, "yes abc 2>/dev/null"), 0);
  EXPECT_STREQ(result.bytes.data(), "abc");
}

TEST_F(PipeResult, WaitsForTheCommandToEnd) {
  Result result;
  const std::string command = "echo abc; exec >&-; echo end >" + path("out");
  EXPECT_EQ(run_pipeResult(result.bytes.data(), 32, command.c_str()), 0);
  EXPECT_EQ(read_file("out"), "end\n");
}

TEST_F(PipeResult, CommandThatCannotBeStartedLeavesTheResultAlone) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  Result result;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int answer = run_pipeResult(result.bytes.data(), 32, "echo abc");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(answer, -1);
  EXPECT_EQ(result.bytes, Result().bytes);
}

}  // namespace
