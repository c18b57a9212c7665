// Shows that a saved configuration comes back: save, load, save ends with the same bytes; and the
// few things that do not come back.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

// Parameters of every type, always saved at the top and in U., saved when modified in T.
struct AllTypes : Schema {
  AllTypes() {
    add(0, "R.");
    add_types(1, QMIBTREE_UID_SAVE);
    add(1, "Plain", QMIBTREE_TYPE_INT, 0, "1");
    add(1, "O.");
    add(2, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add_types(3, QMIBTREE_UID_SAVE_MODIFIED);
    add(3, "U.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add_types(4, QMIBTREE_UID_SAVE);
    add(1, "Last", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE, "7");
  }

 private:
  void add_types(int depth, uint32_t flags) {
    add(depth, "Int", QMIBTREE_TYPE_INT, flags, "-1");
    add(depth, "Uint", QMIBTREE_TYPE_UINT, flags, "1");
    add(depth, "Str", QMIBTREE_TYPE_STRING, flags, "");
    add(depth, "Date", QMIBTREE_TYPE_DATETIME, flags, "2010-05-06T07:08:09");
    add(depth, "Key", QMIBTREE_TYPE_BASE64, flags);
    add(depth, "Bool", QMIBTREE_TYPE_BOOL, flags, "false");
  }
};

class RoundTrip : public StoreTest {
 protected:
  ~RoundTrip() override {
    // Base64 text, as a load writes it, is decoded into blocks that nobody frees.
    const std::vector<std::string> tags = allocation_tags();
    expect_kept_blocks(static_cast<int>(std::count(tags.begin(), tags.end(), "base64 decode")));
  }

  void write(const std::string& name, const char* text) {
    ASSERT_EQ(qmibtree_write_strvalue(tree.inst, name.c_str(), text, 0), QMIBTREE_RC_OK) << name;
  }

  void write(const std::string& name, const qmibtree_value_t& value) {
    ASSERT_EQ(qmibtree_write(tree.inst, name.c_str(), &value, 0), QMIBTREE_RC_OK) << name;
  }

  // Saves, loads into a new tree (which saves again), and compares.
  void expect_round_trip(Schema& schema, qmibtree_inst_t* inst) {
    const std::string document = document_of(inst);
    ASSERT_LT(document.size(), QMIBTREE_NVRAM_MAX);
    stdout_of([&] { ASSERT_EQ(qmibtree_save_config(inst), 0); });
    const std::string main = flash_read(kMain), backup = flash_read(kBackup);
    ASSERT_EQ(flash_text(kMain), document);

    CheckedTree next(schema);
    stdout_of([&] { ASSERT_EQ(qmibtree_load_config(next.inst), 0); });
    EXPECT_EQ(flash_read(kTrace),
              "\n -- check nvram success --\n\n -- write config and bak file --\n");
    EXPECT_EQ(document_of(next.inst), document);
    EXPECT_TRUE(flash_read(kMain) == main);
    EXPECT_TRUE(flash_read(kBackup) == backup);
  }

  void expect_round_trip() { expect_round_trip(schema, tree.inst); }

  AllTypes schema;
  CheckedTree tree{schema};
};

TEST_F(RoundTrip, TreeAsBuilt) { expect_round_trip(); }

TEST_F(RoundTrip, BoundsOfTheNumbers) {
  write("R.Int", int_value(INT_MIN));
  write("R.Uint", uint_value(UINT_MAX));
  add_instance(tree.inst, "R.O.T.");
  write("R.O.T.1.Int", int_value(INT_MAX));
  write("R.O.T.1.Uint", uint_value(UINT_MAX - 1));
  expect_round_trip();

  CheckedTree next(schema);
  stdout_of([&] { qmibtree_load_config(next.inst); });
  EXPECT_EQ(read_text(next.inst, "R.Int"), "-2147483648");
  EXPECT_EQ(read_text(next.inst, "R.Uint"), "4294967295");
  EXPECT_EQ(read_text(next.inst, "R.O.T.1.Int"), "2147483647");
  EXPECT_EQ(read_text(next.inst, "R.O.T.1.Uint"), "4294967294");
}

TEST_F(RoundTrip, BytesOfEveryValue) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  write("R.Key", base64_value(bytes.data(), 256));
  expect_round_trip();

  CheckedTree next(schema);
  stdout_of([&] { qmibtree_load_config(next.inst); });
  const qmibtree_value_t expected = base64_value(bytes.data(), 256);
  EXPECT_EQ(qmibtree_compare(next.inst, "R.Key", &expected, 0), QMIBTREE_RC_OK);
}

TEST_F(RoundTrip, TextWithBlanksQuotesAndOtherScripts) {
  for (const char* text : {" a  b\t", "\"'>]]",
                           "stra\xc3\x9f"
                           "e \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x8f\xa0",
                           "{i}.%s%n", "-"}) {
    write("R.Str", text);
    expect_round_trip();
  }
}

TEST_F(RoundTrip, InstancesWithGapsRightsAndInstancesInThem) {
  for (const auto& [number, right] : std::vector<std::pair<uint32_t, uint32_t>>{
           {1, 255}, {2, 0}, {17, 1}, {100, UINT32_MAX}, {999, 255}})
    EXPECT_EQ(add_instance(tree.inst, "R.O.T.", number, right), number);
  ASSERT_EQ(qmibtree_del_object(tree.inst, "R.O.T.1.", 0), QMIBTREE_RC_OK);
  add_instance(tree.inst, "R.O.T.999.U.", 998, 3);
  add_instance(tree.inst, "R.O.T.999.U.", 999);
  add_instance(tree.inst, "R.O.T.2.U.", 4);
  write("R.O.T.999.U.999.Str", "deep");
  write("R.O.T.17.Bool", "true");
  expect_round_trip();
}

TEST_F(RoundTrip, EveryInstanceFrom1To999) {
  Schema many;
  many.add(0, "R.");
  many.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  many.add(2, "P", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE_MODIFIED, "0");
  CheckedTree many_tree(many);
  for (uint32_t number = 1; number <= 999; ++number)
    ASSERT_EQ(add_instance(many_tree.inst, "R.T."), number);
  ASSERT_EQ(qmibtree_write_strvalue(many_tree.inst, "R.T.999.P", "999", 0), QMIBTREE_RC_OK);
  expect_round_trip(many, many_tree.inst);
}

TEST_F(RoundTrip, AttributesWithAndWithoutAValue) {
  add_instance(tree.inst, "R.O.T.");
  qmibtree_set_attr(tree.inst, "R.Plain", QMIBTREE_ATTR_NOTIF_PASSIVE);
  qmibtree_set_attr(tree.inst, "R.Int",
                    QMIBTREE_ATTR_NOTIF_ACTIVE | QMIBTREE_ATTR_ACCESS_SUBSCRIBER);
  qmibtree_set_attr(tree.inst, "R.O.T.1.Key", QMIBTREE_ATTR_ACCESS_SUBSCRIBER);
  write("R.O.T.1.Str", "modified");
  qmibtree_set_attr(tree.inst, "R.O.T.1.Str", QMIBTREE_ATTR_NOTIF_PASSIVE);
  expect_round_trip();

  CheckedTree next(schema);
  stdout_of([&] { qmibtree_load_config(next.inst); });
  uint32_t attr = 0;
  qmibtree_get_attr(next.inst, "R.Plain", &attr);
  EXPECT_EQ(attr, QMIBTREE_ATTR_NOTIF_PASSIVE | QMIBTREE_ATTR_ACCESS_NONE);
  qmibtree_get_attr(next.inst, "R.Int", &attr);
  EXPECT_EQ(attr, QMIBTREE_ATTR_NOTIF_ACTIVE | QMIBTREE_ATTR_ACCESS_SUBSCRIBER);
}

// Trees of any shape: instances come and go, values and attributes change.
class RandomRoundTrip : public RoundTrip, public ::testing::WithParamInterface<unsigned> {
 protected:
  RandomRoundTrip() { tree.events = Events::kMayBeGone; }

  uint32_t below(uint32_t end) { return static_cast<uint32_t>(random() % end); }

  void change_one() {
    const auto step = kSteps[below(std::size(kSteps))];
    (this->*step)();
  }

 private:
  using Step = void (RandomRoundTrip::*)();
  static const Step kSteps[5];

  void add_one() {
    const uint32_t rights[] = {255, 0, 7, UINT32_MAX};
    std::string name = "R.O.T.";
    const std::string outer = any_instance(name);
    if (!outer.empty() && below(2)) name = outer + "U.";
    const uint32_t last = qmibtree_find_node_by_name(tree.inst, name.c_str())->last_instance;
    if (last < 900) add_instance(tree.inst, name.c_str(), last + 1 + below(40), rights[below(4)]);
  }

  void delete_one() {
    const std::string name = any_instance("R.O.T.");
    if (!name.empty()) {
      EXPECT_EQ(qmibtree_del_object(tree.inst, name.c_str(), 0), QMIBTREE_RC_OK);
    }
  }

  void write_number() {
    write(any_object() + "Int", int_value(static_cast<int32_t>(random())));
    write(any_object() + "Uint", uint_value(static_cast<uint32_t>(random())));
    write(any_object() + "Bool", bool_value(below(2) != 0));
  }

  void write_text() {
    std::string text;
    for (uint32_t left = below(20); left > 0; --left) text += static_cast<char>('A' + below(50));
    write(any_object() + "Str", string_value(text.c_str()));
    if (!text.empty())
      write(any_object() + "Key", base64_value(text.data(), static_cast<uint32_t>(text.size())));
  }

  void set_attributes() {
    const char* const names[] = {"Int", "Date", "Key", "Bool"};
    qmibtree_set_attr(tree.inst, (any_object() + names[below(4)]).c_str(), below(32));
  }

  // The full name of an instance of a template, "" when it has none.
  std::string any_instance(const std::string& name) {
    const int32_t count = qmibtree_get_childnum(tree.inst, name.c_str());
    if (count == 0) return "";
    const qmibtree_node* node = qmibtree_find_node_by_name(tree.inst, name.c_str())->first_child;
    for (uint32_t skip = below(static_cast<uint32_t>(count)); skip > 0; --skip) node = node->next;
    return node->fullName;
  }

  // An object with parameters of every type.
  std::string any_object() {
    const std::string outer = any_instance("R.O.T.");
    if (outer.empty() || below(4) == 0) return "R.";
    const std::string inner = any_instance(outer + "U.");
    return inner.empty() || below(2) ? outer : inner;
  }

  std::mt19937 random{GetParam()};
};

const RandomRoundTrip::Step RandomRoundTrip::kSteps[5] = {
    &RandomRoundTrip::add_one, &RandomRoundTrip::delete_one, &RandomRoundTrip::write_number,
    &RandomRoundTrip::write_text, &RandomRoundTrip::set_attributes};

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRoundTrip, ::testing::Range(1u, 11u));

TEST_P(RandomRoundTrip, EndsWithTheSameBytes) {
  for (int round = 0; round < 5; ++round) {
    for (int i = 0; i < 40; ++i) change_one();
    expect_round_trip();
  }
}

// --- what does not come back ---

class NoRoundTrip : public RoundTrip {
 protected:
  // A tree with what this tree's document brings.
  void reload(Tree& next) {
    ASSERT_EQ(load_document(next.inst, document_of(tree.inst)), QMIBTREE_RC_OK);
  }
};

// Deliberate: datetime text is saved and refused at the load.
TEST_F(NoRoundTrip, DatetimeComesBackAsItsDefault) {
  write("R.Date", datetime_value(0));
  CheckedTree next(schema);
  reload(next);
  EXPECT_EQ(read_text(tree.inst, "R.Date"), "1970-01-01T00:00:00");
  const qmibtree_value_t built = next.node("R.Date")->default_value;
  EXPECT_EQ(qmibtree_compare(next.inst, "R.Date", &built, 0), QMIBTREE_RC_OK);
}

// An empty element brings no text, so nothing is written.
TEST_F(NoRoundTrip, EmptyTextComesBackAsItsDefault) {
  for (uint32_t uid = 0; uid < schema.size(); ++uid)
    if (schema.record(uid).type == QMIBTREE_TYPE_STRING) schema.record(uid).defval = "default";
  write("R.Str", "");
  CheckedTree next(schema);
  reload(next);
  EXPECT_EQ(read_text(next.inst, "R.Str"), "default");
}

// A parameter without notification has no notification attribute, so its record's stays.
TEST_F(NoRoundTrip, NotificationSwitchedOffComesBackWhereTheSchemaSwitchesItOn) {
  schema.record(1).flags |= QMIBTREE_UID_NOTIF_DEFAULT;
  qmibtree_set_attr(tree.inst, "R.Int", QMIBTREE_ATTR_NOTIF_OFF);
  CheckedTree next(schema);
  reload(next);
  EXPECT_NE(next.node("R.Int")->flags & QMIBTREE_NODE_NOTIF_ACTIVE, 0u);
}

// Deliberate: only the last piece of a text with line ends is kept.
TEST_F(NoRoundTrip, TextOfSeveralLinesComesBackAsItsLastPiece) {
  write("R.Str", "one\ntwo");
  CheckedTree next(schema);
  reload(next);
  EXPECT_EQ(read_text(next.inst, "R.Str"), "two");
}

// Deliberate: an instance's name loses its dot from 1000 on, and with it the way to its values.
TEST_F(NoRoundTrip, InstanceOf1000ComesBackWithoutItsValues) {
  add_instance(tree.inst, "R.O.T.", 1000);
  write("R.O.T.1000Str", "lost");
  CheckedTree next(schema);
  reload(next);
  EXPECT_EQ(qmibtree_get_childnum(next.inst, "R.O.T."), 1);
  EXPECT_EQ(read_text(next.inst, "R.O.T.1000Str"), "");
}

}  // namespace
