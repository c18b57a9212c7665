// A lock file from anywhere: it comes back as it is rendered, and the ids that it leads to keep it.
#include <set>

#include "error.hh"
#include "input.hh"
#include "model.hh"
#include "small_model.hh"

namespace {

void check_ids(mibctl::Model& model, const mibctl::Lock& before) {
  mibctl::Lock after = before;
  mibctl::assign_ids(model, after);
  for (const auto& [path, uid] : before.ids) FUZZ_CHECK(after.ids.at(path) == uid);
  std::set<uint32_t> given;
  for (const auto& [path, uid] : after.ids) FUZZ_CHECK(given.insert(uid).second);
  mibctl::for_each(*model.root, [&](const mibctl::Entry& entry) {
    FUZZ_CHECK(after.ids.at(entry.path()) == entry.uid);
  });
  FUZZ_CHECK(*given.rbegin() < mibctl::kMaxIds && model.root->uid == 0);
  FUZZ_CHECK(mibctl::parse_lock("again", mibctl::render_lock(model, after)) == after);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mibctl::Model model = small_model();
  try {
    const mibctl::Lock lock =
        mibctl::parse_lock("input", {reinterpret_cast<const char*>(data), size});
    FUZZ_CHECK(mibctl::parse_lock("again", mibctl::render_lock(model, lock)) == lock);
    check_ids(model, lock);
  } catch (const mibctl::Error&) {
  }
  return 0;
}
