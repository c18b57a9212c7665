#include "map.h"

#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <thread>
#include <unordered_map>

#include "flash.hh"
#include "launch.h"
#include "reboot.hh"
#include "served.h"

namespace flashsim {
namespace {

namespace fs = std::filesystem;

constexpr char kUsage[] =
    "usage: flashsim map --dir DIR --reboot COMMAND [--print runs|cuts|steps] [--steps]\n"
    "                    [--keep FOLDER] [--jobs N] -- PROGRAM [ARGUMENT...]\n";

constexpr char kHelp[] =
    "Cuts the power at every moment of PROGRAM, an operation on the flash in DIR, and tells\n"
    "what COMMAND, the host's next start, then comes up with. DIR stays as it is.\n"
    "\n"
    "PROGRAM runs once, whole, on a copy of DIR; its steps on the partitions are recorded. Then\n"
    "the flash is made as it was before each step and within each write and erase, byte by\n"
    "byte, and COMMAND (a line for the shell) runs on each flash that differs. Files outside\n"
    "the partitions do not outlive a cut; DIR's default-conf.xml is there each time.\n"
    "\n"
    "COMMAND prints its configuration, one value a line, the same for the same configuration;\n"
    "its standard error is discarded, and it is stopped after a minute. By its output an\n"
    "outcome is\n"
    "  old              as before PROGRAM\n"
    "  new              as after it\n"
    "  default          as with both partitions erased\n"
    "  mixture          only lines that old or new have, but neither of them\n"
    "  mixture+default  such lines, and some that only the default has\n"
    "  damaged          some line that none of them has\n"
    "and its route, by the trace of the load: main, backup, default, or one after the other\n"
    "where the first did not load; none without a trace.\n"
    "\n"
    "  --print runs     a row for cuts in a row with the same outcome and route (the default)\n"
    "  --print cuts     a line for each cut: step, verb, partition, offset, outcome, route,\n"
    "                   with tabs between\n"
    "  --print steps    a row for each outcome and route of a step, with the number of its cuts;\n"
    "                   steps in a row that have but one, the same, share theirs\n"
    "  --steps          cut between steps only, not within them\n"
    "  --keep FOLDER    keep the flash of the first cut of each row that is neither old nor new\n"
    "                   in FOLDER/STEP-OFFSET, to run with 'flashsim --dir'\n"
    "  --jobs N         run N at a time; one for each processor by default\n"
    "\n"
    "A cut is named by the step it comes before; within one, the offset is that of the first\n"
    "byte that did not make it.\n"
    "\n"
    "Exit status: 0 when old or new came back from every cut, 1 when not, 2 for wrong usage,\n"
    "127 when there is no map.\n"
    "\n"
    "Example: flashsim map --dir flash --reboot './gateway show' -- ./gateway save\n";

struct Options {
  std::string dir;
  std::string reboot;
  std::string print = "runs";
  std::string keep;
  size_t jobs = std::max(1u, std::thread::hardware_concurrency());
  bool steps_only = false;
  std::vector<std::string> program;
};

// A folder that goes with its owner, in memory where the machine has such.
class Scratch {
 public:
  Scratch() {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path();
    pattern += "/flashsim-map.XXXXXX";
    if (!mkdtemp(pattern.data())) throw Error(pattern + ": cannot be made");
    path_ = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// --- the cuts ---

struct Cut {
  size_t step;
  size_t done;  // bytes of the step
  const Answer* answer = nullptr;
};

// The flash at each cut, one after the other.
template <typename Visit>
void replay(Flash& flash, const std::vector<Step>& steps, bool steps_only, Visit visit) {
  for (size_t i = 0; i < steps.size(); ++i) {
    const Step& step = steps[i];
    visit(Cut{i, 0});
    for (size_t done = 0; done < step.bytes.size(); ++done) {
      if (done > 0 && !steps_only) visit(Cut{i, done});
      flash.program(step.partition, step.offset + done, step.bytes[done]);
    }
  }
  visit(Cut{steps.size(), 0});
}

// --- what is printed ---

class Table {
 public:
  Table(const std::vector<Step>& steps, const std::vector<Cut>& cuts)
      : steps_(steps), cuts_(cuts) {}

  void print(const std::string& what) const {
    if (what == "cuts") {
      for (const Cut& cut : cuts_) print_cut(cut);
    } else if (what == "steps") {
      print_steps();
    } else {
      print_runs();
    }
  }

  size_t offset(const Cut& cut) const {
    return cut.step < steps_.size() ? steps_[cut.step].offset + cut.done : 0;
  }

  // The first cut of each run of the same answer.
  std::vector<const Cut*> runs() const {
    std::vector<const Cut*> first;
    for (const Cut& cut : cuts_)
      if (first.empty() || !(*cut.answer == *first.back()->answer)) first.push_back(&cut);
    return first;
  }

 private:
  void print_cut(const Cut& cut) const {
    const bool at_end = cut.step == steps_.size();
    std::printf("%zu\t%s\t%s\t%zu\t%s\t%s\n", cut.step + 1,
                at_end ? "end" : steps_[cut.step].verb.c_str(),
                at_end ? "-" : steps_[cut.step].partition.c_str(), offset(cut),
                cut.answer->outcome.c_str(), cut.answer->route.c_str());
  }

  std::string label(const Cut& cut) const {
    const std::string number = std::to_string(cut.step + 1) + " ";
    if (cut.step == steps_.size()) return number + "end";
    const Step& step = steps_[cut.step];
    std::string text = number + step.verb + " " + step.partition;
    if (!step.bytes.empty() || step.verb == "seek") text += " " + std::to_string(offset(cut));
    return text;
  }

  void print_row(size_t count, const Cut& from, const Cut& to) const {
    std::printf("%7zu  %-26s  %-26s  %-15s  %s\n", count, label(from).c_str(), label(to).c_str(),
                from.answer->outcome.c_str(), from.answer->route.c_str());
  }

  static void print_head() {
    std::printf("%7s  %-26s  %-26s  %-15s  %s\n", "cuts", "first", "last", "outcome", "route");
  }

  void print_runs() const {
    print_head();
    std::vector<const Cut*> first = runs();
    first.push_back(cuts_.data() + cuts_.size());
    for (size_t i = 0; i + 1 < first.size(); ++i)
      print_row(static_cast<size_t>(first[i + 1] - first[i]), *first[i], first[i + 1][-1]);
  }

  // Cuts with the same answer, of one step or of several that have no other.
  struct Row {
    const Cut* first;
    const Cut* last;
    size_t count;
  };

  // In the order of their first cuts.
  std::vector<Row> rows_of_steps() const {
    std::vector<Row> rows;
    for (const Cut& cut : cuts_) {
      const auto same = [&](const Row& row) {
        return row.first->step == cut.step && *row.first->answer == *cut.answer;
      };
      const auto found = std::find_if(rows.begin(), rows.end(), same);
      if (found == rows.end()) {
        rows.push_back({&cut, &cut, 1});
      } else {
        found->last = &cut;
        ++found->count;
      }
    }
    return rows;
  }

  void print_steps() const {
    const std::vector<Row> rows = rows_of_steps();
    std::map<size_t, size_t> answers;  // of each step
    for (const Row& row : rows) ++answers[row.first->step];
    std::vector<Row> merged;
    for (const Row& row : rows) {
      const bool joins = !merged.empty() && *merged.back().first->answer == *row.first->answer &&
                         answers[merged.back().last->step] == 1 && answers[row.first->step] == 1;
      if (!joins) {
        merged.push_back(row);
      } else {
        merged.back().last = row.last;
        merged.back().count += row.count;
      }
    }
    print_head();
    for (const Row& row : merged) print_row(row.count, *row.first, *row.last);
  }

  const std::vector<Step>& steps_;
  const std::vector<Cut>& cuts_;
};

// --- the map ---

void copy_flash(const fs::path& from, const fs::path& to) {
  if (!fs::is_directory(from)) throw Error(from.string() + ": no folder");
  fs::create_directory(to);
  for (const served_file& served : served_files)
    if (fs::exists(from / served.file)) fs::copy_file(from / served.file, to / served.file);
}

void run_whole(const Run& run, const std::string& what) {
  int status = 0;
  waitpid(start(run), &status, 0);
  const std::string ending = ending_of(status);
  if (!ending.empty()) throw Error(what + " " + ending.substr(0, ending.size() - 1));
}

class Map {
 public:
  explicit Map(const Options& options)
      : options_(options), operation_(scratch_.path() / "operation") {
    copy_flash(options.dir, operation_);
    run_whole({operation_, {}, {}, {"true"}}, "the launcher");  // makes partitions where none are
  }

  // Whether only old and new came back.
  bool make() {
    Flash flash(operation_);
    const Flash before = flash;
    const fs::path journal = scratch_.path() / "journal";
    run_whole({operation_, journal, scratch_.path() / "operation.output", options_.program},
              options_.program[0]);
    steps_ = read_journal(journal);
    try_cuts(flash);
    if (flash.key() != Flash(operation_).key())
      throw Error("the recorded steps do not lead to the flash that '" + options_.program[0] +
                  "' left");
    const Table table(steps_, cuts_);
    table.print(options_.print);
    if (options_.print != "cuts")
      std::printf("%zu cuts, %zu different flashes\n", cuts_.size(), answers_.size());
    if (!options_.keep.empty()) keep(before, table);
    return std::all_of(cuts_.begin(), cuts_.end(), is_whole);
  }

 private:
  static bool is_whole(const Cut& cut) {
    return cut.answer->outcome == "old" || cut.answer->outcome == "new";
  }

  void try_cuts(Flash& flash) {
    Reboots reboots(scratch_.path(), options_.dir, options_.reboot, options_.jobs);
    References references;
    references.set_old(reboots.output_on(flash));
    references.set_new(reboots.output_on(Flash(operation_)));
    Flash erased = flash;
    erased.erase();
    references.set_default(reboots.output_on(erased));
    replay(flash, steps_, options_.steps_only, [&](Cut cut) {
      const auto [found, is_first] = answers_.try_emplace(flash.key());
      cut.answer = &found->second;  // stays where it is as others are added
      cuts_.push_back(cut);
      if (is_first) reboots.start_on(flash, references, &found->second);
    });
    reboots.finish(references);
  }

  void keep(Flash flash, const Table& table) const {
    std::set<std::pair<size_t, size_t>> wanted;
    for (const Cut* cut : table.runs())
      if (!is_whole(*cut)) wanted.emplace(cut->step, cut->done);
    replay(flash, steps_, options_.steps_only, [&](const Cut& cut) {
      if (!wanted.count({cut.step, cut.done})) return;
      const fs::path folder = fs::path(options_.keep) / (std::to_string(cut.step + 1) + "-" +
                                                         std::to_string(table.offset(cut)));
      fs::create_directories(folder);
      flash.store(folder);
      const fs::path factory = fs::path(options_.dir) / "default-conf.xml";
      if (fs::exists(factory))
        fs::copy_file(factory, folder / factory.filename(), fs::copy_options::overwrite_existing);
    });
  }

  const Options& options_;
  Scratch scratch_;
  fs::path operation_;
  std::vector<Step> steps_;
  std::vector<Cut> cuts_;
  std::unordered_map<uint64_t, Answer> answers_;
};

// --- the command line ---

int refuse(const std::string& why) {
  std::cerr << "flashsim map: " << why << "\n" << kUsage << "Try 'flashsim map --help'.\n";
  return EXIT_USAGE;
}

int make_map(const Options& options) {
  try {
    return Map(options).make() ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "flashsim: " << error.what() << "\n";
    return EXIT_NOT_STARTED;
  }
}

}  // namespace
}  // namespace flashsim

int map_main(int count, char** arguments) {
  static const option known[] = {
      {"dir", required_argument, nullptr, 'd'},   {"reboot", required_argument, nullptr, 'r'},
      {"print", required_argument, nullptr, 'p'}, {"steps", no_argument, nullptr, 's'},
      {"keep", required_argument, nullptr, 'k'},  {"jobs", required_argument, nullptr, 'j'},
      {"help", no_argument, nullptr, 'h'},        {}};
  flashsim::Options options;
  const std::map<int, std::string*> texts = {
      {'d', &options.dir}, {'r', &options.reboot}, {'p', &options.print}, {'k', &options.keep}};
  for (int one; (one = getopt_long(count, arguments, "+:", known, nullptr)) != -1;) {
    if (one == 'h') return std::printf("%s%s", flashsim::kUsage, flashsim::kHelp) < 0;
    if (const auto text = texts.find(one); text != texts.end()) {
      *text->second = optarg;
    } else if (one == 's') {
      options.steps_only = true;
    } else if (one == 'j') {
      options.jobs = std::strtoul(optarg, nullptr, 10);
    } else {
      return flashsim::refuse("unknown option, or one without its value: '" +
                              std::string(arguments[optind - 1]) + "'");
    }
  }
  options.program.assign(arguments + optind, arguments + count);
  if (options.dir.empty()) return flashsim::refuse("--dir is missing: which flash?");
  if (options.reboot.empty()) return flashsim::refuse("--reboot is missing: how does it start?");
  if (options.program.empty()) return flashsim::refuse("which program should run?");
  if (options.jobs < 1 || options.jobs > 1024) return flashsim::refuse("--jobs is 1 to 1024");
  if (options.print != "runs" && options.print != "cuts" && options.print != "steps")
    return flashsim::refuse("--print is runs, cuts or steps");
  return flashsim::make_map(options);
}
