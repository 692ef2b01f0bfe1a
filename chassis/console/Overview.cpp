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

Cell alarmCell(const std::vector<AlarmService::Alarm> &alarms, std::uint32_t slot, int camSlot) {
  std::vector<std::string> faults;
  for (const AlarmService::Alarm &alarm : alarms) {
    const bool ofCard = alarm.place.slot == static_cast<int>(slot);
    if (ofCard && (alarm.place.cam == camSlot || alarm.place.cam < 0)) {
      faults.push_back(alarmFault(alarm.record));
    }
  }
  return {faults.empty() ? "none" : joined(faults), faults.empty() ? Tone::Plain : Tone::Alarm};
}

std::vector<Cell> camRow(const Snapshot &snapshot, const CardFinding &card, std::uint32_t camSlot) {
  const CamFinding &cam = card.cams[camSlot];
  const CamNotes &notes = snapshot.cams[card.slot][camSlot];
  const CiLibrary::History &history = notes.history;
  return {{std::to_string(card.slot)},
          fieldCell(controllerWords(card.controller), card.controller, "CI controller "),
          {camText(static_cast<int>(camSlot))},
          fieldCell(insertWords(cam.insert), cam.insert, "CAM "),
          caSystemsCell(cam, notes.caSystems),
          fieldCell(caPidWords(cam.caPids), cam.caPids, "CA PIDs "),
          fieldCell(descramblingWords(cam), cam.descrambling, ""),
          alarmCell(snapshot.alarms, card.slot, static_cast<int>(camSlot)),
          {history.caPmt ? stampText(history.caPmtMs) : "none"},
          {history.reset ? stampText(history.resetMs) : "none"},
          {card.checked ? stampText(card.takenMs) : "not yet"}};
}

std::string uncheckedText(const CardFinding &card, std::size_t width) {
  std::vector<std::string> programs;
  for (const ProgramFinding &program : card.programs) {
    programs.push_back(namedNumber(program.number, program.service.name));
  }
  return fitted("slot " + std::to_string(card.slot) +
                    ": the module has not checked this card yet; its stream carries " +
                    joined(programs) + "\n",
                width);
}

}  // namespace

std::string overview(const Snapshot &snapshot, bool colour, std::size_t width) {
  Table table{cardTitles, {}};
  for (const auto &card : snapshot.cards) {
    for (std::uint32_t camSlot = 0; card != nullptr && camSlot < MAX_CAM_NUM; ++camSlot) {
      table.rows.push_back(camRow(snapshot, *card, camSlot));
    }
  }
  const std::string time = "chassis time " + stampText(snapshot.takenMs) + "\n";
  return time + (table.rows.empty() ? "no card is in\n" : tableText(table, colour, width));
}

std::string cardDetail(const Snapshot &snapshot, std::uint32_t slot, bool colour,
                       std::size_t width) {
  const auto &card = snapshot.cards[slot];
  if (card == nullptr) {
    throw noCardIn(slot);
  }
  return (card->checked ? statusTable(*card, colour, width) : uncheckedText(*card, width)) +
         camHistory(snapshot.cams[slot], width);
}

std::string alarmLists(const Snapshot &snapshot, const std::deque<AlarmService::Alarm> &history,
                       bool colour, std::size_t width) {
  std::string text = standingAlarms(snapshot.alarms, colour, width);
  if (history.empty()) {
    return text + "no alarm has stood before\n";
  }
  text += "history:\n";
  for (const AlarmService::Alarm &alarm : history) {
    text += "  alarm " + std::to_string(alarm.index) + ", from " + stampText(alarm.raisedMs) +
            " to " + stampText(alarm.clearedMs) + ": " + alarm.text + "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
