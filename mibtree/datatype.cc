// The type table: names and operations of every type id.
#include "mibtree/mibtree_internal.hh"

using namespace qmib;  // the operations below, of value_*.cc

constexpr qmibtree_datafn_t qmib::datatype_records[kRecords] = {
    {
        .type = QMIBTREE_TYPE_INT,
        .assign = qmibtree_word_copy,
        .copy = qmibtree_word_copy,
        .equal = qmibtree_word_equal,
        .check = qmibtree_int_check,
        .from_str = qmibtree_int_from_str,
        .to_buff = qmibtree_int_to_buff,
        .release = nullptr,
    },
    {
        .type = QMIBTREE_TYPE_UINT,
        .assign = qmibtree_word_copy,
        .copy = qmibtree_word_copy,
        .equal = qmibtree_word_equal,
        .check = qmibtree_uint_check,
        .from_str = qmibtree_uint_from_str,
        .to_buff = qmibtree_uint_to_buff,
        .release = nullptr,
    },
    {
        .type = QMIBTREE_TYPE_BOOL,
        .assign = qmibtree_word_copy,
        .copy = qmibtree_word_copy,
        .equal = qmibtree_bool_equal,
        .check = nullptr,
        .from_str = qmibtree_bool_from_str,
        .to_buff = qmibtree_bool_to_buff,
        .release = nullptr,
    },
    {
        .type = QMIBTREE_TYPE_STRING,
        .assign = qmibtree_string_assign,
        .copy = qmibtree_string_copy,
        .equal = qmibtree_string_equal,
        .check = qmibtree_string_check,
        .from_str = qmibtree_string_from_str,
        .to_buff = qmibtree_string_to_buff,
        .release = qmibtree_string_release,
    },
    {
        .type = QMIBTREE_TYPE_BASE64,
        .assign = qmibtree_base64_assign,
        .copy = qmibtree_base64_copy,
        .equal = qmibtree_base64_equal,
        .check = qmibtree_base64_check,
        .from_str = qmibtree_base64_from_str,
        .to_buff = qmibtree_base64_to_buff,
        .release = qmibtree_base64_release,
    },
    {
        .type = QMIBTREE_TYPE_DATETIME,
        .assign = qmibtree_word_copy,
        .copy = qmibtree_word_copy,
        .equal = qmibtree_word_equal,
        .check = nullptr,
        .from_str = qmibtree_datetime_from_str,
        .to_buff = qmibtree_datetime_to_buff,
        .release = nullptr,
    },
    {},
};

static_assert(datatype_records[kInt].type == QMIBTREE_TYPE_INT &&
              datatype_records[kUint].type == QMIBTREE_TYPE_UINT &&
              datatype_records[kBool].type == QMIBTREE_TYPE_BOOL &&
              datatype_records[kString].type == QMIBTREE_TYPE_STRING &&
              datatype_records[kBase64].type == QMIBTREE_TYPE_BASE64 &&
              datatype_records[kDatetime].type == QMIBTREE_TYPE_DATETIME &&
              datatype_records[kEmpty].type == 0);

// By type id. Deliberate: 8, 9 and 10 are the string type under other numbers, which schemas use.
constexpr datatype qmib::datatypes[kTypes] = {
    {"unkown", kEmpty},       // 0: no value. Deliberate: spelt so; hosts match on the text.
    {"object", kEmpty},       // QMIBTREE_TYPE_OBJECT
    {"int", kInt},            // QMIBTREE_TYPE_INT
    {"unsignedInt", kUint},   // QMIBTREE_TYPE_UINT
    {"string", kString},      // QMIBTREE_TYPE_STRING
    {"datetime", kDatetime},  // QMIBTREE_TYPE_DATETIME
    {"base64", kBase64},      // QMIBTREE_TYPE_BASE64
    {"bool", kBool},          // QMIBTREE_TYPE_BOOL
    {"string", kString},      // 8
    {"string", kString},      // 9
    {"string", kString},      // 10
};
static_assert(datatypes[kTypes - 1].record == kString);

const char* qmibtree_datatype_get_type_str(uint32_t type) { return datatype_of(type).name; }

const qmibtree_datafn_t* qmibtree_datatype_get_datafn(uint32_t type) {
  return &datatype_records[datatype_of(type).record];
}

void qmib::qmibtree_value_release_owned(qmibtree_value_t* value) {
  const qmibtree_datafn_t* const fn = datafn_of(value->type);
  if (fn->release) fn->release(value);
}

void qmib::qmibtree_value_store(qmibtree_value_t* stored, const qmibtree_value_t* value,
                                qmibtree_value_t* replaced) {
  const qmibtree_datafn_t* const fn = datafn_of(value->type);
  if (!fn->copy) return;
  if (!stored->owned) {  // nothing to release, nor for `value` to refer to
    fn->copy(stored, value);
    return;
  }
  // The old value goes by its own type's release, which the whole-record copies of the fixed-size
  // types leave out; and last, for `value` may refer to its storage.
  qmibtree_value_t fresh = {};
  fn->copy(&fresh, value);
  if (replaced)
    *replaced = *stored;
  else
    qmibtree_value_release(stored);
  *stored = fresh;
}
