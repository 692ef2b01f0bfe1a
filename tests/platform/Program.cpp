#include "Program.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint8_t GARBAGE = 0xA5;
constexpr uint16_t PROGRAM_LEVEL = 1;
constexpr uint16_t STREAM_LEVEL = 2;

// A test that breaks the table's limits would read beyond it.
void require(bool limit) {
  if (limit) {
    return;
  }
  std::fprintf(stderr, "the program table is too large\n");
  std::abort();
}

void addCa(CiDescCaList &list, const CiDescCa &ca, const std::vector<uint8_t> &priv) {
  require(list.caNum < 32);
  const uint16_t k = list.caNum++;
  const int offset = k == 0 ? 0 : list.privOff[k - 1] + list.privLen[k - 1];
  require(offset + priv.size() <= sizeof list.privData);
  list.ca[k] = ca;
  list.privOff[k] = static_cast<uint8_t>(offset);
  list.privLen[k] = static_cast<uint8_t>(priv.size());
  std::copy(priv.begin(), priv.end(), list.privData + offset);
}

void clear(CiDescCaList &list) {
  std::memset(&list, GARBAGE, sizeof list);
  list.caNum = 0;
}

template <typename Programs>
void fill(CiDesc &desc, const Programs &programs) {
  require(programs.size() <= 32);
  std::memset(&desc, GARBAGE, sizeof desc);
  desc.descProgCnt = 0;
  for (const Program &program : programs) {
    desc.prog[desc.descProgCnt++] = program.entry();
  }
}

}  // namespace

Program::Program(uint16_t number) {
  std::memset(&entry_, GARBAGE, sizeof entry_);
  entry_.prog_num = number;
  entry_.caLevel = 0;
  entry_.camMask = CAM_A;
  entry_.eleNum = 0;
  clear(entry_.caList);
}

Program &Program::cams(uint8_t mask) {
  entry_.camMask = mask;
  return *this;
}

Program &Program::level(uint16_t caLevel) {
  entry_.caLevel = caLevel;
  return *this;
}

Program &Program::ca(uint16_t casid, uint16_t ecmPid, const std::vector<uint8_t> &priv) {
  entry_.caLevel |= PROGRAM_LEVEL;
  addCa(entry_.caList, {casid, ecmPid}, priv);
  return *this;
}

Program &Program::stream(uint16_t type, uint16_t pid) {
  require(entry_.eleNum < 32);
  CiDescElem &element = entry_.ele[entry_.eleNum++];
  element.streamType = type;
  element.pid = pid;
  clear(element.caList);
  return *this;
}

Program &Program::streams(uint16_t type, uint16_t firstPid, uint16_t count) {
  for (uint16_t i = 0; i < count; ++i) {
    stream(type, static_cast<uint16_t>(firstPid + i));
  }
  return *this;
}

Program &Program::streamCa(uint16_t casid, uint16_t ecmPid, const std::vector<uint8_t> &priv) {
  require(entry_.eleNum > 0);
  entry_.caLevel |= STREAM_LEVEL;
  addCa(entry_.ele[entry_.eleNum - 1].caList, {casid, ecmPid}, priv);
  return *this;
}

void fillTable(CiDesc &desc, std::initializer_list<Program> programs) {
  fill(desc, programs);
}
void fillTable(CiDesc &desc, const std::vector<Program> &programs) {
  fill(desc, programs);
}
