// The program at a pseudo-terminal, as a person sees it.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace console {

struct TerminalKind {
  unsigned short columns = 400;
  const char *locale = "C.UTF-8";  // of the program; the terminal itself always takes UTF-8
  bool joins = false;              // shows emoji that belong together as one, two cells wide
  const char *type = "xterm";      // TERM
  std::string program = CONSOLE_PROGRAM;
  const char *input = nullptr;   // a file that is standard input; null: the terminal
  const char *errors = nullptr;  // a file that standard error goes to; null: the terminal
};

class Terminal {
 public:
  // Starts the program in a folder, with a history file there.
  Terminal(const std::string &folder, const std::vector<std::string> &arguments,
           const TerminalKind &kind = {});
  ~Terminal();  // ends it, if need be by force
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  void type(const std::string &bytes);
  // Reads until the text has come; false: it did not within the deadline, or the program ended.
  // What came up to the text's end is taken away from what is read later.
  bool sees(const std::string &text);
  // Reads until it is so; false: it is not within the deadline.
  bool comesTrue(const std::function<bool()> &so);
  // Reads until the cursor stands in a column of this row, which blanks may follow.
  testing::AssertionResult comesTo(const std::string &row, std::size_t column);
  // All that came since the last text seen, once the program has ended by itself.
  int endStatus();  // exit status; -1: it did not end within the deadline, or by a signal
  bool stops();     // whether the program is stopped within the deadline; SIGCONT sets it going
  void signal(int number);
  bool isCooked() const;                // it edits lines itself, as it does while no program does
  void resize(unsigned short columns);  // the program gets SIGWINCH

  // What has been seen so far, screen codes and all.
  const std::string &all() const { return all_; }
  // Its rows, after everything that has come.
  std::vector<std::string> screen() const;
  std::size_t column() const;  // of the cursor

 private:
  bool readMore(int timeoutMs);

  std::size_t columns_;
  const bool joins_;
  pid_t child_ = -1;
  int terminal_ = -1;
  std::string all_;
  std::size_t seen_ = 0;
};

}  // namespace console
