// What a CI library has in common with the module, where a test has no module.
#pragma once

#include <array>

#include "cilib/CiLibrary.h"

namespace chassis {

struct LibraryMemory {
  std::array<semaphore, CiLibrary::camCount> flags{};
  std::array<CaPmtReply, CiLibrary::camCount> replies{};
  CiLibrary::SharedData shared() { return {flags.data(), replies.data()}; }
};

}  // namespace chassis
