/* What the program prints. A line begins with its line feed instead of ending with it, as the
 * lines of the log do. Lines without an indent are headings, the log, and the library's own.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "gateway.h"

static unsigned steps;
static unsigned checks;
static unsigned failures;

void heading(const char* text) { printf("\n\n== %u. %s ==", ++steps, text); }

void fatal(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (steps) putchar('\n');
  fputs("gateway: ", stderr);
  vfprintf(stderr, format, arguments);
  fputc('\n', stderr);
  va_end(arguments);
  exit(2);
}

void add_name(char* names, const char* name) {
  const size_t used = strlen(names);
  snprintf(names + used, NAMES_SIZE - used, "%s%s", used ? " " : "", name);
}

const char* short_name(const char* name) {
  static const char root[] = "InternetGatewayDevice.";
  return strstr(name, root) == name ? name + sizeof root - 1 : name;
}

static void pass(const char* what, const char* found) {
  ++checks;
  printf("\n  ok      %s: %s", short_name(what), short_name(found));
}

static void fail(const char* what, const char* expected, const char* found) {
  ++checks;
  ++failures;
  printf("\n  FAILED  %s: expected %s, found %s", what, expected, found);
}

void check_text(const char* what, const char* expected, const char* found) {
  if (strcmp(expected, found) == 0)
    pass(what, found);
  else
    fail(what, expected, found);
}

void check_number(const char* what, uint32_t expected, uint32_t found) {
  char texts[2][16];
  snprintf(texts[0], sizeof texts[0], "%u", (unsigned)expected);
  snprintf(texts[1], sizeof texts[1], "%u", (unsigned)found);
  check_text(what, texts[0], texts[1]);
}

static void describe_rc(char* text, size_t size, uint32_t rc) {
  snprintf(text, size, "%u (%s)", (unsigned)rc, qmibtree_rc_string(rc));
}

void check_rc(const char* what, uint32_t expected, uint32_t found) {
  char texts[2][48];
  describe_rc(texts[0], sizeof texts[0], expected);
  describe_rc(texts[1], sizeof texts[1], found);
  check_text(what, texts[0], texts[1]);
}

/* The line of `text` that `at` is in. */
static void copy_line(char* line, size_t size, const char* text, const char* at) {
  while (at > text && at[-1] != '\n') --at;
  snprintf(line, size, "\"%.*s\"", (int)strcspn(at, "\n"), at);
}

void check_document(const char* what, const char* expected, const char* found) {
  size_t same = 0;
  while (expected[same] && expected[same] == found[same]) ++same;
  if (expected[same] == found[same]) {
    char length[32];
    snprintf(length, sizeof length, "the same %u bytes", (unsigned)same);
    pass(what, length);
    return;
  }
  char lines[2][128];
  copy_line(lines[0], sizeof lines[0], expected, expected + same);
  copy_line(lines[1], sizeof lines[1], found, found + same);
  fail(what, lines[0], lines[1]);
}

void check_value(qmibtree_inst_t* inst, const char* name, const char* expected) {
  qmibtree_value_t value = {0};
  const uint32_t rc = qmibtree_read(inst, name, &value, 0);
  if (QMIBTREE_FAILED(rc)) {
    fail(name, expected, qmibtree_rc_string(rc));
    return;
  }
  char text[256] = "";
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  const qmibtree_datafn_t* operations = qmibtree_datatype_get_datafn(value.type);
  if (operations->to_buff) operations->to_buff(&value, &buff);
  check_text(name, expected, text);
}

int transcript_end(void) {
  printf("\n\n%u checks, %u failed\n", checks, failures);
  return failures ? 1 : 0;
}
