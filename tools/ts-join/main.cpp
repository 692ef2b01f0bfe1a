// Puts transport streams one behind the other; the continuity_counter of every PID goes on.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "Version.h"
#include "app/CommandLine.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "console/ProgressLine.h"
#include "io/Files.h"
#include "io/ReplacedFile.h"
#include "ts/PacketView.h"
#include "ts/TsFile.h"

namespace {

using chassis::PacketView;
using chassis::TsPacket;

class Counters {
 public:
  void startFile() { offset_.fill(std::nullopt); }

  void carryOn(TsPacket &packet) {
    const PacketView view(packet);
    const std::uint16_t pid = view.pid();
    if (pid == chassis::nullPid || view.transportError()) {
      return;
    }
    const unsigned next = last_[pid] + (view.hasPayload() ? 1U : 0U);
    if (!offset_[pid]) {
      offset_[pid] = seen_[pid] ? next - view.continuityCounter() : 0;
    }
    last_[pid] = (view.continuityCounter() + *offset_[pid]) & 0x0F;
    seen_[pid] = true;
    packet[3] = static_cast<std::uint8_t>((packet[3] & 0xF0) | last_[pid]);
  }

 private:
  std::array<std::optional<unsigned>, chassis::pidCount> offset_;  // of the file's counters
  std::array<unsigned, chassis::pidCount> last_{};
  std::array<bool, chassis::pidCount> seen_{};
};

void append(const std::string &path, Counters &counters, chassis::ReplacedFile &out) {
  chassis::ProgressLine progress(STDERR_FILENO);
  chassis::TsFile file(path, chassis::showingOn(progress));
  counters.startFile();
  TsPacket packet;
  while (file.goesOn() && file.next(packet)) {
    counters.carryOn(packet);
    out.write(packet.data(), packet.size());
  }
  if (file.skippedBytes() > 0) {
    progress.clear();
    std::fprintf(stderr, "ts-join: %llu bytes of '%s' are in no packet and left out\n",
                 static_cast<unsigned long long>(file.skippedBytes()), path.c_str());
  }
}

void join(const std::vector<std::string> &inputs, const std::string &target) {
  chassis::Files files;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    files.read("input " + std::to_string(i + 1), inputs[i]);
  }
  files.write("the output", target);
  chassis::ReplacedFile out(target);
  Counters counters;
  for (const std::string &input : inputs) {
    append(input, counters, out);
  }
  out.finish();
}

int run(int argc, char **argv) {
  CLI::App app("Puts transport streams one behind the other into one.", "ts-join");
  std::vector<std::string> paths;
  app.add_option("FILE", paths, "IN [IN...] OUT: the streams in their order, and the one to make")
      ->required()
      ->expected(2, -1);
  app.set_version_flag("--version", std::string("ts-join ") + chassis::version);
  app.footer(chassis::exitStatusHelp);
  return chassis::parsed(app, argc, argv, [&paths] {
    join({paths.begin(), paths.end() - 1}, paths.back());
    return static_cast<int>(chassis::exitDone);
  });
}

}  // namespace

int main(int argc, char **argv) {
  return chassis::runProgram("ts-join", [&] { return run(argc, argv); });
}
