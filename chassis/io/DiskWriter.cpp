#include "io/DiskWriter.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace chassis {

// Between the two threads. What is not under the lock is the writing thread's.
struct DiskWriter::Shared {
  struct Part {
    std::vector<std::uint8_t> bytes;
    std::size_t unit;
  };

  explicit Shared(Disk file) : disk(std::move(file)) {}

  void run();
  bool next(Part &part);
  bool write(const Part &part);
  std::size_t takeBack(std::size_t cut, std::size_t done) const;
  void fail(int error, std::size_t kept);
  void lose(std::uint64_t bytes, const std::string &why);
  void close();

  Disk disk;
  std::uint64_t written = 0;
  std::atomic<std::uint64_t> progress = 0;  // bytes

  std::mutex lock;
  std::condition_variable changed;
  std::deque<Part> queue;
  std::size_t queued = 0;  // bytes, with those that are being written
  bool ending = false;     // nothing more will come
  bool failed = false;
  bool closed = false;
  Loss loss;
};

namespace {

// Signals are for the thread that waits for them.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  NoSignals(const NoSignals &) = delete;
  NoSignals &operator=(const NoSignals &) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

void DiskWriter::Shared::run() {
  if (written == 0 && disk.truncate && disk.truncate(0) != 0) {
    fail(errno, 0);
  }
  for (Part part; next(part);) {
    if (write(part)) {
      const std::lock_guard<std::mutex> locked(lock);
      queued -= std::min(part.bytes.size(), queued);  // none is left once it was given up
    }
  }
  close();
}

// False: nothing more will come, or the disk has failed.
bool DiskWriter::Shared::next(Part &part) {
  std::unique_lock<std::mutex> locked(lock);
  changed.wait(locked, [this] { return ending || failed || !queue.empty(); });
  if (queue.empty() || failed) {
    return false;
  }
  part = std::move(queue.front());
  queue.pop_front();
  return true;
}

// What a full disk has taken of a unit is taken back, where all of the file is ours.
bool DiskWriter::Shared::write(const Part &part) {
  std::size_t done = 0;
  while (done < part.bytes.size()) {
    const ssize_t size = disk.write(part.bytes.data() + done, part.bytes.size() - done);
    if (size < 0 && errno != EINTR) {
      const int error = errno;
      fail(error, done - takeBack(done % part.unit, done));
      return false;
    }
    const auto taken = static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    done += taken;
    progress += taken;
  }
  written += done;
  return true;
}

// How many bytes.
std::size_t DiskWriter::Shared::takeBack(std::size_t cut, std::size_t done) const {
  if (cut == 0 || !disk.truncate) {
    return 0;
  }
  static_cast<void>(disk.truncate(written + done - cut));
  return cut;
}

// kept: the bytes of the part being written that the file has.
void DiskWriter::Shared::fail(int error, std::size_t kept) {
  const std::lock_guard<std::mutex> locked(lock);
  failed = true;
  lose(queued - std::min(kept, queued), std::strerror(error));
}

// The queue and why, under the lock.
void DiskWriter::Shared::lose(std::uint64_t bytes, const std::string &why) {
  loss.bytes += bytes;
  loss.why = loss.why.empty() ? why : loss.why;
  queue.clear();
  queued = 0;
}

void DiskWriter::Shared::close() {
  const int error = disk.close() == 0 ? 0 : errno;
  const std::lock_guard<std::mutex> locked(lock);
  if (error != 0) {
    lose(0, std::strerror(error));
  }
  closed = true;
  changed.notify_all();
}

DiskWriter::DiskWriter(Disk disk, std::uint64_t written, int patience)
    : shared_(std::make_shared<Shared>(std::move(disk))), patience_(patience) {
  shared_->written = written;
  const NoSignals none;
  try {
    std::thread([shared = shared_] { shared->run(); }).detach();
  } catch (const std::system_error &error) {
    shared_->fail(error.code().value(), 0);
    shared_->close();
  }
}

DiskWriter::~DiskWriter() {
  giveUp();
}

std::size_t DiskWriter::take(const std::uint8_t *bytes, std::size_t size, std::size_t unit) {
  const std::lock_guard<std::mutex> locked(shared_->lock);
  const std::size_t room = shared_->failed ? 0 : queuedMost - shared_->queued;
  const std::size_t taken = std::min(size, room - room % unit);
  if (taken > 0) {
    shared_->queue.push_back({{bytes, bytes + taken}, unit});
    shared_->queued += taken;
    shared_->changed.notify_all();
  }
  return taken;
}

bool DiskWriter::letGo() {
  const std::lock_guard<std::mutex> locked(shared_->lock);
  shared_->ending = true;
  shared_->changed.notify_all();
  return shared_->closed || patience_.isUsedUp(shared_->progress);
}

void DiskWriter::await(int ms) {
  std::unique_lock<std::mutex> locked(shared_->lock);
  shared_->changed.wait_for(locked, std::chrono::milliseconds(ms),
                            [this] { return shared_->closed; });
}

DiskWriter::Loss DiskWriter::newLoss() {
  const std::lock_guard<std::mutex> locked(shared_->lock);
  return std::exchange(shared_->loss, {});
}

DiskWriter::Loss DiskWriter::giveUp() {
  const std::lock_guard<std::mutex> locked(shared_->lock);
  shared_->ending = true;
  if (!shared_->closed) {
    shared_->failed = true;
    shared_->lose(shared_->queued, tooSlow);
  }
  shared_->changed.notify_all();
  return std::exchange(shared_->loss, {});
}

DiskWriter::Disk diskOf(int file, bool ours) {
  DiskWriter::Disk disk;
  disk.write = [file](const std::uint8_t *bytes, std::size_t size) {
    return ::write(file, bytes, size);
  };
  if (ours) {
    disk.truncate = [file](std::uint64_t size) {
      return ::ftruncate(file, static_cast<off_t>(size));
    };
  }
  disk.close = [file] { return ::close(file); };
  return disk;
}

}  // namespace chassis
