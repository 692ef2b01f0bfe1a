#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "PidText.h"
#include "Scrambler.h"
#include "base/InputError.h"
#include "chassis/StreamWriter.h"
#include "chassis/cam/CamRig.h"
#include "ts/PacketView.h"
#include "ts/Psi.h"

namespace {

using namespace tsscramble;
using chassis::InputError;
using chassis::PacketView;
using chassis::TsPacket;
using testing_streams::Bytes;
using testing_streams::ProgramMap;
using testing_streams::StreamWriter;
using testing_streams::TemporaryFile;

using Packets = std::vector<TsPacket>;

constexpr unsigned packetsPerSecond = 200;
constexpr std::uint64_t ticksPerPacket = chassis::pcrHz / packetsPerSecond;

const ProgramMap program101 = {101, 0x0101, 0x1001, {{0x02, 0x1001, {}}, {0x03, 0x1002, {}}},
                               {},  0};
const ProgramMap program102 = {
    102, 0x0102, 0x1011, {{0x1B, 0x1011, {}}, {0x0F, 0x1012, {}}, {0x06, 0x1013, {}}}, {}, 0};

struct Clear {
  std::vector<ProgramMap> programs = {program101, program102};
  Bytes cat;
  unsigned seconds = 8;
  unsigned nullEvery = 3;  // 0: no null packets
  bool pcrOnPmt = false;
};

Bytes randomPayload(std::mt19937 &random) {
  Bytes bytes(184);
  for (std::uint8_t &byte : bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  return bytes;
}

void writeTables(StreamWriter &writer, const Clear &clear) {
  writer.psi(clear.programs);
  if (!clear.cat.empty()) {
    writer.table(1, clear.cat);
  }
}

// Tables every half second, a PCR ten times a second, streams in turns.
Bytes streamOf(const Clear &clear) {
  StreamWriter writer;
  std::mt19937 random(1);
  std::vector<unsigned> pids;
  for (const ProgramMap &program : clear.programs) {
    for (const auto &es : program.streams) {
      pids.push_back(es.pid);
    }
  }
  const unsigned pcrPid = clear.pcrOnPmt ? clear.programs[0].pmtPid : clear.programs[0].pcrPid;
  for (unsigned turn = 0; writer.packets() < clear.seconds * packetsPerSecond; ++turn) {
    if (turn % (packetsPerSecond / 2) == 0) {
      writeTables(writer, clear);
    }
    if (turn % (packetsPerSecond / 10) == 0) {
      writer.adaptation(pcrPid, 0x10, writer.packets() * ticksPerPacket, false);
    } else if (clear.nullEvery != 0 && turn % clear.nullEvery == 0) {
      writer.null();
    } else {
      writer.payload(pids[turn % pids.size()], randomPayload(random), turn % 8 == 0);
    }
  }
  return writer.bytes();
}

Packets packetsOf(const Bytes &bytes) {
  Packets packets(bytes.size() / chassis::tsPacketSize);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(i * chassis::tsPacketSize),
                chassis::tsPacketSize, packets[i].begin());
  }
  return packets;
}

Packets onPid(const Packets &packets, unsigned pid) {
  Packets result;
  for (const TsPacket &packet : packets) {
    if (PacketView(packet).pid() == pid) {
      result.push_back(packet);
    }
  }
  return result;
}

struct Made {
  Packets packets;
  chassis::Psi psi;
  Result result;
};

Made made(const Bytes &clear, const Request &request) {
  const TemporaryFile in(clear);
  const TemporaryFile out;
  Made done;
  done.result = scramble(request, in.path(), out.path());
  done.packets = packetsOf(out.read());
  chassis::PsiReader reader;
  for (const TsPacket &packet : done.packets) {
    reader.push(packet);
  }
  done.psi = reader.psi();
  return done;
}

std::string complaint(const Bytes &clear, const Request &request) {
  try {
    made(clear, request);
    return "";
  } catch (const InputError &error) {
    return error.what();
  }
}

Request shortPeriods() {
  Request request;
  request.cryptoPeriod = 2;
  return request;
}

Bytes levelOf(const std::vector<chassis::PsiCa> &list) {
  Bytes descriptors;
  for (const chassis::PsiCa &ca : list) {
    testing_streams::append(descriptors, testing_cam::ca(ca.casid, ca.pid));
  }
  return testing_cam::level(testing_cam::descramble, descriptors);
}

Bytes caPmtOf(const chassis::PsiProgram &program) {
  std::vector<Bytes> streams;
  for (const chassis::PsiStream &stream : program.streams) {
    streams.push_back(testing_cam::caPmtStream(stream.pid, levelOf(stream.ca)));
  }
  return testing_cam::caPmt(testing_cam::add, program.number, levelOf(program.ca), streams);
}

// Everything through a CAM that was given every program, round after round.
Packets descrambled(const Made &scrambled, int rounds = 1) {
  testing_cam::Rig rig;
  for (const chassis::PsiProgram &program : scrambled.psi.programs) {
    rig.ask(caPmtOf(program));
  }
  Packets packets;
  for (int round = 0; round < rounds; ++round) {
    packets = rig.play(scrambled.packets, 50);
  }
  return packets;
}

std::set<unsigned> esPids(const chassis::Psi &psi) {
  std::set<unsigned> pids;
  for (const chassis::PsiProgram &program : psi.programs) {
    for (const chassis::PsiStream &stream : program.streams) {
      pids.insert(stream.pid);
    }
  }
  EXPECT_FALSE(pids.empty());
  return pids;
}

void expectSameStreams(const Packets &packets, const Bytes &clear, const chassis::Psi &psi) {
  for (const unsigned pid : esPids(psi)) {
    EXPECT_EQ(onPid(packets, pid), onPid(packetsOf(clear), pid)) << pidText(pid);
  }
}

void expectContinuity(const Packets &packets) {
  std::map<unsigned, unsigned> last;
  for (const TsPacket &packet : packets) {
    const PacketView view(packet);
    if (view.pid() == chassis::nullPid) {
      continue;
    }
    const auto before = last.find(view.pid());
    const unsigned step = view.hasPayload() ? 1 : 0;
    if (before != last.end()) {
      EXPECT_EQ(view.continuityCounter(), (before->second + step) % 16) << pidText(view.pid());
    }
    last[view.pid()] = view.continuityCounter();
  }
}

std::size_t scrambledPackets(const Packets &packets, unsigned pid) {
  const Packets own = onPid(packets, pid);
  return static_cast<std::size_t>(std::count_if(own.begin(), own.end(), [](const TsPacket &packet) {
    return PacketView(packet).scrambling() != 0;
  }));
}

std::size_t withPayload(const Packets &packets) {
  return static_cast<std::size_t>(
      std::count_if(packets.begin(), packets.end(),
                    [](const TsPacket &packet) { return PacketView(packet).hasPayload(); }));
}

TEST(Scramble, ComesBackBitForBitAlsoRoundTheLoop) {
  const Bytes clear = streamOf({});
  for (const Level level : {Level::Program, Level::Stream}) {
    Request request = shortPeriods();
    request.level = level;
    const Made scrambled = made(clear, request);
    expectSameStreams(descrambled(scrambled), clear, scrambled.psi);
    expectSameStreams(descrambled(scrambled, 3), clear, scrambled.psi);
  }
}

TEST(Scramble, EveryPayloadOfTheStreamsIsScrambled) {
  const Bytes clear = streamOf({});
  const Made scrambled = made(clear, shortPeriods());
  for (const unsigned pid : esPids(scrambled.psi)) {
    const Packets before = onPid(packetsOf(clear), pid);
    const Packets after = onPid(scrambled.packets, pid);
    ASSERT_EQ(before.size(), after.size());
    EXPECT_EQ(scrambledPackets(scrambled.packets, pid), withPayload(after)) << pidText(pid);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(before[i] == after[i], !PacketView(before[i]).hasPayload());
    }
  }
}

TEST(Scramble, DescriptorsAtBothLevels) {
  Request request = shortPeriods();
  request.programs = {parseProgram("101:program:0x0700"),
                      parseProgram("102:stream:0x0701,0x0702,0x0703")};
  request.casid = 0x0B01;
  request.emmPid = 0x06FF;
  const chassis::Psi psi = made(streamOf({}), request).psi;
  ASSERT_EQ(psi.programs.size(), 2u);
  ASSERT_EQ(psi.programs[0].ca.size(), 1u);
  EXPECT_EQ(psi.programs[0].ca[0].casid, 0x0B01);
  EXPECT_EQ(psi.programs[0].ca[0].pid, 0x0700);
  EXPECT_TRUE(psi.programs[0].streams[0].ca.empty());
  EXPECT_TRUE(psi.programs[1].ca.empty());
  for (unsigned i = 0; i < 3; ++i) {
    ASSERT_EQ(psi.programs[1].streams[i].ca.size(), 1u);
    EXPECT_EQ(psi.programs[1].streams[i].ca[0].casid, 0x0B01);
    EXPECT_EQ(psi.programs[1].streams[i].ca[0].pid, 0x0701 + i);
  }
  ASSERT_EQ(psi.cat.size(), 1u);
  EXPECT_EQ(psi.cat[0].casid, 0x0B01);
  EXPECT_EQ(psi.cat[0].pid, 0x06FF);
}

TEST(Scramble, CatThatIsThereIsKept) {
  Clear clear;
  clear.cat = testing_streams::catSection(testing_streams::caDescriptor(0x0B00, 0x0222, {9, 8}));
  const Made scrambled = made(streamOf(clear), shortPeriods());
  ASSERT_EQ(scrambled.psi.cat.size(), 2u);
  EXPECT_EQ(scrambled.psi.cat[0].casid, 0x0B00);
  EXPECT_EQ(scrambled.psi.cat[0].pid, 0x0222);
  EXPECT_EQ(scrambled.psi.cat[0].privateData, (Bytes{9, 8}));
  EXPECT_EQ(scrambled.psi.cat[1].casid, 0x0500);
  EXPECT_EQ(onPid(scrambled.packets, 1).size(), onPid(packetsOf(streamOf(clear)), 1).size() + 1);
  expectContinuity(scrambled.packets);
}

TEST(Scramble, PmtGrowsIntoAnotherPacket) {
  Clear clear;
  clear.programs[0].descriptors = {0x80, 154};
  clear.programs[0].descriptors.resize(156, 0x33);
  const Bytes in = streamOf(clear);
  const Made scrambled = made(in, shortPeriods());
  EXPECT_EQ(onPid(scrambled.packets, 0x0101).size(), 2 * onPid(packetsOf(in), 0x0101).size() + 2);
  ASSERT_EQ(scrambled.psi.programs.size(), 2u);
  EXPECT_EQ(scrambled.psi.programs[0].ca.size(), 1u);
  expectContinuity(scrambled.packets);
  expectSameStreams(descrambled(scrambled), in, scrambled.psi);
}

TEST(Scramble, NullPacketsMakeRoom) {
  const Bytes clear = streamOf({});
  const Made scrambled = made(clear, shortPeriods());
  EXPECT_EQ(scrambled.packets.size(), clear.size() / chassis::tsPacketSize);
  EXPECT_EQ(scrambled.result.packetsWritten, scrambled.packets.size());
}

TEST(Scramble, PacketsWithTransportErrorsComeOutAsTheyAre) {
  Packets clear = packetsOf(streamOf({}));
  Packets broken;
  for (const unsigned pid : {0x0000U, 0x0101U, 0x0900U, 0x1001U, 0x1FFFU}) {
    TsPacket packet = StreamWriter().pcr(pid, 77).packet(0);
    packet[1] |= 0x80;
    packet[3] |= 0x80;
    broken.push_back(packet);
    clear.insert(clear.begin() + static_cast<std::ptrdiff_t>(100 * broken.size()), packet);
  }
  Bytes bytes;
  for (const TsPacket &packet : clear) {
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  const Made scrambled = made(bytes, shortPeriods());
  Packets out;
  for (const TsPacket &packet : scrambled.packets) {
    if (PacketView(packet).transportError()) {
      out.push_back(packet);
    }
  }
  EXPECT_EQ(out, broken);
  EXPECT_EQ(scrambled.packets.size(), clear.size());
  EXPECT_EQ(scrambled.result.survey.usedPids.count(0x0900), 0U);
}

TEST(Scramble, WithoutNullPacketsItGrows) {
  Clear clear;
  clear.nullEvery = 0;
  const Bytes in = streamOf(clear);
  const Made scrambled = made(in, shortPeriods());
  EXPECT_GT(scrambled.packets.size(), in.size() / chassis::tsPacketSize);
  expectContinuity(scrambled.packets);
  expectSameStreams(descrambled(scrambled, 2), in, scrambled.psi);
}

TEST(Scramble, ContinuityCountersAreRight) {
  expectContinuity(packetsOf(streamOf({})));
  expectContinuity(made(streamOf({}), shortPeriods()).packets);
}

TEST(Scramble, PcrOnThePmtPidStays) {
  Clear clear;
  clear.pcrOnPmt = true;
  clear.programs[0].pcrPid = clear.programs[0].pmtPid;
  const Bytes in = streamOf(clear);
  const auto clocks = [](const Packets &packets) {
    std::vector<std::uint64_t> values;
    for (const TsPacket &packet : onPid(packets, 0x0101)) {
      if (const auto pcr = PacketView(packet).pcr()) {
        values.push_back(*pcr);
      }
    }
    return values;
  };
  const Made scrambled = made(in, shortPeriods());
  EXPECT_FALSE(clocks(packetsOf(in)).empty());
  EXPECT_EQ(clocks(scrambled.packets), clocks(packetsOf(in)));
  expectContinuity(scrambled.packets);
}

TEST(Scramble, OnlyTheProgramsThatAreAskedFor) {
  const Bytes clear = streamOf({});
  Request request = shortPeriods();
  request.programs = {parseProgram("102")};
  const Made scrambled = made(clear, request);
  for (const unsigned pid : {0x0101u, 0x1001u, 0x1002u}) {
    EXPECT_EQ(onPid(scrambled.packets, pid), onPid(packetsOf(clear), pid)) << pidText(pid);
  }
  for (const unsigned pid : {0x1011u, 0x1012u, 0x1013u}) {
    EXPECT_GT(scrambledPackets(scrambled.packets, pid), 0u);
  }
}

TEST(Scramble, SharedStreamsAndSectionsStayClear) {
  Clear clear;
  clear.programs[0].streams.push_back({0x06, 0x1013, {}});
  clear.programs[0].streams.push_back({0x05, 0x1014, {}});
  const Bytes in = streamOf(clear);
  const Made scrambled = made(in, shortPeriods());
  EXPECT_EQ(scrambled.result.plan.leftClear, std::set<std::uint16_t>{0x1013});
  for (const unsigned pid : {0x1013u, 0x1014u}) {
    EXPECT_EQ(onPid(scrambled.packets, pid), onPid(packetsOf(in), pid));
  }
  expectSameStreams(descrambled(scrambled), in, scrambled.psi);
}

TEST(Scramble, SameArgumentsGiveTheSameStream) {
  const Bytes clear = streamOf({});
  Request request = shortPeriods();
  const Packets first = made(clear, request).packets;
  EXPECT_EQ(made(clear, request).packets, first);
  request.seed = 2;
  EXPECT_NE(made(clear, request).packets, first);
}

// Reads the ECMs of a PID as they pass; tells what they announced so far.
class EcmListener {
 public:
  explicit EcmListener(unsigned pid) : pid_(pid) {}

  void push(const TsPacket &packet) {
    if (PacketView(packet).pid() == pid_) {
      assembler_.push(packet, [this](const chassis::Section &section) {
        const auto ecm = chassis::labca::decodeEcm(section.data(), section.size());
        ASSERT_TRUE(ecm);
        heard.push_back(*ecm);
      });
    }
  }

  std::vector<chassis::labca::Ecm> heard;

 private:
  unsigned pid_;
  chassis::SectionAssembler assembler_;
};

chassis::labca::ControlWord wordOf(const chassis::labca::Ecm &ecm, unsigned parity) {
  return parity == 0 ? ecm.even : ecm.odd;
}

TEST(Scramble, EcmsTellEveryWordOnePeriodAhead) {
  const Made scrambled = made(streamOf({}), shortPeriods());
  EcmListener listener(scrambled.psi.programs[0].ca[0].pid);
  for (const TsPacket &packet : scrambled.packets) {
    listener.push(packet);
  }
  const auto &heard = listener.heard;
  ASSERT_GE(heard.size(), 70u);
  EXPECT_LE(heard.size(), 90u);
  EXPECT_EQ(scrambled.result.plan.periods, 4u);
  EXPECT_EQ(heard.front().period, 0u);
  EXPECT_EQ(heard.back().period, 3u);
  EXPECT_EQ(heard.front().tier, 101);
  for (std::size_t i = 0; i < heard.size(); ++i) {
    const chassis::labca::Ecm &next = heard[(i + 1) % heard.size()];
    if (next.period != heard[i].period) {
      const unsigned parity = next.period & 1;
      EXPECT_EQ(next.period, (heard[i].period + 1) % 4);
      EXPECT_EQ(wordOf(heard[i], parity), wordOf(next, parity));
      EXPECT_NE(wordOf(heard[i], 1 - parity), wordOf(next, 1 - parity));
    }
  }
}

TEST(Scramble, PeriodsAreSpreadEquallyAndParityAlternates) {
  Clear clear;
  clear.seconds = 12;
  const Made scrambled = made(streamOf(clear), shortPeriods());
  EXPECT_EQ(scrambled.result.plan.periods, 6u);
  std::vector<std::size_t> lengths;
  unsigned parity = 1;
  for (const TsPacket &packet : scrambled.packets) {
    const unsigned control = PacketView(packet).scrambling();
    if (control != 0 && (control & 1) != parity) {
      parity = control & 1;
      lengths.push_back(0);
    }
    if (!lengths.empty()) {
      ++lengths.back();
    }
  }
  ASSERT_EQ(lengths.size(), 6u);
  for (const std::size_t length : lengths) {
    EXPECT_NEAR(static_cast<double>(length), 2 * packetsPerSecond, 20);
  }
}

TEST(Scramble, TablesAndEcmsComeBeforeTheFirstScrambledPacket) {
  const Made scrambled = made(streamOf({}), shortPeriods());
  chassis::PsiReader reader;
  std::map<unsigned, unsigned> seen;
  for (const TsPacket &packet : scrambled.packets) {
    if (PacketView(packet).scrambling() != 0) {
      break;
    }
    reader.push(packet);
    ++seen[PacketView(packet).pid()];
  }
  EXPECT_TRUE(reader.complete());
  EXPECT_EQ(reader.psi().cat.size(), 1u);
  for (const EcmStream &ecm : scrambled.result.plan.ecms) {
    EXPECT_GT(seen[ecm.pid], 0u);
  }
}

TEST(Scramble, EmmOnceASecond) {
  const Made scrambled = made(streamOf({}), shortPeriods());
  std::uint32_t next = 0;
  chassis::SectionAssembler assembler;
  for (const TsPacket &packet : onPid(scrambled.packets, scrambled.psi.cat.at(0).pid)) {
    assembler.push(packet, [&next](const chassis::Section &section) {
      EXPECT_EQ(chassis::labca::decodeEmm(section.data(), section.size()), next);
      ++next;
    });
  }
  EXPECT_NEAR(next, 9, 1);
}

TEST(Scramble, FreePidsAvoidWhatIsInUse) {
  Clear clear;
  clear.programs[0].streams[0].pid = clear.programs[0].pcrPid = 0x1500;
  clear.programs[1].descriptors = testing_streams::caDescriptor(0x0B00, 0x1501);
  const Made scrambled = made(streamOf(clear), shortPeriods());
  EXPECT_EQ(scrambled.result.plan.ecms[0].pid, 0x1502);
  EXPECT_EQ(scrambled.result.plan.ecms[1].pid, 0x1503);
  EXPECT_EQ(scrambled.result.plan.emmPid, 0x1504);
}

TEST(ScrambleErrors, NameTheInputAndWhatWasWrong) {
  const auto told = [](const Bytes &clear, const Request &request, const std::string &part) {
    const std::string text = complaint(clear, request);
    EXPECT_NE(text.find(part), std::string::npos) << "'" << text << "' lacks '" << part << "'";
  };
  Request unknown, inUse, count, tooLong;
  unknown.programs = {parseProgram("105")};
  told(streamOf({}), unknown, "has no program 105; it has 101, 102");
  inUse.emmPid = 0x1001;
  told(streamOf({}), inUse, "EMM PID 0x1001 is in use");
  inUse = {};
  inUse.programs = {parseProgram("101:program:0x0102")};
  told(streamOf({}), inUse, "ECM PID 0x0102 is in use");
  count.programs = {parseProgram("102:stream:0x700")};
  told(streamOf({}), count, "program 102 needs 3 ECM PIDs, 1 are given");
  tooLong.ecmInterval = 4.5;
  told(streamOf({}), tooLong, "too short for two crypto periods");
  tooLong = {};
  tooLong.bitrate = 1;
  told(streamOf({}), tooLong,
       "crypto periods; give a higher --bitrate or a longer --crypto-period");
  tooLong = {};
  tooLong.firstEcmPid = 0x1FFA;
  told(streamOf({}), tooLong, "leaves no PID free");
}

TEST(ScrambleErrors, StreamsThatCannotBeUsed) {
  StreamWriter noPat, noPmt, noPcr;
  for (int i = 0; i < 50; ++i) {
    noPat.payload(0x1001);
    noPmt.table(0, testing_streams::patSection({program101}));
    noPcr.psi({program101}).payload(0x1001);
  }
  EXPECT_NE(complaint(noPat.bytes(), {}).find("has no program association table"),
            std::string::npos);
  EXPECT_NE(complaint(noPmt.bytes(), {}).find("has no program map table"), std::string::npos);
  EXPECT_NE(complaint(noPcr.bytes(), {}).find("has no PCR"), std::string::npos);
  EXPECT_NE(complaint({}, {}).find("is empty"), std::string::npos);
  EXPECT_NE(complaint(Bytes(5000, 0x11), {}).find("holds no transport stream"), std::string::npos);
  Request withBitrate;
  withBitrate.bitrate = 10000;
  EXPECT_EQ(complaint(noPcr.bytes(), withBitrate), "");
}

TEST(ScrambleErrors, ScrambledAlready) {
  const TemporaryFile in(streamOf({}));
  const TemporaryFile once;
  const TemporaryFile twice;
  scramble(shortPeriods(), in.path(), once.path());
  EXPECT_NE(complaint(once.read(), shortPeriods()).find("is scrambled already"), std::string::npos);
}

TEST(ScrambleErrors, OutputIsNotTheInputAndNothingIsLeftBehind) {
  const Bytes clear = streamOf({});
  const TemporaryFile in(clear);
  EXPECT_THROW(scramble({}, in.path(), in.path()), InputError);
  EXPECT_EQ(in.read(), clear);
  EXPECT_THROW(scramble({}, in.path(), "/nonexistent/out.ts"), InputError);

  Clear full;
  full.programs[0].descriptors = Bytes(996, 0);
  const TemporaryFile tooFull(streamOf(full));
  const std::string out = tooFull.path() + ".out";
  EXPECT_THROW(scramble({}, tooFull.path(), out), InputError);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_FALSE(std::filesystem::exists(out + ".partial"));
}

TEST(ScrambleErrors, DamagedInputIsRefusedOrScrambled) {
  const Bytes clear = streamOf({});
  std::mt19937 random(4);
  unsigned scrambled = 0;
  for (int round = 0; round < 60; ++round) {
    Bytes damaged = clear;
    for (int i = 0; i < 1 << round % 12; ++i) {
      damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    }
    damaged.erase(damaged.begin(), damaged.begin() + static_cast<std::ptrdiff_t>(random() % 2000));
    damaged.resize(damaged.size() - random() % damaged.size() / (1 + round % 5));
    const TemporaryFile in(damaged);
    const TemporaryFile out;
    try {
      scramble(shortPeriods(), in.path(), out.path());
      EXPECT_EQ(out.read().size() % chassis::tsPacketSize, 0u);
      ++scrambled;
    } catch (const InputError &error) {
      EXPECT_NE(std::string(error.what()), "");
    }
  }
  EXPECT_GT(scrambled, 0u);
}

Bytes fileBytes(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

TEST(ScrambleSample, BuiltSampleComesBackBitForBit) {
  const Bytes clear = fileBytes(CLEAR_SAMPLE);
  Made scrambled;
  scrambled.packets = packetsOf(fileBytes(SCRAMBLED_SAMPLE));
  chassis::PsiReader reader;
  for (const TsPacket &packet : scrambled.packets) {
    reader.push(packet);
  }
  scrambled.psi = reader.psi();
  ASSERT_EQ(scrambled.psi.programs.size(), 4u);
  for (unsigned i = 0; i < 4; ++i) {
    EXPECT_EQ(scrambled.psi.programs[i].ca.size(), i < 2 ? 1u : 0u);
    EXPECT_EQ(scrambled.psi.programs[i].streams[0].ca.size(), i < 2 ? 0u : 1u);
  }
  expectContinuity(scrambled.packets);
  expectSameStreams(descrambled(scrambled, 2), clear, scrambled.psi);
}

// The command itself: exit status and what it says, both streams of output together.
std::pair<int, std::string> command(const std::string &arguments) {
  const TemporaryFile output;
  const int status =
      std::system(("'" TS_SCRAMBLE "' " + arguments + " > '" + output.path() + "' 2>&1").c_str());
  const Bytes bytes = output.read();
  return {WEXITSTATUS(status), std::string(bytes.begin(), bytes.end())};
}

TEST(ScrambleCommand, TellsWhatItDid) {
  const TemporaryFile in(streamOf({}));
  const TemporaryFile out;
  const auto [status, text] =
      command("--program 101:program --program 102:stream --crypto-period 2 '" + in.path() + "' '" +
              out.path() + "'");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text.substr(text.find('\n') + 1),
            "program 101: ECM PID 0x1500 for 0x1001, 0x1002\n"
            "program 102: ECM PID 0x1501 for 0x1011\n"
            "program 102: ECM PID 0x1502 for 0x1012\n"
            "program 102: ECM PID 0x1503 for 0x1013\n");
  EXPECT_EQ(text.find("CA system 0x0500, EMM PID 0x1504, 4 crypto periods of 2.0"), 0u) << text;
  EXPECT_EQ(packetsOf(out.read()).size(), packetsOf(in.read()).size());
}

TEST(ScrambleCommand, WrongArgumentsAreTold) {
  const TemporaryFile in(streamOf({}));
  const std::string files = " '" + in.path() + "' /nonexistent/out";
  const std::pair<std::string, std::string> cases[] = {
      {"--casid 70000" + files, "--casid"},
      {"--casid x" + files, "--casid"},
      {"--casid -1" + files, "--casid: -1 does not fit; write 1 to 65535"},
      {"--seed -1" + files, "--seed: -1 does not fit; write 0 to 18446744073709551614"},
      {"--seed 99999999999999999999" + files, "--seed: 99999999999999999999 does not fit"},
      {"--bitrate -1" + files, "--bitrate: -1 does not fit; write 1 to 1000000000"},
      {"--new-pmt -18446744073709551515" + files, "--new-pmt: -18446744073709551515 does not fit"},
      {"--ecm-pid 8191" + files, "--ecm-pid: 8191 does not fit; write 32 to 8190"},
      {"--crypto-period nan" + files, "crypto period nan s is out of range"},
      {"--emm-pid 0x1FFF" + files, "--emm-pid"},
      {"--level both" + files, "'both' is no level; program or stream would be right"},
      {"--cipher rot13" + files, "'rot13' is no cipher; none or xor would be right"},
      {"--crypto-period 0" + files, "crypto period 0 s is out of range"},
      {"--program 101 --new-pmt 102" + files,
       "program 102 is not scrambled, so its PMT stays as it is"},
      {"--program 7" + files, "has no program 7; it has 101, 102"},
      {"--nonsense" + files, "--nonsense"},
      {"/nonexistent/in /nonexistent/out", "'/nonexistent/in' cannot be opened"},
      {files, "'/nonexistent/out' cannot be written"},
      {"'" + in.path() + "'", "OUT is required"}};
  for (const auto &[arguments, part] : cases) {
    const auto [status, text] = command(arguments);
    EXPECT_EQ(status, 2) << arguments;
    EXPECT_NE(text.find(part), std::string::npos) << text;
  }
}

}  // namespace
