// What is known of each event of a CAM and its exchange with the CI library, and of what the
// software CAM does by itself (as LineFacts.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "event/EventKind.h"
#include "event/Programs.h"
#include "event/StreamFacts.h"

namespace chassis::event {

enum class StartReason : std::uint8_t { Inserted, Reset, WentDown };
const char *nameOf(StartReason reason);

struct CamStarting {
  static constexpr EventKind kind = EventKind::CamStarting;
  StartReason reason = StartReason::Inserted;
  template <typename To>
  void each(To to) const {
    to("reason", nameOf(reason));
  }
};

// CA_system_ids as a CAM's ca_info has them.
struct CaSystems {
  std::vector<std::uint16_t> ids;
  template <typename To>
  void each(To to) const {
    to("ca_systems", ids);
  }
};

struct CamUp : CaSystems {
  static constexpr EventKind kind = EventKind::CamUp;
};
struct CamRemoved : Nothing {
  static constexpr EventKind kind = EventKind::CamRemoved;
};

// Of the CAM, since its insertion.
struct Resets {
  std::uint64_t resets = 0;
  template <typename To>
  void each(To to) const {
    to("resets", resets);
  }
};

struct CamReset : Resets {
  static constexpr EventKind kind = EventKind::CamReset;
};
struct ResetAdvised : Resets {
  static constexpr EventKind kind = EventKind::ResetAdvised;
};

enum class CommandFailure : std::uint8_t { NotRun, Signal, ExitStatus };
const char *nameOf(CommandFailure reason);

struct ResetCommandFailed {
  static constexpr EventKind kind = EventKind::ResetCommandFailed;
  CommandFailure reason = CommandFailure::NotRun;
  std::string trouble;  // NotRun: why
  int code = 0;         // else the signal, or the exit status
  template <typename To>
  void each(To to) const {
    to("reason", nameOf(reason));
    if (reason == CommandFailure::NotRun) {
      to("trouble", trouble);
    } else {
      to("code", code);
    }
  }
};

struct NoCamToReset : Nothing {
  static constexpr EventKind kind = EventKind::NoCamToReset;
};

// CA PMTs that went out, one for each program.
struct CaPmts {
  Programs programs;
  std::vector<std::string> listManagement;  // names, in the same order
  template <typename To>
  void each(To to) const {
    programs.each(to);
    to("list_management", listManagement);
  }
};

struct CaPmtSent : CaPmts {
  static constexpr EventKind kind = EventKind::CaPmtSent;
};
struct QuerySent : CaPmts {
  static constexpr EventKind kind = EventKind::QuerySent;
};

struct CaPmtRefused {
  static constexpr EventKind kind = EventKind::CaPmtRefused;
  std::uint64_t records = 0;  // so many programs were to be sent at once
  std::uint64_t most = 0;     // so many can be
  template <typename To>
  void each(To to) const {
    to("records", records);
    to("most", most);
  }
};

struct CaPmtIncomplete {
  static constexpr EventKind kind = EventKind::CaPmtIncomplete;
  std::vector<std::string> leftOut;  // a clause each: what, and why
  template <typename To>
  void each(To to) const {
    to("left_out", leftOut);
  }
};

// What a CAM says of a program.
struct Answer {
  Programs programs;          // the one
  std::uint8_t caEnable = 0;  // CA_enable of the program as a whole; 0: no statement
  template <typename To>
  void each(To to) const {
    programs.each(to);
    to("ca_enable", caEnable);
  }
};

struct Reply {
  static constexpr EventKind kind = EventKind::Reply;
  Answer answer;
  std::vector<std::uint16_t> pids;       // streams with a statement of their own
  std::vector<std::uint16_t> caEnables;  // theirs, in the same order
  template <typename To>
  void each(To to) const {
    answer.each(to);
    if (!pids.empty()) {
      to("pids", pids);
      to("ca_enables", caEnables);
    }
  }
  void add(std::uint16_t pid, std::uint8_t caEnable) {
    pids.push_back(pid);
    caEnables.push_back(caEnable);
  }
};

enum class Awaited : std::uint8_t { CaInfo, Reply };
const char *nameOf(Awaited awaited);

struct CamSilent {
  static constexpr EventKind kind = EventKind::CamSilent;
  Awaited awaited = Awaited::CaInfo;
  std::uint64_t withinMs = 0;
  template <typename To>
  void each(To to) const {
    to("awaited", nameOf(awaited));
    to("within_ms", withinMs);
  }
};

struct CamUnknownBytes {
  static constexpr EventKind kind = EventKind::CamUnknownBytes;
  std::optional<std::uint32_t> tag;  // apdu_tag; none: too short to hold one
  std::uint64_t bytes = 0;
  template <typename To>
  void each(To to) const {
    if (tag) {
      to("tag", *tag);
    }
    to("bytes", bytes);
  }
};

// What is wrong with an object, a clause of who took it apart.
struct Malformed {
  std::string trouble;
  template <typename To>
  void each(To to) const {
    to("trouble", trouble);
  }
};

struct CaInfoRefused : Malformed {
  static constexpr EventKind kind = EventKind::CaInfoRefused;
};
struct CaInfoUnasked : CaSystems {
  static constexpr EventKind kind = EventKind::CaInfoUnasked;
};
struct ReplyRefused : Malformed {
  static constexpr EventKind kind = EventKind::ReplyRefused;
};

struct ReplyUnasked {
  static constexpr EventKind kind = EventKind::ReplyUnasked;
  Programs programs;
  template <typename To>
  void each(To to) const {
    programs.each(to);
  }
};

struct ReplyCut : Answer {
  static constexpr EventKind kind = EventKind::ReplyCut;
};
struct ReplyChanged : Answer {
  static constexpr EventKind kind = EventKind::ReplyChanged;
};

enum class FeedReason : std::uint8_t {
  EcmsCome,
  Refused,      // for technical reasons
  NotEntitled,  // to the tier
  NoEcm,
  DamagedEcms,
  OtherEcmPid,  // the program is selected with another one now
  NotSelected   // the program, any longer
};
const char *nameOf(FeedReason reason);

// Streams of one program that have their control words from one ECM PID.
struct Feed {
  Programs programs;  // the one
  std::vector<std::uint16_t> pids;
  std::uint16_t ecmPid = 0;
  bool part = false;  // the program has other streams, with ECMs of their own
  FeedReason reason = FeedReason::EcmsCome;
  std::optional<std::uint16_t> tier = std::nullopt;  // EcmsCome, NotEntitled
  std::uint64_t timeoutMs = 0;                       // NoEcm, DamagedEcms: for so long
  template <typename To>
  void each(To to) const {
    programs.each(to);
    to("pids", pids);
    to("ecm_pid", ecmPid);
    to("part", part);
    to("reason", nameOf(reason));
    if (tier) {
      to("tier", *tier);
    }
    if (timeoutMs > 0) {
      to("timeout_ms", timeoutMs);
    }
  }
};

struct CamDescrambles {
  static constexpr EventKind kind = EventKind::CamDescrambles;
  Feed feed;
  bool wrongKeys = false;
  template <typename To>
  void each(To to) const {
    feed.each(to);
    to("wrong_keys", wrongKeys);
  }
};

struct CamStops : Feed {
  static constexpr EventKind kind = EventKind::CamStops;
};
struct CamCannot : Feed {
  static constexpr EventKind kind = EventKind::CamCannot;
};
struct CamIgnores : Malformed {
  static constexpr EventKind kind = EventKind::CamIgnores;
};
struct CamDeaf : Nothing {
  static constexpr EventKind kind = EventKind::CamDeaf;
};

}  // namespace chassis::event
