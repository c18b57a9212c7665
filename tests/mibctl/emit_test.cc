#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qmibtree.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "model_builder.hh"

namespace mibctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHooks = R"(
uint32_t made(qmibtree_inst_t* inst, qmibtree_node* node) { (void)inst; (void)node; return 1; }
uint32_t gone(qmibtree_inst_t* inst, qmibtree_node* node) { (void)inst; (void)node; return 2; }
uint32_t take(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value) {
  (void)inst; (void)node; (void)value; return 3;
}
uint32_t give(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, uint32_t flags) {
  (void)inst; (void)node; (void)value; (void)flags; return 4;
}
)";

void number(Model& model) {
  Lock lock;
  assign_ids(model, lock);
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Compiles what was generated, as strictly as a user may.
class Generate : public testing::Test {
 protected:
  Generate() {
    char folder[] = "/tmp/mibctl_emit_XXXXXX";
    folder_ = mkdtemp(folder);
  }
  ~Generate() override {
    if (library_) dlclose(library_);
    fs::remove_all(folder_);
  }

  void write(const std::string& name, const std::string& content) {
    std::ofstream(folder_ / name) << content;
  }

  // What the compiler says, "" when it is content.
  std::string compile(const std::string& compiler, const std::string& arguments) {
    const fs::path include = fs::path(__FILE__).parent_path() / "../../include";
    const std::string command =
        "cd " + folder_.string() + " && " + compiler + " -I" + include.string() +
        " -Wall -Wextra -Wpedantic -Wconversion -Werror " + arguments + " > messages 2>&1";
    if (std::system(command.c_str()) == 0) return "";
    std::ostringstream messages;
    messages << std::ifstream(folder_ / "messages").rdbuf();
    return "the compiler refuses it:\n" + messages.str();
  }

  // The compiled block, null with a failure of the test when it does not compile.
  qmibtree_schema_t* compiled(const Model& model) {
    const Generated generated = generate(model);
    write(generated.source_name, generated.source);
    write(generated.header_name, generated.header);
    write("hooks.c", "#include \"" + generated.header_name + "\"\n" + kHooks);
    EXPECT_EQ(compile("cc", "-std=c99 -shared -fPIC -o schema.so hooks.c " + generated.source_name),
              "");
    library_ = dlopen((folder_ / "schema.so").c_str(), RTLD_NOW);
    if (!library_) return nullptr;
    void* const function = dlsym(library_, (model.prefix + "_schema").c_str());
    return reinterpret_cast<qmibtree_schema_t* (*)()>(function)();
  }

  fs::path folder_;
  void* library_ = nullptr;
};

// Every construct that a record can hold.
Model rich_model() {
  Model model = make_model();
  model.prefix = "gw";
  model.tag = 0xFFFFFFFFu;
  model.components = {{"lan", 0}, {"wan", 31}};
  model.words_slot = 3;
  Entry* const table = add_table(*model.root, "T.");
  table->hooks.create = "made";
  table->hooks.destroy = "gone";
  Entry* const mode = add_parameter(*table, "Mode");
  mode->words = {"Up", "Down"};
  mode->defval = "Up";
  mode->save = Save::always;
  mode->component = 0;
  Entry* const text = add_parameter(*table, "Text");
  text->max_len = 64;
  text->defval = "";
  text->save = Save::modified;
  text->component = 31;
  text->notify = Notify::by_default;
  Entry* const low = add_parameter(*table, "Low", QMIBTREE_TYPE_INT);
  low->defval = "-1";
  low->arg = 0xFFFFFFFFu;
  add_parameter(*table, "Between", QMIBTREE_TYPE_INT)->min = INT32_MIN + 1;
  add_parameter(*table, "High", QMIBTREE_TYPE_UINT);
  Entry* const range = add_parameter(*table, "Range", QMIBTREE_TYPE_UINT);
  range->min = 0x80000000u;
  range->max = UINT32_MAX - 1;
  Entry* const status = add_parameter(*model.root, "Status", QMIBTREE_TYPE_BOOL);
  status->writable = false;
  status->dynamic = true;
  status->notify = Notify::forced;
  status->hooks.get = "give";
  status->hooks.set = "take";
  add_parameter(*model.root, "Since", QMIBTREE_TYPE_DATETIME);
  add_parameter(*model.root, "Key", QMIBTREE_TYPE_BASE64)->max_len = 16;
  number(model);
  return model;
}

std::string refusal(const Model& model) {
  try {
    generate(model);
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

void expect_same(const qmibtree_uidinfo_t& a, const qmibtree_uidinfo_t& b) {
  SCOPED_TRACE(a.uid);
  EXPECT_EQ(a.uid, b.uid);
  EXPECT_EQ(a.next_uid, b.next_uid);
  EXPECT_EQ(a.child_uid, b.child_uid);
  EXPECT_STREQ(a.name, b.name);
  EXPECT_EQ(a.reserved1, b.reserved1);
  EXPECT_EQ(a.type, b.type);
  EXPECT_EQ(a.flags, b.flags);
  EXPECT_EQ(a.arg, b.arg);
  EXPECT_STREQ(a.defval, b.defval);
  EXPECT_EQ(a.max_len, b.max_len);
  EXPECT_EQ(a.int_min, b.int_min);
  EXPECT_EQ(a.int_max, b.int_max);
  EXPECT_EQ(a.uint_min, b.uint_min);
  EXPECT_EQ(a.uint_max, b.uint_max);
  EXPECT_EQ(a.reserved2, b.reserved2);
  EXPECT_EQ(a.comp, b.comp);
}

void expect_same(qmibtree_schema_t* a, qmibtree_schema_t* b) {
  EXPECT_EQ(a->schema_tag, b->schema_tag);
  ASSERT_EQ(a->uidinfo_num, b->uidinfo_num);
  for (uint32_t i = 0; i < a->uidinfo_num; ++i) expect_same(a->uidinfo[i], b->uidinfo[i]);
}

TEST_F(Generate, TheCompiledBlockAgreesWithTheOneAtRunTime) {
  const Model model = rich_model();
  Block block(model);
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  expect_same(schema, block.schema());
}

TEST_F(Generate, GapsAreEmptyRecords) {
  Model model = make_model();
  model.root->uid = 0;
  add_parameter(*model.root, "A")->uid = 3;
  Block block(model);
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  expect_same(schema, block.schema());
}

TEST_F(Generate, HooksStandInTheirSlots) {
  const Model model = rich_model();
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  const qmibtree_uidinfo_t& table = schema->uidinfo[at(model, "Gw.T.{i}.").uid];
  EXPECT_EQ(table.create_fn(nullptr, nullptr), 1u);
  EXPECT_EQ(table.destroy_fn(nullptr, nullptr), 2u);
  EXPECT_EQ(table.set_fn, nullptr);
  EXPECT_EQ(table.get_fn, nullptr);
  const qmibtree_uidinfo_t& status = schema->uidinfo[at(model, "Gw.Status").uid];
  EXPECT_EQ(status.set_fn(nullptr, nullptr, nullptr), 3u);
  EXPECT_EQ(status.get_fn(nullptr, nullptr, nullptr, 0), 4u);
}

TEST_F(Generate, TheWordsAllowedStandInTheirSlot) {
  const Model model = rich_model();
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  const qmibtree_uidinfo_t& mode = schema->uidinfo[at(model, "Gw.T.{i}.Mode").uid];
  EXPECT_STREQ(static_cast<const char*>(mode.ext_fn[3]), "Up|Down");
  EXPECT_EQ(mode.ext_fn[2], nullptr);
  EXPECT_EQ(schema->uidinfo[0].ext_fn[3], nullptr);
}

TEST_F(Generate, AnEmptyWordIsOneOfTheWords) {
  Model model = rich_model();
  at(model, "Gw.T.{i}.Mode").words = {"", "Up", ""};
  EXPECT_TRUE(contains(generate(model).source, ".ext_fn[GW_WORDS] = (void*)\"|Up|\"}"));
}

TEST_F(Generate, AListHasNoWords) {
  Model model = rich_model();
  at(model, "Gw.T.{i}.Mode").list = true;
  EXPECT_FALSE(contains(generate(model).source, "ext_fn"));
}

TEST_F(Generate, RefusesAWordThatWouldBeTwo) {
  Model model = rich_model();
  at(model, "Gw.T.{i}.Mode").words = {"Up|Down"};
  EXPECT_EQ(refusal(model),
            "model.xml:1:1: a value allowed for Gw.T.{i}.Mode has a |: Up|Down (the overlay can "
            "give it others, or no slot for words)");
}

TEST_F(Generate, TheWordsAllowedAreLeftOutWithoutASlot) {
  Model model = rich_model();
  model.words_slot.reset();
  EXPECT_FALSE(contains(generate(model).source, "Down"));
  EXPECT_FALSE(contains(generate(model).header, "WORDS"));
}

TEST_F(Generate, TheEndsOfTheRangesAreMacros) {
  Model model = make_model();
  add_parameter(*model.root, "I", QMIBTREE_TYPE_INT);
  add_parameter(*model.root, "U", QMIBTREE_TYPE_UINT);
  number(model);
  const std::string source = generate(model).source;
  EXPECT_TRUE(contains(source, ".int_min = INT32_MIN"));
  EXPECT_TRUE(contains(source, ".int_max = INT32_MAX"));
  EXPECT_TRUE(contains(source, ".uint_min = 0, .uint_max = UINT32_MAX"));
}

TEST_F(Generate, NoTextLeavesItsLiteral) {
  Model model = make_model();
  std::string all = "\?\?/\"; \?\?' \\";
  for (int c = 1; c < 256; ++c) all += {static_cast<char>(c), '7'};
  add_parameter(*model.root, "A")->defval = all;
  number(model);
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  EXPECT_EQ(schema->uidinfo[1].defval, all);
}

TEST_F(Generate, NoModelNameLeavesItsComment) {
  for (const char* const name : {"*/ x; /*", "/*/ x", "a\n*/ x;", "**/ x", "*\\\n/ x"}) {
    Model model = make_model();
    model.name = name;
    number(model);
    EXPECT_NE(compiled(model), nullptr) << name;
  }
}

TEST_F(Generate, ALongTextCompilesToo) {
  Model model = make_model();
  const std::string text(5000, 'x');
  add_parameter(*model.root, "A")->defval = text;
  number(model);
  qmibtree_schema_t* const schema = compiled(model);
  ASSERT_NE(schema, nullptr);
  EXPECT_EQ(schema->uidinfo[1].defval, text);
}

TEST_F(Generate, TheSourceIsCleanForClangToo) {
  if (std::system("clang --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "there is no clang";
  Model model = rich_model();
  at(model, "Gw.T.{i}.Text").defval = std::string(5000, 'x');
  const Generated generated = generate(model);
  write(generated.header_name, generated.header);
  write(generated.source_name, generated.source);
  EXPECT_EQ(compile("clang", "-std=c99 -c " + generated.source_name), "");
}

TEST_F(Generate, TheHeaderIsCleanCPlusPlus) {
  const Generated generated = generate(rich_model());
  write(generated.header_name, generated.header);
  write("host.cc", "#include \"gw_schema.h\"\nqmibtree_schema_t* x() { return gw_schema(); }\n");
  EXPECT_EQ(compile("c++", "-std=c++11 -c host.cc"), "");
}

TEST_F(Generate, TheFilesHaveThePrefix) {
  const Generated generated = generate(rich_model());
  EXPECT_EQ(generated.source_name, "gw_schema.c");
  EXPECT_EQ(generated.header_name, "gw_schema.h");
}

TEST_F(Generate, EachIdHasAConstant) {
  const std::string header = generate(rich_model()).header;
  EXPECT_TRUE(contains(header, "  GW_Gw_ = 0,\n"));
  EXPECT_TRUE(contains(header, "  GW_Gw_T_ = 1,\n"));
  EXPECT_TRUE(contains(header, "  GW_Gw_T_Mode = 2,\n"));
  EXPECT_TRUE(contains(header, "  GW_UIDS = 11 "));
}

TEST_F(Generate, EachComponentHasAConstant) {
  const std::string header = generate(rich_model()).header;
  EXPECT_TRUE(contains(header, "enum {\n  GW_COMP_LAN = 0,\n  GW_COMP_WAN = 31,\n"));
}

TEST_F(Generate, ADashIsAnUnderscoreInAConstant) {
  Model model = make_model();
  add_parameter(*model.root, "A-B");
  number(model);
  EXPECT_TRUE(contains(generate(model).header, "  MODEL_Gw_A_B = 1,\n"));
}

TEST_F(Generate, AConstantMadeTwiceGetsTheIdBehindIt) {
  Model model = make_model();
  add_parameter(*model.root, "A-B");
  add_parameter(*model.root, "A_B");
  number(model);
  const std::string header = generate(model).header;
  EXPECT_TRUE(contains(header, "  MODEL_Gw_A_B_1 = 1,\n  MODEL_Gw_A_B_2 = 2,\n"));
}

TEST_F(Generate, AConstantWithAnIdBehindItIsNotAnothers) {
  Model model = make_model();
  add_parameter(*model.root, "A-B");
  add_parameter(*model.root, "A_B");
  add_parameter(*model.root, "A_B_1");
  number(model);
  const std::string header = generate(model).header;
  EXPECT_TRUE(contains(header, "  MODEL_Gw_A_B_1_1 = 1,\n"));
  EXPECT_TRUE(contains(header, "  MODEL_Gw_A_B_1_3 = 3,\n"));
}

TEST_F(Generate, AnEntrysConstantIsNotAComponents) {
  Model model = make_model("COMP.");
  model.components = {{"x", 1}};
  add_parameter(*model.root, "X");
  number(model);
  EXPECT_TRUE(contains(generate(model).header, "  MODEL_COMP_X_1 = 1,\n"));
}

TEST_F(Generate, TheNumberOfComponentsIsTheHighestIdAndOne) {
  EXPECT_TRUE(contains(generate(rich_model()).header, "  GW_COMP_COUNT = 32 "));
}

TEST_F(Generate, TheWordsSlotHasAConstant) {
  EXPECT_TRUE(contains(generate(rich_model()).header, "enum { GW_WORDS = 3 };\n"));
}

TEST_F(Generate, AnEntrysConstantIsNoGeneralName) {
  Model model = make_model("SCHEMA.");
  add_parameter(*model.root, "H");
  number(model);
  EXPECT_NE(compiled(model), nullptr);
}

TEST_F(Generate, RefusesAPrefixOfTheLibrarys) {
  Model model = make_model();
  model.prefix = "Qmibtree";
  number(model);
  EXPECT_EQ(refusal(model), "Qmibtree: begins as the library's own names do");
}

TEST_F(Generate, RefusesAHookThatIsNamedAsSomethingElse) {
  for (const char* const name : {"model_schema", "model_block", "MODEL_UIDS", "MODEL_Gw_A"}) {
    Model model = make_model();
    add_parameter(*model.root, "A")->hooks.set = name;
    number(model);
    EXPECT_EQ(refusal(model),
              std::string(name) + ": no name for a hook: the generated source has it already");
  }
}

TEST_F(Generate, AHookOfManyEntriesIsDeclaredOnce) {
  Model model = make_model();
  for (const char* const name : {"A", "B"}) add_parameter(*model.root, name)->hooks.get = "give";
  number(model);
  const std::string header = generate(model).header;
  const std::string declaration =
      "uint32_t give(qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t* value, "
      "uint32_t flags);\n";
  ASSERT_TRUE(contains(header, declaration));
  EXPECT_EQ(header.find("give("), header.rfind("give("));
}

TEST_F(Generate, ARecordHasItsPathAsAComment) {
  EXPECT_TRUE(contains(generate(rich_model()).source,
                       "        /* 2 Gw.T.{i}.Mode */\n"
                       "        {.uid = 2, .next_uid = 3, .child_uid = -1, .name = \"Mode\""));
}

}  // namespace
}  // namespace mibctl
