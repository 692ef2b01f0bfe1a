#include "console/Overview.h"

#include <vector>

#include "CiPlatform.h"
#include "alarms/AlarmText.h"
#include "base/ProgramText.h"
#include "base/Text.h"
#include "command/Missing.h"
#include "console/AlarmList.h"
#include "console/StatusTable.h"
#include "console/Table.h"
#include "status/FieldWords.h"
#include "status/Verdict.h"

namespace chassis {
namespace {

const std::vector<std::string> cardTitles{
    "slot",         "CI controller", "CAM",         "inserted",   "CA systems", "CA PIDs",
    "descrambling", "alarms",        "last CA PMT", "last reset", "checked"};

// A field in words with its code; what every title says already is left out.
Cell fieldCell(const FieldWords &words, std::uint16_t value, const std::string &title) {
  std::string text = words.text;
  if (text.rfind(title, 0) == 0) {
    text.erase(0, title.size());
  }
  return {text + " (" + hexText(value) + ")", words.tone};
}

// What the CAM has; where that does not help its programs, why.
Cell caSystemsCell(const CamFinding &cam, const std::vector<std::uint16_t> &casids) {
  const FieldWords &words = caSystemWords(cam);
  const std::string names = casids.empty() ? "none" : hexListOf(casids, " ");
  return words.tone == Tone::Bad ? Cell{names + ", " + words.text, words.tone} : Cell{names};
}

Cell alarmCell(const AlarmService &alarms, std::uint32_t slot, int camSlot) {
  std::vector<std::string> faults;
  for (const auto &entry : alarms.active()) {
    const AlarmService::Alarm &alarm = entry.second;
    const bool ofCard = alarm.place.slot == static_cast<int>(slot);
    if (ofCard && (alarm.place.cam == camSlot || alarm.place.cam < 0)) {
      faults.push_back(alarmFault(alarm.record));
    }
  }
  return {faults.empty() ? "none" : joined(faults), faults.empty() ? Tone::Plain : Tone::Alarm};
}

std::vector<Cell> camRow(Chassis &chassis, const CardFinding &card, std::uint32_t camSlot) {
  const CamFinding &cam = card.cams[camSlot];
  const CiLibrary::History &history = chassis.library().history(card.slot, camSlot);
  return {{std::to_string(card.slot)},
          fieldCell(controllerWords(card.controller), card.controller, "CI controller "),
          {camText(static_cast<int>(camSlot))},
          fieldCell(insertWords(cam.insert), cam.insert, "CAM "),
          caSystemsCell(cam, chassis.library().caSystems(card.slot, camSlot)),
          fieldCell(caPidWords(cam.caPids), cam.caPids, "CA PIDs "),
          fieldCell(descramblingWords(cam), cam.descrambling, ""),
          alarmCell(chassis.alarms(), card.slot, static_cast<int>(camSlot)),
          {history.caPmt ? stampText(history.caPmtMs) : "none"},
          {history.reset ? stampText(history.resetMs) : "none"},
          {card.takenMs == 0 ? "not yet" : stampText(card.takenMs)}};
}

// What the last check of a card found; without one, nothing is known.
CardFinding known(const StatusWatch &watch, std::uint32_t slot) {
  if (const CardFinding *snapshot = watch.snapshot(slot)) {
    return *snapshot;
  }
  CardFinding unknown;
  unknown.slot = slot;
  return unknown;
}

std::string uncheckedText(const Card &card, std::uint32_t slot, std::size_t width) {
  std::vector<std::string> programs;
  for (const ProgramInfo &program : card.programs()) {
    programs.push_back(namedNumber(program.number, program.service.name));
  }
  return fitted("slot " + std::to_string(slot) +
                    ": the module has not checked this card yet; its stream carries " +
                    joined(programs) + "\n",
                width);
}

}  // namespace

std::string overview(Chassis &chassis, const StatusWatch &watch, bool colour, std::size_t width) {
  Table table{cardTitles, {}};
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (!chassis.card(slot).inserted()) {
      continue;
    }
    const CardFinding card = known(watch, slot);
    for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
      table.rows.push_back(camRow(chassis, card, camSlot));
    }
  }
  const std::string time = "chassis time " + stampText(chassis.clock().elapsedMs()) + "\n";
  return time + (table.rows.empty() ? "no card is in\n" : tableText(table, colour, width));
}

std::string cardDetail(Chassis &chassis, const StatusWatch &watch, std::uint32_t slot, bool colour,
                       std::size_t width) {
  if (!chassis.card(slot).inserted()) {
    throw noCardIn(slot);
  }
  const CardFinding *snapshot = watch.snapshot(slot);
  return (snapshot != nullptr ? statusTable(*snapshot, colour, width)
                              : uncheckedText(chassis.card(slot), slot, width)) +
         camHistory(chassis.library(), slot, width);
}

std::string alarmLists(const AlarmService &alarms, bool colour, std::size_t width) {
  std::string text = standingAlarms(alarms, colour, width);
  if (alarms.history().empty()) {
    return text + "no alarm has stood before\n";
  }
  text += "history:\n";
  for (const AlarmService::Alarm &alarm : alarms.history()) {
    text += "  alarm " + std::to_string(alarm.index) + ", from " + stampText(alarm.raisedMs) +
            " to " + stampText(alarm.clearedMs) + ": " + alarm.text + "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
