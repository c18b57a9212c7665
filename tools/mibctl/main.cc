// mibctl: models, configurations and partition images from the command line.
#include <csignal>
#include <cstdio>

#include "program.hh"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_DFL);  // "mibctl show | head" ends quietly
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error like a full disk
  const int status = mibctl::run(argc, argv);
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return status;
  std::perror("mibctl: standard output");
  return static_cast<int>(mibctl::Status::storage);
}
