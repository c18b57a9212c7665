// Known text into a buffer, against the formats that put the same there.
#include "../../util/append.hh"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using qmib::append;
using qmib::append_whole;
using qmib::number;
using qmib::piece;

constexpr char kUntouched = '\x7f';

struct Buffer {
  explicit Buffer(uint32_t room)
      : text(room + 1, kUntouched), buff{text.data(), text.data(), room, room} {}
  std::string text;
  qmibtree_buff_t buff;
};

// Both write into a buffer of that room: the same result, the same bytes, the same end.
template <typename Append, typename Format>
void compare(uint32_t room, Append append_to, Format format_to) {
  Buffer one(room), other(room);
  EXPECT_EQ(append_to(&one.buff), format_to(&other.buff)) << room;
  EXPECT_EQ(one.text, other.text) << room;
  EXPECT_EQ(one.buff.pos - one.buff.start, other.buff.pos - other.buff.start) << room;
  EXPECT_EQ(one.buff.left, other.buff.left) << room;
}

std::vector<int32_t> numbers() {
  std::vector<int32_t> all = {0, -1, INT32_MAX, INT32_MIN, INT32_MIN + 1};
  for (int64_t power = 1; power < INT32_MAX; power *= 10)
    for (const int64_t near : {power - 1, power, power + 1})
      for (const int64_t some : {near, -near}) all.push_back(static_cast<int32_t>(some));
  return all;
}

TEST(Append, PutsTextAsItsFormatWouldInEveryRoom) {
  for (uint32_t room = 0; room < 12; ++room) {
    compare(
        room, [](auto* buff) { return append(buff, piece("a text")); },
        [](auto* buff) { return qmibtree_buff_dump(buff, "%s", "a text"); });
    compare(
        room, [](auto* buff) { return append(buff, "</", "name", ">\n"); },
        [](auto* buff) { return qmibtree_buff_dump(buff, "</%s>\n", "name"); });
  }
}

TEST(Append, PutsNumbersAsTheirFormatsWouldInEveryRoom) {
  for (const int32_t value : numbers())
    for (uint32_t room = 0; room < 14; ++room) {
      compare(
          room, [=](auto* buff) { return append(buff, value); },
          [=](auto* buff) { return qmibtree_buff_dump(buff, "%d", static_cast<int>(value)); });
      const auto bits = static_cast<uint32_t>(value);
      compare(
          room, [=](auto* buff) { return append(buff, bits); },
          [=](auto* buff) { return qmibtree_buff_dump(buff, "%u", static_cast<unsigned>(bits)); });
    }
}

TEST(Append, CountsWhatItWouldPut) {
  for (const int32_t value : numbers()) {
    qmibtree_buff_t one = {}, other = {};
    EXPECT_EQ(append(&one, value), QMIBTREE_RC_OK);
    EXPECT_EQ(append(&one, "<", "name", ">"), QMIBTREE_RC_OK);
    qmibtree_buff_dump(&other, "%d<name>", static_cast<int>(value));
    EXPECT_EQ(one.size, other.size);
    EXPECT_EQ(one.pos, nullptr);
  }
}

TEST(AppendWhole, PutsPartsAsTheirFormatWouldWhereTheyFit) {
  for (uint32_t room = 0; room < 20; ++room) {
    Buffer one(room), other(room);
    const bool whole = append_whole(&one.buff, piece("<"), number(-345), piece("/>"));
    const uint32_t rc = qmibtree_buff_dump(&other.buff, "<%d/>", -345);
    EXPECT_EQ(whole, !QMIBTREE_FAILED(rc)) << room;
    EXPECT_EQ(one.text, whole ? other.text : std::string(room + 1, kUntouched)) << room;
    EXPECT_EQ(one.buff.pos - one.buff.start, other.buff.pos - other.buff.start) << room;
    EXPECT_EQ(one.buff.left, other.buff.left) << room;
  }
}

TEST(AppendWhole, CountsWhatItWouldPut) {
  qmibtree_buff_t buff = {};
  EXPECT_TRUE(append_whole(&buff, piece("<"), number(uint32_t{4294967295}), piece("/>")));
  EXPECT_EQ(buff.size, 13u);
}

}  // namespace
