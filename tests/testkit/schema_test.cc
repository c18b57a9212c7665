// Shows what the schema builder makes of an outline, and what it refuses.
#include "qmibtree_testkit/schema.hh"

#include <gtest/gtest.h>

#include <string>

#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/host.hh"

using namespace qmibtree_testkit;

namespace {

TEST(SchemaBuilder, LinksRecordsByTheirDepth) {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "B.");
  schema.add(2, "C");
  schema.add(1, "D");
  ASSERT_EQ(schema.size(), 4u);
  EXPECT_EQ(schema.record(0).child_uid, 1);
  EXPECT_EQ(schema.record(1).child_uid, 2);
  EXPECT_EQ(schema.record(1).next_uid, 3);
  EXPECT_EQ(schema.record(2).next_uid, -1);
  EXPECT_EQ(schema.record(3).child_uid, -1);
}

TEST(SchemaBuilder, LetsEveryValueThrough) {
  LeakCheck leaks;
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "I", QMIBTREE_TYPE_INT);
  schema.add(1, "U", QMIBTREE_TYPE_UINT);
  CheckedTree tree(schema);
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_EQ(qmibtree_write_strvalue(tree.inst, "A.I", "-2147483648", 0), 0u);
  EXPECT_EQ(qmibtree_write_strvalue(tree.inst, "A.I", "2147483647", 0), 0u);
  EXPECT_EQ(qmibtree_write_strvalue(tree.inst, "A.U", "4294967295", 0), 0u);
}

TEST(SchemaBuilder, OwnsNoComponent) {
  Schema schema;
  EXPECT_GE(schema.add(0, "A.").comp, static_cast<uint32_t>(QMIBTREE_COMP_MAX));
}

TEST(SchemaBuilder, ARecordStaysWhereItIs) {
  Schema schema;
  const qmibtree_uidinfo_t& root = schema.add(0, "A.");
  while (schema.size() < Schema::kCapacity) schema.add(1, "B");
  EXPECT_EQ(&root, &schema.record(0));
}

TEST(SchemaBuilderDeathTest, NamesARecordWithoutAParent) {
  Schema schema;
  schema.add(0, "A.");
  EXPECT_DEATH(schema.add(2, "Lost"), "\"Lost\" is at a depth that has nothing above it");
  EXPECT_DEATH(schema.add(-1, "Lost"), "\"Lost\" is at a depth that has nothing above it");
}

TEST(SchemaBuilderDeathTest, NamesARecordThatIsTooDeep) {
  Schema schema;
  for (int depth = 0; depth < Schema::kMaxDepth; ++depth) schema.add(depth, "A.");
  EXPECT_DEATH(schema.add(Schema::kMaxDepth, "Deep"), "\"Deep\" is too deep");
}

TEST(SchemaBuilderDeathTest, NamesTheRecordThatIsOneTooMany) {
  Schema schema;
  schema.add(0, "A.");
  while (schema.size() < Schema::kCapacity) schema.add(1, "B");
  EXPECT_DEATH(schema.add(1, "Last"), "\"Last\" is one too many");
}

}  // namespace
