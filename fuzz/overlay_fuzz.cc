// An overlay from anywhere, on a small model.
#include "error.hh"
#include "input.hh"
#include "model.hh"
#include "small_model.hh"
#include "tree.hh"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const InputFile file(data, size);
  try {
    mibctl::Model model = small_model();
    mibctl::apply_overlay(model, file.path());
    mibctl::complete(model);
    mibctl::Lock lock;
    mibctl::assign_ids(model, lock);
    const mibctl::Tree tree(model);
    FUZZ_CHECK(tree.inst()->root);
  } catch (const mibctl::Error&) {
  }
  return 0;
}
