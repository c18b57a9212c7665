#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <set>
#include <string>

#include "model_builder.hh"

namespace mibctl {
namespace {

// One entry of each kind.
Model test_model() {
  Model model = make_model();
  Entry& root = *model.root;
  Entry* const mode = add_parameter(root, "Mode");
  mode->words = {"Up", "Down"};
  mode->defval = "Up";
  add_parameter(root, "Name")->max_len = 64;
  Entry* const port = add_parameter(root, "Port", QMIBTREE_TYPE_UINT);
  port->max = 65535;
  port->defval = "80";
  Entry* const level = add_parameter(root, "Level", QMIBTREE_TYPE_INT);
  level->min = -10;
  level->max = 10;
  add_parameter(root, "On", QMIBTREE_TYPE_BOOL);
  add_parameter(root, "Since", QMIBTREE_TYPE_DATETIME);
  add_parameter(root, "Key", QMIBTREE_TYPE_BASE64)->max_len = 16;
  add_parameter(*add_object(root, "O."), "A");
  add_parameter(*add_table(root, "T."), "Label");
  return model;
}

// A model with an overlay over it.
class Overlay : public testing::Test {
 protected:
  Overlay() {
    char folder[] = "/tmp/mibctl_overlay_XXXXXX";
    folder_ = mkdtemp(folder);
  }
  ~Overlay() override { std::filesystem::remove_all(folder_); }

  void apply(const std::string& overlay) {
    const std::string file = folder_ + "/gw.toml";
    std::ofstream(file) << overlay;
    apply_overlay(model, file);
  }

  // The error, with the file's folder left out.
  std::string error(const std::string& overlay) {
    try {
      apply(overlay);
    } catch (const Error& error) {
      return std::string(error.what()).substr(folder_.size() + 1);
    }
    return "no error";
  }

  std::string error_of_rule(const std::string& keys) { return error("[[rule]]\n" + keys); }

  Entry& entry(const std::string& path) { return at(model, path); }
  bool there_is(const std::string& path) { return find_entry(*model.root, path) != nullptr; }

  Model model = test_model();
  std::string folder_;
};

// --- the file ---

TEST_F(Overlay, AnEmptyOneChangesNothing) {
  const uint32_t count = count_entries(*model.root);
  apply("");
  EXPECT_EQ(count_entries(*model.root), count);
  EXPECT_EQ(model.prefix, "model");
}

TEST_F(Overlay, RefusesWhatIsNoToml) {
  EXPECT_TRUE(error("\n[model\n").starts_with("gw.toml:2:7: Error while parsing"));
}

TEST_F(Overlay, RefusesAnUnknownKeyWithWhatIsNear) {
  EXPECT_EQ(error("[rules]\n"), "gw.toml:1:2: unknown key rules (did you mean rule?)");
  EXPECT_EQ(error_of_rule("match = \"Gw.On\"\nsafe = \"always\"\n"),
            "gw.toml:3:1: unknown key safe (did you mean save?)");
}

TEST_F(Overlay, RefusesAValueOfAnotherType) {
  EXPECT_EQ(error("model = 1\n"), "gw.toml:1:9: not a table");
  EXPECT_EQ(error("[rule]\n"), "gw.toml:1:1: not an array: [[rule]]");
  EXPECT_EQ(error("rule = [1]\n"), "gw.toml:1:9: not a table");
  EXPECT_EQ(error("[model]\nname = 1\n"), "gw.toml:2:8: not a text in quotes");
  EXPECT_EQ(error("[model]\ntag = \"1\"\n"), "gw.toml:2:7: not a whole number");
  EXPECT_EQ(error_of_rule("match = \"Gw.On\"\ndynamic = 1\n"),
            "gw.toml:3:11: neither true nor false");
  EXPECT_EQ(error_of_rule("match = [\"Gw.On\", 1]\n"), "gw.toml:2:19: not a text in quotes");
}

TEST_F(Overlay, ChecksTheValuesOfARuleThatMatchesNothing) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Gone\"\noptional = true\narg = -1\n"),
            "gw.toml:4:7: out of range (0 to 4294967295)");
}

TEST_F(Overlay, RefusesANulInAText) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Name\"\ndefault = \"a\\u0000b\"\n"),
            "gw.toml:3:11: a NUL in a text");
}

TEST_F(Overlay, RefusesAFileThatIsTooLarge) {
  EXPECT_EQ(error(std::string((1 << 20) + 1, '\n')),
            "gw.toml: too large (at most 1,048,576 bytes)");
}

TEST_F(Overlay, RefusesKeysThatLeadTooDeep) {
  std::string key = "a";
  for (int i = 0; i < 65; ++i) key += ".a";
  EXPECT_EQ(error("\n[" + key + "]\n"), "gw.toml:2: more than 64 dots: break the line");
}

TEST_F(Overlay, SurvivesTheDeepestNestingThatIsRead) {
  std::string key = "a";
  for (int i = 0; i < 64; ++i) key += ".a";
  std::string text = "[" + key + "]\n" + key + " = ";
  std::string close;
  for (int i = 0; i < 127; ++i) {
    text += "[\n{" + key + " = ";
    close = "}\n]" + close;
  }
  EXPECT_EQ(error(text + "1" + close + "\n").substr(0, 28), "gw.toml:1:2: unknown key a");
}

// --- [model], [components] ---

TEST_F(Overlay, SetsTheModelsGeneralPart) {
  apply("[model]\nname = \"gateway\"\ntag = 7\nwords = 3\n");
  EXPECT_EQ(model.prefix, "gateway");
  EXPECT_EQ(model.tag, 7u);
  EXPECT_EQ(model.words_slot, 3u);
}

TEST_F(Overlay, RefusesAPrefixThatIsNoIdentifier) {
  EXPECT_EQ(error("[model]\nname = \"../x\"\n"), "gw.toml:2:8: not a C identifier: ../x");
}

TEST_F(Overlay, RefusesAWordThatRecordsDoNotHave) {
  EXPECT_EQ(error("[model]\nwords = 8\n"), "gw.toml:2:9: out of range (0 to 7)");
}

TEST_F(Overlay, LeavesOutWhatAPatternMatchesAndAllBelow) {
  apply("[model]\nleave_out = [\"Gw.T.{i}.\", \"Gw.S*\"]\n");
  EXPECT_FALSE(there_is("Gw.T.{i}."));
  EXPECT_FALSE(there_is("Gw.Since"));
  EXPECT_TRUE(there_is("Gw.O.A"));
}

TEST_F(Overlay, RefusesToLeaveOutWhatThereIsNot) {
  EXPECT_EQ(error("[model]\nleave_out = [\"Gw.On\", \"Gw.Gone\"]\n"),
            "gw.toml:2:23: Gw.Gone matches nothing that can be left out");
}

TEST_F(Overlay, CannotLeaveOutTheRoot) {
  EXPECT_EQ(error("[model]\nleave_out = \"Gw.\"\n"),
            "gw.toml:2:13: Gw. matches nothing that can be left out");
}

TEST_F(Overlay, LeavesOutByStatus) {
  entry("Gw.T.{i}.").status = "deleted";
  entry("Gw.On").status = "obsoleted";
  apply("[model]\nleave_out_status = [\"deleted\"]\n");
  EXPECT_FALSE(there_is("Gw.T.{i}.Label"));
  EXPECT_TRUE(there_is("Gw.On"));
}

TEST_F(Overlay, RefusesAnUnknownStatus) {
  EXPECT_EQ(error("[model]\nleave_out_status = [\"gone\"]\n"),
            "gw.toml:2:21: unknown word gone (one of deprecated, obsoleted, deleted)");
}

TEST_F(Overlay, NamesComponents) {
  apply("[components]\nlan = 0\nwan = 31\n");
  EXPECT_EQ(model.components, (std::map<std::string, uint32_t>{{"lan", 0}, {"wan", 31}}));
}

TEST_F(Overlay, RefusesAComponentThatDoesNotDo) {
  EXPECT_EQ(error("[components]\nlan = 32\n"), "gw.toml:2:7: out of range (0 to 31)");
  EXPECT_EQ(error("[components]\nl-n = 1\n"), "gw.toml:2:1: not a C identifier: l-n");
}

TEST_F(Overlay, RefusesAComponentIdThatIsGivenTwice) {
  EXPECT_EQ(error("[components]\nlan = 1\nwan = 1\n"), "gw.toml:3:1: has the id of lan");
}

TEST_F(Overlay, RefusesAComponentNamedAsTheirNumber) {
  EXPECT_EQ(error("[components]\nCount = 1\n"),
            "gw.toml:2:1: has the constant of the components' number: Count");
}

TEST_F(Overlay, RefusesComponentsThatDifferInCaseOnly) {
  EXPECT_EQ(error("[components]\nLan = 1\nlan = 2\n"), "gw.toml:3:1: has the constant of Lan");
}

// --- [[object]], [[parameter]] ---

constexpr const char* kTable = R"(
[[object]]
name = "Gw.X_T.{i}."
access = "readWrite"
min_entries = 1
max_entries = 8
entries = "X_TNumberOfEntries"
[[parameter]]
name = "Gw.X_TNumberOfEntries"
type = "unsignedInt"
[[parameter]]
name = "Gw.X_T.{i}.Label"
type = "string"
access = "readWrite"
max_length = 20
default = "none"
save = "always"
)";

TEST_F(Overlay, AddsATable) {
  apply(kTable);
  const Entry& table = entry("Gw.X_T.{i}.");
  EXPECT_TRUE(table.multi);
  EXPECT_TRUE(table.is_object());
  EXPECT_TRUE(table.writable);
  EXPECT_EQ(table.name, "X_T.");
  EXPECT_EQ(table.min_entries, 1u);
  EXPECT_EQ(table.max_entries, 8u);
  EXPECT_EQ(table.entries, "X_TNumberOfEntries");
  EXPECT_EQ(table.place.line, 3u);
}

TEST_F(Overlay, AddsAParameterWithTheKeysOfARule) {
  apply(kTable);
  const Entry& label = entry("Gw.X_T.{i}.Label");
  EXPECT_EQ(label.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(label.source, "string");
  EXPECT_TRUE(label.writable);
  EXPECT_EQ(label.max_len, 20u);
  EXPECT_EQ(label.defval, "none");
  EXPECT_EQ(label.save, Save::always);
}

TEST_F(Overlay, AnAddedNumberHasTheWholeRange) {
  apply(std::string(kTable) + "[[parameter]]\nname = \"Gw.X_I\"\ntype = \"int\"\n");
  EXPECT_EQ(entry("Gw.X_TNumberOfEntries").max, UINT32_MAX);
  EXPECT_FALSE(entry("Gw.X_TNumberOfEntries").writable);
  EXPECT_EQ(entry("Gw.X_I").min, INT32_MIN);
  EXPECT_EQ(entry("Gw.X_I").max, INT32_MAX);
}

TEST_F(Overlay, RulesApplyToWhatIsAdded) {
  apply(std::string(kTable) + "[[rule]]\nmatch = \"Gw.X_T.{i}.*\"\nsave = \"modified\"\n");
  EXPECT_EQ(entry("Gw.X_T.{i}.Label").save, Save::modified);
}

std::string parameter(const std::string& name, const std::string& type = "string") {
  return "[[parameter]]\nname = \"" + name + "\"\ntype = \"" + type + "\"\n";
}

TEST_F(Overlay, RefusesAnAdditionWithoutAVendorsPrefix) {
  EXPECT_EQ(error(parameter("Gw.O.New")), "gw.toml:2:8: New does not begin with X_");
}

TEST_F(Overlay, RefusesAnAdditionToAnObjectThatThereIsNot) {
  EXPECT_EQ(error(parameter("Gw.X_P.New")), "gw.toml:2:8: there is no object Gw.X_P.");
  EXPECT_EQ(error(parameter("Gw.T.X_New")), "gw.toml:2:8: there is no object Gw.T.");
}

TEST_F(Overlay, RefusesAnAdditionThatIsThereAlready) {
  EXPECT_EQ(error(parameter("Gw.X_A") + parameter("Gw.X_A")),
            "gw.toml:5:8: Gw.X_A is there already (at " + folder_ + "/gw.toml:2:8)");
}

TEST_F(Overlay, RefusesATableBesideAnObjectOfItsName) {
  EXPECT_EQ(error("[[object]]\nname = \"Gw.T.\"\n"),
            "gw.toml:2:8: Gw.T.{i}. is there already (at model.xml:1:1)");
}

TEST_F(Overlay, RefusesWhatIsNoFullName) {
  for (const char* const name :
       {"", "Gw", "Gw.", "Gw.X_O.", "Gw.X_T.{i}.", "Gw.X_{i}", "Gw.X A", "Gw.-X", "Gw.X_\xC3\xA9"})
    EXPECT_TRUE(error(parameter(name)).ends_with(" is no full name of a parameter")) << name;
  for (const char* const name : {"", "X_.", "Gw.X_O", "Gw.{i}.", "{i}.", "Gw.X_T.{i}"})
    EXPECT_TRUE(error(std::string("[[object]]\nname = \"") + name + "\"\n")
                    .ends_with(" is no full name of an object"))
        << name;
}

TEST_F(Overlay, RefusesAnAdditionThatADocumentCannotHold) {
  std::string overlay, path = "Gw.";
  for (int depth = 2; depth <= 31; ++depth) {
    path += "X_.";
    overlay += "[[object]]\nname = \"" + path + "\"\n";
  }
  EXPECT_TRUE(error(overlay + parameter(path + "A"))
                  .ends_with(": too long or too deep for a document (at most 511 bytes and 31 "
                             "levels)"));
  model = test_model();
  EXPECT_EQ(error(parameter("Gw.X_" + std::string(254, 'a'))), "no error");
  model = test_model();
  EXPECT_EQ(error(overlay), "no error");
}

TEST_F(Overlay, RefusesAParameterWithoutNameOrType) {
  EXPECT_EQ(error("[[parameter]]\ntype = \"int\"\n"), "gw.toml:1:1: lacks its name");
  EXPECT_EQ(error("[[parameter]]\nname = \"Gw.X_A\"\n"), "gw.toml:1:1: lacks its type");
}

TEST_F(Overlay, RefusesAnUnknownType) {
  EXPECT_EQ(error(parameter("Gw.X_A", "long")),
            "gw.toml:3:8: unknown type long (one of string, int, unsignedInt, boolean, dateTime, "
            "base64)");
}

TEST_F(Overlay, RefusesKeysOfTablesOnAPlainObject) {
  EXPECT_EQ(error("[[object]]\nname = \"Gw.X_O.\"\nmax_entries = 1\n"),
            "gw.toml:3:15: max_entries is for tables: names that end in \"{i}.\"");
}

TEST_F(Overlay, RefusesATableWithMoreEntriesThanItMayHave) {
  EXPECT_EQ(error("[[object]]\nname = \"Gw.X_T.{i}.\"\nmin_entries = 3\nmax_entries = 2\n"),
            "gw.toml:1:1: min_entries is above max_entries");
}

TEST_F(Overlay, RefusesACountingParameterThatThereIsNot) {
  EXPECT_EQ(error("[[object]]\nname = \"Gw.X_T.{i}.\"\nentries = \"X_N\"\n"),
            "gw.toml:2:8: there is no parameter Gw.X_N");
  model = test_model();
  EXPECT_EQ(error("[[object]]\nname = \"Gw.X_T.{i}.\"\nentries = \"O.\"\n"),
            "gw.toml:2:8: there is no parameter Gw.O.");
}

// --- [[rule]] ---

TEST_F(Overlay, ARuleSetsEveryKey) {
  apply(R"(
[components]
lan = 4
[[rule]]
match = "Gw.Level"
component = "lan"
save = "modified"
dynamic = true
access = "readOnly"
notify = "forced"
default = 2
min = 1
max = 5
arg = 4294967295
create = "made"
destroy = "gone"
set = "take"
get = "give"
[[rule]]
match = "Gw.Mode"
notify = "default"
words = ["Down", "X_Idle"]
default = "X_Idle"
max_length = 12
)");
  const Entry& level = entry("Gw.Level");
  EXPECT_EQ(level.component, 4u);
  EXPECT_EQ(level.save, Save::modified);
  EXPECT_TRUE(level.dynamic);
  EXPECT_FALSE(level.writable);
  EXPECT_EQ(level.notify, Notify::forced);
  EXPECT_EQ(level.defval, "2");
  EXPECT_EQ(level.min, 1);
  EXPECT_EQ(level.max, 5);
  EXPECT_EQ(level.arg, 4294967295u);
  EXPECT_EQ(level.hooks.create, "made");
  EXPECT_EQ(level.hooks.destroy, "gone");
  EXPECT_EQ(level.hooks.set, "take");
  EXPECT_EQ(level.hooks.get, "give");
  const Entry& mode = entry("Gw.Mode");
  EXPECT_EQ(mode.notify, Notify::by_default);
  EXPECT_EQ(mode.words, (std::vector<std::string>{"Down", "X_Idle"}));
  EXPECT_EQ(mode.defval, "X_Idle");
  EXPECT_EQ(mode.max_len, 12u);
}

TEST_F(Overlay, ALaterRuleWinsKeyByKey) {
  apply(R"(
[[rule]]
match = "Gw.**"
save = "always"
arg = 1
[[rule]]
match = ["Gw.On", "Gw.Name"]
save = "never"
)");
  EXPECT_EQ(entry("Gw.On").save, Save::never);
  EXPECT_EQ(entry("Gw.On").arg, 1u);
  EXPECT_EQ(entry("Gw.Name").save, Save::never);
  EXPECT_EQ(entry("Gw.Level").save, Save::always);
}

TEST_F(Overlay, RefusesARuleThatMatchesNothing) {
  EXPECT_TRUE(error_of_rule("match = \"Gw.Leve\"\n")
                  .starts_with("gw.toml:2:9: Gw.Leve matches nothing (did you mean Gw.Level"));
  EXPECT_EQ(error_of_rule("match = [\"Gw.On\", \"Gw.Q*\"]\n"),
            "gw.toml:2:19: Gw.Q* matches nothing");
}

TEST_F(Overlay, AnOptionalRuleMayMatchNothing) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Gone\"\noptional = true\n"), "no error");
}

TEST_F(Overlay, RefusesARuleWithoutAPattern) {
  EXPECT_EQ(error_of_rule("arg = 1\n"), "gw.toml:1:1: lacks its match");
}

TEST_F(Overlay, AWildcardPassesOverWhatAKeyMeansNothingFor) {
  apply(
      "[[rule]]\nmatch = \"Gw.**\"\nsave = \"always\"\nmax_length = 8\nmax = 3\ndefault = 1\n"
      "[[rule]]\nmatch = [\"Gw.Mode\", \"Gw.Since\", \"Gw.Key\"]\ndefault = \"Up\"\n"
      "[[rule]]\nmatch = \"Gw.Key\"\ndefault = \"\"\n"
      "[[rule]]\nmatch = \"Gw.Since\"\ndefault = \"2020-01-01T00:00:00\"\n");
  EXPECT_EQ(entry("Gw.O.").save, Save::never);
  EXPECT_EQ(entry("Gw.Since").save, Save::never);
  EXPECT_EQ(entry("Gw.On").save, Save::always);
  EXPECT_EQ(entry("Gw.On").max_len, 0u);
  EXPECT_EQ(entry("Gw.Name").max, 0);
  EXPECT_EQ(entry("Gw.Name").max_len, 8u);
  EXPECT_EQ(entry("Gw.Port").max, 3);
  EXPECT_FALSE(entry("Gw.O.").defval);
}

struct Misfit {
  const char *path, *key, *why;
};

TEST_F(Overlay, APlainPatternRefusesAKeyThatMeansNothing) {
  for (const auto& [path, key, why] : {
           Misfit{"Gw.O.", "save = \"always\"", "an object has no value"},
           {"Gw.O.", "dynamic = true", "an object has no value"},
           {"Gw.O.", "access = \"readOnly\"", "the object is no table"},
           {"Gw.O.", "notify = \"forced\"", "an object has no value"},
           {"Gw.O.", "default = \"\"", "an object has no value"},
           {"Gw.O.", "set = \"take\"", "an object has no value"},
           {"Gw.O.", "get = \"give\"", "an object has no value"},
           {"Gw.Since", "save = \"modified\"",
            "a dateTime cannot be saved: documents do not bring datetimes back"},
           {"Gw.Name", "min = 1", "neither int nor unsignedInt"},
           {"Gw.On", "max = 1", "neither int nor unsignedInt"},
           {"Gw.Port", "max_length = 1", "neither string nor base64"},
           {"Gw.Port", "words = [\"a\"]", "not a string"},
       }) {
    const std::string name = std::string(key).substr(0, std::string(key).find(' '));
    const std::string message = name + " means nothing for " + path + " (" + why + ")";
    const std::string match = std::string("match = \"") + path + "\"\n";
    const std::string said = error_of_rule(match + key + "\n");
    EXPECT_TRUE(said.starts_with("gw.toml:3:")) << said;
    EXPECT_TRUE(said.ends_with(": " + message)) << said;
  }
}

TEST_F(Overlay, AWildcardGivesNoComponentToAPlainObject) {
  apply("[components]\nlan = 1\n[[rule]]\nmatch = \"Gw.**\"\ncomponent = \"lan\"\n");
  EXPECT_EQ(entry("Gw.O.").component, kNoComponent);
  EXPECT_EQ(entry("Gw.O.A").component, 1u);
  EXPECT_EQ(entry("Gw.T.{i}.").component, 1u);
}

TEST_F(Overlay, RefusesAComponentForAPlainObject) {
  EXPECT_EQ(error("[components]\nlan = 1\n[[rule]]\nmatch = \"Gw.O.\"\ncomponent = \"lan\"\n"),
            "gw.toml:5:13: component means nothing for Gw.O. (the object is no table)");
}

TEST_F(Overlay, ADateTimeMayBeSaidToBeNeverSaved) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Since\"\nsave = \"never\"\n"), "no error");
}

TEST_F(Overlay, ARuleIsOnlyForWhatHasTheProperty) {
  entry("Gw.Name").list = true;
  entry("Gw.On").writable = false;
  const std::string parameters = "Gw.Key Gw.Level Gw.Mode Gw.Name Gw.O.A Gw.On Gw.Port Gw.Since ";
  unsigned arg = 0;
  for (const auto& [property, paths] : std::map<std::string, std::string>{
           {"readOnly", "Gw. Gw.O. Gw.On "},
           {"readWrite",
            "Gw.Key Gw.Level Gw.Mode Gw.Name Gw.O.A Gw.Port Gw.Since Gw.T.{i}. "
            "Gw.T.{i}.Label "},
           {"parameter", parameters + "Gw.T.{i}.Label "},
           {"object", "Gw. Gw.O. Gw.T.{i}. "},
           {"table", "Gw.T.{i}. "},
           {"list", "Gw.Name "},
           {"string", "Gw.Mode Gw.Name Gw.O.A Gw.T.{i}.Label "},
           {"int", "Gw.Level "},
           {"unsignedInt", "Gw.Port "},
           {"boolean", "Gw.On "},
           {"dateTime", "Gw.Since "},
           {"base64", "Gw.Key "},
       }) {
    apply("[[rule]]\nmatch = \"**\"\nonly = \"" + property + "\"\narg = " + std::to_string(++arg) +
          "\n");
    std::set<std::string> changed;
    for_each(*model.root, [&](const Entry& each) {
      if (each.arg == arg) changed.insert(each.path() + " ");
    });
    EXPECT_EQ(std::accumulate(changed.begin(), changed.end(), std::string()), paths) << property;
  }
}

TEST_F(Overlay, ARuleIsOnlyForWhatHasAllTheProperties) {
  entry("Gw.Name").writable = false;
  apply("[[rule]]\nmatch = \"Gw.*\"\nonly = [\"string\", \"readWrite\"]\narg = 1\n");
  EXPECT_EQ(entry("Gw.Mode").arg, 1u);
  EXPECT_EQ(entry("Gw.Name").arg, 0u);
  EXPECT_EQ(entry("Gw.Port").arg, 0u);
}

TEST_F(Overlay, RefusesARuleWhoseMatchesLackTheProperties) {
  EXPECT_EQ(error_of_rule("match = \"Gw.On\"\nonly = \"string\"\narg = 1\n"),
            "gw.toml:2:9: Gw.On matches nothing of this kind");
}

TEST_F(Overlay, RefusesAnUnknownProperty) {
  EXPECT_EQ(error_of_rule("match = \"Gw.On\"\nonly = [\"bolean\"]\narg = 1\n"),
            "gw.toml:3:9: unknown property bolean (did you mean boolean?)");
}

TEST_F(Overlay, ATablesAccessCanBeChanged) {
  apply("[[rule]]\nmatch = \"Gw.T.{i}.\"\naccess = \"readOnly\"\n");
  EXPECT_FALSE(entry("Gw.T.{i}.").writable);
}

TEST_F(Overlay, RefusesBoundsLooserThanTheModels) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Port\"\nmax = 65536\n"),
            "gw.toml:3:7: looser than the model's limit for Gw.Port (0 to 65535)");
  EXPECT_EQ(error_of_rule("match = \"Gw.Level\"\nmin = -11\n"),
            "gw.toml:3:7: looser than the model's limit for Gw.Level (-10 to 10)");
}

TEST_F(Overlay, ALaterRuleMayGoBackToTheModelsBounds) {
  apply("[[rule]]\nmatch = \"Gw.Port\"\nmax = 100\n[[rule]]\nmatch = \"Gw.Port\"\nmax = 65535\n");
  EXPECT_EQ(entry("Gw.Port").max, 65535);
}

TEST_F(Overlay, RefusesALengthLooserThanTheModels) {
  const std::string message = ": looser than the model's limit for Gw.Name (at most 64 bytes)";
  EXPECT_EQ(error_of_rule("match = \"Gw.Name\"\nmax_length = 65\n"), "gw.toml:3:14" + message);
  EXPECT_EQ(error_of_rule("match = \"Gw.Name\"\nmax_length = 0\n"), "gw.toml:3:14" + message);
  EXPECT_EQ(error_of_rule("match = \"Gw.O.A\"\nmax_length = 65\n"), "no error");
}

TEST_F(Overlay, RefusesAWordThatTheModelDoesNotHave) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Mode\"\nwords = [\"Up\", \"Dowm\"]\n"),
            "gw.toml:3:9: Dowm is none of the model's words for Gw.Mode (did you mean Down?)");
}

TEST_F(Overlay, GivesWordsToAStringThatHasNone) {
  apply("[[rule]]\nmatch = \"Gw.Name\"\nwords = [\"a\"]\n");
  EXPECT_EQ(entry("Gw.Name").words, std::vector<std::string>{"a"});
}

TEST_F(Overlay, RefusesBoundsThatLeaveNoValue) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Level\"\nmin = 5\nmax = 3\n"),
            "gw.toml:4:7: the lowest value of Gw.Level is above its highest (5 to 3)");
}

TEST_F(Overlay, RefusesADefaultThatItsParameterRefuses) {
  for (const auto& [path, text] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Gw.Port", "\"abc\""},
           {"Gw.Port", "65536"},
           {"Gw.Port", "-1"},
           {"Gw.Level", "11"},
           {"Gw.On", "\"yes\""},
           {"Gw.Mode", "\"Sideways\""},
           {"Gw.Key", "\"YQ\""},
           {"Gw.Key", "\"YWFhYWFhYWFhYWFhYWFhYWE=\""},
           {"Gw.Since", "\"2020-01-01\""},
           {"Gw.Since", "\"2020-13-01T00:00:00\""},
           {"Gw.Since", "\"2039-01-01T00:00:00\""},
       }) {
    model = test_model();
    const std::string said =
        error_of_rule(std::string("match = \"") + path + "\"\ndefault = " + text + "\n");
    EXPECT_TRUE(
        said.starts_with(std::string("gw.toml:3:11: the default of ") + path + " is refused: "))
        << said;
  }
}

TEST_F(Overlay, TakesADefaultOfEachType) {
  for (const auto& [path, text] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Gw.Port", "65535"},
           {"Gw.Level", "\"-10\""},
           {"Gw.On", "true"},
           {"Gw.On", "\"0\""},
           {"Gw.Mode", "\"Down\""},
           {"Gw.Key", "\"YQ==\""},
           {"Gw.Since", "\"2020-01-01T00:00:00\""},
       })
    EXPECT_EQ(error_of_rule(std::string("match = \"") + path + "\"\ndefault = " + text + "\n"),
              "no error");
}

TEST_F(Overlay, ADefaultIsCheckedAgainstTheBoundsOfLaterRulesToo) {
  EXPECT_EQ(error_of_rule("match = \"Gw.Level\"\ndefault = 5\n[[rule]]\nmatch = \"Gw.L*\"\n"
                          "max = 4\n")
                .substr(0, 48),
            "gw.toml:3:11: the default of Gw.Level is refused");
}

TEST_F(Overlay, TheModelsDefaultIsCheckedAgainstTighterLimits) {
  EXPECT_TRUE(error_of_rule("match = \"Gw.Mode\"\nwords = [\"Down\"]\n")
                  .starts_with("gw.toml:3:9: the default of Gw.Mode is refused: Up"));
  model = test_model();
  EXPECT_EQ(error_of_rule("match = \"Gw.Port\"\nmax = 79\n").substr(0, 46),
            "gw.toml:3:7: the default of Gw.Port is refused");
}

TEST_F(Overlay, RefusesASavedDefaultThatADocumentCannotHold) {
  const std::string keys = "match = \"Gw.Name\"\ndefault = \"a<b\"\n";
  EXPECT_EQ(error_of_rule(keys), "no error");
  EXPECT_EQ(error_of_rule(keys + "save = \"modified\"\n"), "no error");
  EXPECT_TRUE(error_of_rule(keys + "save = \"always\"\n")
                  .starts_with("gw.toml:3:11: a saved default that a document cannot hold: Gw.Name "
                               "("));
}

TEST_F(Overlay, RefusesASavedDefaultOfTheModelThatADocumentCannotHold) {
  entry("Gw.Name").defval = "a&b";
  try {
    apply("[[rule]]\nmatch = \"Gw.Name\"\nsave = \"always\"\n");
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.name, "model.xml:1:1");
  }
}

TEST_F(Overlay, RefusesAnUnknownComponent) {
  EXPECT_EQ(error("[components]\nlan = 1\n[[rule]]\nmatch = \"Gw.On\"\ncomponent = \"lam\"\n"),
            "gw.toml:5:13: unknown component lam (did you mean lan?)");
}

TEST_F(Overlay, RefusesAHookThatIsNoIdentifier) {
  for (const char* const name : {"", "1a", "a b", "a;", "a-b"})
    EXPECT_TRUE(error_of_rule(std::string("match = \"Gw.On\"\nset = \"") + name + "\"\n")
                    .starts_with("gw.toml:3:7: not a C identifier: "))
        << name;
}

TEST_F(Overlay, RefusesAHookNamedByAKeyword) {
  for (const char* const name : {"int", "class", "restrict"})
    EXPECT_EQ(error_of_rule(std::string("match = \"Gw.On\"\nset = \"") + name + "\"\n"),
              std::string("gw.toml:3:7: a keyword of C or C++: ") + name);
}

TEST_F(Overlay, RefusesAFunctionInSlotsOfTwoKinds) {
  EXPECT_EQ(error_of_rule("match = \"Gw.On\"\nset = \"f\"\nget = \"f\"\n"),
            "gw.toml:4:7: f is a set hook already (first at " + folder_ + "/gw.toml:3:7)");
}

TEST_F(Overlay, OneFunctionMayCreateAndDestroy) {
  EXPECT_EQ(error_of_rule("match = \"Gw.T.{i}.\"\ncreate = \"f\"\ndestroy = \"f\"\n"), "no error");
}

// --- complete ---

TEST(Complete, AStringWithoutADefaultIsEmpty) {
  Model model = test_model();
  complete(model);
  EXPECT_EQ(at(model, "Gw.Name").defval, "");
}

TEST(Complete, ANumberWithoutADefaultIsZeroOrTheBoundNextToIt) {
  Model model = make_model();
  const struct {
    const char* name;
    int64_t min, max;
    const char* defval;
  } cases[] = {{"A", -5, 5, "0"}, {"B", 3, 5, "3"}, {"C", -5, -3, "-3"}};
  for (const auto& [name, min, max, defval] : cases) {
    Entry* const parameter = add_parameter(*model.root, name, QMIBTREE_TYPE_INT);
    parameter->min = min;
    parameter->max = max;
  }
  complete(model);
  for (const auto& [name, min, max, defval] : cases)
    EXPECT_EQ(model.root->child(name)->defval, defval);
}

TEST(Complete, ABooleanWithoutADefaultIsFalse) {
  Model model = test_model();
  complete(model);
  EXPECT_EQ(at(model, "Gw.On").defval, "false");
}

TEST(Complete, ObjectsDatetimesAndBytesStayWithout) {
  Model model = test_model();
  complete(model);
  EXPECT_FALSE(at(model, "Gw.O.").defval);
  EXPECT_FALSE(at(model, "Gw.Since").defval);
  EXPECT_FALSE(at(model, "Gw.Key").defval);
}

TEST(Complete, ADefaultStays) {
  Model model = test_model();
  complete(model);
  EXPECT_EQ(at(model, "Gw.Mode").defval, "Up");
  EXPECT_EQ(at(model, "Gw.Port").defval, "80");
}

TEST(Complete, WhatTheHostSuppliesStaysWithout) {
  Model model = test_model();
  at(model, "Gw.Name").dynamic = true;
  at(model, "Gw.On").hooks.get = "give";
  complete(model);
  EXPECT_FALSE(at(model, "Gw.Name").defval);
  EXPECT_FALSE(at(model, "Gw.On").defval);
}

TEST(Complete, NotesWhatItDid) {
  Model model = make_model();
  add_parameter(*model.root, "A");
  complete(model);
  ASSERT_EQ(model.notes.size(), 1u);
  EXPECT_EQ(model.notes[0].path, "Gw.A");
  EXPECT_EQ(model.notes[0].kind, "string without a default: empty");
}

}  // namespace
}  // namespace mibctl
