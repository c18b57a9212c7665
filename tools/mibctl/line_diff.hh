// Two texts line by line.
#pragma once
#include <cstddef>
#include <string_view>
#include <vector>

namespace mibctl {

struct LineEdit {
  bool added;             // to the second text; else removed from the first
  size_t line;            // from 1, in the text that has it
  std::string_view text;  // without its line feed
};
// How to get from one text to the other, in order; with few edits where that is cheap to find.
std::vector<LineEdit> diff_lines(std::string_view a, std::string_view b);

}  // namespace mibctl
