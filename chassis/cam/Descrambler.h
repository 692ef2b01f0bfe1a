// Descrambles DVB-CSA transport stream packets in place, many at a time.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "cam/DescramblerWork.h"
#include "cam/LabCa.h"
#include "ts/TsPacket.h"

namespace chassis {

enum class Parity { Even = 0, Odd = 1 };

// A packet that is pushed gets its header at once, but its payload any time until the next flush,
// so it must stay where it is until then. The fewer flushes, the fuller the batches. A word that
// changes is flushed first: a packet is always descrambled with the word that was valid when it was
// pushed.
class Descrambler {
 public:
  using Key = std::uint16_t;  // the caller's name for a pair of control words

  Descrambler();
  ~Descrambler();
  Descrambler(const Descrambler &) = delete;
  Descrambler &operator=(const Descrambler &) = delete;

  void setWord(Key key, Parity parity, const labca::ControlWord &word);
  void drop(Key key);  // forgets its words; no PID has it any more

  void assign(std::uint16_t pid, Key key);  // pid below pidCount; the last key assigned counts
  void releaseAll();                        // no PID has a key any more

  // Packets of a PID with a key are descrambled by their transport_scrambling_control, which
  // becomes 00; without a payload just that. Others, and parities without a word, stay as they are.
  void push(TsPacket &packet);
  void settle();
  const std::bitset<pidCount> &pending() const { return pending_; }  // PIDs pushed since then

  const DescramblerWork &work() const { return work_; }  // since it was made

 private:
  struct Lane;
  using KeyPair = std::array<std::unique_ptr<Lane>, 2>;  // by parity; null until the word is known

  DescramblerWork work_;
  std::bitset<pidCount> pending_;
  std::map<Key, KeyPair> keys_;
  std::vector<KeyPair *> keyOfPid_;  // null for none
};

}  // namespace chassis
