// The host's side of the interface, faked: records what the library tells it, and answers what the
// test wants.
#ifndef QMIBTREE_TESTKIT_HOST_HH
#define QMIBTREE_TESTKIT_HOST_HH

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qmibtree.h"

namespace qmibtree_testkit {

// A call of mibtree_changed_callback2, as the library makes it.
struct Change {
  qmibtree_inst_t* inst;
  qmibtree_node* node;
  std::string full_name;
  qmibtree_value_t value;  // the record handed over, bytes as they were; its storage may be gone
  std::string text;        // the node's value as text at the time of the call
};

// The calls since the last clear(), oldest first. They are recorded on their way to the callback of
// the host under test; a program without one needs none.
std::vector<Change>& changes();

// Takes the place of the host's own callback, unless null.
std::function<uint32_t(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*)>& on_change();

// Hooks of schema records, for Host::watch.
enum Hooks : unsigned { kCreate = 0x1, kDestroy = 0x2, kSet = 0x4, kGet = 0x8 };

// The fake host of one test: it begins and ends with no call recorded, nothing in on_change() and
// no component marked.
//
//   Schema schema = door_schema();
//   Host host;                     // behind the schema, and before the tree is built
//   host.watch(schema.record(kLock), kCreate | kSet);
//   host.answer_set("Door.Lock", QMIBTREE_RC_INVALID_VALUE);
//   Tree tree(schema);
//   qmibtree_write_strvalue(tree.inst, "Door.Lock", "open", 0);
//   EXPECT_EQ(host.calls, (std::vector<std::string>{"create Door.Lock", "set Door.Lock=open"}));
//
// There is one at a time. The schema must outlive it: records get their hooks back at its end.
class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Records the calls of these hooks (of Hooks, joined by |), and hands them on to the hook that
  // the record had, if it had one. What it had not, it has from now on: a hook that answers 0.
  void watch(qmibtree_uidinfo_t& record, unsigned hooks);

  // What the watched hook of the parameter of this full name answers, in place of the record's own.
  // The value is copied, text and bytes included; a read gives it unowned.
  void answer_set(const std::string& full_name, uint32_t rc);
  void answer_get(const std::string& full_name, const qmibtree_value_t& value, uint32_t rc = 0);

  // The recorded calls, oldest first: "create A.T.1.", "destroy A.T.1.", "set A.Name=home" with the
  // new value, "get A.Up=7" with the answer, "get A.Up (32)" with a failure. Clear it at any time.
  std::vector<std::string> calls;

 private:
  struct Answer {
    uint32_t rc;
    qmibtree_value_t value;
    std::string bytes;  // the value's storage
  };
  static uint32_t create(qmibtree_inst_t* inst, qmibtree_node* node);
  static uint32_t destroy(qmibtree_inst_t* inst, qmibtree_node* node);
  static uint32_t set(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value);
  static uint32_t get(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                      uint32_t flags);
  void record(const char* hook, const qmibtree_node* node, const std::string& rest = "");
  const qmibtree_uidinfo_t& own(const qmibtree_node* node) const;

  std::map<qmibtree_uidinfo_t*, qmibtree_uidinfo_t> own_;  // the watched records as they were
  std::map<std::string, uint32_t> set_answers_;
  std::map<std::string, Answer> get_answers_;
};

// Makes component `id` known, without actions: only a component that is known can be marked.
void register_component(uint32_t id);

// The components that are marked now, in any way.
std::vector<uint32_t> marked_components();

// Empties the tree's event queue; the full names of its nodes, oldest event first. "(gone)" stands
// for an event whose node is not in the tree.
std::vector<std::string> drain_events(qmibtree_inst_t* inst);

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
