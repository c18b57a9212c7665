// The verb `check`, as a user runs it.
#include <gtest/gtest.h>

#include <string>

#include "command.hh"
#include "image.hh"

namespace mibctl {
namespace {

class Check : public Command {
 protected:
  Outcome check(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--model", model, "--overlay", overlay, "check"});
    return run(arguments);
  }
  static std::string with_fault() {
    return "<InternetGatewayDevice.>\n<Time.>\n<PARAM name=\"Serial\">1</PARAM>\n"
           "<PARAM name=\"Interval\">0</PARAM>\n</Time.>\n</InternetGatewayDevice.>\n";
  }
  static std::string with_note() {
    return "<InternetGatewayDevice.>\n<Time.>\n<PARAM name=\"Serial\">1</PARAM>\n"
           "<PARAM name=\"Zone\">PST</PARAM>\n</Time.>\n</InternetGatewayDevice.>\n";
  }
  static std::string fault_in(const std::string& file) {
    return file +
           ":4:24: lost: InternetGatewayDevice.Time.Interval: refused value (below the "
           "lowest value, 1)\n";
  }
};

TEST_F(Check, OfACleanConfigurationIsSilent) { expect_done(check({config})); }

TEST_F(Check, TakesTheConfigurationOfTheOptions) { expect_done(on_config({"check"})); }

TEST_F(Check, PrintsALineForEachFindingAndASummary) {
  const std::string file = folder.write("other.xml", with_fault());
  const Outcome outcome = check({file});
  EXPECT_EQ(outcome.out, fault_in(file));
  EXPECT_EQ(outcome.err, file + ": 1 finding, 1 lost\n");
  EXPECT_EQ(outcome.status, 1);
}

TEST_F(Check, WithoutALossEndsWithStatus0) {
  const std::string file = folder.write("other.xml", with_note());
  const Outcome outcome = check({file});
  EXPECT_EQ(outcome.out, file +
                             ":4:20: note: InternetGatewayDevice.Time.Zone: a value that the "
                             "model does not allow (not one of UTC, CET)\n");
  EXPECT_EQ(outcome.err, file + ": 1 finding, 0 lost\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(Check, PrintsJson) {
  const std::string file = folder.write("other.xml", with_fault());
  const Outcome outcome = check({"--json", file});
  EXPECT_EQ(outcome.out, "[\n  {\n    \"file\": \"" + file +
                             "\",\n    \"line\": 4,\n    \"column\": 24,\n"
                             "    \"name\": \"InternetGatewayDevice.Time.Interval\",\n"
                             "    \"text\": \"refused value\",\n"
                             "    \"detail\": \"below the lowest value, 1\",\n"
                             "    \"lost\": true\n  }\n]\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 1);
}

TEST_F(Check, OfACleanConfigurationPrintsAnEmptyJsonArray) {
  expect_done(check({"--json", config}), "[]\n");
}

TEST_F(Check, OfAnImageCountsLinesOfItsText) {
  const std::string file = folder.write("nvram.bin", make_image("", with_fault()));
  EXPECT_EQ(check({file}).out, fault_in(file));
  EXPECT_EQ(on_config({"check", file}).status, 2);
}

class CheckPair : public Check {
 protected:
  // A folder with both images; "" leaves one out.
  std::string pair(const std::string& main, const std::string& backup) const {
    const std::string path = folder.path("flash");
    std::filesystem::create_directory(path);
    if (!main.empty()) folder.write("flash/nvram", main);
    if (!backup.empty()) folder.write("flash/nvrambak", backup);
    return path;
  }
};

TEST_F(CheckPair, LooksAtTheImageThatAStartLoads) {
  const std::string path = pair(make_image("", with_fault()), make_image("", kBoxDocument));
  EXPECT_EQ(check({path}).out, fault_in(path + "/nvram"));
  EXPECT_EQ(check({"--flash", path}).out, fault_in(path + "/nvram"));
}

TEST_F(CheckPair, SaysThatItLooksAtTheBackup) {
  const std::string path = pair("erased", make_image("", with_fault()));
  const Outcome outcome = check({path});
  EXPECT_EQ(outcome.out, fault_in(path + "/nvrambak"));
  EXPECT_EQ(outcome.err, path + ": loads the backup and rewrites both\n" + path +
                             "/nvrambak: 1 finding, 1 lost\n");
}

TEST_F(CheckPair, SaysWhatIsWrongWithATextThatDoesNotLoad) {
  const std::string path = pair(make_image("", "<InternetGatewayDevice.>"), "");
  const Outcome outcome = check({path});
  EXPECT_EQ(outcome.out, path +
                             "/nvram:1:25: lost: InternetGatewayDevice.: not well-formed: no "
                             "element found (a load stops here)\n");
  EXPECT_EQ(outcome.status, 1);
}

TEST_F(CheckPair, WithoutAnImageIsUnreadable) { EXPECT_EQ(check({pair("erased", "")}).status, 3); }

TEST_F(Check, OfAMissingFileIsUnreadable) {
  const std::string file = folder.path("none.xml");
  expect_error(check({file}), 3, file + ": cannot be read (No such file or directory)");
}

TEST_F(Check, WithoutAConfigurationIsAUsageError) { EXPECT_EQ(check({}).status, 2); }

TEST_F(Check, HelpHasAnExample) {
  EXPECT_NE(check({"--help"}).out.find("check conf.xml"), std::string::npos);
}

}  // namespace
}  // namespace mibctl
