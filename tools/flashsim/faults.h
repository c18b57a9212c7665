/* The faults of a run: what flashsim's options ask for, and which step of the run they meet.
 *
 * The launcher hands the options over in the environment. What they count is counted over all
 * programs of the run, in a file: these may be of different machines. */
#ifndef FLASHSIM_FAULTS_H
#define FLASHSIM_FAULTS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FLASHSIM_FAULTS_VARIABLE \
  "FLASHSIM_FAULTS" /* "OPTION=VALUE" each, a blank behind it; not set: no faults */
#define FLASHSIM_COUNTS_VARIABLE "FLASHSIM_COUNTS" /* the file of the counts */
#define FLASHSIM_GROUP_VARIABLE "FLASHSIM_GROUP"   /* the process group that a power cut ends */

/* --- for the launcher --- */

/* The form of an option's value; null: no such option. */
const char* faults_form(const char* option);

/* Whether the value has that form. */
bool faults_understand(const char* option, const char* value);

/* Flips and sticks the bits of a partition's file `fd`. False with errno. */
bool faults_set_bits(int fd, const char* partition);

/* Whether the power was cut. */
bool faults_power_is_off(void);

/* --- for the programs of the run --- */

bool faults_are_set(void);

/* What becomes of a step that is about to be made. */
struct faults_step {
  size_t size;    /* so many of its bytes are made */
  bool torn;      /* then it fails */
  bool power_off; /* then the power goes */
};

/* Counts a step of the journal's kind `verb`, with `size` bytes. Keeps errno. */
struct faults_step faults_count_step(const char* verb, size_t size);

/* Ends every program of the run. */
void faults_cut_power(void) __attribute__((noreturn));

/* Counts an opening of a served path: the error it fails with, or 0. */
int faults_count_open(void);

/* How many bytes a read or write may have at most. */
size_t faults_read_limit(void);
size_t faults_write_limit(void);

/* The size of a device whose file has `file_size` bytes. */
int64_t faults_device_size(const char* partition, int64_t file_size);

/* How many bytes the files of /tmp may have together; UINT64_MAX without such a fault. */
uint64_t faults_tmp_size(void);

/* Whether any of these bytes has a stuck bit. */
bool faults_stick_at(const char* partition, int64_t offset, size_t size);

/* Turns bytes that are going to `offset` into what the partition keeps of them. */
void faults_stick(const char* partition, int64_t offset, unsigned char* bytes, size_t size);

#ifdef __cplusplus
}
#endif

#endif
