// Records of random tables against a slow model of them, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "CiIf.h"
#include "platform/Platform.h"
#include "platform/Random.h"

namespace {

constexpr uint16_t SUPPORTED = 0x0500;
constexpr uint16_t UNSUPPORTED = 0x0666;
constexpr int STEPS = 300;

// How the private data of a list lie in its pool.
enum Layout { END_TO_END, APART, OVERLAPPING, ANYWHERE, NONE, LAYOUTS };

uint8_t length(Random &random, Layout layout) {
  switch (layout) {
    case NONE:
      return 0;
    case ANYWHERE:
      return random.byte();
    default:
      return static_cast<uint8_t>(random.below(14));
  }
}

uint8_t offset(Random &random, Layout layout, uint8_t end) {
  switch (layout) {
    case ANYWHERE:
      return random.byte();
    case OVERLAPPING:
      return static_cast<uint8_t>(end - std::min<uint32_t>(end, random.below(3)));
    default:
      return end;
  }
}

void fill(CiDescCaList &list, Random &random) {
  const Layout layout = static_cast<Layout>(random.below(LAYOUTS));
  list.caNum = static_cast<uint16_t>(random.below(33));
  for (uint8_t &byte : list.privData) {
    byte = random.byte();
  }
  const uint32_t unsupported = random.of<uint32_t>({0, 25, 100});  // in a hundred
  uint8_t end = 0;
  for (size_t k = 0; k < 32; ++k) {
    list.ca[k] = {random.below(100) < unsupported ? UNSUPPORTED : SUPPORTED, random.word()};
    list.privLen[k] = length(random, layout);
    list.privOff[k] = offset(random, layout, end);
    end = static_cast<uint8_t>(end + list.privLen[k] + (layout == APART ? random.below(3) : 0));
  }
}

void fill(CiDescProg &program, Random &random) {
  program.prog_num = random.word();
  program.caLevel = static_cast<uint16_t>(random.below(4));
  program.camMask = 1;
  program.eleNum = static_cast<uint16_t>(random.below(33));
  fill(program.caList, random);
  for (CiDescElem &stream : program.ele) {
    stream.streamType = random.word();
    stream.pid = random.word();
    fill(stream.caList, random);
  }
}

// The entries of a list that the CAM supports.
struct Taken {
  size_t count = 0;
  CiDescCa ca[32] = {};
  uint8_t len[32] = {};
  uint8_t off[32] = {};
};

Taken taken(const CiDescCaList &list) {
  Taken result;
  for (size_t k = 0; k < list.caNum; ++k) {
    if (list.ca[k].casid == SUPPORTED) {
      result.ca[result.count] = list.ca[k];
      result.len[result.count] = list.privLen[k];
      result.off[result.count] = list.privOff[k];
      ++result.count;
    }
  }
  return result;
}

template <typename Level>
void model(Level &level, const CiDescCaList &list, const uint8_t *streamIndex) {
  const Taken entries = taken(list);
  level.caNum = static_cast<uint8_t>(entries.count);
  for (size_t k = 0; k < entries.count; ++k) {
    level.casid[k] = entries.ca[k].casid;
    level.caPid[k] = entries.ca[k].ecmPid;
    if (streamIndex != nullptr && entries.len[k] == 0) {
      continue;
    }
    level.privLen[k] = entries.len[k];
    level.privOff[k] = entries.off[k];
    const size_t bound = streamIndex != nullptr ? entries.off[*streamIndex] : entries.off[k];
    for (size_t b = 0; b < entries.len[k] && bound + b < 256; ++b) {
      const size_t at = entries.off[k] + b;
      if (at < 256) {
        level.privData[at] = list.privData[at];
      }
    }
  }
}

CaPmtProg model(const CiDescProg &program, uint8_t version) {
  CaPmtProg record = {};
  record.mark = 1;
  record.caLevel = static_cast<uint8_t>(program.caLevel);
  record.cmdId = 1;
  record.listMgmt = 3;
  record.progNum = program.prog_num;
  record.version = version;
  record.eleNum = static_cast<uint8_t>(program.eleNum);
  if ((program.caLevel & 1) != 0) {
    model(record, program.caList, nullptr);
  }
  for (uint8_t s = 0; s < program.eleNum; ++s) {
    record.ele[s].streamType = static_cast<uint8_t>(program.ele[s].streamType);
    record.ele[s].pid = program.ele[s].pid;
    if ((program.caLevel & 2) != 0) {
      model(record.ele[s], program.ele[s].caList, &s);
      record.ele[s].cmdId = record.ele[s].caNum != 0 ? 1 : 0;
    }
  }
  return record;
}

std::string difference(const CaPmtProg &record, const CaPmtProg &expected) {
  const auto *a = reinterpret_cast<const uint8_t *>(&record);
  const auto *b = reinterpret_cast<const uint8_t *>(&expected);
  for (size_t i = 0; i < sizeof record; ++i) {
    if (a[i] != b[i]) {
      return "byte " + std::to_string(i) + " is " + std::to_string(a[i]) + ", not " +
             std::to_string(b[i]);
    }
  }
  return {};
}

class CaPmtModel : public testing::TestWithParam<uint32_t> {};

TEST_P(CaPmtModel, RecordsOfRandomTablesAreThoseOfTheModel) {
  registerCard(0);
  platform.supports(0, 0, {SUPPORTED});
  Random random(GetParam());
  CiDesc &table = platform.card[0].desc;
  table.descProgCnt = 1;
  for (int step = 0; step < STEPS; ++step) {
    fill(table.prog[0], random);
    ASSERT_EQ(caPMTSend(0, 0, 0, 0, 0), 1);
    platform.take();
    const CaPmtProg &record = platform.sent.back().records.at(0);
    ASSERT_EQ(difference(record, model(table.prog[0], record.version)), "")
        << "seed " << GetParam() << " step " << step;
    platform.sent.clear();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CaPmtModel, testing::Range(1u, 9u));

}  // namespace
