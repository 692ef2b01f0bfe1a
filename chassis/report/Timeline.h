// The history of a run as aligned plain text, one line as it happens:
// chassis time, card and CAM, what happened, why.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "Events.h"
#include "firmware/Console.h"
#include "report/Words.h"

namespace chassis {

class Timeline : public Events {
 public:
  struct Config {
    bool colour = false;
    bool debug = false;  // shows the firmware's debug prints too
  };

  // now: chassis time in milliseconds.
  Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now);

  void report(Place place, const std::string &what, const std::string &why) override;
  void report(Place place, const std::string &what, const std::string &why, Tone tone);

  // A line of the module's console. A line that repeats the one before is counted, not shown; the
  // count comes before the next other line.
  void print(ConsolePort port, const std::string &line);

  // Shows the count that is still held back.
  void flush();

 private:
  void write(std::uint64_t ms, const std::string &place, const std::string &text, Tone tone);

  std::ostream &out_;
  const Config config_;
  const std::function<std::uint64_t()> now_;
  std::string lastPrinted_;
  std::uint64_t lastPrintedMs_ = 0;
  std::uint64_t repeats_ = 0;
};

// Text in a tone, with colour escapes when colour is on.
std::string toned(const std::string &text, Tone tone, bool colour);

}  // namespace chassis
