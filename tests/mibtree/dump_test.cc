// Shows the debug dumps: the listing, the node counter and the single renderers.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t { kRoot, kInt, kUint, kString, kUnset, kBool, kBase64, kDatetime, kDynamic };

constexpr uint32_t kEnter = QMIBTREE_PHASE_ENTER, kLeave = QMIBTREE_PHASE_LEAVE;

Schema outline() {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "i", QMIBTREE_TYPE_INT, 0, "-5");
  schema.add(1, "u", QMIBTREE_TYPE_UINT, 0, "-1");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, 0, "two words");
  schema.add(1, "unset", QMIBTREE_TYPE_STRING);
  schema.add(1, "b", QMIBTREE_TYPE_BOOL, 0, "1");
  schema.add(1, "k", QMIBTREE_TYPE_BASE64);
  schema.add(1, "d", QMIBTREE_TYPE_DATETIME);
  schema.add(1, "dyn", QMIBTREE_TYPE_STRING, QMIBTREE_UID_DYNAMIC, "stored");
  schema.add(1, "B.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "x", QMIBTREE_TYPE_BOOL);
  schema.add(2, "C.");
  schema.add(1, "odd.", 99);
  return schema;
}

uint32_t get_result;
std::vector<uint32_t> get_flags;

// Hands over a text that stays the hook's.
uint32_t get(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t flags) {
  get_flags.push_back(flags);
  *value = string_value("fresh");
  return get_result;
}

class Dump : public ::testing::Test {
 protected:
  void SetUp() override {
    get_result = 0;
    get_flags.clear();
    ASSERT_NE(tree.inst, nullptr);
    schema.record(kDynamic).get_fn = get;
  }

  void add_instance() {
    uint32_t number = 0;
    ASSERT_EQ(qmibtree_add_object(tree.inst, "A.B.", &number, 0, 255), 0u);
  }

  // The listing of a subtree; "(<rc>)" when it fails.
  std::string listing(const char* name, int32_t depth = INT_MAX) {
    return render([&](qmibtree_buff_t* buff) {
      return qmibtree_dump(tree.inst, name, buff, depth, qmibtree_dump_dbg, nullptr);
    });
  }
  // What one call of a callback for a node writes.
  std::string one(qmibtree_dump_fn_t fn, const char* name, int32_t level, uint32_t phase) {
    return render([&](qmibtree_buff_t* buff) {
      return fn(tree.inst, tree.node(name), buff, level, nullptr, phase);
    });
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
};

const char* const kListing =
    "\n+A."
    "\n A.i (int) = -5"
    "\n A.u (unsignedInt) = 4294967295"
    "\n A.s (string) = two words"
    "\n A.unset (string) = <null>"
    "\n A.b (bool) = true"
    "\n A.k (base64) = "
    "\n A.d (datetime) = 1970-01-01T00:00:00"
    "\n A.dyn (string) = fresh"
    "\n +A.B.{i}."
    "\n  +A.B.1."
    "\n   A.B.1.x (bool) = false"
    "\n   +A.B.1.C."
    "\n +A.odd.";

TEST_F(Dump, TheListingShowsEveryNodeOnALineOfItsOwn) {
  add_instance();
  EXPECT_EQ(listing(nullptr), kListing);
}

TEST_F(Dump, AnObjectAndItsParameterAreTwoLines) {
  Schema small;
  small.add(0, "A.");
  small.add(1, "x", QMIBTREE_TYPE_INT, 0, "5");
  CheckedTree small_tree(small);
  ASSERT_NE(small_tree.inst, nullptr);
  EXPECT_EQ(render([&](qmibtree_buff_t* buff) {
              return qmibtree_dump(small_tree.inst, nullptr, buff, 99, qmibtree_dump_dbg, nullptr);
            }),
            "\n+A.\n A.x (int) = 5");
}

TEST_F(Dump, ATemplateIsShownWithAPlaceholderAndItsInstanceWithItsNumber) {
  add_instance();
  EXPECT_EQ(one(qmibtree_dump_dbg, "A.B.", 1, kEnter), "\n +A.B.{i}.");
  EXPECT_EQ(one(qmibtree_dump_dbg, "A.B.1.", 2, kEnter), "\n  +A.B.1.");
}

TEST_F(Dump, ATextWithoutAValueIsShownAsNull) {
  EXPECT_EQ(listing("A.unset"), "\nA.unset (string) = <null>");
}

TEST_F(Dump, BytesWithoutAValueAreShownAsNothing) {
  EXPECT_EQ(listing("A.k"), "\nA.k (base64) = ");
}

TEST_F(Dump, BytesAreShownAsBase64) {
  const qmibtree_value_t bytes = base64_value("abc", 3);
  ASSERT_EQ(qmibtree_write(tree.inst, "A.k", &bytes, 0), 0u);
  EXPECT_EQ(listing("A.k"), "\nA.k (base64) = YWJj");
}

TEST_F(Dump, TheTypeShownIsTheRecordsTheValuesFormItsOwn) {
  const qmibtree_value_t text = string_value("seven");
  ASSERT_EQ(qmibtree_write(tree.inst, "A.i", &text, 0), 0u);
  EXPECT_EQ(listing("A.i"), "\nA.i (int) = seven");
}

TEST_F(Dump, TheListingWritesNothingOnLeaving) {
  for (const char* name : {"A.", "A.i", "A.B.", "A.dyn"})
    EXPECT_EQ(one(qmibtree_dump_dbg, name, 3, kLeave), "") << name;
  EXPECT_TRUE(get_flags.empty());
}

TEST_F(Dump, EachLevelIndentsByOneBlank) {
  for (const int32_t level : {0, 1, 2, 25, 26, 27, 100})
    EXPECT_EQ(one(qmibtree_dump_dbg, "A.", level, kEnter),
              "\n" + std::string(static_cast<size_t>(level), ' ') + "+A.");
}

TEST_F(Dump, ADeepTreeIsListedWhole) {
  Schema deep;
  std::string expected, name;
  for (int depth = 0; depth < 40; ++depth) {
    deep.add(depth, "x.");
    name += "x.";
    expected += "\n" + std::string(static_cast<size_t>(depth), ' ') + "+" + name;
  }
  CheckedTree deep_tree(deep);
  ASSERT_NE(deep_tree.inst, nullptr);
  EXPECT_EQ(render([&](qmibtree_buff_t* buff) {
              return qmibtree_dump(deep_tree.inst, nullptr, buff, 99, qmibtree_dump_dbg, nullptr);
            }),
            expected);
}

TEST_F(Dump, TheDepthLimitsTheListing) {
  EXPECT_EQ(listing(nullptr, 0), "");
  EXPECT_EQ(listing(nullptr, 1), "\n+A.");
}

TEST_F(Dump, AnUnknownNameIsNotFound) { EXPECT_EQ(listing("A.x"), "(40)"); }

TEST_F(Dump, ADynamicParameterWithoutAHookStopsTheListing) {
  schema.record(kDynamic).get_fn = nullptr;
  std::string text(1000, '\0');
  qmibtree_buff_t buff = {text.data(), text.data(), 1000, 1000};
  EXPECT_EQ(qmibtree_dump(tree.inst, nullptr, &buff, 99, qmibtree_dump_dbg, nullptr),
            QMIBTREE_RC_NO_HOOK);
  const std::string all = kListing;
  EXPECT_EQ(text.c_str(), all.substr(0, all.find("fresh")));
}

TEST_F(Dump, AHooksFailureStopsTheListing) {
  get_result = QMIBTREE_RC_NO_RESOURCE;
  EXPECT_EQ(listing(nullptr), "(33)");
}

TEST_F(Dump, AFullBufferKeepsWhatFitted) {
  add_instance();
  const std::string all = kListing;
  for (uint32_t size = 1; size <= all.size() + 1; ++size) {
    std::string text(size, '#');
    qmibtree_buff_t buff = {text.data(), text.data(), size, size};
    EXPECT_EQ(qmibtree_dump(tree.inst, nullptr, &buff, 99, qmibtree_dump_dbg, nullptr),
              size <= all.size() ? QMIBTREE_RC_DUMP_EXCEEDED : 0u)
        << size;
    EXPECT_EQ(text.c_str(), all.substr(0, size - 1));
  }
}

TEST_F(Dump, ABufferWithoutRoomIsNotWrittenTo) {
  char byte = '#';
  qmibtree_buff_t buff = {&byte, &byte, 0, 0};
  for (const qmibtree_dump_fn_t fn :
       {qmibtree_dump_dbg, qmibtree_dump_rawtype, qmibtree_dump_rawvalue})
    EXPECT_EQ(fn(tree.inst, tree.node("A.i"), &buff, 0, nullptr, kEnter),
              QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(byte, '#');
}

TEST_F(Dump, TheCounterCountsEveryNodeOnce) {
  add_instance();
  uint32_t count = 0;
  EXPECT_EQ(
      qmibtree_dump(tree.inst, nullptr, nullptr, INT_MAX, qmibtree_dump_calc_node_num, &count), 0u);
  EXPECT_EQ(count, 14u);
}

TEST_F(Dump, TheCounterAddsToWhatItHolds) {
  uint32_t count = 10;
  EXPECT_EQ(qmibtree_dump(tree.inst, "A.i", nullptr, 9, qmibtree_dump_calc_node_num, &count), 0u);
  EXPECT_EQ(count, 11u);
}

TEST_F(Dump, TheDepthLimitsTheCount) {
  uint32_t count = 0;
  EXPECT_EQ(qmibtree_dump(tree.inst, nullptr, nullptr, 0, qmibtree_dump_calc_node_num, &count), 0u);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(qmibtree_dump(tree.inst, nullptr, nullptr, 1, qmibtree_dump_calc_node_num, &count), 0u);
  EXPECT_EQ(count, 1u);
}

TEST_F(Dump, TheCounterCountsOnLeaving) {
  uint32_t count = 0;
  qmibtree_node* const root = tree.inst->root;
  EXPECT_EQ(qmibtree_dump_calc_node_num(tree.inst, root, nullptr, 0, &count, kEnter), 0u);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(qmibtree_dump_calc_node_num(tree.inst, root, nullptr, 0, &count, kLeave), 0u);
  EXPECT_EQ(count, 1u);
}

TEST_F(Dump, TheRawTypeIsTheRecordsTypeName) {
  const struct {
    const char* name;
    const char* type;
  } rows[] = {{"A.", "object"},       {"A.B.", "object"},  {"A.i", "int"},
              {"A.u", "unsignedInt"}, {"A.s", "string"},   {"A.b", "bool"},
              {"A.k", "base64"},      {"A.d", "datetime"}, {"A.odd.", "unkown"}};
  for (const auto& row : rows) {
    EXPECT_EQ(one(qmibtree_dump_rawtype, row.name, 7, kEnter), row.type);
    EXPECT_EQ(one(qmibtree_dump_rawtype, row.name, 7, kLeave), "");
  }
}

TEST_F(Dump, TheRawValueIsTheValuesText) {
  const struct {
    const char* name;
    const char* text;
  } rows[] = {
      {"A.i", "-5"},   {"A.u", "4294967295"}, {"A.s", "two words"}, {"A.unset", "<null>"},
      {"A.b", "true"}, {"A.k", ""},           {"A.dyn", "fresh"},   {"A.d", "1970-01-01T00:00:00"}};
  for (const auto& row : rows)
    EXPECT_EQ(one(qmibtree_dump_rawvalue, row.name, 7, kEnter), row.text) << row.name;
}

TEST_F(Dump, AnObjectHasNoRawValue) {
  EXPECT_EQ(one(qmibtree_dump_rawvalue, "A.", 0, kEnter), "");
  EXPECT_EQ(one(qmibtree_dump_rawvalue, "A.odd.", 0, kEnter), "");
}

TEST_F(Dump, TheRawValueIsReadWithThePhaseAsFlags) {
  qmibtree_buff_t counted = {};
  qmibtree_node* const node = tree.node("A.dyn");
  EXPECT_EQ(qmibtree_dump_rawvalue(tree.inst, node, &counted, 0, nullptr, kEnter), 0u);
  EXPECT_EQ(get_flags, std::vector<uint32_t>{1});
}

TEST_F(Dump, TheRawValueIsNotReadOnLeaving) {
  get_result = QMIBTREE_RC_ERROR;
  EXPECT_EQ(one(qmibtree_dump_rawvalue, "A.dyn", 0, kLeave), "");
  EXPECT_TRUE(get_flags.empty());
}

TEST_F(Dump, ARawValueThatCannotBeReadIsTheReadsFailure) {
  get_result = 72;
  EXPECT_EQ(one(qmibtree_dump_rawvalue, "A.dyn", 0, kEnter), "(72)");
  schema.record(kDynamic).get_fn = nullptr;
  EXPECT_EQ(one(qmibtree_dump_rawvalue, "A.dyn", 0, kEnter), "(50)");
}

TEST_F(Dump, AHooksSuccessCodeIsNotPassedUpByTheRawValue) {
  get_result = 31;
  qmibtree_buff_t counted = {};
  qmibtree_node* const node = tree.node("A.dyn");
  EXPECT_EQ(qmibtree_dump_rawvalue(tree.inst, node, &counted, 0, nullptr, kEnter), 0u);
}

TEST_F(Dump, WhatAHookHandsOverStaysTheHosts) {
  static char* text;
  text = qstrdup("mine", "test");
  schema.record(kDynamic).get_fn = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value,
                                      uint32_t) {
    *value = string_value(text);
    value->owned = 1;
    return 0u;
  };
  const int before = live_blocks();
  EXPECT_EQ(listing("A.dyn"), "\nA.dyn (string) = mine");
  EXPECT_EQ(live_blocks(), before);
  EXPECT_STREQ(text, "mine");
  qfree(text);
}

TEST_F(Dump, TheDynamicAttributesPlaceholderIsADashUnlessLeaving) {
  const struct {
    uint32_t phase;
    const char* text;
  } rows[] = {{0, "-"}, {1, "-"}, {2, ""}, {3, ""}, {4, "-"}, {6, ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(render([&](qmibtree_buff_t* buff) {
                return qmibtree_dump_rawdynattr(nullptr, buff, 0, nullptr, row.phase);
              }),
              row.text)
        << row.phase;
  }
}

TEST_F(Dump, ThePlaceholderNeedsRoom) {
  char byte = '#';
  qmibtree_buff_t buff = {&byte, &byte, 1, 1};
  EXPECT_EQ(qmibtree_dump_rawdynattr(nullptr, &buff, 0, nullptr, kEnter),
            QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_EQ(byte, '\0');
}

TEST_F(Dump, TheLookupTracePrintsTheFullName) {
  testing::internal::CaptureStdout();
  const uint32_t rc = qmibtree_lookup_dbg(tree.inst, tree.node("A.i"), nullptr);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n[lookup dbg]: A.i");
  EXPECT_EQ(rc, 0u);
}

TEST_F(Dump, TheLookupTracePrintsALineForEveryNodeVisited) {
  for (int i = 0; i < 2; ++i) add_instance();
  testing::internal::CaptureStdout();
  const uint32_t rc = qmibtree_lookup(tree.inst, nullptr, 10, qmibtree_lookup_dbg, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n[lookup dbg]: A.B.2.x\n[lookup dbg]: A.B.1.x");
  EXPECT_EQ(rc, 0u);
}

}  // namespace
