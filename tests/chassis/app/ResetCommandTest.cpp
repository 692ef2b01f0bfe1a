#include "app/ResetCommand.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "chassis/Folder.h"
#include "chassis/RecordedEvents.h"

namespace chassis {
namespace {

using testing_events::RecordedEvents;

// Until it is so, for a minute at most.
template <typename Condition>
bool becomes(const Condition &condition) {
  for (int i = 0; i < 6000 && !condition(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

class ResetCommandTest : public testing::Test {
 protected:
  bool tells(ResetCommand &command) {
    return becomes([&] {
      command.look();
      return !events.lines.empty();
    });
  }
  std::string written() const { return folder.read("ran"); }

  RecordedEvents events;
  testing_files::Folder folder;
  const std::string path = folder.at("ran");
};

TEST_F(ResetCommandTest, RunsInTheShell) {
  ResetCommand command("echo $((1 + 1)) >> " + path, events);
  command.run();
  EXPECT_TRUE(becomes([this] { return written() == "2\n"; }));
}

TEST_F(ResetCommandTest, WithoutACommandNothingRuns) {
  ResetCommand command("", events);
  command.run();
  command.look();
  EXPECT_TRUE(events.lines.empty());
}

TEST_F(ResetCommandTest, ThereIsOneAtATime) {
  const std::string go = folder.at("go");
  ResetCommand command(
      "echo x >> " + path + "; until [ -e " + go + " ]; do sleep 0.01; done; exit 1", events);
  command.run();
  ASSERT_TRUE(becomes([this] { return written() == "x\n"; }));
  command.run();
  std::ofstream(go).put('x');
  EXPECT_TRUE(tells(command));
  EXPECT_EQ(written(), "x\n");
  command.run();
  EXPECT_TRUE(becomes([this] { return written() == "x\nx\n"; })) << "and then the next";
  events.lines.clear();
  EXPECT_TRUE(tells(command));
}

TEST_F(ResetCommandTest, HowItFailedIsTold) {
  ResetCommand failing("exit 3", events);
  failing.run();
  EXPECT_TRUE(tells(failing));
  ResetCommand killed("kill -9 $$", events);
  killed.run();
  EXPECT_TRUE(becomes([&] {
    killed.look();
    return events.lines.size() == 2;
  }));
  EXPECT_EQ(events.lines,
            (std::vector<std::string>{"the command of --on-reset failed: exit status 3",
                                      "the command of --on-reset failed: ended by signal 9"}));
}

}  // namespace
}  // namespace chassis
