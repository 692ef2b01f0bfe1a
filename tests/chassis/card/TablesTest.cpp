#include "card/Tables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

using namespace chassis;

namespace {

PsiProgram program(std::uint16_t number, std::uint16_t firstPid) {
  PsiProgram result;
  result.number = number;
  result.pmtPid = static_cast<std::uint16_t>(0x1000 + number);
  result.pcrPid = firstPid;
  result.streams = {{0x1B, firstPid, {}}, {0x04, static_cast<std::uint16_t>(firstPid + 1), {}}};
  return result;
}

std::uint16_t read16(const void *form, std::size_t offset) {
  std::uint16_t value = 0;
  std::memcpy(&value, static_cast<const std::uint8_t *>(form) + offset, sizeof value);
  return value;
}

class Tables : public testing::Test {
 protected:
  std::unique_ptr<CiDesc> table = std::make_unique<CiDesc>();
  std::unique_ptr<MuxCardForm> mux = std::make_unique<MuxCardForm>();
  InPortForm port{};
  Psi psi;
};

}  // namespace

TEST_F(Tables, ListsTheAssignedProgramsInPatOrder) {
  psi.programs = {program(5, 0x100), program(1, 0x200), program(3, 0x300)};
  const CamMasks masks = {{1, 0}, {3, 2}, {5, 3}, {9, 1}};
  EXPECT_TRUE(buildDescTable(psi, masks, *table).empty());
  ASSERT_EQ(table->descProgCnt, 2U);
  EXPECT_EQ(table->prog[0].prog_num, 5);
  EXPECT_EQ(table->prog[0].camMask, 3);
  EXPECT_EQ(table->prog[1].prog_num, 3);
  EXPECT_EQ(table->prog[1].camMask, 2);
  ASSERT_EQ(table->prog[1].eleNum, 2);
  EXPECT_EQ(table->prog[1].ele[0].pid, 0x300);
  EXPECT_EQ(table->prog[1].ele[0].streamType, 0x1B);
  EXPECT_EQ(table->prog[1].ele[1].pid, 0x301);
}

TEST_F(Tables, AnOldTableLeavesNothing) {
  std::memset(table.get(), 0xEE, sizeof *table);
  psi.programs = {program(5, 0x100)};
  buildDescTable(psi, {}, *table);
  EXPECT_EQ(table->descProgCnt, 0U);
  EXPECT_EQ(table->prog[0].prog_num, 0);
  EXPECT_EQ(table->prog[31].ele[31].caList.privData[255], 0);
}

TEST_F(Tables, OldFormsLeaveNothing) {
  std::memset(&port, 0xEE, sizeof port);
  std::memset(mux.get(), 0xEE, sizeof *mux);
  buildInPortForm(psi, port);
  buildMuxForm(psi, {}, *mux);
  const InPortForm noPort{};
  const auto noMux = std::make_unique<MuxCardForm>();
  EXPECT_EQ(std::memcmp(&port, &noPort, sizeof port), 0);
  EXPECT_EQ(std::memcmp(mux.get(), noMux.get(), sizeof *mux), 0);
}

TEST_F(Tables, TellsTheLevelsOfCa) {
  const std::vector<PsiCa> ca = {{0x0500, 0x1F00, {}}};
  psi.programs = {program(0, 0x100), program(1, 0x200), program(2, 0x300), program(3, 0x400)};
  psi.programs[1].ca = ca;
  psi.programs[2].streams[1].ca = ca;
  psi.programs[3].ca = ca;
  psi.programs[3].streams[0].ca = ca;
  buildDescTable(psi, {{0, 1}, {1, 1}, {2, 1}, {3, 1}}, *table);
  for (std::uint16_t level = 0; level < 4; ++level) {
    EXPECT_EQ(table->prog[level].caLevel, level);
  }
  EXPECT_EQ(table->prog[2].ele[1].caList.caNum, 1);
  EXPECT_EQ(table->prog[2].ele[1].caList.ca[0].ecmPid, 0x1F00);
  EXPECT_EQ(table->prog[2].ele[0].caList.caNum, 0);
}

TEST_F(Tables, PacksPrivateDataAsLongAsThereIsRoom) {
  psi.programs = {program(1, 0x100)};
  const auto bytes = [](std::size_t size, std::uint8_t value) {
    return std::vector<std::uint8_t>(size, value);
  };
  psi.programs[0].ca = {{1, 0x10, bytes(200, 1)}, {2, 0x11, bytes(0, 0)}, {3, 0x12, bytes(57, 3)},
                        {4, 0x13, bytes(55, 4)},  {5, 0x14, bytes(1, 5)}, {6, 0x15, bytes(1, 6)}};
  buildDescTable(psi, {{1, 1}}, *table);
  const CiDescCaList &list = table->prog[0].caList;
  ASSERT_EQ(list.caNum, 6);
  const std::vector<int> lengths(list.privLen, list.privLen + 6);
  const std::vector<int> offsets(list.privOff, list.privOff + 6);
  EXPECT_EQ(lengths, (std::vector<int>{200, 0, 0, 55, 1, 0}));
  EXPECT_EQ(offsets, (std::vector<int>{0, 0, 0, 200, 255, 0}));
  EXPECT_EQ(list.privData[199], 1);
  EXPECT_EQ(list.privData[200], 4);
  EXPECT_EQ(list.privData[255], 5);
  EXPECT_EQ(list.ca[2].casid, 3);
}

TEST_F(Tables, LeavesOutWhatIsTooMuch) {
  CamMasks masks;
  for (std::uint16_t i = 0; i < 34; ++i) {
    psi.programs.push_back(program(i, static_cast<std::uint16_t>(0x100 + 0x40 * i)));
    masks[i] = 1;
  }
  PsiProgram &big = psi.programs[31];
  for (std::uint16_t i = 0; i < 40; ++i) {
    big.streams.push_back({0x06, static_cast<std::uint16_t>(0x1800 + i), {}});
    big.ca.push_back({0x0500, static_cast<std::uint16_t>(0x1900 + i), {}});
    big.streams[0].ca.push_back({0x0500, static_cast<std::uint16_t>(0x1A00 + i), {}});
  }
  const LeftOut leftOut = buildDescTable(psi, masks, *table);
  EXPECT_EQ(leftOut.size(), 4U);
  EXPECT_EQ(table->descProgCnt, 32U);
  EXPECT_EQ(table->prog[31].prog_num, 31);
  EXPECT_EQ(table->prog[31].eleNum, 32);
  EXPECT_EQ(table->prog[31].caList.caNum, 32);
  EXPECT_EQ(table->prog[31].caList.ca[31].ecmPid, 0x191F);
  EXPECT_EQ(table->prog[31].ele[0].caList.caNum, 32);
}

TEST_F(Tables, WhatIsLeftOutIsToldWithTheProgramsName) {
  psi.programs = {program(5, 0x100)};
  psi.programs[0].streams.resize(65);
  const auto names = [](std::uint16_t) { return std::string("Five"); };
  EXPECT_EQ(buildDescTable(psi, {{5, 1}}, *table, names),
            LeftOut{"33 streams of program 5 \"Five\", there is room for 32"});
  psi.programs[0].streams.clear();
  for (std::uint16_t i = 0; i < 300; ++i) {
    psi.programs[0].streams.push_back({0x06, static_cast<std::uint16_t>(0x1000 + i), {}});
  }
  const LeftOut leftOut = buildMuxForm(psi, {}, *mux, names);
  ASSERT_EQ(leftOut.size(), 1U);
  EXPECT_NE(leftOut[0].find(" PIDs of program 5 \"Five\", there is room for "), std::string::npos)
      << leftOut[0];
}

TEST_F(Tables, ExactlyFullIsNotTooMuch) {
  CamMasks masks;
  for (std::uint16_t i = 0; i < 32; ++i) {
    psi.programs.push_back(program(i, static_cast<std::uint16_t>(0x100 + 0x40 * i)));
    psi.programs.back().streams.resize(32);
    psi.programs.back().ca.resize(32);
    masks[i] = 1;
  }
  EXPECT_TRUE(buildDescTable(psi, masks, *table).empty());
  EXPECT_EQ(table->descProgCnt, 32U);
  EXPECT_EQ(table->prog[31].eleNum, 32);
}

TEST_F(Tables, TheInputPortListsEveryCaPidOnce) {
  psi.programs = {program(1, 0x100), program(2, 0x200)};
  psi.programs[0].ca = {{0x0500, 0x1F00, {}}};
  psi.programs[0].streams[1].ca = {{0x0500, 0x1F01, {}}, {0x0600, 0x1F00, {}}};
  psi.programs[1].ca = {{0x0500, 0x1F01, {}}, {0x0500, 0x1F02, {}}};
  psi.cat = {{0x0500, 0x1FF0, {}}, {0x0500, 0x1F00, {}}};
  EXPECT_TRUE(buildInPortForm(psi, port).empty());
  const std::vector<std::pair<int, int>> expected = {
      {0x0500, 0x1F00}, {0x0500, 0x1F01}, {0x0600, 0x1F00}, {0x0500, 0x1F02}, {0x0500, 0x1FF0}};
  ASSERT_EQ(port.caNum, expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(port.ca[i].casid, expected[i].first) << i;
    EXPECT_EQ(port.ca[i].pid, expected[i].second) << i;
  }
}

TEST_F(Tables, TheInputPortHoldsThirtyTwoCaPids) {
  psi.programs = {program(1, 0x100)};
  for (std::uint16_t i = 0; i < 32; ++i) {
    psi.programs[0].ca.push_back({0x0500, static_cast<std::uint16_t>(0x1F00 + i), {}});
  }
  EXPECT_TRUE(buildInPortForm(psi, port).empty());
  EXPECT_EQ(port.caNum, 32);
  psi.cat = {{0x0500, 0x1FF0, {}}};
  EXPECT_EQ(buildInPortForm(psi, port).size(), 1U);
  EXPECT_EQ(port.caNum, 32);
  EXPECT_EQ(port.ca[31].pid, 0x1F1F);
}

TEST_F(Tables, TheMultiplexFormStandsAtItsOffsets) {
  psi.programs = {program(1, 0x100), program(2, 0x200)};
  psi.programs[1].pcrPid = 0x2FF;
  EXPECT_TRUE(buildMuxForm(psi, {{2, 1}}, *mux).empty());
  const auto *bytes = reinterpret_cast<const std::uint8_t *>(mux.get());
  EXPECT_EQ(read16(bytes, 110), 2);
  EXPECT_EQ(bytes[128], 2);
  EXPECT_EQ(bytes[129], 0);
  EXPECT_EQ(read16(bytes, 206), 0x100);
  EXPECT_EQ(read16(bytes, 206 + 4), 0x101);
  EXPECT_EQ(bytes[128 + 236], 3);
  EXPECT_EQ(bytes[129 + 236], 1);
  EXPECT_EQ(read16(bytes, 206 + 236), 0x200);
  EXPECT_EQ(read16(bytes, 206 + 236 + 8), 0x2FF);
}

TEST_F(Tables, TheMultiplexFormLeavesTheCamsTheirEcms) {
  psi.programs = {program(1, 0x100), program(2, 0x200)};
  psi.programs[0].ca = {{0x0500, 0x1F00, {}}, {0x0500, 0x1F01, {}}};
  psi.programs[1].streams[0].ca = {{0x0500, 0x1F01, {}}, {0x0500, 0x1F02, {}}};
  const auto pidsOf = [this](std::size_t index) {
    const MuxCardProgram &entry = mux->programs[index];
    std::vector<int> pids;
    for (std::size_t j = 0; j < entry.pidNum; ++j) {
      pids.push_back(entry.pids[j].pid);
    }
    return pids;
  };
  buildMuxForm(psi, {}, *mux);
  EXPECT_EQ(pidsOf(0), (std::vector<int>{0x100, 0x101, 0x1F00, 0x1F01}));
  EXPECT_EQ(pidsOf(1), (std::vector<int>{0x200, 0x201, 0x1F01, 0x1F02}));
  buildMuxForm(psi, {{2, 2}}, *mux);
  EXPECT_EQ(pidsOf(0), (std::vector<int>{0x100, 0x101, 0x1F00}));
  EXPECT_EQ(pidsOf(1), (std::vector<int>{0x200, 0x201}));
}

TEST_F(Tables, TheMultiplexFormLeavesOutWhatIsTooMuch) {
  for (std::uint16_t i = 0; i < 33; ++i) {
    psi.programs.push_back(program(i, static_cast<std::uint16_t>(0x100 + 0x40 * i)));
  }
  for (std::uint16_t i = 0; i < 37; ++i) {
    psi.programs[31].streams.push_back({0x06, static_cast<std::uint16_t>(0x1800 + i), {}});
  }
  EXPECT_EQ(buildMuxForm(psi, {}, *mux).size(), 1U);
  EXPECT_EQ(mux->programNum, 32);
  EXPECT_EQ(mux->programs[31].pidNum, 39);
  psi.programs.pop_back();
  psi.programs[31].streams.push_back({0x06, 0x1900, {}});
  EXPECT_EQ(buildMuxForm(psi, {}, *mux).size(), 1U);
  EXPECT_EQ(mux->programs[31].pidNum, 39);
  EXPECT_EQ(mux->programs[31].pids[38].pid, 0x1824);
}
