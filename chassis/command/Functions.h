// The functions that a script can call: names, arguments and help in one table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "command/Line.h"
#include "status/Snapshot.h"
#include "supervision/Chassis.h"

namespace chassis {

// A checked argument: numbers in `number` (seconds in milliseconds), strings in `text`.
struct Value {
  std::uint64_t number = 0;
  std::string text;
};
using Values = std::vector<Value>;

// What a kind of argument takes; `name` is how signatures and messages call it.
struct Param {
  // NumberOrAll: or *, which stands in the text then. Stream: a file, or what readUrl takes.
  enum class Form { Number, NumberOrAll, Text, Stream, Seconds };
  const char *name;
  Form form;
  std::uint64_t min;  // of a text: its least length
  std::uint64_t max;
  bool place;                                       // numbers a place of the chassis
  std::vector<std::string> (*choices)() = nullptr;  // the texts that it takes; null: any
};

// A card slot, and a CAM slot of it, as everything that a person writes counts them.
constexpr Param aSlot{"slot", Param::Form::Number, 0, MAX_BOARD_NUM - 1, true};
constexpr Param aCam{"cam", Param::Form::Number, 0, MAX_CAM_NUM - 1, true};

// What a call needs in its slot before it can run, and what it leaves there.
enum class Need { Nothing, Card, Cam };
enum class Effect { None, CardIn, CardOut, CamIn, CamOut };

struct Function {
  const char *name;
  std::vector<const Param *> params;
  std::size_t required;  // the other parameters may be left out
  bool repeats;          // the last parameter may be given any number of times
  Need need;
  Effect effect;
  const char *help;
  void (*run)(Chassis &, const Values &);  // null for wait and for expectations
  // An expectation: what is instead of what it says, nothing when it is so; else null.
  std::optional<std::string> (*differs)(const Snapshot &, const Values &) = nullptr;
};

bool isWait(const Function &function);

const std::vector<Function> &functions();
bool isFunction(const std::string &name);

// "camInsert slot, cam, casid[, casid...]"
std::string signature(const Function &function);

// The place that a call is about: its first parameters are a slot and a CAM where it has them.
Place placeOf(const Function &function, const Values &values);

// The program that a call names; none: its function takes none, or it is for all.
std::optional<std::uint16_t> programOf(const Function &function, const Values &values);
// The streams that a call names.
std::vector<std::string *> streamsOf(const Function &function, Values &values);

// Whether it says how fast its stream goes.
bool givesBitrate(const Function &function, const Values &values);

// Its call is no news by itself: it writes its own line.
bool speaksForItself(const Function &function);

// One line per function: signature and help.
std::string functionHelp();

// Throws InputError: an unknown name, with the nearest known one.
const Function &findFunction(const std::string &name);

// Throws InputError: a word that is not what the parameter takes.
Value checkArg(const Param &param, const Word &word);

// Throws InputError: wrong number or kind of arguments, a value that does not fit.
Values checkArgs(const Function &function, const std::vector<Word> &args);

}  // namespace chassis
