/* flashsim wear: what a journal's steps cost the flash. */
#ifndef FLASHSIM_WEAR_H
#define FLASHSIM_WEAR_H

#ifdef __cplusplus
extern "C" {
#endif

/* The command's exit status. */
int wear_main(const char* journal);

#ifdef __cplusplus
}
#endif

#endif
