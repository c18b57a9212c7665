// The verbs on configurations, as a user runs them.
#include "command.hh"

namespace mibctl {
namespace {

using Verb = Command;

// --- get ---

TEST_F(Verb, GetPrintsABareValue) {
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Server"}), "ntp.example\n");
}

TEST_F(Verb, GetOfSeveralPrintsAssignments) {
  expect_done(
      on_config({"get", "InternetGatewayDevice.Time.Enable", "InternetGatewayDevice.Time.Zone"}),
      "InternetGatewayDevice.Time.Enable=true\nInternetGatewayDevice.Time.Zone=UTC\n");
}

TEST_F(Verb, GetPrintsJson) {
  expect_done(on_config({"--json", "get", "InternetGatewayDevice.Time.Enable"}),
              "{\n  \"InternetGatewayDevice.Time.Enable\": \"true\"\n}\n");
}

TEST_F(Verb, GetOfAnUnknownNameSuggestsOne) {
  const Outcome outcome = on_config({"get", "InternetGatewayDevice.Time.Enabel"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "InternetGatewayDevice.Time.Enabel: mib name not found (did you mean "
            "InternetGatewayDevice.Time.Enable?)\n");
}

TEST_F(Verb, GetOfAValueThatOnlyAGatewayKnowsIsRefused) {
  const Outcome outcome = on_config({"get", "InternetGatewayDevice.Time.UpTime"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with("InternetGatewayDevice.Time.UpTime: ")) << outcome.err;
  EXPECT_EQ(outcome.out, "");
}

TEST_F(Verb, GetWithoutAModelPrintsWhatIsStored) {
  expect_done(run({"--config", config, "get", "InternetGatewayDevice.Host.1.Port.1.Number"}),
              "80\n");
  expect_done(run({"--config", config, "--json", "get", "InternetGatewayDevice.Time.Server"}),
              "{\n  \"InternetGatewayDevice.Time.Server\": \"ntp.example\"\n}\n");
}

TEST_F(Verb, GetWithoutAModelKnowsNoDefault) {
  expect_error(run({"--config", config, "get", "InternetGatewayDevice.Time.Zone"}), 1,
               "InternetGatewayDevice.Time.Zone: not stored (name the model to see its default: "
               "--model FILE)");
}

TEST_F(Verb, GetWithoutAModelTakesTheLastElementAndSkipsThoseWithoutAValue) {
  folder.write("conf.xml",
               "<InternetGatewayDevice.><Time.><PARAM name=\"Zone\">UTC</PARAM>"
               "<PARAM name=\"Zone\">CET</PARAM><PARAM name=\"Zone\"></PARAM>"
               "<PARAM name=\"Zone\" ignorevalue=\"yes\">UTC</PARAM><PARAM name=\"Zone\"/>"
               "<PARAM note='>' name=\"Enable\">1</PARAM>"
               "</Time.></InternetGatewayDevice.>");
  expect_done(run({"--config", config, "get", "InternetGatewayDevice.Time.Zone"}), "CET\n");
  expect_done(run({"--config", config, "get", "InternetGatewayDevice.Time.Enable"}), "1\n");
}

TEST_F(Verb, GetWithoutAModelLeavesATextInPiecesToTheModel) {
  folder.write("conf.xml",
               "<InternetGatewayDevice.><Time.><PARAM name=\"Server\">a&amp;b</PARAM></Time.>"
               "</InternetGatewayDevice.>");
  const std::string name = "InternetGatewayDevice.Time.Server";
  expect_error(run({"--config", config, "get", name}), 1,
               name + ": stored in pieces (name the model to see what a load makes of it)");
  expect_done(on_config({"get", name}), "b\n");
}

TEST_F(Verb, GetWithoutAModelRefusesADocumentThatDoesNotLoad) {
  folder.write("conf.xml", "<InternetGatewayDevice.>");
  const Outcome outcome = run({"--config", config, "get", "InternetGatewayDevice.Time.Zone"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_TRUE(outcome.err.starts_with(config + ": does not load (")) << outcome.err;
}

// --- show ---

TEST_F(Verb, ShowPrintsLinesOfWhatBeginsSo) {
  expect_done(on_config({"show", "InternetGatewayDevice.Host."}),
              "InternetGatewayDevice.Host.1.\n"
              "InternetGatewayDevice.Host.1.Name=printer\n"
              "InternetGatewayDevice.Host.1.Port.1.\n"
              "InternetGatewayDevice.Host.1.Port.1.Number=80\n"
              "InternetGatewayDevice.Host.1.Port.3.\n"
              "InternetGatewayDevice.Host.1.Port.3.Number=0\n");
}

TEST_F(Verb, ShowChangedLeavesOutTheModelsDefaults) {
  expect_done(on_config({"show", "--changed"}),
              "InternetGatewayDevice.Time.Enable=true\n"
              "InternetGatewayDevice.Time.Server=ntp.example\n"
              "InternetGatewayDevice.Host.1.\n"
              "InternetGatewayDevice.Host.1.Name=printer\n"
              "InternetGatewayDevice.Host.1.Port.1.\n"
              "InternetGatewayDevice.Host.1.Port.1.Number=80\n"
              "InternetGatewayDevice.Host.1.Port.3.\n");
}

TEST_F(Verb, ShowPrintsAttributesThatAreNotTheModels) {
  expect_done(on_config({"attr", "InternetGatewayDevice.Time.Zone", "notify=passive"}));
  expect_done(on_config({"show", "InternetGatewayDevice.Time.Zone"}),
              "InternetGatewayDevice.Time.Zone=UTC\n"
              "attr InternetGatewayDevice.Time.Zone notify=passive access=none\n");
}

TEST_F(Verb, ShowOfAnUnknownPrefixIsNotFound) {
  const Outcome outcome = on_config({"show", "InternetGatewayDevice.Tine."});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(outcome.err.starts_with("InternetGatewayDevice.Tine.: mib name not found"))
      << outcome.err;
}

TEST_F(Verb, ShowJsonHasARecordForEachNode) {
  expect_done(on_config({"show", "--json", "InternetGatewayDevice.Host.1.Port.1.Number"}),
              "[\n  {\n    \"name\": \"InternetGatewayDevice.Host.1.Port.1.Number\",\n"
              "    \"type\": \"unsignedInt\",\n    \"value\": \"80\",\n    \"notify\": \"off\",\n"
              "    \"access\": \"none\"\n  }\n]\n");
}

// --- set ---

TEST_F(Verb, SetStoresTheValue) {
  expect_done(on_config({"set", "InternetGatewayDevice.Time.Zone=CET"}));
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Zone"}), "CET\n");
  EXPECT_NE(folder.read("conf.xml").find("<PARAM name=\"Zone\">CET</PARAM>"), std::string::npos);
}

struct Refusal {
  const char *setting, *line;
};

class SetRefuses : public Command, public testing::WithParamInterface<Refusal> {};

TEST_P(SetRefuses, AndLeavesTheConfiguration) {
  const Outcome outcome = on_config({"set", GetParam().setting});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, std::string("InternetGatewayDevice.") + GetParam().line + "\n");
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, SetRefuses,
    testing::Values(Refusal{"InternetGatewayDevice.Time.Interval=0",
                            "Time.Interval: write out of range (below the lowest value, 1)"},
                    Refusal{"InternetGatewayDevice.Time.Interval=101",
                            "Time.Interval: write out of range (above the highest value, 100)"},
                    Refusal{"InternetGatewayDevice.Time.Interval=ten",
                            "Time.Interval: write invalid value (not a whole number)"},
                    Refusal{"InternetGatewayDevice.Time.Enable=yes",
                            "Time.Enable: write invalid value (not one of true, false, 1, 0)"},
                    Refusal{"InternetGatewayDevice.Time.Zone=PST",
                            "Time.Zone: write invalid value (not one of UTC, CET)"},
                    Refusal{"InternetGatewayDevice.Time.Server=a-name-that-is-too-long",
                            "Time.Server: write out of range (23 bytes, at most 16)"},
                    Refusal{"InternetGatewayDevice.Time.Serial=2",
                            "Time.Serial: write not allowed (read-only)"}));

struct Loss {
  const char *setting, *name;
};

class SetFindsALoss : public Command, public testing::WithParamInterface<Loss> {};

TEST_P(SetFindsALoss, AndStoresNothing) {
  const Outcome outcome = on_config({"set", GetParam().setting});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with(std::string(GetParam().name) +
                                      ": a start would not bring this back ("))
      << outcome.err;
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

INSTANTIATE_TEST_SUITE_P(
    Losses, SetFindsALoss,
    testing::Values(
        Loss{"InternetGatewayDevice.Time.Server=a<b", "InternetGatewayDevice.Time.Server"},
        Loss{"InternetGatewayDevice.Time.Server=a&b", "InternetGatewayDevice.Time.Server"},
        Loss{"InternetGatewayDevice.Time.Server=a\nb", "InternetGatewayDevice.Time.Server"},
        Loss{"InternetGatewayDevice.Time.Server=\xFF", "InternetGatewayDevice.Time.Server"},
        Loss{"InternetGatewayDevice.Host.1.Name=", "InternetGatewayDevice.Host.1.Name"},
        Loss{"InternetGatewayDevice.Time.Loose=1", "InternetGatewayDevice.Time.Loose"},
        Loss{"InternetGatewayDevice.Time.Since=2001-02-03T04:05:06",
             "InternetGatewayDevice.Time.Since"}));

TEST_F(Verb, SetOfSeveralIsAllOrNone) {
  EXPECT_EQ(on_config({"set", "InternetGatewayDevice.Time.Zone=CET",
                       "InternetGatewayDevice.Time.Interval=0"})
                .status,
            1);
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, SetOfThePresentValueIsNeverRefused) {
  expect_done(on_config({"set", "InternetGatewayDevice.Time.Serial=0001"}));
}

TEST_F(Verb, SetInternalWritesWhatIsReadOnly) {
  expect_done(on_config({"set", "--internal", "InternetGatewayDevice.Time.Serial=2"}));
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Serial"}), "2\n");
}

TEST_F(Verb, SetWithoutAnEqualsSignIsAUsageError) {
  expect_error(on_config({"set", "InternetGatewayDevice.Time.Zone"}), 2,
               "InternetGatewayDevice.Time.Zone: not an assignment (NAME=VALUE)");
}

TEST_F(Verb, SetKeepsWhatFollowsTheFirstEqualsSign) {
  expect_done(on_config({"set", "InternetGatewayDevice.Time.Server=a=b c"}));
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Server"}), "a=b c\n");
}

TEST_F(Verb, SetDoesNotDropWhatTheModelDoesNotKnow) {
  std::string document = kBoxDocument;
  document.insert(document.find("</Time.>"), "<PARAM name=\"Gone\">1</PARAM>\n");
  folder.write("conf.xml", document);
  const Outcome outcome = on_config({"set", "InternetGatewayDevice.Time.Zone=CET"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("a save would drop something that is stored"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(folder.read("conf.xml"), document);
  expect_done(on_config({"set", "--force", "InternetGatewayDevice.Time.Zone=CET"}));
  EXPECT_EQ(folder.read("conf.xml").find("Gone"), std::string::npos);
}

// --- add, del, list ---

TEST_F(Verb, AddPrintsTheNewInstance) {
  expect_done(on_config({"add", "InternetGatewayDevice.Host."}), "InternetGatewayDevice.Host.2.\n");
  expect_done(on_config({"list", "InternetGatewayDevice.Host."}),
              "InternetGatewayDevice.Host.1.\nInternetGatewayDevice.Host.2.\n");
}

TEST_F(Verb, AddTakesANumberAboveTheHighest) {
  expect_done(on_config({"add", "--number", "7", "InternetGatewayDevice.Host."}),
              "InternetGatewayDevice.Host.7.\n");
}

TEST_F(Verb, AddRefusesANumberThatWouldBecomeAnother) {
  expect_done(on_config({"add", "--number", "7", "InternetGatewayDevice.Host."}),
              "InternetGatewayDevice.Host.7.\n");
  const std::string before = folder.read("conf.xml");
  const Outcome outcome = on_config({"add", "--number", "3", "InternetGatewayDevice.Host."});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find("8"), std::string::npos) << outcome.err;
  EXPECT_EQ(folder.read("conf.xml"), before);
}

TEST_F(Verb, AddToWhatIsNoTableIsRefused) {
  EXPECT_EQ(on_config({"add", "InternetGatewayDevice.Time."}).status, 1);
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, DelRemovesInstancesWithAllBelow) {
  expect_done(on_config({"del", "InternetGatewayDevice.Host.1.Port.1."}));
  expect_done(on_config({"list", "InternetGatewayDevice.Host.1.Port."}),
              "InternetGatewayDevice.Host.1.Port.3.\n");
}

TEST_F(Verb, DelOfWhatIsNoInstanceIsRefused) {
  EXPECT_EQ(on_config({"del", "InternetGatewayDevice.Time."}).status, 1);
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, ListOfWhatIsNoTableIsRefused) {
  expect_error(on_config({"list", "InternetGatewayDevice.Time."}), 1,
               "InternetGatewayDevice.Time.: not a table (the object of an {i} in the model)");
}

// --- attr ---

TEST_F(Verb, AttrPrintsAndSets) {
  const std::string name = "InternetGatewayDevice.Time.Enable";
  expect_done(on_config({"attr", name}), "notify=off access=none\n");
  expect_done(on_config({"attr", name, "notify=active", "access=subscriber"}));
  expect_done(on_config({"attr", name}), "notify=active access=subscriber\n");
  EXPECT_NE(folder.read("conf.xml")
                .find("<PARAM name=\"Enable\" notification=\"2\" accesslist=\"subscriber\">true<"),
            std::string::npos);
}

TEST_F(Verb, AttrOffWhereTheModelSwitchesOnIsFound) {
  const Outcome outcome = on_config({"attr", "InternetGatewayDevice.Summary", "notify=off"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "InternetGatewayDevice.Summary: a start would not bring this back (notification off is "
            "not stored, and the model switches it on)\n");
}

TEST_F(Verb, AttrRefusesAnUnknownSetting) {
  const Outcome outcome = on_config({"attr", "InternetGatewayDevice.Time.Enable", "notify=loud"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("unknown attribute setting notify=loud"), std::string::npos);
}

// --- diff ---

TEST_F(Verb, DiffOfEqualConfigurationsIsSilent) {
  const std::string other = folder.write("other.xml", kBoxDocument);
  expect_done(run({"diff", "--model", model, "--overlay", overlay, config, other}));
}

TEST_F(Verb, DiffPrintsBothSidesByName) {
  const std::string before = folder.write("before.xml", kBoxDocument);
  expect_done(on_config({"set", "InternetGatewayDevice.Time.Zone=CET"}));
  expect_done(on_config({"del", "InternetGatewayDevice.Host.1.Port.1."}));
  expect_done(on_config({"attr", "InternetGatewayDevice.Time.Enable", "notify=active"}));
  const Outcome outcome = run({"diff", "--model", model, "--overlay", overlay, before, config});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "-attr InternetGatewayDevice.Time.Enable notify=off access=none\n"
            "+attr InternetGatewayDevice.Time.Enable notify=active access=none\n"
            "-InternetGatewayDevice.Time.Zone=UTC\n"
            "+InternetGatewayDevice.Time.Zone=CET\n"
            "-InternetGatewayDevice.Host.1.Port.1.\n"
            "-InternetGatewayDevice.Host.1.Port.1.Number=80\n");
}

// --- export, import, reset ---

TEST_F(Verb, ExportPrintsTheDocumentAsAGatewayStoresIt) {
  expect_done(on_config({"export"}), kBoxDocument);
}

TEST_F(Verb, ExportWritesAFile) {
  expect_done(on_config({"export", folder.path("copy.xml")}));
  EXPECT_EQ(folder.read("copy.xml"), kBoxDocument);
}

TEST_F(Verb, ImportReplacesTheConfiguration) {
  std::string document = kBoxDocument;
  document.replace(document.find("printer"), 7, "scanner");
  const std::string other = folder.write("other.xml", document);
  expect_done(on_config({"import", other}));
  EXPECT_EQ(folder.read("conf.xml"), document);
}

TEST_F(Verb, ImportReadsStandardInput) {
  folder.write("conf.xml", "broken");
  expect_done(on_config({"import", "-"}, kBoxDocument));
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, ImportRefusesADocumentThatWouldLoseSomething) {
  std::string document = kBoxDocument;
  document.replace(document.find("true"), 4, "yes!");
  const std::string other = folder.write("other.xml", document);
  const Outcome outcome = on_config({"import", other});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("line 5: InternetGatewayDevice.Time.Enable: refused value"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, ResetStoresTheFactoryDocument) {
  const std::string factory = folder.write("factory.xml",
                                           "<InternetGatewayDevice.><Time.>"
                                           "<PARAM name=\"Server\">first</PARAM>"
                                           "</Time.></InternetGatewayDevice.>");
  expect_done(on_config({"--factory", factory, "reset"}));
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Server"}), "first\n");
  expect_done(on_config({"list", "InternetGatewayDevice.Host."}));
}

TEST_F(Verb, ResetWithoutAFactoryDocumentIsAUsageError) {
  expect_error(on_config({"reset"}), 2, "reset: name the factory default document: --factory FILE");
}

// --- batch ---

TEST_F(Verb, BatchReplaysWhatShowPrints) {
  expect_done(on_config({"attr", "InternetGatewayDevice.Time.Zone", "notify=passive"}));
  const std::string stored = folder.read("conf.xml");
  const std::string lines = folder.write("lines", on_config({"show"}).out);
  const std::string factory = folder.write("factory.xml", "<InternetGatewayDevice./>");
  expect_done(on_config({"--factory", factory, "reset"}));
  ASSERT_NE(folder.read("conf.xml"), stored);
  expect_done(on_config({"batch", lines}));
  EXPECT_EQ(folder.read("conf.xml"), stored);
}

TEST_F(Verb, BatchTakesVerbsAndCommentsFromStandardInput) {
  expect_done(on_config({"batch", "-"},
                        "# a comment\n"
                        "\n"
                        "set InternetGatewayDevice.Time.Server=a b\n"
                        "add InternetGatewayDevice.Host.\n"
                        "InternetGatewayDevice.Host.2.Name=\"scanner\"\n"
                        "del InternetGatewayDevice.Host.1.\n"
                        "attr InternetGatewayDevice.Time.Enable notify=passive access=subscriber"));
  expect_done(on_config({"show", "--changed"}),
              "InternetGatewayDevice.Time.Enable=true\n"
              "attr InternetGatewayDevice.Time.Enable notify=passive access=subscriber\n"
              "InternetGatewayDevice.Time.Server=a b\n"
              "InternetGatewayDevice.Host.2.\n"
              "InternetGatewayDevice.Host.2.Name=scanner\n");
}

TEST_F(Verb, BatchNamesTheLineThatIsRefusedAndStoresNothing) {
  const std::string lines = folder.write("lines",
                                         "InternetGatewayDevice.Time.Zone=CET\n"
                                         "InternetGatewayDevice.Time.Interval=0\n");
  expect_error(on_config({"batch", lines}), 1,
               lines +
                   ":2: InternetGatewayDevice.Time.Interval: write out of range (below the lowest "
                   "value, 1)");
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, BatchRefusesALineItDoesNotUnderstand) {
  expect_error(
      on_config({"batch", "-"}, "rename A B\n"), 1,
      "standard input:1: rename: unknown verb (a line is Full.Name=value, an instance, set, "
      "add, del or attr)");
  EXPECT_EQ(on_config({"batch", "-"}, "InternetGatewayDevice.Time.\n").status, 1);
  EXPECT_EQ(on_config({"batch", "-"}, "InternetGatewayDevice.Time.Zone=\"CET\n").status, 1);
}

// --- configurations ---

TEST_F(Verb, FlashIsReadAndWrittenAsAPair) {
  std::filesystem::create_directory(folder.path("flash"));
  const std::vector<std::string> base = {"--model", model,     "--overlay",
                                         overlay,   "--flash", folder.path("flash")};
  const auto on_flash = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), base.begin(), base.end());
    return run(arguments);
  };
  expect_done(on_flash({"import", config}));
  expect_done(on_flash({"set", "InternetGatewayDevice.Time.Zone=CET"}));
  expect_done(on_flash({"get", "InternetGatewayDevice.Time.Zone"}), "CET\n");
  EXPECT_EQ(folder.read("flash/nvram"), folder.read("flash/nvrambak"));
  EXPECT_EQ(folder.read("flash/nvram").substr(0, 4), "\xAB\xCD\x12\x34");
}

TEST_F(Verb, AMissingConfigurationIsAStorageError) {
  expect_error(run({"--model", model, "--config", folder.path("none.xml"), "show"}), 3,
               folder.path("none.xml") + ": cannot be read (No such file or directory)");
}

TEST_F(Verb, AConfigurationThatDoesNotLoadIsAStorageError) {
  folder.write("conf.xml", "<InternetGatewayDevice.><Time.></InternetGatewayDevice.>");
  const Outcome outcome = on_config({"show"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_TRUE(outcome.err.starts_with(config + ": does not load (")) << outcome.err;
}

TEST_F(Verb, TwoConfigurationsAreAUsageError) {
  expect_error(on_config({"--image", "x", "show"}), 2,
               "mibctl: name one configuration: --config, --flash or --image");
}

TEST_F(Verb, NoModelIsAUsageError) {
  expect_error(run({"--config", config, "show"}), 2,
               "mibctl: name the model: --model FILE, or $MIBCTL_MODEL in the environment");
}

TEST_F(Verb, ModelAndConfigurationComeFromTheEnvironmentToo) {
  setenv("MIBCTL_MODEL", model.c_str(), 1);
  setenv("MIBCTL_OVERLAY", overlay.c_str(), 1);
  setenv("MIBCTL_CONFIG", config.c_str(), 1);
  const Outcome outcome = run({"get", "InternetGatewayDevice.Time.Enable"});
  for (const char* name : {"MIBCTL_MODEL", "MIBCTL_OVERLAY", "MIBCTL_CONFIG"}) unsetenv(name);
  expect_done(outcome, "true\n");
}

// --- the program ---

class CommandLine : public Verb {
 protected:
  // What the program says of one that makes no sense.
  std::string complaint(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    const std::string before = "mibctl: ", behind = " (try mibctl --help)\n";
    EXPECT_TRUE(outcome.err.starts_with(before) && outcome.err.ends_with(behind)) << outcome.err;
    return outcome.err.substr(before.size(), outcome.err.size() - before.size() - behind.size());
  }
};

TEST_F(CommandLine, AnUnknownVerbIsNamed) {
  EXPECT_EQ(complaint({"shwo"}), "shwo: no such verb");
  EXPECT_EQ(complaint({"--json", "shwo"}), "shwo: no such verb");
  EXPECT_EQ(complaint({"image", "shwo"}), "shwo: no such verb");
  EXPECT_EQ(complaint({"--", "shwo"}), "shwo: no such verb");
}

TEST_F(CommandLine, AnUnknownOptionIsNamed) {
  EXPECT_EQ(complaint({"--jsno"}), "--jsno: no such option");
  EXPECT_EQ(complaint({"schema", "diff", "a.xml", "--jsno"}), "--jsno: no such option");
}

TEST_F(CommandLine, AMissingVerbIsCalledSo) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--json"}, {"image"}, {"schema"}, {"--"}})
    EXPECT_EQ(complaint(arguments), "a verb is missing");
}

TEST_F(CommandLine, AMissingArgumentIsNamed) {
  EXPECT_EQ(complaint({"schema", "diff", "a.xml"}), "B is required");
  EXPECT_EQ(complaint({"schema", "diff", "--", "a.xml"}), "B is required");
  EXPECT_EQ(complaint({"image", "pack", "conf.xml", "nvram.bin"}),
            "--output is required; nvram.bin is not expected");
}

TEST_F(CommandLine, ADepthIsANumberFromOneOn) {
  for (const std::string depth : {"0", "-1", "x", "2147483648"}) {
    const std::string text = complaint({"schema", "tree", "model.xml", "--depth", depth});
    EXPECT_TRUE(text.starts_with("--depth: ")) << text;
    EXPECT_NE(text.find(" " + depth + " "), std::string::npos) << text;
    EXPECT_LT(text.size(), 80u) << text;
  }
}

TEST_F(Verb, HelpOfEachVerbHasAnExample) {
  for (const char* name : {"show", "get", "set", "add", "del", "list", "attr", "diff", "export",
                           "import", "reset", "batch", "check", "shell"}) {
    const Outcome outcome = run({name, "--help"});
    EXPECT_EQ(outcome.status, 0) << name;
    EXPECT_NE(outcome.out.find("Example:\n  mibctl "), std::string::npos) << name;
  }
}

TEST_F(Verb, VersionIsPrinted) {
  const Outcome outcome = run({"--version"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(outcome.out.starts_with("mibctl 1.")) << outcome.out;
}

// --- lines of a batch that are no line of show ---

TEST_F(Verb, BatchPassesOverBlankLinesCommentsAndCarriageReturns) {
  expect_done(on_config({"batch", "-"},
                        "\n  \t\n  # a comment\n  InternetGatewayDevice.Time.Zone=CET\r\n"));
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Zone"}), "CET\n");
}

TEST_F(Verb, BatchNamesTheLineOfAnEditThatAStartWouldNotBringBack) {
  expect_error(on_config({"batch", "-"},
                         "InternetGatewayDevice.Time.Zone=CET\n"
                         "InternetGatewayDevice.Time.Server=a<b\n"
                         "InternetGatewayDevice.Time.Interval=7\n"),
               1,
               "standard input:2: InternetGatewayDevice.Time.Server: a start would not bring this "
               "back (values are not escaped: with \"<\", \"&\" or \"]]>\" the document does not "
               "load)");
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, BatchDoesNotTakeANameForItsOwnValue) {
  expect_error(on_config({"batch", "-"}, "set InternetGatewayDevice.Host.1.Name\n"), 1,
               "standard input:1: InternetGatewayDevice.Host.1.Name: not an assignment "
               "(NAME=VALUE)");
}

TEST_F(Verb, BatchSaysWhatAVerbAloneNeeds) {
  expect_error(on_config({"batch", "-"}, "add\n"), 1,
               "standard input:1: add: needs more (add TABLE)");
}

// --- where output and files end ---

TEST_F(Verb, AFullDiskBehindStandardOutputIsAStorageError) {
  std::string many;  // so much of it that it is written before the end
  for (int i = 4; i < 400; ++i)
    many += "InternetGatewayDevice.Host.1.Port." + std::to_string(i) + ".\n";
  expect_done(on_config({"batch", "-"}, many));
  const std::string command = std::string(MIBCTL_PATH) + " --model " + model + " --overlay " +
                              overlay + " --config " + config + " export >/dev/full 2>&1";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 3);
}

TEST_F(Verb, AFileThatMayNotGrowIsAStorageErrorAndStays) {
  const std::string command = "ulimit -f 0; " + std::string(MIBCTL_PATH) + " --model " + model +
                              " --overlay " + overlay + " --config " + config +
                              " set InternetGatewayDevice.Time.Zone=CET 2>/dev/null";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(Verb, WhatComesFromStandardInputIsNotStored) {
  expect_error(run({"--model", model, "--overlay", overlay, "--config", "-", "set",
                    "InternetGatewayDevice.Time.Zone=CET"},
                   kBoxDocument),
               2, "-: standard input cannot be stored to (name a file)");
}

}  // namespace
}  // namespace mibctl
