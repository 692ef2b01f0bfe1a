// Goes through the calls of a script before it runs: which cards, CAMs and streams each of them
// will find in its slot.
#pragma once

#include <array>
#include <string>

#include "card/StreamPrograms.h"
#include "command/Functions.h"

namespace chassis {

class Rehearsal {
 public:
  // streams: tells what the files carry; null: files are not looked into.
  explicit Rehearsal(StreamPrograms *streams) : streams_(streams) {}

  // The next call. Throws InputError when it cannot work; what follows from that is not held
  // against later calls.
  void play(const Function &function, const Values &values);

  // A line that could not be read may have filled any slot.
  void loseTrack();

 private:
  enum class Filled { No, Maybe, Yes };
  struct Slot {
    Filled card = Filled::No;
    std::array<Filled, MAX_CAM_NUM> cams{};
    std::string stream;  // empty: not known
  };

  void require(const Function &function, const Values &values, Slot &slot) const;
  void requireProgram(const Function &function, const Values &values, const Slot &slot);
  void follow(const Function &function, const Values &values);
  void insertCard(const Function &function, const Values &values, Slot &slot);
  void requireBitrate(const Function &function, const Values &values,
                      const std::string &path) const;

  StreamPrograms *const streams_;
  std::array<Slot, MAX_BOARD_NUM> slots_;
};

}  // namespace chassis
