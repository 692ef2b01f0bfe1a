#include "Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <numeric>
#include <tuple>
#include <utility>

namespace console {
namespace {

using Time = std::chrono::steady_clock;

constexpr int pollMs = 100;
constexpr std::chrono::seconds deadline{30};

// The address sanitizer has one line to say of a stack that the program makes itself, before the
// program says anything; the screen is the program's.
void dropSanitizersWord(std::string &all) {
  const std::size_t word = all.find("==WARNING: ASan doesn't fully support makecontext");
  const std::size_t end = word == std::string::npos ? word : all.find('\n', word);
  if (end != std::string::npos) {
    const std::size_t begin = all.rfind("==", word - 1);
    all.erase(begin, end + 1 - begin);
  }
}

void redirect(int descriptor, const char *path) {
  if (path != nullptr) {
    dup2(open(path, O_RDWR | O_CREAT, 0600), descriptor);
  }
}

[[noreturn]] void become(const std::string &folder, const std::vector<std::string> &arguments,
                         const TerminalKind &kind) {
  std::vector<char *> argv;
  std::vector<std::string> words{kind.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  setenv("TERM", kind.type, 1);
  setenv("LC_ALL", kind.locale, 1);
  setenv("NO_COLOR", "1", 1);
  setenv("CI_CHASSIS_HISTORY", (folder + "/history").c_str(), 1);
  if (chdir(folder.c_str()) == 0) {
    redirect(STDIN_FILENO, kind.input);
    redirect(STDERR_FILENO, kind.errors);
    execv(argv[0], argv.data());
  }
  _exit(127);
}

winsize sizeOf(unsigned short columns) {
  winsize size{};
  size.ws_row = 50;
  size.ws_col = columns;
  return size;
}

constexpr wchar_t joiner = 0x200D;

bool isSkinTone(wchar_t c) {
  return c >= 0x1F3FB && c <= 0x1F3FF;
}

std::string withoutBlanksBehind(const std::string &row) {
  return row.substr(0, row.find_last_not_of(' ') + 1);
}

// As much of a terminal as the program uses: it moves up and back, erases, goes to a column. A cell
// has a character with its combining ones; the second cell of a wide one is empty. Most terminals
// give each emoji its own cells; some join those that belong together. Behind the last cell of a
// row the cursor stays there until the next character goes to the next row, and so does a wide
// character that has one cell left.
class Display {
 public:
  Display(std::size_t columns, bool joins) : columns_(columns), joins_(joins) {}

  struct Cursor {
    std::string row;  // without the blanks behind its text
    std::size_t column = 0;
  };
  Cursor cursor() const {
    const std::vector<std::string> texts = rows();
    return {row_ < texts.size() ? withoutBlanksBehind(texts[row_]) : "", column_};
  }

  void put(const std::string &text) {
    for (std::size_t at = 0; at < text.size();) {
      at = text[at] == '\033' && at + 1 < text.size() ? escape(text, at + 1) : plain(text, at);
    }
  }
  std::vector<std::string> rows() const {
    std::vector<std::string> texts;
    for (const Row &row : rows_) {
      texts.push_back(std::accumulate(row.begin(), row.end(), std::string()));
    }
    return texts;
  }

 private:
  using Row = std::vector<std::string>;

  std::size_t plain(const std::string &text, std::size_t at) {
    const char c = text[at];
    if (c == '\r') {
      goTo(0);
    } else if (c == '\n') {
      ++row_;
    } else if (c == '\b') {
      goTo(column_ - (column_ > 0 ? 1 : 0));
    } else if (c != '\a') {
      return character(text, at);
    }
    return at + 1;
  }
  std::size_t character(const std::string &text, std::size_t at) {
    std::size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
      ++end;
    }
    const std::string bytes = text.substr(at, end - at);
    wchar_t wide = 0;
    std::mbstate_t state{};
    const bool read = std::mbrtowc(&wide, bytes.data(), bytes.size(), &state) <= bytes.size();
    write(bytes, read ? cellsOf(wide) : 1);
    last_ = wide;
    return end;
  }
  std::size_t cellsOf(wchar_t c) const {
    const bool joined = joins_ && (last_ == joiner || isSkinTone(c));
    return joined ? 0 : static_cast<std::size_t>(std::max(0, wcwidth(c)));
  }
  void write(const std::string &bytes, std::size_t width) {
    if (width > 0 && (full_ || column_ + width > columns_)) {
      goTo(0);
      ++row_;
    }
    Row &row = line();
    row.resize(std::max(row.size(), column_ + width), " ");
    const std::size_t before = full_ ? column_ : column_ - 1;  // of the character just written
    const bool behindOne = (full_ || column_ > 0) && before < row.size();
    const bool widens = joins_ && bytes == "\uFE0F" && behindOne && !row[before].empty();
    if (width == 0 && behindOne) {
      row[before] += bytes;
    }
    for (std::size_t cell = 0; cell < width + (widens ? 1 : 0); ++cell) {
      setCell(cell == 0 && !widens ? bytes : "");
    }
  }
  // A wide character that loses one of its cells is gone.
  void setCell(const std::string &text) {
    Row &row = line();
    row.resize(std::max(row.size(), column_ + 1), " ");
    if (column_ + 1 < row.size() && row[column_ + 1].empty()) {
      row[column_ + 1] = " ";
    }
    if (row[column_].empty() && !text.empty() && column_ > 0) {
      row[column_ - 1] = " ";
    }
    row[column_] = text;
    full_ = column_ + 1 == columns_;
    column_ += full_ ? 0 : 1;
  }
  void goTo(std::size_t column) {
    column_ = std::min(column, columns_ - 1);
    full_ = false;
  }
  std::size_t escape(const std::string &text, std::size_t at) {
    if (text[at] == '7') {
      saved_ = {row_, column_, full_};
    } else if (text[at] == '8') {
      std::tie(row_, column_, full_) = saved_;
    }
    return text[at] == '[' ? control(text, at + 1) : at + 1;
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
    Row &row = line();
    const auto at = row.begin() + static_cast<std::ptrdiff_t>(std::min(column_, row.size()));
    switch (command) {
      case 'A':
        row_ -= std::min(row_, count);
        goTo(column_);
        break;
      case 'C':
        goTo(column_ + count);
        break;
      case 'D':
        goTo(column_ - std::min(column_, count));
        break;
      case 'G':
        goTo(count - 1);
        break;
      case 'J':
        row.erase(at, row.end());
        rows_.resize(row_ + 1);
        break;
      case 'K':
        row.erase(at, row.end());
        break;
      case 'P':
        row.erase(
            at, at + std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(count), row.end() - at));
        break;
      case '@':
        row.insert(at, count, " ");
        row.resize(std::min(row.size(), columns_));
        break;
      default:
        break;
    }
  }
  Row &line() {
    rows_.resize(std::max(rows_.size(), row_ + 1));
    return rows_[row_];
  }

  const std::size_t columns_;
  const bool joins_;
  wchar_t last_ = 0;
  std::vector<Row> rows_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  bool full_ = false;  // the last cell of the row has just been written
  std::tuple<std::size_t, std::size_t, bool> saved_;
};

}  // namespace

Terminal::Terminal(const std::string &folder, const std::vector<std::string> &arguments,
                   const TerminalKind &kind)
    : columns_(kind.columns), joins_(kind.joins) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  const winsize size = sizeOf(kind.columns);
  child_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (child_ == 0) {
    std::signal(SIGHUP, SIG_DFL);  // nohup ignores it
    become(folder, arguments, kind);
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
    dropSanitizersWord(all_);
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

bool Terminal::comesTrue(const std::function<bool()> &so) {
  const Time::time_point end = Time::now() + deadline;
  for (bool more = true; more && Time::now() < end; more = readMore(pollMs)) {
    if (so()) {
      return true;
    }
  }
  return false;
}

testing::AssertionResult Terminal::comesTo(const std::string &row, std::size_t column) {
  Display::Cursor cursor;
  const bool came = comesTrue([&] {
    Display display(columns_, joins_);
    display.put(all_);
    cursor = display.cursor();
    return cursor.column == column && cursor.row == row;
  });
  return came ? testing::AssertionSuccess()
              : testing::AssertionFailure() << "column " << cursor.column << " of " << cursor.row;
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

bool Terminal::isCooked() const {
  termios modes{};
  return tcgetattr(terminal_, &modes) == 0 && (modes.c_lflag & ICANON) != 0 &&
         (modes.c_lflag & ECHO) != 0;
}

void Terminal::resize(unsigned short columns) {
  const winsize size = sizeOf(columns);
  ioctl(terminal_, TIOCSWINSZ, &size);
  columns_ = columns;
}

std::vector<std::string> Terminal::screen() const {
  Display display(columns_, joins_);
  display.put(all_);
  return display.rows();
}

std::size_t Terminal::column() const {
  Display display(columns_, joins_);
  display.put(all_);
  return display.cursor().column;
}

}  // namespace console
