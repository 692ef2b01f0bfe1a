// What the functions of CiPlatform.h and of the card driver work on. The module calls functions
// without an object; this is the one place where they find one, and the only process-wide state of
// a chassis beside the data of CiPlatform.h and the slots that have registered.
#pragma once

#include <array>
#include <cstdint>

#include "CiPlatform.h"
#include "alarms/AlarmService.h"
#include "card/Card.h"
#include "cilib/CiLibrary.h"
#include "kernel/Clock.h"
#include "platform/Print.h"

namespace chassis {

// Made by who owns the parts, after them, and gone before them. The one that was made last counts;
// none comes back when it goes.
class Binding {
 public:
  // What there is; what is null answers as an empty chassis does: time stands still, there is no
  // CAM, no alarm can be raised or cleared, there are no forms, a driver's function answers 0.
  struct Parts {
    Clock *clock = nullptr;
    CiLibrary *library = nullptr;
    AlarmService *alarms = nullptr;
    std::array<Card *, MAX_BOARD_NUM> cards{};
  };

  explicit Binding(const Parts &parts);
  ~Binding();
  Binding(const Binding &) = delete;
  Binding &operator=(const Binding &) = delete;

  // is_all_card_loaded is 1 from now on, for as long as this one counts; it is 0 at first.
  void allCardsLoaded();

  // Who is told what the module and the firmware print, for as long as its owner keeps what this
  // returns; in place of the one before it.
  [[nodiscard]] Printing onPrinted(PrintListener listener);

  // For the functions themselves, also while there is none.
  static const Parts &parts();
  static Card *card(std::uint32_t slot);  // null: no part, or no such slot
  static void print(ConsolePort port, const char *text);

 private:
  Parts parts_;
  PrintedLines printed_;
};

}  // namespace chassis
