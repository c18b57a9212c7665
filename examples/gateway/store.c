/* Documents, flash and files.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "gateway.h"

static const char* own_folder;

void use_folder(const char* folder) { own_folder = folder; }

const char* path_of(const char* name) {
  static char path[64];
  snprintf(path, sizeof path, "%s/%s", own_folder, name);
  return path;
}

FILE* open_or_end(const char* path, const char* mode) {
  FILE* file = fopen(path, mode);
  if (!file) fatal("cannot open %s: %s", path, strerror(errno));
  return file;
}

void close_or_end(FILE* file, const char* path) {
  const int failed = ferror(file);
  if (fclose(file) || failed) fatal("cannot write %s", path);
}

void read_word(const char* path, char* word, int size) {
  *word = '\0';
  FILE* file = fopen(path, "r");
  if (!file) return;
  if (fgets(word, size, file)) word[strcspn(word, " \n")] = '\0';
  fclose(file);
}

/* Two passes: the first one counts. */
char* document_of(qmibtree_inst_t* inst) {
  qmibtree_buff_t count = {0};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, NULL, &count, 0)))
    fatal("the tree cannot be written as a document");
  const uint32_t size = count.size + 1;
  char* text = qmalloc(size, "gateway document");
  if (!text) fatal("out of memory");
  qmibtree_buff_t buff = {text, text, size, size};
  if (QMIBTREE_FAILED(qmibtree_xml_dump_config(inst, NULL, &buff, 0)))
    fatal("the tree changed while it was written");
  return text;
}

char* text_of_file(const char* path, int32_t offset, uint32_t length) {
  qmibtree_buff_t* buff = qmibtree_buff_create_from_file(path, offset, length);
  if (!buff) fatal("cannot read %s: %s", path, strerror(errno));
  char* text = qstrdup(buff->start, "gateway text");
  qfree(buff);
  if (!text) fatal("out of memory");
  return text;
}

void damage(const char* device, long offset) {
  FILE* file = open_or_end(device, "r+");
  fseek(file, offset, SEEK_SET);
  fputs("<<<<", file);
  close_or_end(file, device);
}

void write_upgrade_file(const char* path, const char* text, unsigned char end) {
  const size_t length = strlen(text);
  unsigned char head[16] = "zoremcfg";
  for (int i = 0; i < 4; ++i) head[12 + i] = (unsigned char)(length >> 8 * i);
  const unsigned char tail[4] = {0, 0, 0, end};
  FILE* file = open_or_end(path, "w");
  fwrite(head, 1, sizeof head, file);
  fwrite(text, 1, length, file);
  fwrite(tail, 1, sizeof tail, file);
  close_or_end(file, path);
}
