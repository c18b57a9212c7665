#include "line_diff.hh"

#include <algorithm>

namespace mibctl {

namespace {

using Lines = std::vector<std::string_view>;

Lines lines_of(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    lines.push_back(text.substr(0, text.find('\n')));
    text.remove_prefix(std::min(lines.back().size() + 1, text.size()));
  }
  return lines;
}

// Texts that differ in more lines are not matched beyond their common ends.
constexpr std::ptrdiff_t kMostEdits = 1000;

// The lines between the common ends of both texts, and how they are matched: rows_[d] has, for each
// diagonal k = x - y from -d to d, how far in `a` the best path with d edits gets.
class Matcher {
 public:
  Matcher(const Lines& a, const Lines& b) : a_(a), b_(b) {
    const auto common = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    begin_ = common.first - a.begin();
    a_size_ = std::ssize(a) - begin_;
    b_size_ = std::ssize(b) - begin_;
    while (a_size_ > 0 && b_size_ > 0 && same(a_size_ - 1, b_size_ - 1)) --a_size_, --b_size_;
  }

  std::vector<LineEdit> edits() {
    const std::ptrdiff_t most = std::min(a_size_ + b_size_, kMostEdits);
    while (std::ssize(rows_) <= most)
      if (next_row()) return traced();
    return replaced();
  }

 private:
  bool same(std::ptrdiff_t x, std::ptrdiff_t y) const { return line(a_, x) == line(b_, y); }
  std::string_view line(const Lines& lines, std::ptrdiff_t at) const {
    return lines[static_cast<size_t>(begin_ + at)];
  }
  LineEdit removed(std::ptrdiff_t x) const {
    return {false, static_cast<size_t>(begin_ + x + 1), line(a_, x)};
  }
  LineEdit added(std::ptrdiff_t y) const {
    return {true, static_cast<size_t>(begin_ + y + 1), line(b_, y)};
  }

  std::ptrdiff_t reached(std::ptrdiff_t d, std::ptrdiff_t k) const {
    return rows_[static_cast<size_t>(d)][static_cast<size_t>(k + d)];
  }
  // Whether the best path to diagonal k adds a line, so comes from the diagonal above.
  bool adds(std::ptrdiff_t d, std::ptrdiff_t k) const {
    return k == -d || (k != d && reached(d - 1, k - 1) < reached(d - 1, k + 1));
  }

  // True when it reaches the end of both.
  bool next_row() {
    const std::ptrdiff_t d = std::ssize(rows_);
    std::vector<int> row(static_cast<size_t>(2 * d + 1));
    bool done = false;
    for (std::ptrdiff_t k = -d; k <= d; k += 2) {
      std::ptrdiff_t x = 0;
      if (d > 0) x = adds(d, k) ? reached(d - 1, k + 1) : reached(d - 1, k - 1) + 1;
      while (x < a_size_ && x - k < b_size_ && same(x, x - k)) ++x;
      row[static_cast<size_t>(k + d)] = static_cast<int>(x);
      done = done || (x >= a_size_ && x - k >= b_size_);
    }
    rows_.push_back(std::move(row));
    return done;
  }

  std::vector<LineEdit> traced() const {
    std::vector<LineEdit> edits;
    std::ptrdiff_t k = a_size_ - b_size_;
    for (std::ptrdiff_t d = std::ssize(rows_) - 1; d > 0; --d) {
      const bool add = adds(d, k);
      k += add ? 1 : -1;
      const std::ptrdiff_t x = reached(d - 1, k);
      edits.push_back(add ? added(x - k) : removed(x));
    }
    std::reverse(edits.begin(), edits.end());
    return edits;
  }

  std::vector<LineEdit> replaced() const {
    std::vector<LineEdit> edits;
    for (std::ptrdiff_t x = 0; x < a_size_; ++x) edits.push_back(removed(x));
    for (std::ptrdiff_t y = 0; y < b_size_; ++y) edits.push_back(added(y));
    return edits;
  }

  const Lines &a_, &b_;
  std::ptrdiff_t begin_, a_size_, b_size_;
  std::vector<std::vector<int>> rows_;
};

}  // namespace

std::vector<LineEdit> diff_lines(std::string_view a, std::string_view b) {
  const Lines left = lines_of(a);
  const Lines right = lines_of(b);
  return Matcher(left, right).edits();
}

}  // namespace mibctl
