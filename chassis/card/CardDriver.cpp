#include "card/CardDriver.h"

#include <array>

#include "card/Fpga.h"

namespace {

using chassis::Card;
using chassis::PidMeter;
using Fpga = Card::Fpga;

std::array<Card *, MAX_BOARD_NUM> cards{};

// The card of a slot while one is in, else null.
Card *cardIn(std::uint32_t slotNo) {
  Card *card = slotNo < cards.size() ? cards[slotNo] : nullptr;
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
  return fpga != nullptr ? fpga->rate((fpga->*Meter.*Rate)()) : 0;
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

std::uint32_t alarmMask(std::uint32_t slotNo, std::uint32_t camSlot) {
  const Fpga *fpga = fpgaOf(slotNo);
  return fpga != nullptr && camSlot < fpga->alarmMask.size() && fpga->alarmMask[camSlot] ? 1 : 0;
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

// An item of a function; the type of the record's field checks the function's.
template <auto CiData::*Field>
struct ItemOf;
template <typename Function, Function CiData::*Field>
struct ItemOf<Field> {
  static DescIfItem make(std::uint32_t id, Function function) {
    return {id, reinterpret_cast<void *>(function)};
  }
};

constexpr auto before = &Fpga::before;
constexpr auto behind = &Fpga::behind;
constexpr auto rateOfAll = &PidMeter::rateOfAll;
constexpr auto rateOfValid = &PidMeter::rateOfValid;

const DescIfItem items[] = {
    {1, cardName},
    ItemOf<&CiData::GetCardOnline>::make(11, figure<&Fpga::online>),
    ItemOf<&CiData::GetCardReady>::make(12, figure<&Fpga::ready>),
    ItemOf<&CiData::GetProgDesc>::make(13, progDesc),
    ItemOf<&CiData::CardFn14>::make(14, noFunction),
    ItemOf<&CiData::CardFn15>::make(15, noFunction),
    ItemOf<&CiData::CamAlarmMask>::make(16, alarmMask),
    ItemOf<&CiData::GetCardBusy>::make(21, figure<&Fpga::busy>),
    ItemOf<&CiData::cimax_sync_ok>::make(30, figure<&Fpga::syncOk>),
    ItemOf<&CiData::cimax_pid_rate_pre>::make(31, pidRate<before>),
    ItemOf<&CiData::cimax_sys_rate_pre>::make(32, rate<before, rateOfAll>),
    ItemOf<&CiData::cimax_vld_rate_pre>::make(33, rate<before, rateOfValid>),
    ItemOf<&CiData::SetPreCAMCC>::make(34, setCc<before>),
    ItemOf<&CiData::GetPreCAMCC>::make(35, getCc<before>),
    ItemOf<&CiData::ClrAllPreCAMPidExist>::make(36, clearPresence<before>),
    ItemOf<&CiData::GetPreCAMPidExist>::make(37, presence<before>),
    ItemOf<&CiData::cimax_pid_rate>::make(41, pidRate<behind>),
    ItemOf<&CiData::cimax_sys_rate>::make(42, rate<behind, rateOfAll>),
    ItemOf<&CiData::cimax_vld_rate>::make(43, rate<behind, rateOfValid>),
    ItemOf<&CiData::SetCAMCC>::make(44, setCc<behind>),
    ItemOf<&CiData::GetCAMCC>::make(45, getCc<behind>),
    ItemOf<&CiData::ClrAllCAMPidExist>::make(46, clearPresence<behind>),
    ItemOf<&CiData::GetCAMPidExist>::make(47, presence<behind>),
    ItemOf<&CiData::PllReg>::make(51, pllRegister),
    ItemOf<&CiData::PllLock>::make(52, figure<&Fpga::pllLock>),
    ItemOf<&CiData::SetCamFlit>::make(53, setSwitch),
    ItemOf<&CiData::wrDesPid>::make(54, selectPid),
    ItemOf<&CiData::rdDescStat>::make(55, descState),
};
static_assert(std::size(items) == 28, "every id that the module accepts");

}  // namespace

namespace chassis {

void bindCard(std::uint32_t slot, Card *card) {
  if (slot < cards.size()) {
    cards[slot] = card;
  }
}

void registerCard(std::uint32_t slot) {
  static std::array<bool, MAX_BOARD_NUM> registered{};
  if (slot < registered.size() && !registered[slot]) {
    registered[slot] = true;
    descIfRegist(slot, items, std::size(items));
  }
}

}  // namespace chassis
