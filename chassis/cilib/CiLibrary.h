// The CI library of the software chassis: carries CA PMTs, queries, ca_info and replies between the
// module and the CAMs as EN 50221 APDUs. It supplies the CI library's part of CiPlatform.h.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "CiPlatform.h"
#include "Events.h"
#include "cam/Cam.h"

namespace chassis {

class CiLibrary {
 public:
  explicit CiLibrary(Events &events);
  ~CiLibrary();
  CiLibrary(const CiLibrary &) = delete;
  CiLibrary &operator=(const CiLibrary &) = delete;

  // A CAM was put in or pulled out; the library does not own it.
  void insert(std::uint32_t slot, std::uint32_t camSlot, Cam *cam);
  void remove(std::uint32_t slot, std::uint32_t camSlot);

  // The programs of a card changed: each of its usable CAMs needs a fresh CA PMT.
  void programsChanged(std::uint32_t slot);

  // Exchanges APDUs with every CAM. A CAM that comes up is asked for its ca_info; once that is
  // known its insert status is 1 (2 from insertion until then) and its CaPMTFlag is given.
  void tick(std::uint64_t nowMs);

  // For people: what the last CA PMT and the last reset of a CAM were.
  struct History {
    bool sent = false;
    std::uint64_t sentMs = 0;    // last CA PMT or query
    std::uint32_t programs = 0;  // in it
    bool reset = false;
    std::uint64_t resetMs = 0;
    std::uint32_t resets = 0;
  };
  const History &history(std::uint32_t slot, std::uint32_t camSlot) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace chassis
