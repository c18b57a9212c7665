/* The smallest useful host: a two-parameter model, a change callback, two writes, a read. */
#include <qmibtree.h>
#include <stdio.h>

/* clang-format off */
static QMIBTREE_SCHEMA_BLOCK(3) schema = {1, 3, {
  {.uid = 0, .next_uid = -1, .child_uid = 1, .name = "Gateway.", .type = QMIBTREE_TYPE_OBJECT},
  {.uid = 1, .next_uid = 2, .child_uid = -1, .name = "Name", .type = QMIBTREE_TYPE_STRING,
   .flags = QMIBTREE_UID_SAVE, .defval = "unnamed", .max_len = 16, .comp = 32},
  {.uid = 2, .next_uid = -1, .child_uid = -1, .name = "Level", .type = QMIBTREE_TYPE_INT,
   .defval = "0", .int_min = -10, .int_max = 10, .comp = 32}}};
/* clang-format on */

uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                   qmibtree_value_t* value) {
  (void)inst, (void)value;
  return printf("changed: %s\n", node->fullName), QMIBTREE_RC_OK;
}

int main(void) {
  qmibtree_value_t value = {0};
  qmibtree_inst_t* inst = qmibtree_init(QMIBTREE_SCHEMA(&schema));
  if (!inst) return 1;
  qmibtree_write_strvalue(inst, "Gateway.Name", "home", QMIBTREE_WRITE_APPLY);
  uint32_t rc = qmibtree_write_strvalue(inst, "Gateway.Level", "11", QMIBTREE_WRITE_APPLY);
  printf("Gateway.Level=11: %s\n", qmibtree_rc_string(rc));
  rc = qmibtree_read(inst, "Gateway.Name", &value, 0);
  if (!QMIBTREE_FAILED(rc)) printf("Gateway.Name=%s\n", value.str);
  return (int)qmibtree_destroy(inst);
}
