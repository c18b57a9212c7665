// The debug log: settings, and the output that callers reach once they have tested the level.
#include <syslog.h>

#include <cstdarg>
#include <cstdio>

#include "qmibtree.h"

namespace {

// The names, in place: tables of pointers would need relocating at load.
struct name_tables {
  char feat[QDBG_FEAT_MAX][8];
  char level[QDBG_LVL_MAX][8];
};

constexpr name_tables names = {
    {"MAIN", "SYS", "DBUS", "NETLINK", "MIB", "TBD", "TBD", "TBD", "TBD", "TBD", "USER0", "USER1",
     "USER2", "USER3", "USER4", "USER5"},
    {"EMERG", "ALERT", "CRIT", "ERR", "WARN", "NOTICE", "INFO", "DEBUG"},
};

static_assert(QDBG_LVL_EMERG == LOG_EMERG && QDBG_LVL_DEBUG == LOG_DEBUG);

constinit qdbg_info_t info = {};

const char* shown_name(uint32_t feat) {
  return info.feat[feat].name ? info.feat[feat].name : names.feat[feat];
}

// Null, and a word on standard error, for a feature or a level that there is none of.
const char* feat_name(uint32_t feat) {
  if (feat < QDBG_FEAT_MAX) return shown_name(feat);
  std::fprintf(stderr, "%s: feat(%d) >= QDBG_FEAT_MAX\n", "_qdbg_get_feat_name",
               static_cast<int>(feat));
  return nullptr;
}

const char* level_name(uint32_t level) {
  if (level < QDBG_LVL_MAX) return names.level[level];
  // Deliberate: "levell". Log scanners in the field match on it.
  std::fprintf(stderr, "%s: levell(%d) >= QDBG_LVL_MAX\n", "_qdbg_get_level_name",
               static_cast<int>(level));
  return nullptr;
}

void reset() {
  info.syslog = 0;
  info.reserved = 0;
  info.console = 1;
  for (qdbg_feat_info_t& feat : info.feat) feat = {nullptr, QDBG_LVL_ERR};
  qdbg_global_infop = &info;
}

void set_initial(uint32_t feat, const char* name, uint32_t level) {
  std::printf("\nname : %s, level : %d, feat : %d", name, static_cast<int>(level),
              static_cast<int>(feat));
  if (feat >= QDBG_FEAT_MAX || level >= QDBG_LVL_MAX) return;
  info.feat[feat] = {name, level};
  std::printf("\nQDBG set %s to %s level", shown_name(feat), names.level[level]);
}

__attribute__((format(printf, 3, 0))) void print(uint32_t feat, uint32_t level, const char* format,
                                                 va_list args) {
  const char* const of_feat = feat_name(feat);
  const char* const of_level = level_name(level);
  std::printf("\n[%s - %s]: ", of_feat, of_level);
  std::vprintf(format, args);
  std::fflush(stdout);
}

}  // namespace

constinit qdbg_info_t* qdbg_global_infop = &info;

void qdbg_init(int feat, ...) {
  reset();
  va_list args;
  va_start(args, feat);
  // Deliberate: exactly 16 ends the list. Any other feature that there is none of, a negative one
  // too, is shown and skipped.
  for (int id = feat; id != QDBG_FEAT_MAX; id = va_arg(args, int)) {
    const char* const name = va_arg(args, const char*);
    const int level = va_arg(args, int);
    set_initial(static_cast<uint32_t>(id), name, static_cast<uint32_t>(level));
  }
  va_end(args);
}

void qdbg_set_level(uint32_t feat, uint32_t level) {
  if (feat < QDBG_FEAT_MAX && level < QDBG_LVL_MAX) info.feat[feat].level = level;
}

uint32_t qdbg_get_level(uint32_t feat) {
  return feat < QDBG_FEAT_MAX ? info.feat[feat].level : QDBG_LVL_MAX;
}

void qdbg_logging_nochk(uint32_t feat, uint32_t level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  qdbg_logging_nochk_valist(feat, level, format, args);
  va_end(args);
}

void qdbg_logging_nochk_valist(uint32_t feat, uint32_t level, const char* format, va_list args) {
  if (info.console == 1) {
    va_list copy;  // the list serves both outputs
    va_copy(copy, args);
    print(feat, level, format, copy);
    va_end(copy);
  }
  if (info.syslog == 1) vsyslog(static_cast<int>(level), format, args);
}
