// What the test kit does for a host: its hooks and callback watched, its flash and memory failing.
#include "host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/guards.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/matchers.hh"
#include "qmibtree_testkit/sweep.hh"

using namespace qmibtree_testkit;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Lamp : public testing::Test {
 protected:
  Lamp() {
    register_component(0);
    flash_reset();
    inst = host_start();
  }
  ~Lamp() override {
    EXPECT_THAT(inst, IsConsistent());
    host_stop(inst);
  }

  void restart() {
    host_stop(inst);
    inst = host_start();
  }

  LeakCheck leaks;
  Host host;
  qmibtree_inst_t* inst;
};

// --- what the host is told, and answers ---

TEST_F(Lamp, AChangedColorIsReportedAndMarksTheLamp) {
  EXPECT_EQ(host_set_color(inst, "red"), 0);
  ASSERT_EQ(changes().size(), 1u);
  EXPECT_EQ(changes()[0].full_name, "Lamp.Color");
  EXPECT_THAT(marked_components(), ElementsAre(0));
}

TEST_F(Lamp, AColorItDoesNotHaveIsRefused) {
  EXPECT_THAT(qmibtree_write_strvalue(inst, "Lamp.Color", "mauve", QMIBTREE_WRITE_APPLY),
              FailsWith(QMIBTREE_RC_INVALID_VALUE));
  EXPECT_THAT(inst, Holds("Lamp.Color", "green"));
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(Lamp, ABrokenLampKeepsItsColor) {
  host.watch(host_schema()->uidinfo[LAMP_COLOR], kSet);
  host.answer_set("Lamp.Color", QMIBTREE_RC_NO_RESOURCE);  // in place of the host's own hook
  EXPECT_EQ(host_set_color(inst, "red"), -1);
  EXPECT_THAT(host.calls, ElementsAre("set Lamp.Color=red"));
  EXPECT_THAT(inst, Holds("Lamp.Color", "green"));
}

TEST_F(Lamp, TheUpTimeIsAskedForWithEachRead) {
  host.watch(host_schema()->uidinfo[LAMP_UPTIME], kGet);
  host.answer_get("Lamp.UpTime", uint_value(7));
  EXPECT_THAT(inst, Holds("Lamp.UpTime", "7"));
}

// --- flash ---

TEST_F(Lamp, ASavedColorIsThereAfterAStart) {
  EXPECT_EQ(host_set_color(inst, "red"), 0);
  EXPECT_EQ(host_save(inst), 0);
  EXPECT_THAT(flash_text(kMain), HasSubstr("<PARAM name=\"Color\">red</PARAM>"));
  restart();
  EXPECT_THAT(inst, Holds("Lamp.Color", "red"));
}

TEST_F(Lamp, ATornHeaderCostsNothing) {
  EXPECT_EQ(host_set_color(inst, "red"), 0);
  EXPECT_EQ(host_save(inst), 0);
  flash_poke(kMain, 2, "\xff\xff");
  EXPECT_EQ(flash_text(kMain), "(invalid)");
  restart();
  EXPECT_THAT(inst, Holds("Lamp.Color", "red"));
}

TEST_F(Lamp, ASaveThatFailedIsMadeGoodByTheNext) {
  fail_call("fopen", 3);  // the backup's header
  EXPECT_EQ(host_set_color(inst, "red"), 0);
  EXPECT_EQ(host_save(inst), -1);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(host_save(inst), 0);
  for (const char* partition : {kMain, kBackup})
    EXPECT_THAT(flash_text(partition), HasSubstr("red")) << partition;
}

// --- each failure in turn ---

TEST_F(Lamp, WhateverAllocationOfAStartFailsItStartsSoundOrNotAtAll) {
  const int failed = sweep_allocations([] {
    qmibtree_inst_t* const other = host_start();
    if (!other) return;
    EXPECT_THAT(other, IsConsistent());
    host_stop(other);
  });
  EXPECT_GT(failed, 0);
}

TEST_F(Lamp, WhateverOpenOfASaveFailsOneColorOrTheOtherIsThere) {
  const int failed = sweep_call("fopen", [&] {
    for (const char* color : {"green", "red"}) {
      host_set_color(inst, color);
      host_save(inst);
    }
    calls_work();
    restart();
    EXPECT_THAT(inst, Holds("Lamp.Color", AnyOf("green", "red")));
  });
  EXPECT_GT(failed, 0);
}

}  // namespace
