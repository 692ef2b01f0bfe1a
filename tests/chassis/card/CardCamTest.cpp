// A card with both its CAMs in: what goes through them, what around them, what comes out.
#include <dvbcsa/dvbcsa.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cam/Cam.h"
#include "cam/LabCa.h"
#include "card/Card.h"
#include "card/Fpga.h"
#include "chassis/StreamWriter.h"
#include "chassis/card/CardOutput.h"
#include "ts/Section.h"

using namespace testing_streams;
using chassis::Cam;
using chassis::Card;
using chassis::TsPacket;

namespace {

constexpr std::uint64_t bitrate = 1504000;

struct LabProgram {
  std::uint16_t number;
  std::uint16_t video;
  std::uint16_t ecm;
};
constexpr LabProgram first{7, 0x100, 0x1F07};
constexpr LabProgram second{3, 0x200, 0x1F03};

chassis::labca::ControlWord wordOf(const LabProgram &program) {
  chassis::labca::ControlWord word{1, 2, 3, 0, 4, 5, static_cast<std::uint8_t>(program.ecm), 0};
  chassis::labca::setChecksums(word);
  return word;
}

Bytes ecmOf(const LabProgram &program) {
  chassis::labca::Ecm ecm;
  ecm.tier = program.number;
  ecm.even = ecm.odd = wordOf(program);
  return chassis::labca::encodeEcm(ecm);
}

TsPacket scrambled(TsPacket packet, const LabProgram &program) {
  dvbcsa_key_t *key = dvbcsa_key_alloc();
  dvbcsa_key_set(wordOf(program).data(), key);
  dvbcsa_encrypt(key, packet.data() + 4, 184);
  dvbcsa_key_free(key);
  packet[3] = static_cast<std::uint8_t>(packet[3] | 0x80);
  return packet;
}

// The same second of stream clear and scrambled, the ECMs of the second program too or not.
struct LabStream {
  explicit LabStream(bool ecmScrambled = false) {
    for (int i = 0; i < 16; ++i) {
      clear.psi({map(first), map(second)});
      for (const LabProgram &program : {first, second}) {
        clear.table(program.ecm, ecmOf(program)).pes(program.video).payload(program.video, {1, 2});
      }
    }
    while (clear.packets() < 1000) {
      clear.null();
    }
    for (std::size_t i = 0; i < clear.packets(); ++i) {
      const TsPacket packet = clear.packet(i);
      const unsigned pid = (packet[1] & 0x1FU) << 8 | packet[2];
      const bool ecm = pid == second.ecm && ecmScrambled;
      result.add(pid == first.video || ecm ? scrambled(packet, first)
                 : pid == second.video     ? scrambled(packet, second)
                                           : packet);
    }
  }

  static ProgramMap map(const LabProgram &program) {
    return {program.number,
            0x1000U + program.number,
            program.video,
            {{0x1B, program.video, {}}},
            caDescriptor(chassis::labca::defaultCaSystem, program.ecm),
            0};
  }

  StreamWriter clear;
  StreamWriter result;
};

// EN 50221 ca_pmt: only, ok_descrambling, one CA descriptor at program level, one stream or more.
chassis::Apdu caPmt(const LabProgram &program, const std::vector<unsigned> &more = {}) {
  Bytes body{3};
  append16(body, program.number);
  append(body, {0x01, 0xF0, 7, 1});
  append(body, caDescriptor(chassis::labca::defaultCaSystem, program.ecm));
  std::vector<unsigned> pids = more;
  pids.push_back(program.video);
  for (const unsigned pid : pids) {
    body.push_back(0x1B);
    append16(body, 0xE000U | pid);
    append(body, {0xF0, 0});
  }
  Bytes apdu{0x9F, 0x80, 0x32, static_cast<std::uint8_t>(body.size())};
  append(apdu, body);
  return apdu;
}

// A card with both its CAMs.
struct CardWithCams {
  CardWithCams() {
    card.setCam(0, &camA);
    card.setCam(1, &camB);
  }

  // Ten packets every 10 ms.
  void playUntil(std::uint64_t ms) {
    for (; nowMs < ms; nowMs += 10) {
      camA.tick(nowMs + 10);
      camB.tick(nowMs + 10);
      card.tick(nowMs + 10);
    }
  }

  static Cam::Config config() {
    Cam::Config config;
    config.caSystems = {chassis::labca::defaultCaSystem};
    config.startUpMs = 0;
    return config;
  }

  chassis::EventFan events;
  Cam camA{config(), {0, 0}, events, 0};
  Cam camB{config(), {0, 1}, events, 0};
  chassis::Files files;
  Card card{0, events, files};
  std::uint64_t nowMs = 0;
};

auto evidenceOf(const Card &card, std::uint16_t pid) {
  const chassis::PidEvidence &evidence = card.behind(pid);
  return std::make_tuple(evidence.packets, evidence.ccErrors, evidence.scrambled,
                         evidence.lastScrambled, evidence.lastPesBad, evidence.lastSeenMs);
}

// Both CAMs at work, and nobody who takes the output.
struct Played : CardWithCams {
  explicit Played(const std::string &path) {
    card.insert(path, bitrate, 0);
    camA.receive(caPmt(first));
    camB.receive(caPmt(second));
  }
};

class CardCam : public testing::Test, protected CardWithCams {
 protected:
  CardCam() {
    card.insert(file.path(), bitrate, 0);
    setOutput(card, files, output.path());
    playUntil(10);
  }

  std::uint32_t descState(const LabProgram &program) {
    card.fpga().select(program.video);
    return card.fpga().descState(DESC_PID_TYPE_AV);
  }

  // What came out, from the second loop on, when the CAMs have all they need.
  Bytes settledOutput() {
    card.endOutput();
    const Bytes all = output.read();
    return Bytes(all.begin() + static_cast<std::ptrdiff_t>(stream.clear.bytes().size()), all.end());
  }

  const LabStream stream;
  const TemporaryFile file{stream.result.bytes()};
  const TemporaryFile output;
};

}  // namespace

TEST_F(CardCam, LeavesScrambledWhatNoCamWasGiven) {
  playUntil(2000);
  EXPECT_EQ(descState(first), 1U);
  EXPECT_EQ(settledOutput(), stream.result.bytes());
}

TEST_F(CardCam, EachCamDescramblesItsProgram) {
  camA.receive(caPmt(first));
  camB.receive(caPmt(second));
  playUntil(2000);
  EXPECT_EQ(descState(first), 0U);
  EXPECT_EQ(descState(second), 0U);
  EXPECT_EQ(settledOutput(), stream.clear.bytes());
  // the meter before the CAMs still sees what came in
  EXPECT_TRUE(card.before(first.video).lastScrambled);
  EXPECT_FALSE(card.behind(first.video).lastScrambled);
}

TEST_F(CardCam, WhatGoesAroundTheCamsStaysAsItIs) {
  camA.receive(caPmt(first));
  camB.receive(caPmt(second));
  card.fpga().setPass(first.video, false);
  playUntil(1000);
  EXPECT_EQ(descState(first), 1U);
  EXPECT_EQ(descState(second), 0U);
  card.fpga().setPass(first.video, true);
  playUntil(2000);
  EXPECT_EQ(descState(first), 0U);
}

TEST_F(CardCam, ACamWithoutItsEcmsDescramblesNothing) {
  card.fpga().setPass(first.ecm, false);
  camA.receive(caPmt(first));
  playUntil(2000);
  EXPECT_EQ(descState(first), 1U);
  EXPECT_EQ(card.before(first.ecm).packets, 32U);
}

TEST_F(CardCam, AWrongKeyIsNotTakenForDescrambled) {
  camA.setFault(chassis::CamFault::WrongKey, true);
  camA.receive(caPmt(first));
  camB.receive(caPmt(second));
  playUntil(2000);
  EXPECT_FALSE(card.behind(first.video).lastScrambled);
  EXPECT_EQ(descState(first), 2U);
  EXPECT_EQ(descState(second), 0U);
}

TEST_F(CardCam, ACamThatIsPulledIsPassedBy) {
  camA.receive(caPmt(first));
  playUntil(1000);
  EXPECT_EQ(descState(first), 0U);
  card.setCam(0, nullptr);
  playUntil(2000);
  EXPECT_EQ(descState(first), 1U);
}

// 32 payloads a second for each CAM; a batch and three quarters of one.
TEST_F(CardCam, WhileNobodyLooksBatchesAreFull) {
  const std::uint64_t batch = dvbcsa_bs_batch_size();
  Played played(file.path());
  played.playUntil(batch * 7 * 1000 / (4 * 32));
  EXPECT_EQ(played.camA.work().batches, 1U);
  EXPECT_EQ(played.camA.work().inBatches, batch);
  EXPECT_EQ(played.camA.work().singly, 0U);
  const std::uint64_t seen = played.card.behind(first.video).packets;
  EXPECT_EQ(played.camA.work().inBatches + played.camA.work().singly, seen);
  played.playUntil(played.nowMs + 20);
  EXPECT_LE(played.camA.work().inBatches + played.camA.work().singly, seen);
  EXPECT_GT(played.card.behind(first.video).packets, seen);
  EXPECT_EQ(played.camA.work().inBatches + played.camA.work().singly,
            played.card.behind(first.video).packets);
}

bool onlyFullBatches(const chassis::DescramblerWork &work) {
  return work.inBatches == work.batches * dvbcsa_bs_batch_size() && work.singly == 0;
}

// 8192 packets are those of 8.2 s: then all is finished, also what fills no batch.
TEST_F(CardCam, HoldsBackNoMoreThanItHasRoomFor) {
  Played played(file.path());
  played.playUntil(8100);
  EXPECT_TRUE(onlyFullBatches(played.camA.work()));
  played.playUntil(8300);
  EXPECT_FALSE(onlyFullBatches(played.camA.work()));
}

TEST_F(CardCam, TheHardwareIsUpToDateForWhoeverAsksIt) {
  Played played(file.path());
  played.camA.setFault(chassis::CamFault::WrongKey, true);
  played.playUntil(1000);
  chassis::Card::Fpga &fpga = played.card.fpga();
  fpga.select(first.video);
  EXPECT_EQ(fpga.descState(DESC_PID_TYPE_AV), 2U);
}

TEST_F(CardCam, WhatWasHeldBackIsNotTakenForTheNextCards) {
  Played played(file.path());
  played.camA.setFault(chassis::CamFault::WrongKey, true);
  played.playUntil(1000);
  const TemporaryFile clear(stream.clear.bytes());
  played.card.insert(clear.path(), bitrate, played.nowMs);
  EXPECT_FALSE(played.card.behind(first.video).lastPesBad);
}

TEST_F(CardCam, ACamThatIsPulledHasFinishedWhatItTook) {
  Played played(file.path());
  played.playUntil(1000);
  played.card.setCam(0, nullptr);
  EXPECT_FALSE(played.card.behind(first.video).lastScrambled);
  EXPECT_FALSE(played.card.behind(first.video).lastPesBad);
}

// Words go bad and good again meanwhile, so that what is read behind the CAMs changes.
TEST_F(CardCam, HowOftenSomebodyLooksMakesNoDifference) {
  Played often(file.path());
  Played seldom(file.path());
  for (std::uint64_t ms = 10; ms <= 12000; ms += 10) {
    for (Played *played : {&often, &seldom}) {
      played->camA.setFault(chassis::CamFault::WrongKey, ms / 1300 % 2 == 1);
      played->playUntil(ms);
    }
    const auto expected = evidenceOf(often.card, first.video);
    if (ms % 730 == 0) {
      EXPECT_EQ(evidenceOf(seldom.card, first.video), expected) << ms;
    }
  }
}

TEST_F(CardCam, ACamReadsTheEcmsThatTheOneBeforeItDescrambles) {
  const LabStream twice(true);
  const TemporaryFile twiceFile(twice.result.bytes());
  Played played(twiceFile.path());
  played.camA.receive(caPmt(first, {second.ecm}));
  played.playUntil(2000);
  played.card.fpga().select(second.video);
  EXPECT_EQ(played.card.fpga().descState(DESC_PID_TYPE_AV), 0U);
}

TEST_F(CardCam, OutputBeginsWithTheNextPacket) {
  camA.receive(caPmt(first));
  camB.receive(caPmt(second));
  card.endOutput();
  playUntil(1000);
  const TemporaryFile later;
  setOutput(card, files, later.path());
  playUntil(2000);
  card.endOutput();
  EXPECT_EQ(later.read(), stream.clear.bytes());
}
