/* The example gateway: a home gateway's data model, its hooks and its configuration, lived
 * through from the first boot to the reset to factory settings.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "gateway.h"

static const char usage[] =
    "usage: gateway [--list | --on-device | --help]\n"
    "\n"
    "Lives through a gateway's life with its configuration in flash: first boot, provisioning,\n"
    "save, reboots with good and with damaged partitions, upgrade, download, reset. Prints a\n"
    "transcript and checks every step. Exit status: 0 when every check held, 1 when one failed,\n"
    "2 when it could not run.\n"
    "\n"
    "Run it under the flash stand-in, with the factory settings in its folder:\n"
    "  mkdir -p flash && cp default-conf.xml flash/\n"
    "  flashsim --dir flash -- gateway\n"
    "\n"
    "  --list       print the model with its default values, each table with\n"
    "               one instance; needs no flash\n"
    "  --on-device  run without the stand-in: ERASES /dev/nvram and /dev/nvrambak\n"
    "  --daemon NAME PIDFILE LINE\n"
    "               be one of its own daemons; the gateway starts them so\n";

/* Tables start empty: give each an instance, outer ones first, to see what is in them. */
static void fill_tables(qmibtree_inst_t* inst) {
  for (uint32_t uid = 0; uid < inst->uidinfo_num; ++uid) {
    uint32_t number = 0;
    if (inst->uidinfo[uid].flags & QMIBTREE_UID_MULTI)
      qmibtree_add_object_by_node(inst, qmibtree_hash_lookup_uid(inst->uid_hash, uid), &number, 0,
                                  255);
  }
}

static int list_model(void) {
  qmibtree_inst_t* inst = qmibtree_init(gateway_schema());
  if (!inst || !inst->uid_hash) fatal("out of memory");
  fill_tables(inst);
  qmibtree_buff_t count = {0};
  qmibtree_dump(inst, NULL, &count, 255, qmibtree_dump_dbg, NULL);
  const uint32_t size = count.size + 1024; /* live values may have grown by the second pass */
  char* text = qmalloc(size, "gateway list");
  if (!text) fatal("out of memory");
  qmibtree_buff_t buff = {text, text, size, size};
  qmibtree_dump(inst, NULL, &buff, 255, qmibtree_dump_dbg, NULL);
  puts(text);
  qfree(text);
  return (int)qmibtree_destroy(inst);
}

static void require_readable(const char* path) {
  FILE* file = fopen(path, "r");
  if (!file) fatal("cannot open %s: %s", path, strerror(errno));
  fclose(file);
}

static int live_in_own_folder(void) {
  char folder[] = "/tmp/gateway-XXXXXX";
  if (!mkdtemp(folder)) fatal("cannot make %s: %s", folder, strerror(errno));
  use_folder(folder);
  const int status = live();
  rmdir(folder);
  return status;
}

/* A threshold for each feature; on a device everything goes to the system log as well. */
static void start_log(int on_device) {
  qdbg_init(QDBG_FEAT_MAIN, "gateway", QDBG_LVL_NOTICE, QDBG_FEAT_SYS, "system", QDBG_LVL_NOTICE,
            QDBG_FEAT_MIB, "tree", QDBG_LVL_NOTICE, LOG_DAEMONS, "daemons", QDBG_LVL_INFO,
            QDBG_FEAT_MAX);
  qdbg_global_infop->syslog = (uint32_t)on_device;
}

int main(int argc, char** argv) {
  /* In step with the commands that the library runs, and with nothing for a child to repeat. */
  setvbuf(stdout, NULL, _IONBF, 0);
  signal(SIGCHLD, SIG_DFL); /* whoever started us may have it ignored: no child could be reaped */
  const char* option = argc > 1 ? argv[1] : "";
  if (strcmp(option, "--help") == 0) return fputs(usage, stdout) == EOF;
  if (strcmp(option, "--list") == 0) return list_model();
  if (argc == 5 && strcmp(option, "--daemon") == 0) return daemon_run(argv[3], argv[4]);
  const int on_device = strcmp(option, "--on-device") == 0;
  if (argc > 2 || (*option && !on_device)) {
    fprintf(stderr, "gateway: unknown option %s\n%s", argv[argc - 1], usage);
    return 2;
  }
  if (!on_device && !getenv("FLASHSIM_DIR"))
    fatal("not under flashsim; on a real device this would erase its flash (see --help)");
  require_readable(MAIN_DEVICE);
  require_readable(BACKUP_DEVICE);
  require_readable(DEFAULT_FILE);
  /* A name without a slash was searched in PATH: the kernel knows what was found. */
  daemons_from(strchr(argv[0], '/') ? argv[0] : "/proc/self/exe");
  start_log(on_device);
  return live_in_own_folder();
}
