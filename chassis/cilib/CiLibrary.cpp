#include "cilib/CiLibrary.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "cilib/CamLink.h"
#include "kernel/Semaphore.h"

namespace {

constexpr std::uint32_t camCount = MAX_BOARD_NUM * MAX_CAM_NUM;
constexpr std::uint32_t noIndex = 0xFF;

// What the bound library and the module's calls work on.
struct Host {
  bool loaded = false;
  std::uint64_t nowMs = 0;  // of the last tick
  std::vector<chassis::CamLink> links;

  // Null for an index that no CAM has.
  chassis::CamLink *at(std::uint32_t index) {
    return index < links.size() ? &links[index] : nullptr;
  }
};

Host *host = nullptr;

CaPmtProg records[32];
semaphore recordsLock{1};
semaphore needsCaPmt[camCount];

std::uint32_t indexOf(std::uint32_t slot, std::uint32_t camSlot) {
  return slot < MAX_BOARD_NUM && camSlot < MAX_CAM_NUM ? slot * MAX_CAM_NUM + camSlot : noIndex;
}

chassis::CamLink *linkAt(std::uint32_t index) {
  return host != nullptr ? host->at(index) : nullptr;
}

}  // namespace

extern "C" {

CaPmtProg *CaPmtInfo[32] = {&records[0],  &records[1],  &records[2],  &records[3],  &records[4],
                            &records[5],  &records[6],  &records[7],  &records[8],  &records[9],
                            &records[10], &records[11], &records[12], &records[13], &records[14],
                            &records[15], &records[16], &records[17], &records[18], &records[19],
                            &records[20], &records[21], &records[22], &records[23], &records[24],
                            &records[25], &records[26], &records[27], &records[28], &records[29],
                            &records[30], &records[31]};
SEM_ID CaPmtSem = &recordsLock;
SEM_ID CaPMTFlag[12] = {&needsCaPmt[0], &needsCaPmt[1], &needsCaPmt[2],  &needsCaPmt[3],
                        &needsCaPmt[4], &needsCaPmt[5], &needsCaPmt[6],  &needsCaPmt[7],
                        &needsCaPmt[8], &needsCaPmt[9], &needsCaPmt[10], &needsCaPmt[11]};
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];

int32_t ciLibLoad(void) {
  if (host == nullptr) {
    return -1;
  }
  host->loaded = true;
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  return indexOf(slotNo, camSlot);
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  const auto *link = linkAt(indexOf(slotNo, camSlot));
  return link != nullptr ? link->insertStatus() : 0;
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  const auto *link = linkAt(index);
  return link != nullptr && link->supports(caSysID) ? 0 : 1;
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **programs, uint32_t count) {
  auto *link = linkAt(indexOf(slotNo, camSlot));
  return link != nullptr ? link->send(programs, count, host->nowMs) : 0;
}

void qm_ci_ca_pmt_clr(uint8_t index, uint16_t caSysID) {
  if (auto *link = linkAt(index)) {
    link->forgetCaPmt(caSysID);
  }
}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  auto *link = linkAt(indexOf(slotNo, camSlot));
  return link != nullptr && link->reset(host->nowMs) ? 0 : -1;
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  if (auto *link = linkAt(index)) {
    link->forgetCaSystems();
  }
}

}  // extern "C"

namespace chassis {

struct CiLibrary::State {
  Host host;
};

CiLibrary::CiLibrary(Events &events) : state_(std::make_unique<State>()) {
  for (std::uint32_t index = 0; index < camCount; ++index) {
    const Place place{static_cast<int>(index / MAX_CAM_NUM), static_cast<int>(index % MAX_CAM_NUM)};
    needsCaPmt[index] = {};
    caPmtReplyInfo[index] = {};
    state_->host.links.emplace_back(place, events, CaPMTFlag[index], caPmtReplyInfo[index]);
  }
  host = &state_->host;
}

CiLibrary::~CiLibrary() {
  if (host == &state_->host) {
    host = nullptr;
  }
}

void CiLibrary::insert(std::uint32_t slot, std::uint32_t camSlot, Cam *cam, ProgramNames names) {
  if (cam == nullptr) {
    remove(slot, camSlot);
  } else if (auto *link = state_->host.at(indexOf(slot, camSlot))) {
    link->insert(std::make_unique<SoftwareCamPort>(*cam), std::move(names));
  }
}

void CiLibrary::remove(std::uint32_t slot, std::uint32_t camSlot) {
  if (auto *link = state_->host.at(indexOf(slot, camSlot))) {
    link->remove();
  }
}

void CiLibrary::observe(std::uint32_t slot, std::uint32_t camSlot,
                        std::vector<std::uint16_t> caSystems, std::function<void()> onReset) {
  if (auto *link = state_->host.at(indexOf(slot, camSlot))) {
    link->observe(std::move(caSystems), std::move(onReset));
  }
}

void CiLibrary::programsChanged(std::uint32_t slot) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    if (auto *link = state_->host.at(indexOf(slot, camSlot))) {
      link->programsChanged();
    }
  }
}

void CiLibrary::tick(std::uint64_t nowMs) {
  state_->host.nowMs = nowMs;
  if (state_->host.loaded) {
    for (CamLink &link : state_->host.links) {
      link.tick(nowMs);
    }
  }
}

const CiLibrary::History &CiLibrary::history(std::uint32_t slot, std::uint32_t camSlot) const {
  static const History none;
  const auto *link = state_->host.at(indexOf(slot, camSlot));
  return link != nullptr ? link->history() : none;
}

std::vector<std::uint16_t> CiLibrary::caSystems(std::uint32_t slot, std::uint32_t camSlot) const {
  const auto *link = state_->host.at(indexOf(slot, camSlot));
  return link != nullptr ? link->caSystems() : std::vector<std::uint16_t>{};
}

}  // namespace chassis
