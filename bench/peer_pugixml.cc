#include <cstdlib>
#include <pugixml.hpp>

#include "peers.hh"

namespace bench {
namespace {

// An element a segment.
class Pugixml : public Peer {
 public:
  explicit Pugixml(const Workload& work) : work_(work) {
    for (const size_t i : work.in_tree_order()) {
      const Parameter& parameter = work.parameters[i];
      pugi::xml_node node = document_;
      for (const std::string& segment : segments_of(parameter.name)) {
        const pugi::xml_node child = node.child(segment.c_str());
        node = child ? child : node.append_child(segment.c_str());
      }
      node.text().set(parameter.values[0].text.c_str());
    }
  }

  std::string title() const override { return "pugixml"; }
  size_t read(size_t i) override { return static_cast<size_t>(find(i).text().get()[0]); }
  void write(size_t i, int which) override {
    find(i).text().set(work_.parameters[i].values[which].text.c_str());
  }

 private:
  pugi::xml_node find(size_t i) const {
    const pugi::xml_node node = document_.first_element_by_path(work_.names[i].data(), '.');
    if (!node) std::abort();
    return node;
  }

  const Workload& work_;
  pugi::xml_document document_;
};

}  // namespace

std::unique_ptr<Peer> make_pugixml(const Workload& work) { return std::make_unique<Pugixml>(work); }

}  // namespace bench
