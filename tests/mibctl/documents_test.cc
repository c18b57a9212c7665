// The manual page and the completion in bash, against the program's own help.
#include <filesystem>
#include <set>
#include <sstream>

#include "command.hh"

namespace mibctl {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class Documents : public Command {
 protected:
  static std::string source(const std::string& name) {
    return read_file(std::string(MIBCTL_SOURCES) + "/" + name, 1 << 20);
  }
  // The verbs of a family ("": of the program), as its help lists them: two blanks before each.
  Names verbs_of(const std::vector<std::string>& family) const {
    std::vector<std::string> arguments = family;
    arguments.push_back("--help");
    std::istringstream help(run(arguments).out);
    Names verbs;
    bool in_options = true;
    for (std::string line; std::getline(help, line);) {
      if (!line.empty() && line[0] != ' ')
        in_options = !kFamilies.count(line);
      else if (!in_options && line.size() > 2 && line[2] != ' ')
        verbs.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    return verbs;
  }
  // What COMPREPLY holds with these words typed, the cursor behind the last.
  Names completions(const std::vector<std::string>& words) const {
    std::string typed;
    for (const std::string& word : words) typed += " '" + word + "'";
    folder.write("complete.sh", "PATH=" + fs::path(MIBCTL_PATH).parent_path().string() +
                                    ":$PATH\n" + "source " + MIBCTL_SOURCES + "/mibctl.bash\n" +
                                    "compopt() { :; }\n" + "export MIBCTL_MODEL=" + model +
                                    " MIBCTL_OVERLAY=" + overlay + " MIBCTL_CONFIG=" + config +
                                    "\n" + "COMP_WORDS=(mibctl" + typed + ")\n" +
                                    "COMP_CWORD=" + std::to_string(words.size()) +
                                    "\n_mibctl\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n");
    const std::string out = folder.path("completions");
    EXPECT_EQ(std::system(("bash " + folder.path("complete.sh") + " >" + out).c_str()), 0);
    std::istringstream lines(folder.read("completions"));
    Names names;
    for (std::string line; std::getline(lines, line);) names.insert(line);
    return names;
  }

  static inline const Names kFamilies = {
      "Configurations:", "Images:", "Models:", "SUBCOMMANDS:", "Subcommands:"};
};

const std::vector<std::vector<std::string>> kFamilyVerbs = {
    {}, {"image"}, {"schema"}, {"image", "upgrade-file"}};

TEST_F(Documents, ManualPageHasEveryVerb) {
  const std::string page = source("mibctl.1");
  for (const auto& family : kFamilyVerbs) {
    const Names verbs = verbs_of(family);
    EXPECT_GE(verbs.size(), 2u);
    std::string before;
    for (const std::string& word : family) before += word + " ";
    for (const std::string& verb : verbs) {
      const std::string name = before + verb;
      EXPECT_TRUE(page.find("\\fB" + name) != page.npos || page.find("\n.B " + name) != page.npos)
          << name;
    }
  }
}

TEST_F(Documents, ManualPageHasNoWarning) {
  if (std::system("command -v man >/dev/null") != 0) GTEST_SKIP() << "man is not there";
  const std::string command = "man -l --warnings -Z " + std::string(MIBCTL_SOURCES) +
                              "/mibctl.1 2>&1 >/dev/null | cat >" + folder.path("warnings");
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(folder.read("warnings"), "");
}

TEST_F(Documents, CompletionHasEveryVerb) {
  for (const auto& family : kFamilyVerbs) {
    std::vector<std::string> words = family;
    words.emplace_back("");
    EXPECT_EQ(completions(words), verbs_of(family));
  }
}

TEST_F(Documents, CompletionHasOptionsOfTheProgramAndTheVerb) {
  EXPECT_EQ(completions({"--fl"}), Names{"--flash"});
  EXPECT_EQ(completions({"add", "--nu"}), Names{"--number"});
  EXPECT_EQ(completions({"image", "size", "--t"}), Names{"--top"});
}

TEST_F(Documents, CompletionHasNamesOfTheConfiguration) {
  EXPECT_EQ(completions({"get", "InternetGatewayDevice.Host.1.P"}),
            Names{"InternetGatewayDevice.Host.1.Port."});
}

TEST_F(Documents, CompletionHasFiles) {
  EXPECT_EQ(completions({"check", folder.path("con")}), Names{config});
  EXPECT_EQ(completions({"--image", folder.path("con")}), Names{config});
}

}  // namespace
}  // namespace mibctl
