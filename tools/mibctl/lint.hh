// The linter of documents: what a load would skip in silence.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "model.hh"

namespace mibctl {

struct Finding {
  unsigned line = 0, column = 0;
  std::string name;    // the full name concerned, or the element
  std::string text;    // what is wrong
  std::string detail;  // the rule, the bound; may be ""
  bool lost = true;    // something of the document would be lost; else worth knowing only
};

// Findings in the document's order. `document` is as a load would get it. At most `limit` are
// collected; a last one then says that there are more.
std::vector<Finding> lint(const Model& model, const std::string& document, size_t limit = 1000);

}  // namespace mibctl
