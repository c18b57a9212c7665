#include "host.h"

#include <stdio.h>
#include <string.h>

static int unsaved; /* changes since the last save */

/* The lamp has two colors. */
static uint32_t set_color(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  const int known = value->str && (!strcmp(value->str, "red") || !strcmp(value->str, "green"));
  (void)inst, (void)node;
  return known ? QMIBTREE_RC_OK : QMIBTREE_RC_INVALID_VALUE;
}

static uint32_t get_uptime(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                           uint32_t flags) {
  double seconds = 0;
  FILE* file = fopen("/proc/uptime", "r");
  if (file && fscanf(file, "%lf", &seconds) != 1) seconds = 0;
  if (file) fclose(file);
  value->type = QMIBTREE_TYPE_UINT;
  value->u = (uint32_t)seconds;
  (void)inst, (void)node, (void)flags;
  return QMIBTREE_RC_OK;
}

/* clang-format off */
static QMIBTREE_SCHEMA_BLOCK(LAMP_RECORDS) schema = {1, LAMP_RECORDS, {
  {.uid = LAMP_ROOT, .next_uid = -1, .child_uid = LAMP_COLOR, .name = "Lamp.",
   .type = QMIBTREE_TYPE_OBJECT},
  {.uid = LAMP_COLOR, .next_uid = LAMP_UPTIME, .child_uid = -1, .name = "Color",
   .type = QMIBTREE_TYPE_STRING, .flags = QMIBTREE_UID_SAVE, .defval = "green", .comp = 0,
   .set_fn = set_color},
  {.uid = LAMP_UPTIME, .next_uid = LAMP_PORT, .child_uid = -1, .name = "UpTime",
   .type = QMIBTREE_TYPE_UINT, .flags = QMIBTREE_UID_DYNAMIC | QMIBTREE_UID_READONLY,
   .uint_max = UINT32_MAX, .comp = 32, .get_fn = get_uptime},
  {.uid = LAMP_PORT, .next_uid = -1, .child_uid = LAMP_PORT_ENABLE, .name = "Port.",
   .type = QMIBTREE_TYPE_OBJECT, .flags = QMIBTREE_UID_MULTI},
  {.uid = LAMP_PORT_ENABLE, .next_uid = -1, .child_uid = -1, .name = "Enable",
   .type = QMIBTREE_TYPE_BOOL, .flags = QMIBTREE_UID_SAVE, .defval = "false", .comp = 32}}};
/* clang-format on */

qmibtree_schema_t* host_schema(void) { return QMIBTREE_SCHEMA(&schema); }

uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                   qmibtree_value_t* value) {
  (void)inst, (void)node, (void)value;
  unsaved = 1;
  return QMIBTREE_RC_OK;
}

qmibtree_inst_t* host_start(void) {
  qmibtree_inst_t* inst = qmibtree_init(host_schema());
  if (!inst) return NULL;
  qmibtree_load_config(inst);
  unsaved = 0;
  return inst;
}

void host_stop(qmibtree_inst_t* inst) { qmibtree_destroy(inst); }

int host_set_color(qmibtree_inst_t* inst, const char* color) {
  const uint32_t rc = qmibtree_write_strvalue(inst, "Lamp.Color", color, QMIBTREE_WRITE_APPLY);
  return QMIBTREE_FAILED(rc) ? -1 : 0;
}

int host_save(qmibtree_inst_t* inst) {
  if (!unsaved) return 0;
  if (qmibtree_save_config(inst) != 0) return -1;
  unsaved = 0;
  return 0;
}
