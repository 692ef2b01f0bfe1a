#include "console/Editor.h"

#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <deque>
#include <stdexcept>
#include <utility>

#include "console/Colour.h"
#include "console/Completion.h"
#include "console/Coroutine.h"
#include "console/LineCells.h"
#include "console/StandardOutput.h"

namespace chassis {
namespace {

constexpr int defaultWidth = 80;
constexpr std::size_t typedAhead = 4096;  // bytes that may wait for the rest of a character

bool isEmptyOrMissing(const std::string &path) {
  struct stat file {};
  return stat(path.c_str(), &file) != 0 || (S_ISREG(file.st_mode) && file.st_size == 0);
}

// Nothing for none: a terminal takes 0 for 1.
std::string moved(std::size_t count, char where) {
  return count == 0 ? "" : "\033[" + std::to_string(count) + where;
}

std::string up(std::size_t rows) {
  return moved(rows, 'A');
}

std::string onward(std::size_t columns) {
  return moved(columns, 'C');
}

}  // namespace

struct Editor::State {
  explicit State(Config given) : config(std::move(given)), typing([this] { readLines(); }) {}
  ~State() {
    std::fclose(drawn);
    std::free(drawnText);
  }
  State(const State &) = delete;
  State &operator=(const State &) = delete;

  // in the coroutine
  void readLines();
  int nextCharacter(wchar_t *c);
  unsigned char completeName();
  unsigned char moveBack();
  unsigned char moveOn();
  unsigned char deleteBefore();
  unsigned char endOrDeleteAt();
  unsigned char deleteAt();

  std::wstring beforeCursor();
  std::wstring behindCursor();
  unsigned char redrawn(std::size_t deleted);
  void openHistory();
  void takeLine(const char *text, int size);
  int width();
  std::size_t cellsOf(const std::wstring &text);
  std::size_t cursorCell();
  std::string toPrompt() const;
  std::string takeDrawn();
  void passDrawn();
  void settle();
  void paint();
  void paintGlyphs();
  void hide();
  void show();

  const Config config;
  const bool takesCodes = outputTakesCodes();
  char *drawnText = nullptr;
  std::size_t drawnSize = 0;
  FILE *const drawn = open_memstream(&drawnText, &drawnSize);  // by the library, not shown yet
  // The line as it is shown: the cursor's row below the prompt, all cells, characters of other than
  // one cell in it.
  std::size_t row = 0;
  std::size_t cells = 0;
  bool odd = false;
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
    // Before the prompt, so that the terminal does not echo what is typed as soon as it stands.
    el_set(edit, EL_PREP_TERM, 1);
    const char *text = el_gets(edit, &size);
    atLine = false;
    passDrawn();
    row = cells = 0;
    odd = false;
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
      settle();
      typing.wait();
    }
    if (closing || dropping) {
      return 0;
    }
    const char byte = bytes.front();
    if (byte == '\r' || byte == '\n') {
      settle();  // what ends the line begins where the cursor is
    }
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
  writeStandardOutput(inColumns(completion.choices, static_cast<std::size_t>(width())));
  return CC_REDISPLAY;
}

std::wstring Editor::State::beforeCursor() {
  const LineInfoW *line = el_wline(edit);
  return {line->buffer, line->cursor};
}

std::wstring Editor::State::behindCursor() {
  const LineInfoW *line = el_wline(edit);
  return {line->cursor, line->lastchar};
}

// The library's own commands part a glyph.

unsigned char Editor::State::moveBack() {
  const std::size_t count = lastGlyph(beforeCursor());
  el_cursor(edit, -static_cast<int>(count));
  return count > 0 ? CC_CURSOR : CC_ERROR;
}

unsigned char Editor::State::moveOn() {
  const std::size_t count = firstGlyph(behindCursor());
  el_cursor(edit, static_cast<int>(count));
  return count > 0 ? CC_CURSOR : CC_ERROR;
}

unsigned char Editor::State::deleteBefore() {
  const std::size_t count = lastGlyph(beforeCursor());
  el_deletestr(edit, static_cast<int>(count));
  return redrawn(count);
}

unsigned char Editor::State::endOrDeleteAt() {
  return beforeCursor().empty() && behindCursor().empty() ? CC_EOF : deleteAt();
}

unsigned char Editor::State::deleteAt() {
  const std::size_t count = firstGlyph(behindCursor());
  el_cursor(edit, static_cast<int>(count));
  el_deletestr(edit, static_cast<int>(count));
  return redrawn(count);
}

// A glyph of several characters has left cells that the library takes for right.
unsigned char Editor::State::redrawn(std::size_t deleted) {
  if (deleted > 1) {
    hide();
    return CC_REDISPLAY;
  }
  return deleted > 0 ? CC_REFRESH : CC_ERROR;
}

int Editor::State::width() {
  int columns = 0;
  el_get(edit, EL_GETTC, "co", &columns);
  return columns > 0 ? columns : defaultWidth;
}

// Of the prompt with the text behind it, in a terminal that folds long lines.
std::size_t Editor::State::cellsOf(const std::wstring &text) {
  const auto columns = static_cast<std::size_t>(width());
  std::size_t at = config.prompt.size();
  for (const wchar_t c : text) {
    at = cellsBehind(c, at, columns);
  }
  return at;
}

// A wide character that has no room in its row takes the cursor before it to the next one.
std::size_t Editor::State::cursorCell() {
  const auto columns = static_cast<std::size_t>(width());
  const std::size_t at = cellsOf(beforeCursor());
  const bool goesDown = hasWide(behindCursor().substr(0, 1)) && at % columns + 1 == columns;
  return at + (goesDown ? 1 : 0);
}

// What brings the cursor to the beginning of the prompt, as far as the terminal can.
std::string Editor::State::toPrompt() const {
  return (takesCodes ? up(row) : "") + "\r";
}

// What the library has drawn since the last call.
std::string Editor::State::takeDrawn() {
  std::fflush(drawn);
  std::string text(drawnText, drawnSize);
  std::rewind(drawn);
  return text;
}

void Editor::State::passDrawn() {
  const std::string text = takeDrawn();
  if (!text.empty()) {
    writeStandardOutput(text);
  }
}

// Shows the line as it is now.
void Editor::State::settle() {
  if (!atLine || paused) {
    return;
  }
  const std::wstring text = beforeCursor() + behindCursor();
  const bool wasOdd = std::exchange(odd, hasWide(text) || hasGlyphs(text));
  if (!takesCodes || !isPlain(text) || !(odd || wasOdd)) {
    passDrawn();
  } else if (hasGlyphs(text)) {
    paintGlyphs();
  } else {
    paint();
  }
  row = cursorCell() / static_cast<std::size_t>(width());
  cells = cellsOf(text);
}

// The library miscounts cells where it draws changes of wide characters or goes back over them, so
// a line that has some is drawn as a whole.
void Editor::State::paint() {
  const auto columns = static_cast<std::size_t>(width());
  const std::size_t end = cellsOf(beforeCursor() + behindCursor());
  const std::size_t at = cursorCell();
  const LineInfo *line = el_line(edit);
  hide();
  writeStandardOutput(config.prompt + std::string(line->buffer, line->lastchar) +
                      (end % columns == 0 ? "\r\n" : "") + up(end / columns - at / columns) + "\r" +
                      onward(at % columns));
}

// Terminals differ in the cells that they give to emoji. So the line is drawn up to the cursor once
// more: that brings the cursor to where this terminal has it.
void Editor::State::paintGlyphs() {
  const LineInfo *line = el_line(edit);
  const std::string before = config.prompt + std::string(line->buffer, line->cursor);
  const std::string behind(line->cursor, line->lastchar);
  const bool rowIsFull = cursorCell() % static_cast<std::size_t>(width()) == 0;
  takeDrawn();
  writeStandardOutput(toPrompt() + "\0337\033[J" + before + behind + "\0338" + before +
                      (rowIsFull ? "\r\n" : ""));
}

// A terminal without codes cannot go up: of a line that is folded the rows above stay.
void Editor::State::hide() {
  takeDrawn();
  const std::string blanks(std::min(cells, static_cast<std::size_t>(width()) - 1), ' ');
  writeStandardOutput(toPrompt() + (takesCodes ? "\033[J" : blanks + "\r"));
  row = 0;
}

void Editor::State::show() {
  el_set(edit, EL_REFRESH);
  settle();
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

template <unsigned char (Editor::State::*command)()>
unsigned char runCommand(EditLine *edit, int) {
  return (stateOf(edit)->*command)();
}

void bind(EditLine *edit, const char *key, const char *command) {
  el_set(edit, EL_BIND, key, command, nullptr);
}

void addCommands(EditLine *edit) {
  using State = Editor::State;
  el_set(edit, EL_ADDFN, "complete-name", "completes a name", runCommand<&State::completeName>);
  el_set(edit, EL_ADDFN, "glyph-back", "goes back", runCommand<&State::moveBack>);
  el_set(edit, EL_ADDFN, "glyph-on", "goes on", runCommand<&State::moveOn>);
  el_set(edit, EL_ADDFN, "glyph-delete-before", "deletes", runCommand<&State::deleteBefore>);
  el_set(edit, EL_ADDFN, "glyph-delete-at", "deletes", runCommand<&State::deleteAt>);
  el_set(edit, EL_ADDFN, "glyph-delete-or-end", "ends an empty line",
         runCommand<&State::endOrDeleteAt>);
  bind(edit, "^I", "complete-name");
  // Keys that move send either of two sequences, as the terminal's mode has it.
  for (const char *key : {"^B", "^[[D", "^[OD"}) {
    bind(edit, key, "glyph-back");
  }
  for (const char *key : {"^F", "^[[C", "^[OC"}) {
    bind(edit, key, "glyph-on");
  }
  for (const char *key : {"^H", "^?"}) {
    bind(edit, key, "glyph-delete-before");
  }
  bind(edit, "^[[3~", "glyph-delete-at");
  bind(edit, "^D", "glyph-delete-or-end");
  bind(edit, "^R", "em-inc-search-prev");
  // The editor's own commands could take the editing away.
  bind(edit, "^[x", "ed-unassigned");
  bind(edit, "^[X", "ed-unassigned");
}

}  // namespace

Editor::Editor(Config config) : state_(std::make_unique<State>(std::move(config))) {
  EditLine *edit = el_init_fd("ci-chassis", stdin, state_->drawn, stderr, STDIN_FILENO,
                              STDOUT_FILENO, STDERR_FILENO);
  if (edit == nullptr) {
    throw std::runtime_error("the terminal cannot be used");
  }
  state_->edit = edit;
  el_set(edit, EL_CLIENTDATA, state_.get());
  el_set(edit, EL_PROMPT, promptOf);
  el_set(edit, EL_EDITOR, "emacs");
  el_set(edit, EL_SIGNAL, 0);
  el_set(edit, EL_GETCFN, readCharacter);
  addCommands(edit);
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
  writeStandardOutput(text);
  if (redraw) {
    state_->show();
  }
}

void Editor::resized() {
  el_resize(state_->edit);
  state_->row = state_->cursorCell() / static_cast<std::size_t>(state_->width());
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
