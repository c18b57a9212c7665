/* The components: what the parameters take effect in. Four have a daemon, the firewall is a
 * command, and the system needs nothing.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <signal.h>
#include <stdio.h>

#include "gateway.h"

static char restarted[NAMES_SIZE];

const char* components_restarted(void) { return restarted; }

/* --- the system --- */

static void system_init(void) {
  char kernel[256] = ""; /* longer than any line that is kept, so there is always an end */
  run_pipeResult(kernel, sizeof kernel, "uname -sr");
  QDBG_NOTICE(QDBG_FEAT_SYS, "running on %s", kernel);
}

/* --- the components with a daemon --- */

#define DAEMON(id, what) [id] = {.comp = id, .name = #what, .pid_file = #what ".pid"}

static struct daemon daemons[GATEWAY_COMP_COUNT] = {
    DAEMON(GATEWAY_COMP_MANAGEMENT, management),
    DAEMON(GATEWAY_COMP_LAN, lan),
    DAEMON(GATEWAY_COMP_WLAN, wlan),
    DAEMON(GATEWAY_COMP_WAN, wan),
};

/* Actions are called without arguments, so each component has its own. */
#define ACTIONS(id, name)                                        \
  static void name##_start(void) { daemon_start(&daemons[id]); } \
  static void name##_stop(void) { daemon_stop(&daemons[id]); }   \
  static void name##_restart(void) {                             \
    name##_stop();                                               \
    name##_start();                                              \
    add_name(restarted, #name);                                  \
  }

ACTIONS(GATEWAY_COMP_MANAGEMENT, management)
ACTIONS(GATEWAY_COMP_LAN, lan)
ACTIONS(GATEWAY_COMP_WLAN, wlan)
ACTIONS(GATEWAY_COMP_WAN, wan)

const struct daemon* component_daemon(uint32_t id) {
  return daemons[id].name ? &daemons[id] : NULL;
}

const char* components_running(void) {
  static char running[NAMES_SIZE];
  *running = '\0';
  for (uint32_t id = 0; id < GATEWAY_COMP_COUNT; ++id) {
    const struct daemon* daemon = component_daemon(id);
    const int32_t pid = daemon ? daemon_pid(daemon) : 0;
    if (pid > 0 && kill(pid, 0) == 0) add_name(running, daemon->name);
  }
  return running;
}

/* --- the firewall: a real one would hand its rules to the kernel --- */

#define RULES "firewall"

static void firewall_load(void) {
  if (qmibtree_comp_system(GATEWAY_COMP_FIREWALL, "echo loaded >>%s", path_of(RULES)))
    QDBG_ERR(QDBG_FEAT_SYS, "cannot load the firewall");
}

static void firewall_restart(void) {
  firewall_load();
  add_name(restarted, "firewall");
}

static void firewall_stop(void) {
  qmibtree_comp_system(GATEWAY_COMP_FIREWALL, "rm -f %s", path_of(RULES));
}

uint32_t firewall_loads(void) {
  char command[128], count[256] = "";
  snprintf(command, sizeof command, "grep -c loaded %s", path_of(RULES));
  run_pipeResult(count, sizeof count, command);
  return (uint32_t)qstring2dec(count);
}

/* --- all of them --- */

static void for_each(const char* what, void (*action)(uint32_t id)) {
  QDBG_NOTICE(QDBG_FEAT_SYS, "%s", what);
  for (uint32_t id = 0; id < GATEWAY_COMP_COUNT; ++id) action(id);
}

static void restart_if_changed(uint32_t id) {
  if (!qmibtree_comp_chk_mark(id, QMIBTREE_COMP_MARK_CHANGED)) return;
  qmibtree_comp_restart(id);
  qmibtree_comp_unmark(id, QMIBTREE_COMP_MARK_CHANGED); /* a restart leaves the mark to us */
}

static void init_all(void) { for_each("init", qmibtree_comp_init); }
static void start_all(void) { for_each("start", qmibtree_comp_start); }
static void stop_all(void) { for_each("stop", qmibtree_comp_stop); }
static void restart_changed(void) {
  *restarted = '\0';
  for_each("restart what changed", restart_if_changed);
}

void components_register(void) {
  const qmibtree_comps_t hooks = {
      .init = init_all, .start = start_all, .stop = stop_all, .mark_action = restart_changed};
  qmibtree_comps_register(&hooks);
  /* The system reads its settings when it needs them: there is nothing to restart. */
  qmibtree_comp_register(GATEWAY_COMP_SYSTEM, 0, system_init, NULL, NULL, NULL);
  qmibtree_comp_register(GATEWAY_COMP_MANAGEMENT, 0, NULL, management_start, management_stop,
                         management_restart);
  qmibtree_comp_register(GATEWAY_COMP_LAN, 0, NULL, lan_start, lan_stop, lan_restart);
  qmibtree_comp_register(GATEWAY_COMP_WLAN, 0, NULL, wlan_start, wlan_stop, wlan_restart);
  qmibtree_comp_register(GATEWAY_COMP_WAN, 0, NULL, wan_start, wan_stop, wan_restart);
  qmibtree_comp_register(GATEWAY_COMP_FIREWALL, 0, NULL, firewall_load, firewall_stop,
                         firewall_restart);
}
