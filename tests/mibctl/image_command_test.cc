#include <filesystem>
#include <nlohmann/json.hpp>

#include "command.hh"
#include "image.hh"

namespace {

using mibctl::expect_done;
using mibctl::expect_error;
using mibctl::Outcome;
using nlohmann::json;

constexpr char kSmall[] = "<A.>\n<B. instance=\"2\">\n<PARAM name=\"x\">1</PARAM>\n</B.>\n</A.>\n";
constexpr char kOther[] = "<A.>\n<B. instance=\"2\">\n<PARAM name=\"x\">2</PARAM>\n</B.>\n</A.>\n";
constexpr char kBroken[] = "<A.>\n<B.>\n</A.>\n";

std::string erased(size_t size) { return std::string(size, '\xff'); }
std::string image_of(const std::string& text) { return mibctl::make_image("test", text); }

class ImageCommand : public mibctl::Command {
 protected:
  Outcome image(std::vector<std::string> arguments, const std::string& input = "") const {
    arguments.insert(arguments.begin(), "image");
    return run(arguments, input);
  }
  std::string flash(const std::string& main, const std::string& backup) const {
    std::filesystem::create_directory(folder.path("flash"));
    folder.write("flash/nvram", main);
    folder.write("flash/nvrambak", backup);
    return folder.path("flash");
  }

  const std::string small = folder.write("small.xml", kSmall);
  const std::string broken = folder.write("broken.xml", kBroken);
  const std::string small_image = folder.write("small.bin", image_of(kSmall) + erased(10));
  const std::string broken_image = folder.write("broken.bin", image_of(kBroken));
  const std::string erased_image = folder.write("erased.bin", erased(64));
  const std::string out = folder.path("out");
};

// --- info ---

TEST_F(ImageCommand, InfoExplainsAValidImage) {
  expect_done(image({"info", small_image}), "file: " + small_image +
                                                "\n"
                                                "size: 79 bytes\n"
                                                "magic: abcd1234\n"
                                                "length: 61 bytes\n"
                                                "behind: 10 bytes, erased\n"
                                                "state: valid, 61 bytes\n"
                                                "start: would load it\n");
}

TEST_F(ImageCommand, InfoExplainsAnErasedImage) {
  expect_done(image({"info", erased_image}), "file: " + erased_image +
                                                 "\n"
                                                 "size: 64 bytes\n"
                                                 "magic: ffffffff\n"
                                                 "length: 4,294,967,295 bytes\n"
                                                 "state: magic ffffffff, not abcd1234: erased\n"
                                                 "start: would not load it\n");
}

TEST_F(ImageCommand, InfoShowsOnlyWhatADumpHas) {
  const std::string path = folder.write("short.bin", "\xab\xcd\x12");
  expect_done(image({"info", path}), "file: " + path +
                                         "\n"
                                         "size: 3 bytes\n"
                                         "state: 3 bytes: shorter than a header (8)\n"
                                         "start: would not load it\n");
}

TEST_F(ImageCommand, InfoTakesDumpsOfEveryLength) {
  for (size_t size = 0; size <= 30; ++size) {
    const std::string path = folder.write("cut.bin", image_of(kSmall).substr(0, size));
    const Outcome outcome = image({"info", path});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find("start: would not load it\n"), std::string::npos) << size;
  }
}

TEST_F(ImageCommand, InfoSaysWhatIsBehindTheText) {
  const std::string path = folder.write("behind.bin", image_of(kSmall) + "old");
  EXPECT_NE(image({"info", path}).out.find("behind: 3 bytes, not erased\n"), std::string::npos);
}

TEST_F(ImageCommand, InfoSaysWhereATextIsBroken) {
  EXPECT_NE(image({"info", broken_image})
                .out.find("state: the text does not parse: line 3, column 3: mismatched tag\n"),
            std::string::npos);
}

TEST_F(ImageCommand, InfoOfAPairTellsWhichAStartLoads) {
  const std::string path = flash(erased(64), image_of(kSmall));
  expect_done(image({"info", path}), "main file: " + path +
                                         "/nvram\n"
                                         "main size: 64 bytes\n"
                                         "main magic: ffffffff\n"
                                         "main length: 4,294,967,295 bytes\n"
                                         "main state: magic ffffffff, not abcd1234: erased\n"
                                         "backup file: " +
                                         path +
                                         "/nvrambak\n"
                                         "backup size: 69 bytes\n"
                                         "backup magic: abcd1234\n"
                                         "backup length: 61 bytes\n"
                                         "backup behind: 0 bytes\n"
                                         "backup state: valid, 61 bytes\n"
                                         "start: loads the backup and rewrites both\n");
}

TEST_F(ImageCommand, InfoOfAPairGoesOnWithoutOneOfThem) {
  const std::string path = flash(image_of(kSmall), "");
  std::filesystem::remove(path + "/nvrambak");
  const Outcome outcome = image({"info", path});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.out.find("backup file: " + path +
                             "/nvrambak\n"
                             "backup state: cannot be read: No such file or directory\n"
                             "start: loads main and rewrites both\n"),
            std::string::npos);
}

TEST_F(ImageCommand, InfoIsJsonForPrograms) {
  const json record = json::parse(image({"info", small_image, "--json"}).out);
  EXPECT_EQ(record, json({{"file", small_image},
                          {"size", 79},
                          {"magic", "abcd1234"},
                          {"length", 61},
                          {"behind", 10},
                          {"state", "valid, 61 bytes"},
                          {"valid", true}}));
}

TEST_F(ImageCommand, InfoOfAPairIsJsonForPrograms) {
  const json record =
      json::parse(image({"info", flash(erased(64), image_of(kSmall)), "--json"}).out);
  EXPECT_EQ(record["main"]["valid"], false);
  EXPECT_EQ(record["backup"]["length"], 61);
  EXPECT_EQ(record["loads"], "backup");
  EXPECT_EQ(record["start"], "loads the backup and rewrites both");
}

TEST_F(ImageCommand, InfoOfWhatCannotBeReadIsAStorageError) {
  expect_error(image({"info", out}), 3, out + ": cannot be read (No such file or directory)");
}

TEST_F(ImageCommand, InfoOfAFolderWithoutImagesIsAStorageError) {
  const std::string path = folder.path("empty");
  std::filesystem::create_directory(path);
  expect_error(image({"info", path}), 3,
               path +
                   ": has no image that can be read (nvram cannot be read: No such file or "
                   "directory; nvrambak cannot be read: No such file or directory)");
}

TEST_F(ImageCommand, InfoReadsStandardInput) {
  EXPECT_NE(image({"info", "-"}, image_of(kSmall)).out.find("state: valid, 61 bytes\n"),
            std::string::npos);
}

// --- verify ---

TEST_F(ImageCommand, VerifyIsStatus0ForWhatAStartLoads) {
  expect_done(image({"verify", small_image}),
              "state: valid, 61 bytes\n"
              "start: would load it\n");
}

TEST_F(ImageCommand, VerifyIsStatus1ForWhatItDoesNot) {
  const Outcome outcome = image({"verify", broken_image});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "state: the text does not parse: line 3, column 3: mismatched tag\n"
            "start: would not load it\n");
}

TEST_F(ImageCommand, VerifyOfAPairNeedsOneThatLoads) {
  const Outcome outcome = image({"verify", flash(erased(64), image_of(kSmall))});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "main state: magic ffffffff, not abcd1234: erased\n"
            "backup state: valid, 61 bytes\n"
            "start: loads the backup and rewrites both\n");
  EXPECT_EQ(image({"verify", flash(erased(64), erased(64))}).status, 1);
}

TEST_F(ImageCommand, VerifyIsJsonForPrograms) {
  const Outcome outcome = image({"verify", erased_image, "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(json::parse(outcome.out)["valid"], false);
}

// --- pack ---

TEST_F(ImageCommand, PackFillsAPartition) {
  expect_done(image({"pack", small, "-o", out}));
  EXPECT_EQ(folder.read("out"), image_of(kSmall) + erased(65536 - 69));
}

TEST_F(ImageCommand, PackTakesTheSizeOfThePartition) {
  expect_done(image({"pack", small, "-o", out, "--size", "80"}));
  EXPECT_EQ(folder.read("out"), image_of(kSmall) + erased(11));
  expect_done(image({"pack", small, "-o", out, "--size", "128K"}));
  EXPECT_EQ(folder.read("out").size(), 131072u);
}

TEST_F(ImageCommand, PackRefusesAPartitionThatIsTooSmall) {
  expect_error(image({"pack", small, "-o", out, "--size", "68"}), 1,
               small + ": does not fit into 68 bytes (the image has 69 bytes)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, PackRefusesADocumentThatDoesNotParse) {
  expect_error(image({"pack", broken, "-o", out}), 1,
               broken + ": does not parse (line 3, column 3: mismatched tag)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, PackForcedTakesWhatDoesNotParse) {
  expect_done(image({"pack", broken, "-o", out, "--force"}));
  EXPECT_EQ(folder.read("out").substr(8, 5), "<A.>\n");
}

TEST_F(ImageCommand, PackRefusesWhatIsTooLongEvenForced) {
  const std::string path = folder.write("long.xml", std::string(65529, ' '));
  expect_error(image({"pack", path, "-o", out, "--force"}), 1,
               path + ": too long for an image (65,529 bytes, at most 65,528)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, PackNeverWritesOverItsInput) {
  std::filesystem::create_symlink("small.xml", out);
  expect_error(image({"pack", small, "-o", out}), 2,
               out + ": is the input (name another file to write)");
  EXPECT_EQ(folder.read("small.xml"), kSmall);
}

TEST_F(ImageCommand, PackNeedsAnOutput) { EXPECT_EQ(image({"pack", small}).status, 2); }

// --- unpack ---

TEST_F(ImageCommand, UnpackPrintsTheDocument) {
  expect_done(image({"unpack", small_image}), kSmall);
}

TEST_F(ImageCommand, UnpackWritesTheDocument) {
  expect_done(image({"unpack", small_image, "-o", out}));
  EXPECT_EQ(folder.read("out"), kSmall);
}

TEST_F(ImageCommand, UnpackNeverWritesOverItsInput) {
  expect_error(image({"unpack", small_image, "-o", small_image}), 2,
               small_image + ": is the input (name another file to write)");
  EXPECT_EQ(folder.read("small.bin"), image_of(kSmall) + erased(10));
}

TEST_F(ImageCommand, UnpackRefusesATextThatDoesNotParse) {
  expect_error(image({"unpack", broken_image, "-o", out}), 1,
               broken_image +
                   ": does not load; --force writes what there is (the text does not parse: line "
                   "3, column 3: mismatched tag)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, UnpackForcedWritesWhatThereIs) {
  expect_done(image({"unpack", broken_image, "--force"}), kBroken);
  const std::string cut = folder.write("cut.bin", image_of(kSmall).substr(0, 20));
  expect_done(image({"unpack", cut, "--force"}), std::string(kSmall).substr(0, 12));
}

TEST_F(ImageCommand, UnpackOfAnInvalidImageIsAStorageError) {
  expect_error(image({"unpack", erased_image}), 3,
               erased_image + ": holds no configuration (magic ffffffff, not abcd1234: erased)");
}

TEST_F(ImageCommand, UnpackForcedFindsTheTextBehindATornHeader) {
  const std::string path = folder.write("torn.bin", erased(8) + kSmall + erased(30));
  expect_done(image({"unpack", path, "--force"}), kSmall);
}

// --- diff ---

TEST_F(ImageCommand, DiffOfEqualImages) {
  expect_done(image({"diff", small_image, small_image}),
              "bytes: same, 79 bytes\n"
              "document: same\n");
}

TEST_F(ImageCommand, DiffShowsBytesAndLines) {
  const std::string other = folder.write("other.bin", image_of(kOther) + erased(10));
  const Outcome outcome = image({"diff", small_image, other});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "bytes: 1 byte changed, the first at offset 47 (0x2f)\n"
            "document: 1 line removed, 1 added\n"
            "-3: <PARAM name=\"x\">1</PARAM>\n"
            "+3: <PARAM name=\"x\">2</PARAM>\n");
}

TEST_F(ImageCommand, DiffSeesWhatIsBehindTheText) {
  const std::string other = folder.write("other.bin", image_of(kSmall) + erased(9));
  const Outcome outcome = image({"diff", small_image, other});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "bytes: 79 and 78 bytes\n"
            "document: same\n");
}

TEST_F(ImageCommand, DiffOfAnImageAndADocumentComparesTheDocuments) {
  expect_done(image({"diff", small_image, small}),
              "bytes: not compared: files of two kinds\n"
              "document: same\n");
}

TEST_F(ImageCommand, DiffOfPairsComparesEachFile) {
  const std::string one = flash(image_of(kSmall), erased(64));
  std::filesystem::copy(one, folder.path("two"));
  folder.write("two/nvrambak", image_of(kSmall));
  const Outcome outcome = image({"diff", one, folder.path("two")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out.find("nvram: same, 69 bytes\nnvrambak: 64 bytes changed"), 0u);
}

TEST_F(ImageCommand, DiffWithAnInvalidImageComparesBytesOnly) {
  const Outcome outcome = image({"diff", small_image, erased_image});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.out.find("document: not compared: " + erased_image +
                             ": magic ffffffff, not abcd1234: erased\n"),
            std::string::npos);
}

TEST_F(ImageCommand, DiffShowsControlCharactersEscaped) {
  const std::string a = folder.write("a.xml", "<A>\x1b[2J</A>");
  const Outcome outcome = image({"diff", a, small});
  EXPECT_NE(outcome.out.find("-1: \"<A>\\x1B[2J</A>\"\n"), std::string::npos) << outcome.out;
}

TEST_F(ImageCommand, DiffIsJsonForPrograms) {
  const std::string other = folder.write("other.xml", kOther);
  const json record = json::parse(image({"diff", small, other, "--json"}).out);
  EXPECT_EQ(record["same"], false);
  EXPECT_EQ(record["lines"][0],
            json({{"change", "removed"}, {"line", 3}, {"text", "<PARAM name=\"x\">1</PARAM>"}}));
}

// --- size ---

TEST_F(ImageCommand, SizeNamesTheBiggestSubtrees) {
  const std::string sizes =
      "text: 61 bytes\n"
      "left: 65,467 of 65,528 bytes\n"
      "A.: 60 bytes\n"
      "A.B.2.: 49 bytes\n";
  expect_done(image({"size", small}), sizes);
  expect_done(image({"size", small_image}), sizes);
  expect_done(image({"size", flash(erased(64), image_of(kSmall))}), sizes);
}

TEST_F(ImageCommand, SizeShowsAsManyAsWished) {
  expect_done(image({"size", small, "--top", "1"}),
              "text: 61 bytes\n"
              "left: 65,467 of 65,528 bytes\n"
              "A.: 60 bytes\n");
}

TEST_F(ImageCommand, SizeOfWhatIsTooLongSaysByHowMuch) {
  const std::string path = folder.write("long.xml", "<A.>" + std::string(65528, ' ') + "</A.>");
  EXPECT_NE(image({"size", path}).out.find("left: none, 9 bytes too long\n"), std::string::npos);
}

TEST_F(ImageCommand, SizeOfABrokenDocumentIsRefused) {
  expect_error(image({"size", broken}), 1,
               broken + ": does not parse (line 3, column 3: mismatched tag)");
}

TEST_F(ImageCommand, SizeOfAnInvalidImageIsAStorageError) {
  EXPECT_EQ(image({"size", erased_image}).status, 3);
}

TEST_F(ImageCommand, SizeIsJsonForPrograms) {
  const json record = json::parse(image({"size", small, "--json"}).out);
  EXPECT_EQ(record["text"], 61);
  EXPECT_EQ(record["left"], 65467);
  EXPECT_EQ(record["subtrees"][1], json({{"name", "A.B.2."}, {"bytes", 49}}));
}

// --- upgrade files ---

TEST_F(ImageCommand, UpgradeFileIsMadeAndChecked) {
  expect_done(image({"upgrade-file", "make", small, "-o", out}));
  EXPECT_EQ(folder.read("out"), mibctl::make_upgrade(kSmall));
  expect_done(image({"upgrade-file", "check", out}),
              "payload: 61 bytes\n"
              "document: valid\n");
}

TEST_F(ImageCommand, UpgradeFileOfABrokenDocumentIsNotMade) {
  expect_error(image({"upgrade-file", "make", broken, "-o", out}), 1,
               broken + ": does not parse (line 3, column 3: mismatched tag)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, UpgradeFileOfATooLongDocumentIsNotMade) {
  const std::string path = folder.write("long.xml", "<A.>" + std::string(65528, ' ') + "</A.>");
  expect_error(image({"upgrade-file", "make", path, "-o", out}), 1,
               path + ": too long for an image (65,537 bytes, at most 65,528)");
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(ImageCommand, UpgradeFileIsMadeOfAnythingWhenForced) {
  const std::string text(65529, 't');
  expect_done(
      image({"upgrade-file", "make", folder.write("long.xml", text), "-o", out, "--force"}));
  EXPECT_EQ(folder.read("out"), mibctl::make_upgrade(text));
}

TEST_F(ImageCommand, UpgradeFileNeverReplacesItsInput) {
  expect_error(image({"upgrade-file", "make", small, "-o", small}), 2,
               small + ": is the input (name another file to write)");
}

TEST_F(ImageCommand, UpgradeFileThatNoGatewayTakesIsRefused) {
  expect_error(image({"upgrade-file", "check", small}), 1,
               small + ": not an upgrade file (it does not begin with \"zoremcfg\")");
}

TEST_F(ImageCommand, UpgradeFileWithABrokenDocumentIsStatus1) {
  const std::string path = folder.write("up", mibctl::make_upgrade(kBroken));
  const Outcome outcome = image({"upgrade-file", "check", path});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "payload: 16 bytes\n"
            "document: line 3, column 3: mismatched tag\n");
}

// --- the command line ---

TEST_F(ImageCommand, EveryVerbHasAnExample) {
  for (const std::vector<std::string>& verb :
       std::vector<std::vector<std::string>>{{"info"},
                                             {"verify"},
                                             {"pack"},
                                             {"unpack"},
                                             {"diff"},
                                             {"size"},
                                             {"upgrade-file", "make"},
                                             {"upgrade-file", "check"}}) {
    std::vector<std::string> arguments = verb;
    arguments.push_back("--help");
    const Outcome outcome = image(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find("Example:\n  mibctl image " + verb[0]), std::string::npos);
  }
}

TEST_F(ImageCommand, NeedsAVerb) {
  EXPECT_EQ(image({}).status, 2);
  EXPECT_EQ(image({"upgrade-file"}).status, 2);
}

}  // namespace
