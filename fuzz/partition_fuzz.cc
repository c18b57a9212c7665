// Two partitions and a factory default from anywhere, through the start of a gateway: which of them
// is loaded, what the tree holds then, and what the partitions hold. Input: which devices are there
// and how long they are, the length of the main one's bytes, these, the backup's.
#include "bytes.hh"
#include "flash_files.hh"
#include "plain.hh"
#include "small_tree.hh"

using namespace qmibtree_testkit;
using namespace flash_files;

namespace {

constexpr char kDefaults[] = "<A.><PARAM name=\"s\">default</PARAM></A.>";

enum Choice : uint8_t {
  kNoMain = 1,
  kNoBackup = 2,
  kNoDefault = 4,
  kMainEnds = 8,
  kBackupEnds = 16
};

std::optional<std::string> device(bool missing, bool ends, const std::string& bytes) {
  if (missing) return {};
  return device_of(bytes, ends ? bytes.size() : kPartitionSize);
}

// The text of `length` bytes behind a header, zeros where the device ends before; 0: to its end.
std::string text_of(const std::string& device, uint32_t length) {
  std::string text = device.size() < 8 ? "" : device.substr(8);
  if (length > 0) text.resize(length);
  return text.c_str();
}

// A start by the rules of the formats, on a tree of its own.
struct Start {
  Tree tree{small_tree::schema()};
  std::string trace;
  bool from_partition;

  explicit Start(const Flash& at_first) {
    small_tree::host().dynamic = small_tree::kDynamicAtFirst;
    from_partition = load_partition(at_first);
    trace += from_partition ? "\n -- write config and bak file --\n"
                            : "\n -- load default xml config --\n";
    if (!from_partition && at_first.defaults) load_document(tree.inst, *at_first.defaults);
  }

 private:
  bool load(const std::optional<std::string>& device, uint32_t length) {
    return device && load_document(tree.inst, ::text_of(*device, length)) == QMIBTREE_RC_OK;
  }
  bool load_partition(const Flash& at_first) {
    if (const auto length = length_of(at_first.main)) {
      trace += "\n -- check nvram success --\n";
      if (load(at_first.main, *length)) return true;
      trace += "\n -- load nvram success --\n";
      return load(at_first.backup, *length);  // by the main header's length
    }
    trace += "\n -- check nvram faild --\n";
    const auto length = length_of(at_first.backup);
    trace += length ? "\n -- check nvram bak success --\n" : "\n -- check nvram bak faild --\n";
    return length && load(at_first.backup, *length);
  }
};

void check_device(const std::optional<std::string>& device,
                  const std::optional<std::string>& at_first, const std::string& image) {
  FUZZ_CHECK(!device == !at_first);
  if (device) FUZZ_CHECK(*device == written_over(*at_first, image));
}

void check_saved(const Flash& at_first, const std::string& document) {
  const std::string image = image_of(document);
  check_device(flash().main, at_first.main, image);
  check_device(flash().backup, at_first.backup, image);
  size_t too_short = 0;
  for (const auto* device : {&at_first.main, &at_first.backup})
    too_short += *device && (*device)->size() < image.size();
  FUZZ_CHECK(close_streams() <= too_short);
}

void check_untouched(const Flash& at_first) {
  FUZZ_CHECK(flash().main == at_first.main && flash().backup == at_first.backup);
  FUZZ_CHECK(close_streams() == 0);
}

void check_start(const Flash& at_first) {
  const Start expected(at_first);
  const std::string document = document_of(expected.tree.inst);
  small_tree::host().dynamic = small_tree::kDynamicAtFirst;
  Tree tree(small_tree::schema());
  FUZZ_CHECK(qmibtree_check_nvram() == (length_of(at_first.main).value_or(0) > 0));
  FUZZ_CHECK(qmibtree_load_config(tree.inst) == 0);
  FUZZ_CHECK(flash().trace == expected.trace && flash().commands.empty());
  FUZZ_CHECK(flash().defaults == at_first.defaults);
  FUZZ_CHECK(document_of(tree.inst) == document);
  if (expected.from_partition)
    check_saved(at_first, document);
  else
    check_untouched(at_first);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const small_tree::Run run;
  Bytes bytes(data, size);
  const uint8_t choice = bytes.byte();
  const size_t length = bytes.byte() * 256u + bytes.byte();
  const std::string main = bytes.take(length), backup = bytes.rest();
  flash() = {};
  flash().main = device(choice & kNoMain, choice & kMainEnds, main);
  flash().backup = device(choice & kNoBackup, choice & kBackupEnds, backup);
  if (!(choice & kNoDefault)) flash().defaults = kDefaults;
  const Flash at_first = flash();
  check_start(at_first);
  return 0;
}
