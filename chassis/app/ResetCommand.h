// What a person wants run when the module would reset a CAM that it only observes.
#pragma once

#include <sys/types.h>

#include <string>

#include "event/Event.h"

namespace chassis {

class ResetCommand {
 public:
  // A command of the shell; empty: nothing is ever run.
  ResetCommand(std::string command, Events &events)
      : command_(std::move(command)), events_(events) {}
  // One that still runs is left alone.
  ResetCommand(const ResetCommand &) = delete;
  ResetCommand &operator=(const ResetCommand &) = delete;

  // Starts it and does not wait; while one runs there is no second.
  void run();
  // Now and then: whether it has ended. What went wrong is told.
  void look();

 private:
  void tell(const event::ResetCommandFailed &failure);

  const std::string command_;
  Events &events_;
  pid_t process_ = 0;  // 0: none runs
};

}  // namespace chassis
