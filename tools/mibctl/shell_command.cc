// The shell at a terminal, with editing, history and completion, and at a pipe.
#include <histedit.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>

#include "commands.hh"
#include "complete.hh"
#include "shell.hh"

namespace mibctl {

namespace {

constexpr int kHistory = 1000;

template <auto end>
struct Ends {
  template <class T>
  void operator()(T* thing) const {
    end(thing);
  }
};

class Terminal {
 public:
  explicit Terminal(Shell& shell)
      : shell_(shell), history_(history_init()), edit_(el_init("mibctl", stdin, stdout, stderr)) {
    if (!history_ || !edit_) throw Error(Status::storage, "shell", "the terminal cannot be used");
    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, kHistory);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(edit_.get(), EL_CLIENTDATA, this);
    el_set(edit_.get(), EL_EDITOR, "emacs");
    el_set(edit_.get(), EL_PROMPT, &Terminal::prompt);
    el_set(edit_.get(), EL_HIST, history, history_.get());
    el_wset(edit_.get(), EL_ADDFN, L"complete", L"Complete the word", &Terminal::complete);
    el_set(edit_.get(), EL_BIND, "^I", "complete", nullptr);
    // Control-C is a key while a line is typed: it ends the line, not the shell with its edits.
    el_set(edit_.get(), EL_SETTY, "-d", "-isig", nullptr);
    el_wset(edit_.get(), EL_ADDFN, L"abandon", L"Drop the line", &Terminal::abandon);
    el_set(edit_.get(), EL_BIND, "^C", "abandon", nullptr);
    el_source(edit_.get(), nullptr);  // the user's ~/.editrc
  }

  // The next line; nothing at the end of input.
  std::optional<std::string> line() {
    prompt_ = shell_.prompt();
    int length = 0;  // behind it stands what an abandoned line leaves
    const char* const text = el_gets(edit_.get(), &length);
    if (!text || length <= 0) return {};
    return remember({text, static_cast<size_t>(length)});
  }

 private:
  static Terminal& of(EditLine* edit) {
    void* terminal = nullptr;
    el_get(edit, EL_CLIENTDATA, &terminal);
    return *static_cast<Terminal*>(terminal);
  }

  static char* prompt(EditLine* edit) { return of(edit).prompt_.data(); }

  static unsigned char complete(EditLine* edit, wint_t /*character*/) {
    return of(edit).complete_word();
  }

  static unsigned char abandon(EditLine* edit, wint_t /*character*/) {
    const LineInfo* const info = el_line(edit);
    el_cursor(edit, static_cast<int>(info->lastchar - info->cursor));
    el_deletestr(edit, static_cast<int>(info->lastchar - info->buffer));
    std::printf("\n");
    el_insertstr(edit, "\n");  // an empty line is read
    return CC_NEWLINE;
  }

  std::string remember(std::string line) {
    HistEvent event;
    if (line != "\n") history(history_.get(), &event, H_ENTER, line.c_str());
    return line;
  }

  unsigned char complete_word() {
    const LineInfo* const info = el_line(edit_.get());
    const std::string_view typed(info->buffer, static_cast<size_t>(info->cursor - info->buffer));
    const auto [start, words] = shell_.complete(typed);
    if (words.empty()) return CC_REFRESH_BEEP;
    const std::string whole = common_prefix(words);
    const size_t there = typed.size() - start;
    if (whole.size() > there) {
      std::string more = whole.substr(there);
      if (words.size() == 1 && start == 0) more += ' ';  // a verb is complete
      el_insertstr(edit_.get(), more.c_str());
      return CC_REFRESH;
    }
    if (words.size() == 1) return CC_REFRESH;
    std::printf("\n");
    for (const std::string& word : words) std::printf("%s\n", word.c_str());
    return CC_REDISPLAY;
  }

  Shell& shell_;
  std::string prompt_;
  std::unique_ptr<History, Ends<history_end>> history_;
  std::unique_ptr<EditLine, Ends<el_end>> edit_;
};

// At a terminal an error is told and the next line read.
void converse(Shell& shell) {
  std::signal(SIGINT, SIG_IGN);  // until the editor has the terminal
  std::setlocale(LC_CTYPE, "");  // the editor takes letters as the terminal encodes them
  Terminal terminal(shell);
  while (const auto line = terminal.line()) {
    try {
      if (!shell.execute(*line)) return;
    } catch (const Error& error) {
      std::fprintf(stderr, "%s\n", error.what());
    }
    std::fflush(stdout);
  }
  std::printf("\n");
}

// At a pipe the first error ends the shell, with nothing stored behind it.
void follow(Shell& shell) {
  Place place{"standard input"};
  for (std::string line; std::getline(std::cin, line);) {
    ++place.line;
    try {
      if (!shell.execute(line)) return;
    } catch (const Error& error) {
      throw located(place, error);
    }
  }
  if (shell.session.changed())
    throw refused("shell", "the input ended with unsaved edits, which are dropped",
                  "end it with save");
}

}  // namespace

void add_shell_command(CLI::App& app, Options& options) {
  CLI::App* const command =
      app.add_subcommand("shell", "Work on a configuration interactively, or by lines from a pipe");
  command->group("Configurations");
  command->footer("Example:\n  mibctl --model gateway-model.xml --flash dump shell");
  command->callback([&options] {
    Session session(options);
    Shell shell(session, options);
    if (isatty(STDIN_FILENO))
      converse(shell);
    else
      follow(shell);
  });
}

}  // namespace mibctl
