#include <cstring>

#include "mibtree/mibtree_internal.hh"

namespace {

// Makes `dst` a string that refers to `text`; what it held is released. `text` may be null.
void refer_to(qmibtree_value_t* dst, const char* text, bool owned) {
  qmib::qmibtree_value_release(dst);
  *dst = {};
  dst->type = QMIBTREE_TYPE_STRING;
  dst->str = text;
  dst->owned = owned;
}

}  // namespace

uint32_t qmib::qmibtree_string_assign(qmibtree_value_t* dst, const qmibtree_value_t* src) {
  refer_to(dst, src->str, false);
  return QMIBTREE_TYPE_STRING;
}

uint32_t qmib::qmibtree_string_copy(qmibtree_value_t* dst, const qmibtree_value_t* src) {
  // Before `dst` lets go of its text: `src` may refer to a part of it.
  const char* const text = qstrdup(src->str, "mib string data");
  refer_to(dst, text, text != nullptr);
  return text ? 1 : 0;
}

int qmib::qmibtree_string_equal(const qmibtree_value_t* a, const qmibtree_value_t* b) {
  if (a->str == b->str) return 1;
  if (!a->str || !b->str) return 0;
  return std::strcmp(a->str, b->str) == 0;
}

uint32_t qmib::qmibtree_string_check(const qmibtree_uidinfo_t* schema,
                                     const qmibtree_value_t* value) {
  const auto limit = static_cast<int32_t>(schema->max_len);
  if (!value->str || limit <= 0) return QMIBTREE_RC_OK;
  const bool fits = std::strlen(value->str) <= static_cast<size_t>(limit);
  return fits ? QMIBTREE_RC_OK : QMIBTREE_RC_OUT_OF_RANGE;
}

uint32_t qmib::qmibtree_string_from_str(qmibtree_value_t* dst, const char* text) {
  refer_to(dst, text, false);  // the caller's text; a later copy makes it last
  return QMIBTREE_RC_OK;
}

// Deliberate: a string without a value shows as <null>, in a saved document too, where it is not
// a text the reader accepts. Hosts tell "none" from "empty" by it in listings; give every saved
// string a default. Kept by value_string_test.cc and xml_write_test.cc.
uint32_t qmib::qmibtree_string_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff) {
  return append(buff, value->str ? piece(value->str) : piece("<null>"));
}

void qmib::qmibtree_string_release(qmibtree_value_t* value) {
  if (value->owned) qfree(const_cast<char*>(value->str));
  value->str = nullptr;
  value->owned = 0;
}
