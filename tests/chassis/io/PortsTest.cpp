#include "io/Ports.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Datagrams.h"
#include "base/InputError.h"
#include "chassis/Folder.h"

namespace chassis {
namespace {

Url inputOf(const std::string &text) {
  return readUrl(text, Url::Use::Input);
}

class PortsTest : public testing::Test {
 protected:
  std::string error(const std::string &text) {
    try {
      ports.openInput(inputOf(text), nullptr);
    } catch (const InputError &error) {
      return error.what();
    }
    return "";
  }

  testing_files::Folder folder;
  Loop loop;
  Clock clock;
  Files files;
  Ports ports{loop, clock, files};
};

TEST_F(PortsTest, AFileIsPlayedAndAllElseIsLive) {
  EXPECT_TRUE(isPlayed(inputOf(folder.write("a.ts", "x"))));
  EXPECT_TRUE(isPlayed(inputOf(folder.at("nowhere.ts")))) << "a file that is missing";
  EXPECT_FALSE(isPlayed(inputOf(folder.fifo("fifo"))));
  EXPECT_FALSE(isPlayed(inputOf("/dev/zero")));
  EXPECT_FALSE(isPlayed(inputOf("-")));
  EXPECT_FALSE(isPlayed(inputOf("udp://127.0.0.1:9")));
}

TEST_F(PortsTest, OpensWhatIsNamed) {
  const std::string url = "udp://127.0.0.1:" + std::to_string(testing_datagrams::freePort());
  EXPECT_EQ(ports.openInput(inputOf(url), nullptr)->due(0), 0U);
  EXPECT_EQ(ports.openInput(inputOf(folder.fifo("fifo")), [](const Event &) {})->due(0), 0U);
  const auto network = ports.openOutput(readUrl(url, Url::Use::Output), "the output");
  EXPECT_EQ(network->name(), url);
  EXPECT_EQ(network->patienceMs(), 50U);
  const std::string path = folder.at("out.ts");
  EXPECT_EQ(ports.openOutput(readUrl(path, Url::Use::Output), "the output")->name(), path);
  EXPECT_THROW(files.read("somebody", path), InputError) << "it is written";
}

TEST_F(PortsTest, StandardInputIsAStreamUnlessItIsSomebodys) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  EXPECT_EQ(error("-"), "");
  ports.reserveStandardInput("the script");
  EXPECT_EQ(error("-"),
            "'-' is standard input, which is read as the script; give a file, a FIFO or an URL");
}

}  // namespace
}  // namespace chassis
