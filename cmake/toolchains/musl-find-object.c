/* _dl_find_object, which Debian's unwinder takes from glibc, for programs of musl: what the tests'
 * C++ exceptions need to find an object's frames. */
#define _GNU_SOURCE
#include <link.h>
#include <stddef.h>
#include <stdint.h>

struct dl_find_object {
  unsigned long long flags;
  void* map_start;
  void* map_end;
  struct link_map* link_map;
  void* eh_frame;
  unsigned long long reserved[7];
};

int _dl_find_object(void* address, struct dl_find_object* result);

struct search {
  uintptr_t address;
  struct dl_find_object* result;
};

static int look_into(struct dl_phdr_info* info, size_t size, void* arg) {
  (void)size;
  const struct search* const search = arg;
  int found = 0;
  uintptr_t frames = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)* const part = &info->dlpi_phdr[i];
    const uintptr_t start = info->dlpi_addr + part->p_vaddr;
    if (part->p_type == PT_GNU_EH_FRAME) frames = start;
    if (part->p_type == PT_LOAD && search->address - start < part->p_memsz) found = 1;
  }
  if (found) search->result->eh_frame = (void*)frames;
  return found && frames != 0;
}

int _dl_find_object(void* address, struct dl_find_object* result) {
  struct search search = {(uintptr_t)address, result};
  return dl_iterate_phdr(look_into, &search) ? 0 : -1;
}
