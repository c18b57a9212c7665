#include "wear.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>

#include "flash.hh"
#include "launch.h"
#include "served.h"

namespace flashsim {
namespace {

struct Wear {
  size_t erases = 0;
  size_t opens = 0;
  size_t writes = 0;
  size_t bytes = 0;
  std::map<size_t, size_t> times;  // each byte was written

  void add(const Step& step) {
    erases += step.verb == "command";
    opens += step.verb == "open-w" || step.verb == "open-rw";
    if (step.verb != "write") return;
    ++writes;
    bytes += step.bytes.size();
    for (size_t i = 0; i < step.bytes.size(); ++i) ++times[step.offset + i];
  }

  size_t most() const {
    size_t most = 0;
    for (const auto& [offset, count] : times) most = std::max(most, count);
    return most;
  }
};

void print_wear(const char* journal) {
  std::map<std::string, Wear> wear;
  for (const Step& step : read_journal(journal)) wear[step.partition].add(step);
  std::printf("partition  erases     opens    writes     bytes  most of one byte\n");
  for (const served_file& served : served_files) {
    if (!served.partition) continue;
    const Wear& one = wear[served.partition];
    std::printf("%-9s %7zu %9zu %9zu %9zu %17zu\n", served.partition, one.erases, one.opens,
                one.writes, one.bytes, one.most());
  }
}

}  // namespace
}  // namespace flashsim

int wear_main(const char* journal) {
  try {
    flashsim::print_wear(journal);
    return 0;
  } catch (const flashsim::Error& error) {
    std::cerr << "flashsim: " << error.what() << "\n";
    return EXIT_NOT_STARTED;
  }
}
