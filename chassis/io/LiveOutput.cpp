#include "io/LiveOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/InputError.h"
#include "io/FileIdentity.h"

namespace chassis {
namespace {

constexpr int sliceMs = 20;
constexpr const char *noReader = "nobody reads it";
constexpr const char *slowReader = "its reader does not keep up";

// A reader that goes is told by the write alone, not by a signal that ends the program.
class NoBrokenPipe {
 public:
  NoBrokenPipe() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~NoBrokenPipe() {
    const timespec now{};
    while (sigismember(&before_, SIGPIPE) == 0 && sigtimedwait(&pipe_, nullptr, &now) == SIGPIPE) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  NoBrokenPipe(const NoBrokenPipe &) = delete;
  NoBrokenPipe &operator=(const NoBrokenPipe &) = delete;

 private:
  sigset_t pipe_{};
  sigset_t before_{};
};

[[noreturn]] void cannotWrite(const std::string &path, const std::string &why) {
  throw InputError("'" + path + "' cannot be written: " + why);
}

// A FIFO of another owner in a folder that everybody may write to lets nobody create it.
int openForWriting(const std::string &path, int how) {
  constexpr mode_t everybody = 0666;
  const int flags = how | O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  const int file = ::open(path.c_str(), flags);
  return file < 0 && errno == ENOENT ? ::open(path.c_str(), flags | O_CREAT, everybody) : file;
}

}  // namespace

void requireWritable(const std::string &path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) {
    const std::string folder = std::filesystem::path(behindLinks(path)).parent_path().string();
    if (access(((folder.empty() ? "." : folder) + "/.").c_str(), W_OK | X_OK) != 0) {
      cannotWrite(path, std::strerror(errno));
    }
  } else if (!S_ISREG(file.st_mode) && !S_ISFIFO(file.st_mode) && !S_ISCHR(file.st_mode)) {
    cannotWrite(path, "it is no file; a file, a FIFO or a character device is needed");
  } else if (access(path.c_str(), W_OK) != 0) {
    cannotWrite(path, std::strerror(errno));
  }
}

std::string lossText(const std::string &path, const std::string &user, const std::string &lost,
                     const std::string &trouble) {
  return trouble.empty()
             ? ""
             : "'" + path + "', " + user + ", is not whole: " + lost + " lost: " + trouble;
}

LiveOutput::LiveOutput(std::string path, Objection objection, GoOn goOn, Existing existing)
    : path_(std::move(path)),
      objection_(std::move(objection)),
      goOn_(std::move(goOn)),
      existing_(existing) {
  requireWritable(path_);
}

LiveOutput::~LiveOutput() {
  if (file_ >= 0) {
    ::close(file_);
  }
}

void LiveOutput::lose(std::size_t bytes, const std::string &why) {
  lost_ += bytes;
  if (trouble_.empty()) {
    trouble_ = why;
  }
}

// Those before the one of the next byte to write.
void LiveOutput::forgetRuns() {
  while (runs_.size() > 1 && runs_[1].begin <= written_) {
    runs_.pop_front();
  }
}

// The bytes that are written of the unit that is not written whole.
std::size_t LiveOutput::begun() {
  forgetRuns();
  return runs_.empty() ? 0 : (written_ - runs_.front().begin) % runs_.front().unit;
}

// What a full disk has taken of a unit is taken back, where all of the file is ours.
void LiveOutput::fail(const std::string &why) {
  failed_ = true;
  const std::size_t part = ours_ ? begun() : 0;
  if (part != 0) {
    written_ -= part;
    static_cast<void>(ftruncate(file_, static_cast<off_t>(written_)));
  }
  lose(part + waiting(), why);
  held_.clear();
  sent_ = 0;
}

bool LiveOutput::open() {
  if (file_ >= 0) {
    return true;
  }
  const int file = openForWriting(path_, existing_ == Existing::GoneOnWith ? O_APPEND : 0);
  if (file >= 0) {
    return begin(file);
  }
  if (errno != ENXIO && errno != EINTR) {
    fail(std::strerror(errno));
  }
  return false;
}

bool LiveOutput::begin(int file) {
  file_ = file;
  struct stat status {};
  onDisk_ = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  ours_ = onDisk_ && existing_ == Existing::Emptied;
  const std::string other = objection_ ? objection_(file) : "";
  if (!other.empty()) {
    ours_ = false;
    fail("it has become " + other);
  } else if (ours_ && patient_ && ftruncate(file, 0) != 0) {
    fail(std::strerror(errno));
  }
  return !failed_;
}

// The next reader begins with a whole unit.
void LiveOutput::dropReader() {
  ::close(std::exchange(file_, -1));
  const std::size_t part = begun();
  const std::size_t unit = runs_.empty() ? 0 : runs_.front().unit;
  const std::size_t rest = part == 0 ? 0 : std::min(unit - part, waiting());
  sent_ += rest;
  written_ += rest;
  lose(rest == 0 ? 0 : unit, "its reader has gone");
}

void LiveOutput::drain() {
  const NoBrokenPipe guard;
  while (!failed_ && waiting() > 0 && open()) {
    const ssize_t size = ::write(file_, held_.data() + sent_, waiting());
    if (size >= 0) {
      sent_ += static_cast<std::size_t>(size);
      written_ += static_cast<std::uint64_t>(size);
      stalled_ = false;
    } else if (errno == EAGAIN) {
      break;
    } else if (errno == EPIPE) {
      dropReader();
    } else if (errno != EINTR) {
      fail(std::strerror(errno));
    }
  }
  held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(sent_));
  sent_ = 0;
  forgetRuns();
}

bool LiveOutput::goesOn() const {
  return !goOn_ || goOn_({"waiting for a reader of '" + path_ + "'"});
}

// Until no more than `room` bytes wait, or a reader has taken none of them for too long.
void LiveOutput::awaitReader(std::size_t room) {
  Patience patience(patienceMs);
  while (!failed_ && !stalled_ && waiting() > room && goesOn()) {
    stalled_ = patience.isUsedUp(waiting());
    pollfd sink{file_, POLLOUT, 0};
    static_cast<void>(poll(&sink, 1, sliceMs));
    drain();
  }
}

// Nothing is held back of a file while it is written here.
bool LiveOutput::isBeside() {
  if (disk_ == nullptr && !patient_ && open() && onDisk_) {
    disk_ = std::make_unique<DiskWriter>(diskOf(std::exchange(file_, -1), ours_), written_);
  }
  return disk_ != nullptr;
}

void LiveOutput::writeBeside(const std::uint8_t *bytes, std::size_t size, std::size_t unit) {
  const std::size_t taken = disk_->take(bytes, size, unit);
  noteLoss(disk_->newLoss());
  if (taken < size) {
    lose(size - taken, DiskWriter::tooSlow);
  }
}

void LiveOutput::noteLoss(const DiskWriter::Loss &loss) {
  if (!loss.why.empty()) {
    lose(loss.bytes, loss.why);
  }
}

void LiveOutput::write(const std::uint8_t *bytes, std::size_t size, std::size_t unit) {
  if (failed_) {
    lose(size, trouble_);
    return;
  }
  if (isBeside()) {
    writeBeside(bytes, size, unit);
    return;
  }
  const bool tooMuch = waiting() + size > heldBackMost;
  if (tooMuch && patient_) {
    awaitReader(size < heldBackMost ? heldBackMost - size : 0);
  }
  const std::size_t room = failed_ ? 0 : heldBackMost - std::min(heldBackMost, waiting());
  const std::size_t taken = std::min(size, room - room % unit);
  if (runs_.empty() || runs_.back().unit != unit) {
    runs_.push_back({written_ + waiting(), unit});
  }
  held_.insert(held_.end(), bytes, bytes + taken);
  drain();
  if (taken < size) {
    lose(size - taken, file_ < 0 ? noReader : slowReader);
  }
}

bool LiveOutput::letGo() {
  if (disk_ != nullptr) {
    return disk_->letGo();
  }
  drain();
  stalled_ = stalled_ || (waiting() > 0 && atEnd_.isUsedUp(waiting()));
  return failed_ || stalled_ || waiting() == 0 || !goesOn();
}

void LiveOutput::end() {
  if (disk_ != nullptr) {
    while (!disk_->letGo()) {
      disk_->await(sliceMs);
    }
    noteLoss(disk_->giveUp());
    disk_.reset();
    return;
  }
  awaitReader(0);
  if (waiting() > 0) {
    lose(waiting(), file_ < 0 ? noReader : slowReader);
    held_.clear();
  }
  if (file_ >= 0 && ::close(std::exchange(file_, -1)) != 0) {
    lose(0, std::strerror(errno));
  }
}

}  // namespace chassis
