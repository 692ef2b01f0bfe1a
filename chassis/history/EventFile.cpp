#include "history/EventFile.h"

#include <utility>

namespace chassis {
namespace {

constexpr const char *user = "the file of events";

}  // namespace

EventFile::EventFile(Files &files, const std::string &path, std::function<std::uint64_t()> nowMs,
                     std::function<bool()> waits)
    : files_(files),
      output_(files.openOutput(user, path)),
      waits_(std::move(waits)),
      lines_([this](const std::string &line) { write(line); }, std::move(nowMs)) {}

EventFile::~EventFile() {
  files_.forget(user);
}

void EventFile::write(const std::string &line) {
  const auto *bytes = reinterpret_cast<const std::uint8_t *>(line.data());
  output_->setPatient(!waits_ || waits_());
  output_->write(bytes, line.size(), line.size());
}

std::optional<Event> EventFile::newTrouble() {
  if (output_->trouble().empty() || std::exchange(told_, true)) {
    return std::nullopt;
  }
  return Event{{}, event::OutputLost{output_->path(), output_->trouble()}};
}

std::string EventFile::end() {
  output_->end();
  return lossText(output_->path(), user, std::to_string(output_->lostBytes()) + " bytes",
                  output_->trouble());
}

}  // namespace chassis
