// A configuration document from anywhere: where the linter does not say that something is lost, the
// texts in the document are the values that a load leaves, and come back from a save and a second
// load.
#include <expat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <vector>

#include "image.hh"
#include "input.hh"
#include "lint.hh"
#include "small_model.hh"
#include "tree.hh"

namespace {

// The lines with something that is lost; 0 for the document as a whole.
std::set<size_t> lossy_lines(const mibctl::Model& model, const std::string& document) {
  std::set<size_t> lines;
  for (const mibctl::Finding& finding : mibctl::lint(model, document))
    if (finding.lost) lines.insert(finding.line);
  return lines;
}

std::string without(const std::set<size_t>& lines, const std::string& document) {
  std::string rest;
  size_t line = 1;
  for (size_t at = 0; at < document.size(); ++line) {
    const size_t end = std::min(document.find('\n', at), document.size() - 1) + 1;
    if (!lines.contains(line)) rest.append(document, at, end - at);
    at = end;
  }
  return rest;
}

// The whole text of each element, in the order in which they end.
struct Texts {
  std::vector<std::string> open, ended;

  explicit Texts(const std::string& document) {
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), &XML_ParserFree);
    XML_SetUserData(parser.get(), this);
    XML_SetElementHandler(
        parser.get(),
        [](void* user, const char*, const char**) {
          static_cast<Texts*>(user)->open.emplace_back();
        },
        [](void* user, const char*) { static_cast<Texts*>(user)->end(); });
    XML_SetCharacterDataHandler(parser.get(), [](void* user, const char* text, int size) {
      static_cast<Texts*>(user)->open.back().append(text, static_cast<size_t>(size));
    });
    const size_t size = std::strlen(document.c_str());
    FUZZ_CHECK(XML_Parse(parser.get(), document.data(), static_cast<int>(size), XML_TRUE));
  }
  void end() {
    ended.push_back(std::move(open.back()));
    open.pop_back();
  }
};

bool is_blank(const std::string& text) { return text.find_first_not_of(" \t\r\n") == text.npos; }

void check_texts(const mibctl::Tree& tree, const std::string& document) {
  const Texts texts(document);
  size_t next = 0;
  mibctl::walk_document(document, [&](const mibctl::Element& element) {
    const std::string& text = texts.ended.at(next++);
    qmibtree_node* const node = tree.find(element.path);
    if (is_blank(text)) return;
    FUZZ_CHECK(node->flags & QMIBTREE_NODE_PARAM);
    if (node->uidinfo->type == QMIBTREE_TYPE_STRING) FUZZ_CHECK(tree.value(node) == text);
  });
}

uint32_t attributes_of(const qmibtree_node* node) {
  return node->flags &
         (QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE | QMIBTREE_NODE_ACCESS);
}

void check_same(const mibctl::Tree& left, const mibctl::Tree& right) {
  mibctl::compare_trees(left, right, [&](qmibtree_node* a, qmibtree_node* b) {
    FUZZ_CHECK(a && b);
    if (a->flags & QMIBTREE_NODE_PARAM) FUZZ_CHECK(attributes_of(a) == attributes_of(b));
    if (left.has_value(a)) FUZZ_CHECK(left.value(a) == right.value(b));
  });
}

void check_lossless(const mibctl::Model& model, const std::string& document) {
  mibctl::Tree once(model);
  FUZZ_CHECK(once.load(document));
  check_texts(once, document);
  mibctl::Tree twice(model);
  FUZZ_CHECK(twice.load(once.document()));
  check_same(once, twice);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const mibctl::Model model = small_model_with_overlay();
  std::string document(reinterpret_cast<const char*>(data), size);
  const std::string problem = mibctl::walk_document(document, [&](const mibctl::Element& element) {
    FUZZ_CHECK(element.begin < element.end && element.end <= size);
  });
  FUZZ_CHECK(mibctl::Tree(model).load(document) || !problem.empty());

  // What an input loses is taken out of it, as far as a few rounds lead.
  for (int round = 0; round < 4; ++round) {
    const std::set<size_t> lines = lossy_lines(model, document);
    if (lines.empty()) return check_lossless(model, document), 0;
    document = without(lines, document);
  }
  return 0;
}
