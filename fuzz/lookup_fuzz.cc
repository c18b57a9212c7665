// Full names, whole and in two pieces, through every function that takes one, against a map of the
// names of all nodes. Input: two pieces of a name, made of a node's name and of bytes.
#include <map>

#include "bytes.hh"
#include "plain.hh"
#include "small_tree.hh"

using namespace qmibtree_testkit;

namespace {

constexpr uint32_t kUnknown = QMIBTREE_RC_NOT_FOUND;

// Full names on both sides of the 511 characters that a joined name has.
Schema& schema() {
  static auto* const the_schema = [] {
    static const std::string object = std::string(126, 'o') + ".", last(129, 'p'), beyond(130, 'p');
    auto* const made = new Schema;
    made->add(0, "A.");
    made->add(1, "s", QMIBTREE_TYPE_STRING, 0, "abc");
    made->add(1, "i", QMIBTREE_TYPE_INT, QMIBTREE_UID_NOTIF_DEFAULT, "5");
    made->add(1, "\xc3\xa4", QMIBTREE_TYPE_INT, 0, "6");
    made->add(1, "", QMIBTREE_TYPE_BOOL, 0, "1");  // of its parent's full name, and newer
    made->add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    made->add(2, "n", QMIBTREE_TYPE_INT, 0, "1");
    for (int depth = 1; depth <= 4; ++depth) {
      made->add(depth, object.c_str());
      if (depth == 3) made->add(4, last.c_str(), QMIBTREE_TYPE_INT, 0, "1");
      if (depth == 3) made->add(4, beyond.c_str(), QMIBTREE_TYPE_INT, 0, "2");
    }
    made->add(5, "n", QMIBTREE_TYPE_INT, 0, "3");
    for (uint32_t uid = 0; uid < made->size(); ++uid) made->record(uid).arg = 100 + uid;
    return made;
  }();
  return *the_schema;
}

using Names = std::map<std::string, qmibtree_node*>;

// A node's name, cut in two, with bytes in between and behind; or bytes alone.
std::pair<std::string, std::string> pieces_of(Bytes& bytes, const Names& names) {
  const uint32_t which = bytes.below(static_cast<uint32_t>(names.size()) + 1);
  std::string name;
  if (which < names.size()) name = std::next(names.begin(), which)->first;
  const size_t cut = std::min<size_t>(name.size(), bytes.byte() * 3u);
  const std::string between = bytes.text(), behind = bytes.text();
  return {name.substr(0, cut) + between, name.substr(cut) + behind};
}

uint32_t count_call(qmibtree_inst_t*, qmibtree_node*, void* counter) {
  return ++*static_cast<uint32_t*>(counter), 0;
}

uint32_t count_enter(qmibtree_inst_t*, qmibtree_node*, void*, int32_t, void* counter,
                     uint32_t phase) {
  return *static_cast<uint32_t*>(counter) += phase == QMIBTREE_PHASE_ENTER, 0;
}

bool is_param(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_PARAM; }

// A name that a function is handed whole, or in two pieces, and the node that it names.
struct Named {
  qmibtree_inst_t* inst;
  const char *prefix, *suffix;  // suffix null: whole
  qmibtree_node* expected;

  template <typename Whole, typename Joined>
  auto call(Whole whole, Joined in_two) const {
    return suffix ? in_two() : whole();
  }

  void find() const {
    FUZZ_CHECK(expected ==
               call([&] { return qmibtree_find_node_by_name(inst, prefix); },
                    [&] { return qmibtree_find_node_by_name_v2(inst, prefix, suffix); }));
    FUZZ_CHECK((expected ? expected->arg : 0) ==
               call([&] { return qmibtree_get_arg(inst, prefix); },
                    [&] { return qmibtree_get_arg_v2(inst, prefix, suffix); }));
  }

  void write_and_read() const {
    const qmibtree_value_t value = int_value(77);
    const uint32_t written =
        call([&] { return qmibtree_write(inst, prefix, &value, QMIBTREE_WRITE_APPLY); },
             [&] { return qmibtree_write_v2(inst, prefix, suffix, &value, QMIBTREE_WRITE_APPLY); });
    FUZZ_CHECK(written == (expected ? QMIBTREE_RC_OK : kUnknown));
    qmibtree_value_t read = {};
    FUZZ_CHECK(written == call([&] { return qmibtree_read(inst, prefix, &read, 0); },
                               [&] { return qmibtree_read_v2(inst, prefix, suffix, &read, 0); }));
    if (expected) FUZZ_CHECK(read.type == QMIBTREE_TYPE_INT && read.i == 77);
    FUZZ_CHECK(written ==
               call([&] { return qmibtree_compare(inst, prefix, &value, 0); },
                    [&] { return qmibtree_compare_v2(inst, prefix, suffix, &value, 0); }));
  }

  void notify() const {
    const uint32_t rc = call([&] { return qmibtree_notify(inst, prefix, 0); },
                             [&] { return qmibtree_notify_v2(inst, prefix, suffix, 0); });
    FUZZ_CHECK(rc == (expected ? QMIBTREE_RC_OK : kUnknown));
    const bool queued = expected && (expected->flags & QMIBTREE_NODE_NOTIF_ACTIVE);
    FUZZ_CHECK(qmibtree_notif_deq_event(inst->notif) == (queued ? expected : nullptr));
  }

  void loop() const {
    uint32_t calls = 0;
    const uint32_t rc =
        call([&] { return qmibtree_loop(inst, prefix, count_call, &calls); },
             [&] { return qmibtree_loop_v2(inst, prefix, suffix, count_call, &calls); });
    const uint32_t on_node = expected && is_param(expected) ? QMIBTREE_RC_ERROR : QMIBTREE_RC_OK;
    FUZZ_CHECK(rc == (expected ? on_node : kUnknown));
    FUZZ_CHECK(calls == (expected ? expected->childnum : 0));
  }
};

// The functions that take a whole name only.
void check_whole_name(qmibtree_inst_t* inst, const char* name, qmibtree_node* expected) {
  const uint32_t found = expected ? QMIBTREE_RC_OK : kUnknown;
  FUZZ_CHECK(qmibtree_get_childnum(inst, name) ==
             (expected ? static_cast<int32_t>(expected->childnum) : -1));
  uint32_t attr = 0, calls = 0;
  FUZZ_CHECK(qmibtree_set_attr(inst, name, QMIBTREE_ATTR_NOTIF_PASSIVE) == found);
  FUZZ_CHECK(qmibtree_get_attr(inst, name, &attr) == found);
  FUZZ_CHECK(attr == (expected ? QMIBTREE_ATTR_NOTIF_PASSIVE | QMIBTREE_ATTR_ACCESS_NONE : 0));
  FUZZ_CHECK(qmibtree_dump(inst, name, nullptr, 1, count_enter, &calls) == found);
  const bool is_param_name = expected && is_param(expected);
  FUZZ_CHECK(qmibtree_write_strvalue(inst, name, "1", 0) ==
             (is_param_name || !expected ? found : QMIBTREE_RC_NOT_ALLOWED));
  FUZZ_CHECK(calls == (expected ? 1 : 0));
  qmibtree_buff_t buff = {};
  FUZZ_CHECK(qmibtree_xml_dump_config(inst, name, &buff, 0) == found);
  calls = 0;
  const bool looked_up = expected && !plain::is_template(expected);
  qmibtree_lookup(inst, name, expected ? expected->uidinfo->uid : 1, count_call, &calls);
  FUZZ_CHECK(calls == (looked_up ? 1 : 0));
}

// An instance more and again one less: all that there was is found as before.
void check_objects(qmibtree_inst_t* inst, const char* name, qmibtree_node* expected) {
  uint32_t number = 0;
  const bool adds = expected && plain::is_template(expected);
  const uint32_t refused = expected ? QMIBTREE_RC_ERROR : kUnknown;
  FUZZ_CHECK(qmibtree_add_object(inst, name, &number, 0, 255) == (adds ? QMIBTREE_RC_OK : refused));
  if (adds) {
    const std::string added = name + plain::instance_segment(number);
    FUZZ_CHECK(qmibtree_find_node_by_name(inst, added.c_str()) == expected->last_child);
    FUZZ_CHECK(qmibtree_del_object(inst, added.c_str(), 0) == QMIBTREE_RC_OK);
    FUZZ_CHECK(!qmibtree_find_node_by_name(inst, added.c_str()));
  }
  const bool deletes = expected && (expected->flags & QMIBTREE_NODE_INSTANCE);
  FUZZ_CHECK(qmibtree_del_object(inst, name, 0) == (deletes ? QMIBTREE_RC_OK : refused));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const small_tree::Run run;
  Tree tree(schema());
  for (uint32_t wish : {1, 20, 999}) qmibtree_add_object(tree.inst, "A.T.", &wish, 0, 255);
  Names names;  // parents come first: of one name, the newer node replaces the older
  for (qmibtree_node* node : plain::nodes(tree.inst)) names[node->fullName] = node;
  const auto find = [&](const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? nullptr : found->second;
  };

  Bytes bytes(data, size);
  const auto [prefix, suffix] = pieces_of(bytes, names);
  const std::string whole = prefix + suffix;
  const Named named[] = {
      {tree.inst, whole.c_str(), nullptr, find(whole)},
      {tree.inst, prefix.c_str(), suffix.c_str(), find(plain::joined(prefix, suffix))}};
  for (const Named& name : named) {
    name.find();
    name.notify();
    name.loop();
    if (!name.expected || is_param(name.expected)) name.write_and_read();
  }
  check_whole_name(tree.inst, whole.c_str(), find(whole));
  check_objects(tree.inst, whole.c_str(), find(whole));
  small_tree::check_sound(tree.inst, Events::kMayBeGone);
  return 0;
}
