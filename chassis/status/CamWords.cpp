#include "status/CamWords.h"

#include <algorithm>
#include <iterator>

#include "base/ProgramText.h"
#include "base/Text.h"

namespace chassis::words {
namespace {

struct CaEnableName {
  std::uint8_t code;
  const char *name;
};
constexpr CaEnableName caEnableNames[] = {{0x01, "descrambling possible"},
                                          {0x02, "possible after a purchase dialogue"},
                                          {0x03, "possible after a technical dialogue"},
                                          {0x71, "no entitlement"},
                                          {0x73, "technical reasons"}};

constexpr std::size_t shownAtMost = 8;  // a CAM may list thousands

// The texts of the first of so many items, and how many are not shown.
template <typename ToText>
std::string listed(std::size_t items, ToText toText) {
  std::vector<std::string> parts;
  const std::size_t shown = std::min(items, shownAtMost);
  for (std::size_t i = 0; i < shown; ++i) {
    parts.push_back(toText(i));
  }
  if (shown < items) {
    parts.push_back(std::to_string(items - shown) + " more");
  }
  return joined(parts);
}

std::string caSystemsText(const event::CaSystems &systems) {
  if (systems.ids.empty()) {
    return "no CA system";
  }
  return (systems.ids.size() == 1 ? "CA system " : "CA systems ") +
         listed(systems.ids.size(), [&](std::size_t i) { return hex(systems.ids[i], 4); });
}

// CA_enable with its code: "no entitlement (0x71)".
std::string caEnableText(std::uint16_t caEnable) {
  if (caEnable == 0) {
    return "no statement";
  }
  const auto *known =
      std::find_if(std::begin(caEnableNames), std::end(caEnableNames),
                   [caEnable](const CaEnableName &name) { return name.code == caEnable; });
  const bool named = known != std::end(caEnableNames);
  return std::string(named ? known->name : "a reserved value") + " (" + hex(caEnable, 2) + ")";
}

std::string textOf(const event::Programs &programs) {
  return programsText(programs.numbers(), programs.names());
}

std::string textOf(const event::Answer &answer) {
  return textOf(answer.programs) + ": " + caEnableText(answer.caEnable);
}

std::string streamsText(const event::Reply &reply) {
  return listed(reply.pids.size(), [&](std::size_t i) {
    return "PID " + hex(reply.pids[i], 4) + ": " + caEnableText(reply.caEnables[i]);
  });
}

// The first clause, and how many more there are.
std::string firstAndMore(const std::vector<std::string> &clauses) {
  if (clauses.size() < 2) {
    return joined(clauses);
  }
  return clauses.front() + "; and " + std::to_string(clauses.size() - 1) + " more";
}

std::string listManagement(const event::CaPmts &sent) {
  return "list management " + joined(sent.listManagement);
}

std::string tagText(const event::CamUnknownBytes &facts) {
  return facts.tag ? "tag " + hex(*facts.tag, 6) + ", " : "";
}

std::string streamsOf(const event::Feed &feed) {
  return textOf(feed.programs) + (feed.part ? " PID " + hexListOf(feed.pids) : "");
}

std::string tierOf(const event::Feed &feed) {
  return "tier " + std::to_string(feed.tier.value_or(0));
}

std::string whyOf(const event::Feed &feed) {
  const std::string onPid =
      " on PID " + hex(feed.ecmPid, 4) + " for " + std::to_string(feed.timeoutMs) + " ms";
  switch (feed.reason) {
    case event::FeedReason::Refused:
      return "refuses it for technical reasons";
    case event::FeedReason::NotEntitled:
      return "no entitlement for " + tierOf(feed);
    case event::FeedReason::NoEcm:
      return "no ECM" + onPid;
    case event::FeedReason::DamagedEcms:
      return "only damaged ECMs" + onPid;
    case event::FeedReason::OtherEcmPid:
      return "selected with another ECM PID now";
    case event::FeedReason::NotSelected:
      return "no longer selected";
    case event::FeedReason::EcmsCome:
      break;
  }
  return "ECMs on PID " + hex(feed.ecmPid, 4) + ", " + tierOf(feed);
}

}  // namespace

// ------------------------------------------------------------------------------------------------
// Coming and going
// ------------------------------------------------------------------------------------------------

EventWords of(const event::CamStarting &facts, const Place & /*place*/) {
  constexpr const char *reasons[] = {"inserted", "reset", "it went down by itself"};
  return {"CAM starts up", reasons[static_cast<std::size_t>(facts.reason)]};
}

EventWords of(const event::CamUp &facts, const Place & /*place*/) {
  return {"CAM is up, " + caSystemsText(facts), "ca_info of the CAM"};
}

EventWords of(const event::CamRemoved & /*facts*/, const Place & /*place*/) {
  return {"CAM removed", ""};
}

EventWords of(const event::CamReset &facts, const Place & /*place*/) {
  return {"RESET of the CAM", "reset " + std::to_string(facts.resets) + " since its insertion",
          Tone::Alarm};
}

EventWords of(const event::ResetAdvised &facts, const Place & /*place*/) {
  return {"the CAM would be reset",
          "it is only observed; so far " + countText(facts.resets, "time", "times"), Tone::Alarm};
}

EventWords of(const event::ResetCommandFailed &facts, const Place & /*place*/) {
  const std::string code = std::to_string(facts.code);
  switch (facts.reason) {
    case event::CommandFailure::Signal:
      return {"the command of --on-reset failed", "ended by signal " + code, Tone::Bad};
    case event::CommandFailure::ExitStatus:
      return {"the command of --on-reset failed", "exit status " + code, Tone::Bad};
    case event::CommandFailure::NotRun:
      break;
  }
  return {"the command of --on-reset was not run", facts.trouble, Tone::Bad};
}

EventWords of(const event::NoCamToReset & /*facts*/, const Place & /*place*/) {
  return {"no CAM to reset", ""};
}

// ------------------------------------------------------------------------------------------------
// What the host sends
// ------------------------------------------------------------------------------------------------

EventWords of(const event::CaPmtSent &facts, const Place & /*place*/) {
  return {"CA PMT sent: " + textOf(facts.programs), listManagement(facts)};
}

EventWords of(const event::QuerySent &facts, const Place & /*place*/) {
  return {"query sent: " + textOf(facts.programs), listManagement(facts)};
}

EventWords of(const event::CaPmtRefused &facts, const Place & /*place*/) {
  return {"CA PMT refused",
          std::to_string(facts.records) + " programs, at most " + std::to_string(facts.most)};
}

EventWords of(const event::CaPmtIncomplete &facts, const Place & /*place*/) {
  return {"CA PMT incomplete", firstAndMore(facts.leftOut)};
}

// ------------------------------------------------------------------------------------------------
// What the CAM sends, or does not
// ------------------------------------------------------------------------------------------------

EventWords of(const event::Reply &facts, const Place & /*place*/) {
  return {"reply: " + textOf(facts.answer), streamsText(facts)};
}

EventWords of(const event::CamSilent &facts, const Place & /*place*/) {
  const std::string within = " within " + std::to_string(facts.withinMs / 1000) + " s";
  return {"CAM does not answer", facts.awaited == event::Awaited::CaInfo
                                     ? "no ca_info" + within + "; asked again"
                                     : "no reply to the query" + within};
}

EventWords of(const event::CamUnknownBytes &facts, const Place & /*place*/) {
  return {"CAM sends unknown bytes, ignored",
          tagText(facts) + std::to_string(facts.bytes) + " bytes"};
}

EventWords of(const event::CaInfoRefused &facts, const Place & /*place*/) {
  return {"ca_info refused", facts.trouble};
}

EventWords of(const event::CaInfoUnasked &facts, const Place & /*place*/) {
  return {"ca_info that nobody asked for, ignored", caSystemsText(facts)};
}

EventWords of(const event::ReplyRefused &facts, const Place & /*place*/) {
  return {"reply refused", facts.trouble};
}

EventWords of(const event::ReplyUnasked &facts, const Place & /*place*/) {
  return {"reply to no query, ignored", textOf(facts.programs)};
}

EventWords of(const event::ReplyCut &facts, const Place & /*place*/) {
  return {"reply too long, cut", textOf(facts) + "; a record holds 32 programs of 32 streams"};
}

EventWords of(const event::ReplyChanged &facts, const Place & /*place*/) {
  return {"CAM changes its reply", textOf(facts)};
}

// ------------------------------------------------------------------------------------------------
// The software CAM
// ------------------------------------------------------------------------------------------------

// Clear headers around garbage are no descrambled program.
EventWords of(const event::CamDescrambles &facts, const Place & /*place*/) {
  return {(facts.wrongKeys ? "works with wrong keys on " : "descrambles ") + streamsOf(facts.feed),
          whyOf(facts.feed)};
}

EventWords of(const event::CamStops &facts, const Place & /*place*/) {
  return {"stops descrambling " + streamsOf(facts), whyOf(facts)};
}

EventWords of(const event::CamCannot &facts, const Place & /*place*/) {
  return {"does not descramble " + streamsOf(facts), whyOf(facts)};
}

EventWords of(const event::CamIgnores &facts, const Place & /*place*/) {
  return {"ignores an object from the host", facts.trouble};
}

EventWords of(const event::CamDeaf & /*facts*/, const Place & /*place*/) {
  return {"CAM goes deaf", "takes no object and descrambles nothing until its next reset"};
}

}  // namespace chassis::words
