// A script: calls in the order in which they run, checked before the first one does.
#pragma once

#include <istream>
#include <string>
#include <vector>

#include "card/StreamPrograms.h"
#include "command/Functions.h"

namespace chassis {

struct Call {
  std::size_t line = 0;  // in the file, from 1
  std::string text;      // as a person would write it
  const Function *function = nullptr;
  Values values;  // a file by the path that leads to it
};

struct Script {
  std::string name;  // of the file, for messages
  std::vector<Call> calls;
};

// What a script is read with.
struct ScriptSetting {
  std::vector<std::string> consoleNames;  // what the console knows; a script takes functions alone
  StreamPrograms *streams = nullptr;      // null: stream files are not looked into
};

// The streams that a script names are looked for in its own folder, then in the working directory.
// Throw InputError: a file that cannot be read, to its end or at all (lines: its buffer throws
// std::system_error then), or one line with file and line for each call that
// cannot be read, names a card or CAM that no earlier line has put in, a stream file that cannot
// be played or a program that it does not carry; a hundred such lines at most. And Interrupted,
// where the setting's streams do.
Script readScript(const std::string &path, const ScriptSetting &setting = {});
Script readScript(const std::string &name, std::istream &lines, const ScriptSetting &setting = {});

// The files that the calls of a script read, by the paths that lead to them.
struct PlayedFile {
  std::size_t line;
  std::string path;
};
std::vector<PlayedFile> playedFiles(const Script &script);

// "FILE:LINE: what"
std::string atLine(const Script &script, std::size_t line, const std::string &what);

}  // namespace chassis
