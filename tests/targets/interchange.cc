// A configuration that travels between processors: builds a tree with values of every type, saves
// it, or loads what another processor saved, and prints the document. Usage: interchange save|load,
// under the flash stand-in.
#include <cstdio>
#include <cstring>

#include "qmibtree.h"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

constexpr uint32_t kSaved = QMIBTREE_UID_SAVE;

void describe(Schema& schema) {
  schema.add(0, "Gateway.");
  schema.add(1, "Text", QMIBTREE_TYPE_STRING, kSaved, "");
  schema.add(1, "Low", QMIBTREE_TYPE_INT, kSaved, "0");
  schema.add(1, "High", QMIBTREE_TYPE_UINT, kSaved, "0");
  schema.add(1, "On", QMIBTREE_TYPE_BOOL, kSaved, "false");
  schema.add(1, "Bytes", QMIBTREE_TYPE_BASE64, kSaved);
  schema.add(1, "Since", QMIBTREE_TYPE_DATETIME, 0, "2010-05-06T07:08:09");
  schema.add(1, "Port.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(2, "Name", QMIBTREE_TYPE_STRING, kSaved, "");
}

bool write(qmibtree_inst_t* inst, const char* name, const qmibtree_value_t& value) {
  return !QMIBTREE_FAILED(qmibtree_write(inst, name, &value, 0));
}

bool fill(qmibtree_inst_t* inst) {
  uint32_t number = 999;
  return write(inst, "Gateway.Text",
               string_value("Gr\xC3\xBC\xC3\x9F"
                            "e")) &&
         write(inst, "Gateway.Low", int_value(INT32_MIN)) &&
         write(inst, "Gateway.High", uint_value(UINT32_MAX)) &&
         write(inst, "Gateway.On", bool_value(true)) &&
         write(inst, "Gateway.Bytes", base64_value("\x00\xFF\x80\x7F", 4)) &&
         !QMIBTREE_FAILED(qmibtree_add_object(inst, "Gateway.Port.", &number, 0, 7)) &&
         write(inst, "Gateway.Port.999.Name", string_value("wan")) &&
         !QMIBTREE_FAILED(qmibtree_set_attr(inst, "Gateway.On", QMIBTREE_ATTR_NOTIF_PASSIVE));
}

}  // namespace

int main(int argc, char** argv) {
  const char* const what = argc == 2 ? argv[1] : "";
  const bool saving = std::strcmp(what, "save") == 0;
  if (!saving && std::strcmp(what, "load") != 0) return 2;
  Schema schema;
  describe(schema);
  const Tree tree(schema);
  if (!tree.inst) return 1;
  if (saving ? !fill(tree.inst) || qmibtree_save_config(tree.inst) != 0
             : qmibtree_load_config(tree.inst) != 0)
    return 1;
  std::printf("%s", document_of(tree.inst).c_str());
  return 0;
}
