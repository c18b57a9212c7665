// Files of published documents: their form, their limits, what they import from each other.
#include "model_folder.hh"

namespace mibctl {
namespace {

using ModelDocument = ModelFolder;

const std::string kRoot = R"(<object name="Gw." access="readOnly"/>)";

std::string with_parameter(const std::string& type) {
  return R"(<object name="Gw." access="readOnly">
<parameter name="P" access="readOnly"><syntax><dataType ref=")" +
         type + R"("/></syntax></parameter></object>)";
}

const std::string kStringType =
    R"(<dataType name="T"><string><size maxLength="9"/></string></dataType>)";

TEST_F(ModelDocument, AnyVersionAndPrefixOfTheFormIsRead) {
  write("gw.xml", R"(<?xml version="1.0"?>
<x:document xmlns:x="urn:example:9-9"><x:model name="Gw:1.0"><x:object name="Gw."
access="readOnly"/></x:model></x:document>)");
  EXPECT_EQ(read({"gw.xml"}).root->name, "Gw.");
}

TEST_F(ModelDocument, OtherFilesAreRefused) {
  write("gw.xml", "\n <Gw./>");
  EXPECT_EQ(refusal_of_files({"gw.xml"}),
            "gw.xml:2:2: not a data-model document (its first element is <Gw.>)");
}

TEST_F(ModelDocument, AMissingFileIsAStorageError) {
  EXPECT_EQ(refusal_of_files({"gw.xml"}, "", Status::storage),
            "gw.xml: cannot be read (No such file or directory)");
}

TEST_F(ModelDocument, AnEmptyFileIsRefused) {
  write("gw.xml", "");
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:1:1: no element found");
}

TEST_F(ModelDocument, MalformedXmlIsRefusedWithItsPlace) {
  write("gw.xml", "<document>\n  <model>\n</document>");
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:3:3: mismatched tag");
}

TEST_F(ModelDocument, ColumnsCountBytes) {
  write("gw.xml", "<document><!-- \xC3\xA4 --><model><x></model></document>");
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:1:34: mismatched tag");
}

TEST_F(ModelDocument, EntitiesCannotBeDeclared) {
  write("gw.xml", R"(<!DOCTYPE document [<!ENTITY a "aaaa">]><document>&a;</document>)");
  EXPECT_EQ(refusal_of_files({"gw.xml"}),
            "gw.xml:1:20: document type declarations are not allowed");
}

TEST_F(ModelDocument, NestingIsLimited) {
  std::string text = "<document>\n";
  for (int i = 0; i < 64; ++i) text += "<x>";
  write("gw.xml", text);
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:2:190: elements nested too deep (at most 64)");
}

TEST_F(ModelDocument, TheNumberOfElementsIsLimited) {
  std::string text = "<document>";
  for (int i = 0; i < 500'000; ++i) text += "<x/>";
  write("gw.xml", text);
  EXPECT_EQ(refusal_of_files({"gw.xml"}), "gw.xml:1:2000007: too many elements (at most 500,000)");
}

TEST_F(ModelDocument, UnknownElementsAreIgnoredAndNotedOnceAKind) {
  const Model read = model(R"(<object name="Gw." access="readOnly">
<command name="Reset"><input><parameter name="P"/></input></command><command/><event/>
</object>)");
  EXPECT_EQ(paths_of(*read.root), "Gw.\n");
  EXPECT_EQ(notes_of(read), "ignored <command>\nignored <event>\n");
  EXPECT_EQ(read.notes[0].place.line, 4u);
}

TEST_F(ModelDocument, UnknownAttributesAreIgnoredAndNotedOnceAKind) {
  const Model read = model(R"(<object name="Gw." acess="readWrite" access="readOnly"/>
<object name="Gw.A." acess="readWrite" access="readOnly"/>)");
  EXPECT_EQ(notes_of(read), "ignored attribute acess\n");
}

TEST_F(ModelDocument, KnownElementsThatMeanNothingHereAreNotNoted) {
  const Model read = model(R"(<object name="Gw." access="readOnly" xml:lang="en" version="1.0">
<description>text &lt;b&gt;</description><uniqueKey><parameter ref="X"/></uniqueKey></object>)",
                           R"(<bibliography><reference id="x"/></bibliography><glossary/>)");
  EXPECT_EQ(notes_of(read), "");
}

TEST_F(ModelDocument, AttributesOfOtherNameSpacesDoNotCount) {
  write("gw.xml", R"(<document xmlns:o="urn:o"><model name="Gw:1.0"><object name="Gw."
access="readOnly" o:access="readWrite" o:base="X."/></model></document>)");
  EXPECT_FALSE(read({"gw.xml"}).root->writable);
}

TEST_F(ModelDocument, BlanksAroundANameDoNotCount) {
  EXPECT_EQ(model(R"(<object name=" Gw. " access="readOnly "/>)").root->name, "Gw.");
}

TEST_F(ModelDocument, AMissingAttributeIsAnErrorAtItsElement) {
  EXPECT_EQ(refusal(kRoot, "<dataType/>"), "gw.xml:2:1: <dataType> without name");
}

TEST_F(ModelDocument, DefinitionsHaveNamesWithoutBlanks) {
  EXPECT_EQ(refusal(kRoot, R"(<dataType name="a&#10;b" base="int"/>)"),
            R"(gw.xml:2:1: not a name: "a\nb")");
  EXPECT_EQ(refusal(kRoot, R"(<component name=""/>)"), "gw.xml:2:1: not a name: ");
}

TEST_F(ModelDocument, LongTextsAreCutInMessages) {
  EXPECT_EQ(refusal(kRoot, R"(<dataType name=")" + std::string(257, 'x') + R"(" base="int"/>)"),
            "gw.xml:2:1: not a name: " + std::string(80, 'x') + "...");
}

TEST_F(ModelDocument, ADefinitionIsNotRepeated) {
  EXPECT_EQ(refusal(kRoot, kStringType + "\n" + kStringType),
            "gw.xml:3:1: dataType T is defined twice (first at gw.xml:2:1)");
  EXPECT_EQ(refusal(kRoot, R"(<component name="C"/><component name="C"/>)"),
            "gw.xml:2:22: component C is defined twice (first at gw.xml:2:1)");
}

TEST_F(ModelDocument, DefinitionsOfDifferentKindsMayHaveOneName) {
  EXPECT_EQ(refusal(kRoot, kStringType + R"(<component name="T"/>)"), "no error");
}

// --- imports ---

TEST_F(ModelDocument, DefinitionsAreImportedFromAFileOfTheSameFolder) {
  write("types.xml", "<document>" + kStringType + "</document>");
  const Model read = model(with_parameter("T"),
                           R"(<import file="types.xml" spec="x"><dataType name="T"/></import>)");
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->max_len, 9u);
}

TEST_F(ModelDocument, AnImportMayGiveAnotherName) {
  write("types.xml", "<document>" + kStringType + "</document>");
  const Model read = model(with_parameter("U"),
                           R"(<import file="types.xml"><dataType name="U" ref="T"/></import>)");
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->max_len, 9u);
}

TEST_F(ModelDocument, AnImportMayLeadToAnother) {
  write("a.xml", R"(<document><import file="b.xml"><dataType name="T"/></import></document>)");
  write("b.xml", "<document>" + kStringType + "</document>");
  const Model read =
      model(with_parameter("T"), R"(<import file="a.xml"><dataType name="T"/></import>)");
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->max_len, 9u);
}

TEST_F(ModelDocument, AnImportedTypeMeansNamesOfItsOwnFile) {
  write("types.xml", R"(<document><dataType name="Base"><int/></dataType>
<dataType name="T" base="Base"/></document>)");
  const Model read = model(with_parameter("T"),
                           R"(<import file="types.xml"><dataType name="T"/></import>
<dataType name="Base"><boolean/></dataType>)");
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->type, QMIBTREE_TYPE_INT);
}

TEST_F(ModelDocument, FilesMayImportEachOther) {
  write("a.xml", R"(<document><import file="gw.xml"><dataType name="U"/></import>
<dataType name="T" base="U"/></document>)");
  const Model read = model(with_parameter("T"),
                           R"(<import file="a.xml"><dataType name="T"/></import>
<dataType name="U"><int/></dataType>)");
  EXPECT_EQ(find_entry(*read.root, "Gw.P")->type, QMIBTREE_TYPE_INT);
}

TEST_F(ModelDocument, WhatIsOnlyImportedInACycleIsDefinedNowhere) {
  write("a.xml", R"(<document><import file="gw.xml"><dataType name="T"/></import></document>)");
  EXPECT_EQ(refusal(with_parameter("T"), R"(<import file="a.xml"><dataType name="T"/></import>)"),
            "gw.xml:2:22: dataType T is imported in a cycle and defined nowhere");
}

TEST_F(ModelDocument, TypesMayNotBaseOnEachOtherAcrossFiles) {
  write("a.xml", R"(<document><import file="gw.xml"><dataType name="U"/></import>
<dataType name="T" base="U"/></document>)");
  EXPECT_EQ(refusal(with_parameter("T"), R"(<import file="a.xml"><dataType name="T"/></import>
<dataType name="U" base="T"/>)"),
            "a.xml:2:1: dataType T bases on itself");
}

TEST_F(ModelDocument, AMissingImportedFileIsNamedWithItsImporter) {
  EXPECT_EQ(
      [this] {
        write_model("gw.xml", with_parameter("T"),
                    R"(<import file="types.xml"><dataType name="T"/></import>)");
        return refusal_of_files({"gw.xml"}, "", Status::storage);
      }(),
      "gw.xml:2:1: types.xml cannot be read (No such file or directory)");
}

TEST_F(ModelDocument, AnUnknownImportedNameIsAnErrorAtTheImport) {
  write("types.xml", "<document/>");
  EXPECT_EQ(
      refusal(with_parameter("T"), R"(<import file="types.xml"><dataType name="T"/></import>)"),
      "gw.xml:2:26: unknown dataType T (neither defined nor imported in types.xml)");
}

TEST_F(ModelDocument, ImportsDoNotLeaveTheFolder) {
  for (const char* file : {"../types.xml", "/etc/passwd", "a/b.xml", "..", ".", ""})
    EXPECT_EQ(refusal(with_parameter("T"), R"(<import file=")" + std::string(file) +
                                               R"("><dataType name="T"/></import>)"),
              "gw.xml:2:1: not a file of the same folder: " + std::string(file));
}

TEST_F(ModelDocument, AnImportIsADefinitionThatCannotBeRepeated) {
  EXPECT_EQ(refusal(kRoot, R"(<import file="a.xml"><dataType name="T"/></import>)" + kStringType),
            "gw.xml:2:51: dataType T is defined twice (first at gw.xml:2:22)");
}

TEST_F(ModelDocument, ErrorsInAnImportedFileHaveItsPlace) {
  write("types.xml", "<document>\n<oops</document>");
  EXPECT_EQ(
      refusal(with_parameter("T"), R"(<import file="types.xml"><dataType name="T"/></import>)"),
      "types.xml:2:6: not well-formed (invalid token)");
}

}  // namespace
}  // namespace mibctl
