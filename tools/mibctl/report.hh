// What can be said of a model: its size, its types, the document it makes.
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "model.hh"

namespace mibctl {

// Bytes of the document that a model makes with given numbers of instances.
struct DocumentSize {
  uint64_t defaults = 0;   // nothing modified: what is always saved, at its default
  uint64_t modified = 0;   // everything that can be saved is, values as long as the defaults
  uint64_t longest = 0;    // every value as long as its type and bounds allow
  uint32_t unbounded = 0;  // values without a longest length; in `longest` with their default's
};
// Instances by table path; a table that is not named has one, or its least number.
using InstanceCounts = std::map<std::string, uint32_t>;
DocumentSize document_size(const Model& model, const InstanceCounts& counts);

struct Report {
  uint32_t ids = 0;  // records of the schema, ids of entries that are gone included
  uint32_t objects = 0, tables = 0, parameters = 0;
  uint32_t depth = 0;          // nesting of the deepest parameter's element
  std::string longest;         // the longest full name, instances written {i}
  uint32_t longest_bytes = 0;  // with three digits for each instance number
  std::map<std::string, uint32_t> by_type, by_owner, by_source, by_status, by_saving;
  std::vector<std::pair<std::string, uint32_t>> least;  // tables with instances there always are
};
Report report_of(const Model& model);

// Notes by kind, in the order of their first: the kind, how many, the first entry's path.
struct NoteKind {
  std::string kind;
  uint32_t count = 0;
  std::string first;
};
std::vector<NoteKind> kinds_of(const std::vector<Note>& notes);

// "unsignedInt 1..65535", "string(64)", "string: A|B".
std::string type_text(const Entry& entry);

// One difference of two models: what it is in each, "" where it is not there.
struct ModelDifference {
  std::string path, left, right;
};
std::vector<ModelDifference> compare_models(const Model& left, const Model& right);

}  // namespace mibctl
