#include "io/Ports.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/InputError.h"
#include "base/Units.h"
#include "io/DatagramSink.h"
#include "io/DatagramSource.h"
#include "io/FileSink.h"
#include "io/PipeSource.h"

namespace chassis {

namespace {

// As whoever started the program has made it.
std::unique_ptr<LiveOutput> standardOutput(const Files &files) {
  if (isatty(STDOUT_FILENO) == 1) {
    throw InputError("'-' is standard output, which is a terminal; pipe it, or give a file");
  }
  return std::make_unique<LiveOutput>(
      "/dev/stdout", nullptr, [&files](const Progress &progress) { return files.goesOn(progress); },
      LiveOutput::Existing::GoneOnWith);
}

}  // namespace

bool isPlayed(const Url &url) {
  struct stat status {};
  const bool pipe =
      stat(url.path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
  return url.scheme == Url::Scheme::File && !pipe;
}

std::unique_ptr<PacketSource> Ports::openInput(const Url &url, const Tell &tell) {
  const auto now = [this] { return clock_.elapsedMs() * nsPerMs; };
  if (url.isNetwork()) {
    return std::make_unique<DatagramSource>(
        url, [this](std::uint64_t realNs) { return clock_.chassisNs(realNs); }, tell);
  }
  if (url.scheme == Url::Scheme::File) {
    return std::make_unique<PipeSource>(url.path, now, tell);
  }
  if (!inputUser_.empty()) {
    throw InputError("'-' is standard input, which is read as " + inputUser_ +
                     "; give a file, a FIFO or an URL");
  }
  return std::make_unique<PipeSource>(STDIN_FILENO, "standard input", now, tell);
}

std::unique_ptr<PacketSink> Ports::openOutput(const Url &url, const std::string &user) {
  if (url.isNetwork()) {
    return std::make_unique<DatagramSink>(
        url, [this](std::uint64_t chassisNs) { return clock_.realNs(chassisNs); }, loop_);
  }
  const auto waits = [this] { return !clock_.live(); };
  return url.scheme == Url::Scheme::StandardStream
             ? std::make_unique<FileSink>(standardOutput(files_), waits)
             : std::make_unique<FileSink>(files_.openOutput(user, url.path), waits);
}

}  // namespace chassis
