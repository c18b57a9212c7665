#include "model.hh"

#include <gtest/gtest.h>

namespace mibctl {
namespace {

Entry* add(Entry& parent, const std::string& name, bool multi = false) {
  auto entry = std::make_unique<Entry>();
  entry->name = name;
  entry->multi = multi;
  entry->type = name.ends_with('.') ? QMIBTREE_TYPE_OBJECT : QMIBTREE_TYPE_STRING;
  return parent.add(std::move(entry));
}

// Gw. with A, T.{i}. (in it B and U.{i}.C) and T
class ModelTree : public testing::Test {
 protected:
  ModelTree() {
    root_.name = "Gw.";
    a_ = add(root_, "A");
    table_ = add(root_, "T.", true);
    b_ = add(*table_, "B");
    inner_ = add(*table_, "U.", true);
    c_ = add(*inner_, "C");
    t_ = add(root_, "T");
  }
  Entry root_;
  Entry *a_, *table_, *b_, *inner_, *c_, *t_;
};

TEST_F(ModelTree, PathsHavePlaceholdersBehindTables) {
  EXPECT_EQ(root_.path(), "Gw.");
  EXPECT_EQ(table_->path(), "Gw.T.{i}.");
  EXPECT_EQ(c_->path(), "Gw.T.{i}.U.{i}.C");
}

TEST_F(ModelTree, AddedEntriesStandLastAndKnowTheirParent) {
  EXPECT_EQ(t_->parent, &root_);
  EXPECT_EQ(root_.children.back().get(), t_);
}

TEST_F(ModelTree, AChildIsFoundByItsSegment) {
  EXPECT_EQ(root_.child("T."), table_);
  EXPECT_EQ(root_.child("T"), t_);
  EXPECT_EQ(root_.child("B"), nullptr);
}

TEST_F(ModelTree, CountsItselfAndAllBelow) {
  EXPECT_EQ(count_entries(root_), 7u);
  EXPECT_EQ(count_entries(*a_), 1u);
}

TEST_F(ModelTree, EveryEntryIsFoundByItsPath) {
  for_each(root_, [this](Entry& entry) { EXPECT_EQ(find_entry(root_, entry.path()), &entry); });
}

TEST_F(ModelTree, OtherPathsFindNothing) {
  for (const char* path : {"", "Gw", "Gw.B", "Gw.A.", "Gw.A.B", "Gw.T.", "Gw.T.{i}", "Gw.T.B",
                           "Gw.T.1.B", "Gw.{i}.A", "X.A", ".", "Gw.."})
    EXPECT_EQ(find_entry(root_, path), nullptr) << path;
}

TEST_F(ModelTree, NumbersInANodesNameStandForPlaceholders) {
  EXPECT_EQ(find_entry_of_node(root_, "Gw.T.3.U.120.C"), c_);
  EXPECT_EQ(find_entry_of_node(root_, "Gw.T.3."), table_);
  EXPECT_EQ(find_entry_of_node(root_, "Gw.T"), t_);
}

TEST_F(ModelTree, ATemplatesNodeHasNoNumber) {
  EXPECT_EQ(find_entry_of_node(root_, "Gw.T."), table_);
  EXPECT_EQ(find_entry_of_node(root_, "Gw.T.1.U."), inner_);
}

TEST_F(ModelTree, OtherNodesNamesFindNothing) {
  for (const char* name : {"", "Gw.T.{i}.B", "Gw.T.B", "Gw.T.1x.B", "Gw.T..B", "Gw.T.1", "Gw.1.A"})
    EXPECT_EQ(find_entry_of_node(root_, name), nullptr) << name;
}

TEST(ModelComponents, AreNamedByTheirId) {
  Model model;
  model.components = {{"wlan", 4}, {"lan", 3}};
  EXPECT_EQ(model.component_name(4), "wlan");
  EXPECT_EQ(model.component_name(5), "");
}

}  // namespace
}  // namespace mibctl
