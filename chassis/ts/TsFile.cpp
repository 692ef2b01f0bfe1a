#include "ts/TsFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/InputError.h"
#include "ts/Resync.h"

namespace chassis {

namespace {

constexpr std::size_t bufferSize = 1024 * tsPacketSize;

// goOn is asked whenever so much has been read.
constexpr std::uint64_t askedEvery = 4 << 20;

// An open regular file. Nothing else is read: a FIFO could not be rewound, and might keep us
// waiting.
class InputFile {
 public:
  explicit InputFile(const std::string &path)
      : file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    struct stat status {};
    const bool known = file_ >= 0 && fstat(file_, &status) == 0;
    const std::string failure = std::strerror(errno);
    if (!known || !S_ISREG(status.st_mode)) {
      close();
      throw InputError("'" + path + "' " +
                       (known ? "is not a regular file; a transport stream file is needed"
                              : "cannot be opened: " + failure));
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
  }
  ~InputFile() { close(); }
  InputFile(const InputFile &) = delete;
  InputFile &operator=(const InputFile &) = delete;

  // Less than `size` only at the end, or where reading has failed; then nothing more comes.
  std::size_t read(std::uint8_t *to, std::size_t size) {
    std::size_t done = 0;
    for (ssize_t part = 1; error_ == 0 && done < size && part > 0;) {
      part = ::read(file_, to + done, size - done);
      done += part > 0 ? static_cast<std::size_t>(part) : 0;
      error_ = part < 0 && errno != EINTR ? errno : 0;
      part = part < 0 ? 1 : part;
    }
    position_ += done;
    return done;
  }
  void rewind() {
    position_ = lseek(file_, 0, SEEK_SET) == 0 ? 0 : position_;
    error_ = 0;
  }

  int error() const { return error_; }  // errno of the reading that failed; 0: none did

  std::uint64_t position() const { return position_; }
  std::uint64_t size() const { return size_; }

 private:
  void close() {
    if (file_ >= 0) {
      ::close(file_);
    }
  }

  int file_;
  int error_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t size_ = 0;  // as it was opened
};

}  // namespace

struct TsFile::State {
  State(const std::string &path, GoOn asked)
      : file(path), goOn(std::move(asked)), name("'" + path + "'"), buffer(bufferSize) {}

  std::size_t left() const { return end - begin; }
  const std::uint8_t *front() const { return buffer.data() + begin; }

  bool fill(std::size_t wanted);
  void ask();
  bool findPacket();
  void restart();
  void requireReadable() const;

  InputFile file;
  const GoOn goOn;
  const std::string name;
  std::uint64_t askAt = askedEvery;
  bool interrupted = false;
  std::vector<std::uint8_t> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
  Resync resync;
  std::uint64_t packets = 0;
};

// Makes a number of bytes available, fewer only at the end of the file.
bool TsFile::State::fill(std::size_t wanted) {
  if (left() >= wanted) {
    return true;
  }
  std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(begin),
            buffer.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
  end = left();
  begin = 0;
  end += interrupted ? 0 : file.read(buffer.data() + end, buffer.size() - end);
  return left() >= wanted;
}

void TsFile::State::ask() {
  if (goOn && file.position() >= askAt) {
    askAt = file.position() + askedEvery;
    interrupted = interrupted || !goOn({"reading " + name, file.position(), file.size()});
  }
}

// Goes to the next packet.
bool TsFile::State::findPacket() {
  const std::uint64_t before = resync.skippedBytes();
  for (bool more = true; more;) {
    if (resync.skippedBytes() - before >= askedEvery) {
      ask();
    }
    more = fill(Resync::window);
    const Resync::Step step = resync.next(front(), left(), !more);
    begin += step.passed;
    if (step.packet) {
      return true;
    }
  }
  return false;
}

void TsFile::State::requireReadable() const {
  if (file.error() != 0) {
    throw InputError(name + " cannot be read to its end: " + std::strerror(file.error()));
  }
}

void TsFile::State::restart() {
  file.rewind();
  askAt = askedEvery;
  interrupted = false;
  begin = end = 0;
  resync = {};
  packets = 0;
}

TsFile::TsFile(const std::string &path, GoOn goOn)
    : state_(std::make_unique<State>(path, std::move(goOn))) {
  if (!state_->fill(1)) {
    state_->requireReadable();
    throw InputError("'" + path + "' is empty; a transport stream file is needed");
  }
  const bool found = state_->findPacket();
  requireUninterrupted();
  if (!found) {
    state_->requireReadable();
    throw InputError("'" + path +
                     "' holds no transport stream: no packets of 188, 192 or 204 bytes with sync "
                     "byte 0x47");
  }
  state_->restart();
}

TsFile::~TsFile() = default;

bool TsFile::next(TsPacket &packet) {
  State &state = *state_;
  if (!state.findPacket()) {
    state.requireReadable();
    return false;
  }
  std::copy_n(state.front(), tsPacketSize, packet.begin());
  state.begin += tsPacketSize;
  ++state.packets;
  return true;
}

void TsFile::rewind() {
  state_->restart();
}

bool TsFile::goesOn() {
  state_->ask();
  return !state_->interrupted;
}

void TsFile::requireUninterrupted() const {
  if (state_->interrupted) {
    throw Interrupted(state_->name + " was not read to its end");
  }
}

std::uint64_t TsFile::packets() const {
  return state_->packets;
}

std::uint64_t TsFile::skippedBytes() const {
  return state_->resync.skippedBytes();
}

}  // namespace chassis
