#include <gtest/gtest.h>
#include <qmibtree.h>

#include <string>

#include "model_builder.hh"

namespace mibctl {
namespace {

// Numbers the entries in the model's order.
void number(Model& model) {
  Lock lock;
  assign_ids(model, lock);
}

const qmibtree_uidinfo_t& record_at(Block& block, uint32_t uid) {
  return block.schema()->uidinfo[uid];
}

// The record of a model's only parameter.
qmibtree_uidinfo_t record_of(Model& model) {
  number(model);
  return records_of(model)[1];
}

TEST(Block, HasARecordForEachId) {
  Model model = make_model();
  model.tag = 7;
  add_parameter(*model.root, "A");
  number(model);
  Block block(model);
  EXPECT_EQ(block.schema()->schema_tag, 7u);
  EXPECT_EQ(block.schema()->uidinfo_num, 2u);
  EXPECT_EQ(record_at(block, 0).uid, 0u);
  EXPECT_STREQ(record_at(block, 0).name, "Gw.");
  EXPECT_EQ(record_at(block, 1).uid, 1u);
  EXPECT_STREQ(record_at(block, 1).name, "A");
}

TEST(Block, LinksSiblingsAndChildrenInTheModelsOrder) {
  Model model = make_model();
  Entry* const object = add_object(*model.root, "O.");
  add_parameter(*object, "A");
  add_parameter(*object, "B");
  add_parameter(*model.root, "C");
  number(model);
  Block block(model);
  EXPECT_EQ(record_at(block, 0).next_uid, -1);
  EXPECT_EQ(record_at(block, 0).child_uid, 1);
  EXPECT_EQ(record_at(block, 1).next_uid, 4);
  EXPECT_EQ(record_at(block, 1).child_uid, 2);
  EXPECT_EQ(record_at(block, 2).next_uid, 3);
  EXPECT_EQ(record_at(block, 2).child_uid, -1);
  EXPECT_EQ(record_at(block, 3).next_uid, -1);
  EXPECT_EQ(record_at(block, 4).next_uid, -1);
}

TEST(Block, LinksByIdWhateverTheOrderOfTheIds) {
  Model model = make_model();
  add_parameter(*model.root, "A")->uid = 2;
  add_parameter(*model.root, "B")->uid = 1;
  model.root->uid = 0;
  Block block(model);
  EXPECT_EQ(record_at(block, 0).child_uid, 2);
  EXPECT_EQ(record_at(block, 2).next_uid, 1);
  EXPECT_EQ(record_at(block, 1).next_uid, -1);
}

TEST(Block, AnIdOfNobodyHasAnEmptyRecord) {
  Model model = make_model();
  model.root->uid = 0;
  add_parameter(*model.root, "A")->uid = 2;
  Block block(model);
  ASSERT_EQ(block.schema()->uidinfo_num, 3u);
  const qmibtree_uidinfo_t& gap = record_at(block, 1);
  EXPECT_EQ(gap.uid, 1u);
  EXPECT_EQ(gap.next_uid, -1);
  EXPECT_EQ(gap.child_uid, -1);
  EXPECT_STREQ(gap.name, "");
  EXPECT_EQ(gap.type, QMIBTREE_TYPE_OBJECT);
  EXPECT_EQ(gap.flags, 0u);
  EXPECT_EQ(gap.comp, kNoComponent);
  EXPECT_EQ(record_at(block, 0).child_uid, 2);
}

TEST(Block, ATreeBuildsOverGaps) {
  Model model = make_model();
  model.root->uid = 0;
  Entry* const table = add_table(*model.root, "T.");
  table->uid = 5;
  Entry* const parameter = add_parameter(*table, "A");
  parameter->uid = 3;
  parameter->defval = "text";
  Block block(model);
  qmibtree_inst_t* const inst = qmibtree_init(block.schema());
  ASSERT_NE(inst, nullptr);
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(inst, "Gw.T.", &number, 0, 255), QMIBTREE_RC_OK);
  const qmibtree_node* const node = qmibtree_find_node_by_name(inst, "Gw.T.1.A");
  ASSERT_NE(node, nullptr);
  EXPECT_STREQ(node->value.str, "text");
  qmibtree_destroy(inst);
}

TEST(Block, ATableIsMulti) {
  Model model = make_model();
  add_table(*model.root, "T.");
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_MULTI);
}

TEST(Block, ATableThatCannotBeWrittenIsReadOnly) {
  Model model = make_model();
  add_table(*model.root, "T.")->writable = false;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_MULTI | QMIBTREE_UID_READONLY);
}

TEST(Block, APlainObjectHasNoFlags) {
  Model model = make_model();
  add_object(*model.root, "O.");
  EXPECT_EQ(record_of(model).flags, 0u);
}

TEST(Block, AParameterThatCannotBeWrittenIsReadOnly) {
  Model model = make_model();
  add_parameter(*model.root, "A")->writable = false;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_READONLY);
}

TEST(Block, ADynamicParameterIsFlagged) {
  Model model = make_model();
  add_parameter(*model.root, "A")->dynamic = true;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_DYNAMIC);
}

TEST(Block, SavedAlwaysAndSavedWhenModifiedAreFlags) {
  Model model = make_model();
  Entry* const parameter = add_parameter(*model.root, "A");
  parameter->save = Save::always;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_SAVE);
  parameter->save = Save::modified;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_SAVE_MODIFIED);
}

TEST(Block, NotificationIsAFlag) {
  Model model = make_model();
  Entry* const parameter = add_parameter(*model.root, "A");
  parameter->notify = Notify::by_default;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_NOTIF_DEFAULT);
  parameter->notify = Notify::forced;
  EXPECT_EQ(record_of(model).flags, QMIBTREE_UID_NOTIF_FORCED);
}

TEST(Block, AnIntHasItsBoundsInTheIntWords) {
  Model model = make_model();
  Entry* const parameter = add_parameter(*model.root, "A", QMIBTREE_TYPE_INT);
  parameter->min = INT32_MIN;
  parameter->max = 10;
  const qmibtree_uidinfo_t record = record_of(model);
  EXPECT_EQ(record.int_min, INT32_MIN);
  EXPECT_EQ(record.int_max, 10);
  EXPECT_EQ(record.uint_min, 0u);
  EXPECT_EQ(record.uint_max, 0u);
}

TEST(Block, AnUnsignedIntHasItsBoundsInTheUnsignedWords) {
  Model model = make_model();
  add_parameter(*model.root, "A", QMIBTREE_TYPE_UINT)->min = 1;
  const qmibtree_uidinfo_t record = record_of(model);
  EXPECT_EQ(record.int_min, 0);
  EXPECT_EQ(record.int_max, 0);
  EXPECT_EQ(record.uint_min, 1u);
  EXPECT_EQ(record.uint_max, UINT32_MAX);
}

TEST(Block, AStringHasItsLength) {
  Model model = make_model();
  add_parameter(*model.root, "A")->max_len = 64;
  EXPECT_EQ(record_of(model).max_len, 64u);
}

TEST(Block, ADefaultIsItsTextAndNoneIsNull) {
  Model model = make_model();
  Entry* const parameter = add_parameter(*model.root, "A");
  EXPECT_EQ(record_of(model).defval, nullptr);
  parameter->defval = "";
  EXPECT_STREQ(record_of(model).defval, "");
}

TEST(Block, CarriesTheComponentAndTheHostsWord) {
  Model model = make_model();
  Entry* const parameter = add_parameter(*model.root, "A");
  EXPECT_EQ(record_of(model).comp, kNoComponent);
  parameter->component = 3;
  parameter->arg = 0x80000000u;
  EXPECT_EQ(record_of(model).comp, 3u);
  EXPECT_EQ(record_of(model).arg, 0x80000000u);
}

TEST(Block, HasNoHooks) {
  Model model = make_model();
  add_parameter(*model.root, "A")->hooks = {"made", "gone", "set", "get"};
  const qmibtree_uidinfo_t record = record_of(model);
  EXPECT_EQ(record.create_fn, nullptr);
  EXPECT_EQ(record.destroy_fn, nullptr);
  EXPECT_EQ(record.set_fn, nullptr);
  EXPECT_EQ(record.get_fn, nullptr);
}

}  // namespace
}  // namespace mibctl
