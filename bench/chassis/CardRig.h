// One card at full rate with or without CAMs, and no module: the CAMs have got their CA PMTs.
#pragma once

#include <array>
#include <cstdint>

#include "Traffic.h"
#include "cam/Cam.h"
#include "card/Card.h"
#include "io/Files.h"

class CardRig {
 public:
  // Two programs of the stream to each CAM; returns when they descramble.
  explicit CardRig(bool withCams);

  void run(std::uint64_t ms);  // of chassis time
  Traffic traffic() const { return trafficOf(card_); }
  chassis::DescramblerWork work() const;  // of both CAMs

 private:
  void select(std::size_t cam);

  chassis::EventFan events_;
  std::uint64_t nowMs_ = 0;
  chassis::Files files_;
  chassis::Card card_{0, events_, files_};
  std::array<chassis::Cam, 2> cams_;
};
