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
//  - the root and its links; every node's tree, parent, schema record, flags, name, full name, hash
//  - child lists: their order, ends and counts; below an object that has its values one node for
//  each
//    record of the schema, below a template instances in the order of their numbers
//  - counters: a template's highest number, its additions and deletions, the tree's changes
//  - both indexes: each node once, in the chain it belongs in, and nothing else (by unique id only
//    where that index could be made)
//  - values: owned storage has an owner, one
//  - events: see `events`
//
// Costs one step a node and writes nothing. Instance numbers past 2^31 are not foreseen.
std::vector<std::string> problems_of(const qmibtree_inst_t* inst, Events events = Events::kExact);

}  // namespace qmibtree_testkit

#endif
