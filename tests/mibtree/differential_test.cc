// What the library finds, counts, hashes and writes fast, against the plain form of the same rule,
// over trees that grow, shrink and change at random.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "../../fuzz/plain.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr int kRounds = 60;

std::vector<qmibtree_node*> births;  // every node that is there but templates, oldest first

uint32_t note_birth(qmibtree_inst_t*, qmibtree_node* node) { return births.push_back(node), 0; }
uint32_t note_end(qmibtree_inst_t*, qmibtree_node* node) { return std::erase(births, node), 0; }

// A parameter whose value has a type that no record of a parameter has.
uint32_t note_birth_of_odd(qmibtree_inst_t* inst, qmibtree_node* node) {
  node->flags |= QMIBTREE_NODE_PARAM;
  return note_birth(inst, node);
}

// Names that begin alike, that are long, that have bytes above 0x7F.
Schema schema_of_tables() {
  static const std::string longest = std::string(250, 'n') + ".";
  Schema schema;
  constexpr uint32_t kSave = QMIBTREE_UID_SAVE, kModified = QMIBTREE_UID_SAVE_MODIFIED;
  schema.add(0, "A.");
  schema.add(1, "i", QMIBTREE_TYPE_INT, kSave, "5");
  schema.add(1, "u", QMIBTREE_TYPE_UINT, kModified, "5");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, kSave, "text");
  schema.add(1, "none", QMIBTREE_TYPE_STRING, kSave);
  schema.add(1, "b", QMIBTREE_TYPE_BOOL, kModified | QMIBTREE_UID_NOTIF_DEFAULT, "1");
  schema.add(1, "d", QMIBTREE_TYPE_DATETIME, kSave);
  schema.add(1, "k", QMIBTREE_TYPE_BASE64, kModified);
  schema.add(1, "never", QMIBTREE_TYPE_INT, 0, "1");
  schema.add(1, "eight", 8, kSave);
  schema.add(1, "ten", 10, kSave);
  schema.add(1, "twelve", 12, kSave);
  schema.add(1, "fifteen", 15, kSave);
  schema.add(1, "a@");
  schema.add(1, "Empty.");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "T", QMIBTREE_TYPE_INT, kSave, "1");
  schema.add(2, "W.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(3, "a", QMIBTREE_TYPE_STRING, kModified, "none");
  schema.add(3, "\xc3\xa4", QMIBTREE_TYPE_INT, kModified, "1");
  schema.add(2, longest.c_str());
  schema.add(3, longest.c_str());
  schema.add(4, "n", QMIBTREE_TYPE_INT, kModified, "1");
  for (uint32_t uid = 0; uid < schema.size(); ++uid) {
    const bool odd = schema.record(uid).type > QMIBTREE_TYPE_BOOL;
    schema.record(uid).create_fn = odd ? note_birth_of_odd : note_birth;
    schema.record(uid).destroy_fn = note_end;
  }
  return schema;
}

class Differential : public ::testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    births.clear();
    tree = std::make_unique<Tree>(schema);
    ASSERT_NE(tree->inst, nullptr);
  }
  void TearDown() override { changes().clear(); }

  uint32_t below(size_t n) { return static_cast<uint32_t>(generator() % n); }
  template <typename T>
  const T& any(const std::vector<T>& all) {
    return all[below(all.size())];
  }

  // Runs `check` over one tree after another.
  template <typename Check>
  void for_trees(Check check) {
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
      for (int change = 0; change < 6; ++change) (this->*any(kChanges))();
      SCOPED_TRACE(round);
      check(tree->inst);
    }
  }

  void add() {
    const std::vector<uint32_t> wishes = {0, 0, 0, 3, 9, 99, 999, 1000, 12345};
    std::vector<qmibtree_node*> templates = plain::nodes(tree->inst);
    if (templates.size() > 250) return;
    std::erase_if(templates, [](const auto* node) { return !plain::is_template(node); });
    uint32_t number = any(wishes);
    qmibtree_add_object_by_node(tree->inst, any(templates), &number, 0,
                                below(2) ? 255 : below(256));
  }
  void del() { qmibtree_del_object_by_node(tree->inst, any(plain::nodes(tree->inst)), 0); }
  void attributes() {
    qmibtree_set_attr_by_node(tree->inst, any(plain::nodes(tree->inst)), below(32));
  }
  void write() {
    qmibtree_node* const node = any(plain::nodes(tree->inst));
    if (!(node->flags & QMIBTREE_NODE_PARAM)) return;
    const char bytes[] = {1, 2, 3, '\xfc'};
    const std::vector<qmibtree_value_t> values = {
        int_value(-7),
        uint_value(7),
        bool_value(below(2)),
        string_value("words"),
        string_value(""),
        string_value(nullptr),
        base64_value(bytes, below(5)),
        datetime_value(static_cast<int32_t>(generator()))};
    std::vector<qmibtree_value_t> fitting = values;
    std::erase_if(fitting,
                  [&](const qmibtree_value_t& v) { return v.type != node->uidinfo->type; });
    const bool fits = below(8) && !fitting.empty();
    qmibtree_write_by_node(tree->inst, node, &any(fits ? fitting : values), 0);
  }

  using Change = void (Differential::*)();
  const std::vector<Change> kChanges = {&Differential::add,   &Differential::add,
                                        &Differential::del,   &Differential::write,
                                        &Differential::write, &Differential::attributes};

  std::mt19937 generator{GetParam()};
  Schema schema = schema_of_tables();
  std::unique_ptr<Tree> tree;
};

// Nobody is told of a template's birth: it goes by that of the object it is built into.
size_t birth_of(const qmibtree_node* node) {
  const qmibtree_node* const told = plain::is_template(node) ? node->parent : node;
  return static_cast<size_t>(std::find(births.begin(), births.end(), told) - births.begin());
}

// Of two nodes of one full name the newer.
qmibtree_node* found_by_search(const qmibtree_inst_t* inst, const std::string& name) {
  qmibtree_node* newest = nullptr;
  for (qmibtree_node* node : plain::nodes(inst))
    if (node->fullName == name && (!newest || birth_of(node) > birth_of(newest))) newest = node;
  return newest;
}

TEST_P(Differential, ANameIsHashedByteByByte) {
  std::string text;
  for (int length = 0; length < 600; ++length) {
    ASSERT_EQ(BKDRHash(text.c_str()), plain::bkdr(text)) << length;
    text += static_cast<char>(1 + below(255));
  }
}

TEST_P(Differential, ANodeKeepsTheHashOfItsWholeName) {
  for_trees([](const qmibtree_inst_t* inst) {
    for (const qmibtree_node* node : plain::nodes(inst))
      ASSERT_EQ(node->hash, plain::bkdr(node->fullName)) << node->fullName;
  });
}

TEST_P(Differential, ANameIsFoundAsASearchFindsIt) {
  for_trees([&](qmibtree_inst_t* inst) {
    for (const qmibtree_node* node : plain::nodes(inst)) {
      std::string name = node->fullName;
      ASSERT_EQ(qmibtree_find_node_by_name(inst, name.c_str()), found_by_search(inst, name));
      name[below(name.size())] = static_cast<char>('0' + below(10));
      ASSERT_EQ(qmibtree_find_node_by_name(inst, name.c_str()), found_by_search(inst, name));
    }
  });
}

TEST_P(Differential, ANameIsNotTakenForAnotherOfItsHash) {
  const std::string name = "A.a@", other = "A.b\xbd";
  ASSERT_EQ(plain::bkdr(name), plain::bkdr(other));
  ASSERT_NE(tree->node(name.c_str()), nullptr);
  ASSERT_EQ(tree->node(other.c_str()), nullptr);
}

TEST_P(Differential, AJoinedNameIsFoundAsASearchFindsItsFirst511Characters) {
  for_trees([&](qmibtree_inst_t* inst) {
    for (const qmibtree_node* node : plain::nodes(inst)) {
      const std::string name = node->fullName;
      const size_t cut = below(name.size() + 1);
      const std::string prefix = name.substr(0, cut), suffix = name.substr(cut);
      for (const char* behind : {"", "n", "."})
        ASSERT_EQ(qmibtree_find_node_by_name_v2(inst, prefix.c_str(), (suffix + behind).c_str()),
                  found_by_search(inst, plain::joined(prefix, suffix + behind)));
    }
  });
}

TEST_P(Differential, TheNodesOfAnIdAreFoundNewestFirst) {
  for_trees([&](const qmibtree_inst_t* inst) {
    for (uint32_t uid = 0; uid <= schema.size(); ++uid) {
      std::vector<const qmibtree_node*> found, expected;
      const auto note = [](qmibtree_inst_t*, qmibtree_node* node, void* list) {
        return static_cast<decltype(found)*>(list)->push_back(node), 0u;
      };
      qmibtree_lookup(tree->inst, nullptr, uid, note, &found);
      std::copy_if(births.rbegin(), births.rend(), std::back_inserter(expected),
                   [&](const auto* node) { return node->uidinfo->uid == uid; });
      ASSERT_EQ(found, expected) << uid;
    }
    ASSERT_EQ(qmibtree_hash_lookup_uid(inst->uid_hash, schema.size()), nullptr);
  });
}

TEST_P(Differential, TheHighestInstanceIsTheHighestThatIsThere) {
  for_trees([](const qmibtree_inst_t* inst) {
    for (const qmibtree_node* node : plain::nodes(inst)) {
      uint32_t highest = 0, count = 0;
      for (const qmibtree_node* child = node->first_child; child; child = child->next, ++count)
        highest = std::max(highest, child->instance);
      ASSERT_EQ(node->last_instance, highest) << node->fullName;
      ASSERT_EQ(node->childnum, count) << node->fullName;
    }
  });
}

TEST_P(Differential, ANewInstanceGetsTheNextNumberOrAHigherOneThatIsWished) {
  for_trees([&](qmibtree_inst_t* inst) {
    qmibtree_node* const table = tree->node("A.T.");
    uint32_t highest = 0;
    bool in_use = false;
    for (const qmibtree_node* child = table->first_child; child; child = child->next)
      highest = std::max(highest, child->instance);
    const uint32_t wish = below(2) ? below(12) : highest + below(5);
    for (const qmibtree_node* child = table->first_child; child; child = child->next)
      in_use |= child->instance == wish;
    uint32_t number = wish;
    const uint32_t rc = qmibtree_add_object_by_node(inst, table, &number, 0, 255);
    ASSERT_EQ(rc, in_use ? QMIBTREE_RC_ERROR : QMIBTREE_RC_OK);
    ASSERT_EQ(number, in_use ? wish : std::max(highest + 1, wish));
    if (!in_use) qmibtree_del_object_by_node(inst, table->last_child, 0);
  });
}

TEST_P(Differential, TheDocumentIsThatOfThePlainWriter) {
  for_trees([](qmibtree_inst_t* inst) {
    for (qmibtree_node* node : plain::nodes(inst)) {
      if (found_by_search(inst, node->fullName) != node) continue;
      const std::string expected = plain::document(inst, node);
      ASSERT_EQ(render([&](qmibtree_buff_t* buff) {
                  return qmibtree_xml_dump_config(inst, node->fullName, buff, 0);
                }),
                expected)
          << node->fullName;
    }
    ASSERT_EQ(document_of(inst), plain::document(inst, inst->root));
  });
}

// A document in a buffer of every room: its front, and what counting says.
TEST_P(Differential, ADocumentIsCutWhereTheBufferEnds) {
  for (int change = 0; change < 40; ++change) (this->*any(kChanges))();
  const std::string whole = plain::document(tree->inst, tree->inst->root);
  qmibtree_buff_t counted = {};
  qmibtree_xml_dump_config(tree->inst, nullptr, &counted, 0);
  ASSERT_EQ(counted.size, whole.size());
  for (uint32_t room = 1; room <= whole.size() + 1; ++room) {
    std::string text(room, '\x7f');
    qmibtree_buff_t buff = {text.data(), text.data(), room, room};
    const uint32_t rc = qmibtree_xml_dump_config(tree->inst, nullptr, &buff, 0);
    ASSERT_EQ(rc, room > whole.size() ? QMIBTREE_RC_OK : QMIBTREE_RC_DUMP_EXCEEDED) << room;
    ASSERT_EQ(text.c_str(), whole.substr(0, room - 1)) << room;
  }
}

// Where a save stops, hosts find the buffer as the formats of each step would have left it.
void expect_cut_alike(qmibtree_inst_t* inst, const char* name, uint32_t room) {
  SCOPED_TRACE(room);
  std::string text(room + 1, '\x7f'), expected = text;
  qmibtree_buff_t buff = {text.data(), text.data(), room, room};
  qmibtree_buff_t plain_buff = {expected.data(), expected.data(), room, room};
  ASSERT_EQ(qmibtree_xml_dump_config(inst, name, &buff, 0),
            plain::write_document(inst, name, &plain_buff));
  ASSERT_EQ(buff.pos - buff.start, plain_buff.pos - plain_buff.start);
  ASSERT_EQ(buff.left, plain_buff.left);
  ASSERT_STREQ(text.c_str(), expected.c_str());
  ASSERT_EQ(text[room], '\x7f');  // behind the buffer
}

TEST_P(Differential, ACutDocumentLeavesTheBufferAtTheStepThatDidNotFit) {
  for (int change = 0; change < 60; ++change) (this->*any(kChanges))();
  const auto whole = static_cast<uint32_t>(plain::document(tree->inst, tree->inst->root).size());
  for (uint32_t room = 0; room <= whole + 1 && !HasFailure(); ++room)
    expect_cut_alike(tree->inst, nullptr, room);
}

TEST_P(Differential, ACutParameterLeavesTheBufferAtTheStepThatDidNotFit) {
  for (int change = 0; change < 60; ++change) (this->*any(kChanges))();
  for (qmibtree_node* node : plain::nodes(tree->inst)) {
    if (!(node->flags & QMIBTREE_NODE_PARAM)) continue;
    if (found_by_search(tree->inst, node->fullName) != node) continue;
    SCOPED_TRACE(node->fullName);
    const auto whole = static_cast<uint32_t>(plain::document(tree->inst, node).size());
    for (uint32_t room = 0; room <= whole + 1 && !HasFailure(); ++room)
      expect_cut_alike(tree->inst, node->fullName, room);
  }
}

TEST_P(Differential, AListingIsCountedAsItIsWritten) {
  for_trees([](qmibtree_inst_t* inst) {
    std::string expected;
    for (const qmibtree_node* node : plain::nodes(inst)) {
      int level = 0;
      for (const qmibtree_node* above = node->parent; above; above = above->parent) ++level;
      expected.append(1, '\n').append(static_cast<size_t>(level), ' ');
      if (node->flags & QMIBTREE_NODE_PARAM) {
        expected += node->fullName;
        expected += std::string(" (") + qmibtree_datatype_get_type_str(node->uidinfo->type) +
                    ") = " + plain::value_text(node->value);
      } else {
        expected += "+" + std::string(node->fullName) + (plain::is_template(node) ? "{i}." : "");
      }
    }
    qmibtree_buff_t counted = {};
    ASSERT_EQ(qmibtree_dump(inst, nullptr, &counted, 99, qmibtree_dump_dbg, nullptr), 0u);
    ASSERT_EQ(counted.size, expected.size());
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, Differential, ::testing::Values(1, 2));

}  // namespace
