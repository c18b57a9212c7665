// Rendering into a text buffer: counted, and written into room of every small size.
#pragma once
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "input.hh"
#include "qmibtree.h"

// `fill` appends `expected` to a buffer with one call of qmibtree_buff_dump: `room` bytes hold the
// whole of it, or as much of its front as fits.
template <typename Fill>
void check_room(const std::string& expected, uint32_t room, Fill fill) {
  const auto storage = std::make_unique<char[]>(room);
  std::fill_n(storage.get(), room, '\x7f');
  qmibtree_buff_t buff = {storage.get(), storage.get(), room, room};
  const bool fits = expected.size() < room;
  FUZZ_CHECK(fill(&buff) == (fits ? QMIBTREE_RC_OK : QMIBTREE_RC_DUMP_EXCEEDED));
  const size_t taken = fits ? expected.size() : 0;
  FUZZ_CHECK(buff.start == storage.get() && buff.pos == buff.start + taken);
  FUZZ_CHECK(buff.size == room && buff.left == room - taken);
  if (room == 0) return;
  const size_t there = std::min<size_t>(expected.size(), room - 1);
  FUZZ_CHECK(std::memcmp(buff.start, expected.data(), there) == 0 && buff.start[there] == '\0');
  for (size_t i = there + 1; i < room; ++i) FUZZ_CHECK(buff.start[i] == '\x7f');
}

template <typename Fill>
void check_every_size(const std::string& expected, Fill fill) {
  constexpr uint32_t kSmall = 48;
  qmibtree_buff_t counted = {};
  FUZZ_CHECK(fill(&counted) == QMIBTREE_RC_OK);
  FUZZ_CHECK(counted.size == expected.size() && !counted.start && !counted.pos && !counted.left);
  const auto size = static_cast<uint32_t>(expected.size());
  for (uint32_t room = 0; room < std::min(size, kSmall); ++room) check_room(expected, room, fill);
  for (uint32_t room = size; room <= size + 2; ++room) check_room(expected, room, fill);
}
