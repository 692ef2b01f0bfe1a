// The whole chassis with the module in it: six cards at full rate, both CAMs of each at work.
#pragma once

#include <cstdint>

#include "Traffic.h"
#include "kernel/Clock.h"
#include "supervision/Chassis.h"

class FullChassis : private chassis::Agenda {
 public:
  FullChassis();  // returns when all CAMs descramble

  void run(std::uint64_t ms);  // of chassis time
  Traffic traffic();           // of all cards

 private:
  void runDue(std::uint64_t) override {}

  chassis::EventFan events_;
  chassis::Clock clock_;
  chassis::Loop loop_;
  chassis::Chassis chassis_{clock_, events_, loop_};
};
