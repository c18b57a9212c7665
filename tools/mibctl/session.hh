// A configuration opened for reading and editing: its model, where it is stored, and its live tree.
#pragma once
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "commands.hh"
#include "tree.hh"

namespace mibctl {

// The attributes of a node as words: "off", "passive", "active"; "subscriber", "none".
struct Attributes {
  std::string notify, access;
  bool operator==(const Attributes&) const = default;
};
Attributes attributes_of(const qmibtree_node* node);

// An error as it is told of a line of input.
Error located(const Place& place, const Error& error);

class Session {
 public:
  enum class Start { stored, empty };
  // Start::stored loads the stored configuration; Start::empty begins with the model's defaults.
  explicit Session(const Options& options, Start start = Start::stored);

  Tree& tree() const { return *tree_; }
  Store& store() const { return *store_; }

  // Edits of the live tree; each throws (refused) and then has changed nothing. `flags` as of
  // qmibtree_write. Names are full names.
  void set(const std::string& name, const std::string& text, uint32_t flags);
  // The full name of the new instance.
  std::string add(const std::string& table, uint32_t wish);
  void del(const std::string& name);
  // One "notify=off|passive|active" or "access=subscriber|none".
  void set_attribute(const std::string& name, std::string_view setting);
  // One line as `show` prints it ("Full.Name=value", an instance's full name), or a verb and its
  // arguments (set, add, del, attr); nothing for an empty line or a comment. Writes as the gateway
  // itself. Errors are told at `place`, those of a later save() that concern this line too.
  void replay(std::string_view line, const Place& place);
  // Replaces everything by a document. Throws where it does not load, or something in it would be
  // lost unless `force`.
  void import(const std::string& document, const std::string& name, bool force);

  bool changed() const { return changed_; }
  // Stores the live tree, after making sure that a start would bring every edit back. Throws
  // (refused) where it would not, or where the stored document holds what a save would drop, unless
  // `force`.
  void save(bool force);
  // Drops the edits and loads what is stored.
  void reload();

 private:
  void touch(const std::string& name);
  void check_stored(bool force) const;
  void check_edits(const std::string& document) const;

  Model model_;
  std::unique_ptr<Store> store_;
  std::unique_ptr<Tree> tree_;
  std::string stored_;                    // the document as loaded
  std::map<std::string, Place> touched_;  // full names that edits concern, and the line of each
  Place place_;                           // the line being replayed, if any
  bool changed_ = false;
};

}  // namespace mibctl
