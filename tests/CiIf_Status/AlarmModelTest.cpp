// camAlarm against the nine checks that it stands for: twin cards with the same random faults,
// masks and failures of the alarm service.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AlarmKinds.h"
#include "CiIf_Status/CiIf_Status.h"
#include "platform/Random.h"

namespace {

constexpr uint32_t WHOLE = 0;
constexpr uint32_t SINGLY = 1;
constexpr int STEPS = 400;

struct Check {
  uint32_t camSlot;
  uint32_t kind;
};

constexpr Check CHECKS[] = {{0, 0xA01}, {1, 0xA01}, {0, 0xA03}, {1, 0xA03}, {0, 0xA02},
                            {1, 0xA02}, {0, 0xA04}, {0, 0xA05}, {1, 0xA05}};

void replace(std::string &text, const std::string &from, const std::string &to) {
  const size_t at = text.find(from);
  if (at != std::string::npos) {
    text.replace(at, from.size(), to);
  }
}

// A call without what tells the card: the first argument, or the number in a printed text.
std::string withoutCard(std::string call) {
  if (call.find("rintf") != std::string::npos) {
    replace(call, "slotNo 2", "slotNo 1");
    replace(call, "Card1", "Card0");
    return call;
  }
  const std::string name = call.substr(0, call.find('('));
  if (name == "AlarmAdd") {
    return name + call.substr(call.find("), "));
  }
  if (name == "CamAlarmMask" || name == "ciLibGetCardIndex") {
    return name + call.substr(call.find(", "));
  }
  return name == "EXT_Clear_Ca_Sys_Id" ? name : call;
}

std::vector<std::string> withoutCard(const Calls &calls) {
  std::vector<std::string> result;
  for (const std::string &call : calls) {
    result.push_back(withoutCard(call));
  }
  return result;
}

class CamAlarmModel : public testing::TestWithParam<uint32_t> {
 protected:
  CamAlarmModel() {
    registerCard(WHOLE);
    registerCard(SINGLY);
    ciAlarmDlyTimeInit();
  }

  void setBoth(Random &random) {
    for (const AlarmKind &kind : alarmKinds) {
      for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
        const std::vector<uint32_t> &values =
            random.below(2) != 0 ? kind.values.faults : kind.values.harmless;
        const uint32_t value = values[random.below(static_cast<uint32_t>(values.size()))];
        kind.set(*pCiData[WHOLE], camSlot, value);
        kind.set(*pCiData[SINGLY], camSlot, value);
      }
    }
    for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
      const uint32_t mask = random.below(3) == 0 ? 1 : 0;
      platform.card[WHOLE].CamAlarmMask.when(camSlot) = mask;
      platform.card[SINGLY].CamAlarmMask.when(camSlot) = mask;
    }
    platform.AlarmAdd = random.below(4) == 0 ? -1 : static_cast<int32_t>(random.below(100));
    platform.AlarmDel = random.below(4) == 0 ? -1 : 0;
    platform.advance(random.of<uint32_t>({0, 1, 1000, 12001, 60001, 100000}));
    platform.take();
  }
};

TEST_P(CamAlarmModel, DoesWhatItsNineChecksDo) {
  Random random(GetParam());
  for (int step = 0; step < STEPS; ++step) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()) + " step " + std::to_string(step));
    setBoth(random);
    const int32_t whole = camAlarm(WHOLE);
    const std::vector<std::string> calls = withoutCard(platform.take());
    int32_t last = 0;
    for (const Check &check : CHECKS) {
      last = camAlarmCheck(SINGLY, check.camSlot, check.kind);
    }
    ASSERT_EQ(calls, withoutCard(platform.take()));
    ASSERT_EQ(whole, last);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CamAlarmModel, testing::Range(1u, 9u));

}  // namespace
