// The whole program but for its process: what a command line does, and the status it ends with.
#pragma once
#include "error.hh"

namespace mibctl {

// Runs one command line; errors go to standard error as "name: text (detail)".
int run(int argc, const char* const* argv);

}  // namespace mibctl
