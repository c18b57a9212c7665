#include "store.hh"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "command.hh"

namespace {

using mibctl::Error;
using mibctl::Pair;
using mibctl::Status;

constexpr char kOld[] = "<Old./>";
constexpr char kNew[] = "<New./>";
constexpr char kBroken[] = "<Old.>";

std::string image_of(const std::string& text) { return mibctl::make_image("test", text); }
std::string erased(size_t size) { return std::string(size, '\xff'); }

std::string problem_of(const std::function<void()>& action, Status status) {
  try {
    action();
    return "";
  } catch (const Error& error) {
    EXPECT_EQ(error.status, status);
    return error.what();
  }
}

class StoreFiles : public testing::Test {
 protected:
  // A pair of images; a copy that is "" is missing.
  std::string flash(const std::string& main, const std::string& backup) const {
    const std::string path = folder_.path("flash");
    std::filesystem::create_directory(path);
    if (!main.empty()) folder_.write("flash/nvram", main);
    if (!backup.empty()) folder_.write("flash/nvrambak", backup);
    return path;
  }
  std::string loaded(const std::string& main, const std::string& backup) const {
    return mibctl::open_flash(flash(main, backup))->load();
  }
  // The route of a start, without the folder's path.
  std::string route(const std::string& main, const std::string& backup) const {
    return mibctl::read_pair(flash(main, backup)).route();
  }
  std::string link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, folder_.path(name));
    return folder_.path(name);
  }

  mibctl::Folder folder_;
};

// --- a document ---

TEST_F(StoreFiles, DocumentIsTheWholeFile) {
  EXPECT_EQ(mibctl::open_document(folder_.write("a.xml", kOld))->load(), kOld);
}

TEST_F(StoreFiles, DocumentThatIsMissingIsAStorageError) {
  const std::string path = folder_.path("none.xml");
  EXPECT_EQ(problem_of([&] { mibctl::open_document(path)->load(); }, Status::storage),
            path + ": cannot be read (No such file or directory)");
}

TEST_F(StoreFiles, DocumentIsReplaced) {
  mibctl::open_document(folder_.write("a.xml", kOld))->save(kNew);
  EXPECT_EQ(folder_.read("a.xml"), kNew);
}

TEST_F(StoreFiles, DocumentThatNoImageCouldHoldIsRefused) {
  const auto store = mibctl::open_document(folder_.write("a.xml", kOld));
  const std::string text(mibctl::kMaxDocument + 1, 't');
  EXPECT_EQ(problem_of([&] { store->save(text); }, Status::refused),
            store->name() + ": too long for an image (65,529 bytes, at most 65,528)");
  EXPECT_EQ(folder_.read("a.xml"), kOld);
}

// --- one image ---

TEST_F(StoreFiles, ImageHasItsText) {
  const std::string path = folder_.write("nvram.bin", image_of(kOld) + erased(9));
  EXPECT_EQ(mibctl::open_image(path)->load(), kOld);
}

TEST_F(StoreFiles, ImageTextEndsAtAZeroByteAsInALoad) {
  const std::string path = folder_.write("nvram.bin", image_of(kOld + std::string(5, '\0')));
  EXPECT_EQ(mibctl::open_image(path)->load(), kOld);
}

TEST_F(StoreFiles, ImageThatIsInvalidHoldsNoConfiguration) {
  const std::string path = folder_.write("nvram.bin", erased(64));
  EXPECT_EQ(problem_of([&] { mibctl::open_image(path)->load(); }, Status::storage),
            path + ": holds no configuration (magic ffffffff, not abcd1234: erased)");
}

TEST_F(StoreFiles, ImageKeepsItsLengthAndWhatIsBehindTheText) {
  const std::string path = folder_.write("nvram.bin", image_of(std::string(20, 'x')) + "behind");
  mibctl::open_image(path)->save(kNew);
  EXPECT_EQ(folder_.read("nvram.bin"), image_of(kNew) + std::string(13, 'x') + "behind");
}

TEST_F(StoreFiles, ImageGrowsWhereItIsTooShort) {
  const std::string path = folder_.write("nvram.bin", "abc");
  mibctl::open_image(path)->save(kNew);
  EXPECT_EQ(folder_.read("nvram.bin"), image_of(kNew));
}

TEST_F(StoreFiles, ImageThatIsNewHasTheSizeOfAPartition) {
  mibctl::open_image(folder_.path("nvram.bin"))->save(kNew);
  EXPECT_EQ(folder_.read("nvram.bin"), image_of(kNew) + erased(65536 - 15));
}

TEST_F(StoreFiles, ImageIsUntouchedByADocumentThatIsTooLong) {
  const auto store = mibctl::open_image(folder_.write("nvram.bin", image_of(kOld)));
  EXPECT_NE(problem_of([&] { store->save(std::string(65529, 't')); }, Status::refused), "");
  EXPECT_EQ(folder_.read("nvram.bin"), image_of(kOld));
}

TEST_F(StoreFiles, ImageBehindALinkIsReplacedAndTheLinkStays) {
  folder_.write("real.bin", image_of(kOld));
  mibctl::open_image(link("nvram.bin", "real.bin"))->save(kNew);
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.path("nvram.bin")));
  EXPECT_EQ(folder_.read("real.bin"), image_of(kNew));
}

TEST_F(StoreFiles, DeviceIsWrittenInPlaceAndReadBack) {
  const std::string path = link("nvram", "/dev/null");
  EXPECT_EQ(problem_of([&] { mibctl::open_image(path)->save(kNew); }, Status::storage),
            path + ": does not hold what was written");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(StoreFiles, DeviceThatIsFullIsAStorageError) {
  const std::string path = link("nvram", "/dev/full");
  EXPECT_EQ(problem_of([&] { mibctl::open_image(path)->save(kNew); }, Status::storage),
            path + ": cannot be written (No space left on device)");
}

TEST_F(StoreFiles, DeviceWithoutAnEndIsNotReadForever) {
  const std::string path = link("nvram", "/dev/zero");
  EXPECT_EQ(problem_of([&] { mibctl::open_image(path)->load(); }, Status::storage),
            path + ": too large (at most 67,108,864 bytes)");
}

// --- a pair ---

TEST_F(StoreFiles, PairLoadsMain) {
  EXPECT_EQ(loaded(image_of(kNew), image_of(kOld)), kNew);
  EXPECT_EQ(route(image_of(kNew), image_of(kOld)), "loads main and rewrites both");
}

TEST_F(StoreFiles, PairWithoutABackupLoadsMain) { EXPECT_EQ(loaded(image_of(kNew), ""), kNew); }

TEST_F(StoreFiles, PairWithMainErasedLoadsTheBackup) {
  EXPECT_EQ(loaded(erased(64), image_of(kOld)), kOld);
  EXPECT_EQ(route(erased(64), image_of(kOld)), "loads the backup and rewrites both");
}

TEST_F(StoreFiles, PairWithMainMissingLoadsTheBackup) {
  EXPECT_EQ(loaded("", image_of(kOld)), kOld);
}

TEST_F(StoreFiles, PairWithMainTornLoadsTheBackupByTheLengthOfMain) {
  const std::string backup = image_of(kOld + std::string("<!--behind-->"));
  EXPECT_EQ(loaded(image_of("<Torn.>"), backup), kOld);
  EXPECT_EQ(route(image_of("<Torn.>"), backup),
            "loads main up to its error, then the backup by the length in main's header (7) and "
            "rewrites both");
}

TEST_F(StoreFiles, PairWithMainTornDoesNotLookAtTheHeaderOfTheBackup) {
  EXPECT_EQ(loaded(image_of("<Torn.>"), erased(8) + kOld), kOld);
}

TEST_F(StoreFiles, PairWithMainTornShortLosesAValidBackup) {
  const std::string folder = flash(image_of("<T>"), image_of(kOld));
  EXPECT_EQ(problem_of([&] { mibctl::open_flash(folder)->load(); }, Status::storage),
            folder +
                ": holds no configuration (main: the text does not parse: line 1, column 4: no "
                "element found; backup: the text does not parse: line 1, column 1: unclosed "
                "token)");
  EXPECT_EQ(mibctl::read_pair(folder).route(),
            "loads main up to its error, then the backup up to its error, then the factory default "
            "and rewrites neither");
}

TEST_F(StoreFiles, PairThatIsErasedLeavesTheFactoryDefault) {
  const std::string folder = flash(erased(64), erased(64));
  EXPECT_EQ(problem_of([&] { mibctl::open_flash(folder)->load(); }, Status::storage),
            folder +
                ": holds no configuration (main: magic ffffffff, not abcd1234: erased; backup: "
                "magic ffffffff, not abcd1234: erased)");
  EXPECT_EQ(mibctl::read_pair(folder).route(), "loads the factory default and rewrites neither");
}

TEST_F(StoreFiles, PairWithTheBackupTornToo) {
  EXPECT_EQ(route(erased(64), image_of(kBroken)),
            "loads the backup up to its error, then the factory default and rewrites neither");
}

TEST_F(StoreFiles, PairWithMainTornAndNoBackup) {
  EXPECT_EQ(route(image_of(kBroken), ""),
            "loads main up to its error, then the factory default and rewrites neither");
}

TEST_F(StoreFiles, PairNamesACutText) {
  const Pair pair = mibctl::read_pair(flash(image_of(kOld).substr(0, 12), image_of(kOld)));
  EXPECT_EQ(pair.main.problem, "the text is cut, 4 of 7 bytes: line 1, column 1: unclosed token");
}

TEST_F(StoreFiles, PairIsSavedTwice) {
  const std::string folder = flash(image_of(kOld) + "behind", erased(20));
  mibctl::open_flash(folder)->save(kNew);
  EXPECT_EQ(folder_.read("flash/nvram"), image_of(kNew) + "behind");
  EXPECT_EQ(folder_.read("flash/nvrambak"), image_of(kNew) + erased(5));
}

TEST_F(StoreFiles, PairKeepsTheBackupWhereMainCannotBeWritten) {
  const std::string folder = flash("", image_of(kOld));
  link("flash/nvram", "/dev/full");
  EXPECT_NE(problem_of([&] { mibctl::open_flash(folder)->save(kNew); }, Status::storage), "");
  EXPECT_EQ(folder_.read("flash/nvrambak"), image_of(kOld));
}

TEST_F(StoreFiles, PairKeepsMainWhereTheBackupCannotBeWritten) {
  const std::string folder = flash(image_of(kOld), "");
  link("flash/nvrambak", "/dev/full");
  EXPECT_NE(problem_of([&] { mibctl::open_flash(folder)->save(kNew); }, Status::storage), "");
  EXPECT_EQ(mibctl::open_flash(folder)->load(), kOld);
}

TEST_F(StoreFiles, PairOfADeviceAloneGetsNoFileForTheOther) {
  const std::string folder = flash("", "");
  link("flash/nvram", "/dev/null");
  EXPECT_EQ(problem_of([&] { mibctl::open_flash(folder)->save(kNew); }, Status::storage),
            folder + "/nvrambak: is missing (a file of a device's name would not be one)");
  EXPECT_FALSE(std::filesystem::exists(folder + "/nvrambak"));
}

TEST_F(StoreFiles, DeviceThatIsMissingIsNotMadeAFile) {
  const std::string path = "/dev/mibctl_test_partition";
  EXPECT_EQ(problem_of([&] { mibctl::open_image(path)->save(kNew); }, Status::storage),
            path + ": is missing (a file of a device's name would not be one)");
  EXPECT_FALSE(std::filesystem::remove(path));
}

TEST_F(StoreFiles, StandardInputCannotBeStoredTo) {
  const auto store = mibctl::open_document("-");
  EXPECT_EQ(problem_of([&] { store->save(kNew); }, Status::usage),
            "-: standard input cannot be stored to (name a file)");
}

TEST_F(StoreFiles, PairIsUntouchedByADocumentThatIsTooLong) {
  const std::string folder = flash(image_of(kOld), image_of(kOld));
  const auto store = mibctl::open_flash(folder);
  EXPECT_NE(problem_of([&] { store->save(std::string(65529, 't')); }, Status::refused), "");
  EXPECT_EQ(folder_.read("flash/nvram"), image_of(kOld));
  EXPECT_EQ(folder_.read("flash/nvrambak"), image_of(kOld));
}

// --- whichever it is ---

TEST_F(StoreFiles, AnyTakesAFolderForAPair) {
  EXPECT_EQ(mibctl::open_any(flash("", image_of(kOld)))->load(), kOld);
}

TEST_F(StoreFiles, AnyTellsAnImageFromADocument) {
  EXPECT_EQ(mibctl::open_any(folder_.write("a", image_of(kOld)))->load(), kOld);
  EXPECT_EQ(mibctl::open_any(folder_.write("b", kOld))->load(), kOld);
}

TEST_F(StoreFiles, AnyTakesADamagedImageForOne) {
  const std::string path = folder_.write("a", erased(64));
  EXPECT_NE(problem_of([&] { mibctl::open_any(path)->load(); }, Status::storage).find("erased"),
            std::string::npos);
}

TEST_F(StoreFiles, AnyLeavesAPipeItsFirstBytes) {
  const std::string path = folder_.path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&] { folder_.write("pipe", kOld); });
  EXPECT_EQ(mibctl::open_any(path)->load(), kOld);
  writer.join();
}

}  // namespace
