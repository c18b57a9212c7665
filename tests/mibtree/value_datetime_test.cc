// Operations of datetime values: parsed as local time and refused, rendered as UTC.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "qmibtree.h"
#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"

using namespace qmibtree_testkit;

namespace {

constexpr char kText[] = "2010-05-06T07:08:09";
constexpr int32_t kSecondsInUtc = 1273129689;

class DatetimeValue : public testing::Test {
 protected:
  void SetUp() override {
    const char* const zone = std::getenv("TZ");
    had_zone_ = zone != nullptr;
    zone_before_ = zone ? zone : "";
    set_zone("UTC0");
  }

  void TearDown() override {
    if (had_zone_) {
      set_zone(zone_before_.c_str());
    } else {
      unsetenv("TZ");
      tzset();
    }
    EXPECT_EQ(live_blocks(), blocks_before_);
  }

  void set_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  int32_t parse(const char* text) {
    qmibtree_value_t value = {};
    fn_->from_str(&value, text);
    return value.t;
  }

  const int blocks_before_ = live_blocks();
  const qmibtree_datafn_t* const fn_ = qmibtree_datatype_get_datafn(QMIBTREE_TYPE_DATETIME);
  bool had_zone_ = false;
  std::string zone_before_;
};

TEST_F(DatetimeValue, EveryTextIsRefused) {
  for (const char* text : {kText, "1970-01-01T00:00:00", "yesterday", ""}) {
    qmibtree_value_t value = {};
    EXPECT_EQ(fn_->from_str(&value, text), QMIBTREE_RC_ERROR) << text;
    EXPECT_EQ(value.type, QMIBTREE_TYPE_DATETIME) << text;
  }
}

TEST_F(DatetimeValue, ARefusedTextIsParsedAllTheSame) {
  EXPECT_EQ(parse(kText), kSecondsInUtc);
  EXPECT_EQ(parse("1970-01-01T00:00:00"), 0);
  EXPECT_EQ(parse("1969-12-31T23:59:58"), -2);
}

TEST_F(DatetimeValue, TextIsLocalTime) {
  set_zone("WEST5");
  EXPECT_EQ(parse(kText), kSecondsInUtc + 5 * 3600);
}

TEST_F(DatetimeValue, TextIsLocalTimeInSummerToo) {
  set_zone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ(parse(kText), kSecondsInUtc + 4 * 3600);
}

TEST_F(DatetimeValue, WhatFollowsTheSecondsIsNotLookedAt) {
  EXPECT_EQ(parse("2010-05-06T07:08:09Z and more"), kSecondsInUtc);
}

TEST_F(DatetimeValue, ParsingReleasesWhatItReplaces) {
  const qmibtree_value_t text = string_value(kText);
  qmibtree_value_t value = {};
  ASSERT_EQ(qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(&value, &text), 1u);
  fn_->from_str(&value, "1970-01-01T00:00:00");
  EXPECT_EQ(live_blocks(), blocks_before_);
}

TEST_F(DatetimeValue, MayBeParsedFromTheTextItReplaces) {
  const qmibtree_value_t text = string_value(kText);
  qmibtree_value_t value = {};
  ASSERT_EQ(qmibtree_datatype_get_datafn(QMIBTREE_TYPE_STRING)->copy(&value, &text), 1u);
  fn_->from_str(&value, value.str);
  EXPECT_EQ(value.t, kSecondsInUtc);
}

struct rendered {
  int32_t seconds;
  const char* text;
};

TEST_F(DatetimeValue, RendersTheCalendarForm) {
  constexpr rendered kTimes[] = {
      {0, "1970-01-01T00:00:00"},         {kSecondsInUtc, kText},
      {-1, "1969-12-31T23:59:59"},        {951782400, "2000-02-29T00:00:00"},
      {INT32_MAX, "2038-01-19T03:14:07"}, {INT32_MIN, "1901-12-13T20:45:52"},
  };
  for (const rendered& each : kTimes) EXPECT_EQ(text_of(datetime_value(each.seconds)), each.text);
}

TEST_F(DatetimeValue, RendersUtcWhateverTheZone) {
  set_zone("WEST5");
  EXPECT_EQ(text_of(datetime_value(0)), "1970-01-01T00:00:00");
}

TEST_F(DatetimeValue, WithoutACalendarFormNothingIsRendered) {
  char text[] = "before";
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  const qmibtree_value_t value = datetime_value(0);
  fail_call("gmtime_r", 0);
  EXPECT_EQ(fn_->to_buff(&value, &buff), QMIBTREE_RC_ERROR);
  EXPECT_TRUE(calls_work());
  EXPECT_STREQ(text, "before");
}

TEST_F(DatetimeValue, DoesNotRenderIntoAFullBuffer) {
  char text[19];
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  const qmibtree_value_t value = datetime_value(0);
  EXPECT_EQ(fn_->to_buff(&value, &buff), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_STREQ(text, "1970-01-01T00:00:0");
}

TEST_F(DatetimeValue, EqualLooksAtTheTimeAlone) {
  qmibtree_value_t a = datetime_value(5), b = datetime_value(5);
  b.type = QMIBTREE_TYPE_INT;
  b.len = 7;
  EXPECT_EQ(fn_->equal(&a, &b), 1);
  b = datetime_value(6);
  EXPECT_EQ(fn_->equal(&a, &b), 0);
}

TEST_F(DatetimeValue, AssignAndCopyTakeTheWholeRecord) {
  qmibtree_value_t source;
  std::memset(&source, 0x5a, sizeof source);
  for (const auto slot : {fn_->assign, fn_->copy}) {
    qmibtree_value_t value = {};
    slot(&value, &source);
    EXPECT_EQ(value.type, 0x5a5a5a5au);
    EXPECT_EQ(value.data, source.data);
    EXPECT_EQ(value.len, 0x5a5a5a5au);
    EXPECT_EQ(value.owned, 0x5a);
  }
}

}  // namespace
