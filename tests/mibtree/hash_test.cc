// The hash of full names and the two indexes over nodes.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

struct hashed {
  const char* text;
  uint32_t hash;
};

TEST(Bkdr, HashesTheBytesAsSigned) {
  constexpr hashed kHashes[] = {
      {"", 0},
      {"a", 97},
      {"ab", 97 * 131 + 98},
      {"\xe9", 0x7fffffe9},  // -23, without the top bit
      {"a\xe9", 97 * 131 - 23},
      {"\x7f", 127},
      {"\x80", 0x7fffff80},   // -128
      {"zzzzz", 0x6e020faa},  // past 32 bits
      {"InternetGatewayDevice.", 0x1f28e36d},
      {"InternetGatewayDevice.DeviceInfo.UpTime", 0x36316809},
  };
  for (const hashed& each : kHashes) EXPECT_EQ(BKDRHash(each.text), each.hash) << each.text;
}

TEST(HashCreate, GivesAnEmptyIndex) {
  qmibtree_hash_t* const hash = qmibtree_hash_create(7, 13);
  ASSERT_NE(hash, nullptr);
  EXPECT_EQ(hash->kind, 7u);
  EXPECT_EQ(hash->size, 13u);
  for (uint32_t i = 0; i < 13; ++i) EXPECT_EQ(hash->buckets[i], nullptr) << i;
  const int blocks = live_blocks();
  qmibtree_hash_destroy(hash);
  EXPECT_EQ(live_blocks(), blocks - 1);
}

TEST(HashCreate, WithoutBucketsGivesNull) { EXPECT_EQ(qmibtree_hash_create(0, 0), nullptr); }

TEST(HashCreate, MoreBucketsThanAnAddressReachesAreNotAllocated) {
  fail_allocation_after(0);
  EXPECT_EQ(qmibtree_hash_create(0, UINT32_MAX), nullptr);
  EXPECT_EQ(allocations_work(), sizeof(void*) > 4);
}

TEST(HashCreate, WithoutMemoryGivesNull) {
  fail_allocation_after(0);
  EXPECT_EQ(qmibtree_hash_create(0, 5000), nullptr);
  EXPECT_TRUE(allocations_work());
}

TEST(HashDestroy, AcceptsNull) {
  const int blocks = live_blocks();
  qmibtree_hash_destroy(nullptr);
  EXPECT_EQ(live_blocks(), blocks);
}

TEST(HashRecord, HoldsKindSizeAndThenTheBuckets) {
  EXPECT_EQ(offsetof(qmibtree_hash_t, kind), 0u);
  EXPECT_EQ(offsetof(qmibtree_hash_t, size), 4u);
  EXPECT_EQ(offsetof(qmibtree_hash_t, buckets), 8u);
  EXPECT_EQ(sizeof(qmibtree_hash_t), 8u);
}

// A node outside any tree: an index looks at its full name and its record's id.
struct entry {
  entry(const char* full_name, uint32_t uid = 0) {
    record.uid = uid;
    node.fullName = full_name;
    node.uidinfo = &record;
  }
  entry(const entry&) = delete;
  entry& operator=(const entry&) = delete;

  qmibtree_uidinfo_t record = {};
  qmibtree_node node = {};
};

class NameIndex : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(hash_, nullptr); }
  void TearDown() override {
    qmibtree_hash_destroy(hash_);
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  uint32_t link(entry& one) { return qmibtree_hash_link_name(hash_, &one.node); }
  void unlink(entry& one) { qmibtree_hash_unlink_name(hash_, &one.node); }
  qmibtree_node* find(const char* name) { return qmibtree_hash_lookup_name(hash_, name); }

  // The chain of bucket 0, which is the whole index after one_bucket().
  std::vector<qmibtree_node*> chain() {
    std::vector<qmibtree_node*> nodes;
    for (qmibtree_node* each = hash_->buckets[0]; each; each = each->name_next) {
      nodes.push_back(each);
    }
    return nodes;
  }
  void one_bucket() {
    qmibtree_hash_destroy(hash_);
    hash_ = qmibtree_hash_create(0, 1);
    ASSERT_NE(hash_, nullptr);
  }

  const int blocks_before_ = live_blocks();
  qmibtree_hash_t* hash_ = qmibtree_hash_create(0, 5000);
  entry a_{"A."}, b_{"B."}, c_{"C."};
};

using nodes = std::vector<qmibtree_node*>;

TEST_F(NameIndex, AnEmptyIndexFindsNothing) {
  EXPECT_EQ(find("A."), nullptr);
  EXPECT_EQ(find(""), nullptr);
}

TEST_F(NameIndex, LinkingAnswersAndStoresTheHash) {
  EXPECT_EQ(link(a_), BKDRHash("A."));
  EXPECT_EQ(a_.node.hash, BKDRHash("A."));
}

TEST_F(NameIndex, TheBucketIsTheHashModuloTheSize) {
  entry long_name("InternetGatewayDevice.");
  link(long_name);
  EXPECT_EQ(hash_->buckets[0x1f28e36d % 5000], &long_name.node);
}

TEST_F(NameIndex, LinkingNeedsNoMemory) {
  const long made = allocations_made();
  link(a_);
  unlink(a_);
  EXPECT_EQ(allocations_made(), made);
}

TEST_F(NameIndex, TheNewestComesFirstInItsBucket) {
  one_bucket();
  for (entry* each : {&a_, &b_, &c_}) link(*each);
  EXPECT_EQ(chain(), (nodes{&c_.node, &b_.node, &a_.node}));
}

TEST_F(NameIndex, FindsEveryNodeOfABucket) {
  one_bucket();
  for (entry* each : {&a_, &b_, &c_}) link(*each);
  EXPECT_EQ(find("A."), &a_.node);
  EXPECT_EQ(find("B."), &b_.node);
  EXPECT_EQ(find("C."), &c_.node);
  EXPECT_EQ(find("D."), nullptr);
}

TEST_F(NameIndex, OfTwoNodesWithOneNameTheNewerIsFound) {
  entry older("Same."), newer("Same.");
  link(older);
  link(newer);
  EXPECT_EQ(find("Same."), &newer.node);
  unlink(newer);
  EXPECT_EQ(find("Same."), &older.node);
}

TEST_F(NameIndex, NamesOfOneHashAreToldApart) {
  entry first("a\x7f"), second("b\xfc");
  ASSERT_EQ(link(first), link(second));
  EXPECT_EQ(find("a\x7f"), &first.node);
  EXPECT_EQ(find("b\xfc"), &second.node);
  unlink(second);
  EXPECT_EQ(find("b\xfc"), nullptr);
}

TEST_F(NameIndex, ANameWithADifferentStoredHashIsPassedOver) {
  one_bucket();
  entry older("A.");
  link(older);
  link(a_);
  ++a_.node.hash;
  EXPECT_EQ(find("A."), &older.node);
}

class Unlinking : public NameIndex, public testing::WithParamInterface<size_t> {};

TEST_P(Unlinking, TakesOutJustThatNode) {
  one_bucket();
  entry* const all[] = {&a_, &b_, &c_};
  nodes expected;
  for (entry* each : all) link(*each);
  unlink(*all[GetParam()]);
  for (size_t i = 3; i-- > 0;) {
    if (i != GetParam()) expected.push_back(&all[i]->node);
  }
  EXPECT_EQ(chain(), expected);
  EXPECT_EQ(all[GetParam()]->node.name_next, nullptr);
  EXPECT_EQ(find(all[GetParam()]->node.fullName), nullptr);
}

INSTANTIATE_TEST_SUITE_P(FromTheTailTheMiddleAndTheHead, Unlinking, testing::Values(0, 1, 2));

TEST_F(NameIndex, UnlinkingAnAbsentNodeLeavesTheChainAndClearsTheLink) {
  one_bucket();
  link(a_);
  link(b_);
  c_.node.name_next = &a_.node;
  unlink(c_);
  EXPECT_EQ(chain(), (nodes{&b_.node, &a_.node}));
  EXPECT_EQ(c_.node.name_next, nullptr);
}

TEST_F(NameIndex, UnlinkingGoesByTheFullNameNotByTheStoredHash) {
  link(a_);
  ++a_.node.hash;
  unlink(a_);
  EXPECT_EQ(hash_->buckets[BKDRHash("A.") % 5000], nullptr);
}

TEST_F(NameIndex, DestroyingAnIndexTouchesNoNode) {
  one_bucket();
  link(a_);
  link(b_);
  qmibtree_hash_destroy(hash_);
  hash_ = nullptr;
  EXPECT_EQ(b_.node.name_next, &a_.node);
  EXPECT_EQ(b_.node.hash, BKDRHash("B."));
}

TEST_F(NameIndex, TheKindIsOnlyStored) {
  qmibtree_hash_destroy(hash_);
  hash_ = qmibtree_hash_create(1, 5000);
  ASSERT_NE(hash_, nullptr);
  link(a_);
  EXPECT_EQ(find("A."), &a_.node);
}

class UidIndex : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(hash_, nullptr); }
  void TearDown() override {
    qmibtree_hash_destroy(hash_);
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  void link(entry& one) { qmibtree_hash_link_uid(hash_, &one.node); }
  void unlink(entry& one) { qmibtree_hash_unlink_uid(hash_, &one.node); }
  qmibtree_node* find(uint32_t uid) { return qmibtree_hash_lookup_uid(hash_, uid); }

  const int blocks_before_ = live_blocks();
  qmibtree_hash_t* hash_ = qmibtree_hash_create(1, 2000);
  entry oldest_{"1", 5}, middle_{"2", 5}, newest_{"3", 5};
};

TEST_F(UidIndex, FindsTheNodeOfAnId) {
  link(oldest_);
  EXPECT_EQ(find(5), &oldest_.node);
  EXPECT_EQ(hash_->buckets[5], &oldest_.node);
  EXPECT_EQ(find(6), nullptr);
}

TEST_F(UidIndex, ServesTheNodesOfAnIdNewestFirst) {
  for (entry* each : {&oldest_, &middle_, &newest_}) link(*each);
  EXPECT_EQ(find(5), &newest_.node);
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(&newest_.node, 5), &middle_.node);
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(&middle_.node, 5), &oldest_.node);
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(&oldest_.node, 5), nullptr);
}

TEST_F(UidIndex, AnIdOf2000OrMoreHidesTheLowerIdOfItsBucket) {
  entry hiding("hiding", 2005);
  link(oldest_);
  link(hiding);
  EXPECT_EQ(find(5), nullptr);
  EXPECT_EQ(find(2005), &hiding.node);
}

TEST_F(UidIndex, AnIdOf2000OrMoreIsHiddenByTheLowerIdOfItsBucket) {
  entry hidden("hidden", 2005);
  link(hidden);
  link(oldest_);
  EXPECT_EQ(find(2005), nullptr);
  EXPECT_EQ(find(5), &oldest_.node);
}

TEST_F(UidIndex, TheNextNodeSkipsOtherIdsOfTheBucket) {
  entry other("other", 2005);
  link(oldest_);
  link(other);
  link(newest_);
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(&newest_.node, 5), &oldest_.node);
  EXPECT_EQ(qmibtree_hash_lookup_uid_next(&newest_.node, 2005), &other.node);
}

TEST_F(UidIndex, UnlinkingTakesOutJustThatNode) {
  for (entry* each : {&oldest_, &middle_, &newest_}) link(*each);
  unlink(middle_);
  EXPECT_EQ(middle_.node.uid_next, nullptr);
  EXPECT_EQ(newest_.node.uid_next, &oldest_.node);
  unlink(newest_);
  EXPECT_EQ(find(5), &oldest_.node);
  unlink(oldest_);
  EXPECT_EQ(find(5), nullptr);
}

TEST_F(UidIndex, UnlinkingAnAbsentNodeLeavesTheChainAndClearsTheLink) {
  link(oldest_);
  link(middle_);
  newest_.node.uid_next = &oldest_.node;
  unlink(newest_);
  EXPECT_EQ(newest_.node.uid_next, nullptr);
  EXPECT_EQ(find(5), &middle_.node);
  EXPECT_EQ(middle_.node.uid_next, &oldest_.node);
}

TEST_F(UidIndex, ANodeMayBeInBothIndexes) {
  qmibtree_hash_t* const names = qmibtree_hash_create(0, 1);
  ASSERT_NE(names, nullptr);
  qmibtree_hash_link_name(names, &oldest_.node);
  link(oldest_);
  qmibtree_hash_unlink_name(names, &oldest_.node);
  EXPECT_EQ(find(5), &oldest_.node);
  qmibtree_hash_destroy(names);
}

TEST_F(UidIndex, WithoutAnIndexNothingIsLinkedOrFound) {
  middle_.node.uid_next = &oldest_.node;
  qmibtree_hash_link_uid(nullptr, &middle_.node);
  EXPECT_EQ(middle_.node.uid_next, &oldest_.node);
  EXPECT_EQ(qmibtree_hash_lookup_uid(nullptr, 5), nullptr);
}

TEST_F(UidIndex, WithoutAnIndexUnlinkingOnlyClearsTheLink) {
  middle_.node.uid_next = &oldest_.node;
  qmibtree_hash_unlink_uid(nullptr, &middle_.node);
  EXPECT_EQ(middle_.node.uid_next, nullptr);
}

}  // namespace
