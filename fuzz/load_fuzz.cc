// A configuration document from anywhere, into a real tree: the tree stays sound, saves as the
// plain rules have it, and comes back from what it saved.
#include <algorithm>

#include "plain.hh"
#include "small_tree.hh"

using namespace qmibtree_testkit;

namespace {

uint32_t highest_instance(const qmibtree_inst_t* inst) {
  uint32_t highest = 0;
  for (const qmibtree_node* node : plain::nodes(inst)) highest = std::max(highest, node->instance);
  return highest;
}

// What a document cannot carry; see doc/oddities.md, "The document".
bool is_lost(const qmibtree_node* node) {
  constexpr uint32_t kReported = QMIBTREE_NODE_NOTIF_ACTIVE | QMIBTREE_NODE_NOTIF_PASSIVE;
  constexpr uint32_t kReportedAtFirst = QMIBTREE_UID_NOTIF_DEFAULT | QMIBTREE_UID_NOTIF_FORCED;
  if (!(node->flags & QMIBTREE_NODE_PARAM)) return false;
  if ((node->uidinfo->flags & kReportedAtFirst) && !(node->flags & kReported))
    return true;  // switched off is not written, and so is on again
  // Not escaped: unreadable, or another character when read.
  return node->value.type == QMIBTREE_TYPE_STRING &&
         std::string(node->value.str).find_first_of("<&\r") != std::string::npos;
}

bool comes_back(const qmibtree_inst_t* inst) {
  const auto nodes = plain::nodes(inst);
  return highest_instance(inst) <= 999 && std::none_of(nodes.begin(), nodes.end(), is_lost);
}

void check_reload(const std::string& document) {
  small_tree::host().dynamic = small_tree::kDynamicAtFirst;
  Tree fresh(small_tree::schema());
  FUZZ_CHECK(load_document(fresh.inst, document) == QMIBTREE_RC_OK);
  FUZZ_CHECK(document_of(fresh.inst) == document);
  small_tree::check_sound(fresh.inst);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const small_tree::Run run;
  Tree tree(small_tree::schema());
  const uint32_t rc = load_document(tree.inst, {reinterpret_cast<const char*>(data), size});
  FUZZ_CHECK(rc == QMIBTREE_RC_OK || rc == QMIBTREE_RC_ERROR);
  // Numbers above wrap below zero; what is true of trees then is nobody's business.
  if (highest_instance(tree.inst) <= INT32_MAX) small_tree::check_sound(tree.inst);
  const std::string document = document_of(tree.inst);
  FUZZ_CHECK(document == plain::document(tree.inst, tree.inst->root));
  if (comes_back(tree.inst)) check_reload(document);
  return 0;
}
