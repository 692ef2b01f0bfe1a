// Readable program descriptor tables.
#ifndef TESTS_PLATFORM_PROGRAM_H
#define TESTS_PLATFORM_PROGRAM_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "CiIf.h"

enum CamMask : uint8_t { NO_CAM = 0, CAM_A = 1, CAM_B = 2, BOTH_CAMS = 3 };

// Builds one program of a table:
//
//   Program(0x101).cams(CAM_A).ca(0x0500, 0x1001)          program-level CA entry, ECM PID 0x1001
//       .stream(0x02, 0x100).streamCa(0x0500, 0x1002)      stream and its own CA entry
//       .stream(0x04, 0x101)
//
// ca() sets bit 0 of caLevel and streamCa() bit 1; level() overrides both. A new program belongs to
// CAM A. Private data of an entry follows that of the entry before it.
class Program {
 public:
  explicit Program(uint16_t number);

  Program &cams(uint8_t mask);
  Program &level(uint16_t caLevel);
  Program &ca(uint16_t casid, uint16_t ecmPid, const std::vector<uint8_t> &priv = {});
  Program &stream(uint16_t type, uint16_t pid);
  // `count` streams of one type with PIDs counted up from `firstPid`.
  Program &streams(uint16_t type, uint16_t firstPid, uint16_t count);
  // CA entry of the stream added last.
  Program &streamCa(uint16_t casid, uint16_t ecmPid, const std::vector<uint8_t> &priv = {});

  const CiDescProg &entry() const { return entry_; }

 private:
  CiDescProg entry_{};
};

// Replaces the whole table. Fields that the module must not read are filled with garbage, and so
// are the entries behind the counts.
void fillTable(CiDesc &desc, std::initializer_list<Program> programs);
void fillTable(CiDesc &desc, const std::vector<Program> &programs);

#endif
