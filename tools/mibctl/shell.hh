// The interactive shell over one configuration.
#pragma once
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "session.hh"

namespace mibctl {

class Shell {
 public:
  // `options` are what the session was opened with; both outlive the shell.
  Shell(Session& session, const Options& options);

  // Does one line. Throws Error when it is refused. False when the shell is to end.
  bool execute(std::string_view line);

  std::string prompt() const;
  // What the word that ends `line` may become, and where in the line that word begins.
  struct Completion {
    size_t start = 0;
    std::vector<std::string> words;
  };
  Completion complete(std::string_view line) const;

  // The full name of a name typed at the prompt: below the current object, unless it is a full one.
  std::string full_name(std::string_view typed) const;

  Session& session;
  const Options& options;
  std::string where;    // the current object's full name; "" at the top
  bool warned = false;  // that there are unsaved edits, by the last line

 private:
  std::vector<std::string> names_for(std::string_view typed) const;
};

}  // namespace mibctl
