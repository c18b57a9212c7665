// Runs a fuzz target once over each file named, and over each file of each folder named: the tests
// do so with the corpora, with any compiler.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "input.hh"

namespace {

namespace fs = std::filesystem;

int inputs;

void replay(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
  std::fprintf(stderr, "%s\n", file.c_str());  // the last one named is the one that crashed
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  ++inputs;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      replay(argv[i]);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) replay(entry.path());
  }
  std::printf("%d inputs\n", inputs);
  return inputs ? 0 : 1;
}
