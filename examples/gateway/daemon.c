/* Daemons: small processes that the gateway starts, kills and starts again.
 *
 * Real ones would serve the LAN, the radio, the uplink; these write their pid file and wait. Each
 * has a line to the gateway, one end of a socket pair: the daemon writes a byte to it when it is
 * ready, and finds it closed when the gateway is gone, however the gateway ended. So nobody waits
 * for a daemon that did not start, and none is left behind.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gateway.h"

#define LONGEST_LIFE 600 /* seconds; after that a daemon ends even if its gateway hangs */

/* --- the gateway's side --- */

static const char* program;
static uint32_t faults;

void daemons_from(const char* path) { program = path; }

uint32_t daemon_faults(void) { return faults; }

static void note_fault(const struct daemon* daemon, const char* what) {
  ++faults;
  QDBG_ERR(LOG_DAEMONS, "%s %s", daemon->name, what);
}

/* How the process ended. Its own end of the line is closed first: if it was not killed, that ends
 * it. */
static int end_of(struct daemon* daemon) {
  int status = 0;
  close(daemon->line);
  waitpid(daemon->pid, &status, 0);
  daemon->pid = 0;
  return status;
}

static int is_ready(const struct daemon* daemon) {
  char byte;
  return read(daemon->line, &byte, 1) == 1;
}

void daemon_start(struct daemon* daemon) {
  int line[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, line)) fatal("cannot make a line: %s", strerror(errno));
  fcntl(line[0], F_SETFD, FD_CLOEXEC); /* a daemon that held this end would never find it closed */
  char number[16];
  snprintf(number, sizeof number, "%d", line[1]);
  daemon->line = line[0];
  daemon->pid = qmibtree_comp_fork_and_execl(daemon->comp, program, "--daemon", daemon->name,
                                             path_of(daemon->pid_file), number, (char*)NULL);
  close(line[1]);
  if (daemon->pid < 0) fatal("cannot fork: %s", strerror(errno));
  if (is_ready(daemon)) {
    QDBG_INFO(LOG_DAEMONS, "%s started, pid %d", daemon->name, (int)daemon->pid);
    return;
  }
  note_fault(daemon, "did not start");
  end_of(daemon);
}

void daemon_stop(struct daemon* daemon) {
  if (!daemon->pid) return; /* it did not start */
  const int pid = daemon->pid;
  qmibtree_comp_kill_pidfile(daemon->comp, path_of(daemon->pid_file));
  const int status = end_of(daemon);
  unlink(path_of(daemon->pid_file));
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
    QDBG_INFO(LOG_DAEMONS, "%s killed, was pid %d", daemon->name, pid);
  else
    note_fault(daemon, "was not killed by its pid file");
}

int32_t daemon_pid(const struct daemon* daemon) {
  char word[16];
  read_word(path_of(daemon->pid_file), word, sizeof word);
  return qstring2dec(word);
}

/* --- the daemon's side --- */

static void write_pid_file(const char* path) {
  FILE* file = open_or_end(path, "w");
  fprintf(file, "%d\n", (int)getpid());
  close_or_end(file, path);
}

int daemon_run(const char* pid_file, const char* line_number) {
  const int line = qstring2dec(line_number);
  char byte = 0;
  alarm(LONGEST_LIFE);
  write_pid_file(pid_file);
  if (write(line, &byte, 1) != 1) fatal("line %s: %s", line_number, strerror(errno));
  while (read(line, &byte, 1) > 0) continue;
  unlink(pid_file);
  return 0;
}
