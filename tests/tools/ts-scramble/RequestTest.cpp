#include "Request.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/InputError.h"

namespace {

using namespace tsscramble;
using chassis::InputError;

std::string complaint(const Request &request) {
  try {
    check(request);
    return "";
  } catch (const InputError &error) {
    return error.what();
  }
}

TEST(Request, ProgramInAllItsForms) {
  const ProgramRequest plain = parseProgram("101");
  EXPECT_EQ(plain.number, 101);
  EXPECT_FALSE(plain.level);
  EXPECT_TRUE(plain.ecmPids.empty());
  EXPECT_EQ(parseProgram("0x65:program").number, 101);
  EXPECT_EQ(parseProgram("101:program").level, Level::Program);
  const ProgramRequest full = parseProgram("65535:stream:0x1501,5378");
  EXPECT_EQ(full.number, 65535);
  EXPECT_EQ(full.level, Level::Stream);
  EXPECT_EQ(full.ecmPids, (std::vector<std::uint16_t>{0x1501, 5378}));
}

TEST(Request, ProgramInOtherFormsIsRefused) {
  for (const char *text :
       {"", ":", "x", "0", "65536", "-1", " 101", "101 ", "101x", "0x", "101:", "101:both",
        "101:stream:", "101:stream:0x2000", "101:stream:1,", "101:stream:,1", "101:stream:1:2",
        "101:stream:1 2", "99999999999999999999"}) {
    EXPECT_THROW(parseProgram(text), InputError) << text;
  }
}

TEST(Request, ComplaintNamesTheInputAndTheRightForm) {
  try {
    parseProgram("101:both");
    FAIL();
  } catch (const InputError &error) {
    const std::string text = error.what();
    EXPECT_NE(text.find("'101:both'"), std::string::npos);
    EXPECT_NE(text.find("NUMBER[:program|stream[:PID[,PID...]]]"), std::string::npos);
  }
}

TEST(Request, LevelAndCipher) {
  EXPECT_EQ(parseLevel("stream"), Level::Stream);
  EXPECT_THROW(parseLevel("Stream"), InputError);
  EXPECT_EQ(parseCipher("none"), chassis::labca::Cipher::None);
  EXPECT_EQ(parseCipher("xor"), chassis::labca::Cipher::Xor);
  EXPECT_THROW(parseCipher(""), InputError);
}

TEST(Request, RangesOfTimes) {
  EXPECT_EQ(complaint({}), "");
  for (const double period : {0.0, -1.0, 0.09, 3601.0, std::nan(""), HUGE_VAL}) {
    Request request;
    request.cryptoPeriod = period;
    EXPECT_NE(complaint(request).find("crypto period"), std::string::npos) << period;
  }
  for (const double interval : {0.0, -1.0, 5.1, std::nan("")}) {
    Request request;
    request.ecmInterval = interval;
    EXPECT_NE(complaint(request).find("ECM interval"), std::string::npos) << interval;
  }
}

TEST(Request, ReservedPids) {
  for (const std::uint16_t pid : {0x0000, 0x001F, 0x1FFF}) {
    Request emm, ecm, first;
    emm.emmPid = pid;
    ecm.programs = {{101, std::nullopt, {pid}}};
    first.firstEcmPid = pid;
    for (const Request &request : {emm, ecm, first}) {
      EXPECT_NE(complaint(request).find("is reserved"), std::string::npos) << pid;
    }
  }
}

TEST(Request, NothingTwice) {
  Request programs, pids, emm;
  programs.programs = {{101, std::nullopt, {}}, {101, std::nullopt, {}}};
  EXPECT_EQ(complaint(programs), "program 101 is given twice");
  pids.programs = {{101, std::nullopt, {0x1501}}, {102, std::nullopt, {0x1501}}};
  EXPECT_EQ(complaint(pids), "ECM PID 0x1501 is given twice");
  emm.emmPid = 0x1501;
  emm.programs = {{101, std::nullopt, {0x1501}}};
  EXPECT_EQ(complaint(emm), "ECM PID 0x1501 is given twice");
}

}  // namespace
