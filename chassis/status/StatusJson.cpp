#include "status/StatusJson.h"

#include <nlohmann/json.hpp>

#include "alarms/AlarmText.h"
#include "base/WallClock.h"
#include "status/FieldWords.h"
#include "status/Verdict.h"
#include "status/Words.h"

namespace chassis {
namespace {

using Json = nlohmann::ordered_json;

constexpr int indent = 2;

// A field of the module with what it says.
Json fieldJson(std::uint16_t value, const FieldWords &words) {
  return {{"value", value}, {"words", words.text}};
}

void addTime(Json &json, const char *name, bool known, std::uint64_t ms) {
  if (known) {
    json[name] = ms;
  }
}

Json evidenceJson(const PidEvidence &evidence) {
  Json json{{"packets", evidence.packets},
            {"scrambled", evidence.scrambled},
            {"continuity_errors", evidence.ccErrors}};
  if (evidence.packets > 0) {
    json["last_scrambled"] = evidence.lastScrambled;
    json["last_seen_ms"] = evidence.lastSeenMs;
  }
  return json;
}

Json ecmJson(const EcmFinding &ecm) {
  Json json{{"pid", ecm.pid}, {"present", ecm.present}};
  json.update(evidenceJson(ecm.evidence));
  return json;
}

void addWords(Json &json, const char *name, const std::string &words) {
  if (!words.empty()) {
    json[name] = words;
  }
}

void addVerdict(Json &json, bool supervised, std::uint8_t status, const Verdict &verdict) {
  if (!supervised) {
    json["state"] = "not supervised";
    return;
  }
  json["status"] = status;
  json["state"] = verdict.state;
  addWords(json, "cause", verdict.cause);
  addWords(json, "note", verdict.note);
}

Json pidJson(const ProgramFinding &program, const PidFinding &pid) {
  Json json{{"pid", pid.pid},
            {"stream_type", pid.streamType},
            {"stream", streamTypeText(pid.streamType)}};
  addVerdict(json, isSupervised(program), pid.status, verdictOf(program, pid));
  if (pid.reply != 0) {
    json["ca_enable"] = pid.reply;
    json["ca_enable_old"] = pid.replyOld;
  }
  json["ecms"] = Json::array();
  for (const EcmFinding &ecm : pid.ecms) {
    json["ecms"].push_back(ecmJson(ecm));
  }
  json["before"] = evidenceJson(pid.before);
  json["behind"] = evidenceJson(pid.behind);
  return json;
}

Json camsOf(std::uint8_t camMask) {
  Json cams = Json::array();
  for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
    if ((camMask >> cam & 1) != 0) {
      cams.push_back(cam);
    }
  }
  return cams;
}

Json programJson(const ProgramFinding &program) {
  Json json{{"program", program.number}};
  addWords(json, "name", program.service.name);
  addWords(json, "provider", program.service.provider);
  json["cams"] = camsOf(program.camMask);
  addVerdict(json, isSupervised(program), program.status, verdictOf(program));
  json["pids"] = Json::array();
  for (const PidFinding &pid : program.pids) {
    json["pids"].push_back(pidJson(program, pid));
  }
  return json;
}

Json camJson(std::uint32_t camSlot, const CamFinding &cam, const CamNotes &notes) {
  const CiLibrary::History &history = notes.history;
  Json json{{"cam", camSlot},
            {"inserted", notes.inserted},
            {"ca_systems", notes.caSystems},
            {"camInsert", fieldJson(cam.insert, insertWords(cam.insert))},
            {"casidStat", fieldJson(cam.casid, caSystemWords(cam))},
            {"preCamPidStat", fieldJson(cam.caPids, caPidWords(cam.caPids))},
            {"descStat", fieldJson(cam.descrambling, descramblingWords(cam))},
            {"programs", cam.programs},
            {"clear_programs", cam.clearPrograms},
            {"resets", history.resets}};
  addTime(json, "last_reset_ms", history.reset, history.resetMs);
  addTime(json, "last_ca_pmt_ms", history.caPmt, history.caPmtMs);
  return json;
}

Json countersJson(const SourceCounters &counters) {
  return {{"packets", counters.packets},
          {"skipped_bytes", counters.skippedBytes},
          {"datagrams", counters.datagrams},
          {"foreign", counters.foreign},
          {"kernel_lost", counters.kernelLost},
          {"network_lost", counters.networkLost},
          {"reordered", counters.reordered},
          {"duplicates", counters.duplicates},
          {"late", counters.late},
          {"senders", counters.senders},
          {"dropped", counters.dropped}};
}

Json outputJson(const Card::OutputFigures &output) {
  Json json{
      {"name", output.name}, {"packets", output.packets}, {"lost_packets", output.lostPackets}};
  if (output.lateness) {
    json["datagrams"] = output.lateness->datagrams;
    json["late"] = output.lateness->late;
    json["worst_lateness_ns"] = output.lateness->worstNs;
  }
  return json;
}

void addStreams(Json &json, const CardFinding &card) {
  json["input"] = {{"name", card.input.name},
                   {"live", card.input.live},
                   {"silent", card.input.silent},
                   {"counters", countersJson(card.input.counters)}};
  if (card.countersBehind) {
    json["behind"] = {{"name", card.behindName},
                      {"counters", countersJson(*card.countersBehind)},
                      {"unmatched_streams", card.unmatchedStreams}};
  }
  if (!card.output.name.empty()) {
    json["output"] = outputJson(card.output);
  }
}

Json cardJson(const CardFinding &card, const CardCams &cams) {
  Json json{{"slot", card.slot},
            {"bitrate", card.bitrate},
            {"transport_errors", card.transportErrors},
            {"cimaxStat", fieldJson(card.controller, controllerWords(card.controller))}};
  addStreams(json, card);
  json["cams"] = Json::array();
  json["programs"] = Json::array();
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    json["cams"].push_back(camJson(camSlot, card.cams[camSlot], cams[camSlot]));
  }
  for (const ProgramFinding &program : card.programs) {
    json["programs"].push_back(programJson(program));
  }
  return json;
}

Json alarmJson(const AlarmService::Alarm &alarm) {
  Json json{{"alarm", alarm.index}};
  if (alarm.place.slot >= 0) {
    json["slot"] = alarm.place.slot;
  }
  if (alarm.place.cam >= 0) {
    json["cam"] = alarm.place.cam;
  }
  json["object"] = alarmObject(alarm.record);
  json["fault"] = alarmFault(alarm.record);
  json["identifiers"] = alarmIdentifiers(alarm.record);
  json["raised_ms"] = alarm.raisedMs;
  return json;
}

}  // namespace

std::string statusJson(const Snapshot &snapshot, const std::vector<std::string> &losses,
                       std::int64_t wallMs) {
  Json json{{"time", wallClockText(wallMs)},
            {"chassis_ms", snapshot.takenMs},
            {"cards", Json::array()},
            {"alarms", Json::array()},
            {"losses", losses}};
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (const auto &card = snapshot.cards[slot]) {
      json["cards"].push_back(cardJson(*card, snapshot.cams[slot]));
    }
  }
  for (const AlarmService::Alarm &alarm : snapshot.alarms) {
    json["alarms"].push_back(alarmJson(alarm));
  }
  return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace chassis
