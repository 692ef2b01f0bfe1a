#include "console/ProgressLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace chassis {
namespace {

constexpr std::chrono::milliseconds notBefore{500};
constexpr std::chrono::milliseconds every{200};
constexpr std::size_t usualColumns = 80;

std::size_t columnsOf(int terminal) {
  winsize size{};
  const bool known = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : usualColumns;
}

std::string percent(const Progress &progress) {
  return std::to_string(static_cast<int>(100.0 * static_cast<double>(progress.done) /
                                         static_cast<double>(progress.all))) +
         " %";
}

}  // namespace

std::string progressText(const Progress &progress) {
  if (progress.all == 0) {
    return progress.what;
  }
  const std::string reached = progress.reached.empty() ? "" : " " + progress.reached;
  return progress.what + reached + ": " + percent(progress);
}

bool ProgressPace::due(const Progress &progress) {
  const Time::time_point now = Time::now();
  if (progress.what != what_ || progress.done < done_) {
    what_ = progress.what;
    next_ = now + first_;
  }
  done_ = progress.done;
  if (now < next_) {
    return false;
  }
  next_ = now + every_;
  return true;
}

ProgressLine::ProgressLine(int file)
    : file_(file), terminal_(isatty(file) == 1), pace_(notBefore, every) {}

void ProgressLine::show(const Progress &progress) {
  if (!terminal_) {
    return;
  }
  if (isDone(progress)) {
    clear();
  } else if (pace_.due(progress)) {
    const std::string whole = progressText(progress);
    const bool fits = whole.size() < columnsOf(file_);
    clear();
    put(fits || progress.all == 0 ? whole.substr(0, columnsOf(file_) - 1) : percent(progress));
  }
}

void ProgressLine::clear() {
  if (shown_ > 0) {
    put("\r" + std::string(shown_, ' ') + "\r");
    shown_ = 0;
  }
}

GoOn showingOn(ProgressLine &line) {
  return [&line](const Progress &progress) {
    line.show(progress);
    return true;
  };
}

void ProgressLine::put(const std::string &text) {
  const ssize_t size = ::write(file_, text.data(), text.size());
  shown_ = size > 0 ? static_cast<std::size_t>(size) : 0;
}

}  // namespace chassis
