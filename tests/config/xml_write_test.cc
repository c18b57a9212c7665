// Shows the configuration document as it is written: what stands in it, and byte for byte how.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

class XmlWrite : public ConfigTest {
 protected:
  // Makes parameters be saved from now on.
  void save(std::initializer_list<House::Uid> uids) {
    for (House::Uid uid : uids) house.record(uid).flags |= QMIBTREE_UID_SAVE;
  }

  std::string document() { return document_of(tree.inst); }

  // The document that starts at a node.
  std::string document_from(const char* name) {
    return render(
        [&](qmibtree_buff_t* buff) { return qmibtree_xml_dump_config(tree.inst, name, buff, 0); });
  }

  void write_text(const char* name, const char* text) {
    ASSERT_EQ(qmibtree_write_strvalue(tree.inst, name, text, 0), QMIBTREE_RC_OK) << name;
  }

  void set_attr(const char* name, uint32_t attr) {
    ASSERT_EQ(qmibtree_set_attr(tree.inst, name, attr), QMIBTREE_RC_OK) << name;
  }

  House house;
  CheckedTree tree{house};
};

std::string after_declaration(const std::string& lines) { return kDeclaration + lines; }

// --- which parameters ---

TEST_F(XmlWrite, NothingToKeepGivesTheDeclarationAlone) { EXPECT_EQ(document(), kDeclaration); }

TEST_F(XmlWrite, SavedParameterIsWrittenWithItsDefaultToo) {
  save({House::kText});
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<PARAM name=\"Text\">t</PARAM>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, SaveModifiedIsLeftOutWhileAtItsDefault) {
  house.record(House::kNumber).flags = QMIBTREE_UID_SAVE_MODIFIED;
  EXPECT_EQ(document(), kDeclaration);
}

TEST_F(XmlWrite, SaveModifiedIsWrittenWhileItDiffers) {
  house.record(House::kNumber).flags = QMIBTREE_UID_SAVE_MODIFIED;
  write_text("R.Number", "6");
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<PARAM name=\"Number\">6</PARAM>\n"
                                          "</R.>\n"));
  write_text("R.Number", "5");
  EXPECT_EQ(document(), kDeclaration);
}

TEST_F(XmlWrite, ModifiedAloneIsNoReasonToWrite) {
  write_text("R.Number", "6");
  EXPECT_EQ(document(), kDeclaration);
}

// One parameter, by its record's flags, whether it is modified, and its attributes.
struct ParamCase {
  const char* name;
  uint32_t record_flags;
  bool modified;
  uint32_t attr;
  const char* line;
};

constexpr uint32_t kActive = QMIBTREE_ATTR_NOTIF_ACTIVE;
constexpr uint32_t kPassive = QMIBTREE_ATTR_NOTIF_PASSIVE;
constexpr uint32_t kSubscriber = QMIBTREE_ATTR_ACCESS_SUBSCRIBER;

const ParamCase kParamCases[] = {
    {"SavedWithActive", QMIBTREE_UID_SAVE, false, kActive,
     "<PARAM name=\"Number\" notification=\"2\">5</PARAM>\n"},
    {"SavedWithPassive", QMIBTREE_UID_SAVE, false, kPassive,
     "<PARAM name=\"Number\" notification=\"1\">5</PARAM>\n"},
    {"SavedWithAccess", QMIBTREE_UID_SAVE, false, kSubscriber,
     "<PARAM name=\"Number\" accesslist=\"subscriber\">5</PARAM>\n"},
    {"SavedWithBoth", QMIBTREE_UID_SAVE, true, kActive | kSubscriber,
     "<PARAM name=\"Number\" notification=\"2\" accesslist=\"subscriber\">6</PARAM>\n"},
    {"ModifiedWithBoth", QMIBTREE_UID_SAVE_MODIFIED, true, kPassive | kSubscriber,
     "<PARAM name=\"Number\" notification=\"1\" accesslist=\"subscriber\">6</PARAM>\n"},
    {"UnmodifiedWithActive", QMIBTREE_UID_SAVE_MODIFIED, false, kActive,
     "<PARAM name=\"Number\" notification=\"2\" ignorevalue=\"yes\"></PARAM>\n"},
    {"UnsavedWithActive", 0, true, kActive,
     "<PARAM name=\"Number\" notification=\"2\" ignorevalue=\"yes\"></PARAM>\n"},
    {"UnsavedWithPassive", 0, false, kPassive,
     "<PARAM name=\"Number\" notification=\"1\" ignorevalue=\"yes\"></PARAM>\n"},
    {"UnsavedWithAccess", 0, false, kSubscriber,
     "<PARAM name=\"Number\" accesslist=\"subscriber\" ignorevalue=\"yes\"></PARAM>\n"},
    {"UnsavedWithBoth", 0, false, kActive | kSubscriber,
     "<PARAM name=\"Number\" notification=\"2\" accesslist=\"subscriber\" "
     "ignorevalue=\"yes\"></PARAM>\n"},
};

class XmlWriteParam : public XmlWrite, public ::testing::WithParamInterface<ParamCase> {};

INSTANTIATE_TEST_SUITE_P(Cases, XmlWriteParam, ::testing::ValuesIn(kParamCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(XmlWriteParam, IsWrittenOnOneLineWithItsAttributesInOrder) {
  house.record(House::kNumber).flags = GetParam().record_flags;
  if (GetParam().modified) write_text("R.Number", "6");
  set_attr("R.Number", GetParam().attr);
  EXPECT_EQ(document(), after_declaration(std::string("<R.>\n") + GetParam().line + "</R.>\n"));
}

TEST_F(XmlWrite, NotificationFromTheSchemaIsAnAttributeToo) {
  house.record(House::kName).flags = QMIBTREE_UID_NOTIF_FORCED;
  add_instance(tree.inst, "R.Port.");
  EXPECT_EQ(document(),
            after_declaration("<R.>\n"
                              "<Port. instance=\"1\">\n"
                              "<PARAM name=\"Name\" notification=\"2\" ignorevalue=\"yes\">"
                              "</PARAM>\n"
                              "</Port.>\n"
                              "</R.>\n"));
}

TEST_F(XmlWrite, AttributesOfAnObjectAreNotWritten) {
  set_attr("R.Box.", kActive | kSubscriber);
  EXPECT_EQ(document(), kDeclaration);
}

// --- values ---

TEST_F(XmlWrite, DynamicValueComesFromItsHook) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = [](qmibtree_inst_t*, qmibtree_node*,
                                           qmibtree_value_t* value, uint32_t) {
    *value = int_value(-77);
    return QMIBTREE_RC_OK;
  };
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<PARAM name=\"Number\">-77</PARAM>\n"
                                          "</R.>\n"));
}

// Deliberate: values are written as they are, also where that breaks the document.
TEST_F(XmlWrite, ValueIsNotEscaped) {
  save({House::kText});
  write_text("R.Text", "<a&\"b'>");
  EXPECT_EQ(document(), text_document("<a&\"b'>"));
}

TEST_F(XmlWrite, StringWithoutAValueIsWrittenAsNullInBrackets) {
  save({House::kText});
  const qmibtree_value_t none = string_value(nullptr);
  ASSERT_EQ(qmibtree_write(tree.inst, "R.Text", &none, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(document(), text_document("<null>"));
}

// --- objects ---

TEST_F(XmlWrite, ObjectIsOpenedJustBeforeItsFirstWrittenParameter) {
  save({House::kLimit});  // behind Inner., which stays out
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Box.>\n"
                                          "<PARAM name=\"Limit\">9</PARAM>\n"
                                          "</Box.>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, ElementsOfSeveralLevelsAreOpenedTopFirstAndClosedAgain) {
  save({House::kText, House::kFlag, House::kLimit, House::kSize});
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<PARAM name=\"Text\">t</PARAM>\n"
                                          "<Box.>\n"
                                          "<Inner.>\n"
                                          "<PARAM name=\"Flag\">false</PARAM>\n"
                                          "</Inner.>\n"
                                          "<PARAM name=\"Limit\">9</PARAM>\n"
                                          "</Box.>\n"
                                          "<Shed.>\n"
                                          "<PARAM name=\"Size\">1</PARAM>\n"
                                          "</Shed.>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, WritingChangesNothing) {
  save({House::kText, House::kLimit});
  add_instance(tree.inst, "R.Port.");
  const std::string first = document();
  EXPECT_EQ(document(), first);
  EXPECT_TRUE(changes().empty());
}

// --- instances ---

TEST_F(XmlWrite, InstanceIsWrittenThoughNothingBelowItIs) {
  add_instance(tree.inst, "R.Port.");
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Port. instance=\"1\">\n"
                                          "</Port.>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, TemplateHasNoElementOfItsOwn) {
  save({House::kName});
  EXPECT_EQ(document(), kDeclaration);  // a template without instances
}

TEST_F(XmlWrite, InstanceOpensTheObjectsAboveIt) {
  add_instance(tree.inst, "R.Yard.Gate.");
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Yard.>\n"
                                          "<Gate. instance=\"1\">\n"
                                          "</Gate.>\n"
                                          "</Yard.>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, RightIsWrittenUnlessNeutral) {
  add_instance(tree.inst, "R.Port.", 3, 255);
  add_instance(tree.inst, "R.Port.", 4, 1);
  add_instance(tree.inst, "R.Port.", 5, 0);
  add_instance(tree.inst, "R.Port.", 6, 256);
  add_instance(tree.inst, "R.Port.", 7, UINT32_MAX);
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Port. instance=\"3\">\n</Port.>\n"
                                          "<Port. instance=\"4\" right=\"1\">\n</Port.>\n"
                                          "<Port. instance=\"5\" right=\"0\">\n</Port.>\n"
                                          "<Port. instance=\"6\" right=\"256\">\n</Port.>\n"
                                          "<Port. instance=\"7\" right=\"-1\">\n</Port.>\n"
                                          "</R.>\n"));
}

TEST_F(XmlWrite, NestedInstancesStandInsideEachOther) {
  save({House::kName, House::kOn, House::kSize});
  add_instance(tree.inst, "R.Port.");
  add_instance(tree.inst, "R.Port.1.Rule.");
  add_instance(tree.inst, "R.Port.1.Rule.", 5);
  add_instance(tree.inst, "R.Port.");
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Port. instance=\"1\">\n"
                                          "<PARAM name=\"Name\">p</PARAM>\n"
                                          "<Rule. instance=\"1\">\n"
                                          "<PARAM name=\"On\">true</PARAM>\n"
                                          "</Rule.>\n"
                                          "<Rule. instance=\"5\">\n"
                                          "<PARAM name=\"On\">true</PARAM>\n"
                                          "</Rule.>\n"
                                          "</Port.>\n"
                                          "<Port. instance=\"2\">\n"
                                          "<PARAM name=\"Name\">p</PARAM>\n"
                                          "</Port.>\n"
                                          "<Shed.>\n"
                                          "<PARAM name=\"Size\">1</PARAM>\n"
                                          "</Shed.>\n"
                                          "</R.>\n"));
}

// --- a subtree ---

// Deliberate: the elements above the start are opened and never closed.
TEST_F(XmlWrite, SubtreeOpensItsAncestorsAndDoesNotCloseThem) {
  save({House::kText, House::kFlag, House::kLimit});
  EXPECT_EQ(document_from("R.Box.Inner."), after_declaration("<R.>\n"
                                                             "<Box.>\n"
                                                             "<Inner.>\n"
                                                             "<PARAM name=\"Flag\">false</PARAM>\n"
                                                             "</Inner.>\n"));
}

TEST_F(XmlWrite, SubtreeOfOneParameterClosesNothing) {
  save({House::kLimit});
  EXPECT_EQ(document_from("R.Box.Limit"), after_declaration("<R.>\n"
                                                            "<Box.>\n"
                                                            "<PARAM name=\"Limit\">9</PARAM>\n"));
}

TEST_F(XmlWrite, SubtreeThatEndsWithAParameterIsTerminated) {
  save({House::kNumber});
  std::string text(200, '\x7f');
  const auto room = static_cast<uint32_t>(text.size());
  qmibtree_buff_t buff = {text.data(), text.data(), room, room};
  ASSERT_EQ(qmibtree_xml_dump_config(tree.inst, "R.Number", &buff, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(buff.pos, text.data() + std::strlen(text.c_str()));
}

TEST_F(XmlWrite, SubtreeOfOneInstanceLeavesTheOthersOut) {
  save({House::kName});
  add_instance(tree.inst, "R.Port.");
  add_instance(tree.inst, "R.Port.");
  EXPECT_EQ(document_from("R.Port.2."), after_declaration("<R.>\n"
                                                          "<Port. instance=\"2\">\n"
                                                          "<PARAM name=\"Name\">p</PARAM>\n"
                                                          "</Port.>\n"));
}

TEST_F(XmlWrite, SubtreeOfATemplateHoldsItsInstances) {
  add_instance(tree.inst, "R.Yard.Gate.");
  add_instance(tree.inst, "R.Yard.Gate.");
  EXPECT_EQ(document_from("R.Yard.Gate."), after_declaration("<R.>\n"
                                                             "<Yard.>\n"
                                                             "<Gate. instance=\"1\">\n</Gate.>\n"
                                                             "<Gate. instance=\"2\">\n</Gate.>\n"));
}

// Deliberate: on the way down to the start, an instance is opened by its own name, without its
// number as an attribute.
TEST_F(XmlWrite, SubtreeBelowAnInstanceOpensTheInstanceByItsOwnName) {
  save({House::kOn});
  add_instance(tree.inst, "R.Port.");
  add_instance(tree.inst, "R.Port.1.Rule.");
  EXPECT_EQ(document_from("R.Port.1.Rule.1."), after_declaration("<R.>\n"
                                                                 "<1.>\n"
                                                                 "<Rule. instance=\"1\">\n"
                                                                 "<PARAM name=\"On\">true</PARAM>\n"
                                                                 "</Rule.>\n"));
}

uint32_t make_instance(qmibtree_inst_t*, qmibtree_node* node) {
  node->flags |= QMIBTREE_NODE_INSTANCE;
  return QMIBTREE_RC_OK;
}

TEST(XmlWriteInstance, ParameterThatAHookMadeAnInstanceIsWrittenAsOne) {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "x").create_fn = make_instance;
  CheckedTree tree(schema);
  tree.leave_unchecked();
  EXPECT_EQ(document_of(tree.inst), after_declaration("<A.>\n"
                                                      "<A. instance=\"0\">\n"
                                                      "</A.>\n"));
}

TEST(XmlWriteInstance, OneBehindAnOrdinaryParameterIsWrittenAsOneToo) {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "p", QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE, "1");
  schema.add(1, "s", QMIBTREE_TYPE_STRING, QMIBTREE_UID_SAVE, "x").create_fn = make_instance;
  CheckedTree tree(schema);
  tree.leave_unchecked();
  EXPECT_EQ(document_of(tree.inst), after_declaration("<A.>\n"
                                                      "<PARAM name=\"p\">1</PARAM>\n"
                                                      "<A. instance=\"0\">\n"
                                                      "</A.>\n"));
}

uint32_t make_parameter(qmibtree_inst_t*, qmibtree_node* node) {
  node->flags = QMIBTREE_NODE_PARAM;
  return QMIBTREE_RC_OK;
}

// A template has no element, so none is closed for it: nor is what is around it, for what was open
// last was the template.
TEST(XmlWriteTemplate, NothingIsClosedForOneThatHoldsAParameter) {
  Schema schema;
  schema.add(0, "A.");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI | QMIBTREE_UID_SAVE).create_fn =
      make_parameter;
  CheckedTree tree(schema);
  tree.leave_unchecked();
  add_instance(tree.inst, "A.T.");
  EXPECT_EQ(document_of(tree.inst), after_declaration("<A.>\n"
                                                      "<PARAM name=\"1.\"></PARAM>\n"));
}

// What is a parameter has no children, whatever hangs below it.
TEST_F(XmlWrite, InstanceThatBecameAParameterIsWrittenWithoutWhatIsBelowIt) {
  save({House::kOn});
  add_instance(tree.inst, "R.Port.");
  add_instance(tree.inst, "R.Port.1.Rule.");
  qmibtree_node* const rule = qmibtree_find_node_by_name(tree.inst, "R.Port.1.Rule.1.");
  rule->flags |= QMIBTREE_NODE_PARAM;
  EXPECT_EQ(document(), after_declaration("<R.>\n"
                                          "<Port. instance=\"1\">\n"
                                          "<Rule. instance=\"1\">\n"
                                          "</Rule.>\n"
                                          "</Port.>\n"
                                          "</R.>\n"));
  rule->flags &= ~QMIBTREE_NODE_PARAM;
}

// As deep as a walk goes: what is below is not written. Each object holds the next and a parameter.
TEST(XmlWriteDepth, ElementsStopBelowLevel254) {
  std::vector<std::string> names;
  for (int level = 0; level <= 256; ++level) names.push_back("P" + std::to_string(level));
  Schema schema;
  schema.add(0, "o.");
  int32_t above = 0;
  for (size_t level = 1; level < names.size(); ++level) {
    const auto object = static_cast<int32_t>(schema.add(1, "o.").uid);
    qmibtree_uidinfo_t& value =
        schema.add(1, names[level].c_str(), QMIBTREE_TYPE_INT, QMIBTREE_UID_SAVE, "1");
    value.next_uid = -1;
    schema.record(static_cast<uint32_t>(above)).child_uid = object;
    schema.record(static_cast<uint32_t>(object)).next_uid = static_cast<int32_t>(value.uid);
    schema.record(static_cast<uint32_t>(object)).child_uid = -1;
    above = object;
  }
  for (uint32_t uid = 2; uid < schema.size(); uid += 2) schema.record(uid).next_uid = -1;
  const CheckedTree tree(schema);
  const std::string text = document_of(tree.inst);
  EXPECT_NE(text.find("\"P254\""), std::string::npos);
  EXPECT_EQ(text.find("\"P255\""), std::string::npos);
}

TEST_F(XmlWrite, UnknownSubtreeIsNotFound) {
  qmibtree_buff_t counted = {};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, "R.Nothing.", &counted, 0), QMIBTREE_RC_NOT_FOUND);
}

TEST_F(XmlWrite, UnknownSubtreeIsLookedForBehindTheDeclaration) {
  char text[sizeof kDeclaration] = "";
  qmibtree_buff_t enough = {text, text, sizeof text, sizeof text};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, "R.Nothing.", &enough, 0), QMIBTREE_RC_NOT_FOUND);
  EXPECT_STREQ(text, kDeclaration);
  qmibtree_buff_t one_less = {text, text, sizeof text - 1, sizeof text - 1};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, "R.Nothing.", &one_less, 0),
            QMIBTREE_RC_DUMP_EXCEEDED);
}

TEST_F(XmlWrite, FlagsAreNotUsed) {
  save({House::kText});
  qmibtree_buff_t counted = {};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, nullptr, &counted, UINT32_MAX), QMIBTREE_RC_OK);
  EXPECT_EQ(counted.size, document().size());
}

// --- failures ---

TEST_F(XmlWrite, EveryBufferThatIsTooSmallIsExceeded) {
  save({House::kText, House::kFlag, House::kLimit, House::kOn, House::kNumber});
  set_attr("R.Number", kActive | kSubscriber);
  set_attr("R.Shed.Size", kPassive);
  add_instance(tree.inst, "R.Port.", 0, 7);
  add_instance(tree.inst, "R.Port.1.Rule.");
  add_instance(tree.inst, "R.Yard.Gate.");
  const std::string whole = document();
  for (uint32_t size = 0; size <= whole.size(); ++size) {
    std::string text(size, '\0');
    qmibtree_buff_t buff = {text.data(), text.data(), size, size};
    ASSERT_EQ(qmibtree_xml_dump_config(tree.inst, nullptr, &buff, 0), QMIBTREE_RC_DUMP_EXCEEDED)
        << size;
    // filled to the last byte by what was cut, and by nothing that came after it
    ASSERT_EQ(std::string(text.c_str()), whole.substr(0, size > 0 ? size - 1 : 0)) << size;
  }
}

// The document stops where the value should have come.
TEST_F(XmlWrite, FailedReadEndsTheDocumentInsideItsElement) {
  save({House::kText, House::kNumber, House::kLimit});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  char text[200];
  qmibtree_buff_t buff = {text, text, sizeof text, sizeof text};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, nullptr, &buff, 0), QMIBTREE_RC_NO_HOOK);
  EXPECT_EQ(std::string(text), after_declaration("<R.>\n"
                                                 "<PARAM name=\"Text\">t</PARAM>\n"
                                                 "<PARAM name=\"Number\">"));
}

TEST_F(XmlWrite, HookResultIsPassedUp) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*,
                                           uint32_t) { return QMIBTREE_RC_NO_RESOURCE; };
  qmibtree_buff_t counted = {};
  EXPECT_EQ(qmibtree_xml_dump_config(tree.inst, nullptr, &counted, 0), QMIBTREE_RC_NO_RESOURCE);
}

TEST_F(XmlWrite, UnsavedParameterIsNotRead) {
  house.record(House::kNumber).flags = QMIBTREE_UID_DYNAMIC;  // a read would fail
  set_attr("R.Number", kActive);
  EXPECT_EQ(document(),
            after_declaration("<R.>\n"
                              "<PARAM name=\"Number\" notification=\"2\" ignorevalue=\"yes\">"
                              "</PARAM>\n"
                              "</R.>\n"));
}

// --- to a file ---

class XmlWriteFile : public XmlWrite {
 protected:
  uint32_t dump(const std::string& path, int32_t offset, const char* name = nullptr) {
    printed = stdout_of([&] {
      rc = qmibtree_xml_dump_config_to_file(tree.inst, name, path.c_str(), offset, &length, 0);
    });
    return rc;
  }

  static std::string length_line(size_t bytes) {
    return "\n **********+=+ length = " + std::to_string(bytes) + " ********\n";
  }

  uint32_t rc = 0;
  uint32_t length = 12345;
  std::string printed;
};

TEST_F(XmlWriteFile, HoldsTheDocument) {
  save({House::kText});
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), text_document("t"));
  EXPECT_EQ(length, text_document("t").size());
}

TEST_F(XmlWriteFile, LengthIsPrinted) {
  save({House::kText});
  dump(folder.path("f"), 0);
  EXPECT_EQ(printed, length_line(text_document("t").size()));
}

TEST_F(XmlWriteFile, OffsetIsCountedFromTheStart) {
  save({House::kText});
  EXPECT_EQ(dump(folder.path("f"), 8), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), std::string(8, '\0') + text_document("t"));
  EXPECT_EQ(length, text_document("t").size());
}

TEST_F(XmlWriteFile, HoldsASubtree) {
  save({House::kText, House::kSize});
  EXPECT_EQ(dump(folder.path("f"), 0, "R.Shed."), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), document_from("R.Shed."));
}

TEST_F(XmlWriteFile, TakesOneBlockForTheText) {
  save({House::kText});
  allocation_tags();
  dump(folder.path("f"), 0);
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"mibtree buffer"});
}

TEST_F(XmlWriteFile, FileThatCannotBeOpenedGivesItsResultAndStillTheLength) {
  save({House::kText});
  EXPECT_EQ(dump(folder.path("missing/f"), 0), QMIBTREE_RC_ERROR);
  EXPECT_EQ(length, text_document("t").size());
  EXPECT_EQ(printed, length_line(length));
}

TEST_F(XmlWriteFile, UnknownSubtreeTouchesNothing) {
  folder.write("f", "old");
  EXPECT_EQ(dump(folder.path("f"), 0, "R.Nothing."), QMIBTREE_RC_NOT_FOUND);
  EXPECT_EQ(folder.read("f"), "old");
  EXPECT_EQ(length, 12345u);
  EXPECT_EQ(printed, "");
}

TEST_F(XmlWriteFile, FailedCountingPassTouchesNothing) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  folder.write("f", "old");
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_NO_HOOK);
  EXPECT_EQ(folder.read("f"), "old");
  EXPECT_EQ(length, 12345u);
  EXPECT_EQ(printed, "");
}

// Reads of R.Number before one fails; each pass of a dump reads it once.
int good_reads;

uint32_t get_until_it_fails(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = int_value(4);
  return good_reads-- > 0 ? QMIBTREE_RC_OK : QMIBTREE_RC_NO_RESOURCE;
}

TEST_F(XmlWriteFile, FailedSecondPassSetsTheCountedLengthAndKeepsTheFile) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = get_until_it_fails;
  good_reads = 2;
  const size_t counted = document().size();
  folder.write("f", "old");
  good_reads = 1;
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_NO_RESOURCE);
  EXPECT_EQ(folder.read("f"), "old");
  EXPECT_EQ(length, counted);
  EXPECT_EQ(printed, "");
}

int32_t answered = 0;

uint32_t get_growing(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = int_value(answered++);
  return QMIBTREE_RC_OK;
}

TEST_F(XmlWriteFile, DocumentThatGrowsBetweenThePassesIsExceeded) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = get_growing;
  answered = 9;  // then 10
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_DUMP_EXCEEDED);
  EXPECT_FALSE(folder.has("f"));
}

uint32_t get_shrinking(qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t* value, uint32_t) {
  *value = int_value(answered--);
  return QMIBTREE_RC_OK;
}

TEST_F(XmlWriteFile, LengthIsThatOfTheSecondPass) {
  save({House::kNumber});
  house.record(House::kNumber).flags |= QMIBTREE_UID_DYNAMIC;
  house.record(House::kNumber).get_fn = get_shrinking;
  answered = 10;  // then 9
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), after_declaration("<R.>\n"
                                                "<PARAM name=\"Number\">9</PARAM>\n"
                                                "</R.>\n"));
  EXPECT_EQ(length, folder.read("f").size());
  EXPECT_EQ(printed, length_line(length));
}

// Deliberate: a success without a file.
TEST_F(XmlWriteFile, ExhaustedMemoryIsASuccessThatWritesNothing) {
  save({House::kText});
  fail_allocation_after(0);
  EXPECT_EQ(dump(folder.path("f"), 0), QMIBTREE_RC_OK);
  EXPECT_TRUE(allocations_work());
  EXPECT_FALSE(folder.has("f"));
  EXPECT_EQ(length, text_document("t").size());
  EXPECT_EQ(printed, "");
}

TEST_F(XmlWriteFile, ShortDeviceIsAnErrorAfterTheLengthWasPrinted) {
  flash_reset();
  flash_resize(kMain, 20000);
  save({House::kText});
  const std::string value(50000, 'x');
  write_text("R.Text", value.c_str());
  EXPECT_EQ(dump(kMainDevice, 8), QMIBTREE_RC_ERROR);
  EXPECT_EQ(length, text_document(value).size());
  EXPECT_EQ(printed, length_line(length));
  expect_left_open(flash_path(kMain));
}

// With each allocation failing in turn the file holds the whole document, one whose base64 value
// went missing, or does not exist.
TEST(XmlWriteFileSweep, AnyFailedAllocationLeavesAWholeDocumentOrNone) {
  const Folder folder;
  Schema schema;
  schema.add(0, "R.");
  schema.add(1, "Key", QMIBTREE_TYPE_BASE64, QMIBTREE_UID_SAVE);
  CheckedTree tree(schema);
  const qmibtree_value_t key = base64_value("abcdef", 6);
  ASSERT_EQ(qmibtree_write(tree.inst, "R.Key", &key, 0), QMIBTREE_RC_OK);
  const std::string whole = document_of(tree.inst);
  const std::string without =
      after_declaration("<R.>\n<PARAM name=\"Key\"><null></PARAM>\n</R.>\n");
  const int live = live_blocks();
  bool struck = true;
  for (int n = 0; struck; ++n) {
    std::filesystem::remove(folder.path("f"));
    uint32_t length = 0;
    uint32_t rc = 0;
    stdout_of([&] {
      fail_allocation_after(n);
      rc = qmibtree_xml_dump_config_to_file(tree.inst, nullptr, folder.path("f").c_str(), 0,
                                            &length, 0);
      struck = allocations_work();
    });
    ASSERT_EQ(live_blocks(), live) << n;
    if (folder.has("f")) {
      ASSERT_EQ(rc, QMIBTREE_RC_OK) << n;
      ASSERT_TRUE(folder.read("f") == whole || (struck && folder.read("f") == without)) << n;
      ASSERT_EQ(length, folder.read("f").size()) << n;
    } else {
      // no memory for the text, or a text that counted on a shorter value
      ASSERT_TRUE(struck && (rc == QMIBTREE_RC_OK || rc == QMIBTREE_RC_DUMP_EXCEEDED)) << n;
    }
  }
}

}  // namespace
