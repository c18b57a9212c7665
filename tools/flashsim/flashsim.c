/* flashsim: runs a program with a gateway's flash and fixed paths served from a folder. */
#include <getopt.h>
#include <stdio.h>
#include <string.h>

#include "launch.h"
#include "map.h"
#include "wear.h"

static const char usage[] =
    "usage: flashsim --dir DIR [--preload FILE] [--journal FILE] -- PROGRAM [ARGUMENT...]\n"
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
    "Exit status: PROGRAM's; 127 when it could not be started, 2 for wrong usage.\n"
    "\n"
    "Example: a first boot from the factory default, then its trace\n"
    "  mkdir flash && cp default-conf.xml flash\n"
    "  flashsim --dir flash -- ./gateway\n"
    "  flashsim --dir flash -- cat /tmp/tobixopen\n";

/* --- the command line --- */

static int refuse(const char* why) {
  fprintf(stderr, "flashsim: %s\n%sTry 'flashsim --help'.\n", why, usage);
  return EXIT_USAGE;
}

/* getopt_long() tells a short option by its letter, a long one by having stepped over it. */
static int refuse_option(const char* stepped_over) {
  const char letter[] = {'-', (char)optopt, '\0'};
  fprintf(stderr, "flashsim: unknown option '%s'\n", optopt ? letter : stepped_over);
  return refuse("only --dir, --preload, --journal and --help are options of its own");
}

static int refuse_value(const char* option, const char* wanted) {
  char why[32];
  snprintf(why, sizeof why, "%s needs a %s", option, wanted);
  return refuse(why);
}

int main(int argc, char** argv) {
  static const struct option options[] = {{"dir", required_argument, NULL, 'd'},
                                          {"preload", required_argument, NULL, 'p'},
                                          {"journal", required_argument, NULL, 'j'},
                                          {"help", no_argument, NULL, 'h'},
                                          {0}};
  if (argc > 1 && strcmp(argv[1], "map") == 0) return map_main(argc - 1, argv + 1);
  if (argc > 1 && strcmp(argv[1], "wear") == 0) {
    return argc == 3 ? wear_main(argv[2]) : refuse("which journal should the wear be counted of?");
  }
  struct launch wanted = {0};
  for (int option; (option = getopt_long(argc, argv, "+:", options, NULL)) != -1;) {
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
      case 'h':
        return printf("%s%s", usage, help) < 0;
      case ':':
        return refuse_value(argv[optind - 1], optopt == 'd' ? "folder" : "file");
      default:
        return refuse_option(argv[optind - 1]);
    }
  }
  if (!wanted.dir) return refuse("--dir is missing: which folder serves the flash?");
  if (optind == argc) return refuse("which program should run?");
  wanted.program = argv + optind;
  return launch(&wanted);
}
