// The prompt at a terminal: line editing, history and completion of names. It takes bytes whenever
// they come and never waits for them, so the chassis goes on while a person types. What is written
// meanwhile appears above the line.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace chassis {

class Editor {
 public:
  struct Config {
    std::string prompt;
    std::string historyPath;         // empty: no history across runs
    std::vector<std::string> names;  // to complete, sorted
  };

  static constexpr int historyLength = 500;  // lines; the oldest ones are forgotten

  // Takes over the terminal of standard input and output.
  explicit Editor(Config config);
  // Gives the terminal back, with the line that is being typed removed, and saves the history.
  ~Editor();
  Editor(const Editor &) = delete;
  Editor &operator=(const Editor &) = delete;

  // Bytes from the terminal.
  void feed(const std::string &bytes);

  // Empties the line that is being typed; false: nothing stood in it.
  bool clearLine();

  // The lines that have been ended since the last call, without their ends.
  std::vector<std::string> takeLines();
  bool ended() const;  // by the end of input, Ctrl-D

  // Whole lines with their ends, above the line being typed.
  void write(const std::string &text);

  void resized();  // the terminal has another size
  void pause();    // gives the terminal back for a while
  void resume();

  // Why the history could not be read, and so is not saved; empty: it could.
  const std::string &historyTrouble() const;

  struct State;  // of Editor.cpp

 private:
  std::unique_ptr<State> state_;
};

}  // namespace chassis
