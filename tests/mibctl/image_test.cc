#include "image.hh"

#include <gtest/gtest.h>

namespace {

using mibctl::document_problem;
using mibctl::Error;
using mibctl::Image;
using mibctl::parse_image;

constexpr char kDocument[] = "<A./>";

std::string image_bytes() { return std::string("\xab\xcd\x12\x34\0\0\0\x05", 8) + kDocument; }

std::string with_length(const std::string& length) {
  return "\xab\xcd\x12\x34" + length + std::string(65536, 't');
}

TEST(Image, IsMadeWithBigEndianWords) {
  EXPECT_EQ(mibctl::make_image("a.xml", kDocument), image_bytes());
}

TEST(Image, HoldsTheLongestText) {
  const std::string text(mibctl::kMaxDocument, 't');
  EXPECT_EQ(parse_image(mibctl::make_image("a.xml", text)).text, text);
}

TEST(Image, RefusesALongerText) {
  try {
    mibctl::make_image("a.xml", std::string(mibctl::kMaxDocument + 1, 't'));
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.status, mibctl::Status::refused);
    EXPECT_STREQ(error.what(), "a.xml: too long for an image (65,529 bytes, at most 65,528)");
  }
}

TEST(Image, HasItsFields) {
  const Image image = parse_image(image_bytes() + "behind");
  EXPECT_TRUE(image.valid());
  EXPECT_EQ(image.size, 19u);
  EXPECT_EQ(image.magic, 0xabcd1234);
  EXPECT_EQ(image.length, 5u);
  EXPECT_FALSE(image.truncated);
  EXPECT_EQ(image.text, kDocument);
}

TEST(Image, ThatEndsBeforeItsTextIsTruncated) {
  std::string bytes = image_bytes();
  bytes.pop_back();
  const Image image = parse_image(bytes);
  EXPECT_TRUE(image.valid());
  EXPECT_TRUE(image.truncated);
  EXPECT_EQ(image.text, "<A./");
}

TEST(Image, WithLengthZeroTakesAllThatIsBehind) {
  const Image image = parse_image(std::string("\xab\xcd\x12\x34\0\0\0\0<A./>\xff", 14));
  EXPECT_TRUE(image.valid());
  EXPECT_EQ(image.text, "<A./>\xff");
}

TEST(Image, LengthIsBelow65529) {
  EXPECT_EQ(parse_image(with_length(std::string("\0\0\xff\xf8", 4))).problem, "");
  EXPECT_EQ(parse_image(with_length(std::string("\0\0\xff\xf9", 4))).problem,
            "length 65,529, above the highest (65,528)");
}

TEST(Image, LengthIsUnsigned) {
  EXPECT_EQ(parse_image(with_length("\xff\xff\xff\xff")).problem,
            "length 4,294,967,295, above the highest (65,528)");
}

TEST(Image, OfAnErasedPartitionSaysSo) {
  EXPECT_EQ(parse_image(std::string(64, '\xff')).problem, "magic ffffffff, not abcd1234: erased");
}

TEST(Image, WithSwappedBytesSaysSo) {
  EXPECT_EQ(parse_image("\x34\x12\xcd\xab<A./>").problem,
            "magic 3412cdab, not abcd1234: the bytes of each word are swapped");
}

TEST(Image, WithAnotherMagicShowsIt) {
  EXPECT_EQ(parse_image("<A./>\n<B./>").problem, "magic 3c412e2f, not abcd1234");
}

TEST(Image, OfNoBytesIsEmpty) { EXPECT_EQ(parse_image("").problem, "empty"); }

TEST(Image, ShorterThanItsHeaderIsInvalidAtEveryLength) {
  for (size_t size = 1; size < mibctl::kImageHeader; ++size) {
    const Image image = parse_image(image_bytes().substr(0, size));
    EXPECT_NE(image.problem.find(": shorter than a header (8)"), std::string::npos) << size;
    EXPECT_EQ(image.length, 0xFFFFFFFF);
    EXPECT_EQ(image.text, "");
  }
}

// --- upgrade files ---

std::string upgrade_bytes() {
  return std::string("zoremcfg\0\0\0\0\x05\0\0\0", 16) + kDocument + std::string(4, '\0');
}

std::string upgrade_problem(const std::string& bytes) {
  try {
    mibctl::parse_upgrade("up", bytes);
    return "";
  } catch (const Error& error) {
    EXPECT_EQ(error.status, mibctl::Status::refused);
    return error.what();
  }
}

TEST(UpgradeFile, HasALittleEndianLength) {
  EXPECT_EQ(mibctl::make_upgrade(kDocument), upgrade_bytes());
}

TEST(UpgradeFile, HasThePayload) {
  EXPECT_EQ(mibctl::parse_upgrade("up", upgrade_bytes()), kDocument);
}

TEST(UpgradeFile, WordBehindTheMagicIsNotLookedAt) {
  std::string bytes = upgrade_bytes();
  bytes.replace(8, 4, "abcd");
  EXPECT_EQ(upgrade_problem(bytes), "");
}

TEST(UpgradeFile, BytesBehindTheTrailerAreNotLookedAt) {
  EXPECT_EQ(upgrade_problem(upgrade_bytes() + "more"), "");
}

TEST(UpgradeFile, NeedsItsMagic) {
  EXPECT_EQ(upgrade_problem("zoremcfq"),
            "up: not an upgrade file (it does not begin with \"zoremcfg\")");
}

TEST(UpgradeFile, IsRefusedWhereverItIsCut) {
  const std::string whole = upgrade_bytes();
  EXPECT_EQ(upgrade_problem(whole.substr(0, 15)), "up: cut in its header (15 bytes of 16)");
  EXPECT_EQ(upgrade_problem(whole.substr(0, 20)), "up: cut in its payload (4 bytes of 5)");
  EXPECT_EQ(upgrade_problem(whole.substr(0, 24)), "up: cut in its trailer (3 bytes of 4)");
}

TEST(UpgradeFile, NeedsAZeroTrailer) {
  std::string bytes = upgrade_bytes();
  bytes.back() = '\1';
  EXPECT_EQ(upgrade_problem(bytes),
            "up: the trailer is not zero (the four bytes behind the payload of 5 bytes)");
}

TEST(UpgradeFile, LengthIsSigned) {
  std::string bytes = upgrade_bytes();
  bytes[15] = '\x80';
  EXPECT_EQ(upgrade_problem(bytes), "up: the payload's length is negative");
}

TEST(UpgradeFile, LengthIsThatOfAnImage) {
  const std::string longest(mibctl::kMaxDocument, 't');
  EXPECT_EQ(upgrade_problem(mibctl::make_upgrade(longest)), "");
  EXPECT_EQ(upgrade_problem(mibctl::make_upgrade(longest + "t")),
            "up: the payload is too long for an image (65,529 bytes, at most 65,528)");
}

// --- documents ---

std::string nested(size_t depth) {
  std::string text;
  for (size_t i = 0; i < depth; ++i) text += "<a>";
  for (size_t i = 0; i < depth; ++i) text += "</a>";
  return text;
}

std::string param_of(size_t length) {
  return "<A.><PARAM name=\"" + std::string(length - 2, 'x') + "\">1</PARAM></A.>";
}

TEST(DocumentProblem, IsNoneForAWellFormedDocument) {
  EXPECT_EQ(document_problem("<A.>\n<PARAM name=\"x\">1</PARAM>\n</A.>\n"), "");
}

TEST(DocumentProblem, HasLineAndColumn) {
  EXPECT_EQ(document_problem("<A.>\n<B.>\n</C.>"), "line 3, column 3: mismatched tag");
  EXPECT_EQ(document_problem("<A.> </B.>"), "line 1, column 8: mismatched tag");
}

TEST(DocumentProblem, ColumnCountsBytes) {
  EXPECT_EQ(document_problem("<A.>\xc3\xa4</B.>"), "line 1, column 9: mismatched tag");
}

TEST(DocumentProblem, OfTheEmptyTextIsThatThereIsNothing) {
  EXPECT_EQ(document_problem(""), "line 1, column 1: no element found");
}

TEST(DocumentProblem, IsNoneBehindAZeroByte) {
  EXPECT_EQ(document_problem(std::string("<A./>\0<", 7)), "");
}

TEST(DocumentProblem, NestingIsAtMost31) {
  EXPECT_EQ(document_problem(nested(31)), "");
  EXPECT_EQ(document_problem(nested(32)), "line 1, column 94: more than 31 nested elements");
}

TEST(DocumentProblem, DeepNestingStopsAtTheLimit) {
  EXPECT_EQ(document_problem(nested(100000)), "line 1, column 94: more than 31 nested elements");
}

TEST(DocumentProblem, FullNameIsAtMost511Bytes) {
  EXPECT_EQ(document_problem(param_of(511)), "");
  EXPECT_EQ(document_problem(param_of(512)),
            "line 1, column 5: a full name of more than 511 bytes");
}

TEST(DocumentProblem, InstanceNumberBelongsToTheFullName) {
  const std::string name(507, 'x');
  EXPECT_EQ(document_problem("<" + name + ". instance=\"12\"/>"), "");
  EXPECT_NE(document_problem("<" + name + ". instance=\"123\"/>"), "");
}

TEST(DocumentProblem, InstanceZeroIsNone) {
  EXPECT_EQ(document_problem("<" + std::string(511, 'x') + " instance=\"0\"/>"), "");
}

TEST(DocumentProblem, FullNameShrinksAgainBehindAnElement) {
  std::string text = "<A.>";
  for (int i = 0; i < 300; ++i) text += "<B. instance=\"1\"></B.>";
  EXPECT_EQ(document_problem(text + "</A.>"), "");
}

TEST(DocumentProblem, EntitiesThatMultiplyAreStopped) {
  std::string text = "<!DOCTYPE a [<!ENTITY e0 \"" + std::string(1000, 'x') + "\">";
  for (int i = 1; i < 8; ++i) {
    const std::string inner = "&e" + std::to_string(i - 1) + ";";
    text += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) text += inner;
    text += "\">";
  }
  EXPECT_NE(document_problem(text + "]><a>&e7;</a>"), "");
}

// --- what begins like a document ---

TEST(LooksLikeDocument, ByItsFirstByte) {
  for (const char* const text : {"", "<A./>", "\n<A./>", " <A./>", "\xef\xbb\xbf<A./>"})
    EXPECT_TRUE(mibctl::looks_like_document(text)) << text;
  for (const std::string& bytes : {image_bytes(), std::string(4, '\xff'), std::string(4, '\0')})
    EXPECT_FALSE(mibctl::looks_like_document(bytes));
}

// --- the elements of a document ---

TEST(WalkDocument, ShowsEachElementAsTheLoaderAddressesIt) {
  const std::string text =
      "<A.><B. instance=\"2\"><PARAM name=\"x\">1</PARAM></B.><C. name=\"D.\"/></A.>";
  std::string seen;
  mibctl::walk_document(text, [&](const mibctl::Element& element) {
    seen += element.path + (element.object ? " object " : " parameter ") +
            text.substr(element.begin, element.end - element.begin) + "\n";
  });
  EXPECT_EQ(seen,
            "A.B.2.x parameter <PARAM name=\"x\">1</PARAM>\n"
            "A.B.2. object <B. instance=\"2\"><PARAM name=\"x\">1</PARAM></B.>\n"
            "A.D. parameter <C. name=\"D.\"/>\n"
            "A. object " +
                text + "\n");
}

}  // namespace
