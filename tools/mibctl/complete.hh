// Completion of names and values, for the shell and for bash.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "tree.hh"

namespace mibctl {

// The live nodes one segment further on than `prefix` that begin with it, by full name.
std::vector<std::string> complete_name(const Tree& tree, std::string_view prefix);

// What may stand behind "name=": the words of a bool or of a string with words, else nothing.
std::vector<std::string> complete_value(const Tree& tree, const std::string& name,
                                        std::string_view prefix);

// The files and folders that begin with `prefix`, a folder with a slash behind it.
std::vector<std::string> complete_file(std::string_view prefix);

// The longest text that all candidates begin with.
std::string common_prefix(const std::vector<std::string>& candidates);

}  // namespace mibctl
