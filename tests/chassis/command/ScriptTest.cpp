#include "command/Script.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>

#include "base/InputError.h"
#include "chassis/StreamWriter.h"
#include "ts/PacketView.h"

namespace chassis {
namespace {

namespace fs = std::filesystem;

Script read(const std::string &text, const ScriptSetting &setting = {}) {
  std::istringstream lines(text);
  return readScript("x", lines, setting);
}

std::string errorOf(const std::string &text, const ScriptSetting &setting = {}) {
  try {
    read(text, setting);
  } catch (const InputError &error) {
    return error.what();
  }
  return "no error";
}

TEST(Script, CallsKeepLineAndValues) {
  const Script script = read(
      "# a chassis\n"
      "cardInsert 0, \"a.ts\"\n"
      "\n"
      "camInsert(0, 1, 0x0500, 256)\n"
      "wait 0.5\n"
      "note \"# no comment\"\n");
  ASSERT_EQ(script.calls.size(), 4u);
  EXPECT_EQ(script.calls[0].line, 2u);
  EXPECT_EQ(script.calls[0].values.size(), 2u);
  EXPECT_EQ(script.calls[0].values[1].text, "a.ts");
  EXPECT_EQ(script.calls[1].line, 4u);
  ASSERT_EQ(script.calls[1].values.size(), 4u);
  EXPECT_EQ(script.calls[1].values[2].number, 0x0500u);
  EXPECT_EQ(script.calls[1].values[3].number, 256u);
  EXPECT_EQ(script.calls[2].values[0].number, 500u);
  EXPECT_EQ(script.calls[3].values[0].text, "# no comment");
}

TEST(Script, LastLineNeedsNoEnd) {
  EXPECT_EQ(read("wait 1").calls.size(), 1u);
}

TEST(Script, LimitsFit) {
  EXPECT_EQ(errorOf("cardInsert 5, \"f\", 1000000000\ncamInsert 5, 1, 1, 65535\n"
                    "progAssign 5, 65535, 3\npidDrop 5, 0x1FFF, 1\nwait 1000000\nwait .5\n"
                    "pidDrop 5, 0, 0\nprogAssign 5, 1, 0\nwait 0\nwait 3."),
            "no error");
}

TEST(Script, WrongLines) {
  const std::string card = "cardInsert 0, \"f\"\n";
  const struct {
    std::string text;
    const char *error;
  } cases[] = {
      {"camInser 0, 0, 1",
       "x:1: there is no function camInser; did you mean camInsert slot, cam, casid[, casid...]?"},
      {"CAMDEAF 0, 0, 1", "x:1: there is no function CAMDEAF; did you mean camDeaf slot, cam, on?"},
      {"\nwait", "x:2: wait takes 1 argument, not 0; write wait seconds"},
      {"wait 1, 2", "x:1: wait takes 1 argument, not 2; write wait seconds"},
      {"progAssign 0, 101",
       "x:1: progAssign takes 3 arguments, not 2; write progAssign slot, program, camMask"},
      {"cardInsert 0",
       "x:1: cardInsert takes 2 to 3 arguments, not 1; write cardInsert slot, \"file\"[, bitrate]"},
      {"cardInsert 0, \"f\", 1, 2",
       "x:1: cardInsert takes 2 to 3 arguments, not 4; write cardInsert slot, \"file\"[, bitrate]"},
      {"camInsert 0, 0",
       "x:1: camInsert takes 3 or more arguments, not 2; write camInsert slot, cam, casid[, "
       "casid...]"},
      {"cardInsert 6, \"f\"", "x:1: there is no slot 6; write 0 to 5"},
      {"cardInsert -1, \"f\"", "x:1: there is no slot -1; write 0 to 5"},
      {card + "camInsert 0, 2, 1", "x:2: there is no cam 2; write 0 to 1"},
      {"cardInsert 0, f", "x:1: file must be a string, not f; write \"f\""},
      {"cardInsert 0, \"\"", "x:1: the name of the file is empty; write it such as \"in.ts\""},
      {"cardInsert 0, \"f\", 0", "x:1: bitrate 0 does not fit; write 1 to 1000000000"},
      {"cardInsert 0, \"f\", 1000000001",
       "x:1: bitrate 1000000001 does not fit; write 1 to 1000000000"},
      {"cardInsert zero, \"f\"", "x:1: slot must be a number, not zero; write 0 to 5"},
      {"cardInsert \"0\", \"f\"", "x:1: slot must be a number, not \"0\"; write 0 to 5"},
      {"cardInsert 0x, \"f\"", "x:1: slot must be a number, not 0x; write 0 to 5"},
      {"cardInsert 1.5, \"f\"", "x:1: slot must be a number, not 1.5; write 0 to 5"},
      {card + "camInsert 0, 0, 0x0500, 0x10000",
       "x:2: casid 0x10000 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 99999999999999999999999, 1",
       "x:2: program 99999999999999999999999 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 0, 1", "x:2: program 0 does not fit; write 1 to 65535"},
      {card + "progAssign 0, 1, 4", "x:2: camMask 4 does not fit; write 0 to 3"},
      {card + "pidDrop 0, 0x2000, 1", "x:2: pid 0x2000 does not fit; write 0 to 8191"},
      {card + "cardBusy 0, 2", "x:2: on 2 does not fit; write 0 to 1"},
      {"wait soon", "x:1: seconds must be a number, not soon; write it such as 30 or 0.5"},
      {"wait 1.2.3", "x:1: seconds must be a number, not 1.2.3; write it such as 30 or 0.5"},
      {"wait .", "x:1: seconds must be a number, not .; write it such as 30 or 0.5"},
      {"wait -1", "x:1: seconds must be a number, not -1; write it such as 30 or 0.5"},
      {"wait \"1\"", "x:1: seconds must be a number, not \"1\"; write it such as 30 or 0.5"},
      {"wait \"\"", "x:1: seconds must be a number, not \"\"; write it such as 30 or 0.5"},
      {"wait 1000001", "x:1: seconds 1000001 does not fit; write 0 to 1000000"},
      {"note hello", "x:1: text must be a string, not hello; write \"hello\""},
      {"progAssign 0, 101, 1",
       "x:1: no card is in slot 0; put one in first: cardInsert 0, \"file\""},
      {card + "cardRemove 0\ncardBusy 0, 1",
       "x:3: no card is in slot 0; put one in first: cardInsert 0, \"file\""},
      {card + "camDeaf 0, 1, 1", "x:2: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {card + "camInsert 0, 1, 1\ncamRemove 0, 1\ncamDeaf 0, 1, 1",
       "x:4: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {card + "camInsert 0, 1, 1\ncardRemove 0\n" + card + "camDeaf 0, 1, 1",
       "x:5: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid"},
      {"wait 1\nwait (2", "x:2: a parenthesis is not closed; end the call with )"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(errorOf(c.text), c.error) << c.text;
  }
}

TEST(Script, AByteOrderMarkIsNoPartOfTheFirstLine) {
  EXPECT_EQ(read("\xEF\xBB\xBFwait 1\nwait 2").calls.size(), 2u);
  EXPECT_EQ(errorOf("\xEF\xBB\xBF# only words"), "no error");
  EXPECT_NE(errorOf("wait 1\n\xEF\xBB\xBFwait 2"), "no error");
}

TEST(Script, BehindALineThatIsMuchTooLongIsReadOn) {
  const std::string error = errorOf(std::string(1000000, 'a') + "\nwait\n");
  EXPECT_EQ(error.rfind("x:1: the line is too long", 0), 0u) << error;
  EXPECT_NE(error.find("\nx:2: wait takes 1 argument, not 0"), std::string::npos) << error;
}

TEST(Script, ControlCharactersAreToldBeforeAnUnknownName) {
  EXPECT_EQ(errorOf("wiat\x07 1"), "x:1: the line has control characters; write plain text");
}

TEST(Script, AllWrongLinesAreToldAtOnce) {
  EXPECT_EQ(errorOf("cardInsert 0, \"f\"\nwait\n\nwait -1\nnote \"fine\"\ncamDeff 0, 0, 1"),
            "x:2: wait takes 1 argument, not 0; write wait seconds\n"
            "x:4: seconds must be a number, not -1; write it such as 30 or 0.5\n"
            "x:6: there is no function camDeff; did you mean camDeaf slot, cam, on?");
}

TEST(Script, WhatFollowsFromAWrongLineIsNotToldToo) {
  EXPECT_EQ(errorOf("cardInsrt 0, \"f\"\ncamInsert 0, 0, 1\ncamDeaf 0, 1, 1"),
            "x:1: there is no function cardInsrt; did you mean cardInsert slot, \"file\"[, "
            "bitrate]?");
  EXPECT_EQ(errorOf("camInsert 0, 0, 1\ncamDeaf 0, 0, 1\nprogAssign 0, 1, 1\ncardBusy 1, 1"),
            "x:1: no card is in slot 0; put one in first: cardInsert 0, \"file\"\n"
            "x:4: no card is in slot 1; put one in first: cardInsert 1, \"file\"");
  EXPECT_EQ(errorOf("cardInsert 0, \"f\"\ncamDeaf 0, 1, 0\ncamDeaf 0, 1, 0\ncamDeaf 0, 0, 0"),
            "x:2: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid\n"
            "x:4: no CAM is in 0, 0; put one in first: camInsert 0, 0, casid");
}

TEST(Script, AStreamGivenAsAScriptIsToldOnce) {
  const std::string packet = std::string("\x47\x00\x11\x10\n", 5) + std::string(183, '\xFF');
  EXPECT_EQ(errorOf(packet + packet),
            "x:1: a zero byte: this is no text; write the name of a script");
  EXPECT_EQ(errorOf("wait 1\n\033[2Jwait 1"),
            "x:2: the line has control characters; write plain text");
}

TEST(Script, AWrongLineThatFillsNoSlotHidesNothing) {
  EXPECT_EQ(errorOf("wait\nstatus\ncardBusy 0, 1", {{"status"}, nullptr}),
            "x:1: wait takes 1 argument, not 0; write wait seconds\n"
            "x:2: status is console only; type it at the prompt, or pipe it with --console\n"
            "x:3: no card is in slot 0; put one in first: cardInsert 0, \"file\"");
}

TEST(Script, AFileOfNothingButWrongLinesIsNotToldToItsEnd) {
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    text += "nonsense\n";
  }
  const std::string errors = errorOf(text);
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 99);
}

TEST(Script, NamesOfTheConsoleAreConsoleOnly) {
  const ScriptSetting setting{{"TIME_RESET", "status", "wait"}, nullptr};
  const std::string where = " is console only; type it at the prompt, or pipe it with --console";
  EXPECT_EQ(errorOf("status", setting), "x:1: status" + where);
  EXPECT_EQ(errorOf("wait 1\nTIME_RESET = 60000", setting), "x:2: TIME_RESET" + where);
  EXPECT_EQ(errorOf("TIME_RESET[0]", setting), "x:1: TIME_RESET" + where);
  EXPECT_EQ(errorOf("wait 1", setting), "no error");
}

// A stream of characters that counts how many were taken.
class EndlessLine : public std::streambuf {
 public:
  std::size_t taken = 0;

 protected:
  int_type underflow() override {
    taken += block_.size();
    setg(block_.data(), block_.data(), block_.data() + block_.size());
    return traits_type::to_int_type(block_[0]);
  }

 private:
  std::string block_ = std::string(4096, 'a');
};

TEST(Script, ALineWithoutAnEndIsRefusedSoon) {
  EndlessLine endless;
  std::istream lines(&endless);
  try {
    readScript("x", lines);
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(), "x:1: the line is too long; write 1000 characters at most");
  }
  EXPECT_LE(endless.taken, 2u << 20);
}

// Text whose reading fails behind its last byte.
class FailingText : public std::stringbuf {
 public:
  using std::stringbuf::stringbuf;

 protected:
  int_type underflow() override {
    const int_type next = std::stringbuf::underflow();
    if (traits_type::eq_int_type(next, traits_type::eof())) {
      throw std::system_error(EIO, std::generic_category());
    }
    return next;
  }
};

TEST(Script, AReadThatFailsIsNotTheEnd) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "x:1: cannot be read any further: Input/output error"},
      {"wait 1\nwait 2\n", "x:3: cannot be read any further: Input/output error"},
      {"wait\nwait 2\nwai",
       "x:1: wait takes 1 argument, not 0; write wait seconds\n"
       "x:3: cannot be read any further: Input/output error"}};
  for (const auto &[text, error] : cases) {
    FailingText buffer(text);
    std::istream lines(&buffer);
    try {
      readScript("x", lines);
      FAIL() << text;
    } catch (const InputError &told) {
      EXPECT_EQ(told.what(), error);
    }
  }
}

TEST(Script, BehindALongLineReadingGoesOn) {
  const std::string comment = "#" + std::string(999, 'a') + "\n";
  EXPECT_EQ(read(comment + "wait 1").calls.size(), 1u);
  EXPECT_EQ(errorOf("#" + comment + "wait 1\nwait\n" + std::string(5000, 'b') + "\nwait"),
            "x:1: the line is too long; write 1000 characters at most\n"
            "x:3: wait takes 1 argument, not 0; write wait seconds\n"
            "x:4: the line is too long; write 1000 characters at most\n"
            "x:5: wait takes 1 argument, not 0; write wait seconds");
}

class ScriptWithStreams : public testing::Test {
 protected:
  static testing_streams::Bytes tables() {
    testing_streams::StreamWriter writer;
    writer.psi({{101, 0x100, 0x201, {{0x02, 0x201, {}}}, {}, 0},
                {102, 0x101, 0x202, {{0x02, 0x202, {}}}, {}, 0}});
    writer.pcr(0x201, 0).pcr(0x201, pcrHz / 1000);
    while (writer.packets() < 100) {
      writer.null();
    }
    writer.psi({{103, 0x102, 0x203, {{0x02, 0x203, {}}}, {}, 0}}, 1);
    return writer.pcr(0x203, 0).pcr(0x203, pcrHz / 1000).bytes();
  }
  // A program whose clock references are on another PID than its table says, or nowhere.
  static testing_streams::Bytes clockless() {
    testing_streams::StreamWriter writer;
    writer.psi({{101, 0x100, 0x201, {{0x02, 0x201, {}}}, {}, 0}}).pcr(0x202, 0).pcr(0x202, 300);
    while (writer.packets() < 100) {
      writer.null();
    }
    return writer.bytes();
  }
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "chassis-script-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::create_directory(folder_ / "sub");
    write("sub/near.ts", tables());
    before_ = fs::current_path();
    fs::current_path(folder_);
  }
  void TearDown() override {
    fs::current_path(before_);
    fs::remove_all(folder_);
  }
  void write(const std::string &name, const testing_streams::Bytes &bytes) const {
    std::ofstream(folder_ / name, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  void writeScript(const std::string &text) const {
    write("sub/script", testing_streams::Bytes(text.begin(), text.end()));
  }
  Script readSub() { return readScript("sub/script", {{}, &streams_}); }
  std::string errorOfSub() {
    try {
      readSub();
    } catch (const InputError &error) {
      return error.what();
    }
    return "no error";
  }

  fs::path folder_;
  fs::path before_;
  StreamPrograms streams_;
};

TEST_F(ScriptWithStreams, StreamsAreLookedForBesideTheScriptFirst) {
  writeScript("cardInsert 0, \"near.ts\"");
  EXPECT_EQ(readSub().calls.at(0).values[1].text, "sub/near.ts");
  EXPECT_EQ(readSub().calls.at(0).text, "cardInsert 0, \"near.ts\"");
  write("near.ts", {});
  EXPECT_EQ(readSub().calls.at(0).values[1].text, "sub/near.ts");
}

TEST_F(ScriptWithStreams, ThenInTheWorkingDirectory) {
  write("far.ts", tables());
  writeScript("cardInsert 0, \"far.ts\"\ncardInsert 1, \"" + (folder_ / "far.ts").string() + "\"");
  EXPECT_EQ(readSub().calls.at(0).values[1].text, "far.ts");
  EXPECT_EQ(readSub().calls.at(1).values[1].text, (folder_ / "far.ts").string());
  std::istringstream lines("cardInsert 0, \"sub/near.ts\"");
  EXPECT_EQ(readScript("x", lines, {{}, &streams_}).calls.at(0).values[1].text, "sub/near.ts");
}

TEST_F(ScriptWithStreams, AFolderBesideTheScriptHidesNoStream) {
  fs::create_directory(folder_ / "sub/far.ts");
  writeScript("cardInsert 0, \"far.ts\"");
  EXPECT_EQ(errorOfSub(),
            "sub/script:1: 'sub/far.ts' is not a regular file; a transport stream file is needed");
  write("far.ts", tables());
  EXPECT_EQ(readSub().calls.at(0).values[1].text, "far.ts");
}

TEST_F(ScriptWithStreams, WhereAStreamWasLookedForIsToldWhenItIsMissingAlone) {
  const std::string tooLong(300, 'a');
  writeScript("cardInsert 0, \"" + tooLong + "\"\ncardInsert 0, \"/missing.ts\"");
  const std::string error = errorOfSub();
  EXPECT_NE(error.find("File name too long"), std::string::npos) << error;
  EXPECT_NE(error.find("'/missing.ts' cannot be opened: No such file"), std::string::npos) << error;
  EXPECT_EQ(error.find("looked for"), std::string::npos) << error;
}

TEST_F(ScriptWithStreams, AMissingCamIsToldBeforeAProgramThatIsNotThere) {
  writeScript("cardInsert 0, \"near.ts\"\ncamEntitle 0, 1, 999, 0");
  EXPECT_EQ(errorOfSub(),
            "sub/script:2: no CAM is in 0, 1; put one in first: camInsert 0, 1, casid");
}

TEST_F(ScriptWithStreams, StreamsThatCannotBePlayedAreToldWithTheRest) {
  write("empty.ts", {});
  writeScript(
      "cardInsert 0, \"missing.ts\"\nprogAssign 0, 999, 1\ncardInsert 1, \"empty.ts\"\nwait");
  EXPECT_EQ(errorOfSub(),
            "sub/script:1: 'missing.ts' cannot be opened: No such file or directory; it was looked "
            "for in 'sub' and in the working directory\n"
            "sub/script:3: 'empty.ts' is empty; a transport stream file is needed\n"
            "sub/script:4: wait takes 1 argument, not 0; write wait seconds");
}

TEST_F(ScriptWithStreams, ProgramsThatNoTableHasAreTold) {
  writeScript(
      "cardInsert 0, \"near.ts\"\ncamInsert 0, 0, 1\nprogAssign 0, 101, 1\nprogAssign 0, 7, 1\n"
      "camEntitle 0, 0, 8, 1\ncamRefuse 0, 0, 9, 1\nprogAssign 0, 103, 1\ncamDeaf 0, 0, 1");
  const std::string carried = " is not in 'sub/near.ts', which carries 101, 102";
  EXPECT_EQ(errorOfSub(), "sub/script:4: program 7" + carried + "\nsub/script:5: program 8" +
                              carried + "\nsub/script:6: program 9" + carried);
}

TEST_F(ScriptWithStreams, StreamsThatDoNotTellTheirBitrateAreToldWithTheRest) {
  write("mute.ts", clockless());
  writeScript(
      "cardInsert 0, \"near.ts\"\nwait 5\ncardInsert 1, \"mute.ts\"\nprogAssign 1, 7, 1\n"
      "cardInsert 2, \"mute.ts\", 1000000\nprobeInsert 3, \"sub/near.ts\", \"mute.ts\"");
  const std::string mute =
      "'mute.ts' does not tell its bitrate: the PMT gives PID 0x0201 for clock references (PCR), "
      "and there are none on it; a card can be given one in bit/s: cardInsert slot, "
      "\"mute.ts\", 38000000\n";
  EXPECT_EQ(errorOfSub() + "\n", "sub/script:3: " + mute +
                                     "sub/script:4: program 7 is not in 'mute.ts', which carries "
                                     "101\nsub/script:6: " +
                                     mute);
}

// Read no further than to the second clock reference; without one, to the end.
TEST_F(ScriptWithStreams, TheBitrateIsLookedForAsFarAsItTakes) {
  int asked = 0;
  StreamPrograms counting([&asked] { return [&asked](const Progress &) { return ++asked > 0; }; });
  write("sub/mute.ts", clockless());
  for (const char *name : {"near.ts", "mute.ts"}) {
    fs::resize_file(folder_ / "sub" / name, 16 << 20);
    counting.require("sub/" + std::string(name));
  }
  asked = 0;
  counting.requireBitrate("sub/near.ts");
  EXPECT_LE(asked, 1);
  EXPECT_THROW(counting.requireBitrate("sub/mute.ts"), InputError);
  EXPECT_GE(asked, 3);
  asked = 0;
  EXPECT_THROW(counting.requireBitrate("sub/mute.ts"), InputError);
  EXPECT_EQ(asked, 0) << "a file is read once";
}

// For its first tables, or for the last of its programs. What was wrong before is of no interest.
TEST_F(ScriptWithStreams, ReadingAStreamCanBeInterrupted) {
  const auto never = [] { return [](const Progress &) { return false; }; };
  const auto always = [] { return [](const Progress &) { return true; }; };
  write("sub/zeros.ts", {});
  write("sub/mute.ts", clockless());
  write("sub/bare.ts", testing_streams::StreamWriter().null().null().null().null().null().bytes());
  for (const char *name : {"zeros.ts", "near.ts", "mute.ts", "bare.ts"}) {
    fs::resize_file(folder_ / "sub" / name, 16 << 20);
    writeScript("wait\ncardInsert 0, \"" + std::string(name) + "\"\nprogAssign 0, 7, 1");
    StreamPrograms interrupted(never);
    EXPECT_THROW(readScript("sub/script", {{}, &interrupted}), Interrupted) << name;
    StreamPrograms whole(always);
    try {
      readScript("sub/script", {{}, &whole});
      FAIL();
    } catch (const InputError &error) {
      EXPECT_EQ(std::string(error.what()).find("sub/script:1: wait takes"), 0u) << error.what();
    }
  }
}

TEST_F(ScriptWithStreams, AStreamThatIsNotKnownAnyMoreTellsNoProgram) {
  writeScript("cardInsert 0, \"near.ts\"\ncardInsrt 0, \"other.ts\"\nprogAssign 0, 7, 1");
  const std::string error = errorOfSub();
  EXPECT_EQ(error.rfind("sub/script:2: ", 0), 0u) << error;
  EXPECT_EQ(error.find("program 7"), std::string::npos) << error;
}

TEST(Script, NamesAndHelpAreComplete) {
  std::set<std::string> names;
  for (const Function &function : functions()) {
    EXPECT_TRUE(names.insert(function.name).second) << function.name;
    EXPECT_LE(function.required, function.params.size()) << function.name;
    EXPECT_NE(functionHelp().find("  " + signature(function) + "  "), std::string::npos);
    EXPECT_EQ(&findFunction(function.name), &function);
    EXPECT_EQ(isWait(function), function.name == std::string("wait"));
    EXPECT_EQ(function.differs != nullptr, std::string(function.name).rfind("expect", 0) == 0);
  }
}

TEST(Script, FileThatCannotBeRead) {
  try {
    readScript("/no/such/script");
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(), "/no/such/script: cannot be read: No such file or directory");
  }
  try {
    readScript("/");
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(), "/: cannot be read; write the name of a script");
  }
}

}  // namespace
}  // namespace chassis
