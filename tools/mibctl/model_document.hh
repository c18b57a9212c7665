// Published data-model documents as read: the elements that describe a model, and the definitions
// that names in them stand for, imported ones too.
#pragma once
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "error.hh"
#include "model.hh"

namespace mibctl {

struct Document;

struct XmlAttribute {
  std::string_view name;
  std::string value;
};

struct XmlElement {
  std::string_view name;  // of a table: only elements that mean something here are kept
  unsigned line = 0, column = 0;
  std::vector<XmlAttribute> attributes;
  std::vector<XmlElement> children;
};

// An element and the document whose definitions the names in it mean.
struct Part {
  const Document* document = nullptr;
  const XmlElement* element = nullptr;

  explicit operator bool() const { return element; }
  std::string_view name() const { return element->name; }
  Place place() const;
  // The attribute's value, or null.
  const std::string* attribute(std::string_view name) const;
  // The same; throws where there is none.
  const std::string& required(std::string_view name) const;
  // All children, or those with this name.
  std::vector<Part> children(std::string_view name = "") const;
  Error refused(const std::string& text, const std::string& detail = "") const;
};

struct Document {
  std::string file;
  XmlElement root;

  struct Known {
    const XmlElement* element;  // the definition, or what stands for it in an import
    const XmlElement* import;   // that import, or null
  };
  std::map<std::pair<std::string_view, std::string>, Known> known;  // by "dataType" etc. and name
  Part whole() const { return {this, &root}; }
};

// A text out of a document as a message shows it: not too long, nothing a terminal would act on.
std::string shown(std::string_view text);

// A name that definitions and profiles may have.
bool is_definition_name(std::string_view name);

// All documents that a model is read from.
class Library {
 public:
  // The notes go to `notes`.
  explicit Library(std::vector<Note>& notes) : notes_(&notes) {}

  // Each file is read once. Throws Error.
  const Document& read(const std::string& file);

  // The definition of this kind ("dataType", "component", "model") that a name means in `user`.
  Part find(std::string_view kind, const std::string& name, const Part& user);

  // All that were read.
  std::vector<std::string> files() const;

  // Counts what the model is built of, in bytes, and throws when it becomes too much: definitions
  // may be used any number of times.
  void spend(size_t bytes, const Part& part);

  // Counts an element that is read; false when there are too many.
  bool take_element();

  // Notes only the first of its kind.
  void note_once(const Place& place, const std::string& kind);

 private:
  const Document& imported(const Part& import);

  std::vector<Note>* notes_;
  std::set<std::string> noted_;
  std::map<std::string, std::unique_ptr<Document>> documents_;  // by file
  size_t elements_ = 0;
  size_t spent_ = 0;
};

}  // namespace mibctl
