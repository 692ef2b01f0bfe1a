#include "report/StatusTable.h"

#include <algorithm>
#include <array>

#include "CiPlatform.h"
#include "Text.h"
#include "report/Timeline.h"
#include "report/Words.h"

namespace chassis {
namespace {

constexpr std::size_t columns = 11;
constexpr std::size_t stateColumn = 4;

struct Row {
  std::array<std::string, columns> cells;
  Tone tone = Tone::Plain;
};

const Row header{{"program", "PID", "stream", "CAM", "state", "cause", "reply", "ECM PIDs",
                  "before", "behind", "seen behind the CAMs"},
                 Tone::Plain};

std::string ecmCell(const PidFinding &pid, std::uint64_t nowMs) {
  std::vector<std::string> parts;
  for (const EcmFinding &ecm : pid.ecms) {
    std::string part = hexText(ecm.pid);
    if (ecm.evidence.packets == 0) {
      part += " never seen";
    } else if (!ecm.present) {
      part += " absent " + secondsText(nowMs - ecm.evidence.lastSeenMs);
    } else {
      part += " present/" + std::to_string(ecm.evidence.ccErrors);
    }
    parts.push_back(part);
  }
  return parts.empty() ? "none" : joined(parts, ", ");
}

std::string countsCell(const PidEvidence &evidence) {
  return std::to_string(evidence.packets) + "/" + std::to_string(evidence.ccErrors);
}

std::string behindCell(const PidEvidence &behind) {
  if (behind.packets == 0) {
    return "nothing";
  }
  if (behind.lastScrambled) {
    return "scrambled";
  }
  return behind.lastPesBad ? "clear, PES not readable" : "clear, PES readable";
}

Row pidRow(const ProgramFinding &program, const PidFinding &pid, std::uint64_t nowMs) {
  const bool supervised = program.camMask != 0;
  const StatusWords &words = statusWords(pid.status);
  Row row;
  row.tone = supervised ? words.tone : Tone::Faint;
  row.cells = {std::to_string(program.number),
               hexText(pid.pid),
               streamTypeText(pid.streamType),
               camMaskText(program.camMask),
               supervised ? words.state : "not supervised",
               supervised ? causeText(pid.status) : "",
               pid.reply == 0 ? "" : hexText(pid.reply),
               supervised ? ecmCell(pid, nowMs) : "",
               countsCell(pid.before),
               countsCell(pid.behind),
               behindCell(pid.behind)};
  return row;
}

std::array<std::size_t, columns> widths(const std::vector<Row> &rows) {
  std::array<std::size_t, columns> widest{};
  for (const Row &row : rows) {
    for (std::size_t c = 0; c < columns; ++c) {
      widest[c] = std::max(widest[c], row.cells[c].size());
    }
  }
  return widest;
}

std::string rowText(const Row &row, const std::array<std::size_t, columns> &widest, bool colour) {
  std::string text;
  for (std::size_t c = 0; c < columns; ++c) {
    const bool last = c + 1 == columns;
    const std::string &cell = row.cells[c];
    const std::size_t padding = last ? 0 : widest[c] - cell.size() + 2;
    text += c == stateColumn ? toned(cell, row.tone, colour) : cell;
    text += std::string(padding, ' ');
  }
  return text + "\n";
}

Row ruleBelow(const std::array<std::size_t, columns> &widest) {
  Row rule;
  for (std::size_t c = 0; c < columns; ++c) {
    rule.cells[c] = std::string(widest[c], '-');
  }
  return rule;
}

}  // namespace

std::string statusTable(const CardFinding &card, bool colour) {
  std::vector<Row> rows{header};
  for (const ProgramFinding &program : card.programs) {
    for (const PidFinding &pid : program.pids) {
      rows.push_back(pidRow(program, pid, card.takenMs));
    }
  }
  const std::array<std::size_t, columns> widest = widths(rows);
  rows.insert(rows.begin() + 1, ruleBelow(widest));
  std::string text = "slot " + std::to_string(card.slot) + " at " + stampText(card.takenMs) +
                     ", " + bitrateText(card.bitrate) + ", " +
                     countText(card.programs.size(), "program", "programs") + "\n";
  for (const Row &row : rows) {
    text += rowText(row, widest, colour);
  }
  return text + "before, behind the CAMs: packets/continuity errors; ECM PIDs: before the CAMs\n";
}

std::string camHistory(const CiLibrary &library, std::uint32_t slot) {
  std::string text;
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    const CiLibrary::History &history = library.history(slot, camSlot);
    const bool inserted = (ciLibGetInsertCard(slot, camSlot) & 0xFF) != 0;
    if (!inserted || (!history.sent && !history.reset)) {
      continue;
    }
    text += "CAM " + camText(static_cast<int>(camSlot)) + ": ";
    text += history.sent ? "last CA PMT or query " + stampText(history.sentMs) + " for " +
                               countText(history.programs, "program", "programs")
                         : "no CA PMT";
    text += history.reset ? ", " + countText(history.resets, "reset", "resets") + ", the last " +
                                stampText(history.resetMs)
                          : ", no reset";
    text += "\n";
  }
  return text;
}

}  // namespace chassis
