#include "console/ModuleCalls.h"

#include <algorithm>
#include <set>

#include "ConsoleRig.h"
#include "base/InputError.h"

namespace chassis {
namespace {

// A call with a good value for each parameter, but for one of them another.
std::string callOf(const ModuleCall &call, std::size_t changed, const std::string &value) {
  std::string text = call.function.name;
  for (std::size_t i = 0; i < call.function.params.size(); ++i) {
    const Param &param = *call.function.params[i];
    const std::string good = param.form == Param::Form::Text ? "\"FF\"" : std::to_string(param.min);
    text += (i == 0 ? " " : ", ") + (i == changed ? value : good);
  }
  return text;
}

constexpr std::size_t none = 99;

using Calls = ConsoleRig;

TEST_F(Calls, EveryExportedFunctionIsThere) {
  const std::set<std::string> expected{"camStatusCheck",
                                       "camAlarm",
                                       "camAlarmCheck",
                                       "PreCAMFilte",
                                       "getSlotDescPidInfo",
                                       "descIfRegist",
                                       "ciTskInit",
                                       "getDescStatWeb",
                                       "caPMTSend",
                                       "test_bit",
                                       "ci_Help",
                                       "printCiIfVer",
                                       "printCiCard",
                                       "getCAinfo",
                                       "printDesSta",
                                       "ClrAllDescCC",
                                       "CheckDescCC",
                                       "testprefilter",
                                       "cimax_sync_ok",
                                       "cimax_pid_rate_pre",
                                       "cimax_sys_rate_pre",
                                       "cimax_vld_rate_pre",
                                       "SetPreCAMCC",
                                       "GetPreCAMCC",
                                       "ClrAllPreCAMPidExist",
                                       "GetPreCAMPidExist",
                                       "cimax_pid_rate",
                                       "cimax_sys_rate",
                                       "cimax_vld_rate",
                                       "SetCAMCC",
                                       "GetCAMCC",
                                       "ClrAllCAMPidExist",
                                       "GetCAMPidExist",
                                       "PllReg",
                                       "PllLock",
                                       "SetCamFlit",
                                       "wrDesPid",
                                       "rdDescStat",
                                       "resetCAM"};
  std::set<std::string> known;
  for (const ModuleCall &call : moduleCalls()) {
    EXPECT_TRUE(known.insert(call.function.name).second) << call.function.name;
    EXPECT_EQ(call.invoke == nullptr, call.refusal != nullptr) << call.function.name;
    EXPECT_STRNE(call.function.help, "");
  }
  EXPECT_EQ(known, expected);
}

TEST_F(Calls, EveryCallWithGoodArgumentsRuns) {
  insertCard();
  ask("progAssign 0, 101, 1");
  ask("camInsert 0, 0, 0x0500");
  runFor(1000);
  for (const ModuleCall &call : moduleCalls()) {
    const std::string text = callOf(call, none, "");
    const std::string answer = ask(text);
    EXPECT_EQ(isOneErrorLine(answer), call.invoke == nullptr) << text << ": " << answer;
    EXPECT_EQ(has(answer, "value = "), call.result != Result::None && call.invoke != nullptr)
        << text << ": " << answer;
  }
}

TEST_F(Calls, EveryCallNeedsItsCard) {
  for (const ModuleCall &call : moduleCalls()) {
    const bool ofCard = !call.function.params.empty() && call.function.params[0]->place;
    const std::string text = callOf(call, none, "");
    if (ofCard) {
      const std::string answer = ask(text);
      EXPECT_TRUE(isOneErrorLine(answer)) << text << ": " << answer;
      EXPECT_TRUE(has(answer, "put one in first")) << text << ": " << answer;
    }
  }
}

// Its record stays, so all calls run but the one that a CAM is needed for.
TEST_F(Calls, ACardThatIsPulledOutDoesNoHarm) {
  insertCard();
  ask("cardRemove 0");
  for (const ModuleCall &call : moduleCalls()) {
    const std::string name = call.function.name;
    const bool runs = call.invoke != nullptr && name != "resetCAM";
    const std::string answer = ask(callOf(call, none, ""));
    EXPECT_EQ(isOneErrorLine(answer), !runs) << name << ": " << answer;
    EXPECT_EQ(has(answer, "value = "), runs && call.result != Result::None) << name << answer;
  }
  EXPECT_EQ(ask("test_bit \"01\", 0"), "value = 1 = 0x1\n");
}

TEST_F(Calls, EveryNumberIsChecked) {
  insertCard();
  for (const ModuleCall &call : moduleCalls()) {
    for (std::size_t i = 0; i < call.function.params.size(); ++i) {
      const Param &param = *call.function.params[i];
      if (param.form != Param::Form::Number) {
        continue;
      }
      for (const std::string &bad :
           {std::to_string(param.max + 1), std::string("-1"), std::string("0x1FFFFFFFFFFFFFFFF"),
            std::string("99999999999999999999"), std::string("0x"), std::string("abc"),
            std::string("\"1\""), std::string("1.5"), std::string("0b1")}) {
        const std::string text = callOf(call, i, bad);
        EXPECT_TRUE(isOneErrorLine(ask(text))) << text << ": " << answer_;
      }
    }
  }
}

TEST_F(Calls, OnlySlotsAndCamsArePlaces) {
  insertCard();
  for (const ModuleCall &call : moduleCalls()) {
    for (std::size_t i = 0; i < call.function.params.size() && call.invoke != nullptr; ++i) {
      const Param &param = *call.function.params[i];
      if (param.form != Param::Form::Number) {
        continue;
      }
      const std::string name = param.name;
      const std::string over = name + " " + std::to_string(param.max + 1);
      const std::string error = name == "slot" || name == "cam" ? "there is no " + over + "; write"
                                                                : over + " does not fit; write";
      EXPECT_TRUE(has(ask(callOf(call, i, std::to_string(param.max + 1))), error)) << answer_;
    }
  }
}

TEST_F(Calls, ASwitchIsOffOrOn) {
  insertCard();
  EXPECT_FALSE(isOneErrorLine(ask("SetCamFlit 0, 0x100, 1")));
  EXPECT_TRUE(has(ask("SetCamFlit 0, 0x100, 2"), "pass 2 does not fit; write 0 to 1")) << answer_;
}

TEST_F(Calls, EveryNumberOfArgumentsIsChecked) {
  insertCard();
  for (const ModuleCall &call : moduleCalls()) {
    if (call.invoke == nullptr) {
      continue;
    }
    const std::string text = callOf(call, none, "");
    const std::string more = text + (call.function.params.empty() ? " 0" : ", 0");
    EXPECT_TRUE(has(ask(more), "write " + signature(call.function))) << more;
    EXPECT_TRUE(isOneErrorLine(answer_)) << more;
    if (!call.function.params.empty()) {
      EXPECT_TRUE(has(ask(call.function.name), "write " + signature(call.function)));
      EXPECT_TRUE(isOneErrorLine(answer_)) << call.function.name;
    }
  }
}

TEST_F(Calls, LargestValuesDoNoHarm) {
  insertCard();
  for (const ModuleCall &call : moduleCalls()) {
    for (std::size_t i = 0; i < call.function.params.size(); ++i) {
      const Param &param = *call.function.params[i];
      if (param.form == Param::Form::Number) {
        ask(callOf(call, i, std::to_string(param.max)));
      }
    }
  }
  EXPECT_EQ(ask("test_bit \"01\", 0"), "value = 1 = 0x1\n");
}

TEST_F(Calls, AProgramIndexBeyondTheTable) {
  insertCard();
  EXPECT_EQ(ask("progAssign 0, 101, 1"), "");
  runFor(1000);
  EXPECT_TRUE(has(ask("getDescStatWeb 0, 0x10000"), "error: there is no program index 1"));
  EXPECT_TRUE(has(ask("getDescStatWeb 0, 0xFFFF0000"), "error: there is no program index 65535"));
  EXPECT_EQ(ask("getDescStatWeb 0, 0xE000"), "value = 238 = 0xee\n");
}

TEST_F(Calls, RefusedOnesTellWhy) {
  EXPECT_TRUE(has(ask("descIfRegist 0, 0, 1"), "the card driver's"));
  EXPECT_TRUE(has(ask("ciTskInit"), "the firmware has run already"));
}

TEST_F(Calls, BytesOfABitSet) {
  EXPECT_EQ(ask("test_bit \"00 80\", 15"), "value = 1 = 0x1\n");
  EXPECT_EQ(ask("test_bit \"0080\", 0xE"), "value = 0 = 0x0\n");
  for (const char *bad : {"test_bit \"FF\", 8", "test_bit \"\", 0", "test_bit \"F\", 0",
                          "test_bit \"F F\", 0", "test_bit \"xy\", 0", "test_bit 0xFF, 0"}) {
    EXPECT_TRUE(isOneErrorLine(ask(bad))) << bad << ": " << answer_;
  }
}

TEST(ValueText, DecimalAndHex) {
  EXPECT_EQ(valueText(255), "value = 255 = 0xff");
  EXPECT_EQ(valueText(-1), "value = -1 = 0xffffffff");
  EXPECT_EQ(valueText(0xFFFFFFFF), "value = 4294967295 = 0xffffffff");
}

}  // namespace
}  // namespace chassis
