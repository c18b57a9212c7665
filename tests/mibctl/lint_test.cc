// What the linter finds in a document.
#include "lint.hh"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model_builder.hh"

namespace mibctl {
namespace {

Model make_box() {
  Model model = make_model();
  Entry& root = *model.root;
  add_saved(root, "Serial", QMIBTREE_TYPE_STRING, "1", Save::always);
  add_saved(root, "Label", QMIBTREE_TYPE_STRING, "box")->max_len = 8;
  add_saved(root, "Note", QMIBTREE_TYPE_STRING, "");
  Entry* const rate = add_saved(root, "Rate", QMIBTREE_TYPE_UINT, "10");
  rate->min = 1;
  rate->max = 100;
  add_saved(root, "Offset", QMIBTREE_TYPE_INT, "5");
  add_saved(root, "Enable", QMIBTREE_TYPE_BOOL, "false");
  add_saved(root, "Since", QMIBTREE_TYPE_DATETIME, nullptr);
  add_saved(root, "Key", QMIBTREE_TYPE_BASE64, nullptr);
  add_saved(root, "Zone", QMIBTREE_TYPE_STRING, "UTC")->words = {"UTC", "CET"};
  add_saved(root, "Loose", QMIBTREE_TYPE_STRING, "", Save::never);
  add_saved(root, "UpTime", QMIBTREE_TYPE_UINT, nullptr, Save::never)->dynamic = true;
  add_saved(root, "Alarm", QMIBTREE_TYPE_STRING, "")->notify = Notify::by_default;
  add_saved(*add_object(root, "Time."), "Server", QMIBTREE_TYPE_STRING, "");
  add_saved(*add_table(root, "Host."), "Name", QMIBTREE_TYPE_STRING, "");
  Lock none;
  assign_ids(model, none);
  return model;
}

// "2:1 lost Gw.X: text (detail)", a line for each finding.
std::string lines_of(const std::vector<Finding>& findings) {
  std::string lines;
  for (const Finding& f : findings) {
    lines += std::to_string(f.line) + ":" + std::to_string(f.column);
    lines += std::string(f.lost ? " lost " : " note ") + f.name + ": " + f.text;
    lines += (f.detail.empty() ? "" : " (" + f.detail + ")") + "\n";
  }
  return lines;
}

std::string lint_of(const std::string& document, size_t limit = 1000) {
  const Model model = make_box();
  return lines_of(lint(model, document, limit));
}

// The findings in `inner`, which stands in line 2 of a document that is fine but for it.
std::string found(const std::string& inner) {
  return lint_of("<Gw.><PARAM name=\"Serial\">7</PARAM>\n" + inner + "\n</Gw.>");
}

TEST(Lint, FindsNothingInWhatASaveWrites) {
  EXPECT_EQ(lint_of(R"(<?xml version="1.0" encoding="UTF-8"?>
<Gw.>
<PARAM name="Serial" notification="1" accesslist="subscriber">1</PARAM>
<PARAM name="Label">den</PARAM>
<PARAM name="Rate" notification="2" ignorevalue="yes"></PARAM>
<PARAM name="Key">AQID</PARAM>
<Time.>
<PARAM name="Server"> a server </PARAM>
</Time.>
<Host. instance="2">
<PARAM name="Name">x</PARAM>
</Host.>
<Host. instance="999" right="1">
</Host.>
</Gw.>
)"),
            "");
}

// --- well-formedness ---

TEST(LintDocument, ThatIsNotWellFormedIsLostFromThere) {
  EXPECT_EQ(found("<Time."),
            "3:1 lost Gw.: not well-formed: not well-formed (invalid token) (a load stops here)\n");
}

TEST(LintDocument, WithAnUnescapedValueNamesTheParameter) {
  EXPECT_EQ(found("<PARAM name=\"Label\">a&b</PARAM>"),
            "2:24 lost Gw.Label: not well-formed: not well-formed (invalid token) (a load stops "
            "here: a save does not escape \"<\" and \"&\" in values)\n");
}

TEST(LintDocument, ThatIsEmptyIsNotWellFormed) {
  EXPECT_EQ(lint_of(""),
            "1:1 lost document: not well-formed: no element found (a load stops "
            "here)\n");
}

TEST(LintDocument, ThatIsNotWellFormedIsNotSaved) {
  const std::string findings = found("<PARAM name=\"Alarm\" notification=\"0\">x</PARAM>\n<");
  EXPECT_EQ(findings.find("next save"), std::string::npos) << findings;
}

TEST(LintDocument, WithAStringSavedWithoutAValue) {
  EXPECT_EQ(found("<PARAM name=\"Label\"><null></PARAM>"),
            "2:21 lost Gw.Labelnull: a string without a value was saved as <null> (a document with "
            "it does not load)\n"
            "2:29 lost Gw.Labelnull: not well-formed: mismatched tag (a load stops here)\n");
}

TEST(LintDocument, EndsAtAZeroByte) {
  const std::string document = "<Gw.><PARAM name=\"Serial\">7</PARAM></Gw.>\n";
  EXPECT_EQ(lint_of(document + std::string("\0\0", 2)), "");
  EXPECT_EQ(lint_of(document + std::string("\0<", 2)),
            "2:1 lost document: a zero byte (a load ends here)\n");
}

TEST(LintDocument, InAnotherEncodingIsWorthKnowing) {
  EXPECT_EQ(lint_of("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                    "<Gw.><PARAM name=\"Serial\">\xE4</PARAM></Gw.>"),
            "1:1 note document: encoding ISO-8859-1 (a save writes UTF-8)\n");
}

TEST(LintDocument, WithADocumentTypeIsWorthKnowing) {
  EXPECT_EQ(lint_of("<!DOCTYPE x><Gw.><PARAM name=\"Serial\">7</PARAM></Gw.>"),
            "1:12 note document: a document type declaration (a save leaves it out)\n");
}

// --- elements ---

TEST(LintElement, UnknownParameter) {
  EXPECT_EQ(found("<PARAM name=\"Labell\">x</PARAM>"),
            "2:1 lost Gw.Labell: unknown parameter (did you mean Gw.Label?)\n");
}

TEST(LintElement, UnknownObjectIsOneFindingForAllBelow) {
  EXPECT_EQ(found("<Tine.><PARAM name=\"A\">x</PARAM><B.>y</B.></Tine.>"),
            "2:1 lost Gw.Tine.: unknown object (did you mean Gw.Time.?)\n");
}

TEST(LintElement, ParamWithoutAName) {
  EXPECT_EQ(found("<PARAM>x</PARAM>"),
            "2:1 lost Gw.PARAM: a PARAM without a name (a load skips it)\n");
}

TEST(LintElement, ParamThatNamesAnObject) {
  EXPECT_EQ(found("<PARAM name=\"Time.\"></PARAM>"),
            "2:1 lost Gw.Time.: not a parameter (an object's element is named as the object)\n");
}

TEST(LintElement, ParameterInAnElementOfItsNameIsWorthKnowing) {
  EXPECT_EQ(found("<Label>den</Label>"),
            "2:1 note Gw.Label: a parameter in an element of its name (a save makes it a PARAM)\n");
}

TEST(LintElement, SecondOfAParameter) {
  EXPECT_EQ(found("<PARAM name=\"Label\">a</PARAM>\n<PARAM name=\"Label\">b</PARAM>"),
            "3:1 lost Gw.Label: a second element of the parameter (the last one counts; the first "
            "is in line 2)\n");
}

TEST(LintElement, SecondOfAnObjectIsWorthKnowing) {
  EXPECT_EQ(found("<Time.></Time.>\n<Time./>"),
            "3:1 note Gw.Time.: a second element of the object (a save makes one of them; the "
            "first is in line 2)\n");
}

TEST(LintElement, TextInAnObject) {
  EXPECT_EQ(found("<Time.>\n  stray\n</Time.>"),
            "3:1 lost Gw.Time.: text in an object (a load skips it)\n");
}

TEST(LintElement, TextInAnObjectIsOneFinding) {
  EXPECT_EQ(found("<Time.>one\ntwo</Time.>"),
            "2:8 lost Gw.Time.: text in an object (a load skips it)\n");
}

TEST(LintElement, NestedTooDeep) {
  std::string inner;
  for (int i = 0; i < 31; ++i) inner += "<a>";
  EXPECT_EQ(found(inner),
            "2:1 lost Gw.a: unknown object\n"
            "2:91 lost Gw." +
                std::string(30, 'a') + ": more than 31 nested elements (a load stops here)\n");
}

TEST(LintElement, PathTooLong) {
  EXPECT_EQ(found("<PARAM name=\"" + std::string(509, 'x') + "\">1</PARAM>"),
            "2:1 lost Gw." + std::string(508, 'x') +
                ": a full name of more than 511 bytes (a load stops here)\n");
}

TEST(LintElement, PathOfTheGreatestLengthDoesNotStopTheLoad) {
  EXPECT_EQ(found("<PARAM name=\"" + std::string(508, 'x') + "\">1</PARAM>"),
            "2:1 lost Gw." + std::string(508, 'x') + ": unknown parameter\n");
}

TEST(LintElement, ControlCharactersOfANameStayInTheLine) {
  EXPECT_EQ(found("<PARAM name=\"very&#10;odd\">1</PARAM>"),
            "2:1 lost Gw.very?odd: unknown parameter\n");
}

// --- attributes ---

struct Case {
  const char *inner, *line;
};

class LintAttribute : public testing::TestWithParam<Case> {};

TEST_P(LintAttribute, IsFound) { EXPECT_EQ(found(GetParam().inner), GetParam().line); }

INSTANTIATE_TEST_SUITE_P(
    Rules, LintAttribute,
    testing::Values(
        Case{"<PARAM name=\"Rate\" notification=\"3\" ignorevalue=\"yes\"/>",
             "2:1 lost Gw.Rate: bad attribute notification=\"3\" (0, 1 or 2)\n"},
        Case{"<PARAM name=\"Rate\" accesslist=\"all\" ignorevalue=\"yes\"/>",
             "2:1 lost Gw.Rate: bad attribute accesslist=\"all\" (subscriber or nothing)\n"},
        Case{"<PARAM name=\"Rate\" accesslist=\"\" ignorevalue=\"yes\"/>", ""},
        Case{"<PARAM name=\"Rate\" ignorevalue=\"true\">7</PARAM>",
             "2:1 lost Gw.Rate: bad attribute ignorevalue=\"true\" (yes or no)\n"},
        Case{"<PARAM name=\"Rate\" colour=\"red\">7</PARAM>",
             "2:1 lost Gw.Rate: unknown attribute colour=\"red\" (a load skips it)\n"},
        Case{"<Time. notification=\"2\"/>",
             "2:1 lost Gw.Time.: misplaced attribute notification=\"2\" (it is not kept here)\n"},
        Case{"<Time. right=\"1\"/>",
             "2:1 lost Gw.Time.: misplaced attribute right=\"1\" (it is not kept here)\n"},
        Case{"<Host. instance=\"1\" right=\"x\"/>",
             "2:1 lost Gw.Host.1.: bad attribute right=\"x\" (a number)\n"},
        Case{"<PARAM name=\"Rate\" ignorevalue=\"yes\">7</PARAM>",
             "2:38 lost Gw.Rate: a value besides ignorevalue=\"yes\" (a load skips it)\n"},
        Case{"<PARAM name=\"Alarm\" notification=\"0\">x</PARAM>",
             "0:0 lost Gw.Alarm: its attributes do not last beyond the next save (notification off "
             "is not stored, and the model switches it on)\n"}));

// --- instances ---

class LintInstance : public testing::TestWithParam<Case> {};

TEST_P(LintInstance, IsFound) { EXPECT_EQ(found(GetParam().inner), GetParam().line); }

INSTANTIATE_TEST_SUITE_P(
    Rules, LintInstance,
    testing::Values(
        Case{"<Host. instance=\"5\"/><Host. instance=\"2\"><PARAM name=\"Name\">x</PARAM></Host.>",
             "2:22 lost Gw.Host.6.: instance 2 is not given its number (it becomes 6: numbers have "
             "to grow)\n"},
        Case{"<Host. instance=\"5\"/>\n<Host. instance=\"5\"/>",
             "3:1 note Gw.Host.5.: a second element of the object (a save makes one of them; the "
             "first is in line 2)\n"},
        Case{"<Host. instance=\"1000\"><PARAM name=\"Name\">x</PARAM></Host.>",
             "2:1 lost Gw.Host.1000.: an instance number of 1000 or above (nothing in it is "
             "loaded)\n"},
        Case{"<Host. instance=\"0\"><PARAM name=\"Name\">x</PARAM></Host.>",
             "2:1 lost Gw.Host.: bad attribute instance=\"0\" (a number from 1 on)\n"},
        Case{"<Host. instance=\"2nd\"/>",
             "2:1 lost Gw.Host.2.: bad attribute instance=\"2nd\" (a number from 1 on)\n"},
        Case{"<Host. instance=\"-5\"/>",
             "2:1 lost Gw.Host.-5.: bad attribute instance=\"-5\" (a number from 1 on)\n"},
        Case{"<Host. instance=\"-100\"/>",
             "2:1 lost Gw.Host.-100.: an instance number of 1000 or above (nothing in it is "
             "loaded)\n"},
        Case{"<Host.><PARAM name=\"Name\">x</PARAM></Host.>",
             "2:1 lost Gw.Host.: a table's element without an instance number (nothing in it is "
             "loaded)\n"},
        Case{"<Time. instance=\"1\"><PARAM name=\"Server\">x</PARAM></Time.>",
             "2:1 lost Gw.Time.1.: an instance of what is no table (nothing in it is loaded)\n"}));

// --- values ---

class LintValue : public testing::TestWithParam<Case> {};

TEST_P(LintValue, IsFound) { EXPECT_EQ(found(GetParam().inner), GetParam().line); }

INSTANTIATE_TEST_SUITE_P(
    Rules, LintValue,
    testing::Values(
        Case{"<PARAM name=\"Rate\">0</PARAM>",
             "2:20 lost Gw.Rate: refused value (below the lowest value, 1)\n"},
        Case{"<PARAM name=\"Label\">too long a text</PARAM>",
             "2:21 lost Gw.Label: refused value (15 bytes, at most 8)\n"},
        Case{"<PARAM name=\"Enable\">yes</PARAM>",
             "2:22 lost Gw.Enable: refused value (not one of true, false, 1, 0)\n"},
        Case{"<PARAM name=\"Enable\">1</PARAM>", ""},
        Case{"<PARAM name=\"Offset\">abc</PARAM>",
             "2:22 lost Gw.Offset: stored as 0 (not a whole number)\n"},
        Case{"<PARAM name=\"Offset\">4294967297</PARAM>",
             "2:22 lost Gw.Offset: stored as 1 (above the highest value, 2147483647)\n"},
        Case{"<PARAM name=\"Key\">A</PARAM>", "2:19 lost Gw.Key: stored as \"\" (not base64)\n"},
        Case{"<PARAM name=\"Zone\">PST</PARAM>",
             "2:20 note Gw.Zone: a value that the model does not allow (not one of UTC, CET)\n"},
        Case{"<PARAM name=\"Since\">2001-02-03T04:05:06</PARAM>",
             "2:21 lost Gw.Since: refused value (a load refuses every date and time)\n"},
        Case{"<PARAM name=\"Since\">1970-01-01T00:00:00</PARAM>", ""},
        Case{"<PARAM name=\"Label\">a&amp;b</PARAM>",
             "2:21 lost Gw.Label: a value in 3 pieces (references and line breaks divide it, and "
             "the last piece counts: b)\n"},
        Case{"<PARAM name=\"Label\">\nden\n</PARAM>",
             "2:21 lost Gw.Label: a value in 3 pieces (references and line breaks divide it, and "
             "the last piece counts: \"\\n\")\n"},
        Case{"<PARAM name=\"Loose\">x</PARAM>",
             "2:21 lost Gw.Loose: lost with the next save (not saved: the model keeps neither its "
             "value nor changes)\n"},
        Case{"<PARAM name=\"Loose\" ignorevalue=\"yes\" notification=\"1\"/>", ""},
        Case{"<PARAM name=\"UpTime\">5</PARAM>",
             "2:22 lost Gw.UpTime: lost with the next save (not saved: the model keeps neither its "
             "value nor changes)\n"},
        Case{"<PARAM name=\"Label\"></PARAM>",
             "2:1 lost Gw.Label: an empty element (a load leaves the value as it is, box)\n"},
        Case{"<PARAM name=\"Rate\"></PARAM>",
             "2:1 note Gw.Rate: an empty element (a load leaves the value as it is, 10)\n"},
        Case{"<PARAM name=\"Note\"></PARAM>", ""}, Case{"<PARAM name=\"Key\"></PARAM>", ""}));

TEST(LintValue, ThatBreaksTheNextDocument) {
  EXPECT_EQ(found("<PARAM name=\"Label\">&lt;</PARAM>"),
            "2:21 lost Gw.Label: lost with the next save (values are not escaped: with \"<\", "
            "\"&\" or \"]]>\" the document does not load)\n"
            "0:0 lost document: what a save makes of it does not load (line 4, column 22: not "
            "well-formed (invalid token))\n");
}

// --- the whole document ---

TEST(LintWhole, TooLongForAnImage) {
  EXPECT_EQ(found(std::string(65528, ' ')),
            "0:0 lost document: too long for an image (65,571 bytes, at most 65,528)\n");
}

TEST(LintWhole, TooLongForAnImageOnceItIsSaved) {
  std::string hosts;
  for (int i = 1; i <= 700; ++i)
    hosts += "<Host. instance=\"" + std::to_string(i) +
             "\"><Name notification=\"1\" accesslist=\"subscriber\">x</Name></Host.>";
  const std::string findings = found(hosts);
  EXPECT_EQ(findings.find("document: too long"), std::string::npos);
  EXPECT_NE(findings.find("what a save makes of it is too long for an image"), std::string::npos);
}

TEST(LintWhole, WithADefaultThatASaveCannotKeep) {
  Model model = make_model();
  add_saved(*model.root, "Label", QMIBTREE_TYPE_STRING, "a\nb", Save::always);
  Lock none;
  assign_ids(model, none);
  EXPECT_EQ(lines_of(lint(model, "<Gw.></Gw.>")),
            "0:0 lost Gw.Label: does not last beyond the next save (it becomes b)\n");
}

TEST(LintWhole, WithNothingThatIsSaved) {
  Model model = make_model();
  add_saved(*model.root, "Label", QMIBTREE_TYPE_STRING, "box");
  Lock none;
  assign_ids(model, none);
  EXPECT_EQ(lines_of(lint(model, "<Gw.></Gw.>")),
            "0:0 lost document: a save has nothing to store (the start after it takes the factory "
            "default)\n");
}

TEST(LintLimit, EndsWithASayingThatThereIsMore) {
  std::string inner;
  for (int i = 0; i < 5; ++i) inner += "<a/>";
  EXPECT_EQ(lint_of("<Gw.>" + inner + "</Gw.>", 2),
            "1:6 lost Gw.a: unknown object\n1:10 lost Gw.a: unknown object\n"
            "0:0 lost document: there is more (only the first 2 findings are shown)\n");
}

TEST(LintLimit, IsNotReachedByItsOwnNumber) {
  EXPECT_EQ(lint_of("<Gw.><PARAM name=\"Serial\">7</PARAM><a/><a/></Gw.>", 2),
            "1:36 lost Gw.a: unknown object\n1:40 lost Gw.a: unknown object\n");
}

TEST(LintLimit, KeepsManyElementsQuick) {
  std::string inner;
  while (inner.size() < 1 << 20)
    inner += "<Host. instance=\"7\"/><x><PARAM name=\"y\">z</PARAM></x>";
  const Model model = make_box();
  EXPECT_EQ(lint(model, "<Gw.>" + inner + "</Gw.>").size(), 1001u);
}

// --- numbers of instances ---

std::string lint_with_bounds(const std::string& hosts) {
  Model model = make_box();
  at(model, "Gw.Host.{i}.").min_entries = 1;
  at(model, "Gw.Host.{i}.").max_entries = 2;
  return lines_of(lint(model, "<Gw.><PARAM name=\"Serial\">7</PARAM>\n" + hosts + "</Gw.>"));
}

TEST(LintTable, WithFewerInstancesThanTheModelHasIsNoted) {
  EXPECT_EQ(lint_with_bounds(""),
            "0:0 note Gw.Host.: fewer instances than the model has (0, at least 1)\n");
}

TEST(LintTable, WithMoreInstancesThanTheModelHasIsNotedOnceAtTheFirst) {
  EXPECT_EQ(lint_with_bounds("<Host. instance=\"1\"/>\n<Host. instance=\"2\"/>\n"
                             "<Host. instance=\"3\"/>\n<Host. instance=\"4\"/>\n"),
            "4:1 note Gw.Host.3.: more instances than the model has (at most 2)\n");
}

TEST(LintTable, WithAsManyInstancesAsTheModelHasIsFine) {
  EXPECT_EQ(lint_with_bounds("<Host. instance=\"1\"/>"), "");
  EXPECT_EQ(lint_with_bounds("<Host. instance=\"1\"/><Host. instance=\"2\"/>"), "");
}

}  // namespace
}  // namespace mibctl
