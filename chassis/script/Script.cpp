#include "script/Script.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "InputError.h"

namespace chassis {
namespace {

// Which slots are filled, as far as the lines read so far tell.
class Occupancy {
 public:
  void check(const Call &call) const;
  void follow(const Call &call);

 private:
  struct Slot {
    bool card = false;
    std::array<bool, MAX_CAM_NUM> cams{};
  };
  std::array<Slot, MAX_BOARD_NUM> slots_;
};

void Occupancy::check(const Call &call) const {
  if (call.function->need == Need::Nothing) {
    return;
  }
  const std::string slotName = std::to_string(call.values[0].number);
  const Slot &slot = slots_[call.values[0].number];
  if (!slot.card) {
    throw InputError("no card is in slot " + slotName + "; put one in first: cardInsert " +
                     slotName + ", \"file\"");
  }
  if (call.function->need == Need::Card || slot.cams[call.values[1].number]) {
    return;
  }
  const std::string place = slotName + ", " + std::to_string(call.values[1].number);
  throw InputError("no CAM is in " + place + "; put one in first: camInsert " + place + ", casid");
}

void Occupancy::follow(const Call &call) {
  if (call.function->effect == Effect::None) {
    return;
  }
  Slot &slot = slots_[call.values[0].number];
  switch (call.function->effect) {
    case Effect::CardIn:
      slot.card = true;
      break;
    case Effect::CardOut:
      slot = Slot{};
      break;
    case Effect::CamIn:
      slot.cams[call.values[1].number] = true;
      break;
    case Effect::CamOut:
      slot.cams[call.values[1].number] = false;
      break;
    case Effect::None:
      break;
  }
}

std::string textOf(const Line &line) {
  std::string text = line.name;
  for (const Word &word : line.args) {
    text += &word == &line.args.front() ? " " : ", ";
    text += word.quoted ? "\"" + word.text + "\"" : word.text;
  }
  return text;
}

void readLine(const std::string &text, std::size_t number, Occupancy &occupancy, Script &script) {
  const Line line = parseLine(text);
  if (line.name.empty()) {
    return;
  }
  const Function &function = findFunction(line.name);
  Call call{number, textOf(line), &function, checkArgs(function, line.args)};
  occupancy.check(call);
  occupancy.follow(call);
  script.calls.push_back(std::move(call));
}

}  // namespace

std::string atLine(const Script &script, std::size_t line, const std::string &what) {
  return script.name + ":" + std::to_string(line) + ": " + what;
}

Script readScript(const std::string &name, std::istream &lines) {
  Script script{name, {}};
  Occupancy occupancy;
  std::string text;
  for (std::size_t number = 1; std::getline(lines, text); ++number) {
    try {
      readLine(text, number, occupancy, script);
    } catch (const InputError &error) {
      throw InputError(atLine(script, number, error.what()));
    }
  }
  return script;
}

Script readScript(const std::string &path) {
  std::ifstream file(path);
  if (!file) {
    throw InputError(path + ": cannot be read: " + std::strerror(errno));
  }
  if (file.peek() == std::ifstream::traits_type::eof() && file.bad()) {
    throw InputError(path + ": cannot be read; write the name of a script");
  }
  return readScript(path, file);
}

}  // namespace chassis
