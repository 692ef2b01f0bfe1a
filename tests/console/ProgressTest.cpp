// How far a run is that takes long although it does not keep a pace.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>

#include "Terminal.h"

namespace console {
namespace {

namespace fs = std::filesystem;

constexpr int hours = 277;

class Progress : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "ci-progress-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    std::ofstream script(folder_ + "/script", std::ios::binary);
    for (int hour = 1; hour <= hours; ++hour) {
      script << "wait 3600\nnote \"hour " << hour << "\"\n";
    }
  }
  void TearDown() override { fs::remove_all(folder_); }

  // Where standard input and error are; null: at the terminal.
  std::unique_ptr<Terminal> start(const char *input, const char *errors,
                                  const std::vector<std::string> &more = {}) {
    TerminalKind kind{100};
    kind.input = input;
    kind.errors = errors;
    std::vector<std::string> arguments{"--script", "script", "--speed", "max"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return std::make_unique<Terminal>(folder_, arguments, kind);
  }

  std::string folder_;
};

const std::regex progress(
    R"(chassis time \d+:\d\d:\d\d of 277:00:00, \d+ times as fast as real time: \d+ %)");
const std::regex note(R"(\d+:00:00\.000  chassis        hour \d+ *)");

// The timeline stands as if there were no progress, and none is left of it.
TEST_F(Progress, IsTheLastLineOfATerminalWithoutAPrompt) {
  const auto terminal = start("/dev/null", nullptr);
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(terminal->sees(" times as fast as real time: "));
    ASSERT_TRUE(terminal->sees("hour"));
  }
  EXPECT_TRUE(std::regex_search(terminal->all(), progress));
  terminal->signal(SIGTERM);
  EXPECT_EQ(terminal->endStatus(), 143);
  std::size_t notes = 0;
  for (const std::string &row : terminal->screen()) {
    EXPECT_EQ(row.find("real time"), std::string::npos) << row;
    const bool isNote = row.find("hour") != std::string::npos;
    EXPECT_TRUE(!isNote || std::regex_match(row, note)) << row;
    notes += isNote ? 1 : 0;
  }
  EXPECT_GE(notes, 3U);
}

// Those that run the longest while another one shows it.
TEST_F(Progress, IsNotShownInAPipeNorBesideAPrompt) {
  const auto piped = start("/dev/null", "err.txt");
  const auto prompt = start(nullptr, nullptr);
  ASSERT_TRUE(piped->sees("hour 1"));
  ASSERT_TRUE(prompt->sees("hour 1"));
  const auto shown = start("/dev/null", nullptr);
  ASSERT_TRUE(shown->sees(" times as fast as real time: "));
  for (Terminal *terminal : {piped.get(), prompt.get()}) {
    terminal->signal(SIGTERM);
    EXPECT_EQ(terminal->endStatus(), 143);
    EXPECT_EQ(terminal->all().find("real time"), std::string::npos);
  }
  EXPECT_EQ(fs::file_size(folder_ + "/err.txt"), 0U);
}

TEST_F(Progress, CountsToTheEndOfTheRun) {
  const auto terminal = start("/dev/null", nullptr, {"--for", "900000"});
  EXPECT_TRUE(terminal->sees(" of 250:00:00, "));
  terminal->signal(SIGTERM);
  EXPECT_EQ(terminal->endStatus(), 143);
}

}  // namespace
}  // namespace console
