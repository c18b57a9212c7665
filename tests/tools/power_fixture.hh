// What the tests of the store on a flash stand-in share: the probe, a flash folder, images.
#ifndef POWER_FIXTURE_HH
#define POWER_FIXTURE_HH

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string output;
};

inline Result shell(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "r");
  if (!pipe) return {-1, ""};
  std::string output;
  char block[4096];
  for (size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
    output.append(block, count);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

inline std::string big_endian(size_t word) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift & 0xff);
  return bytes;
}

inline const std::string kMagic = "\xab\xcd\x12\x34";

inline constexpr size_t kPartitionSize = 65536;

inline std::string image(const std::string& document) {
  const std::string bytes = kMagic + big_endian(document.size()) + document;
  return bytes + std::string(kPartitionSize - bytes.size(), '\xff');
}

class PowerFixture : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "power.XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    work_ = pattern;
    flash_ = work_ / "flash";
    fs::create_directory(flash_);
    ASSERT_EQ(shell(probe("document 0 0 0 >") + (flash_ / "default-conf.xml").string()).status, 0);
  }
  void TearDown() override { fs::remove_all(work_); }

  static std::string probe(const std::string& words) { return POWER_PROBE_PATH " " + words; }

  Result flashsim(const std::string& program) const {
    return shell(FLASHSIM_PATH " --dir " + flash_.string() + " -- " + program);
  }

  static std::string document(const std::string& configuration) {
    return shell(probe("document " + configuration)).output;
  }

  fs::path work_;
  fs::path flash_;
};

#endif
