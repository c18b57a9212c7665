// A dump of a partition, or an upgrade file, from anywhere.
#include "error.hh"
#include "image.hh"
#include "input.hh"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const mibctl::Image image = mibctl::parse_image(bytes);
  FUZZ_CHECK(image.text.size() <= mibctl::kMaxDocument);
  if (image.valid() && !image.truncated)
    FUZZ_CHECK(mibctl::parse_image(mibctl::make_image("input", image.text)).text == image.text);
  try {
    const std::string payload = mibctl::parse_upgrade("input", bytes);
    FUZZ_CHECK(mibctl::parse_upgrade("again", mibctl::make_upgrade(payload)) == payload);
  } catch (const mibctl::Error&) {
  }
  return 0;
}
