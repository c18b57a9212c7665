/* flashsim: runs a program with a gateway's flash and fixed paths served from a folder. */
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "faults.h"
#include "launch.h"
#include "map.h"
#include "supervise.h"
#include "wear.h"

static const char usage[] =
    "usage: flashsim --dir DIR [--preload FILE] [--journal FILE] [FAULT...]\n"
    "                -- PROGRAM [ARGUMENT...]\n"
    "       flashsim wear JOURNAL\n"
    "       flashsim map --help\n";

static const char help[] =
    "Runs PROGRAM, unmodified and without privileges, with these paths served from DIR:\n"
    "\n"
    "  /dev/nvram                       DIR/nvram\n"
    "  /dev/nvrambak                    DIR/nvrambak\n"
    "  /etc/igd/default-conf.xml        DIR/default-conf.xml\n"
    "  /tmp/tobixopen                   DIR/tobixopen\n"
    "  /tmp/temp_config_for_download    DIR/temp_config_for_download\n"
    "\n"
    "The first two behave like flash: a fixed size (that of the file), never emptied nor\n"
    "made by opening them, full at the end. Commands that PROGRAM runs find these first:\n"
    "\n"
    "  mtd erase NVRAM|NVRAMBAK         sets every byte of the partition to 0xff\n"
    "  zorem_cfg -v 0 -i IN -o OUT      wraps the text IN into the upgrade file OUT\n"
    "\n"
    "DIR is made where it is missing (its parent is not). Two erased partitions of 64 KiB\n"
    "are made in it when it has neither; one that is missing beside the other stays a\n"
    "missing device, and a shorter file is a shorter device. PROGRAM finds the absolute\n"
    "path of DIR in FLASHSIM_DIR.\n"
    "\n"
    "Served are opens, streams, status, access, removal and renaming by these absolute\n"
    "paths, from PROGRAM and the commands it runs. Not served: paths spelt otherwise, names\n"
    "in folder listings, and programs that are statically linked or of another machine\n"
    "word or C library than flashsim: these reach the machine's own files. Status tells of\n"
    "the file in DIR. Buffered standard output that a shell redirected to a partition does\n"
    "not stop at its end.\n"
    "\n"
    "--preload FILE loads FILE instead of flashsim's own library, for a PROGRAM of another\n"
    "machine word or C library. With $LIB in FILE each loader takes the one built for it, so\n"
    "that commands of this machine are served too.\n"
    "\n"
    "--journal FILE records in FILE, anew, every step that PROGRAM and its commands make on\n"
    "the partitions: a line 'VERB PARTITION OFFSET SIZE' each, and SIZE bytes behind it.\n"
    "'flashsim map' cuts the power at each of these steps and bytes, 'flashsim wear' counts\n"
    "them: erases, opens for writing, writes and their bytes, and how often the byte that was\n"
    "written most was written, of each partition.\n"
    "\n"
    "Exit status: PROGRAM's; 127 when it could not be started, 2 for wrong usage. With faults\n"
    "also 125 when the power was cut, and 128 and its number when a signal ended PROGRAM.\n"
    "\n"
    "Example: a first boot from the factory default, then its trace\n"
    "  mkdir flash && cp default-conf.xml flash\n"
    "  flashsim --dir flash -- ./gateway\n"
    "  flashsim --dir flash -- cat /tmp/tobixopen\n"
    "\n";

static const char faults_help[] =
    "FAULT, any number of them:\n"
    "\n"
    "  --cut [KIND:]N[:BYTES]       the power goes\n"
    "  --tear [KIND:]N[:BYTES]      the write or erase stops and fails (EIO)\n"
    "  --bits PART:OFFSET:MASK=HOW  bits of one byte, by HOW: flip flips them before PROGRAM\n"
    "                               starts, 0 and 1 stick them there, whatever is written\n"
    "  --fail-open N[:ERROR]        the N-th opening of any of the five paths fails, with EIO or\n"
    "                               the error of that name\n"
    "  --short-reads N              a read or write of any of them gets N bytes at most\n"
    "  --short-writes N\n"
    "  --device-size PART:N         the device ends after N bytes of its file\n"
    "  --tmp-size N                 the files of /tmp take N bytes together, then they are full\n"
    "\n"
    "The first two are met before the N-th step of the run, counted from 1 over PROGRAM and its\n"
    "commands, with BYTES after so many bytes of it. KIND is what is counted: step (the default)\n"
    "as the journal and 'flashsim map' count, an erase being one step; or only open, seek,\n"
    "write, close, command (an erase command begins), erase and done (it ends). With byte it is\n"
    "the N-th byte that a write or erase sets. Only steps with bytes can be torn.\n"
    "\n"
    "When the power goes, all of PROGRAM's process group is killed: PROGRAM leads one, which is\n"
    "none of the terminal's foreground. What goes on from where a torn write stopped fails too.\n"
    "PART is nvram or nvrambak. Faults last until PROGRAM ends; what they did to flash stays.\n"
    "A PROGRAM that maps a file into memory, or reopens a stream on it, goes around them.\n"
    "\n"
    "Example: the main header stops after its first word, and what the next start makes of it\n"
    "  flashsim --dir flash --tear write:2:4 -- ./gateway save\n"
    "  flashsim --dir flash -- ./gateway show\n";

/* --- the command line --- */

static int refuse(const char* why) {
  fprintf(stderr, "flashsim: %s\n%sTry 'flashsim --help'.\n", why, usage);
  return EXIT_USAGE;
}

/* getopt_long() tells a short option by its letter, a long one by having stepped over it. */
static int refuse_option(const char* stepped_over) {
  const char letter[] = {'-', (char)optopt, '\0'};
  fprintf(stderr, "flashsim: unknown option '%s'\n", optopt ? letter : stepped_over);
  return refuse("only --dir, --preload, --journal, --help and the faults are options of its own");
}

static int refuse_value(const char* option, const char* wanted) {
  char why[32];
  snprintf(why, sizeof why, "%s needs a %s", option, wanted);
  return refuse(why);
}

static int refuse_fault(const char* option, const char* value) {
  char why[256];
  snprintf(why, sizeof why, "--%s needs a value of the form %s, not \"%.64s\"", option,
           faults_form(option), value);
  return refuse(why);
}

static void add_fault(char** faults, const char* option, const char* value) {
  char* more = NULL;
  if (asprintf(&more, "%s%s=%s ", *faults ? *faults : "", option, value) < 0) abort();
  free(*faults);
  *faults = more;
}

int main(int argc, char** argv) {
  static const struct option options[] = {{"dir", required_argument, NULL, 'd'},
                                          {"preload", required_argument, NULL, 'p'},
                                          {"journal", required_argument, NULL, 'j'},
                                          {"cut", required_argument, NULL, 'f'},
                                          {"tear", required_argument, NULL, 'f'},
                                          {"bits", required_argument, NULL, 'f'},
                                          {"fail-open", required_argument, NULL, 'f'},
                                          {"short-reads", required_argument, NULL, 'f'},
                                          {"short-writes", required_argument, NULL, 'f'},
                                          {"device-size", required_argument, NULL, 'f'},
                                          {"tmp-size", required_argument, NULL, 'f'},
                                          {"help", no_argument, NULL, 'h'},
                                          {0}};
  if (argc > 1 && strcmp(argv[1], "map") == 0) return map_main(argc - 1, argv + 1);
  if (argc > 1 && strcmp(argv[1], "wear") == 0) {
    return argc == 3 ? wear_main(argv[2]) : refuse("which journal should the wear be counted of?");
  }
  struct launch wanted = {0};
  char* faults = NULL;
  int index = 0;
  for (int option; (option = getopt_long(argc, argv, "+:", options, &index)) != -1;) {
    switch (option) {
      case 'd':
        wanted.dir = optarg;
        break;
      case 'p':
        wanted.preload = optarg;
        break;
      case 'j':
        wanted.journal = optarg;
        break;
      case 'f':
        if (!faults_understand(options[index].name, optarg))
          return refuse_fault(options[index].name, optarg);
        add_fault(&faults, options[index].name, optarg);
        break;
      case 'h':
        return printf("%s%s%s", usage, help, faults_help) < 0;
      case ':':
        if (optopt == 'f') return refuse_value(argv[optind - 1], "value");
        return refuse_value(argv[optind - 1], optopt == 'd' ? "folder" : "file");
      default:
        return refuse_option(argv[optind - 1]);
    }
  }
  if (!wanted.dir) return refuse("--dir is missing: which folder serves the flash?");
  if (optind == argc) return refuse("which program should run?");
  wanted.faults = faults;
  wanted.program = argv + optind;
  return faults ? supervise(&wanted) : launch(&wanted);
}
