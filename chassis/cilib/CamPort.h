// A CAM as the library sees it: somebody who takes and sends APDUs, and can be reset.
#pragma once

#include <cstdint>
#include <optional>

#include "cam/Cam.h"

namespace chassis {

class CamPort {
 public:
  virtual ~CamPort() = default;
  virtual bool up() const = 0;
  virtual void reset(std::uint64_t nowMs) = 0;
  virtual void receive(const Apdu &apdu) = 0;
  virtual std::optional<Apdu> transmit() = 0;
};

// The port of a software CAM, which it does not own.
class SoftwareCamPort : public CamPort {
 public:
  explicit SoftwareCamPort(Cam &cam) : cam_(cam) {}
  bool up() const override { return cam_.up(); }
  void reset(std::uint64_t nowMs) override { cam_.reset(nowMs); }
  void receive(const Apdu &apdu) override { cam_.receive(apdu); }
  std::optional<Apdu> transmit() override { return cam_.transmit(); }

 private:
  Cam &cam_;
};

}  // namespace chassis
