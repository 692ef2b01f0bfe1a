// Events of every kind, with the words that they have.
#pragma once

#include <string>
#include <vector>

#include "CiIf.h"
#include "event/Event.h"
#include "status/Words.h"

namespace sample_events {

using namespace chassis;

constexpr Place card{0, -1};
constexpr Place cam{0, 1};
constexpr Place before{0, -1, Side::Before};
constexpr Place behind{0, -1, Side::Behind};

struct Told {
  Facts facts;
  Place place;
  const char *words;  // what | why
  Tone tone = Tone::Plain;
};

inline event::Programs named(std::uint16_t number, const std::string &name = "") {
  return {number, name};
}

inline event::Programs two() {
  event::Programs programs{101, "One"};
  programs.add(102, "");
  return programs;
}

inline const std::vector<Told> lines = {
    {event::ScriptLine{"camInsert 0, 0, 0x0500", 3}, cam, "camInsert 0, 0, 0x0500 | script line 3"},
    {event::ConsoleLine{{"cardRemove 0"}}, card, "cardRemove 0 | console"},
    {event::Remark{{"a note"}}, {}, "a note | "},
    {event::AsExpected{"expectAlarm 0, 0, \"CAM absent\"", 7}, cam,
     "as expected: expectAlarm 0, 0, \"CAM absent\" | script line 7"},
    {event::NotAsExpected{"expectResets 0, 0, 1", 8, "CAM 0 of slot 0 has had 0 resets"}, cam,
     "NOT as expected: expectResets 0, 0, 1 | CAM 0 of slot 0 has had 0 resets", Tone::Bad},
    {event::NoEffect{event::NoEffectReason::ProgramNotInStream, named(9), {}, {}}, card,
     "nothing changes yet: program 9 is not in the stream | kept for when it is"},
    {event::NoEffect{event::NoEffectReason::NotAssigned, named(101, "One"), {}, {}}, cam,
     "nothing changes yet: program 101 \"One\" is not assigned to this CAM | kept for when it is"},
    {event::NoEffect{event::NoEffectReason::PidNotInStream, {}, {0x1FF0}, {}}, card,
     "nothing changes: PID 0x1FF0 is not in the stream | "},
    {event::NoEffect{event::NoEffectReason::NotJudged, named(7), {}, {1, 2}}, card,
     "program 7 cannot be judged: not in what goes into the receiver | there are 1, 2"},
    {event::ModulePrint{{"CAM reset"}}, {}, "CAM reset | ", Tone::Faint},
    {event::ModuleDebug{{"inside"}}, {}, "inside | ", Tone::Faint},
};

inline event::StreamChanged changed() {
  event::StreamChanged facts{{101, 102, 103}, {}, {}};
  facts.add(101, "One", 4);
  facts.add(102, "", 31);
  return facts;
}

inline event::StreamsUnmatched unmatched() {
  event::StreamsUnmatched facts;
  facts.add(101, "One", 0x1001, 0x1B);
  facts.add(102, "", 0x1012, 0x06);
  return facts;
}

inline event::InputForeign foreign(event::ForeignReason reason, std::uint64_t bytes,
                                   unsigned number) {
  return {"udp://239.1.1.1:1", {reason, bytes, number}};
}

inline const std::vector<Told> streams = {
    {event::CardRemoved{}, card,
     "card pulled out | the module still looks for its program table: ci_assert"},
    {event::StreamDamaged{"a.ts", 12}, card,
     "the stream is damaged | 12 bytes of 'a.ts' are in no packet"},
    {event::StreamDamaged{"-", 1}, before,
     "the stream is damaged (what goes in) | 1 bytes of standard input are in no packet"},
    {event::StreamEnded{}, card, "the stream ended | its file can no longer be read"},
    {event::WriterCame{{"fifo"}}, card, "the stream's writer has come | it writes to 'fifo'",
     Tone::Good},
    {event::WriterCame{{"-"}}, behind,
     "the stream's writer has come (what comes out) | it writes to standard input", Tone::Good},
    {event::WriterGone{"fifo", event::WriterGoneReason::Waits, ""}, card,
     "the stream's writer has gone | 'fifo' waits for the next one", Tone::Bad},
    {event::WriterGone{"-", event::WriterGoneReason::AtEnd, ""}, card,
     "the stream's writer has gone | standard input is at its end", Tone::Bad},
    {event::WriterGone{"fifo", event::WriterGoneReason::Unreadable, "Input/output error"}, behind,
     "the stream's writer has gone (what comes out) | 'fifo' cannot be read: Input/output error",
     Tone::Bad},
    {changed(), card,
     "the stream's programs changed | 3 programs, new: PMT of program 101 \"One\" version 4, "
     "PMT of program 102 version 31"},
    {event::StreamChanged{{101}, {}, {}}, card, "the stream's programs changed | 1 programs"},
    {event::StreamBegun{{1210}}, card, "the stream has begun | after 1.2 s", Tone::Good},
    {event::StreamBegun{{0}}, before, "what goes into the receiver has begun | after 0.0 s",
     Tone::Good},
    {event::StreamSilent{true, 1000}, card, "the stream is silent | no packets for 1.0 s",
     Tone::Bad},
    {event::StreamSilent{false, 1000}, behind,
     "what comes out of the receiver is silent | nothing has come yet", Tone::Bad},
    {event::StreamBack{{2500}}, card, "the stream is back | after 2.5 s without packets",
     Tone::Good},
    {event::InputLost{1, 2, 1}, card,
     "packets of the stream were lost | 1 datagram in the network, 2 datagrams at the socket, "
     "whose buffer was full, 1 packet here, for want of room",
     Tone::Bad},
    {event::InputLost{0, 0, 9}, before,
     "packets of what goes into the receiver were lost | 9 packets here, for want of room",
     Tone::Bad},
    {unmatched(), behind,
     "streams that are not behind the receiver | program 101 \"One\" PID 0x1001, stream type "
     "0x1B; program 102 PID 0x1012, stream type 0x06"},
    {event::ProbeUnaligned{}, card,
     "the two files have no time in common | their PCRs do not overlap; both are played from their "
     "begin",
     Tone::Bad},
    {event::ProbeBegun{{0x0500, 0x0B00}, 0x0500, {}}, cam,
     "the receiver is judged by CA system 0x0500 | the programs also carry 0x0B00"},
    {event::ProbeBegun{{0x0500}, 0x0500, {}}, cam,
     "the receiver is judged by CA system 0x0500 | the programs carry no other"},
    {event::ProbeBegun{{0x0500}, 0, {0x0100, 0x0200}}, cam,
     "no program carries CA system 0x0100, 0x0200 | they carry 0x0500", Tone::Bad},
    {event::WentLive{{"udp://:1"}},
     {},
     "chassis time goes at the machine's clock from now on | 'udp://:1' is live"},
    {event::TransportErrors{}, card,
     "packets with transport_error_indicator | they pass through, unread and not counted"},
    {event::TablesCut{"3 programs"}, card, "left out of the card's tables | 3 programs"},
    {event::OutputLost{"out.ts", "No space left on device"}, card,
     "the output is not whole | 'out.ts': No space left on device"},
    {event::OutputLost{"events", "the reader is slow"},
     {},
     "the file of events is not whole | 'events': the reader is slow"},
    {event::SenderChanged{"rtp://:1", 3}, behind,
     "another sender (SSRC) (what comes out) | the 2. change"},
    {foreign(event::ForeignReason::Noise, 100, 0x15), card,
     "datagrams that hold no packets | 100 bytes that begin with 0x15", Tone::Bad},
    {foreign(event::ForeignReason::Noise, 0, 0), card,
     "datagrams that hold no packets | an empty datagram", Tone::Bad},
    {foreign(event::ForeignReason::Cut, 9216, 0), card,
     "datagrams that hold no packets | a datagram of more than 9216 bytes", Tone::Bad},
    {foreign(event::ForeignReason::PayloadType, 1328, 96), card,
     "datagrams that hold no packets | RTP of payload type 96, not 33", Tone::Bad},
    {foreign(event::ForeignReason::Payload, 112, 0), before,
     "datagrams that hold no packets (what goes in) | RTP whose payload is no whole packets, in "
     "112 "
     "bytes",
     Tone::Bad},
    {event::BufferSmall{"udp://:1", 1000, 2000}, card,
     "the receive buffer has 1000 of the 2000 bytes asked for | the machine allows no more: sysctl "
     "-w net.core.rmem_max=2000",
     Tone::Bad},
    {event::InterfaceGone{{"udp://:1", "eth0"}}, card,
     "the network interface eth0 has gone | 'udp://:1' is received again when it is back",
     Tone::Bad},
    {event::InterfaceBack{{"udp://:1", "eth0"}}, behind,
     "the network interface eth0 is back (what comes out) | 'udp://:1' is received again",
     Tone::Good},
};

inline event::Reply reply(std::size_t count) {
  event::Reply facts{{named(101, "One"), 0x71}, {}, {}};
  for (std::size_t i = 0; i < count; ++i) {
    facts.add(static_cast<std::uint16_t>(0x1001 + i), i == 0 ? 0x01 : 0x72);
  }
  return facts;
}

inline event::Feed feed(event::FeedReason reason, bool part = false) {
  event::Feed facts{named(103, "Three"), {0x1021, 0x1022}, 0x1503, part, reason};
  facts.tier = 7;
  facts.timeoutMs = 2000;
  return facts;
}

inline const std::vector<Told> cams = {
    {event::CamStarting{event::StartReason::Inserted}, cam, "CAM starts up | inserted"},
    {event::CamStarting{event::StartReason::Reset}, cam, "CAM starts up | reset"},
    {event::CamStarting{event::StartReason::WentDown}, cam,
     "CAM starts up | it went down by itself"},
    {event::CamUp{{{0x0500, 0x0B01}}}, cam,
     "CAM is up, CA systems 0x0500, 0x0B01 | ca_info of the CAM"},
    {event::CamUp{{{0x0500}}}, cam, "CAM is up, CA system 0x0500 | ca_info of the CAM"},
    {event::CamUp{}, cam, "CAM is up, no CA system | ca_info of the CAM"},
    {event::CamRemoved{}, cam, "CAM removed | "},
    {event::CamReset{{2}}, cam, "RESET of the CAM | reset 2 since its insertion", Tone::Alarm},
    {event::ResetAdvised{{1}}, cam, "the CAM would be reset | it is only observed; so far 1 time",
     Tone::Alarm},
    {event::ResetAdvised{{2}}, cam, "the CAM would be reset | it is only observed; so far 2 times",
     Tone::Alarm},
    {event::ResetCommandFailed{event::CommandFailure::NotRun, "No child processes", 0},
     {},
     "the command of --on-reset was not run | No child processes",
     Tone::Bad},
    {event::ResetCommandFailed{event::CommandFailure::Signal, "", 9},
     {},
     "the command of --on-reset failed | ended by signal 9",
     Tone::Bad},
    {event::ResetCommandFailed{event::CommandFailure::ExitStatus, "", 3},
     {},
     "the command of --on-reset failed | exit status 3",
     Tone::Bad},
    {event::NoCamToReset{}, cam, "no CAM to reset | "},
    {event::CaPmtSent{{two(), {"first", "last"}}}, cam,
     "CA PMT sent: programs 101 \"One\", 102 | list management first, last"},
    {event::QuerySent{{named(9), {"only"}}}, cam, "query sent: program 9 | list management only"},
    {event::CaPmtRefused{33, 32}, cam, "CA PMT refused | 33 programs, at most 32"},
    {event::CaPmtIncomplete{{"one", "two", "three"}}, cam, "CA PMT incomplete | one; and 2 more"},
    {event::CaPmtIncomplete{{"one"}}, cam, "CA PMT incomplete | one"},
    {reply(2), cam,
     "reply: program 101 \"One\": no entitlement (0x71) | PID 0x1001: descrambling possible "
     "(0x01), PID 0x1002: a reserved value (0x72)"},
    {event::Reply{{named(9), 0}, {}, {}}, cam, "reply: program 9: no statement | "},
    {event::Reply{{named(9), 0x02}, {}, {}}, cam,
     "reply: program 9: possible after a purchase dialogue (0x02) | "},
    {event::Reply{{named(9), 0x03}, {}, {}}, cam,
     "reply: program 9: possible after a technical dialogue (0x03) | "},
    {event::Reply{{named(9), 0x73}, {}, {}}, cam, "reply: program 9: technical reasons (0x73) | "},
    {event::CamSilent{event::Awaited::CaInfo, 5000}, cam,
     "CAM does not answer | no ca_info within 5 s; asked again"},
    {event::CamSilent{event::Awaited::Reply, 5000}, cam,
     "CAM does not answer | no reply to the query within 5 s"},
    {event::CamUnknownBytes{0x9F8099, 4}, cam,
     "CAM sends unknown bytes, ignored | tag 0x9F8099, 4 bytes"},
    {event::CamUnknownBytes{std::nullopt, 2}, cam, "CAM sends unknown bytes, ignored | 2 bytes"},
    {event::CaInfoRefused{{"it is cut off"}}, cam, "ca_info refused | it is cut off"},
    {event::CaInfoUnasked{{{0x0100}}}, cam,
     "ca_info that nobody asked for, ignored | CA system 0x0100"},
    {event::ReplyRefused{{"it is cut off"}}, cam, "reply refused | it is cut off"},
    {event::ReplyUnasked{named(9)}, cam, "reply to no query, ignored | program 9"},
    {event::ReplyCut{{named(101, "One"), 0x01}}, cam,
     "reply too long, cut | program 101 \"One\": descrambling possible (0x01); a record holds 32 "
     "programs of 32 streams"},
    {event::ReplyChanged{{named(9), 0x71}}, cam,
     "CAM changes its reply | program 9: no entitlement (0x71)"},
    {event::CamDescrambles{feed(event::FeedReason::EcmsCome), false}, cam,
     "descrambles program 103 \"Three\" | ECMs on PID 0x1503, tier 7"},
    {event::CamDescrambles{feed(event::FeedReason::EcmsCome, true), true}, cam,
     "works with wrong keys on program 103 \"Three\" PID 0x1021, 0x1022 | ECMs on PID 0x1503, tier "
     "7"},
    {event::CamStops{feed(event::FeedReason::NoEcm)}, cam,
     "stops descrambling program 103 \"Three\" | no ECM on PID 0x1503 for 2000 ms"},
    {event::CamStops{feed(event::FeedReason::DamagedEcms)}, cam,
     "stops descrambling program 103 \"Three\" | only damaged ECMs on PID 0x1503 for 2000 ms"},
    {event::CamStops{feed(event::FeedReason::OtherEcmPid)}, cam,
     "stops descrambling program 103 \"Three\" | selected with another ECM PID now"},
    {event::CamStops{feed(event::FeedReason::NotSelected)}, cam,
     "stops descrambling program 103 \"Three\" | no longer selected"},
    {event::CamCannot{feed(event::FeedReason::Refused)}, cam,
     "does not descramble program 103 \"Three\" | refuses it for technical reasons"},
    {event::CamCannot{feed(event::FeedReason::NotEntitled)}, cam,
     "does not descramble program 103 \"Three\" | no entitlement for tier 7"},
    {event::CamIgnores{{"its tag is unknown"}}, cam,
     "ignores an object from the host | its tag is unknown"},
    {event::CamDeaf{}, cam,
     "CAM goes deaf | takes no object and descrambles nothing until its next reset"},
};

inline event::ProgramState state(std::uint8_t status, event::Reading reading,
                                 const std::string &text, const std::string &cause = "") {
  event::ProgramState facts;
  facts.programs = two();
  facts.status = status;
  facts.reading = reading;
  facts.state = text;
  facts.cause = cause;
  return facts;
}

inline event::ProgramState worst() {
  event::ProgramState facts =
      state(DESC_STAT_NO_ECM, event::Reading::Measured, "not descrambled", "ECMs missing");
  facts.pids = {0x1001, 0x1002};
  facts.evidence = "ECM PID 0x1501 never seen";
  facts.summary = event::Summary{DESC_SUM_PART, false};
  return facts;
}

inline event::ProgramState young() {
  event::ProgramState facts =
      state(DESC_STAT_SCRAMBLED, event::Reading::NotYet, "not descrambled yet");
  facts.caPmtAgeMs = 500;
  facts.evidence = "CAM replied 0x01";
  return facts;
}

inline const event::Alarm absent{"slot 0, CAM 1", "CAM absent", "1 (1), 0x706, 0x703"};

inline const std::vector<Told> checks = {
    {event::ControllerState{0}, card,
     "CI controller in sync and carrying traffic | cimaxStat 0x00"},
    {event::ControllerState{1}, card, "CI controller out of sync or rate too low | cimaxStat 0x01",
     Tone::Bad},
    {event::CamState{1, event::CaSystemState{1, false}, 0, event::Summary{DESC_SUM_OK, false}}, cam,
     "CAM usable, CA system supported, CA PIDs present, all PIDs descrambled | camInsert 0x01, "
     "casidStat 0x01, preCamPidStat 0x00, descStat 0x00",
     Tone::Good},
    {event::CamState{0, event::CaSystemState{0xFF, false}, {}, {}}, cam,
     "no CAM, the rest not checked | camInsert 0x00, casidStat 0xFF", Tone::Bad},
    {event::CamState{{}, event::CaSystemState{0, true}, {}, {}}, cam,
     "has only clear programs, without CA descriptors | casidStat 0x00", Tone::Bad},
    {event::CamState{{}, {}, 0xFF, event::Summary{0xFF, false}}, cam,
     "not checked any more | preCamPidStat 0xFF, descStat 0xFF"},
    {event::CamState{{}, {}, {}, event::Summary{DESC_SUM_ALL | DESC_SUM_SCRAMBLED, true}}, cam,
     "no PID descrambled yet | descStat 0x21"},
    {worst(), cam,
     "programs 101 \"One\", 102 PID 0x1001 0x1002 not descrambled, cause: ECMs missing | ECM PID "
     "0x1501 never seen; some PIDs not descrambled (descStat 0x10)",
     Tone::Bad},
    {young(), cam,
     "programs 101 \"One\", 102 not descrambled yet | CA PMT sent 0.5 s ago; CAM replied 0x01"},
    {state(DESC_STAT_OK, event::Reading::Measured, "descrambled"), cam,
     "programs 101 \"One\", 102 descrambled | ", Tone::Good},
    {state(DESC_STAT_OK, event::Reading::WithoutPackets, "without packets"), cam,
     "programs 101 \"One\", 102 without packets | counted as descrambled", Tone::Faint},
    {state(DESC_STAT_UNKNOWN, event::Reading::Clear, "not measured"), cam,
     "programs 101 \"One\", 102 not measured | clear, no CA descriptors", Tone::Faint},
    {state(DESC_STAT_UNKNOWN, event::Reading::MissingBehind, "missing behind"), cam,
     "programs 101 \"One\", 102 missing behind | goes in, but does not come out", Tone::Bad},
    {event::AlarmRaised{absent, 4}, cam,
     "ALARM raised: CAM absent | alarm 4, identifiers 1 (1), 0x706, 0x703", Tone::Alarm},
    {event::AlarmCleared{absent, 4, 12340}, cam,
     "ALARM cleared: CAM absent | alarm 4, stood for 12.3 s"},
    {event::AlarmNotRaised{absent}, cam, "ALARM not raised: CAM absent | the alarm service fails",
     Tone::Alarm},
    {event::AlarmNotCleared{absent}, cam, "ALARM not cleared: CAM absent | the alarm service fails",
     Tone::Alarm},
};

inline std::vector<Told> everyEvent() {
  std::vector<Told> all;
  for (const auto *group : {&lines, &streams, &cams, &checks}) {
    all.insert(all.end(), group->begin(), group->end());
  }
  return all;
}

}  // namespace sample_events
