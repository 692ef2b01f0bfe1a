// What is written is told to be whole only when it is, and nobody's file is overwritten.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <thread>

#include "Run.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

const std::string card = "cardInsert 0, \"in.ts\"\n";
constexpr int lost = 3;
constexpr std::chrono::seconds bound{60};

class Output : public Run {
 protected:
  void SetUp() override {
    Run::SetUp();
    stream_ = readFile(std::string(E2E_BUILD) + "/samples/headend.ts");
    write("in.ts", stream_);
  }

  void expectRefused(const std::string &script, const std::string &arguments,
                     const std::string &why) {
    const Result result = runScript(script, arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(linesOf(result.err).size(), 1U) << result.err;
    EXPECT_NE(result.err.find(why), std::string::npos) << result.err;
    EXPECT_EQ(read("in.ts"), stream_);
  }

  Bytes stream_;
};

TEST_F(Output, IsNeverTheStreamByWhateverName) {
  fs::create_hard_link(path("in.ts"), path("hard.ts"));
  fs::create_symlink("in.ts", path("soft.ts"));
  for (const char *name : {"in.ts", "./in.ts", "hard.ts", "soft.ts"}) {
    expectRefused(card + "wait 1", std::string("--output 0:") + name,
                  "is the stream of script line 1");
    expectRefused("wait 1\n" + card + "wait 1", std::string("--output 3:") + name,
                  "is the stream of script line 2");
  }
}

// As a shell has made it: a pipe, a file that is new or one that goes on.
TEST_F(Output, IsStandardOutputInPlaceOfTheTimeline) {
  write("script", card + "wait 2\n");
  const std::string play = program + " --script script --speed max --output 0:-";
  ASSERT_EQ(runScript(card + "wait 2\n", "--output 0:file.ts").status, 0);
  const Bytes expected = read("file.ts");
  ASSERT_GT(expected.size(), 100000U);
  EXPECT_EQ(command(play + " | cat > piped.ts").err, "");
  EXPECT_EQ(read("piped.ts"), expected);
  EXPECT_EQ(command(play + " > new.ts").status, 0);
  EXPECT_EQ(read("new.ts"), expected);
  EXPECT_EQ(command("printf before > old.ts; " + play + " >> old.ts").status, 0);
  Bytes longer{'b', 'e', 'f', 'o', 'r', 'e'};
  longer.insert(longer.end(), expected.begin(), expected.end());
  EXPECT_EQ(read("old.ts"), longer);
  EXPECT_EQ(command(play + " > /dev/full").status, lost);
}

TEST_F(Output, HasStandardOutputAlone) {
  const Result result = runScript(card + "wait 1\n", "--output 0:- --output 1:-");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "ci-chassis: --output 0:- and --output 1:- both write standard output; give a file in "
            "place of -\n");
}

TEST_F(Output, IsNoStreamThatComesLater) {
  write("other.ts", stream_);
  const std::string script = "cardInsert 0, \"other.ts\"\nwait 2\n";
  expectRefused(script + "cardInsert 1, \"in.ts\"\nwait 1", "--output 0:in.ts",
                "is the stream of script line 3");
}

TEST_F(Output, IsNoOtherOutputAndNotTheScript) {
  expectRefused(card + "wait 1", "--output 0:out.ts --output 1:out.ts", "is the output of slot 0");
  EXPECT_FALSE(fs::exists(path("out.ts")));
  const std::string script = card + "wait 1";
  expectRefused(script, "--output 0:script", "is the script");
  const Bytes left = read("script");
  EXPECT_EQ(std::string(left.begin(), left.end()), script);
}

TEST_F(Output, IsEmptiedByItsFirstPacketAlone) {
  write("out.ts", std::string("a user's own"));
  EXPECT_EQ(runScript("wait 1", "--output 0:out.ts").status, 0);
  expectRefused("cardInsert 0, \"missing.ts\"", "--output 0:out.ts", "missing.ts");
  EXPECT_EQ(read("out.ts").size(), 12U);
  EXPECT_EQ(runScript(card + "wait 1", "--output 0:out.ts").status, 0);
  const Bytes out = read("out.ts");
  ASSERT_GT(out.size(), 188U * 100);
  EXPECT_TRUE(std::equal(out.begin(), out.end(), stream_.begin()));
}

TEST_F(Output, ThatIsFullEndsTheRunWithAStatusOfItsOwn) {
  const Result result = runScript(card + "wait 2", "--output 0:/dev/full");
  EXPECT_EQ(result.status, lost);
  const Lines errors = linesOf(result.err);
  ASSERT_EQ(errors.size(), 1U) << result.err;
  EXPECT_EQ(errors[0].rfind("ci-chassis: '/dev/full', the output of slot 0, is not whole: ", 0),
            0U);
  EXPECT_NE(errors[0].find(" packets lost: No space left on device"), std::string::npos);
  EXPECT_EQ(linesWith(result.out, "the output is not whole").size(), 1U) << result.out;
}

TEST_F(Output, OfTheTimelineIsMissedToo) {
  write("script", card + "wait 2");
  for (const char *arguments : {"--script script --speed max", "--help"}) {
    const Result result = run(std::string(arguments) + " >/dev/full");
    EXPECT_EQ(result.status, lost) << arguments;
    EXPECT_EQ(result.err, "ci-chassis: standard output is not whole: No space left on device\n");
  }
}

// Nothing of the program's own gets into the place of a standard stream that is closed.
TEST_F(Output, OrInputThatIsClosedIsTold) {
  write("script", card + "wait 20");
  const std::string plays = "--script script --speed max --output 0:out.ts ";
  ASSERT_EQ(run(plays).status, 0);
  const Bytes whole = read("out.ts");
  for (const char *closed : {">&-", "<&- >&-", "<&- >&- 2>&-", "2>&- >&-"}) {
    const Result result = command("timeout 60 '" + program + "' " + plays + closed);
    EXPECT_EQ(result.status, lost) << closed;
    EXPECT_EQ(result.out, "") << closed;
    EXPECT_EQ(result.err, std::string(closed).find("2>") != std::string::npos
                              ? ""
                              : "ci-chassis: standard output is not whole: Bad file descriptor\n");
    EXPECT_EQ(read("out.ts"), whole) << closed;
  }
  EXPECT_EQ(run(plays + "<&- 2>&-").status, 0);
  for (const char *reading : {"--console", "--script -"}) {
    const Result result = command("timeout 60 '" + program + "' " + reading + " --speed max <&-");
    EXPECT_EQ(result.status, 2) << reading;
    EXPECT_EQ(result.out, "") << reading;
    EXPECT_EQ(result.err, "ci-chassis: standard input cannot be read: Bad file descriptor\n");
  }
}

// More than a pipe holds, so that somebody has to read it.
std::string manyNotes() {
  std::string notes;
  for (int i = 0; i < 5000; ++i) {
    notes += "note \"" + std::string(100, 'x') + "\"\n";
  }
  return notes;
}

TEST_F(Output, WhoseReaderGoesEndsNoFile) {
  write("script", manyNotes() + card + "wait 20");
  const std::string plays =
      "'" + program + "' --script script --speed max --output 0:out.ts --status-json status.json";
  ASSERT_EQ(command(plays).status, 0);
  const Bytes whole = read("out.ts");
  std::filesystem::remove(path("out.ts"));
  std::filesystem::remove(path("status.json"));
  const Result result = command("{ " + plays + "; echo $? >ended; } | head -n 1");
  EXPECT_EQ(linesOf(result.out).size(), 1U) << result.out;
  EXPECT_EQ(result.err, "ci-chassis: standard output is not whole: Broken pipe\n");
  EXPECT_EQ(read("ended"), (Bytes{'0' + lost, '\n'}));
  EXPECT_EQ(read("out.ts"), whole);
  EXPECT_GT(read("status.json").size(), 100U);
}

// Without a file there is nobody to go on for.
TEST_F(Output, WhoseReaderGoesEndsWhatHasNoEndOfItsOwn) {
  write("script", manyNotes() + "wait 1000000");
  const std::string within = "{ timeout 60 '" + program + "' ";
  const std::string head = "; echo $? >ended; } | head -n 1";
  for (const std::string &line :
       {within + "--script script" + head,
        "yes 'note \"x\"' 2>yes | " + within + "--console --speed max" + head}) {
    const Result result = command(line);
    EXPECT_EQ(linesOf(result.out).size(), 1U) << result.out;
    EXPECT_EQ(result.err, "ci-chassis: standard output is not whole: Broken pipe\n");
    EXPECT_EQ(read("ended"), (Bytes{'0' + lost, '\n'})) << line;
  }
}

TEST_F(Output, LossDoesNotHideThatSomethingIsNotAsExpected) {
  write("script", card + "wait 3\nexpectState 0, 101, \"descrambled\"\n");
  const Result result = run("--script script --speed max >/dev/full");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(linesWith(result.err, "standard output is not whole").size(), 1U) << result.err;
}

// Each clock reference is one tick later than the one before it.
Bytes tooFast(Bytes stream) {
  std::uint8_t ticks = 0;
  for (std::size_t at = 0; at < stream.size(); at += 188) {
    if ((stream[at + 3] & 0x20) != 0 && stream[at + 4] > 0 && (stream[at + 5] & 0x10) != 0) {
      const Bytes clock{0, 0, 0, 0, 0x7E, ++ticks};
      std::copy(clock.begin(), clock.end(), stream.begin() + static_cast<std::ptrdiff_t>(at + 6));
    }
  }
  return stream;
}

TEST_F(Output, LossAndBadInputAreBothTold) {
  // how fast it would have to go only shows when the whole file is read
  write("fast.ts", tooFast(Bytes(stream_.begin(), stream_.begin() + 1500 * 188)));
  const Result result =
      runScript(card + "wait 1\ncardInsert 1, \"fast.ts\"", "--output 0:/dev/full");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(linesWith(result.err, "is not whole").size(), 1U) << result.err;
  EXPECT_EQ(linesWith(result.err, "cannot be played at").size(), 1U) << result.err;
}

// The program running on its own, with signals as from a shell.
class Signals : public Output {
 protected:
  void TearDown() override {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    Output::TearDown();
  }

  void start(const std::vector<std::string> &arguments, int standardOutput) {
    child_ = fork();
    if (child_ != 0) {
      return;
    }
    std::vector<std::string> words{E2E_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    signal(SIGINT, SIG_DFL);  // a shell's background job ignores it
    signal(SIGHUP, SIG_DFL);  // nohup this one
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(standardOutput, STDOUT_FILENO);
    dup2(open(path("err.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    if (chdir(path(".").c_str()) == 0) {
      execv(E2E_PROGRAM, argv.data());
    }
    _exit(127);
  }
  int file(const std::string &name) {
    return open(path(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  }
  bool contains(const std::string &name, const std::string &part) {
    const Bytes all = read(name);
    return std::search(all.begin(), all.end(), part.begin(), part.end()) != all.end();
  }
  // Reads of the program's own: how many bytes it has taken from files.
  std::uint64_t bytesRead() const {
    const Bytes all = readFile("/proc/" + std::to_string(child_) + "/io");
    const std::string text(all.begin(), all.end());
    return std::stoull(text.substr(text.find("rchar: ") + 7));
  }

  template <typename Condition>
  bool comes(const Condition &condition) {
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
  }
  // Its exit status; -1: it did not end by itself, or not within the bound.
  int endOf() {
    int status = 0;
    if (!comes([&] { return child_ < 0 || waitpid(child_, &status, WNOHANG) == child_; })) {
      return -1;
    }
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  pid_t child_ = -1;
};

TEST_F(Signals, AFifoWithoutAReaderHoldsNothingBack) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  write("script", card + "wait 1\nnote \"it flows\"\nwait 3600");
  start({"--script", "script", "--speed", "1", "--output", "0:fifo"}, file("out.txt"));
  ASSERT_TRUE(comes([this] { return contains("out.txt", "it flows"); }));
  kill(child_, SIGTERM);
  EXPECT_EQ(endOf(), 143);
  EXPECT_TRUE(contains("err.txt", "'fifo', the output of slot 0, is not whole: "));
  EXPECT_TRUE(contains("err.txt", "nobody reads it"));
}

TEST_F(Signals, AResizeEndsNothing) {
  write("script", "note \"it runs\"\nwait 3\nnote \"it ran\"");
  start({"--script", "script", "--speed", "2"}, file("out.txt"));
  ASSERT_TRUE(comes([this] { return contains("out.txt", "it runs"); }));
  kill(child_, SIGWINCH);
  EXPECT_EQ(endOf(), 0);
  EXPECT_TRUE(contains("out.txt", "it ran"));
}

TEST_F(Signals, AReaderOfAFifoGetsTheStream) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  write("script", card + "wait 20");
  start({"--script", "script", "--speed", "max", "--output", "0:fifo"}, file("out.txt"));
  const Bytes got = readFile(path("fifo"));
  EXPECT_EQ(endOf(), 0);
  EXPECT_GT(got.size(), stream_.size());
  EXPECT_TRUE(std::equal(stream_.begin(), stream_.end(), got.begin()));
}

// Without any packet, or for a program of a later table, it is read with the script; with some,
// when the card is put in.
TEST_F(Signals, TheSearchThroughAHugeFileEnds) {
  write("huge.ts", std::string());
  write("begun.ts", stream_);
  for (const char *name : {"huge.ts", "begun.ts"}) {
    fs::resize_file(path(name), 100ULL << 30);
  }
  for (const char *script : {"cardInsert 0, \"huge.ts\"\nwait 5", "cardInsert 0, \"begun.ts\"",
                             "cardInsert 0, \"begun.ts\"\nprogAssign 0, 999, 1"}) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
      write("script", script);
      start({"--script", "script"}, file("out.txt"));
      ASSERT_TRUE(comes([this] { return bytesRead() > (64U << 20); }));
      kill(child_, signal);
      EXPECT_EQ(endOf(), 128 + signal);
      EXPECT_FALSE(contains("out.txt", "%"));
      EXPECT_EQ(read("err.txt").size(), 0U);
    }
  }
}

TEST_F(Signals, AStandardOutputThatNobodyReadsHoldsNothingBack) {
  write("script", manyNotes());
  for (const int signal : {SIGTERM, SIGINT}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    start({"--script", "script"}, ends[1]);
    pollfd full{ends[1], POLLOUT, 0};
    ASSERT_TRUE(comes([&full] { return poll(&full, 1, 0) == 0; }));
    kill(child_, signal);
    EXPECT_EQ(endOf(), 128 + signal);
    const Bytes told = read("err.txt");
    EXPECT_EQ(std::string(told.begin(), told.end()),
              "ci-chassis: ended by a signal; not everything could be written\n");
    close(ends[0]);
    close(ends[1]);
  }
}

}  // namespace
}  // namespace e2e
