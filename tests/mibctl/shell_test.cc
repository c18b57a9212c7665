// The shell, through a pipe and at a terminal.
#include <poll.h>
#include <pty.h>

#include <csignal>

#include "command.hh"

namespace mibctl {
namespace {

// --- through a pipe ---

using ShellPipe = Command;

TEST_F(ShellPipe, ReadsTheLiveTreeAndStoresOnSave) {
  expect_done(on_config({"shell"},
                        "cd InternetGatewayDevice.Time.\n"
                        "set Zone=CET\n"
                        "get Zone\n"
                        "save\n"),
              "CET\n");
  expect_done(on_config({"get", "InternetGatewayDevice.Time.Zone"}), "CET\n");
}

TEST_F(ShellPipe, DropsUnsavedEditsAndSaysSo) {
  const Outcome outcome = on_config({"shell"}, "set InternetGatewayDevice.Time.Zone=CET\n");
  expect_error(outcome, 1,
               "shell: the input ended with unsaved edits, which are dropped (end it with save)");
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(ShellPipe, EndsAtTheFirstErrorAndNamesTheLine) {
  const Outcome outcome = on_config({"shell"},
                                    "set InternetGatewayDevice.Time.Zone=CET\n"
                                    "set InternetGatewayDevice.Time.Interval=0\n"
                                    "save\n");
  expect_error(
      outcome, 1,
      "standard input:2: InternetGatewayDevice.Time.Interval: write out of range (below the "
      "lowest value, 1)");
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(ShellPipe, NamesBeginAtTheCurrentObject) {
  expect_done(on_config({"shell"},
                        "cd InternetGatewayDevice.Host.1.\n"
                        "get Name Port.1.Number\n"
                        "cd Port.\n"
                        "list\n"
                        "cd ..\n"
                        "get Name\n"
                        "get InternetGatewayDevice.Time.Zone\n"
                        "cd\n"
                        "list\n"),
              "Name=printer\nPort.1.Number=80\n1.\n3.\nprinter\nUTC\nSummary\nTime.\nHost.\n");
}

TEST_F(ShellPipe, EventsAreDrainedNewestFirst) {
  expect_done(
      on_config({"shell"},
                "attr InternetGatewayDevice.Time.Zone notify=active\n"
                "attr InternetGatewayDevice.Time.Enable notify=passive\n"
                "set InternetGatewayDevice.Time.Zone=CET\n"
                "set InternetGatewayDevice.Time.Enable=false\n"
                "events\n"
                "events\n"
                "save\n"),
      "notify=active access=none\nnotify=passive access=none\n"
      "passive InternetGatewayDevice.Time.Enable\nactive InternetGatewayDevice.Time.Zone\n");
}

// The second deletion brings back the event that was queued last, of a node of the first.
TEST_F(ShellPipe, EventsOfNodesThatAreGoneAreLeftOut) {
  expect_done(on_config({"shell"},
                        "add InternetGatewayDevice.Host.\n"
                        "attr InternetGatewayDevice.Time.Zone notify=active\n"
                        "attr InternetGatewayDevice.Time.Enable notify=active\n"
                        "attr InternetGatewayDevice.Host.1.Name notify=active\n"
                        "attr InternetGatewayDevice.Host.2.Name notify=active\n"
                        "set InternetGatewayDevice.Time.Zone=CET\n"
                        "set InternetGatewayDevice.Time.Enable=false\n"
                        "set InternetGatewayDevice.Host.1.Name=a\n"
                        "events\n"
                        "del InternetGatewayDevice.Host.1.\n"
                        "set InternetGatewayDevice.Host.2.Name=b\n"
                        "set InternetGatewayDevice.Time.Zone=UTC\n"
                        "del InternetGatewayDevice.Host.2.\n"
                        "events\n"
                        "save\n"),
              "InternetGatewayDevice.Host.2.\n"
              "notify=active access=none\nnotify=active access=none\n"
              "notify=active access=none\nnotify=active access=none\n"
              "active InternetGatewayDevice.Host.1.Name\n"
              "active InternetGatewayDevice.Time.Enable\nactive InternetGatewayDevice.Time.Zone\n");
}

TEST_F(ShellPipe, MarksNameTheComponentsOfWhatChanged) {
  expect_done(on_config({"shell"},
                        "marks\n"
                        "set InternetGatewayDevice.Time.Zone=CET\n"
                        "marks\n"
                        "marks clear\n"
                        "marks\n"
                        "reload\n"),
              "clock\n");
}

TEST_F(ShellPipe, DumpListsTheTree) {
  const Outcome outcome = on_config({"shell"}, "dump InternetGatewayDevice.Host.1.Port.1.\n");
  expect_done(outcome,
              "\n+InternetGatewayDevice.Host.1.Port.1.\n "
              "InternetGatewayDevice.Host.1.Port.1.Number (unsignedInt) = 80\n");
}

TEST_F(ShellPipe, DiffComparesWithWhatIsStored) {
  expect_done(on_config({"shell"}, "set InternetGatewayDevice.Time.Zone=CET\ndiff\nreload\ndiff\n"),
              "-InternetGatewayDevice.Time.Zone=UTC\n+InternetGatewayDevice.Time.Zone=CET\n");
}

TEST_F(ShellPipe, DeletingTheCurrentObjectLeadsToTheTop) {
  expect_done(on_config({"shell"},
                        "cd InternetGatewayDevice.Host.1.Port.\n"
                        "del InternetGatewayDevice.Host.1.\n"
                        "list\n"
                        "save\n"),
              "Summary\nTime.\nHost.\n");
}

TEST_F(ShellPipe, AnUnknownVerbSuggestsOne) {
  expect_error(on_config({"shell"}, "shwo\n"), 1,
               "standard input:1: shwo: unknown verb (did you mean show?)");
}

TEST_F(ShellPipe, CheckPrintsWhatTheVerbPrints) {
  folder.write("conf.xml", "<InternetGatewayDevice.>\n<Nowhere./>\n</InternetGatewayDevice.>\n");
  const Outcome outcome = on_config({"shell"}, "check\n");
  EXPECT_NE(outcome.out, "");
  EXPECT_EQ(outcome.out, on_config({"check"}).out);
}

TEST_F(ShellPipe, ImportOwesNothingToWhatWasStored) {
  const std::string other = folder.write("other.xml", kBoxDocument);
  folder.write("conf.xml", "<InternetGatewayDevice.>\n<Nowhere./>\n</InternetGatewayDevice.>\n");
  expect_done(on_config({"shell"}, "import " + other + "\nsave\n"));
}

TEST_F(ShellPipe, HelpNamesEveryVerb) {
  const Outcome outcome = on_config({"shell"}, "help\n");
  for (const char* verb :
       {"show", "get", "set", "add", "del", "list", "attr", "cd", "events", "marks", "dump", "diff",
        "check", "export", "import", "reset", "save", "reload", "quit"})
    EXPECT_NE(("\n" + outcome.out).find(std::string("\n") + verb + " "), std::string::npos) << verb;
}

// --- at a terminal ---

// Types at the shell on a pseudo-terminal and reads what it shows.
class ShellTerminal : public Command {
 protected:
  void SetUp() override {
    const std::vector<std::string> arguments = {"mibctl", "--model",  model,  "--overlay",
                                                overlay,  "--config", config, "shell"};
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    winsize size = {50, 200, 0, 0};
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ < 0) GTEST_SKIP() << "there are no pseudo-terminals here";
    if (pid_ == 0) {
      setenv("TERM", "dumb", 1);
      setenv("LC_ALL", "C.UTF-8", 1);
      setenv("HOME", folder.path("").c_str(), 1);
      execv(MIBCTL_PATH, argv.data());
      _exit(127);
    }
    wait_for("> ");
  }
  void TearDown() override {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(terminal_);
  }

  void type(const std::string& text) {
    seen_.clear();
    ASSERT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // Reads until the text has been shown since the last typing.
  void wait_for(const std::string& text) {
    while (seen_.find(text) == std::string::npos) {
      pollfd readable = {terminal_, POLLIN, 0};
      char block[4096];
      const bool ready = poll(&readable, 1, 20000) > 0;
      const ssize_t count = ready ? read(terminal_, block, sizeof block) : 0;
      if (count <= 0) {
        FAIL() << "waited for " << text << ", saw: " << seen_;
      }
      seen_.append(block, static_cast<size_t>(count));
    }
  }
  // The shell's own status, once it has ended.
  int end() {
    pollfd readable = {terminal_, POLLIN, 0};
    char block[4096];
    while (poll(&readable, 1, 20000) > 0 && read(terminal_, block, sizeof block) > 0) continue;
    if (readable.revents == 0) return -1;  // it goes on
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // The editor takes over from the terminal's own line discipline behind the prompt: control
  // characters are typed once it completes.
  void wait_for_editor() {
    type("qui\t");
    wait_for("quit");
  }

  int terminal_ = -1;
  pid_t pid_ = -1;
  std::string seen_;
};

TEST_F(ShellTerminal, CompletesVerbsNamesInstancesAndValues) {
  type("sh\t");
  wait_for("show ");
  type("Int\t");
  wait_for("InternetGatewayDevice.");
  type("H\t1\tN\t\n");
  wait_for("InternetGatewayDevice.Host.1.Name=printer");
  type("set InternetGatewayDevice.Time.Z\t=C\t\n");
  wait_for("*> ");
  type("get InternetGatewayDevice.Time.Zone\n");
  wait_for("\nCET");
}

TEST_F(ShellTerminal, ListsWhatAWordMayBecome) {
  type("get InternetGatewayDevice.Host.1.\t");
  wait_for("InternetGatewayDevice.Host.1.Name\r\nInternetGatewayDevice.Host.1.Port.\r\n");
}

TEST_F(ShellTerminal, CompletesBelowTheCurrentObject) {
  type("cd InternetGatewayDevice.Time.\n");
  wait_for("InternetGatewayDevice.Time.> ");
  type("get Serv\t\n");
  wait_for("ntp.example");
}

TEST_F(ShellTerminal, CompletesAboveTheCurrentObject) {
  type("cd InternetGatewayDevice.Time.\n");
  wait_for("InternetGatewayDevice.Time.> ");
  type("get ../Host.1.Na\t\n");
  wait_for("printer");
}

TEST_F(ShellTerminal, CompletesFromTheRootWhereverItIs) {
  type("cd InternetGatewayDevice.Host.\n");
  wait_for("InternetGatewayDevice.Host.> ");
  type("get Internet\tTime.Zo\t\n");
  wait_for("\nUTC");
}

TEST_F(ShellTerminal, CompletesFiles) {
  type("diff " + folder.path("con\t\n"));
  wait_for("> ");
  type("export " + folder.path("con") + "\t.copy\n");
  wait_for("> ");
  type("quit\n");
  EXPECT_EQ(end(), 0);
  EXPECT_TRUE(folder.has("conf.xml.copy"));
}

TEST_F(ShellTerminal, TakesLettersOfTheUsersLanguage) {
  type(
      "set InternetGatewayDevice.Host.1.Name=k\xc3\xbc"
      "che\n");
  wait_for("*> ");
  type("get InternetGatewayDevice.Host.1.Name\n");
  wait_for(
      "\nk\xc3\xbc"
      "che");
}

TEST_F(ShellTerminal, AnErrorIsToldAndTheShellGoesOn) {
  type("get Nowhere\n");
  wait_for("Nowhere: mib name not found");
  type("get InternetGatewayDevice.Time.Zone\n");
  wait_for("\nUTC");
}

TEST_F(ShellTerminal, HistoryBringsALineBack) {
  type("get InternetGatewayDevice.Time.Zone\n");
  wait_for("\nUTC");
  type("\x10\n");  // the line before
  wait_for("\nUTC");
}

TEST_F(ShellTerminal, QuitAsksOnceBeforeItDropsEdits) {
  type("set InternetGatewayDevice.Time.Zone=CET\n");
  wait_for("*> ");
  type("quit\n");
  wait_for("there are unsaved edits");
  type("quit\n");
  EXPECT_EQ(end(), 0);
  EXPECT_EQ(folder.read("conf.xml"), kBoxDocument);
}

TEST_F(ShellTerminal, AnInterruptEndsTheLineOnly) {
  wait_for_editor();
  type("\x03");
  wait_for("> ");
  type("get InternetGatewayDevice.Time.Zone\n");
  wait_for("\nUTC");
}

TEST_F(ShellTerminal, NothingOfAnInterruptedLineIsDone) {
  wait_for_editor();
  type("\x15get Nowhere\x03");
  type("get InternetGatewayDevice.Time.Zone\n");
  wait_for("\nUTC");
  EXPECT_EQ(seen_.find("unknown verb"), std::string::npos) << seen_;
}

TEST_F(ShellTerminal, TheEndOfInputEndsTheShell) {
  wait_for_editor();
  type("\x15\x04");  // the line is emptied first
  EXPECT_EQ(end(), 0);
}

}  // namespace
}  // namespace mibctl
