/* zorem_cfg: the conversion command of the flash stand-in. Wraps a text into an upgrade file: the
 * magic, four zero bytes, the text's length (little-endian), the text, four zero bytes. */
#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static const char usage[] =
    "usage: zorem_cfg -v 0 -i IN -o OUT\n"
    "Writes the upgrade file OUT with the text of the file IN.\n";

static int complain(const char* doing, const char* path, const char* why) {
  fprintf(stderr, "zorem_cfg: cannot %s %s: %s\n", doing, path, why);
  return 1;
}

/* Reads to the end; the number of bytes, each of them written to `out` unless that is null. */
static uint64_t copy_text(FILE* in, FILE* out) {
  char block[4096];
  uint64_t length = 0;
  for (size_t count; (count = fread(block, 1, sizeof block, in)) > 0; length += count) {
    if (out) fwrite(block, 1, count, out);
  }
  return length;
}

static void write_header(FILE* out, uint64_t length) {
  unsigned char header[16] = "zoremcfg";
  for (size_t i = 0; i < 4; ++i) header[12 + i] = (unsigned char)(length >> (8 * i));
  fwrite(header, sizeof header, 1, out);
}

/* `in` stands at its start again. */
static int write_upgrade(FILE* in, const char* in_path, uint64_t length, const char* out_path) {
  static const unsigned char trailer[4];
  FILE* const out = fopen(out_path, "w");
  if (!out) return complain("write", out_path, strerror(errno));
  write_header(out, length);
  const bool changed = copy_text(in, out) != length;
  fwrite(trailer, sizeof trailer, 1, out);
  const bool failed = ferror(out);
  if (fclose(out) != 0 || failed) return complain("write", out_path, strerror(errno));
  return changed ? complain("convert", in_path, "it changes while it is read") : 0;
}

static int convert(const char* in_path, const char* out_path) {
  FILE* const in = fopen(in_path, "r");
  if (!in) return complain("read", in_path, strerror(errno));
  const uint64_t length = copy_text(in, NULL);
  int status;
  if (ferror(in) || fseek(in, 0, SEEK_SET) != 0) {
    status = complain("read", in_path, strerror(errno));
  } else if (length > INT32_MAX) {
    status = complain("convert", in_path, "it is larger than a length in an upgrade file can tell");
  } else {
    status = write_upgrade(in, in_path, length, out_path);
  }
  fclose(in);
  return status;
}

int main(int argc, char** argv) {
  const char* version = "";
  const char* in_path = NULL;
  const char* out_path = NULL;
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
    return 2;
  }
  return convert(in_path, out_path);
}
