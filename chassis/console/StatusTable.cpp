#include "console/StatusTable.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/Text.h"
#include "console/Table.h"
#include "status/Verdict.h"
#include "status/Words.h"

namespace chassis {
namespace {

constexpr std::size_t nameColumns = 24;  // the state still fits beside it on a narrow terminal

const std::vector<std::string> titles{"program",  "name",   "PID",    "stream",
                                      "CAM",      "state",  "cause",  "reply",
                                      "ECM PIDs", "before", "behind", "seen behind the CAMs"};

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

// Cause and note with the module's code; empty where there is neither.
std::string causeCell(const Verdict &verdict, std::uint8_t status) {
  const std::string &text = verdict.note.empty() ? verdict.cause : verdict.note;
  return text.empty() ? "" : text + " (" + hexText(status) + ")";
}

std::string replyCell(const PidFinding &pid) {
  return pid.reply == 0 ? "" : hexText(pid.reply) + (pid.replyOld ? " (old)" : "");
}

std::vector<Cell> pidRow(const ProgramFinding &program, const PidFinding &pid,
                         std::uint64_t nowMs) {
  const bool supervised = isSupervised(program);
  const Verdict verdict =
      supervised ? verdictOf(program, pid) : Verdict{"not supervised", "", "", Tone::Faint};
  return {{std::to_string(program.number)},
          {shortened(program.service.name, nameColumns)},
          {hexText(pid.pid)},
          {streamTypeText(pid.streamType)},
          {camMaskText(program.camMask)},
          {verdict.state, verdict.tone},
          {causeCell(verdict, pid.status)},
          {replyCell(pid)},
          {supervised ? ecmCell(pid, nowMs) : ""},
          {countsCell(pid.before)},
          {countsCell(pid.behind)},
          {behindCell(pid.behind)}};
}

// A stream that names none of its programs has no column for that.
void leaveOutNames(Table &table) {
  constexpr std::ptrdiff_t column = 1;
  const auto unnamed = [](const std::vector<Cell> &row) { return row[column].text.empty(); };
  if (std::all_of(table.rows.begin(), table.rows.end(), unnamed)) {
    table.titles.erase(table.titles.begin() + column);
    for (std::vector<Cell> &row : table.rows) {
      row.erase(row.begin() + column);
    }
  }
}

std::string brokenText(std::uint64_t packets) {
  return packets == 0 ? ""
                      : ", " + countText(packets, "packet", "packets") + " with transport errors";
}

// What was lost, by where; all places are told, so that nobody wonders about one.
std::string lossText(const CardFinding &card, const SourceCounters &counters, bool before) {
  std::uint64_t errors = 0;
  for (const ProgramFinding &program : card.programs) {
    for (const PidFinding &pid : program.pids) {
      errors += (before ? pid.before : pid.behind).ccErrors;
    }
  }
  return countText(counters.packets, "packet", "packets") + "; lost: network " +
         std::to_string(counters.networkLost) + ", kernel " + std::to_string(counters.kernelLost) +
         ", stream " + countText(errors, "continuity error", "continuity errors") + ", here " +
         std::to_string(counters.dropped) + "\n";
}

// Nothing of what datagrams alone have, where there were none.
std::string datagramText(const SourceCounters &counters) {
  if (counters.datagrams == 0) {
    return "";
  }
  return "  " + countText(counters.datagrams, "datagram", "datagrams") + ": put in order " +
         std::to_string(counters.reordered) + ", duplicates " +
         std::to_string(counters.duplicates) + ", too late " + std::to_string(counters.late) +
         ", without packets " + std::to_string(counters.foreign) + ", senders " +
         std::to_string(counters.senders) + "\n";
}

std::string streamLines(const CardFinding &card) {
  std::string text;
  if (card.input.live) {
    text += "in " + card.input.name + (card.input.silent ? ", silent" : "") + ": " +
            lossText(card, card.input.counters, true) + datagramText(card.input.counters);
  }
  if (card.countersBehind) {
    text += "behind " + card.behindName + ": " + lossText(card, *card.countersBehind, false) +
            datagramText(*card.countersBehind);
  }
  if (!card.output.name.empty()) {
    text += "out " + card.output.name + ": " + countText(card.output.packets, "packet", "packets") +
            ", lost " + std::to_string(card.output.lostPackets) + "\n";
  }
  return text;
}

std::string headline(const CardFinding &card) {
  return "slot " + std::to_string(card.slot) + " at " + stampText(card.takenMs) + ", " +
         bitrateText(card.bitrate) + ", " + countText(card.programs.size(), "program", "programs") +
         brokenText(card.transportErrors) + "\n";
}

std::string resetsText(const CiLibrary::History &history) {
  return countText(history.resets, "reset", "resets") + ", the last " + stampText(history.resetMs);
}

std::string historyText(const CiLibrary::History &history) {
  const std::string sent = history.sent
                               ? "last CA PMT or query " + stampText(history.sentMs) + " for " +
                                     countText(history.programs, "program", "programs")
                               : "no CA PMT";
  return sent + ", " + (history.reset ? resetsText(history) : "no reset");
}

std::string observedText(const CiLibrary::History &history) {
  return "only observed; the module would have made " + resetsText(history);
}

}  // namespace

std::string statusTable(const CardFinding &card, bool colour, std::size_t width) {
  Table table{titles, {}};
  for (const ProgramFinding &program : card.programs) {
    for (const PidFinding &pid : program.pids) {
      table.rows.push_back(pidRow(program, pid, card.takenMs));
    }
  }
  leaveOutNames(table);
  return fitted(headline(card), width) + tableText(table, colour, width) +
         fitted("before, behind the CAMs: packets/continuity errors; ECM PIDs: before the CAMs\n",
                width) +
         fitted(streamLines(card), width);
}

std::string camHistory(const CardCams &cams, std::size_t width) {
  std::string text;
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    const CiLibrary::History &history = cams[camSlot].history;
    if (!cams[camSlot].inserted || (!history.sent && !history.reset)) {
      continue;
    }
    text += "CAM " + camText(static_cast<int>(camSlot)) + ": " +
            (history.observed ? observedText(history) : historyText(history));
    text += "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
