// Shows the load at start: which route it takes, what it traces, what it leaves in tree and flash.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr char kCheckMainGood[] = "\n -- check nvram success --\n";
constexpr char kCheckMainBad[] = "\n -- check nvram faild --\n";
constexpr char kLoadMainFailed[] = "\n -- load nvram success --\n";  // deliberate, as it reads
constexpr char kCheckBackupGood[] = "\n -- check nvram bak success --\n";
constexpr char kCheckBackupBad[] = "\n -- check nvram bak faild --\n";
constexpr char kSaving[] = "\n -- write config and bak file --\n";
constexpr char kLoadingDefault[] = "\n -- load default xml config --\n";

std::string trace(std::initializer_list<const char*> lines) {
  std::string text;
  for (const char* line : lines) text += line;
  return text;
}

const std::string kErased(65536, '\xff');

std::string partition(const std::string& bytes) { return bytes + kErased.substr(bytes.size()); }

class Load : public StoreTest {
 protected:
  Load() { house.record(House::kText).flags = QMIBTREE_UID_SAVE; }

  int load() {
    int result = -2;
    printed = stdout_of([&] { result = qmibtree_load_config(tree.inst); });
    return result;
  }

  // Partitions hold a document for R.Text, or whatever else is given.
  void put(const char* file, const std::string& image) { flash_poke(file, 0, image); }

  std::string text() { return read_text(tree.inst, "R.Text"); }

  // Both partitions were rewritten with the image that R.Text now makes.
  void expect_saved(const std::string& value) {
    EXPECT_EQ(flash_text(kMain), text_document(value));
    EXPECT_EQ(flash_text(kBackup), text_document(value));
  }

  House house;
  CheckedTree tree{house};
  std::string printed;
};

const std::string kMainImage = image_of(text_document("main"));
const std::string kBackupImage = image_of(text_document("back"));  // of the same length
const std::string kBrokenImage = image_of("<R.><PARAM name=\"Number\">6</PARAM>");

// --- routes ---

TEST_F(Load, MainIsLoadedAndSaved) {
  put(kMain, kMainImage);
  put(kBackup, kBackupImage);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "main");
  expect_saved("main");
}

// A program that cannot be run ends through its exit handlers, which write what streams hold.
TEST_F(Load, AProgramThatCannotBeRunMeanwhileAddsNothingToTheTrace) {
  put(kMain, kMainImage);
  static pid_t child;
  on_change() = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) {
    child = qmibtree_comp_fork_and_execl(0, "/no/such/daemon", nullptr, nullptr);
    waitpid(child, nullptr, 0);
    return 0u;
  };
  EXPECT_EQ(load(), 0);
  on_change() = nullptr;
  EXPECT_GT(child, 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
}

TEST_F(Load, MainIsSavedOverAnErasedBackup) {
  put(kMain, kMainImage);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  expect_saved("main");
}

TEST_F(Load, BackupIsLoadedAndSavedWhenMainIsErased) {
  put(kBackup, kBackupImage);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupGood, kSaving}));
  EXPECT_EQ(text(), "back");
  expect_saved("back");
}

TEST_F(Load, BackupIsRewrittenTooWhenItIsTheOneLoaded) {
  put(kBackup, image_of("<R.><PARAM name=\"Text\">back</PARAM></R.>"));  // as no save writes it
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupGood, kSaving}));
  expect_saved("back");
}

TEST_F(Load, BackupIsLoadedAndSavedWhenTheMainDocumentIsBroken) {
  put(kMain, header_of(QMIBTREE_NVRAM_MAGIC, static_cast<uint32_t>(kBackupImage.size() - 8)) +
                 "<R.><PARAM");
  put(kBackup, kBackupImage);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kSaving}));
  EXPECT_EQ(text(), "back");
  expect_saved("back");
}

TEST_F(Load, DefaultIsLoadedWhenBothDocumentsAreBroken) {
  put(kMain, kBrokenImage);
  put(kBackup, kBrokenImage);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
  EXPECT_EQ(text(), "default");
  EXPECT_TRUE(flash_read(kMain) == partition(kBrokenImage));
  EXPECT_TRUE(flash_read(kBackup) == partition(kBrokenImage));
}

TEST_F(Load, DefaultIsLoadedWhenMainIsErasedAndTheBackupDocumentBroken) {
  put(kBackup, kBrokenImage);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupGood, kLoadingDefault}));
  EXPECT_EQ(text(), "default");
  EXPECT_TRUE(flash_read(kMain) == kErased);
  EXPECT_TRUE(flash_read(kBackup) == partition(kBrokenImage));
}

TEST_F(Load, DefaultIsLoadedAndNothingSavedWhenBothPartitionsAreErased) {
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
  EXPECT_EQ(text(), "default");
  EXPECT_TRUE(flash_read(kMain) == kErased);
  EXPECT_TRUE(flash_read(kBackup) == kErased);
  EXPECT_EQ(printed, "");
}

TEST_F(Load, MissingDevicesAreInvalid) {
  flash_remove(kMain);
  flash_remove(kBackup);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
  EXPECT_EQ(text(), "default");
  EXPECT_EQ(flash_read(kMain), "(missing)");
  EXPECT_EQ(flash_read(kBackup), "(missing)");
}

TEST_F(Load, MissingBackupDoesNotStopTheMainRoute) {
  put(kMain, kMainImage);
  flash_remove(kBackup);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "main");
}

TEST_F(Load, BrokenMainWithoutABackupDeviceLeadsToTheDefault) {
  put(kMain, kBrokenImage);
  flash_remove(kBackup);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
  EXPECT_EQ(text(), "default");
}

TEST_F(Load, MissingDefaultLeavesTheTreeAsBuilt) {
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
  EXPECT_EQ(text(), "t");
}

TEST_F(Load, BrokenDefaultIsNotReported) {
  flash_write(kDefault, "<R.><PARAM name=\"Text\">new</PARAM>");
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(text(), "new");
  EXPECT_TRUE(flash_read(kMain) == kErased);
}

TEST_F(Load, DefaultFileMayBeLargerThanAPartition) {
  const std::string value(100000, 'x');
  flash_write(kDefault, text_document(value));
  EXPECT_EQ(load(), 0);
  EXPECT_TRUE(text() == value);
}

TEST_F(Load, DocumentWithNothingInItIsBroken) {
  put(kMain, image_of(kDeclaration));  // what a tree with nothing to keep saves
  put(kBackup, image_of(kDeclaration));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
}

// --- what a failed load leaves ---

TEST_F(Load, WhatCameBeforeTheErrorInMainStaysBehindTheBackup) {
  house.record(House::kNumber).flags = QMIBTREE_UID_SAVE;
  const std::string broken =
      "<R.><PARAM name=\"Number\">6</PARAM><PARAM name=\"Text\">main</PARAM>";
  const std::string backup = "<R.><PARAM name=\"Text\">back</PARAM></R.>";
  put(kMain, image_of(broken));
  put(kBackup, image_of(backup + std::string(broken.size() - backup.size(), '\n')));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kSaving}));
  const std::string both = kDeclaration + std::string(
                                              "<R.>\n<PARAM name=\"Text\">back</PARAM>\n"
                                              "<PARAM name=\"Number\">6</PARAM>\n</R.>\n");
  EXPECT_EQ(flash_text(kMain), both);
  EXPECT_EQ(flash_text(kBackup), both);
}

TEST_F(Load, WhatCameBeforeTheErrorsStaysBehindTheDefault) {
  put(kMain, kBrokenImage);
  flash_write(kDefault, text_document("default"));
  load();
  EXPECT_EQ(text(), "default");
  EXPECT_EQ(read_text(tree.inst, "R.Number"), "6");
}

// --- the backup behind a broken main: it goes by main's length, whatever its own header says ---

TEST_F(Load, BackupBehindABrokenMainNeedsNoHeader) {
  const std::string document = text_document("back");
  put(kMain, header_of(QMIBTREE_NVRAM_MAGIC, static_cast<uint32_t>(document.size())) + "broken");
  put(kBackup, header_of(0, 0) + document);
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kSaving}));
  EXPECT_EQ(text(), "back");
}

TEST_F(Load, BackupBehindABrokenMainOfASmallerLengthIsBrokenToo) {
  put(kMain, image_of("broken"));
  put(kBackup, kBackupImage);
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
}

TEST_F(Load, BackupBehindABrokenMainOfALargerLengthRunsIntoErasedFlash) {
  put(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 5000) + "broken");
  put(kBackup, kBackupImage);
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
  EXPECT_EQ(text(), "back");  // it was read whole before the error behind it
}

// --- headers ---

TEST_F(Load, LongestTextIsLoaded) {
  const std::string value(65528 - text_document("").size(), 'x');
  flash_write(kMain, image_of(text_document(value)));
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_TRUE(text() == value);
  expect_saved(value);
}

TEST_F(Load, LengthOneTooHighIsInvalidInEitherPartition) {
  flash_write(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 65529) + text_document("main"));
  flash_write(kBackup, header_of(QMIBTREE_NVRAM_MAGIC, 65529) + text_document("back"));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
}

TEST_F(Load, BackupHeaderCutShortIsInvalid) {
  flash_write(kBackup, std::string("\xab\xcd\x12\x34\0\0\0", 7));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
}

TEST_F(Load, BackupWithAnotherMagicIsInvalid) {
  put(kBackup, header_of(0xabcd1235, 4) + text_document("back"));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
}

// Deliberate: a length of 0 is valid here, and means all that the device holds.
TEST_F(Load, LengthZeroIsTheWholeDevice) {
  flash_write(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 0) + text_document("main"));
  EXPECT_EQ(qmibtree_check_nvram(), 0);
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "main");
}

TEST_F(Load, LengthZeroRunsIntoErasedFlash) {
  put(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 0) + text_document("main"));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
}

TEST_F(Load, LengthPastTheDevicesEndLoadsWhatIsThere) {
  flash_write(kMain, header_of(QMIBTREE_NVRAM_MAGIC, 60000) + text_document("main"));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "main");
}

TEST_F(Load, TextEndsAtANul) {
  const std::string document = text_document("main") + std::string("\0behind", 7);
  put(kMain, image_of(document));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "main");
}

// --- how it loads and saves ---

TEST_F(Load, SavePrintsTheLengthOncePerPartition) {
  put(kMain, kMainImage);
  load();
  const std::string line =
      "\n **********+=+ length = " + std::to_string(kMainImage.size() - 8) + " ********\n";
  EXPECT_EQ(printed, line + line);
}

TEST_F(Load, PartitionIsRewrittenInTheFormatOfThisBuild) {
  put(kMain, image_of("<R.><PARAM name=\"Text\">main</PARAM><PARAM name=\"Gone\">x</PARAM></R.>"));
  load();
  expect_saved("main");
}

TEST_F(Load, ValuesAreRefreshedNotWrittenFromOutside) {
  qmibtree_comp_register(4, 0, nullptr, nullptr, nullptr, nullptr);
  house.record(House::kText).comp = 4;
  house.record(House::kText).flags |= QMIBTREE_UID_READONLY;
  put(kMain, kMainImage);
  load();
  EXPECT_EQ(text(), "main");
  EXPECT_EQ(qmibtree_comp_chk_mark(4, QMIBTREE_COMP_MARK_CHANGED), 0);
}

TEST_F(Load, DefaultValuesAreRefreshedNotWrittenFromOutside) {
  house.record(House::kText).flags |= QMIBTREE_UID_READONLY;
  flash_write(kDefault, text_document("default"));
  load();
  EXPECT_EQ(text(), "default");
}

TEST_F(Load, SecondStartTakesTheMainRouteWithTheSameBytes) {
  put(kBackup, kBackupImage);
  load();
  const std::string first = flash_read(kMain);
  tree.destroy();
  tree.inst = qmibtree_init(house.block());
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kSaving}));
  EXPECT_EQ(text(), "back");
  EXPECT_TRUE(flash_read(kMain) == first);
  EXPECT_TRUE(flash_read(kBackup) == first);
}

TEST_F(Load, UpgradeIsLoadedAtTheNextStart) {
  put(kMain, kMainImage);
  const std::string up = folder.write("up", upgrade_of(text_document("upgraded")));
  EXPECT_EQ(qmibtree_upgrade_config(up.c_str()), 0);
  EXPECT_EQ(text(), "t");
  load();
  EXPECT_EQ(text(), "upgraded");
}

TEST_F(Load, DefaultIsLoadedAtTheStartAfterAClear) {
  put(kMain, kMainImage);
  put(kBackup, kBackupImage);
  flash_write(kDefault, text_document("default"));
  EXPECT_EQ(qmibtree_clear_config(), 0);
  EXPECT_EQ(text(), "t");
  load();
  EXPECT_EQ(text(), "default");
}

// --- the trace file ---

TEST_F(Load, TraceHoldsTheLastLoadOnly) {
  flash_write(kTrace, std::string(1000, 'o'));
  load();
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainBad, kCheckBackupBad, kLoadingDefault}));
}

TEST_F(Load, TraceThatCannotBeOpenedStopsNothing) {
  std::filesystem::create_directory(flash_path(kTrace));
  put(kMain, kMainImage);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(text(), "main");
  expect_saved("main");
}

TEST_F(Load, TraceThatCannotBeWrittenStopsNothing) {
  std::filesystem::create_symlink("/dev/full", flash_path(kTrace));
  put(kMain, kMainImage);
  EXPECT_EQ(load(), 0);
  EXPECT_EQ(text(), "main");
  expect_saved("main");
}

// --- memory ---

// With each allocation failing in turn, the trace tells whether a save was made. With one each
// partition has a header for the document that the tree makes now, before that document or, when
// there was no memory for it, the old bytes; without one both are as they were.
TEST_F(Load, AnyFailedAllocationKeepsThePartitionsToTheirRules) {
  house.record(House::kName).flags = QMIBTREE_UID_SAVE;
  house.record(House::kOn).flags = QMIBTREE_UID_SAVE;
  const std::string document =
      kDeclaration + std::string(
                         "<R.>\n<PARAM name=\"Text\">main</PARAM>\n"
                         "<Port. instance=\"3\">\n<PARAM name=\"Name\">wan</PARAM>\n"
                         "<Rule. instance=\"2\">\n<PARAM name=\"On\">false</PARAM>\n</Rule.>\n"
                         "</Port.>\n</R.>\n");
  flash_write(kDefault, text_document("default"));
  const int live_before_tree = live_blocks();
  bool struck = true;
  int n = 0;
  for (; struck; ++n) {
    flash_write(kMain, partition(image_of(document)));
    flash_write(kBackup, partition(image_of(document)));
    CheckedTree fresh(house);
    int result = -2;
    stdout_of([&] {
      fail_allocation_after(n);
      result = qmibtree_load_config(fresh.inst);
      struck = allocations_work();
    });
    ASSERT_EQ(result, 0) << n;
    const std::string now = document_of(fresh.inst);
    const std::string route = flash_read(kTrace);
    const bool saved = route.find(kSaving) != std::string::npos;
    if (!struck) {
      ASSERT_EQ(now, document);
    }
    for (const char* file : {kMain, kBackup}) {
      const std::string header =
          header_of(QMIBTREE_NVRAM_MAGIC, static_cast<uint32_t>((saved ? now : document).size()));
      const std::string device = flash_read(file);
      const std::string old = partition(image_of(document));
      ASSERT_EQ(device.substr(0, 8), header) << n << file;
      ASSERT_TRUE(device.substr(8) == old.substr(8) ||
                  (saved && device.substr(8) == now + old.substr(8 + now.size())))
          << n << file;
    }
    fresh.destroy();
    ASSERT_EQ(live_blocks(), live_before_tree) << n;
  }
  EXPECT_GE(n, 13);  // the text, three values, two instances, two documents
}

TEST_F(Load, NoMemoryAtAllIsSurvived) {
  put(kMain, kMainImage);
  put(kBackup, kBackupImage);
  flash_write(kDefault, text_document("default"));
  fail_allocations_after(0);
  EXPECT_EQ(load(), 0);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kLoadingDefault}));
  EXPECT_EQ(text(), "t");
  EXPECT_TRUE(flash_read(kMain) == partition(kMainImage));
}

TEST_F(Load, OneFailedReadOfMainLeadsToTheBackup) {
  put(kMain, kMainImage);
  put(kBackup, kBackupImage);
  fail_allocation_after(0);  // the buffer for main's text
  EXPECT_EQ(load(), 0);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(flash_read(kTrace), trace({kCheckMainGood, kLoadMainFailed, kSaving}));
  expect_saved("back");
}

}  // namespace
