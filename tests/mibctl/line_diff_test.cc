#include "line_diff.hh"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string edits_of(std::string_view a, std::string_view b) {
  std::string text;
  for (const mibctl::LineEdit& edit : mibctl::diff_lines(a, b))
    text += (edit.added ? "+" : "-") + std::to_string(edit.line) + std::string(edit.text) + " ";
  return text;
}

std::string numbered(int from, int to) {
  std::string text;
  for (int i = from; i < to; ++i) text += std::to_string(i) + "\n";
  return text;
}

// The second text, made from the first by the edits.
std::string patched(const std::string& a, const std::vector<mibctl::LineEdit>& edits) {
  std::vector<std::string> left;
  for (size_t at = 0; at < a.size(); at = a.find('\n', at) + 1)
    left.push_back(a.substr(at, a.find('\n', at) - at));
  std::string out;
  size_t line = 1, old = 1;
  for (const mibctl::LineEdit& edit : edits) {
    for (; edit.added ? line < edit.line : old < edit.line; ++line, ++old)
      out += left.at(old - 1) + "\n";
    if (edit.added) {
      out += std::string(edit.text) + "\n";
      ++line;
    } else {
      EXPECT_EQ(left.at(old - 1), edit.text);
      ++old;
    }
  }
  for (; old <= left.size(); ++old) out += left.at(old - 1) + "\n";
  return out;
}

TEST(LineDiff, OfEqualTextsIsEmpty) {
  EXPECT_EQ(edits_of("", ""), "");
  EXPECT_EQ(edits_of("a\nb\n", "a\nb\n"), "");
}

TEST(LineDiff, ShowsAChangedLineByBothNumbers) {
  EXPECT_EQ(edits_of("a\nb\nc\n", "x\na\nB\nc\n"), "+1x -2b +3B ");
}

TEST(LineDiff, ShowsWhatOnlyOneHas) {
  EXPECT_EQ(edits_of("", "a\nb\n"), "+1a +2b ");
  EXPECT_EQ(edits_of("a\nb\n", "b\n"), "-1a ");
}

TEST(LineDiff, LastLineNeedsNoLineFeed) { EXPECT_EQ(edits_of("a\nb", "a\nc"), "-2b +2c "); }

TEST(LineDiff, OfTextsThatDifferInVeryMuchReplacesTheMiddle) {
  const std::string a = "first\n" + numbered(0, 2000) + "both\n" + numbered(0, 9) + "last\n";
  const std::string b = "first\n" + numbered(5000, 7000) + "both\n" + numbered(20, 29) + "last\n";
  const auto edits = mibctl::diff_lines(a, b);
  EXPECT_EQ(edits.size(), 2u * (2000 + 1 + 9));
  EXPECT_EQ(patched(a, edits), b);
}

TEST(LineDiff, LeadsFromOneTextToTheOther) {
  unsigned state = 1;
  const auto random_text = [&state] {
    std::string text;
    for (unsigned i = 0, count = (state = state * 1103515245 + 12345) >> 16 & 15; i < count; ++i) {
      state = state * 1103515245 + 12345;
      text += std::string(1, static_cast<char>('a' + (state >> 16) % 3)) + "\n";
    }
    return text;
  };
  for (int i = 0; i < 5000; ++i) {
    const std::string a = random_text();
    const std::string b = random_text();
    ASSERT_EQ(patched(a, mibctl::diff_lines(a, b)), b) << a << "to\n" << b;
  }
}

}  // namespace
