// Result codes: their numbers, their texts, and where success ends.
#include <gtest/gtest.h>

#include <string>

#include "qmibtree.h"

namespace {

struct code {
  uint32_t given;
  uint32_t number;
  const char* text;
};

constexpr code kCodes[] = {
    {QMIBTREE_RC_OK, 0, "ok"},
    {QMIBTREE_RC_ERROR, 32, "generic error"},
    {QMIBTREE_RC_NO_RESOURCE, 33, "out of resource"},
    {QMIBTREE_RC_DIFFERENT, 34, "unknown"},
    {QMIBTREE_RC_NO_FILE, 35, "unknown"},
    {QMIBTREE_RC_NOT_FOUND, 40, "mib name not found"},
    {QMIBTREE_RC_NO_HOOK, 50, "hook not found"},
    {QMIBTREE_RC_TYPE_MISMATCH, 61, "node type mismatch"},
    {QMIBTREE_RC_OUT_OF_RANGE, 70, "write out of range"},
    {QMIBTREE_RC_NOT_ALLOWED, 71, "write not allowed"},
    {QMIBTREE_RC_INVALID_VALUE, 72, "write invalid value"},
    {QMIBTREE_RC_DUMP_EXCEEDED, 80, "dump exceeded"},
};

bool is_listed(uint32_t rc) {
  for (const code& each : kCodes) {
    if (each.number == rc) return true;
  }
  return false;
}

TEST(Rc, EveryCodeHasItsNumberAndItsText) {
  for (const code& each : kCodes) {
    EXPECT_EQ(each.given, each.number);
    EXPECT_STREQ(qmibtree_rc_string(each.number), each.text) << each.number;
  }
}

TEST(Rc, EveryCodeBelow32ReadsOk) {
  for (uint32_t rc = 0; rc < 32; ++rc) EXPECT_STREQ(qmibtree_rc_string(rc), "ok") << rc;
}

TEST(Rc, DifferentAndNoFileHaveNoTextOfTheirOwn) {
  EXPECT_STREQ(qmibtree_rc_string(34), "unknown");
  EXPECT_STREQ(qmibtree_rc_string(35), "unknown");
}

TEST(Rc, EveryOtherCodeReadsUnknown) {
  for (uint32_t rc = 32; rc < 300; ++rc) {
    if (is_listed(rc)) continue;
    EXPECT_STREQ(qmibtree_rc_string(rc), "unknown") << rc;
  }
  for (const uint32_t rc : {0x7fffffffu, 0x80000000u, 0xffffffffu}) {
    EXPECT_STREQ(qmibtree_rc_string(rc), "unknown") << rc;
  }
}

TEST(Rc, FailureBeginsAt32Unsigned) {
  EXPECT_FALSE(QMIBTREE_FAILED(0u));
  EXPECT_FALSE(QMIBTREE_FAILED(31u));
  EXPECT_TRUE(QMIBTREE_FAILED(32u));
  EXPECT_TRUE(QMIBTREE_FAILED(0xffffffffu));
}

}  // namespace
