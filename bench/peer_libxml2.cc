#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <cstdlib>
#include <map>

#include "peers.hh"

namespace bench {
namespace {

const xmlChar* text_of(const std::string& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

// An element a segment; "i" before the number of an instance, for no element's name is one.
class Libxml2 : public Peer {
 public:
  explicit Libxml2(const Workload& work) : work_(work), document_(xmlNewDoc(text_of("1.0"))) {
    std::map<std::string, xmlNode*> made;
    for (const Parameter& parameter : work.parameters) {
      std::string path;
      xmlNode* node = nullptr;
      for (std::string segment : segments_of(parameter.name)) {
        if (is_number(segment)) segment.insert(0, "i");
        path += "/" + segment;
        xmlNode*& child = made[path];
        if (!child) child = add(node, segment);
        node = child;
      }
      paths_.push_back(path);
      xmlNodeSetContent(node, text_of(parameter.values[0].text));
    }
    context_ = xmlXPathNewContext(document_);
  }
  ~Libxml2() override {
    xmlXPathFreeContext(context_);
    xmlFreeDoc(document_);
  }
  Libxml2(const Libxml2&) = delete;
  Libxml2& operator=(const Libxml2&) = delete;

  std::string title() const override { return "libxml2"; }
  size_t read(size_t i) override { return find(i)->children->content[0]; }
  void write(size_t i, int which) override {
    xmlNodeSetContent(find(i), text_of(work_.parameters[i].values[which].text));
  }

 private:
  xmlNode* add(xmlNode* parent, const std::string& name) {
    if (parent) return xmlNewChild(parent, nullptr, text_of(name), nullptr);
    xmlNode* const root = xmlNewDocNode(document_, nullptr, text_of(name), nullptr);
    xmlDocSetRootElement(document_, root);
    return root;
  }

  xmlNode* find(size_t i) {
    xmlXPathObject* const found = xmlXPathEval(text_of(paths_[i]), context_);
    if (!found || !found->nodesetval || found->nodesetval->nodeNr != 1) std::abort();
    xmlNode* const node = found->nodesetval->nodeTab[0];
    xmlXPathFreeObject(found);
    return node;
  }

  const Workload& work_;
  xmlDoc* document_;
  xmlXPathContext* context_;
  std::vector<std::string> paths_;
};

}  // namespace

std::unique_ptr<Peer> make_libxml2(const Workload& work) { return std::make_unique<Libxml2>(work); }

}  // namespace bench
