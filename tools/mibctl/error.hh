// What stops a command, and where in an input it was found.
#pragma once
#include <stdexcept>
#include <string>

namespace mibctl {

// Exit statuses of the program.
enum class Status {
  done = 0,
  refused = 1,  // refused, or not found
  usage = 2,    // the command line makes no sense
  storage = 3,  // a file or device could not be read or written, or holds no configuration
};

// A place in an input file. Line 0: the file as a whole. Column counts bytes, from 1; 0: the line.
struct Place {
  std::string file;
  unsigned line = 0;
  unsigned column = 0;
  // "file", "file:12" or "file:12:5".
  std::string text() const;
};

// Ends the command. Shown on standard error as "name: text (detail)", or "name: text" without a
// detail. `name` is what the error is about: a full name, a file, a place.
struct Error : std::runtime_error {
  Error(Status status, const std::string& name, const std::string& text,
        const std::string& detail = "");
  Error(Status status, const Place& place, const std::string& text, const std::string& detail = "")
      : Error(status, place.text(), text, detail) {}
  Status status;
  std::string name, text, detail;
};

inline Error refused(const std::string& name, const std::string& text,
                     const std::string& detail = "") {
  return {Status::refused, name, text, detail};
}

}  // namespace mibctl
