// The tree as a whole: init and destroy, hooks registered later, and what every operation by
// name has in common.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr bool k64 = sizeof(void*) == 8;

using strings = std::vector<std::string>;

strings g_calls;  // of the hooks below, in order

uint32_t create(qmibtree_inst_t*, qmibtree_node* node) {
  g_calls.push_back(std::string("create ") + node->fullName);
  return 0;
}

uint32_t destroy(qmibtree_inst_t*, qmibtree_node* node) {
  g_calls.push_back(std::string("destroy ") + node->fullName);
  return 0;
}

uint32_t get_text(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = string_value("text");
  return 0;
}

uint32_t refuse(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*, uint32_t) {
  return QMIBTREE_RC_NO_RESOURCE;
}

// A., A.S and A.O.Got, with hooks; A.T.{i}. without.
class InstTest : public testing::Test {
 protected:
  void SetUp() override {
    g_calls.clear();
    changes().clear();
    schema_.add(0, "A.");
    schema_.add(1, "S", QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, "text");
    schema_.add(1, "O.");
    schema_.add(2, "Got", QMIBTREE_TYPE_STRING).get_fn = get_text;
    for (uint32_t uid = 0; uid < schema_.size(); ++uid) {
      schema_.record(uid).create_fn = create;
      schema_.record(uid).destroy_fn = destroy;
    }
    schema_.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema_.add(2, "P", QMIBTREE_TYPE_INT, 0, "1");
  }

  void TearDown() override {
    changes().clear();
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  const int blocks_before_ = live_blocks();
  Schema schema_;
};

using Init = InstTest;
using Destroy = InstTest;
using RegUidinfo = InstTest;
using GlobalStatus = InstTest;

TEST(InstRecord, EveryFieldIsInItsPlace) {
  EXPECT_EQ(offsetof(qmibtree_inst_t, schema_tag), 0u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, root), k64 ? 8u : 4u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, name_hash), k64 ? 16u : 8u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, uid_hash), k64 ? 24u : 12u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, notif), k64 ? 32u : 16u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, obj_changes), k64 ? 40u : 20u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, uidinfo_num), k64 ? 44u : 24u);
  EXPECT_EQ(offsetof(qmibtree_inst_t, uidinfo), k64 ? 48u : 28u);
}

TEST(SchemaBlock, IsATagANumberAndTheRecords) {
  EXPECT_EQ(offsetof(qmibtree_schema_t, schema_tag), 0u);
  EXPECT_EQ(offsetof(qmibtree_schema_t, uidinfo_num), 4u);
  EXPECT_EQ(offsetof(qmibtree_schema_t, uidinfo), 8u);
  using block = QMIBTREE_SCHEMA_BLOCK(2);
  EXPECT_EQ(offsetof(block, uidinfo), 8u);
  EXPECT_EQ(sizeof(block), 8 + 2 * sizeof(qmibtree_uidinfo_t));
}

TEST_F(Init, TakesTagNumberAndRecordsFromTheSchema) {
  CheckedTree tree(schema_);
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_EQ(tree.inst->schema_tag, schema_.block()->schema_tag);
  EXPECT_EQ(tree.inst->uidinfo_num, 6u);
  EXPECT_EQ(tree.inst->uidinfo, &schema_.record(0));
}

TEST_F(Init, MakesIndexesAndAnEmptyQueue) {
  CheckedTree tree(schema_);
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_EQ(tree.inst->name_hash->kind, 0u);
  EXPECT_EQ(tree.inst->name_hash->size, 5000u);
  EXPECT_EQ(tree.inst->uid_hash->kind, 1u);
  EXPECT_EQ(tree.inst->uid_hash->size, 2000u);
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_EQ(tree.inst->notif->active_num, 0u);
  EXPECT_EQ(tree.inst->obj_changes, 0u);
}

TEST_F(Init, BuildsTheTreeFromRecordZero) {
  CheckedTree tree(schema_);
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_EQ(tree.inst->root, tree.node("A."));
  EXPECT_EQ(tree.inst->root->uidinfo->uid, 0u);
  EXPECT_NE(tree.node("A.O.Got"), nullptr);
}

TEST_F(Init, AllocatesInstanceIndexesAndQueueBeforeTheTree) {
  allocation_tags();
  CheckedTree tree(schema_);
  strings tags = allocation_tags();
  ASSERT_GT(tags.size(), 5u);
  tags.resize(5);
  EXPECT_EQ(tags, (strings{"qmibtree_inst_t", "qmibtree_hash_t", "qmibtree_hash_t",
                           "qmibtree_notif_t", "qmibtree_node"}));
}

TEST_F(Init, NeitherWritesNorQueuesNorMarksTheDefaults) {
  CheckedTree tree(schema_);
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_TRUE(changes().empty());
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_EQ(tree.node("A.S")->flags & QMIBTREE_NODE_MODIFIED, 0u);
}

TEST_F(Init, WithoutRecordsGivesNull) {
  Schema empty;
  EXPECT_EQ(qmibtree_init(empty.block()), nullptr);
}

TEST_F(Init, ARefusingGetHookGivesNull) {
  schema_.record(3).get_fn = refuse;
  EXPECT_EQ(qmibtree_init(schema_.block()), nullptr);
  EXPECT_EQ(g_calls, (strings{"create A.", "create A.S", "create A.O.", "create A.O.Got",
                              "destroy A.O.Got", "destroy A.O.", "destroy A.S", "destroy A."}));
}

TEST_F(Init, ARefusedTreeIsReportedOnNeitherStream) {
  schema_.record(3).get_fn = refuse;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
  const std::string err = testing::internal::GetCapturedStderr();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(inst, nullptr);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "");
}

TEST_F(Init, TwoTreesMayShareASchema) {
  CheckedTree one(schema_), other(schema_);
  ASSERT_NE(one.inst, nullptr);
  ASSERT_NE(other.inst, nullptr);
  const qmibtree_value_t value = string_value("other");
  qmibtree_write(one.inst, "A.S", &value, 0);
  EXPECT_EQ(read_text(one.inst, "A.S"), "other");
  EXPECT_EQ(read_text(other.inst, "A.S"), "text");
}

// Only a failed unique-id index (the third allocation) and failed copies of values are survived.
TEST_F(Init, AFailedAllocationAnywhereLeavesNothingBehind) {
  allocation_tags();
  { CheckedTree whole(schema_); }
  const strings tags = allocation_tags();
  for (size_t n = 0; n < tags.size(); ++n) {
    g_calls.clear();
    fail_allocation_after(static_cast<int>(n));
    qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
    ASSERT_TRUE(allocations_work()) << n;
    EXPECT_EQ(inst != nullptr, n == 2 || tags[n] == "mib string data") << n << ": " << tags[n];
    if (inst) qmibtree_destroy(inst);
    ASSERT_EQ(live_blocks(), blocks_before_) << n << ": " << tags[n];
    std::string balance;  // as many nodes told of their end as of their beginning
    for (const std::string& call : g_calls) balance += call[0];
    EXPECT_EQ(std::count(balance.begin(), balance.end(), 'c'),
              std::count(balance.begin(), balance.end(), 'd'))
        << n;
  }
}

TEST_F(Init, WithoutAnyMoreMemoryLeavesNothingBehind) {
  for (int n = 0;; ++n) {
    fail_allocations_after(n);
    qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
    const bool struck = allocations_work();
    if (inst) qmibtree_destroy(inst);
    ASSERT_EQ(live_blocks(), blocks_before_) << n;
    if (!struck) break;
  }
}

uint32_t count_call(qmibtree_inst_t*, qmibtree_node*, void* calls) {
  ++*static_cast<int*>(calls);
  return 0;
}

TEST_F(Init, WithoutAUniqueIdIndexOperationsByIdFindNothing) {
  fail_allocation_after(2);
  CheckedTree tree(schema_);
  ASSERT_TRUE(allocations_work());
  ASSERT_NE(tree.inst, nullptr);
  EXPECT_EQ(tree.inst->uid_hash, nullptr);
  int calls = 0;
  EXPECT_EQ(qmibtree_lookup(tree.inst, nullptr, 1, count_call, &calls), 0u);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(qmibtree_write_strvalue_by_uniqueid(tree.inst, 1, "other", 0), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.S"), "text");
}

TEST_F(Init, WithoutAUniqueIdIndexInstancesComeAndGo) {
  fail_allocation_after(2);
  CheckedTree tree(schema_);
  ASSERT_TRUE(allocations_work());
  ASSERT_NE(tree.inst, nullptr);
  uint32_t number = 0;
  EXPECT_EQ(qmibtree_add_object(tree.inst, "A.T.", &number, 0, 255), 0u);
  EXPECT_EQ(read_text(tree.inst, "A.T.1.P"), "1");
  EXPECT_EQ(qmibtree_del_object(tree.inst, "A.T.1.", 0), 0u);
}

TEST_F(Destroy, AnswersZeroAndTellsChildrenFirst) {
  qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
  ASSERT_NE(inst, nullptr);
  g_calls.clear();
  EXPECT_EQ(qmibtree_destroy(inst), 0u);
  EXPECT_EQ(g_calls, (strings{"destroy A.S", "destroy A.O.Got", "destroy A.O.", "destroy A."}));
}

TEST_F(Destroy, NothingIsGoneWhileTheHooksRun) {
  static int blocks;
  for (uint32_t uid = 0; uid < 4; ++uid) {
    schema_.record(uid).destroy_fn = [](qmibtree_inst_t* inst, qmibtree_node* node) {
      for (const char* name : {"A.", "A.S", "A.O.", "A.O.Got"})
        EXPECT_NE(qmibtree_find_node_by_name(inst, name), nullptr) << name;
      EXPECT_EQ(qmibtree_hash_lookup_uid(inst->uid_hash, 1),
                qmibtree_find_node_by_name(inst, "A.S"));
      EXPECT_EQ(inst->notif->num, 1u);
      EXPECT_EQ(live_blocks(), blocks);
      return destroy(inst, node);
    };
  }
  qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(qmibtree_notify(inst, "A.S", 0), 0u);
  blocks = live_blocks();
  g_calls.clear();
  EXPECT_EQ(qmibtree_destroy(inst), 0u);
  EXPECT_EQ(g_calls, (strings{"destroy A.S", "destroy A.O.Got", "destroy A.O.", "destroy A."}));
}

TEST_F(Destroy, TakesInstancesAndPendingEventsAlong) {
  qmibtree_inst_t* const inst = qmibtree_init(schema_.block());
  ASSERT_NE(inst, nullptr);
  uint32_t number = 0;
  EXPECT_EQ(qmibtree_add_object(inst, "A.T.", &number, 0, 255), 0u);
  EXPECT_EQ(qmibtree_notify(inst, "A.S", 0), 0u);
  EXPECT_EQ(inst->notif->num, 1u);
  EXPECT_EQ(qmibtree_destroy(inst), 0u);
}

TEST_F(Destroy, LeavesTheSchemaForAnotherTree) {
  const qmibtree_uidinfo_t before = schema_.record(1);
  { CheckedTree tree(schema_); }
  EXPECT_EQ(std::memcmp(&before, &schema_.record(1), sizeof before), 0);
  CheckedTree again(schema_);
  EXPECT_NE(again.inst, nullptr);
}

uint32_t first_set(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) {
  return QMIBTREE_RC_INVALID_VALUE;
}

TEST_F(RegUidinfo, NeedsATreeAndARecord) {
  CheckedTree tree(schema_);
  const qmibtree_uidinfo_t record = {};
  const uint32_t flags = schema_.record(1).flags;
  EXPECT_EQ(qmibtree_reg_uidinfo(nullptr, 1, &record), QMIBTREE_RC_ERROR);
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 1, nullptr), QMIBTREE_RC_ERROR);
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, -1, nullptr), QMIBTREE_RC_ERROR);
  EXPECT_EQ(schema_.record(1).flags, flags);
}

TEST_F(RegUidinfo, AnIdWithoutARecordSucceedsAndChangesNothing) {
  CheckedTree tree(schema_);
  const size_t size = schema_.size() * sizeof(qmibtree_uidinfo_t);
  std::string before(reinterpret_cast<const char*>(&schema_.record(0)), size);
  qmibtree_uidinfo_t record = {};
  record.flags = 0xffff;
  record.get_fn = get_text;
  for (const int32_t uid : {-1, INT32_MIN, 6, INT32_MAX}) {
    EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, uid, &record), 0u) << uid;
  }
  EXPECT_EQ(std::memcmp(before.data(), &schema_.record(0), size), 0);
  EXPECT_EQ(schema_.record(6).flags, 0u);
}

TEST_F(RegUidinfo, TakesTheFlagsOverAlways) {
  CheckedTree tree(schema_);
  qmibtree_uidinfo_t record = {};
  record.flags = QMIBTREE_UID_SAVE;
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 1, &record), 0u);
  EXPECT_EQ(schema_.record(1).flags, QMIBTREE_UID_SAVE);
  record.flags = 0;
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 1, &record), 0u);
  EXPECT_EQ(schema_.record(1).flags, 0u);
}

TEST_F(RegUidinfo, NodesKeepTheirFlags) {
  CheckedTree tree(schema_);
  const qmibtree_uidinfo_t record = {};
  qmibtree_reg_uidinfo(tree.inst, 1, &record);
  EXPECT_EQ(tree.node("A.S")->flags, QMIBTREE_NODE_PARAM | QMIBTREE_NODE_NOTIF_ACTIVE);
}

// A record with every hook word set, and another with all of them different.
qmibtree_uidinfo_t full_record(bool second) {
  static char words[16];
  qmibtree_uidinfo_t record = {};
  record.create_fn = second ? destroy : create;
  record.destroy_fn = second ? create : destroy;
  record.set_fn = [](auto...) { return 0u; };
  if (second) record.set_fn = first_set;
  record.get_fn = second ? refuse : get_text;
  for (int i = 0; i < 8; ++i) record.ext_fn[i] = &words[second ? 8 + i : i];
  return record;
}

void expect_hooks(const qmibtree_uidinfo_t& actual, const qmibtree_uidinfo_t& expected) {
  EXPECT_EQ(actual.create_fn, expected.create_fn);
  EXPECT_EQ(actual.destroy_fn, expected.destroy_fn);
  EXPECT_EQ(actual.set_fn, expected.set_fn);
  EXPECT_EQ(actual.get_fn, expected.get_fn);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(actual.ext_fn[i], expected.ext_fn[i]) << i;
}

TEST_F(RegUidinfo, FillsEveryHookThatIsMissing) {
  Tree tree(schema_);
  const qmibtree_uidinfo_t record = full_record(false);
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 4, &record), 0u);
  expect_hooks(schema_.record(4), record);
}

TEST_F(RegUidinfo, TheFirstRegistrationWinsButForTheFlags) {
  Tree tree(schema_);
  qmibtree_uidinfo_t first = full_record(false), second = full_record(true);
  first.flags = QMIBTREE_UID_SAVE;
  second.flags = QMIBTREE_UID_READONLY;
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 4, &first), 0u);
  EXPECT_EQ(qmibtree_reg_uidinfo(tree.inst, 4, &second), 0u);
  expect_hooks(schema_.record(4), first);
  EXPECT_EQ(schema_.record(4).flags, QMIBTREE_UID_READONLY);
}

TEST_F(RegUidinfo, AMissingHookTakesNoneAway) {
  Tree tree(schema_);
  const qmibtree_uidinfo_t first = full_record(false), none = {};
  qmibtree_reg_uidinfo(tree.inst, 4, &first);
  qmibtree_reg_uidinfo(tree.inst, 4, &none);
  expect_hooks(schema_.record(4), first);
}

TEST_F(RegUidinfo, EachHookIsTakenOverForItself) {
  Tree tree(schema_);
  qmibtree_uidinfo_t first = full_record(false), second = full_record(true);
  first.destroy_fn = nullptr;
  first.get_fn = nullptr;
  first.ext_fn[7] = nullptr;
  qmibtree_reg_uidinfo(tree.inst, 4, &first);
  qmibtree_reg_uidinfo(tree.inst, 4, &second);
  qmibtree_uidinfo_t merged = full_record(false);
  merged.destroy_fn = second.destroy_fn;
  merged.get_fn = second.get_fn;
  merged.ext_fn[7] = second.ext_fn[7];
  expect_hooks(schema_.record(4), merged);
}

TEST_F(RegUidinfo, TakesNothingElseOver) {
  CheckedTree tree(schema_);
  qmibtree_uidinfo_t expected = schema_.record(5);
  qmibtree_uidinfo_t record;
  std::memset(&record, 0x5a, sizeof record);
  expected.flags = record.flags;
  expected.create_fn = record.create_fn;
  expected.destroy_fn = record.destroy_fn;
  expected.set_fn = record.set_fn;
  expected.get_fn = record.get_fn;
  std::memcpy(expected.ext_fn, record.ext_fn, sizeof record.ext_fn);
  qmibtree_reg_uidinfo(tree.inst, 5, &record);
  EXPECT_EQ(std::memcmp(&schema_.record(5), &expected, sizeof expected), 0);
}

TEST_F(RegUidinfo, NodesThatExistSeeTheNewHooks) {
  CheckedTree tree(schema_);
  qmibtree_uidinfo_t record = {};
  record.set_fn = first_set;
  qmibtree_reg_uidinfo(tree.inst, 1, &record);
  EXPECT_EQ(qmibtree_write_strvalue(tree.inst, "A.S", "other", 0), QMIBTREE_RC_INVALID_VALUE);
  EXPECT_EQ(read_text(tree.inst, "A.S"), "text");
}

TEST_F(GlobalStatus, IsZeroAtLoadAndLeftToTheHost) {
  EXPECT_EQ(qmibtree_global_status, 0u);
  qmibtree_global_status = 7;
  {
    CheckedTree tree(schema_);
    qmibtree_write_strvalue(tree.inst, "A.S", "other", QMIBTREE_WRITE_APPLY);
  }
  EXPECT_EQ(qmibtree_global_status, 7u);
  qmibtree_global_status = 0;
}

uint32_t never(qmibtree_inst_t*, qmibtree_node*, void*) {
  ADD_FAILURE() << "called";
  return 0;
}

uint32_t never_dump(qmibtree_inst_t*, qmibtree_node*, void*, int32_t, void*, uint32_t) {
  ADD_FAILURE() << "called";
  return 0;
}

const qmibtree_value_t kOther = string_value("other");

struct by_name {
  const char* function;
  uint32_t for_unknown;
  std::function<uint32_t(qmibtree_inst_t*, const char*)> call;
};

// For the functions by unique id the name is not looked at: the id has no record.
const by_name kByName[] = {
    {"get_arg", 0, [](auto* inst, auto* name) { return qmibtree_get_arg(inst, name); }},
    {"find_node", 0,
     [](auto* inst, auto* name) {
       return qmibtree_find_node_by_name(inst, name) == nullptr ? 0u : 1u;
     }},
    {"get_childnum", 0xffffffff,
     [](auto* inst, auto* name) {
       return static_cast<uint32_t>(qmibtree_get_childnum(inst, name));
     }},
    {"loop", 40, [](auto* inst, auto* name) { return qmibtree_loop(inst, name, never, nullptr); }},
    {"dump", 40,
     [](auto* inst, auto* name) {
       return qmibtree_dump(inst, name, nullptr, 99, never_dump, nullptr);
     }},
    {"add_object", 40,
     [](auto* inst, auto* name) {
       uint32_t number = 5;
       const uint32_t rc = qmibtree_add_object(inst, name, &number, 0, 255);
       return number == 5 ? rc : 1u;
     }},
    {"del_object", 40, [](auto* inst, auto* name) { return qmibtree_del_object(inst, name, 0); }},
    {"lookup", 0,
     [](auto* inst, auto*) { return qmibtree_lookup(inst, nullptr, 99, never, nullptr); }},
    {"read", 40,
     [](auto* inst, auto* name) {
       qmibtree_value_t value = {};
       const uint32_t rc = qmibtree_read(inst, name, &value, 0);
       return value.type == 0 ? rc : 1u;
     }},
    {"write", 40,
     [](auto* inst, auto* name) {
       return qmibtree_write(inst, name, &kOther, QMIBTREE_WRITE_APPLY);
     }},
    {"write_strvalue", 40,
     [](auto* inst, auto* name) {
       return qmibtree_write_strvalue(inst, name, "other", QMIBTREE_WRITE_APPLY);
     }},
    {"write_strvalue_by_uniqueid", 0,
     [](auto* inst, auto*) {
       return qmibtree_write_strvalue_by_uniqueid(inst, 99, "other", QMIBTREE_WRITE_APPLY);
     }},
    {"compare", 40,
     [](auto* inst, auto* name) { return qmibtree_compare(inst, name, &kOther, 0); }},
    {"get_attr", 40,
     [](auto* inst, auto* name) {
       uint32_t attr = 5;
       const uint32_t rc = qmibtree_get_attr(inst, name, &attr);
       return attr == 5 ? rc : 1u;
     }},
    {"set_attr", 40,
     [](auto* inst, auto* name) {
       return qmibtree_set_attr(inst, name, QMIBTREE_ATTR_NOTIF_PASSIVE);
     }},
    {"notify", 40, [](auto* inst, auto* name) { return qmibtree_notify(inst, name, 0); }},
};

class ByName : public InstTest, public testing::WithParamInterface<by_name> {};

TEST_P(ByName, AnUnknownNameDoesNothing) {
  CheckedTree tree(schema_);
  ASSERT_NE(tree.inst, nullptr);
  const std::string before = document_of(tree.inst);
  for (const char* name : {"A.Nowhere", "A", "A.S.", "a.s", ""}) {
    EXPECT_EQ(GetParam().call(tree.inst, name), GetParam().for_unknown) << name;
  }
  EXPECT_EQ(tree.inst->obj_changes, 0u);
  EXPECT_EQ(tree.inst->notif->num, 0u);
  EXPECT_TRUE(changes().empty());
  EXPECT_EQ(document_of(tree.inst), before);
}

INSTANTIATE_TEST_SUITE_P(, ByName, testing::ValuesIn(kByName),
                         [](const auto& tested) { return tested.param.function; });

TEST_F(Init, TextForAnObjectIsNotAllowed) {
  CheckedTree tree(schema_);
  EXPECT_EQ(qmibtree_write_strvalue(tree.inst, "A.O.", "other", 0), QMIBTREE_RC_NOT_ALLOWED);
}

struct by_pieces {
  const char* function;
  uint32_t found;  // on a string parameter with arg 77 and the value "other"
  uint32_t not_found;
  std::function<uint32_t(qmibtree_inst_t*, const char*, const char*)> call;
};

const by_pieces kByPieces[] = {
    {"find_node", 1, 0,
     [](auto* inst, auto* prefix, auto* suffix) {
       return qmibtree_find_node_by_name_v2(inst, prefix, suffix) == nullptr ? 0u : 1u;
     }},
    {"get_arg", 77, 0,
     [](auto* inst, auto* prefix, auto* suffix) {
       return qmibtree_get_arg_v2(inst, prefix, suffix);
     }},
    {"loop", 32, 40,
     [](auto* inst, auto* prefix, auto* suffix) {
       return qmibtree_loop_v2(inst, prefix, suffix, never, nullptr);
     }},
    {"read", 4, 40,
     [](auto* inst, auto* prefix, auto* suffix) {
       qmibtree_value_t value = {};
       const uint32_t rc = qmibtree_read_v2(inst, prefix, suffix, &value, 0);
       return QMIBTREE_FAILED(rc) ? rc : value.type;
     }},
    {"write", 1, 40,
     [](auto* inst, auto* prefix, auto* suffix) {
       const qmibtree_value_t value = string_value("written");
       const uint32_t rc = qmibtree_write_v2(inst, prefix, suffix, &value, 0);
       return QMIBTREE_FAILED(rc) ? rc : static_cast<uint32_t>(changes().size());
     }},
    {"compare", 0, 40,
     [](auto* inst, auto* prefix, auto* suffix) {
       return qmibtree_compare_v2(inst, prefix, suffix, &kOther, 0);
     }},
    {"notify", 1, 40,
     [](auto* inst, auto* prefix, auto* suffix) {
       const uint32_t rc = qmibtree_notify_v2(inst, prefix, suffix, 0);
       return QMIBTREE_FAILED(rc) ? rc : inst->notif->num;
     }},
};

// A parameter whose full name has 511 characters, and one whose full name has 510.
class ByPieces : public testing::TestWithParam<by_pieces> {
 protected:
  void SetUp() override {
    changes().clear();
    schema_.add(0, prefix_.c_str());
    for (const std::string* name : {&longest_, &shorter_}) {
      schema_.add(1, name->c_str(), QMIBTREE_TYPE_STRING, QMIBTREE_UID_NOTIF_DEFAULT, "other").arg =
          77;
    }
    tree_ = std::make_unique<CheckedTree>(schema_);
    ASSERT_NE(tree_->inst, nullptr);
  }

  void TearDown() override {
    tree_.reset();
    changes().clear();
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  uint32_t call(const std::string& suffix) {
    return GetParam().call(tree_->inst, prefix_.c_str(), suffix.c_str());
  }

  const int blocks_before_ = live_blocks();
  const std::string prefix_ = std::string(299, 'p') + ".";
  const std::string longest_ = std::string(211, 's');
  const std::string shorter_ = std::string(209, 's') + "t";
  Schema schema_;
  std::unique_ptr<CheckedTree> tree_;
};

TEST_P(ByPieces, FindsAJoinedName) { EXPECT_EQ(call(shorter_), GetParam().found); }

TEST_P(ByPieces, FindsAJoinedNameOf511Characters) { EXPECT_EQ(call(longest_), GetParam().found); }

TEST_P(ByPieces, CutsALongerNameTo511Characters) {
  EXPECT_EQ(call(longest_ + "x"), GetParam().found);
}

TEST_P(ByPieces, CutsNoShorter) { EXPECT_EQ(call(shorter_ + "x"), GetParam().not_found); }

TEST_P(ByPieces, CutsALongPrefix) {
  EXPECT_EQ(GetParam().call(tree_->inst, (prefix_ + longest_ + "x").c_str(), "y"),
            GetParam().found);
}

TEST_P(ByPieces, AnEmptyPieceIsNoPiece) {
  EXPECT_EQ(GetParam().call(tree_->inst, "", (prefix_ + shorter_).c_str()), GetParam().found);
}

TEST_P(ByPieces, NeedsNoMemoryToJoin) {
  const long made = allocations_made();
  call("unknown");
  EXPECT_EQ(allocations_made(), made);
}

INSTANTIATE_TEST_SUITE_P(, ByPieces, testing::ValuesIn(kByPieces),
                         [](const auto& tested) { return tested.param.function; });

}  // namespace
