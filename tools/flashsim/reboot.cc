#include "reboot.hh"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

#include "launch.h"
#include "served.h"

namespace flashsim {

namespace fs = std::filesystem;

namespace {

constexpr unsigned kPatience = 60;  // seconds until a restart counts as hanging; see the help
constexpr char kTrace[] = "tobixopen";

void redirect(const char* path, int flags, int to) {
  const int fd = open(path, flags, 0666);
  if (fd < 0 || dup2(fd, to) < 0) _exit(EXIT_NOT_STARTED);
  close(fd);
}

[[noreturn]] void become(const Run& run) {
  if (!run.output.empty()) {
    redirect("/dev/null", O_RDONLY, STDIN_FILENO);
    redirect(run.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    redirect("/dev/null", O_WRONLY, STDERR_FILENO);
    alarm(kPatience);
  }
  std::vector<char*> program;
  for (const std::string& word : run.program) program.push_back(const_cast<char*>(word.c_str()));
  program.push_back(nullptr);
  const struct launch wanted = {run.folder.c_str(), nullptr,
                                run.journal.empty() ? nullptr : run.journal.c_str(), nullptr,
                                program.data()};
  _exit(launch(&wanted));
}

struct RouteMark {
  const char* text;   // in the load's trace
  const char* taken;  // what the load turns to then
};

// In the order of the load.
constexpr RouteMark route_marks[] = {
    {"check nvram success", "main"},
    {"load nvram success", "backup"},  // as the trace words it where the main text fails
    {"check nvram bak success", "backup"},
    {"load default xml config", "default"},
};

std::string route_of(const fs::path& folder) {
  if (!fs::exists(folder / kTrace)) return "none";
  const std::string trace = read_file(folder / kTrace);
  std::string route;
  for (const RouteMark& mark : route_marks) {
    if (trace.find(mark.text) == std::string::npos) continue;
    if (!route.empty()) route += '>';
    route += mark.taken;
  }
  return route;
}

}  // namespace

pid_t start(const Run& run) {
  const pid_t process = fork();
  if (process < 0) throw Error("cannot start a process");
  if (process == 0) become(run);
  return process;
}

std::string ending_of(int status) {
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status)) + "\n";
  if (WEXITSTATUS(status) == 0) return "";
  return "ended with exit status " + std::to_string(WEXITSTATUS(status)) + "\n";
}

References::Lines References::lines_of(const std::string& output) {
  Lines lines;
  std::istringstream in(output);
  for (std::string line; std::getline(in, line);) lines.insert(line);
  return lines;
}

std::string References::judge(const std::string& output) const {
  if (output == old_.output) return "old";
  if (output == new_.output) return "new";
  if (output == default_.output) return "default";
  bool needs_default = false;
  for (const std::string& line : lines_of(output)) {
    if (old_.lines.count(line) || new_.lines.count(line)) continue;
    if (!default_.lines.count(line)) return "damaged";
    needs_default = true;
  }
  return needs_default ? "mixture+default" : "mixture";
}

Reboots::Reboots(const fs::path& scratch, const fs::path& factory, const std::string& command,
                 size_t slots) {
  for (size_t i = 0; i < slots; ++i) {
    const fs::path folder = scratch / std::to_string(i);
    fs::create_directory(folder);
    for (const served_file& served : served_files)
      if (!served.partition && fs::exists(factory / served.file))
        fs::copy_file(factory / served.file, folder / served.file);
    fs::remove(folder / kTrace);
    slots_.push_back(
        {{folder, {}, scratch / (std::to_string(i) + ".output"), {"sh", "-c", command}}});
  }
}

void Reboots::begin(Slot& slot, const Flash& flash) {
  fs::remove(slot.run.folder / kTrace);
  flash.store(slot.run.folder);
  slot.process = start(slot.run);
}

std::string Reboots::output_on(const Flash& flash) {
  Slot& slot = slots_.front();
  begin(slot, flash);
  int status = 0;
  waitpid(slot.process, &status, 0);
  slot.process = 0;
  return read_file(slot.run.output) + ending_of(status);
}

Reboots::Slot& Reboots::collect(const References& references) {
  int status = 0;
  const pid_t ended = wait(&status);
  Slot& slot = *std::find_if(slots_.begin(), slots_.end(),
                             [&](const Slot& one) { return one.process == ended; });
  slot.process = 0;
  *slot.answer = {references.judge(read_file(slot.run.output) + ending_of(status)),
                  route_of(slot.run.folder)};
  return slot;
}

Reboots::Slot& Reboots::free_slot(const References& references) {
  const auto free =
      std::find_if(slots_.begin(), slots_.end(), [](const Slot& one) { return !one.process; });
  return free != slots_.end() ? *free : collect(references);
}

void Reboots::start_on(const Flash& flash, const References& references, Answer* answer) {
  Slot& slot = free_slot(references);
  slot.answer = answer;
  begin(slot, flash);
}

void Reboots::finish(const References& references) {
  const auto busy = [](const Slot& one) { return one.process != 0; };
  while (std::any_of(slots_.begin(), slots_.end(), busy)) collect(references);
}

}  // namespace flashsim
