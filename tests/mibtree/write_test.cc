// Shows the life of a write: what refuses it, what it sets off, in which order, and what is stored.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

enum : uint32_t {
  kRoot,
  kInt,
  kUint,
  kString,
  kBool,
  kDatetime,
  kBase64,
  kReadonly,
  kDynamic,
  kSilent,
  kTable,
  kEntry,
  kUnused
};

constexpr uint32_t kComponent = 3, kOtherComponent = 4;
constexpr uint32_t kNoEvent = QMIBTREE_WRITE_NOEVENT;
constexpr uint32_t kSubscriber = QMIBTREE_WRITE_SUBSCRIBER;
constexpr uint32_t kApply = QMIBTREE_WRITE_APPLY;

Schema outline() {
  constexpr uint32_t kReported = QMIBTREE_UID_NOTIF_DEFAULT;
  Schema schema;
  schema.add(0, "A.");
  qmibtree_uidinfo_t& number = schema.add(1, "i", QMIBTREE_TYPE_INT, kReported, "5");
  number.int_min = -10;
  number.int_max = 10;
  qmibtree_uidinfo_t& count = schema.add(1, "u", QMIBTREE_TYPE_UINT, kReported, "5");
  count.uint_min = 2;
  count.uint_max = 4000000000u;
  schema.add(1, "s", QMIBTREE_TYPE_STRING, kReported, "abc").max_len = 3;
  schema.add(1, "b", QMIBTREE_TYPE_BOOL, kReported, "0");
  schema.add(1, "d", QMIBTREE_TYPE_DATETIME, kReported);
  schema.add(1, "k", QMIBTREE_TYPE_BASE64, kReported).max_len = 4;
  schema.add(1, "ro", QMIBTREE_TYPE_INT, kReported | QMIBTREE_UID_READONLY, "5");
  schema.add(1, "dyn", QMIBTREE_TYPE_INT, kReported | QMIBTREE_UID_DYNAMIC, "5");
  schema.add(1, "silent", QMIBTREE_TYPE_INT, 0, "5").int_max = 10;
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "e", QMIBTREE_TYPE_INT, kReported, "5");
  for (uint32_t uid = 0; uid < schema.size(); ++uid) schema.record(uid).comp = kComponent;
  return schema;
}

class Write;
Write* running;  // the test that the hooks serve

// The host behind set_fn: what it was asked, and what it answers.
struct Host {
  std::vector<std::string> asked;  // the node's outcome() at the time, then the new value
  const qmibtree_value_t* value = nullptr;
  std::vector<uint32_t> results;  // in turn, then 0

  uint32_t answer() const { return asked.size() <= results.size() ? results[asked.size() - 1] : 0; }
};

class Write : public ::testing::Test {
 public:
  // The node's value, then what a write has done: "6 modified mark event callback".
  std::string outcome(const qmibtree_node* node) const {
    std::string text = text_of(node->value);
    if (node->flags & QMIBTREE_NODE_MODIFIED) text += " modified";
    if (qmibtree_comp_chk_mark(kComponent, QMIBTREE_COMP_MARK_CHANGED)) text += " mark";
    for (uint32_t i = 0; i < tree.inst->notif->num; ++i)
      if (qmibtree_notif_get_event(tree.inst->notif, i) == node) text += " event";
    for (const Change& change : changes())
      if (change.node == node) text += " callback";
    return text;
  }
  std::string outcome(const char* name) const { return outcome(tree.node(name)); }

  Host host;

 protected:
  void SetUp() override {
    ASSERT_NE(tree.inst, nullptr);
    for (const uint32_t id : {kComponent, kOtherComponent})
      qmibtree_comp_register(id, 0, nullptr, nullptr, nullptr, nullptr);
    forget();
    running = this;
  }
  void TearDown() override {
    running = nullptr;
    on_change() = nullptr;
  }

  // Forgets the marks, events and calls so far; values and flags stay.
  void forget() {
    qmibtree_comp_unmark_all();
    qmibtree_notif_cleanup(tree.inst->notif);
    changes().clear();
    host = Host();
  }

  void ask_host_about(uint32_t uid) { schema.record(uid).set_fn = set; }

  uint32_t write(const char* name, const qmibtree_value_t& value, uint32_t flags) {
    return qmibtree_write(tree.inst, name, &value, flags);
  }
  uint32_t write(const char* name, int32_t value, uint32_t flags) {
    return write(name, int_value(value), flags);
  }
  uint32_t write_text(const char* name, const char* text, uint32_t flags = 0) {
    return qmibtree_write_strvalue(tree.inst, name, text, flags);
  }

  static uint32_t set(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
    Host& host = running->host;
    EXPECT_EQ(inst, running->tree.inst);
    host.asked.push_back(running->outcome(node) + ": " + text_of(*value));
    host.value = value;
    return host.answer();
  }

  LeakCheck leaks;
  Schema schema = outline();
  CheckedTree tree{schema};
};

// Access.

TEST_F(Write, AnExternalWriteStoresMarksQueuesAndCallsBack) {
  EXPECT_EQ(write("A.i", 6, kApply), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified mark event callback");
}

TEST_F(Write, AnInternalWriteDoesNotMark) {
  EXPECT_EQ(write("A.i", 6, 0), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
}

TEST_F(Write, ReadonlyRefusesEveryExternalWrite) {
  ask_host_about(kReadonly);
  ASSERT_EQ(qmibtree_set_attr(tree.inst, "A.ro", QMIBTREE_ATTR_ACCESS_SUBSCRIBER), 0u);
  for (const uint32_t flags : {kNoEvent, kSubscriber, kApply, kNoEvent | kApply, 0x1cu, ~0u})
    EXPECT_EQ(write("A.ro", 6, flags), QMIBTREE_RC_NOT_ALLOWED) << flags;
  EXPECT_EQ(outcome("A.ro"), "5");
  EXPECT_TRUE(host.asked.empty());
}

TEST_F(Write, ReadonlyTakesAnInternalWrite) {
  EXPECT_EQ(write("A.ro", 6, 0), 0u);
  EXPECT_EQ(outcome("A.ro"), "6 modified event callback");
}

TEST_F(Write, OnlyTheThreeWriteFlagsMakeAWriteExternal) {
  EXPECT_EQ(write("A.ro", 6, ~0x1cu), 0u);
  EXPECT_EQ(outcome("A.ro"), "6 modified event callback");
}

TEST_F(Write, ASubscriberNeedsAccess) {
  ask_host_about(kInt);
  EXPECT_EQ(write("A.i", 6, kSubscriber), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(write("A.i", 6, kSubscriber | kApply | kNoEvent), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(outcome("A.i"), "5");
  EXPECT_TRUE(host.asked.empty());
}

TEST_F(Write, ASubscriberWithAccessWritesAndMarks) {
  ASSERT_EQ(qmibtree_set_attr(tree.inst, "A.i", QMIBTREE_ATTR_ACCESS_SUBSCRIBER), 0u);
  EXPECT_EQ(write("A.i", 6, kSubscriber), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified mark event callback");
}

TEST_F(Write, TheAccessRuleComesBeforeTheBounds) {
  EXPECT_EQ(write("A.i", 11, kSubscriber), QMIBTREE_RC_NOT_ALLOWED);
  schema.record(kReadonly).int_max = 5;
  EXPECT_EQ(write("A.ro", 6, kApply), QMIBTREE_RC_NOT_ALLOWED);
}

// Bounds.

TEST_F(Write, AValueOutsideTheBoundsIsRefusedBeforeTheHostIsAsked) {
  const qmibtree_value_t four = string_value("abcd"), five_bytes = base64_value("12345", 5);
  const struct {
    const char* name;
    uint32_t uid;
    qmibtree_value_t value;
    const char* outcome;
  } rows[] = {{"A.i", kInt, int_value(11), "5"},  {"A.i", kInt, int_value(-11), "5"},
              {"A.u", kUint, uint_value(1), "5"}, {"A.u", kUint, uint_value(4000000001u), "5"},
              {"A.s", kString, four, "abc"},      {"A.k", kBase64, five_bytes, ""}};
  for (const auto& row : rows) {
    ask_host_about(row.uid);
    for (const uint32_t flags : {0u, kNoEvent, kApply})
      EXPECT_EQ(write(row.name, row.value, flags), QMIBTREE_RC_OUT_OF_RANGE) << row.name;
    EXPECT_EQ(outcome(row.name), row.outcome);
    EXPECT_TRUE(host.asked.empty()) << row.name;
  }
}

TEST_F(Write, AValueOnTheBoundsIsStored) {
  const struct {
    const char* name;
    qmibtree_value_t value;
    const char* text;
  } rows[] = {{"A.i", int_value(10), "10"},        {"A.i", int_value(-10), "-10"},
              {"A.u", uint_value(2), "2"},         {"A.u", uint_value(4000000000u), "4000000000"},
              {"A.s", string_value("xyz"), "xyz"}, {"A.k", base64_value("1234", 4), "MTIzNA=="}};
  for (const auto& row : rows) {
    EXPECT_EQ(write(row.name, row.value, 0), 0u) << row.name;
    EXPECT_EQ(text_of(tree.node(row.name)->value), row.text);
  }
}

TEST_F(Write, ARefusedValueLeavesTheModifiedFlag) {
  ASSERT_EQ(write("A.i", 6, 0), 0u);
  EXPECT_EQ(write("A.i", 11, 0), QMIBTREE_RC_OUT_OF_RANGE);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
}

TEST_F(Write, AValueOfAnotherTypeIsStoredWithItsOwn) {
  EXPECT_EQ(write("A.i", string_value("six"), kApply), 0u);
  EXPECT_EQ(tree.node("A.i")->value.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(outcome("A.i"), "six modified mark event callback");
}

TEST_F(Write, AnObjectsNodeTakesAValue) {
  EXPECT_EQ(write("A.", string_value("six"), kApply), 0u);
  EXPECT_EQ(outcome(tree.inst->root), "six modified mark callback");
}

TEST_F(Write, TheBoundsOfTheValuesOwnTypeCount) {
  EXPECT_EQ(write("A.s", int_value(99), 0), 0u);
  EXPECT_EQ(write("A.i", uint_value(99), 0), 0u);
  schema.record(kInt).uint_max = 98;
  EXPECT_EQ(write("A.i", uint_value(99), 0), QMIBTREE_RC_OUT_OF_RANGE);
}

TEST_F(Write, AnEqualNumberOfAnotherTypeIsAChange) {
  EXPECT_EQ(write("A.i", uint_value(5), 0), 0u);
  EXPECT_EQ(tree.node("A.i")->value.type, QMIBTREE_TYPE_UINT);
  EXPECT_EQ(outcome("A.i"), "5 modified event callback");
  EXPECT_EQ(write("A.i", int_value(5), 0), 0u);
  EXPECT_EQ(tree.node("A.i")->value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(outcome("A.i"), "5 event callback callback");
}

TEST_F(Write, AValueWithoutATypeSetsEverythingOffAndStoresNothing) {
  EXPECT_EQ(write("A.i", qmibtree_value_t{}, kApply), 0u);
  EXPECT_EQ(outcome("A.i"), "5 modified mark event callback");
}

TEST_F(Write, AValueThatCannotBeComparedIsAlwaysAChange) {
  const qmibtree_value_t none = {};
  for (int i = 0; i < 2; ++i) {
    forget();
    EXPECT_EQ(qmibtree_write_by_node(tree.inst, tree.inst->root, &none, kApply), 0u);
    EXPECT_EQ(outcome("A."), " modified mark callback");
  }
}

// The host's set_fn.

TEST_F(Write, TheHostIsAskedBeforeAnythingChanges) {
  ask_host_about(kInt);
  const qmibtree_value_t six = int_value(6);
  EXPECT_EQ(qmibtree_write(tree.inst, "A.i", &six, kApply), 0u);
  EXPECT_EQ(host.asked, std::vector<std::string>{"5: 6"});
  EXPECT_EQ(host.value, &six);
  EXPECT_EQ(outcome("A.i"), "6 modified mark event callback");
}

TEST_F(Write, TheHostsRefusalIsPassedUpAndNothingChanges) {
  ask_host_about(kInt);
  for (const uint32_t refusal : {32u, 50u, 72u, UINT32_MAX}) {
    forget();
    host.results = {refusal};
    EXPECT_EQ(write("A.i", 6, kApply), refusal);
    EXPECT_EQ(outcome("A.i"), "5");
  }
}

TEST_F(Write, TheHostsRefusalLeavesTheModifiedFlag) {
  ASSERT_EQ(write("A.i", 6, 0), 0u);
  forget();
  ask_host_about(kInt);
  host.results = {72};
  EXPECT_EQ(write("A.i", 5, kApply), QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(outcome("A.i"), "6 modified");
}

TEST_F(Write, TheHostsSuccessCodeIsTheResult) {
  ask_host_about(kInt);
  host.results = {31, 7};
  EXPECT_EQ(write("A.i", 6, 0), 31u);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
  EXPECT_EQ(write("A.i", 6, 0), 7u);
}

TEST_F(Write, TheHostIsAskedAboutAnUnchangedValueToo) {
  ask_host_about(kInt);
  EXPECT_EQ(write("A.i", 5, 0), 0u);
  EXPECT_EQ(host.asked, std::vector<std::string>{"5: 5"});
}

TEST_F(Write, DynamicWithoutHookIsStored) {
  EXPECT_EQ(write("A.dyn", 6, kApply), QMIBTREE_RC_NO_HOOK);
  EXPECT_EQ(outcome("A.dyn"), "6 modified mark event callback");
}

TEST_F(Write, DynamicWithoutHookAnswersNoHookForAnUnchangedValueToo) {
  EXPECT_EQ(write("A.dyn", 5, kApply), QMIBTREE_RC_NO_HOOK);
  EXPECT_EQ(outcome("A.dyn"), "5");
}

TEST_F(Write, DynamicWithAHookAnswersWhatTheHookDoes) {
  ask_host_about(kDynamic);
  host.results = {3};
  EXPECT_EQ(write("A.dyn", 6, kApply), 3u);
  EXPECT_EQ(outcome("A.dyn"), "6 modified mark event callback");
}

// The MODIFIED flag.

TEST_F(Write, WritingTheDefaultBackClearsTheModifiedFlag) {
  ASSERT_EQ(write("A.s", string_value("new"), 0), 0u);
  EXPECT_EQ(outcome("A.s"), "new modified event callback");
  forget();
  EXPECT_EQ(write("A.s", string_value("abc"), 0), 0u);
  EXPECT_EQ(outcome("A.s"), "abc event callback");
}

TEST_F(Write, AWriteNeverChangesTheDefault) {
  ASSERT_EQ(write("A.s", string_value("new"), 0), 0u);
  ASSERT_EQ(write("A.i", uint_value(6), 0), 0u);
  EXPECT_EQ(text_of(tree.node("A.s")->default_value), "abc");
  EXPECT_EQ(tree.node("A.i")->default_value.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(tree.node("A.i")->default_value.i, 5);
}

TEST_F(Write, WithoutADefaultTheEmptyValueIsTheDefault) {
  EXPECT_EQ(write("A.d", datetime_value(0), 0), 0u);
  EXPECT_EQ(outcome("A.d"), "1970-01-01T00:00:00");
  EXPECT_EQ(write("A.k", base64_value("a", 1), 0), 0u);
  EXPECT_EQ(outcome("A.k"), "YQ== modified event callback");
  EXPECT_EQ(write("A.k", base64_value(nullptr, 0), 0), 0u);
  EXPECT_EQ(outcome("A.k"), " event callback callback");
}

// An unchanged value.

TEST_F(Write, TheCurrentValueAgainSetsNothingOff) {
  const char* const stored = tree.node("A.s")->value.str;
  const char same[] = "abc";
  const long made = allocations_made();
  EXPECT_EQ(write("A.s", string_value(same), kApply), 0u);
  EXPECT_EQ(allocations_made(), made);
  EXPECT_EQ(tree.node("A.s")->value.str, stored);
  EXPECT_EQ(outcome("A.s"), "abc");
}

TEST_F(Write, TheCurrentValueAgainStillSetsTheModifiedFlag) {
  ASSERT_EQ(write("A.i", 6, 0), 0u);
  forget();
  tree.node("A.i")->flags &= ~QMIBTREE_NODE_MODIFIED;
  EXPECT_EQ(write("A.i", 6, kApply), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified");
}

TEST_F(Write, TheCurrentValueAgainStillClearsTheModifiedFlag) {
  tree.node("A.i")->flags |= QMIBTREE_NODE_MODIFIED;
  EXPECT_EQ(write("A.i", 5, kApply), 0u);
  EXPECT_EQ(outcome("A.i"), "5");
}

TEST_F(Write, WhatWasReadCanBeWrittenBack) {
  qmibtree_value_t shared = {};
  ASSERT_EQ(qmibtree_read(tree.inst, "A.s", &shared, 0), 0u);
  EXPECT_EQ(write("A.s", shared, kApply), 0u);
  EXPECT_EQ(outcome("A.s"), "abc");
}

// The component's mark.

TEST_F(Write, AnyOfTheThreeWriteFlagsMarks) {
  ASSERT_EQ(qmibtree_set_attr(tree.inst, "A.i", QMIBTREE_ATTR_ACCESS_SUBSCRIBER), 0u);
  int32_t value = -10;
  for (const uint32_t flags : {kNoEvent, kSubscriber, kApply, 0x1cu}) {
    forget();
    EXPECT_EQ(write("A.i", value++, flags), 0u);
    EXPECT_EQ(qmibtree_comp_chk_mark(kComponent, QMIBTREE_COMP_MARK_CHANGED), 1) << flags;
  }
}

TEST_F(Write, TheMarkIsTheChangedBitOfTheOwningComponentAlone) {
  EXPECT_EQ(write("A.i", 6, kApply), 0u);
  EXPECT_EQ(qmibtree_comp_chk_mark(kComponent, ~QMIBTREE_COMP_MARK_CHANGED), 0);
  EXPECT_EQ(qmibtree_comp_chk_mark(kOtherComponent, UINT32_MAX), 0);
}

TEST_F(Write, AParameterWithoutAComponentMarksNothing) {
  schema.record(kInt).comp = 32 + kComponent;
  EXPECT_EQ(write("A.i", 6, kApply), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
}

// The change event.

TEST_F(Write, NoEventSuppressesTheEventAlone) {
  EXPECT_EQ(write("A.i", 6, kNoEvent), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified mark callback");
}

TEST_F(Write, WithoutNotificationNoEventIsQueued) {
  EXPECT_EQ(write("A.silent", 6, kApply), 0u);
  EXPECT_EQ(outcome("A.silent"), "6 modified mark callback");
}

// The store.

TEST_F(Write, TheNodeKeepsItsOwnCopyOfAText) {
  char text[] = "new";
  EXPECT_EQ(write("A.s", string_value(text), 0), 0u);
  text[0] = 'N';
  EXPECT_STREQ(tree.node("A.s")->value.str, "new");
  EXPECT_EQ(tree.node("A.s")->value.owned, 1);
}

TEST_F(Write, TheNodeKeepsItsOwnCopyOfBytes) {
  uint8_t bytes[] = {1, 0, 2};
  EXPECT_EQ(write("A.k", base64_value(bytes, 3), 0), 0u);
  bytes[0] = 9;
  EXPECT_EQ(outcome("A.k"), "AQAC modified event callback");
  EXPECT_EQ(tree.node("A.k")->value.owned, 1);
}

TEST_F(Write, TheOldStorageIsFreed) {
  const int before = live_blocks();
  EXPECT_EQ(write("A.s", string_value("one"), 0), 0u);
  EXPECT_EQ(write("A.s", string_value("two"), 0), 0u);
  EXPECT_EQ(live_blocks(), before);
  EXPECT_EQ(write("A.k", base64_value("1", 1), 0), 0u);
  EXPECT_EQ(write("A.k", base64_value("2", 1), 0), 0u);
  EXPECT_EQ(live_blocks(), before + 1);
}

TEST_F(Write, TheOldStorageIsFreedWhenTheTypeChanges) {
  const int before = live_blocks();
  EXPECT_EQ(write("A.s", int_value(1), 0), 0u);
  EXPECT_EQ(live_blocks(), before - 1);
  EXPECT_EQ(write("A.s", base64_value("1", 1), 0), 0u);
  EXPECT_EQ(write("A.s", string_value("one"), 0), 0u);
  EXPECT_EQ(live_blocks(), before);
}

TEST_F(Write, WithoutMemoryTheNodeIsLeftTypedAndEmptyAndTheWriteSucceeds) {
  fail_allocation_after(0);
  EXPECT_EQ(write("A.s", string_value("new"), kApply), 0u);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(outcome("A.s"), "<null> modified mark event callback");
  EXPECT_EQ(tree.node("A.s")->value.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(tree.node("A.s")->value.owned, 0);
}

// The host's callback.

TEST_F(Write, TheCallbackSeesEverythingDone) {
  std::vector<std::string> seen;
  on_change() = [&](qmibtree_inst_t*, qmibtree_node* node, qmibtree_value_t*) {
    seen.push_back(outcome(node));
    return 0u;
  };
  EXPECT_EQ(write("A.i", 6, kApply), 0u);
  EXPECT_EQ(seen, std::vector<std::string>{"6 modified mark event callback"});
}

TEST_F(Write, TheCallbackGetsTheWritersValue) {
  const qmibtree_value_t text = string_value("new");
  qmibtree_value_t* given = nullptr;
  on_change() = [&](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
    given = value;
    return 0u;
  };
  EXPECT_EQ(qmibtree_write(tree.inst, "A.s", &text, 0), 0u);
  ASSERT_EQ(changes().size(), 1u);
  EXPECT_EQ(changes()[0].inst, tree.inst);
  EXPECT_EQ(changes()[0].node, tree.node("A.s"));
  EXPECT_EQ(given, &text);
  EXPECT_EQ(text.owned, 0);
}

TEST_F(Write, TheCallbacksResultIsIgnored) {
  on_change() = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) { return 72u; };
  EXPECT_EQ(write("A.i", 6, 0), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
}

// Names.

TEST_F(Write, TakesTheNameInTwoPiecesOrANode) {
  const qmibtree_value_t six = int_value(6), seven = int_value(7);
  EXPECT_EQ(qmibtree_write_v2(tree.inst, "A.", "i", &six, 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.i"), "6");
  EXPECT_EQ(qmibtree_write_by_node(tree.inst, tree.node("A.i"), &seven, 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.i"), "7");
}

TEST_F(Write, AnswersNotFoundForAnUnknownName) {
  const qmibtree_value_t six = int_value(6);
  EXPECT_EQ(write("A.x", six, 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(qmibtree_write_v2(tree.inst, "A.", "x", &six, 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(write_text("A.x", "6"), QMIBTREE_RC_NOT_FOUND);
  EXPECT_TRUE(changes().empty());
}

TEST_F(Write, JoinedNamesAreCutTo511Characters) {
  const std::string object = std::string(500, 'o') + ".", parameter(10, 'p');
  const std::string excess = parameter + "excess";
  Schema long_names;
  long_names.add(0, object.c_str());
  long_names.add(1, parameter.c_str(), QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
  CheckedTree long_tree(long_names);
  ASSERT_NE(long_tree.inst, nullptr);
  const qmibtree_value_t six = int_value(6);
  qmibtree_value_t read = {};
  EXPECT_EQ(qmibtree_write_v2(long_tree.inst, object.c_str(), excess.c_str(), &six, 0), 0u);
  EXPECT_EQ(qmibtree_read_v2(long_tree.inst, object.c_str(), excess.c_str(), &read, 0), 0u);
  EXPECT_EQ(read.i, 6);
  EXPECT_EQ(qmibtree_compare_v2(long_tree.inst, object.c_str(), excess.c_str(), &six, 0), 0u);
  EXPECT_EQ(qmibtree_notify_v2(long_tree.inst, object.c_str(), excess.c_str(), 0), 0u);
}

// Text.

using WriteText = Write;

TEST_F(WriteText, IsParsedAsTheRecordsType) {
  const struct {
    const char* name;
    const char* text;
    const char* stored;
  } rows[] = {{"A.i", "-7", "-7"},      {"A.i", "8x", "8"},    {"A.i", "none", "0"},
              {"A.u", "12", "12"},      {"A.s", "", ""},       {"A.s", "x y", "x y"},
              {"A.b", "true", "true"},  {"A.b", "0", "false"}, {"A.b", "1", "true"},
              {"A.b", "false", "false"}};
  for (const auto& row : rows) {
    EXPECT_EQ(write_text(row.name, row.text), 0u) << row.text;
    EXPECT_EQ(read_text(tree.inst, row.name), row.stored) << row.text;
  }
}

TEST_F(WriteText, SetsOffWhatAWriteDoes) {
  ask_host_about(kInt);
  host.results = {4};
  EXPECT_EQ(write_text("A.i", "6", kApply), 4u);
  EXPECT_EQ(host.asked, std::vector<std::string>{"5: 6"});
  EXPECT_EQ(outcome("A.i"), "6 modified mark event callback");
}

TEST_F(WriteText, IsRefusedByTheRulesOfAWrite) {
  EXPECT_EQ(write_text("A.ro", "6", kApply), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(write_text("A.i", "6", kSubscriber), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(write_text("A.i", "11"), QMIBTREE_RC_OUT_OF_RANGE);
  EXPECT_EQ(write_text("A.s", "abcd"), QMIBTREE_RC_OUT_OF_RANGE);
  EXPECT_EQ(outcome("A.ro"), "5");
  EXPECT_EQ(outcome("A.i"), "5");
  EXPECT_EQ(outcome("A.s"), "abc");
}

TEST_F(WriteText, ANegativeTextIsALargeUnsignedNumber) {
  EXPECT_EQ(write_text("A.u", "-1"), QMIBTREE_RC_OUT_OF_RANGE);
  schema.record(kUint).uint_max = UINT32_MAX;
  EXPECT_EQ(write_text("A.u", "-1"), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.u"), "4294967295");
}

TEST_F(WriteText, AnUnknownBoolWordIsRefused) {
  ask_host_about(kBool);
  ASSERT_EQ(write("A.b", bool_value(true), 0), 0u);
  forget();
  for (const char* word : {"yes", "TRUE", "", "2", "true ", "on"})
    EXPECT_EQ(write_text("A.b", word, kApply), QMIBTREE_RC_ERROR) << word;
  EXPECT_EQ(outcome("A.b"), "true modified");
  EXPECT_TRUE(host.asked.empty());
}

TEST_F(WriteText, EveryDatetimeTextIsRefused) {
  ask_host_about(kDatetime);
  ASSERT_EQ(write("A.d", datetime_value(60), 0), 0u);
  forget();
  for (const char* text : {"2010-05-06T07:08:09", "1970-01-01T00:01:00", "", "now"})
    EXPECT_EQ(write_text("A.d", text, kApply), QMIBTREE_RC_ERROR) << text;
  EXPECT_EQ(outcome("A.d"), "1970-01-01T00:01:00 modified");
  EXPECT_TRUE(host.asked.empty());
}

TEST_F(WriteText, TheNodeKeepsItsOwnCopy) {
  char text[] = "new";
  EXPECT_EQ(write_text("A.s", text), 0u);
  text[0] = 'N';
  EXPECT_EQ(read_text(tree.inst, "A.s"), "new");
}

// Deliberate: the block that base64 text was decoded into is freed by nobody. The callback
// is handed it, so that the test can free it.
TEST_F(WriteText, OfBase64LeavesTheDecodedBlockToNobody) {
  const int before = live_blocks();
  EXPECT_EQ(write_text("A.k", "YWJj"), 0u);
  EXPECT_EQ(outcome("A.k"), "YWJj modified event callback");
  EXPECT_EQ(live_blocks(), before + 2);  // the node's copy and the decoded block
  ASSERT_EQ(changes().size(), 1u);
  EXPECT_NE(changes()[0].value.data, tree.node("A.k")->value.data);
  EXPECT_EQ(changes()[0].value.owned, 0);
  qfree(const_cast<uint8_t*>(changes()[0].value.data));
  EXPECT_EQ(live_blocks(), before + 1);
}

// Deliberate: a value without bytes has none to refer to, and its decoded text has.
TEST_F(WriteText, OfBase64WithoutBytesIsAChangeEachTime) {
  for (int i = 0; i < 2; ++i) {
    forget();
    EXPECT_EQ(write_text("A.k", ""), 0u);
    EXPECT_EQ(outcome("A.k"), " modified event callback");
    ASSERT_EQ(changes().size(), 1u);
    qfree(const_cast<uint8_t*>(changes()[0].value.data));
  }
}

TEST_F(WriteText, InvalidBase64EmptiesTheValue) {
  ASSERT_EQ(write("A.k", base64_value("abc", 3), 0), 0u);
  forget();
  EXPECT_EQ(write_text("A.k", "not base64"), 0u);
  EXPECT_EQ(outcome("A.k"), " event callback");
  EXPECT_EQ(tree.node("A.k")->value.data, nullptr);
  EXPECT_EQ(tree.node("A.k")->value.len, 0u);
}

TEST_F(WriteText, AfterAValueOfAnotherTypeBringsTheRecordsTypeBack) {
  ASSERT_EQ(write("A.i", string_value("six"), 0), 0u);
  EXPECT_EQ(write_text("A.i", "6"), 0u);
  EXPECT_EQ(tree.node("A.i")->value.type, QMIBTREE_TYPE_INT);
}

TEST_F(WriteText, ToAnObjectIsNotAllowedByName) {
  ask_host_about(kRoot);
  EXPECT_EQ(write_text("A.", "6"), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(write_text("A.T.", "6"), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_TRUE(host.asked.empty());
  EXPECT_TRUE(changes().empty());
}

TEST_F(WriteText, ToAnObjectByNodeStoresNothingButGoesThroughTheWrite) {
  qmibtree_node* const root = tree.inst->root;
  ask_host_about(kRoot);
  EXPECT_EQ(qmibtree_write_strvalue_by_node(tree.inst, root, "6", kApply), 0u);
  EXPECT_EQ(host.asked, std::vector<std::string>{": "});
  EXPECT_EQ(outcome(root), " modified mark callback");
}

TEST_F(WriteText, TakesANode) {
  EXPECT_EQ(qmibtree_write_strvalue_by_node(tree.inst, tree.node("A.i"), "6", 0), 0u);
  EXPECT_EQ(outcome("A.i"), "6 modified event callback");
}

// Text to every node of a unique id.

class WriteById : public Write {
 protected:
  void add(uint32_t wish = 0) {
    ASSERT_EQ(qmibtree_add_object(tree.inst, "A.T.", &wish, 0, 255), 0u);
  }
  uint32_t write_all(uint32_t uid, const char* text, uint32_t flags = 0) {
    return qmibtree_write_strvalue_by_uniqueid(tree.inst, uid, text, flags);
  }
  std::vector<std::string> written() const {
    std::vector<std::string> names;
    for (const Change& change : changes()) names.push_back(change.full_name + "=" + change.text);
    return names;
  }
};

using Written = std::vector<std::string>;

TEST_F(WriteById, WritesEveryNodeNewestFirst) {
  for (int i = 0; i < 3; ++i) add();
  EXPECT_EQ(write_all(kEntry, "6", kApply), 0u);
  EXPECT_EQ(written(), (Written{"A.T.3.e=6", "A.T.2.e=6", "A.T.1.e=6"}));
  EXPECT_EQ(outcome("A.T.2.e"), "6 modified mark event callback");
}

TEST_F(WriteById, StopsAtTheFirstRefusalAndAnswersIt) {
  for (int i = 0; i < 3; ++i) add();
  ask_host_about(kEntry);
  host.results = {0, 72, 0};
  EXPECT_EQ(write_all(kEntry, "6"), QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(written(), Written{"A.T.3.e=6"});
  EXPECT_EQ(host.asked.size(), 2u);
  EXPECT_EQ(read_text(tree.inst, "A.T.2.e"), "5");
  EXPECT_EQ(read_text(tree.inst, "A.T.1.e"), "5");
}

TEST_F(WriteById, StopsAtAResultBeyondTheSignedRangeToo) {
  for (int i = 0; i < 2; ++i) add();
  ask_host_about(kEntry);
  host.results = {0x80000000u};
  EXPECT_EQ(write_all(kEntry, "6"), 0x80000000u);
  EXPECT_EQ(host.asked.size(), 1u);
}

TEST_F(WriteById, GoesOnAfterResultsBelow32AndAnswersTheLast) {
  for (int i = 0; i < 3; ++i) add();
  ask_host_about(kEntry);
  host.results = {31, 30, 29};
  EXPECT_EQ(write_all(kEntry, "6"), 29u);
  EXPECT_EQ(written().size(), 3u);
}

TEST_F(WriteById, AnIdWithoutNodesIsASuccess) {
  EXPECT_EQ(write_all(kEntry, "6"), 0u);
  EXPECT_EQ(write_all(kUnused, "6"), 0u);
  EXPECT_EQ(write_all(UINT32_MAX, "6"), 0u);
  EXPECT_TRUE(changes().empty());
}

TEST_F(WriteById, AnObjectsIdIsNotAllowed) {
  EXPECT_EQ(write_all(kRoot, "6"), QMIBTREE_RC_NOT_ALLOWED);
  EXPECT_EQ(write_all(kTable, "6"), QMIBTREE_RC_NOT_ALLOWED);
}

// Deliberate: each node is looked up again by its name, and of two with one name only the
// newer is found.
TEST_F(WriteById, OfTwoNodesWithOneNameOnlyTheNewerIsWritten) {
  add(12345);
  qmibtree_node* const older = qmibtree_hash_lookup_uid(tree.inst->uid_hash, kEntry);
  add(12346);
  qmibtree_node* const newer = qmibtree_hash_lookup_uid(tree.inst->uid_hash, kEntry);
  ask_host_about(kEntry);
  EXPECT_EQ(write_all(kEntry, "6"), 0u);
  EXPECT_EQ(host.asked, (std::vector<std::string>{"5: 6", "6 modified event callback: 6"}));
  EXPECT_EQ(newer->value.i, 6);
  EXPECT_EQ(older->value.i, 5);
}

// Memory. A write never fails for it: what could not be copied is stored empty.

struct Attempt {
  const char* name;
  const char* text;        // written as text, or null
  qmibtree_value_t value;  // written as it is
  const char* stored;
  const char* empty;
};

class WriteWithoutMemory : public Write, public ::testing::WithParamInterface<Attempt> {
 protected:
  // The listing of the tree without the line of `left_out`.
  static std::string listing(qmibtree_inst_t* inst, const qmibtree_node* left_out) {
    return render([&](qmibtree_buff_t* buff) {
      for (qmibtree_node* node = inst->root->first_child; node; node = node->next)
        if (node != left_out) qmibtree_dump_dbg(inst, node, buff, 0, nullptr, QMIBTREE_PHASE_ENTER);
      return 0u;
    });
  }
};

TEST_P(WriteWithoutMemory, SucceedsAndLeavesNothingBehind) {
  const Attempt& attempt = GetParam();
  schema.record(kDynamic).flags &= ~QMIBTREE_UID_DYNAMIC;  // to be listed
  for (int n = 0;; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 20);
    CheckedTree fresh(schema);
    ASSERT_NE(fresh.inst, nullptr);
    const qmibtree_value_t old = base64_value("old", 3);
    ASSERT_EQ(qmibtree_write(fresh.inst, "A.k", &old, 0), 0u);
    qmibtree_node* const node = fresh.node(attempt.name);
    const uint32_t type = node->value.type;
    const std::string others = listing(fresh.inst, node);
    changes().clear();

    fail_allocation_after(n);
    const uint32_t rc =
        attempt.text ? qmibtree_write_strvalue_by_node(fresh.inst, node, attempt.text, kApply)
                     : qmibtree_write_by_node(fresh.inst, node, &attempt.value, kApply);
    const bool struck = allocations_work();
    ASSERT_EQ(changes().size(), 1u);
    if (attempt.text && type == QMIBTREE_TYPE_BASE64)  // the decoded block, freed by nobody
      qfree(const_cast<uint8_t*>(changes()[0].value.data));

    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(node->value.type, type);
    const std::string text = text_of(node->value);
    EXPECT_TRUE(text == attempt.stored || (struck && text == attempt.empty)) << text;
    EXPECT_EQ(listing(fresh.inst, node), others);
    if (!struck) break;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, WriteWithoutMemory,
    ::testing::Values(Attempt{"A.s", nullptr, string_value("new"), "new", "<null>"},
                      Attempt{"A.s", "new", {}, "new", "<null>"},
                      Attempt{"A.k", nullptr, base64_value("new", 3), "bmV3", ""},
                      Attempt{"A.k", "bmV3", {}, "bmV3", ""}));

}  // namespace
