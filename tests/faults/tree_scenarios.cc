// The tree: built and destroyed, read and written, walked, dumped and loaded.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"
#include "scene.hh"

using namespace qmibtree_testkit;

namespace {

// --- the model, and a host that counts ---

int hooks_alive;  // calls of create_fn that no destroy_fn has answered

uint32_t created(qmibtree_inst_t*, qmibtree_node*) { return ++hooks_alive, QMIBTREE_RC_OK; }
uint32_t destroyed(qmibtree_inst_t*, qmibtree_node*) { return --hooks_alive, QMIBTREE_RC_OK; }

// The host's own value: a new text with each read, which is the reader's to release.
uint32_t get_live(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = string_value(CALL(qstrdup)("up", "live"));
  value->owned = 1;
  return value->str ? QMIBTREE_RC_OK : QMIBTREE_RC_NO_RESOURCE;
}

// The value is the tree's from the first read on.
uint32_t get_once(qmibtree_inst_t*, qmibtree_node* node, qmibtree_value_t* value, uint32_t) {
  node->uidinfo->flags &= ~QMIBTREE_UID_DYNAMIC;
  *value = string_value("once");
  return QMIBTREE_RC_OK;
}

//   R.Text  R.Data  R.Number  R.Port.{i}.Name  R.Port.{i}.Rule.{i}.On
struct Model : Schema {
  enum Uid : uint32_t { kRoot, kText, kData, kNumber, kPort, kName, kRule, kOn };

  Model() {
    add(0, "R.");
    add(1, "Text", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE | QMIBTREE_UID_NOTIF_DEFAULT, "t").comp =
        3;
    add(1, "Data", QMIBTREE_TYPE_BASE64, QMIBTREE_UID_SAVE);
    add(1, "Number", QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE, "5");
    add(1, "Port.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(2, "Name", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "p");
    add(2, "Rule.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    add(3, "On", QMIBTREE_TYPE_BOOL, 0, "true");
    for (uint32_t uid = 0; uid < size(); ++uid) {
      record(uid).create_fn = created;
      record(uid).destroy_fn = destroyed;
    }
  }
};

constexpr uint8_t kBytes[] = {1, 2, 3};  // AQID

bool is_template(const qmibtree_node* node) {
  return (node->uidinfo->flags & QMIBTREE_UID_MULTI) && !(node->flags & QMIBTREE_NODE_INSTANCE);
}

int hooked_nodes(const qmibtree_node* node) {
  int count = is_template(node) ? 0 : 1;
  for (const qmibtree_node* child = node->first_child; child; child = child->next)
    count += hooked_nodes(child);
  return count;
}

// A value and what it is by default.
std::string both_values(const qmibtree_node* node) {
  return text_of(node->value) + "/" + text_of(node->default_value);
}

// All values below a node, in order; nothing for numbers and flags, which need no memory.
std::string values_below(const qmibtree_node* node) {
  std::string all;
  for (const qmibtree_node* child = node->first_child; child; child = child->next) {
    const uint32_t type = child->uidinfo->type;
    if (type == QMIBTREE_TYPE_STRING || type == QMIBTREE_TYPE_BASE64)
      all.append(" ").append(both_values(child));
    else
      all += values_below(child);
  }
  return all;
}

// Every node that create_fn was called for is there, and no other.
std::string hooks_in_step(const qmibtree_node* root) {
  return hooks_alive == (root ? hooked_nodes(root) : 0) ? "" : ", hooks out of step";
}

class TreeScene : public Scene {
 public:
  TreeScene() : TreeScene(0) {}
  ~TreeScene() override {
    CALL(qmibtree_destroy)(inst);
    EXPECT_EQ(hooks_alive, 0);
  }

  const qmibtree_inst_t* tree() const override { return inst; }

  std::string outcome() override {
    return told + ":" + values_below(inst->root) + hooks_in_step(inst->root);
  }

 protected:
  explicit TreeScene(int instances) {
    hooks_alive = 0;
    CALL(qmibtree_comp_register)(3, 0, nullptr, nullptr, nullptr, nullptr);
    inst = CALL(qmibtree_init)(model.block());
    for (int i = 0; i < instances; ++i) {
      uint32_t number = 0;
      CALL(qmibtree_add_object)(inst, "R.Port.", &number, 0, 255);
    }
    changes().clear();
  }

  qmibtree_node* node(const char* name) { return CALL(qmibtree_find_node_by_name)(inst, name); }

  Model model;
  qmibtree_inst_t* inst;
};

// --- building ---

struct Start : Scene {
  Start() {
    hooks_alive = 0;
    schema.add(0, "R.").create_fn = created;
    schema.add(1, "Text", QMIBTREE_TYPE_STRING, 0, "t").create_fn = created;
    schema.add(1, "Data", QMIBTREE_TYPE_BASE64, 0, "AQID").create_fn = created;
    schema.add(1, "Number", QMIBTREE_TYPE_INT, 0, "5").create_fn = created;
    for (uint32_t uid = 0; uid < schema.size(); ++uid) schema.record(uid).destroy_fn = destroyed;
  }
  ~Start() override {
    if (inst) CALL(qmibtree_destroy)(inst);
    EXPECT_EQ(hooks_alive, 0);
  }

  void act() override { inst = CALL(qmibtree_init)(schema.block()); }

  std::string outcome() override {
    if (!inst) return "none" + hooks_in_step(nullptr);
    return (inst->uid_hash ? "tree:" : "tree without ids:") + values_below(inst->root) +
           hooks_in_step(inst->root);
  }
  const qmibtree_inst_t* tree() const override { return inst; }

  Schema schema;
  qmibtree_inst_t* inst = nullptr;
};

// The parts that an instance is made of, one by one.
struct Parts : Scene {
  Parts() {
    hooks_alive = 0;
    parts.schema_tag = model.block()->schema_tag;
    parts.uidinfo_num = model.size();
    parts.uidinfo = model.block()->uidinfo;
  }
  ~Parts() override {
    if (parts.root) CALL(qmibtree_destroy_node)(&parts, parts.root);
    CALL(qmibtree_hash_destroy)(parts.name_hash);
    CALL(qmibtree_hash_destroy)(parts.uid_hash);
    CALL(qmibtree_notif_destroy)(parts.notif);
    EXPECT_EQ(hooks_alive, 0);
  }

  void act() override {
    parts.name_hash = CALL(qmibtree_hash_create)(0, 5000);
    parts.uid_hash = CALL(qmibtree_hash_create)(1, 2000);
    parts.notif = CALL(qmibtree_notif_create)();
    if (parts.name_hash && parts.notif) parts.root = CALL(qmibtree_populate_root)(&parts);
    if (parts.root) add_port();
  }

  // As an addition does, with its counters.
  void add_port() {
    qmibtree_node* const port = parts.root->last_child;
    parts.obj_changes = port->added = port->last_instance = 1;
    added = CALL(qmibtree_build_node)(&parts, port, port->uidinfo, 7);
    if (!added) port->last_instance = 0;
  }

  std::string outcome() override {
    const std::string hooks = hooks_in_step(parts.root);
    if (!parts.root) return "no root" + hooks;
    return std::string(added ? "port:" : "no port:") + values_below(parts.root) + hooks;
  }
  const qmibtree_inst_t* tree() const override { return parts.root ? &parts : nullptr; }

  Model model;
  qmibtree_inst_t parts = {};
  qmibtree_node* added = nullptr;
};

struct AddInstances : TreeScene {
  void act() override {
    uint32_t number = 0;
    tell(CALL(qmibtree_add_object)(inst, "R.Port.", &number, 0, 255));
    tell(number);
    number = 0;
    tell(CALL(qmibtree_add_object_by_node)(inst, port, &number, 0, 255));
    tell(number);
  }
  // The counters count an addition that failed.
  std::string outcome() override {
    tell(inst->obj_changes);
    tell(port->added);
    return TreeScene::outcome();
  }
  qmibtree_node* const port = node("R.Port.");
};

struct DeleteInstances : TreeScene {
  DeleteInstances() : TreeScene(2) {}
  void act() override {
    tell(CALL(qmibtree_del_object)(inst, "R.Port.1.", 0));
    tell(CALL(qmibtree_del_object_by_node)(inst, node("R.Port.2."), 0));
  }
};

// --- reading and writing ---

// The host heard of every write, whatever became of the value.
struct Writing : TreeScene {
  Writing() : TreeScene(2) { CALL(qmibtree_comp_unmark_all)(); }
  std::string outcome() override {
    tell("callbacks");
    tell(changes().size());
    tell("events");
    tell(inst->notif->num);
    tell("mark");
    tell(CALL(qmibtree_comp_chk_mark)(3, QMIBTREE_COMP_MARK_CHANGED));
    return TreeScene::outcome();
  }
};

struct WriteValues : Writing {
  void act() override {
    const qmibtree_value_t home = string_value("home");
    const qmibtree_value_t lan = string_value("lan");
    tell(CALL(qmibtree_write)(inst, "R.Text", &home, QMIBTREE_WRITE_APPLY));
    tell(CALL(qmibtree_write_v2)(inst, "R.Port.1.", "Name", &lan, 0));
    tell(CALL(qmibtree_write_by_node)(inst, node("R.Port.2.Name"), &lan, 0));
  }
};

struct WriteTexts : Writing {
  void act() override {
    tell(CALL(qmibtree_write_strvalue)(inst, "R.Number", "7", 0));
    tell(CALL(qmibtree_write_strvalue_by_node)(inst, node("R.Text"), "home", QMIBTREE_WRITE_APPLY));
    tell(CALL(qmibtree_write_strvalue_by_uniqueid)(inst, Model::kName, "lan", 0));
  }
};

struct WriteBytes : Writing {
  void act() override {
    const qmibtree_value_t bytes = base64_value(kBytes, sizeof kBytes);
    tell(CALL(qmibtree_write)(inst, "R.Data", &bytes, 0));
  }
};

struct WriteBase64 : Writing {
  void act() override { tell(CALL(qmibtree_write_strvalue)(inst, "R.Data", "AQID", 0)); }
};

struct Read : TreeScene {
  Read() : TreeScene(1) {
    model.record(Model::kText).flags |= QMIBTREE_UID_DYNAMIC;
    model.record(Model::kText).get_fn = get_live;
    model.record(Model::kName).flags |= QMIBTREE_UID_DYNAMIC;
    model.record(Model::kName).get_fn = get_once;
  }
  void act() override {
    qmibtree_value_t value = {};
    tell(CALL(qmibtree_read)(inst, "R.Text", &value, 0));
    CALL(qmibtree_datatype_get_datafn)(QMIBTREE_TYPE_STRING)->release(&value);
    tell(CALL(qmibtree_read_v2)(inst, "R.Port.1.", "Name", &value, 0));
    tell(value.str);
    tell(CALL(qmibtree_read_by_node)(inst, node("R.Number"), &value, 0));
    tell(value.i);
  }
};

struct Compare : TreeScene {
  Compare() {
    model.record(Model::kText).flags |= QMIBTREE_UID_DYNAMIC;
    model.record(Model::kText).get_fn = get_live;
  }
  void act() override {
    const qmibtree_value_t up = string_value("up");
    const qmibtree_value_t down = string_value("down");
    tell(CALL(qmibtree_compare)(inst, "R.Text", &up, 0));
    tell(CALL(qmibtree_compare_v2)(inst, "R.", "Text", &down, 0));
    tell(CALL(qmibtree_compare_by_node)(inst, node("R.Text"), &up, 0));
  }
};

// --- what needs no memory ---

uint32_t count_call(qmibtree_inst_t*, qmibtree_node*, void* count) {
  ++*static_cast<int*>(count);
  return QMIBTREE_RC_OK;
}

uint32_t two_slices(void* count, void*, void*, uint32_t) {
  return ++*static_cast<int*>(count) < 2 ? 1 : 0;
}

struct Find : TreeScene {
  Find() : TreeScene(2) {}
  void act() override {
    tell(node("R.Text") == CALL(qmibtree_find_node_by_name_v2)(inst, "R.", "Text"));
    tell(CALL(qmibtree_get_arg)(inst, "R.Text"));
    tell(CALL(qmibtree_get_arg_v2)(inst, "R.", "Text"));
    tell(CALL(qmibtree_get_childnum)(inst, "R.Port."));
    tell(CALL(find_uidinfo_from_uid)(inst, Model::kText) == &model.record(Model::kText));
    const qmibtree_uidinfo_t record = model.record(Model::kText);
    tell(CALL(qmibtree_reg_uidinfo)(inst, Model::kText, &record));
  }
};

struct Walk : TreeScene {
  Walk() : TreeScene(2) {}
  void act() override {
    int calls = 0;
    tell(CALL(qmibtree_lookup)(inst, nullptr, Model::kName, count_call, &calls));
    tell(CALL(qmibtree_lookup)(inst, nullptr, Model::kText, CALL(qmibtree_lookup_dbg), nullptr));
    tell(CALL(qmibtree_loop)(inst, "R.Port.", count_call, &calls));
    tell(CALL(qmibtree_loop_v2)(inst, "R.", "Port.", count_call, &calls));
    tell(CALL(qmibtree_loop_by_node)(inst, inst->root, count_call, &calls));
    tell(calls);
    int slices = 0;
    tell(CALL(qmibtree_load)(&slices, nullptr, two_slices, nullptr));
    tell(slices);
  }
  std::string outcome() override { return told + printed; }
};

struct Attributes : TreeScene {
  void act() override {
    uint32_t attr = 0;
    tell(CALL(qmibtree_set_attr)(inst, "R.Text", QMIBTREE_ATTR_NOTIF_PASSIVE));
    tell(CALL(qmibtree_get_attr)(inst, "R.Text", &attr));
    tell(attr);
    tell(CALL(qmibtree_set_attr_by_node)(inst, node("R.Text"), QMIBTREE_ATTR_ACCESS_SUBSCRIBER));
    tell(CALL(qmibtree_get_attr_by_node)(inst, node("R.Text"), &attr));
    tell(attr);
  }
};

struct Notify : TreeScene {
  void act() override {
    qmibtree_notif_t* const queue = inst->notif;
    qmibtree_node* const text = node("R.Text");
    tell(CALL(qmibtree_notify)(inst, "R.Text", 0));
    tell(CALL(qmibtree_notif_get_event)(queue, 0) == text);
    tell(CALL(qmibtree_notif_deq_event)(queue) == text);
    tell(CALL(qmibtree_notify_v2)(inst, "R.", "Text", 0));
    CALL(qmibtree_notif_add_event_by_name)(inst, "R.Text");
    tell(CALL(qmibtree_notify_by_node)(inst, text, 0));
    CALL(qmibtree_notif_del_event_by_name)(inst, "R.Text");
    CALL(qmibtree_notif_add_event)(queue, text);
    CALL(qmibtree_notif_del_event)(queue, text);
    tell(queue->num);
    CALL(qmibtree_notif_add_event)(queue, text);
    CALL(qmibtree_notif_cleanup)(queue);
    tell(queue->num);
  }
};

struct Index : TreeScene {
  Index() : TreeScene(2) {}
  void act() override {
    qmibtree_node* const text = node("R.Text");
    CALL(qmibtree_hash_unlink_name)(inst->name_hash, text);
    tell(CALL(qmibtree_hash_lookup_name)(inst->name_hash, "R.Text") == nullptr);
    tell(CALL(qmibtree_hash_link_name)(inst->name_hash, text) == CALL(BKDRHash)("R.Text"));
    CALL(qmibtree_hash_unlink_uid)(inst->uid_hash, text);
    tell(CALL(qmibtree_hash_lookup_uid)(inst->uid_hash, Model::kText) == nullptr);
    CALL(qmibtree_hash_link_uid)(inst->uid_hash, text);
    qmibtree_node* const name = CALL(qmibtree_hash_lookup_uid)(inst->uid_hash, Model::kName);
    tell(CALL(qmibtree_hash_lookup_uid_next)(name, Model::kName)->fullName);
  }
};

// --- text ---

// A buffer to write to.
struct Page {
  char text[2000] = "";
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
};

struct Dump : Scene {
  Dump() {
    schema.add(0, "R.");
    schema.add(1, "Data", QMIBTREE_TYPE_BASE64, QMIBTREE_UID_SAVE);
    schema.add(1, "Time", QMIBTREE_TYPE_DATETIME);
    inst = CALL(qmibtree_init)(schema.block());
    const qmibtree_value_t bytes = base64_value(kBytes, sizeof kBytes);
    const qmibtree_value_t time = datetime_value(0);
    CALL(qmibtree_write)(inst, "R.Data", &bytes, 0);
    CALL(qmibtree_write)(inst, "R.Time", &time, 0);
  }
  ~Dump() override { CALL(qmibtree_destroy)(inst); }

  void act() override {
    qmibtree_buff_t* const to = &page.buff;
    qmibtree_node* const data = CALL(qmibtree_find_node_by_name)(inst, "R.Data");
    uint32_t nodes = 0;
    tell(CALL(qmibtree_dump)(inst, nullptr, to, 9, CALL(qmibtree_dump_dbg), nullptr));
    tell(CALL(qmibtree_dump)(inst, nullptr, to, 9, CALL(qmibtree_dump_calc_node_num), &nodes));
    tell(CALL(qmibtree_dump_by_node)(inst, data, to, 1, 0, CALL(qmibtree_dump_rawtype), nullptr));
    tell(CALL(qmibtree_dump_by_node)(inst, data, to, 1, 0, CALL(qmibtree_dump_rawvalue), nullptr));
    tell(CALL(qmibtree_dump_rawdynattr)(inst, to, 0, nullptr, QMIBTREE_PHASE_ENTER));
    tell(CALL(qmibtree_xml_dump_config)(inst, "R.Data", to, 0));
    tell(nodes);
  }
  std::string outcome() override { return told + ":" + page.text; }
  const qmibtree_inst_t* tree() const override { return inst; }

  Schema schema;
  qmibtree_inst_t* inst;
  Page page;
};

// What Dump writes: the listing as far as it comes, the value behind it, the document's value.
std::string dumped(const std::string& listed, const std::string& value, const std::string& saved) {
  return "\n+R." + listed + "base64" + value +
         "-<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R.>\n<PARAM name=\"Data\">" + saved +
         "</PARAM>\n";
}

std::string listed(const std::string& data) {
  return "\n R.Data (base64) = " + data + "\n R.Time (datetime) = 1970-01-01T00:00:00";
}

struct Values : Scene {
  ~Values() override {
    for (qmibtree_value_t* value : {&text, &data})
      CALL(qmibtree_datatype_get_datafn)(value->type)->release(value);
    CALL(qfree)(encoded);
    CALL(qfree)(decoded);
    CALL(qfree)(field);
    CALL(qfree)(block);
  }

  void act() override {
    const qmibtree_value_t home = string_value("home");
    const qmibtree_value_t bytes = base64_value(kBytes, sizeof kBytes);
    uint32_t position = 0;
    uint32_t length = 7;
    tell(CALL(qmibtree_datatype_get_datafn)(QMIBTREE_TYPE_STRING)->copy(&text, &home));
    tell(CALL(qmibtree_datatype_get_datafn)(QMIBTREE_TYPE_BASE64)->copy(&data, &bytes));
    encoded = CALL(base64_encode)(kBytes, sizeof kBytes);
    tell(encoded ? encoded : "none");
    decoded = CALL(base64_decode)("AQID", &length);
    tell(decoded ? "3 bytes" : "none");
    tell(length);
    field = CALL(qutil_get_next_string)("a,b", &position, ",");
    tell(field ? field : "none");
    tell(position);
    block = CALL(qmalloc)(8, "block");
    tell(block ? "block" : "none");
  }
  std::string outcome() override { return told + ": " + text_of(text) + " " + text_of(data); }

  qmibtree_value_t text = {};
  qmibtree_value_t data = {};
  char* encoded = nullptr;
  uint8_t* decoded = nullptr;
  char* field = nullptr;
  void* block = nullptr;
};

struct Names : Scene {
  void act() override {
    tell(CALL(qmibtree_rc_string)(QMIBTREE_RC_NO_RESOURCE));
    tell(CALL(qmibtree_datatype_get_type_str)(QMIBTREE_TYPE_INT));
    tell(CALL(qmibtree_buff_dump)(&page.buff, "%d", 5));
    tell(page.text);
    tell(CALL(qmibtree_global_status));
  }
  std::string outcome() override { return told; }
  Page page;
};

// --- loading ---

// A value, then an instance with its name.
struct LoadDocument : TreeScene {
  void act() override {
    char document[] =
        "<R.><PARAM name=\"Text\">home</PARAM>"
        "<Port. instance=\"1\"><PARAM name=\"Name\" notification=\"1\">lan</PARAM></Port.></R.>";
    qmibtree_buff_t buff = {document, document, sizeof document, sizeof document - 1};
    tell(CALL(qmibtree_xml_load)(inst, &buff, 0));
  }
};

}  // namespace

std::vector<Scenario> tree_scenarios() {
  return {
      // The root, then Text, Data and Number: node, full name, and copies of what they have.
      // The bytes that a default of base64 is decoded into are nobody's.
      scenario<Start>("Start", "tree: t/t AQID/AQID, blocks kept: 1",
                      {{kMemory,
                        {{2, "none"},
                         {1, "tree without ids: t/t AQID/AQID, blocks kept: 1"},
                         {5, "none"},
                         {1, "tree: <null>/t AQID/AQID, blocks kept: 1"},
                         {1, "tree: t/<null> AQID/AQID, blocks kept: 1"},
                         {2, "none"},
                         {1, "tree: t/t /"},
                         {1, "tree: t/t /AQID, blocks kept: 1"},
                         {1, "tree: t/t AQID/, blocks kept: 1"},
                         {2, "none, blocks kept: 1"}}},
                       {kNoMoreMemory, {{13, "none"}, {4, "none, blocks kept: 1"}}}}),
      scenario<Parts>("Parts", "port: t/t / p/p",
                      {{kMemory,
                        {{1, "no root"},
                         {1, "port: t/t / p/p"},
                         {5, "no root"},
                         {1, "port: <null>/t / p/p"},
                         {1, "port: t/<null> / p/p"},
                         {6, "no root"},
                         {5, "no port: t/t /"},
                         {1, "port: t/t / <null>/p"},
                         {1, "port: t/t / p/<null>"},
                         {2, "no port: t/t /"}}},
                       {kNoMoreMemory, {{15, "no root"}, {9, "no port: t/t /"}}}}),
      // Results and numbers of both additions, then the counters of the tree and the template.
      scenario<AddInstances>(
          "AddInstances", "0 1 0 2 2 2: t/t / p/p p/p",
          {{kMemory,
            {{5, "32 0 0 1 2 2: t/t / p/p"},
             {1, "0 1 0 2 2 2: t/t / <null>/p p/p"},
             {1, "0 1 0 2 2 2: t/t / p/<null> p/p"},
             {2, "32 0 0 1 2 2: t/t / p/p"},
             {5, "0 1 32 0 2 2: t/t / p/p"},
             {1, "0 1 0 2 2 2: t/t / p/p <null>/p"},
             {1, "0 1 0 2 2 2: t/t / p/p p/<null>"},
             {2, "0 1 32 0 2 2: t/t / p/p"}}},
           {kNoMoreMemory, {{9, "32 0 32 0 2 2: t/t /"}, {9, "0 1 32 0 2 2: t/t / p/p"}}}}),
      scenario<DeleteInstances>("DeleteInstances", "0 0: t/t /", {}),
      // The host hears of a value that could not be stored as of any other.
      scenario<WriteValues>(
          "WriteValues", "0 0 0 callbacks 3 events 1 mark 1: home/t / lan/p lan/p",
          {{kMemory,
            {{1, "0 0 0 callbacks 3 events 1 mark 1: <null>/t / lan/p lan/p"},
             {1, "0 0 0 callbacks 3 events 1 mark 1: home/t / <null>/p lan/p"},
             {1, "0 0 0 callbacks 3 events 1 mark 1: home/t / lan/p <null>/p"}}},
           {kNoMoreMemory,
            {{1, "0 0 0 callbacks 3 events 1 mark 1: <null>/t / <null>/p <null>/p"},
             {1, "0 0 0 callbacks 3 events 1 mark 1: home/t / <null>/p <null>/p"},
             {1, "0 0 0 callbacks 3 events 1 mark 1: home/t / lan/p <null>/p"}}}}),
      scenario<WriteTexts>(
          "WriteTexts", "0 0 0 callbacks 4 events 1 mark 1: home/t / lan/p lan/p",
          {{kMemory,
            {{1, "0 0 0 callbacks 4 events 1 mark 1: <null>/t / lan/p lan/p"},
             {1, "0 0 0 callbacks 4 events 1 mark 1: home/t / lan/p <null>/p"},
             {1, "0 0 0 callbacks 4 events 1 mark 1: home/t / <null>/p lan/p"}}},
           {kNoMoreMemory,
            {{1, "0 0 0 callbacks 4 events 1 mark 1: <null>/t / <null>/p <null>/p"},
             {1, "0 0 0 callbacks 4 events 1 mark 1: home/t / <null>/p <null>/p"},
             {1, "0 0 0 callbacks 4 events 1 mark 1: home/t / <null>/p lan/p"}}}}),
      // What fails behind the store is the listener's, who turns the bytes into text.
      scenario<WriteBytes>("WriteBytes", "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p",
                           {{kMemory,
                             {{1, "0 callbacks 1 events 0 mark 0: t/t / p/p p/p"},
                              {kAny, "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p"}}},
                            {kNoMoreMemory,
                             {{1, "0 callbacks 1 events 0 mark 0: t/t / p/p p/p"},
                              {kAny, "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p"}}}}),
      // Text that could not be decoded is the empty value that is there already. What it is decoded
      // into is nobody's.
      scenario<WriteBase64>(
          "WriteBase64", "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p, blocks kept: 1",
          {{kMemory,
            {{1, "0 callbacks 0 events 0 mark 0: t/t / p/p p/p"},
             {1, "0 callbacks 1 events 0 mark 0: t/t / p/p p/p, blocks kept: 1"},
             {kAny, "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p, blocks kept: 1"}}},
           {kNoMoreMemory,
            {{1, "0 callbacks 0 events 0 mark 0: t/t / p/p p/p"},
             {1, "0 callbacks 1 events 0 mark 0: t/t / p/p p/p, blocks kept: 1"},
             {kAny, "0 callbacks 1 events 0 mark 0: t/t AQID/ p/p p/p, blocks kept: 1"}}}}),
      scenario<Read>(
          "Read", "0 0 once 0 5: t/t / once/p",
          {{kMemory, {{1, "33 0 once 0 5: t/t / once/p"}, {1, "0 0 once 0 5: t/t / <null>/p"}}},
           {kNoMoreMemory,
            {{1, "33 0 once 0 5: t/t / <null>/p"}, {1, "0 0 once 0 5: t/t / <null>/p"}}}}),
      scenario<Compare>(
          "Compare", "0 34 0: t/t /",
          {{kMemory, {{1, "33 34 0: t/t /"}, {1, "0 33 0: t/t /"}, {1, "0 34 33: t/t /"}}},
           {kNoMoreMemory,
            {{1, "33 33 33: t/t /"}, {1, "0 33 33: t/t /"}, {1, "0 34 33: t/t /"}}}}),
      scenario<Find>("Find", "1 0 0 2 1 0: t/t / p/p p/p", {}),
      scenario<Walk>("Walk", "0 0 0 0 0 10 0 2\n[lookup dbg]: R.Text", {}),
      scenario<Attributes>("Attributes", "0 0 18 0 0 10: t/t /", {}),
      scenario<Notify>("Notify", "0 1 1 0 0 0 0: t/t /", {}),
      scenario<Index>("Index", "1 1 1 R.Port.1.Name: t/t / p/p p/p", {}),
      // A base64 value without memory for its text is written as a null one, in the document too.
      scenario<Dump>(
          "Dump", "0 0 0 0 0 0 3:" + dumped(listed("AQID"), "AQID", "AQID"),
          {{kMemory,
            {{1, "0 0 0 0 0 0 3:" + dumped(listed("<null>"), "AQID", "AQID")},
             {1, "0 0 0 0 0 0 3:" + dumped(listed("AQID"), "<null>", "AQID")},
             {1, "0 0 0 0 0 0 3:" + dumped(listed("AQID"), "AQID", "<null>")}}},
           {kNoMoreMemory,
            {{1, "0 0 0 0 0 0 3:" + dumped(listed("<null>"), "<null>", "<null>")},
             {1, "0 0 0 0 0 0 3:" + dumped(listed("AQID"), "<null>", "<null>")},
             {1, "0 0 0 0 0 0 3:" + dumped(listed("AQID"), "AQID", "<null>")}}},
           {"gmtime_r",
            {{1, "32 0 0 0 0 0 3:" + dumped("\n R.Data (base64) = AQID\n R.Time (datetime) = ",
                                            "AQID", "AQID")}}}}),
      scenario<Values>("Values", "1 1 AQID 3 bytes 3 a 2 block: home AQID",
                       {{kMemory,
                         {{1, "0 1 AQID 3 bytes 3 a 2 block: <null> AQID"},
                          {1, "1 0 AQID 3 bytes 3 a 2 block: home "},
                          {1, "1 1 none 3 bytes 3 a 2 block: home AQID"},
                          {1, "1 1 AQID none 0 a 2 block: home AQID"},
                          {1, "1 1 AQID 3 bytes 3 none 2 block: home AQID"},
                          {1, "1 1 AQID 3 bytes 3 a 2 none: home AQID"}}},
                        {kNoMoreMemory,
                         {{1, "0 0 none none 0 none 2 none: <null> "},
                          {1, "1 0 none none 0 none 2 none: home "},
                          {1, "1 1 none none 0 none 2 none: home AQID"},
                          {1, "1 1 AQID none 0 none 2 none: home AQID"},
                          {1, "1 1 AQID 3 bytes 3 none 2 none: home AQID"},
                          {1, "1 1 AQID 3 bytes 3 a 2 none: home AQID"}}}}),
      scenario<Names>("Names", "out of resource int 0 5 0", {}),
      // What there is no memory for is left out, unreported; the instance that could not be added
      // takes
      // its name along. A parser without memory stops the load, and what came before stays.
      scenario<LoadDocument>("LoadDocument", "0: home/t / lan/p",
                             {{kMemory,
                               {{1, "0: t/t / lan/p"},
                                {1, "0: <null>/t / lan/p"},
                                {5, "0: home/t /"},
                                {1, "0: home/t / lan/p"},
                                {1, "0: home/t / lan/<null>"},
                                {2, "0: home/t /"},
                                {1, "0: home/t / p/p"},
                                {1, "0: home/t / <null>/p"}}},
                              {kNoMoreMemory,
                               {{1, "0: t/t /"},
                                {1, "0: <null>/t /"},
                                {9, "0: home/t /"},
                                {1, "0: home/t / p/p"},
                                {1, "0: home/t / <null>/p"}}},
                              {"XML_ParserCreate", {{1, "32: t/t /"}}},
                              {kParserMemory,
                               {{kAny, "32: t/t /"},
                                {kAny, "32: home/t /"},
                                {kAny, "32: home/t / p/p"},
                                {kAny, "32: home/t / lan/p"},
                                {kAny, "0: home/t / lan/p"}}}}),
  };
}
