/* The hooks: values that come from the system, values that are refused, instances that come and
 * go, and the change callback that every host supplies. Which parameters they are for is said in
 * gateway.toml; the generated header declares those that are named there.
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

uint32_t get_uptime(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                    uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  char word[32];
  read_word("/proc/uptime", word, sizeof word);
  return give_number(value, (uint32_t)qstring2dec(word));
}

/* A read hook whose answer is one expression. */
#define READ_HOOK(name, answer)                                                      \
  uint32_t name(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, \
                uint32_t flags) {                                                    \
    (void)inst, (void)node, (void)flags;                                             \
    return answer;                                                                   \
  }

/* The counters that the library reads. */
READ_HOOK(get_txbytes, give_number(value, ifs_get_stats_txbytes(port())))
READ_HOOK(get_rxbytes, give_number(value, ifs_get_stats_rxbytes(port())))
READ_HOOK(get_txpkts, give_number(value, ifs_get_stats_txpkts(port())))
READ_HOOK(get_rxpkts, give_number(value, ifs_get_stats_rxpkts(port())))

/* The others. */
static uint32_t give_counter(qmibtree_value_t* value, const char* counter) {
  char path[96], word[32];
  snprintf(path, sizeof path, "/sys/class/net/%s/statistics/%s", port(), counter);
  read_word(path, word, sizeof word);
  return give_number(value, (uint32_t)strtoull(word, NULL, 10)); /* counters wrap at 2^32 */
}

READ_HOOK(get_tx_errors, give_counter(value, "tx_errors"))
READ_HOOK(get_rx_errors, give_counter(value, "rx_errors"))
READ_HOOK(get_tx_dropped, give_counter(value, "tx_dropped"))
READ_HOOK(get_rx_dropped, give_counter(value, "rx_dropped"))
READ_HOOK(get_multicast, give_counter(value, "multicast"))

/* Texts are ours for good: nobody frees what a read hook hands over. */
uint32_t get_mac(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                 uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  static char address[18]; /* stays as it is where the kernel cannot tell */
  ifs_get_hwaddr(port(), address);
  return give_text(value, address);
}

uint32_t get_status(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                    uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  static char status[10];
  ifs_get_status(port(), status);
  return give_text(value, status);
}

uint32_t get_clock(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                   uint32_t flags) {
  (void)inst, (void)node, (void)flags;
  value->type = QMIBTREE_TYPE_DATETIME;
  value->t = (int32_t)time(NULL);
  return QMIBTREE_RC_OK;
}

/* The number of instances of a table that stands beside the parameter. While the tree is being
 * built the table may not be there yet: then it has none. */
static uint32_t give_entries(qmibtree_inst_t* inst, const qmibtree_node* node,
                             qmibtree_value_t* value, const char* name) {
  const qmibtree_node* table = qmibtree_find_node_by_name_v2(inst, node->parent->fullName, name);
  return give_number(value, table ? table->childnum : 0);
}

READ_HOOK(count_LANDevice, give_entries(inst, node, value, "LANDevice."))
READ_HOOK(count_WANDevice, give_entries(inst, node, value, "WANDevice."))
READ_HOOK(count_VendorConfigFile, give_entries(inst, node, value, "VendorConfigFile."))
READ_HOOK(count_Forwarding, give_entries(inst, node, value, "Forwarding."))
READ_HOOK(count_LANEthernetInterfaceConfig,
          give_entries(inst, node, value, "LANEthernetInterfaceConfig."))
READ_HOOK(count_WLANConfiguration, give_entries(inst, node, value, "WLANConfiguration."))
READ_HOOK(count_IPInterface, give_entries(inst, node, value, "IPInterface."))
READ_HOOK(count_DHCPStaticAddress, give_entries(inst, node, value, "DHCPStaticAddress."))
READ_HOOK(count_Host, give_entries(inst, node, value, "Host."))
READ_HOOK(count_AssociatedDevice, give_entries(inst, node, value, "AssociatedDevice."))
READ_HOOK(count_WANConnectionDevice, give_entries(inst, node, value, "WANConnectionDevice."))
READ_HOOK(count_WANIPConnection, give_entries(inst, node, value, "WANIPConnection."))
READ_HOOK(count_WANPPPConnection, give_entries(inst, node, value, "WANPPPConnection."))
READ_HOOK(count_PortMapping, give_entries(inst, node, value, "PortMapping."))

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

/* 1 when `word` is one of `words`, which have "|" between them. */
static int listed(const char* words, const char* word) {
  const size_t length = strlen(word);
  for (;; ++words) {
    const size_t next = strcspn(words, "|");
    if (next == length && memcmp(words, word, length) == 0) return 1;
    words += next;
    if (!*words) return 0;
  }
}

/* The check of texts that have no other. */
uint32_t set_text(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  const char* words = node->uidinfo->ext_fn[GATEWAY_WORDS];
  return verdict(node, text && (!words || listed(words, text)));
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

uint32_t set_address(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && (!*text || is_host_address(text)));
}

uint32_t set_netmask(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
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

uint32_t set_mac(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst;
  const char* text = stored_text(node, value);
  return verdict(node, text && (!*text || is_station(text)));
}

/* --- instances and changes --- */

/* A write marks the component it concerns; an instance that comes or goes does not, so the
 * gateway marks it here. */
uint32_t mark_owner(qmibtree_inst_t* inst, qmibtree_node* node) {
  (void)inst;
  qmibtree_comp_mark(node->uidinfo->comp, QMIBTREE_COMP_MARK_CHANGED);
  return QMIBTREE_RC_OK;
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
