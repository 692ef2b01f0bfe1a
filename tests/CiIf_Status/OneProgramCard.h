// The card of the tests of one CAM's policies: one program on both CAMs, of a CA system that both
// support.
#ifndef TESTS_ONE_PROGRAM_CARD_H
#define TESTS_ONE_PROGRAM_CARD_H

#include <string>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

constexpr uint8_t SLOT = 2;
constexpr uint8_t CAM = 0;
constexpr uint16_t CAS = 0x0500;
constexpr uint8_t CLEAN = DESC_SUM_OK;
constexpr uint8_t UNCHECKED = 0xFF;

inline void prepareCard(uint32_t slot) {
  registerCard(slot);
  platform.supports(slot, 0, {CAS});
  platform.supports(slot, 1, {CAS});
  Program program(1);
  program.cams(BOTH_CAMS).ca(CAS, 0x1001).stream(0x02, 0x100);
  platform.card[slot].setTable({program});
}

inline std::string stampRead(uint32_t stamp) {
  return "get_inc_of_time(" + std::to_string(stamp) + ")";
}

// What a policy does when the last measurement left `descStat`.
inline Calls observed(void (*policy)(uint8_t, uint8_t), uint8_t descStat, uint8_t slot,
                      uint8_t cam) {
  pCiData[slot]->descStat[cam] = descStat;
  platform.take();
  policy(slot, cam);
  return platform.take();
}

#endif
