// A data-model document from anywhere: a clear error, or a model whose tree can be built.
#include "error.hh"
#include "input.hh"
#include "model.hh"
#include "tree.hh"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const InputFile file(data, size);
  try {
    mibctl::Model model = mibctl::read_model({file.path()});
    mibctl::complete(model);
    mibctl::Lock lock;
    mibctl::assign_ids(model, lock);
    FUZZ_CHECK(mibctl::count_entries(*model.root) == lock.ids.size());
    FUZZ_CHECK(!mibctl::generate(model).source.empty());
    const mibctl::Tree tree(model);
    FUZZ_CHECK(tree.inst()->root);
  } catch (const mibctl::Error&) {
  }
  return 0;
}
