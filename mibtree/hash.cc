#include <cstring>

#include "mibtree/bkdr.hh"
#include "mibtree/mibtree_internal.hh"

namespace {

using node_link = qmibtree_node* qmibtree_node::*;

qmibtree_node** bucket_of(qmibtree_hash_t* hash, uint32_t key) {
  // The division by a known number is a multiplication, the other one costs as much as the hash.
  return &hash->buckets[hash->size == qmib::kNameBuckets ? key % qmib::kNameBuckets
                                                         : key % hash->size];
}

void link_at_head(qmibtree_node** bucket, qmibtree_node* node, node_link next) {
  node->*next = *bucket;
  *bucket = node;
}

void unlink(qmibtree_node** bucket, qmibtree_node* node, node_link next) {
  qmibtree_node** place = bucket;
  while (*place && *place != node) place = &((*place)->*next);
  if (*place) *place = node->*next;
  node->*next = nullptr;
}

}  // namespace

uint32_t qmib::bkdr_continue(uint32_t before, const char* start, const char* text,
                             const char* end) {
  return bkdr_continue_by<bkdr_block>(before, start, text, end);
}

uint32_t BKDRHash(const char* str) {
  return qmib::bkdr_continue(0, str, str, str + std::strlen(str)) & qmib::kBkdrMask;
}

qmibtree_hash_t* qmibtree_hash_create(uint32_t kind, uint32_t size) {
  const uint64_t bytes = sizeof(qmibtree_hash_t) + uint64_t{size} * sizeof(qmibtree_node*);
  if (size == 0 || bytes > SIZE_MAX) return nullptr;
  qmib::owned<qmibtree_hash_t> hash =
      qmib::make_zeroed<qmibtree_hash_t>("qmibtree_hash_t", static_cast<size_t>(bytes));
  if (!hash) return nullptr;
  hash->kind = kind;
  hash->size = size;
  return hash.release();
}

void qmibtree_hash_destroy(qmibtree_hash_t* hash) { qfree(hash); }

uint32_t qmibtree_hash_link_name(qmibtree_hash_t* hash, qmibtree_node* node) {
  node->hash = BKDRHash(node->fullName);
  qmib::qmibtree_hash_link_hashed(hash, node);
  return node->hash;
}

void qmib::qmibtree_hash_empty(qmibtree_hash_t* hash) {
  if (hash) std::memset(hash->buckets, 0, hash->size * sizeof(qmibtree_node*));
}

void qmib::qmibtree_hash_link_hashed(qmibtree_hash_t* hash, qmibtree_node* node) {
  link_at_head(bucket_of(hash, node->hash), node, &qmibtree_node::name_next);
}

void qmib::qmibtree_hash_unlink_hashed(qmibtree_hash_t* hash, qmibtree_node* node) {
  unlink(bucket_of(hash, node->hash), node, &qmibtree_node::name_next);
}

void qmibtree_hash_unlink_name(qmibtree_hash_t* hash, qmibtree_node* node) {
  unlink(bucket_of(hash, BKDRHash(node->fullName)), node, &qmibtree_node::name_next);
}

qmibtree_node* qmibtree_hash_lookup_name(qmibtree_hash_t* hash, const char* fullName) {
  return qmib::qmibtree_hash_lookup_hashed(hash, fullName, BKDRHash(fullName));
}

qmibtree_node* qmib::qmibtree_hash_lookup_hashed(qmibtree_hash_t* hash, const char* fullName,
                                                 uint32_t key) {
  qmibtree_node* node = *bucket_of(hash, key);
  while (node && (node->hash != key || std::strcmp(node->fullName, fullName) != 0))
    node = node->name_next;
  return node;
}

qmibtree_node* qmib::qmibtree_hash_lookup_instance(qmibtree_hash_t* hash,
                                                   const qmibtree_node* template_node,
                                                   uint32_t number) {
  const instance_name name(number);
  const uint32_t key =
      bkdr_continue(template_node->hash, name.text(), name.text(), name.end()) & kBkdrMask;
  qmibtree_node* node = *bucket_of(hash, key);
  while (node && (node->parent != template_node || node->instance != number))
    node = node->name_next;
  return node;
}

void qmibtree_hash_link_uid(qmibtree_hash_t* hash, qmibtree_node* node) {
  if (hash) link_at_head(bucket_of(hash, node->uidinfo->uid), node, &qmibtree_node::uid_next);
}

void qmibtree_hash_unlink_uid(qmibtree_hash_t* hash, qmibtree_node* node) {
  if (hash) unlink(bucket_of(hash, node->uidinfo->uid), node, &qmibtree_node::uid_next);
  node->uid_next = nullptr;
}

void qmib::qmibtree_hash_unlink_uid_behind(qmibtree_hash_t* hash, qmibtree_node* node,
                                           qmibtree_node* guess) {
  if (!guess || guess->uid_next != node) return qmibtree_hash_unlink_uid(hash, node);
  guess->uid_next = node->uid_next;
  node->uid_next = nullptr;
}

qmibtree_node* qmibtree_hash_lookup_uid(qmibtree_hash_t* hash, uint32_t uid) {
  if (!hash) return nullptr;
  // Deliberate: only the head is looked at. Ids are below the number of buckets, so each has a
  // bucket of its own; with an id of 2000 and above a lower one can hide behind it.
  qmibtree_node* const head = *bucket_of(hash, uid);
  return head && head->uidinfo->uid == uid ? head : nullptr;
}

qmibtree_node* qmibtree_hash_lookup_uid_next(qmibtree_node* node, uint32_t uid) {
  do node = node->uid_next;
  while (node && node->uidinfo->uid != uid);
  return node;
}
