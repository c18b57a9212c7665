// Types, facets and defaults of published documents.
#include "model_folder.hh"

namespace mibctl {
namespace {

class ModelSyntax : public ModelFolder {
 protected:
  static std::string parameter(const std::string& syntax) {
    return R"(<object name="Gw." access="readOnly">
<parameter name="P" access="readWrite"><syntax>)" +
           syntax + "</syntax></parameter></object>\n";
  }
  // The parameter with this syntax; its syntax stands from line 4 + the definitions' on, column 48.
  Entry entry(const std::string& syntax, const std::string& definitions = "") {
    Model read = model(parameter(syntax), definitions);
    notes_ = notes_of(read, "Gw.P");
    return std::move(*read.root->children[0]);
  }
  std::string refusal_of(const std::string& syntax, const std::string& definitions = "") {
    return refusal(parameter(syntax), definitions);
  }
  // The default that is left of one for the type; "none" without.
  std::string defval(const std::string& type, const std::string& value) {
    return entry(type + R"(<default type="object" value=")" + value + R"("/>)")
        .defval.value_or("none");
  }

  std::string notes_;  // of the last entry
};

// --- types ---

TEST_F(ModelSyntax, PrimitiveTypesHaveTheirCounterparts) {
  constexpr struct {
    const char* name;
    uint32_t type;
    const char* notes;
  } rows[] = {
      {"string", QMIBTREE_TYPE_STRING, ""},
      {"int", QMIBTREE_TYPE_INT, ""},
      {"unsignedInt", QMIBTREE_TYPE_UINT, ""},
      {"boolean", QMIBTREE_TYPE_BOOL, ""},
      {"dateTime", QMIBTREE_TYPE_DATETIME, ""},
      {"base64", QMIBTREE_TYPE_BASE64, ""},
      {"long", QMIBTREE_TYPE_STRING, "long as string\n"},
      {"unsignedLong", QMIBTREE_TYPE_STRING, "unsignedLong as string\n"},
      {"decimal", QMIBTREE_TYPE_STRING, "decimal as string\n"},
      {"hexBinary", QMIBTREE_TYPE_STRING, "hexBinary as string (two digits a byte)\n"},
  };
  for (const auto& row : rows) {
    const Entry read = entry("<" + std::string(row.name) + "/>");
    EXPECT_EQ(read.type, row.type) << row.name;
    EXPECT_EQ(read.source, row.name);
    EXPECT_EQ(notes_, row.notes) << row.name;
  }
}

TEST_F(ModelSyntax, NumbersWithoutARangeHaveTheWholeOne) {
  EXPECT_EQ(entry("<int/>").min, INT32_MIN);
  EXPECT_EQ(entry("<int/>").max, INT32_MAX);
  EXPECT_EQ(entry("<unsignedInt/>").min, 0);
  EXPECT_EQ(entry("<unsignedInt/>").max, UINT32_MAX);
}

TEST_F(ModelSyntax, AParameterHasOneType) {
  EXPECT_EQ(refusal_of("<int/><string/>"), "gw.xml:4:54: a second type (first at gw.xml:4:48)");
  EXPECT_EQ(refusal_of(""), "gw.xml:4:1: parameter P without a type");
}

// --- named types ---

const std::string kTypes =
    R"(<dataType name="Port"><unsignedInt><range maxInclusive="65535"/></unsignedInt></dataType>
<dataType name="UserPort" base="Port"><range minInclusive="1024"/></dataType>
<dataType name="Mode"><string><size maxLength="9"/><enumeration value="a"/></string></dataType>
<dataType name="Modes" base="Mode"><list><size maxLength="99"/></list></dataType>
<dataType name="Plain" base="string"/>
)";

TEST_F(ModelSyntax, ANamedTypeIsFollowedDown) {
  const Entry read = entry(R"(<dataType ref="Port"/>)", kTypes);
  EXPECT_EQ(read.type, QMIBTREE_TYPE_UINT);
  EXPECT_EQ(read.source, "Port");
  EXPECT_EQ(read.max, 65535);
}

TEST_F(ModelSyntax, ANamedTypeMayBeDefinedBehindItsUse) {
  write("gw.xml", R"(<document><model name="Gw:1.0">)" + parameter(R"(<dataType ref="Port"/>)") +
                      "</model>" + kTypes + "</document>");
  EXPECT_EQ(read({"gw.xml"}).root->children[0]->max, 65535);
}

TEST_F(ModelSyntax, ANamedTypeMayHaveAPrimitiveBase) {
  EXPECT_EQ(entry(R"(<dataType ref="Plain"/>)", kTypes).type, QMIBTREE_TYPE_STRING);
}

TEST_F(ModelSyntax, AnAnonymousTypeMayNameItsBase) {
  EXPECT_EQ(entry(R"(<dataType base="Port"/>)", kTypes).source, "Port");
}

TEST_F(ModelSyntax, FacetsOfADerivedTypeReplaceWhatTheySayOfTheBases) {
  const Entry read = entry(R"(<dataType ref="UserPort"/>)", kTypes);
  EXPECT_EQ(read.min, 1024);
  EXPECT_EQ(read.max, 65535);
}

TEST_F(ModelSyntax, AnEndThatADerivedTypeLeavesOpenIsItsBases) {
  const std::string types =
      R"(<dataType name="N"><int><range minInclusive="-5" maxInclusive="9"/></int></dataType>)"
      R"(<dataType name="M" base="N"><range minInclusive="5"/></dataType>)"
      R"(<dataType name="T"><string><size maxLength="9"/></string></dataType>)";
  const Entry number = entry(R"(<dataType ref="M"/>)", types);
  EXPECT_EQ(number.min, 5);
  EXPECT_EQ(number.max, 9);
  const Entry text = entry(R"(<dataType ref="T"><size minLength="2"/></dataType>)", types);
  EXPECT_EQ(text.max_len, 9u);
  EXPECT_EQ(notes_, "minLength not enforced (2)\n");
}

TEST_F(ModelSyntax, FacetsAtTheUseReplaceTheTypesOfTheSameKind) {
  const Entry read = entry(R"(<dataType ref="Mode"><size maxLength="5"/></dataType>)", kTypes);
  EXPECT_EQ(read.max_len, 5u);
  EXPECT_EQ(read.words, std::vector<std::string>{"a"});
}

TEST_F(ModelSyntax, DeletedFacetsAreAsIfTheyWereNotThere) {
  const Entry read =
      entry(R"(<dataType ref="Mode"><size maxLength="5" status="deleted"/></dataType>)", kTypes);
  EXPECT_EQ(read.max_len, 9u);
}

TEST_F(ModelSyntax, AnUnknownTypeIsAnErrorWhereItIsNamed) {
  EXPECT_EQ(refusal_of(R"(<dataType ref="Prot"/>)"),
            "gw.xml:4:48: unknown dataType Prot (neither defined nor imported in gw.xml)");
}

TEST_F(ModelSyntax, RefusesAnUnknownBaseType) {
  EXPECT_EQ(refusal_of(R"(<dataType ref="A"/>)", R"(<dataType name="A" base="B"/>)"
                                                 "\n"
                                                 R"(<dataType name="B" base="C"/>)"
                                                 "\n"),
            "gw.xml:3:1: unknown dataType C (neither defined nor imported in gw.xml)");
}

TEST_F(ModelSyntax, RefusesATypeThatBasesOnItself) {
  EXPECT_EQ(refusal_of(R"(<dataType ref="A"/>)", R"(<dataType name="A" base="B"/>)"
                                                 R"(<dataType name="B" base="A"/>)"),
            "gw.xml:2:1: dataType A bases on itself");
}

TEST_F(ModelSyntax, RefusesTypesNestedTooDeep) {
  std::string types;
  for (int i = 0; i < 32; ++i)
    types +=
        "<dataType name=\"T" + std::to_string(i) + "\" base=\"T" + std::to_string(i + 1) + "\"/>\n";
  types += R"(<dataType name="T32" base="int"/>)";
  EXPECT_EQ(refusal_of(R"(<dataType ref="T1"/>)", types),
            "gw.xml:34:1: data types nested too deep (at most 32)");
  EXPECT_EQ(refusal_of(R"(<dataType ref="T2"/>)", types), "no error");
}

TEST_F(ModelSyntax, ATypeHasABaseOrATypeOfItsOwn) {
  EXPECT_EQ(refusal_of(R"(<dataType ref="A"/>)", R"(<dataType name="A"/>)"),
            "gw.xml:2:1: <dataType> without a type (a base or one inside)");
  EXPECT_EQ(
      refusal_of(R"(<dataType ref="A"/>)", R"(<dataType name="A" base="int"><int/></dataType>)"),
      "gw.xml:2:31: a second type (the data type has the base int)");
}

// --- lists ---

TEST_F(ModelSyntax, AListIsAStringWithItsOwnSize) {
  const Entry read =
      entry(R"(<list><size maxLength="50"/></list><string><size maxLength="5"/></string>)");
  EXPECT_EQ(read.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(read.source, "list");
  EXPECT_TRUE(read.list);
  EXPECT_EQ(read.max_len, 50u);
  EXPECT_EQ(notes_, "list as string (of string)\nbounds of items not enforced\n");
}

TEST_F(ModelSyntax, ADeletedSizeOfAListDoesNotCount) {
  EXPECT_EQ(entry(R"(<list><size maxLength="50" status="deleted"/></list><string/>)").max_len, 0u);
}

TEST_F(ModelSyntax, AListOfNumbersHasNoBounds) {
  const Entry read =
      entry(R"(<list maxItems="3"/><unsignedInt><range minInclusive="1"/></unsignedInt>)");
  EXPECT_EQ(read.type, QMIBTREE_TYPE_STRING);
  EXPECT_EQ(read.max_len, 0u);
  EXPECT_EQ(notes_,
            "list as string (of unsignedInt)\nbounds of items not enforced\n"
            "number of items not enforced\n");
}

TEST_F(ModelSyntax, AListHasItsItemsWords) {
  EXPECT_EQ(entry(R"(<list/><dataType ref="Mode"/>)", kTypes).words, std::vector<std::string>{"a"});
}

TEST_F(ModelSyntax, ANamedTypeMayBeAList) {
  const Entry read = entry(R"(<dataType ref="Modes"/>)", kTypes);
  EXPECT_TRUE(read.list);
  EXPECT_EQ(read.source, "Modes");
  EXPECT_EQ(read.max_len, 99u);
}

// --- sizes ---

TEST_F(ModelSyntax, StringsAndBase64HaveALongestLength) {
  EXPECT_EQ(entry(R"(<string><size maxLength="64"/></string>)").max_len, 64u);
  EXPECT_EQ(entry(R"(<base64><size maxLength="64"/></base64>)").max_len, 64u);
  EXPECT_EQ(entry("<string/>").max_len, 0u);
}

TEST_F(ModelSyntax, HexBinaryHasTwoDigitsAByte) {
  EXPECT_EQ(entry(R"(<hexBinary><size maxLength="16"/></hexBinary>)").max_len, 32u);
}

TEST_F(ModelSyntax, TheLargestOfSeveralSizesCounts) {
  EXPECT_EQ(entry(R"(<string><size maxLength="5"/><size maxLength="13"/></string>)").max_len, 13u);
  EXPECT_EQ(entry(R"(<string><size maxLength="5"/><size minLength="8"/></string>)").max_len, 0u);
}

TEST_F(ModelSyntax, TheOrderOfSizesDoesNotMatter) {
  EXPECT_EQ(entry(R"(<string><size maxLength="13"/><size maxLength="5"/></string>)").max_len, 13u);
}

TEST_F(ModelSyntax, MinLengthAndPatternAreNotEnforced) {
  entry(
      R"(<string><size minLength="8" maxLength="9"/><pattern value="x"/><pattern value="y"/></string>)");
  EXPECT_EQ(notes_, "minLength not enforced (8)\npattern not enforced\n");
}

TEST_F(ModelSyntax, ALengthBeyond31BitsIsAny) {
  EXPECT_EQ(entry(R"(<string><size maxLength="2147483647"/></string>)").max_len, 2147483647u);
  EXPECT_EQ(entry(R"(<string><size maxLength="2147483648"/></string>)").max_len, 0u);
  EXPECT_EQ(notes_, "maxLength too large to enforce (2147483648)\n");
  EXPECT_EQ(entry(R"(<hexBinary><size maxLength="1073741824"/></hexBinary>)").max_len, 0u);
}

TEST_F(ModelSyntax, RefusesAMalformedSize) {
  EXPECT_EQ(refusal_of(R"(<string><size maxLength="8x"/></string>)"),
            "gw.xml:4:56: not a whole number: 8x");
  EXPECT_EQ(refusal_of(R"(<string><size maxLength="-8"/></string>)"),
            "gw.xml:4:56: a size below 0");
  EXPECT_EQ(refusal_of(R"(<string><size minLength="9" maxLength="8"/></string>)"),
            "gw.xml:4:56: minLength is above maxLength");
}

// --- ranges ---

TEST_F(ModelSyntax, AMissingBoundOfARangeIsTheTypes) {
  const Entry low = entry(R"(<int><range minInclusive="-5"/></int>)");
  EXPECT_EQ(low.min, -5);
  EXPECT_EQ(low.max, INT32_MAX);
  const Entry high = entry(R"(<int><range maxInclusive="5"/></int>)");
  EXPECT_EQ(high.min, INT32_MIN);
  EXPECT_EQ(high.max, 5);
}

TEST_F(ModelSyntax, SeveralRangesMakeOne) {
  const Entry read = entry(
      R"(<int><range minInclusive="1" maxInclusive="9"/><range minInclusive="-1" maxInclusive="0"/></int>)");
  EXPECT_EQ(read.min, -1);
  EXPECT_EQ(read.max, 9);
  EXPECT_EQ(notes_, "");
}

TEST_F(ModelSyntax, GapsAndStepsOfRangesAreNotEnforced) {
  const Entry read = entry(
      R"(<int><range minInclusive="-1" maxInclusive="-1"/><range minInclusive="1" step="2"/></int>)");
  EXPECT_EQ(read.min, -1);
  EXPECT_EQ(notes_, "step not enforced (2)\ngap in range not enforced\n");
}

TEST_F(ModelSyntax, ARangeBeyondTheTypeIsCut) {
  const Entry read = entry(
      R"(<unsignedInt><range minInclusive="-99999999999999999999" maxInclusive="99999999999999999999"/></unsignedInt>)");
  EXPECT_EQ(read.min, 0);
  EXPECT_EQ(read.max, UINT32_MAX);
  EXPECT_EQ(notes_, "range cut to the type's\n");
}

TEST_F(ModelSyntax, ARangeIsCutAtEitherEnd) {
  EXPECT_EQ(entry(R"(<unsignedInt><range minInclusive="-1" maxInclusive="5"/></unsignedInt>)").min,
            0);
  EXPECT_EQ(notes_, "range cut to the type's\n");
  EXPECT_EQ(entry(R"(<int><range minInclusive="1" maxInclusive="2147483648"/></int>)").max,
            INT32_MAX);
  EXPECT_EQ(notes_, "range cut to the type's\n");
}

TEST_F(ModelSyntax, ARangeMayLieInAnother) {
  const Entry read = entry(
      R"(<int><range minInclusive="1" maxInclusive="9"/><range minInclusive="2" maxInclusive="3"/></int>)");
  EXPECT_EQ(read.max, 9);
}

TEST_F(ModelSyntax, RangesOfLongNumbersAreNotEnforced) {
  entry(R"(<long><range minInclusive="-1"/></long>)");
  EXPECT_EQ(notes_, "long as string\nrange not enforced\n");
}

TEST_F(ModelSyntax, RefusesAMalformedRange) {
  EXPECT_EQ(refusal_of(R"(<int><range minInclusive="9" maxInclusive="8"/></int>)"),
            "gw.xml:4:53: minInclusive is above maxInclusive");
  EXPECT_EQ(refusal_of(R"(<int><range minInclusive="low"/></int>)"),
            "gw.xml:4:53: not a whole number: low");
  EXPECT_EQ(refusal_of(R"(<unsignedInt><range maxInclusive="-1"/></unsignedInt>)"),
            "gw.xml:4:61: no unsignedInt within the range");
}

// --- words ---

TEST_F(ModelSyntax, WordsStandInTheModelsOrderWithoutDeletedOnes) {
  const Entry read = entry(
      R"(<string><enumeration value="b"/><enumeration value="x" status="deleted"/>
<enumeration value="a " status="deprecated"/><enumeration value=""/></string>)");
  EXPECT_EQ(read.words, (std::vector<std::string>{"b", "a ", ""}));
}

TEST_F(ModelSyntax, AWordHasAValue) {
  EXPECT_EQ(refusal_of("<string><enumeration/></string>"),
            "gw.xml:4:56: <enumeration> without value");
}

// --- defaults ---

TEST_F(ModelSyntax, DefaultsOfTheObjectAndFactoryKindCount) {
  EXPECT_EQ(entry(R"(<int/><default type="object" value="3"/>)").defval, "3");
  EXPECT_EQ(entry(R"(<int/><default type="factory" value="3"/>)").defval, "3");
  EXPECT_EQ(entry("<int/>").defval, std::nullopt);
}

TEST_F(ModelSyntax, OtherKindsOfDefaultsAreLeftOut) {
  EXPECT_EQ(entry(R"(<int/><default type="implementation" value="3"/>)").defval, std::nullopt);
  EXPECT_EQ(notes_, "default of the implementation kind left out (3)\n");
  EXPECT_EQ(entry(R"(<int/><default type="parameter" value="3"/>)").defval, std::nullopt);
}

TEST_F(ModelSyntax, RefusesAMalformedDefault) {
  EXPECT_EQ(
      refusal_of(R"(<int/><default type="best" value="3"/>)"),
      "gw.xml:4:54: unknown default type best (object, factory, implementation or parameter)");
  EXPECT_EQ(refusal_of(R"(<int/><default value="3"/>)"), "gw.xml:4:54: <default> without type");
  EXPECT_EQ(refusal_of(R"(<int/><default type="object"/>)"),
            "gw.xml:4:54: <default> without value");
}

TEST_F(ModelSyntax, ADeletedDefaultDoesNotCount) {
  EXPECT_EQ(entry(R"(<int/><default type="object" value="3" status="deleted"/>)").defval,
            std::nullopt);
  EXPECT_EQ(entry(R"(<int/><default type="object" value="3" status="deleted"/>
<default type="object" value="4"/>)")
                .defval,
            "4");
  EXPECT_EQ(entry(R"(<int/><default type="object" value="4"/>
<default type="object" value="3" status="deleted"/>)")
                .defval,
            "4");
}

TEST_F(ModelSyntax, AnUnusableDefaultIsLeftOutAndNoted) {
  EXPECT_EQ(defval("<int/>", "none"), "none");
  EXPECT_EQ(notes_, "default not usable (none)\n");
}

TEST_F(ModelSyntax, ANumbersDefaultIsWithinItsBounds) {
  const std::string port =
      R"(<unsignedInt><range minInclusive="1" maxInclusive="9"/></unsignedInt>)";
  EXPECT_EQ(defval(port, "9"), "9");
  EXPECT_EQ(defval(port, "10"), "none");
  EXPECT_EQ(defval(port, "0"), "none");
  EXPECT_EQ(defval(port, "+007"), "7");
}

TEST_F(ModelSyntax, AStringsDefaultIsWithinItsLength) {
  const std::string type = R"(<string><size maxLength="3"/></string>)";
  EXPECT_EQ(defval(type, "abc"), "abc");
  EXPECT_EQ(defval(type, ""), "");
  EXPECT_EQ(defval(type, "abcd"), "none");
}

TEST_F(ModelSyntax, ABoolsDefaultIsAWord) {
  EXPECT_EQ(defval("<boolean/>", "true"), "true");
  EXPECT_EQ(defval("<boolean/>", "1"), "true");
  EXPECT_EQ(defval("<boolean/>", "false"), "false");
  EXPECT_EQ(defval("<boolean/>", "0"), "false");
  EXPECT_EQ(defval("<boolean/>", "yes"), "none");
}

TEST_F(ModelSyntax, ADatetimesDefaultIsCutToSeconds) {
  for (const char* text :
       {"2024-02-29T23:59:59", "2024-02-29T23:59:59Z", "2024-02-29T23:59:59.125Z"})
    EXPECT_EQ(defval("<dateTime/>", text), "2024-02-29T23:59:59") << text;
}

TEST_F(ModelSyntax, ADatetimesDefaultExistsAndFits32Bits) {
  for (const char* text : {"",
                           "2024-01-01",
                           "2024-01-01 00:00:00",
                           "2023-02-29T00:00:00",
                           "2024-13-01T00:00:00",
                           "2024-00-01T00:00:00",
                           "2024-04-31T00:00:00",
                           "2024-01-00T00:00:00",
                           "2024-01-01T24:00:00",
                           "2024-01-01T00:60:00",
                           "2024-01-01T00:00:60",
                           "2024-01-01T00:00:00+01:00",
                           "2024-01-01T00:00:00.",
                           "2024-01-01T00:00:00.5x",
                           "2024-01-01T00:00:00x5",
                           "20x4-01-01T00:00:00",
                           "2024-01--1T00:00:00",
                           "0001-01-01T00:00:00Z",
                           "1969-12-31T23:59:59Z",
                           "2038-01-01T00:00:00Z",
                           "9999-12-31T23:59:59Z"})
    EXPECT_EQ(defval("<dateTime/>", text), "none") << text;
  EXPECT_EQ(defval("<dateTime/>", "1970-01-01T00:00:00Z"), "1970-01-01T00:00:00");
  EXPECT_EQ(defval("<dateTime/>", "2037-12-31T23:59:59Z"), "2037-12-31T23:59:59");
}

TEST_F(ModelSyntax, ABase64DefaultIsWellFormedAndItsBytesFit) {
  const std::string type = R"(<base64><size maxLength="4"/></base64>)";
  EXPECT_EQ(defval(type, "AAECAw=="), "AAECAw==");
  EXPECT_EQ(defval(type, ""), "");
  for (const char* text : {"AAECAwQ=", "AAECAw=", "AAE*", "A===", "===="})
    EXPECT_EQ(defval(type, text), "none") << text;
}

TEST_F(ModelSyntax, DefaultsOfNumbersKeptAsTextAreNumbers) {
  EXPECT_EQ(defval("<long/>", "-9223372036854775808"), "-9223372036854775808");
  EXPECT_EQ(defval("<long/>", "9223372036854775808"), "none");
  EXPECT_EQ(defval("<unsignedLong/>", "18446744073709551615"), "18446744073709551615");
  EXPECT_EQ(defval("<unsignedLong/>", "-1"), "none");
  EXPECT_EQ(defval("<decimal/>", "-1.50"), "-1.50");
  for (const char* text : {"", ".", "-", "1.2.3", "1e5"})
    EXPECT_EQ(defval("<decimal/>", text), "none") << text;
}

TEST_F(ModelSyntax, AHexBinarysDefaultIsPairsOfDigits) {
  const std::string type = R"(<hexBinary><size maxLength="2"/></hexBinary>)";
  EXPECT_EQ(defval(type, "00fF"), "00fF");
  for (const char* text : {"0", "0g", "000000"}) EXPECT_EQ(defval(type, text), "none") << text;
}

TEST_F(ModelSyntax, ADefaultThatIsNoneOfTheWordsIsKeptAndNoted) {
  const std::string type = R"(<string><enumeration value="a"/><enumeration value="b"/></string>)";
  EXPECT_EQ(defval(type, "b"), "b");
  EXPECT_EQ(notes_, "");
  EXPECT_EQ(defval(type, "c"), "c");
  EXPECT_EQ(notes_, "default is none of the values allowed (c)\n");
}

TEST_F(ModelSyntax, AListsDefaultHasItsItemsAmongTheWords) {
  const std::string type =
      R"(<list/><string><enumeration value="a"/><enumeration value="b"/></string>)";
  for (const char* text : {"", "a", "a,b", "b, a"}) {
    EXPECT_EQ(defval(type, text), text);
    EXPECT_EQ(notes_, "list as string (of string)\n") << text;
  }
  for (const char* text : {"c", "a,c", "c,a", "a,"}) {
    EXPECT_EQ(defval(type, text), text);
    EXPECT_NE(notes_, "list as string (of string)\n") << text;
  }
}

TEST_F(ModelSyntax, AListsDefaultNeedNotBeAnItem) {
  EXPECT_EQ(defval("<list/><unsignedInt/>", "1,2"), "1,2");
}

TEST_F(ModelSyntax, TextsThatAreUsedTooOftenAreRefused) {
  std::string parameters;
  for (int i = 0; i < 70; ++i)
    parameters += "<parameter name=\"P" + std::to_string(i) +
                  R"(" access="readOnly"><syntax><dataType ref="T"/></syntax></parameter>)";
  EXPECT_EQ(refusal(R"(<object name="Gw." access="readOnly">)" + parameters + "</object>",
                    R"(<dataType name="T"><string><enumeration value=")" +
                        std::string(1 << 20, 'x') + R"("/></string></dataType>)"),
            "gw.xml:2:28: the model is too large (more than 67,108,864 bytes of texts and facets)");
}

}  // namespace
}  // namespace mibctl
