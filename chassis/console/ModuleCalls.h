// The module's exported functions as a person calls them: names, arguments, guards and help in one
// table. Whatever passes checkCall is safe to call.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command/Functions.h"

namespace chassis {

enum class CallGroup { Periodic, Sending, Listing, Accessor, Library };
enum class Result { None, Unsigned, Signed };

struct ModuleCall {
  CallGroup group;
  Function function;  // its run is null
  Result result;
  std::int64_t (*invoke)(const Values &);  // null: no person may call it
  void (*guard)(const Values &);           // null: nothing to check; throws InputError
  const char *refusal;                     // why no person may; else null
};

const std::vector<ModuleCall> &moduleCalls();
const ModuleCall *findModuleCall(const std::string &name);  // null: none
const char *groupTitle(CallGroup group);

// Throws InputError: not for a person, arguments that do not fit.
Values checkForm(const ModuleCall &call, const std::vector<Word> &args);

// The same, and what the call needs of the chassis now: throws InputError also for a card that has
// not registered, a program beyond the card's table.
Values checkCall(const ModuleCall &call, const std::vector<Word> &args);

// Calls with what checkCall took just now; time may pass. Returns the result, if it has one.
std::optional<std::int64_t> callModule(const ModuleCall &call, const Values &values);

// "value = 255 = 0xff"; a negative value as the 32 bits that the module returned.
std::string valueText(std::int64_t result);

}  // namespace chassis
