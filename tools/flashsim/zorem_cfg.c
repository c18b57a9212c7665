/* zorem_cfg: the conversion command of the flash stand-in. Has mibctl wrap the text into an upgrade
 * file, whatever the text is. */
#include <errno.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { EXIT_USAGE = 2, EXIT_NOT_STARTED = 127 };

static const char usage[] =
    "usage: zorem_cfg -v 0 -i IN -o OUT\n"
    "Writes the upgrade file OUT with the text of the file IN.\n";

/* Where mibctl is, seen from this program's folder: installed, and as built. */
static const char* const places[] = {"../../bin/mibctl", "../../../mibctl/bin/mibctl"};

static bool find_folder(char folder[PATH_MAX]) {
  const ssize_t length = readlink("/proc/self/exe", folder, PATH_MAX - 1);
  if (length < 0) return false;
  folder[length] = '\0';
  *strrchr(folder, '/') = '\0';
  return true;
}

/* Returns only when there is none. */
static int become_mibctl(char* in_path, char* out_path) {
  char* const command[] = {"mibctl", "image",  "upgrade-file", "make",  "--force",
                           "-o",     out_path, "--",           in_path, NULL};
  char folder[PATH_MAX];
  char path[2 * PATH_MAX];
  if (find_folder(folder)) {
    for (size_t i = 0; i < sizeof places / sizeof *places; ++i) {
      snprintf(path, sizeof path, "%s/%s", folder, places[i]);
      execv(path, command);
    }
  }
  execvp(command[0], command);
  fprintf(stderr, "zorem_cfg: cannot start mibctl: %s\n", strerror(errno));
  return EXIT_NOT_STARTED;
}

int main(int argc, char** argv) {
  const char* version = "";
  char* in_path = NULL;
  char* out_path = NULL;
  bool understood = true;
  for (int option; (option = getopt(argc, argv, "v:i:o:")) != -1;) {
    if (option == 'v')
      version = optarg;
    else if (option == 'i')
      in_path = optarg;
    else if (option == 'o')
      out_path = optarg;
    else
      understood = false;
  }
  if (!understood || strcmp(version, "0") != 0 || !in_path || !out_path || optind != argc) {
    fputs(usage, stderr);
    return EXIT_USAGE;
  }
  return become_mibctl(in_path, out_path);
}
