#include <cstring>

#include "mibtree/mibtree_internal.hh"

namespace {

// Makes `dst` a base64 value of these bytes; what it held is released. `data` may be null.
void refer_to(qmibtree_value_t* dst, const uint8_t* data, uint32_t len, bool owned) {
  qmib::qmibtree_value_release(dst);
  *dst = {};
  dst->type = QMIBTREE_TYPE_BASE64;
  dst->data = data;
  dst->len = len;
  dst->owned = owned;
}

// A new block of the value's bytes; null when it has none or memory is exhausted.
uint8_t* duplicate(const qmibtree_value_t* src) {
  if (!src->data) return nullptr;
  auto* const bytes = static_cast<uint8_t*>(qmalloc(src->len, "mib base64 data"));
  if (bytes) std::memcpy(bytes, src->data, src->len);
  return bytes;
}

}  // namespace

uint32_t qmib::qmibtree_base64_assign(qmibtree_value_t* dst, const qmibtree_value_t* src) {
  refer_to(dst, src->data, src->len, false);
  return QMIBTREE_TYPE_BASE64;
}

uint32_t qmib::qmibtree_base64_copy(qmibtree_value_t* dst, const qmibtree_value_t* src) {
  // Before `dst` lets go of its bytes: `src` may refer to a part of them.
  const uint8_t* const bytes = duplicate(src);
  refer_to(dst, bytes, bytes ? src->len : 0, bytes != nullptr);
  return bytes ? 1 : 0;
}

int qmib::qmibtree_base64_equal(const qmibtree_value_t* a, const qmibtree_value_t* b) {
  if (a->len != b->len) return 0;
  if (a->data == b->data) return 1;
  if (!a->data || !b->data) return 0;
  return std::memcmp(a->data, b->data, a->len) == 0;
}

// The limit counts decoded bytes, not characters of base64.
uint32_t qmib::qmibtree_base64_check(const qmibtree_uidinfo_t* schema,
                                     const qmibtree_value_t* value) {
  const auto limit = static_cast<int32_t>(schema->max_len);
  if (!value->data || limit <= 0) return QMIBTREE_RC_OK;
  const bool fits = value->len <= static_cast<uint32_t>(limit);
  return fits ? QMIBTREE_RC_OK : QMIBTREE_RC_OUT_OF_RANGE;
}

// Deliberate: the decoded block is not marked owned, so nobody frees it, and invalid text gives an
// empty value, not a refusal. Hosts keep the bytes beyond the value's life; one that writes base64
// text often writes values instead. Kept by value_base64_test.cc.
uint32_t qmib::qmibtree_base64_from_str(qmibtree_value_t* dst, const char* text) {
  uint32_t len = 0;
  const uint8_t* const bytes = base64_decode(text, &len);
  refer_to(dst, bytes, len, false);
  return QMIBTREE_RC_OK;
}

uint32_t qmib::qmibtree_base64_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff) {
  if (!value->data) return QMIBTREE_RC_OK;
  const owned<char> text(base64_encode(value->data, value->len));
  return append(buff, text ? piece(text.get()) : piece("<null>"));
}

void qmib::qmibtree_base64_release(qmibtree_value_t* value) {
  if (value->owned) qfree(const_cast<uint8_t*>(value->data));
  value->data = nullptr;
  value->len = 0;
  value->owned = 0;
}
