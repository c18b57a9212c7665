// The flash stand-in as a user meets it: the launcher is run, with a probe program under it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

constexpr size_t kPartitionSize = 65536;

struct outcome {
  int status = -1;     // exit status; -1 when a signal ended it
  std::string output;  // standard output and standard error, as they came
};

[[noreturn]] void become(const words& command, const std::string& folder, int output) {
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  for (int fd = 3; fd < 256; ++fd) close(fd);  // whatever the runner of the tests left open
  if (chdir(folder.c_str()) == 0) execv(argv[0], argv.data());
  _exit(99);
}

std::string read_all(int fd) {
  std::string text;
  char block[4096];
  for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;)
    text.append(block, static_cast<size_t>(count));
  return text;
}

outcome run_in(const std::string& folder, const words& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) become(command, folder, ends[1]);
  close(ends[1]);
  outcome result;
  result.output = read_all(ends[0]);
  close(ends[0]);
  int status = 0;
  if (waitpid(child, &status, 0) == child && WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "(missing)";
  return {std::istreambuf_iterator<char>(in), {}};
}

void spill(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string erased(size_t size) { return std::string(size, '\xff'); }

class Flashsim : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "flashsim.XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    work_ = fs::canonical(pattern);
  }
  void TearDown() override { fs::remove_all(work_); }

  fs::path at(const std::string& file) const { return work_ / "flash" / file; }

  outcome flashsim(words arguments) const {
    arguments.insert(arguments.begin(), FLASHSIM_PATH);
    return run_in(work_, arguments);
  }

  outcome under(words program) const {
    program.insert(program.begin(), {"--dir", "flash", "--"});
    return flashsim(program);
  }

  // What the probe prints for these operations.
  std::string probe(words operations) const {
    operations.insert(operations.begin(), FLASHSIM_PROBE_PATH);
    return under(operations).output;
  }

  std::string shell(const std::string& script) const {
    return under({"/bin/sh", "-c", script}).output;
  }

  // Uses the folder for the first time.
  void make_flash() const { ASSERT_EQ(under({FLASHSIM_PROBE_PATH}).status, 0); }

  // The folder with a main device of `bytes`.
  void make_device(const std::string& bytes) const {
    make_flash();
    spill(at("nvram"), bytes);
  }

  fs::path work_;
};

// --- the folder and the partitions it gets ---

TEST_F(Flashsim, FirstUseMakesTheFolderWithErasedPartitions) {
  EXPECT_EQ(under({FLASHSIM_PROBE_PATH}).status, 0);
  EXPECT_EQ(slurp(at("nvram")), erased(kPartitionSize));
  EXPECT_EQ(slurp(at("nvrambak")), erased(kPartitionSize));
  EXPECT_EQ(std::distance(fs::directory_iterator(work_ / "flash"), {}), 2);
}

TEST_F(Flashsim, PartitionsAreMadeBesideFilesThatAreThere) {
  fs::create_directory(work_ / "flash");
  spill(at("default-conf.xml"), "<a/>");
  make_flash();
  EXPECT_EQ(slurp(at("nvram")), erased(kPartitionSize));
  EXPECT_EQ(slurp(at("default-conf.xml")), "<a/>");
}

TEST_F(Flashsim, LaterUsesKeepWhatTheFolderHolds) {
  make_device("kept");
  make_flash();
  EXPECT_EQ(slurp(at("nvram")), "kept");
}

TEST_F(Flashsim, PartitionMissingBesideTheOtherStaysMissing) {
  make_flash();
  for (const std::string gone : {"nvram", "nvrambak"}) {
    fs::remove(at(gone));
    make_flash();
    EXPECT_FALSE(fs::exists(at(gone)));
    spill(at(gone), "");
  }
}

TEST_F(Flashsim, FolderIsMadeOneLevelDeepOnly) {
  const outcome result = flashsim({"--dir", "no/flash", "--", "/bin/true"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot make folder 'no/flash': No such file or directory\n");
}

TEST_F(Flashsim, FileInTheFoldersPlaceIsRefused) {
  spill(work_ / "flash", "");
  const outcome result = under({FLASHSIM_PROBE_PATH});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot use folder 'flash': Not a directory\n");
}

TEST_F(Flashsim, ProgramIsToldTheFoldersAbsolutePath) {
  EXPECT_EQ(shell("cd / && echo $FLASHSIM_DIR"), at("").parent_path().string() + "\n");
}

TEST_F(Flashsim, PathsAreServedWhereverTheProgramGoes) {
  EXPECT_EQ(shell("cd / && echo here > /tmp/tobixopen"), "");
  EXPECT_EQ(slurp(at("tobixopen")), "here\n");
}

// --- a partition as a stream ---

TEST_F(Flashsim, StreamInModeWKeepsTheOtherBytes) {
  make_device("0123456789");
  EXPECT_EQ(probe({"fopen", "/dev/nvram", "w", "fseek", "4", "fwrite", "x", "2", "fclose"}),
            "fopen=0\nfseek=0\nfwrite=2\nfclose=0\n");
  EXPECT_EQ(slurp(at("nvram")), "0123xx6789");
}

TEST_F(Flashsim, StreamReadsAndTellsTheDevicesSize) {
  make_device("aabbb");
  EXPECT_EQ(probe({"fopen", "/dev/nvram", "r", "fread", "3", "ftell", "fseek_end", "ftell", "fread",
                   "1", "ferror", "fclose"}),
            "fopen=0\nfread=3 61*2 62*1\nftell=3\nfseek_end=0\nftell=5\nfread=0\nferror=0\n"
            "fclose=0\n");
}

TEST_F(Flashsim, StreamReadsAndWritesInUpdateModes) {
  for (const std::string mode : {"r+", "w+", "rb+"}) {
    make_device("0123");
    EXPECT_EQ(probe({"fopen", "/dev/nvram", mode, "fread", "1", "fseek", "2", "fwrite", "x", "1",
                     "fseek", "0", "fread", "4", "fclose"}),
              "fopen=0\nfread=1 30*1\nfseek=0\nfwrite=1\nfseek=0\nfread=4 30*1 31*1 78*1 33*1\n"
              "fclose=0\n");
  }
}

TEST_F(Flashsim, StreamPastTheEndFallsShort) {
  make_device(erased(10));
  EXPECT_EQ(
      probe({"fopen", "/dev/nvram", "w", "fseek", "8", "fwrite", "x", "5", "ferror", "fclose"}),
      "fopen=0\nfseek=0\nfwrite=5\nferror=0\nfclose=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvram")), erased(8) + "xx");
}

TEST_F(Flashsim, StreamLargerThanItsBufferFallsShortAtOnce) {
  make_flash();
  const std::string output =
      probe({"fopen", "/dev/nvram", "w", "fseek", "8", "fwrite", "x", "65536", "ferror"});
  EXPECT_NE(output.find("ferror=1\n"), std::string::npos) << output;
  EXPECT_EQ(output.find("fwrite=65536\n"), std::string::npos) << output;
  EXPECT_EQ(slurp(at("nvram")), erased(8) + std::string(kPartitionSize - 8, 'x'));
}

TEST_F(Flashsim, AppendingStreamDoesNotGrowTheDevice) {
  make_device(erased(10));
  EXPECT_EQ(probe({"fopen", "/dev/nvram", "a", "fwrite", "x", "1", "fclose"}),
            "fopen=0\nfwrite=1\nfclose=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvram")), erased(10));
}

TEST_F(Flashsim, StreamModeThatMeansNothingIsRefused) {
  EXPECT_EQ(probe({"fopen", "/dev/nvram", "q"}), "fopen=-1 (Invalid argument)\n");
}

TEST_F(Flashsim, StreamOnAnOpenDeviceIsBoundedToo) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "+", "fdopen", "r+", "fwrite", "x", "9", "fclose"}),
            "open=0\nfdopen=0\nfwrite=9\nfclose=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvram")), "xxxx");
}

TEST_F(Flashsim, StreamIsNotReopenedOnAPartition) {
  make_device("0123");
  EXPECT_EQ(probe({"fopen", "/dev/null", "w", "freopen", "/dev/nvram", "w"}),
            std::string("fopen=0\nfreopen=-1 (") + std::strerror(ENOTSUP) + ")\n");
  EXPECT_EQ(slurp(at("nvram")), "0123");
}

TEST_F(Flashsim, StreamClosesItsDescriptor) {
  EXPECT_EQ(probe({"free_fd", "fopen", "/dev/nvram", "r", "free_fd", "fclose", "free_fd"}),
            "free_fd=3\nfopen=0\nfree_fd=4\nfclose=0\nfree_fd=3\n");
}

#ifdef __GLIBC__
TEST_F(Flashsim, StreamHasADescriptor) {
  EXPECT_EQ(probe({"fopen", "/dev/nvram", "r", "fileno"}), "fopen=0\nfileno=0\n");
}
#endif

// --- a partition as a descriptor ---

TEST_F(Flashsim, OpenNeitherEmptiesNorMakesNorExtends) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "+cta", "write", "x", "1", "read", "9", "close"}),
            "open=0\nwrite=1\nread=3 31*1 32*1 33*1\nclose=0\n");
  EXPECT_EQ(slurp(at("nvram")), "x123");
}

TEST_F(Flashsim, WriteStopsAtTheEnd) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "lseek", "3", "write", "x", "2", "write", "x", "1",
                   "lseek_end", "write", "x", "0"}),
            "open=0\nlseek=3\nwrite=1\nwrite=-1 (No space left on device)\nlseek_end=4\nwrite=0\n");
  EXPECT_EQ(slurp(at("nvram")), "012x");
}

TEST_F(Flashsim, PositionedWriteStopsAtTheEnd) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "pwrite", "x", "9", "2", "pwrite", "x", "1", "4"}),
            "open=0\npwrite=2\npwrite=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvram")), "01xx");
}

TEST_F(Flashsim, WriteOfPartsStopsAtTheEnd) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "writev", "x", "6", "writev", "x", "2"}),
            "open=0\nwritev=4\nwritev=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvram")), "xxxx");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "writev", "y", "8"}), "open=0\nwritev=4\n");
}

TEST_F(Flashsim, DuplicateOfADescriptorStopsAtTheEnd) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "dup", "write", "x", "9"}),
            "open=0\ndup=0\nwrite=4\n");
}

TEST_F(Flashsim, SizeCannotBeChanged) {
  make_device("0123");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "ftruncate", "1", "truncate", "/dev/nvram", "9"}),
            "open=0\nftruncate=0\ntruncate=0\n");
  EXPECT_EQ(slurp(at("nvram")), "0123");
}

TEST_F(Flashsim, CommandsFindADeviceInTheirRedirections) {
  make_device("0123");
  EXPECT_EQ(shell("printf ab > /dev/nvram; printf cd >> /dev/nvram; cat /dev/nvram"), "cd23");
  spill(work_ / "long", "wxyz+");
  EXPECT_NE(shell("cat long > /dev/nvram; dd if=long of=/dev/nvram 2>&1").find("No space left"),
            std::string::npos);
  EXPECT_EQ(slurp(at("nvram")), "wxyz");
}

// --- missing and shorter devices ---

TEST_F(Flashsim, MissingPartitionIsAMissingDevice) {
  make_flash();
  fs::remove(at("nvram"));
  for (const std::string mode : {"r", "w", "a", "w+"})
    EXPECT_EQ(probe({"fopen", "/dev/nvram", mode}), "fopen=-1 (No such file or directory)\n");
  EXPECT_EQ(probe({"open", "/dev/nvram", "+ct"}), "open=-1 (No such file or directory)\n");
  EXPECT_FALSE(fs::exists(at("nvram")));
  EXPECT_EQ(probe({"fopen", "/dev/nvrambak", "r", "fread", "65537"}),
            "fopen=0\nfread=65536 ff*65536\n");
}

TEST_F(Flashsim, PartitionRemovedByTheProgramIsMissingFromThenOn) {
  EXPECT_EQ(probe({"unlink", "/dev/nvram", "fopen", "/dev/nvram", "w"}),
            "unlink=0\nfopen=-1 (No such file or directory)\n");
  EXPECT_FALSE(fs::exists(at("nvram")));
}

TEST_F(Flashsim, ShorterFileIsAShorterDevice) {
  make_flash();
  fs::resize_file(at("nvrambak"), 100);
  EXPECT_EQ(probe({"fopen", "/dev/nvrambak", "w", "fwrite", "x", "101", "fseek_end"}),
            "fopen=0\nfwrite=101\nfseek_end=-1 (No space left on device)\n");
  EXPECT_EQ(slurp(at("nvrambak")), std::string(100, 'x'));
}

TEST_F(Flashsim, DeviceWithoutBytesTakesNone) {
  make_device("");
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "write", "x", "1"}),
            "open=0\nwrite=-1 (No space left on device)\n");
}

// --- the ordinary files ---

TEST_F(Flashsim, OrdinaryFilesAreServed) {
  for (const auto& [path, file] :
       {std::pair{"/etc/igd/default-conf.xml", "default-conf.xml"},
        std::pair{"/tmp/tobixopen", "tobixopen"},
        std::pair{"/tmp/temp_config_for_download", "temp_config_for_download"}}) {
    EXPECT_EQ(probe({"stat", path, "access", path}),
              "stat=-1 (No such file or directory)\naccess=-1 (No such file or directory)\n");
    EXPECT_EQ(
        probe({"fopen", path, "w", "fwrite", "x", "3", "fclose", "stat", path, "access", path}),
        "fopen=0\nfwrite=3\nfclose=0\nstat=3\naccess=0\n");
    EXPECT_EQ(slurp(at(file)), "xxx");
  }
}

TEST_F(Flashsim, OrdinaryFilesAreEmptiedAndGrowAsFilesDo) {
  make_flash();
  spill(at("tobixopen"), "long before");
  EXPECT_EQ(probe({"fopen", "/tmp/tobixopen", "w", "fwrite", "x", "1", "fclose", "open",
                   "/tmp/tobixopen", "wa", "write", "y", "2", "truncate", "/tmp/tobixopen", "2"}),
            "fopen=0\nfwrite=1\nfclose=0\nopen=0\nwrite=2\ntruncate=0\n");
  EXPECT_EQ(slurp(at("tobixopen")), "xy");
}

TEST_F(Flashsim, OrdinaryFilesAreReopenedRenamedAndRemoved) {
  EXPECT_EQ(probe({"fopen", "/dev/null", "w", "freopen", "/tmp/tobixopen", "w", "fwrite", "x", "1",
                   "fclose", "rename", "/tmp/tobixopen", "/tmp/temp_config_for_download"}),
            "fopen=0\nfreopen=0\nfwrite=1\nfclose=0\nrename=0\n");
  EXPECT_EQ(slurp(at("temp_config_for_download")), "x");
  EXPECT_FALSE(fs::exists(at("tobixopen")));
  EXPECT_EQ(probe({"unlink", "/tmp/temp_config_for_download"}), "unlink=0\n");
  EXPECT_FALSE(fs::exists(at("temp_config_for_download")));
}

TEST_F(Flashsim, CommandsOfTheProgramAreServedToo) {
  EXPECT_EQ(probe({"fopen", "/tmp/tobixopen", "w", "fwrite", "x", "3", "fclose", "system",
                   "cat /tmp/tobixopen && cp /tmp/tobixopen copy && rm /tmp/tobixopen && "
                   "! test -e /tmp/tobixopen && mv copy /tmp/tobixopen && ls /tmp/tobixopen"}),
            "fopen=0\nfwrite=3\nfclose=0\nxxx/tmp/tobixopen\nsystem=0\n");
  EXPECT_EQ(slurp(at("tobixopen")), "xxx");
}

TEST_F(Flashsim, OtherPathsAreLeftAlone) {
  spill(work_ / "plain", "before");
  EXPECT_EQ(probe({"fopen", "plain", "w", "fwrite", "x", "2", "fclose", "open", "plain", "wa",
                   "write", "y", "1", "stat", "plain", "stat", "/dev/nvrambak2", "ftruncate", "0"}),
            "fopen=0\nfwrite=2\nfclose=0\nopen=0\nwrite=1\nstat=3\n"
            "stat=-1 (No such file or directory)\nftruncate=0\n");
  EXPECT_EQ(slurp(work_ / "plain"), "");
}

TEST_F(Flashsim, PartitionsFileIsAnOrdinaryFileByItsOwnPath) {
  make_flash();
  EXPECT_EQ(probe({"open", at("nvram"), "wt", "write", "x", "3"}), "open=0\nwrite=3\n");
  EXPECT_EQ(slurp(at("nvram")), "xxx");
}

// --- mtd ---

TEST_F(Flashsim, MtdErasesThePartitionItIsTold) {
  make_device("0123");
  spill(at("nvrambak"), "4567");
  EXPECT_EQ(probe({"system", "mtd erase NVRAM"}), "system=0\n");
  EXPECT_EQ(slurp(at("nvram")), erased(4));
  EXPECT_EQ(slurp(at("nvrambak")), "4567");
  EXPECT_EQ(probe({"system", "mtd erase NVRAMBAK"}), "system=0\n");
  EXPECT_EQ(slurp(at("nvrambak")), erased(4));
}

TEST_F(Flashsim, MtdErasesAWholePartition) {
  make_device(std::string(kPartitionSize, 'x'));
  EXPECT_EQ(under({"mtd", "erase", "NVRAM"}).status, 0);
  EXPECT_EQ(slurp(at("nvram")), erased(kPartitionSize));
}

TEST_F(Flashsim, MtdNamesTheDeviceThatIsMissing) {
  make_flash();
  fs::remove(at("nvram"));
  const outcome result = under({"mtd", "erase", "NVRAM"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "mtd: cannot open /dev/nvram (" + at("nvram").string() +
                               "): No such file or directory\n");
  EXPECT_FALSE(fs::exists(at("nvram")));
}

TEST_F(Flashsim, MtdRefusesEverythingElse) {
  make_device("0123");
  for (const words& command :
       {words{"mtd"}, words{"mtd", "erase"}, words{"mtd", "erase", "nvram"},
        words{"mtd", "write", "NVRAM"}, words{"mtd", "erase", "NVRAM", "x"}}) {
    const outcome result = under(command);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output.find("usage: mtd erase NVRAM|NVRAMBAK\n"), 0u) << result.output;
  }
  EXPECT_EQ(slurp(at("nvram")), "0123");
}

TEST_F(Flashsim, MtdIsFoundBeforeAnotherOfThatName) {
  fs::create_symlink("/bin/false", work_ / "mtd");
  const std::string path = getenv("PATH");
  setenv("PATH", (work_.string() + ":" + path).c_str(), 1);
  const outcome result = under({"mtd", "erase", "NVRAM"});
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(result.status, 0);
}

TEST_F(Flashsim, MtdOutsideFlashsimTouchesNothing) {
  const outcome result = under({"/usr/bin/env", "-u", "FLASHSIM_DIR", "mtd", "erase", "NVRAM"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "mtd: FLASHSIM_DIR is not set: run under flashsim\n");
}

// --- the journal ---

class FlashsimJournal : public Flashsim {
 protected:
  // What the journal holds after the probe did these operations.
  std::string journal(words operations) const {
    operations.insert(operations.begin(),
                      {"--dir", "flash", "--journal", "steps", "--", FLASHSIM_PROBE_PATH});
    EXPECT_EQ(flashsim(operations).status, 0);
    return slurp(work_ / "steps");
  }
};

TEST_F(FlashsimJournal, HasTheStepsOfAStreamInOrder) {
  make_flash();
  EXPECT_EQ(journal({"fopen", "/dev/nvram", "w", "fseek", "8", "fwrite", "x", "3", "fclose"}),
            "open-w NVRAM 0 0\nseek NVRAM 8 0\nwrite NVRAM 8 3\nxxxclose NVRAM 0 0\n");
}

TEST_F(FlashsimJournal, HasTheStepsOfADescriptor) {
  make_flash();
  EXPECT_EQ(journal({"open", "/dev/nvrambak", "+", "lseek", "5", "write", "x", "2", "pwrite", "y",
                     "1", "9", "writev", "z", "2", "close"}),
            "open-rw NVRAMBAK 0 0\nseek NVRAMBAK 5 0\nwrite NVRAMBAK 5 2\nxx"
            "write NVRAMBAK 9 1\nywrite NVRAMBAK 7 1\nzwrite NVRAMBAK 8 1\nzclose NVRAMBAK 0 0\n");
}

TEST_F(FlashsimJournal, HasOnlyTheBytesThatFitTheDevice) {
  make_device("0123");
  EXPECT_EQ(journal({"open", "/dev/nvram", "w", "write", "x", "6", "write", "x", "1"}),
            "open-w NVRAM 0 0\nwrite NVRAM 0 4\nxxxx");
}

TEST_F(FlashsimJournal, HasTheBlocksOfAnErase) {
  make_device(std::string(5000, 'x'));
  EXPECT_EQ(journal({"system", "mtd erase NVRAM"}), "command NVRAM 0 0\nerase NVRAM 0 4096\n" +
                                                        erased(4096) + "erase NVRAM 4096 904\n" +
                                                        erased(904) + "done NVRAM 0 0\n");
}

TEST_F(FlashsimJournal, HasTheStepsOfCommandsFromOtherFolders) {
  make_flash();
  EXPECT_EQ(journal({"system", "cd / && printf ab >/dev/nvram"}).substr(0, 17),
            "open-w NVRAM 0 0\n");
  EXPECT_NE(slurp(work_ / "steps").find("write NVRAM 0 2\nab"), std::string::npos);
}

TEST_F(FlashsimJournal, LeavesOtherFilesAndQuestionsForThePositionOut) {
  make_flash();
  EXPECT_EQ(journal({"fopen", "/tmp/tobixopen", "w", "fwrite", "x", "1", "fclose"}), "");
  EXPECT_EQ(journal({"fopen", "/dev/nvram", "r", "ftell"}), "open-r NVRAM 0 0\n");
}

TEST_F(FlashsimJournal, IsBegunAnewAndOnlyWhereItIsAskedFor) {
  make_flash();
  const std::string first = journal({"open", "/dev/nvram", "w", "write", "x", "1"});
  EXPECT_EQ(journal({"open", "/dev/nvram", "w", "write", "x", "1"}), first);
  setenv("FLASHSIM_JOURNAL", (work_ / "other").c_str(), 1);
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "write", "x", "1"}), "open=0\nwrite=1\n");
  unsetenv("FLASHSIM_JOURNAL");
  EXPECT_FALSE(fs::exists(work_ / "other"));
}

TEST_F(FlashsimJournal, ThatCannotBeMadeStartsNothing) {
  const outcome result =
      flashsim({"--dir", "flash", "--journal", "none/steps", "--", "/bin/echo", "started"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output,
            "flashsim: cannot make journal 'none/steps': No such file or directory\n");
}

TEST_F(FlashsimJournal, GivesTheWearOfEachPartition) {
  make_flash();
  journal({"fopen", "/dev/nvrambak", "w", "fwrite", "x", "3", "fseek", "2", "fwrite", "x", "2",
           "fclose", "system", "mtd erase NVRAM"});
  const outcome result = flashsim({"wear", "steps"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "partition  erases     opens    writes     bytes  most of one byte\n"
            "NVRAM           1         0         0         0                 0\n"
            "NVRAMBAK        0         1         2         5                 2\n");
}

TEST_F(FlashsimJournal, WearIsOfAJournalOnly) {
  spill(work_ / "steps", "open-w NVRAM 0 0\nwrite NVRAM 0 9\nshort");
  outcome result = flashsim({"wear", "steps"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: steps: no journal (byte 17)\n");
  EXPECT_EQ(flashsim({"wear"}).status, 2);
  EXPECT_EQ(flashsim({"wear", "none"}).output, "flashsim: none: cannot be read\n");
}

// --- faults ---

class FlashsimFaults : public Flashsim {
 protected:
  void SetUp() override {
    Flashsim::SetUp();
    make_device(std::string(16, '.'));
    spill(at("nvrambak"), std::string(16, ','));
  }

  // Options, "--", and the probe's operations.
  outcome run(words arguments) const {
    const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
    arguments.insert(dashes + 1, FLASHSIM_PROBE_PATH);
    arguments.insert(arguments.begin(), {"--dir", "flash"});
    return flashsim(arguments);
  }

  std::string output(const words& arguments) const { return run(arguments).output; }
  std::string main() const { return slurp(at("nvram")); }
  std::string backup() const { return slurp(at("nvrambak")); }
};

TEST_F(FlashsimFaults, CutEndsTheRunBeforeTheStepOrAfterBytesOfIt) {
  const words seven_steps = {"open", "/dev/nvram", "w", "lseek", "2",     "write", "x",
                             "3",    "write",      "y", "2",     "close", "open",  "/dev/nvrambak",
                             "w",    "write",      "z", "4"};
  const struct {
    const char* cut;
    std::string main;
    std::string backup;
  } cases[] = {
      {"1", "................", ",,,,"},         {"3", "................", ",,,,"},
      {"step:3:1", "..x.............", ",,,,"},  {"3:3", "..xxx...........", ",,,,"},
      {"3:99", "..xxx...........", ",,,,"},      {"write:2", "..xxx...........", ",,,,"},
      {"write:3:2", "..xxxyy.........", "zz,,"}, {"seek:1", "................", ",,,,"},
      {"close:1", "..xxxyy.........", ",,,,"},   {"open:2", "..xxxyy.........", ",,,,"},
      {"byte:1", "................", ",,,,"},    {"byte:5", "..xxxy..........", ",,,,"},
      {"byte:7", "..xxxyy.........", "z,,,"},
  };
  for (const auto& one : cases) {
    spill(at("nvram"), std::string(16, '.'));
    spill(at("nvrambak"), ",,,,");
    words arguments = {"--cut", one.cut, "--"};
    arguments.insert(arguments.end(), seven_steps.begin(), seven_steps.end());
    EXPECT_EQ(run(arguments).status, 125) << one.cut;
    EXPECT_EQ(main(), one.main) << one.cut;
    EXPECT_EQ(backup(), one.backup) << one.cut;
  }
}

TEST_F(FlashsimFaults, CutThatIsNeverMetChangesNothing) {
  const outcome result =
      run({"--cut", "8", "--", "open", "/dev/nvram", "w", "write", "x", "16", "exit", "3"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(main(), std::string(16, 'x'));
}

TEST_F(FlashsimFaults, CutInAnEraseStopsTheCommandAndTheProgramThatRunsIt) {
  const outcome result = run({"--cut", "erase:1:5", "--", "system", "mtd erase NVRAM", "open",
                              "/dev/nvrambak", "w", "write", "x", "1"});
  EXPECT_EQ(result.status, 125);
  EXPECT_EQ(main(), erased(5) + std::string(11, '.'));
  EXPECT_EQ(backup(), std::string(16, ','));
}

TEST_F(FlashsimFaults, CutIsCountedOverAllCommandsOfTheRun) {
  EXPECT_EQ(
      run({"--cut", "command:2", "--", "system", "mtd erase NVRAM; mtd erase NVRAMBAK"}).status,
      125);
  EXPECT_EQ(main(), erased(16));
  EXPECT_EQ(backup(), std::string(16, ','));
  EXPECT_EQ(run({"--cut", "done:1", "--", "system", "mtd erase NVRAMBAK"}).status, 125);
  EXPECT_EQ(backup(), erased(16));
}

TEST_F(FlashsimFaults, CutLetsNothingGoOn) {
  const std::string open = FLASHSIM_PROBE_PATH " open /dev/nvram w";
  const std::string erase = "mtd erase NVRAM";
  for (const auto& [options, last] :
       {std::pair{words{"--cut", "open:1"}, open},
        std::pair{words{"--cut", "close:1"}, open + " close"},
        std::pair{words{"--cut", "write:1"}, open + " write x 1"},
        std::pair{words{"--cut", "command:1"}, erase}, std::pair{words{"--cut", "done:1"}, erase},
        std::pair{words{"--tear", "erase:1:9", "--cut", "erase:1:5"}, erase}}) {
    words arguments = {"--dir", "flash"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {"--", "/bin/sh", "-c", last + "; printf y >late"});
    EXPECT_EQ(flashsim(arguments).status, 125) << last;
    EXPECT_EQ(slurp(work_ / "late"), "(missing)") << last;
  }
}

TEST_F(FlashsimFaults, CutReachesAProgramThatLeftTheGroup) {
  const std::string other = FLASHSIM_PROBE_PATH " open /dev/nvram w write x 1; printf y >late";
  const outcome result = flashsim({"--dir", "flash", "--cut", "write:1", "--", "/bin/sh", "-c",
                                   "setsid -w sh -c '" + other + "'; printf y >late"});
  EXPECT_EQ(result.status, 125);
  EXPECT_EQ(main(), std::string(16, '.'));
  EXPECT_EQ(slurp(work_ / "late"), "(missing)");
}

TEST_F(FlashsimFaults, JournalOfACutRunEndsWithTheBytesThatMadeIt) {
  run({"--journal", "steps", "--cut", "write:1:2", "--", "open", "/dev/nvram", "w", "write", "x",
       "9"});
  EXPECT_EQ(slurp(work_ / "steps"), "open-w NVRAM 0 0\nwrite NVRAM 0 2\nxx");
}

TEST_F(FlashsimFaults, TornWriteIsShortAndWhatGoesOnFromThereFails) {
  EXPECT_EQ(output({"--tear", "write:2:3", "--", "open", "/dev/nvram", "w", "write", "x", "2",
                    "write", "y", "5", "write", "z", "2", "write", "a", "1"}),
            "open=0\nwrite=2\nwrite=3\nwrite=-1 (Input/output error)\nwrite=1\n");
  EXPECT_EQ(main(), "xxyyya..........");
}

TEST_F(FlashsimFaults, WriteElsewhereAfterATornOneSucceeds) {
  EXPECT_EQ(output({"--tear", "write:1:2", "--", "open", "/dev/nvram", "w", "write", "x", "3",
                    "pwrite", "y", "1", "9"}),
            "open=0\nwrite=2\npwrite=1\n");
}

TEST_F(FlashsimFaults, TornBehindItsLastByteIsWhole) {
  EXPECT_EQ(output({"--tear", "write:1:3", "--", "open", "/dev/nvram", "w", "write", "x", "3",
                    "write", "y", "1"}),
            "open=0\nwrite=3\nwrite=1\n");
}

TEST_F(FlashsimFaults, TornBeforeItsFirstByteFailsAtOnce) {
  EXPECT_EQ(output({"--tear", "write:1", "--", "open", "/dev/nvram", "w", "write", "x", "2",
                    "write", "y", "1", "pwrite", "z", "1", "9"}),
            "open=0\nwrite=-1 (Input/output error)\nwrite=1\npwrite=1\n");
  EXPECT_EQ(main(), "y........z......");
}

TEST_F(FlashsimFaults, TornByteIsCountedOverAllWrites) {
  EXPECT_EQ(output({"--tear", "byte:4", "--", "open", "/dev/nvram", "w", "write", "x", "2", "write",
                    "y", "5"}),
            "open=0\nwrite=2\nwrite=1\n");
  EXPECT_EQ(main(), "xxy.............");
}

TEST_F(FlashsimFaults, TornStreamTellsWhenItIsFlushed) {
  EXPECT_EQ(output({"--tear", "step:2:1", "--", "fopen", "/dev/nvram", "w", "fwrite", "x", "3",
                    "fclose"}),
            "fopen=0\nfwrite=3\nfclose=-1 (Input/output error)\n");
  EXPECT_EQ(main(), "x...............");
}

TEST_F(FlashsimFaults, TornEraseFailsHalfDone) {
  EXPECT_EQ(output({"--tear", "erase:1:6", "--", "system", "mtd erase NVRAM", "system",
                    "mtd erase NVRAMBAK"}),
            "mtd: cannot erase /dev/nvram (" + at("nvram").string() +
                "): Input/output error\nsystem=1\nsystem=0\n");
  EXPECT_EQ(main(), erased(6) + std::string(10, '.'));
  EXPECT_EQ(backup(), erased(16));
}

TEST_F(FlashsimFaults, FlippedBitsAreFlippedOnceBeforeTheStart) {
  EXPECT_EQ(output({"--bits", "nvram:1:0x03=flip", "--", "open", "/dev/nvram", "+", "read", "3",
                    "lseek", "0", "write", "x", "3"}),
            "open=0\nread=3 2e*1 2d*1 2e*1\nlseek=0\nwrite=3\n");
  EXPECT_EQ(main(), "xxx.............");
  EXPECT_EQ(backup(), std::string(16, ','));
}

TEST_F(FlashsimFaults, StuckBitsStayWhateverIsWrittenOrErased) {
  EXPECT_EQ(output({"--bits",
                    "nvrambak:2:1=1",
                    "--bits",
                    "NVRAMBAK:3:0x80=0",
                    "--bits",
                    "nvrambak:1:0x0f=0",
                    "--",
                    "open",
                    "/dev/nvrambak",
                    "+",
                    "read",
                    "4",
                    "pwrite",
                    "p",
                    "2",
                    "2",
                    "system",
                    "mtd erase NVRAMBAK",
                    "lseek",
                    "0",
                    "read",
                    "5"}),
            "open=0\nread=4 2c*1 20*1 2d*1 2c*1\npwrite=2\nsystem=0\nlseek=0\n"
            "read=5 ff*1 f0*1 ff*1 7f*1 ff*1\n");
  EXPECT_EQ(backup(), "\xff\xf0\xff\x7f" + erased(12));
}

TEST_F(FlashsimFaults, StuckBitsAreOfTheirPartitionOnly) {
  run({"--bits", "nvram:1:1=1", "--", "open", "/dev/nvrambak", "w", "write", "b", "3"});
  EXPECT_EQ(backup(), "bbb" + std::string(13, ','));
}

TEST_F(FlashsimFaults, StuckBitsAreInTheJournal) {
  run({"--journal", "steps", "--bits", "nvram:1:1=1", "--", "open", "/dev/nvram", "w", "write", "b",
       "3"});
  EXPECT_EQ(slurp(work_ / "steps"), "open-w NVRAM 0 0\nwrite NVRAM 0 3\nbcb");
}

TEST_F(FlashsimFaults, BitsBeyondThePartitionStartNothing) {
  const outcome result = run({"--bits", "nvram:16:1=1", "--", "exit", "0"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot set bits of '" + at("nvram").string() +
                               "': Numerical result out of range\n");
}

TEST_F(FlashsimFaults, NthOpeningFailsWithTheErrorNamed) {
  const words opens = {"open", "/dev/nvram", "r",    "close",         "fopen", "/tmp/tobixopen",
                       "w",    "fclose",     "open", "/dev/nvrambak", "w"};
  const std::pair<const char*, std::string> cases[] = {
      {"1", "open=-1 (Input/output error)\n"},
      {"2:ENOSPC", "open=0\nclose=0\nfopen=-1 (No space left on device)\n"},
      {"3:ENODEV", "open=0\nclose=0\nfopen=0\nfclose=0\nopen=-1 (No such device)\n"},
      {"4", "open=0\nclose=0\nfopen=0\nfclose=0\nopen=0\n"}};
  for (const auto& [fault, expected] : cases) {
    words arguments = {"--fail-open", fault, "--"};
    arguments.insert(arguments.end(), opens.begin(), opens.end());
    EXPECT_EQ(output(arguments), expected);
  }
}

TEST_F(FlashsimFaults, OpeningBehindTheOneThatFailsSucceeds) {
  EXPECT_EQ(output({"--fail-open", "1", "--", "system", "cat /dev/nvram 2>/dev/null", "open",
                    "/dev/nvram", "r"}),
            "system=1\nopen=0\n");
}

TEST_F(FlashsimFaults, LeastOfSeveralLimitsHolds) {
  EXPECT_EQ(output({"--short-reads", "3", "--short-reads", "5", "--", "open", "/dev/nvram", "r",
                    "read", "9"}),
            "open=0\nread=3 2e*3\n");
}

TEST_F(FlashsimFaults, ReadsAndWritesAreShort) {
  EXPECT_EQ(
      output({"--short-reads", "3", "--short-writes", "2", "--",     "open",   "/dev/nvram", "+",
              "read",          "9", "write",          "x", "9",      "writev", "y",          "6",
              "lseek",         "0", "read",           "9", "pwrite", "z",      "9",          "8"}),
      "open=0\nread=3 2e*3\nwrite=2\nwritev=2\nlseek=0\nread=3 2e*3\npwrite=2\n");
  EXPECT_EQ(main(), "...xxyy.zz......");
}

TEST_F(FlashsimFaults, StreamsGoOnAfterShortReadsAndWrites) {
  spill(at("default-conf.xml"), "0123456789");
  EXPECT_EQ(output({"--short-reads",
                    "3",
                    "--short-writes",
                    "2",
                    "--",
                    "fopen",
                    "/dev/nvram",
                    "w",
                    "fwrite",
                    "x",
                    "9",
                    "fclose",
                    "fopen",
                    "/dev/nvram",
                    "r",
                    "fread",
                    "16",
                    "fopen",
                    "/etc/igd/default-conf.xml",
                    "r",
                    "fread",
                    "20"}),
            "fopen=0\nfwrite=9\nfclose=0\nfopen=0\nfread=16 78*9 2e*7\nfopen=0\n"
            "fread=10 30*1 31*1 32*1 33*1 34*1 35*1 36*1 37*1 38*1 39*1\n");
}

TEST_F(FlashsimFaults, DeviceEndsBeforeItsFile) {
  EXPECT_EQ(output({"--device-size",
                    "nvram:5",
                    "--",
                    "open",
                    "/dev/nvram",
                    "+",
                    "read",
                    "9",
                    "read",
                    "9",
                    "lseek_end",
                    "write",
                    "x",
                    "1",
                    "pwrite",
                    "y",
                    "9",
                    "3",
                    "fopen",
                    "/dev/nvram",
                    "r",
                    "fseek_end",
                    "ftell",
                    "system",
                    "mtd erase NVRAM"}),
            "open=0\nread=5 2e*5\nread=0\nlseek_end=5\nwrite=-1 (No space left on device)\n"
            "pwrite=2\nfopen=0\nfseek_end=0\nftell=5\nsystem=0\n");
  EXPECT_EQ(main(), erased(5) + std::string(11, '.'));
}

TEST_F(FlashsimFaults, FilesOfTmpShareTheRoomThatIsLeft) {
  EXPECT_EQ(output({"--tmp-size",
                    "5",
                    "--",
                    "fopen",
                    "/tmp/tobixopen",
                    "w",
                    "fwrite",
                    "x",
                    "3",
                    "fclose",
                    "open",
                    "/tmp/temp_config_for_download",
                    "wc",
                    "write",
                    "y",
                    "9",
                    "write",
                    "y",
                    "9",
                    "unlink",
                    "/tmp/tobixopen",
                    "write",
                    "z",
                    "9"}),
            "fopen=0\nfwrite=3\nfclose=0\nopen=0\nwrite=2\nwrite=-1 (No space left on device)\n"
            "unlink=0\nwrite=3\n");
  EXPECT_EQ(slurp(at("temp_config_for_download")), "yyzzz");
}

TEST_F(FlashsimFaults, FileOfTmpThatIsAppendedToCountsWhatItHolds) {
  spill(at("tobixopen"), "abc");
  EXPECT_EQ(output({"--tmp-size", "4", "--", "open", "/tmp/tobixopen", "wa", "write", "x", "9"}),
            "open=0\nwrite=1\n");
  EXPECT_EQ(slurp(at("tobixopen")), "abcx");
}

TEST_F(FlashsimFaults, StatusIsTheProgramsOrItsSignals) {
  EXPECT_EQ(run({"--short-reads", "1", "--", "exit", "42"}).status, 42);
  EXPECT_EQ(run({"--short-reads", "1", "--", "system", "kill -15 $PPID"}).status, 128 + 15);
  EXPECT_EQ(flashsim({"--dir", "flash", "--short-reads", "1", "--", "./none"}).status, 127);
}

// One processor for this process and what it starts, as long as it lives.
class OneProcessor {
 public:
  OneProcessor() {
    if (sched_getaffinity(0, sizeof before_, &before_) != 0) return;
    cpu_set_t first;
    CPU_ZERO(&first);
    for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&first) == 0; ++i)
      if (CPU_ISSET(i, &before_)) CPU_SET(i, &first);
    sched_setaffinity(0, sizeof first, &first);
  }
  ~OneProcessor() {
    if (CPU_COUNT(&before_) > 0) sched_setaffinity(0, sizeof before_, &before_);
  }

 private:
  cpu_set_t before_ = {};
};

TEST_F(FlashsimFaults, SignalToFlashsimReachesTheProgramHoweverEarly) {
  const OneProcessor shared;  // on which the program often runs before flashsim does
  for (int i = 0; i < 20; ++i) {
    const outcome result =
        flashsim({"--dir", "flash", "--short-reads", "1", "--", "/bin/sh", "-c",
                  "trap 'exit 7' TERM; kill -15 $PPID; sleep 9 >/dev/null 2>&1 & wait"});
    ASSERT_EQ(result.status, 7) << i;
  }
}

TEST_F(FlashsimFaults, NothingIsLeftOfThemBehindTheRun) {
  fs::create_directory(work_ / "temporary");
  setenv("TMPDIR", (work_ / "temporary").c_str(), 1);
  run({"--cut", "1", "--", "open", "/dev/nvram", "r"});
  unsetenv("TMPDIR");
  EXPECT_TRUE(fs::is_empty(work_ / "temporary"));
  EXPECT_EQ(probe({"open", "/dev/nvram", "w", "write", "x", "16"}), "open=0\nwrite=16\n");
}

TEST_F(FlashsimFaults, AreNotThoseOfAFlashsimWithin) {
  const outcome result =
      flashsim({"--dir", "flash", "--fail-open", "1", "--", FLASHSIM_PATH, "--dir", "flash", "--",
                FLASHSIM_PROBE_PATH, "open", "/dev/nvram", "r"});
  EXPECT_EQ(result.output, "open=0\n");
}

TEST_F(FlashsimFaults, WrongValuesAreRefusedWithTheFormAndTheValue) {
  for (const auto& [option, values] :
       {std::pair{"--cut",
                  words{"", "0", "x", "byte:3:1", "seek:1:1", "1:", "1:2:3", "page:1", "write",
                        "1 ", "18446744073709551616", std::string(64, '0') + "1"}},
        std::pair{"--tear", words{"open:1", "done:1", "byte:0", "write:1:x"}},
        std::pair{"--bits", words{"nvram", "nvram:1:0=1", "nvram:1:256=1", "nvram:1:1=2",
                                  "flash:1:1=1", "nvram:1:1"}},
        std::pair{"--fail-open", words{"0", "1:", "1:EWHATEVER", "1:EIO:2"}},
        std::pair{"--short-reads", words{"0", "1x"}}, std::pair{"--short-writes", words{"0", ""}},
        std::pair{"--device-size", words{"nvram", "nvram:", "tmp:1"}},
        std::pair{"--tmp-size", words{"-1", ""}}}) {
    for (const std::string& value : values) {
      const outcome result = run({option, value, "--", "exit", "0"});
      EXPECT_EQ(result.status, 2) << option << " " << value;
      EXPECT_EQ(
          result.output.find("flashsim: " + std::string(option) + " needs a value of the form "),
          0u)
          << result.output;
      const std::string shown = ", not \"" + value.substr(0, 64) + "\"\n";
      EXPECT_NE(result.output.find(shown), std::string::npos) << result.output;
    }
  }
}

// --- zorem_cfg ---

TEST_F(Flashsim, ZoremCfgWrapsTheTextIntoAnUpgradeFile) {
  make_flash();
  const std::string text(65528, 't');
  spill(at("temp_config_for_download"), text);
  EXPECT_EQ(probe({"system", "zorem_cfg -v 0 -i /tmp/temp_config_for_download -o out "}),
            "system=0\n");
  EXPECT_EQ(slurp(work_ / "out"),
            std::string("zoremcfg\0\0\0\0\xf8\xff\0\0", 16) + text + std::string(4, '\0'));
}

TEST_F(Flashsim, ZoremCfgWrapsTheEmptyText) {
  spill(work_ / "in", "");
  EXPECT_EQ(under({"zorem_cfg", "-o", "out", "-i", "in", "-v", "0"}).status, 0);
  EXPECT_EQ(slurp(work_ / "out"), "zoremcfg" + std::string(12, '\0'));
}

TEST_F(Flashsim, ZoremCfgWrapsATextThatNoGatewayTakes) {
  const std::string text(65529, 't');
  spill(work_ / "in", text);
  EXPECT_EQ(under({"zorem_cfg", "-v", "0", "-i", "in", "-o", "out"}).status, 0);
  EXPECT_EQ(slurp(work_ / "out"),
            std::string("zoremcfg\0\0\0\0\xf9\xff\0\0", 16) + text + std::string(4, '\0'));
}

TEST_F(Flashsim, ZoremCfgNamesTheFileThatFails) {
  spill(work_ / "in", "text");
  outcome result = under({"zorem_cfg", "-v", "0", "-i", "none", "-o", "out"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "none: cannot be read (No such file or directory)\n");
  EXPECT_FALSE(fs::exists(work_ / "out"));
  result = under({"zorem_cfg", "-v", "0", "-i", ".", "-o", "out"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, ".: cannot be read (Is a directory)\n");
  result = under({"zorem_cfg", "-v", "0", "-i", "in", "-o", "no/out"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "no/out: cannot be written (No such file or directory)\n");
  result = under({"zorem_cfg", "-v", "0", "-i", "in", "-o", "/dev/full"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "/dev/full: cannot be written (No space left on device)\n");
}

TEST_F(Flashsim, ZoremCfgRefusesWrongUsage) {
  spill(work_ / "in", "text");
  for (const words& command :
       {words{"zorem_cfg"}, words{"zorem_cfg", "-i", "in", "-o", "out"},
        words{"zorem_cfg", "-v", "1", "-i", "in", "-o", "out"},
        words{"zorem_cfg", "-v", "0", "-i", "in"}, words{"zorem_cfg", "-v", "0", "-o", "out"},
        words{"zorem_cfg", "-v", "0", "-i", "in", "-o", "out", "more"},
        words{"zorem_cfg", "-v", "0", "-i", "in", "-o", "out", "-x"}}) {
    const outcome result = under(command);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.output.find("usage: zorem_cfg -v 0 -i IN -o OUT\n"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(work_ / "out"));
}

// A zorem_cfg that was moved; where there is a mibctl, it shows how it was called.
class FlashsimMoved : public Flashsim {
 protected:
  void SetUp() override {
    Flashsim::SetUp();
    fs::create_directories(work_ / "lib/flashsim");
    fs::copy_file(fs::path(FLASHSIM_PATH).parent_path() / "../lib/flashsim/zorem_cfg",
                  work_ / "lib/flashsim/zorem_cfg");
  }

  void make_mibctl(const std::string& folder) const {
    const fs::path path = work_ / folder / "mibctl";
    fs::create_directories(path.parent_path());
    spill(path, "#!/bin/sh\necho " + folder + " \"$@\"\n");
    fs::permissions(path, fs::perms::owner_all);
  }

  outcome zorem_cfg() const {
    return run_in(work_, {"/usr/bin/env", "PATH=" + (work_ / "path").string(),
                          work_ / "lib/flashsim/zorem_cfg", "-v0", "-i-in", "-oout"});
  }
};

TEST_F(FlashsimMoved, ZoremCfgRunsTheMibctlInstalledWithIt) {
  make_mibctl("path");
  make_mibctl("bin");
  EXPECT_EQ(zorem_cfg().output, "bin image upgrade-file make --force -o out -- -in\n");
}

TEST_F(FlashsimMoved, ZoremCfgRunsAnotherMibctlOfThePath) {
  make_mibctl("path");
  EXPECT_EQ(zorem_cfg().output, "path image upgrade-file make --force -o out -- -in\n");
}

TEST_F(FlashsimMoved, ZoremCfgSaysThatMibctlIsMissing) {
  const outcome result = zorem_cfg();
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "zorem_cfg: cannot start mibctl: No such file or directory\n");
}

// --- the launcher ---

TEST_F(Flashsim, ExitStatusIsTheProgramsOwn) {
  EXPECT_EQ(under({FLASHSIM_PROBE_PATH, "exit", "0"}).status, 0);
  EXPECT_EQ(under({FLASHSIM_PROBE_PATH, "exit", "42"}).status, 42);
}

TEST_F(Flashsim, ProgramsOptionsAreItsOwn) {
  EXPECT_EQ(flashsim({"--dir=flash", "/bin/echo", "--dir", "--help"}).output, "--dir --help\n");
}

TEST_F(Flashsim, ProgramThatCannotStartIsNamed) {
  outcome result = under({"./none"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot start './none': No such file or directory\n");
  spill(work_ / "text", "");
  result = under({"./text"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot start './text': Permission denied\n");
}

TEST_F(Flashsim, WrongUsageIsNamed) {
  for (const auto& [arguments, why] :
       {std::pair{words{}, "--dir is missing"}, std::pair{words{"/bin/true"}, "--dir is missing"},
        std::pair{words{"--dir"}, "--dir needs a folder"},
        std::pair{words{"--dir", "flash", "--preload"}, "--preload needs a file"},
        std::pair{words{"--dir", "flash", "--cut"}, "--cut needs a value"},
        std::pair{words{"--dir", "flash"}, "which program"},
        std::pair{words{"--dir", "flash", "--"}, "which program"},
        std::pair{words{"--dri", "flash"}, "unknown option '--dri'"},
        std::pair{words{"-xy", "flash"}, "unknown option '-x'"}}) {
    const outcome result = flashsim(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output.find("flashsim: " + std::string(why)), 0u) << result.output;
    EXPECT_NE(result.output.find("usage: flashsim --dir DIR"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(work_ / "flash"));
}

TEST_F(Flashsim, AnotherLibraryIsLoadedInItsPlace) {
  const outcome missing =
      flashsim({"--dir", "flash", "--preload", "/nowhere/lib.so", "--", "/bin/true"});
  EXPECT_EQ(missing.status, 127);
  EXPECT_NE(missing.output.find("/nowhere/lib.so"), std::string::npos) << missing.output;
  // A name that each loader completes cannot be looked at before: the loader complains.
  const outcome token = flashsim({"--dir", "flash", "--preload", "/nowhere/$LIB/lib.so", "--",
                                  "/bin/sh", "-c", "echo $LD_PRELOAD"});
  EXPECT_EQ(token.status, 0);
  EXPECT_NE(token.output.find("\n/nowhere/$LIB/lib.so\n"), std::string::npos) << token.output;
}

TEST_F(Flashsim, HelpShowsAnExample) {
  const outcome result = flashsim({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("flashsim --dir flash -- ./gateway\n"), std::string::npos);
}

TEST_F(Flashsim, OptionsOfTheAddressSanitizerAreKept) {
  setenv("ASAN_OPTIONS", "exitcode=7", 1);
  const std::string output = shell("echo $ASAN_OPTIONS");
  unsetenv("ASAN_OPTIONS");
  EXPECT_EQ(output, "exitcode=7:verify_asan_link_order=0\n");
}

TEST_F(Flashsim, LauncherWithoutItsPartsStartsNothing) {
  fs::create_directories(work_ / "bin");
  fs::copy_file(FLASHSIM_PATH, work_ / "bin/flashsim");
  const outcome result =
      run_in(work_, {work_ / "bin/flashsim", "--dir", "flash", "--", "/bin/echo", "started"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output, "flashsim: cannot load '" +
                               (work_ / "lib/flashsim/libflashsim.so").string() +
                               "': No such file or directory\n");
}

TEST_F(Flashsim, LauncherMovesWithItsParts) {
  const fs::path built = fs::path(FLASHSIM_PATH).parent_path().parent_path();
  fs::create_directories(work_ / "bin");
  fs::copy_file(FLASHSIM_PATH, work_ / "bin/flashsim");
  fs::create_directories(work_ / "lib");
  fs::copy(built / "lib/flashsim", work_ / "lib/flashsim");
  const outcome result = run_in(work_, {work_ / "bin/flashsim", "--dir", "flash", "--", "/bin/sh",
                                        "-c", "mtd erase NVRAM && wc -c < /dev/nvram"});
  EXPECT_EQ(result.output, "65536\n");
}

TEST_F(Flashsim, LauncherThatCannotBePreloadedIsRefused) {
  const fs::path built = fs::path(FLASHSIM_PATH).parent_path().parent_path();
  fs::create_directories(work_ / "a b/bin");
  fs::copy_file(FLASHSIM_PATH, work_ / "a b/bin/flashsim");
  fs::create_directories(work_ / "a b/lib");
  fs::copy(built / "lib/flashsim", work_ / "a b/lib/flashsim");
  const outcome result =
      run_in(work_, {work_ / "a b/bin/flashsim", "--dir", "flash", "--", "/bin/echo"});
  EXPECT_EQ(result.status, 127);
  EXPECT_NE(result.output.find("its path has a blank or a colon"), std::string::npos);
}

}  // namespace
