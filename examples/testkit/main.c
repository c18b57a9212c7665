#include <stdio.h>
#include <stdlib.h>

#include "host.h"

int main(int argc, char** argv) {
  qmibtree_inst_t* inst = host_start();
  if (!inst) return EXIT_FAILURE;
  const int rc = argc == 2 ? host_set_color(inst, argv[1]) | host_save(inst) : 0;
  host_stop(inst);
  if (rc != 0) fputs("lamp: not set, or not saved\n", stderr);
  return rc == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
