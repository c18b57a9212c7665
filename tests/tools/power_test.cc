// The power cut at every byte of every operation on the flash, and what the next start comes up
// with. What a cut leaves is foretold from the documents alone, and compared cut by cut.
#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "power_fixture.hh"

namespace {

struct Cut {
  std::string verb;
  std::string partition;
  size_t offset = 0;
  std::string outcome;
  std::string route;

  std::string ending() const { return outcome + " " + route; }
};

std::ostream& operator<<(std::ostream& out, const Cut& cut) {
  return out << cut.verb << " " << cut.partition << " " << cut.offset << ": " << cut.ending();
}

class Power : public PowerFixture {
 protected:
  // The map of an operation on the flash as it is.
  Result flashsim_map(const std::string& operation, const std::string& start,
                      const std::string& options) const {
    return shell(FLASHSIM_PATH " map --dir " + flash_.string() + " " + options + " --reboot '" +
                 probe(start) + "' -- " + operation);
  }

  // The same, on a flash that holds the configuration `old`.
  Result map(const std::string& old, const std::string& operation, const std::string& start,
             const std::string& options) const {
    EXPECT_EQ(flashsim(probe("save " + old)).status, 0);
    return flashsim_map(operation, start, options);
  }

  static std::vector<Cut> cuts_of(const Result& map) {
    EXPECT_TRUE(map.status == 0 || map.status == 1) << map.status;
    std::vector<Cut> all;
    std::istringstream in(map.output);
    Cut cut;
    for (size_t step;
         in >> step >> cut.verb >> cut.partition >> cut.offset >> cut.outcome >> cut.route;)
      all.push_back(cut);
    return all;
  }

  std::vector<Cut> cuts(const std::string& old, const std::string& operation,
                        const std::string& start = "show") const {
    return cuts_of(map(old, probe(operation), start, "--print cuts"));
  }
};

// The cuts that neither old nor new came back from.
std::vector<Cut> odd_ones(const std::vector<Cut>& cuts) {
  std::vector<Cut> odd;
  std::copy_if(cuts.begin(), cuts.end(), std::back_inserter(odd),
               [](const Cut& cut) { return cut.outcome != "old" && cut.outcome != "new"; });
  return odd;
}

// --- what a start is to come up with, from the bytes of both partitions ---

// What of a text takes effect: the values, attributes and instances that the model knows, by name.
struct Reading {
  std::map<std::string, std::string> values;
  std::vector<std::string> path;
  bool whole = false;

  std::string name() const {
    std::string all;
    for (const std::string& part : path) all += part;
    return all;
  }
};

bool is_known(const std::string& name) {
  static const std::regex known(
      "Box\\.(First|Name|Hint|Watched|Last|Rule\\.[0-9]+\\.(Enable|Port|Target)?)");
  return std::regex_match(name, known);
}

void XMLCALL start_element(void* user, const char* name, const char** pairs) {
  auto& reading = *static_cast<Reading*>(user);
  std::string part = name;
  std::string attributes;
  for (; *pairs; pairs += 2) {
    const std::string attribute = pairs[0];
    if (attribute == "name") part = pairs[1];
    if (attribute == "instance") part += std::string(pairs[1]) + ".";
    if (attribute == "notification") attributes = pairs[1];
  }
  reading.path.push_back(part);
  const bool counts = part.back() == '.' ? part.find("Rule.") == 0 : !attributes.empty();
  if (counts && is_known(reading.name())) reading.values[reading.name()] = attributes;
}

void XMLCALL end_element(void* user, const char*) { static_cast<Reading*>(user)->path.pop_back(); }

void XMLCALL char_data(void* user, const char* text, int length) {
  auto& reading = *static_cast<Reading*>(user);
  const std::string name = reading.name();
  if (is_known(name) && name.back() != '.')
    reading.values[name] = std::string(text, static_cast<size_t>(length));
}

Reading read(const std::string& bytes) {
  const std::string text = bytes.substr(0, bytes.find('\0'));
  Reading reading;
  const XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &reading);
  XML_SetElementHandler(parser, start_element, end_element);
  XML_SetCharacterDataHandler(parser, char_data);
  reading.whole =
      XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return reading;
}

// The length in a header; no header: npos.
size_t length_in(const std::string& partition) {
  size_t length = 0;
  for (size_t i = 4; i < 8; ++i) length = length << 8 | static_cast<unsigned char>(partition[i]);
  return partition.compare(0, 4, kMagic) == 0 && length < 65529 ? length : std::string::npos;
}

struct Foretold {
  std::string outcome;  // "old", "new" or "odd"
  std::string route;
};

// By the rules of the load: main by its own length; the backup by main's length where main does not
// read, and by its own where main has no header. What main gave before its error stays.
Foretold foretell(const std::string& main, const std::string& backup, const Reading& old_reading,
                  const Reading& new_reading) {
  Foretold foretold{"odd", ""};
  Reading result;
  size_t length = length_in(main);
  const bool has_main = length != std::string::npos;
  if (has_main) {
    foretold.route = "main";
    result = read(main.substr(8, length));
  } else {
    length = length_in(backup);
  }
  if (!result.whole && length != std::string::npos) {
    foretold.route += has_main ? ">backup" : "backup";
    const Reading second = read(backup.substr(8, length));
    for (const auto& [name, value] : second.values) result.values[name] = value;
    result.whole = second.whole;
  }
  if (!result.whole) foretold.route += foretold.route.empty() ? "default" : ">default";
  if (result.whole && result.values == new_reading.values) foretold.outcome = "new";
  if (result.whole && result.values == old_reading.values) foretold.outcome = "old";
  return foretold;
}

// The bytes of a partition while a save goes on.
class Saved {
 public:
  Saved(const std::string& old_document, const std::string& new_document)
      : bytes_(image(old_document)), goal_(image(new_document)), end_(8 + new_document.size()) {}

  // Up to the cut, in the write of the text or of the header.
  void write_to(size_t offset) {
    if (!in_write_) start_ = offset;
    in_write_ = true;
    std::copy(goal_.begin() + at(start_), goal_.begin() + at(offset), bytes_.begin() + at(start_));
  }
  void finish_write() {
    if (in_write_) write_to(start_ == 0 ? 8 : end_);
    in_write_ = false;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  static std::ptrdiff_t at(size_t offset) { return static_cast<std::ptrdiff_t>(offset); }

  std::string bytes_;
  std::string goal_;
  size_t end_;
  size_t start_ = 0;
  bool in_write_ = false;
};

// --- saves ---

struct Change {
  const char* old_one;
  const char* new_one;
};

std::ostream& operator<<(std::ostream& out, const Change& change) {
  return out << change.old_one << " to " << change.new_one;
}

class PowerSave : public Power, public testing::WithParamInterface<Change> {
 protected:
  PowerSave()
      : old_document_(document(GetParam().old_one)), new_document_(document(GetParam().new_one)) {}

  // Calls `look` with each cut of the save and the bytes it leaves in main and backup.
  template <typename Look>
  void at_each_cut(Look look) const {
    const std::vector<Cut> all =
        cuts(GetParam().old_one, "save " + std::string(GetParam().new_one));
    ASSERT_EQ(all.size(), 15 + 2 * (new_document_.size() - 1 + 7));
    Saved main(old_document_, new_document_);
    Saved backup(old_document_, new_document_);
    for (const Cut& cut : all) {
      if (cut.verb == "write") {
        (cut.partition == "NVRAM" ? main : backup).write_to(cut.offset);
      } else {
        main.finish_write();
        backup.finish_write();
      }
      look(cut, main.bytes(), backup.bytes());
    }
  }

  bool is_whole_image(const std::string& partition) const {
    const size_t length = length_in(partition);
    if (length == std::string::npos) return false;
    const std::string text = partition.substr(8, length);
    return text == old_document_ || text == new_document_;
  }

  std::string old_document_;
  std::string new_document_;
};

TEST_P(PowerSave, EveryCutComesBackAsForetoldAndLeavesAWholeDocument) {
  const Reading old_reading = read(old_document_);
  const Reading new_reading = read(new_document_);
  at_each_cut([&](const Cut& cut, const std::string& main, const std::string& backup) {
    const Foretold foretold = foretell(main, backup, old_reading, new_reading);
    const bool whole = cut.outcome == "old" || cut.outcome == "new";
    EXPECT_EQ(cut.route, foretold.route) << cut;
    EXPECT_EQ(whole ? cut.outcome : "odd", foretold.outcome) << cut;
    EXPECT_TRUE(is_whole_image(main) || is_whole_image(backup)) << cut;
  });
}

// The same, other lengths; an instance, extras more and less; lengths that differ in two bytes.
INSTANTIATE_TEST_SUITE_P(, PowerSave,
                         testing::Values(Change{"1 2 0", "1 2 0"}, Change{"1 2 0", "3 2 0"},
                                         Change{"1 2 0", "2 2 0"}, Change{"2 2 0", "1 2 0"},
                                         Change{"9 2 0", "10 2 0"}, Change{"1 1 0", "1 2 0"},
                                         Change{"1 2 0", "1 1 0"}, Change{"1 2 0", "1 3 0"},
                                         Change{"1 3 0", "1 2 0"}, Change{"1 2 0", "2 2 1"},
                                         Change{"2 2 1", "1 2 0"}, Change{"1 0 0", "1 8 0"}));

// Once main's header is written, nothing but new comes back.
TEST_F(Power, SaveIsSafeFromMainsHeaderOn) {
  bool header_done = false;
  size_t cuts_of_backup = 0;
  for (const Cut& cut : cuts("1 2 0", "save 2 3 1")) {
    if (header_done) {
      EXPECT_EQ(cut.ending(), "new main") << cut;
      cuts_of_backup += cut.partition == "NVRAMBAK";
    }
    header_done =
        header_done || (cut.verb == "write" && cut.partition == "NVRAM" && cut.offset == 7);
  }
  EXPECT_EQ(cuts_of_backup, document("2 3 1").size() + 8 + 5);
}

TEST_F(Power, SaveOfEqualLengthMixesBetweenTheFirstAndTheLastByteThatDiffer) {
  const std::string old_document = document("1 2 0");
  const std::string new_document = document("3 2 0");
  ASSERT_EQ(old_document.size(), new_document.size());
  size_t first = 0;
  while (old_document[first] == new_document[first]) ++first;
  size_t last = old_document.size() - 1;
  while (old_document[last] == new_document[last]) --last;
  const std::vector<Cut> odd = odd_ones(cuts("1 2 0", "save 3 2 0"));
  ASSERT_EQ(odd.size(), last - first);
  EXPECT_EQ(odd.front().offset, 8 + first + 1);
  EXPECT_EQ(odd.back().offset, 8 + last);
  for (const Cut& cut : odd) EXPECT_EQ(cut.route, "main") << cut;
}

TEST_F(Power, SaveOfAnotherLengthCanPutValuesTogetherThatNeitherHad) {
  const std::vector<Cut> odd = odd_ones(cuts("1 2 0", "save 2 2 0"));
  EXPECT_TRUE(std::any_of(odd.begin(), odd.end(),
                          [](const Cut& cut) { return cut.ending() == "damaged main"; }));
}

TEST_F(Power, InstanceThatMainBeganStaysBesideTheBackup) {
  const std::vector<Cut> odd = odd_ones(cuts("1 2 0", "save 1 3 0"));
  ASSERT_FALSE(odd.empty());
  // From the moment its start tag is whole; before, there is nothing new in the text.
  const size_t tag =
      document("1 3 0").find("<Rule. instance=\"3\">") + sizeof "<Rule. instance=\"3\">" - 1;
  EXPECT_EQ(odd.front().offset, 8 + tag);
  EXPECT_EQ(odd.front().ending(), "damaged main>backup");
}

TEST_F(Power, TornLengthInMainsHeaderReadsBothTextsWrongly) {
  ASSERT_EQ(document("1 2 0").size() >> 8, 1u);
  ASSERT_EQ(document("1 3 0").size() >> 8, 2u);
  std::vector<Cut> defaults = cuts("1 3 0", "save 1 2 0");
  std::erase_if(defaults, [](const Cut& cut) { return cut.route != "main>backup>default"; });
  ASSERT_EQ(defaults.size(), 1u);
  EXPECT_EQ(defaults[0].offset, 7u);
  EXPECT_EQ(defaults[0].partition, "NVRAM");
}

// --- starts ---

TEST_F(Power, StartWithAnUnchangedFirmwareWritesWhatIsThere) {
  const Result result = map("1 2 0", probe("load"), "show", "");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find(" 1 different flashes\n"), std::string::npos) << result.output;
}

TEST_F(Power, FirstStartOfANewFirmwareIsASaveOfAnotherLength) {
  const std::vector<Cut> odd = odd_ones(cuts("1 2 0", "new-load", "new-show"));
  ASSERT_FALSE(odd.empty());
  for (const Cut& cut : odd) EXPECT_EQ(cut.partition + cut.verb, "NVRAMwrite") << cut;
}

// --- upgrade and clear ---

class PowerStart : public Power {
 protected:
  // The map of a start on a flash with "1 2 0" that `damage` was done to.
  std::vector<Cut> start_after(const std::string& damage, const std::string& start) const {
    EXPECT_EQ(flashsim(probe("save 1 2 0")).status, 0);
    EXPECT_EQ(flashsim(damage).status, 0);
    return cuts_of(flashsim_map(probe(start), start, "--print cuts"));
  }
};

TEST_F(PowerStart, FromTheBackupIsSafeButForTheLastByteOfMainsHeader) {
  const std::vector<Cut> odd = odd_ones(start_after("mtd erase NVRAM", "show"));
  ASSERT_EQ(odd.size(), 1u);
  EXPECT_EQ(odd[0].partition, "NVRAM");
  EXPECT_EQ(odd[0].offset, 7u);
}

TEST_F(PowerStart, CheckedOneIsSafeWhileItPutsMainRight) {
  const std::vector<Cut> all =
      start_after("sh -c 'printf \"<\" | dd of=/dev/nvram bs=1 seek=200 conv=notrunc 2>/dev/null'",
                  "checked-show");
  EXPECT_GT(all.size(), 400u);
  for (const Cut& cut : all) EXPECT_EQ(cut.outcome, "old") << cut;
}

TEST_F(PowerStart, CheckedOneOfANewFirmwareIsSafe) {
  const std::vector<Cut> all = cuts("1 2 0", "new-checked-show", "new-checked-show");
  EXPECT_GT(all.size(), 900u);
  for (const Cut& cut : all) EXPECT_EQ(cut.outcome, "old") << cut;
}

class PowerUpgrade : public Power {
 protected:
  std::vector<Cut> upgrade(const std::string& padding, const std::string& start = "show") const {
    const std::string file = (work_ / "upgrade").string();
    EXPECT_EQ(shell(probe("wrap 2 3 1 " + padding + " >" + file)).status, 0);
    return cuts("1 2 0", "upgrade " + file, start);
  }
};

TEST_F(PowerUpgrade, OnlyTheLastByteOfMainsHeaderIsNotSafe) {
  const std::vector<Cut> odd = odd_ones(upgrade("0"));
  ASSERT_EQ(odd.size(), 1u);
  EXPECT_EQ(odd[0].partition, "NVRAM");
  EXPECT_EQ(odd[0].offset, 7u);
  EXPECT_EQ(odd[0].ending(), "mixture+default main>backup>default");
}

TEST_F(PowerUpgrade, LengthThatEndsInAllBitsSetIsSafe) {
  const size_t padding = (0x1ff - document("2 3 1").size() % 0x100) % 0x100;
  EXPECT_TRUE(odd_ones(upgrade(std::to_string(padding))).empty());
}

TEST_F(PowerUpgrade, OldComesBackUntilMainsEraseBeginsAndNewFromThenOn) {
  bool erased = false;
  for (const Cut& cut : upgrade("0", "checked-show")) {
    erased = erased || (cut.partition == "NVRAM" && cut.verb == "erase" && cut.offset > 0);
    EXPECT_EQ(cut.outcome, erased ? "new" : "old") << cut;
  }
}

TEST_F(Power, ClearGoesBackToTheDefaultOnceTheBackupsEraseBegan) {
  const std::vector<Cut> all = cuts("1 2 0", "clear");
  bool gone = false;
  for (const Cut& cut : all) {
    gone = gone || (cut.partition == "NVRAMBAK" && cut.verb == "erase" && cut.offset > 0);
    EXPECT_EQ(cut.outcome, gone ? "new" : "old") << cut;
  }
  EXPECT_EQ(all.back().route, "default");
}

// --- what a host can do ---

TEST_F(Power, GuardedSaveIsSafeEverywhere) {
  for (const Change& change : {Change{"1 2 0", "2 3 1"}, Change{"2 3 1", "1 2 0"}})
    EXPECT_TRUE(
        odd_ones(cuts(change.old_one, "guarded-save " + std::string(change.new_one))).empty())
        << change.new_one;
}

TEST_F(Power, SaveAfterAnEraseOfMainIsSafeButForTheLastByteOfItsHeader) {
  const std::vector<Cut> odd = odd_ones(cuts("1 2 0", "erased-save 2 3 1"));
  ASSERT_EQ(odd.size(), 1u);
  EXPECT_EQ(odd[0].partition, "NVRAM");
  EXPECT_EQ(odd[0].verb, "write");
  EXPECT_EQ(odd[0].offset, 7u);
}

TEST_F(Power, CheckedStartIsSafeAfterEverySave) {
  for (const Change& change : {Change{"1 2 0", "3 2 0"}, Change{"1 2 0", "2 2 0"},
                               Change{"9 2 0", "10 2 0"}, Change{"2 3 1", "1 2 0"}})
    EXPECT_TRUE(
        odd_ones(cuts(change.old_one, "save " + std::string(change.new_one), "checked-show"))
            .empty())
        << change.new_one;
}

// --- the map itself ---

TEST_F(Power, MapLeavesTheFolderAsItIs) {
  const auto bytes = [&] {
    std::ifstream in(flash_ / "nvram", std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(in), {}};
  };
  (void)map("1 1 0", probe("save 2 1 0"), "show", "--steps");
  EXPECT_EQ(bytes(), image(document("1 1 0")));
}

TEST_F(Power, MapTriesEveryStepAndEveryByte) {
  const size_t length = document("2 1 0").size();
  EXPECT_EQ(cuts("1 1 0", "save 2 1 0").size(), 15 + 2 * (length - 1 + 7));
  const Result result = map("1 1 0", probe("save 2 1 0"), "show", "--steps --print cuts");
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 15);
}

TEST_F(Power, MapsRunsAccountForAllCuts) {
  const Result result = map("1 1 0", probe("save 2 1 0"), "show", "");
  std::istringstream in(result.output);
  std::string line;
  std::getline(in, line);
  size_t sum = 0;
  while (std::getline(in, line) && line.find("different flashes") == std::string::npos)
    sum += std::stoul(line);
  EXPECT_EQ(sum, std::stoul(line));
}

TEST_F(Power, MapKeepsTheFlashesThatCameBackOddly) {
  const fs::path kept = work_ / "kept";
  const Result result = map("1 1 0", probe("save 3 1 0"), "show", "--keep " + kept.string());
  EXPECT_EQ(result.status, 1);
  ASSERT_FALSE(fs::is_empty(kept));
  for (const auto& folder : fs::directory_iterator(kept)) {
    const Result again =
        shell(FLASHSIM_PATH " --dir " + folder.path().string() + " -- " + probe("show"));
    EXPECT_NE(again.output.find("Box."), std::string::npos);
    EXPECT_NE(again.output.find("3"), std::string::npos);
  }
}

TEST_F(Power, MapTellsOfARestartThatFails) {
  ASSERT_EQ(flashsim(probe("save 1 1 0")).status, 0);
  const Result result = shell(FLASHSIM_PATH " map --dir " + flash_.string() +
                              " --print cuts --reboot 'cmp -s -n 9 /dev/nvram /dev/nvrambak && "
                              "echo same || kill -9 $$' -- sh -c 'printf x >/dev/nvram; printf x "
                              ">/dev/nvrambak; mtd erase NVRAM; mtd erase NVRAMBAK'");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("damaged\tnone\n"), std::string::npos);
}

TEST_F(Power, MapNeedsAnOperationThatSucceeds) {
  EXPECT_EQ(map("1 1 0", "false", "show", "2>&1").status, 127);
  const Result result = map("1 1 0", "false", "show", "2>&1");
  EXPECT_NE(result.output.find("flashsim: false ended with exit status 1\n"), std::string::npos);
}

TEST_F(Power, MapRefusesAnOperationThatGoesAroundTheDevices) {
  const std::string around =
      "sh -c 'printf x | dd of=$FLASHSIM_DIR/nvram conv=notrunc 2>/dev/null'";
  const Result result = map("1 1 0", around, "show", "2>&1");
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.output,
            "flashsim: the recorded steps do not lead to the flash that 'sh' left\n");
}

TEST_F(Power, MapRefusesWrongUsage) {
  for (const std::string words :
       {"", "--dir x", "--dir x --reboot y", "--dir x -- y", "--dir x --reboot y --print z -- w",
        "--dir x --reboot y --jobs 0 -- w", "--unknown", "--dir"}) {
    const Result result = shell(FLASHSIM_PATH " map " + words + " 2>&1");
    EXPECT_EQ(result.status, 2) << words;
    EXPECT_NE(result.output.find("usage: flashsim map"), std::string::npos) << words;
  }
}

TEST_F(Power, MapRefusesAFolderThatIsNotThere) {
  const Result result = shell(FLASHSIM_PATH " map --dir " + (work_ / "none").string() +
                              " --reboot true -- true 2>&1");
  EXPECT_EQ(result.status, 127);
  EXPECT_FALSE(fs::exists(work_ / "none"));
}

}  // namespace
