// Opens what a person names as a stream: pipes and networks, in and out.
#pragma once

#include <memory>
#include <string>

#include "io/Files.h"
#include "io/PacketSink.h"
#include "io/PacketSource.h"
#include "io/Url.h"
#include "kernel/Clock.h"
#include "kernel/Loop.h"

namespace chassis {

class Ports {
 public:
  // All of them outlive it and what it opens.
  Ports(Loop &loop, Clock &clock, Files &files) : loop_(loop), clock_(clock), files_(files) {}

  // Standard input is somebody's: for what, in an operator's words: "the console". It is no stream
  // then.
  void reserveStandardInput(const std::string &user) { inputUser_ = user; }

  // Throws InputError that names the URL. tell: gets what happens to it.
  std::unique_ptr<PacketSource> openInput(const Url &url, const Tell &tell);
  // user: as one of the files.
  std::unique_ptr<PacketSink> openOutput(const Url &url, const std::string &user);

 private:
  Loop &loop_;
  Clock &clock_;
  Files &files_;
  std::string inputUser_;
};

// A file that is played at a bitrate of its own. Everything else comes at the machine's clock. What
// is not there is a file that is missing.
bool isPlayed(const Url &url);

}  // namespace chassis
