// The host's side of the interface: records what the library tells it.
#ifndef QMIBTREE_TESTKIT_HOST_HH
#define QMIBTREE_TESTKIT_HOST_HH

#include <functional>
#include <string>
#include <vector>

#include "qmibtree.h"

namespace qmibtree_testkit {

// A call of mibtree_changed_callback2. The kit defines it, weakly: a program with a callback of its
// own keeps that, and may call record_change from it.
struct Change {
  qmibtree_inst_t* inst;
  qmibtree_node* node;
  std::string full_name;
  qmibtree_value_t value;  // the record handed over, bytes as they were; its storage may be gone
  std::string text;        // the node's value as text at the time of the call
};

// The calls since the last clear(), oldest first.
std::vector<Change>& changes();

// Runs inside each call, after it was recorded; its result is the callback's. Null: result 0.
std::function<uint32_t(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*)>& on_change();

// What the kit's mibtree_changed_callback2 does.
uint32_t record_change(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value);

// A value as text, by its type's to_buff; "" for a value without one.
std::string text_of(const qmibtree_value_t& value);

// What a read of the parameter gives, as text; "(<rc>)" for a failing read.
std::string read_text(qmibtree_inst_t* inst, const char* name);

// Unowned values of each type.
qmibtree_value_t int_value(int32_t i);
qmibtree_value_t uint_value(uint32_t u);
qmibtree_value_t bool_value(bool b);
qmibtree_value_t string_value(const char* text);
qmibtree_value_t base64_value(const void* bytes, uint32_t len);
qmibtree_value_t datetime_value(int32_t seconds);

// Renders with `fill`, counting first, into storage of just the right size.
std::string render(const std::function<uint32_t(qmibtree_buff_t*)>& fill);

// The configuration document of the whole tree; "(<rc>)" for a failure.
std::string document_of(qmibtree_inst_t* inst);

// Loads a document given as text; the load's result.
uint32_t load_document(qmibtree_inst_t* inst, const std::string& text, uint32_t flags = 0);

}  // namespace qmibtree_testkit

#endif
