// The live tree: what it loads, writes, refuses and stores.
#include "tree.hh"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "model_builder.hh"

namespace mibctl {
namespace {

constexpr char kHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// A model with each type once, and a table in a table.
Model make_box() {
  Model model = make_model();
  Entry& root = *model.root;
  add_saved(root, "Label", QMIBTREE_TYPE_STRING, "box")->max_len = 8;
  Entry* const rate = add_saved(root, "Rate", QMIBTREE_TYPE_UINT, "10");
  rate->min = 1;
  rate->max = 100;
  Entry* const offset = add_saved(root, "Offset", QMIBTREE_TYPE_INT, "0");
  offset->min = -12;
  offset->max = 12;
  add_saved(root, "Enable", QMIBTREE_TYPE_BOOL, "false");
  add_saved(root, "Since", QMIBTREE_TYPE_DATETIME, nullptr);
  add_saved(root, "Key", QMIBTREE_TYPE_BASE64, nullptr)->max_len = 4;
  Entry* const zone = add_saved(root, "Zone", QMIBTREE_TYPE_STRING, "UTC");
  zone->words = {"UTC", "CET"};
  Entry* const zones = add_saved(root, "Zones", QMIBTREE_TYPE_STRING, "");
  zones->words = {"UTC", "CET"};
  zones->list = true;
  add_saved(root, "Serial", QMIBTREE_TYPE_STRING, "1", Save::always)->writable = false;
  add_saved(root, "Loose", QMIBTREE_TYPE_STRING, "", Save::never);
  add_saved(root, "UpTime", QMIBTREE_TYPE_UINT, nullptr, Save::never)->dynamic = true;
  add_saved(root, "Level", QMIBTREE_TYPE_UINT, nullptr, Save::always)->dynamic = true;
  Entry* const host = add_table(root, "Host.");
  add_saved(*host, "Name", QMIBTREE_TYPE_STRING, "host");
  add_saved(*add_table(*host, "Port."), "Number", QMIBTREE_TYPE_UINT, "0");
  Lock none;
  assign_ids(model, none);
  return model;
}

class LiveTree : public testing::Test {
 protected:
  std::string value(const std::string& name) const { return tree.value(tree.find(name)); }
  void write(const std::string& name, const std::string& text,
             uint32_t flags = QMIBTREE_WRITE_APPLY) {
    tree.write(tree.find(name), text, flags);
  }
  // What the refusal says; "" when there was none.
  template <class Act>
  std::string message(const Act& act) const {
    try {
      act();
    } catch (const Error& error) {
      EXPECT_EQ(error.status, Status::refused);
      return error.what();
    }
    return "";
  }
  std::string refused_write(const std::string& name, const std::string& text,
                            uint32_t flags = QMIBTREE_WRITE_APPLY) {
    return message([&] { write(name, text, flags); });
  }

  Model model = make_box();
  Tree tree{model};
};

using TreeFind = LiveTree;

TEST_F(TreeFind, SuggestsASibling) {
  EXPECT_EQ(message([&] { tree.find("Gw.Offsets"); }),
            "Gw.Offsets: mib name not found (did you mean Gw.Offset?)");
}

TEST_F(TreeFind, SuggestsAtTheDeepestLevelThatExists) {
  tree.add(tree.find("Gw.Host."), 0);
  EXPECT_EQ(message([&] { tree.find("Gw.Host.1.Prot.7.Number"); }),
            "Gw.Host.1.Prot.7.Number: mib name not found (did you mean Gw.Host.1.Port.?)");
}

TEST_F(TreeFind, SuggestsTheRoot) {
  EXPECT_EQ(message([&] { tree.find("Gv."); }), "Gv.: mib name not found (did you mean Gw.?)");
  EXPECT_EQ(message([&] { tree.find("Gw"); }), "Gw: mib name not found (did you mean Gw.?)");
}

TEST_F(TreeFind, NamesTheEmptyName) {
  EXPECT_TRUE(message([&] { tree.find(""); }).starts_with("\"\": mib name not found"));
}

TEST_F(TreeFind, SuggestsTheNameWithOrWithoutItsDot) {
  EXPECT_EQ(message([&] { tree.find("Gw.Host"); }),
            "Gw.Host: mib name not found (did you mean Gw.Host.?)");
  EXPECT_EQ(message([&] { tree.find("Gw.Serial."); }),
            "Gw.Serial.: mib name not found (did you mean Gw.Serial?)");
}

TEST_F(TreeFind, SuggestsNothingThatIsFarAway) {
  EXPECT_EQ(message([&] { tree.find("Gw.SomethingElse"); }),
            "Gw.SomethingElse: mib name not found");
  EXPECT_EQ(message([&] { tree.find("Gw.Host.7."); }), "Gw.Host.7.: mib name not found");
}

using TreeValue = LiveTree;

TEST_F(TreeValue, IsTheDefaultAtFirst) {
  EXPECT_EQ(value("Gw.Label"), "box");
  EXPECT_EQ(value("Gw.Rate"), "10");
  EXPECT_EQ(value("Gw.Enable"), "false");
  EXPECT_EQ(value("Gw.Key"), "");
  EXPECT_EQ(value("Gw.Since"), "1970-01-01T00:00:00");
}

TEST_F(TreeValue, OfADynamicParameterIsNone) {
  EXPECT_FALSE(tree.has_value(tree.find("Gw.UpTime")));
  EXPECT_EQ(message([&] { value("Gw.UpTime"); }),
            "Gw.UpTime: no value (only a running gateway has it)");
}

TEST_F(TreeValue, OfASavedDynamicParameterIsNoneUntilItIsLoaded) {
  EXPECT_FALSE(tree.has_value(tree.find("Gw.Level")));
  ASSERT_TRUE(tree.load("<Gw.><PARAM name=\"Level\">0</PARAM></Gw.>"));
  EXPECT_EQ(value("Gw.Level"), "0");
}

TEST_F(TreeValue, OfAnObjectIsNone) {
  EXPECT_FALSE(tree.has_value(tree.find("Gw.")));
  EXPECT_EQ(message([&] { value("Gw."); }), "Gw.: no value (not a parameter)");
}

using TreeDocument = LiveTree;

TEST_F(TreeDocument, HoldsWhatASaveWouldStore) {
  write("Gw.Label", "den");
  tree.add(tree.find("Gw.Host."), 3);
  EXPECT_EQ(tree.document(), std::string(kHead) +
                                 "<Gw.>\n<PARAM name=\"Label\">den</PARAM>\n"
                                 "<PARAM name=\"Serial\">1</PARAM>\n"
                                 "<Host. instance=\"3\">\n</Host.>\n</Gw.>\n");
}

TEST_F(TreeDocument, LeavesOutAValueThatOnlyTheGatewayHas) {
  EXPECT_EQ(tree.document().find("Level"), std::string::npos);
}

TEST_F(TreeDocument, KeepsALoadedValueOfADynamicParameter) {
  ASSERT_TRUE(tree.load("<Gw.><PARAM name=\"Level\">0</PARAM></Gw.>"));
  EXPECT_NE(tree.document().find("<PARAM name=\"Level\">0</PARAM>"), std::string::npos);
}

TEST_F(TreeDocument, ThatIsBrokenLoadsUpToItsError) {
  EXPECT_FALSE(tree.load("<Gw.><PARAM name=\"Label\">den</PARAM><x></Gw.>"));
  EXPECT_EQ(value("Gw.Label"), "den");
}

TEST_F(TreeDocument, LoadsAsOnAGateway) {
  ASSERT_TRUE(
      tree.load("<Gw.><PARAM name=\"Rate\">0</PARAM><PARAM name=\"None\">1</PARAM>"
                "<PARAM name=\"Serial\">7</PARAM></Gw.>"));
  EXPECT_EQ(value("Gw.Rate"), "10");
  EXPECT_EQ(value("Gw.Serial"), "7");
}

using TreeWrite = LiveTree;

TEST_F(TreeWrite, StoresEachType) {
  for (const auto& [name, text] :
       std::vector<std::pair<std::string, std::string>>{{"Gw.Label", "a < & b"},
                                                        {"Gw.Rate", "100"},
                                                        {"Gw.Offset", "-12"},
                                                        {"Gw.Enable", "true"},
                                                        {"Gw.Since", "2001-02-03T04:05:06"},
                                                        {"Gw.Key", "AQID"},
                                                        {"Gw.Zones", "CET, UTC"}}) {
    write(name, text);
    EXPECT_EQ(value(name), text);
  }
}

TEST_F(TreeWrite, TakesOtherFormsOfAValue) {
  write("Gw.Rate", "+007");
  EXPECT_EQ(value("Gw.Rate"), "7");
  write("Gw.Enable", "1");
  EXPECT_EQ(value("Gw.Enable"), "true");
}

TEST_F(TreeWrite, RefusesWithTheRuleAndTheBound) {
  EXPECT_EQ(refused_write("Gw.Rate", "0"),
            "Gw.Rate: write out of range (below the lowest value, 1)");
  EXPECT_EQ(refused_write("Gw.Rate", "101"),
            "Gw.Rate: write out of range (above the highest value, 100)");
  EXPECT_EQ(refused_write("Gw.Label", "a long one"),
            "Gw.Label: write out of range (10 bytes, at most 8)");
  EXPECT_EQ(refused_write("Gw.Zone", "PST"), "Gw.Zone: write invalid value (not one of UTC, CET)");
}

TEST_F(TreeWrite, LeavesARefusedValueAsItIs) {
  refused_write("Gw.Rate", "0");
  EXPECT_EQ(value("Gw.Rate"), "10");
}

TEST_F(TreeWrite, OfAReadOnlyParameterIsForTheGatewayAlone) {
  EXPECT_EQ(refused_write("Gw.Serial", "2"), "Gw.Serial: write not allowed (read-only)");
  write("Gw.Serial", "2", 0);
  EXPECT_EQ(value("Gw.Serial"), "2");
}

TEST_F(TreeWrite, ForASubscriberNeedsTheAccessList) {
  EXPECT_EQ(refused_write("Gw.Label", "den", QMIBTREE_WRITE_SUBSCRIBER),
            "Gw.Label: write not allowed (its access list has no subscriber)");
}

TEST_F(TreeWrite, OfThePresentValueIsNeverRefused) {
  EXPECT_EQ(refused_write("Gw.Serial", "1"), "");
  ASSERT_TRUE(tree.load("<Gw.><PARAM name=\"Zone\">PST</PARAM></Gw.>"));
  EXPECT_EQ(refused_write("Gw.Zone", "PST"), "");
}

TEST(TreeWriteOfThePresentValue, InAnotherFormIsNeverRefused) {
  Model model = make_box();
  at(model, "Gw.Rate").writable = false;
  Tree tree(model);
  EXPECT_NO_THROW(tree.write(tree.find("Gw.Rate"), "010", QMIBTREE_WRITE_APPLY));
  EXPECT_THROW(tree.write(tree.find("Gw.Rate"), "011", QMIBTREE_WRITE_APPLY), Error);
}

TEST_F(TreeWrite, OfAnObjectIsRefused) {
  EXPECT_EQ(refused_write("Gw.Host.", "1"), "Gw.Host.: write not allowed (not a parameter)");
}

TEST_F(TreeWrite, OfADynamicParameterIsRefusedBeforeItIsStored) {
  EXPECT_EQ(refused_write("Gw.UpTime", "1"),
            "Gw.UpTime: hook not found (only a running gateway takes it)");
  EXPECT_EQ(tree.find("Gw.UpTime")->value.type, 0u);
}

using TreeAdd = LiveTree;

TEST_F(TreeAdd, GivesTheNextNumber) {
  EXPECT_STREQ(tree.add(tree.find("Gw.Host."), 0)->fullName, "Gw.Host.1.");
  EXPECT_STREQ(tree.add(tree.find("Gw.Host."), 0)->fullName, "Gw.Host.2.");
}

TEST_F(TreeAdd, TakesANumberAboveTheHighest) {
  EXPECT_STREQ(tree.add(tree.find("Gw.Host."), 5)->fullName, "Gw.Host.5.");
}

TEST_F(TreeAdd, RefusesANumberThatWouldBecomeAnother) {
  tree.add(tree.find("Gw.Host."), 5);
  EXPECT_EQ(message([&] { tree.add(tree.find("Gw.Host."), 2); }),
            "Gw.Host.: instance number 2 cannot be had (the next is 6)");
  EXPECT_EQ(message([&] { tree.add(tree.find("Gw.Host."), 5); }),
            "Gw.Host.: instance number 5 cannot be had (it is in use)");
  EXPECT_EQ(tree.find("Gw.Host.")->childnum, 1u);
}

TEST_F(TreeAdd, RefusesNumbersThatDoNotLoadBack) {
  tree.add(tree.find("Gw.Host."), 999);
  EXPECT_EQ(message([&] { tree.add(tree.find("Gw.Host."), 0); }),
            "Gw.Host.: instance number 1000 cannot be had (1000 and above do not load back)");
}

TEST_F(TreeAdd, RefusesMoreInstancesThanTheModelHas) {
  at(model, "Gw.Host.{i}.").max_entries = 2;
  tree.add(tree.find("Gw.Host."), 0);
  tree.del(tree.add(tree.find("Gw.Host."), 0));
  tree.add(tree.find("Gw.Host."), 0);
  EXPECT_EQ(message([&] { tree.add(tree.find("Gw.Host."), 0); }),
            "Gw.Host.: no room for another instance (the model has at most 2)");
}

TEST_F(TreeAdd, IsForTablesAlone) {
  tree.add(tree.find("Gw.Host."), 0);
  EXPECT_EQ(message([&] { tree.add(tree.find("Gw.Host.1."), 0); }),
            "Gw.Host.1.: not a table (the object of an {i} in the model)");
}

using TreeDel = LiveTree;

TEST_F(TreeDel, RemovesAnInstance) {
  tree.del(tree.add(tree.find("Gw.Host."), 0));
  EXPECT_EQ(tree.find("Gw.Host.")->childnum, 0u);
}

TEST_F(TreeDel, IsForInstancesAlone) {
  EXPECT_EQ(message([&] { tree.del(tree.find("Gw.Host.")); }),
            "Gw.Host.: not an instance (an instance's full name ends in a number and a dot)");
}

TEST(TreeCompare, ShowsEachNodeOnceWithItsCounterpart) {
  const Model model = make_box();
  Tree left(model), right(model);
  left.add(left.find("Gw.Host."), 1);
  right.add(right.find("Gw.Host."), 2);
  std::vector<std::string> alone;
  size_t both = 0;
  compare_trees(left, right, [&](qmibtree_node* a, qmibtree_node* b) {
    if (a && b) {
      EXPECT_STREQ(a->fullName, b->fullName);
      ++both;
    } else {
      alone.push_back(std::string(a ? "-" : "+") + (a ? a : b)->fullName);
    }
  });
  EXPECT_EQ(both, 14u);  // the root, its 12 parameters, and the table
  EXPECT_EQ(alone,
            (std::vector<std::string>{"-Gw.Host.1.", "-Gw.Host.1.Name", "-Gw.Host.1.Port.",
                                      "+Gw.Host.2.", "+Gw.Host.2.Name", "+Gw.Host.2.Port."}));
}

// --- refusal and loss ---

struct Rule {
  const char *name, *text, *why;
};

class Refusal : public testing::TestWithParam<Rule> {};

TEST_P(Refusal, NamesTheRule) {
  const Model model = make_box();
  EXPECT_EQ(refusal(at(model, std::string("Gw.") + GetParam().name), GetParam().text),
            GetParam().why);
}

constexpr char kNotDate[] = "not a date and time as 2001-02-03T04:05:06";

INSTANTIATE_TEST_SUITE_P(
    Rules, Refusal,
    testing::Values(
        Rule{"Rate", "1", ""}, Rule{"Rate", "", "not a whole number"},
        Rule{"Rate", "1.5", "not a whole number"}, Rule{"Rate", " 1", "not a whole number"},
        Rule{"Rate", "0", "below the lowest value, 1"},
        Rule{"Rate", "101", "above the highest value, 100"},
        Rule{"Rate", "4294967297", "above the highest value, 100"}, Rule{"Offset", "-12", ""},
        Rule{"Offset", "-13", "below the lowest value, -12"}, Rule{"Enable", "true", ""},
        Rule{"Enable", "0", ""}, Rule{"Enable", "TRUE", "not one of true, false, 1, 0"},
        Rule{"Label", "12345678", ""}, Rule{"Label", "123456789", "9 bytes, at most 8"},
        Rule{"Zone", "CET", ""}, Rule{"Zone", "CET,UTC", "not one of UTC, CET"},
        Rule{"Zones", "", ""}, Rule{"Zones", " CET , UTC", ""},
        Rule{"Zones", "CET,", "not one of UTC, CET"},
        Rule{"Zones", "CET,PST,UTC", "not one of UTC, CET"}, Rule{"Key", "AQIDBA==", ""},
        Rule{"Key", "", ""}, Rule{"Key", "AQI", "not base64"},
        Rule{"Key", "AQIDBAU=", "5 bytes, at most 4"}, Rule{"Since", "2000-02-29T23:59:59", ""},
        Rule{"Since", "2001-02-29T00:00:00", kNotDate}, Rule{"Since", "2001-2-3T4:5:6", kNotDate},
        Rule{"Since", "2001-02-03", kNotDate}, Rule{"Since", "2001-02-03T04:05:06Z", kNotDate},
        Rule{"Since", "2001-02-03T04:05:60", kNotDate}, Rule{"Since", "2038-01-19T03:14:07", ""},
        Rule{"Since", "2038-01-19T03:14:08",
             "not between 1901-12-13T20:45:52 and 2038-01-19T03:14:07"}));

TEST(RefusalOfAString, FindsAZeroByte) {
  const Model model = make_box();
  EXPECT_EQ(refusal(at(model, "Gw.Label"), std::string_view("a\0b", 3)), "a zero byte in it");
}

TEST(RefusalOfAString, TakesAnEmptyList) {
  const Model model = make_box();
  at(model, "Gw.Zones").defval = "UTC";
  EXPECT_EQ(refusal(at(model, "Gw.Zones"), ""), "");
}

TEST(RefusalOfAString, TakesADefaultThatIsNoneOfTheWords) {
  const Model model = make_box();
  at(model, "Gw.Zone").defval = "";
  EXPECT_EQ(refusal(at(model, "Gw.Zone"), ""), "");
}

class Loss : public testing::TestWithParam<Rule> {};

TEST_P(Loss, SaysWhatADocumentCannotBringBack) {
  const Model model = make_box();
  const std::string why = loss(at(model, std::string("Gw.") + GetParam().name), GetParam().text);
  if (*GetParam().why == '\0')
    EXPECT_EQ(why, "");
  else
    EXPECT_NE(why.find(GetParam().why), std::string::npos) << why;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, Loss,
    testing::Values(
        Rule{"Label", "den", ""}, Rule{"Label", "box", ""}, Rule{"Label", " a\tb ", ""},
        Rule{"Label", "a>b\"'", ""}, Rule{"Label", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8F\xA0", ""},
        Rule{"Label", "a<b", "not escaped"}, Rule{"Label", "a&b", "not escaped"},
        Rule{"Label", "]]>", "not escaped"}, Rule{"Label", "a\x01", "control character"},
        Rule{"Label", "a\nb", "line breaks"}, Rule{"Label", "a\r", "line breaks"},
        Rule{"Label", "\xFF", "not UTF-8"}, Rule{"Label", "\xC3", "not UTF-8"},
        Rule{"Label", "\xC0\xAF", "not UTF-8"}, Rule{"Label", "\xED\xA0\x80", "not UTF-8"},
        Rule{"Label", "\xEF\xBF\xBF", "not UTF-8"}, Rule{"Label", "\x80", "not UTF-8"},
        Rule{"Label", "\x90\x80", "not UTF-8"}, Rule{"Label", "\xF9\x80\x80\x80", "not UTF-8"},
        Rule{"Label", "\xF4\x90\x80\x80", "not UTF-8"},
        Rule{"Label", "", "leaves the default, box"}, Rule{"Zones", "", ""},
        Rule{"Loose", "a", "not saved"}, Rule{"Loose", "", ""}, Rule{"UpTime", "1", "not saved"},
        Rule{"Since", "2001-02-03T04:05:06", "date and time"}, Rule{"Serial", "1", ""}));

TEST(LossOfADate, IsNoneWhereItIsTheDefault) {
  const Model model = make_box();
  at(model, "Gw.Since").save = Save::always;
  at(model, "Gw.Since").defval = "2001-02-03T04:05:06";
  EXPECT_EQ(loss(at(model, "Gw.Since"), "2001-02-03T04:05:06"), "");
}

// What loss() says is what the library does.
TEST_F(LiveTree, LosesATextExactlyWhenLossSaysSo) {
  const Entry& label = at(model, "Gw.Label");
  for (const char* text : {"den",
                           " a\tb ",
                           "a>b\"'",
                           "a<b",
                           "a&b",
                           "]]>",
                           "a\x01",
                           "a\nb",
                           "a\r",
                           "\xFF",
                           "\xC3",
                           "\xC0\xAF",
                           "\xED\xA0\x80",
                           "\xEF\xBF\xBF",
                           "\x80",
                           "",
                           "\xC3\xA4\xE2\x82\xAC",
                           "\xF0\x9F\x8F\xA0",
                           "\xF4\x90\x80\x80",
                           "\x7F",
                           "\xEF\xBF\xBE",
                           "\x90\x80",
                           "\xF9\x80\x80\x80",
                           "\xC2\x85"}) {
    write("Gw.Label", text);
    Tree next(model);
    const bool back = next.load(tree.document()) && next.value(next.find("Gw.Label")) == text;
    EXPECT_EQ(loss(label, text).empty(), back) << text;
  }
}

}  // namespace
}  // namespace mibctl
