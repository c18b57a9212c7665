#include "util/append.hh"

namespace {

size_t total_length(const qmib::piece* pieces, size_t count) {
  size_t length = 0;
  for (size_t i = 0; i < count; ++i) length += pieces[i].length();
  return length;
}

// Puts what there is room for, and a NUL behind it; the end of it.
char* put_pieces(char* to, size_t room, const qmib::piece* pieces, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const size_t length = pieces[i].length() < room ? pieces[i].length() : room;
    std::memcpy(to, pieces[i].text(), length);
    to += length;
    room -= length;
  }
  *to = '\0';
  return to;
}

}  // namespace

qmib::digits::digits(number value) : length_(value.length()) { value.put(text_); }

uint32_t qmib::append_pieces(qmibtree_buff_t* buff, const piece* pieces, size_t count) {
  const size_t length = total_length(pieces, count);
  if (!buff->pos) {  // counting
    buff->size += static_cast<uint32_t>(length);
    return QMIBTREE_RC_OK;
  }
  if (buff->left == 0) return QMIBTREE_RC_DUMP_EXCEEDED;
  char* const end = put_pieces(buff->pos, buff->left - 1, pieces, count);
  if (length >= buff->left) return QMIBTREE_RC_DUMP_EXCEEDED;
  buff->pos = end;
  buff->left -= static_cast<uint32_t>(length);
  return QMIBTREE_RC_OK;
}

uint32_t qmib::append(qmibtree_buff_t* buff, piece text) { return append_pieces(buff, &text, 1); }

uint32_t qmib::append(qmibtree_buff_t* buff, int32_t value) {
  return append(buff, digits(number(value)).get());
}

uint32_t qmib::append(qmibtree_buff_t* buff, uint32_t value) {
  return append(buff, digits(number(value)).get());
}

uint32_t qmib::append(qmibtree_buff_t* buff, const char* before, const char* text,
                      const char* after) {
  const piece pieces[] = {piece(before), piece(text), piece(after)};
  return append_pieces(buff, pieces, 3);
}
