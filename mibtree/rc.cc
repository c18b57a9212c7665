#include "qmibtree.h"
#include "util/rules.hh"

namespace {

struct rc_text {
  uint8_t rc;
  char text[20];  // in place: a table of pointers would need relocating at load
};

// Deliberate: QMIBTREE_RC_DIFFERENT and QMIBTREE_RC_NO_FILE have no text of their own. Hosts show
// "unknown" for both, and some match on it.
constexpr rc_text rc_texts[] = {
    {QMIBTREE_RC_ERROR, "generic error"},
    {QMIBTREE_RC_NO_RESOURCE, "out of resource"},
    {QMIBTREE_RC_NOT_FOUND, "mib name not found"},
    {QMIBTREE_RC_NO_HOOK, "hook not found"},
    {QMIBTREE_RC_TYPE_MISMATCH, "node type mismatch"},
    {QMIBTREE_RC_OUT_OF_RANGE, "write out of range"},
    {QMIBTREE_RC_NOT_ALLOWED, "write not allowed"},
    {QMIBTREE_RC_INVALID_VALUE, "write invalid value"},
    {QMIBTREE_RC_DUMP_EXCEEDED, "dump exceeded"},
};

}  // namespace

const char* qmibtree_rc_string(uint32_t rc) {
  if (!qmib::failed(rc)) return "ok";
  for (const rc_text& entry : rc_texts)
    if (entry.rc == rc) return entry.text;
  return "unknown";
}
