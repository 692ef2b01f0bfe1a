#include "platform/CardDriver.h"

#include <array>
#include <iterator>

#include "CiIf.h"
#include "card/Fpga.h"
#include "platform/Binding.h"

namespace {

using chassis::Card;
using chassis::PidMeter;
using Fpga = Card::Fpga;

// The card of a slot while one is in, else null.
Card *cardIn(std::uint32_t slotNo) {
  Card *card = chassis::Binding::card(slotNo);
  return card != nullptr && card->inserted() ? card : nullptr;
}

Fpga *fpgaOf(std::uint32_t slotNo) {
  Card *card = cardIn(slotNo);
  return card != nullptr ? &card->fpga() : nullptr;
}

template <std::uint32_t (Fpga::*Figure)() const>
std::uint32_t figure(std::uint32_t slotNo) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? (fpga->*Figure)() : 0;
}

template <PidMeter Fpga::*Meter, std::uint32_t (PidMeter::*Rate)() const>
std::uint32_t rate(std::uint32_t slotNo) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? fpga->systemRate((fpga->*Meter.*Rate)()) : 0;
}

template <PidMeter Fpga::*Meter>
std::uint32_t pidRate(std::uint32_t slotNo, std::uint16_t first, std::uint16_t last) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? fpga->rate((fpga->*Meter).rate(first, last)) : 0;
}

template <PidMeter Fpga::*Meter>
void setCc(std::uint32_t slotNo, std::uint16_t pid, std::uint16_t value) {
  if (Fpga *fpga = fpgaOf(slotNo)) {
    (fpga->*Meter).setCcErrors(pid, value);
  }
}

template <PidMeter Fpga::*Meter>
std::uint16_t getCc(std::uint32_t slotNo, std::uint16_t pid) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? (fpga->*Meter).ccErrors(pid) : std::uint16_t{0};
}

template <PidMeter Fpga::*Meter, typename Slot>
void clearPresence(Slot slotNo) {
  if (Fpga *fpga = fpgaOf(slotNo)) {
    (fpga->*Meter).clearPresence();
  }
}

template <PidMeter Fpga::*Meter>
std::uint32_t presence(std::uint32_t slotNo, std::uint16_t pid) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr && (fpga->*Meter).present(pid) ? 1 : 0;
}

CiDesc *progDesc(std::uint32_t slotNo) {
  Card *card = cardIn(slotNo);
  return card != nullptr ? card->descTable() : nullptr;
}

void noFunction() {}

// A card that was pulled out has no alarms: its last findings stay in its record.
std::uint32_t alarmMask(std::uint32_t slotNo, std::uint32_t camSlot) {
  const Fpga *fpga = fpgaOf(slotNo);
  const bool known = fpga != nullptr && camSlot < fpga->alarmMask.size();
  return fpga == nullptr || (known && fpga->alarmMask[camSlot]) ? 1 : 0;
}

std::int32_t pllRegister(std::uint32_t slotNo, std::uint32_t value) {
  Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? fpga->writePll(value) : 0;
}

void setSwitch(std::uint32_t slotNo, std::uint16_t pid, std::uint32_t pass) {
  if (Fpga *fpga = fpgaOf(slotNo)) {
    fpga->setPass(pid, pass != 0);
  }
}

void selectPid(std::uint32_t slotNo, std::uint16_t pid) {
  if (Fpga *fpga = fpgaOf(slotNo)) {
    fpga->select(pid);
  }
}

std::uint32_t descState(std::uint32_t slotNo, std::uint32_t pidType) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr ? fpga->descState(pidType) : 0;
}

char cardName[] = "software CI card";

// An item of a function, whose type must be that of the record's field.
template <typename Function>
DescIfItem item(std::uint32_t id, Function CiData::*, Function function) {
  return {id, reinterpret_cast<void *>(function)};
}

constexpr auto before = &Fpga::before;
constexpr auto behind = &Fpga::behind;
constexpr auto rateOfAll = &PidMeter::rateOfAll;
constexpr auto rateOfValid = &PidMeter::rateOfValid;

const DescIfItem items[] = {
    {1, cardName},
    item(11, &CiData::GetCardOnline, figure<&Fpga::online>),
    item(12, &CiData::GetCardReady, figure<&Fpga::ready>),
    item(13, &CiData::GetProgDesc, progDesc),
    item(14, &CiData::CardFn14, noFunction),
    item(15, &CiData::CardFn15, noFunction),
    item(16, &CiData::CamAlarmMask, alarmMask),
    item(21, &CiData::GetCardBusy, figure<&Fpga::busy>),
    item(30, &CiData::cimax_sync_ok, figure<&Fpga::syncOk>),
    item(31, &CiData::cimax_pid_rate_pre, pidRate<before>),
    item(32, &CiData::cimax_sys_rate_pre, rate<before, rateOfAll>),
    item(33, &CiData::cimax_vld_rate_pre, rate<before, rateOfValid>),
    item(34, &CiData::SetPreCAMCC, setCc<before>),
    item(35, &CiData::GetPreCAMCC, getCc<before>),
    item(36, &CiData::ClrAllPreCAMPidExist, clearPresence<before>),
    item(37, &CiData::GetPreCAMPidExist, presence<before>),
    item(41, &CiData::cimax_pid_rate, pidRate<behind>),
    item(42, &CiData::cimax_sys_rate, rate<behind, rateOfAll>),
    item(43, &CiData::cimax_vld_rate, rate<behind, rateOfValid>),
    item(44, &CiData::SetCAMCC, setCc<behind>),
    item(45, &CiData::GetCAMCC, getCc<behind>),
    item(46, &CiData::ClrAllCAMPidExist, clearPresence<behind>),
    item(47, &CiData::GetCAMPidExist, presence<behind>),
    item(51, &CiData::PllReg, pllRegister),
    item(52, &CiData::PllLock, figure<&Fpga::pllLock>),
    item(53, &CiData::SetCamFlit, setSwitch),
    item(54, &CiData::wrDesPid, selectPid),
    item(55, &CiData::rdDescStat, descState),
};
static_assert(std::size(items) == 28, "every id that the module accepts");

}  // namespace

namespace chassis {

void registerCard(std::uint32_t slot) {
  static std::array<bool, MAX_BOARD_NUM> registered{};
  if (slot < registered.size() && !registered[slot]) {
    registered[slot] = true;
    descIfRegist(slot, items, std::size(items));
  }
}

}  // namespace chassis
