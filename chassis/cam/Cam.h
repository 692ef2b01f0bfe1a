// A software CAM: an EN 50221 application (CA support resource) on one side, a descrambler of the
// laboratory CA system on the other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/ProgramText.h"
#include "cam/DescramblerWork.h"
#include "event/Event.h"
#include "ts/TsPacket.h"

namespace chassis {

using Apdu = std::vector<std::uint8_t>;

enum class CamFault {
  Deaf,     // takes no APDU, answers none and does not descramble, until its next reset
  Garbage,  // answers every APDU with random bytes
  WrongKey  // descrambles with wrong control words
};

class Cam {
 public:
  struct Config {
    std::vector<std::uint16_t> caSystems;  // what its ca_info declares
    std::uint32_t startUpMs = 3000;        // from insertion or reset until it answers
    std::uint32_t answerMs = 200;          // from an APDU until its answer
    std::uint32_t ecmTimeoutMs = 4000;     // without a good ECM for this long: stops descrambling
    ProgramNames programNames = nullptr;   // for people
  };

  Cam(Config config, Place place, Events &events, std::uint64_t nowMs);
  ~Cam();
  Cam(const Cam &) = delete;
  Cam &operator=(const Cam &) = delete;

  // Host side. Nothing that comes in can do more than be ignored and reported.
  bool up() const;                  // started up; a deaf CAM is up, it just does not answer
  void reset(std::uint64_t nowMs);  // forgets CA PMTs, keys, queued answers and deafness
  void receive(const Apdu &apdu);   // one APDU from the host
  std::optional<Apdu> transmit();   // the next APDU that is due to the host
  void tick(std::uint64_t nowMs);

  // Stream side: packets in stream order, at the time at which they pass, descrambled in place;
  // ECMs are read as they pass. Headers are final at once, payloads only after settle: until then a
  // packet stays where it is, and no other may read its payload. Rare calls of settle make full,
  // cheap batches.
  void process(TsPacket *const *packets, std::size_t count, std::uint64_t nowMs);
  void settle();
  // Whether a CAM that gets the packets next would read payloads that are not final.
  bool mustSettleBefore(const Cam &next) const;

  DescramblerWork work() const;  // since the CAM was made

  // Operator side. A CAM is entitled to everything until told otherwise. A program that it is made
  // to refuse gets CA_enable 0x73 (technical reasons), one without entitlement 0x71.
  void entitle(std::uint16_t program, bool on);
  void refuse(std::uint16_t program, bool on);
  void setFault(CamFault fault, bool on);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace chassis
