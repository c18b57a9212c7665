// int, unsignedInt and bool; datetime shares the copies and the comparison.
#include <cstring>

#include "mibtree/mibtree_internal.hh"
#include "util/decimal.hh"

namespace {

// A fresh value of `type`, whatever `dst` held.
void renew(qmibtree_value_t* dst, uint32_t type) {
  qmib::qmibtree_value_release(dst);
  *dst = {};
  dst->type = type;
}

struct bool_word {
  char text[6];
  uint8_t b;
};

constexpr bool_word bool_words[] = {{"true", 1}, {"1", 1}, {"0", 0}, {"false", 0}};

}  // namespace

uint32_t qmib::qmibtree_word_copy(qmibtree_value_t* dst, const qmibtree_value_t* src) {
  *dst = *src;
  return QMIBTREE_RC_OK;
}

int qmib::qmibtree_word_equal(const qmibtree_value_t* a, const qmibtree_value_t* b) {
  return a->u == b->u;
}

uint32_t qmib::qmibtree_int_check(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value) {
  const bool fits = value->i >= schema->int_min && value->i <= schema->int_max;
  return fits ? QMIBTREE_RC_OK : QMIBTREE_RC_OUT_OF_RANGE;
}

uint32_t qmib::qmibtree_int_from_str(qmibtree_value_t* dst, const char* text) {
  const uint32_t number = decimal(text);
  renew(dst, QMIBTREE_TYPE_INT);
  dst->i = static_cast<int32_t>(number);
  return QMIBTREE_RC_OK;
}

uint32_t qmib::qmibtree_int_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff) {
  return append(buff, value->i);
}

uint32_t qmib::qmibtree_uint_check(const qmibtree_uidinfo_t* schema,
                                   const qmibtree_value_t* value) {
  const bool fits = value->u >= schema->uint_min && value->u <= schema->uint_max;
  return fits ? QMIBTREE_RC_OK : QMIBTREE_RC_OUT_OF_RANGE;
}

// Deliberate: the same signed parse as int, so "-1" is 4294967295; it is the bounds that refuse.
// Hosts write "-1" for "as high as it goes". Kept by value_scalar_test.cc.
uint32_t qmib::qmibtree_uint_from_str(qmibtree_value_t* dst, const char* text) {
  const uint32_t number = decimal(text);
  renew(dst, QMIBTREE_TYPE_UINT);
  dst->u = number;
  return QMIBTREE_RC_OK;
}

uint32_t qmib::qmibtree_uint_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff) {
  return append(buff, value->u);
}

int qmib::qmibtree_bool_equal(const qmibtree_value_t* a, const qmibtree_value_t* b) {
  return a->b == b->b;
}

uint32_t qmib::qmibtree_bool_from_str(qmibtree_value_t* dst, const char* text) {
  for (const bool_word& word : bool_words) {
    if (std::strcmp(text, word.text) != 0) continue;
    renew(dst, QMIBTREE_TYPE_BOOL);
    dst->b = word.b;
    return QMIBTREE_RC_OK;
  }
  return QMIBTREE_RC_ERROR;
}

uint32_t qmib::qmibtree_bool_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff) {
  return append(buff, value->b ? piece("true") : piece("false"));
}
