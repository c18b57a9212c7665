/* The hooks: values that come from the system, values that are refused, instances that come and
 * go, and the change callback that every host supplies.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <arpa/inet.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#include "gateway.h"

#define COUNT(array) (sizeof(array) / sizeof(array)[0])

/* --- reading --- */

/* One interface stands in for all the ports of the gateway: the first that is not the loopback,
 * or the loopback where there is no other. */
static const char* port(void) {
  static char name[IF_NAMESIZE];
  if (*name) return name;
  snprintf(name, sizeof name, "lo");
  struct if_nameindex* all = if_nameindex();
  if (!all) return name;
  for (const struct if_nameindex* one = all; one->if_index; ++one) {
    if (strcmp(one->if_name, "lo") == 0) continue;
    snprintf(name, sizeof name, "%s", one->if_name);
    break;
  }
  if_freenameindex(all);
  return name;
}

static uint32_t give_number(qmibtree_value_t* value, uint32_t number) {
  value->type = QMIBTREE_TYPE_UINT;
  value->u = number;
  return QMIBTREE_RC_OK;
}

static uint32_t give_text(qmibtree_value_t* value, const char* text) {
  value->type = QMIBTREE_TYPE_STRING;
  value->str = text;
  return QMIBTREE_RC_OK;
}

/* What the binding of a live parameter names: a file, or a table. */
static const char* source_of(const qmibtree_node* node);

static uint32_t get_uptime(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                           uint32_t flags) {
  (void)inst, (void)flags;
  char word[32];
  read_word(source_of(node), word, sizeof word);
  return give_number(value, (uint32_t)qstring2dec(word));
}

/* The counters that the library reads. */
#define TRAFFIC(counter)                                                    \
  static uint32_t get_##counter(qmibtree_inst_t* inst, qmibtree_node* node, \
                                qmibtree_value_t* value, uint32_t flags) {  \
    (void)inst, (void)node, (void)flags;                                    \
    return give_number(value, ifs_get_stats_##counter(port()));             \
  }
TRAFFIC(txbytes)
TRAFFIC(rxbytes)
TRAFFIC(txpkts)
TRAFFIC(rxpkts)

/* The others. */
static uint32_t get_counter(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                            uint32_t flags) {
  (void)inst, (void)flags;
  char path[96], word[32];
  snprintf(path, sizeof path, "/sys/class/net/%s/statistics/%s", port(), source_of(node));
  read_word(path, word, sizeof word);
  return give_number(value, (uint32_t)strtoull(word, NULL, 10)); /* counters wrap at 2^32 */
}

/* Texts are ours for good: nobody frees what a read hook hands over. */
static uint32_t get_mac(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                        uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  static char address[18]; /* stays as it is where the kernel cannot tell */
  ifs_get_hwaddr(port(), address);
  return give_text(value, address);
}

static uint32_t get_status(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                           uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  static char status[10];
  ifs_get_status(port(), status);
  return give_text(value, status);
}

static uint32_t get_clock(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                          uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  value->type = QMIBTREE_TYPE_DATETIME;
  value->t = (int32_t)time(NULL);
  return QMIBTREE_RC_OK;
}

/* The number of instances of a table that stands beside the parameter. While the tree is being
 * built the table may not be there yet: then it has none. */
static uint32_t get_entries(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                            uint32_t flags) {
  (void)flags;
  const qmibtree_node* table =
      qmibtree_find_node_by_name_v2(inst, node->parent->fullName, source_of(node));
  return give_number(value, table ? table->childnum : 0);
}

/* By parameter name: a name means the same wherever it stands. The index of its binding goes
 * with a record as the host's word `arg`, and from there into every node. */
static const struct {
  const char* name;
  qmibtree_get_fn_t get;
  const char* source;
} bindings[] = {
    {"UpTime", get_uptime, "/proc/uptime"},
    {"CurrentLocalTime", get_clock, NULL},
    {"MACAddress", get_mac, NULL},
    {"BSSID", get_mac, NULL},
    {"Status", get_status, NULL},

    {"BytesSent", get_txbytes, NULL},
    {"BytesReceived", get_rxbytes, NULL},
    {"PacketsSent", get_txpkts, NULL},
    {"PacketsReceived", get_rxpkts, NULL},
    {"ErrorsSent", get_counter, "tx_errors"},
    {"ErrorsReceived", get_counter, "rx_errors"},
    {"DiscardPacketsSent", get_counter, "tx_dropped"},
    {"DiscardPacketsReceived", get_counter, "rx_dropped"},
    {"MulticastPacketsReceived", get_counter, "multicast"},
    {"TotalBytesSent", get_txbytes, NULL},
    {"TotalBytesReceived", get_rxbytes, NULL},
    {"TotalPacketsSent", get_txpkts, NULL},
    {"TotalPacketsReceived", get_rxpkts, NULL},
    {"EthernetBytesSent", get_txbytes, NULL},
    {"EthernetBytesReceived", get_rxbytes, NULL},
    {"EthernetPacketsSent", get_txpkts, NULL},
    {"EthernetPacketsReceived", get_rxpkts, NULL},
    {"EthernetErrorsSent", get_counter, "tx_errors"},
    {"EthernetErrorsReceived", get_counter, "rx_errors"},
    {"EthernetDiscardPacketsSent", get_counter, "tx_dropped"},
    {"EthernetDiscardPacketsReceived", get_counter, "rx_dropped"},
    {"EthernetMulticastPacketsReceived", get_counter, "multicast"},

    {"LANDeviceNumberOfEntries", get_entries, "LANDevice."},
    {"WANDeviceNumberOfEntries", get_entries, "WANDevice."},
    {"VendorConfigFileNumberOfEntries", get_entries, "VendorConfigFile."},
    {"ForwardNumberOfEntries", get_entries, "Forwarding."},
    {"LANEthernetInterfaceNumberOfEntries", get_entries, "LANEthernetInterfaceConfig."},
    {"LANWLANConfigurationNumberOfEntries", get_entries, "WLANConfiguration."},
    {"IPInterfaceNumberOfEntries", get_entries, "IPInterface."},
    {"DHCPStaticAddressNumberOfEntries", get_entries, "DHCPStaticAddress."},
    {"HostNumberOfEntries", get_entries, "Host."},
    {"TotalAssociations", get_entries, "AssociatedDevice."},
    {"WANConnectionNumberOfEntries", get_entries, "WANConnectionDevice."},
    {"WANIPConnectionNumberOfEntries", get_entries, "WANIPConnection."},
    {"WANPPPConnectionNumberOfEntries", get_entries, "WANPPPConnection."},
    {"PortMappingNumberOfEntries", get_entries, "PortMapping."},
};

static const char* source_of(const qmibtree_node* node) { return bindings[node->arg].source; }

static void bind_record(qmibtree_uidinfo_t* record) {
  for (uint32_t i = 0; i < COUNT(bindings); ++i) {
    if (strcmp(record->name, bindings[i].name) != 0) continue;
    record->arg = i;
    record->get_fn = bindings[i].get;
    return;
  }
  fatal("no read hook for the live parameter %s", record->name);
}

void hooks_bind(qmibtree_schema_t* schema) {
  for (uint32_t uid = 0; uid < schema->uidinfo_num; ++uid)
    if (schema->uidinfo[uid].flags & QMIBTREE_UID_DYNAMIC) bind_record(&schema->uidinfo[uid]);
}

/* --- writing --- */

/* Documents are written without escapes: markup in a value would make the whole document
 * unreadable, and a line end in it would cut the value. */
static int storable(const char* text) {
  for (; *text; ++text)
    if (*text < ' ' || *text > '~' || strchr("<>&", *text)) return 0;
  return 1;
}

/* The text of a value that a save and a load would bring back as it is, else null. A write may
 * come with a value of any type, and an empty text would come back as the default. */
static const char* stored_text(const qmibtree_node* node, const qmibtree_value_t* value) {
  if (value->type != QMIBTREE_TYPE_STRING || !value->str) return NULL;
  const char* usual = node->default_value.str;
  if (!*value->str && usual && *usual) return NULL;
  return storable(value->str) ? value->str : NULL;
}

static uint32_t verdict(const qmibtree_node* node, int good) {
  if (good) return QMIBTREE_RC_OK;
  QDBG_WARN(QDBG_FEAT_MIB, "refused a value of %s", short_name(node->fullName));
  return QMIBTREE_RC_INVALID_VALUE;
}

static uint32_t set_text(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  return verdict(node, stored_text(node, value) != NULL);
}

/* 1 when `word` is one of `words`, which have "|" between them. */
static int listed(const char* words, const char* word) {
  const size_t length = strlen(word);
  for (const char* at = words; *at; at += *at == '|') {
    const size_t next = strcspn(at, "|");
    if (next == length && memcmp(at, word, length) == 0) return 1;
    at += next;
  }
  return 0;
}

static uint32_t set_word(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && listed(node->uidinfo->ext_fn[MODEL_WORDS], text));
}

/* An IPv4 address as a number in host order. 1 when `text` is one. */
static int parse_ipv4(const char* text, uint32_t* address) {
  struct in_addr parsed;
  if (inet_pton(AF_INET, text, &parsed) != 1) return 0;
  *address = ntohl(parsed.s_addr);
  return 1;
}

/* 1 for an address that a host can have: not of "this network", loopback, multicast or above. */
static int is_host_address(const char* text) {
  uint32_t address;
  if (!parse_ipv4(text, &address)) return 0;
  const uint32_t first = address >> 24;
  return first != 0 && first != 127 && first < 224;
}

/* 1 for ones followed by zeros. */
static int is_netmask(const char* text) {
  uint32_t mask;
  return parse_ipv4(text, &mask) && (~mask & (~mask + 1)) == 0;
}

static uint32_t set_address(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && (!*text || is_host_address(text)));
}

static uint32_t set_netmask(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && (!*text || is_netmask(text)));
}

/* 1 for six bytes with colons between, the address of one station. The parser takes any text for
 * an address, so what it made of this one must read the same. */
static int is_station(const char* text) {
  if (strlen(text) != 17) return 0;
  uint8_t mac[6];
  qstrmac2digit(text, mac);
  char again[18];
  snprintf(again, sizeof again, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
           mac[4], mac[5]);
  const int is_group = mac[0] & 1;
  return strcasecmp(text, again) == 0 && !is_group;
}

static uint32_t set_mac(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && (!*text || is_station(text)));
}

static const struct {
  const char* name;
  qmibtree_set_fn_t set;
} checks[] = {
    {"MinAddress", set_address},
    {"MaxAddress", set_address},
    {"IPInterfaceIPAddress", set_address},
    {"Yiaddr", set_address},
    {"GatewayIPAddress", set_address},
    {"ExternalIPAddress", set_address},
    {"DefaultGateway", set_address},
    {"SubnetMask", set_netmask},
    {"DestSubnetMask", set_netmask},
    {"SourceSubnetMask", set_netmask},
    {"IPInterfaceSubnetMask", set_netmask},
    {"Chaddr", set_mac},
    {"MACAddress", set_mac},
    {"PassthroughMACAddress", set_mac},
    {"AssociatedDeviceMACAddress", set_mac},
};

static qmibtree_set_fn_t check_for(const qmibtree_uidinfo_t* record) {
  if (record->type != QMIBTREE_TYPE_STRING || record->flags & QMIBTREE_UID_DYNAMIC) return NULL;
  for (size_t i = 0; i < COUNT(checks); ++i)
    if (strcmp(record->name, checks[i].name) == 0) return checks[i].set;
  return record->ext_fn[MODEL_WORDS] ? set_word : set_text;
}

/* --- instances and changes --- */

/* A write marks the component it concerns; an instance that comes or goes does not, so the
 * gateway marks it here. */
static uint32_t mark_owner(qmibtree_inst_t* inst, qmibtree_node* node) {
  (void)inst;
  qmibtree_comp_mark(node->uidinfo->comp, QMIBTREE_COMP_MARK_CHANGED);
  return QMIBTREE_RC_OK;
}

void hooks_register(qmibtree_inst_t* inst) {
  for (int32_t uid = 0; uid < (int32_t)inst->uidinfo_num; ++uid) {
    const qmibtree_uidinfo_t* record = find_uidinfo_from_uid(inst, uid);
    qmibtree_uidinfo_t hooks = {.flags = record->flags}; /* flags are replaced, always */
    hooks.set_fn = check_for(record);
    if (record->flags & QMIBTREE_UID_MULTI) hooks.create_fn = hooks.destroy_fn = mark_owner;
    qmibtree_reg_uidinfo(inst, uid, &hooks);
  }
}

static uint32_t changes;

uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                   qmibtree_value_t* value) {
  (void)inst, (void)value;
  ++changes;
  QDBG_INFO(QDBG_FEAT_MIB, "changed %s", short_name(node->fullName));
  return QMIBTREE_RC_OK;
}

uint32_t hooks_changes(void) {
  const uint32_t count = changes;
  changes = 0;
  return count;
}
