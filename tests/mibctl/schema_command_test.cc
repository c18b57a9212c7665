// The schema compiler's verbs, as a user runs them.
#include "command.hh"

namespace mibctl {
namespace {

class Schema : public Command {
 protected:
  std::vector<std::string> compile(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"schema", "compile",         model, "--overlay", overlay,
                                          "-o",     folder.path("out")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
};

TEST_F(Schema, CompileWritesSourceAndHeaderAndSaysHowManyIds) {
  const Outcome outcome = run(compile());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(outcome.out.starts_with("InternetGatewayDevice:1.0: 17 unique ids, 1,983 left\n"))
      << outcome.out;
  EXPECT_NE(folder.read("out/box_schema.h").find("BOX_InternetGatewayDevice_Time_Enable"),
            std::string::npos);
  EXPECT_NE(folder.read("out/box_schema.c").find("\"Enable\""), std::string::npos);
}

TEST_F(Schema, CompileTwiceGivesTheSameBytes) {
  run(compile());
  const std::string source = folder.read("out/box_schema.c"),
                    header = folder.read("out/box_schema.h");
  run(compile());
  EXPECT_EQ(folder.read("out/box_schema.c"), source);
  EXPECT_EQ(folder.read("out/box_schema.h"), header);
}

TEST_F(Schema, CompileNamesFilesAndConstantsAsTold) {
  EXPECT_EQ(run(compile({"--name", "gate"})).status, 0);
  EXPECT_NE(folder.read("out/gate_schema.h").find("GATE_InternetGatewayDevice_Time_Enable"),
            std::string::npos);
  const Outcome outcome = run(compile({"--name", "1 box"}));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("not a name for C"), std::string::npos) << outcome.err;
}

TEST_F(Schema, TheLockKeepsIdsWhenTheModelGrows) {
  const std::string lock = folder.path("box.lock");
  EXPECT_EQ(run(compile({"--lock", lock})).status, 0);
  const std::string before = folder.read("box.lock");
  EXPECT_NE(before.find("\n0 InternetGatewayDevice.\n"), std::string::npos) << before;
  EXPECT_NE(before.find("\n3 InternetGatewayDevice.Time.Enable\n"), std::string::npos) << before;
  std::string grown = kBoxModel;
  grown.insert(
      grown.find("<parameter name=\"Enable\""),
      "<parameter name=\"First\" access=\"readOnly\"><syntax><boolean/></syntax></parameter>\n");
  folder.write("box.xml", grown);
  EXPECT_EQ(run(compile({"--lock", lock})).status, 0);
  const std::string after = folder.read("box.lock");
  EXPECT_NE(after.find("\n3 InternetGatewayDevice.Time.Enable\n"), std::string::npos) << after;
  EXPECT_NE(after.find("\n17 InternetGatewayDevice.Time.First\n"), std::string::npos) << after;
}

TEST_F(Schema, ASubsetsIdsAreThoseOfTheWholeModel) {
  const std::string lock = folder.path("box.lock");
  EXPECT_EQ(run(compile({"--lock", lock})).status, 0);
  const std::string whole = folder.read("box.lock");
  folder.write("box.toml", std::string(kBoxOverlay) +
                               "[[parameter]]\nname = \"InternetGatewayDevice.Host.{i}.X_A\"\n"
                               "type = \"boolean\"\n");
  EXPECT_EQ(run(compile({"--lock", lock, "--keep", "InternetGatewayDevice.Host.**"})).status, 0);
  EXPECT_EQ(folder.read("box.lock"), whole + "17 InternetGatewayDevice.Host.{i}.X_A\n");
  EXPECT_EQ(run(compile({"--lock", lock, "--frozen"})).status, 0);
}

TEST_F(Schema, AModelThatGrowsBesideASubsetTakesNoIdOfTheSubset) {
  const std::string lock = folder.path("box.lock");
  EXPECT_EQ(run(compile({"--lock", lock, "--keep", "InternetGatewayDevice.Host.**"})).status, 0);
  const std::string subset = folder.read("box.lock");
  EXPECT_TRUE(subset.ends_with("\n4 InternetGatewayDevice.Host.{i}.Port.{i}.Number\n")) << subset;
  EXPECT_EQ(run(compile({"--lock", lock})).status, 0);
  const std::string whole = folder.read("box.lock");
  EXPECT_TRUE(whole.starts_with(subset + "5 InternetGatewayDevice.Summary\n")) << whole;
}

TEST_F(Schema, ALockFileThatCannotBeReadIsAStorageError) {
  const std::string lock = folder.path(std::string(300, 'x'));
  expect_error(run(compile({"--lock", lock})), 3, lock + ": cannot be read (File name too long)");
}

TEST_F(Schema, AFolderThatCannotBeMadeLeavesNoLock) {
  const std::string lock = folder.path("box.lock");
  EXPECT_EQ(run({"schema", "compile", model, "--lock", lock, "-o", model + "/out"}).status, 3);
  EXPECT_FALSE(folder.has("box.lock"));
}

TEST_F(Schema, AFrozenLockIsNotChanged) {
  const std::string lock = folder.path("box.lock");
  expect_error(run(compile({"--lock", lock, "--frozen"})), 1,
               lock +
                   ": does not hold every entry's unique id (17 missing; compile without "
                   "--frozen)");
  EXPECT_FALSE(folder.has("box.lock"));
  EXPECT_FALSE(folder.has("out"));
  run(compile({"--lock", lock}));
  EXPECT_EQ(run(compile({"--lock", lock, "--frozen"})).status, 0);
}

TEST_F(Schema, ARefusedModelLeavesNoOutput) {
  folder.write("box.xml", std::string(kBoxModel) + "<");
  const Outcome outcome = run(compile());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with(model + ":")) << outcome.err;
  EXPECT_FALSE(folder.has("out"));
}

TEST_F(Schema, TheDepfileNamesAllThatWasRead) {
  const std::string depfile = folder.path("box.d");
  EXPECT_EQ(run(compile({"--depfile", depfile})).status, 0);
  EXPECT_EQ(folder.read("box.d"), folder.path("out/box_schema.c") + " " +
                                      folder.path("out/box_schema.h") + ": " + model + " " +
                                      overlay + "\n");
}

TEST_F(Schema, NamesInTheDepfileReadAsTheyAre) {
  const std::string depfile = folder.path("box.d"), odd = folder.write("a b#c$d.xml", kBoxModel);
  EXPECT_EQ(run({"schema", "compile", odd, "-o", folder.path("o p"), "--depfile", depfile}).status,
            0);
  EXPECT_EQ(folder.read("box.d"), folder.path("o\\ p/model_schema.c") + " " +
                                      folder.path("o\\ p/model_schema.h") + ": " +
                                      folder.path("a\\ b\\#c$$d.xml") + "\n");
}

TEST_F(Schema, ReportPrintsTheFigures) {
  const Outcome outcome =
      run({"schema", "report", model, "--overlay", overlay, "--instances", "**.Host.{i}.=3"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const char* line :
       {"model: InternetGatewayDevice:1.0\n", "unique ids: 17, 1,983 left\n",
        "objects: 4, 2 of them tables\n", "parameters: 13\n", "depth: 4 of 31\n",
        "longest full name: 46 of 511 bytes, InternetGatewayDevice.Host.{i}.Port.{i}.Number\n",
        "by owner: clock 10, lan 2, none 1\n", "saved: always 2, never 4, when modified 7\n"})
    EXPECT_NE(outcome.out.find(line), std::string::npos) << line << outcome.out;
}

TEST_F(Schema, TheReportsSizeOfNothingModifiedIsThatOfTheDocument) {
  folder.write("conf.xml", "<InternetGatewayDevice.></InternetGatewayDevice.>");
  const std::string document = on_config({"export"}).out;
  const Outcome outcome = run(
      {"--json", "schema", "report", model, "--overlay", overlay, "--instances", "**.Host.{i}.=0"});
  EXPECT_NE(outcome.out.find("\"defaults\": " + std::to_string(document.size())), std::string::npos)
      << document << outcome.out;
}

TEST_F(Schema, TheReportsSizeCountsInstances) {
  const std::string lines =
      "add InternetGatewayDevice.Host.\nadd InternetGatewayDevice.Host.1.Port.\n"
      "add InternetGatewayDevice.Host.1.Port.\nadd InternetGatewayDevice.Host.\n"
      "add InternetGatewayDevice.Host.2.Port.\nadd InternetGatewayDevice.Host.2.Port.\n";
  folder.write("conf.xml", "<InternetGatewayDevice.></InternetGatewayDevice.>");
  expect_done(on_config({"batch", "-"}, lines));
  const Outcome outcome = run({"--json", "schema", "report", model, "--overlay", overlay,
                               "--instances", "**.Host.{i}.=2", "--instances", "**.Port.{i}.=2"});
  EXPECT_NE(outcome.out.find("\"defaults\": " + std::to_string(folder.read("conf.xml").size())),
            std::string::npos)
      << folder.read("conf.xml") << outcome.out;
}

TEST_F(Schema, TreePrintsAnObject) {
  expect_done(run({"schema", "tree", model, "--below", "InternetGatewayDevice.Host.{i}."}),
              "Host.{i}.  table W\n"
              "  Name  string W = \"host\"\n"
              "  Port.{i}.  table W\n"
              "    Number  unsignedInt 0..4294967295 W = \"0\"\n");
}

TEST_F(Schema, TreeStopsAtTheDepth) {
  expect_done(run({"schema", "tree", model, "--depth", "1"}), "InternetGatewayDevice.  object\n");
}

TEST_F(Schema, DiffPrintsWhatChanged) {
  std::string other = kBoxModel;
  other.replace(other.find("maxInclusive=\"100\""), 18, "maxInclusive=\"90\" ");
  const std::string second = folder.write("second.xml", other);
  expect_done(run({"schema", "diff", model, model}));
  const Outcome outcome = run({"schema", "diff", model, second});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out,
            "-InternetGatewayDevice.Time.Interval unsignedInt 1..100, readWrite, default \"10\"\n"
            "+InternetGatewayDevice.Time.Interval unsignedInt 1..90, readWrite, default \"10\"\n");
}

TEST_F(Schema, HelpOfEachVerbHasAnExample) {
  for (const char* verb : {"compile", "report", "tree", "diff"}) {
    const Outcome outcome = run({"schema", verb, "--help"});
    EXPECT_EQ(outcome.status, 0) << verb;
    EXPECT_NE(outcome.out.find("Example:\n  mibctl schema "), std::string::npos) << verb;
  }
}

}  // namespace
}  // namespace mibctl
