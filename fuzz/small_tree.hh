// The tree that the library's targets work on: a parameter of each type and each rule of saving,
// tables in tables, and a host whose hooks store, refuse and count.
#pragma once
#include <vector>

#include "input.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/checker.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

namespace small_tree {

constexpr uint32_t kDynamicAtFirst = 3;
constexpr int32_t kRefused = 13, kRemarkable = 14;
constexpr uint32_t kRemark = 3;

// What the host keeps.
struct Host {
  uint32_t dynamic = kDynamicAtFirst;  // the value of the parameters that it owns
  int instances = 0;                   // told of by create_fn, and not yet by destroy_fn
  bool takes_blocks = true;            // base64 values that set_fn sees come from texts
  std::vector<const uint8_t*>
      blocks;  // that base64 texts were decoded into; nobody else frees them
};

inline Host& host() {
  static Host the_host;
  return the_host;
}

inline void free_blocks() {
  for (const uint8_t* block : host().blocks) qfree(const_cast<uint8_t*>(block));
  host().blocks.clear();
}

inline uint32_t instance_made(qmibtree_inst_t*, qmibtree_node*) { return ++host().instances, 0; }
inline uint32_t instance_goes(qmibtree_inst_t*, qmibtree_node*) { return --host().instances, 0; }

inline uint32_t get_dynamic(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = qmibtree_testkit::uint_value(host().dynamic);
  return 0;
}

inline uint32_t set_dynamic(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
  if (value->type != QMIBTREE_TYPE_UINT) return QMIBTREE_RC_INVALID_VALUE;
  host().dynamic = value->u;
  return 0;
}

inline uint32_t set_number(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
  if (value->type != QMIBTREE_TYPE_INT) return 0;
  if (value->i == kRefused) return QMIBTREE_RC_INVALID_VALUE;
  return value->i == kRemarkable ? kRemark : 0;
}

inline uint32_t set_bytes(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value) {
  if (host().takes_blocks && value->type == QMIBTREE_TYPE_BASE64 && value->data)
    host().blocks.push_back(value->data);
  return 0;
}

inline qmibtree_testkit::Schema& schema() {
  static auto* const the_schema = [] {
    auto* const made = new qmibtree_testkit::Schema;
    qmibtree_testkit::Schema& s = *made;
    s.add(0, "A.");
    qmibtree_uidinfo_t& number =
        s.add(1, "i", QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE | QMIBTREE_UID_NOTIF_DEFAULT, "5");
    number.int_min = -50;
    number.int_max = 1000;
    number.set_fn = set_number;
    s.add(1, "u", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE_MODIFIED, "3");
    s.add(1, "s", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "abc").max_len = 12;
    s.add(1, "t", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE_MODIFIED, "");
    s.add(1, "k", QMIBTREE_TYPE_BASE64, QMIBTREE_UID_SAVE).set_fn = set_bytes;
    s.add(1, "b", QMIBTREE_TYPE_BOOL, QMIBTREE_UID_SAVE | QMIBTREE_UID_NOTIF_FORCED, "1");
    s.add(1, "d", QMIBTREE_TYPE_DATETIME, QMIBTREE_UID_SAVE, "2001-02-03T04:05:06");
    s.add(1, "ro", QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE | QMIBTREE_UID_READONLY, "1");
    qmibtree_uidinfo_t& dynamic =
        s.add(1, "dyn", QMIBTREE_TYPE_UINT, QMIBTREE_UID_SAVE | QMIBTREE_UID_DYNAMIC);
    dynamic.get_fn = get_dynamic;
    dynamic.set_fn = set_dynamic;
    s.add(1, "x", QMIBTREE_TYPE_INT, 0, "0");  // never saved but for its attributes
    s.add(1, "O.");
    s.add(2, "s", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE_MODIFIED, "none");
    qmibtree_uidinfo_t& table = s.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    table.create_fn = instance_made;
    table.destroy_fn = instance_goes;
    s.add(2, "n", QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE, "7");
    s.add(2, "k", QMIBTREE_TYPE_BASE64, QMIBTREE_UID_SAVE_MODIFIED).set_fn = set_bytes;
    s.add(2, "W.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    s.add(3, "v", QMIBTREE_TYPE_BOOL, QMIBTREE_UID_SAVE_MODIFIED, "false");
    s.add(3, "w", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE_MODIFIED | QMIBTREE_UID_NOTIF_DEFAULT,
          "w");
    return made;
  }();
  return *the_schema;
}

inline void check_sound(const qmibtree_inst_t* inst,
                        qmibtree_testkit::Events events = qmibtree_testkit::Events::kExact) {
  const auto problems = qmibtree_testkit::problems_of(inst, events);
  for (const std::string& problem : problems) std::fprintf(stderr, "%s\n", problem.c_str());
  FUZZ_CHECK(problems.empty());
}

// One input's run: begins with a host as it is at first, and ends with nothing left behind.
class Run {
 public:
  Run() {
    host() = {};
    qmibtree_testkit::changes().clear();
  }
  ~Run() {
    qmibtree_testkit::allocations_work();
    free_blocks();
    qmibtree_testkit::changes().clear();
    FUZZ_CHECK(qmibtree_testkit::live_blocks() == live_);
    FUZZ_CHECK(host().instances == 0);
  }
  Run(const Run&) = delete;

 private:
  const int live_ = qmibtree_testkit::live_blocks();
};

}  // namespace small_tree
