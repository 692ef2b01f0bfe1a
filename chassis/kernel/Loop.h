// What the program waits for in real time, all in one place: descriptors, and points of time of
// those who act between the ticks of the chassis clock.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace chassis {

class Loop {
 public:
  static constexpr std::uint64_t never = UINT64_MAX;

  static std::uint64_t nowNs();  // CLOCK_MONOTONIC

  // Somebody who acts at points of real time.
  class Timed {
   public:
    virtual ~Timed() = default;
    virtual std::uint64_t dueNs() const = 0;      // the next point; never: none
    virtual void serve(std::uint64_t nowNs) = 0;  // that point has come
  };

  // For as long as the owner keeps what these return. readable: the descriptor has something to
  // read, or is at its end. on: whether it is looked at now.
  using Watching = std::shared_ptr<const void>;
  [[nodiscard]] Watching watch(int file, std::function<void()> readable,
                               std::function<bool()> on = nullptr);
  [[nodiscard]] Watching add(Timed &timed);

  // Waits until something is there or the time has come (none: however long), and serves what is
  // there. It may return early.
  void wait(std::optional<std::uint64_t> untilNs);

  // The same, but for those who act at points of time alone: descriptors are not looked at.
  void waitTimed(std::uint64_t untilNs);

  // Serves those whose time has come, without waiting; for who works for long.
  void serveTimed();

 private:
  struct Watched {
    int file;
    std::function<void()> readable;
    std::function<bool()> on;
  };

  std::uint64_t nextDueNs() const;

  std::vector<std::weak_ptr<const Watched>> watched_;
  std::vector<std::weak_ptr<Timed *>> timed_;
};

}  // namespace chassis
