/* The heap that the example gateway's model takes with its factory settings loaded: blocks, and the
 * bytes that the C library's allocator spends on them.
 * Usage: heap DOCUMENT */
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>

#include "gateway.h"

static unsigned long blocks, spent;

void* __real_qmalloc(size_t size, const char* tag);
void* __wrap_qmalloc(size_t size, const char* tag);
void __real_qfree(void* block);
void __wrap_qfree(void* block);

/* A block's usable size is what follows the allocator's own word. */
static void count(void* block, long sign) {
  if (!block) return;
  blocks += (unsigned long)sign;
  spent += (unsigned long)(sign * (long)(malloc_usable_size(block) + sizeof(size_t)));
}

void* __wrap_qmalloc(size_t size, const char* tag) {
  void* block = __real_qmalloc(size, tag);
  count(block, 1);
  return block;
}

void __wrap_qfree(void* block) {
  count(block, -1);
  __real_qfree(block);
}

static uint32_t count_params(qmibtree_inst_t* inst, qmibtree_node* node, void* ctx, int32_t level,
                             void* arg, uint32_t phase) {
  (void)inst, (void)ctx, (void)level;
  if (phase == QMIBTREE_PHASE_ENTER && (node->flags & QMIBTREE_NODE_PARAM)) ++*(uint32_t*)arg;
  return QMIBTREE_RC_OK;
}

/* What a tree takes whatever its model: the instance, the indexes and the queue. */
static unsigned long fixed_part(void) {
  qmibtree_hash_t* names = qmibtree_hash_create(0, 5000);
  qmibtree_hash_t* ids = qmibtree_hash_create(1, 2000);
  qmibtree_notif_t* queue = qmibtree_notif_create();
  void* inst = qmalloc(sizeof(qmibtree_inst_t), "instance");
  const unsigned long fixed = spent;
  qfree(inst);
  qmibtree_notif_destroy(queue);
  qmibtree_hash_destroy(ids);
  qmibtree_hash_destroy(names);
  return fixed;
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const unsigned long fixed = fixed_part();
  qmibtree_inst_t* inst = qmibtree_init(gateway_schema());
  if (!inst) return 1;
  if (qmibtree_xml_load_from_file(inst, argv[1], 0, 0, 0) != QMIBTREE_RC_OK) return 1;
  uint32_t params = 0;
  uint32_t nodes = 0;
  qmibtree_dump(inst, NULL, NULL, 255, count_params, &params);
  qmibtree_dump(inst, NULL, NULL, 255, qmibtree_dump_calc_node_num, &nodes);
  printf("%u %u %lu %lu %lu %lu\n", params, nodes, blocks, spent, fixed, (spent - fixed) / params);
  qmibtree_destroy(inst);
  return 0;
}
