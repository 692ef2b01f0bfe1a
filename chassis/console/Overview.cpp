#include "console/Overview.h"

#include <algorithm>
#include <array>
#include <vector>

#include "CiPlatform.h"
#include "InputError.h"
#include "Text.h"
#include "alarms/AlarmText.h"
#include "report/AlarmList.h"
#include "report/FieldWords.h"
#include "report/Findings.h"
#include "report/StatusTable.h"
#include "report/Timeline.h"

namespace chassis {
namespace {

enum Column {
  CardSlot,
  Controller,
  CamSlot,
  Inserted,
  CaSystems,
  CaPids,
  Summary,
  Alarms,
  LastCaPmt,
  LastReset,
  columns
};

struct Cell {
  std::string text;
  Tone tone = Tone::Plain;
};
using Row = std::array<Cell, columns>;

const Row header{{{"slot"},
                  {"CI controller"},
                  {"CAM"},
                  {"inserted"},
                  {"CA systems"},
                  {"CA PIDs"},
                  {"descrambling"},
                  {"alarms"},
                  {"last CA PMT"},
                  {"last reset"}}};
static_assert(std::tuple_size_v<Row> == columns, "a title for each column");

// A field in words with its code; what every title says already is left out.
Cell fieldCell(const FieldWords &words, std::uint16_t value, const std::string &title) {
  std::string text = words.text;
  if (text.rfind(title, 0) == 0) {
    text.erase(0, title.size());
  }
  return {text + " (" + hexText(value) + ")", words.tone};
}

std::string caSystemsText(const CiLibrary &library, std::uint32_t slot, std::uint32_t camSlot) {
  std::vector<std::string> names;
  for (const std::uint16_t casid : library.caSystems(slot, camSlot)) {
    names.push_back(hex(casid, 4));
  }
  return names.empty() ? "none" : joined(names, " ");
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
  return {faults.empty() ? "none" : joined(faults), faults.empty() ? Tone::Plain : Tone::Bad};
}

Row camRow(Chassis &chassis, const CardFinding &card, std::uint32_t camSlot) {
  const CamFinding &cam = card.cams[camSlot];
  const CiLibrary::History &history = chassis.library().history(card.slot, camSlot);
  Row row;
  row[CardSlot].text = std::to_string(card.slot);
  row[Controller] = fieldCell(controllerWords(card.controller), card.controller, "CI controller ");
  row[CamSlot].text = camText(static_cast<int>(camSlot));
  row[Inserted] = fieldCell(insertWords(cam.insert), cam.insert, "CAM ");
  row[CaSystems].text = caSystemsText(chassis.library(), card.slot, camSlot);
  row[CaPids] = fieldCell(caPidWords(cam.caPids), cam.caPids, "CA PIDs ");
  row[Summary] = fieldCell(summaryWords(cam.descrambling), cam.descrambling, "");
  row[Alarms] = alarmCell(chassis.alarms(), card.slot, static_cast<int>(camSlot));
  row[LastCaPmt].text = history.sent ? stampText(history.sentMs) : "none";
  row[LastReset].text = history.reset ? stampText(history.resetMs) : "none";
  return row;
}

std::string textOf(const std::vector<Row> &rows, bool colour) {
  std::array<std::size_t, columns> widest{};
  for (const Row &row : rows) {
    for (std::size_t c = 0; c < columns; ++c) {
      widest[c] = std::max(widest[c], row[c].text.size());
    }
  }
  std::string text;
  for (const Row &row : rows) {
    for (std::size_t c = 0; c < columns; ++c) {
      const bool last = c + 1 == columns;
      text += toned(row[c].text, row[c].tone, colour);
      text += last ? "\n" : std::string(widest[c] - row[c].text.size() + 2, ' ');
    }
  }
  return text;
}

}  // namespace

std::string overview(Chassis &chassis, bool colour) {
  std::vector<Row> rows{header};
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (!chassis.card(slot).inserted()) {
      continue;
    }
    const CardFinding card = examine(chassis, slot);
    for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
      rows.push_back(camRow(chassis, card, camSlot));
    }
  }
  const std::string time = "chassis time " + stampText(chassis.clock().elapsedMs()) + "\n";
  return time + (rows.size() == 1 ? "no card is in\n" : textOf(rows, colour));
}

std::string cardDetail(Chassis &chassis, std::uint32_t slot, bool colour) {
  if (!chassis.card(slot).inserted()) {
    const std::string name = std::to_string(slot);
    throw InputError("no card is in slot " + name + "; put one in first: cardInsert " + name +
                     ", \"file\"");
  }
  return statusTable(examine(chassis, slot), colour) + camHistory(chassis.library(), slot);
}

std::string alarmLists(const AlarmService &alarms) {
  std::string text = standingAlarms(alarms);
  if (alarms.history().empty()) {
    return text + "no alarm has stood before\n";
  }
  text += "history:\n";
  for (const AlarmService::Alarm &alarm : alarms.history()) {
    text += "  alarm " + std::to_string(alarm.index) + ", from " + stampText(alarm.raisedMs) +
            " to " + stampText(alarm.clearedMs) + ": " + alarm.text + "\n";
  }
  return text;
}

}  // namespace chassis
