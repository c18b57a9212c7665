/* A host of whatever model "any_schema.h" has: builds its tree, adds an instance to every table,
 * saves, and loads what it saved into a second tree. */
#include <qmibtree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "any_schema.h"

uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                   qmibtree_value_t* value) {
  (void)inst, (void)node, (void)value;
  return QMIBTREE_RC_OK;
}

static int is_table(const qmibtree_node* node) {
  return node->uidinfo->flags & QMIBTREE_UID_MULTI && !(node->flags & QMIBTREE_NODE_INSTANCE);
}

/* Adds one instance to each table at or below a node; how many. */
static uint32_t fill(qmibtree_inst_t* inst, qmibtree_node* node) {
  uint32_t added = 0, number = 0;
  if (is_table(node) && !node->childnum)
    added += qmibtree_add_object_by_node(inst, node, &number, 0, 255) == QMIBTREE_RC_OK;
  for (qmibtree_node* child = node->first_child; child; child = child->next)
    added += fill(inst, child);
  return added;
}

static uint32_t count(qmibtree_inst_t* inst) {
  uint32_t nodes = 0;
  qmibtree_dump(inst, NULL, NULL, 255, qmibtree_dump_calc_node_num, &nodes);
  return nodes;
}

static char* document(qmibtree_inst_t* inst, uint32_t* size) {
  qmibtree_buff_t buff = {0};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, NULL, &buff, 0))) return NULL;
  *size = buff.size;
  char* text = calloc(1, buff.size + 1);
  if (!text) return NULL;
  qmibtree_buff_t writer = {text, text, buff.size + 1, buff.size + 1};
  qmibtree_xml_dump_config(inst, NULL, &writer, 0);
  return text;
}

int main(void) {
  qmibtree_inst_t* first = qmibtree_init(any_schema());
  if (!first) return fprintf(stderr, "the first tree was not built\n"), 1;
  const uint32_t tables = fill(first, first->root);
  uint32_t size = 0, again = 0;
  char* text = document(first, &size);
  const uint32_t nodes = count(first);
  qmibtree_inst_t* second = qmibtree_init(any_schema());
  if (!text || !second) return fprintf(stderr, "no document, or no second tree\n"), 1;
  qmibtree_buff_t buff = {text, text, size + 1, size + 1};
  const uint32_t rc = qmibtree_xml_load(second, &buff, 0);
  char* same = document(second, &again);
  printf("%u records, %u tables, %u nodes, %u bytes\n", (unsigned)ANY_UIDS, (unsigned)tables,
         (unsigned)nodes, (unsigned)size);
  const int good =
      rc == QMIBTREE_RC_OK && same && strcmp(text, same) == 0 && count(second) == nodes;
  free(text);
  free(same);
  qmibtree_destroy(first);
  qmibtree_destroy(second);
  return good ? 0 : (fprintf(stderr, "the saved document does not come back\n"), 1);
}
