#define _FILE_OFFSET_BITS 64
#include "faults.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/file.h>
#include <unistd.h>

#include "served.h"

/* --- the moments that a run can be told to fail at --- */

enum bytes_of { HAS_NONE, HAS_BYTES, IS_BYTE };

static const struct moment {
  const char* name;
  const char* verbs; /* of the steps that count begin like this */
  enum bytes_of bytes;
} moments[] = {
    {"step", "", HAS_BYTES},       {"open", "open", HAS_NONE},   {"seek", "seek", HAS_NONE},
    {"write", "write", HAS_BYTES}, {"close", "close", HAS_NONE}, {"command", "command", HAS_NONE},
    {"erase", "erase", HAS_BYTES}, {"done", "done", HAS_NONE},   {"byte", NULL, IS_BYTE},
};

enum {
  moment_count = sizeof moments / sizeof moments[0],
  served_opens = moment_count, /* counted behind the moments */
  counted
};

/* --- the options --- */

enum { VALUE_SIZE = 64 }; /* with its end; next_fault() relies on it */

struct fault {
  int option;
  int moment;
  uint64_t number;
  uint64_t bytes; /* of the step at that moment */
  const char* partition;
  uint64_t offset;
  unsigned char mask;
  char how; /* the first letter of flip, 0 or 1 */
  int error;
};

/* Keeps errno: this is done within calls that have nothing to report. */
static bool take_number(const char** text, uint64_t* number) {
  if (!isdigit((unsigned char)**text)) return false;
  const int error = errno;
  char* end;
  errno = 0;
  *number = strtoull(*text, &end, 0);
  *text = end;
  const bool fits = errno == 0;
  errno = error;
  return fits;
}

/* Whether the text goes on with `name` and a colon; steps over both. */
static bool take_name(const char** text, const char* name) {
  const size_t length = strlen(name);
  if (strncasecmp(*text, name, length) != 0 || (*text)[length] != ':') return false;
  *text += length + 1;
  return true;
}

static bool take_partition(const char** text, const char** partition) {
  for (size_t i = 0; i < served_file_count; ++i) {
    *partition = served_files[i].partition;
    if (*partition && take_name(text, *partition)) return true;
  }
  return false;
}

/* [KIND:]N[:BYTES] */
static bool read_moment(const char* text, struct fault* fault) {
  for (int i = 0; i < moment_count; ++i) {
    if (take_name(&text, moments[i].name)) fault->moment = i;
  }
  if (!take_number(&text, &fault->number) || fault->number == 0) return false;
  if (*text == ':' && moments[fault->moment].bytes == HAS_BYTES) {
    ++text;
    if (!take_number(&text, &fault->bytes)) return false;
  }
  return *text == '\0';
}

static bool read_tear(const char* text, struct fault* fault) {
  return read_moment(text, fault) && moments[fault->moment].bytes != HAS_NONE;
}

/* PARTITION:OFFSET:MASK=flip|0|1 */
static bool read_bits(const char* text, struct fault* fault) {
  static const char* const ways[] = {"flip", "0", "1"};
  uint64_t mask = 0;
  if (!take_partition(&text, &fault->partition) || !take_number(&text, &fault->offset) ||
      *text++ != ':' || !take_number(&text, &mask) || *text++ != '=' || mask == 0 || mask > 0xff)
    return false;
  fault->mask = (unsigned char)mask;
  fault->how = *text;
  for (size_t i = 0; i < sizeof ways / sizeof ways[0]; ++i) {
    if (strcmp(text, ways[i]) == 0) return true;
  }
  return false;
}

/* N[:ERROR] */
static bool read_open(const char* text, struct fault* fault) {
  static const struct {
    const char* name;
    int number;
  } errors[] = {{"EACCES", EACCES}, {"EBUSY", EBUSY},   {"EINTR", EINTR},   {"EIO", EIO},
                {"EMFILE", EMFILE}, {"ENFILE", ENFILE}, {"ENODEV", ENODEV}, {"ENOENT", ENOENT},
                {"ENOMEM", ENOMEM}, {"ENOSPC", ENOSPC}, {"ENXIO", ENXIO},   {"EROFS", EROFS}};
  fault->error = EIO;
  if (!take_number(&text, &fault->number) || fault->number == 0) return false;
  if (*text == '\0') return true;
  if (*text++ != ':') return false;
  for (size_t i = 0; i < sizeof errors / sizeof errors[0]; ++i) {
    fault->error = errors[i].number;
    if (strcmp(text, errors[i].name) == 0) return true;
  }
  return false;
}

static bool read_size(const char* text, struct fault* fault) {
  return take_number(&text, &fault->number) && *text == '\0';
}

static bool read_count(const char* text, struct fault* fault) {
  return read_size(text, fault) && fault->number > 0;
}

/* PARTITION:N */
static bool read_device_size(const char* text, struct fault* fault) {
  return take_partition(&text, &fault->partition) && read_size(text, fault);
}

enum { CUT, TEAR, BITS, FAIL_OPEN, SHORT_READS, SHORT_WRITES, DEVICE_SIZE, TMP_SIZE, option_count };

static const struct {
  const char* name;
  const char* form;
  bool (*read)(const char* text, struct fault* fault);
} options[option_count] = {
    [CUT] = {"cut", "[KIND:]N[:BYTES]", read_moment},
    [TEAR] = {"tear", "[step:|write:|erase:]N[:BYTES] or byte:N", read_tear},
    [BITS] = {"bits", "PARTITION:OFFSET:MASK=flip|0|1", read_bits},
    [FAIL_OPEN] = {"fail-open", "N[:ERROR]", read_open},
    [SHORT_READS] = {"short-reads", "N", read_count},
    [SHORT_WRITES] = {"short-writes", "N", read_count},
    [DEVICE_SIZE] = {"device-size", "PARTITION:N", read_device_size},
    [TMP_SIZE] = {"tmp-size", "N", read_size},
};

static int find_option(const char* name) {
  for (int i = 0; i < option_count; ++i) {
    if (strcmp(options[i].name, name) == 0) return i;
  }
  return -1;
}

static bool read_fault(int option, const char* value, struct fault* fault) {
  memset(fault, 0, sizeof *fault);
  fault->option = option;
  return options[option].read(value, fault);
}

const char* faults_form(const char* option) {
  const int index = find_option(option);
  return index < 0 ? NULL : options[index].form;
}

bool faults_understand(const char* option, const char* value) {
  struct fault fault;
  return strlen(value) < VALUE_SIZE && read_fault(find_option(option), value, &fault);
}

/* --- the faults that are set --- */

bool faults_are_set(void) { return getenv(FLASHSIM_FAULTS_VARIABLE) != NULL; }

static const char* settings(void) {
  const char* const text = getenv(FLASHSIM_FAULTS_VARIABLE);
  return text ? text : "";
}

/* Takes the next of the settings from `rest`; false at their end. */
static bool next_fault(const char** rest, struct fault* fault) {
  char option[16];
  char value[VALUE_SIZE];
  int length = 0;
  if (sscanf(*rest, "%15[^=]=%63s %n", option, value, &length) != 2) return false;
  *rest += length;
  return read_fault(find_option(option), value, fault);
}

/* The least number that an option was given, of those for the partition; `none` without any. */
static uint64_t least(int option, const char* partition, uint64_t none) {
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    const bool concerned = fault.option == option && fault.partition == partition;
    if (concerned && fault.number < none) none = fault.number;
  }
  return none;
}

size_t faults_read_limit(void) { return (size_t)least(SHORT_READS, NULL, SIZE_MAX); }

size_t faults_write_limit(void) { return (size_t)least(SHORT_WRITES, NULL, SIZE_MAX); }

int64_t faults_device_size(const char* partition, int64_t file_size) {
  return (int64_t)least(DEVICE_SIZE, partition, (uint64_t)file_size);
}

uint64_t faults_tmp_size(void) { return least(TMP_SIZE, NULL, UINT64_MAX); }

/* --- bits --- */

static unsigned char altered(const struct fault* fault, unsigned char byte) {
  if (fault->how == 'f') return byte ^ fault->mask;
  return fault->how == '1' ? byte | fault->mask : byte & (unsigned char)~fault->mask;
}

/* Whether the fault sticks one of these bytes. */
static bool sticks(const struct fault* fault, const char* partition, int64_t offset, size_t size) {
  return fault->option == BITS && fault->how != 'f' && fault->partition == partition &&
         fault->offset >= (uint64_t)offset && fault->offset - (uint64_t)offset < size;
}

bool faults_stick_at(const char* partition, int64_t offset, size_t size) {
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    if (sticks(&fault, partition, offset, size)) return true;
  }
  return false;
}

void faults_stick(const char* partition, int64_t offset, unsigned char* bytes, size_t size) {
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    if (!sticks(&fault, partition, offset, size)) continue;
    unsigned char* const byte = bytes + (fault.offset - (uint64_t)offset);
    *byte = altered(&fault, *byte);
  }
}

static bool alter_byte(int fd, const struct fault* fault) {
  unsigned char byte;
  const off_t offset = (off_t)fault->offset;
  const ssize_t count = pread(fd, &byte, 1, offset);
  if (count == 0) errno = ERANGE;
  if (count != 1) return false;
  byte = altered(fault, byte);
  return pwrite(fd, &byte, 1, offset) == 1;
}

bool faults_set_bits(int fd, const char* partition) {
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    const bool concerned = fault.option == BITS && fault.partition == partition;
    if (concerned && !alter_byte(fd, &fault)) return false;
  }
  return true;
}

/* --- the counts --- */

enum { DIGITS = 20, TEXT_SIZE = counted * (DIGITS + 1) };

static void give_up(const char* why) {
  perror(why);
  abort(); /* a fault that is left out would make a test say more than it tried */
}

static void read_counts(int fd, uint64_t counts[counted]) {
  char text[TEXT_SIZE + 1] = "";
  if (pread(fd, text, TEXT_SIZE, 0) < 0) give_up("flashsim: cannot read the counts");
  char* rest = text;
  for (int i = 0; i < counted; ++i) counts[i] = strtoull(rest, &rest, 10);
}

static void write_counts(int fd, const uint64_t counts[counted]) {
  char text[TEXT_SIZE + 1];
  for (int i = 0; i < counted; ++i)
    snprintf(text + i * (DIGITS + 1), DIGITS + 2, "%*" PRIu64 "\n", DIGITS, counts[i]);
  if (pwrite(fd, text, TEXT_SIZE, 0) != TEXT_SIZE) give_up("flashsim: cannot write the counts");
}

/* Adds `more` to the counts of the run, and tells what they are then. Keeps errno. */
static void count(const uint64_t more[counted], uint64_t now[counted]) {
  const int error = errno;
  const int fd = open(getenv(FLASHSIM_COUNTS_VARIABLE), O_RDWR | O_CLOEXEC);
  if (fd < 0 || flock(fd, LOCK_EX) != 0) give_up("flashsim: cannot open the counts");
  read_counts(fd, now);
  for (int i = 0; i < counted; ++i) now[i] += more[i];
  write_counts(fd, now);
  close(fd);
  errno = error;
}

/* --- steps --- */

/* A step's share of what the fault counts, and how far the count then is. */
struct place {
  uint64_t before;
  uint64_t after;
  uint64_t kept; /* bytes of the step that come before the fault */
};

static bool is_at(const struct fault* fault, const struct place* place) {
  return place->before < fault->number && fault->number <= place->after;
}

static struct place place_of(const struct fault* fault, const uint64_t more[counted],
                             const uint64_t now[counted]) {
  const int i = fault->moment;
  struct place place = {now[i] - more[i], now[i], fault->bytes};
  if (moments[i].bytes == IS_BYTE) place.kept = fault->number - 1 - place.before;
  return place;
}

static void tear(const struct fault* fault, const struct place* place, struct faults_step* step) {
  if (!is_at(fault, place) || place->kept >= step->size) return;
  step->size = (size_t)place->kept;
  step->torn = true;
}

/* Without power every later step is left out too. */
static void cut(const struct fault* fault, const struct place* place, struct faults_step* step) {
  if (place->after < fault->number) return;
  const uint64_t kept = is_at(fault, place) ? place->kept : 0;
  if (kept < step->size) step->size = (size_t)kept;
  step->power_off = true;
}

struct faults_step faults_count_step(const char* verb, size_t size) {
  struct faults_step step = {size, false, false};
  if (!faults_are_set()) return step;
  uint64_t more[counted] = {0};
  uint64_t now[counted];
  for (int i = 0; i < moment_count; ++i) {
    const char* const verbs = moments[i].verbs;
    more[i] = verbs ? strncmp(verb, verbs, strlen(verbs)) == 0 : size;
  }
  count(more, now);
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    const struct place place = place_of(&fault, more, now);
    if (fault.option == TEAR) tear(&fault, &place, &step);
    if (fault.option == CUT) cut(&fault, &place, &step);
  }
  return step;
}

int faults_count_open(void) {
  if (!faults_are_set()) return 0;
  uint64_t more[counted] = {[served_opens] = 1};
  uint64_t now[counted];
  count(more, now);
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    if (fault.option == FAIL_OPEN && fault.number == now[served_opens]) return fault.error;
  }
  return 0;
}

/* --- the power --- */

bool faults_power_is_off(void) {
  const uint64_t none[counted] = {0};
  uint64_t now[counted];
  count(none, now);
  struct fault fault;
  for (const char* rest = settings(); next_fault(&rest, &fault);) {
    if (fault.option == CUT && now[fault.moment] >= fault.number) return true;
  }
  return false;
}

void faults_cut_power(void) {
  const pid_t group = (pid_t)atol(getenv(FLASHSIM_GROUP_VARIABLE));
  kill(-group, SIGKILL);
  kill(0, SIGKILL); /* where this program has left that group */
  abort();
}
