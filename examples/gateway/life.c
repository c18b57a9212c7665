/* The script: one function a step, each on one screen.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gateway.h"

#define COUNT(array) (sizeof(array) / sizeof(array)[0])

#define IGD "InternetGatewayDevice."
#define LAN IGD "LANDevice.1."
#define PORT LAN "LANEthernetInterfaceConfig.1."
#define CLIENT LAN "LANHostConfigManagement.DHCPStaticAddress.1."
#define WLAN LAN "WLANConfiguration.1."
#define WAN IGD "WANDevice.1.WANConnectionDevice.1."
#define IP WAN "WANIPConnection.1."
#define MAPPINGS IP "PortMapping."
#define HOSTS LAN "Hosts.Host."

static struct {
  qmibtree_inst_t* inst;
  char* factory;     /* the document of the factory settings */
  char* provisioned; /* the document that was saved */
} gateway;

/* --- power --- */

#define MAIN_VALID "\n -- check nvram success --\n"
#define MAIN_INVALID "\n -- check nvram faild --\n"
#define MAIN_UNREADABLE "\n -- load nvram success --\n" /* this is how it tells a failure */
#define BACKUP_VALID "\n -- check nvram bak success --\n"
#define BACKUP_INVALID "\n -- check nvram bak faild --\n"
#define BOTH_REWRITTEN "\n -- write config and bak file --\n"
#define DEFAULT_LOADED "\n -- load default xml config --\n"

/* The routes that a load can take, and the trace that each leaves. */
enum route { FROM_MAIN, FROM_BACKUP, FROM_BACKUP_UNREAD, FROM_DEFAULT };
static const struct {
  const char* name;
  const char* trace;
} routes[] = {
    [FROM_MAIN] = {"main partition", MAIN_VALID BOTH_REWRITTEN},
    [FROM_BACKUP] = {"backup, main invalid", MAIN_INVALID BACKUP_VALID BOTH_REWRITTEN},
    [FROM_BACKUP_UNREAD] = {"backup, main unreadable", MAIN_VALID MAIN_UNREADABLE BOTH_REWRITTEN},
    [FROM_DEFAULT] = {"factory settings", MAIN_INVALID BACKUP_INVALID DEFAULT_LOADED},
};

static const char* name_of_route(const char* trace) {
  for (size_t i = 0; i < COUNT(routes); ++i)
    if (strcmp(trace, routes[i].trace) == 0) return routes[i].name;
  return trace;
}

static void check_route(enum route expected) {
  char* trace = text_of_file(TRACE_FILE, 0, 0);
  check_text("loaded from", routes[expected].name, name_of_route(trace));
  qfree(trace);
}

static void check_tree(const char* what, const char* expected) {
  char* found = document_of(gateway.inst);
  check_document(what, expected, found);
  qfree(found);
}

static void power_on(enum route route) {
  gateway.inst = qmibtree_init(gateway_schema());
  if (!gateway.inst) fatal("the tree cannot be built");
  hooks_changes();
  qmibtree_load_config(gateway.inst);
  check_route(route);
  QDBG_NOTICE(QDBG_FEAT_MIB, "the document changed %u values", (unsigned)hooks_changes());
  qmibtree_notif_cleanup(gateway.inst->notif); /* what a load changes is no news, */
  qmibtree_comp_unmark_all();                  /* and everything starts anyway */
  qmibtree_comps_init();
  qmibtree_comps_start();
  check_text("daemons running", "management lan wlan wan", components_running());
  qdbg_set_level(QDBG_FEAT_MIB, QDBG_LVL_INFO); /* from here on a change is news */
}

static void power_off(void) {
  qdbg_set_level(QDBG_FEAT_MIB, QDBG_LVL_NOTICE);
  qmibtree_comps_stop();
  check_text("child processes left", "none", waitpid(-1, NULL, WNOHANG) < 0 ? "none" : "some");
  qmibtree_destroy(gateway.inst);
}

static void reboot_to(enum route route, const char* document) {
  power_off();
  power_on(route);
  check_tree("the tree's document", document);
}

/* --- first boot --- */

struct survey {
  uint32_t parameters;
  uint32_t unreadable;
};

static uint32_t survey_node(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx, int32_t level,
                            void* arg, uint32_t phase) {
  (void)level, (void)arg;
  struct survey* survey = ctx;
  if (phase != QMIBTREE_PHASE_ENTER || !(node->flags & QMIBTREE_NODE_PARAM)) return 0;
  qmibtree_value_t value = {0};
  const uint32_t rc = qmibtree_read_by_node(inst, node, &value, 0);
  ++survey->parameters;
  if (QMIBTREE_FAILED(rc) || value.type != node->uidinfo->type) ++survey->unreadable;
  return 0;
}

static void first_boot(void) {
  check_number("erase of both partitions", 0, (uint32_t)qmibtree_clear_config());
  check_number("main partition valid", 0, (uint32_t)qmibtree_check_nvram());
  power_on(FROM_DEFAULT);
  gateway.factory = text_of_file(DEFAULT_FILE, 0, 0);
  check_tree("the tree's document, against the factory file", gateway.factory);

  struct survey survey = {0, 0};
  qmibtree_dump(gateway.inst, NULL, &survey, 255, survey_node, NULL);
  QDBG_NOTICE(QDBG_FEAT_MIB, "%u records, %u parameters", (unsigned)gateway.inst->uidinfo_num,
              (unsigned)survey.parameters);
  check_number("parameters that cannot be read", 0, survey.unreadable);
  check_value(gateway.inst, IGD "DeviceInfo.SpecVersion", "1.0");
  check_value(gateway.inst, LAN "LANHostConfigManagement.MinAddress", "192.168.1.64");
  check_value(gateway.inst, WLAN "SSID", "Gateway");
  check_value(gateway.inst, LAN "LANWLANConfigurationNumberOfEntries", "2");
}

/* --- provisioning --- */

static void write_text(const char* name, const char* text, uint32_t flags) {
  const uint32_t rc = qmibtree_write_strvalue(gateway.inst, name, text, flags);
  if (QMIBTREE_FAILED(rc))
    check_rc(name, QMIBTREE_RC_OK, rc);
  else
    check_value(gateway.inst, name, text);
}

static const struct {
  const char* name;
  const char* text;
} provisioning[] = {
    {IGD "DeviceInfo.ProvisioningCode", "HOME-0042"},
    {IGD "ManagementServer.URL", "https://acs.example.net/cwmp"},
    {IGD "ManagementServer.PeriodicInformEnable", "true"},
    {IGD "ManagementServer.PeriodicInformInterval", "3600"},
    {IGD "Firewall.Config", "Low"},
    {IP "AddressingType", "Static"},
    {IP "ExternalIPAddress", "198.51.100.7"},
    {IP "SubnetMask", "255.255.255.0"},
    {IP "DefaultGateway", "198.51.100.1"},
    {WLAN "SSID", "Attic"},
    {WLAN "BeaconType", "WPAand11i"},
    {WLAN "KeyPassphrase", "correct horse battery"},
    {WLAN "Channel", "11"},
};

static void write_logo(void) {
  static const uint8_t bytes[] = {0x89, 'P', 'N', 'G', 0, 1, 2, 3};
  qmibtree_value_t logo = {.type = QMIBTREE_TYPE_BASE64};
  logo.data = bytes;
  logo.len = sizeof bytes;
  const char* name = IGD "UserInterface.ISPLogo";
  check_rc(name, QMIBTREE_RC_OK, qmibtree_write(gateway.inst, name, &logo, QMIBTREE_WRITE_APPLY));
  check_value(gateway.inst, name, "iVBORwABAgM=");
}

/* Restart what changed, and see by the pid files which daemons were. */
static void act_on_marks(const char* restarted, const char* renewed) {
  int32_t before[GATEWAY_COMP_COUNT] = {0};
  const struct daemon* daemon;
  for (uint32_t id = 0; id < GATEWAY_COMP_COUNT; ++id)
    if ((daemon = component_daemon(id))) before[id] = daemon_pid(daemon);
  qmibtree_comps_mark_action();
  char found[NAMES_SIZE] = "", alive[NAMES_SIZE] = "";
  for (uint32_t id = 0; id < GATEWAY_COMP_COUNT; ++id) {
    if (!(daemon = component_daemon(id)) || daemon_pid(daemon) == before[id]) continue;
    add_name(found, daemon->name);
    if (kill(before[id], 0) == 0) add_name(alive, daemon->name);
  }
  check_text("restarted", restarted, components_restarted());
  check_text("daemons with another pid", renewed, found);
  check_text("old processes left", "none", *alive ? alive : "none");
}

static void provision(void) {
  hooks_changes();
  for (size_t i = 0; i < COUNT(provisioning); ++i)
    write_text(provisioning[i].name, provisioning[i].text, QMIBTREE_WRITE_APPLY);
  write_logo();
  check_number("changes", COUNT(provisioning) + 1, hooks_changes());
  write_text(WLAN "SSID", "Attic", QMIBTREE_WRITE_APPLY);
  check_number("changes by writing the same again", 0, hooks_changes());
  act_on_marks("management wlan wan firewall", "management wlan wan");
  check_number("loads of the firewall", 2, firewall_loads());
}

static const struct {
  const char* name;
  const char* text;
  uint32_t flags;
  uint32_t rc;
} refusals[] = {
    {IGD "DeviceInfo.NoSuch", "1", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_NOT_FOUND},
    {IGD "DeviceInfo.", "1", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_NOT_ALLOWED},
    {IGD "DeviceInfo.SerialNumber", "1", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_NOT_ALLOWED},
    {IGD "DeviceInfo.UpTime", "1", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_NOT_ALLOWED},
    {WLAN "SSID", "Cellar", QMIBTREE_WRITE_SUBSCRIBER, QMIBTREE_RC_NOT_ALLOWED},
    {WLAN "SSID", "a name that is longer than 32 bytes", QMIBTREE_WRITE_APPLY,
     QMIBTREE_RC_OUT_OF_RANGE},
    {WLAN "Channel", "256", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_OUT_OF_RANGE},
    {IP "MaxMTUSize", "0", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_OUT_OF_RANGE},
    {IP "Enable", "yes", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_ERROR},
    {IGD "ManagementServer.PeriodicInformTime", "2020-01-01T00:00:00", QMIBTREE_WRITE_APPLY,
     QMIBTREE_RC_ERROR},
    {IP "ExternalIPAddress", "127.0.0.1", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {IP "ExternalIPAddress", "198.51.100", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {IP "SubnetMask", "255.0.255.0", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {WLAN "BeaconType", "WPA9", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {CLIENT "Chaddr", "00-00-5E-00-53-11", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {CLIENT "Chaddr", "01:00:5E:00:00:01", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
    {WLAN "KeyPassphrase", "black & white", QMIBTREE_WRITE_APPLY, QMIBTREE_RC_INVALID_VALUE},
};

static void refuse(void) {
  char* before = document_of(gateway.inst);
  for (size_t i = 0; i < COUNT(refusals); ++i) {
    char what[160];
    snprintf(what, sizeof what, "%s := %s", refusals[i].name, refusals[i].text);
    check_rc(what, refusals[i].rc,
             qmibtree_write_strvalue(gateway.inst, refusals[i].name, refusals[i].text,
                                     refusals[i].flags));
  }
  check_tree("the tree's document, unchanged", before);
  check_number("changes", 0, hooks_changes());
  qfree(before);
}

/* --- attributes and events --- */

static void check_attr(const char* name, const char* notification, const char* access) {
  char what[160], expected[32], found[32];
  uint32_t attr = 0;
  qmibtree_get_attr(gateway.inst, name, &attr);
  snprintf(what, sizeof what, "%s attributes", name);
  snprintf(expected, sizeof expected, "%s, %s", notification, access);
  snprintf(found, sizeof found, "%s, %s",
           attr & QMIBTREE_ATTR_NOTIF_ACTIVE    ? "active"
           : attr & QMIBTREE_ATTR_NOTIF_PASSIVE ? "passive"
                                                : "off",
           attr & QMIBTREE_ATTR_ACCESS_SUBSCRIBER ? "subscriber" : "nobody");
  check_text(what, expected, found);
}

static void set_attributes(void) {
  qmibtree_set_attr(gateway.inst, WLAN "SSID",
                    QMIBTREE_ATTR_NOTIF_PASSIVE | QMIBTREE_ATTR_ACCESS_SUBSCRIBER);
  check_attr(WLAN "SSID", "passive", "subscriber");
  qmibtree_set_attr(gateway.inst, IP "ConnectionStatus", QMIBTREE_ATTR_NOTIF_ACTIVE);
  check_attr(IP "ConnectionStatus", "active", "nobody");
  check_attr(WLAN "Channel", "off", "nobody");
  write_text(WLAN "SSID", "Cellar", QMIBTREE_WRITE_SUBSCRIBER); /* was refused before */
}

/* The newest event comes first. The first two were queued while provisioning: both parameters
 * are always reported. */
static const char* const events[] = {
    IP "ConnectionStatus",
    WLAN "SSID",
    IP "ExternalIPAddress",
    IGD "DeviceInfo.ProvisioningCode",
};

static void drain_events(void) {
  qmibtree_notif_t* queue = gateway.inst->notif;
  write_text(IP "ConnectionStatus", "Connected", 0); /* the gateway itself tells */
  write_text(IGD "ManagementServer.ParameterKey", "17", 0);
  qmibtree_notif_deq_event(queue);                        /* the key's: who set it knows */
  write_text(WLAN "SSID", "Attic", QMIBTREE_WRITE_APPLY); /* has its event already */
  write_text(IP "ExternalIPAddress", "198.51.100.8", QMIBTREE_WRITE_APPLY | QMIBTREE_WRITE_NOEVENT);
  check_number("events to be reported actively", 3, queue->active_num);
  check_number("events", COUNT(events), queue->num);
  for (size_t i = 0; i < COUNT(events); ++i) {
    const qmibtree_node* node = qmibtree_notif_deq_event(queue);
    check_text("event", events[i], node ? node->fullName : "none");
  }
  check_number("events left", 0, queue->num);
}

/* --- instances --- */

static void add(const char* table, uint32_t wish, uint32_t expected) {
  uint32_t number = wish;
  check_rc(table, QMIBTREE_RC_OK, qmibtree_add_object(gateway.inst, table, &number, 0, 255));
  check_number("new instance", expected, number);
}

static void change_instances(void) {
  act_on_marks("wlan wan", "wlan wan"); /* what the steps before have changed */

  check_value(gateway.inst, IP "PortMappingNumberOfEntries", "2");
  add(MAPPINGS, 0, 3);
  add(MAPPINGS, 7, 7);
  uint32_t taken = 2;
  check_rc("instance 2 once more", QMIBTREE_RC_ERROR,
           qmibtree_add_object(gateway.inst, MAPPINGS, &taken, 0, 255));
  check_rc("instance 2 deleted", QMIBTREE_RC_OK,
           qmibtree_del_object(gateway.inst, MAPPINGS "2.", 0));
  check_rc("instance 7 deleted", QMIBTREE_RC_OK,
           qmibtree_del_object(gateway.inst, MAPPINGS "7.", 0));
  add(MAPPINGS, 0, 4); /* the number after the highest left */
  check_value(gateway.inst, IP "PortMappingNumberOfEntries", "3");
  write_text(MAPPINGS "4.PortMappingProtocol", "UDP", QMIBTREE_WRITE_APPLY);
  write_text(MAPPINGS "4.ExternalPort", "51820", QMIBTREE_WRITE_APPLY);
  write_text(MAPPINGS "4.InternalPort", "51820", QMIBTREE_WRITE_APPLY);
  write_text(MAPPINGS "4.InternalClient", "192.168.1.20", QMIBTREE_WRITE_APPLY);
  write_text(MAPPINGS "4.PortMappingEnabled", "true", QMIBTREE_WRITE_APPLY);

  add(HOSTS, 0, 3); /* a new client on the LAN: the gateway itself writes */
  write_text(HOSTS "3.HostName", "printer", 0);
  write_text(HOSTS "3.MACAddress", "00:00:5E:00:53:2A", 0);
  check_value(gateway.inst, LAN "Hosts.HostNumberOfEntries", "3");

  act_on_marks("lan firewall", "lan");
  check_number("loads of the firewall", 3, firewall_loads());
}

/* --- live values --- */

static uint32_t read_number(const char* name) {
  qmibtree_value_t value = {0};
  qmibtree_read(gateway.inst, name, &value, 0);
  return value.type == QMIBTREE_TYPE_UINT ? value.u : 0;
}

static const char* read_text(const char* name) {
  qmibtree_value_t value = {0};
  qmibtree_read(gateway.inst, name, &value, 0);
  return value.type == QMIBTREE_TYPE_STRING ? value.str : "";
}

static void show_live_values(void) {
  const uint32_t uptime = read_number(IGD "DeviceInfo.UpTime");
  QDBG_NOTICE(QDBG_FEAT_MAIN, "up for %u s", (unsigned)uptime);
  check_number("the uptime runs", 1, uptime > 0);
  check_number("and never back", 1, read_number(IGD "DeviceInfo.UpTime") >= uptime);

  const char* status = read_text(PORT "Status");
  const char* address = read_text(PORT "MACAddress");
  const uint32_t received = read_number(PORT "Stats.BytesReceived");
  QDBG_NOTICE(QDBG_FEAT_MAIN, "port %s, MAC address %s, received %u bytes", status, address,
              (unsigned)received);
  check_number("the port is up or disabled", 1,
               !strcmp(status, "Up") || !strcmp(status, "Disabled"));
  check_number("characters of its MAC address", 17, (uint32_t)strlen(address));
}

/* --- the log --- */

/* A message that is not due costs one comparison: none of its arguments is evaluated. */
static void quieten_log(void) {
  uint32_t evaluated = 0;
  QDBG_INFO(LOG_DAEMONS, "message %u", (unsigned)++evaluated);
  check_number("messages made", 1, evaluated);
  qdbg_set_level(LOG_DAEMONS, QDBG_LVL_NOTICE); /* reboots would tell of each daemon */
  QDBG_INFO(LOG_DAEMONS, "message %u", (unsigned)++evaluated);
  check_number("messages made, with a lower threshold", 1, evaluated);
}

/* --- flash --- */

static void check_partition(const char* device) {
  char* text = text_of_file(device, HEADER_SIZE, (uint32_t)strlen(gateway.provisioned));
  check_document(device, gateway.provisioned, text);
  qfree(text);
}

static void save(void) {
  gateway.provisioned = document_of(gateway.inst);
  check_number("save", 0, (uint32_t)qmibtree_save_config(gateway.inst));
  check_number("main partition valid", 1, (uint32_t)qmibtree_check_nvram());
  check_partition(MAIN_DEVICE);
  check_partition(BACKUP_DEVICE);
}

static void reboot_from_main(void) {
  reboot_to(FROM_MAIN, gateway.provisioned);
  for (size_t i = 0; i < COUNT(provisioning); ++i)
    if (strcmp(provisioning[i].name, IP "ExternalIPAddress") != 0)
      check_value(gateway.inst, provisioning[i].name, provisioning[i].text);
  check_value(gateway.inst, IP "ExternalIPAddress", "198.51.100.8"); /* written last */
  check_value(gateway.inst, IGD "UserInterface.ISPLogo", "iVBORwABAgM=");
  check_value(gateway.inst, MAPPINGS "4.InternalClient", "192.168.1.20");
  check_value(gateway.inst, HOSTS "3.HostName", "printer");
  check_attr(WLAN "SSID", "passive", "subscriber");
  check_value(gateway.inst, IP "ConnectionStatus", "Unconfigured"); /* not kept */
}

static void lose_main_header(void) {
  damage(MAIN_DEVICE, 0);
  check_number("main partition valid", 0, (uint32_t)qmibtree_check_nvram());
  reboot_to(FROM_BACKUP, gateway.provisioned);
  check_partition(MAIN_DEVICE);
}

/* The header is still valid, so only reading the document shows the damage. */
static void damage_main_text(void) {
  damage(MAIN_DEVICE, HEADER_SIZE + (long)strlen(gateway.provisioned) / 2);
  check_number("main partition valid", 1, (uint32_t)qmibtree_check_nvram());
  reboot_to(FROM_BACKUP_UNREAD, gateway.provisioned);
  check_partition(MAIN_DEVICE);
}

static void lose_both(void) {
  damage(MAIN_DEVICE, 0);
  damage(BACKUP_DEVICE, 0);
  reboot_to(FROM_DEFAULT, gateway.factory);
  check_number("main partition valid, nothing was saved", 0, (uint32_t)qmibtree_check_nvram());
}

/* --- upgrade, download, clear --- */

static void check_upgrade(const char* path, int expected) {
  check_text("upgrade", expected ? "refused" : "done",
             qmibtree_upgrade_config(path) ? "refused" : "done");
  check_number("main partition valid", !expected, (uint32_t)qmibtree_check_nvram());
  check_tree("the running tree's document, untouched", gateway.factory);
}

static void upgrade(void) {
  const char* path = path_of("upgrade");
  write_upgrade_file(path, gateway.provisioned, 1);
  check_upgrade(path, -1);
  write_upgrade_file(path, gateway.provisioned, 0);
  check_upgrade(path, 0);
  unlink(path);
  reboot_to(FROM_MAIN, gateway.provisioned);
}

static void download_and_clear(void) {
  const char* path = path_of("download");
  check_number("download", 0, (uint32_t)qmibtree_download_config(path));
  check_number("erase of both partitions", 0, (uint32_t)qmibtree_clear_config());
  check_number("main partition valid", 0, (uint32_t)qmibtree_check_nvram());
  reboot_to(FROM_DEFAULT, gateway.factory);
}

static void restore_download(void) {
  const char* path = path_of("download");
  check_upgrade(path, 0);
  unlink(path);
  reboot_to(FROM_MAIN, gateway.provisioned);
}

static void reset_to_factory(void) {
  check_number("erase of both partitions", 0, (uint32_t)qmibtree_clear_config());
  reboot_to(FROM_DEFAULT, gateway.factory);
  power_off();
}

/* --- all of it --- */

static const struct {
  const char* title;
  void (*run)(void);
} steps[] = {
    {"First boot with erased flash: factory settings", first_boot},
    {"Provisioning, and the components it concerns", provision},
    {"Writes that are refused", refuse},
    {"Attributes", set_attributes},
    {"Change events, newest first", drain_events},
    {"Instances added and deleted", change_instances},
    {"Values that the system gives", show_live_values},
    {"The log made quieter", quieten_log},
    {"Save to both partitions", save},
    {"Reboot: main partition", reboot_from_main},
    {"Reboot, main header lost: backup", lose_main_header},
    {"Reboot, main text damaged: backup", damage_main_text},
    {"Reboot, both headers lost: factory settings", lose_both},
    {"Upgrade from a file, then reboot", upgrade},
    {"Download, clear, reboot: factory settings", download_and_clear},
    {"The download brought back as an upgrade", restore_download},
    {"Back to factory settings", reset_to_factory},
};

int live(void) {
  components_register();
  for (size_t i = 0; i < COUNT(steps); ++i) {
    heading(steps[i].title);
    steps[i].run();
  }
  qfree(gateway.factory);
  qfree(gateway.provisioned);
  check_number("faults of daemons", 0, daemon_faults());
  return transcript_end();
}
