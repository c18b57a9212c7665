// What the tests of this folder share: a schema, documents for it, and a fixture that finds
// blocks and descriptors left behind.
#ifndef TESTS_CONFIG_CONFIG_FIXTURE_HH
#define TESTS_CONFIG_CONFIG_FIXTURE_HH

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <system_error>

#include "qmibtree.h"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

inline constexpr char kMainDevice[] = "/dev/nvram";
inline constexpr char kBackupDevice[] = "/dev/nvrambak";

inline constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// An empty folder of its own, gone with its scope.
class Folder {
 public:
  Folder() {
    char path[] = "/tmp/config_testXXXXXX";
    if (mkdtemp(path)) root_ = path;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string path(const std::string& file) const { return root_ + "/" + file; }
  bool has(const std::string& file) const { return std::filesystem::exists(path(file)); }

  std::string write(const std::string& file, const std::string& bytes) const {
    std::ofstream(path(file), std::ios::binary | std::ios::trunc) << bytes;
    return path(file);
  }
  std::string read(const std::string& file) const {
    std::ifstream in(path(file), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::string root_;
};

// What this process's descriptors are open on.
inline std::multiset<std::string> open_files() {
  std::multiset<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    files.insert(std::filesystem::read_symlink(entry.path(), ignored));
  }
  return files;
}

inline std::string stdout_of(const std::function<void()>& run) {
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}

// Every test must give back its blocks and descriptors; a derived fixture's members are gone by the
// time this is judged.
class ConfigTest : public ::testing::Test {
 protected:
  ConfigTest() : files_(open_files()) {
    allocation_tags();
    changes().clear();
    qmibtree_comp_unmark_all();
  }

  ~ConfigTest() override {
    on_change() = nullptr;
    EXPECT_FALSE(allocations_work()) << "an injected failure was not taken back";
    EXPECT_EQ(open_files(), files_);
  }

  // One descriptor on `path` must have stayed open. It leads nowhere from now on: its stream may
  // still hold bytes, which must not come out in another test's file.
  void expect_left_open(const std::string& path) {
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code ignored;
      if (std::filesystem::read_symlink(entry.path(), ignored) != std::filesystem::canonical(path))
        continue;
      ++found;
      const int nowhere = open("/dev/null", O_RDWR);
      dup2(nowhere, std::stoi(entry.path().filename()));
      close(nowhere);
      files_.insert("/dev/null");
    }
    EXPECT_EQ(found, 1) << path;
  }

  // Blocks that nobody frees: those that base64 text is decoded into.
  void expect_kept_blocks(int count) { leaks_.expect_kept(count); }

  Folder folder;

 private:
  std::multiset<std::string> files_;
  LeakCheck leaks_;
};

// The same, starting on erased partitions.
class StoreTest : public ConfigTest {
 protected:
  StoreTest() { flash_reset(); }
};

// A small model in which nothing is worth saving until a test says so:
//
//   R.Text  R.Number
//   R.Box.Inner.Flag  R.Box.Limit
//   R.Port.{i}.Name  R.Port.{i}.Rule.{i}.On
//   R.Shed.Size
//   R.Yard.Gate.{i}.Open
struct House : Schema {
  enum Uid : uint32_t {
    kRoot,
    kText,
    kNumber,
    kBox,
    kInner,
    kFlag,
    kLimit,
    kPort,
    kName,
    kRule,
    kOn,
    kShed,
    kSize,
    kYard,
    kGate,
    kOpen,
  };

  House() {
    add(0, "R.");
    add(1, "Text", QMIBTREE_TYPE_STRING, 0, "t");
    add(1, "Number", QMIBTREE_TYPE_INT, 0, "5");
    add(1, "Box.");
    add(2, "Inner.");
    add(3, "Flag", QMIBTREE_TYPE_BOOL, 0, "false");
    add(2, "Limit", QMIBTREE_TYPE_UINT, 0, "9");
    add(1, "Port.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(2, "Name", QMIBTREE_TYPE_STRING, 0, "p");
    add(2, "Rule.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(3, "On", QMIBTREE_TYPE_BOOL, 0, "true");
    add(1, "Shed.");
    add(2, "Size", QMIBTREE_TYPE_INT, 0, "1");
    add(1, "Yard.");
    add(2, "Gate.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(3, "Open", QMIBTREE_TYPE_BOOL, 0, "false");
  }
};

// The document that a House with R.Text always saved has for a value of it.
inline std::string text_document(const std::string& value) {
  return kDeclaration + ("<R.>\n<PARAM name=\"Text\">" + value) + "</PARAM>\n</R.>\n";
}

// Adds an instance; its number.
inline uint32_t add_instance(qmibtree_inst_t* inst, const char* name, uint32_t wish = 0,
                             uint32_t right = 255) {
  uint32_t number = wish;
  EXPECT_EQ(qmibtree_add_object(inst, name, &number, 0, right), QMIBTREE_RC_OK) << name;
  return number;
}

#endif
