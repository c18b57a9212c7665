// Small text helpers that several commands share.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mibctl {

// 65528 as "65,528".
std::string grouped(uint64_t number);

// "1 parameter", "2 parameters"; numbers grouped.
std::string counted(uint64_t number, const std::string& one);

// A whole decimal number (a sign allowed) within the bounds; nothing else around it.
std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest);

// A name for C: letters, digits and underscores, no digit first.
bool is_identifier(std::string_view text);
// A parameter's name, or an object's without its dot: such a name, "-" allowed behind its start, of
// at most 256 bytes.
bool is_segment(std::string_view text);

// Pattern over full names: "?" one character and "*" any number of characters, neither a dot; "**"
// any characters; everything else itself. So "A.*" are A's parameters and "A.**" all below A.
bool matches(std::string_view pattern, std::string_view name);

// How a value stands behind "Full.Name=": as it is, or, where it would not read back so (a control
// character, a quote or blank at its start, a blank at its end), in double quotes with
// \n \r \t \" \\ and \xHH.
std::string quoted_value(std::string_view value);
// The value that such a text stands for; nothing for a malformed quoted one.
std::optional<std::string> unquoted_value(std::string_view text);

// Up to three of `words` that are close to `word`, nearest first: for "did you mean".
std::vector<std::string> similar(std::string_view word, const std::vector<std::string>& words);
// "did you mean A or B?", "" without candidates.
std::string did_you_mean(std::string_view word, const std::vector<std::string>& words);

// A whole file; "-" is standard input. Throws a storage Error when it cannot be read or has more
// than `limit` bytes.
std::string read_file(const std::string& path, uint64_t limit);

// Replaces a file in one step, or writes through to a device: written beside it, synced, renamed,
// with the old file's mode. Throws a storage Error; the old content is then untouched.
void write_file(const std::string& path, std::string_view content);

}  // namespace mibctl
