#include "Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>

namespace console {
namespace {

using Time = std::chrono::steady_clock;

constexpr int pollMs = 100;
constexpr std::chrono::seconds deadline{30};

[[noreturn]] void become(const std::string &folder, const std::vector<std::string> &arguments) {
  std::vector<char *> argv;
  std::vector<std::string> words{CONSOLE_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  setenv("TERM", "xterm", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  setenv("NO_COLOR", "1", 1);
  setenv("CI_CHASSIS_HISTORY", (folder + "/history").c_str(), 1);
  if (chdir(folder.c_str()) == 0) {
    execv(CONSOLE_PROGRAM, argv.data());
  }
  _exit(127);
}

// As much of a terminal as the program uses: it moves up and back, erases, goes to a column.
class Display {
 public:
  explicit Display(std::size_t columns) : columns_(columns) {}

  void put(const std::string &text) {
    for (std::size_t at = 0; at < text.size();) {
      at = text.compare(at, 2, "\033[") == 0 ? control(text, at + 2) : plain(text, at);
    }
  }
  std::vector<std::string> rows() const { return rows_; }

 private:
  std::size_t plain(const std::string &text, std::size_t at) {
    const char c = text[at];
    if (c == '\r') {
      column_ = 0;
    } else if (c == '\n') {
      ++row_;
    } else if (c == '\b') {
      column_ -= column_ > 0 ? 1 : 0;
    } else if (c != '\a') {
      write(c);
    }
    return at + 1;
  }
  void write(char c) {
    if (column_ == columns_) {
      column_ = 0;
      ++row_;
    }
    std::string &row = line();
    row.resize(std::max(row.size(), column_ + 1), ' ');
    row[column_++] = c;
  }
  std::size_t control(const std::string &text, std::size_t at) {
    const std::size_t end = text.find_first_not_of("0123456789;?", at);
    const std::size_t count = std::max(1, std::atoi(text.c_str() + at));
    if (end == std::string::npos) {
      return text.size();
    }
    apply(text[end], count);
    return end + 1;
  }
  void apply(char command, std::size_t count) {
    switch (command) {
      case 'A':
        row_ -= std::min(row_, count);
        break;
      case 'C':
        column_ += count;
        break;
      case 'D':
        column_ -= std::min(column_, count);
        break;
      case 'G':
        column_ = count - 1;
        break;
      case 'J':
        line().resize(std::min(line().size(), column_));
        rows_.resize(row_ + 1);
        break;
      case 'K':
        line().resize(std::min(line().size(), column_));
        break;
      case 'P':
        line().erase(std::min(column_, line().size()), count);
        break;
      case '@':
        line().insert(std::min(column_, line().size()), count, ' ');
        break;
      default:
        break;
    }
  }
  std::string &line() {
    rows_.resize(std::max(rows_.size(), row_ + 1));
    return rows_[row_];
  }

  const std::size_t columns_;
  std::vector<std::string> rows_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
};

}  // namespace

Terminal::Terminal(const std::string &folder, const std::vector<std::string> &arguments) {
  winsize size{};
  size.ws_row = 50;
  size.ws_col = 400;
  child_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (child_ == 0) {
    become(folder, arguments);
  }
  fcntl(terminal_, F_SETFL, O_NONBLOCK);
}

Terminal::~Terminal() {
  if (child_ > 0) {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  close(terminal_);
}

// Reads on meanwhile: the program waits while nobody takes what it shows.
void Terminal::type(const std::string &bytes) {
  const Time::time_point end = Time::now() + deadline;
  for (std::size_t at = 0; at < bytes.size() && Time::now() < end;) {
    const ssize_t written = write(terminal_, bytes.data() + at, bytes.size() - at);
    at += written > 0 ? static_cast<std::size_t>(written) : 0;
    readMore(written > 0 ? 0 : 1);
  }
}

bool Terminal::readMore(int timeoutMs) {
  pollfd source{terminal_, POLLIN, 0};
  if (poll(&source, 1, timeoutMs) <= 0) {
    return true;
  }
  std::array<char, 4096> buffer{};
  const ssize_t size = read(terminal_, buffer.data(), buffer.size());
  if (size > 0) {
    all_.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return size > 0;
}

bool Terminal::sees(const std::string &text) {
  const Time::time_point end = Time::now() + deadline;
  for (bool more = true;;) {
    const std::size_t found = all_.find(text, seen_);
    if (found != std::string::npos) {
      seen_ = found + text.size();
      return true;
    }
    if (!more || Time::now() > end) {
      return false;
    }
    more = readMore(pollMs);
  }
}

int Terminal::endStatus() {
  const Time::time_point end = Time::now() + deadline;
  while (Time::now() < end) {
    readMore(pollMs);
    int status = 0;
    if (waitpid(child_, &status, WNOHANG) == child_) {
      child_ = -1;
      while (readMore(pollMs) && Time::now() < end) {
      }
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
  }
  return -1;
}

bool Terminal::stops() {
  const Time::time_point end = Time::now() + deadline;
  for (int status = 0; Time::now() < end; readMore(pollMs)) {
    if (waitpid(child_, &status, WNOHANG | WUNTRACED) == child_) {
      return WIFSTOPPED(status);
    }
  }
  return false;
}

void Terminal::signal(int number) {
  kill(child_, number);
}

std::vector<std::string> Terminal::screen(std::size_t columns) const {
  Display display(columns);
  display.put(all_);
  return display.rows();
}

}  // namespace console
