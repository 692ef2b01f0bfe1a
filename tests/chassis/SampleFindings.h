// Findings for the tests of the report: a card with two programs on CAM 0.
#pragma once

#include "status/Findings.h"

namespace chassis {

inline PidFinding samplePid(std::uint16_t pid, std::uint16_t streamType, std::uint8_t status) {
  PidFinding finding;
  finding.pid = pid;
  finding.streamType = streamType;
  finding.status = status;
  finding.before = {1000, 2, 1000, true, false, 9000};
  finding.behind = {1000, 3, 0, false, false, 9000};
  finding.ecms = {{0x1001, true, {50, 0, 0, false, false, 9000}}};
  return finding;
}

inline CardFinding sampleCard(std::uint8_t status101 = DESC_STAT_OK,
                              std::uint8_t status102 = DESC_STAT_OK) {
  CardFinding card;
  card.slot = 0;
  card.takenMs = 10000;
  card.bitrate = 2500000;
  card.controller = 0;
  card.cams[0] = {1, 1, 0, 0};
  card.programs = {
      {101, 1, status101, {samplePid(0x111, 2, status101), samplePid(0x112, 4, status101)}},
      {102, 1, status102, {samplePid(0x121, 2, status102), samplePid(0x122, 4, status102)}}};
  return card;
}

}  // namespace chassis
