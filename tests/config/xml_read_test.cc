// Shows how a configuration document is loaded into a tree, and what a hostile one cannot do.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../support/long_text.hh"
#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

using namespace qmibtree_testkit;

namespace {

class XmlRead : public ConfigTest {
 protected:
  uint32_t load(const std::string& text, uint32_t flags = 0) {
    return load_document(tree.inst, text, flags);
  }

  std::string read(const char* name) { return read_text(tree.inst, name); }
  int32_t instances(const char* name) { return qmibtree_get_childnum(tree.inst, name); }

  // The texts that changed values were given, oldest first.
  std::vector<std::string> changed_to() {
    std::vector<std::string> texts;
    for (const Change& change : changes()) texts.push_back(change.text);
    return texts;
  }

  House house;
  CheckedTree tree{house};
};

using Texts = std::vector<std::string>;

// A parameter of R. with a content.
std::string in_root(const std::string& element) { return "<R.>" + element + "</R.>"; }
std::string text_param(const std::string& content) {
  return in_root("<PARAM name=\"Text\">" + content + "</PARAM>");
}

// --- values and paths ---

TEST_F(XmlRead, ValuesGoToTheParametersOfTheirPaths) {
  EXPECT_EQ(load(kDeclaration + std::string("<R.>\n"
                                            "<PARAM name=\"Text\">new</PARAM>\n"
                                            "<Box.>\n"
                                            "<Inner.>\n"
                                            "<PARAM name=\"Flag\">true</PARAM>\n"
                                            "</Inner.>\n"
                                            "<PARAM name=\"Limit\">8</PARAM>\n"
                                            "</Box.>\n"
                                            "<PARAM name=\"Number\">-3</PARAM>\n"
                                            "</R.>\n")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Box.Inner.Flag"), "true");
  EXPECT_EQ(read("R.Box.Limit"), "8");
  EXPECT_EQ(read("R.Number"), "-3");
}

TEST_F(XmlRead, DeclarationMayBeMissing) {
  EXPECT_EQ(load(text_param("new")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, NameAttributeNamesAnyElement) {
  EXPECT_EQ(load("<x name=\"R.\"><y name=\"Text\">new</y></x>"), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, ElementWithoutANameAttributeIsNamedByItself) {
  EXPECT_EQ(load(in_root("<Text>new</Text>")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, EmptyNameAddsNothingToThePath) {
  EXPECT_EQ(load(text_param("<PARAM name=\"\">new</PARAM>")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, ElementWithoutContentLeavesTheValue) {
  EXPECT_EQ(load(text_param("")), QMIBTREE_RC_OK);
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\"/>")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_TRUE(changes().empty());
}

TEST_F(XmlRead, ValueOfAnAttributeIsNotTheNameOfOne) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\" a=\"ignorevalue\" yes=\"b\">new</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, BlanksAreAValue) {
  EXPECT_EQ(load(text_param(" \t")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), " \t");
}

TEST_F(XmlRead, TextInAnObjectIsIgnored) {
  allocation_tags();
  EXPECT_EQ(load("<R.>stray<Port.>stray</Port.></R.>"), QMIBTREE_RC_OK);
  EXPECT_TRUE(changes().empty());
  EXPECT_EQ(allocation_tags(), Texts{});  // not even copied
}

// The newer of two nodes of one name is found, also behind a text that the older one ignored: here
// the object T.1.x, and the parameter of the instance T.1.
class XmlReadNames : public ConfigTest {
 protected:
  XmlReadNames() {
    schema.add(0, "R.");
    schema.add(1, "T.1.x");
    schema.add(2, "k", QMIBTREE_TYPE_INT, 0, "0");
    schema.add(2, "L.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
    schema.add(2, "x", QMIBTREE_TYPE_STRING, 0, "old");
  }
  ~XmlReadNames() override { on_change() = nullptr; }

  enum : uint32_t { kRoot, kObject, kNumber, kLine };
  Schema schema;
};

uint32_t add_first(qmibtree_inst_t* inst) {
  uint32_t number = 0;
  return qmibtree_add_object(inst, "R.T.", &number, 0, 255);
}

TEST_F(XmlReadNames, AParameterTakesTheTextBehindAnObjectThatItsNameBegins) {
  schema.add(1, "P", QMIBTREE_TYPE_STRING, 0, "old");
  schema.add(1, "Pen.");
  CheckedTree tree(schema);
  EXPECT_EQ(load_document(tree.inst, in_root("<PARAM name=\"P\"><en.>a</en.>b</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.P"), "b");
}

TEST_F(XmlReadNames, AParameterMadeByTheCallbackMeanwhileTakesTheTextBehindIt) {
  CheckedTree tree(schema);
  on_change() = [](qmibtree_inst_t* inst, qmibtree_node* node, qmibtree_value_t*) {
    return std::string(node->name) == "k" ? add_first(inst) : 0u;
  };
  EXPECT_EQ(load_document(tree.inst, in_root("<PARAM name=\"T.1.x\">a<k>5</k>b</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.T.1.x"), "b");
}

TEST_F(XmlReadNames, AParameterMadeByACreateHookMeanwhileTakesTheTextBehindIt) {
  schema.record(kLine).create_fn = [](qmibtree_inst_t* inst, qmibtree_node*) {
    return add_first(inst);
  };
  CheckedTree tree(schema);
  const std::string line = "<L. instance=\"1\"></L.>";
  EXPECT_EQ(load_document(tree.inst, in_root("<PARAM name=\"T.1.x\">a" + line + "b</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.T.1.x"), "b");
}

TEST_F(XmlRead, UnknownNamesAreSkippedWithAllBelowThem) {
  EXPECT_EQ(load("<R.><Barn.><PARAM name=\"Text\">no</PARAM></Barn.>"
                 "<PARAM name=\"Colour\">no</PARAM><PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_EQ(read("R.Number"), "6");
}

TEST_F(XmlRead, UnknownAttributesAreIgnored) {
  EXPECT_EQ(load(in_root("<PARAM title=\"x\" name=\"Text\" Name=\"y\" NOTIFICATION=\"2\">new"
                         "</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(tree.node("R.Text")->flags & QMIBTREE_NODE_NOTIF_ACTIVE, 0u);
}

TEST_F(XmlRead, ParameterNamedTwiceKeepsItsLastValue) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">a</PARAM><PARAM name=\"Text\">b</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "b");
}

TEST_F(XmlRead, TextIsCopiedBeforeItIsWritten) {
  ASSERT_EQ(load(text_param("new")), QMIBTREE_RC_OK);
  const Texts tags = allocation_tags();
  EXPECT_EQ(std::count(tags.begin(), tags.end(), "xml_data"), 1);
}

TEST_F(XmlRead, BufferIsLeftAsItWas) {
  std::string text = text_param("new");
  const std::string before = text;
  qmibtree_buff_t buff = {text.data(), nullptr, 0, 0};  // only `start` counts
  EXPECT_EQ(qmibtree_xml_load(tree.inst, &buff, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(text, before);
}

// --- text in pieces: each is written as the whole value ---

struct Pieces {
  const char* name;
  const char* content;
  Texts values;  // that the parameter takes on, one after the other
};

class XmlReadPieces : public XmlRead, public ::testing::WithParamInterface<Pieces> {};

const Pieces kPieces[] = {
    {"AtAReference", "a&amp;b", {"a", "&", "b"}},
    {"AtACharacterReference", "a&#66;c", {"a", "B", "c"}},
    {"AtALineEnd", "a\nb", {"a", "\n", "b"}},
    {"AtAFinalLineEnd", "a\n", {"a", "\n"}},
    {"AroundAnElement", "a<x/>b", {"a", "b"}},
    {"AroundAComment", "a<!-- x -->b", {"a", "b"}},
    {"NotInACharacterDataSection", "<![CDATA[a<&b]]>", {"a<&b"}},
};

INSTANTIATE_TEST_SUITE_P(Cut, XmlReadPieces, ::testing::ValuesIn(kPieces),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(XmlReadPieces, LastPieceWins) {
  EXPECT_EQ(load(text_param(GetParam().content)), QMIBTREE_RC_OK);
  EXPECT_EQ(changed_to(), GetParam().values);
}

// --- attributes ---

struct Attributes {
  const char* name;
  uint32_t before;  // attributes set before the load
  const char* text;
  uint32_t after;
};

constexpr uint32_t kActive = QMIBTREE_ATTR_NOTIF_ACTIVE;
constexpr uint32_t kPassive = QMIBTREE_ATTR_NOTIF_PASSIVE;
constexpr uint32_t kOff = QMIBTREE_ATTR_NOTIF_OFF;
constexpr uint32_t kSubscriber = QMIBTREE_ATTR_ACCESS_SUBSCRIBER;
constexpr uint32_t kNone = QMIBTREE_ATTR_ACCESS_NONE;

const Attributes kAttributes[] = {
    {"TwoIsActive", kPassive, "notification=\"2\"", kActive | kNone},
    {"OneIsPassive", kActive, "notification=\"1\"", kPassive | kNone},
    {"ZeroIsOff", kActive, "notification=\"0\"", kOff | kNone},
    {"AnyOtherTextIsOff", kPassive, "notification=\"active\"", kOff | kNone},
    {"EmptyTextIsOff", kActive, "notification=\"\"", kOff | kNone},
    {"LongerActiveIsOff", kActive, "notification=\"20\"", kOff | kNone},
    {"LongerPassiveIsOff", kActive, "notification=\"10\"", kOff | kNone},
    {"LongerSubscriberTakesAccess", kSubscriber, "accesslist=\"subscribers\"", kOff | kNone},
    {"SubscriberGivesAccess", kNone, "accesslist=\"subscriber\"", kOff | kSubscriber},
    {"AnyOtherListTakesAccess", kSubscriber, "accesslist=\"Subscriber\"", kOff | kNone},
    {"EmptyListTakesAccess", kSubscriber, "accesslist=\"\"", kOff | kNone},
    {"NotificationLeavesAccess", kSubscriber, "notification=\"2\"", kActive | kSubscriber},
    {"AccessLeavesNotification", kPassive, "accesslist=\"subscriber\"", kPassive | kSubscriber},
    {"BothInAnyOrder", 0, "accesslist=\"subscriber\" notification=\"1\"", kPassive | kSubscriber},
    {"NeitherLeavesBoth", kActive | kSubscriber, "", kActive | kSubscriber},
};

class XmlReadAttributes : public XmlRead, public ::testing::WithParamInterface<Attributes> {};

INSTANTIATE_TEST_SUITE_P(Table, XmlReadAttributes, ::testing::ValuesIn(kAttributes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(XmlReadAttributes, AreSetOnTheParameter) {
  qmibtree_set_attr(tree.inst, "R.Text", GetParam().before);
  EXPECT_EQ(load(in_root(std::string("<PARAM name=\"Text\" ") + GetParam().text + "></PARAM>")),
            QMIBTREE_RC_OK);
  uint32_t after = 0;
  qmibtree_get_attr(tree.inst, "R.Text", &after);
  EXPECT_EQ(after, GetParam().after);
  EXPECT_EQ(read("R.Text"), "t");
}

TEST_F(XmlRead, AttributesMayStandBeforeTheName) {
  EXPECT_EQ(load(in_root("<PARAM notification=\"2\" name=\"Text\">new</PARAM>")), QMIBTREE_RC_OK);
  EXPECT_NE(tree.node("R.Text")->flags & QMIBTREE_NODE_NOTIF_ACTIVE, 0u);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, AttributesAreSetBeforeTheValueIsWritten) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\" notification=\"2\">new</PARAM>")), QMIBTREE_RC_OK);
  EXPECT_EQ(qmibtree_notif_get_event(tree.inst->notif, 0), tree.node("R.Text"));
}

TEST_F(XmlRead, AttributesOfOneElementDoNotReachTheNext) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\" notification=\"2\" accesslist=\"subscriber\"></PARAM>"
                 "<PARAM name=\"Number\"></PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(tree.node("R.Number")->flags, QMIBTREE_NODE_PARAM);
}

TEST_F(XmlRead, AttributesOfAnInstanceElementGoToTheInstance) {
  EXPECT_EQ(load(in_root("<Port. instance=\"1\" notification=\"1\"></Port.>")), QMIBTREE_RC_OK);
  EXPECT_NE(tree.node("R.Port.1.")->flags & QMIBTREE_NODE_NOTIF_PASSIVE, 0u);
  EXPECT_EQ(tree.node("R.Port.")->flags & QMIBTREE_NODE_NOTIF_PASSIVE, 0u);
}

TEST_F(XmlRead, AttributesOfAnUnknownParameterAreIgnored) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Colour\" notification=\"2\">red</PARAM>")), QMIBTREE_RC_OK);
}

TEST_F(XmlRead, IgnoreValueYesLeavesTheValue) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\" notification=\"2\" ignorevalue=\"yes\">no</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_NE(tree.node("R.Text")->flags & QMIBTREE_NODE_NOTIF_ACTIVE, 0u);
}

TEST_F(XmlRead, IgnoreValueOtherThanYesDoesNothing) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\" ignorevalue=\"no\">new</PARAM>"
                         "<PARAM name=\"Number\" ignorevalue=\"YES\">6</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Number"), "6");
}

TEST_F(XmlRead, IgnoreValueHoldsForItsElementOnly) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\" ignorevalue=\"yes\">no</PARAM>"
                 "<PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_EQ(read("R.Number"), "6");
}

// Every start tag decides anew, and an end tag does not bring the old answer back.
TEST_F(XmlRead, IgnoreValueEndsAtAnElementInside) {
  EXPECT_EQ(load(in_root("<PARAM name=\"Text\" ignorevalue=\"yes\">no<x/>new</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(changed_to(), Texts{"new"});
}

// --- instances ---

TEST_F(XmlRead, InstanceIsMadeAndItsParametersAreFoundInIt) {
  EXPECT_EQ(load("<R.><Port. instance=\"3\"><PARAM name=\"Name\">wan</PARAM></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 1);
  EXPECT_EQ(read("R.Port.3.Name"), "wan");
}

TEST_F(XmlRead, GapsBetweenInstancesAreKept) {
  EXPECT_EQ(load("<R.><Port. instance=\"2\"></Port.><Port. instance=\"7\"></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 2);
  EXPECT_NE(tree.node("R.Port.2."), nullptr);
  EXPECT_NE(tree.node("R.Port.7."), nullptr);
}

TEST_F(XmlRead, InstancesNestAndPathsAreCutBackBehindThem) {
  EXPECT_EQ(load("<R.>"
                 "<Port. instance=\"1\">"
                 "<Rule. instance=\"4\"><PARAM name=\"On\">false</PARAM></Rule.>"
                 "<PARAM name=\"Name\">one</PARAM>"
                 "</Port.>"
                 "<Yard.><Gate. instance=\"2\"><PARAM name=\"Open\">true</PARAM></Gate.></Yard.>"
                 "<PARAM name=\"Text\">new</PARAM>"
                 "</R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Port.1.Rule.4.On"), "false");
  EXPECT_EQ(read("R.Port.1.Name"), "one");
  EXPECT_EQ(read("R.Yard.Gate.2.Open"), "true");
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, ExistingInstanceIsTakenAsItIs) {
  add_instance(tree.inst, "R.Port.", 2, 9);
  EXPECT_EQ(load("<R.><Port. instance=\"2\" right=\"1\"><PARAM name=\"Name\">wan</PARAM></Port."
                 "></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 1);
  EXPECT_EQ(read("R.Port.2.Name"), "wan");
  EXPECT_EQ(tree.node("R.Port.2.")->right, 9u);
}

// Numbers only grow: a lower one in the document is replaced by the next, also in the path.
TEST_F(XmlRead, InstanceOutOfOrderGetsTheNextNumberWithItsValues) {
  EXPECT_EQ(load("<R.><Port. instance=\"5\"></Port.>"
                 "<Port. instance=\"3\"><PARAM name=\"Name\">wan</PARAM></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(tree.node("R.Port.3."), nullptr);
  EXPECT_EQ(read("R.Port.6.Name"), "wan");
}

TEST_F(XmlRead, RightIsNeutralUnlessGiven) {
  EXPECT_EQ(load("<R.><Port. instance=\"1\"></Port.><Port. right=\"1\" instance=\"2\"></Port."
                 "><Port. instance=\"3\" right=\"-1\"></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(tree.node("R.Port.1.")->right, 255u);
  EXPECT_EQ(tree.node("R.Port.2.")->right, 1u);
  EXPECT_EQ(tree.node("R.Port.3.")->right, UINT32_MAX);
}

TEST_F(XmlRead, RightOfOneInstanceDoesNotReachTheNext) {
  EXPECT_EQ(load("<R.><Port. instance=\"1\" right=\"1\"></Port.><Port. instance=\"2\"></Port."
                 "></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(tree.node("R.Port.2.")->right, 255u);
}

TEST_F(XmlRead, InstanceZeroIsAnOrdinaryObject) {
  EXPECT_EQ(load("<R.><Box. instance=\"0\"><PARAM name=\"Limit\">8</PARAM></Box."
                 "><Port. instance=\"0\"></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Box.Limit"), "8");
  EXPECT_EQ(instances("R.Port."), 0);
}

TEST_F(XmlRead, InstanceWithoutANumberIsAnOrdinaryObject) {
  EXPECT_EQ(load("<R.><Box. instance=\"one\"><PARAM name=\"Limit\">8</PARAM></Box.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Box.Limit"), "8");
}

TEST_F(XmlRead, InstanceNumberEndsAtTheFirstOtherCharacter) {
  EXPECT_EQ(load("<R.><Port. instance=\" 7x8\"><PARAM name=\"Name\">wan</PARAM></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Port.7.Name"), "wan");
}

TEST_F(XmlRead, NamedElementWithANumberIsAnInstanceOfTheNamedTemplate) {
  EXPECT_EQ(load("<R.><x instance=\"2\" name=\"Port.\"><PARAM name=\"Name\">wan</PARAM></x></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Port.2.Name"), "wan");
}

TEST_F(XmlRead, InstanceOfSomethingElseIsSkippedWithAllBelowIt) {
  EXPECT_EQ(load("<R.><Box. instance=\"1\"><PARAM name=\"Limit\">8</PARAM></Box."
                 "><Barn. instance=\"1\"><PARAM name=\"Limit\">8</PARAM></Barn."
                 "><PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Box.Limit"), "9");
  EXPECT_EQ(read("R.Number"), "6");
}

TEST_F(XmlRead, InstanceThatCannotBeBuiltIsSkipped) {
  house.record(House::kName).defval = nullptr;
  house.record(House::kName).get_fn = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*,
                                         uint32_t) { return QMIBTREE_RC_NO_RESOURCE; };
  EXPECT_EQ(load("<R.><Port. instance=\"1\"><PARAM name=\"Name\">wan</PARAM></Port."
                 "><PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 0);
  EXPECT_EQ(read("R.Number"), "6");
}

// Deliberate: from 1000 on an instance's name has no dot, but its path in a document has one.
TEST_F(XmlRead, InstanceOf1000IsMadeAndItsValuesAreNotFound) {
  EXPECT_EQ(load("<R.><Port. instance=\"1000\"><PARAM name=\"Name\">wan</PARAM></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 1);
  EXPECT_EQ(read("R.Port.1000Name"), "p");
}

// Deliberate: the number in a path is cut at nine characters, the dot then being lost.
TEST(XmlReadNumber, InstanceNumberInAPathIsCutAtNineCharacters) {
  Schema schema;
  schema.add(0, "R.");
  schema.add(1, "T.", QMIBTREE_TYPE_OBJECT, QMIBTREE_UID_MULTI);
  schema.add(1, "T.123456789X", QMIBTREE_TYPE_STRING);  // where such a path leads
  schema.add(1, "T.12345678.X", QMIBTREE_TYPE_STRING);
  CheckedTree tree(schema);
  EXPECT_EQ(load_document(tree.inst,
                          "<R.><T. instance=\"1234567890\"><PARAM name=\"X\">a</PARAM></T.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.T.123456789X"), "a");
  tree.destroy();
  tree.inst = qmibtree_init(schema.block());
  EXPECT_EQ(load_document(tree.inst,
                          "<R.><T. instance=\"12345678\"><PARAM name=\"X\">b</PARAM></T.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.T.12345678.X"), "b");
}

TEST_F(XmlRead, NegativeInstanceNumberIsANumberLikeAnyOther) {
  EXPECT_EQ(load("<R.><Port. instance=\"-1\"><PARAM name=\"Name\">wan</PARAM></Port.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(instances("R.Port."), 1);
  EXPECT_EQ(read("R.Port.-1.Name"), "wan");
}

// --- what the tree refuses ---

TEST_F(XmlRead, RefusedValuesAreSkippedUnreported) {
  house.record(House::kNumber).int_max = 10;
  house.record(House::kText).max_len = 3;
  house.record(House::kLimit).set_fn = [](qmibtree_inst_t*, qmibtree_node*, qmibtree_value_t*) {
    return QMIBTREE_RC_INVALID_VALUE;
  };
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">long</PARAM><PARAM name=\"Number\">11</PARAM>"
                 "<Box.><Inner.><PARAM name=\"Flag\">yes</PARAM></Inner."
                 "><PARAM name=\"Limit\">8</PARAM></Box."
                 "><Shed.><PARAM name=\"Size\">2</PARAM></Shed.></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_EQ(read("R.Number"), "5");
  EXPECT_EQ(read("R.Box.Inner.Flag"), "false");
  EXPECT_EQ(read("R.Box.Limit"), "9");
  EXPECT_EQ(read("R.Shed.Size"), "2");
}

// Deliberate: datetime text is refused everywhere, so a saved datetime does not come back.
TEST(XmlReadDatetime, DatetimeTextLeavesTheValue) {
  Schema schema;
  schema.add(0, "R.");
  schema.add(1, "At", QMIBTREE_TYPE_DATETIME, QMIBTREE_UID_SAVE);
  CheckedTree tree(schema);
  const qmibtree_value_t at = datetime_value(86400);
  ASSERT_EQ(qmibtree_write(tree.inst, "R.At", &at, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(load_document(tree.inst, in_root("<PARAM name=\"At\">2010-05-06T07:08:09</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(tree.inst, "R.At"), "1970-01-02T00:00:00");
}

// --- the load's flags ---

TEST_F(XmlRead, FlagsZeroRefreshesReadOnlyParametersAndMarksNoComponent) {
  qmibtree_comp_register(3, 0, nullptr, nullptr, nullptr, nullptr);
  house.record(House::kText).comp = 3;
  house.record(House::kText).flags = QMIBTREE_UID_READONLY;
  EXPECT_EQ(load(text_param("new")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(qmibtree_comp_chk_mark(3, QMIBTREE_COMP_MARK_CHANGED), 0);
}

TEST_F(XmlRead, FlagsAreThoseOfEveryWrite) {
  qmibtree_comp_register(3, 0, nullptr, nullptr, nullptr, nullptr);
  house.record(House::kText).comp = 3;
  house.record(House::kNumber).flags = QMIBTREE_UID_READONLY;
  EXPECT_EQ(load("<R.><PARAM name=\"Text\" notification=\"2\">new</PARAM>"
                 "<PARAM name=\"Number\">6</PARAM></R.>",
                 QMIBTREE_WRITE_NOEVENT),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Number"), "5");
  EXPECT_EQ(qmibtree_comp_chk_mark(3, QMIBTREE_COMP_MARK_CHANGED), 1);
  EXPECT_EQ(qmibtree_notif_get_event(tree.inst->notif, 0), nullptr);
}

TEST_F(XmlRead, SubscriberFlagNeedsAccessThatTheElementItselfMayGive) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\" accesslist=\"subscriber\">new</PARAM>"
                 "<PARAM name=\"Number\">6</PARAM></R.>",
                 QMIBTREE_WRITE_SUBSCRIBER),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Number"), "5");
}

// --- documents that are not well-formed ---

struct Broken {
  const char* name;
  std::string text;
};

const Broken kBroken[] = {
    {"EmptyText", ""},
    {"DeclarationAlone", kDeclaration},
    {"NoMarkup", "text"},
    {"WrongEndTag", "<R.></S.>"},
    {"TwoRoots", "<R.></R.><R.></R.>"},
    {"BlankBeforeTheDeclaration", std::string(" ") + kDeclaration + "<R.></R.>"},
    {"AttributeTwice", "<R. name=\"a\" name=\"b\"></R.>"},
    {"UnknownEntity", "<R.>&what;</R.>"},
    {"ByteThatIsNotUtf8", "<R.>\xff</R.>"},
    {"UnknownEncoding", "<?xml version=\"1.0\" encoding=\"x-what\"?><R.></R.>"},
    {"ErasedFlashBehindIt", "<R.></R.>\n\xff\xff\xff\xff"},
};

class XmlReadBroken : public XmlRead, public ::testing::WithParamInterface<Broken> {};

INSTANTIATE_TEST_SUITE_P(Documents, XmlReadBroken, ::testing::ValuesIn(kBroken),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(XmlReadBroken, IsAnError) { EXPECT_EQ(load(GetParam().text), QMIBTREE_RC_ERROR); }

TEST_P(XmlReadBroken, IsReportedOnNeitherStream) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(stdout_of([&] { load(GetParam().text); }), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(XmlRead, WhatCameBeforeAnErrorStaysApplied) {
  EXPECT_EQ(load("<R.><Port. instance=\"1\"><PARAM name=\"Name\">wan</PARAM></Port.>"
                 "<PARAM name=\"Text\" notification=\"2\">new</PARAM>&what;"
                 "<PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(read("R.Port.1.Name"), "wan");
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_NE(tree.node("R.Text")->flags & QMIBTREE_NODE_NOTIF_ACTIVE, 0u);
  EXPECT_EQ(read("R.Number"), "5");
}

// Deliberate: values are not escaped when saved, so that this one breaks its document.
TEST_F(XmlRead, SavedAmpersandIsAnErrorBehindWhatWasAppliedBefore) {
  for (House::Uid uid : {House::kText, House::kNumber, House::kSize})
    house.record(uid).flags = QMIBTREE_UID_SAVE;
  const char* const values[][2] = {{"R.Text", "new"}, {"R.Number", "6"}, {"R.Shed.Size", "2"}};
  for (const auto& [name, value] : values)
    ASSERT_EQ(qmibtree_write_strvalue(tree.inst, name, value, 0), QMIBTREE_RC_OK);
  house.record(House::kName).flags = QMIBTREE_UID_SAVE;
  add_instance(tree.inst, "R.Port.");
  ASSERT_EQ(qmibtree_write_strvalue(tree.inst, "R.Port.1.Name", "a&b", 0), QMIBTREE_RC_OK);

  CheckedTree next(house);
  EXPECT_EQ(load_document(next.inst, document_of(tree.inst)), QMIBTREE_RC_ERROR);
  EXPECT_EQ(read_text(next.inst, "R.Text"), "new");
  EXPECT_EQ(read_text(next.inst, "R.Number"), "6");
  EXPECT_EQ(read_text(next.inst, "R.Shed.Size"), "1");
}

// Deliberate: such a string is saved as an element that is never closed.
TEST_F(XmlRead, SavedStringWithoutAValueIsAnError) {
  house.record(House::kText).flags = QMIBTREE_UID_SAVE;
  const qmibtree_value_t none = string_value(nullptr);
  ASSERT_EQ(qmibtree_write(tree.inst, "R.Text", &none, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(load(document_of(tree.inst)), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, TextBehindANulIsNotLookedAt) {
  EXPECT_EQ(load(text_param("new") + std::string("\0<", 2)), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, NulInsideCutsTheDocument) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">new</PARAM>" + std::string(1, '\0') + "</R.>"),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, DeclaredEncodingIsConverted) {
  EXPECT_EQ(load("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + text_param("caf\xe9")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "caf\xc3\xa9");
}

TEST_F(XmlRead, DocumentCutAtAnyByteIsAnErrorAndAppliesWhatIsWhole) {
  const std::string text =
      kDeclaration + std::string(
                         "<R.>\n<PARAM name=\"Text\" notification=\"2\">new</PARAM>\n"
                         "<Port. instance=\"3\" right=\"1\">\n"
                         "<PARAM name=\"Name\">wan</PARAM>\n</Port.>\n</R.>");
  const size_t whole_text = text.find("</PARAM>") + 8;
  const size_t whole_name = text.rfind("</PARAM>") + 8;
  for (size_t size = 0; size < text.size(); ++size) {
    CheckedTree fresh(house);
    ASSERT_EQ(load_document(fresh.inst, text.substr(0, size)), QMIBTREE_RC_ERROR) << size;
    if (size >= whole_text) {
      ASSERT_EQ(read_text(fresh.inst, "R.Text"), "new") << size;
    }
    if (size >= whole_name) {
      ASSERT_EQ(read_text(fresh.inst, "R.Port.3.Name"), "wan") << size;
    }
  }
  EXPECT_EQ(load(text), QMIBTREE_RC_OK);
}

// --- hostile documents ---

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// `depth` elements inside each other, the innermost with a content.
std::string nested(int depth, const std::string& content) {
  return repeated("<x>", depth) + content + repeated("</x>", depth);
}

TEST_F(XmlRead, ThirtyOneOpenElementsAreAllowed) {
  EXPECT_EQ(load(nested(31, "")), QMIBTREE_RC_OK);
}

TEST_F(XmlRead, ThirtyTwoOpenElementsAreRefused) {
  EXPECT_EQ(load(nested(32, "")), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, ManyElementsSideBySideAreNoDepth) {
  EXPECT_EQ(load(nested(30, repeated("<y/>", 1000))), QMIBTREE_RC_OK);
}

TEST_F(XmlRead, ParameterAtTheThirtyFirstLevelIsLoaded) {
  Schema deep;
  for (int depth = 0; depth < 30; ++depth) deep.add(depth, "x.");
  deep.add(30, "P", QMIBTREE_TYPE_INT, 0, "1");
  CheckedTree deep_tree(deep);
  const std::string name = repeated("x.", 30) + "P";
  EXPECT_EQ(load_document(deep_tree.inst, repeated("<x.>", 30) + "<PARAM name=\"P\">2</PARAM>" +
                                              repeated("</x.>", 30)),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(deep_tree.inst, name.c_str()), "2");
}

TEST_F(XmlRead, WhatCameBeforeTooDeepAnElementStaysAndTheRestIsNotLookedAt) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">new</PARAM>" + nested(31, "text") +
                 "<PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Number"), "5");
}

TEST_F(XmlRead, AHundredThousandOpenElementsAreRefused) {
  EXPECT_EQ(load(nested(100000, "")), QMIBTREE_RC_ERROR);
}

// A model with one parameter whose full name has `size` characters.
struct LongName : Schema {
  explicit LongName(size_t size) : name(size - 2, 'n') {
    add(0, "R.");
    add(1, name.c_str(), QMIBTREE_TYPE_INT, 0, "1");
  }
  std::string full_name() const { return "R." + name; }
  std::string name;
};

TEST_F(XmlRead, PathOf511CharactersIsLoaded) {
  LongName schema(511);
  CheckedTree long_tree(schema);
  EXPECT_EQ(load_document(long_tree.inst, in_root("<PARAM name=\"" + schema.name + "\">2</PARAM>")),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read_text(long_tree.inst, schema.full_name().c_str()), "2");
}

TEST_F(XmlRead, PathOf512CharactersIsRefused) {
  LongName schema(512);
  CheckedTree long_tree(schema);
  EXPECT_EQ(load_document(long_tree.inst, in_root("<PARAM name=\"" + schema.name + "\">2</PARAM>")),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(read_text(long_tree.inst, schema.full_name().c_str()), "1");
}

TEST_F(XmlRead, ElementNameCountsAsAPathToo) {
  EXPECT_EQ(load(in_root("<" + std::string(509, 'n') + "/>")), QMIBTREE_RC_OK);
  EXPECT_EQ(load(in_root("<" + std::string(510, 'n') + "/>")), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, InstanceNumberCountsInThePathToo) {
  const std::string with_seven = "\" instance=\"1234567\"/>";  // eight characters with the dot
  EXPECT_EQ(load(in_root("<x name=\"" + std::string(501, 'n') + with_seven)), QMIBTREE_RC_OK);
  EXPECT_EQ(load(in_root("<x name=\"" + std::string(502, 'n') + with_seven)), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, PathIsCutBackSoThatLongNamesDoNotAddUp) {
  EXPECT_EQ(load(in_root(repeated("<" + std::string(400, 'n') + "/>", 100))), QMIBTREE_RC_OK);
  EXPECT_EQ(load(in_root("<" + std::string(300, 'n') + "><" + std::string(300, 'm') + "/></" +
                         std::string(300, 'n') + ">")),
            QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, WhatCameBeforeTooLongAPathStaysAndTheRestIsNotLookedAt) {
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">new</PARAM><" + std::string(600, 'n') +
                 "/><PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(read("R.Number"), "5");
}

TEST_F(XmlRead, ElementOfTooLongAPathHasNoEffectOnTheOneAroundIt) {
  EXPECT_EQ(load(in_root("<Port.><x instance=\"3\" notification=\"2\" name=\"" +
                         std::string(600, 'n') + "\"/></Port.>")),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(instances("R.Port."), 0);
  EXPECT_EQ(tree.node("R.Port.")->flags, 0u);
}

TEST_F(XmlRead, AttributesBehindTooLongANameAreNotLookedAt) {
  EXPECT_EQ(load(in_root("<Port.><x name=\"" + std::string(600, 'n') +
                         "\" instance=\"3\" notification=\"2\"/></Port.>")),
            QMIBTREE_RC_ERROR);
  EXPECT_EQ(instances("R.Port."), 0);
  EXPECT_EQ(tree.node("R.Port.")->flags, 0u);
}

TEST_F(XmlRead, TooLongARootElementIsRefusedThoughItEndsAtOnce) {
  EXPECT_EQ(load("<" + std::string(512, 'n') + "/>"), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, NameOfAMillionCharactersIsRefused) {
  EXPECT_EQ(load(in_root("<PARAM name=\"" + std::string(1000000, 'n') + "\">2</PARAM>")),
            QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, OtherAttributesOfAMillionCharactersAreHarmless) {
  const std::string million(1000000, '9');
  for (const char* name : {"notification", "accesslist", "ignorevalue", "title"})
    EXPECT_EQ(load(in_root("<PARAM name=\"Text\" " + std::string(name) + "=\"" + million +
                           "\">new</PARAM>")),
              QMIBTREE_RC_OK)
        << name;
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, ValueOfAMillionCharactersIsStoredWhole) {
  const std::string million(1000000, 'v');
  EXPECT_EQ(load(text_param(million)), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), million);
}

// Of such a length the parser would be told the low half: 2^32 and this document's own.
TEST_F(XmlRead, DocumentOfFourGigabytesIsRefused) {
  if (sizeof(size_t) == 4) GTEST_SKIP() << "no text is so long";
  const std::string start = text_param("new");
  LongText text(start, ' ', (uint64_t{1} << 32) + start.size());
  qmibtree_buff_t buff = {text.get(), text.get(), 0, 0};
  EXPECT_EQ(qmibtree_xml_load(tree.inst, &buff, 0), QMIBTREE_RC_ERROR);
  EXPECT_EQ(read("R.Text"), "t");
}

TEST_F(XmlRead, WithoutAParserIsAnError) {
  fail_call("XML_ParserCreate", 0);
  EXPECT_EQ(load(text_param("new")), QMIBTREE_RC_ERROR);
  EXPECT_TRUE(calls_work());
  EXPECT_EQ(read("R.Text"), "t");
}

TEST_F(XmlRead, NumbersBeyondTheirTypeAreHarmless) {
  EXPECT_EQ(load("<R.><PARAM name=\"Number\">99999999999999999999999999</PARAM>"
                 "<x instance=\"99999999999999999999999999\" right=\"-99999999999999999999\"/>"
                 "</R.>"),
            QMIBTREE_RC_OK);
}

TEST_F(XmlRead, InternalEntityIsExpanded) {
  EXPECT_EQ(load("<!DOCTYPE R. [<!ENTITY e \"new\">]>" + text_param("&e;")), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlRead, ExternalEntityIsNotFetched) {
  const std::string secret = folder.write("secret", "secret");
  EXPECT_EQ(
      load("<!DOCTYPE R. [<!ENTITY e SYSTEM \"file://" + secret + "\">]>" + text_param("&e;")),
      QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
}

TEST_F(XmlRead, EntityInsideItselfIsRefused) {
  EXPECT_EQ(load("<!DOCTYPE R. [<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]>" + text_param("&a;")),
            QMIBTREE_RC_ERROR);
}

// Ten thousand million characters, were they all expanded.
std::string bomb(const std::string& use) {
  std::string text = "<!DOCTYPE R. [<!ENTITY e0 \"" + std::string(10000, 'b') + "\">";
  for (char level = '1'; level <= '6'; ++level) {
    text += std::string("<!ENTITY e") + level + " \"";
    text += repeated(std::string("&e") + static_cast<char>(level - 1) + ";", 10) + "\">";
  }
  return text + "]>" + use;
}

TEST_F(XmlRead, EntityBombInAValueIsRefused) {
  EXPECT_EQ(load(bomb(text_param("&e6;"))), QMIBTREE_RC_ERROR);
}

TEST_F(XmlRead, EntityBombInAnAttributeIsRefused) {
  EXPECT_EQ(load(bomb("<R.><PARAM name=\"Text\" title=\"&e6;\"></PARAM></R.>")), QMIBTREE_RC_ERROR);
}

// --- from a file ---

class XmlReadFile : public XmlRead {
 protected:
  uint32_t load_file(const std::string& path, int32_t offset, uint32_t length, uint32_t flags = 0) {
    return qmibtree_xml_load_from_file(tree.inst, path.c_str(), offset, length, flags);
  }
};

TEST_F(XmlReadFile, LengthZeroIsTheWholeFile) {
  EXPECT_EQ(load_file(folder.write("f", text_param("new")), 0, 0), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlReadFile, OffsetAndLengthChooseTheDocument) {
  const std::string text = text_param("new");
  const std::string path = folder.write("f", "12345678" + text + "trailer");
  EXPECT_EQ(load_file(path, 8, static_cast<uint32_t>(text.size())), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
  EXPECT_EQ(load_file(path, 8, 0), QMIBTREE_RC_ERROR);
}

TEST_F(XmlReadFile, LengthPastTheEndIsHarmless) {
  EXPECT_EQ(load_file(folder.write("f", text_param("new")), 0, 5000), QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "new");
}

TEST_F(XmlReadFile, FlagsAreThoseOfEveryWrite) {
  house.record(House::kText).flags = QMIBTREE_UID_READONLY;
  EXPECT_EQ(load_file(folder.write("f", text_param("new")), 0, 0, QMIBTREE_WRITE_APPLY),
            QMIBTREE_RC_OK);
  EXPECT_EQ(read("R.Text"), "t");
}

TEST_F(XmlReadFile, BrokenDocumentIsAnError) {
  EXPECT_EQ(load_file(folder.write("f", "<R.>"), 0, 0), QMIBTREE_RC_ERROR);
}

TEST_F(XmlReadFile, EmptyFileIsABrokenDocument) {
  EXPECT_EQ(load_file(folder.write("f", ""), 0, 0), QMIBTREE_RC_ERROR);
}

TEST_F(XmlReadFile, MissingFileIsNoFile) {
  const uint32_t rc = load_file(folder.path("missing"), 0, 0);
  EXPECT_EQ(rc, QMIBTREE_RC_NO_FILE);
  EXPECT_STREQ(qmibtree_rc_string(rc), "unknown");
}

TEST_F(XmlReadFile, OffsetPastTheEndIsNoFile) {
  EXPECT_EQ(load_file(folder.write("f", "1234"), 8, 0), QMIBTREE_RC_NO_FILE);
}

TEST_F(XmlReadFile, ExhaustedMemoryIsNoFile) {
  const std::string path = folder.write("f", text_param("new"));
  fail_allocation_after(0);
  EXPECT_EQ(load_file(path, 0, 0), QMIBTREE_RC_NO_FILE);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(read("R.Text"), "t");
}

// --- memory ---

// A load in which an allocation fails goes on without what that block was for.
TEST_F(XmlRead, AnyFailedAllocationIsSurvivedAndUnreported) {
  const std::string text =
      "<R.><PARAM name=\"Text\">new</PARAM>"
      "<Port. instance=\"3\"><PARAM name=\"Name\">wan</PARAM>"
      "<Rule. instance=\"2\"><PARAM name=\"On\">false</PARAM></Rule.></Port."
      "><PARAM name=\"Number\">6</PARAM></R.>";
  const int live = live_blocks();
  bool struck = true;
  int n = 0;
  for (; struck; ++n) {
    CheckedTree fresh(house);
    fail_allocation_after(n);
    const uint32_t rc = load_document(fresh.inst, text);
    struck = allocations_work();
    ASSERT_EQ(rc, QMIBTREE_RC_OK) << n;
    fresh.destroy();
    ASSERT_EQ(live_blocks(), live) << n;
  }
  EXPECT_GE(n, 10);  // five texts and the blocks of two instances
}

TEST_F(XmlRead, NoMemoryAtAllLeavesTheTreeAsItWas) {
  fail_allocations_after(0);
  EXPECT_EQ(load("<R.><PARAM name=\"Text\">new</PARAM><Port. instance=\"3\"></Port."
                 "><PARAM name=\"Number\">6</PARAM></R.>"),
            QMIBTREE_RC_OK);
  EXPECT_TRUE(allocations_work());
  EXPECT_EQ(read("R.Text"), "t");
  EXPECT_EQ(read("R.Number"), "5");
  EXPECT_EQ(instances("R.Port."), 0);
}

}  // namespace
