#include "CardRig.h"

#include <algorithm>

#include "cilib/ApduCodec.h"
#include "kernel/Clock.h"

namespace {

using namespace chassis;

constexpr std::size_t programsOfCam = 2;
constexpr std::uint64_t warmUpMs = 500;  // several ECMs of each PID

Cam::Config readyAtOnce() {
  Cam::Config config;
  config.caSystems = {0x0500};
  config.startUpMs = 0;
  return config;
}

template <typename Level>
void setCa(Level &level, const CiDescCaList &list) {
  level.caNum = static_cast<std::uint8_t>(list.caNum);
  for (std::size_t i = 0; i < list.caNum; ++i) {
    level.casid[i] = list.ca[i].casid;
    level.caPid[i] = list.ca[i].ecmPid;
  }
}

CaPmtProg recordOf(const CiDescProg &program, std::uint8_t listManagement) {
  CaPmtProg record{};
  record.mark = 1;
  record.caLevel = static_cast<std::uint8_t>(program.caLevel);
  record.cmdId = cmdOkDescrambling;
  record.listMgmt = listManagement;
  record.progNum = program.prog_num;
  record.version = 1;
  setCa(record, program.caList);
  record.eleNum = static_cast<std::uint8_t>(program.eleNum);
  for (std::size_t i = 0; i < program.eleNum; ++i) {
    const bool own = program.ele[i].caList.caNum != 0;
    record.ele[i].cmdId = own ? cmdOkDescrambling : std::uint8_t{0};
    record.ele[i].streamType = static_cast<std::uint8_t>(program.ele[i].streamType);
    record.ele[i].pid = program.ele[i].pid;
    setCa(record.ele[i], program.ele[i].caList);
  }
  return record;
}

}  // namespace

CardRig::CardRig(bool withCams)
    : cams_{{{readyAtOnce(), {0, 0}, events_, 0}, {readyAtOnce(), {0, 1}, events_, 0}}} {
  card_.insert(streamPath, cardBitrate, nowMs_);
  for (std::size_t cam = 0; withCams && cam < cams_.size(); ++cam) {
    card_.setCam(static_cast<std::uint32_t>(cam), &cams_[cam]);
    select(cam);
  }
  run(warmUpMs);
}

// The CAM's share of the programs, the first ones to the first CAM.
void CardRig::select(std::size_t cam) {
  constexpr std::uint8_t first = 1, last = 2;
  const std::vector<ProgramInfo> programs = card_.programs();
  for (std::size_t i = 0; i < programsOfCam; ++i) {
    card_.assign(programs.at(cam * programsOfCam + i).number, static_cast<std::uint8_t>(1U << cam));
  }
  card_.publishTables();
  const CiDesc &table = *card_.descTable();
  for (std::size_t i = 0; i < programsOfCam; ++i) {
    cams_[cam].receive(
        encodeCaPmt(recordOf(table.prog[cam * programsOfCam + i], i == 0 ? first : last)).apdu);
  }
}

void CardRig::run(std::uint64_t ms) {
  for (const std::uint64_t end = nowMs_ + ms; nowMs_ < end;) {
    nowMs_ += Clock::msPerTick;
    card_.tick(nowMs_);
    for (Cam &cam : cams_) {
      cam.tick(nowMs_);
    }
  }
  card_.behind(0);  // what was put off belongs to the time
}

DescramblerWork CardRig::work() const {
  return cams_[0].work() + cams_[1].work();
}
