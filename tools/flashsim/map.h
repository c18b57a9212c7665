/* flashsim map: where the power may be cut, and what comes back. */
#ifndef FLASHSIM_MAP_H
#define FLASHSIM_MAP_H

#ifdef __cplusplus
extern "C" {
#endif

/* The command's exit status. `arguments[0]` is its name. */
int map_main(int count, char** arguments);

#ifdef __cplusplus
}
#endif

#endif
