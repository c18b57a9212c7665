/* The journal: every step that programs make on the partitions, in order, each a line
 *
 *   VERB PARTITION OFFSET SIZE
 *
 * and SIZE bytes behind it. VERB is what was done:
 *
 *   open-r, open-w, open-rw   a descriptor or stream was opened
 *   seek                      its position was set to OFFSET
 *   write                     the SIZE bytes were written at OFFSET
 *   close                     it is about to be closed; what exit closes is not recorded
 *   command                   an erase command begins
 *   erase                     it has set the SIZE bytes at OFFSET
 *   done                      it ends
 */
#ifndef FLASHSIM_JOURNAL_H
#define FLASHSIM_JOURNAL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#define FLASHSIM_JOURNAL_VARIABLE "FLASHSIM_JOURNAL" /* the file; not set: no journal is kept */

/* Whether a journal is kept. */
bool journal_is_kept(void);

/* Adds a step on the partition of that name, `bytes` null where it has none. Keeps errno. */
void journal_add(const char* verb, const char* partition, int64_t offset, const void* bytes,
                 size_t size);

#endif
