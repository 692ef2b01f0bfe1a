#include "command/Functions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace chassis {
namespace {

TEST(Functions, TakeTheseArguments) {
  std::vector<std::string> signatures;
  for (const Function &function : functions()) {
    signatures.push_back(signature(function));
  }
  EXPECT_EQ(signatures, (std::vector<std::string>{
                            "cardInsert slot, \"file\"[, bitrate]",
                            "probeInsert slot, \"before\", \"behind\"",
                            "cardRemove slot",
                            "camInsert slot, cam, casid[, casid...]",
                            "camRemove slot, cam",
                            "progAssign slot, program, camMask",
                            "wait seconds",
                            "note \"text\"",
                            "camEntitle slot, cam, program, on",
                            "camRefuse slot, cam, program, on",
                            "camDeaf slot, cam, on",
                            "camGarbage slot, cam, on",
                            "camWrongKey slot, cam, on",
                            "pidDrop slot, pid, on",
                            "pidDamage slot, pid, on",
                            "cardReady slot, on",
                            "cardBusy slot, on",
                            "cardOnline slot, on",
                            "ciSync slot, on",
                            "pllLock slot, on",
                            "fpgaError slot, on",
                            "rateLow slot, on",
                            "alarmMask slot, cam, on",
                            "alarmFail on",
                            "expectState slot, program, \"state\"[, seconds]",
                            "expectAlarm slot, cam, \"fault\"[, seconds]",
                            "expectNoAlarm slot, cam, \"fault\"[, seconds]",
                            "expectReset slot, cam, count[, seconds]",
                        }));
}

}  // namespace
}  // namespace chassis
