// Small models built by hand.
#pragma once
#include <memory>
#include <string>
#include <utility>

#include "model.hh"

namespace mibctl {

inline Entry* add_entry(Entry& above, const std::string& name, uint32_t type) {
  auto entry = std::make_unique<Entry>();
  entry->name = name;
  entry->type = type;
  entry->place = {"model.xml", 1, 1};
  return above.add(std::move(entry));
}

inline Entry* add_object(Entry& above, const std::string& name) {
  return add_entry(above, name, QMIBTREE_TYPE_OBJECT);
}

inline Entry* add_table(Entry& above, const std::string& name) {
  Entry* const table = add_object(above, name);
  table->multi = true;
  table->writable = true;
  return table;
}

// A writable parameter, with the whole range where it is a number.
inline Entry* add_parameter(Entry& above, const std::string& name,
                            uint32_t type = QMIBTREE_TYPE_STRING) {
  Entry* const parameter = add_entry(above, name, type);
  parameter->writable = true;
  if (type == QMIBTREE_TYPE_INT) {
    parameter->min = INT32_MIN;
    parameter->max = INT32_MAX;
  } else if (type == QMIBTREE_TYPE_UINT) {
    parameter->max = UINT32_MAX;
  }
  return parameter;
}

// A parameter that documents keep; null: without a default.
inline Entry* add_saved(Entry& above, const std::string& name, uint32_t type, const char* defval,
                        Save save = Save::modified) {
  Entry* const entry = add_parameter(above, name, type);
  entry->save = save;
  if (defval) entry->defval = defval;
  return entry;
}

// A model of a root object alone.
inline Model make_model(const std::string& root = "Gw.") {
  Model model;
  model.name = "Gw:1.0";
  model.root = std::make_unique<Entry>();
  model.root->name = root;
  model.root->place = {"model.xml", 1, 1};
  return model;
}

// Its entry with this path, which there must be.
inline Entry& at(const Model& model, const std::string& path) {
  return *find_entry(*model.root, path);
}

}  // namespace mibctl
