// How configurations are printed: as lines that can be replayed, and as JSON.
#pragma once
#include <cstdio>
#include <string>

#include "tree.hh"

namespace mibctl {

struct ShowOptions {
  bool changed = false;  // only what differs from the model's defaults
  bool json = false;
};

// Prints the nodes whose full name begins with `prefix`: "Full.Name=value" for a parameter, the
// full name for an instance, and "attr NAME ..." behind a parameter whose attributes are not the
// model's. Throws (refused) when there is none of that name at all.
void show(const Tree& tree, const std::string& prefix, const ShowOptions& options, std::FILE* out);

// Prints the differences of two configurations of one model, by full name: "-Full.Name=old" and
// "+Full.Name=new", or JSON. Whether there was any.
bool show_differences(const Tree& left, const Tree& right, bool json, std::FILE* out);

}  // namespace mibctl
