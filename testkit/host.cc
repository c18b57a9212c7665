#include "qmibtree_testkit/host.hh"

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

uint32_t record_change(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  changes().push_back({inst, node, node->fullName, *value, text_of(node->value)});
  return on_change() ? on_change()(inst, node, value) : 0;
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

// Weak: a host whose own callback is linked in keeps it.
extern "C" __attribute__((weak)) uint32_t mibtree_changed_callback2(qmibtree_inst_t* inst,
                                                                    qmibtree_node* node,
                                                                    qmibtree_value_t* value) {
  return qmibtree_testkit::record_change(inst, node, value);
}
