// What the store answers, what stays in flash and what the next start comes up with when the flash
// or the machine fails, the power on: the faults beside the power cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "flash.hh"
#include "power_fixture.hh"

namespace {

// What the host shows of each configuration.
struct Shown {
  std::string of_old, of_new, of_default;
};

// A flash that holds the same configuration on both partitions, and operations to another one. The
// two documents differ in length in both low bytes, where a test does not choose others.
class Faults : public PowerFixture {
 protected:
  void SetUp() override {
    PowerFixture::SetUp();
    use("1 2 0", "2 3 1");
    ASSERT_EQ(old_.size(), 0x1b5u);
    ASSERT_EQ(new_.size(), 0x2a6u);
  }

  void use(const std::string& old_one, const std::string& new_one) {
    old_ = document(old_one);
    new_ = document(new_one);
    save_ = "save " + new_one;
    upgrade_file_ = (work_ / "upgrade").string();
    EXPECT_EQ(shell(probe("wrap " + new_one + " 0 >" + upgrade_file_)).status, 0);
    upgrade_ = "upgrade " + upgrade_file_;
    shown_.of_new = shown_from(image(new_));
    shown_.of_default = shown_from("");
    shown_.of_old = shown_from(image(old_));
  }

  fs::path at(const std::string& file) const { return flash_ / file; }

  // Both partitions hold `bytes`, and nothing is left of another run.
  void fill(const std::string& bytes) const {
    flashsim::write_file(at("nvram"), bytes);
    flashsim::write_file(at("nvrambak"), bytes);
    fs::remove(at("tobixopen"));
    fs::remove(at("temp_config_for_download"));
  }

  Result run(const std::string& faults, const std::string& program) const {
    return shell(FLASHSIM_PATH " --dir " + flash_.string() + " " + faults + " -- " + program +
                 " 2>/dev/null");
  }

  std::string shown_from(const std::string& bytes) const {
    fill(bytes);
    return run("", probe("show")).output;
  }

  // What the library answers to an operation with faults.
  std::string answer(const std::string& faults, const std::string& operation) const {
    const std::string output = run(faults, probe("answer " + operation)).output;
    return output.substr(0, output.find('\n'));
  }

  std::string partition(const std::string& file) const {
    const std::string bytes = flashsim::read_file(at(file));
    if (bytes == std::string(bytes.size(), '\xff')) return "erased";
    if (bytes == image(old_)) return "old";
    return bytes.compare(0, 8 + new_.size(), image(new_), 0, 8 + new_.size()) == 0 ? "new" : "torn";
  }

  // What main and backup hold.
  std::string flash() const { return partition("nvram") + "/" + partition("nvrambak"); }

  // A result, and what it left: its own call, for the flash is looked at behind the operation.
  std::string with_flash(const std::string& result) const { return result + " " + flash(); }

  std::string route() const {
    static const std::pair<const char*, const char*> marks[] = {
        {"check nvram success", "main"},
        {"load nvram success", "backup"},
        {"check nvram bak success", "backup"},
        {"load default xml", "default"}};
    if (!fs::exists(at("tobixopen"))) return "?";
    const std::string trace = flashsim::read_file(at("tobixopen"));
    std::string route;
    for (const auto& [text, name] : marks)
      if (trace.find(text) != std::string::npos)
        route += (route.empty() ? "" : ">") + std::string(name);
    return route.empty() ? "?" : route;
  }

  std::string name_of(const std::string& output) const {
    if (output == shown_.of_old) return "old";
    if (output == shown_.of_new) return "new";
    return output == shown_.of_default ? "default" : "mixed";
  }

  // "OUTCOME by ROUTE"
  std::string start(const std::string& faults = "", const std::string& verb = "show") const {
    const std::string outcome = name_of(run(faults, probe(verb)).output);
    return outcome + " by " + route();
  }

  // "ANSWER MAIN/BACKUP, OUTCOME by ROUTE": an operation with faults, and the start behind it.
  std::string after(const std::string& faults, const std::string& operation) const {
    fill(image(old_));
    const std::string result = with_flash(answer(faults, operation));
    return result + ", " + start();
  }

  using Look = std::function<std::string(const std::string&)>;

  // after(), of a number put where `faults` has "#".
  Look after_each(const std::string& faults, const std::string& operation) const {
    return [=, this](const std::string& number) {
      return after(std::regex_replace(faults, std::regex("#"), number), operation);
    };
  }

  // A start with faults on the old configuration, and what it leaves.
  Look start_each(const std::string& faults) const {
    return [=, this](const std::string& number) {
      fill(image(old_));
      return with_flash(start(std::regex_replace(faults, std::regex("#"), number)));
    };
  }

  // What `look` tells of each number, a line "FIRST-LAST: TEXT" for those in a row that are alike.
  static std::string sweep(size_t first, size_t last, const Look& look, size_t stride = 1) {
    struct Row {
      size_t first, last;
      std::string text;
    };
    std::vector<Row> rows;
    for (size_t i = first; i <= last; i += stride) {
      const std::string text = look(std::to_string(i));
      if (rows.empty() || rows.back().text != text) rows.push_back({i, i, text});
      rows.back().last = i;
    }
    std::string lines;
    for (const Row& row : rows)
      lines += std::to_string(row.first) + "-" + std::to_string(row.last) + ": " + row.text + "\n";
    return lines;
  }

  // Visits each bit of a partition's header, with the option that concerns it but for its end.
  template <typename Visit>
  static void each_header_bit(const std::string& partition, Visit visit) {
    for (int byte = 0; byte < 8; ++byte)
      for (int bit = 0; bit < 8; ++bit)
        visit(byte, bit,
              "--bits " + partition + ":" + std::to_string(byte) + ":" + std::to_string(1 << bit));
  }

  // What a bit of the new header must not be stuck at.
  std::string wrong_value(int byte, int bit) const {
    return image(new_)[static_cast<size_t>(byte)] >> bit & 1 ? "0" : "1";
  }

  std::string old_, new_;
  std::string save_, upgrade_, upgrade_file_;
  Shown shown_;
};

// --- the power cut itself, made in the run and made from its journal ---

class FaultsCut : public Faults {
 protected:
  // Each step of the operation cut before it and in a few of its bytes.
  void compare(const std::string& operation) const {
    fill(image(old_));
    const fs::path journal = work_ / "journal";
    ASSERT_EQ(run("--journal " + journal.string(), probe(operation)).status, 0);
    const std::vector<flashsim::Step> steps = flashsim::read_journal(journal);
    fill(image(old_));
    flashsim::Flash flash(flash_);
    for (size_t i = 0; i < steps.size(); ++i) {
      const flashsim::Step& step = steps[i];
      const size_t size = step.bytes.size();
      for (size_t done = 0; done <= size; ++done) {
        if (done == 0 || done == 1 || done == size / 2 || done + 1 == size)
          expect_flash(flash, operation, std::to_string(i + 1) + ":" + std::to_string(done), size);
        if (done < size) flash.program(step.partition, step.offset + done, step.bytes[done]);
      }
    }
    fill(image(old_));
    EXPECT_EQ(run("--cut " + std::to_string(steps.size() + 1), probe(operation)).status, 0);
    EXPECT_EQ(flashsim::Flash(flash_).key(), flash.key());
  }

 private:
  void expect_flash(const flashsim::Flash& flash, const std::string& operation,
                    const std::string& cut, size_t size) const {
    const std::string moment = size > 0 ? cut : cut.substr(0, cut.find(':'));
    fill(image(old_));
    EXPECT_EQ(run("--cut " + moment, probe(operation)).status, 125) << moment;
    EXPECT_EQ(flashsim::Flash(flash_).key(), flash.key()) << operation << " " << moment;
  }
};

TEST_F(FaultsCut, OfASaveLeavesWhatItsJournalGives) { compare(save_); }

TEST_F(FaultsCut, OfAnUpgradeLeavesWhatItsJournalGives) { compare(upgrade_); }

TEST_F(FaultsCut, OfAClearLeavesWhatItsJournalGives) { compare("clear"); }

TEST_F(FaultsCut, OfAStartLeavesWhatItsJournalGives) { compare("load"); }

// --- writes that fail ---

TEST_F(Faults, SaveThatFailsInMainsTextComesBackByTheBackup) {
  EXPECT_EQ(sweep(0, 677, after_each("--tear write:1:#", save_), 61),
            "0-671: 0 torn/new, new by main>backup\n");
}

TEST_F(Faults, SaveThatFailsInMainsTextOfTheSameLengthComesBackAsWhatMainNowReads) {
  use("1 2 0", "3 2 0");
  ASSERT_EQ(old_.size(), new_.size());
  EXPECT_EQ(sweep(0, 66, after_each("--tear write:1:#", save_), 11),
            "0-66: 0 old/new, old by main\n");
  EXPECT_EQ(sweep(67, 419, after_each("--tear write:1:#", save_), 11),
            "67-419: 0 torn/new, mixed by main\n");
}

TEST_F(Faults, SaveThatFailsInMainsHeaderComesBackAsTheDefaultThoughTheBackupIsWhole) {
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:2:#", save_)),
            "0-7: 0 torn/new, mixed by main>backup>default\n");
}

TEST_F(Faults, SaveOfAShorterDocumentThatFailsInMainsHeaderComesBackAsTheDefaultToo) {
  use("2 3 1", "1 2 0");
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:2:#", save_)),
            "0-7: 0 torn/new, mixed by main>backup>default\n");
}

TEST_F(Faults, SaveOfTheSameLengthThatFailsInMainsHeaderIsWhole) {
  use("1 2 0", "3 2 0");
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:2:#", save_)), "0-7: 0 new/new, new by main\n");
}

TEST_F(Faults, SaveThatFailsInTheBackupIsWholeInMain) {
  EXPECT_EQ(sweep(0, 677, after_each("--tear write:3:#", save_), 61),
            "0-671: 0 new/torn, new by main\n");
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:4:#", save_)), "0-7: 0 new/torn, new by main\n");
}

TEST_F(Faults, UpgradeThatFailsInMainsTextErasesItAndComesBackByTheBackup) {
  EXPECT_EQ(sweep(0, 677, after_each("--tear write:4:#", upgrade_), 61),
            "0-671: -1 erased/new, new by backup\n");
}

// The erased byte makes the length larger than it is: see the map.
TEST_F(Faults, UpgradeThatFailsInMainsHeaderComesBackByTheBackupButForItsLastByte) {
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:3:#", upgrade_)),
            "0-6: 0 torn/new, new by backup\n"
            "7-7: 0 torn/new, mixed by main>backup>default\n");
}

TEST_F(Faults, UpgradeThatFailsInTheBackupIsWholeInMain) {
  EXPECT_EQ(sweep(0, 7, after_each("--tear write:1:#", upgrade_)),
            "0-7: 0 new/torn, new by main\n");
  EXPECT_EQ(sweep(0, 677, after_each("--tear write:2:#", upgrade_), 61),
            "0-671: 0 new/erased, new by main\n");
}

TEST_F(Faults, StartWhoseSaveFailsHasLoadedAllTheSame) {
  EXPECT_EQ(sweep(1, 5, start_each("--tear write:#")), "1-5: old by main old/old\n");
}

// --- erases left half done ---

TEST_F(Faults, UpgradeOverAnEraseLeftHalfDoneIsWhole) {
  EXPECT_EQ(sweep(0, 65535, after_each("--tear erase:1:#", upgrade_), 13107),
            "0-65535: 0 new/new, new by main\n");
  EXPECT_EQ(sweep(0, 65535, after_each("--tear erase:2:#", upgrade_), 13107),
            "0-65535: 0 new/new, new by main\n");
}

TEST_F(Faults, ClearAnswersOnlyForTheBackupsErase) {
  EXPECT_EQ(sweep(0, 9, after_each("--tear erase:1:#", "clear")),
            "0-0: 0 old/erased, old by main\n"
            "1-9: 0 torn/erased, default by default\n");
  EXPECT_EQ(sweep(0, 9, after_each("--tear erase:2:#", "clear")),
            "0-0: 256 erased/old, old by backup\n"
            "1-9: 256 erased/torn, default by default\n");
}

// --- openings that fail ---

TEST_F(Faults, SaveAnswersOnlyForTheBackupsHeader) {
  EXPECT_EQ(sweep(1, 5, after_each("--fail-open #", save_)),
            "1-1: 0 torn/new, new by main>backup\n"
            "2-2: 0 torn/new, mixed by main>backup>default\n"
            "3-3: 0 new/torn, new by main\n"
            "4-4: -1 new/torn, new by main\n"
            "5-5: 0 new/new, new by main\n");
}

TEST_F(Faults, UpgradeAnswersOnlyForMain) {
  EXPECT_EQ(sweep(1, 5, after_each("--fail-open #", upgrade_)),
            "1-1: 0 new/erased, new by main\n"
            "2-2: 0 new/torn, new by main\n"
            "3-3: -1 erased/new, new by backup\n"
            "4-4: -1 torn/new, new by main>backup\n"
            "5-5: 0 new/new, new by main\n");
}

// The trace, main's header and text, then the save.
TEST_F(Faults, StartComesUpWithAnyOpeningFailed) {
  EXPECT_EQ(sweep(1, 8, start_each("--fail-open #")),
            "1-1: old by ? old/old\n"
            "2-2: old by backup old/old\n"
            "3-3: old by main>backup old/old\n"
            "4-8: old by main old/old\n");
}

TEST_F(Faults, CheckNeedsMainsOpening) {
  EXPECT_EQ(answer("--fail-open 1", "check"), "0");
  EXPECT_EQ(answer("--fail-open 2", "check"), "1");
}

// --- bits ---

// A wrong magic sends the load to the backup by the backup's own header, and so does a length that
// no partition holds. Any other length is used for both texts, and the line feed is the only byte
// that they can do without.
TEST_F(Faults, FlippedBitOfMainsLengthComesBackAsTheDefaultAndAnyOtherOfItsHeaderByTheBackup) {
  each_header_bit("nvram", [&](int byte, int bit, const std::string& fault) {
    fill(image(old_));
    const std::string outcome = with_flash(start(fault + "=flip"));
    const bool fits = byte >= 6;
    const bool is_last_byte_missing = byte == 7 && bit == 0;
    const std::string expected = is_last_byte_missing ? "old by main old/old"
                                 : fits               ? "mixed by main>backup>default torn/old"
                                                      : "old by backup old/old";
    EXPECT_EQ(outcome, expected) << fault;
  });
}

TEST_F(Faults, FlippedBitOfTheBackupsHeaderIsPutRightByTheStart) {
  each_header_bit("nvrambak", [&](int, int, const std::string& fault) {
    fill(image(old_));
    EXPECT_EQ(with_flash(start(fault + "=flip")), "old by main old/old") << fault;
  });
}

TEST_F(Faults, CheckAnswersByMagicAndLength) {
  each_header_bit("nvram", [&](int byte, int, const std::string& fault) {
    fill(image(old_));
    EXPECT_EQ(answer(fault + "=flip", "check"), byte < 6 ? "0" : "1") << fault;
  });
}

TEST_F(Faults, SaveOverAStuckBitOfMainsHeaderLeavesTheBackupWhole) {
  each_header_bit("nvram", [&](int byte, int bit, const std::string& fault) {
    EXPECT_EQ(after(fault + "=" + wrong_value(byte, bit), save_),
              byte < 6 ? "0 torn/new, new by backup" : "0 torn/new, mixed by main>backup>default")
        << fault;
  });
}

TEST_F(Faults, UpgradeOverAStuckBitOfTheBackupsHeaderIsWholeInMain) {
  each_header_bit("nvrambak", [&](int byte, int bit, const std::string& fault) {
    EXPECT_EQ(after(fault + "=" + wrong_value(byte, bit), upgrade_), "0 new/torn, new by main")
        << fault;
  });
}

// Neither text nor header has a checksum.
TEST_F(Faults, FlippedBitOfAValueIsLoadedAndSavedToBoth) {
  const std::string place = std::to_string(8 + old_.find("host-1-1.lan"));
  EXPECT_EQ(with_flash(start("--bits nvram:" + place + ":1=flip")), "mixed by main torn/torn");
}

TEST_F(Faults, FlippedBitThatBreaksTheMarkupComesBackByTheBackup) {
  const std::string place = std::to_string(8 + old_.find("</PARAM>"));
  EXPECT_EQ(with_flash(start("--bits nvram:" + place + ":1=flip")), "old by main>backup old/old");
}

// --- devices that are too short ---

TEST_F(Faults, SaveToAMainTooShortForItsTextComesBackByTheBackup) {
  EXPECT_EQ(sweep(0, 12, after_each("--device-size nvram:#", save_)),
            "0-6: 0 old/new, old by main\n"
            "7-7: 0 torn/new, mixed by main>backup>default\n"
            "8-12: 0 torn/new, new by main>backup\n");
  EXPECT_EQ(sweep(674, 690, after_each("--device-size nvram:#", save_)),
            "674-685: 0 torn/new, new by main>backup\n"
            "686-690: 0 new/new, new by main\n");
}

TEST_F(Faults, SaveToABackupTooShortIsWholeInMain) {
  EXPECT_EQ(sweep(0, 12, after_each("--device-size nvrambak:#", save_)),
            "0-6: 0 new/old, new by main\n"
            "7-12: 0 new/torn, new by main\n");
  EXPECT_EQ(sweep(674, 690, after_each("--device-size nvrambak:#", save_)),
            "674-685: 0 new/torn, new by main\n"
            "686-690: 0 new/new, new by main\n");
}

TEST_F(Faults, UpgradeOfAMainTooShortIsMinusOneAndComesBackByTheBackup) {
  EXPECT_EQ(sweep(1, 12, after_each("--device-size nvram:#", upgrade_)),
            "1-12: -1 torn/new, new by backup\n");
  EXPECT_EQ(sweep(674, 690, after_each("--device-size nvram:#", upgrade_)),
            "674-685: -1 erased/new, new by backup\n"
            "686-690: 0 new/new, new by main\n");
}

TEST_F(Faults, UpgradeOfABackupTooShortIsWholeInMain) {
  EXPECT_EQ(sweep(674, 690, after_each("--device-size nvrambak:#", upgrade_)),
            "674-685: 0 new/erased, new by main\n"
            "686-690: 0 new/new, new by main\n");
}

TEST_F(Faults, StartFromAMainTooShortTakesTheBackup) {
  EXPECT_EQ(sweep(0, 12, start_each("--device-size nvram:#")),
            "0-7: old by backup old/old\n"
            "8-12: old by main>backup old/old\n");
  EXPECT_EQ(sweep(430, 450, start_each("--device-size nvram:#")),
            "430-443: old by main>backup old/old\n"
            "444-450: old by main old/old\n");
}

// --- calls that do less than they are asked ---

TEST_F(Faults, ShortReadsAndWritesChangeNothing) {
  const std::string faults = "--short-reads # --short-writes #";
  EXPECT_EQ(sweep(1, 9, after_each(faults, save_), 2), "1-9: 0 new/new, new by main\n");
  EXPECT_EQ(sweep(1, 9, after_each(faults, upgrade_), 2), "1-9: 0 new/new, new by main\n");
  EXPECT_EQ(sweep(1, 9, start_each(faults), 2), "1-9: old by main old/old\n");
}

TEST_F(Faults, UpgradeFileIsReadWholeByShortReads) {
  EXPECT_EQ(sweep(1, 9,
                  [&](const std::string& size) {
                    fill(image(old_));
                    fs::copy_file(upgrade_file_, at("temp_config_for_download"));
                    return with_flash(
                        answer("--short-reads " + size, "upgrade /tmp/temp_config_for_download"));
                  }),
            "1-9: 0 new/new\n");
}

// --- with a look at the partitions before the start ---

class FaultsChecked : public Faults {
 protected:
  Look after_save(const std::string& faults) const {
    return [=, this](const std::string& number) {
      fill(image(old_));
      (void)answer(std::regex_replace(faults, std::regex("#"), number), save_);
      return start("", "checked-show");
    };
  }
};

TEST_F(FaultsChecked, StartFindsTheBackupWhereverASaveFailedInMain) {
  EXPECT_EQ(sweep(0, 7, after_save("--tear write:2:#")), "0-7: new by backup\n");
  EXPECT_EQ(sweep(0, 677, after_save("--tear write:1:#"), 61), "0-671: new by backup\n");
}

// What was written is what was there, so that nothing tells that main is the older one.
TEST_F(FaultsChecked, StartTakesTheOldOneWhereASaveOfTheSameLengthFailedBeforeTheFirstDifference) {
  use("1 2 0", "3 2 0");
  EXPECT_EQ(sweep(0, 66, after_save("--tear write:1:#"), 11), "0-66: old by main\n");
  EXPECT_EQ(sweep(67, 419, after_save("--tear write:1:#"), 32), "67-419: new by backup\n");
}

TEST_F(FaultsChecked, StartFindsTheBackupBehindAFlippedBitOfMainsHeader) {
  each_header_bit("nvram", [&](int byte, int bit, const std::string& fault) {
    fill(image(old_));
    EXPECT_EQ(start(fault + "=flip", "checked-show"),
              byte == 7 && bit == 0 ? "old by main" : "old by backup")
        << fault;
  });
}

// --- a full /tmp ---

TEST_F(Faults, StartComesUpWithAFullTmp) {
  EXPECT_EQ(sweep(0, 23, start_each("--tmp-size #")), "0-23: old by ? old/old\n");
  EXPECT_EQ(sweep(24, 90, start_each("--tmp-size #"), 11), "24-90: old by main old/old\n");
}

class FaultsDownload : public Faults {
 protected:
  // "ANSWER", and how much of the stored text the upgrade file has.
  std::string download(const std::string& faults) const {
    const fs::path file = work_ / "file";
    fs::remove(file);
    const std::string result = answer(faults, "download " + file.string());
    if (!fs::exists(file)) return result + " nothing";
    const std::string text = flashsim::read_file(file).substr(16);
    const size_t length = text.size() - 4;
    const bool is_stored = text.substr(0, length) == old_.substr(0, length);
    return result + " " + (is_stored ? std::to_string(length) : "other bytes");
  }
};

TEST_F(FaultsDownload, WithAFullTmpIsAnUpgradeFileOfTheBytesThatFit) {
  for (const size_t room : {0, 1, 100, 436, 437, 1000}) {
    fill(image(old_));
    EXPECT_EQ(download("--tmp-size " + std::to_string(room)),
              "0 " + std::to_string(std::min(room, old_.size())));
  }
}

// Main's header and text, the temporary file for writing, and that for the conversion.
TEST_F(FaultsDownload, WithOpeningsThatFail) {
  fill(image(old_));
  const std::string factory = document("0 0 0");
  flashsim::write_file(at("default-conf.xml"), old_.substr(0, 99));
  EXPECT_EQ(download("--fail-open 1"), "0 99");
  EXPECT_EQ(download("--fail-open 2"), "-1 nothing");
  fs::remove(at("temp_config_for_download"));
  EXPECT_EQ(download("--fail-open 3"), "0 nothing");
  EXPECT_EQ(download("--fail-open 4"), "0 nothing");
  EXPECT_EQ(download("--fail-open 5"), "0 437");
}

TEST_F(FaultsDownload, WithoutItsTemporaryFileTakesWhatAnEarlierOneLeft) {
  fill(image(old_));
  flashsim::write_file(at("temp_config_for_download"), old_.substr(0, 50));
  EXPECT_EQ(download("--fail-open 3"), "0 50");
}

TEST_F(FaultsDownload, ShortReadsAndWritesChangeNothing) {
  fill(image(old_));
  EXPECT_EQ(download("--short-reads 3 --short-writes 2"), "0 437");
}

TEST_F(FaultsDownload, FromAMainTooShortHasZerosForWhatIsMissing) {
  fill(image(old_));
  EXPECT_EQ(download("--device-size nvram:443"), "0 other bytes");
  EXPECT_EQ(download("--device-size nvram:445"), "0 437");
}

}  // namespace
