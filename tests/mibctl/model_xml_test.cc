// Objects, parameters, components, models and profiles of published documents.
#include "model_folder.hh"

namespace mibctl {
namespace {

using ModelXml = ModelFolder;

std::string object(const std::string& name, const std::string& content = "",
                   const std::string& attributes = R"(access="readOnly")") {
  return "<object name=\"" + name + "\" " + attributes + ">" + content + "</object>\n";
}

std::string table(
    const std::string& name, const std::string& content = "",
    const std::string& attributes = R"(access="readWrite" minEntries="0" maxEntries="unbounded")") {
  return object(name, content, attributes);
}

std::string parameter(const std::string& name, const std::string& attributes = "",
                      const std::string& syntax = "<string/>") {
  return "<parameter name=\"" + name + "\" access=\"readOnly\" " + attributes + "><syntax>" +
         syntax + "</syntax></parameter>";
}

const std::string kRoot = object("Gw.");

// --- the tree ---

TEST_F(ModelXml, EntriesStandInTheOrderOfTheDocument) {
  const Model read =
      model(object("Gw.", parameter("B") + parameter("A")) + object("Gw.D.", parameter("P")) +
            table("Gw.D.T.{i}.") + object("Gw.C."));
  EXPECT_EQ(read.name, "Gw:1.0");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.B\nGw.A\nGw.D.\nGw.D.P\nGw.D.T.{i}.\nGw.C.\n");
}

TEST_F(ModelXml, AnObjectMayStandInFrontOfItsParent) {
  const Model read = model(object("Gw.A.B.") + object("Gw.A.") + kRoot);
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.A.\nGw.A.B.\n");
}

TEST_F(ModelXml, ParametersOfTheModelAreTheRoots) {
  const Model read = model(parameter("P") + kRoot + object("Gw.A.") + parameter("Q"));
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.P\nGw.Q\nGw.A.\n");
}

TEST_F(ModelXml, EntriesKnowWhereTheyAreDefined) {
  const Model read = model(kRoot + object("Gw.A.", parameter("P")));
  const Place& place = find_entry(*read.root, "Gw.A.P")->place;
  EXPECT_EQ(place.file, path("gw.xml"));
  EXPECT_EQ(place.line, 4u);
  EXPECT_EQ(place.column, 40u);
}

TEST_F(ModelXml, AnObjectAndAParameterMayShareAName) {
  const Model read = model(object("Gw.", parameter("Foo")) + object("Gw.Foo."));
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.Foo\nGw.Foo.\n");
}

TEST_F(ModelXml, RefusesAnUnknownParent) {
  EXPECT_EQ(refusal(kRoot + object("Gw.A.B.")), "gw.xml:4:1: unknown object Gw.A.");
  EXPECT_EQ(refusal(kRoot + object("X.A.")), "gw.xml:4:1: unknown object X.");
}

TEST_F(ModelXml, RefusesASecondRoot) {
  EXPECT_EQ(refusal(kRoot + object("X.")), "gw.xml:4:1: a second root object X. (the root is Gw.)");
}

TEST_F(ModelXml, RefusesAModelWithoutObjects) {
  EXPECT_EQ(refusal(""), "gw.xml:2:1: a model without objects");
  EXPECT_EQ(refusal(parameter("P")), "gw.xml:3:1: no object that it could belong to");
}

TEST_F(ModelXml, RefusesADuplicateObject) {
  EXPECT_EQ(refusal(kRoot + object("Gw.A.") + object("Gw.A.")),
            "gw.xml:5:1: Gw.A. is defined twice (first at gw.xml:4:1)");
  EXPECT_EQ(refusal(kRoot + kRoot), "gw.xml:4:1: Gw. is defined twice (first at gw.xml:3:1)");
}

TEST_F(ModelXml, RefusesAnObjectAndATableOfOneName) {
  EXPECT_EQ(refusal(kRoot + object("Gw.A.") + table("Gw.A.{i}.")),
            "gw.xml:5:1: Gw.A. is defined twice (first at gw.xml:4:1)");
}

TEST_F(ModelXml, RefusesADuplicateParameter) {
  EXPECT_EQ(refusal(object("Gw.", parameter("P") + "\n" + parameter("P"))),
            "gw.xml:4:1: Gw.P is defined twice (first at gw.xml:3:38)");
}

// --- names ---

TEST_F(ModelXml, NamesAreOfLettersDigitsUnderlinesAndHyphens) {
  EXPECT_EQ(refusal(object("Gw.", parameter("X_00-A") + parameter("_x"))), "no error");
  for (const char* name : {"", "0A", "-A", "A B", "A.B", "A.", "{i}", "\xC3\xA4"})
    EXPECT_EQ(refusal(object("Gw.", parameter(name))).find("gw.xml:3:38: not a parameter's name: "),
              0u)
        << name;
}

TEST_F(ModelXml, NamesHaveAtMost256Bytes) {
  EXPECT_EQ(refusal(object("Gw.", parameter(std::string(256, 'P')))), "no error");
  EXPECT_EQ(refusal(object("Gw.", parameter(std::string(257, 'P'))))
                .find("gw.xml:3:38: not a parameter's name: PPP"),
            0u);
}

TEST_F(ModelXml, ObjectsNamesEndInADot) {
  for (const char* name : {"Gw.A", "A", "Gw..", ".", "Gw.0."})
    EXPECT_EQ(refusal(kRoot + object(name)),
              "gw.xml:4:1: not an object's name: " + std::string(name) +
                  " (names each ending in a dot, {i}. only behind a name)");
  EXPECT_EQ(refusal(kRoot + object("")), "gw.xml:4:1: an object without a name");
}

TEST_F(ModelXml, PlaceholdersStandBehindANameOnly) {
  for (const char* name : {"{i}.", "Gw.A{i}.", "Gw.A.{i}.{i}.", "Gw.A.{i}", "Gw.A.{j}.", "Gw.A.1."})
    EXPECT_EQ(refusal(kRoot + table(name)),
              "gw.xml:4:1: not an object's name: " + std::string(name) +
                  " (names each ending in a dot, {i}. only behind a name)");
}

TEST_F(ModelXml, RefusesANameTooLongForADocument) {
  const std::string middle = "Gw." + std::string(250, 'A') + ".";
  const std::string inner = middle + std::string(250, 'B') + ".";
  const std::string objects = kRoot + object(middle);
  ASSERT_EQ(inner.size(), 505u);
  EXPECT_EQ(refusal(objects + object(inner, parameter("PPPPPP"))), "no error");
  EXPECT_EQ(refusal(objects + object(inner, parameter("PPPPPPP")))
                .find("gw.xml:5:540: the full name is longer than 511 bytes (Gw.AAA"),
            0u);
  EXPECT_EQ(refusal(objects + object(inner + "CCCCCC."))
                .find("gw.xml:5:1: longer than 511 bytes: Gw.AAA"),
            0u);
}

TEST_F(ModelXml, RefusesNestingTooDeepForADocument) {
  std::string name = "Gw.", objects = kRoot;
  for (int depth = 2; depth <= 31; ++depth) objects += object(name += "A.");
  EXPECT_EQ(refusal(objects), "no error");
  EXPECT_EQ(refusal(objects + object(name + "A.")),
            "gw.xml:34:1: nested more than 31 deep (" + name + "A.)");
  EXPECT_EQ(refusal(objects + object("Gw.X.", parameter("P"))), "no error");
  EXPECT_EQ(refusal(objects + R"(<object base=")" + name + R"(">)" + parameter("P") + "</object>"),
            "gw.xml:34:" + std::to_string(name.size() + 17) + ": nested more than 31 deep (" +
                name + "P)");
}

// --- attributes ---

TEST_F(ModelXml, AccessIsReadOnlyOrReadWrite) {
  const Model read = model(object("Gw.", parameter("P") + R"(<parameter name="Q"
access="readWrite"><syntax><int/></syntax></parameter>)"));
  EXPECT_FALSE(find_entry(*read.root, "Gw.P")->writable);
  EXPECT_TRUE(find_entry(*read.root, "Gw.Q")->writable);
}

TEST_F(ModelXml, WriteOnceIsReadWrite) {
  const Model read = model(object("Gw.", "", R"(access="writeOnceReadOnly")"));
  EXPECT_TRUE(read.root->writable);
  EXPECT_EQ(notes_of(read, "Gw."), "write once as readWrite\n");
}

TEST_F(ModelXml, RefusesAMissingOrUnknownAccess) {
  EXPECT_EQ(refusal(object("Gw.", "", "")), "gw.xml:3:1: <object> without access");
  EXPECT_EQ(refusal(object("Gw.", R"(<parameter name="P"><syntax><int/></syntax></parameter>)")),
            "gw.xml:3:38: <parameter> without access");
  EXPECT_EQ(refusal(object("Gw.", "", R"(access="all")")),
            "gw.xml:3:1: unknown access all (one of readOnly, readWrite, writeOnceReadOnly)");
}

TEST_F(ModelXml, TheStatusIsKeptAndDeletedEntriesStay) {
  const Model read = model(kRoot + object("Gw.A.", parameter("P", R"(status="deleted")"),
                                          R"(access="readOnly" status="obsoleted")"));
  EXPECT_EQ(read.root->status, "current");
  EXPECT_EQ(find_entry(*read.root, "Gw.A.")->status, "obsoleted");
  EXPECT_EQ(find_entry(*read.root, "Gw.A.P")->status, "deleted");
}

TEST_F(ModelXml, RefusesAnUnknownStatus) {
  EXPECT_EQ(refusal(object("Gw.", parameter("P", R"(status="gone")"))),
            "gw.xml:3:38: unknown status gone (one of current, deprecated, obsoleted, deleted)");
}

TEST_F(ModelXml, NotificationIsForcedOnByDefaultOrNeither) {
  constexpr struct {
    const char* word;
    Notify notify;
  } rows[] = {{"normal", Notify::normal},
              {"canDeny", Notify::normal},
              {"willDeny", Notify::normal},
              {"forceDefaultEnabled", Notify::by_default},
              {"forceEnabled", Notify::forced}};
  for (const auto& row : rows) {
    const Model read =
        model(object("Gw.", parameter("P", "activeNotify=\"" + std::string(row.word) + "\"")));
    EXPECT_EQ(read.root->children[0]->notify, row.notify) << row.word;
  }
}

TEST_F(ModelXml, RefusesAnUnknownNotification) {
  EXPECT_EQ(refusal(object("Gw.", parameter("P", R"(activeNotify="loud")"))),
            "gw.xml:3:38: unknown activeNotify loud (one of normal, canDeny, willDeny, "
            "forceDefaultEnabled, forceEnabled)");
}

// --- tables ---

TEST_F(ModelXml, ATableHasItsNumberOfEntries) {
  const Model read = model(
      object("Gw.", parameter("TNumberOfEntries")) +
      table(
          "Gw.T.{i}.", "",
          R"(access="readWrite" minEntries="1" maxEntries="4" numEntriesParameter="TNumberOfEntries")") +
      table("Gw.U.{i}."));
  const Entry& t = *find_entry(*read.root, "Gw.T.{i}.");
  EXPECT_TRUE(t.multi);
  EXPECT_TRUE(t.writable);
  EXPECT_EQ(t.min_entries, 1u);
  EXPECT_EQ(t.max_entries, 4u);
  EXPECT_EQ(t.entries, "TNumberOfEntries");
  EXPECT_EQ(find_entry(*read.root, "Gw.U.{i}.")->max_entries, 0u);
}

TEST_F(ModelXml, AnUnknownCounterIsNotedAndLeftOut) {
  const Model read =
      model(kRoot + table("Gw.T.{i}.", "", R"(access="readWrite" numEntriesParameter="N")"));
  EXPECT_EQ(find_entry(*read.root, "Gw.T.{i}.")->entries, "");
  EXPECT_EQ(notes_of(read, "Gw.T.{i}."), "unknown numEntriesParameter (N)\n");
}

TEST_F(ModelXml, AnObjectIsNoCounter) {
  const Model read =
      model(kRoot + table("Gw.T.{i}.", "", R"(access="readWrite" numEntriesParameter="A.")") +
            object("Gw.A."));
  EXPECT_EQ(find_entry(*read.root, "Gw.T.{i}.")->entries, "");
}

TEST_F(ModelXml, AnOptionalObjectIsNoTable) {
  const Model read =
      model(kRoot + object("Gw.A.", "", R"(access="readOnly" minEntries="0" maxEntries="1")"));
  const Entry& a = *find_entry(*read.root, "Gw.A.");
  EXPECT_FALSE(a.multi);
  EXPECT_EQ(a.max_entries, 0u);
}

TEST_F(ModelXml, RefusesSeveralEntriesWithoutAPlaceholder) {
  EXPECT_EQ(refusal(kRoot + table("Gw.T.")),
            "gw.xml:4:1: missing {i} behind Gw.T. (maxEntries is unbounded)");
  EXPECT_EQ(refusal(kRoot + table("Gw.T.", "", R"(access="readOnly" maxEntries="2")")),
            "gw.xml:4:1: missing {i} behind Gw.T. (maxEntries is 2)");
}

TEST_F(ModelXml, RefusesAMissingPlaceholderInAPath) {
  EXPECT_EQ(refusal(kRoot + table("Gw.T.{i}.") + object("Gw.T.A.")),
            "gw.xml:5:1: missing {i} behind Gw.T. (it is a table)");
}

TEST_F(ModelXml, RefusesAPlaceholderBehindAnObject) {
  EXPECT_EQ(refusal(kRoot + object("Gw.T.") + object("Gw.T.{i}.A.")),
            "gw.xml:5:1: Gw.T. has no instances (it is defined without {i})");
}

TEST_F(ModelXml, RefusesARootWithInstances) {
  EXPECT_EQ(refusal(table("Gw.{i}.")),
            "gw.xml:3:1: the root object cannot have instances: Gw.{i}.");
}

TEST_F(ModelXml, RefusesMalformedNumbersOfEntries) {
  const auto refused = [this](const std::string& attributes) {
    return refusal(kRoot + table("Gw.T.{i}.", "", R"(access="readOnly" )" + attributes));
  };
  EXPECT_EQ(refused(R"(maxEntries="many")"),
            "gw.xml:4:1: not a number for maxEntries: many (1 to 4,294,967,295)");
  EXPECT_EQ(refused(R"(maxEntries="0")"),
            "gw.xml:4:1: not a number for maxEntries: 0 (1 to 4,294,967,295)");
  EXPECT_EQ(refused(R"(minEntries="-1")"),
            "gw.xml:4:1: not a number for minEntries: -1 (0 to 4,294,967,295)");
  EXPECT_EQ(refused(R"(minEntries="3" maxEntries="2")"),
            "gw.xml:4:1: minEntries is above maxEntries");
}

TEST_F(ModelXml, TheNumberOfEntriesIsLimited) {
  std::string parameters;
  for (int i = 0; i < 20'000; ++i) parameters += parameter("P" + std::to_string(i)) + "\n";
  EXPECT_EQ(refusal(object("Gw.", parameters)),
            "gw.xml:20002:1: too many objects and parameters (at most 20,000)");
}

// --- components ---

TEST_F(ModelXml, AComponentIsLaidOutWhereItIsUsed) {
  const Model read = model(
      kRoot + object("Gw.A.") + R"(<component ref="C" path="Gw.A."/>)",
      "<component name=\"C\">" + parameter("P") + table("T.{i}.", parameter("Q")) + "</component>");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.A.\nGw.A.P\nGw.A.T.{i}.\nGw.A.T.{i}.Q\n");
}

TEST_F(ModelXml, AComponentMayBeUsedSeveralTimes) {
  const Model read =
      model(kRoot + table("Gw.T.{i}.") +
                R"(<component ref="C" path="Gw.T.{i}."/><component ref="C" path="Gw."/>)",
            "<component name=\"C\">" + parameter("P") + "</component>");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.P\nGw.T.{i}.\nGw.T.{i}.P\n");
}

TEST_F(ModelXml, AComponentInAnObjectIsRelativeToIt) {
  const Model read = model(object("Gw.", R"(<component ref="C"/>)"),
                           "<component name=\"C\">" + object("A.") + "</component>");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.A.\n");
}

TEST_F(ModelXml, AComponentMayUseAnother) {
  const Model read = model(kRoot + R"(<component ref="C" path="Gw."/>)",
                           "<component name=\"C\">" + object("A.") +
                               R"(<component ref="D" path="A."/></component>)" +
                               "<component name=\"D\">" + parameter("P") + "</component>");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.A.\nGw.A.P\n");
}

TEST_F(ModelXml, RefusesAnUnknownComponent) {
  EXPECT_EQ(refusal(kRoot + R"(<component ref="C" path="Gw."/>)"),
            "gw.xml:4:1: unknown component C (neither defined nor imported in gw.xml)");
}

TEST_F(ModelXml, RefusesAComponentThatContainsItself) {
  EXPECT_EQ(refusal(kRoot + R"(<component ref="C" path="Gw."/>)",
                    R"(<component name="C"><component ref="D"/></component>
<component name="D"><component ref="C"/></component>)"),
            "gw.xml:3:21: component C contains itself");
}

TEST_F(ModelXml, RefusesComponentsNestedTooDeep) {
  std::string components;
  for (int i = 0; i <= 64; ++i)
    components += "<component name=\"C" + std::to_string(i) + "\"><component ref=\"C" +
                  std::to_string(i + 1) + "\"/></component>\n";
  EXPECT_EQ(refusal(kRoot + R"(<component ref="C0" path="Gw."/>)",
                    components + R"(<component name="C65"/>)"),
            "gw.xml:65:23: components nested too deep (at most 64)");
}

TEST_F(ModelXml, RefusesComponentsThatMultiplyEachOther) {
  std::string components = R"(<component name="C0"/>)";
  for (int i = 1; i < 60; ++i) {
    const std::string use = "<component ref=\"C" + std::to_string(i - 1) + "\"/>";
    components += "\n<component name=\"C" + std::to_string(i) + "\">" + use + use + "</component>";
  }
  EXPECT_NE(refusal(kRoot + R"(<component ref="C59" path="Gw."/>)", components)
                .find("the model is too large"),
            std::string::npos);
}

TEST_F(ModelXml, RefusesAMalformedPathOfAComponent) {
  EXPECT_EQ(refusal(kRoot + R"(<component ref="C" path="Gw"/>)",
                    "<component name=\"C\">\n" + parameter("P") + "</component>"),
            "gw.xml:5:1: not an object's name: Gw "
            "(names each ending in a dot, {i}. only behind a name)");
}

// --- models that base on others ---

const std::string kBase = "<model name=\"Base:1.0\">" +
                          object("Gw.", parameter("P", R"(activeNotify="forceEnabled")",
                                                  R"(<string><size maxLength="9"/>
<enumeration value="a"/></string><default type="object" value="a"/>)")) +
                          table("Gw.T.{i}.", parameter("Q")) + "</model>\n";

class DerivedModel : public ModelFolder {
 protected:
  Model derived(const std::string& content) {
    write_model("gw.xml", content, kBase, R"(name="Gw:1.1" base="Base:1.0")");
    return read({"gw.xml"}, "Gw:1.1");
  }
  std::string refusal_of(const std::string& content) {
    write_model("gw.xml", content, kBase, R"(name="Gw:1.1" base="Base:1.0")");
    return refusal_of_files({"gw.xml"}, "Gw:1.1");
  }
};

TEST_F(DerivedModel, HasWhatItsBaseHasAndMore) {
  const Model read = derived(object("Gw.A.") + R"(<object base="Gw.T.{i}.">)" + parameter("R") +
                             R"(</object><object base="Gw.">)" + parameter("S") + "</object>");
  EXPECT_EQ(read.name, "Gw:1.1");
  EXPECT_EQ(paths_of(*read.root), "Gw.\nGw.P\nGw.S\nGw.T.{i}.\nGw.T.{i}.Q\nGw.T.{i}.R\nGw.A.\n");
}

TEST_F(DerivedModel, GivenAttributesReplaceTheBases) {
  const Model read = derived(R"(<object base="Gw.T.{i}." status="obsoleted" maxEntries="7"/>
<object base="Gw."><parameter base="P" access="readWrite" activeNotify="normal"/></object>)");
  const Entry& t = *find_entry(*read.root, "Gw.T.{i}.");
  EXPECT_EQ(t.status, "obsoleted");
  EXPECT_EQ(t.max_entries, 7u);
  EXPECT_TRUE(t.writable);
  const Entry& p = *find_entry(*read.root, "Gw.P");
  EXPECT_TRUE(p.writable);
  EXPECT_EQ(p.notify, Notify::normal);
  EXPECT_EQ(p.max_len, 9u);
  EXPECT_EQ(p.defval, "a");
}

std::string change_p(const std::string& syntax) {
  return R"(<object base="Gw."><parameter base="P"><syntax>)" + syntax +
         "</syntax></parameter></object>";
}

TEST_F(DerivedModel, GivenFacetsReplaceTheBasesOfTheirKind) {
  const Model read = derived(change_p(R"(<string><size maxLength="20"/></string>)"));
  const Entry& p = *find_entry(*read.root, "Gw.P");
  EXPECT_EQ(p.max_len, 20u);
  EXPECT_EQ(p.words, std::vector<std::string>{"a"});
  EXPECT_EQ(p.defval, "a");
}

TEST_F(DerivedModel, AnotherTypeReplacesTheBasesWithItsFacets) {
  const Model read = derived(change_p(R"(<int/><default type="object" value="3"/>)"));
  const Entry& p = *find_entry(*read.root, "Gw.P");
  EXPECT_EQ(p.type, QMIBTREE_TYPE_INT);
  EXPECT_EQ(p.source, "int");
  EXPECT_TRUE(p.words.empty());
  EXPECT_EQ(p.defval, "3");
}

TEST_F(DerivedModel, ANamedTypeReplacesThePlainOneWithItsFacets) {
  write_model("gw.xml", change_p(R"(<dataType ref="T"/>)"),
              kBase + R"(<dataType name="T" base="string"/>)", R"(name="Gw:1.1" base="Base:1.0")");
  const Model read = this->read({"gw.xml"}, "Gw:1.1");
  const Entry& p = *find_entry(*read.root, "Gw.P");
  EXPECT_EQ(p.source, "T");
  EXPECT_EQ(p.max_len, 0u);
  EXPECT_TRUE(p.words.empty());
}

TEST_F(DerivedModel, ADefaultMayBeReplacedAloneAndDeleted) {
  EXPECT_EQ(derived(change_p(R"(<default type="object" value=""/>)")).root->children[0]->defval,
            "");
  EXPECT_EQ(derived(change_p(R"(<default type="object" value="a" status="deleted"/>)"))
                .root->children[0]
                ->defval,
            std::nullopt);
}

TEST_F(DerivedModel, AParameterMayBecomeAList) {
  const Model read = derived(change_p("<list/>"));
  const Entry& p = *find_entry(*read.root, "Gw.P");
  EXPECT_TRUE(p.list);
  EXPECT_EQ(p.source, "list");
  EXPECT_EQ(p.words, std::vector<std::string>{"a"});
}

TEST_F(DerivedModel, WhatIsChangedIsThere) {
  EXPECT_EQ(refusal_of("<object base=\"Gw.X.\"/>"), "gw.xml:7:1: unknown object Gw.X.");
  EXPECT_EQ(refusal_of(R"(<object base="Gw."><parameter base="X"/></object>)"),
            "gw.xml:7:20: unknown parameter Gw.X");
}

TEST_F(DerivedModel, AnObjectIsNotChangedAsAParameter) {
  write_model("gw.xml", R"(<object base="Gw."><parameter base="A."/></object>)",
              "<model name=\"Base:1.0\">" + kRoot + object("Gw.A.") + "</model>",
              R"(name="Gw:1.1" base="Base:1.0")");
  EXPECT_EQ(refusal_of_files({"gw.xml"}, "Gw:1.1"), "gw.xml:5:20: unknown parameter Gw.A.");
}

TEST_F(DerivedModel, WhatIsThereIsNotDefinedAgain) {
  EXPECT_EQ(refusal_of(table("Gw.T.{i}.")),
            "gw.xml:7:1: Gw.T.{i}. is defined twice (first at gw.xml:4:1)");
}

TEST_F(DerivedModel, MayBaseOnAnImportedOne) {
  write("base.xml", "<document>" + kBase + "</document>");
  write_model("gw.xml", "", R"(<import file="base.xml"><model name="Base:1.0"/></import>)",
              R"(name="Gw:1.1" base="Base:1.0")");
  EXPECT_EQ(count_entries(*read({"gw.xml"}).root), 4u);
}

TEST_F(DerivedModel, RefusesAnUnknownBase) {
  write_model("gw.xml", "", "", R"(name="Gw:1.1" base="Gw:1.0")");
  EXPECT_EQ(refusal_of_files({"gw.xml"}),
            "gw.xml:2:1: unknown model Gw:1.0 (neither defined nor imported in gw.xml)");
}

TEST_F(DerivedModel, RefusesAModelThatBasesOnItself) {
  write_model("gw.xml", "", "<model name=\"A:1\" base=\"Gw:1\"/>\n", R"(name="Gw:1" base="A:1")");
  EXPECT_EQ(refusal_of_files({"gw.xml"}, "Gw:1"), "gw.xml:2:1: model Gw:1 bases on itself");
}

// --- which model ---

TEST_F(ModelXml, OneOfSeveralModelsIsChosenByName) {
  write_model("gw.xml", kRoot, "<model name=\"X:1.0\">" + object("X.") + "</model>\n");
  EXPECT_EQ(refusal_of_files({"gw.xml"}),
            "gw.xml:1:1: several models, choose one with --select (X:1.0, Gw:1.0)");
  EXPECT_EQ(read({"gw.xml"}, "X:1.0").root->name, "X.");
}

TEST_F(ModelXml, RefusesAModelThatIsNotThere) {
  write_model("gw.xml", kRoot);
  EXPECT_EQ(refusal_of_files({"gw.xml"}, "Gw:2.0"), "Gw:2.0: no such model (there is Gw:1.0)");
}

TEST_F(ModelXml, RefusesADocumentWithoutAModel) {
  write("gw.xml", "<document/>");
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:1:1: no model in it");
}

// --- profiles ---

TEST_F(ModelXml, AProfileNamesEntriesAndProfiles) {
  const Model read =
      model(object("Gw.", parameter("P") + parameter("Q")) + table("Gw.T.{i}.", parameter("R")) +
            R"(<profile name="A:1"><object ref="Gw."><parameter ref="Q"/></object></profile>
<profile name="B:1" base="A:1"/>
<profile name="C:1" extends="A:1  B:1"><object ref="Gw.T.{i}."><parameter ref="R"/></object></profile>)");
  ASSERT_EQ(read.profiles.size(), 3u);
  EXPECT_EQ(read.profiles[0].name, "A:1");
  EXPECT_EQ(read.profiles[0].place.line, 5u);
  EXPECT_EQ(read.profiles[0].entries, (std::vector<std::string>{"Gw.", "Gw.Q"}));
  EXPECT_EQ(read.profiles[1].includes, std::vector<std::string>{"A:1"});
  EXPECT_EQ(read.profiles[2].includes, (std::vector<std::string>{"A:1", "B:1"}));
  EXPECT_EQ(read.profiles[2].entries, (std::vector<std::string>{"Gw.T.{i}.", "Gw.T.{i}.R"}));
}

TEST_F(ModelXml, WhatAProfileNamesWithoutBeingThereIsNoted) {
  const Model read = model(kRoot + R"(<profile name="A:1" base="X:1">
<object ref="Gw."><parameter ref="Z"/></object></profile>)");
  EXPECT_EQ(notes_of(read), "unknown profile (X:1)\nprofile of an unknown entry (Gw.Z)\n");
  EXPECT_TRUE(read.profiles[0].includes.empty());
  EXPECT_EQ(read.profiles[0].entries, std::vector<std::string>{"Gw."});
}

TEST_F(ModelXml, RefusesADuplicateProfile) {
  EXPECT_EQ(refusal(kRoot + "<profile name=\"A:1\"/>\n<profile name=\"A:1\"/>"),
            "gw.xml:5:1: profile A:1 is defined twice (first at gw.xml:4:1)");
}

TEST_F(ModelXml, RefusesProfilesWhoseNamesAddUpToTooMuch) {
  std::string parameters;
  for (int i = 0; i < 70; ++i) parameters += "<parameter ref=\"P\"/>";
  EXPECT_EQ(
      refusal(kRoot + "<profile name=\"A:1\">\n" +
              object("Gw", parameters, "ref=\"" + std::string(1 << 20, 'x') + "\"") + "</profile>")
          .find("gw.xml:5:"),
      0u);
}

TEST_F(ModelXml, RefusesAProfileWithoutAName) {
  EXPECT_EQ(refusal(kRoot + "<profile/>"), "gw.xml:4:1: <profile> without name");
  EXPECT_EQ(refusal(kRoot + R"(<profile name="A B"/>)"), "gw.xml:4:1: not a name: A B");
}

// --- services ---

class ServiceModel : public ModelFolder {
 protected:
  ServiceModel() {
    write_model("voice.xml",
                parameter("VoiceNumberOfEntries") +
                    table("Voice.{i}.", parameter("P"),
                          R"(access="readOnly" numEntriesParameter="VoiceNumberOfEntries")") +
                    R"(<profile name="A:1"><parameter ref="VoiceNumberOfEntries"/>
<object ref="Voice.{i}."/></profile><profile name="B:1" base="A:1"/>)",
                "", R"(name="Voice:1.0" isService="true")");
    write_model("gw.xml", kRoot + object("Gw.Services.") + R"(<profile name="A:1"/>)");
  }
};

TEST_F(ServiceModel, AloneHasARootNamedServices) {
  const Model read = this->read({"voice.xml"});
  EXPECT_EQ(read.name, "Voice:1.0");
  EXPECT_EQ(
      paths_of(*read.root),
      "Services.\nServices.VoiceNumberOfEntries\nServices.Voice.{i}.\nServices.Voice.{i}.P\n");
  EXPECT_EQ(read.profiles[0].entries,
            (std::vector<std::string>{"Services.VoiceNumberOfEntries", "Services.Voice.{i}."}));
  EXPECT_EQ(notes_of(read), "");
}

TEST_F(ServiceModel, GoesBelowTheServicesObjectOfTheFirstModel) {
  const Model read = this->read({"gw.xml", "voice.xml"});
  EXPECT_EQ(read.name, "Gw:1.0 + Voice:1.0");
  EXPECT_EQ(paths_of(*read.root),
            "Gw.\nGw.Services.\nGw.Services.VoiceNumberOfEntries\nGw.Services.Voice.{i}.\n"
            "Gw.Services.Voice.{i}.P\n");
}

TEST_F(ServiceModel, StandsBesideOtherServices) {
  write_model("tv.xml", table("Tv.{i}."), "", R"(name="Tv:1.0" isService="1")");
  EXPECT_EQ(paths_of(*read({"tv.xml", "voice.xml"}).root),
            "Services.\nServices.VoiceNumberOfEntries\nServices.Tv.{i}.\nServices.Voice.{i}.\n"
            "Services.Voice.{i}.P\n");
}

TEST_F(ServiceModel, TypesOfSeveralFilesDoNotClash) {
  const std::string use = R"(<dataType ref="T"/>)";
  write_model("tv.xml", table("Tv.{i}.", parameter("P", "", use)),
              R"(<dataType name="T" base="int"/>)", R"(name="Tv:1.0" isService="true")");
  write_model("gw.xml", object("Gw.", parameter("P", "", use)) + object("Gw.Services."),
              R"(<dataType name="T" base="boolean"/>)");
  const Model read = this->read({"gw.xml", "tv.xml"});
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->type, QMIBTREE_TYPE_BOOL);
  EXPECT_EQ(find_entry(*read.root, "Gw.Services.Tv.{i}.P")->type, QMIBTREE_TYPE_INT);
}

TEST_F(ServiceModel, ProfilesWhoseNamesAreTakenGetTheModelsName) {
  const Model read = this->read({"gw.xml", "voice.xml"});
  ASSERT_EQ(read.profiles.size(), 3u);
  EXPECT_EQ(read.profiles[0].name, "A:1");
  EXPECT_EQ(read.profiles[1].name, "Voice:1.0/A:1");
  EXPECT_EQ(read.profiles[1].entries, (std::vector<std::string>{"Gw.Services.VoiceNumberOfEntries",
                                                                "Gw.Services.Voice.{i}."}));
  EXPECT_EQ(read.profiles[2].name, "B:1");
  EXPECT_EQ(read.profiles[2].includes, std::vector<std::string>{"Voice:1.0/A:1"});
}

TEST_F(ServiceModel, NeedsAServicesObject) {
  write_model("gw.xml", kRoot);
  EXPECT_EQ(refusal_of_files({"gw.xml", "voice.xml"}),
            "voice.xml:2:1: no place for a service (Gw:1.0 has no Gw.Services.)");
}

TEST_F(ServiceModel, OnlyServicesFollowTheFirstModel) {
  EXPECT_EQ(refusal_of_files({"voice.xml", "gw.xml"}),
            "gw.xml:2:1: not a service model: Gw:1.0 (only the first may be another)");
}

TEST_F(ServiceModel, IsMarkedByATruthValue) {
  write_model("tv.xml", table("Tv.{i}."), "", R"(name="Tv:1.0" isService="maybe")");
  EXPECT_EQ(refusal_of_files({"tv.xml"}),
            "tv.xml:2:1: unknown isService maybe (one of true, 1, false, 0)");
}

TEST_F(ServiceModel, IsNotMountedTwice) {
  EXPECT_EQ(refusal_of_files({"gw.xml", "voice.xml", "voice.xml"}),
            "voice.xml:3:1: Gw.Services.VoiceNumberOfEntries is defined twice "
            "(first at voice.xml:3:1)");
}

}  // namespace
}  // namespace mibctl
