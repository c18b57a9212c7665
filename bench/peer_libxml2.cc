#include <libxml/tree.h>

#include <cstdlib>
#include <cstring>

#include "peers.hh"

namespace bench {
namespace {

const xmlChar* text_of(std::string_view text) {
  return reinterpret_cast<const xmlChar*>(text.data());
}

// An element a segment, the names in the document's dictionary as its parser would have them. Names
// are found by a walk over the children: a compiled XPath takes over a hundred times as long, for
// it looks at every child of every step, found or not.
class Libxml2 : public Peer {
 public:
  explicit Libxml2(const Workload& work) : work_(work), document_(xmlNewDoc(text_of("1.0"))) {
    document_->dict = xmlDictCreate();
    for (const size_t i : work.in_tree_order()) {
      const Parameter& parameter = work.parameters[i];
      auto* node = reinterpret_cast<xmlNode*>(document_);
      for (const std::string& segment : segments_of(parameter.name)) {
        xmlNode* const child = child_of(node, segment);
        node = child ? child : add(node, segment);
      }
      xmlNodeSetContent(node, text_of(parameter.values[0].text));
    }
  }
  ~Libxml2() override { xmlFreeDoc(document_); }
  Libxml2(const Libxml2&) = delete;
  Libxml2& operator=(const Libxml2&) = delete;

  std::string title() const override { return "libxml2"; }
  size_t read(size_t i) override { return find(i)->children->content[0]; }
  void write(size_t i, int which) override {
    xmlNodeSetContent(find(i)->children, text_of(work_.parameters[i].values[which].text));
  }

 private:
  static xmlNode* child_of(const xmlNode* node, std::string_view name) {
    for (xmlNode* child = node->children; child; child = child->next)
      if (std::strncmp(reinterpret_cast<const char*>(child->name), name.data(), name.size()) == 0 &&
          child->name[name.size()] == '\0')
        return child;
    return nullptr;
  }

  xmlNode* add(xmlNode* parent, const std::string& name) {
    const xmlChar* const known = xmlDictLookup(document_->dict, text_of(name), -1);
    return xmlAddChild(
        parent, xmlNewDocNodeEatName(document_, nullptr, const_cast<xmlChar*>(known), nullptr));
  }

  xmlNode* find(size_t i) const {
    const xmlNode* node = reinterpret_cast<const xmlNode*>(document_);
    std::string_view rest = work_.names[i];
    for (size_t dot; (dot = rest.find('.')) != std::string_view::npos && node;
         rest.remove_prefix(dot + 1))
      node = child_of(node, rest.substr(0, dot));
    xmlNode* const found = node ? child_of(node, rest) : nullptr;
    if (!found) std::abort();
    return found;
  }

  const Workload& work_;
  xmlDoc* document_;
};

}  // namespace

std::unique_ptr<Peer> make_libxml2(const Workload& work) { return std::make_unique<Libxml2>(work); }

}  // namespace bench
