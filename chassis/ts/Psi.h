// Follows the program specific information of a transport stream (ISO/IEC 13818-1: PAT, CAT, PMT),
// and the names of its services (EN 300 468: SDT).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ts/ServiceNames.h"
#include "ts/TsPacket.h"

namespace chassis {

struct PsiCa {
  std::uint16_t casid = 0;
  std::uint16_t pid = nullPid;            // ECM PID in a PMT, EMM PID in the CAT
  std::vector<std::uint8_t> privateData;  // at most 251 bytes
};

struct PsiStream {
  std::uint8_t type = 0;
  std::uint16_t pid = nullPid;
  std::vector<PsiCa> ca;
};

struct PsiProgram {
  std::uint16_t number = 0;
  std::uint16_t pmtPid = nullPid;
  std::uint16_t pcrPid = nullPid;
  std::uint8_t version = 0;
  std::vector<PsiCa> ca;  // program level
  std::vector<PsiStream> streams;
};

struct Psi {
  std::uint16_t transportStreamId = 0;
  std::vector<PsiProgram> programs;  // in PAT order; those whose PMT has been seen
  std::vector<PsiCa> cat;
};

bool operator==(const PsiCa &a, const PsiCa &b);
bool operator==(const PsiStream &a, const PsiStream &b);
bool operator==(const PsiProgram &a, const PsiProgram &b);
bool operator==(const Psi &a, const Psi &b);

// Takes every packet of a stream in order; libdvbpsi decodes. Damaged sections are dropped.
class PsiReader {
 public:
  PsiReader();
  ~PsiReader();
  PsiReader(const PsiReader &) = delete;
  PsiReader &operator=(const PsiReader &) = delete;

  void push(const TsPacket &packet);
  const Psi &psi() const;
  bool patSeen() const;
  bool complete() const;          // PAT seen, and the PMT of every program in it
  std::uint32_t changes() const;  // counts every change of psi()

  // Names are no part of psi(): with another one, a program is the same.
  const ServiceNames &services() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace chassis
