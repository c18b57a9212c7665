// Matchers for EXPECT_THAT, with messages that say what the library answered. This header needs
// GoogleMock.
//
//   EXPECT_THAT(qmibtree_write_strvalue(tree.inst, "A.Name", "home", 0), Succeeds());
//   EXPECT_THAT(qmibtree_write_strvalue(tree.inst, "A.Level", "11", 0),
//               FailsWith(QMIBTREE_RC_OUT_OF_RANGE));
//   EXPECT_THAT(tree, Holds("A.Name", "home"));
//   EXPECT_THAT(tree, IsConsistent());
#ifndef QMIBTREE_TESTKIT_MATCHERS_HH
#define QMIBTREE_TESTKIT_MATCHERS_HH

#include <gmock/gmock.h>

#include <ostream>
#include <string>

#include "qmibtree_testkit/checker.hh"
#include "qmibtree_testkit/host.hh"
#include "qmibtree_testkit/schema.hh"

namespace qmibtree_testkit {

// "70 (write out of range)"
inline std::string rc_text(uint32_t rc) {
  return std::to_string(rc) + " (" + qmibtree_rc_string(rc) + ")";
}

// What a matcher for trees is given: a Tree, or an instance.
inline qmibtree_inst_t* inst_of(const Tree& tree) { return tree.inst; }
inline qmibtree_inst_t* inst_of(qmibtree_inst_t* inst) { return inst; }

inline std::ostream& operator<<(std::ostream& out, const Tree& tree) {
  return tree.inst ? out << "the tree of " << tree.inst->root->fullName : out << "no tree";
}

// A result code below 32.
MATCHER(Succeeds, negation ? "is a failure" : "is a success") {
  *result_listener << rc_text(arg);
  return !QMIBTREE_FAILED(arg);
}

// A result code of 32 and above.
inline auto Fails() { return testing::Not(Succeeds()); }

MATCHER_P(FailsWith, rc, (negation ? "is not " : "is ") + rc_text(rc)) {
  *result_listener << rc_text(arg);
  return arg == rc;
}

// A tree in which a read of the parameter gives this text: a text, or a matcher for it.
MATCHER_P2(Holds, name, text,
           (negation ? "does not hold " : "holds ") + std::string(name) + " with a text that " +
               testing::DescribeMatcher<std::string>(text)) {
  const std::string held = read_text(inst_of(arg), std::string(name).c_str());
  *result_listener << "which holds \"" << held << "\" there";
  return testing::Matcher<std::string>(text).Matches(held);
}

// A tree that the checker finds nothing wrong with.
MATCHER_P(IsConsistentBut, events, negation ? "is inconsistent" : "is consistent") {
  const std::vector<std::string> problems = problems_of(inst_of(arg), events);
  for (const std::string& problem : problems) *result_listener << "\n  " << problem;
  return problems.empty();
}
inline auto IsConsistent(Events events = Events::kExact) { return IsConsistentBut(events); }

}  // namespace qmibtree_testkit

#endif
