// Every event of a run as a line of JSON in a file, or for a reader of a FIFO who may come late, be
// slow, or go.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "event/Event.h"
#include "history/EventLines.h"
#include "io/Files.h"
#include "io/LiveOutput.h"

namespace chassis {

class EventFile : public Events {
 public:
  // nowMs: chassis time. Throws InputError that names the path: it cannot be written, or somebody
  // of the run reads or writes it. A file that was there is emptied by the first event.
  // waits: whether its reader or disk may hold up who tells; null: it may.
  EventFile(Files &files, const std::string &path, std::function<std::uint64_t()> nowMs,
            std::function<bool()> waits = nullptr);
  ~EventFile() override;
  EventFile(const EventFile &) = delete;
  EventFile &operator=(const EventFile &) = delete;

  void tell(const Event &event) override { lines_.tell(event); }

  // What the first loss is due to, as an event; only once. None: nothing is lost.
  std::optional<Event> newTrouble();

  // Writes what waits and closes. What was lost, a sentence; empty: nothing.
  std::string end();

 private:
  void write(const std::string &line);

  Files &files_;
  std::unique_ptr<LiveOutput> output_;
  const std::function<bool()> waits_;
  EventLines lines_;
  bool told_ = false;
};

}  // namespace chassis
