/* A plug-in for qemu's user mode: prints how many instructions the program ran, on standard error.
 * Debian has no header for plug-ins; this is what is used of version 1 of their interface. */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t plugin_id;
struct qemu_plugin_tb; /* instructions that qemu translates, and then runs, as one block */

void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id id,
                                           void (*translated)(plugin_id, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation,
                                              void* counter, uint64_t amount);
void qemu_plugin_register_atexit_cb(plugin_id id, void (*at_exit)(plugin_id, void*), void* arg);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

enum { ADD_U64 = 0 };

static uint64_t count;

static void count_block(plugin_id id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(block, ADD_U64, &count, qemu_plugin_tb_n_insns(block));
}

static void print_count(plugin_id id, void* arg) {
  (void)id, (void)arg;
  fprintf(stderr, "%" PRIu64 "\n", count);
}

#define EXPORTED __attribute__((visibility("default")))
EXPORTED extern int qemu_plugin_version;
EXPORTED int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv);

int qemu_plugin_version = 1;

int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv) {
  (void)info, (void)argc, (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, count_block);
  qemu_plugin_register_atexit_cb(id, print_count, NULL);
  return 0;
}
