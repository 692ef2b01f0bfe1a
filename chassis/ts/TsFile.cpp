#include "ts/TsFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "InputError.h"

namespace chassis {

namespace {

constexpr std::uint8_t syncByte = 0x47;
constexpr std::size_t syncsInARow = 5;
// At the end of the file fewer must do, but less than these stand by chance in any other file.
constexpr std::size_t fewSyncs = 3;
constexpr std::size_t window = syncsInARow * tsPacketSize;
constexpr std::size_t bufferSize = 1024 * tsPacketSize;

struct CloseFile {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openFile(const std::string &path) {
  std::error_code failure;
  const auto status = std::filesystem::status(path, failure);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw InputError("'" + path + "' is not a regular file; a transport stream file is needed");
  }
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    throw InputError("'" + path + "' cannot be opened: " + std::strerror(errno));
  }
  return file;
}

}  // namespace

struct TsFile::State {
  explicit State(const std::string &path) : file(openFile(path)), buffer(bufferSize) {}

  std::size_t left() const { return end - begin; }
  const std::uint8_t *at(std::size_t offset) const { return buffer.data() + begin + offset; }

  bool fill(std::size_t wanted);
  bool startsPacket(std::size_t offset) const;
  void skip(std::size_t bytes);
  bool findPacket();
  void restart();

  File file;
  std::vector<std::uint8_t> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
  bool atStart = true;
  std::uint64_t packets = 0;
  std::uint64_t skipped = 0;
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
  end += std::fread(buffer.data() + end, 1, buffer.size() - end, file.get());
  return left() >= wanted;
}

// Whether packets in a row start here; the window from here on must be filled.
bool TsFile::State::startsPacket(std::size_t offset) const {
  const std::size_t rest = left() - offset;
  if (rest < tsPacketSize) {
    return false;
  }
  std::size_t syncs = 0;
  for (std::size_t pos = 0; pos < rest && syncs < syncsInARow; pos += tsPacketSize, ++syncs) {
    if (*at(offset + pos) != syncByte) {
      return false;
    }
  }
  const bool wholeFile = atStart && offset == 0;
  const bool lastPackets = packets > 0 && rest % tsPacketSize == 0;
  return syncs >= fewSyncs || wholeFile || lastPackets;
}

void TsFile::State::skip(std::size_t bytes) {
  begin += bytes;
  skipped += bytes;
  atStart = atStart && bytes == 0;
}

// Skips to the next place where packets in a row start.
bool TsFile::State::findPacket() {
  while (fill(window) || left() >= tsPacketSize) {
    const std::size_t last = left() >= window ? left() - window : left() - tsPacketSize;
    std::size_t offset = 0;
    while (offset <= last && !startsPacket(offset)) {
      ++offset;
    }
    skip(offset);
    if (offset <= last) {
      return true;
    }
  }
  skip(left());
  return false;
}

void TsFile::State::restart() {
  std::rewind(file.get());
  begin = end = 0;
  atStart = true;
  packets = skipped = 0;
}

TsFile::TsFile(const std::string &path) : state_(std::make_unique<State>(path)) {
  if (!state_->fill(1)) {
    throw InputError("'" + path + "' is empty; a transport stream file is needed");
  }
  if (!state_->findPacket()) {
    throw InputError("'" + path +
                     "' holds no transport stream: no 188-byte packets with sync byte 0x47");
  }
  state_->restart();
}

TsFile::~TsFile() = default;

bool TsFile::next(TsPacket &packet) {
  State &state = *state_;
  const bool whole = state.fill(tsPacketSize);
  const bool inSync = whole && !state.atStart && *state.at(0) == syncByte;
  if (!inSync && !state.findPacket()) {
    return false;
  }
  std::copy_n(state.at(0), tsPacketSize, packet.begin());
  state.begin += tsPacketSize;
  state.atStart = false;
  ++state.packets;
  return true;
}

void TsFile::rewind() {
  state_->restart();
}

std::uint64_t TsFile::packets() const {
  return state_->packets;
}

std::uint64_t TsFile::skippedBytes() const {
  return state_->skipped;
}

}  // namespace chassis
