// Shows the debug log: its settings, what qdbg_init prints, and each message's way to standard
// output and syslog, byte for byte. vsyslog is this program's own: it records and passes nothing on
// unless told to.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

struct SyslogCall {
  int priority;
  std::string text;
  bool operator==(const SyslogCall&) const = default;
};
std::ostream& operator<<(std::ostream& out, const SyslogCall& call) {
  return out << call.priority << ' ' << call.text;
}
using SyslogCalls = std::vector<SyslogCall>;
SyslogCalls syslog_calls;
bool syslog_is_real;

void record_syslog(int priority, const char* format, va_list args) {
  if (syslog_is_real) {
    const auto real = reinterpret_cast<decltype(&vsyslog)>(dlsym(RTLD_NEXT, "vsyslog"));
    return real(priority, format, args);
  }
  char text[256];
  std::vsnprintf(text, sizeof text, format, args);
  syslog_calls.push_back({priority, text});
}

}  // namespace

extern "C" {

void vsyslog(int priority, const char* format, va_list args) {
  record_syslog(priority, format, args);
}

// What vsyslog turns into where the library is built with the C library's own checks.
void __vsyslog_chk(int priority, int flag, const char* format, va_list args);
void __vsyslog_chk(int priority, int, const char* format, va_list args) {
  record_syslog(priority, format, args);
}

}  // extern "C"

namespace {

// What the program started with, before any test.
qdbg_info_t* const record = qdbg_global_infop;
const qdbg_info_t record_at_load = *qdbg_global_infop;

// How this platform's printf prints a null text.
std::string null_text() {
  const char* const volatile null = nullptr;
  char text[32];
  std::snprintf(text, sizeof text, "%s", null);
  return text;
}

std::string output_of(const std::function<void()>& act) {
  testing::internal::CaptureStdout();
  act();
  return testing::internal::GetCapturedStdout();
}

struct Outputs {
  std::string out, err;
};
Outputs outputs_of(const std::function<void()>& act) {
  testing::internal::CaptureStderr();
  const std::string out = output_of(act);
  return {out, testing::internal::GetCapturedStderr()};
}

// What `act` brings to a fully buffered standard output without the help of a later flush.
std::string flushed_output_of(const std::function<void()>& act) {
  std::fflush(stdout);
  int ends[2];
  if (pipe(ends) != 0) return "(no pipe)";
  const pid_t child = fork();
  if (child == 0) {
    static char buffer[4096];
    const std::string path = "/dev/fd/" + std::to_string(ends[1]);
    if (!std::freopen(path.c_str(), "w", stdout)) _exit(1);
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    act();
    _exit(0);
  }
  close(ends[1]);
  std::string text;
  char byte;
  while (read(ends[0], &byte, 1) == 1) text += byte;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return text;
}

void log_valist(uint32_t feat, uint32_t level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  qdbg_logging_nochk_valist(feat, level, format, args);
  va_end(args);
}

// Each test starts with the record as it is at load.
class Qdbg : public ::testing::Test {
 protected:
  void SetUp() override {
    *record = record_at_load;
    syslog_calls.clear();
  }
  void TearDown() override {
    EXPECT_EQ(qdbg_global_infop, record);
    EXPECT_EQ(allocations_made(), allocations);
  }

  // The settings after qdbg_init: output to the console alone.
  static void start() { qdbg_init(QDBG_FEAT_MAX); }

  const long allocations = allocations_made();
};

// --- the record ---

TEST_F(Qdbg, RecordHoldsZerosAtLoad) {
  EXPECT_EQ(record_at_load.syslog, 0u);
  EXPECT_EQ(record_at_load.reserved, 0u);
  EXPECT_EQ(record_at_load.console, 0u);
  for (const qdbg_feat_info_t& feat : record_at_load.feat) {
    EXPECT_EQ(feat.name, nullptr);
    EXPECT_EQ(feat.level, 0u);
  }
}

TEST_F(Qdbg, RecordKeepsItsLayout) {
  EXPECT_EQ(offsetof(qdbg_info_t, syslog), 0u);
  EXPECT_EQ(offsetof(qdbg_info_t, reserved), 4u);
  EXPECT_EQ(offsetof(qdbg_info_t, console), 8u);
  EXPECT_EQ(offsetof(qdbg_info_t, feat), sizeof(void*) == 4 ? 12u : 16u);
  EXPECT_EQ(offsetof(qdbg_feat_info_t, name), 0u);
  EXPECT_EQ(offsetof(qdbg_feat_info_t, level), sizeof(void*));
  EXPECT_EQ(sizeof(qdbg_info_t::feat), 16 * 2 * sizeof(void*));
}

TEST_F(Qdbg, LevelsAreTheSyslogPriorities) {
  const int priorities[] = {LOG_EMERG,   LOG_ALERT,  LOG_CRIT, LOG_ERR,
                            LOG_WARNING, LOG_NOTICE, LOG_INFO, LOG_DEBUG};
  const int levels[] = {QDBG_LVL_EMERG, QDBG_LVL_ALERT,  QDBG_LVL_CRIT, QDBG_LVL_ERR,
                        QDBG_LVL_WARN,  QDBG_LVL_NOTICE, QDBG_LVL_INFO, QDBG_LVL_DEBUG};
  for (int level = 0; level < QDBG_LVL_MAX; ++level) {
    EXPECT_EQ(levels[level], level);
    EXPECT_EQ(priorities[level], level);
  }
}

TEST_F(Qdbg, MessagesGoNowhereBeforeInit) {
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(16, 8, "lost"); });
  EXPECT_EQ(outputs.out, "");
  EXPECT_EQ(outputs.err, "");
  EXPECT_EQ(syslog_calls, SyslogCalls{});
}

TEST_F(Qdbg, EveryThresholdIsZeroBeforeInit) {
  for (uint32_t feat = 0; feat < QDBG_FEAT_MAX; ++feat) EXPECT_EQ(qdbg_get_level(feat), 0u);
}

TEST_F(Qdbg, SetLevelWorksBeforeInit) {
  qdbg_set_level(QDBG_FEAT_USER5, QDBG_LVL_DEBUG);
  EXPECT_EQ(qdbg_get_level(QDBG_FEAT_USER5), 7u);
}

// --- qdbg_init ---

TEST_F(Qdbg, InitWithoutTriplesSetsTheDefaults) {
  qdbg_init(QDBG_FEAT_MAX);
  EXPECT_EQ(record->console, 1u);
  EXPECT_EQ(record->syslog, 0u);
  for (uint32_t feat = 0; feat < QDBG_FEAT_MAX; ++feat) {
    EXPECT_EQ(qdbg_get_level(feat), 3u);
    EXPECT_EQ(record->feat[feat].name, nullptr);
  }
}

TEST_F(Qdbg, InitWithoutTriplesPrintsNothing) {
  const Outputs outputs = outputs_of([] { qdbg_init(QDBG_FEAT_MAX); });
  EXPECT_EQ(outputs.out, "");
  EXPECT_EQ(outputs.err, "");
}

TEST_F(Qdbg, InitLooksAtNothingBehindTheEndMark) {
  EXPECT_EQ(output_of([] { qdbg_init(QDBG_FEAT_MAX, "late", 7, 0, "later", 7, QDBG_FEAT_MAX); }),
            "");
  EXPECT_EQ(qdbg_get_level(0), 3u);
}

TEST_F(Qdbg, InitPointsAtTheRecordAgain) {
  qdbg_info_t other = {};
  qdbg_global_infop = &other;
  qdbg_init(QDBG_FEAT_MAX);
  EXPECT_EQ(qdbg_global_infop, record);
  EXPECT_EQ(record->console, 1u);
  EXPECT_EQ(other.console, 0u);
}

TEST_F(Qdbg, InitResetsEverythingThatWasSet) {
  *record = {1, 2, 3, {}};
  for (qdbg_feat_info_t& feat : record->feat) feat = {"old", 7};
  qdbg_init(QDBG_FEAT_MAX);
  EXPECT_EQ(record->syslog, 0u);
  EXPECT_EQ(record->reserved, 0u);
  EXPECT_EQ(record->console, 1u);
  for (const qdbg_feat_info_t& feat : record->feat) {
    EXPECT_EQ(feat.name, nullptr);
    EXPECT_EQ(feat.level, 3u);
  }
}

TEST_F(Qdbg, InitAppliesANamedTriple) {
  EXPECT_EQ(output_of([] { qdbg_init(QDBG_FEAT_MIB, "abc", QDBG_LVL_DEBUG, QDBG_FEAT_MAX); }),
            "\nname : abc, level : 7, feat : 4"
            "\nQDBG set abc to DEBUG level");
  EXPECT_EQ(qdbg_get_level(QDBG_FEAT_MIB), 7u);
}

TEST_F(Qdbg, InitAppliesATripleWithoutName) {
  const char* const none = nullptr;
  EXPECT_EQ(output_of([&] { qdbg_init(QDBG_FEAT_DBUS, none, QDBG_LVL_INFO, QDBG_FEAT_MAX); }),
            "\nname : " + null_text() +
                ", level : 6, feat : 2"
                "\nQDBG set DBUS to INFO level");
  EXPECT_EQ(qdbg_get_level(QDBG_FEAT_DBUS), 6u);
  EXPECT_EQ(record->feat[QDBG_FEAT_DBUS].name, nullptr);
}

TEST_F(Qdbg, InitKeepsTheNameAsAPointer) {
  char name[] = "first";
  output_of([&] { qdbg_init(QDBG_FEAT_SYS, name, QDBG_LVL_ERR, QDBG_FEAT_MAX); });
  EXPECT_EQ(record->feat[QDBG_FEAT_SYS].name, name);
}

TEST_F(Qdbg, InitAppliesTriplesInOrder) {
  EXPECT_EQ(output_of([] { qdbg_init(0, "one", 0, 15, "two", 7, 0, "three", 1, QDBG_FEAT_MAX); }),
            "\nname : one, level : 0, feat : 0\nQDBG set one to EMERG level"
            "\nname : two, level : 7, feat : 15\nQDBG set two to DEBUG level"
            "\nname : three, level : 1, feat : 0\nQDBG set three to ALERT level");
  EXPECT_STREQ(record->feat[0].name, "three");
  EXPECT_EQ(qdbg_get_level(0), 1u);
  EXPECT_EQ(qdbg_get_level(15), 7u);
}

TEST_F(Qdbg, InitTakesALaterTriplesMissingNameToo) {
  const char* const none = nullptr;
  output_of([&] { qdbg_init(1, "one", 4, 1, none, 4, QDBG_FEAT_MAX); });
  EXPECT_EQ(record->feat[1].name, nullptr);
}

TEST_F(Qdbg, InitLeavesFeaturesThatAreNotNamedAtTheDefaults) {
  output_of([] { qdbg_init(4, "abc", 7, QDBG_FEAT_MAX); });
  for (const uint32_t feat : {0u, 3u, 5u, 15u}) {
    EXPECT_EQ(qdbg_get_level(feat), 3u);
    EXPECT_EQ(record->feat[feat].name, nullptr);
  }
}

TEST_F(Qdbg, InitReportsAndSkipsAFeatureAboveTheEndMark) {
  EXPECT_EQ(output_of([] { qdbg_init(17, "far", 1, 0, "near", 2, QDBG_FEAT_MAX); }),
            "\nname : far, level : 1, feat : 17"
            "\nname : near, level : 2, feat : 0\nQDBG set near to CRIT level");
  EXPECT_EQ(qdbg_get_level(0), 2u);
}

TEST_F(Qdbg, InitReportsAndSkipsANegativeFeature) {
  EXPECT_EQ(output_of([] { qdbg_init(-1, "below", 1, 0, "near", 2, QDBG_FEAT_MAX); }),
            "\nname : below, level : 1, feat : -1"
            "\nname : near, level : 2, feat : 0\nQDBG set near to CRIT level");
}

TEST_F(Qdbg, InitReportsAndSkipsALevelThatDoesNotExist) {
  EXPECT_EQ(output_of([] { qdbg_init(3, "high", 8, 4, "low", -1, QDBG_FEAT_MAX); }),
            "\nname : high, level : 8, feat : 3"
            "\nname : low, level : -1, feat : 4");
  for (const uint32_t feat : {3u, 4u}) {
    EXPECT_EQ(qdbg_get_level(feat), 3u);
    EXPECT_EQ(record->feat[feat].name, nullptr);
  }
}

TEST_F(Qdbg, InitDoesNotFlush) {
  EXPECT_EQ(flushed_output_of([] { qdbg_init(4, "abc", 7, QDBG_FEAT_MAX); }), "");
}

// --- thresholds ---

TEST_F(Qdbg, SetLevelChangesThatFeatureAlone) {
  start();
  qdbg_set_level(QDBG_FEAT_NETLINK, QDBG_LVL_EMERG);
  for (uint32_t feat = 0; feat < QDBG_FEAT_MAX; ++feat)
    EXPECT_EQ(qdbg_get_level(feat), feat == QDBG_FEAT_NETLINK ? 0u : 3u);
}

TEST_F(Qdbg, SetLevelReachesTheRecord) {
  qdbg_set_level(QDBG_FEAT_USER0, QDBG_LVL_NOTICE);
  EXPECT_EQ(record->feat[10].level, 5u);
}

TEST_F(Qdbg, SetLevelIgnoresWhatDoesNotExist) {
  start();
  const uint32_t pairs[][2] = {{3, 8}, {16, 1}, {3, UINT32_MAX}, {UINT32_MAX, 1}, {16, 8}};
  const qdbg_info_t before = *record;
  for (const auto& [feat, level] : pairs) {
    qdbg_set_level(feat, level);
    EXPECT_EQ(std::memcmp(record, &before, sizeof before), 0) << feat << ' ' << level;
  }
}

TEST_F(Qdbg, GetLevelOfNoFeatureIsTheNumberOfLevels) {
  EXPECT_EQ(qdbg_get_level(16), 8u);
  EXPECT_EQ(qdbg_get_level(UINT32_MAX), 8u);
}

// --- messages on standard output ---

struct FeatName {
  uint32_t feat;
  const char* name;
};

class QdbgFeatures : public Qdbg, public ::testing::WithParamInterface<FeatName> {};

TEST_P(QdbgFeatures, MessageCarriesTheDefaultName) {
  start();
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(GetParam().feat, QDBG_LVL_ERR, "x"); }),
            std::string("\n[") + GetParam().name + " - ERR]: x");
}

INSTANTIATE_TEST_SUITE_P(
    All, QdbgFeatures,
    testing::Values(FeatName{QDBG_FEAT_MAIN, "MAIN"}, FeatName{QDBG_FEAT_SYS, "SYS"},
                    FeatName{QDBG_FEAT_DBUS, "DBUS"}, FeatName{QDBG_FEAT_NETLINK, "NETLINK"},
                    FeatName{QDBG_FEAT_MIB, "MIB"}, FeatName{5, "TBD"}, FeatName{6, "TBD"},
                    FeatName{7, "TBD"}, FeatName{8, "TBD"}, FeatName{9, "TBD"},
                    FeatName{QDBG_FEAT_USER0, "USER0"}, FeatName{QDBG_FEAT_USER1, "USER1"},
                    FeatName{QDBG_FEAT_USER2, "USER2"}, FeatName{QDBG_FEAT_USER3, "USER3"},
                    FeatName{QDBG_FEAT_USER4, "USER4"}, FeatName{QDBG_FEAT_USER5, "USER5"}),
    [](const auto& info) { return std::to_string(info.param.feat); });

TEST_F(Qdbg, FeaturesAreNumberedAsTheirNamesStand) {
  const int feats[] = {QDBG_FEAT_MAIN,  QDBG_FEAT_SYS,   QDBG_FEAT_DBUS,  QDBG_FEAT_NETLINK,
                       QDBG_FEAT_MIB,   QDBG_FEAT_USER0, QDBG_FEAT_USER1, QDBG_FEAT_USER2,
                       QDBG_FEAT_USER3, QDBG_FEAT_USER4, QDBG_FEAT_USER5, QDBG_FEAT_MAX};
  const int ids[] = {0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 15, 16};
  for (size_t i = 0; i < std::size(ids); ++i) EXPECT_EQ(feats[i], ids[i]);
}

TEST_F(Qdbg, MessageCarriesTheNameOfItsLevel) {
  start();
  EXPECT_EQ(output_of([] {
              for (uint32_t level = 0; level < QDBG_LVL_MAX; ++level)
                qdbg_logging_nochk(QDBG_FEAT_SYS, level, "%u", level);
            }),
            "\n[SYS - EMERG]: 0\n[SYS - ALERT]: 1\n[SYS - CRIT]: 2\n[SYS - ERR]: 3"
            "\n[SYS - WARN]: 4\n[SYS - NOTICE]: 5\n[SYS - INFO]: 6\n[SYS - DEBUG]: 7");
}

TEST_F(Qdbg, MessageCarriesTheHostsNameOfTheFeature) {
  output_of([] { qdbg_init(QDBG_FEAT_MIB, "tree", QDBG_LVL_ERR, QDBG_FEAT_MAX); });
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_MIB, QDBG_LVL_WARN, "x"); }),
            "\n[tree - WARN]: x");
}

TEST_F(Qdbg, MessageCarriesANameSetInTheRecord) {
  start();
  record->feat[QDBG_FEAT_USER1].name = "";
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_USER1, QDBG_LVL_WARN, "x"); }),
            "\n[ - WARN]: x");
}

TEST_F(Qdbg, MessageIsFormatted) {
  start();
  EXPECT_EQ(output_of([] {
              qdbg_logging_nochk(QDBG_FEAT_SYS, QDBG_LVL_INFO, "%d %s %c%%\n", -5, "eth0", 'z');
            }),
            "\n[SYS - INFO]: -5 eth0 z%\n");
}

TEST_F(Qdbg, MessageIsFormattedFromAnArgumentList) {
  start();
  EXPECT_EQ(output_of([] { log_valist(QDBG_FEAT_SYS, QDBG_LVL_INFO, "%d %s", -5, "eth0"); }),
            "\n[SYS - INFO]: -5 eth0");
}

TEST_F(Qdbg, NoLineFeedFollowsAMessage) {
  start();
  EXPECT_EQ(output_of([] {
              qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "one");
              qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "two");
            }),
            "\n[MAIN - ERR]: one\n[MAIN - ERR]: two");
}

TEST_F(Qdbg, MessageIsFlushed) {
  start();
  EXPECT_EQ(
      flushed_output_of([] { qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "no line feed"); }),
      "\n[MAIN - ERR]: no line feed");
}

TEST_F(Qdbg, ThresholdIsNotAppliedToAMessage) {
  start();
  qdbg_set_level(QDBG_FEAT_MAIN, QDBG_LVL_EMERG);
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_DEBUG, "x"); }),
            "\n[MAIN - DEBUG]: x");
}

TEST_F(Qdbg, ReservedWordIsReadByNothing) {
  start();
  record->reserved = 1;
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "x"); }),
            "\n[MAIN - ERR]: x");
  EXPECT_EQ(syslog_calls, SyslogCalls{});
  EXPECT_EQ(record->reserved, 1u);
}

TEST_F(Qdbg, ConsoleIsOnForTheValueOneAlone) {
  for (const uint32_t other : {0u, 2u, 3u, UINT32_MAX}) {
    record->console = other;
    EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "x"); }), "");
  }
}

TEST_F(Qdbg, UnknownLevelIsReportedAndLoggedWithoutName) {
  start();
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(QDBG_FEAT_SYS, 9, "x%d", 1); });
  EXPECT_EQ(outputs.err, "_qdbg_get_level_name: levell(9) >= QDBG_LVL_MAX\n");
  EXPECT_EQ(outputs.out, "\n[SYS - " + null_text() + "]: x1");
}

// Both streams into one, unbuffered, so that the order of the writes is seen.
TEST_F(Qdbg, UnknownLevelIsReportedBeforeTheMessageIsPrinted) {
  start();
  EXPECT_EQ(flushed_output_of([] {
              dup2(fileno(stdout), STDERR_FILENO);
              std::setvbuf(stdout, nullptr, _IONBF, 0);
              qdbg_logging_nochk(QDBG_FEAT_SYS, 9, "x");
            }),
            "_qdbg_get_level_name: levell(9) >= QDBG_LVL_MAX\n\n[SYS - " + null_text() + "]: x");
}

TEST_F(Qdbg, FirstUnknownLevelIsTheNumberOfLevels) {
  start();
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(QDBG_FEAT_SYS, 8, "x"); });
  EXPECT_EQ(outputs.err, "_qdbg_get_level_name: levell(8) >= QDBG_LVL_MAX\n");
}

TEST_F(Qdbg, UnknownFeatureIsReportedAndLoggedWithoutName) {
  start();
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(16, QDBG_LVL_CRIT, "x"); });
  EXPECT_EQ(outputs.err, "_qdbg_get_feat_name: feat(16) >= QDBG_FEAT_MAX\n");
  EXPECT_EQ(outputs.out, "\n[" + null_text() + " - CRIT]: x");
}

TEST_F(Qdbg, UnknownFeatureIsReportedBeforeTheUnknownLevel) {
  start();
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(99, 88, "x"); });
  EXPECT_EQ(outputs.err,
            "_qdbg_get_feat_name: feat(99) >= QDBG_FEAT_MAX\n"
            "_qdbg_get_level_name: levell(88) >= QDBG_LVL_MAX\n");
  EXPECT_EQ(outputs.out, "\n[" + null_text() + " - " + null_text() + "]: x");
}

TEST_F(Qdbg, ReportsShowIdsSigned) {
  start();
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(UINT32_MAX, UINT32_MAX, "x"); });
  EXPECT_EQ(outputs.err,
            "_qdbg_get_feat_name: feat(-1) >= QDBG_FEAT_MAX\n"
            "_qdbg_get_level_name: levell(-1) >= QDBG_LVL_MAX\n");
}

TEST_F(Qdbg, MessageGoesToSyslogThoughStandardOutputFails) {
  start();
  record->syslog = 1;
  std::fflush(stdout);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(STDOUT_FILENO);
    qdbg_logging_nochk(QDBG_FEAT_SYS, QDBG_LVL_ERR, "x");
    _exit(syslog_calls == SyslogCalls{{LOG_ERR, "x"}} ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// --- messages to syslog ---

TEST_F(Qdbg, MessageGoesToSyslogAloneWithoutHeader) {
  record->syslog = 1;
  EXPECT_EQ(output_of([] { qdbg_logging_nochk(QDBG_FEAT_MIB, QDBG_LVL_INFO, "got %s", "it"); }),
            "");
  EXPECT_EQ(syslog_calls, (SyslogCalls{{LOG_INFO, "got it"}}));
}

TEST_F(Qdbg, MessageGoesToBothOutputsWithTheSameArguments) {
  start();
  record->syslog = 1;
  EXPECT_EQ(output_of([] {
              qdbg_logging_nochk(QDBG_FEAT_MIB, QDBG_LVL_WARN, "%d %s %d %s %.1f %d %d %s", 1,
                                 "two", 3, "four", 5.5, 6, 7, "eight");
            }),
            "\n[MIB - WARN]: 1 two 3 four 5.5 6 7 eight");
  EXPECT_EQ(syslog_calls, (SyslogCalls{{LOG_WARNING, "1 two 3 four 5.5 6 7 eight"}}));
}

TEST_F(Qdbg, ArgumentListGoesToBothOutputs) {
  start();
  record->syslog = 1;
  EXPECT_EQ(
      output_of([] { log_valist(QDBG_FEAT_MIB, QDBG_LVL_WARN, "%s %d %s", "one", 2, "three"); }),
      "\n[MIB - WARN]: one 2 three");
  EXPECT_EQ(syslog_calls, (SyslogCalls{{LOG_WARNING, "one 2 three"}}));
}

TEST_F(Qdbg, SyslogIsOnForTheValueOneAlone) {
  for (const uint32_t other : {0u, 2u, 3u, UINT32_MAX}) {
    record->syslog = other;
    qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_ERR, "x");
  }
  EXPECT_EQ(syslog_calls, SyslogCalls{});
}

TEST_F(Qdbg, SyslogGetsTheLevelUnchanged) {
  record->syslog = 1;
  SyslogCalls expected;
  for (const uint32_t level : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 0x1005u}) {
    qdbg_logging_nochk(QDBG_FEAT_MAIN, level, "x");
    expected.push_back({static_cast<int>(level), "x"});
  }
  EXPECT_EQ(syslog_calls, expected);
}

TEST_F(Qdbg, NothingIsReportedForSyslogAlone) {
  record->syslog = 1;
  const Outputs outputs = outputs_of([] { qdbg_logging_nochk(16, 9, "x"); });
  EXPECT_EQ(outputs.err, "");
  EXPECT_EQ(outputs.out, "");
  EXPECT_EQ(syslog_calls, (SyslogCalls{{9, "x"}}));
}

// The C library's syslog repeats what it sends on standard error when asked to.
TEST_F(Qdbg, MessageReachesTheRealSyslog) {
  record->syslog = 1;
  openlog("gateway", LOG_PERROR, LOG_USER);
  syslog_is_real = true;
  const Outputs outputs =
      outputs_of([] { qdbg_logging_nochk(QDBG_FEAT_MAIN, QDBG_LVL_DEBUG, "port %d", 7547); });
  syslog_is_real = false;
  closelog();
  EXPECT_EQ(outputs.err, "gateway: port 7547\n");
}

// --- the macros ---

struct LevelMacro {
  uint32_t level;
  const char* name;
  void (*log)(uint32_t feat, int* evaluated);
};

constexpr LevelMacro kLevelMacros[] = {
    {0, "EMERG", [](uint32_t feat, int* n) { QDBG_EMERG(feat, "%s %d", "x", ++*n); }},
    {1, "ALERT", [](uint32_t feat, int* n) { QDBG_ALERT(feat, "%s %d", "x", ++*n); }},
    {2, "CRIT", [](uint32_t feat, int* n) { QDBG_CRIT(feat, "%s %d", "x", ++*n); }},
    {3, "ERR", [](uint32_t feat, int* n) { QDBG_ERR(feat, "%s %d", "x", ++*n); }},
    {4, "WARN", [](uint32_t feat, int* n) { QDBG_WARN(feat, "%s %d", "x", ++*n); }},
    {5, "NOTICE", [](uint32_t feat, int* n) { QDBG_NOTICE(feat, "%s %d", "x", ++*n); }},
    {6, "INFO", [](uint32_t feat, int* n) { QDBG_INFO(feat, "%s %d", "x", ++*n); }},
    {7, "DEBUG", [](uint32_t feat, int* n) { QDBG_DEBUG(feat, "%s %d", "x", ++*n); }},
};

class QdbgMacros : public Qdbg, public ::testing::WithParamInterface<LevelMacro> {};

TEST_P(QdbgMacros, LogsUpToTheThreshold) {
  start();
  qdbg_set_level(QDBG_FEAT_USER2, GetParam().level);
  int evaluated = 0;
  EXPECT_EQ(output_of([&] { GetParam().log(QDBG_FEAT_USER2, &evaluated); }),
            std::string("\n[USER2 - ") + GetParam().name + "]: x 1");
  EXPECT_EQ(evaluated, 1);
}

INSTANTIATE_TEST_SUITE_P(All, QdbgMacros, testing::ValuesIn(kLevelMacros),
                         [](const auto& info) { return info.param.name; });

// EMERG is always due.
class QdbgMacrosNotDue : public QdbgMacros {};

TEST_P(QdbgMacrosNotDue, EvaluatesNothingAboveTheThreshold) {
  start();
  record->syslog = 1;
  qdbg_set_level(QDBG_FEAT_USER2, GetParam().level - 1);
  int evaluated = 0;
  EXPECT_EQ(output_of([&] { GetParam().log(QDBG_FEAT_USER2, &evaluated); }), "");
  EXPECT_EQ(syslog_calls, SyslogCalls{});
  EXPECT_EQ(evaluated, 0);
}

INSTANTIATE_TEST_SUITE_P(All, QdbgMacrosNotDue,
                         testing::ValuesIn(kLevelMacros + 1, std::end(kLevelMacros)),
                         [](const auto& info) { return info.param.name; });

TEST_F(Qdbg, MacroTakesTheLevelAsAnArgument) {
  start();
  qdbg_set_level(QDBG_FEAT_USER3, QDBG_LVL_NOTICE);
  EXPECT_EQ(output_of([] {
              for (int level = 0; level < QDBG_LVL_MAX; ++level)
                QDBG_LOG(QDBG_FEAT_USER3, level, "%d", level);
            }),
            "\n[USER3 - EMERG]: 0\n[USER3 - ALERT]: 1\n[USER3 - CRIT]: 2\n[USER3 - ERR]: 3"
            "\n[USER3 - WARN]: 4\n[USER3 - NOTICE]: 5");
}

TEST_F(Qdbg, MacroEvaluatesNoArgumentOfAMessageThatIsNotDue) {
  start();
  int evaluated = 0;
  const auto format = [&] {
    ++evaluated;
    return "%d";
  };
  EXPECT_EQ(output_of([&] { QDBG_LOG(QDBG_FEAT_USER3, QDBG_LVL_WARN, format(), ++evaluated); }),
            "");
  EXPECT_EQ(evaluated, 0);
}

TEST_F(Qdbg, MacroEvaluatesFeatureAndLevelOnce) {
  start();
  int feat = QDBG_FEAT_SYS, level = QDBG_LVL_CRIT;
  EXPECT_EQ(output_of([&] { QDBG_LOG(feat++, level++, "x"); }), "\n[SYS - CRIT]: x");
  EXPECT_EQ(feat, QDBG_FEAT_SYS + 1);
  EXPECT_EQ(level, QDBG_LVL_CRIT + 1);
}

TEST_F(Qdbg, MacroIsOneStatement) {
  start();
  EXPECT_EQ(output_of([] {
              for (const bool first : {true, false})
                if (first)
                  QDBG_ERR(QDBG_FEAT_MAIN, "first");
                else
                  QDBG_CRIT(QDBG_FEAT_MAIN, "second");
            }),
            "\n[MAIN - ERR]: first\n[MAIN - CRIT]: second");
}

TEST_F(Qdbg, MacroTakesAFeatureThatDoesNotExistAsDue) {
  start();
  const Outputs outputs = outputs_of([] { QDBG_DEBUG(16, "x"); });
  EXPECT_EQ(outputs.err, "_qdbg_get_feat_name: feat(16) >= QDBG_FEAT_MAX\n");
  EXPECT_EQ(outputs.out, "\n[" + null_text() + " - DEBUG]: x");
}

}  // namespace
