// The prompt at a pseudo-terminal.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "Terminal.h"

namespace console {
namespace {

namespace fs = std::filesystem;

const std::string backOneLine = "\x10";
const std::string killLine = "\x15";
const std::string backOneCharacter = "\x02";
const std::string rubOut = "\x7f";
const std::string deleteKey = "\033[3~";
const std::string interrupt = "\x03";

class Prompt : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "ci-console-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::create_directory_symlink(CONSOLE_BUILD, folder_ + "/build");
  }
  void TearDown() override { fs::remove_all(folder_); }

  void write(const std::string &name, const std::string &text) const {
    std::ofstream(folder_ + "/" + name, std::ios::binary) << text;
  }
  std::string read(const std::string &name) const {
    std::ifstream file(folder_ + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string folder_;
};

bool isReady(Terminal &terminal) {
  return terminal.sees("leaves\r\n") && terminal.sees("-> ");
}

bool hasRow(const Terminal &terminal, const std::string &row) {
  const std::vector<std::string> rows = terminal.screen();
  return std::find(rows.begin(), rows.end(), row) != rows.end();
}

TEST_F(Prompt, AnswersCallsOfTheModule) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("test_bit(\"04\", 2)\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("TIME_RESET = 0xEA60\r");
  EXPECT_TRUE(terminal.sees("value = 60000 = 0xea60"));
  terminal.type("ci_Help\r");
  EXPECT_TRUE(terminal.sees("void printCiCard(slotNo)"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, TheChassisGoesOnWhileNobodyTypes) {
  write("script", "wait 1\nnote \"first\"\nwait 1\nnote \"second\"\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "20"});
  EXPECT_TRUE(terminal.sees("first"));
  EXPECT_TRUE(terminal.sees("second"));
  terminal.type("status\r");
  EXPECT_TRUE(terminal.sees("no card is in"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, ALineBeingTypedIsRedrawnWhole) {
  write("script", "wait 3\nnote \"in between\"\nwait 1\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("test_bit \"FF\"");
  ASSERT_TRUE(terminal.sees("in between"));
  ASSERT_TRUE(terminal.sees("-> test_bit \"FF\""));
  EXPECT_EQ(terminal.screen().back(), "-> test_bit \"FF\"");
  terminal.type(", 7\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  EXPECT_TRUE(hasRow(terminal, "-> test_bit \"FF\", 7"));
  const std::vector<std::string> rows = terminal.screen();
  EXPECT_EQ(std::count_if(rows.begin(), rows.end(),
                          [](const std::string &row) {
                            return row.find("in between") != std::string::npos &&
                                   row.find("->") == std::string::npos;
                          }),
            1);
}

TEST_F(Prompt, HalfAnEscapeSequenceDoesNotStopTheChassis) {
  write("script", "wait 3\nnote \"still here\"\nwait 1\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("abc\033[");
  EXPECT_TRUE(terminal.sees("still here"));
  terminal.type("D\b\rexit\r");
  EXPECT_TRUE(terminal.sees("there is no function or variable ac"));
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, CompletesNames) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("camSt\t");
  EXPECT_TRUE(terminal.sees("atusCheck "));
  EXPECT_EQ(terminal.screen().back(), "-> camStatusCheck ");
  terminal.type(killLine + "TIME_\t");
  EXPECT_TRUE(terminal.sees("TIME_FIRST_RESET"));
  EXPECT_TRUE(terminal.sees("-> TIME_"));
  terminal.type(killLine + "getCA\t0\r");
  EXPECT_TRUE(terminal.sees("no card has registered in slot 0"));
  EXPECT_TRUE(hasRow(terminal, "-> getCAinfo 0"));
}

TEST_F(Prompt, KeepsItsHistoryAcrossRuns) {
  {
    Terminal first(folder_, {"--speed", "20"});
    ASSERT_TRUE(isReady(first));
    first.type("TIME_CAPMT = 4711\rexit\r");
    ASSERT_EQ(first.endStatus(), 0);
  }
  Terminal second(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(second));
  second.type(backOneLine + backOneLine + "\r");
  EXPECT_TRUE(second.sees("value = 4711"));
}

TEST_F(Prompt, TheHistoryIsBounded) {
  Terminal terminal(folder_, {"--speed", "50"});
  ASSERT_TRUE(isReady(terminal));
  for (int i = 0; i < 520; ++i) {
    terminal.type("TIME_CAPMT = " + std::to_string(i) + "\r");
  }
  ASSERT_TRUE(terminal.sees("value = 519"));
  terminal.type("exit\r");
  ASSERT_EQ(terminal.endStatus(), 0);
  const std::string history = read("history");
  EXPECT_LE(std::count(history.begin(), history.end(), '\n'), 501);
  EXPECT_NE(history.find("519"), std::string::npos);
}

TEST_F(Prompt, AFileThatIsNoHistoryIsLeftAlone) {
  write("history", "somebody's letters\n");
  Terminal terminal(folder_, {"--speed", "20"});
  EXPECT_TRUE(terminal.sees("is no history; it is left as it is"));
  terminal.type("status\rexit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
  EXPECT_EQ(read("history"), "somebody's letters\n");
}

TEST_F(Prompt, CtrlDEnds) {
  write("script", "cardInsert 0, \"build/samples/headend.ts\"\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "20"});
  ASSERT_TRUE(terminal.sees("cardInsert"));
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("\x04");
  EXPECT_EQ(terminal.endStatus(), 0);
  EXPECT_TRUE(terminal.sees("seen behind the CAMs"));
}

TEST_F(Prompt, BeginsWithHowToGetHelpAndHowToLeave) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  const std::vector<std::string> rows = terminal.screen();
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows[0], "help lists what can be typed, Tab completes it; exit, quit or Ctrl-D leaves");
  terminal.type("quit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, CtrlCTwiceEndsWithTheFinalTable) {
  write("script", "cardInsert 0, \"build/samples/headend.ts\"\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "20"});
  ASSERT_TRUE(terminal.sees("cardInsert"));
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.sees("exit, quit or Ctrl-D leaves, and so does Ctrl-C once more\r\n"));
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type(interrupt);
  EXPECT_EQ(terminal.endStatus(), 130);
  EXPECT_TRUE(terminal.sees("seen behind the CAMs"));
}

TEST_F(Prompt, CtrlCEmptiesTheLine) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("half a line" + backOneCharacter);
  ASSERT_TRUE(terminal.sees("half a line\b"));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.sees("-> "));
  EXPECT_EQ(terminal.screen().back(), "-> ");
  terminal.type("test_bit \"04\", 2\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  EXPECT_FALSE(hasRow(terminal, "-> half a line"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, CtrlDEndsAtAnEmptyLineOnly) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("test_bit \"04\", 2x" + backOneCharacter + "\x04\r" + deleteKey);
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("test_bit \"02\", 1\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("\x04");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, OnlyCtrlCTwiceInARowEnds) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  for (int i = 0; i < 3; ++i) {
    terminal.type(interrupt);
    ASSERT_TRUE(terminal.sees("once more"));
    ASSERT_TRUE(terminal.sees("-> "));
    terminal.type("test_bit \"04\", 2\r");
    ASSERT_TRUE(terminal.sees("value = 1 = 0x1"));
  }
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, CtrlCBreaksAWaitOff) {
  Terminal terminal(folder_, {"--speed", "1"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("wait 1000\r");
  ASSERT_TRUE(terminal.sees("wait 1000\r\n-> "));
  terminal.type("TIME_RESET = 4711\r");
  ASSERT_TRUE(terminal.sees("4711\r\n-> "));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.sees("broken off"));
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("test_bit \"04\", 2\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
  EXPECT_EQ(terminal.all().find("value = 4711"), std::string::npos);
}

TEST_F(Prompt, CompletesFilesInsideQuotes) {
  fs::create_directory(folder_ + "/Aufnahmen 日本");
  write("Aufnahmen 日本/a \"b\".ts", "");
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("cardInsert 0, \"Au\t");
  ASSERT_TRUE(terminal.sees("本/"));
  terminal.type("\t");
  ASSERT_TRUE(terminal.sees(".ts\""));
  EXPECT_EQ(terminal.screen().back(), R"(-> cardInsert 0, "Aufnahmen 日本/a \"b\".ts")");
  terminal.type("\r");
  EXPECT_TRUE(terminal.sees("'Aufnahmen 日本/a \"b\".ts' is empty"));
}

TEST_F(Prompt, WideCharactersAreEdited) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"日本語🙂\"");
  ASSERT_TRUE(terminal.sees("🙂\""));
  terminal.type(backOneCharacter + backOneCharacter + backOneCharacter + "xy");
  ASSERT_TRUE(terminal.sees("y"));
  EXPECT_EQ(terminal.screen().back(), "-> note \"日本xy語🙂\"");
  terminal.type(rubOut + rubOut + rubOut + "z");
  ASSERT_TRUE(terminal.sees("z"));
  EXPECT_EQ(terminal.screen().back(), "-> note \"日z語🙂\"");
  terminal.type("\r");
  EXPECT_TRUE(terminal.sees("chassis        日z語🙂"));
}

// Accents that combine go with their letter, wherever the line is drawn anew.
TEST_F(Prompt, CombiningCharactersAreEdited) {
  write("script", "wait 4\nnote \"in between\"\nwait 1\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"ae\u0301o\u0308\"");
  ASSERT_TRUE(terminal.sees("in between"));
  ASSERT_TRUE(terminal.sees("o\u0308\""));
  EXPECT_EQ(terminal.screen().back(), "-> note \"ae\u0301o\u0308\"");
  terminal.type("\033[D\033[D" + rubOut + "1");
  ASSERT_TRUE(terminal.sees("1"));
  EXPECT_TRUE(terminal.comesTo("-> note \"a1o\u0308\"", 11));
  terminal.type(deleteKey + "2");
  ASSERT_TRUE(terminal.sees("2"));
  EXPECT_EQ(terminal.screen().back(), "-> note \"a12\"");
  terminal.type("\033[D\033[C\r");
  EXPECT_TRUE(terminal.sees("chassis        a12"));
}

// Emoji of several characters are one to move over and to delete, wherever the terminal has them.
TEST_F(Prompt, EmojiAreEditedAsAPersonSeesThem) {
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
  const std::string flag = "\U0001F1E9\U0001F1EA";
  const std::string thumb = "\U0001F44D\U0001F3FD";
  const std::string heart = "\u2764\uFE0F";
  const std::string left = "\033[D";
  for (const bool joins : {false, true}) {
    TerminalKind kind{100};
    kind.joins = joins;
    const std::size_t thumbCells = joins ? 2 : 4;
    const std::size_t heartCells = joins ? 2 : 1;
    const std::size_t familyCells = joins ? 2 : 6;
    Terminal terminal(folder_, {"--speed", "20"}, kind);
    ASSERT_TRUE(isReady(terminal));
    terminal.type("note \"a" + family + "b" + flag + "c" + thumb + heart + "d\"");
    const std::string begin = "-> note \"a" + family + "b" + flag + "c";
    const std::size_t beginCells = 14 + familyCells;
    EXPECT_TRUE(
        terminal.comesTo(begin + thumb + heart + "d\"", beginCells + thumbCells + heartCells + 2));
    terminal.type(left + left + "1" + left + left + "2");
    EXPECT_TRUE(
        terminal.comesTo(begin + thumb + "2" + heart + "1d\"", beginCells + thumbCells + 1));
    terminal.type(left + left + rubOut + rubOut + rubOut);
    EXPECT_TRUE(
        terminal.comesTo("-> note \"a" + family + thumb + "2" + heart + "1d\"", 10 + familyCells));
    terminal.type(rubOut);
    EXPECT_TRUE(terminal.comesTo("-> note \"a" + thumb + "2" + heart + "1d\"", 10));
    terminal.type("\033[C" + deleteKey + deleteKey);
    EXPECT_TRUE(terminal.comesTo("-> note \"a" + thumb + "1d\"", 10 + thumbCells));
    terminal.type("\r");
    EXPECT_TRUE(terminal.sees("chassis        a" + thumb + "1d"));
  }
}

// The cursor behind the last cell of a row stands in the next one.
TEST_F(Prompt, GlyphsUpToTheEndOfARowAreEdited) {
  Terminal terminal(folder_, {"--speed", "20"}, {20, "C.UTF-8"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"e\u0301bcdefghijk");
  EXPECT_TRUE(terminal.comesTo("", 0));
  EXPECT_TRUE(hasRow(terminal, "-> note \"e\u0301bcdefghijk"));
  terminal.type("lm\"" + backOneCharacter + backOneCharacter + backOneCharacter);
  EXPECT_TRUE(terminal.comesTo("lm\"", 0));
  terminal.type(rubOut + "x" + backOneCharacter);
  EXPECT_TRUE(terminal.comesTo("-> note \"e\u0301bcdefghijx", 19));
  terminal.type("\r");
  EXPECT_TRUE(terminal.sees("e\u0301bcdefghijxlm"));
}

// The sixth wide character does not fit the rest of its row, so the cursor stands one row lower
// than the cells that the line has.
TEST_F(Prompt, ALineOfWideCharactersIsRedrawnWhole) {
  write("script", "wait 4\nnote \"in between\"\nwait 1\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"}, {20, "C.UTF-8"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"一二三四五六七八九十一二三四五");
  ASSERT_TRUE(terminal.sees("in between"));
  ASSERT_TRUE(terminal.sees("十一二三四五"));
  const std::vector<std::string> rows = terminal.screen();
  EXPECT_EQ(std::count_if(rows.begin(), rows.end(),
                          [](const std::string &row) { return row.rfind("-> ", 0) == 0; }),
            1);
  EXPECT_TRUE(hasRow(terminal, "-> note \"一二三四五 ") ||
              hasRow(terminal, "-> note \"一二三四五"));
  EXPECT_TRUE(hasRow(terminal, "六七八九十一二三四五"));
}

// The rows from the last prompt on, without blanks behind them, `least` of them or more.
std::vector<std::string> lineOn(const Terminal &terminal, std::size_t least) {
  std::vector<std::string> rows = terminal.screen();
  const auto isPrompt = [](const std::string &row) { return row.rfind("-> ", 0) == 0; };
  const auto prompt = std::find_if(rows.rbegin(), rows.rend(), isPrompt);
  rows.erase(rows.begin(), prompt == rows.rend() ? rows.end() : prompt.base() - 1);
  for (std::string &row : rows) {
    row.erase(row.find_last_not_of(' ') + 1);
  }
  while (rows.size() > least && rows.back().empty()) {
    rows.pop_back();
  }
  rows.resize(std::max(rows.size(), least));
  return rows;
}

// A line of the prompt in a terminal that does not part wide characters at its margin.
class FoldedLine {
 public:
  explicit FoldedLine(std::size_t columns) : columns_(columns) {}

  void insert(const std::wstring &text) {
    text_.insert(at_, text);
    at_ += text.size();
  }
  void moveBack() { at_ -= at_ > 0 ? 1 : 0; }
  void moveOn() { at_ += at_ < text_.size() ? 1 : 0; }
  void rubOut() {
    if (at_ > 0) {
      text_.erase(--at_, 1);
    }
  }

  // The rows, without blanks at their ends, and the cursor's place in them.
  struct Folded {
    std::vector<std::string> rows;
    std::size_t row = 0;
    std::size_t column = 0;
  };
  Folded folded() const {
    Folded folded{{text_.empty() ? "->" : "-> "}, 0, 3};
    std::size_t column = 3;
    for (std::size_t i = 0; i <= text_.size(); ++i) {
      const std::size_t width = i < text_.size() && isWide(text_[i]) ? 2 : 1;
      if (column + width > columns_) {
        folded.rows.emplace_back();
        column = 0;
      }
      if (i == at_) {
        folded.row = folded.rows.size() - 1;
        folded.column = column;
      }
      if (i < text_.size()) {
        folded.rows.back() += width == 2 ? "\u65E5" : "a";
        column += width;
      }
    }
    return folded;
  }

 private:
  static bool isWide(wchar_t c) { return c == L'\u65E5'; }

  const std::size_t columns_;
  std::wstring text_;
  std::size_t at_ = 0;
};

TEST_F(Prompt, WideCharactersAtTheMarginAreEdited) {
  using Line = FoldedLine;
  struct Key {
    std::string bytes;
    void (*act)(Line &);
  };
  const Key narrow{"a", [](Line &line) { line.insert(L"a"); }};
  const Key wide{"\u65E5", [](Line &line) { line.insert(L"\u65E5"); }};
  const Key back{backOneCharacter, [](Line &line) { line.moveBack(); }};
  const std::vector<Key> keys{narrow,
                              narrow,
                              wide,
                              wide,
                              back,
                              back,
                              {"\033[C", [](Line &line) { line.moveOn(); }},
                              {rubOut, [](Line &line) { line.rubOut(); }}};
  for (const unsigned short columns : {20, 21}) {
    Terminal terminal(folder_, {"--speed", "20"}, {columns, "C.UTF-8"});
    ASSERT_TRUE(isReady(terminal));
    Line line(columns);
    std::mt19937 random(columns);
    for (int i = 0; i < 150; ++i) {
      const Key &key = keys[random() % keys.size()];
      terminal.type(key.bytes);
      key.act(line);
      const Line::Folded folded = line.folded();
      const bool shown = terminal.comesTrue([&] {
        return terminal.column() == folded.column &&
               lineOn(terminal, folded.rows.size()) == folded.rows;
      });
      ASSERT_TRUE(shown) << columns << " " << i << ", column " << terminal.column() << " of "
                         << folded.column << testing::PrintToString(terminal.screen());
      ASSERT_TRUE(terminal.comesTo(folded.rows[folded.row], folded.column));
    }
    terminal.type("\x01\r");  // from the beginning of the line its end is still below it
    ASSERT_TRUE(terminal.sees("error:"));
    for (const std::string &row : line.folded().rows) {
      EXPECT_TRUE(hasRow(terminal, row)) << row;
    }
  }
}

// Neither codes of the screen nor of the cursor, whatever is done.
TEST_F(Prompt, ADumbTerminalGetsAPlainLine) {
  write("script", "wait 3\nnote \"in between\"\nwait 1\n");
  TerminalKind kind{60};
  kind.type = "dumb";
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"}, kind);
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"ae\u0301\u65E5\"");
  ASSERT_TRUE(terminal.sees("in between\r\n-> note "));
  ASSERT_TRUE(terminal.sees("\u65E5\""));
  terminal.type(killLine + "stat\tx" + rubOut + backOneCharacter + "\r");
  ASSERT_TRUE(terminal.sees("no card is in\r\n-> "));
  terminal.type("test\t\t");
  ASSERT_TRUE(terminal.sees("test_bit"));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.sees("\r-> "));
  terminal.type("\x1a");
  ASSERT_TRUE(terminal.stops());
  terminal.signal(SIGCONT);
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
  EXPECT_EQ(terminal.all().find('\033'), std::string::npos);
}

TEST_F(Prompt, WithoutALocaleNamesAreUtf8AllTheSame) {
  Terminal terminal(folder_, {"--speed", "20"}, {400, "C"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("note \"Zürich 日本\"\r");
  EXPECT_TRUE(terminal.sees("chassis        Zürich 日本"));
}

TEST_F(Prompt, CtrlZStopsTheChassisAndItGoesOnWithTheLine) {
  write("script", "wait 2\nnote \"later\"\nwait 1\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"});
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("test_bit \"10\"");
  ASSERT_TRUE(terminal.sees("test_bit \"10\""));
  terminal.type("\x1a");
  ASSERT_TRUE(terminal.stops());
  EXPECT_EQ(terminal.all().find("later"), std::string::npos);
  terminal.signal(SIGCONT);
  ASSERT_TRUE(terminal.sees("-> test_bit \"10\""));
  ASSERT_TRUE(terminal.sees("later"));
  terminal.type("\x01x");
  ASSERT_TRUE(terminal.sees("x"));
  EXPECT_EQ(terminal.screen().back(), "-> xtest_bit \"10\"") << "keys edit again";
  terminal.type(rubOut + "\x05, 4\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, SigtermAndAHangUpEndToo) {
  for (const int signal : {SIGTERM, SIGHUP}) {
    Terminal terminal(folder_, {});
    ASSERT_TRUE(isReady(terminal));
    terminal.signal(signal);
    EXPECT_EQ(terminal.endStatus(), 128 + signal);
    EXPECT_TRUE(terminal.sees("no alarm stands"));
  }
}

TEST_F(Prompt, SoDoesCtrlBackslashAndTheTerminalIsAsItWas) {
  Terminal terminal(folder_, {});
  ASSERT_TRUE(isReady(terminal));
  EXPECT_FALSE(terminal.isCooked());
  terminal.type("\x1c");
  EXPECT_EQ(terminal.endStatus(), 131);
  EXPECT_TRUE(terminal.sees("no alarm stands"));
  EXPECT_TRUE(terminal.isCooked());
}

TEST_F(Prompt, ReadingForLongTellsHowFarItIsAndCanBeEnded) {
  write("huge.ts", "");
  fs::resize_file(folder_ + "/huge.ts", 400ULL << 30);
  Terminal terminal(folder_, {});
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("cardInsert 0, \"huge.ts\"\r");
  EXPECT_TRUE(terminal.sees("reading 'huge.ts': "));
  EXPECT_TRUE(terminal.sees(" %\r\n"));
  terminal.signal(SIGTERM);
  EXPECT_EQ(terminal.endStatus(), 143);
}

// Before there is a prompt, it is the program that Ctrl-C ends.
TEST_F(Prompt, ReadingTheScriptsStreamsTellsHowFarItIsAndCanBeEnded) {
  write("huge.ts", "");
  fs::resize_file(folder_ + "/huge.ts", 400ULL << 30);
  write("script", "cardInsert 0, \"huge.ts\"\n");
  Terminal terminal(folder_, {"--script", "script"});
  ASSERT_TRUE(terminal.sees("reading 'huge.ts': "));
  terminal.type("\x1a");
  ASSERT_TRUE(terminal.stops());
  terminal.signal(SIGCONT);
  ASSERT_TRUE(terminal.sees("reading 'huge.ts': "));
  terminal.resize(100);
  terminal.type(interrupt);
  EXPECT_EQ(terminal.endStatus(), 130);
  EXPECT_EQ(terminal.all().find("-> "), std::string::npos);
  EXPECT_EQ(terminal.screen().back().find("reading"), std::string::npos);
}

TEST_F(Prompt, BadInputGetsOneLine) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  terminal.type("camAlarm 6\r");
  EXPECT_TRUE(terminal.sees("error: there is no slot 6; write 0 to 5\r\n"));
  terminal.type("printDesStat 0\r");
  EXPECT_TRUE(terminal.sees("did you mean printDesSta?\r\n"));
  terminal.type("caPMTSend 0, 0\r");
  EXPECT_TRUE(terminal.sees("write caPMTSend slot, cam, casid, program, flag\r\n"));
}

TEST_F(Prompt, AFailingScriptLineLeavesThePromptAlive) {
  const std::string stream = read("build/samples/headend.ts");
  write("short.ts", stream.substr(0, 188 * 400));
  write("script",
        "cardInsert 0, \"short.ts\"\nnote \"waits\"\nwait 1\n"
        "cardInsert 1, \"short.ts\"\nnote \"went on\"\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "1"});
  ASSERT_TRUE(terminal.sees("waits"));
  write("short.ts", "no stream any more");
  EXPECT_TRUE(terminal.sees("error: script:4: 'short.ts'"));
  EXPECT_TRUE(terminal.sees("went on"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

TEST_F(Prompt, WhatIsNotAsTheScriptExpectsIsToldAndGivesTheStatus) {
  write("script",
        "cardInsert 0, \"build/samples/headend.ts\"\nexpectState 0, 101, \"descrambled\"\n");
  Terminal terminal(folder_, {"--script", "script"});
  EXPECT_TRUE(terminal.sees("error: script:2: expected expectState 0, 101, \"descrambled\""));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 1);
}

TEST_F(Prompt, AWrongScriptIsRefusedBeforeThereIsAPrompt) {
  write("script", "cardInsert 0, \"build/samples/headend.ts\"\nprogAssign 0, 9, 1\nexit\n");
  Terminal terminal(folder_, {"--script", "script", "--speed", "20"});
  EXPECT_EQ(terminal.endStatus(), 2);
  EXPECT_TRUE(
      terminal.sees("ci-chassis: script:2: program 9 is not in 'build/samples/headend.ts'"));
  EXPECT_TRUE(terminal.sees("ci-chassis: script:3: exit is console only"));
  EXPECT_EQ(terminal.all().find("-> "), std::string::npos);
}

// Without the bytes that end or stop the program, or the output: Ctrl-C, -D, -Z, -\, -S, -Q.
TEST_F(Prompt, RandomBytesDoNotEndIt) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(isReady(terminal));
  std::mt19937 random(7);
  const std::string left = "\x03\x04\x1a\x1c\x13\x11";
  std::string noise;
  while (noise.size() < 20000) {
    const char byte = static_cast<char>(random());
    noise += left.find(byte) == std::string::npos ? std::string(1, byte) : "\r";
  }
  terminal.type(noise);
  terminal.type("\x07\r\x07" + killLine + "\r" + killLine + "test_bit \"10\", 4\r");
  EXPECT_TRUE(terminal.sees("value = 1 = 0x1"));
  terminal.type("exit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
}

}  // namespace
}  // namespace console
