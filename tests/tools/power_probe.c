/* A small host for the maps of power cuts: a configuration whose every value tells the generation
 * it belongs to. */
#include <qmibtree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char usage[] =
    "usage: power_probe [answer] VERB\n"
    "  save GENERATION RULES EXTRAS          save a configuration made anew\n"
    "  erased-save GENERATION RULES EXTRAS   the same, after an erase of the main partition\n"
    "  guarded-save GENERATION RULES EXTRAS  the same, with the main header made invalid first\n"
    "  load                                  start: load, and what that saves\n"
    "  show                                  start, and print what came back\n"
    "  checked-show                          the same, after a look at the partitions\n"
    "  new-load, new-show, new-checked-show  the same of a firmware that saves one value more\n"
    "  upgrade FILE                          take an upgrade file\n"
    "  wrap GENERATION RULES EXTRAS PADDING  print an upgrade file with the document and as many\n"
    "                                        line feeds\n"
    "  clear                                 back to the factory default\n"
    "  check                                 whether a configuration is stored\n"
    "  download FILE                         make an upgrade file of what is stored\n"
    "  document GENERATION RULES EXTRAS      print the document that save writes\n"
    "With answer it prints what the library answered; its exit status tells else.\n";

/* clang-format off */
#define VALUE(id, next, text, kind, kept, standard) \
  {.uid = (id), .next_uid = (next), .child_uid = -1, .name = (text), .type = (kind), \
   .flags = (kept), .defval = (standard), .int_min = INT32_MIN, .int_max = INT32_MAX, \
   .uint_max = UINT32_MAX, .comp = UINT32_MAX}
#define OBJECT(id, next, child, text, kept) \
  {.uid = (id), .next_uid = (next), .child_uid = (child), .name = (text), \
   .type = QMIBTREE_TYPE_OBJECT, .flags = (kept), .comp = UINT32_MAX}

enum { ADDED = 8 };

/* First and Last stand at the ends of the document: both have the generation. */
static QMIBTREE_SCHEMA_BLOCK(11) schema = {1, 11, {
  OBJECT(0, -1, 1, "Box.", 0),
  VALUE(1, 2, "First", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE, "0"),
  VALUE(2, 3, "Name", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "unnamed"),
  VALUE(3, 4, "Hint", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE_MODIFIED, ""),
  OBJECT(4, ADDED, 5, "Rule.", QMIBTREE_UID_MULTI),
  VALUE(5, 6, "Enable", QMIBTREE_TYPE_BOOL, QMIBTREE_UID_SAVE, "false"),
  VALUE(6, 7, "Port", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE, "0"),
  VALUE(7, -1, "Target", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "nowhere"),
  VALUE(ADDED, 9, "Added", QMIBTREE_TYPE_STRING, 0, "added"),
  VALUE(9, 10, "Watched", QMIBTREE_TYPE_UINT, 0, "0"),
  VALUE(10, -1, "Last", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE, "0")}};
/* clang-format on */

uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                   qmibtree_value_t* value) {
  (void)inst, (void)node, (void)value;
  return QMIBTREE_RC_OK;
}

static qmibtree_inst_t* tree;
static FILE* report; /* standard output; the library's own messages are left out */

static void fail(const char* why) {
  fprintf(stderr, "power_probe: %s\n", why);
  exit(1);
}

/* --- a configuration of a generation --- */

static void set(const char* name, const char* text) {
  if (QMIBTREE_FAILED(qmibtree_write_strvalue(tree, name, text, 0))) fail(name);
}

static void set_rule(uint32_t rule, unsigned generation) {
  char name[64];
  char text[64];
  snprintf(name, sizeof name, "Box.Rule.%u.Enable", rule);
  set(name, generation % 2 ? "true" : "false");
  snprintf(name, sizeof name, "Box.Rule.%u.Port", rule);
  snprintf(text, sizeof text, "%u", generation * 1111);
  set(name, text);
  snprintf(name, sizeof name, "Box.Rule.%u.Target", rule);
  snprintf(text, sizeof text, "host-%u-%u.lan", rule, generation);
  set(name, text);
}

/* Extras are what a document only has where it is there: a modified value, an attribute. */
static void configure(char** argument) {
  const unsigned generation = (unsigned)strtoul(argument[0], NULL, 10);
  const unsigned rules = (unsigned)strtoul(argument[1], NULL, 10);
  char text[64];
  snprintf(text, sizeof text, "generation %u.%u", generation, generation);
  set("Box.Name", text);
  snprintf(text, sizeof text, "%u", generation * 1111);
  set("Box.First", text);
  set("Box.Last", text);
  for (unsigned i = 1; i <= rules; ++i) {
    uint32_t number = i;
    if (QMIBTREE_FAILED(qmibtree_add_object(tree, "Box.Rule.", &number, 0, 255))) fail("no rule");
    set_rule(i, generation);
  }
  if (strcmp(argument[2], "0") == 0) return;
  set("Box.Hint", "a hint");
  qmibtree_set_attr(tree, "Box.Watched", QMIBTREE_ATTR_NOTIF_PASSIVE);
}

/* --- printing --- */

static uint32_t print_value(qmibtree_inst_t* inst, qmibtree_node* node, void* unused, int32_t level,
                            void* cookie, uint32_t phase) {
  (void)unused, (void)cookie;
  if (phase != QMIBTREE_PHASE_ENTER) return QMIBTREE_RC_OK;
  char text[256] = "";
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  if (node->flags & QMIBTREE_NODE_PARAM)
    qmibtree_dump_rawvalue(inst, node, &buff, level, NULL, QMIBTREE_PHASE_ENTER);
  fprintf(report, "%s=%s%s\n", node->fullName, text,
          node->flags & QMIBTREE_NODE_NOTIF_PASSIVE ? " (watched)" : "");
  return QMIBTREE_RC_OK;
}

static void print_tree(void) { qmibtree_dump(tree, NULL, NULL, 255, print_value, NULL); }

/* --- the main partition made invalid before a save --- */

static uint32_t document_length(qmibtree_inst_t* inst) {
  qmibtree_buff_t count = {0};
  qmibtree_xml_dump_config(inst, NULL, &count, 0);
  return count.size;
}

/* The document that a save writes, and its length; freed by the caller. */
static char* document_of(qmibtree_inst_t* inst, uint32_t* length) {
  *length = document_length(inst);
  char* const text = calloc(*length + 1, 1);
  if (!text) fail("out of memory");
  qmibtree_buff_t buff = {text, text, *length + 1, *length + 1};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, NULL, &buff, 0))) fail("no document");
  return text;
}

static void write_main_header(uint32_t magic, uint32_t length) {
  const uint32_t words[] = {magic, length};
  unsigned char header[8];
  for (int i = 0; i < 8; ++i) header[i] = (unsigned char)(words[i / 4] >> (24 - i % 4 * 8));
  FILE* device = fopen("/dev/nvram", "w");
  if (!device) fail("no main partition");
  fwrite(header, sizeof header, 1, device);
  if (fclose(device) != 0) fail("the main partition cannot be written");
}

/* --- the partitions looked at before a start --- */

static uint32_t word_at(const unsigned char* bytes) {
  return (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
}

/* Whether the partition has a valid header; its length. */
static int read_length(const char* path, uint32_t* length) {
  unsigned char header[8] = {0};
  FILE* device = fopen(path, "r");
  if (!device) return 0;
  const size_t count = fread(header, sizeof header, 1, device);
  fclose(device);
  *length = word_at(header + 4);
  return count == 1 && word_at(header) == QMIBTREE_NVRAM_MAGIC && *length < QMIBTREE_NVRAM_MAX;
}

static uint32_t generation_at(qmibtree_inst_t* inst, const char* name) {
  qmibtree_value_t value = {0};
  qmibtree_read(inst, name, &value, 0);
  return value.u;
}

/* A tree of its own with what the partition holds; null where its header is not valid, its text
 * does not load, or the text's ends are not of the same save. */
static qmibtree_inst_t* trial_of(const char* path) {
  uint32_t length = 0;
  if (!read_length(path, &length)) return NULL;
  qmibtree_inst_t* const trial = qmibtree_init(QMIBTREE_SCHEMA(&schema));
  if (!trial) fail("out of memory");
  const uint32_t rc = qmibtree_xml_load_from_file(trial, path, 8, length, 0);
  if (!QMIBTREE_FAILED(rc) && generation_at(trial, "Box.First") == generation_at(trial, "Box.Last"))
    return trial;
  qmibtree_destroy(trial);
  return NULL;
}

/* Whether a save of `trial` would write what the partition holds. */
static int is_as_saved(qmibtree_inst_t* trial, const char* path) {
  uint32_t length = 0;
  char* const text = document_of(trial, &length);
  qmibtree_buff_t* const stored = qmibtree_buff_create_from_file(path, 8, length);
  const int same = stored && strcmp(stored->start, text) == 0;
  qfree(stored);
  free(text);
  return same;
}

/* A main partition that is not whole, or that this firmware would save otherwise, is made invalid
 * where the backup is whole: the load then takes that one, and what main gave does not stay beside
 * it. A cut in the save that follows is the next start's to find. */
static void check_main(void) {
  qmibtree_inst_t* const main_trial = trial_of("/dev/nvram");
  qmibtree_inst_t* const backup_trial = trial_of("/dev/nvrambak");
  const int stays = main_trial && is_as_saved(main_trial, "/dev/nvram");
  if (!stays && backup_trial) write_main_header(0, 0);
  if (main_trial) qmibtree_destroy(main_trial);
  if (backup_trial) qmibtree_destroy(backup_trial);
}

/* --- verbs --- */

static int do_save(char** argument) {
  configure(argument);
  return qmibtree_save_config(tree);
}

static int do_erased_save(char** argument) {
  configure(argument);
  if (system("mtd erase NVRAM") != 0) fail("no erase");
  return qmibtree_save_config(tree);
}

static int do_guarded_save(char** argument) {
  configure(argument);
  /* No magic, and already the length that the save is going to write: from here on the start takes
   * the backup, until the save's header has its whole magic again. */
  write_main_header(0, document_length(tree));
  return qmibtree_save_config(tree);
}

static int do_load(char** argument) {
  (void)argument;
  return qmibtree_load_config(tree);
}

static int do_show(char** argument) {
  const int result = do_load(argument);
  print_tree();
  return result;
}

static int do_checked_show(char** argument) {
  check_main();
  return do_show(argument);
}

static int do_upgrade(char** argument) { return qmibtree_upgrade_config(argument[0]); }

static int do_clear(char** argument) {
  (void)argument;
  return qmibtree_clear_config();
}

static int do_check(char** argument) {
  (void)argument;
  return qmibtree_check_nvram();
}

static int do_download(char** argument) { return qmibtree_download_config(argument[0]); }

static int do_document(char** argument) {
  uint32_t length = 0;
  configure(argument);
  char* const text = document_of(tree, &length);
  fputs(text, report);
  free(text);
  return 0;
}

static int do_wrap(char** argument) {
  uint32_t length = 0;
  configure(argument);
  char* const text = document_of(tree, &length);
  const uint32_t padding = (uint32_t)strtoul(argument[3], NULL, 10);
  fwrite("zoremcfg\0\0\0", 1, 12, report);
  for (int shift = 0; shift < 32; shift += 8)
    putc((int)((length + padding) >> shift & 0xff), report);
  fputs(text, report);
  for (uint32_t i = 0; i < padding; ++i) putc('\n', report);
  fwrite("\0\0\0", 1, 4, report);
  free(text);
  return 0;
}

static const struct verb {
  const char* name;
  int arguments;
  uint32_t added; /* how its firmware keeps the added value */
  int (*run)(char** argument);
} verbs[] = {
    {"save", 3, 0, do_save},
    {"erased-save", 3, 0, do_erased_save},
    {"guarded-save", 3, 0, do_guarded_save},
    {"load", 0, 0, do_load},
    {"show", 0, 0, do_show},
    {"checked-show", 0, 0, do_checked_show},
    {"new-load", 0, QMIBTREE_UID_SAVE, do_load},
    {"new-checked-show", 0, QMIBTREE_UID_SAVE, do_checked_show},
    {"new-show", 0, QMIBTREE_UID_SAVE, do_show},
    {"upgrade", 1, 0, do_upgrade},
    {"clear", 0, 0, do_clear},
    {"check", 0, 0, do_check},
    {"download", 1, 0, do_download},
    {"document", 3, 0, do_document},
    {"wrap", 4, 0, do_wrap},
};

static int run(const struct verb* verb, char** argument, int tell) {
  schema.uidinfo[ADDED].flags = verb->added;
  tree = qmibtree_init(QMIBTREE_SCHEMA(&schema));
  report = fdopen(dup(STDOUT_FILENO), "w");
  if (!tree || !report || !freopen("/dev/null", "w", stdout)) fail("out of memory");
  const int result = verb->run(argument);
  qmibtree_destroy(tree);
  if (tell) fprintf(report, "%d\n", result);
  return fclose(report) != 0 || (result != 0 && !tell);
}

int main(int argc, char** argv) {
  const int tell = argc > 1 && strcmp(argv[1], "answer") == 0;
  const int words = argc - 1 - tell;
  char** const word = argv + 1 + tell;
  for (size_t i = 0; i < sizeof verbs / sizeof *verbs; ++i)
    if (words == 1 + verbs[i].arguments && strcmp(word[0], verbs[i].name) == 0)
      return run(&verbs[i], word + 1, tell);
  fputs(usage, stderr);
  return 2;
}
