// Bad input: a clear line and exit status 2, or a run that goes on.
#include <random>

#include "Run.h"

namespace e2e {
namespace {

const std::string card = "cardInsert 0, \"in.ts\"\n";
const std::string oneProgram = card + "progAssign 0, 101, 1\ncamInsert 0, 0, 0x0500\nwait 25\n";

class Input : public Run {
 protected:
  void SetUp() override {
    Run::SetUp();
    stream_ = readFile(std::string(E2E_BUILD) + "/samples/headend.ts");
    ASSERT_GT(stream_.size(), 1000000u);
  }

  void expectRefused(const Bytes &file, const std::string &why) {
    write("in.ts", file);
    const Result result = runScript(oneProgram);
    EXPECT_EQ(result.status, 2);
    const Lines errors = linesOf(result.err);
    ASSERT_EQ(errors.size(), 1u) << result.err;
    EXPECT_EQ(errors[0].rfind("ci-chassis: script:1: ", 0), 0u) << errors[0];
    EXPECT_NE(errors[0].find("in.ts"), std::string::npos) << errors[0];
    EXPECT_NE(errors[0].find(why), std::string::npos) << errors[0];
  }

  std::vector<TableRow> expectPlayed(const Bytes &file) {
    write("in.ts", file);
    const Result result = runScript(oneProgram);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return tableRows(result.out);
  }

  Bytes stream_;
};

TEST_F(Input, ArgumentsThatAreNoneAndThoseGivenTwice) {
  const std::pair<const char *, const char *> wrong[] = {
      {"--spede 2", "'--spede' is none of its arguments; --help lists them"},
      {"--seed -1", "'--seed' is none of its arguments; --help lists them"},
      {"in.ts", "'in.ts' is none of its arguments; --help lists them"},
      {"--speed 1 --speed 2", "--speed is given 2 times; once is right"},
      {"probe a b --for 1 --for 2 --for 3", "--for is given 3 times; once is right"},
      {"probe a b --script c", "'--script' is none of its arguments; --help lists them"},
  };
  for (const auto &[arguments, why] : wrong) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(result.err, std::string("ci-chassis: ") + why + "\n");
  }
}

TEST_F(Input, EmptyFile) {
  expectRefused({}, "empty");
}

TEST_F(Input, NoTransportStream) {
  std::mt19937 random(1);
  Bytes noise(300000);
  for (std::uint8_t &byte : noise) {
    byte = static_cast<std::uint8_t>(random());
  }
  expectRefused(noise, "");
  expectRefused(Bytes(100, 0x47), "");
}

TEST_F(Input, PacketsWithoutTables) {
  Bytes nullPackets;
  for (int i = 0; i < 1000; ++i) {
    Bytes packet(188, 0xFF);
    packet[0] = 0x47;
    packet[1] = 0x1F;
    packet[3] = 0x10;
    nullPackets.insert(nullPackets.end(), packet.begin(), packet.end());
  }
  expectRefused(nullPackets, "PAT");
}

TEST_F(Input, MissingFileAndFolder) {
  for (const char *name : {"missing.ts", "build"}) {
    const Result result = runScript("wait 1\ncardInsert 0, \"" + std::string(name) + "\"\nwait 5");
    EXPECT_EQ(result.status, 2) << name;
    ASSERT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(result.err.rfind("ci-chassis: script:2: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find(name), std::string::npos) << result.err;
  }
}

TEST_F(Input, TruncatedFilePlays) {
  Bytes file(stream_.begin(), stream_.begin() + 1500007);
  const std::vector<TableRow> rows = expectPlayed(file);
  ASSERT_EQ(rows.size(), 8u);
  for (const TableRow &row : rows) {
    EXPECT_EQ(row.state, row.program == "101" ? "descrambled" : "not supervised") << row.pid;
  }
}

TEST_F(Input, ShiftedFilePlaysAsIfItWereNot) {
  Bytes file(77, 0x47);
  file.insert(file.end(), stream_.begin(), stream_.end());
  const std::vector<TableRow> shifted = expectPlayed(file);
  const std::vector<TableRow> whole = expectPlayed(stream_);
  ASSERT_EQ(shifted.size(), 8u);
  ASSERT_EQ(whole.size(), shifted.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_EQ(shifted[i].state, whole[i].state);
    EXPECT_EQ(shifted[i].before.substr(shifted[i].before.find('/')), "/0") << shifted[i].pid;
  }
}

TEST_F(Input, NoisyFileResynchronises) {
  std::mt19937 random(2);
  Bytes file;
  for (std::size_t at = 0; at < stream_.size(); at += 50000) {
    const std::size_t end = std::min(at + 49000, stream_.size());
    file.insert(file.end(), stream_.begin() + static_cast<std::ptrdiff_t>(at),
                stream_.begin() + static_cast<std::ptrdiff_t>(end));
    for (std::size_t noise = random() % 400; noise > 0; --noise) {
      file.push_back(static_cast<std::uint8_t>(random()));
    }
  }
  const std::vector<TableRow> rows = expectPlayed(file);
  ASSERT_EQ(rows.size(), 8u);
  EXPECT_NE(rows[0].before.substr(rows[0].before.find('/')), "/0");
  EXPECT_EQ(rows[0].seen, "clear, PES readable");
}

TEST_F(Input, DamagedBytesNeverCrash) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 random(seed);
    Bytes file(stream_.begin(), stream_.begin() + 600000);
    for (std::size_t i = 0; i < 6000 * seed; ++i) {
      file[random() % file.size()] = static_cast<std::uint8_t>(random());
    }
    write("in.ts", file);
    const Result result = runScript(card + "camInsert 0, 0, 0x0500\nwait 10");
    EXPECT_TRUE(result.status == 0 || result.status == 2) << seed << ": " << result.status;
    EXPECT_EQ(result.status == 2, !result.err.empty()) << seed;
  }
}

TEST_F(Input, WrongScriptLinesStopItBeforeAnythingRuns) {
  write("in.ts", stream_);
  const Result result =
      runScript(card + "wait 5\nprogAssign 0, 7, 1\ncamInsrt 0, 0, 0x0500\nstatus\n" +
                "TIME_RESET = 5\ncardInsert 1, \"nowhere.ts\"");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  const std::string atConsole =
      " is console only; type it at the prompt, or pipe it with --console";
  EXPECT_EQ(result.err,
            "ci-chassis: script:3: program 7 is not in 'in.ts', which carries 101, 102, 103, 104\n"
            "ci-chassis: script:4: there is no function camInsrt; did you mean camInsert slot, "
            "cam, casid[, casid...]?\n"
            "ci-chassis: script:5: status" +
                atConsole + "\nci-chassis: script:6: TIME_RESET" + atConsole +
                "\nci-chassis: script:7: 'nowhere.ts' cannot be opened: No such file or "
                "directory\n");
}

TEST_F(Input, AScriptWithoutAnEndIsRefused) {
  const Result line = command("yes | tr -d '\\n' | '" + program + "' --script -");
  EXPECT_EQ(line.status, 2);
  EXPECT_EQ(line.err,
            "ci-chassis: standard input:1: the line is too long; write 1000 characters at most\n");
  for (const char *script : {"--script /dev/zero", "--script - </dev/zero"}) {
    const Result result = run(script);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find(":1: a zero byte: this is no text; write the name of a script\n"),
              std::string::npos)
        << result.err;
  }
}

TEST_F(Input, ProgramThatTheStreamDoesNotHave) {
  write("in.ts", stream_);
  for (const char *line : {"progAssign 0, 999, 1", "camEntitle 0, 0, 999, 0"}) {
    const Result result = runScript(card + "camInsert 0, 0, 0x0500\n" + line);
    EXPECT_EQ(result.status, 2);
    ASSERT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(result.err.rfind("ci-chassis: script:3: ", 0), 0u) << result.err;
    for (const char *part : {"999", "101, 102, 103, 104"}) {
      EXPECT_NE(result.err.find(part), std::string::npos) << result.err;
    }
  }
}

TEST_F(Input, WrongArgumentsOfTheProgram) {
  write("empty", std::string());
  const struct {
    const char *arguments;
    const char *error;
  } cases[] = {
      {"", "ci-chassis: nothing to run; give --script FILE, --console, or a terminal\n"},
      {"--script nothing", "ci-chassis: nothing: cannot be read: No such file or directory\n"},
      {"--script empty --speed fast",
       "ci-chassis: --speed fast does not fit; write 0.001 to 1000000, or max\n"},
      {"--script empty --speed 0",
       "ci-chassis: --speed 0 does not fit; write 0.001 to 1000000, or max\n"},
      {"--script empty --speed 0x10",
       "ci-chassis: --speed 0x10 does not fit; write 0.001 to 1000000, or max\n"},
      {"--script empty --for nan",
       "ci-chassis: --for nan does not fit; write 0 to 1000000 seconds\n"},
      {"--script empty --for -1",
       "ci-chassis: --for -1 does not fit; write 0 to 1000000 seconds\n"},
      {"--script empty --for 1000001",
       "ci-chassis: --for 1000001 does not fit; write 0 to 1000000 seconds\n"},
      {"--script empty --clock-start -1",
       "ci-chassis: --clock-start: -1 does not fit; write 0 to 4294967295\n"},
      {"--script empty --clock-start 4294967296",
       "ci-chassis: --clock-start: 4294967296 does not fit; write 0 to 4294967295\n"},
      {"--script empty --output 6:out",
       "ci-chassis: --output 6:out does not fit; write SLOT:FILE with a slot of 0 to 5\n"},
      {"--script empty --output 0:one.ts --output 1:out --output 0:two.ts",
       "ci-chassis: --output 0:one.ts and --output 0:two.ts are for the same slot, which has one "
       "output; leave one out\n"},
      {"--script empty --output out",
       "ci-chassis: --output out does not fit; write SLOT:FILE with a slot of 0 to 5\n"},
  };
  for (const auto &c : cases) {
    const Result result = run(c.arguments);
    EXPECT_EQ(result.status, 2) << c.arguments;
    EXPECT_EQ(result.err, c.error);
    EXPECT_EQ(result.out, "");
  }
  for (const char *arguments : {"--script empty --unknown", "--script empty more",
                                "--script empty --output 0:missing/out.ts"}) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
  }
}

TEST_F(Input, AnOutputWithoutACardIsTold) {
  write("in.ts", stream_);
  const Result result = runScript(card + "wait 1", "--output 0:zero.ts --output 1:one.ts");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ci-chassis: --output 1:one.ts: no card was in slot 1, so nothing was written\n");
}

TEST_F(Input, HelpListsOptionsAndFunctions) {
  const Result result = run("--help");
  EXPECT_EQ(result.status, 0);
  for (const char *part : {"camInsert slot, cam, casid[, casid...]", "wait seconds", "alarmFail on",
                           "  2    bad input", "  143  ended by SIGTERM"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << part;
  }
  std::size_t at = 0;
  for (const char *option : {"--script FILE", "--console", "--speed N|max", "--for SECONDS",
                             "--output SLOT:FILE", "--events FILE", "--status-json FILE",
                             "--no-table", "--clock-start STAMP", "--debug", "--version"}) {
    at = result.out.find(std::string("\n  ") + option, at);
    ASSERT_NE(at, std::string::npos) << option;
  }
}

}  // namespace
}  // namespace e2e
