// Shows the partition image and the operations that work on the partitions themselves: save, check,
// download, upgrade, clear.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

using Commands = std::vector<std::string>;

// The shell commands run since the test began, and what is run in their stead, if anything.
Commands commands;
std::function<int(const std::string&)> on_command;

}  // namespace

// Stands before the C library's, which does the work while there is no on_command.
extern "C" int system(const char* command) {
  commands.emplace_back(command);
  if (on_command) return on_command(command);
  return reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"))(command);
}

namespace {

constexpr char kEraseMain[] = "mtd erase NVRAM";
constexpr char kEraseBackup[] = "mtd erase NVRAMBAK";

const std::string kErased(65536, '\xff');

// A partition: the bytes, then erased flash to the end.
std::string partition(const std::string& bytes) { return bytes + kErased.substr(bytes.size()); }

class NvramTest : public StoreTest {
 protected:
  NvramTest() { commands.clear(); }
  ~NvramTest() override { on_command = nullptr; }

  void expect_flash(const std::string& main, const std::string& backup) {
    EXPECT_TRUE(flash_read(kMain) == main);
    EXPECT_TRUE(flash_read(kBackup) == backup);
  }
};

// --- watching the order of writes: none beyond a file's first bytes goes through, and at the first
// that tries, these bytes are noted ---

constexpr size_t kHeaderSize = 8;
const volatile char* watched;
char seen[kHeaderSize];
bool was_seen;

void note_header(int) {
  for (size_t i = 0; i < kHeaderSize && !was_seen; ++i) seen[i] = watched[i];
  was_seen = true;
}

// The partition's header when the first text was written behind it; "(none)" when none was.
std::string header_at_first_text(const char* file, const std::function<void()>& run) {
  FILE* const device = fopen(flash_path(file).c_str(), "r");
  watched =
      static_cast<char*>(mmap(nullptr, kHeaderSize, PROT_READ, MAP_SHARED, fileno(device), 0));
  fclose(device);
  was_seen = false;
  const auto old_handler = signal(SIGXFSZ, note_header);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit header_only = {kHeaderSize, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &header_only);
  run();
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, old_handler);
  munmap(const_cast<char*>(watched), kHeaderSize);
  return was_seen ? std::string(seen, kHeaderSize) : "(none)";
}

// --- save ---

// Reads of R.Number before one fails; a save's dump reads it twice, once per pass.
int good_reads;

uint32_t get_until_it_fails(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = int_value(4);
  return good_reads-- > 0 ? QMIBTREE_RC_OK : QMIBTREE_RC_NO_RESOURCE;
}

class Save : public NvramTest {
 protected:
  Save() { house.record(House::kText).flags = QMIBTREE_UID_SAVE; }

  int save() {
    int result = 0;
    printed = stdout_of([&] { result = qmibtree_save_config(tree.inst); });
    return result;
  }

  // The header that a partition has while a save writes its text.
  std::string header_before_text(const char* file) {
    std::string header;
    stdout_of(
        [&] { header = header_at_first_text(file, [&] { qmibtree_save_config(tree.inst); }); });
    return header;
  }

  // The document now has a number that only so many reads give.
  void save_number_with_good_reads(int count) {
    house.record(House::kNumber).flags = QMIBTREE_UID_SAVE | QMIBTREE_UID_DYNAMIC;
    house.record(House::kNumber).get_fn = get_until_it_fails;
    good_reads = 2;
    numbered = document_of(tree.inst);
    good_reads = count;
  }

  std::string length_header(size_t length) {
    return header_of(QMIBTREE_NVRAM_MAGIC, static_cast<uint32_t>(length));
  }

  House house;
  CheckedTree tree{house};
  std::string printed;
  std::string numbered;
  const std::string image = image_of(text_document("t"));
};

TEST_F(Save, WritesTheSameImageToBothPartitions) {
  EXPECT_EQ(save(), 0);
  expect_flash(partition(image), partition(image));
}

TEST_F(Save, HeaderIsMagicAndLengthBigEndian) {
  save();
  const auto length = static_cast<char>(text_document("t").size());
  EXPECT_EQ(flash_read(kMain).substr(0, 8), std::string("\xab\xcd\x12\x34\0\0\0", 7) + length);
}

TEST_F(Save, PrintsTheLengthOncePerPartition) {
  save();
  const std::string line =
      "\n **********+=+ length = " + std::to_string(text_document("t").size()) + " ********\n";
  EXPECT_EQ(printed, line + line);
}

TEST_F(Save, ErasesNothing) {
  flash_write(kMain, std::string(65536, 'o'));
  save();
  EXPECT_TRUE(flash_read(kMain) == image + std::string(65536 - image.size(), 'o'));
  EXPECT_EQ(commands, Commands{});
}

TEST_F(Save, WholeTreeIsWrittenWhateverItHolds) {
  house.record(House::kText).flags = 0;
  EXPECT_EQ(save(), 0);
  expect_flash(partition(image_of(kDeclaration)), partition(image_of(kDeclaration)));
}

TEST_F(Save, LongestDocumentFillsThePartition) {
  const std::string value(65528 - text_document("").size(), 'x');
  ASSERT_EQ(qmibtree_write_strvalue(tree.inst, "R.Text", value.c_str(), 0), QMIBTREE_RC_OK);
  EXPECT_EQ(save(), 0);
  expect_flash(image_of(text_document(value)), image_of(text_document(value)));
  EXPECT_EQ(qmibtree_check_nvram(), 1);
}

TEST_F(Save, TextIsWrittenBeforeItsHeader) {
  EXPECT_EQ(header_before_text(kMain), kErased.substr(0, 8));
  EXPECT_EQ(flash_read(kMain).substr(0, 8), image.substr(0, 8));
}

TEST_F(Save, BackupTextIsWrittenBeforeItsHeader) {
  flash_remove(kMain);
  EXPECT_EQ(header_before_text(kBackup), kErased.substr(0, 8));
  EXPECT_EQ(flash_read(kBackup).substr(0, 8), image.substr(0, 8));
}

TEST_F(Save, BackupIsTouchedOnlyWhenMainIsComplete) {
  std::string main_then, backup_then;
  static std::function<void()> on_read;
  house.record(House::kNumber).flags = QMIBTREE_UID_SAVE | QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = [](qmibtree_inst_t*, qmibtree_node*,
                                           qmibtree_value_t* value, uint32_t) {
    *value = int_value(4);
    on_read();
    return QMIBTREE_RC_OK;
  };
  int reads = 0;
  on_read = [&] {
    if (++reads != 3) return;  // the backup's dump begins
    main_then = flash_read(kMain);
    backup_then = flash_read(kBackup);
  };
  EXPECT_EQ(save(), 0);
  EXPECT_EQ(reads, 4);
  EXPECT_TRUE(main_then == flash_read(kMain));
  EXPECT_TRUE(backup_then == kErased);
  on_read = nullptr;
}

TEST_F(Save, MissingMainIsNotReported) {
  flash_remove(kMain);
  EXPECT_EQ(save(), 0);
  EXPECT_EQ(flash_read(kMain), "(missing)");
  EXPECT_TRUE(flash_read(kBackup) == partition(image));
}

TEST_F(Save, MissingBackupIsMinusOne) {
  flash_remove(kBackup);
  EXPECT_EQ(save(), -1);
  EXPECT_TRUE(flash_read(kMain) == partition(image));
  EXPECT_EQ(flash_read(kBackup), "(missing)");
}

TEST_F(Save, FailedDumpPutsALengthOfZeroBeforeTheOldText) {
  flash_poke(kMain, 0, image_of("old main"));
  flash_poke(kBackup, 0, image_of("old backup"));
  save_number_with_good_reads(0);
  EXPECT_EQ(save(), 0);
  expect_flash(partition(length_header(0) + "old main"),
               partition(length_header(0) + "old backup"));
  EXPECT_EQ(printed, "");
}

TEST_F(Save, DumpThatFailsInItsSecondPassPutsTheCountedLengthBeforeTheOldText) {
  flash_poke(kMain, 0, image_of("old main"));
  save_number_with_good_reads(1);
  EXPECT_EQ(save(), 0);
  EXPECT_TRUE(flash_read(kMain) == partition(length_header(numbered.size()) + "old main"));
}

TEST_F(Save, BackupKeepsTheLengthOfMainWhenItsOwnDumpFails) {
  flash_poke(kBackup, 0, image_of("old backup"));
  save_number_with_good_reads(2);
  EXPECT_EQ(save(), 0);
  expect_flash(partition(image_of(numbered)),
               partition(length_header(numbered.size()) + "old backup"));
}

TEST_F(Save, ExhaustedMemoryPutsTheNewLengthBeforeTheOldText) {
  flash_poke(kMain, 0, image_of("old main"));
  flash_poke(kBackup, 0, image_of("old backup"));
  fail_allocations_after(0);
  EXPECT_EQ(save(), 0);
  EXPECT_TRUE(allocations_work());
  const std::string header = length_header(text_document("t").size());
  expect_flash(partition(header + "old main"), partition(header + "old backup"));
}

TEST_F(Save, MainTooShortForTheTextGetsItsHeaderAllTheSame) {
  const std::string value(40000, 'x');
  ASSERT_EQ(qmibtree_write_strvalue(tree.inst, "R.Text", value.c_str(), 0), QMIBTREE_RC_OK);
  flash_resize(kMain, 20000);
  EXPECT_EQ(save(), 0);
  const std::string whole = image_of(text_document(value));
  EXPECT_EQ(flash_read(kMain).substr(0, 8), whole.substr(0, 8));
  EXPECT_EQ(flash_read(kMain).size(), 20000u);
  EXPECT_TRUE(flash_read(kBackup) == partition(whole));
  expect_left_open(flash_path(kMain));
}

// --- the image, as the check sees it ---

struct Image {
  const char* name;
  std::string device;
  int answer;
};

const Image kImages[] = {
    {"ErasedFlash", kErased, 0},
    {"Text", partition(image_of("text")), 1},
    {"OneByteOfText", partition(image_of("t")), 1},
    {"NoText", partition(image_of("")), 0},
    {"LongestText", partition(header_of(0xabcd1234, 65528)), 1},
    {"LengthOneTooHigh", partition(header_of(0xabcd1234, 65529)), 0},
    {"LengthThatIsNegativeWhenSigned", partition(header_of(0xabcd1234, 0x80000000)), 0},
    {"LengthOfErasedFlash", partition(header_of(0xabcd1234, 0xffffffff)), 0},
    {"MagicOffByOneBit", partition(header_of(0xabcd1235, 4)), 0},
    {"MagicAndLengthLittleEndian", partition(std::string("\x34\x12\xcd\xab\x04\0\0\0", 8)), 0},
    {"ZeroedFlash", std::string(65536, '\0'), 0},
    {"EmptyDevice", "", 0},
    {"DeviceOfHalfAMagic", "\xab\xcd", 0},
    {"DeviceOfAMagic", "\xab\xcd\x12\x34", 0},
    {"DeviceThatEndsInsideTheLength", std::string("\xab\xcd\x12\x34\0\0\0", 7), 0},
    {"DeviceOfAHeader", header_of(0xabcd1234, 4), 1},  // the text itself is not looked at
};

class Check : public NvramTest, public ::testing::WithParamInterface<Image> {};

INSTANTIATE_TEST_SUITE_P(Images, Check, ::testing::ValuesIn(kImages),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(Check, AnswersByTheMainHeaderAlone) {
  flash_write(kMain, GetParam().device);
  EXPECT_EQ(qmibtree_check_nvram(), GetParam().answer);
  EXPECT_TRUE(flash_read(kMain) == GetParam().device);
}

TEST_F(NvramTest, CheckOfAMissingMainIsZeroThoughTheBackupIsGood) {
  flash_remove(kMain);
  flash_poke(kBackup, 0, image_of("text"));
  EXPECT_EQ(qmibtree_check_nvram(), 0);
}

// --- download ---

std::string line_trace(int line) {
  return "\n ------------ FILE=qmibtree_cfg LINE=" + std::to_string(line) + " -----------\n";
}

class Download : public NvramTest {
 protected:
  int download(const std::string& out) {
    int result = 0;
    printed = stdout_of([&] { result = qmibtree_download_config(out.c_str()); });
    return result;
  }

  // Runs no command; what the command would have read is in `given`.
  void pretend(int status = 0) {
    on_command = [this, status](const std::string&) {
      given = flash_read(kDownload);
      return status;
    };
  }

  // A text of a folder's path that has this length.
  std::string path_of_length(size_t length) { return "/tmp/" + std::string(length - 5, 'o'); }

  std::string printed;
  std::string given = "(nothing)";
};

constexpr char kCommandStart[] = "zorem_cfg -v 0 -i /tmp/temp_config_for_download -o ";

TEST_F(Download, ConvertsTheTextOfTheMainPartition) {
  flash_poke(kMain, 0, image_of("main text"));
  flash_write(kDefault, "default text");
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(given, "main text");
}

TEST_F(Download, ConvertsTheDefaultFileWhenMainIsInvalid) {
  flash_poke(kBackup, 0, image_of("backup text"));  // not looked at
  flash_write(kDefault, "default text");
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(given, "default text");
}

TEST_F(Download, RunsTheConversionWithItsTrailingBlank) {
  flash_poke(kMain, 0, image_of("main text"));
  pretend();
  download("/tmp/out");
  EXPECT_EQ(commands, Commands{kCommandStart + std::string("/tmp/out ")});
}

TEST_F(Download, PrintsItsSteps) {
  flash_poke(kMain, 0, image_of("main text"));
  pretend();
  download("/tmp/out");
  const std::string start = line_trace(532) + line_trace(539) + line_trace(543) +
                            "\n ------------ FILE=qmibtree_cfg LINE=547 fp=";
  const std::string end = "-----------\n";
  ASSERT_GT(printed.size(), start.size() + end.size());
  EXPECT_EQ(printed.substr(0, start.size()), start);
  EXPECT_EQ(printed.substr(printed.size() - end.size()), end);
  const std::string handle =
      printed.substr(start.size(), printed.size() - start.size() - end.size());
  EXPECT_EQ(handle.find_first_not_of("0123456789abcdef"), std::string::npos) << handle;
  EXPECT_NE(handle, "0");
}

TEST_F(Download, StatusOfTheConversionIsIgnored) {
  flash_poke(kMain, 0, image_of("main text"));
  pretend(256);
  EXPECT_EQ(download("/tmp/out"), 0);
}

TEST_F(Download, SourceIsClosedBeforeTheConversionRuns) {
  flash_poke(kMain, 0, image_of("main text"));
  const std::filesystem::path source = std::filesystem::canonical(flash_path(kMain));
  size_t open = 1;
  on_command = [&](const std::string&) {
    open = open_files().count(source);
    return 0;
  };
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(open, 0u);
}

TEST_F(Download, WritesWhatTheConversionMakes) {
  flash_poke(kMain, 0, image_of("main text"));
  EXPECT_EQ(download(folder.path("out")), 0);
  EXPECT_EQ(folder.read("out").substr(0, 8), "zoremcfg");
  EXPECT_NE(folder.read("out").find("main text"), std::string::npos);
}

TEST_F(Download, LeavesFlashAsItWas) {
  flash_poke(kMain, 0, image_of("main text"));
  pretend();
  download("/tmp/out");
  expect_flash(partition(image_of("main text")), kErased);
}

TEST_F(Download, TemporaryFileHoldsOnlyTheNewText) {
  flash_write(kDownload, std::string(1000, 'o'));
  flash_poke(kMain, 0, image_of("main text"));
  pretend();
  download("/tmp/out");
  EXPECT_EQ(given, "main text");
}

TEST_F(Download, EmptyTextIsConvertedToo) {
  flash_poke(kMain, 0, image_of(""));
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(given, "");
}

TEST_F(Download, TextBytesAreCarriedWhateverTheyAre) {
  const std::string text("a\0b\xff\n", 5);
  flash_poke(kMain, 0, image_of(text));
  pretend();
  download("/tmp/out");
  EXPECT_EQ(given, text);
}

// The buffer is one for all calls, and forgets the call before.
TEST_F(Download, TextMissingFromAShortDeviceIsZero) {
  flash_poke(kMain, 0, image_of(std::string(1000, 'o')));
  pretend();
  download("/tmp/out");
  flash_write(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 20) + "short");
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(given, "short" + std::string(15, '\0'));
}

TEST_F(Download, LongestTextIsConverted) {
  const std::string text(65528, 'x');
  flash_write(kMain, image_of(text));
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_TRUE(given == text);
}

TEST_F(Download, DefaultFileOfTheBuffersSizeIsConverted) {
  const std::string text(65529, 'x');
  flash_write(kDefault, text);
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_TRUE(given == text);
}

TEST_F(Download, LargerDefaultFileIsRefusedBeforeAnythingIsPrinted) {
  flash_write(kDefault, std::string(65530, 'x'));
  EXPECT_EQ(download("/tmp/out"), -1);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(commands, Commands{});
  EXPECT_EQ(flash_read(kDownload), "(missing)");
}

TEST_F(Download, MissingDefaultFileIsRefusedBeforeAnythingIsPrinted) {
  EXPECT_EQ(download("/tmp/out"), -1);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(commands, Commands{});
  EXPECT_EQ(flash_read(kDownload), "(missing)");
}

struct FailingCall {
  const char* name;
  const char* call;
  int good;  // calls before the one that fails
};

class DownloadSource : public Download, public ::testing::WithParamInterface<FailingCall> {};

// The first open is for the header.
INSTANTIATE_TEST_SUITE_P(ThatCannotBe, DownloadSource,
                         ::testing::Values(FailingCall{"Opened", "fopen", 1},
                                           FailingCall{"Positioned", "fseek", 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(DownloadSource, IsMinusOneBeforeAnythingIsPrinted) {
  flash_poke(kMain, 0, image_of("main text"));
  fail_call(GetParam().call, GetParam().good);
  EXPECT_EQ(download("/tmp/out"), -1);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(printed, "");
  EXPECT_EQ(commands, Commands{});
}

TEST_F(Download, SourceThatCannotBeReadIsMinusOneAfterTheFirstStep) {
  std::filesystem::create_directory(flash_path(kDefault));  // opens, but gives no bytes
  EXPECT_EQ(download("/tmp/out"), -1);
  EXPECT_EQ(printed, line_trace(532));
  EXPECT_EQ(commands, Commands{});
  EXPECT_EQ(flash_read(kDownload), "(missing)");
}

TEST_F(Download, TemporaryFileThatCannotBeOpenedStopsNothing) {
  flash_poke(kMain, 0, image_of("main text"));
  std::filesystem::create_directory(flash_path(kDownload));
  pretend();
  EXPECT_EQ(download("/tmp/out"), 0);
  EXPECT_EQ(printed, line_trace(532) + line_trace(539) +
                         "\n ------------ FILE=qmibtree_cfg LINE=547 fp=0-----------\n");
  EXPECT_EQ(commands.size(), 1u);
}

TEST_F(Download, NullPathIsRefused) {
  flash_poke(kMain, 0, image_of("main text"));
  EXPECT_EQ(qmibtree_download_config(nullptr), -1);
  EXPECT_EQ(commands, Commands{});
}

// The command line holds 127 characters; what does not fit of one of 128 is the trailing blank.
TEST_F(Download, LongestPathIsConverted) {
  flash_poke(kMain, 0, image_of("main text"));
  pretend();
  const std::string path = path_of_length(127 - strlen(kCommandStart));
  EXPECT_EQ(download(path), 0);
  EXPECT_EQ(commands, Commands{kCommandStart + path});
}

TEST_F(Download, LongerPathIsRefusedAndNeverCut) {
  flash_poke(kMain, 0, image_of("main text"));
  for (size_t length : {128 - strlen(kCommandStart), size_t{500}, size_t{100000}})
    EXPECT_EQ(download(path_of_length(length)), -1) << length;
  EXPECT_EQ(commands, Commands{});
}

// --- upgrade ---

class Upgrade : public NvramTest {
 protected:
  int upgrade(const std::string& bytes) {
    return qmibtree_upgrade_config(folder.write("up", bytes).c_str());
  }

  std::string up() const { return folder.path("up"); }
};

TEST_F(Upgrade, PutsThePayloadIntoBothPartitions) {
  EXPECT_EQ(upgrade(upgrade_of("payload")), 0);
  expect_flash(partition(image_of("payload")), partition(image_of("payload")));
}

TEST_F(Upgrade, ErasesTheBackupFirst) {
  upgrade(upgrade_of("payload"));
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain}));
}

TEST_F(Upgrade, NothingOfTheOldImageIsLeft) {
  flash_write(kMain, std::string(65536, 'o'));
  flash_write(kBackup, std::string(65536, 'o'));
  EXPECT_EQ(upgrade(upgrade_of("payload")), 0);
  expect_flash(partition(image_of("payload")), partition(image_of("payload")));
}

TEST_F(Upgrade, BackupIsCompleteBeforeMainIsErased) {
  flash_poke(kMain, 0, image_of("old"));
  std::string backup_then, main_then;
  on_command = [&](const std::string& command) {
    if (command == kEraseMain) {
      main_then = flash_text(kMain);
      backup_then = flash_text(kBackup);
    }
    return 0;
  };
  upgrade(upgrade_of("payload"));
  EXPECT_EQ(main_then, "old");
  EXPECT_EQ(backup_then, "payload");
}

TEST_F(Upgrade, HeaderIsWrittenBeforeItsText) {
  on_command = [](const std::string&) { return 0; };
  folder.write("up", upgrade_of("payload"));
  flash_remove(kBackup);
  const std::string before =
      header_at_first_text(kMain, [&] { qmibtree_upgrade_config(up().c_str()); });
  EXPECT_EQ(before, image_of("payload").substr(0, 8));
}

TEST_F(Upgrade, LengthIsLittleEndianInTheFileAndBigEndianInThePartition) {
  const std::string payload = "sixteen bytes !!";
  EXPECT_EQ(
      upgrade("zoremcfg" + std::string("\1\2\3\4\x10\0\0\0", 8) + payload + std::string(4, '\0')),
      0);
  EXPECT_TRUE(flash_read(kMain) ==
              partition(std::string("\xab\xcd\x12\x34\0\0\0\x10", 8) + payload));
}

TEST_F(Upgrade, PayloadBytesAreStoredWhateverTheyAre) {
  const std::string payload("a\0b\xff\n\0", 6);
  EXPECT_EQ(upgrade(upgrade_of(payload)), 0);
  EXPECT_TRUE(flash_read(kMain) == partition(image_of(payload)));
}

TEST_F(Upgrade, EmptyPayloadIsAnUpgrade) {
  flash_poke(kMain, 0, image_of("old"));
  EXPECT_EQ(upgrade(upgrade_of("")), 0);
  expect_flash(partition(image_of("")), partition(image_of("")));
}

TEST_F(Upgrade, PayloadOfOneByteIsAnUpgrade) {
  EXPECT_EQ(upgrade(upgrade_of("x")), 0);
  expect_flash(partition(image_of("x")), partition(image_of("x")));
}

TEST_F(Upgrade, LongestPayloadFillsThePartition) {
  const std::string payload(65528, 'x');
  EXPECT_EQ(upgrade(upgrade_of(payload)), 0);
  expect_flash(image_of(payload), image_of(payload));
}

TEST_F(Upgrade, BytesBehindTheTrailerAreNotLookedAt) {
  EXPECT_EQ(upgrade(upgrade_of("payload") + "more"), 0);
  EXPECT_EQ(flash_text(kMain), "payload");
}

TEST_F(Upgrade, FileIsOnlyReadFrom) {
  upgrade(upgrade_of("payload"));
  EXPECT_EQ(folder.read("up"), upgrade_of("payload"));
}

struct BadFile {
  const char* name;
  std::string bytes;
  bool left_open;  // its descriptor
};

std::string with_length(uint32_t length, const std::string& rest) {
  std::string bytes = upgrade_of("").substr(0, 12);
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(length >> shift);
  return bytes + rest;
}

std::string with_trailer(const std::string& trailer) { return with_length(7, "payload" + trailer); }

// Deliberate: the second pass gives up the descriptor of a file without a whole header.
const BadFile kBadFiles[] = {
    {"Empty", "", true},
    {"HeaderShortOfOneByte", upgrade_of("payload").substr(0, 15), true},
    {"OtherMagic", "Zoremcfg" + upgrade_of("payload").substr(8), false},
    {"LastByteOfTheMagic", "zoremcfh" + upgrade_of("payload").substr(8), false},
    {"OtherMagicBeforeNoPayload", "Zoremcfg" + upgrade_of("").substr(8), false},
    {"LengthOneTooHighBeforeZeros", upgrade_of(std::string(65529, '\0')), false},
    {"LengthOneTooHigh", upgrade_of(std::string(65529, 'x')), false},
    {"LengthFarTooHigh", with_length(0x7fffffff, "payload"), false},
    {"NegativeLength", with_length(0xffffffff, "payload" + std::string(4, '\0')), false},
    {"LowestLength", with_length(0x80000000, std::string(4, '\0')), false},
    {"LengthBigEndian", with_length(0x07000000, "payload" + std::string(4, '\0')), false},
    {"HeaderAlone", with_length(7, ""), false},
    {"PayloadShortOfOneByte", with_length(7, "payloa"), false},
    {"NoTrailer", with_trailer(""), false},
    {"TrailerShortOfOneByte", with_trailer(std::string(3, '\0')), false},
    {"TrailerWithAFirstByte", with_trailer(std::string("\1\0\0\0", 4)), false},
    {"TrailerWithASecondByte", with_trailer(std::string("\0\1\0\0", 4)), false},
    {"TrailerWithAThirdByte", with_trailer(std::string("\0\0\1\0", 4)), false},
    {"TrailerWithAFourthByte", with_trailer(std::string("\0\0\0\x80", 4)), false},
};

class UpgradeBadFile : public Upgrade, public ::testing::WithParamInterface<BadFile> {};

INSTANTIATE_TEST_SUITE_P(Files, UpgradeBadFile, ::testing::ValuesIn(kBadFiles),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(UpgradeBadFile, IsRefusedAndChangesNothing) {
  flash_poke(kMain, 0, image_of("old main"));
  flash_poke(kBackup, 0, image_of("old backup"));
  EXPECT_EQ(upgrade(GetParam().bytes), -1);
  EXPECT_EQ(commands, Commands{});
  expect_flash(partition(image_of("old main")), partition(image_of("old backup")));
  if (GetParam().left_open) expect_left_open(up());
}

TEST_F(Upgrade, NullPathIsRefused) {
  EXPECT_EQ(qmibtree_upgrade_config(nullptr), -1);
  EXPECT_EQ(commands, Commands{});
}

TEST_F(Upgrade, MissingFileIsRefusedAndNotCreated) {
  EXPECT_EQ(qmibtree_upgrade_config(up().c_str()), -1);
  EXPECT_EQ(commands, Commands{});
  EXPECT_FALSE(folder.has("up"));
}

TEST_F(Upgrade, FileMustAllowWritingThoughItIsOnlyRead) {
  EXPECT_EQ(qmibtree_upgrade_config(folder.path("").c_str()),
            -1);  // a folder opens for reading only
  EXPECT_EQ(commands, Commands{});
}

// Reads of the first pass: the header, the payload, the trailer.
TEST_F(Upgrade, FileThatCannotBeReadInOnePassLeavesThatPartitionAsItWas) {
  for (int read = 0; read < 3; ++read) {
    flash_poke(kBackup, 0, image_of("old"));
    fail_call("read", read);
    EXPECT_EQ(upgrade(upgrade_of("payload")), 0) << read;
    EXPECT_TRUE(calls_work()) << read;
    EXPECT_EQ(flash_text(kBackup), "old") << read;
    EXPECT_EQ(flash_text(kMain), "payload") << read;
  }
}

TEST_F(Upgrade, ZerosOfAPayloadThatCannotBeReadAreNoTrailer) {
  flash_poke(kBackup, 0, image_of("old"));
  fail_call("read", 1);
  EXPECT_EQ(upgrade(upgrade_of(std::string(4, '\0'))), 0);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(flash_text(kBackup), "old");
}

TEST_F(Upgrade, EachPartitionReadsTheFileAfresh) {
  flash_poke(kMain, 0, image_of("old"));
  on_command = [&](const std::string& command) {
    if (command == kEraseBackup) folder.write("up", upgrade_of("second"));
    return 0;
  };
  EXPECT_EQ(upgrade(upgrade_of("first")), 0);
  EXPECT_EQ(flash_text(kBackup), "first");
  EXPECT_EQ(flash_text(kMain), "second");
}

// Both passes read from a pipe that is empty until the first of them has been interrupted.
TEST_F(Upgrade, ReadingGoesOnAfterASignal) {
  ASSERT_EQ(mkfifo(up().c_str(), 0600), 0);
  const int pipe = open(up().c_str(), O_RDWR);  // keeps what is in it between the passes
  struct sigaction interrupts = {}, old = {};
  interrupts.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupts, &old);
  const long reads = calls_made("read");
  std::thread other([&, reader = pthread_self()] {
    while (calls_made("read") < reads + 2) pthread_kill(reader, SIGUSR1);
    const std::string file = upgrade_of("payload");
    for (int pass = 0; pass < 2; ++pass)
      EXPECT_EQ(write(pipe, file.data(), file.size()), static_cast<ssize_t>(file.size()));
  });
  EXPECT_EQ(qmibtree_upgrade_config(up().c_str()), 0);
  other.join();
  close(pipe);
  sigaction(SIGUSR1, &old, nullptr);
  expect_flash(partition(image_of("payload")), partition(image_of("payload")));
}

// Each pass reads from a pipe that has the next piece once the one before is taken.
TEST_F(Upgrade, FileMayComeInPieces) {
  ASSERT_EQ(mkfifo(up().c_str(), 0600), 0);
  const int pipe = open(up().c_str(), O_RDWR);
  const std::string file = upgrade_of("payload");
  std::atomic<bool> over = false;
  std::thread other([&] {
    for (int pass = 0; pass < 2; ++pass)
      for (size_t at = 0; at < file.size(); at += 3) {
        const std::string piece = file.substr(at, 3);
        EXPECT_EQ(write(pipe, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        for (int left = 1; left > 0 && !over;) ASSERT_EQ(ioctl(pipe, FIONREAD, &left), 0);
      }
  });
  EXPECT_EQ(qmibtree_upgrade_config(up().c_str()), 0);
  over = true;
  other.join();
  close(pipe);
  expect_flash(partition(image_of("payload")), partition(image_of("payload")));
}

TEST_F(Upgrade, EndOfTheFileIsNoInterruption) {
  const std::string file = folder.write("up", upgrade_of("payload").substr(0, 20));
  errno = EINTR;  // what some call before left there
  EXPECT_EQ(qmibtree_upgrade_config(file.c_str()), -1);
  EXPECT_EQ(commands, Commands{});
}

TEST_F(Upgrade, FileIsClosedBeforeThePartitionIsErased) {
  std::vector<size_t> open;
  on_command = [&](const std::string&) {
    open.push_back(open_files().count(std::filesystem::canonical(up())));
    return 0;
  };
  EXPECT_EQ(upgrade(upgrade_of("payload")), 0);
  EXPECT_EQ(open, (std::vector<size_t>{0, 0}));
}

TEST_F(Upgrade, StatusOfTheEraseIsIgnored) {
  on_command = [](const std::string&) { return 256; };
  EXPECT_EQ(upgrade(upgrade_of("payload")), 0);
  EXPECT_EQ(flash_text(kMain), "payload");
}

TEST_F(Upgrade, MissingBackupIsNotReported) {
  flash_remove(kBackup);
  EXPECT_EQ(upgrade(upgrade_of("payload")), 0);
  EXPECT_EQ(flash_read(kBackup), "(missing)");
  EXPECT_TRUE(flash_read(kMain) == partition(image_of("payload")));
}

TEST_F(Upgrade, MissingMainIsMinusOneWithTheBackupUpgraded) {
  flash_remove(kMain);
  EXPECT_EQ(upgrade(upgrade_of("payload")), -1);
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain}));
  EXPECT_TRUE(flash_read(kBackup) == partition(image_of("payload")));
}

TEST_F(Upgrade, MainThatGoesMissingAfterItsEraseIsMinusOne) {
  on_command = [](const std::string& command) {
    if (command == kEraseMain) flash_remove(kMain);
    return 0;
  };
  EXPECT_EQ(upgrade(upgrade_of("payload")), -1);
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain}));
}

// What fails while the second partition, main, is written: calls of the same kind before it are the
// backup's, and those for its own header.
TEST_F(Upgrade, MainThatCannotBeOpenedForItsTextIsMinusOneWithItsHeaderAlone) {
#ifndef __GLIBC__  // the C++ library is linked in: the calls of the erase's own stream count too
  GTEST_SKIP() << "the test's own calls cannot be told from the library's";
#endif
  fail_call("fopen", 3);
  EXPECT_EQ(upgrade(upgrade_of("payload")), -1);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain}));
  expect_flash(partition(header_of(QMIBTREE_NVRAM_MAGIC, 7)), partition(image_of("payload")));
}

class UpgradeText : public Upgrade, public ::testing::WithParamInterface<FailingCall> {};

INSTANTIATE_TEST_SUITE_P(ThatCannotBe, UpgradeText,
                         ::testing::Values(FailingCall{"Positioned", "fseek", 1},
                                           FailingCall{"WrittenWhole", "fwrite", 3},
                                           FailingCall{"Closed", "fclose", 3}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(UpgradeText, IsMinusOneAndMainErasedAgain) {
#ifndef __GLIBC__  // the C++ library is linked in: the calls of the erase's own stream count too
  GTEST_SKIP() << "the test's own calls cannot be told from the library's";
#endif
  fail_call(GetParam().call, GetParam().good);
  EXPECT_EQ(upgrade(upgrade_of("payload")), -1);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain, kEraseMain}));
  expect_flash(kErased, partition(image_of("payload")));
}

// A device can be short of the text by more than a stream buffers, or by less.
class UpgradeShort : public Upgrade, public ::testing::WithParamInterface<size_t> {
 protected:
  std::string payload() { return std::string(GetParam() + 100, 'x'); }
};

INSTANTIATE_TEST_SUITE_P(By, UpgradeShort, ::testing::Values(100, 20000));

TEST_P(UpgradeShort, MainTooShortIsMinusOneAndErasedAgain) {
  flash_resize(kMain, 8 + 100);
  EXPECT_EQ(upgrade(upgrade_of(payload())), -1);
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseMain, kEraseMain}));
  expect_flash(std::string(8 + 100, '\xff'), partition(image_of(payload())));
}

TEST_P(UpgradeShort, BackupTooShortIsErasedAgainAndNotReported) {
  flash_resize(kBackup, 8 + 100);
  EXPECT_EQ(upgrade(upgrade_of(payload())), 0);
  EXPECT_EQ(commands, (Commands{kEraseBackup, kEraseBackup, kEraseMain}));
  expect_flash(partition(image_of(payload())), std::string(8 + 100, '\xff'));
}

// Each pass judges the file for itself.
TEST_F(Upgrade, FileThatGoesBadAfterTheBackupLeavesMainAsItWas) {
  flash_poke(kMain, 0, image_of("old"));
  on_command = [&](const std::string&) {
    folder.write("up", "zoremcfg");
    return 0;
  };
  EXPECT_EQ(upgrade(upgrade_of("payload")), -1);
  EXPECT_EQ(commands, Commands{kEraseBackup});
  EXPECT_EQ(flash_text(kBackup), "payload");
  EXPECT_EQ(flash_text(kMain), "old");
  expect_left_open(up());
}

TEST_F(Upgrade, DownloadedFileBringsTheConfigurationBack) {
  flash_poke(kMain, 0, image_of("main text"));
  stdout_of([&] { EXPECT_EQ(qmibtree_download_config(up().c_str()), 0); });
  EXPECT_EQ(qmibtree_clear_config(), 0);
  EXPECT_EQ(qmibtree_upgrade_config(up().c_str()), 0);
  expect_flash(partition(image_of("main text")), partition(image_of("main text")));
}

// --- clear ---

class Clear : public NvramTest {};

TEST_F(Clear, ErasesBothPartitionsMainFirst) {
  flash_write(kMain, std::string(65536, 'o'));
  flash_write(kBackup, std::string(65536, 'o'));
  EXPECT_EQ(qmibtree_clear_config(), 0);
  EXPECT_EQ(commands, (Commands{kEraseMain, kEraseBackup}));
  expect_flash(kErased, kErased);
}

TEST_F(Clear, AnswersTheStatusOfTheSecondErase) {
  on_command = [](const std::string& command) { return command == kEraseMain ? 256 : 512; };
  EXPECT_EQ(qmibtree_clear_config(), 512);
}

TEST_F(Clear, FailureOfTheFirstEraseIsNotReported) {
  on_command = [](const std::string& command) { return command == kEraseMain ? 256 : 0; };
  EXPECT_EQ(qmibtree_clear_config(), 0);
  EXPECT_EQ(commands.size(), 2u);
}

}  // namespace
