#include "console/Editor.h"

#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <deque>
#include <stdexcept>
#include <utility>

#include "console/Completion.h"
#include "console/Coroutine.h"

namespace chassis {
namespace {

constexpr int defaultWidth = 80;
constexpr std::size_t tabStop = 8;
constexpr std::size_t controlWidth = 2;   // as ^X
constexpr std::size_t escapedWidth = 7;   // as \U+1234, one more behind \U+FFFF
constexpr std::size_t typedAhead = 4096;  // bytes that may wait for the rest of a character

void put(const std::string &text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

// Where the editor goes on behind a character that it shows at `at`, counting cells from the start
// of the prompt. A wide one is not parted: what is left of the row stays empty.
std::size_t behind(wchar_t c, std::size_t at, std::size_t columns) {
  const auto character = static_cast<std::wint_t>(c);
  const std::size_t rest = columns - at % columns;
  if (c == L'\n') {
    return at + rest;
  }
  if (c == L'\t') {
    return at + std::min(rest, tabStop - at % columns % tabStop);
  }
  if (c < 0x100 && std::iswcntrl(character) != 0) {
    return at + controlWidth;
  }
  if (std::iswprint(character) == 0) {
    return at + escapedWidth + (c > 0xFFFF ? 1 : 0);
  }
  const auto width = static_cast<std::size_t>(std::max(wcwidth(c), 0));
  return at + (width > rest ? rest : 0) + width;
}

bool isEmptyOrMissing(const std::string &path) {
  struct stat file {};
  return stat(path.c_str(), &file) != 0 || (S_ISREG(file.st_mode) && file.st_size == 0);
}

}  // namespace

struct Editor::State {
  explicit State(Config given) : config(std::move(given)), typing([this] { readLines(); }) {}

  // in the coroutine
  void readLines();
  int nextCharacter(wchar_t *c);
  unsigned char completeName();

  void openHistory();
  void takeLine(const char *text, int size);
  int width();
  std::size_t cursorRow();
  void hide();
  void show();

  const Config config;
  EditLine *edit = nullptr;
  History *history = nullptr;
  std::string historyTrouble;
  bool keepsHistory = false;
  Coroutine typing;
  bool atLine = false;  // the prompt stands
  bool paused = false;
  bool closing = false;
  bool dropping = false;  // the line that is being typed
  bool ended = false;
  std::deque<char> bytes;
  std::mbstate_t decoding{};
  std::vector<std::string> lines;
};

void Editor::State::readLines() {
  while (!closing && !ended) {
    int size = 0;
    atLine = true;
    const char *text = el_gets(edit, &size);
    atLine = false;
    if (closing) {
      return;
    }
    if (std::exchange(dropping, false)) {
      continue;
    }
    if (text == nullptr || size <= 0) {
      ended = true;
    } else {
      takeLine(text, size);
    }
  }
}

void Editor::State::takeLine(const char *text, int size) {
  std::string line(text, static_cast<std::size_t>(size));
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
    line.pop_back();
  }
  if (line.find_first_not_of(" \t") != std::string::npos) {
    HistEvent event;
    ::history(history, &event, H_ENTER, line.c_str());
  }
  lines.push_back(std::move(line));
}

// Waits in the coroutine for a whole character; bytes that are none are dropped.
int Editor::State::nextCharacter(wchar_t *c) {
  for (;;) {
    while (bytes.empty() && !closing && !dropping) {
      typing.wait();
    }
    if (closing || dropping) {
      return 0;
    }
    const char byte = bytes.front();
    bytes.pop_front();
    const std::size_t read = std::mbrtowc(c, &byte, 1, &decoding);
    if (read == static_cast<std::size_t>(-1)) {
      decoding = std::mbstate_t{};
    } else if (read != static_cast<std::size_t>(-2)) {
      return 1;
    }
  }
}

unsigned char Editor::State::completeName() {
  const LineInfo *line = el_line(edit);
  const Completion completion =
      complete(std::string(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer)),
               config.names);
  if (!completion.insert.empty()) {
    el_insertstr(edit, completion.insert.c_str());
    return CC_REFRESH;
  }
  if (completion.choices.empty()) {
    return CC_REFRESH_BEEP;
  }
  hide();
  put(inColumns(completion.choices, static_cast<std::size_t>(width())));
  return CC_REDISPLAY;
}

int Editor::State::width() {
  int columns = 0;
  el_get(edit, EL_GETTC, "co", &columns);
  return columns > 0 ? columns : defaultWidth;
}

// Rows between the prompt and the cursor, in a terminal that folds long lines.
std::size_t Editor::State::cursorRow() {
  const LineInfoW *line = el_wline(edit);
  const auto columns = static_cast<std::size_t>(width());
  std::size_t at = config.prompt.size();
  for (const wchar_t *c = line->buffer; c < line->cursor; ++c) {
    at = behind(*c, at, columns);
  }
  return at / columns;
}

void Editor::State::hide() {
  const std::size_t row = cursorRow();
  put((row > 0 ? "\033[" + std::to_string(row) + "A" : std::string()) + "\r\033[J");
}

void Editor::State::show() {
  el_set(edit, EL_REFRESH);
}

// A file that is no history is somebody else's: it is left alone.
void Editor::State::openHistory() {
  HistEvent event;
  history = history_init();
  ::history(history, &event, H_SETSIZE, historyLength);
  ::history(history, &event, H_SETUNIQUE, 1);
  el_set(edit, EL_HIST, ::history, history);
  if (config.historyPath.empty()) {
    return;
  }
  keepsHistory = isEmptyOrMissing(config.historyPath) ||
                 ::history(history, &event, H_LOAD, config.historyPath.c_str()) >= 0;
  if (!keepsHistory) {
    historyTrouble = "'" + config.historyPath + "' is no history; it is left as it is";
  }
}

namespace {

Editor::State *stateOf(EditLine *edit) {
  Editor::State *state = nullptr;
  el_get(edit, EL_CLIENTDATA, &state);
  return state;
}

char *promptOf(EditLine *edit) {
  return const_cast<char *>(stateOf(edit)->config.prompt.c_str());
}

int readCharacter(EditLine *edit, wchar_t *c) {
  return stateOf(edit)->nextCharacter(c);
}

unsigned char completeAtCursor(EditLine *edit, int) {
  return stateOf(edit)->completeName();
}

}  // namespace

Editor::Editor(Config config) : state_(std::make_unique<State>(std::move(config))) {
  EditLine *edit = el_init("ci-chassis", stdin, stdout, stderr);
  if (edit == nullptr) {
    throw std::runtime_error("the terminal cannot be used");
  }
  state_->edit = edit;
  el_set(edit, EL_CLIENTDATA, state_.get());
  el_set(edit, EL_PROMPT, promptOf);
  el_set(edit, EL_EDITOR, "emacs");
  el_set(edit, EL_SIGNAL, 0);
  el_set(edit, EL_GETCFN, readCharacter);
  el_set(edit, EL_ADDFN, "complete-name", "completes a name", completeAtCursor);
  el_set(edit, EL_BIND, "^I", "complete-name", nullptr);
  el_set(edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  // The editor's own commands could take the editing away.
  el_set(edit, EL_BIND, "^[x", "ed-unassigned", nullptr);
  el_set(edit, EL_BIND, "^[X", "ed-unassigned", nullptr);
  state_->openHistory();
  state_->typing.resume();
}

Editor::~Editor() {
  if (state_->atLine) {
    state_->hide();
  }
  state_->closing = true;
  state_->typing.resume();
  HistEvent event;
  if (state_->keepsHistory) {
    ::history(state_->history, &event, H_SAVE, state_->config.historyPath.c_str());
  }
  el_end(state_->edit);
  history_end(state_->history);
}

void Editor::feed(const std::string &given) {
  const std::size_t room = typedAhead - std::min(typedAhead, state_->bytes.size());
  const auto end = given.begin() + static_cast<std::ptrdiff_t>(std::min(room, given.size()));
  state_->bytes.insert(state_->bytes.end(), given.begin(), end);
  state_->typing.resume();
}

bool Editor::clearLine() {
  const LineInfoW *line = el_wline(state_->edit);
  if (!state_->atLine || line->lastchar == line->buffer) {
    return false;
  }
  state_->hide();
  state_->dropping = true;
  state_->typing.resume();
  return true;
}

std::vector<std::string> Editor::takeLines() {
  return std::exchange(state_->lines, {});
}

bool Editor::ended() const {
  return state_->ended;
}

void Editor::write(const std::string &text) {
  const bool redraw = state_->atLine && !state_->paused;
  if (redraw) {
    state_->hide();
  }
  put(text);
  if (redraw) {
    state_->show();
  }
}

void Editor::resized() {
  el_resize(state_->edit);
}

void Editor::pause() {
  if (state_->atLine) {
    state_->hide();
    el_set(state_->edit, EL_PREP_TERM, 0);
  }
  state_->paused = true;
}

void Editor::resume() {
  state_->paused = false;
  if (state_->atLine) {
    el_set(state_->edit, EL_PREP_TERM, 1);
    state_->show();
  }
}

const std::string &Editor::historyTrouble() const {
  return state_->historyTrouble;
}

}  // namespace chassis
