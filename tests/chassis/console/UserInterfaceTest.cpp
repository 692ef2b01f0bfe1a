// The interface with its editor at a pseudo-terminal that is this case's standard input and output.
#include "console/UserInterface.h"

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>

#include "ConsoleRig.h"
#include "chassis/Folder.h"

namespace chassis {
namespace {

const std::string left = "\033[D";
const std::string right = "\033[C";
const std::string rubOut = "\x7f";
const std::string deleteKey = "\033[3~";
const std::string backOneLine = "\x10";

class Terminal {
 public:
  Terminal() {
    winsize size{};
    size.ws_row = 50;
    size.ws_col = 200;
    int slave = -1;
    EXPECT_EQ(openpty(&master_, &slave, nullptr, nullptr, &size), 0);
    fcntl(master_, F_SETFL, O_NONBLOCK);
    dup2(slave, STDIN_FILENO);
    dup2(slave, STDOUT_FILENO);
    close(slave);
  }
  ~Terminal() {
    std::fflush(stdout);
    for (int file = 0; file < 2; ++file) {
      dup2(before_[static_cast<std::size_t>(file)], file);
      close(before_[static_cast<std::size_t>(file)]);
    }
    close(master_);
  }
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  void type(const std::string &bytes) const {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // All that has been shown since the last call.
  std::string shown() const {
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = read(master_, buffer.data(), buffer.size())) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  const std::array<int, 2> before_{dup(STDIN_FILENO), dup(STDOUT_FILENO)};
  int master_ = -1;
};

class AtATerminal : public ConsoleRig {
 protected:
  AtATerminal() {
    EXPECT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    setenv("TERM", "xterm", 1);
    runFor(Clock::msPerTick);
    open();
  }

  void open() {
    interface_.reset();
    interface_ =
        std::make_unique<UserInterface>(loop_, InputMode::Terminal, history_, Shell::names());
    interface_->serve(clock_, agenda_);
  }

  // Serves until something is so, with a bound.
  template <typename Condition>
  bool comes(const Condition &condition) {
    for (int i = 0; i < 10000 && !condition(); ++i) {
      interface_->waitUntil(0);
      screen_ += terminal_.shown();
      usleep(1000);
    }
    return condition();
  }
  bool shows(const std::string &text) {
    const bool there = comes([&] { return has(screen_, text); });
    screen_.clear();
    return there;
  }
  // What the line that is typed answers in the end.
  std::string answerTo(const std::string &keys) {
    terminal_.type(keys + "\r");
    EXPECT_TRUE(comes([this] { return !agenda_.idle(); })) << keys;
    answer_.clear();
    runFor(Clock::msPerTick);
    return answer_;
  }

  const testing_files::Folder folder_;
  std::string history_ = folder_.at("history");
  const Terminal terminal_;
  Loop loop_;
  std::unique_ptr<UserInterface> interface_;
  std::string screen_;
};

TEST_F(AtATerminal, LinesGoToTheAgenda) {
  EXPECT_TRUE(shows("leaves\r\n"));
  EXPECT_TRUE(has(answerTo("status"), "no card is in"));
}

TEST_F(AtATerminal, GlyphsAreEditedWhole) {
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
  const std::string flag = "\U0001F1E9\U0001F1EA";
  const std::string is = "value = 1 = 0x1\n";
  EXPECT_EQ(answerTo("test_bit \"04\", " + family + rubOut + "2"), is);
  EXPECT_EQ(answerTo("test_bit \"04\", " + flag + "2" + left + left + deleteKey), is);
  EXPECT_EQ(answerTo(family + "test_bit \"04\", 2\x01\x04"), is);
  EXPECT_EQ(answerTo("est_bit \"04\", 2e\u0301\x01t\x05" + left + right + rubOut), is);
  EXPECT_EQ(answerTo(left + right + rubOut + deleteKey + "test_bit \"04\", 2"), is);
}

// Up to the cursor it is drawn once more, and a row that is full is left.
TEST_F(AtATerminal, GlyphsAreDrawnOverTheLine) {
  terminal_.type("e\u0301" + std::string(5, 'x') + left + left);
  EXPECT_TRUE(shows("-> e\u0301xxxxx\0338-> e\u0301xxx"));
  terminal_.type("\x05" + std::string(200 - 9, 'y'));
  EXPECT_TRUE(shows(std::string(200 - 9, 'y') + "\r\r\n"));
}

TEST_F(AtATerminal, NamesAreCompleted) {
  terminal_.type("camSt\t");
  EXPECT_TRUE(shows("atusCheck "));
  terminal_.type("\x15TIME_\t");
  EXPECT_TRUE(shows("TIME_FIRST_RESET"));
  terminal_.type("\x15nothing\t");
  EXPECT_TRUE(shows("\a"));
}

TEST_F(AtATerminal, WhatIsShownStandsAboveTheLine) {
  terminal_.type("half a line");
  ASSERT_TRUE(shows("half a line"));
  interface_->show("above\n");
  EXPECT_TRUE(shows("above\r\n-> half a line"));
}

TEST_F(AtATerminal, CtrlCClearsTheLineAndTwiceLeaves) {
  terminal_.type("half a line");
  ASSERT_TRUE(shows("half a line"));
  std::raise(SIGINT);
  EXPECT_TRUE(shows("\r\033[J"));
  EXPECT_FALSE(interface_->ended());
  std::raise(SIGINT);
  EXPECT_TRUE(shows("once more"));
  EXPECT_FALSE(interface_->ended());
  std::raise(SIGINT);
  EXPECT_TRUE(comes([this] { return interface_->ended(); }));
  EXPECT_EQ(interface_->status(), 130);
}

TEST_F(AtATerminal, CtrlCBreaksAWaitOff) {
  EXPECT_EQ(answerTo("wait 1000"), "");
  EXPECT_TRUE(agenda_.waits(clock_.elapsedMs()));
  std::raise(SIGINT);
  EXPECT_TRUE(shows("broken off"));
  EXPECT_FALSE(agenda_.waits(clock_.elapsedMs()));
}

TEST_F(AtATerminal, CtrlCBreaksLongWorkOff) {
  const Progress half{"reading", 1, 2};
  EXPECT_TRUE(interface_->goOn(half));
  EXPECT_TRUE(comes([&] { return interface_->goOn(half) && has(screen_, "reading: 50 %\r\n"); }));
  std::raise(SIGINT);
  EXPECT_FALSE(interface_->goOn(half));
  EXPECT_FALSE(interface_->ended());
}

TEST_F(AtATerminal, HowFarTheRunIsIsNotShownBesideThePrompt) {
  ASSERT_TRUE(shows("-> "));
  for (int i = 0; i < 70; ++i) {
    interface_->showRun({"chassis time", 1, 2});
    usleep(10000);
  }
  EXPECT_EQ(terminal_.shown(), "");
}

TEST_F(AtATerminal, CtrlDLeaves) {
  terminal_.type("\x04");
  EXPECT_TRUE(comes([this] { return interface_->ended(); }));
  EXPECT_EQ(interface_->status(), 0);
}

TEST_F(AtATerminal, TheHistoryIsKept) {
  EXPECT_EQ(answerTo("test_bit \"04\", 2"), "value = 1 = 0x1\n");
  EXPECT_EQ(answerTo(" "), "");
  open();
  EXPECT_EQ(answerTo(backOneLine), "value = 1 = 0x1\n");
}

TEST_F(AtATerminal, AFileThatIsNoHistoryIsLeftAlone) {
  interface_.reset();
  history_ = folder_.write("letters", "somebody's letters\n");
  open();
  EXPECT_TRUE(shows("is no history; it is left as it is\r\n"));
  interface_.reset();
  EXPECT_EQ(folder_.read("letters"), "somebody's letters\n");
}

TEST_F(AtATerminal, AnotherWidthHoldsForWhatComesNext) {
  winsize size{};
  size.ws_row = 50;
  size.ws_col = 30;
  ioctl(STDOUT_FILENO, TIOCSWINSZ, &size);
  std::raise(SIGWINCH);
  interface_->waitUntil(0);
  interface_->show("words that do not fit into one row of it\n");
  EXPECT_TRUE(shows("words that do not fit into one\r\n"));
}

}  // namespace
}  // namespace chassis
