// The multiplexer form of a card: which PIDs the programs of its stream occupy.
#pragma once

#include <cstddef>
#include <cstdint>

#include "CiPlatform.h"

constexpr std::size_t muxProgramMax = 32;
constexpr std::size_t muxPidMax = 39;  // as many as the place of a program holds

struct MuxCardPid {
  std::uint16_t pid;
  std::uint16_t reserved;
};

struct MuxCardProgram {
  std::uint8_t pidNum;    // valid entries of pids
  std::uint8_t assigned;  // 1: a CAM descrambles the program
  std::uint16_t number;   // program_number
  std::uint16_t pmtPid;
  std::uint16_t pcrPid;
  std::uint8_t reserved[70];
  MuxCardPid pids[muxPidMax];
  std::uint8_t tail[2];
};

struct MuxCardForm {
  std::uint8_t head[110];
  std::uint16_t programNum;  // valid entries of programs
  std::uint8_t reserved[16];
  MuxCardProgram programs[muxProgramMax];
};

static_assert(sizeof(MuxCardPid) == 4, "MuxCardPid");
static_assert(sizeof(MuxCardProgram) == 236, "MuxCardProgram");
static_assert(offsetof(MuxCardForm, programNum) == 110, "MuxCardForm.programNum");
static_assert(offsetof(MuxCardForm, programs) + offsetof(MuxCardProgram, pidNum) == 128,
              "MuxCardProgram.pidNum");
static_assert(offsetof(MuxCardForm, programs) + offsetof(MuxCardProgram, assigned) == 129,
              "MuxCardProgram.assigned");
static_assert(offsetof(MuxCardForm, programs) + offsetof(MuxCardProgram, pids) == 206,
              "MuxCardProgram.pids");
static_assert(offsetof(MuxCardProgram, pids) + sizeof(MuxCardProgram::pids) <= 236,
              "a program stays in its place");
