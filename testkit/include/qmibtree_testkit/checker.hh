// What is true of every tree between two calls into the library, whatever was done to it.
#ifndef QMIBTREE_TESTKIT_CHECKER_HH
#define QMIBTREE_TESTKIT_CHECKER_HH

#include <string>
#include <vector>

#include "qmibtree.h"

namespace qmibtree_testkit {

enum class Events {
  kExact,      // each event is of a node that is there, and the active ones are counted
  kMayBeGone,  // an event that was not the newest was dropped, perhaps with its node: the slot that
               // took its place may hold any earlier node, so that only the count is looked at
};

// Looks at the whole tree, and answers what is wrong with it, a line each; nothing for a sound one.
//
//  - the root and its links; every node's tree, parent, schema record, name, full name, hash,
//  flags,
//    and what only an instance has (number, right)
//  - child lists: their order, ends and counts; below a template instances in the order of their
//    numbers, below every other object one node for each record of the schema
//  - counters: a template's highest number, its additions and deletions, the tree's changes
//  - both indexes: each node once, in the chain it belongs in, a newer instance before an older
//  one,
//    and nothing else (by unique id only where that index could be made)
//  - names and values: storage has one owner; an unmarked parameter has its default value
//  - events: see `events`
//
// Not foreseen are instances added behind number 4294967295, records that became multi-instance
// objects or ceased to be while the tree was there, nodes built by qmibtree_build_node or removed
// by qmibtree_destroy_node other than instances, and flags that a hook had no right to change.
// Costs one step a node and writes nothing.
std::vector<std::string> problems_of(const qmibtree_inst_t* inst, Events events = Events::kExact);

}  // namespace qmibtree_testkit

#endif
