// Writes to a file in a thread of its own, so that a disk that stalls holds nobody up.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "io/Patience.h"

namespace chassis {

class DiskWriter {
 public:
  static constexpr std::size_t queuedMost = 32 << 20;  // bytes that are not written yet
  static constexpr const char *tooSlow = "its disk does not keep up";
  static constexpr int patienceMs =
      10000;  // of real time, for a disk that takes nothing at the end

  // What the thread does to the file, each as long as it takes; as the system's functions of these
  // names, with errno. They are gone with the last of them, which may be after the writer.
  struct Disk {
    std::function<ssize_t(const std::uint8_t *bytes, std::size_t size)> write;
    std::function<int(std::uint64_t size)> truncate;  // null: not all of the file is ours
    std::function<int()> close;
  };

  // Of what is lost, and why; nothing: no reason.
  struct Loss {
    std::uint64_t bytes = 0;
    std::string why;
  };

  // An open file, of which so much is written; a file that is ours is emptied if that is nothing.
  DiskWriter(Disk disk, std::uint64_t written, int patience = patienceMs);
  // What is not written is lost without a word; the file is closed when the disk lets it.
  ~DiskWriter();
  DiskWriter(const DiskWriter &) = delete;
  DiskWriter &operator=(const DiskWriter &) = delete;

  // Whole units of `unit` bytes: takes as many as there is room for. How many bytes it took; a
  // disk that has failed takes nothing more. Never waits.
  std::size_t take(const std::uint8_t *bytes, std::size_t size, std::size_t unit);

  // Nothing more will be taken: the file is closed behind what has been. True: it is, or the
  // patience is used up. To be asked again and again.
  bool letGo();
  // For so long at most, for that.
  void await(int ms);

  // What was lost of what it took since it was last asked: the disk has failed, or has not closed.
  Loss newLoss();
  // The same, with all that is not written: it is given up.
  Loss giveUp();

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;
  Patience patience_;
};

// A file of the system, which it closes. ours: as of Disk::truncate.
DiskWriter::Disk diskOf(int file, bool ours);

}  // namespace chassis
