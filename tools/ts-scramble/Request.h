// What a person asks ts-scramble for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cam/LabCa.h"

namespace tsscramble {

// Where the CA descriptors of a program stand in its PMT. At stream level every stream has an ECM
// PID and control words of its own.
enum class Level { Program, Stream };

struct ProgramRequest {
  std::uint16_t number = 0;
  std::optional<Level> level;          // the request's level where it is not told
  std::vector<std::uint16_t> ecmPids;  // empty: free ones are taken
};

struct Request {
  std::vector<ProgramRequest> programs;  // empty: all programs
  Level level = Level::Program;
  std::uint16_t casid = chassis::labca::defaultCaSystem;
  double cryptoPeriod = 10;                  // seconds; made to fit the file
  double ecmInterval = 0.1;                  // seconds
  std::optional<std::uint16_t> firstEcmPid;  // free ECM PIDs are looked for from here upwards
  std::optional<std::uint16_t> emmPid;       // not told: a free one
  chassis::labca::Cipher cipher = chassis::labca::Cipher::Xor;
  std::uint64_t seed = 1;     // of the control words
  std::uint64_t bitrate = 0;  // of the input in bit/s; 0: from its PCRs
};

// All throw chassis::InputError, which names the value and what would have been right.

Level parseLevel(const std::string &text);                    // program, stream
chassis::labca::Cipher parseCipher(const std::string &text);  // none, xor

// NUMBER[:LEVEL[:PID[,PID...]]], numbers decimal or with 0x
ProgramRequest parseProgram(const std::string &text);

// Ranges of numbers, and that nothing is asked for twice.
void check(const Request &request);

}  // namespace tsscramble
