/* Starting a program with faults, and seeing how it ends. */
#ifndef FLASHSIM_SUPERVISE_H
#define FLASHSIM_SUPERVISE_H

#include "launch.h"

enum { EXIT_POWER_CUT = 125, EXIT_BY_SIGNAL = 128 };

/* Runs the program to its end, in a process group of its own. Its exit status, EXIT_BY_SIGNAL and
 * the signal that ended it, EXIT_POWER_CUT or EXIT_NOT_STARTED. */
int supervise(const struct launch* wanted);

#endif
