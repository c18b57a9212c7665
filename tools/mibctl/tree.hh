// A live tree of a model, and what the configuration commands do with it.
#pragma once
#include <qmibtree.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model.hh"

namespace mibctl {

class Tree {
 public:
  // The model must outlive the tree and stay as it is. Values that a device would supply are none:
  // a dynamic parameter keeps its flag only where no document saves it.
  explicit Tree(const Model& model);
  ~Tree();
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  qmibtree_inst_t* inst() const { return inst_; }
  const Model& model() const { return *model_; }
  // What the model has at a node; an instance shares its table's.
  const Entry& entry(const qmibtree_node* node) const;

  // Loads a document the way a gateway does: what the tree refuses is skipped. False when it is no
  // well-formed document within the format's limits; what came before is then loaded.
  bool load(const std::string& document);
  // The document that a save would store.
  std::string document() const;

  // The node of a full name; throws (refused) "name: mib name not found (did you mean ...)".
  qmibtree_node* find(const std::string& name) const;
  // What a name that no node has may be meant to be: "did you mean ...?", or "".
  std::string suggestion(const std::string& name) const;
  // The value as text; throws where there is none to be had.
  std::string value(qmibtree_node* node) const;
  // False for parameters whose value only a running gateway knows.
  bool has_value(qmibtree_node* node) const;

  // Writes a text after checking it against the type, the bounds and the values allowed. `flags`
  // are QMIBTREE_WRITE_*. Throws (refused) with the rule and the bound. A value that is there
  // already is no write and never refused.
  void write(qmibtree_node* node, const std::string& text, uint32_t flags);

  // Adds an instance with this number (0: the next). Throws when the table is full or the
  // number would not be the one wished. The new instance's node.
  qmibtree_node* add(qmibtree_node* table, uint32_t wish);
  void del(qmibtree_node* instance);

 private:
  const Model* model_;
  Block block_;
  std::vector<const Entry*> entries_;  // by unique id
  qmibtree_inst_t* inst_;
};

// Why a value would not do for an entry: "" when it would. The rule and its bound, as in
// "above the highest value (4094)". Texts a document cannot bring back are not looked for here.
std::string refusal(const Entry& entry, std::string_view text);

// Why a document could not bring a text back as the value of an entry: "" when it could.
std::string loss(const Entry& entry, std::string_view text);

bool is_template(const qmibtree_node* node);

// Nodes of two trees of one model side by side, by full name; `left` or `right` is null where only
// the other tree has the node.
using Visit = std::function<void(qmibtree_node* left, qmibtree_node* right)>;
void compare_trees(const Tree& left, const Tree& right, const Visit& visit);

}  // namespace mibctl
