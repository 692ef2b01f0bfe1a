#include "cilib/CiLibrary.h"

#include <utility>

#include "cilib/CamLink.h"

namespace chassis {

CiLibrary::CiLibrary(Events &events, SharedData shared) : shared_(shared) {
  for (std::uint32_t index = 0; index < camCount; ++index) {
    const Place place{static_cast<int>(index / MAX_CAM_NUM), static_cast<int>(index % MAX_CAM_NUM)};
    shared_.needsCaPmt[index] = {};
    shared_.replies[index] = {};
    links_.emplace_back(place, events, &shared_.needsCaPmt[index], shared_.replies[index]);
  }
}

CiLibrary::~CiLibrary() = default;

std::uint32_t CiLibrary::indexOf(std::uint32_t slot, std::uint32_t camSlot) {
  return slot < MAX_BOARD_NUM && camSlot < MAX_CAM_NUM ? slot * MAX_CAM_NUM + camSlot : noIndex;
}

CamLink *CiLibrary::at(std::uint32_t index) {
  return index < links_.size() ? &links_[index] : nullptr;
}

const CamLink *CiLibrary::at(std::uint32_t index) const {
  return index < links_.size() ? &links_[index] : nullptr;
}

std::uint32_t CiLibrary::insertStatus(std::uint32_t slot, std::uint32_t camSlot) const {
  const auto *link = at(indexOf(slot, camSlot));
  return link != nullptr ? link->insertStatus() : 0;
}

bool CiLibrary::supports(std::uint32_t index, std::uint16_t caSystem) const {
  const auto *link = at(index);
  return link != nullptr && link->supports(caSystem);
}

std::int32_t CiLibrary::send(std::uint32_t slot, std::uint32_t camSlot, CaPmtProg *const *records,
                             std::uint32_t count) {
  auto *link = at(indexOf(slot, camSlot));
  return link != nullptr ? link->send(records, count, nowMs_) : 0;
}

void CiLibrary::forgetCaPmt(std::uint32_t index, std::uint16_t caSystem) {
  if (auto *link = at(index)) {
    link->forgetCaPmt(caSystem);
  }
}

bool CiLibrary::reset(std::uint32_t slot, std::uint32_t camSlot) {
  auto *link = at(indexOf(slot, camSlot));
  return link != nullptr && link->reset(nowMs_);
}

void CiLibrary::forgetCaSystems(std::uint32_t index) {
  if (auto *link = at(index)) {
    link->forgetCaSystems();
  }
}

void CiLibrary::insert(std::uint32_t slot, std::uint32_t camSlot, Cam *cam, ProgramNames names) {
  if (cam == nullptr) {
    remove(slot, camSlot);
  } else if (auto *link = at(indexOf(slot, camSlot))) {
    link->insert(std::make_unique<SoftwareCamPort>(*cam), std::move(names));
  }
}

void CiLibrary::remove(std::uint32_t slot, std::uint32_t camSlot) {
  if (auto *link = at(indexOf(slot, camSlot))) {
    link->remove();
  }
}

void CiLibrary::observe(std::uint32_t slot, std::uint32_t camSlot,
                        std::vector<std::uint16_t> caSystems, std::function<void()> onReset) {
  if (auto *link = at(indexOf(slot, camSlot))) {
    link->observe(std::move(caSystems), std::move(onReset));
  }
}

void CiLibrary::programsChanged(std::uint32_t slot) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    if (auto *link = at(indexOf(slot, camSlot))) {
      link->programsChanged();
    }
  }
}

void CiLibrary::tick(std::uint64_t nowMs) {
  nowMs_ = nowMs;
  if (loaded_) {
    for (CamLink &link : links_) {
      link.tick(nowMs);
    }
  }
}

const CiLibrary::History &CiLibrary::history(std::uint32_t slot, std::uint32_t camSlot) const {
  static const History none;
  const auto *link = at(indexOf(slot, camSlot));
  return link != nullptr ? link->history() : none;
}

const CaPmtReply &CiLibrary::replies(std::uint32_t slot, std::uint32_t camSlot) const {
  static const CaPmtReply none{};
  const std::uint32_t index = indexOf(slot, camSlot);
  return index < camCount ? shared_.replies[index] : none;
}

std::vector<std::uint16_t> CiLibrary::caSystems(std::uint32_t slot, std::uint32_t camSlot) const {
  const auto *link = at(indexOf(slot, camSlot));
  return link != nullptr ? link->caSystems() : std::vector<std::uint16_t>{};
}

}  // namespace chassis
