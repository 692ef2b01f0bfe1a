// What becomes of outputs, and of what a user has, on a disk that is full, that tells its loss with
// the close alone, or that cannot be read to the end.
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "Run.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

constexpr int lost = 3;
const std::string tsScramble = E2E_BUILD "/ts-scramble";
const std::string tsJoin = E2E_BUILD "/ts-join";
const std::string plays = "'" + program + "' --script script --speed max ";

class Disk : public Run {
 protected:
  void SetUp() override {
    Run::SetUp();
    fs::create_directory(path("disk"));
    fs::copy_file(headendFile(), path("in.ts"));
    fs::copy_file(samples + "/headend-clear.ts", path("clear.ts"));
    write("script", "cardInsert 0, \"in.ts\"\nwait 5\n");
  }
  static std::string headendFile() { return std::string(E2E_BUILD) + "/samples/headend.ts"; }

  void expectLost(const Result &result, const std::string &why) const {
    EXPECT_EQ(result.status, lost) << result.err;
    ASSERT_EQ(linesOf(result.err).size(), 1U) << result.err;
    EXPECT_NE(result.err.find(why), std::string::npos) << result.err;
  }
  std::string kept(const std::string &name) const {
    const Bytes bytes = read(name);
    return {bytes.begin(), bytes.end()};
  }
};

enum class Limit { Disk, FileSize };

// A disk of 256 KiB of its own, or files that may not become longer than that: what the kernel says
// is real in both. What the folder `disk` has in the end is left in `kept`.
class FullDisk : public Disk, public testing::WithParamInterface<Limit> {
 protected:
  void SetUp() override {
    Disk::SetUp();
    limit_ = GetParam();
    if (limit_ == Limit::Disk && command("unshare -rm mount -t tmpfs none disk").status != 0) {
      std::cout << "no disk may be mounted here: files that may not grow stand in for it\n";
      limit_ = Limit::FileSize;
    }
  }

  Result onFullDisk(const std::string &line) const {
    const bool disk = limit_ == Limit::Disk;
    write("limited", disk ? line : "ulimit -f 256; " + line);
    write("all", std::string(disk ? "mount -t tmpfs -o size=256k none disk\n" : "") +
                     "echo \"a user's own\" >disk/mine; echo old >disk/out.ts\n" +
                     "bash limited; status=$?; cp -a disk kept; exit $status\n");
    return command(std::string(disk ? "unshare -rm " : "") + "bash all");
  }
  std::string reason() const {
    return limit_ == Limit::Disk ? "No space left on device" : "File too large";
  }
  void expectUsersFiles(std::ptrdiff_t files) const {
    EXPECT_EQ(kept("kept/mine"), "a user's own\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(path("kept")), {}), files);
  }

  Limit limit_ = Limit::Disk;
};
INSTANTIATE_TEST_SUITE_P(Full, FullDisk, testing::Values(Limit::Disk, Limit::FileSize));

TEST_P(FullDisk, AnOutputEndsWithItsLastWholePacket) {
  const Result result = onFullDisk(plays + "--output 0:disk/out.ts");
  expectLost(result, "ci-chassis: 'disk/out.ts', the output of slot 0, is not whole: ");
  EXPECT_NE(result.err.find(" packets lost: " + reason()), std::string::npos) << result.err;
  EXPECT_EQ(linesWith(result.out, "the output is not whole").size(), 1U) << result.out;
  const Bytes out = read("kept/out.ts");
  const Bytes in = read("in.ts");
  EXPECT_GT(out.size(), 200U << 10);
  EXPECT_EQ(out.size() % 188, 0U);
  EXPECT_TRUE(std::equal(out.begin(), out.end(), in.begin()));
  expectUsersFiles(2);
}

TEST_P(FullDisk, AToolLeavesTheFileThatWasThere) {
  for (const std::string &tool : {tsScramble, tsJoin}) {
    fs::remove_all(path("kept"));
    const Result result = onFullDisk("'" + tool + "' clear.ts disk/out.ts");
    expectLost(result,
               fs::path(tool).filename().string() + ": 'disk/out.ts' is not whole: " + reason());
    EXPECT_EQ(kept("kept/out.ts"), "old\n");
    expectUsersFiles(2);
  }
}

TEST_P(FullDisk, StandardOutputIsMissed) {
  std::string notes;
  for (int i = 0; i < 5000; ++i) {
    notes += "note \"" + std::string(100, 'x') + "\"\n";
  }
  write("script", notes);
  expectLost(onFullDisk(plays + ">disk/log"), "ci-chassis: standard output is not whole: ");
  EXPECT_GT(read("kept/log").size(), 200U << 10);
  expectUsersFiles(3);
}

class FailingDisk : public Disk {
 protected:
  Result runFailing(const std::string &how, const std::string &line) const {
    return command(how + " ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS LD_PRELOAD='" +
                   E2E_FAILING_DISK "' " + line);
  }
};

// Closing tells what writing did not.
class Close : public FailingDisk {
 protected:
  Result run(const std::string &line) const { return runFailing("FAILING_CLOSE=disk/", line); }
};

TEST_F(Close, OfAnOutputThatFailsIsTold) {
  const Result result = run(plays + "--output 0:disk/out.ts");
  expectLost(result, "ci-chassis: 'disk/out.ts', the output of slot 0, is not whole: ");
  EXPECT_NE(result.err.find("Input/output error"), std::string::npos) << result.err;
  EXPECT_EQ(linesWith(result.out, "the output is not whole").size(), 1U) << result.out;
}

TEST_F(Close, OfAToolsOutputThatFailsLeavesTheFileThatWasThere) {
  write("disk/out.ts", std::string("old"));
  for (const std::string &tool : {tsScramble, tsJoin}) {
    expectLost(
        run("'" + tool + "' clear.ts disk/out.ts"),
        fs::path(tool).filename().string() + ": 'disk/out.ts' is not whole: Input/output error");
    EXPECT_EQ(kept("disk/out.ts"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(path("disk")), {}), 1);
  }
}

TEST_F(Close, OfStandardOutputThatFailsIsTold) {
  for (const std::string &line :
       {plays, "'" + tsScramble + "' --help", "'" + tsJoin + "' --help"}) {
    expectLost(run(line + " >disk/log"), ": standard output is not whole: Input/output error");
  }
}

// A run that is live goes on while the disk of an output stalls; another output that sends into a
// network makes it live. The disk goes on when the run has told that it does.
TEST_F(FailingDisk, ThatStallsHoldsNoLiveRunUp) {
  write("script", std::string("cardInsert 0, \"in.ts\"\ncardInsert 1, \"in.ts\"\nwait 2.5\n"
                              "note \"it goes on\"\nwait 1\n"));
  write("watch", std::string("for i in $(seq 1500); do\n"
                             "  grep -qs 'it goes on' log && touch went && break; sleep 0.02\n"
                             "done\nstat -c %s disk/out.ts >before; touch go\n"));
  const Result result =
      runFailing("bash watch & STALLING_WRITE=disk/ STALLED_UNTIL=go",
                 "'" + program + "' --script script --no-table --output 0:disk/out.ts " +
                     "--output 1:udp://127.0.0.1:9 >log; status=$?; wait; (exit $status)");
  EXPECT_TRUE(fs::exists(path("went"))) << "the run went on before the first byte was written";
  EXPECT_EQ(kept("before"), "0\n");
  EXPECT_EQ(linesWith(kept("log"), "it goes on").size(), 1U) << result.err;
  EXPECT_EQ(linesWith(result.err, "disk/out.ts").size(), 0U) << result.err;
  const Bytes out = read("disk/out.ts");
  const Bytes in = read("in.ts");
  ASSERT_GT(out.size(), 500U << 10);
  ASSERT_LT(out.size(), in.size());
  EXPECT_EQ(out.size() % 188, 0U);
  EXPECT_TRUE(std::equal(out.begin(), out.end(), in.begin()));
}

// An input that cannot be read to its end is none that ends there.
class Read : public FailingDisk {
 protected:
  Result run(const std::string &line) const { return runFailing("FAILING_READ=/disk/", line); }
  const std::string why_ = "cannot be read to its end: Input/output error\n";
};

TEST_F(Read, OfAToolsInputThatFailsMakesNothing) {
  fs::copy_file(path("clear.ts"), path("disk/clear.ts"));
  write("out.ts", std::string("old"));
  for (const std::string &tool : {tsScramble, tsJoin}) {
    const Result result = run("'" + tool + "' disk/clear.ts out.ts");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, fs::path(tool).filename().string() + ": 'disk/clear.ts' " + why_);
    EXPECT_EQ(kept("out.ts"), "old");
  }
}

TEST_F(Read, OfAStreamThatFailsIsToldBeforeItIsPlayed) {
  fs::copy_file(path("in.ts"), path("disk/in.ts"));
  write("script", std::string("cardInsert 0, \"disk/in.ts\"\nwait 5\n"));
  const Result result = run(plays);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "ci-chassis: script:1: 'disk/in.ts' " + why_);
}

}  // namespace
}  // namespace e2e
