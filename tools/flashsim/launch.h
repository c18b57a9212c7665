/* Starting a program with the flash in front of it. */
#ifndef FLASHSIM_LAUNCH_H
#define FLASHSIM_LAUNCH_H

#ifdef __cplusplus
extern "C" {
#endif

enum { EXIT_USAGE = 2, EXIT_NOT_STARTED = 127 };

struct launch {
  const char* dir;     /* the folder that serves the flash; made where it is missing */
  const char* preload; /* the library to load; null: flashsim's own */
  const char* journal; /* the journal to begin; null: none */
  const char* faults;  /* as in the environment, where supervise() put them; null: none */
  char** program;      /* and its arguments, null at the end */
};

/* Turns this process into the program. Returns only, EXIT_NOT_STARTED, when it cannot be started:
 * why is told on standard error. */
int launch(const struct launch* wanted);

#ifdef __cplusplus
}
#endif

#endif
