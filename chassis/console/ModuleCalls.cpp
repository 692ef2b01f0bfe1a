#include "console/ModuleCalls.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <type_traits>
#include <utility>

#include "CiPlatform.h"
#include "base/InputError.h"
#include "console/Guards.h"

namespace chassis {
namespace {

using Form = Param::Form;

constexpr std::uint64_t all16 = 0xFFFF;
constexpr std::uint64_t all32 = 0xFFFFFFFF;
constexpr std::uint64_t lastFlag = 3;

constexpr Param pid{"pid", Form::Number, 0, nullPid, false};
constexpr Param pidLow{"pid_l", Form::Number, 0, nullPid, false};
constexpr Param pidHigh{"pid_h", Form::Number, 0, nullPid, false};
constexpr Param anyPid{"pid", Form::Number, 0, all16, false};
constexpr Param count{"value", Form::Number, 0, all16, false};
constexpr Param value{"value", Form::Number, 0, all32, false};
constexpr Param pass{"pass", Form::Number, 0, 1, false};
constexpr Param pidType{"pidType", Form::Number, 0, all32, false};
constexpr Param port{"port", Form::Number, 0, all32, false};
constexpr Param kind{"kind", Form::Number, 0, all16, false};
constexpr Param query{"query", Form::Number, 0, all32, false};
constexpr Param casid{"casid", Form::Number, 0, all16, false};
constexpr Param program{"program", Form::Number, 0, all16, false};
constexpr Param flag{"flag", Form::Number, 0, lastFlag, false};
constexpr Param bytes{"\"bytes\"", Form::Text, 0, 0, false};
constexpr Param bit{"bit", Form::Number, 0, all16, false};

template <typename R>
constexpr Result resultOf() {
  if (std::is_void_v<R>) {
    return Result::None;
  }
  return std::is_signed_v<R> ? Result::Signed : Result::Unsigned;
}

// How a function is called with the values of its parameters.
template <auto function, typename Signature, const Param &...params>
struct Adapter;

template <auto function, typename R, typename... Args, const Param &...params>
struct Adapter<function, R (*)(Args...), params...> {
  static_assert(sizeof...(Args) == sizeof...(params), "one parameter for each argument");
  static_assert(((params.max <= std::numeric_limits<Args>::max()) && ...),
                "no argument is cut that a person can give");
  static constexpr Result result = resultOf<R>();

  static std::int64_t invoke(const Values &values) {
    return call(values, std::index_sequence_for<Args...>());
  }

 private:
  template <std::size_t... i>
  static std::int64_t call([[maybe_unused]] const Values &values, std::index_sequence<i...>) {
    if constexpr (std::is_void_v<R>) {
      function(static_cast<Args>(values[i].number)...);
      return 0;
    } else {
      return function(static_cast<Args>(values[i].number)...);
    }
  }
};

template <auto function, const Param &...params>
ModuleCall entry(CallGroup group, const char *name, const char *help) {
  using Call = Adapter<function, decltype(function), params...>;
  const Function described{
      name, {&params...}, sizeof...(params), false, Need::Nothing, Effect::None, help, nullptr};
  void (*guard)(const Values &) = sizeof...(params) == 0 ? nullptr : requireRegistered;
  return {group, described, Call::result, Call::invoke, guard, nullptr};
}

ModuleCall guardedBy(void (*guard)(const Values &), ModuleCall call) {
  call.guard = guard;
  return call;
}

ModuleCall refused(const char *name, const char *help, const char *reason) {
  const Function described{name, {}, 0, false, Need::Nothing, Effect::None, help, nullptr};
  return {CallGroup::Periodic, described, Result::None, nullptr, nullptr, reason};
}

ModuleCall testBit() {
  const Function described{"test_bit",
                           {&bytes, &bit},
                           2,
                           false,
                           Need::Nothing,
                           Effect::None,
                           "a bit of a set of bytes, written as in \"FF 00 1C\"",
                           nullptr};
  const auto invoke = [](const Values &values) -> std::int64_t {
    return test_bit(bytesOf(values[0].text).data(), static_cast<std::uint32_t>(values[1].number));
  };
  return {CallGroup::Sending, described, Result::Unsigned, invoke, requireBit, nullptr};
}

// A function under its own name.
#define OWN_NAME(group, function, help, ...) \
  entry<&(function), __VA_ARGS__>(CallGroup::group, #function, help)
#define OWN_NAME_ALONE(group, function, help) entry<&(function)>(CallGroup::group, #function, help)

// clang-format off
const std::vector<ModuleCall> calls = {
    OWN_NAME(Periodic, camStatusCheck, "one status check of a card and both its CAMs", aSlot),
    OWN_NAME(Periodic, camAlarm, "the five alarm checks of a card", aSlot),
    OWN_NAME(Periodic, camAlarmCheck, "one alarm check: kind 0xA01 to 0xA05", aSlot, aCam, kind),
    OWN_NAME(Periodic, PreCAMFilte, "programs the pre-CAM switch from the card's programs", aSlot,
             port),
    OWN_NAME(Periodic, getSlotDescPidInfo, "takes over the card's program table", aSlot),
    refused("descIfRegist", "registers a card (the card's driver only)",
            "descIfRegist takes addresses and is the card driver's; put a card in with "
            "cardInsert slot, \"file\""),
    refused("ciTskInit", "the start-up task (the firmware only)",
            "ciTskInit is the body of the start-up task, which the firmware has run already"),

    guardedBy(requireProgramIndex,
              OWN_NAME(Sending, getDescStatWeb,
                       "one status; query: program index << 16 | PID, PID 0 for the program", aSlot,
                       query)),
    OWN_NAME(Sending, caPMTSend,
             "sends a CA PMT (flag 0, 1) or a query (2, 3); program 0: all of the CAM", aSlot, aCam,
             casid, program, flag),
    testBit(),

    OWN_NAME_ALONE(Listing, ci_Help, "the module's own list of diagnostic calls"),
    OWN_NAME_ALONE(Listing, printCiIfVer, "the module's version"),
    OWN_NAME(Listing, printCiCard, "the name under which a card registered", aSlot),
    OWN_NAME(Listing, getCAinfo, "the CA systems of the card's program table", aSlot),
    OWN_NAME(Listing, printDesSta, "every PID of a card with the raw FPGA reading", aSlot),
    OWN_NAME(Listing, ClrAllDescCC, "sets all continuity counts of a card's PIDs to 0", aSlot),
    OWN_NAME(Listing, CheckDescCC, "prints all continuity counts of a card's PIDs", aSlot),
    OWN_NAME(Listing, testprefilter,
             "sets the pre-CAM switch of a PID (0xFFFF: all) to pass (1) or not (0)", aSlot, anyPid,
             pass),

    OWN_NAME(Accessor, cimax_sync_ok, "the CI controller's input is in sync", aSlot),
    OWN_NAME(Accessor, cimax_pid_rate_pre, "rate of a range of PIDs before the CAMs", aSlot, pidLow,
             pidHigh),
    OWN_NAME(Accessor, cimax_sys_rate_pre, "total rate before the CAMs", aSlot),
    OWN_NAME(Accessor, cimax_vld_rate_pre, "rate of valid packets before the CAMs", aSlot),
    OWN_NAME(Accessor, SetPreCAMCC, "sets a continuity count before the CAMs", aSlot, pid, count),
    OWN_NAME(Accessor, GetPreCAMCC, "continuity count of a PID before the CAMs", aSlot, pid),
    OWN_NAME(Accessor, ClrAllPreCAMPidExist, "clears the presence flags before the CAMs", aSlot),
    OWN_NAME(Accessor, GetPreCAMPidExist, "a PID was seen before the CAMs", aSlot, pid),
    OWN_NAME(Accessor, cimax_pid_rate, "rate of a range of PIDs behind the CAMs", aSlot, pidLow,
             pidHigh),
    OWN_NAME(Accessor, cimax_sys_rate, "total rate behind the CAMs", aSlot),
    OWN_NAME(Accessor, cimax_vld_rate, "rate of valid packets behind the CAMs", aSlot),
    OWN_NAME(Accessor, SetCAMCC, "sets a continuity count behind the CAMs", aSlot, pid, count),
    OWN_NAME(Accessor, GetCAMCC, "continuity count of a PID behind the CAMs", aSlot, pid),
    OWN_NAME(Accessor, ClrAllCAMPidExist, "clears the presence flags behind the CAMs", aSlot),
    OWN_NAME(Accessor, GetCAMPidExist, "a PID was seen behind the CAMs", aSlot, pid),
    OWN_NAME(Accessor, PllReg, "writes the PLL register", aSlot, value),
    OWN_NAME(Accessor, PllLock, "the card's clock is locked", aSlot),
    OWN_NAME(Accessor, SetCamFlit, "the pre-CAM switch of a PID: passes (1) or not (0)", aSlot, pid,
             pass),
    OWN_NAME(Accessor, wrDesPid, "selects the PID that rdDescStat reports", aSlot, pid),
    OWN_NAME(Accessor, rdDescStat, "0 descrambled, 0xFF failed, else not descrambled", aSlot,
             pidType),

    guardedBy(requireCam, OWN_NAME(Library, resetCAM, "resets a CAM", aSlot, aCam)),
};
// clang-format on

#undef OWN_NAME
#undef OWN_NAME_ALONE

}  // namespace

const std::vector<ModuleCall> &moduleCalls() {
  return calls;
}

const ModuleCall *findModuleCall(const std::string &name) {
  const auto named = [&name](const ModuleCall &call) { return name == call.function.name; };
  const auto found = std::find_if(calls.begin(), calls.end(), named);
  return found == calls.end() ? nullptr : &*found;
}

const char *groupTitle(CallGroup group) {
  switch (group) {
    case CallGroup::Periodic:
      return "The module: start-up and periodic entry points";
    case CallGroup::Sending:
      return "The module: queries and sending";
    case CallGroup::Listing:
      return "The module: listings";
    case CallGroup::Accessor:
      return "The module: hardware accessors";
    case CallGroup::Library:
      break;
  }
  return "The CI library";
}

Values checkForm(const ModuleCall &call, const std::vector<Word> &args) {
  if (call.invoke == nullptr) {
    throw InputError(call.refusal);
  }
  return checkArgs(call.function, args);
}

Values checkCall(const ModuleCall &call, const std::vector<Word> &args) {
  Values values = checkForm(call, args);
  if (call.guard != nullptr) {
    call.guard(values);
  }
  return values;
}

std::optional<std::int64_t> callModule(const ModuleCall &call, const Values &values) {
  const std::int64_t result = call.invoke(values);
  return call.result == Result::None ? std::nullopt : std::optional(result);
}

std::string valueText(std::int64_t result) {
  char text[64];
  std::snprintf(text, sizeof text, "value = %lld = 0x%llx", static_cast<long long>(result),
                static_cast<unsigned long long>(result) & all32);
  return text;
}

}  // namespace chassis
