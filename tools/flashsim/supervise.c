#include "supervise.h"

#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults.h"

static int complain(const char* doing) {
  fprintf(stderr, "flashsim: cannot %s: %s\n", doing, strerror(errno));
  return EXIT_NOT_STARTED;
}

/* The file that the programs of the run count in. */
static bool make_counts(char** path) {
  const char* const folder = getenv("TMPDIR");
  if (asprintf(path, "%s/flashsim.XXXXXX", folder ? folder : P_tmpdir) < 0) return false;
  const int fd = mkstemp(*path);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

static const int signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
enum { signal_count = sizeof signals / sizeof signals[0] };

static volatile sig_atomic_t group;

/* The program is not in the group that a terminal or a script ends flashsim with. */
static void pass_on(int signal) { kill(-(pid_t)group, signal); }

static void become(const struct launch* wanted, const sigset_t* mask) {
  char number[16];
  setpgid(0, 0);
  sigprocmask(SIG_SETMASK, mask, NULL);
  snprintf(number, sizeof number, "%d", (int)getpid());
  if (setenv(FLASHSIM_GROUP_VARIABLE, number, 1) != 0) _exit(complain("start"));
  _exit(launch(wanted));
}

/* The exit status that tells how the program ended. */
static int wait_for(pid_t program, const sigset_t* mask) {
  int status = 0;
  setpgid(program, program); /* whichever of the two comes first */
  group = program;
  for (size_t i = 0; i < signal_count; ++i) signal(signals[i], pass_on);
  sigprocmask(SIG_SETMASK, mask, NULL);
  waitpid(program, &status, 0);
  if (faults_power_is_off()) {
    kill(-program, SIGKILL);
    return EXIT_POWER_CUT;
  }
  return WIFSIGNALED(status) ? EXIT_BY_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

/* Keeps what is to be passed on waiting until there is a program to pass it on to. */
static void hold_signals(sigset_t* mask) {
  sigset_t held;
  sigemptyset(&held);
  for (size_t i = 0; i < signal_count; ++i) sigaddset(&held, signals[i]);
  sigprocmask(SIG_BLOCK, &held, mask);
}

int supervise(const struct launch* wanted) {
  sigset_t mask;
  char* counts = NULL;
  hold_signals(&mask);
  if (!make_counts(&counts) || setenv(FLASHSIM_COUNTS_VARIABLE, counts, 1) != 0 ||
      setenv(FLASHSIM_FAULTS_VARIABLE, wanted->faults, 1) != 0)
    return complain("set up the faults");
  const pid_t program = fork();
  if (program == 0) become(wanted, &mask);
  const int result = program < 0 ? complain("start a process") : wait_for(program, &mask);
  unlink(counts);
  free(counts);
  return result;
}
