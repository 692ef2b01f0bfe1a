#include "status/StreamWords.h"

#include "base/ProgramText.h"
#include "base/Text.h"
#include "ts/Rtp.h"

namespace chassis::words {
namespace {

std::string quoted(const std::string &path) {
  return "'" + path + "'";
}

// As a pipe is named, which may be standard input.
std::string pipeName(const std::string &path) {
  return path == "-" ? "standard input" : quoted(path);
}

std::string streamOf(const Place &place) {
  constexpr const char *streams[] = {"the stream", "what goes into the receiver",
                                     "what comes out of the receiver"};
  return streams[static_cast<std::size_t>(place.side)];
}

// Behind what a source tells: a receiver that is judged has two.
std::string at(const Place &place) {
  constexpr const char *sides[] = {"", " (what goes in)", " (what comes out)"};
  return sides[static_cast<std::size_t>(place.side)];
}

std::string changedPrograms(const event::StreamChanged &facts) {
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < facts.versions.size(); ++i) {
    parts.push_back("PMT of " + programText(facts.changed.numbers()[i], facts.changed.names()[i]) +
                    " version " + std::to_string(facts.versions[i]));
  }
  return (parts.empty() ? "" : ", new: ") + joined(parts);
}

std::string unmatchedStreams(const event::StreamsUnmatched &facts) {
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < facts.pids.size(); ++i) {
    parts.push_back(programText(facts.programs.numbers()[i], facts.programs.names()[i]) + " PID " +
                    hex(facts.pids[i], 4) + ", stream type " + hex(facts.types[i], 2));
  }
  return joined(parts, "; ");
}

void addLoss(std::uint64_t lost, const std::string &unit, const std::string &where,
             std::vector<std::string> &parts) {
  if (lost > 0) {
    parts.push_back(countText(lost, unit, unit + "s") + where);
  }
}

std::string lossesText(const event::InputLost &facts) {
  std::vector<std::string> parts;
  addLoss(facts.network, "datagram", " in the network", parts);
  addLoss(facts.kernel, "datagram", " at the socket, whose buffer was full", parts);
  addLoss(facts.dropped, "packet", " here, for want of room", parts);
  return joined(parts);
}

std::string foreignText(const event::ForeignDatagram &datagram) {
  const std::string size = std::to_string(datagram.bytes) + " bytes";
  switch (datagram.reason) {
    case event::ForeignReason::Cut:
      return "a datagram of more than " + size;
    case event::ForeignReason::PayloadType:
      return "RTP of payload type " + std::to_string(datagram.number) + ", not " +
             std::to_string(rtpPayloadTypeTs);
    case event::ForeignReason::Payload:
      return "RTP whose payload is no whole packets, in " + size;
    case event::ForeignReason::Noise:
      break;
  }
  return datagram.bytes == 0 ? "an empty datagram"
                             : size + " that begin with " + hex(datagram.number, 2);
}

std::string whyGone(const event::WriterGone &facts) {
  switch (facts.reason) {
    case event::WriterGoneReason::AtEnd:
      return " is at its end";
    case event::WriterGoneReason::Unreadable:
      return " cannot be read: " + facts.trouble;
    case event::WriterGoneReason::Waits:
      break;
  }
  return " waits for the next one";
}

}  // namespace

// ------------------------------------------------------------------------------------------------
// A card and its stream
// ------------------------------------------------------------------------------------------------

EventWords of(const event::CardRemoved & /*facts*/, const Place & /*place*/) {
  return {"card pulled out", "the module still looks for its program table: ci_assert"};
}

EventWords of(const event::StreamDamaged &facts, const Place &place) {
  return {"the stream is damaged" + at(place),
          std::to_string(facts.bytes) + " bytes of " + pipeName(facts.path) + " are in no packet"};
}

EventWords of(const event::StreamEnded & /*facts*/, const Place & /*place*/) {
  return {"the stream ended", "its file can no longer be read"};
}

EventWords of(const event::WriterCame &facts, const Place &place) {
  return {"the stream's writer has come" + at(place), "it writes to " + pipeName(facts.path),
          Tone::Good};
}

EventWords of(const event::WriterGone &facts, const Place &place) {
  return {"the stream's writer has gone" + at(place), pipeName(facts.path) + whyGone(facts),
          Tone::Bad};
}

EventWords of(const event::StreamChanged &facts, const Place & /*place*/) {
  return {"the stream's programs changed",
          std::to_string(facts.programs.size()) + " programs" + changedPrograms(facts)};
}

EventWords of(const event::StreamBegun &facts, const Place &place) {
  return {streamOf(place) + " has begun", "after " + secondsText(facts.ms), Tone::Good};
}

EventWords of(const event::StreamSilent &facts, const Place &place) {
  const std::string why = "no packets for " + secondsText(facts.ms);
  return {streamOf(place) + " is silent", facts.begun ? why : "nothing has come yet", Tone::Bad};
}

EventWords of(const event::StreamBack &facts, const Place &place) {
  return {streamOf(place) + " is back", "after " + secondsText(facts.ms) + " without packets",
          Tone::Good};
}

EventWords of(const event::InputLost &facts, const Place &place) {
  return {"packets of " + streamOf(place) + " were lost", lossesText(facts), Tone::Bad};
}

EventWords of(const event::StreamsUnmatched &facts, const Place & /*place*/) {
  return {"streams that are not behind the receiver", unmatchedStreams(facts)};
}

EventWords of(const event::ProbeUnaligned & /*facts*/, const Place & /*place*/) {
  return {"the two files have no time in common",
          "their PCRs do not overlap; both are played from their begin", Tone::Bad};
}

EventWords of(const event::ProbeBegun &facts, const Place & /*place*/) {
  if (facts.by == 0) {
    return {"no program carries CA system " + hexListOf(facts.asked),
            "they carry " + hexListOf(facts.carried), Tone::Bad};
  }
  std::vector<std::uint16_t> others = facts.carried;
  others.erase(std::remove(others.begin(), others.end(), facts.by), others.end());
  return {"the receiver is judged by CA system " + hex(facts.by, 4),
          others.empty() ? "the programs carry no other"
                         : "the programs also carry " + hexListOf(others)};
}

EventWords of(const event::WentLive &facts, const Place & /*place*/) {
  return {"chassis time goes at the machine's clock from now on", quoted(facts.path) + " is live"};
}

EventWords of(const event::TransportErrors & /*facts*/, const Place & /*place*/) {
  return {"packets with transport_error_indicator", "they pass through, unread and not counted"};
}

EventWords of(const event::TablesCut &facts, const Place & /*place*/) {
  return {"left out of the card's tables", facts.leftOut};
}

EventWords of(const event::OutputLost &facts, const Place &place) {
  const std::string output = place.slot < 0 ? "the file of events" : "the output";
  return {output + " is not whole", quoted(facts.path) + ": " + facts.trouble};
}

// ------------------------------------------------------------------------------------------------
// Datagrams
// ------------------------------------------------------------------------------------------------

EventWords of(const event::SenderChanged &facts, const Place &place) {
  return {"another sender (SSRC)" + at(place),
          "the " + std::to_string(facts.senders - 1) + ". change"};
}

EventWords of(const event::InputForeign &facts, const Place &place) {
  return {"datagrams that hold no packets" + at(place), foreignText(facts.datagram), Tone::Bad};
}

EventWords of(const event::BufferSmall &facts, const Place &place) {
  const std::string asked = std::to_string(facts.asked);
  return {"the receive buffer has " + std::to_string(facts.bytes) + " of the " + asked +
              " bytes asked for" + at(place),
          "the machine allows no more: sysctl -w net.core.rmem_max=" + asked, Tone::Bad};
}

EventWords of(const event::InterfaceGone &facts, const Place &place) {
  return {"the network interface " + facts.interface + " has gone" + at(place),
          quoted(facts.path) + " is received again when it is back", Tone::Bad};
}

EventWords of(const event::InterfaceBack &facts, const Place &place) {
  return {"the network interface " + facts.interface + " is back" + at(place),
          quoted(facts.path) + " is received again", Tone::Good};
}

}  // namespace chassis::words
