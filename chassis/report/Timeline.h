// The history of a run as aligned plain text, one line as it happens:
// chassis time, slot and CAM, what happened, why.
#pragma once

#include <functional>
#include <ostream>
#include <set>
#include <string>

#include "Events.h"
#include "firmware/Console.h"
#include "report/Layout.h"
#include "report/Words.h"

namespace chassis {

class Timeline : public Events {
 public:
  struct Config {
    bool colour = false;
    bool debug = false;  // shows the firmware's debug prints too
    Width width;         // of the terminal; null: nothing is broken
  };

  // now: chassis time in milliseconds.
  Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now);

  void report(Place place, const std::string &what, const std::string &why) override;
  void report(Place place, const std::string &what, const std::string &why, Tone tone);
  void alert(Place place, const std::string &what, const std::string &why) override;

  // A line of the module's console. A line that was printed already since the last report is
  // counted, not shown; the count comes before the next other line.
  void print(ConsolePort port, const std::string &line);

  // Shows the count that is still held back.
  void flush();

 private:
  struct Line;
  void write(const Line &line);

  std::ostream &out_;
  const Config config_;
  const std::function<std::uint64_t()> now_;
  std::set<std::string> printed_;  // since the last report
  std::uint64_t lastPrintedMs_ = 0;
  std::uint64_t repeats_ = 0;
};

}  // namespace chassis
