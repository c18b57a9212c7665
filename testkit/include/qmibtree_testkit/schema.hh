// A schema block for tests, written down as an outline.
//
//   Schema schema;
//   schema.add(0, "A.");
//   schema.add(1, "Name", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "none").max_len = 8;
//   Tree tree(schema);
//   qmibtree_read(tree.inst, "A.Name", ...);
#ifndef QMIBTREE_TESTKIT_SCHEMA_HH
#define QMIBTREE_TESTKIT_SCHEMA_HH

#include <cstdint>
#include <memory>

#include "qmibtree.h"

namespace qmibtree_testkit {

class Schema {
 public:
  static constexpr uint32_t kCapacity =
      2100;  // more than a tree can have, to show what comes of it
  static constexpr int kMaxDepth = 64;

  Schema();

  // The next record, `depth` levels below the root (0), in tree order: its unique id is the
  // number of records before it. Bounds are as wide as they go, no component owns it. The
  // reference stays good. A record that cannot be added, for its depth or as one too many, ends
  // the program with a message.
  qmibtree_uidinfo_t& add(int depth, const char* name, uint32_t type = QMIBTREE_TYPE_OBJECT,
                          uint32_t flags = 0, const char* defval = nullptr);

  qmibtree_uidinfo_t& record(uint32_t uid) { return block_->uidinfo[uid]; }
  uint32_t size() const { return block_->uidinfo_num; }

  // The block, for qmibtree_init; it lives as long as this object and never moves.
  qmibtree_schema_t* block() { return block_.get(); }

 private:
  struct free_block {
    void operator()(qmibtree_schema_t* block) const;
  };
  std::unique_ptr<qmibtree_schema_t, free_block> block_;
  int32_t last_at_depth_[kMaxDepth] = {};
  int last_depth_ = -1;
};

// A tree that is destroyed with its scope. `inst` is null when it could not be built.
class Tree {
 public:
  explicit Tree(Schema& schema) : inst(qmibtree_init(schema.block())) {}
  ~Tree() { destroy(); }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  void destroy();
  qmibtree_node* node(const char* name) const { return qmibtree_find_node_by_name(inst, name); }

  qmibtree_inst_t* inst;
};

}  // namespace qmibtree_testkit

#endif
