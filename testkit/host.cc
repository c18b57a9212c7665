#include "qmibtree_testkit/host.hh"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace qmibtree_testkit {

std::vector<Change>& changes() {
  static auto* const calls = new std::vector<Change>;
  return *calls;
}

std::function<uint32_t(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*)>& on_change() {
  static auto* const hook =
      new std::function<uint32_t(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*)>;
  return *hook;
}

namespace {

Host* the_host = nullptr;  // the one there is, which the hooks serve

void forget_everything() {
  changes().clear();
  on_change() = nullptr;
  qmibtree_comp_unmark_all();
}

// A value that refers to `bytes` where it had storage of its own.
qmibtree_value_t over(const std::string& bytes, qmibtree_value_t value) {
  value.owned = 0;
  if (value.type == QMIBTREE_TYPE_STRING && value.str) value.str = bytes.c_str();
  if (value.type == QMIBTREE_TYPE_BASE64 && value.data)
    value.data = reinterpret_cast<const uint8_t*>(bytes.data());
  return value;
}

std::string storage_of(const qmibtree_value_t& value) {
  if (value.type == QMIBTREE_TYPE_STRING && value.str) return value.str;
  if (value.type == QMIBTREE_TYPE_BASE64 && value.data)
    return {reinterpret_cast<const char*>(value.data), value.len};
  return {};
}

bool has_node(const qmibtree_node* below, const qmibtree_node* node) {
  if (below == node) return true;
  for (const qmibtree_node* child = below->first_child; child; child = child->next)
    if (has_node(child, node)) return true;
  return false;
}

}  // namespace

Host::Host() {
  if (the_host) {
    std::fputs("qmibtree_testkit: there is a Host already\n", stderr);
    std::abort();
  }
  the_host = this;
  forget_everything();
}

Host::~Host() {
  for (const auto& [record, own] : own_) {
    record->create_fn = own.create_fn;
    record->destroy_fn = own.destroy_fn;
    record->set_fn = own.set_fn;
    record->get_fn = own.get_fn;
  }
  forget_everything();
  the_host = nullptr;
}

void Host::watch(qmibtree_uidinfo_t& record, unsigned hooks) {
  own_.emplace(&record, record);  // the first time: later it is no longer as it was
  if (hooks & kCreate) record.create_fn = create;
  if (hooks & kDestroy) record.destroy_fn = destroy;
  if (hooks & kSet) record.set_fn = set;
  if (hooks & kGet) record.get_fn = get;
}

void Host::answer_set(const std::string& full_name, uint32_t rc) { set_answers_[full_name] = rc; }

void Host::answer_get(const std::string& full_name, const qmibtree_value_t& value, uint32_t rc) {
  get_answers_[full_name] = {rc, value, storage_of(value)};
}

void Host::record(const char* hook, const qmibtree_node* node, const std::string& rest) {
  calls.push_back(std::string(hook) + " " + node->fullName + rest);
}

const qmibtree_uidinfo_t& Host::own(const qmibtree_node* node) const {
  return own_.at(node->uidinfo);
}

uint32_t Host::create(qmibtree_inst_t* inst, qmibtree_node* node) {
  the_host->record("create", node);
  const qmibtree_node_fn_t own = the_host->own(node).create_fn;
  return own ? own(inst, node) : 0;
}

uint32_t Host::destroy(qmibtree_inst_t* inst, qmibtree_node* node) {
  the_host->record("destroy", node);
  const qmibtree_node_fn_t own = the_host->own(node).destroy_fn;
  return own ? own(inst, node) : 0;
}

uint32_t Host::set(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  the_host->record("set", node, "=" + text_of(*value));
  const auto answer = the_host->set_answers_.find(node->fullName);
  if (answer != the_host->set_answers_.end()) return answer->second;
  const qmibtree_set_fn_t own = the_host->own(node).set_fn;
  return own ? own(inst, node, value) : 0;
}

uint32_t Host::get(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value,
                   uint32_t flags) {
  uint32_t rc = 0;
  const auto answer = the_host->get_answers_.find(node->fullName);
  if (answer != the_host->get_answers_.end()) {
    rc = answer->second.rc;
    *value = over(answer->second.bytes, answer->second.value);
  } else if (const qmibtree_get_fn_t own = the_host->own(node).get_fn) {
    rc = own(inst, node, value, flags);
  }
  the_host->record("get", node,
                   QMIBTREE_FAILED(rc) ? " (" + std::to_string(rc) + ")" : "=" + text_of(*value));
  return rc;
}

void register_component(uint32_t id) {
  qmibtree_comp_register(id, 0, nullptr, nullptr, nullptr, nullptr);
}

std::vector<uint32_t> marked_components() {
  std::vector<uint32_t> marked;
  for (uint32_t id = 0; id < QMIBTREE_COMP_MAX; ++id)
    if (qmibtree_comp_chk_mark(id, UINT32_MAX)) marked.push_back(id);
  return marked;
}

std::vector<std::string> drain_events(qmibtree_inst_t* inst) {
  std::vector<std::string> names;
  while (inst->notif->num > 0) {
    const qmibtree_node* const node = qmibtree_notif_deq_event(inst->notif);
    names.emplace_back(has_node(inst->root, node) ? node->fullName : "(gone)");
  }
  std::reverse(names.begin(), names.end());
  return names;
}

std::string render(const std::function<uint32_t(qmibtree_buff_t*)>& fill) {
  qmibtree_buff_t counted = {};
  if (const uint32_t rc = fill(&counted); QMIBTREE_FAILED(rc))
    return "(" + std::to_string(rc) + ")";
  std::string text(counted.size + 1, '\0');
  qmibtree_buff_t buff = {text.data(), text.data(), counted.size + 1, counted.size + 1};
  if (const uint32_t rc = fill(&buff); QMIBTREE_FAILED(rc)) return "(" + std::to_string(rc) + ")";
  text.resize(static_cast<size_t>(buff.pos - buff.start));
  return text;
}

std::string text_of(const qmibtree_value_t& value) {
  const qmibtree_datafn_t* const fn = qmibtree_datatype_get_datafn(value.type);
  if (!fn->to_buff) return "";
  return render([&](qmibtree_buff_t* buff) { return fn->to_buff(&value, buff); });
}

std::string read_text(qmibtree_inst_t* inst, const char* name) {
  qmibtree_value_t value = {};
  const uint32_t rc = qmibtree_read(inst, name, &value, 0);
  return QMIBTREE_FAILED(rc) ? "(" + std::to_string(rc) + ")" : text_of(value);
}

namespace {
qmibtree_value_t value_of_type(uint32_t type) {
  qmibtree_value_t value = {};
  value.type = type;
  return value;
}
}  // namespace

qmibtree_value_t int_value(int32_t i) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_INT);
  value.i = i;
  return value;
}

qmibtree_value_t uint_value(uint32_t u) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_UINT);
  value.u = u;
  return value;
}

qmibtree_value_t bool_value(bool b) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_BOOL);
  value.b = b ? 1 : 0;
  return value;
}

qmibtree_value_t string_value(const char* text) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_STRING);
  value.str = text;
  return value;
}

qmibtree_value_t base64_value(const void* bytes, uint32_t len) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_BASE64);
  value.data = static_cast<const uint8_t*>(bytes);
  value.len = len;
  return value;
}

qmibtree_value_t datetime_value(int32_t seconds) {
  qmibtree_value_t value = value_of_type(QMIBTREE_TYPE_DATETIME);
  value.t = seconds;
  return value;
}

std::string document_of(qmibtree_inst_t* inst) {
  return render(
      [&](qmibtree_buff_t* buff) { return qmibtree_xml_dump_config(inst, nullptr, buff, 0); });
}

uint32_t load_document(qmibtree_inst_t* inst, const std::string& text, uint32_t flags) {
  std::string copy = text;
  qmibtree_buff_t buff = {copy.data(), copy.data(), static_cast<uint32_t>(copy.size() + 1),
                          static_cast<uint32_t>(copy.size())};
  return qmibtree_xml_load(inst, &buff, flags);
}

}  // namespace qmibtree_testkit

extern "C" {

uint32_t __real_mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                          qmibtree_value_t* value);
uint32_t __wrap_mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                          qmibtree_value_t* value);

uint32_t __wrap_mibtree_changed_callback2(qmibtree_inst_t* inst, qmibtree_node* node,
                                          qmibtree_value_t* value) {
  using namespace qmibtree_testkit;
  changes().push_back({inst, node, node->fullName, *value, text_of(node->value)});
  return on_change() ? on_change()(inst, node, value)
                     : __real_mibtree_changed_callback2(inst, node, value);
}

}  // extern "C"
