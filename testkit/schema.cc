#include "qmibtree_testkit/schema.hh"

#include <cstdio>
#include <cstdlib>

namespace qmibtree_testkit {

namespace {

[[noreturn]] void refuse(const char* name, const char* why) {
  std::fprintf(stderr, "qmibtree_testkit: schema record \"%s\" %s\n", name, why);
  std::abort();
}

}  // namespace

void Schema::free_block::operator()(qmibtree_schema_t* block) const { std::free(block); }

Schema::Schema()
    : block_(static_cast<qmibtree_schema_t*>(
          std::calloc(1, sizeof(qmibtree_schema_t) + kCapacity * sizeof(qmibtree_uidinfo_t)))) {
  block_->schema_tag = 0x51;
}

qmibtree_uidinfo_t& Schema::add(int depth, const char* name, uint32_t type, uint32_t flags,
                                const char* defval) {
  const auto uid = static_cast<int32_t>(block_->uidinfo_num);
  if (block_->uidinfo_num == kCapacity) refuse(name, "is one too many");
  if (depth < 0 || depth > last_depth_ + 1) refuse(name, "is at a depth that has nothing above it");
  if (depth == kMaxDepth) refuse(name, "is too deep");
  qmibtree_uidinfo_t& added = block_->uidinfo[block_->uidinfo_num++];
  added.uid = static_cast<uint32_t>(uid);
  added.next_uid = added.child_uid = -1;
  added.name = name;
  added.type = type;
  added.flags = flags;
  added.defval = defval;
  added.int_min = INT32_MIN;
  added.int_max = INT32_MAX;
  added.uint_max = UINT32_MAX;
  added.comp = UINT32_MAX;
  if (depth > last_depth_) {
    if (depth > 0) record(static_cast<uint32_t>(last_at_depth_[depth - 1])).child_uid = uid;
  } else {
    record(static_cast<uint32_t>(last_at_depth_[depth])).next_uid = uid;
  }
  last_at_depth_[depth] = uid;
  last_depth_ = depth;
  return added;
}

void Tree::destroy() {
  if (inst) qmibtree_destroy(inst);
  inst = nullptr;
}

}  // namespace qmibtree_testkit
