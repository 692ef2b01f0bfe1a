// What goes to programs beside the timeline or in place of it: --events, --status-json.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "Run.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

const std::string script = "cardInsert 0, \"in.ts\"\nnote \"hello\"\nwait 1\n";
constexpr int unexpected = 1;
constexpr int badInput = 2;
constexpr int lost = 3;
constexpr int terminated = 128 + 15;

class ForPrograms : public Run {
 protected:
  void SetUp() override {
    Run::SetUp();
    stream_ = readFile(std::string(E2E_BUILD) + "/samples/headend.ts");
    write("in.ts", stream_);
  }

  std::string text(const std::string &name) const {
    const Bytes bytes = read(name);
    return {bytes.begin(), bytes.end()};
  }
  void expectRefused(const std::string &arguments, const std::string &why) {
    const Result result = runScript(script, arguments);
    EXPECT_EQ(result.status, badInput) << arguments;
    EXPECT_EQ(result.out, "") << arguments;
    EXPECT_EQ(result.err, "ci-chassis: " + why + "\n");
    EXPECT_EQ(read("in.ts"), stream_);
  }

  Bytes stream_;
};

TEST_F(ForPrograms, AFileIsWrittenBesideTheTimelineWhichStaysAsItIs) {
  const Result without = runScript(script);
  const Result with = runScript(script, "--events events --status-json status");
  EXPECT_EQ(with.status, 0) << with.err;
  EXPECT_EQ(with.out, without.out);
  const Lines events = linesOf(text("events"));
  ASSERT_EQ(events.size(), linesWith(without.out, "00:00:0").size() - 1);  // the table's headline
  EXPECT_NE(events[1].find("\"kind\":\"remark\""), std::string::npos) << events[1];
  EXPECT_NE(text("status").find("\"chassis_ms\": 1000"), std::string::npos);
}

TEST_F(ForPrograms, NoFileOfTheRunIsOverwritten) {
  fs::create_hard_link(path("in.ts"), path("hard.ts"));
  const std::string why =
      "'hard.ts' is the stream of script line 1 (as 'in.ts'); another file is needed";
  expectRefused("--events hard.ts", why);
  expectRefused("--status-json hard.ts", why);
  expectRefused("--status-json script", "'script' is the script; another file is needed");
  expectRefused("--events x --status-json x", "'x' is the file of events; another file is needed");
  expectRefused("--events x --output 0:x", "'x' is the file of events; another file is needed");
  EXPECT_FALSE(fs::exists(path("x")));
}

TEST_F(ForPrograms, WhatCannotBeWrittenIsToldBeforeTheRun) {
  const std::string directory = "it is no file; a file, a FIFO or a character device is needed";
  expectRefused("--events .", "'.' cannot be written: " + directory);
  expectRefused("--status-json .", "'.' cannot be written: " + directory);
  expectRefused("--events no/file", "'no/file' cannot be written: No such file or directory");
  expectRefused("--status-json no/file", "'no/file' cannot be written: No such file or directory");
}

TEST_F(ForPrograms, AVariableThatIsNotSetIsNoFile) {
  for (const char *option : {"--events", "--status-json"}) {
    const Result result = runScript(script, std::string(option) + " ''");
    EXPECT_EQ(result.status, badInput);
    EXPECT_EQ(result.err, std::string("ci-chassis: ") + option +
                              ": the name is empty; write the name of a file\n");
  }
}

TEST_F(ForPrograms, ALostStatusHidesNothingOfTheRun) {
  const Result result =
      runScript(script + "expectAlarm 0, 0, \"CAM absent\"\n", "--status-json /dev/full");
  EXPECT_EQ(result.status, unexpected) << result.err;
  EXPECT_EQ(linesOf(result.err).size(), 2U) << result.err;
  EXPECT_NE(result.out.find("no alarm stands"), std::string::npos) << "the table is missing";
}

TEST_F(ForPrograms, WhatIsNotAsExpectedIsAnEvent) {
  const Result result =
      runScript(script + "expectAlarm 0, 0, \"CAM absent\"\nexpectAlarm 0, 1, \"CAM absent\"",
                "--for 0.5 --events events");
  EXPECT_EQ(result.status, unexpected);
  EXPECT_EQ(result.err,
            "ci-chassis: script:4: expected expectAlarm 0, 0, \"CAM absent\", but the run ends "
            "before this line\n"
            "ci-chassis: script:5: expected expectAlarm 0, 1, \"CAM absent\", but the run ends "
            "before this line\n");
  EXPECT_EQ(linesWith(text("events"), "\"kind\":\"not_as_expected\"").size(), 2U);
  EXPECT_EQ(linesWith(result.out, "NOT as expected: expectAlarm 0, 0, \"CAM absent\"").size(), 1U);
}

TEST_F(ForPrograms, StandardOutputIsForOneAtATime) {
  const std::string both = " both write standard output; give a file in place of -";
  expectRefused("--events - --status-json -", "--events - and --status-json -" + both);
  expectRefused("--events - --console", "--events - and --console" + both);
  expectRefused("--status-json - --console", "--status-json - and --console" + both);
}

TEST_F(ForPrograms, AnOldFileGoesOnlyWhenThereIsSomethingNew) {
  write("events", "old");
  write("status", "old");
  const Result refused = runScript("nonsense\n", "--events events --status-json status");
  EXPECT_EQ(refused.status, badInput);
  EXPECT_EQ(text("events"), "old");
  EXPECT_EQ(text("status"), "old");
  EXPECT_EQ(runScript(script, "--events events --status-json status").status, 0);
  EXPECT_EQ(text("events").front(), '{');
  EXPECT_EQ(text("status").front(), '{');
  EXPECT_EQ(text("status").find("old"), std::string::npos);
}

TEST_F(ForPrograms, WhatIsLostIsToldAndEndsTheRunWithItsStatus) {
  const Result events = runScript(script, "--events /dev/full");
  EXPECT_EQ(events.status, lost);
  EXPECT_EQ(linesWith(events.out, "the file of events is not whole").size(), 1U) << events.out;
  EXPECT_NE(events.err.find("'/dev/full', the file of events, is not whole: "), std::string::npos)
      << events.err;
  EXPECT_NE(events.err.find(" bytes lost: No space left on device\n"), std::string::npos);
  const Result status = runScript(script, "--status-json /dev/full");
  EXPECT_EQ(status.status, lost);
  EXPECT_EQ(status.err, "ci-chassis: '/dev/full' is not whole: No space left on device\n");
}

TEST_F(ForPrograms, AReaderOfAFifoGetsEveryEvent) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  write("script", script);
  const Result result = command("timeout 60 cat fifo > got & " + program +
                                " --script script --speed max --events fifo > shown && wait");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(linesOf(text("got")).size() + 1, linesWith(text("shown"), "00:00:0").size());
}

TEST_F(ForPrograms, TheStatusIsWrittenAlsoWhenAPersonEndsTheRun) {
  write("script", script + "wait 100000\n");
  const Result result =
      command(program +
              " --script script --status-json status > shown & chassis=$!; "
              "for i in $(seq 600); do grep -q hello shown && break; sleep 0.1; done; "
              "kill $chassis; wait $chassis");
  EXPECT_EQ(result.status, terminated) << result.err;
  EXPECT_EQ(text("status").front(), '{');
}

}  // namespace
}  // namespace e2e
