// Runs mibctl as a user does, in a folder of its own, on a small model.
#pragma once
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "box_model.hh"
#include "text.hh"

namespace mibctl {

struct Outcome {
  int status;
  std::string out, err;
};

// A folder that goes with the test.
class Folder {
 public:
  Folder() : path_(std::filesystem::temp_directory_path() / "mibctl_XXXXXX") {
    if (!mkdtemp(path_.data())) std::abort();
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string path(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& text) const {
    std::FILE* const file = std::fopen(path(name).c_str(), "w");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return path(name);
  }
  std::string read(const std::string& name) const { return read_file(path(name), 1 << 24); }
  bool has(const std::string& name) const { return std::filesystem::exists(path(name)); }

 private:
  std::string path_;
};

// A document with something of everything.
inline constexpr char kBoxDocument[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<InternetGatewayDevice.>
<PARAM name="Summary" notification="2" ignorevalue="yes"></PARAM>
<Time.>
<PARAM name="Enable">true</PARAM>
<PARAM name="Server">ntp.example</PARAM>
<PARAM name="Serial">0001</PARAM>
</Time.>
<Host. instance="1">
<PARAM name="Name">printer</PARAM>
<Port. instance="1">
<PARAM name="Number">80</PARAM>
</Port.>
<Port. instance="3">
</Port.>
</Host.>
</InternetGatewayDevice.>
)";

class Command : public testing::Test {
 protected:
  Command()
      : model(folder.write("box.xml", kBoxModel)),
        overlay(folder.write("box.toml", kBoxOverlay)),
        config(folder.write("conf.xml", kBoxDocument)) {}

  // Runs the program with these arguments.
  Outcome run(const std::vector<std::string>& arguments, const std::string& input = "") const {
    const std::string in = folder.write("stdin", input);
    const std::string out = folder.path("stdout"), err = folder.path("stderr");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv = {const_cast<char*>(MIBCTL_PATH)};
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, MIBCTL_PATH, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (failed || waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
      return {-1, "", "did not run or did not exit"};
    return {WEXITSTATUS(status), folder.read("stdout"), folder.read("stderr")};
  }

  // The same with the small model and its configuration document named.
  Outcome on_config(std::vector<std::string> arguments, const std::string& input = "") const {
    arguments.insert(arguments.begin(),
                     {"--model", model, "--overlay", overlay, "--config", config});
    return run(arguments, input);
  }

  Folder folder;
  std::string model, overlay, config;
};

// Nothing said, and done.
inline void expect_done(const Outcome& outcome, const std::string& out = "") {
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, out);
  EXPECT_EQ(outcome.status, 0);
}

// One line on standard error, nothing on standard output.
inline void expect_error(const Outcome& outcome, int status, const std::string& line) {
  EXPECT_EQ(outcome.err, line + "\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.status, status);
}

}  // namespace mibctl
