// Puts transport streams one behind the other; the continuity_counter of every PID goes on.
#include <array>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <string>

#include "InputError.h"
#include "Version.h"
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
    if (pid == chassis::nullPid) {
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

void append(const std::string &path, Counters &counters, std::ostream &out) {
  chassis::TsFile file(path);
  counters.startFile();
  TsPacket packet;
  while (file.next(packet)) {
    counters.carryOn(packet);
    out.write(reinterpret_cast<const char *>(packet.data()),
              static_cast<std::streamsize>(packet.size()));
  }
}

void join(int count, char **paths) {
  if (count < 2) {
    throw chassis::InputError("write: ts-join IN [IN...] OUT");
  }
  const std::string target = paths[count - 1];
  std::ofstream out(target, std::ios::binary);
  Counters counters;
  for (int i = 0; i + 1 < count; ++i) {
    append(paths[i], counters, out);
  }
  if (!out.flush()) {
    throw chassis::InputError("'" + target + "' cannot be written");
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    if (argc == 2 && argv[1] == std::string("--version")) {
      return std::printf("ts-join %s\n", chassis::version) > 0 ? 0 : 1;
    }
    join(argc - 1, argv + 1);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "ts-join: %s\n", error.what());
    return 1;
  }
  return 0;
}
