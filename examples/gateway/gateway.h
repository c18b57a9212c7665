/* The example gateway: what its files share.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#ifndef GATEWAY_H
#define GATEWAY_H

#include <qmibtree.h>
#include <stdio.h>

#include "gateway_schema.h"

/* The features of the log. */
#define LOG_DAEMONS QDBG_FEAT_USER0 /* daemons that are started and killed */

/* --- daemon.c: processes that components start and kill --- */

struct daemon {
  uint32_t comp; /* the component it belongs to */
  const char* name;
  const char* pid_file; /* its name in the gateway's folder */
  int32_t pid;          /* 0 while it does not run */
  int line;             /* the gateway's end of its line */
};

/* The program to run as a daemon: this one, by the path it was started by. */
void daemons_from(const char* path);

/* Returns when the daemon is ready, or has failed. */
void daemon_start(struct daemon* daemon);
/* Kill it by its pid file and reap it. */
void daemon_stop(struct daemon* daemon);

/* The number in its pid file; 0 where there is none. */
int32_t daemon_pid(const struct daemon* daemon);

/* How often a daemon did not start, or did not end by being killed. */
uint32_t daemon_faults(void);

/* Be a daemon: write the pid file, tell on the line, wait for its end. The exit status. */
int daemon_run(const char* pid_file, const char* line_number);

/* --- components.c: the parts of the gateway that parameters take effect in --- */

/* gateway.toml has their names, the generated header their ids and number. */

/* Register the components and the process-wide hooks; once, before the first tree. */
void components_register(void);

/* The names of the components that the last mark action restarted. */
const char* components_restarted(void);

/* The daemon of a component, or null. */
const struct daemon* component_daemon(uint32_t id);

/* The names of the daemons that run, going by their pid files. */
const char* components_running(void);

/* How often the firewall was loaded since it was last stopped. */
uint32_t firewall_loads(void);

/* --- hooks.c: where the parameters meet the system --- */

/* Those that gateway.toml names are declared in gateway_schema.h. */

/* Changes since the last call. */
uint32_t hooks_changes(void);

/* --- transcript.c: what the program prints, and what it checks --- */

void heading(const char* text);
/* A name without its first segment, which is the same for all. */
const char* short_name(const char* name);

#define NAMES_SIZE 64 /* of a list of names; holds those of all components */
/* Add a name to a list of names with blanks between. */
void add_name(char* names, const char* name);

/* End the program at once: the gateway cannot run. */
void fatal(const char* format, ...) QMIBTREE_PRINTF(1, 2);

/* Each check prints one line; a failed one names what was expected and what was found. */
void check_number(const char* what, uint32_t expected, uint32_t found);
void check_rc(const char* what, uint32_t expected, uint32_t found);
void check_text(const char* what, const char* expected, const char* found);
/* For long texts: tells lengths and the first line that differs. */
void check_document(const char* what, const char* expected, const char* found);
/* A parameter's value, read through the tree and rendered as text. */
void check_value(qmibtree_inst_t* inst, const char* name, const char* expected);

/* Print the totals. 0 when no check failed, else 1. */
int transcript_end(void);

/* --- store.c: documents, flash and files --- */

/* Name the folder for the gateway's own files, once; a path in it, good until the next call. */
void use_folder(const char* folder);
const char* path_of(const char* name);

/* Open and close, or end the program. */
FILE* open_or_end(const char* path, const char* mode);
void close_or_end(FILE* file, const char* path);

/* The first word of a file, "" where there is none. */
void read_word(const char* path, char* word, int size);

#define MAIN_DEVICE "/dev/nvram"
#define BACKUP_DEVICE "/dev/nvrambak"
#define DEFAULT_FILE "/etc/igd/default-conf.xml"
#define TRACE_FILE "/tmp/tobixopen"
#define HEADER_SIZE 8 /* of a partition: magic and length, before the text */

/* The configuration document of the whole tree, as a save writes it; freed with qfree. */
char* document_of(qmibtree_inst_t* inst);

/* `length` bytes at `offset` of a file or device (0: to its end), as text; freed with qfree. */
char* text_of_file(const char* path, int32_t offset, uint32_t length);

/* Overwrite a few bytes of a device, as a worn block or a torn write would. */
void damage(const char* device, long offset);

/* Write an upgrade file that carries `text`; the last of its four end bytes is `end`: 0 in a
 * good file. */
void write_upgrade_file(const char* path, const char* text, unsigned char end);

/* --- life.c: the script --- */

/* Live through all steps; 0 when every check held. */
int live(void);

#endif
