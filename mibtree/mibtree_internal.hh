// What the sources of the tree share and no other folder includes.
#ifndef MIBTREE_MIBTREE_INTERNAL_HH
#define MIBTREE_MIBTREE_INTERNAL_HH

#include <cstdio>

#include "qmibtree.h"
#include "util/append.hh"
#include "util/owned.hh"
#include "util/rules.hh"

namespace qmib {

// A full name joined of two pieces, cut to 511 characters.
class joined_name {
 public:
  joined_name(const char* prefix, const char* suffix) {
    std::snprintf(text_, sizeof text_, "%s%s", prefix, suffix);
  }
  const char* get() const { return text_; }

 private:
  char text_[512];
};

// An instance's own segment. Deliberate: four characters at most, so from 1000 on the name loses
// its dot ("1000", and "1234" for 12345). Stored configurations carry such names; kept by
// node_test.cc.
class instance_name {
 public:
  explicit instance_name(uint32_t instance);
  const char* text() const { return text_; }
  const char* end() const { return text_ + length_; }

 private:
  char text_[13];  // "-2147483648."
  size_t length_;
};

// Runs `operation` on the node of a full name.
template <typename Operation>
uint32_t on_named_node(qmibtree_inst_t* inst, const char* name, Operation operation) {
  qmibtree_node* const node = qmibtree_find_node_by_name(inst, name);
  return node ? operation(node) : QMIBTREE_RC_NOT_FOUND;
}

// The same, where a null name means the root, which is not there yet while the tree is built.
template <typename Operation>
uint32_t on_named_node_or_root(qmibtree_inst_t* inst, const char* name, Operation operation) {
  qmibtree_node* const node = name ? qmibtree_find_node_by_name(inst, name) : inst->root;
  return node ? operation(node) : QMIBTREE_RC_NOT_FOUND;
}

// The type table: a name and a record of operations for each type id.
enum datatype_record : uint8_t {
  kInt,
  kUint,
  kBool,
  kString,
  kBase64,
  kDatetime,
  kEmpty,
  kRecords
};
struct datatype {
  char name[12];  // in place: a table of pointers would need relocating at load
  datatype_record record;
};
constexpr uint32_t kTypes = 11;
extern const datatype datatypes[kTypes];
extern const qmibtree_datafn_t datatype_records[kRecords];

inline const datatype& datatype_of(uint32_t type) { return datatypes[type < kTypes ? type : 0]; }

// qmibtree_datatype_get_datafn, without the call where the build is not for size: several are made
// for each node.
inline const qmibtree_datafn_t* datafn_of(uint32_t type) {
#ifdef __OPTIMIZE_SIZE__
  return qmibtree_datatype_get_datafn(type);
#else
  return &datatype_records[datatype_of(type).record];
#endif
}

// Of a value that is overwritten or goes: one that owns nothing stays as it is.
void qmibtree_value_release_owned(qmibtree_value_t* value);
inline void qmibtree_value_release(qmibtree_value_t* value) {
  if (value->owned != 0) qmibtree_value_release_owned(value);
}

// True when both have the same type and that type finds them equal.
inline bool qmibtree_value_same(const qmibtree_value_t* a, const qmibtree_value_t* b) {
  if (a->type != b->type) return false;
  const qmibtree_datafn_t* const fn = datafn_of(a->type);
  return fn->equal && fn->equal(a, b) != 0;
}

// Replaces a value of a node by a deep copy of `value`; leaves it where there is nothing to copy.
// What it held is released, or moved to `replaced` where that is given and it owned something.
void qmibtree_value_store(qmibtree_value_t* stored, const qmibtree_value_t* value,
                          qmibtree_value_t* replaced = nullptr);

// A local value, released by its own type.
class temp_value {
 public:
  explicit temp_value(uint32_t type = 0) { value_.type = type; }
  ~temp_value() { qmibtree_value_release(&value_); }
  temp_value(const temp_value&) = delete;
  temp_value& operator=(const temp_value&) = delete;

  qmibtree_value_t* get() { return &value_; }
  const qmibtree_datafn_t* fn() const { return datafn_of(value_.type); }

 private:
  qmibtree_value_t value_ = {};
};

constexpr uint32_t kNameBuckets = 5000;  // of a tree's full-name index

// The full-name index, for a node whose hash is known.
void qmibtree_hash_link_hashed(qmibtree_hash_t* hash, qmibtree_node* node);
void qmibtree_hash_unlink_hashed(qmibtree_hash_t* hash, qmibtree_node* node);

// A template's instance of that number, by its name and not along all the others; null without one.
qmibtree_node* qmibtree_hash_lookup_instance(qmibtree_hash_t* hash,
                                             const qmibtree_node* template_node, uint32_t number);

// An index without its nodes, which keep their links; null is accepted.
void qmibtree_hash_empty(qmibtree_hash_t* hash);

// The two steps of destroying: children before their parent in both. No hook runs in the second.
void qmibtree_call_destroy_hooks(qmibtree_inst_t* inst, qmibtree_node* node);
// `twin` is the node in its place below the next instance, or null: where instances were made one
// after the other, the one before it in the chain of their unique id.
void qmibtree_free_subtree(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_node* twin);

// qmibtree_hash_unlink_uid with a guess, which may be null, at the node before in the chain.
void qmibtree_hash_unlink_uid_behind(qmibtree_hash_t* hash, qmibtree_node* node,
                                     qmibtree_node* guess);

// The template's highest instance number among its instances, 0 without any.
void qmibtree_recompute_last_instance(qmibtree_node* template_node);

// Operations of the types, as the type table lists them.
uint32_t qmibtree_word_copy(qmibtree_value_t* dst, const qmibtree_value_t* src);
int qmibtree_word_equal(const qmibtree_value_t* a, const qmibtree_value_t* b);

uint32_t qmibtree_int_check(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value);
uint32_t qmibtree_int_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_int_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);

uint32_t qmibtree_uint_check(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value);
uint32_t qmibtree_uint_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_uint_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);

int qmibtree_bool_equal(const qmibtree_value_t* a, const qmibtree_value_t* b);
uint32_t qmibtree_bool_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_bool_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);

uint32_t qmibtree_string_assign(qmibtree_value_t* dst, const qmibtree_value_t* src);
uint32_t qmibtree_string_copy(qmibtree_value_t* dst, const qmibtree_value_t* src);
int qmibtree_string_equal(const qmibtree_value_t* a, const qmibtree_value_t* b);
uint32_t qmibtree_string_check(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value);
uint32_t qmibtree_string_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_string_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);
void qmibtree_string_release(qmibtree_value_t* value);

uint32_t qmibtree_base64_assign(qmibtree_value_t* dst, const qmibtree_value_t* src);
uint32_t qmibtree_base64_copy(qmibtree_value_t* dst, const qmibtree_value_t* src);
int qmibtree_base64_equal(const qmibtree_value_t* a, const qmibtree_value_t* b);
uint32_t qmibtree_base64_check(const qmibtree_uidinfo_t* schema, const qmibtree_value_t* value);
uint32_t qmibtree_base64_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_base64_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);
void qmibtree_base64_release(qmibtree_value_t* value);

uint32_t qmibtree_datetime_from_str(qmibtree_value_t* dst, const char* text);
uint32_t qmibtree_datetime_to_buff(const qmibtree_value_t* value, qmibtree_buff_t* buff);

}  // namespace qmib

#endif
