// The data model: a tree of objects and parameters as a published document describes it and the
// vendor's overlay completes it. What the schema compiler writes out and what the configuration
// commands build a tree from.
#pragma once
#include <qmibtree.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "error.hh"

namespace mibctl {

constexpr uint32_t kMaxIds = 2000;      // unique ids a schema may have
constexpr uint32_t kMaxFullName = 511;  // longest full name a document can hold
constexpr uint32_t kMaxDepth = 31;      // deepest nesting a document can hold, the root being 1
constexpr uint32_t kNoComponent = QMIBTREE_COMP_MAX;
constexpr uint32_t kNoUid = UINT32_MAX;

enum class Save { never, modified, always };
enum class Notify { normal, by_default, forced };

// Names of the host's own functions; "" where there is none.
struct Hooks {
  std::string create, destroy, set, get;
};

// An object or a parameter.
struct Entry {
  std::string name;  // own segment; an object's ends in ".", without "{i}."
  Place place;       // where it is defined
  Entry* parent = nullptr;
  std::vector<std::unique_ptr<Entry>> children;  // parameters and objects in the model's order

  uint32_t type = QMIBTREE_TYPE_OBJECT;  // QMIBTREE_TYPE_*
  std::string
      source;  // the type as the model names it ("unsignedLong", "list", "IPAddress"), or ""
  std::string status = "current";  // "current", "deprecated", "obsoleted", "deleted"
  bool writable = false;           // access readWrite
  Notify notify = Notify::normal;

  bool multi = false;        // object: has "{i}"
  uint32_t min_entries = 0;  // table: instances there always are
  uint32_t max_entries = 0;  // table: 0 for any number
  std::string entries;       // table: name of the parameter beside it that counts its instances

  int64_t min = 0, max = 0;  // int, unsignedInt: bounds, whole range where the model sets none
  uint32_t max_len = 0;      // string, base64: longest value in bytes; 0 any
  std::vector<std::string> words;  // string: the values allowed; empty: any
  bool list = false;               // string: a list, with commas between its items
  std::optional<std::string> defval;

  // The vendor's side.
  Save save = Save::never;
  bool dynamic = false;
  uint32_t component = kNoComponent;
  uint32_t arg = 0;
  Hooks hooks;

  uint32_t uid = kNoUid;

  bool is_object() const { return type == QMIBTREE_TYPE_OBJECT; }
  // "InternetGatewayDevice.LANDevice.{i}.LANWLANConfigurationNumberOfEntries"
  std::string path() const;
  // The child with this segment, or null.
  Entry* child(std::string_view segment) const;
  Entry* add(std::unique_ptr<Entry> entry);
};

// A profile: a named choice of entries.
struct Profile {
  std::string name;  // "Baseline:1"
  Place place;
  std::vector<std::string> includes;  // profiles that it bases on or extends
  std::vector<std::string> entries;   // paths
};

// Something that the compiler did with the model and its reader may want to know.
struct Note {
  Place place;
  std::string path;  // the entry, or ""
  std::string kind;  // what was done, the same text for all of a kind: "long as string"
  std::string detail;
};

struct Model {
  std::string name;  // "InternetGatewayDevice:1.14"
  std::unique_ptr<Entry> root;
  std::vector<Profile> profiles;
  std::vector<Note> notes;
  std::vector<std::string> files;  // the documents and overlays it was read from

  // The overlay's general part.
  std::string prefix = "model";                // of generated files and names
  uint32_t tag = 0;                            // the schema's tag
  std::map<std::string, uint32_t> components;  // name to id
  std::optional<uint32_t> words_slot;          // ext_fn word that gets the values allowed

  // The component's name for an id, "" for none.
  std::string component_name(uint32_t id) const;
};

// Calls `visit` for an entry and all below it, a parent before its children.
template <class Visit>
void for_each(Entry& entry, const Visit& visit) {
  visit(entry);
  for (auto& child : entry.children) for_each(*child, visit);
}
template <class Visit>
void for_each(const Entry& entry, const Visit& visit) {
  visit(entry);
  for (const auto& child : entry.children) for_each(static_cast<const Entry&>(*child), visit);
}

uint32_t count_entries(const Entry& entry);
// Finds an entry by its path ("A.B.{i}.C"); null when there is none.
Entry* find_entry(const Entry& root, std::string_view path);
// The same for the full name of a live node ("A.B.3.C"): numbers stand for {i}.
Entry* find_entry_of_node(const Entry& root, std::string_view full_name);

// --- model_xml.cc: published documents ---

// Reads a model, with what it imports from files in the same folder. The first file's model is the
// tree; further files hold services, which go below its "Services." object. A service model alone
// gets a root object named "Services.". `select` names the model ("X:1.2") where a file has
// several. Throws Error (refused) with the place of what is malformed, or (storage).
Model read_model(const std::vector<std::string>& files, const std::string& select = "");

// --- overlay.cc: the vendor's side ---

// Applies a TOML overlay. Throws Error with its place, also where a default is refused by its own
// parameter or, saved, could not be kept in a document.
void apply_overlay(Model& model, const std::string& file);

// Gives the parameters a default that have none and no host to ask for one: "", false, 0 or the
// bound next to it. Called once behind the overlay, also when there is none.
void complete(Model& model);

// --- subset.cc ---

// Leaves only what the profiles ("NAME:N") name or a pattern matches, and the objects above.
// Without either everything stays.
void choose(Model& model, const std::vector<std::string>& profiles,
            const std::vector<std::string>& patterns);

// --- lock.cc ---

// Unique ids by path, as a lock file keeps them. Ids of entries that are gone stay taken.
struct Lock {
  std::map<std::string, uint32_t> ids;
  bool operator==(const Lock&) const = default;
};
Lock parse_lock(const std::string& file, std::string_view text);
std::string render_lock(const Model& model, const Lock& lock);

// Gives every entry its unique id: the locked one, else the lowest that was never taken in the
// lock, in the model's order; without a lock 0, 1, 2, ... Adds the new ones to the lock. Throws
// Error with the count and the biggest subtrees when an id would be 2000 or above.
void assign_ids(Model& model, Lock& lock);

// --- emit.cc ---

// "GATEWAY_COMP_LAN" for the component "lan".
std::string component_constant(const Model& model, const std::string& name);
// "GATEWAY_COMP_COUNT"
std::string component_count_constant(const Model& model);

struct Generated {
  std::string source_name, source;  // "gateway_schema.c"
  std::string header_name, header;  // "gateway_schema.h"
};
// Every entry must have its unique id. Throws Error where the source would not compile, or a value
// that is allowed has the "|" that stands between them.
Generated generate(const Model& model);

// --- block.cc: the schema at run time ---

// The schema's records in the order of their ids, without hooks; names and defaults point into the
// model. An id that no entry has gets an empty record that nothing leads to. Every entry must have
// its unique id.
std::vector<qmibtree_uidinfo_t> records_of(const Model& model);

// A schema block like the one that the generated source defines, without hooks.
class Block {
 public:
  explicit Block(const Model& model);
  qmibtree_schema_t* schema() { return reinterpret_cast<qmibtree_schema_t*>(words_.data()); }

 private:
  std::vector<uint64_t> words_;
};

}  // namespace mibctl
