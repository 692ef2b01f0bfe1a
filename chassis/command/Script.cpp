#include "command/Script.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "base/InputError.h"
#include "base/Text.h"
#include "command/Rehearsal.h"
#include "io/Url.h"

namespace chassis {
namespace {

namespace fs = std::filesystem;

constexpr const char *byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t errorsTold = 100;
constexpr std::streamsize searched = 1 << 20;  // for the end of a line that is too long

// Takes the next line, of one that is too long no more than shows it; behind one whose end is not
// in sight there is no other. False: there is none.
bool nextLine(std::istream &lines, std::string &text) {
  text.clear();
  for (char c = 0; text.size() <= longestLine && lines.get(c) && c != '\n';) {
    text += c;
  }
  if (text.size() > longestLine && lines.ignore(searched, '\n').gcount() == searched) {
    lines.setstate(std::ios::eofbit);
  }
  text = withoutReturn(std::move(text));
  return lines.good() || !text.empty();
}

class Reader {
 public:
  Reader(std::string name, std::string folder, const ScriptSetting &setting)
      : script_{std::move(name), {}},
        folder_(std::move(folder)),
        setting_(setting),
        rehearsal_(setting.streams) {}

  Script read(std::istream &lines);

 private:
  void readLines(std::istream &lines);
  void readLine(const std::string &text, std::size_t number);
  Call callOf(const std::string &text, std::size_t number);
  void requireFunction(const std::string &name) const;
  bool isConsoleName(const std::string &name) const;
  void loseTrackAt(const std::string &name);
  std::string findFiles(Call &call) const;
  std::string findFile(std::string &stream) const;
  void complain(std::size_t number, const std::string &what);

  Script script_;
  const std::string folder_;  // that stream files are looked for in first; empty: none
  const ScriptSetting &setting_;
  Rehearsal rehearsal_;
  std::size_t number_ = 1;  // of the line that is read
  std::vector<std::string> errors_;
};

Script Reader::read(std::istream &lines) {
  lines.exceptions(std::ios::badbit);
  try {
    readLines(lines);
  } catch (const std::system_error &error) {
    complain(number_, "cannot be read any further: " + error.code().message());
  }
  if (!errors_.empty()) {
    throw InputError(joined(errors_, "\n"));
  }
  return std::move(script_);
}

void Reader::readLines(std::istream &lines) {
  std::string text;
  for (std::size_t &number = number_; nextLine(lines, text) && errors_.size() < errorsTold;
       ++number) {
    if (text.find('\0') != std::string::npos) {
      complain(number, "a zero byte: this is no text; write the name of a script");
      break;
    }
    const bool marked = number == 1 && text.rfind(byteOrderMark, 0) == 0;
    readLine(marked ? text.substr(std::strlen(byteOrderMark)) : text, number);
  }
}

void Reader::readLine(const std::string &text, std::size_t number) {
  Call call;
  try {
    call = callOf(text, number);
  } catch (const InputError &error) {
    complain(number, error.what());
    loseTrackAt(leadingName(text));
    return;
  }
  if (call.function == nullptr) {
    return;
  }
  const std::string whereLooked = findFiles(call);
  try {
    rehearsal_.play(*call.function, call.values);
  } catch (const Interrupted &) {
    throw;
  } catch (const InputError &error) {
    complain(number, error.what() + whereLooked);
  }
  script_.calls.push_back(std::move(call));
}

Call Reader::callOf(const std::string &text, std::size_t number) {
  checkLength(text);
  checkCharacters(text);
  requireFunction(leadingName(text));
  const Line line = parseLine(text);
  if (line.name.empty()) {
    return Call{};
  }
  const Function &function = findFunction(line.name);
  return Call{number, lineText(line), &function, checkArgs(function, line.args)};
}

// Before the rest of the line is read: what is right at the console may be no call.
void Reader::requireFunction(const std::string &name) const {
  if (name.empty() || isFunction(name)) {
    return;
  }
  if (isConsoleName(name)) {
    throw InputError(name + " is console only; type it at the prompt, or pipe it with --console");
  }
  findFunction(name);
}

bool Reader::isConsoleName(const std::string &name) const {
  const std::vector<std::string> &names = setting_.consoleNames;
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Unless the name tells that a wrong line was not meant to fill or empty a slot.
void Reader::loseTrackAt(const std::string &name) {
  const bool harmless =
      isFunction(name) ? findFunction(name).effect == Effect::None : isConsoleName(name);
  if (!harmless) {
    rehearsal_.loseTrack();
  }
}

bool isMissing(const fs::path &path) {
  std::error_code failure;
  return fs::status(path, failure).type() == fs::file_type::not_found;
}

// Puts in the paths that lead to the call's files. Returns where one was looked for in vain.
std::string Reader::findFiles(Call &call) const {
  std::string whereLooked;
  for (std::string *stream : streamsOf(*call.function, call.values)) {
    if (readUrl(*stream, Url::Use::Input).scheme == Url::Scheme::File) {
      whereLooked = findFile(*stream);
    }
  }
  return whereLooked;
}

std::string Reader::findFile(std::string &stream) const {
  const fs::path path = readUrl(stream, Url::Use::Input).path;
  if (folder_.empty()) {
    return "";
  }
  std::error_code failure;
  const fs::path beside = fs::path(folder_) / path;
  const bool missing = isMissing(beside);
  const bool missingHere = isMissing(path);
  if (!missing && (missingHere || !fs::is_directory(beside, failure))) {
    stream = (path == stream ? "" : "file:") + beside.string();
    return "";
  }
  const bool looked = missing && missingHere && !path.is_absolute();
  return looked ? "; it was looked for in '" + folder_ + "' and in the working directory" : "";
}

void Reader::complain(std::size_t number, const std::string &what) {
  errors_.push_back(atLine(script_, number, what));
}

}  // namespace

std::vector<PlayedFile> playedFiles(const Script &script) {
  std::vector<PlayedFile> files;
  for (const Call &call : script.calls) {
    Values values = call.values;
    for (const std::string *stream : streamsOf(*call.function, values)) {
      const Url url = readUrl(*stream, Url::Use::Input);
      if (url.scheme == Url::Scheme::File) {
        files.push_back({call.line, url.path});
      }
    }
  }
  return files;
}

std::string atLine(const Script &script, std::size_t line, const std::string &what) {
  return script.name + ":" + std::to_string(line) + ": " + what;
}

Script readScript(const std::string &name, std::istream &lines, const ScriptSetting &setting) {
  return Reader(name, "", setting).read(lines);
}

Script readScript(const std::string &path, const ScriptSetting &setting) {
  std::ifstream file(path);
  if (!file) {
    throw InputError(path + ": cannot be read: " + std::strerror(errno));
  }
  if (file.peek() == std::ifstream::traits_type::eof() && file.bad()) {
    throw InputError(path + ": cannot be read; write the name of a script");
  }
  return Reader(path, fs::path(path).parent_path().string(), setting).read(file);
}

}  // namespace chassis
