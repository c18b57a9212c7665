// Shows what the fake host records and answers.
#include "qmibtree_testkit/host.hh"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"

// The callback of the host under test.
static std::vector<std::string> told;
extern "C" uint32_t mibtree_changed_callback2(qmibtree_inst_t*, qmibtree_node* node,
                                              qmibtree_value_t*) {
  told.emplace_back(node->fullName);
  return QMIBTREE_RC_OK;
}

using namespace qmibtree_testkit;

namespace {

using strings = std::vector<std::string>;

enum : uint32_t { kRoot, kName, kLevel, kKey, kTable, kNumber };
constexpr uint32_t kComponent = 3, kOtherComponent = 31;

class FakeHost : public testing::Test {
 protected:
  FakeHost() {
    schema.add(0, "A.");
    schema.add(1, "Name", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, "none");
    schema.add(1, "Level", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
    schema.add(1, "Key", QMIBTREE_TYPE_BASE64);
    schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema.add(2, "N", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "0");
    schema.record(kName).comp = kComponent;
    schema.record(kLevel).comp = kOtherComponent;
    told.clear();
  }

  void build() {
    tree = std::make_unique<CheckedTree>(schema);
    ASSERT_NE(tree->inst, nullptr);
  }
  uint32_t write(const char* name, const char* text) {
    return qmibtree_write_strvalue(tree->inst, name, text, QMIBTREE_WRITE_APPLY);
  }
  // Has a dynamic parameter read by its hook.
  void make_dynamic(uint32_t uid) {
    schema.record(uid).flags |= QMIBTREE_UID_DYNAMIC;
    host.watch(schema.record(uid), kGet);
  }

  LeakCheck leaks;
  Schema schema;
  Host host;
  std::unique_ptr<CheckedTree> tree;
};

// --- changes ---

TEST_F(FakeHost, RecordsAChangeWithItsText) {
  build();
  ASSERT_EQ(write("A.Name", "home"), 0u);
  ASSERT_EQ(changes().size(), 1u);
  EXPECT_EQ(changes()[0].inst, tree->inst);
  EXPECT_EQ(changes()[0].node, tree->node("A.Name"));
  EXPECT_EQ(changes()[0].full_name, "A.Name");
  EXPECT_EQ(changes()[0].text, "home");
}

TEST_F(FakeHost, TheHostsOwnCallbackIsCalledToo) {
  build();
  ASSERT_EQ(write("A.Name", "home"), 0u);
  EXPECT_EQ(told, strings{"A.Name"});
}

TEST_F(FakeHost, OnChangeTakesThePlaceOfTheHostsOwnCallback) {
  build();
  int calls = 0;
  on_change() = [&](auto...) { return ++calls, 0u; };
  ASSERT_EQ(write("A.Name", "home"), 0u);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(told, strings());
}

// --- hooks ---

TEST_F(FakeHost, RecordsTheHooksThatItWatches) {
  host.watch(schema.record(kNumber), kCreate | kDestroy | kSet);
  build();
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(tree->inst, "A.T.", &number, 0, 255), 0u);
  ASSERT_EQ(write("A.T.1.N", "7"), 0u);
  ASSERT_EQ(qmibtree_del_object(tree->inst, "A.T.1.", 0), 0u);
  EXPECT_EQ(host.calls, (strings{"create A.T.1.N", "set A.T.1.N=7", "destroy A.T.1.N"}));
  tree->events = Events::kMayBeGone;
}

TEST_F(FakeHost, RecordsNoOtherHook) {
  host.watch(schema.record(kName), kCreate);
  build();
  ASSERT_EQ(write("A.Name", "home"), 0u);
  EXPECT_EQ(host.calls, strings{"create A.Name"});
}

TEST_F(FakeHost, AHookIsOneThatAgreesUnlessTold) {
  host.watch(schema.record(kName), kSet);
  build();
  EXPECT_EQ(write("A.Name", "home"), 0u);
  EXPECT_EQ(read_text(tree->inst, "A.Name"), "home");
}

TEST_F(FakeHost, ARefusalKeepsTheValue) {
  host.watch(schema.record(kName), kSet);
  build();
  host.answer_set("A.Name", QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(write("A.Name", "home"), QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(read_text(tree->inst, "A.Name"), "none");
  EXPECT_EQ(host.calls, strings{"set A.Name=home"});
}

TEST_F(FakeHost, AnAnswerIsForOneParameter) {
  for (const uint32_t uid : {kName, kLevel}) host.watch(schema.record(uid), kSet);
  build();
  host.answer_set("A.Name", QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(write("A.Level", "6"), 0u);
}

TEST_F(FakeHost, SuppliesANumber) {
  make_dynamic(kLevel);
  build();
  host.answer_get("A.Level", int_value(8));
  EXPECT_EQ(read_text(tree->inst, "A.Level"), "8");
  EXPECT_EQ(host.calls, strings{"get A.Level=8"});
}

TEST_F(FakeHost, SuppliesATextOfItsOwn) {
  make_dynamic(kName);
  build();
  std::string text = "home";
  host.answer_get("A.Name", string_value(text.c_str()));
  text = "gone";
  EXPECT_EQ(read_text(tree->inst, "A.Name"), "home");
}

TEST_F(FakeHost, SuppliesBytesOfItsOwn) {
  schema.record(kKey).defval = "";
  make_dynamic(kKey);
  leaks.expect_kept(1);  // what the default's text was decoded into
  build();
  std::string bytes("a\0c", 3);
  host.answer_get("A.Key", base64_value(bytes.data(), 3));
  bytes = "gone";
  EXPECT_EQ(read_text(tree->inst, "A.Key"), "YQBj");
}

TEST_F(FakeHost, SuppliesTheValueThatANodeIsBuiltWith) {
  schema.record(kName).defval = nullptr;
  host.watch(schema.record(kName), kGet);
  host.answer_get("A.Name", string_value("built"));
  build();
  EXPECT_EQ(read_text(tree->inst, "A.Name"), "built");
}

TEST_F(FakeHost, AFailingReadIsRecordedWithItsCode) {
  make_dynamic(kLevel);
  build();
  host.answer_get("A.Level", int_value(8), QMIBTREE_RC_NO_RESOURCE);
  EXPECT_EQ(read_text(tree->inst, "A.Level"), "(33)");
  EXPECT_EQ(host.calls, strings{"get A.Level (33)"});
}

// --- the records' own hooks ---

strings own_calls;

uint32_t own_node_hook(qmibtree_inst_t*, qmibtree_node* node) {
  own_calls.emplace_back(node->fullName);
  return 0;
}
uint32_t own_set(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) {
  return QMIBTREE_RC_NO_RESOURCE;
}
uint32_t own_get(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t flags) {
  *value = int_value(static_cast<int32_t>(flags));
  return 0;
}

class FakeHostBeforeAReal : public FakeHost {
 protected:
  FakeHostBeforeAReal() {
    own_calls.clear();
    qmibtree_uidinfo_t& record = schema.record(kLevel);
    record.flags |= QMIBTREE_UID_DYNAMIC;
    record.create_fn = record.destroy_fn = own_node_hook;
    record.set_fn = own_set;
    record.get_fn = own_get;
    host.watch(record, kCreate | kDestroy | kSet | kGet);
  }
};

TEST_F(FakeHostBeforeAReal, HandsEveryCallOn) {
  build();
  EXPECT_EQ(write("A.Level", "6"), QMIBTREE_RC_NO_RESOURCE);
  qmibtree_value_t value = {};
  EXPECT_EQ(qmibtree_read(tree->inst, "A.Level", &value, 9), 0u);
  EXPECT_EQ(value.i, 9);
  tree->destroy();
  EXPECT_EQ(own_calls, (strings{"A.Level", "A.Level"}));
  EXPECT_EQ(host.calls,
            (strings{"create A.Level", "set A.Level=6", "get A.Level=9", "destroy A.Level"}));
}

TEST_F(FakeHostBeforeAReal, AnAnswerTakesItsPlace) {
  build();
  host.answer_set("A.Level", 0);
  host.answer_get("A.Level", int_value(1));
  EXPECT_EQ(write("A.Level", "6"), 0u);
  EXPECT_EQ(read_text(tree->inst, "A.Level"), "1");
}

TEST_F(FakeHostBeforeAReal, WatchingAgainWatchesMore) {
  host.watch(schema.record(kLevel), kSet);
  build();
  EXPECT_EQ(own_calls, strings{"A.Level"});
}

TEST(FakeHostScope, GivesTheHooksBack) {
  qmibtree_uidinfo_t record = {};
  record.create_fn = record.destroy_fn = own_node_hook;
  record.set_fn = own_set;
  record.get_fn = own_get;
  {
    Host host;
    host.watch(record, kCreate | kDestroy | kSet | kGet);
    EXPECT_NE(record.create_fn, own_node_hook);
  }
  EXPECT_EQ(record.create_fn, own_node_hook);
  EXPECT_EQ(record.destroy_fn, own_node_hook);
  EXPECT_EQ(record.set_fn, own_set);
  EXPECT_EQ(record.get_fn, own_get);
}

TEST(FakeHostScope, BeginsAndEndsWithNothingRecorded) {
  const auto leave_traces = [] {
    changes().emplace_back();
    on_change() = [](auto...) { return 0u; };
    register_component(kComponent);
    qmibtree_comp_mark(kComponent, 1);
  };
  const auto expect_none = [] {
    EXPECT_TRUE(changes().empty());
    EXPECT_FALSE(on_change());
    EXPECT_TRUE(marked_components().empty());
  };
  leave_traces();
  {
    Host host;
    expect_none();
    leave_traces();
  }
  expect_none();
}

TEST(FakeHostDeathTest, ThereIsOneAtATime) {
  Host host;
  EXPECT_DEATH(Host(), "there is a Host already");
}

// --- marks and events ---

TEST_F(FakeHost, ListsTheMarkedComponents) {
  for (const uint32_t id : {kComponent, kOtherComponent}) register_component(id);
  build();
  EXPECT_EQ(marked_components(), std::vector<uint32_t>());
  ASSERT_EQ(write("A.Level", "6"), 0u);
  EXPECT_EQ(marked_components(), std::vector<uint32_t>{kOtherComponent});
  ASSERT_EQ(write("A.Name", "home"), 0u);
  EXPECT_EQ(marked_components(), (std::vector<uint32_t>{kComponent, kOtherComponent}));
}

TEST_F(FakeHost, AMarkOfAnyKindCounts) {
  register_component(kComponent);
  qmibtree_comp_mark(kComponent, 0x80000000u);
  EXPECT_EQ(marked_components(), std::vector<uint32_t>{kComponent});
}

TEST_F(FakeHost, DrainsEventsOldestFirst) {
  build();
  for (const char* name : {"A.Level", "A.Name"}) qmibtree_notify(tree->inst, name, 0);
  EXPECT_EQ(drain_events(tree->inst), (strings{"A.Level", "A.Name"}));
  EXPECT_EQ(drain_events(tree->inst), strings());
}

TEST_F(FakeHost, AnEventOfANodeThatIsGoneIsNotFollowed) {
  build();
  uint32_t number = 0;
  ASSERT_EQ(qmibtree_add_object(tree->inst, "A.T.", &number, 0, 255), 0u);
  qmibtree_notify(tree->inst, "A.T.1.N", 0);
  tree->inst->notif->entries[1] = tree->inst->notif->entries[0];  // as what was removed from there
  ASSERT_EQ(qmibtree_del_object(tree->inst, "A.T.1.", 0), 0u);
  tree->inst->notif->entries[0] = tree->inst->notif->entries[1];
  tree->inst->notif->num = tree->inst->notif->active_num = 1;
  EXPECT_EQ(drain_events(tree->inst), strings{"(gone)"});
}

// --- texts and documents ---

TEST_F(FakeHost, AFailingReadGivesItsCode) {
  build();
  EXPECT_EQ(read_text(tree->inst, "A.Lost"), "(40)");
}

TEST_F(FakeHost, AValueWithoutATypeHasNoText) { EXPECT_EQ(text_of(qmibtree_value_t()), ""); }

TEST_F(FakeHost, EachValueHasItsTypeAndText) {
  EXPECT_EQ(text_of(int_value(-1)), "-1");
  EXPECT_EQ(text_of(uint_value(4294967295u)), "4294967295");
  EXPECT_EQ(text_of(bool_value(true)), "true");
  EXPECT_EQ(text_of(bool_value(false)), "false");
  EXPECT_EQ(text_of(string_value("text")), "text");
  EXPECT_EQ(text_of(base64_value("abc", 3)), "YWJj");
  EXPECT_EQ(text_of(datetime_value(0)), "1970-01-01T00:00:00");
}

TEST_F(FakeHost, RendersTextsAtTheirLengthAndFailuresAsTheirCode) {
  EXPECT_EQ(render([](qmibtree_buff_t* buff) { return qmibtree_buff_dump(buff, "%s", "text"); }),
            "text");
  EXPECT_EQ(render([](qmibtree_buff_t*) -> uint32_t { return QMIBTREE_RC_ERROR; }), "(32)");
}

TEST_F(FakeHost, ADocumentLoadsWhatADocumentDumped) {
  schema.record(kName).flags |= QMIBTREE_UID_SAVE;
  build();
  const std::string before = document_of(tree->inst);
  ASSERT_EQ(write("A.Name", "home"), 0u);
  EXPECT_NE(document_of(tree->inst), before);
  EXPECT_EQ(load_document(tree->inst, before), 0u);
  EXPECT_EQ(read_text(tree->inst, "A.Name"), "none");
}

}  // namespace
