// A sequence of calls on one tree. After each the tree is sound, and its parameters show what a
// list of names and texts does that is kept beside it. Input: a byte for each call, and what it
// takes.
#include <map>

#include "bytes.hh"
#include "plain.hh"
#include "small_tree.hh"

using namespace qmibtree_testkit;

namespace {

constexpr int kMaxCalls = 40;
constexpr size_t kMaxNodes = 150;

uint32_t count_call(qmibtree_inst_t*, qmibtree_node*, void* counter) {
  return ++*static_cast<uint32_t*>(counter), 0;
}

class Session {
 public:
  Session(const uint8_t* data, size_t size) : bytes_(data, size) {}

  void run() {
    refresh();
    shown_ = values();
    for (int call = 0; call < kMaxCalls && bytes_.left(); ++call) {
      (this->*kSteps[bytes_.below(std::size(kSteps))])();
      changes().clear();
      small_tree::free_blocks();
      refresh();
      small_tree::check_sound(tree_.inst, events_);
      FUZZ_CHECK(values() == shown_);
    }
  }

 private:
  using Values = std::map<std::string, std::string>;
  using Step = void (Session::*)();

  // --- what there is ---

  void refresh() { nodes_ = plain::nodes(tree_.inst); }

  std::string shown(qmibtree_node* node) const {
    qmibtree_value_t value = {};
    FUZZ_CHECK(qmibtree_read_by_node(tree_.inst, node, &value, 0) == QMIBTREE_RC_OK);
    return plain::value_text(value);
  }
  Values values() const {
    Values all;
    for (qmibtree_node* node : nodes_)
      if (is_param(node) && !is_dynamic(node)) all[node->fullName] = shown(node);
    return all;
  }
  static bool is_param(const qmibtree_node* node) { return node->flags & QMIBTREE_NODE_PARAM; }
  static bool is_dynamic(const qmibtree_node* node) {
    return node->uidinfo->flags & QMIBTREE_UID_DYNAMIC;
  }
  qmibtree_node* any_node() { return nodes_[static_cast<size_t>(bytes_.byte()) % nodes_.size()]; }
  uint32_t any_flags() { return bytes_.byte() & 0x1cu; }

  // Fails one of the next allocations, or none.
  void maybe_fail() {
    if (const uint32_t n = bytes_.below(16); n < 8) fail_allocation_after(static_cast<int>(n));
  }

  // --- trees ---

  void add() {
    constexpr uint32_t kWishes[] = {0, 0, 1, 2, 3, 5, 20, 999};
    qmibtree_node* const node = any_node();
    uint32_t number = kWishes[bytes_.below(std::size(kWishes))];
    const uint32_t right = bytes_.byte();
    const std::string name = node->fullName;
    if (nodes_.size() > kMaxNodes) return;
    maybe_fail();
    const uint32_t rc = bytes_.below(2)
                            ? qmibtree_add_object(tree_.inst, name.c_str(), &number, 0, right)
                            : qmibtree_add_object_by_node(tree_.inst, node, &number, 0, right);
    const bool struck = allocations_work();
    if (!plain::is_template(node)) FUZZ_CHECK(rc == QMIBTREE_RC_ERROR);
    if (QMIBTREE_FAILED(rc)) return;
    refresh();
    const qmibtree_node* const made = node->last_child;
    FUZZ_CHECK(made->instance == number && made->right == right);
    add_defaults(made, struck);
  }

  // The values of a new subtree, as the schema has them; where memory ran out, as they are.
  void add_defaults(const qmibtree_node* made, bool struck) {
    const std::string front = made->fullName;
    for (qmibtree_node* node : nodes_) {
      const std::string name = node->fullName;
      if (!is_param(node) || name.compare(0, front.size(), front) != 0) continue;
      const char* const text = node->uidinfo->defval;
      shown_[name] = struck ? shown(node)
                     : text ? plain::written_text(node->uidinfo->type, text).value()
                            : "";
    }
  }

  void del() {
    qmibtree_node* const node = any_node();
    const std::string name = node->fullName;
    const bool deletes = node->flags & QMIBTREE_NODE_INSTANCE;
    if (deletes && tree_.inst->notif->num > 0) events_ = Events::kMayBeGone;
    const uint32_t rc = bytes_.below(2) ? qmibtree_del_object(tree_.inst, name.c_str(), 0)
                                        : qmibtree_del_object_by_node(tree_.inst, node, 0);
    FUZZ_CHECK(rc == (deletes ? QMIBTREE_RC_OK : QMIBTREE_RC_ERROR));
    if (deletes)
      std::erase_if(shown_, [&](const auto& row) { return row.first.starts_with(name); });
  }

  // --- writes ---

  bool allowed(const qmibtree_node* node, uint32_t flags) const {
    if (node->uidinfo->flags & QMIBTREE_UID_READONLY) return flags == 0;
    return !(flags & QMIBTREE_WRITE_SUBSCRIBER) || (node->flags & QMIBTREE_NODE_ACCESS);
  }

  static bool host_takes(const qmibtree_node* node, const qmibtree_value_t& value) {
    if (node->uidinfo->set_fn == small_tree::set_number)
      return value.type != QMIBTREE_TYPE_INT || value.i != small_tree::kRefused;
    return node->uidinfo->set_fn != small_tree::set_dynamic || value.type == QMIBTREE_TYPE_UINT;
  }

  // What a write of `value` answers; `remark` where the host has one to make.
  uint32_t expected_rc(const qmibtree_node* node, const qmibtree_value_t& value,
                       uint32_t flags) const {
    if (!allowed(node, flags)) return QMIBTREE_RC_NOT_ALLOWED;
    if (!plain::in_bounds(*node->uidinfo, value)) return QMIBTREE_RC_OUT_OF_RANGE;
    if (!host_takes(node, value)) return QMIBTREE_RC_INVALID_VALUE;
    const bool remarkable = node->uidinfo->set_fn == small_tree::set_number &&
                            value.type == QMIBTREE_TYPE_INT && value.i == small_tree::kRemarkable;
    return remarkable ? small_tree::kRemark : QMIBTREE_RC_OK;
  }

  // Keeps what a write stored. Where memory ran out the value may be none.
  void note(qmibtree_node* node, uint32_t rc, const std::string& text, bool struck) {
    if (QMIBTREE_FAILED(rc) || is_dynamic(node)) return;
    shown_[node->fullName] = struck ? shown(node) : text;
  }

  // A value of the type whose parse of `text` it is.
  static qmibtree_value_t value_of(uint32_t type, const std::string& text) {
    switch (type) {
      case QMIBTREE_TYPE_INT:
        return int_value(static_cast<int32_t>(plain::decimal(text)));
      case QMIBTREE_TYPE_UINT:
        return uint_value(plain::decimal(text));
      case QMIBTREE_TYPE_BOOL:
        return bool_value(text == "1" || text == "true");
      case QMIBTREE_TYPE_DATETIME:
        return datetime_value(static_cast<int32_t>(plain::decimal(text)));
      case QMIBTREE_TYPE_BASE64:
        return base64_value(text.data(), static_cast<uint32_t>(text.size()));
      default:
        return string_value(text.c_str());
    }
  }

  void write_text() {
    qmibtree_node* const node = any_node();
    const uint32_t type = node->uidinfo->type;
    // Only where set_fn gets to see it can the block be freed that base64 is decoded into.
    const uint32_t flags = any_flags() & (type == QMIBTREE_TYPE_BASE64 ? 0x14u : ~0u);
    const bool two_pieces = bytes_.below(2);
    const std::string text = bytes_.text(), name = node->fullName;
    maybe_fail();
    const uint32_t rc = qmibtree_write_strvalue(tree_.inst, name.c_str(), text.c_str(), flags);
    const bool struck = allocations_work();
    const auto stored = plain::written_text(type, text);
    if (!stored) {
      FUZZ_CHECK(rc == (is_param(node) ? QMIBTREE_RC_ERROR : QMIBTREE_RC_NOT_ALLOWED));
      return;
    }
    const std::string bytes =
        type == QMIBTREE_TYPE_BASE64 ? plain::decoded(text).value_or("") : text;
    FUZZ_CHECK(rc == expected_rc(node, value_of(type, bytes), flags));
    note(node, rc, *stored, struck);
    if (two_pieces && !struck) compare_in_two_pieces(node, bytes, rc);
  }

  void compare_in_two_pieces(qmibtree_node* node, const std::string& text, uint32_t rc) {
    if (QMIBTREE_FAILED(rc) || text.empty()) return;  // bytes without a block are not none
    const qmibtree_value_t value = value_of(node->uidinfo->type, text);
    const std::string front = node->parent->fullName;
    FUZZ_CHECK(qmibtree_compare_v2(tree_.inst, front.c_str(), node->name, &value, 0) ==
               QMIBTREE_RC_OK);
  }

  void write_value() {
    qmibtree_node* const node = any_node();
    const uint32_t type = 2 + bytes_.below(6), flags = any_flags();
    const std::string text = bytes_.text();
    if (!is_param(node)) return;
    const qmibtree_value_t value = value_of(type, text);
    small_tree::host().takes_blocks = false;
    maybe_fail();
    const uint32_t rc = qmibtree_write_by_node(tree_.inst, node, &value, flags);
    const bool struck = allocations_work();
    small_tree::host().takes_blocks = true;
    FUZZ_CHECK(rc == expected_rc(node, value, flags));
    note(node, rc, plain::value_text(value), struck);
  }

  // Newest first, and no further than to the first that refuses: read back where memory runs out.
  void write_by_uid() {
    const uint32_t uid = bytes_.below(small_tree::schema().size() + 1);
    const std::string text = bytes_.text();
    const uint32_t rc = qmibtree_write_strvalue_by_uniqueid(tree_.inst, uid, text.c_str(), 0);
    const uint32_t type = uid < small_tree::schema().size() ? small_tree::schema().record(uid).type
                                                            : QMIBTREE_TYPE_OBJECT;
    const auto stored = plain::written_text(type, text);
    for (qmibtree_node* node : nodes_)
      if (node->uidinfo->uid == uid && stored) note(node, rc, *stored, false);
  }

  // --- attributes, events ---

  void attributes() {
    qmibtree_node* const node = any_node();
    const uint32_t wanted = bytes_.below(32);
    uint32_t before = 0, after = 0;
    qmibtree_get_attr_by_node(tree_.inst, node, &before);
    FUZZ_CHECK(qmibtree_set_attr_by_node(tree_.inst, node, wanted) == QMIBTREE_RC_OK);
    qmibtree_get_attr_by_node(tree_.inst, node, &after);
    const auto first_of = [&](uint32_t group) {  // the lowest bit that is wanted, else as it was
      const uint32_t bits = wanted & group;
      return bits ? bits & (~bits + 1) : before & group;
    };
    FUZZ_CHECK(after == (first_of(7) | first_of(24)));
  }

  void notify() { qmibtree_notify(tree_.inst, any_node()->fullName, 0); }

  void drain() {
    for (uint32_t left = bytes_.below(8); left > 0; --left)
      qmibtree_notif_deq_event(tree_.inst->notif);
  }

  void drop_event() {
    if (tree_.inst->notif->num > 0) events_ = Events::kMayBeGone;
    qmibtree_notif_del_event_by_name(tree_.inst, any_node()->fullName);
  }

  void empty_queue() {
    qmibtree_notif_cleanup(tree_.inst->notif);
    events_ = Events::kExact;
  }

  // --- walks ---

  void walk() {
    qmibtree_node* const node = any_node();
    uint32_t count = 0, below = 0;
    qmibtree_dump(tree_.inst, node->fullName, nullptr, 99, qmibtree_dump_calc_node_num, &count);
    for (const qmibtree_node* other : nodes_)
      for (const qmibtree_node* above = other; above; above = above->parent) below += above == node;
    FUZZ_CHECK(count == below);
    count = 0;
    qmibtree_loop_by_node(tree_.inst, node, count_call, &count);
    FUZZ_CHECK(count == node->childnum);
    count = below = 0;
    qmibtree_lookup(tree_.inst, nullptr, node->uidinfo->uid, count_call, &count);
    for (const qmibtree_node* other : nodes_)
      below += other->uidinfo == node->uidinfo && !plain::is_template(other);
    FUZZ_CHECK(count == below);
  }

  void list() {
    const std::string listing = render([&](qmibtree_buff_t* buff) {
      return qmibtree_dump(tree_.inst, nullptr, buff, 99, qmibtree_dump_dbg, nullptr);
    });
    for (qmibtree_node* node : nodes_) {
      if (!is_param(node)) continue;
      const std::string type = qmibtree_datatype_get_type_str(node->uidinfo->type);
      const std::string line = node->fullName + (" (" + type + ") = ") + shown(node);
      FUZZ_CHECK(listing.find(line) != listing.npos);
    }
  }

  // --- documents ---

  void save() {
    qmibtree_node* const node = any_node();
    FUZZ_CHECK(render([&](qmibtree_buff_t* buff) {
                 return qmibtree_xml_dump_config(tree_.inst, node->fullName, buff, 0);
               }) == plain::document(tree_.inst, node));
    saved_ = document_of(tree_.inst);
  }

  // The last document that was saved, perhaps cut, perhaps without the memory for it.
  void load() {
    const std::string document = saved_.substr(0, saved_.size() - bytes_.byte() % 40u);
    if (nodes_.size() > kMaxNodes) return;
    maybe_fail();
    load_document(tree_.inst, document, bytes_.below(2) ? QMIBTREE_WRITE_APPLY : 0);
    allocations_work();
    refresh();
    shown_ = values();
  }

  static constexpr Step kSteps[] = {
      &Session::add,        &Session::add,         &Session::del,          &Session::write_text,
      &Session::write_text, &Session::write_value, &Session::write_by_uid, &Session::attributes,
      &Session::notify,     &Session::drain,       &Session::drop_event,   &Session::empty_queue,
      &Session::walk,       &Session::list,        &Session::save,         &Session::load};

  Bytes bytes_;
  Tree tree_{small_tree::schema()};
  Events events_ = Events::kExact;
  std::vector<qmibtree_node*> nodes_;
  Values shown_;  // of each parameter that the tree keeps
  std::string saved_ = "<A.></A.>" + std::string(40, ' ');
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const small_tree::Run run;
  Session(data, size).run();
  return 0;
}
