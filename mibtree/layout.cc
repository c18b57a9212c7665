// What hosts rely on about the records' layout. Hosts fill schema records in their own code, some
// of it generated, and the library indexes them: a field that moves breaks every host in the field.
#include <cstddef>

#include "qmibtree.h"

namespace {

// On a 32-bit target a field sits at a given word; elsewhere the order alone is fixed.
constexpr bool at_word(size_t offset, size_t word) {
  return sizeof(void*) != 4 || offset == word * 4;
}

static_assert(at_word(sizeof(qmibtree_uidinfo_t), 28));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, uid), 0));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, next_uid), 1));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, child_uid), 2));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, name), 3));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, reserved1), 4));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, type), 5));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, flags), 6));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, arg), 7));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, defval), 8));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, max_len), 9));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, int_min), 10));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, int_max), 11));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, uint_min), 12));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, uint_max), 13));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, reserved2), 14));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, comp), 15));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, create_fn), 16));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, destroy_fn), 17));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, set_fn), 18));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, get_fn), 19));
static_assert(at_word(offsetof(qmibtree_uidinfo_t, ext_fn), 20));

static_assert(at_word(sizeof(qmibtree_value_t), 4));
static_assert(at_word(offsetof(qmibtree_value_t, str), 1));
static_assert(at_word(offsetof(qmibtree_value_t, len), 2));
static_assert(at_word(offsetof(qmibtree_value_t, owned), 3));

static_assert(at_word(sizeof(qmibtree_inst_t), 8));
static_assert(at_word(sizeof(qmibtree_datafn_t), 8));
static_assert(at_word(sizeof(qmibtree_buff_t), 4));

// The schema block, and an index, are a header and what follows it without a gap.
static_assert(sizeof(qmibtree_schema_t) == offsetof(qmibtree_schema_t, uidinfo));
static_assert(offsetof(qmibtree_schema_t, uidinfo) == 8);
static_assert(sizeof(qmibtree_hash_t) == offsetof(qmibtree_hash_t, buckets));
using two_records = QMIBTREE_SCHEMA_BLOCK(2);
static_assert(offsetof(two_records, uidinfo) == offsetof(qmibtree_schema_t, uidinfo));

}  // namespace
