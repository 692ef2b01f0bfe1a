#include "card/Card.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "base/InputError.h"
#include "card/Fpga.h"
#include "chassis/RecordedEvents.h"
#include "chassis/StreamWriter.h"
#include "chassis/card/CardOutput.h"

using namespace testing_streams;
using chassis::Card;
using chassis::CardFault;
using chassis::PidFault;
using chassis::TsPacket;
using testing_events::RecordedEvents;

namespace {

// 1504 kbit/s: ten packets in every tick of 10 ms
constexpr std::uint64_t bitrate = 1504000;

ProgramMap clearProgram(unsigned number, unsigned firstPid) {
  return {number, 0x1000 + number, firstPid, {{0x1B, firstPid, {}}, {0x06, firstPid + 1, {}}}, {},
          0};
}

// A second of stream; all PIDs count a multiple of 16 packets but 0x201, which counts 10.
StreamWriter secondOf(const std::vector<ProgramMap> &programs) {
  StreamWriter stream;
  for (int i = 0; i < 16; ++i) {
    stream.psi(programs).pes(0x100).payload(0x101).payload(0x101);
  }
  for (int i = 0; i < 10; ++i) {
    stream.payload(0x201);
  }
  while (stream.packets() < 1000) {
    stream.null();
  }
  return stream;
}

class CardTest : public testing::Test {
 protected:
  CardTest() {
    card.onProgramsChanged([this](std::uint32_t slot) {
      EXPECT_EQ(slot, 2U);
      ++changes;
    });
  }

  void insert(const StreamWriter &written) {
    stream = written;
    file.write(stream.bytes());
    card.insert(file.path(), bitrate, 0);
  }

  std::uint32_t descState(std::uint16_t pid, std::uint32_t type) {
    card.fpga().select(pid);
    return card.fpga().descState(type);
  }

  std::string insertError(const std::string &path) {
    try {
      card.insert(path, 0, 0);
    } catch (const chassis::InputError &error) {
      return error.what();
    }
    return "";
  }

  std::string assignError(std::uint16_t program, std::uint8_t mask) {
    try {
      card.assign(program, mask);
    } catch (const chassis::InputError &error) {
      return error.what();
    }
    return "";
  }

  const CiDesc &table() {
    card.publishTables();
    return *card.descTable();
  }

  const std::vector<ProgramMap> programs = {clearProgram(7, 0x100), clearProgram(3, 0x200)};
  RecordedEvents events{2};
  chassis::Files files;
  Card card{2, events, files};
  int changes = 0;
  TemporaryFile file;
  StreamWriter stream;
};

}  // namespace

TEST_F(CardTest, AnEmptySlotHasNothing) {
  EXPECT_FALSE(card.inserted());
  card.tick(1000);
  EXPECT_EQ(card.descTable(), nullptr);
  EXPECT_EQ(card.inPortForm(), nullptr);
  EXPECT_EQ(card.muxForm(), nullptr);
  EXPECT_TRUE(card.programs().empty());
  EXPECT_EQ(card.fpga().online(), 0U);
  EXPECT_NE(assignError(7, 1).find("no card is in slot 2"), std::string::npos);
}

TEST_F(CardTest, TellsWhatItsStreamCarries) {
  insert(secondOf(programs));
  EXPECT_TRUE(card.inserted());
  EXPECT_EQ(card.bitrate(), bitrate);
  ASSERT_EQ(card.programs().size(), 2U);
  EXPECT_EQ(card.programs()[0].number, 7);
  EXPECT_EQ(card.programs()[0].pmtPid, 0x1007);
  EXPECT_EQ(card.programs()[0].streams[1].pid, 0x101);
  EXPECT_EQ(card.programs()[0].camMask, 0);
  EXPECT_EQ(table().descProgCnt, 0U);
  EXPECT_EQ(card.muxForm()->programNum, 2);
}

TEST_F(CardTest, ABadStreamLeavesTheOldOneIn) {
  insert(secondOf(programs));
  const TemporaryFile empty;
  EXPECT_NE(insertError(empty.path()).find(empty.path()), std::string::npos);
  EXPECT_NE(insertError("/nonexistent.ts").find("/nonexistent.ts"), std::string::npos);
  EXPECT_EQ(card.programs().size(), 2U);
  card.tick(100);
  EXPECT_GT(card.before(0x100).packets, 0U);
}

TEST_F(CardTest, AssignsProgramsToCams) {
  insert(secondOf(programs));
  card.assign(3, 2);
  EXPECT_EQ(changes, 1);
  ASSERT_EQ(table().descProgCnt, 1U);
  EXPECT_EQ(table().prog[0].prog_num, 3);
  EXPECT_EQ(table().prog[0].camMask, 2);
  EXPECT_EQ(card.programs()[1].camMask, 2);
  card.assign(3, 2);
  EXPECT_EQ(changes, 1);
  card.assign(7, 3);
  ASSERT_EQ(table().descProgCnt, 2U);
  EXPECT_EQ(table().prog[0].prog_num, 7);
  card.assign(7, 0);
  card.assign(3, 0);
  EXPECT_EQ(table().descProgCnt, 0U);
  EXPECT_EQ(changes, 4);
}

TEST_F(CardTest, TablesFollowOnlyWhenTheyArePublished) {
  insert(secondOf(programs));
  EXPECT_EQ(card.muxForm()->programNum, 0);
  card.publishTables();
  card.assign(3, 2);
  EXPECT_EQ(card.descTable()->descProgCnt, 0U);
  EXPECT_EQ(card.muxForm()->programs[1].assigned, 0);
  card.publishTables();
  EXPECT_EQ(card.descTable()->descProgCnt, 1U);
  EXPECT_EQ(card.muxForm()->programs[1].assigned, 1);
}

TEST_F(CardTest, TellsProgramsWithTheirNames) {
  const std::string name = "Three";
  StreamWriter named = secondOf(programs);
  named.table(0x11, sdtSection({{3, {name.begin(), name.end()}, {}}}));
  insert(named);
  card.tick(1010);
  EXPECT_EQ(card.programName(3), "Three");
  EXPECT_EQ(card.programName(7), "");
  const std::string error = assignError(9, 1);
  EXPECT_NE(error.find("which carries 7, 3 \"Three\""), std::string::npos) << error;
}

TEST_F(CardTest, RefusesToAssignWhatIsNotThere) {
  insert(secondOf(programs));
  const std::string error = assignError(9, 1);
  EXPECT_NE(error.find("program 9"), std::string::npos) << error;
  EXPECT_NE(error.find("7, 3"), std::string::npos) << error;
  EXPECT_NE(assignError(7, 4).find("mask 4"), std::string::npos);
  EXPECT_EQ(changes, 0);
}

TEST_F(CardTest, PlaysPacketsAsTheyBecomeDue) {
  insert(secondOf(programs));
  card.tick(990);
  EXPECT_EQ(card.before(0x201).packets, 10U);
  EXPECT_EQ(card.fpga().before.rateOfAll(), 0U);
  card.tick(1000);
  EXPECT_EQ(card.fpga().before.rateOfAll(), 1504U);
  EXPECT_EQ(card.fpga().before.rate(0x101, 0x101), 32U * 1504 / 1000);
  EXPECT_EQ(card.fpga().behind.rateOfAll(), 1504U);
  const auto nulls = card.before(chassis::nullPid).packets;
  EXPECT_EQ(card.fpga().before.rateOfValid(), (1000 - nulls) * 1504 / 1000);
  card.tick(1000);
  EXPECT_EQ(card.before(0x201).packets, 10U);
  EXPECT_EQ(card.before(0x101).packets, 32U);
  EXPECT_EQ(card.behind(0x101).packets, 32U);
}

TEST_F(CardTest, ALoopIsNeitherAnErrorNorAChange) {
  insert(secondOf(programs));
  card.tick(60000);
  for (const std::uint16_t pid : {0x000, 0x100, 0x101, 0x201, 0x1003, 0x1007}) {
    EXPECT_EQ(card.before(pid).ccErrors, 0U) << pid;
    EXPECT_EQ(card.behind(pid).ccErrors, 0U) << pid;
  }
  EXPECT_EQ(card.before(0x201).packets, 600U);
  EXPECT_EQ(changes, 0);
  EXPECT_TRUE(events.lines.empty());
}

TEST_F(CardTest, WritesWhatComesOutInOrder) {
  insert(secondOf(programs));
  const TemporaryFile output;
  // half of the PIDs go around the CAMs
  card.fpga().setPass(0x101, false);
  card.fpga().setPass(chassis::nullPid, false);
  setOutput(card, files, output.path());
  card.tick(1000);
  card.endOutput();
  EXPECT_EQ(output.read(), stream.bytes());
  card.tick(2000);
  EXPECT_EQ(output.read().size(), stream.bytes().size());
}

TEST_F(CardTest, SaysThatAnOutputCannotBeWritten) {
  try {
    setOutput(card, files, "/nonexistent/out.ts");
    FAIL();
  } catch (const chassis::InputError &error) {
    EXPECT_NE(std::string(error.what()).find("/nonexistent/out.ts"), std::string::npos);
  }
}

TEST_F(CardTest, DoesNotWriteOverItsStream) {
  insert(secondOf(programs));
  EXPECT_THROW(setOutput(card, files, file.path()), chassis::InputError);
  EXPECT_EQ(file.read(), stream.bytes());
  const TemporaryFile output;
  setOutput(card, files, output.path());
  card.tick(1000);
  EXPECT_NE(insertError(output.path()).find("is the output"), std::string::npos);
  card.endOutput();
  EXPECT_EQ(output.read(), stream.bytes());
  card.insert(output.path(), bitrate, 1000);
  EXPECT_EQ(card.programs().size(), 2U);
}

TEST_F(CardTest, TellsThatAnOutputIsNotWhole) {
  insert(secondOf(programs));
  setOutput(card, files, "/dev/full");
  card.tick(1000);
  EXPECT_EQ(
      events.lines,
      (std::vector<std::string>{"the output is not whole: '/dev/full': No space left on device"}));
  card.tick(2000);
  EXPECT_EQ(card.endOutput(),
            "'/dev/full', the output of slot 2, is not whole: 2000 packets lost: No space left on "
            "device");
  EXPECT_EQ(card.endOutput(), "");
  EXPECT_EQ(events.lines.size(), 1U);
  setOutput(card, files, "/dev/full");
  card.tick(3000);
  EXPECT_EQ(events.lines.size(), 2U) << "another output, another trouble";
}

TEST_F(CardTest, AnOutputThatCannotBeWrittenIsNotItsOwn) {
  EXPECT_THROW(setOutput(card, files, "/"), chassis::InputError);
  files.write("the output of slot 4", "/");
}

TEST_F(CardTest, DoesNotReadOrWriteWhatOthersUse) {
  const TemporaryFile output;
  files.write("the output of slot 4", output.path());
  EXPECT_THROW(setOutput(card, files, output.path()), chassis::InputError);
  EXPECT_NE(insertError(output.path()).find("is the output of slot 4"), std::string::npos);
  insert(secondOf(programs));
  EXPECT_THROW(files.write("the output of slot 4", file.path()), chassis::InputError);
  card.remove();
  files.write("the output of slot 4", file.path());
}

// Whoever gets the reports may be gone by then.
TEST_F(CardTest, GoesWithoutAWordAboutItsOutput) {
  auto other = std::make_unique<Card>(2, events, files);
  file.write(secondOf(programs).bytes());
  other->insert(file.path(), bitrate, 0);
  const TemporaryFile place;
  std::filesystem::remove(place.path());
  ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
  setOutput(*other, files, place.path());
  other->tick(1000);
  other.reset();
  EXPECT_TRUE(events.lines.empty());
}

TEST_F(CardTest, WhatHasATransportErrorPassesUnread) {
  StreamWriter written = secondOf(programs);
  for (unsigned i = 0; i < 10; ++i) {
    TsPacket packet = written.packet(1);
    packet[1] = static_cast<std::uint8_t>(0x80 | i);
    packet[2] = 0x01;
    packet[3] = static_cast<std::uint8_t>(packet[3] ^ i);
    written.add(packet);
  }
  insert(written);
  card.setPidFault(PidFault::Drop, 0x001, true);
  card.setPidFault(PidFault::Damage, 0x101, true);
  const TemporaryFile output;
  setOutput(card, files, output.path());
  card.tick(1010);
  card.setPidFault(PidFault::Damage, 0x101, false);
  EXPECT_EQ(card.endOutput(), "");
  EXPECT_EQ(card.transportErrors(), 10U);
  const Bytes all = written.bytes();
  const Bytes out = output.read();
  ASSERT_GT(out.size(), 1880U);
  EXPECT_TRUE(std::equal(all.end() - 1880, all.end(), out.end() - 1880));
  std::uint64_t counted = 0;
  for (std::uint16_t pid = 0; pid < chassis::pidCount; ++pid) {
    counted += card.before(pid).packets;
    EXPECT_EQ(card.behind(pid).packets, card.before(pid).packets) << pid;
  }
  EXPECT_EQ(counted, out.size() / 188 - 10);
  EXPECT_EQ(card.fpga().before.present(0x901), false);
  EXPECT_EQ(events.lines.size(), 1U);
  card.insert(file.path(), bitrate, 1010);
  EXPECT_EQ(card.transportErrors(), 0U);
}

TEST_F(CardTest, ADroppedPidDoesNotReachIt) {
  insert(secondOf(programs));
  card.setPidFault(PidFault::Drop, 0x101, true);
  card.tick(1000);
  EXPECT_EQ(card.before(0x101).packets, 0U);
  EXPECT_EQ(card.before(0x100).packets, 16U);
  card.setPidFault(PidFault::Drop, 0x101, false);
  card.tick(2000);
  EXPECT_EQ(card.before(0x101).packets, 32U);
}

TEST_F(CardTest, ADamagedPidHasErrors) {
  insert(secondOf(programs));
  card.tick(1000);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 0U);
  card.setPidFault(PidFault::Damage, 0x100, true);
  card.tick(2000);
  EXPECT_EQ(card.before(0x100).packets, 28U);
  EXPECT_EQ(card.before(0x100).ccErrors, 3U);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 2U);
}

TEST_F(CardTest, ADamagedTableChangesNothing) {
  insert(secondOf(programs));
  card.setPidFault(PidFault::Damage, 0x0000, true);
  card.setPidFault(PidFault::Damage, 0x1007, true);
  card.tick(3000);
  EXPECT_EQ(card.programs().size(), 2U);
  EXPECT_EQ(changes, 0);
}

TEST_F(CardTest, ReadsTheDescramblingStateOfAPid) {
  StreamWriter written = secondOf(programs);
  written.pes(0x100, 2).payload(0x101, {}, false, 3);
  insert(written);
  EXPECT_EQ(descState(0x101, DESC_PID_TYPE_OTHER), 0U);
  card.tick(1000);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 0U);
  EXPECT_EQ(descState(0x101, DESC_PID_TYPE_OTHER), 0U);
  card.tick(1002);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 1U);
  EXPECT_EQ(descState(0x100, 0xFF), 1U);
  EXPECT_EQ(descState(0x101, DESC_PID_TYPE_OTHER), 1U);
}

TEST_F(CardTest, ChecksPesHeadersOfAudioAndVideoOnly) {
  StreamWriter written = secondOf(programs);
  written.payload(0x100, {0x00, 0x00, 0x02}, true).payload(0x101, {0x00, 0x00, 0x02}, true);
  insert(written);
  card.tick(1002);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 2U);
  EXPECT_EQ(descState(0x100, 0xFF), 2U);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_OTHER), 0U);
  EXPECT_EQ(descState(0x101, DESC_PID_TYPE_OTHER), 0U);
  EXPECT_EQ(descState(0x101, 0xFF), 0U);
}

TEST_F(CardTest, ASilentAudioOrVideoPidReadsNothing) {
  StreamWriter written = secondOf(programs);
  written.payload(0x101, {}, false, 3);
  insert(written);
  card.tick(1002);
  card.setPidFault(PidFault::Drop, 0x100, true);
  card.setPidFault(PidFault::Drop, 0x101, true);
  const auto last = card.behind(0x100).lastSeenMs;
  card.tick(last + 4990);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 0U);
  // the other video PID never came
  EXPECT_EQ(descState(0x200, DESC_PID_TYPE_AV), 0xFFU);
  card.tick(last + 5000);
  EXPECT_EQ(descState(0x100, DESC_PID_TYPE_AV), 0xFFU);
  EXPECT_EQ(descState(0x100, 0xFF), 0xFFU);
  EXPECT_EQ(descState(0x101, DESC_PID_TYPE_OTHER), 1U);
}

TEST_F(CardTest, APidThatNeverCameIsSilentFromTheStart) {
  insert(secondOf(programs));
  card.tick(4990);
  EXPECT_EQ(descState(0x200, DESC_PID_TYPE_AV), 0U);
  card.tick(5000);
  EXPECT_EQ(descState(0x200, DESC_PID_TYPE_AV), 0xFFU);
  EXPECT_EQ(descState(0xFFFF, DESC_PID_TYPE_OTHER), 0U);
  card.insert(file.path(), bitrate, 100000);
  card.tick(104990);
  EXPECT_EQ(descState(0x200, DESC_PID_TYPE_AV), 0U);
  card.tick(105000);
  EXPECT_EQ(descState(0x200, DESC_PID_TYPE_AV), 0xFFU);
}

TEST_F(CardTest, ACardThatIsOutKnowsNoAudioOrVideoAnyMore) {
  insert(secondOf(programs));
  card.tick(6000);
  EXPECT_EQ(descState(0x200, 0xFF), 0xFFU);
  card.remove();
  EXPECT_EQ(descState(0x200, 0xFF), 0U);
}

TEST_F(CardTest, FollowsThePmt) {
  std::vector<ProgramMap> next = programs;
  next[0].version = 1;
  next[0].streams = {{0x02, 0x150, caDescriptor(0x0500, 0x1F00)}};
  StreamWriter written = secondOf(programs);
  for (int i = 0; i < 16; ++i) {
    written.psi(next);
  }
  insert(written);
  card.assign(7, 1);
  changes = 0;
  card.tick(900);
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(table().prog[0].ele[0].pid, 0x100);
  EXPECT_EQ(card.inPortForm()->caNum, 0);
  card.tick(1040);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(table().prog[0].ele[0].pid, 0x150);
  EXPECT_EQ(table().prog[0].caLevel, 2);
  EXPECT_EQ(table().prog[0].camMask, 1);
  EXPECT_EQ(card.inPortForm()->caNum, 1);
  EXPECT_EQ(card.muxForm()->programs[0].pids[0].pid, 0x150);
  EXPECT_EQ(card.programs()[0].streams[0].pid, 0x150);
  const std::string count = std::to_string(programs.size()) + " programs";
  EXPECT_EQ(events.lines, (std::vector<std::string>{"the stream's programs changed: " + count +
                                                    ", new: PMT of program 7 version 1"}));
}

TEST_F(CardTest, AnAssignedProgramThatComesBackIsAssignedStill) {
  StreamWriter written = secondOf(programs);
  for (int i = 0; i < 16; ++i) {
    written.psi({programs[1]}, 1);
  }
  insert(written);
  card.tick(500);
  card.assign(7, 1);
  EXPECT_EQ(table().descProgCnt, 1U);
  card.tick(1030);
  EXPECT_EQ(table().descProgCnt, 0U);
  EXPECT_EQ(card.programs().size(), 1U);
  card.tick(1400);
  EXPECT_EQ(table().descProgCnt, 1U);
  EXPECT_EQ(card.programs()[0].camMask, 1);
}

TEST_F(CardTest, TellsWhatItsTablesCannotHold) {
  std::vector<ProgramMap> many = {clearProgram(1, 0x100)};
  for (unsigned i = 0; i < 40; ++i) {
    many[0].streams.push_back({0x06, 0x1800 + i, {}});
  }
  insert(secondOf(many));
  events.lines.clear();
  card.assign(1, 1);
  EXPECT_EQ(table().prog[0].eleNum, 32);
  EXPECT_FALSE(events.lines.empty());
}

TEST_F(CardTest, TellsThatAStreamIsDamaged) {
  insert(secondOf(programs).raw(Bytes(33, 0)));
  ASSERT_EQ(events.lines.size(), 1U);
  EXPECT_NE(events.lines[0].find("33 bytes"), std::string::npos);
}

TEST_F(CardTest, TellsOnceThatItsFileIsGone) {
  insert(secondOf(programs));
  card.tick(500);
  file.write({});
  card.tick(5000);
  EXPECT_EQ(events.lines.size(), 1U);
  EXPECT_TRUE(card.inserted());
}

TEST_F(CardTest, ANewCardIsAGoodOne) {
  insert(secondOf(programs));
  card.assign(7, 1);
  card.setFault(CardFault::Offline, true);
  card.setFault(CardFault::Masked, true);
  card.setPidFault(PidFault::Drop, 0x100, true);
  card.fpga().setPass(0x100, false);
  card.tick(1000);
  card.insert(file.path(), bitrate, 1000);
  EXPECT_EQ(card.fpga().online(), 1U);
  EXPECT_FALSE(card.fpga().alarmMask[0]);
  EXPECT_TRUE(card.fpga().passing.all());
  EXPECT_EQ(table().descProgCnt, 0U);
  EXPECT_EQ(card.before(0x101).packets, 0U);
  card.tick(2000);
  EXPECT_EQ(card.before(0x100).packets, 16U);
  card.remove();
  EXPECT_FALSE(card.inserted());
  card.tick(3000);
  EXPECT_EQ(card.before(0x100).packets, 0U);
  EXPECT_EQ(card.fpga().before.rateOfAll(), 0U);
}

TEST_F(CardTest, SurvivesAHostileStream) {
  // every byte that a decoder could stumble over, on the PIDs of the tables
  StreamWriter written = secondOf(programs);
  for (unsigned value = 0; value < 256; ++value) {
    for (const unsigned pid : {0x0000U, 0x0001U, 0x1007U, 0x0100U}) {
      auto packet = written.packet(0);
      packet[1] = static_cast<std::uint8_t>(0x40 | pid >> 8);
      packet[2] = static_cast<std::uint8_t>(pid);
      packet[3] = static_cast<std::uint8_t>(value);
      packet[4] = static_cast<std::uint8_t>(255 - value);
      packet[5] = static_cast<std::uint8_t>(value * 7);
      written.add(packet);
    }
  }
  insert(written);
  card.tick(5000);
  EXPECT_EQ(card.programs().size(), 2U);
}
