// Restarts of the host on a given flash, several at a time, and what comes back.
#ifndef FLASHSIM_REBOOT_HH
#define FLASHSIM_REBOOT_HH

#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "flash.hh"

namespace flashsim {

// A program in a flash folder of its own.
struct Run {
  std::filesystem::path folder;
  std::filesystem::path journal;  // empty: none is kept
  std::filesystem::path output;   // gets its standard output; empty: it keeps the map's streams
  std::vector<std::string> program;
};

pid_t start(const Run& run);

// How a process ended: "" for exit status 0, else a line that says it.
std::string ending_of(int status);

// What came back after a cut, and by which route of the load.
struct Answer {
  std::string outcome;
  std::string route;
  bool operator==(const Answer&) const = default;
};

// What the host prints where nothing was cut, line by line; against it a restart is judged.
class References {
 public:
  void set_old(const std::string& output) { old_ = {output, lines_of(output)}; }
  void set_new(const std::string& output) { new_ = {output, lines_of(output)}; }
  void set_default(const std::string& output) { default_ = {output, lines_of(output)}; }

  std::string judge(const std::string& output) const;

 private:
  using Lines = std::set<std::string>;
  struct Reference {
    std::string output;
    Lines lines;
  };
  static Lines lines_of(const std::string& output);
  Reference old_, new_, default_;
};

// Restarts, as many at a time as there are slots.
class Reboots {
 public:
  // Slots are folders of `scratch`; `factory` is the folder whose other served files each gets.
  Reboots(const std::filesystem::path& scratch, const std::filesystem::path& factory,
          const std::string& command, size_t slots);

  // Has `answer` filled, by finish() at the latest.
  void start_on(const Flash& flash, const References& references, Answer* answer);
  void finish(const References& references);

  // One restart by itself: all it printed.
  std::string output_on(const Flash& flash);

 private:
  struct Slot {
    Run run;
    pid_t process = 0;  // 0: free
    Answer* answer = nullptr;
  };

  void begin(Slot& slot, const Flash& flash);
  Slot& collect(const References& references);
  Slot& free_slot(const References& references);

  std::vector<Slot> slots_;
};

}  // namespace flashsim

#endif
