// The text buffer alone: texts and numbers of every format that the library uses, appended one
// after the other. Input: the room there is, then pieces: a byte for the format, and what it
// formats.
#include <functional>

#include "bytes.hh"
#include "every_size.hh"

namespace {

// A piece of text, and the call that appends it.
struct Piece {
  std::string text;
  std::function<uint32_t(qmibtree_buff_t*)> append;
};

Piece piece_of(Bytes& bytes) {
  switch (bytes.below(7)) {
    case 0: {
      const std::string text = bytes.text();
      return {text,
              [=](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "%s", text.c_str()); }};
    }
    case 1: {
      const auto number = static_cast<int>(bytes.word());
      return {std::to_string(number),
              [=](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "%d", number); }};
    }
    case 2: {
      const auto number = static_cast<unsigned>(bytes.word());
      return {std::to_string(number),
              [=](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "%u", number); }};
    }
    case 3: {
      const int width = bytes.byte();
      return {"\n" + std::string(static_cast<size_t>(width), ' '),
              [=](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "\n%*s", width, ""); }};
    }
    case 4: {
      const std::string name = bytes.text();
      const auto number = static_cast<int>(bytes.word());
      return {"<" + name + " instance=\"" + std::to_string(number) + "\">\n",
              [=](qmibtree_buff_t* buff) {
                return qmibtree_buff_dump(buff, "<%s instance=\"%d\">\n", name.c_str(), number);
              }};
    }
    case 5: {
      const std::string name = bytes.text(), type = bytes.text();
      return {name + " (" + type + ") = ", [=](qmibtree_buff_t* buff) {
                return qmibtree_buff_dump(buff, "%s (%s) = ", name.c_str(), type.c_str());
              }};
    }
    default:
      return {"", [](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "%s", ""); }};
  }
}

// A buffer that is written to, and all that was appended to it with success.
struct Written {
  std::string storage, text;
  qmibtree_buff_t buff;

  explicit Written(uint32_t room) : storage(room, '\x7f') {
    buff = {storage.data(), storage.data(), room, room};
  }
  void append(const Piece& piece) {
    const bool fits = piece.text.size() < buff.left;
    const uint32_t left = buff.left;
    FUZZ_CHECK(piece.append(&buff) == (fits ? QMIBTREE_RC_OK : QMIBTREE_RC_DUMP_EXCEEDED));
    std::string seen = text;
    if (fits)
      seen = text += piece.text;
    else if (left > 0)
      seen += piece.text.substr(0, left - 1);
    FUZZ_CHECK(buff.left == buff.size - text.size() && buff.size == storage.size());
    FUZZ_CHECK(buff.start == storage.data() && buff.pos == buff.start + text.size());
    if (buff.size > 0) FUZZ_CHECK(storage.c_str() == seen);
  }
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Written written(bytes.byte());
  qmibtree_buff_t counted = {};
  uint32_t total = 0;
  while (bytes.left()) {
    const Piece piece = piece_of(bytes);
    check_every_size(piece.text, piece.append);
    written.append(piece);
    total += static_cast<uint32_t>(piece.text.size());
    FUZZ_CHECK(piece.append(&counted) == QMIBTREE_RC_OK && counted.size == total);
  }
  return 0;
}
