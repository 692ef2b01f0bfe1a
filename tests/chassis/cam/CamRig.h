// A CAM on the bench: time, the host's objects, and streams through it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "LabStream.h"
#include "cam/Cam.h"
#include "chassis/LastFacts.h"
#include "status/EventWords.h"

namespace testing_cam {

using Bytes = std::vector<std::uint8_t>;

class Lines : public chassis::Events {
 public:
  void tell(const chassis::Event &event) override {
    places.push_back(event.place);
    const chassis::EventWords words = chassis::wordsOf(event);
    all.push_back(words.what + " (" + words.why + ")");
    events.push_back(event);
  }
  std::size_t count(const std::string &part) const {
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(),
        [&part](const std::string &line) { return line.find(part) != std::string::npos; }));
  }

  std::vector<chassis::Place> places;
  std::vector<std::string> all;
  std::vector<chassis::Event> events;
};

inline Bytes ca(unsigned casid, unsigned pid) {
  return {0x09,
          0x04,
          static_cast<std::uint8_t>(casid >> 8),
          static_cast<std::uint8_t>(casid),
          static_cast<std::uint8_t>(0xE0 | pid >> 8),
          static_cast<std::uint8_t>(pid)};
}

// A level of a ca_pmt: its length, and a command before its descriptors when there are any.
inline Bytes level(unsigned command, const Bytes &descriptors) {
  const std::size_t length = descriptors.empty() ? 0 : descriptors.size() + 1;
  Bytes bytes = {static_cast<std::uint8_t>(0xF0 | length >> 8), static_cast<std::uint8_t>(length)};
  if (length != 0) {
    bytes.push_back(static_cast<std::uint8_t>(command));
    bytes.insert(bytes.end(), descriptors.begin(), descriptors.end());
  }
  return bytes;
}

inline Bytes caPmtStream(unsigned pid, const Bytes &streamLevel) {
  Bytes bytes = {0x02, static_cast<std::uint8_t>(0xE0 | pid >> 8), static_cast<std::uint8_t>(pid)};
  bytes.insert(bytes.end(), streamLevel.begin(), streamLevel.end());
  return bytes;
}

inline Bytes object(std::uint8_t tag, const Bytes &body) {
  Bytes bytes = {0x9F, 0x80, tag};
  if (body.size() < 128) {
    bytes.push_back(static_cast<std::uint8_t>(body.size()));
  } else {
    bytes.insert(bytes.end(), {0x82, static_cast<std::uint8_t>(body.size() >> 8),
                               static_cast<std::uint8_t>(body.size())});
  }
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

enum List : std::uint8_t { more, first, last, only, add, update };
constexpr unsigned descramble = 1;
constexpr unsigned mmi = 2;
constexpr unsigned query = 3;
constexpr unsigned notSelected = 4;

inline Bytes caPmt(List list, unsigned program, const Bytes &programLevel,
                   const std::vector<Bytes> &streams) {
  Bytes body = {list, static_cast<std::uint8_t>(program >> 8), static_cast<std::uint8_t>(program),
                0xCB};
  body.insert(body.end(), programLevel.begin(), programLevel.end());
  for (const Bytes &stream : streams) {
    body.insert(body.end(), stream.begin(), stream.end());
  }
  return object(0x32, body);
}

class Rig {
 public:
  explicit Rig(std::vector<std::uint16_t> caSystems = {0x0500})
      : Rig(chassis::Cam::Config{std::move(caSystems)}) {}
  explicit Rig(chassis::Cam::Config config) : cam(std::move(config), {2, 1}, lines, 0) {
    pass(3000);
  }

  void pass(std::uint64_t ms) {
    for (const std::uint64_t end = now + ms; now < end;) {
      now += 10;
      cam.tick(now);
    }
  }

  std::vector<chassis::Apdu> answers() {
    std::vector<chassis::Apdu> list;
    while (auto apdu = cam.transmit()) {
      list.push_back(*apdu);
    }
    return list;
  }

  // The answers of 200 ms after an object.
  std::vector<chassis::Apdu> ask(const Bytes &apdu) {
    cam.receive(apdu);
    pass(200);
    return answers();
  }

  // Passes packets through in parts, with 10 ms between them.
  std::vector<TsPacket> play(std::vector<TsPacket> packets, std::size_t part = 37) {
    for (std::size_t at = 0; at < packets.size(); at += part) {
      std::vector<TsPacket *> pointers;
      for (std::size_t i = at; i < std::min(at + part, packets.size()); ++i) {
        pointers.push_back(&packets[i]);
      }
      cam.process(pointers.data(), pointers.size(), now);
      cam.settle();
      pass(10);
    }
    return packets;
  }

  Lines lines;
  std::uint64_t now = 0;
  chassis::Cam cam;
};

// Program 101 with its CA at program level, 103 with an ECM PID for each stream.
inline const std::vector<LabEs> streams101 = {{0x1001, 0x1501, 101}, {0x1002, 0x1501, 101}};
inline const std::vector<LabEs> streams103 = {{0x1021, 0x1503, 103}, {0x1022, 0x1504, 103}};

inline Bytes caPmt101(List list = only, unsigned command = descramble) {
  return caPmt(list, 101, level(command, ca(0x0500, 0x1501)),
               {caPmtStream(0x1001, level(0, {})), caPmtStream(0x1002, level(0, {}))});
}

inline Bytes caPmt103(List list = only, unsigned command = descramble) {
  return caPmt(list, 103, level(0, {}),
               {caPmtStream(0x1021, level(command, ca(0x0500, 0x1503))),
                caPmtStream(0x1022, level(command, ca(0x0500, 0x1504)))});
}

inline std::vector<LabEs> bothPrograms() {
  std::vector<LabEs> streams = streams101;
  streams.insert(streams.end(), streams103.begin(), streams103.end());
  return streams;
}

inline std::vector<TsPacket> onPids(const std::vector<TsPacket> &packets,
                                    const std::vector<LabEs> &streams) {
  std::vector<TsPacket> result;
  for (const TsPacket &packet : packets) {
    const unsigned pid = (packet[1] & 0x1Fu) << 8 | packet[2];
    const auto matches = [pid](const LabEs &es) { return es.pid == pid; };
    if (std::any_of(streams.begin(), streams.end(), matches)) {
      result.push_back(packet);
    }
  }
  return result;
}

}  // namespace testing_cam
