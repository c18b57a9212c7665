#include "text.hh"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "command.hh"
#include "error.hh"

namespace mibctl {
namespace {

TEST(Grouped, SetsACommaBeforeEachThreeDigits) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(1234567), "1,234,567");
}

TEST(Counted, AddsAnSUnlessItIsOne) {
  EXPECT_EQ(counted(1, "id"), "1 id");
  EXPECT_EQ(counted(0, "id"), "0 ids");
  EXPECT_EQ(counted(2000, "id"), "2,000 ids");
}

TEST(ParseNumber, TakesWholeNumbersWithinTheBounds) {
  EXPECT_EQ(parse_number("12", 0, 12), 12);
  EXPECT_EQ(parse_number("+3", 0, 12), 3);
  EXPECT_EQ(parse_number("-1", -1, 12), -1);
  for (const char* text :
       {"", "13", "-2", "1x", " 1", "1 ", "0x1", "+", "-", "+-1", "++1", "99999999999999999999"})
    EXPECT_FALSE(parse_number(text, -1, 12)) << text;
}

TEST(IsIdentifier, TakesLettersDigitsAndUnderscoresWithNoDigitFirst) {
  for (const char* text : {"a", "_", "A9_z"}) EXPECT_TRUE(is_identifier(text)) << text;
  for (const char* text : {"", "9a", "a-b", "a b", "\xC3\xA9"})
    EXPECT_FALSE(is_identifier(text)) << text;
}

TEST(IsSegment, TakesHyphensBehindItsStartAndAtMost256Bytes) {
  EXPECT_TRUE(is_segment("X_00005E-a"));
  EXPECT_TRUE(is_segment(std::string(256, 'a')));
  EXPECT_FALSE(is_segment(std::string(257, 'a')));
  for (const char* text : {"", "-a", "9a", "a.b", "{i}"}) EXPECT_FALSE(is_segment(text)) << text;
}

TEST(Matches, OneStarStopsAtDots) {
  EXPECT_TRUE(matches("A.*", "A.B"));
  EXPECT_FALSE(matches("A.*", "A.B."));
  EXPECT_FALSE(matches("A.*", "A.B.C"));
  EXPECT_TRUE(matches("A.*.C", "A.B.C"));
}

TEST(Matches, TwoStarsDoNotStopAtDots) {
  EXPECT_TRUE(matches("A.**", "A.B.C"));
  EXPECT_TRUE(matches("A.**", "A."));
  EXPECT_TRUE(matches("**.C", "A.{i}.C"));
  EXPECT_FALSE(matches("A.**D", "A.B.C"));
}

TEST(Matches, AQuestionMarkIsOneCharacterButNoDot) {
  EXPECT_TRUE(matches("A.?", "A.B"));
  EXPECT_FALSE(matches("A?B", "A.B"));
  EXPECT_FALSE(matches("A.?", "A."));
}

TEST(Matches, EverythingElseIsItself) {
  EXPECT_TRUE(matches("A.{i}.[B]", "A.{i}.[B]"));
  EXPECT_FALSE(matches("A.B", "A.b"));
}

TEST(Matches, TakesNoLongerForManyStars) {
  const std::string pattern = std::string(2000, '*') + "b";
  EXPECT_FALSE(matches(pattern, std::string(500, 'a')));
}

TEST(Matches, MoreThanTwoStarsAreAsTwo) {
  EXPECT_TRUE(matches("A***D", "A.B.D"));
  EXPECT_TRUE(matches("A.*****", "A."));
}

TEST(Matches, TakesNoLongerForAPatternThatAsksForMoreThanThereIs) {
  std::string pattern;
  for (int i = 0; i < 500'000; ++i) pattern += "*?";
  for (int i = 0; i < 50; ++i) EXPECT_FALSE(matches(pattern, std::string(500, 'a')));
}

TEST(QuotedValue, LeavesPlainTextAsItIs) {
  for (const char* text : {"", "a b", "a=b", "it's", "\xC3\xA9", "a\"b", "\\"})
    EXPECT_EQ(quoted_value(text), text);
}

TEST(QuotedValue, QuotesWhatWouldNotReadBack) {
  EXPECT_EQ(quoted_value("a\nb"), "\"a\\nb\"");
  EXPECT_EQ(quoted_value("\"a"), "\"\\\"a\"");
  EXPECT_EQ(quoted_value(" a"), "\" a\"");
  EXPECT_EQ(quoted_value("a "), "\"a \"");
  EXPECT_EQ(quoted_value(std::string("\x01\x7F\0", 3)), "\"\\x01\\x7F\\x00\"");
}

TEST(UnquotedValue, GivesBackWhatWasQuoted) {
  std::string every;
  for (int c = 0; c < 256; ++c) every += static_cast<char>(c);
  for (const std::string& text :
       {every, std::string(" "), std::string("\"\"\\x"), std::string("\\n")})
    EXPECT_EQ(unquoted_value(quoted_value(text)), text);
}

TEST(UnquotedValue, RefusesMalformedQuotes) {
  for (const char* text :
       {"\"", "\"a", "\"a\"b", "\"\\\"", "\"\\q\"", "\"\\x1\"", "\"\\xZZ\"", "\"\\"})
    EXPECT_FALSE(unquoted_value(text)) << text;
}

TEST(DidYouMean, NamesWhatIsNear) {
  EXPECT_EQ(did_you_mean("Enabel", {"Enable", "Server", "Enabled"}),
            "did you mean Enable or Enabled?");
  EXPECT_EQ(did_you_mean("Enable", {"Server"}), "");
}

TEST(ReadFile, NamesAFileThatIsMissing) {
  try {
    read_file("/nowhere/file", 10);
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.status, Status::storage);
    EXPECT_STREQ(error.what(), "/nowhere/file: cannot be read (No such file or directory)");
  }
}

TEST(ReadFile, RefusesMoreThanTheLimit) {
  const Folder folder;
  const std::string file = folder.write("file", "12345");
  EXPECT_EQ(read_file(file, 5), "12345");
  EXPECT_THROW(read_file(file, 4), Error);
}

TEST(WriteFile, KeepsTheModeOfTheFileItReplaces) {
  const Folder folder;
  const std::string file = folder.write("file", "old");
  chmod(file.c_str(), 0640);
  write_file(file, "new");
  struct stat status;
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(folder.read("file"), "new");
}

TEST(WriteFile, ReplacesWhatALinkLeadsToAndKeepsTheLink) {
  const Folder folder;
  const std::string file = folder.write("file", "old");
  ASSERT_EQ(symlink(file.c_str(), folder.path("link").c_str()), 0);
  write_file(folder.path("link"), "new");
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
}

TEST(WriteFile, LeavesNothingBesideAfterAFailure) {
  const Folder folder;
  EXPECT_THROW(write_file(folder.path("no/file"), "new"), Error);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path("")));
}

}  // namespace
}  // namespace mibctl
