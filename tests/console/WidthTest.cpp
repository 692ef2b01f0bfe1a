// What the program shows at terminals of several widths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Terminal.h"

namespace console {
namespace {

namespace fs = std::filesystem;

constexpr unsigned short wide = 400;

const std::string script =
    "cardInsert 0, \"build/samples/headend.ts\"\nprogAssign 0, 101, 1\nprogAssign 0, 102, 1\n"
    "progAssign 0, 103, 2\ncamInsert 0, 0, 0x0500\nwait 12\ncamDeaf 0, 0, 1\nwait 40\n"
    "note \"the end of the history\"\nwait 1\n";

using Words = std::vector<std::string>;

Words wordsOf(const std::string &row) {
  std::istringstream stream(row);
  return {std::istream_iterator<std::string>(stream), {}};
}

// The lines as the program wrote them, without the prompt that each one takes the place of.
std::vector<std::string> written(const std::string &all) {
  std::vector<std::string> lines;
  std::istringstream stream(all);
  for (std::string line; std::getline(stream, line);) {
    const std::size_t erased = line.rfind("\033[J");
    line.erase(0, erased == std::string::npos ? 0 : erased + 3);
    line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
    lines.push_back(line);
  }
  return lines;
}

class Screen : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "ci-width-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::create_directory_symlink(CONSOLE_BUILD, folder_ + "/build");
    std::ofstream(folder_ + "/script", std::ios::binary) << script;
  }
  void TearDown() override { fs::remove_all(folder_); }

  struct Run {
    std::vector<std::string> rows;   // folded as a terminal of that width folds them
    std::vector<std::string> lines;  // as they were written
  };

  Run play(unsigned short columns) {
    Terminal terminal(folder_, {"--script", "script", "--speed", "max", "--for", "53"}, {columns});
    EXPECT_EQ(terminal.endStatus(), 0);
    return {terminal.screen(), written(terminal.all())};
  }

  std::string folder_;
};

// The words in their order, up to the row with some that are the last.
Words history(const std::vector<std::string> &rows,
              const std::string &last = "the end of the history") {
  Words words;
  for (const std::string &row : rows) {
    const Words own = wordsOf(row);
    words.insert(words.end(), own.begin(), own.end());
    if (row.find(last) != std::string::npos) {
      return words;
    }
  }
  return {};
}

std::size_t widest(const std::vector<std::string> &rows) {
  std::size_t columns = 0;
  for (const std::string &row : rows) {
    columns = std::max(columns, row.size());
  }
  return columns;
}

bool has(const std::vector<std::string> &rows, const std::string &begin) {
  return std::any_of(rows.begin(), rows.end(),
                     [&begin](const std::string &row) { return row.rfind(begin, 0) == 0; });
}

class Width : public Screen, public testing::WithParamInterface<unsigned short> {};
INSTANTIATE_TEST_SUITE_P(Screen, Width, testing::Values(80, 100, 120, 200));

TEST_P(Width, NothingOfTheTimelineBreaksInsideAWord) {
  const Words all = history(play(wide).rows);
  ASSERT_GT(all.size(), 200u);
  EXPECT_EQ(history(play(GetParam()).rows), all);
}

TEST_P(Width, TheTablesFit) {
  const std::vector<std::string> rows = play(GetParam()).lines;
  EXPECT_LE(widest(rows), GetParam());
  EXPECT_TRUE(has(rows, "program  name          PID     stream        CAM "));
  EXPECT_TRUE(has(rows, "101      Laboratory 1  0x1001  MPEG-2 video  0 "));
  const auto seen = [&rows](const std::string &begin) {
    return std::any_of(rows.begin(), rows.end(), [&begin](const std::string &row) {
      return row.rfind(begin, 0) == 0 && row.find("seen behind the CAMs") != std::string::npos;
    });
  };
  EXPECT_EQ(seen("program "), GetParam() == 200);
  EXPECT_EQ(seen("    "), GetParam() != 200);
}

TEST_P(Width, StatusAndHelpFit) {
  Terminal terminal(folder_, {"--script", "script", "--speed", "20"}, {GetParam()});
  ASSERT_TRUE(terminal.sees("CI controller in sync"));
  terminal.type("help\r");
  EXPECT_TRUE(terminal.sees("alarmFail"));
  terminal.type("status\r");
  EXPECT_TRUE(terminal.sees("CI controller"));
  terminal.type("status 0\r");
  EXPECT_TRUE(terminal.sees("ECM PIDs"));
  terminal.type("alarms\rexit\r");
  EXPECT_EQ(terminal.endStatus(), 0);
  EXPECT_LE(widest(written(terminal.all())), GetParam());
}

// What --help shows of a program at a terminal.
std::vector<std::string> helpOf(const std::string &program, unsigned short columns) {
  TerminalKind kind{columns};
  kind.program = CONSOLE_BUILD + std::string("/") + program;
  Terminal terminal(".", {"--help"}, kind);
  EXPECT_EQ(terminal.endStatus(), 0);
  return written(terminal.all());
}

class Help : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(Screen, Help, testing::Values("ci-chassis", "ts-scramble", "ts-join"));

TEST_P(Help, FitsAndSaysAll) {
  const std::vector<std::string> all = helpOf(GetParam(), wide);
  for (const unsigned short columns : {60, 80}) {
    const std::vector<std::string> fitting = helpOf(GetParam(), columns);
    EXPECT_LE(widest(fitting), columns);
    EXPECT_GT(fitting.size(), all.size());
    EXPECT_TRUE(has(fitting, "Exit statuses:"));
    EXPECT_TRUE(has(fitting, "  4    the program itself failed"));
  }
  EXPECT_EQ(history(helpOf(GetParam(), 80), "--version"), history(all, "--version"));
}

TEST_F(Screen, WhatComesNextHasTheNewWidth) {
  Terminal terminal(folder_, {"--speed", "20"});
  ASSERT_TRUE(terminal.sees("-> "));
  terminal.type("help caPMTSend\r");
  ASSERT_TRUE(terminal.sees("caPMTSend slot, cam, casid, program, flag"));
  ASSERT_TRUE(terminal.sees("-> "));
  const std::size_t before = terminal.all().size();
  terminal.resize(60);
  terminal.type("help\r");
  EXPECT_TRUE(terminal.sees("alarmFail"));
  ASSERT_TRUE(terminal.sees("-> "));
  const std::vector<std::string> rows = written(terminal.all().substr(before));
  EXPECT_GT(rows.size(), 50u);
  EXPECT_LE(widest(rows), 60u);
  terminal.resize(wide);
  terminal.type("help progAssign\r");
  EXPECT_TRUE(terminal.sees("gives a program, or all (*), to CAM 0 (mask 1), CAM 1 (2), both (3)"));
}

// A line of JSON that is broken is none.
TEST_F(Screen, WhatIsForProgramsIsNotBroken) {
  Terminal terminal(folder_,
                    {"--script", "script", "--speed", "max", "--for", "3", "--events", "-"}, {80});
  EXPECT_EQ(terminal.endStatus(), 0);
  std::size_t lines = 0;
  for (const std::string &line : written(terminal.all())) {
    EXPECT_EQ(line.front(), '{') << line;
    EXPECT_EQ(line.back(), '}') << line;
    ++lines;
  }
  EXPECT_GT(lines, 5U);
}

// The stream is short, so nothing is told of how far its reading is.
TEST_F(Screen, TheFirstLinesHaveNoProgress) {
  Terminal terminal(folder_, {"--script", "script", "--speed", "max"}, {80});
  ASSERT_TRUE(terminal.sees("the end of the history"));
  EXPECT_EQ(terminal.all().find("100 %"), std::string::npos);
  terminal.type("exit\n");
  EXPECT_EQ(terminal.endStatus(), 0);
}

// What a script's errors say fits too.
TEST_F(Screen, ErrorsFitTheTerminal) {
  std::ofstream(folder_ + "/wrong") << "cardInsert 0, \"a-file-that-is-not-there.ts\"\n";
  Terminal terminal(folder_, {"--script", "wrong"}, {80});
  EXPECT_EQ(terminal.endStatus(), 2);
  const std::vector<std::string> lines = written(terminal.all());
  EXPECT_GT(lines.size(), 1U);
  for (const std::string &line : lines) {
    EXPECT_LE(line.size(), 80U) << line;
  }
}

}  // namespace
}  // namespace console
