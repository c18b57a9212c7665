// Shows how nodes are found: by full name, in one piece or two, and by unique id.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t { kRoot, kName, kTable, kEntry, kInner, kLeaf, kUnused };

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "Name", QMIBTREE_TYPE_STRING, 0, "none").arg = 77;
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI).arg = 78;
  schema.add(2, "e", QMIBTREE_TYPE_INT, 0, "1").arg = 79;
  schema.add(2, "U.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(3, "x", QMIBTREE_TYPE_INT, 0, "2");
  return schema;
}

// What a walk called back for, and what it was answered: `results` in turn, then 0.
struct Visits {
  std::vector<std::string> names;
  std::vector<uint32_t> results;
};

uint32_t visit(qmibtree_inst_t*, qmibtree_node* node, void* arg) {
  Visits& visits = *static_cast<Visits*>(arg);
  const size_t call = visits.names.size();
  visits.names.emplace_back(node->fullName);
  return call < visits.results.size() ? visits.results[call] : 0;
}

using Names = std::vector<std::string>;

class Lookup : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(tree.inst, nullptr); }

  void add(const char* name, int times = 1) {
    for (; times > 0; --times) {
      uint32_t number = 0;
      ASSERT_EQ(qmibtree_add_object(tree.inst, name, &number, 0, 255), 0u);
    }
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
  Visits visits;
};

TEST_F(Lookup, FindsEveryKindOfNodeByItsFullName) {
  add("A.T.");
  EXPECT_EQ(qmibtree_find_node_by_name(tree.inst, "A."), tree.inst->root);
  for (const char* name : {"A.Name", "A.T.", "A.T.1.", "A.T.1.e", "A.T.1.U."}) {
    const qmibtree_node* const node = qmibtree_find_node_by_name(tree.inst, name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_STREQ(node->fullName, name);
  }
}

TEST_F(Lookup, NamesMustMatchToTheByte) {
  for (const char* name : {"", "A", "A.name", "A.Name.", "A.T", "A.T.1.", "A.T.e", "Name"})
    EXPECT_EQ(qmibtree_find_node_by_name(tree.inst, name), nullptr) << name;
}

TEST_F(Lookup, FindsANodeByTwoPiecesOfItsName) {
  qmibtree_node* const node = tree.node("A.Name");
  EXPECT_EQ(qmibtree_find_node_by_name_v2(tree.inst, "A.", "Name"), node);
  EXPECT_EQ(qmibtree_find_node_by_name_v2(tree.inst, "A.Na", "me"), node);
  EXPECT_EQ(qmibtree_find_node_by_name_v2(tree.inst, "A.Name", ""), node);
  EXPECT_EQ(qmibtree_find_node_by_name_v2(tree.inst, "", "A.Name"), node);
  EXPECT_EQ(qmibtree_find_node_by_name_v2(tree.inst, "A.", "Other"), nullptr);
}

TEST_F(Lookup, AJoinedNameIsCutTo511Characters) {
  const std::string prefix(300, 'p'), suffix(211, 's');
  const std::string name = prefix + suffix;
  Schema long_names;
  long_names.add(0, name.c_str()).arg = 5;
  CheckedTree long_tree(long_names);
  ASSERT_NE(long_tree.inst, nullptr);
  for (const char* excess : {"", "x", "excess"}) {
    const std::string rest = suffix + excess;
    EXPECT_EQ(qmibtree_find_node_by_name_v2(long_tree.inst, prefix.c_str(), rest.c_str()),
              long_tree.inst->root);
    EXPECT_EQ(qmibtree_get_arg_v2(long_tree.inst, prefix.c_str(), rest.c_str()), 5u);
  }
}

TEST_F(Lookup, ANameOf512CharactersIsFoundWholeButNotJoined) {
  const std::string name(512, 'n');
  Schema long_names;
  long_names.add(0, name.c_str());
  CheckedTree long_tree(long_names);
  ASSERT_NE(long_tree.inst, nullptr);
  EXPECT_EQ(qmibtree_find_node_by_name(long_tree.inst, name.c_str()), long_tree.inst->root);
  EXPECT_EQ(qmibtree_find_node_by_name_v2(long_tree.inst, name.c_str(), ""), nullptr);
}

TEST_F(Lookup, TheArgWordIsTheRecords) {
  add("A.T.");
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.Name"), 77u);
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.T."), 78u);
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.T.1."), 78u);
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.T.1.e"), 79u);
  EXPECT_EQ(qmibtree_get_arg_v2(tree.inst, "A.T.1.", "e"), 79u);
}

TEST_F(Lookup, TheArgWordIsReadFromTheNodeNotTheRecord) {
  tree.node("A.Name")->arg = 5;
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.Name"), 5u);
  schema.record(kName).arg = 6;
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.Name"), 5u);
}

TEST_F(Lookup, TheArgWordOfAnUnknownNameIsZero) {
  EXPECT_EQ(qmibtree_get_arg(tree.inst, "A.Nothing"), 0u);
  EXPECT_EQ(qmibtree_get_arg_v2(tree.inst, "A.", "Nothing"), 0u);
}

TEST_F(Lookup, TheChildCountOfATemplateIsItsNumberOfInstances) {
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T."), 0);
  add("A.T.", 2);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T."), 2);
  ASSERT_EQ(qmibtree_del_object(tree.inst, "A.T.1.", 0), 0u);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T."), 1);
}

TEST_F(Lookup, TheChildCountOfOtherNodesIsTheirRecordsChildren) {
  add("A.T.");
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A."), 2);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T.1."), 2);
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.Name"), 0);
}

TEST_F(Lookup, TheChildCountOfAnUnknownNameIsMinusOne) {
  EXPECT_EQ(qmibtree_get_childnum(tree.inst, "A.T.1."), -1);
}

TEST_F(Lookup, WithoutANameEveryNodeOfTheIdIsVisitedNewestFirst) {
  add("A.T.", 2);
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kEntry, visit, &visits), 0u);
  EXPECT_EQ(visits.names, (Names{"A.T.2.e", "A.T.1.e"}));
}

TEST_F(Lookup, OfATemplatesIdOnlyTheInstancesAreVisited) {
  add("A.T.", 2);
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kTable, visit, &visits), 0u);
  EXPECT_EQ(visits.names, (Names{"A.T.2.", "A.T.1."}));
}

TEST_F(Lookup, ATemplateIsNotVisitedByItsNameEither) {
  add("A.T.");
  visits.results = {7, 7, 7};
  EXPECT_EQ(qmibtree_lookup(tree.inst, "A.T.", kTable, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{});
}

TEST_F(Lookup, TemplatesBetweenInstancesAreSteppedOver) {
  add("A.T.", 2);
  add("A.T.1.U.");
  add("A.T.2.U.");
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kInner, visit, &visits), 0u);
  EXPECT_EQ(visits.names, (Names{"A.T.2.U.1.", "A.T.1.U.1."}));
}

TEST_F(Lookup, APlainObjectIsVisited) {
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kRoot, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{"A."});
}

TEST_F(Lookup, WithANameOnlyTheNodeOfThatFullNameIsVisited) {
  add("A.T.", 3);
  visits.results = {9};
  EXPECT_EQ(qmibtree_lookup(tree.inst, "A.T.2.e", kEntry, visit, &visits), 9u);
  EXPECT_EQ(visits.names, Names{"A.T.2.e"});
}

TEST_F(Lookup, ANameOfAnotherIdIsNotVisited) {
  EXPECT_EQ(qmibtree_lookup(tree.inst, "A.Name", kRoot, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{});
}

TEST_F(Lookup, AnIdWithoutNodesCallsNothing) {
  visits.results = {7};
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kEntry, visit, &visits), 0u);
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kUnused, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{});
}

TEST_F(Lookup, AnIdHiddenByOneOf2000MoreIsNotFound) {
  Schema crowded;
  crowded.add(0, "A.");
  std::vector<std::string> names(2005);
  for (size_t i = 0; i < names.size(); ++i) {
    names[i] = "p" + std::to_string(i + 1);
    crowded.add(1, names[i].c_str(), QMIBTREE_TYPE_BOOL);
  }
  CheckedTree crowded_tree(crowded);
  ASSERT_NE(crowded_tree.inst, nullptr);
  EXPECT_EQ(qmibtree_lookup(crowded_tree.inst, nullptr, 5, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{});
  EXPECT_EQ(qmibtree_lookup(crowded_tree.inst, nullptr, 2005, visit, &visits), 0u);
  EXPECT_EQ(visits.names, Names{"A.p2005"});
}

TEST_F(Lookup, AResultOf32StopsTheVisitsAndIsAnswered) {
  add("A.T.", 3);
  visits.results = {31, 32, 5};
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kEntry, visit, &visits), 32u);
  EXPECT_EQ(visits.names, (Names{"A.T.3.e", "A.T.2.e"}));
}

TEST_F(Lookup, TheLastResultIsAnswered) {
  add("A.T.", 2);
  visits.results = {31, 4};
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kEntry, visit, &visits), 4u);
}

TEST_F(Lookup, TheCallbackGetsTheInstance) {
  static qmibtree_inst_t* given;
  given = nullptr;
  const auto keep = [](qmibtree_inst_t* inst, qmibtree_node*, void*) {
    given = inst;
    return 0u;
  };
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, kName, keep, nullptr), 0u);
  EXPECT_EQ(given, tree.inst);
}

}  // namespace
