/* The components: each only says what a real one would do.
 *
 * A real gateway would start and signal its daemons in these actions.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <stdio.h>
#include <string.h>

#include "gateway.h"

static char restarted[64]; /* holds the names of all */

static void print_name(const char* name) { printf(" %s", name); }

static void note_restart(const char* name) {
  print_name(name);
  if (*restarted) strcat(restarted, " ");
  strcat(restarted, name);
}

/* Actions are called without arguments, so each component has its own. */
#define ACTIONS(name)                                   \
  static void name##_init(void) { print_name(#name); }  \
  static void name##_start(void) { print_name(#name); } \
  static void name##_stop(void) { print_name(#name); }
#define RESTART(name) \
  static void name##_restart(void) { note_restart(#name); }

ACTIONS(system)
ACTIONS(management)
ACTIONS(lan)
ACTIONS(wlan)
ACTIONS(wan)
ACTIONS(firewall)
RESTART(management)
RESTART(lan)
RESTART(wlan)
RESTART(wan)
RESTART(firewall)

static void for_each(const char* what, void (*action)(uint32_t id)) {
  printf("  %s:", what);
  for (uint32_t id = 0; id < COMP_COUNT; ++id) action(id);
  printf("\n");
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
  qmibtree_comp_register(COMP_SYSTEM, 0, system_init, system_start, system_stop, NULL);
  qmibtree_comp_register(COMP_MANAGEMENT, 0, management_init, management_start, management_stop,
                         management_restart);
  qmibtree_comp_register(COMP_LAN, 0, lan_init, lan_start, lan_stop, lan_restart);
  qmibtree_comp_register(COMP_WLAN, 0, wlan_init, wlan_start, wlan_stop, wlan_restart);
  qmibtree_comp_register(COMP_WAN, 0, wan_init, wan_start, wan_stop, wan_restart);
  qmibtree_comp_register(COMP_FIREWALL, 0, firewall_init, firewall_start, firewall_stop,
                         firewall_restart);
}

const char* components_restarted(void) { return restarted; }
