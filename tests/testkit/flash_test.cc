// Shows the kit's view of the flash stand-in: images as the formats have them, files as they lie.
#include "qmibtree_testkit/flash.hh"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "qmibtree.h"

using namespace qmibtree_testkit;

namespace {

class Flash : public testing::Test {
 protected:
  void SetUp() override { flash_reset(); }
};

TEST_F(Flash, StartsWithErasedPartitionsAndNothingElse) {
  for (const char* file : {kMain, kBackup})
    EXPECT_EQ(flash_read(file), std::string(65536, '\xff')) << file;
  for (const char* file : {kDefault, kTrace, kDownload})
    EXPECT_EQ(flash_read(file), "(missing)") << file;
}

TEST_F(Flash, AnImageIsAHeaderAndItsText) {
  EXPECT_EQ(image_of("ab"), std::string("\xab\xcd\x12\x34\0\0\0\2ab", 10));
  EXPECT_EQ(header_of(0x01020304, 0x05060708), "\x01\x02\x03\x04\x05\x06\x07\x08");
}

TEST_F(Flash, AnUpgradeFileIsAroundItsPayload) {
  EXPECT_EQ(upgrade_of("ab"), std::string("zoremcfgZZZZ\2\0\0\0ab\0\0\0\0", 22));
}

TEST_F(Flash, APokeKeepsWhatIsAround) {
  flash_poke(kMain, 2, "ab");
  EXPECT_EQ(flash_read(kMain),
            "\xff\xff"
            "ab" +
                std::string(65532, '\xff'));
}

TEST_F(Flash, ADeviceMayHaveAnySize) {
  flash_resize(kMain, 3);
  EXPECT_EQ(flash_read(kMain), "\xff\xff\xff");
}

TEST_F(Flash, AValidImageGivesItsText) {
  flash_poke(kMain, 0, image_of("text") + "behind");
  EXPECT_EQ(flash_text(kMain), "text");
}

TEST_F(Flash, AnInvalidImageGivesNone) {
  EXPECT_EQ(flash_text(kMain), "(invalid)");
  flash_poke(kMain, 0, header_of(QMIBTREE_NVRAM_MAGIC, QMIBTREE_NVRAM_MAX));
  EXPECT_EQ(flash_text(kMain), "(invalid)");
  flash_resize(kMain, 7);
  EXPECT_EQ(flash_text(kMain), "(invalid)");
}

TEST_F(Flash, ARemovedFileIsMissing) {
  flash_write(kDefault, "text");
  EXPECT_EQ(flash_read(kDefault), "text");
  flash_remove(kDefault);
  EXPECT_EQ(flash_read(kDefault), "(missing)");
}

TEST_F(Flash, AFolderIsNoFile) {
  std::filesystem::create_directory(flash_path(kDefault));
  EXPECT_EQ(flash_read(kDefault), "(missing)");
}

TEST_F(Flash, TheLibraryReadsWhatTheTestWrote) {
  EXPECT_EQ(qmibtree_check_nvram(), 0);
  flash_poke(kMain, 0, image_of("text"));
  EXPECT_EQ(qmibtree_check_nvram(), 1);
}

TEST_F(Flash, TheTestReadsWhatTheLibraryWrote) {
  const std::string upgrade = flash_path("upgrade");
  std::ofstream(upgrade, std::ios::binary) << upgrade_of("text");
  EXPECT_EQ(qmibtree_upgrade_config(upgrade.c_str()), 0);
  for (const char* file : {kMain, kBackup}) EXPECT_EQ(flash_text(file), "text");
  std::filesystem::remove(upgrade);
}

}  // namespace
