#include "io/PipeSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/InputError.h"

namespace chassis {
namespace {

constexpr std::size_t partSize = 1 << 16;
// More than comes between two ticks: a smaller pipe would hold its writer up at high rates.
constexpr int pipeSize = 1 << 20;

struct Kind {
  mode_t type;
  const char *text;
  bool byPath;  // can be read by its path
  bool open;    // can be read when it is open
};

constexpr Kind kinds[] = {
    {S_IFIFO, "a FIFO", true, true},        {S_IFCHR, "a character device", true, true},
    {S_IFSOCK, "a socket", false, true},    {S_IFREG, "a regular file", false, false},
    {S_IFDIR, "a directory", false, false}, {S_IFBLK, "a block device", false, false},
};

const Kind &kindOf(const struct stat &status) {
  return *std::find_if(std::begin(kinds), std::end(kinds) - 1, [&status](const Kind &kind) {
    return kind.type == (status.st_mode & S_IFMT);
  });
}

[[noreturn]] void refuseInput(const std::string &name, const std::string &why) {
  throw InputError(name + " " + why);
}

int openedByPath(const std::string &name, const std::string &path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !kindOf(status).byPath) {
    refuseInput(name, std::string("is ") + kindOf(status).text +
                          "; a FIFO or a character device is needed");
  }
  const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) {
    refuseInput(name, std::string("cannot be opened: ") + std::strerror(errno));
  }
  return file;
}

struct stat statusOf(int file, const std::string &name) {
  struct stat status {};
  if (fstat(file, &status) != 0) {
    refuseInput(name, std::string("cannot be read: ") + std::strerror(errno));
  }
  return status;
}

// Others may rely on a shared descriptor to wait, so it is asked first.
bool readable(int file) {
  pollfd waiting{file, POLLIN, 0};
  return poll(&waiting, 1, 0) > 0;
}

}  // namespace

PipeSource::PipeSource(const std::string &path, Now now, Tell tell)
    : path_(path),
      now_(std::move(now)),
      tell_(std::move(tell)),
      file_(openedByPath("'" + path + "'", path)),
      buffer_(Resync::window + partSize) {
  struct stat status {};
  reopens_ = fstat(file_, &status) == 0 && S_ISFIFO(status.st_mode);
  writer_ = !reopens_;
  widen();
}

PipeSource::PipeSource(int file, const std::string &name, Now now, Tell tell)
    : path_("-"),
      now_(std::move(now)),
      tell_(std::move(tell)),
      file_(file),
      shared_(true),
      buffer_(Resync::window + partSize) {
  const Kind &kind = kindOf(statusOf(file, name));
  if (!kind.open) {
    refuseInput(name, std::string("is ") + kind.text +
                          "; a pipe, a socket or a character device is needed, and a "
                          "file by its path");
  }
  widen();
}

PipeSource::~PipeSource() {
  if (!shared_) {
    ::close(file_);
  } else if (capacity_ > 0) {
    static_cast<void>(fcntl(file_, F_SETPIPE_SZ, capacity_));
  }
}

// As far as the system lets us; a pipe that stays small is read all the same.
void PipeSource::widen() {
  const int before = fcntl(file_, F_GETPIPE_SZ);
  if (before > 0 && before < pipeSize && fcntl(file_, F_SETPIPE_SZ, pipeSize) > 0) {
    capacity_ = before;
  }
}

void PipeSource::come() {
  if (!writer_) {
    writer_ = true;
    ++writers_;
    tell_({{}, event::WriterCame{{path_}}});
  }
}

// failure: why nothing can be read any more; empty: nobody writes.
void PipeSource::go(const std::string &failure) {
  if (!writer_ && failure.empty()) {
    return;
  }
  takePackets(true);
  skippedBefore_ += resync_.skippedBytes();
  resync_ = {};
  ended_ = !reopens_ || !failure.empty();
  writer_ = false;
  const auto over = ended_ ? event::WriterGoneReason::AtEnd : event::WriterGoneReason::Waits;
  tell_({{},
         event::WriterGone{path_, failure.empty() ? over : event::WriterGoneReason::Unreadable,
                           failure}});
}

// Damage goes on until packets have come for a while without any.
void PipeSource::judge(bool packets, std::uint64_t nowNs) {
  const std::uint64_t skipped = skippedBefore_ + resync_.skippedBytes();
  const std::uint64_t more = skipped - std::exchange(counters_.skippedBytes, skipped);
  if (more > 0 && !std::exchange(damaged_, true)) {
    tell_({{}, event::StreamDamaged{path_, more}});
  }
  damagedNs_ = more > 0 ? nowNs : damagedNs_;
  damaged_ = damaged_ && !(packets && nowNs - damagedNs_ >= soundNs);
}

// last: no more bytes belong to those that are held.
void PipeSource::takePackets(bool last) {
  const std::uint64_t nowNs = now_();
  const std::size_t before = ready_.size();
  std::size_t at = 0;
  for (bool packet = true; packet;) {
    const Resync::Step step = resync_.next(buffer_.data() + at, held_ - at, last);
    at += step.passed;
    packet = step.packet;
    if (packet) {
      ready_.push_back({{}, nowNs, writers_});
      std::copy_n(buffer_.data() + at, tsPacketSize, ready_.back().packet.begin());
      at += tsPacketSize;
    }
  }
  std::copy(buffer_.data() + at, buffer_.data() + held_, buffer_.data());
  held_ -= at;
  judge(ready_.size() > before, nowNs);
}

std::ptrdiff_t PipeSource::readSome(std::size_t most) {
  if (shared_ && !readable(file_)) {
    errno = EAGAIN;
    return -1;
  }
  return ::read(file_, buffer_.data() + held_, std::min(most, partSize));
}

// False: nothing more is there.
bool PipeSource::readPart(std::size_t &room) {
  const std::ptrdiff_t size = readSome(room);
  if (size == 0) {
    go("");
  } else if (size > 0) {
    come();
    held_ += static_cast<std::size_t>(size);
    room -= static_cast<std::size_t>(size);
    takePackets(false);
  } else if (errno == EAGAIN) {
    come();
  } else if (errno != EINTR) {
    go(std::strerror(errno));
  }
  return size > 0;
}

void PipeSource::readOn() {
  ready_.clear();
  taken_ = 0;
  std::size_t room = readAtMost;
  while (!ended_ && room > 0 && readPart(room)) {
  }
}

std::size_t PipeSource::due(std::uint64_t /*nowMs*/) {
  if (taken_ == ready_.size()) {
    readOn();
  }
  return ready_.size() - taken_;
}

bool PipeSource::next(TsPacket &packet, std::uint64_t &cameNs) {
  if (taken_ == ready_.size()) {
    return false;
  }
  const Timed &timed = ready_[taken_++];
  packet = timed.packet;
  cameNs = timed.cameNs;
  handedWriters_ = timed.writers;
  ++counters_.packets;
  return true;
}

}  // namespace chassis
