// The CI library of the software chassis: carries CA PMTs, queries, ca_info and replies between the
// module and the CAMs as EN 50221 APDUs. Nothing is exchanged before it is loaded.
//
// Bytes of a CAM are checked before they are believed: ca_info counts only as the answer to an
// enquiry, a reply only for a program of the last query. All else is reported, each kind of trouble
// once until the CAM starts up again, and ignored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "CiPlatform.h"
#include "base/ProgramText.h"
#include "cam/Cam.h"
#include "event/Event.h"
#include "kernel/Semaphore.h"

namespace chassis {

class CamLink;

class CiLibrary {
 public:
  static constexpr std::uint32_t camCount = MAX_BOARD_NUM * MAX_CAM_NUM;
  static constexpr std::uint32_t noIndex = 0xFF;  // of a place outside the chassis

  // What it has in common with the module: camCount of each, by CAM index. They outlive it; it
  // begins with emptying them.
  struct SharedData {
    semaphore *needsCaPmt;  // given when a CAM needs a fresh CA PMT
    CaPmtReply *replies;    // to the last query
  };

  CiLibrary(Events &events, SharedData shared);
  ~CiLibrary();
  CiLibrary(const CiLibrary &) = delete;
  CiLibrary &operator=(const CiLibrary &) = delete;

  // A CAM was put in or pulled out; the library does not own it, nor does it tick it. Places
  // outside the chassis are ignored. names: of the card's programs, for people.
  void insert(std::uint32_t slot, std::uint32_t camSlot, Cam *cam, ProgramNames names = nullptr);
  void remove(std::uint32_t slot, std::uint32_t camSlot);
  // The CAM of a receiver elsewhere: as CamLink's. It is replaced as any other.
  void observe(std::uint32_t slot, std::uint32_t camSlot, std::vector<std::uint16_t> caSystems,
               std::function<void()> onReset);

  // As the functions of CiPlatform.h; a place or an index that there is not has no CAM.
  void load() { loaded_ = true; }
  static std::uint32_t indexOf(std::uint32_t slot, std::uint32_t camSlot);
  std::uint32_t insertStatus(std::uint32_t slot, std::uint32_t camSlot) const;
  bool supports(std::uint32_t index, std::uint16_t caSystem) const;
  std::int32_t send(std::uint32_t slot, std::uint32_t camSlot, CaPmtProg *const *records,
                    std::uint32_t count);  // programs sent
  void forgetCaPmt(std::uint32_t index, std::uint16_t caSystem);
  bool reset(std::uint32_t slot, std::uint32_t camSlot);  // false: no CAM
  void forgetCaSystems(std::uint32_t index);

  // The programs of a card changed: each of its usable CAMs needs a fresh CA PMT.
  void programsChanged(std::uint32_t slot);

  // Exchanges APDUs with every CAM. A CAM that comes up is asked for its ca_info; once that is
  // known its insert status is 1 (2 from insertion until then) and its flag is given. A CAM
  // that does not answer within 5 s is asked again.
  void tick(std::uint64_t nowMs);

  // For people: what the last CA PMT and the last reset of a CAM were, until the next CAM is put
  // in; times are chassis times.
  struct History {
    bool sent = false;
    std::uint64_t sentMs = 0;    // last CA PMT or query
    std::uint32_t programs = 0;  // in it
    bool caPmt = false;
    std::uint64_t caPmtMs = 0;                         // last CA PMT
    std::map<std::uint16_t, std::uint64_t> repliedMs;  // last reply of each program
    bool observed = false;  // of a receiver elsewhere: its resets were only told
    bool reset = false;
    std::uint64_t resetMs = 0;
    std::uint32_t resets = 0;
  };
  const History &history(std::uint32_t slot, std::uint32_t camSlot) const;
  const CaPmtReply &replies(std::uint32_t slot, std::uint32_t camSlot) const;
  // The CA system ids that a CAM has declared in its ca_info.
  std::vector<std::uint16_t> caSystems(std::uint32_t slot, std::uint32_t camSlot) const;

 private:
  CamLink *at(std::uint32_t index);  // null for an index that no CAM has
  const CamLink *at(std::uint32_t index) const;

  SharedData shared_;
  bool loaded_ = false;
  std::uint64_t nowMs_ = 0;  // of the last tick
  std::vector<CamLink> links_;
};

}  // namespace chassis
