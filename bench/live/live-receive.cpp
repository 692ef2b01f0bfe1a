// Receives RTP on several ports and tells every second in a line of JSON what has come since it
// began, until its standard input ends; then once more, with how far behind their time stamps the
// datagrams came.
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "Ends.h"
#include "app/CommandLine.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "io/Socket.h"
#include "io/Url.h"
#include "kernel/Loop.h"
#include "ts/PacketView.h"
#include "ts/Rtp.h"

namespace {

using namespace chassis;
using namespace live;
using Json = nlohmann::ordered_json;

constexpr std::uint64_t restNs = 2 * nsPerMs;  // the sockets hold far more than comes meanwhile
constexpr std::size_t datagramMost = 2048;
constexpr std::size_t controlMost = 128;

std::int64_t nsOf(const timespec &time) {
  return static_cast<std::int64_t>(time.tv_sec) * static_cast<std::int64_t>(nsPerSecond) +
         time.tv_nsec;
}

// By how much each datagram was later than the one that was least late.
class Delays {
 public:
  Delays() : counts_(span) {}

  void add(std::int64_t ns) {
    base_ = base_.value_or(ns);
    const std::int64_t step = (ns - *base_) / stepNs + static_cast<std::int64_t>(span / 4);
    ++counts_[static_cast<std::size_t>(std::clamp<std::int64_t>(step, 0, span - 1))];
  }

  // Whole steps, rounded up; anything beyond some seconds is told as that.
  Json report() const {
    constexpr std::uint64_t lateSteps = 10 * nsPerMs / stepNs;
    const auto first = static_cast<std::size_t>(
        std::find_if(counts_.begin(), counts_.end(), [](auto n) { return n > 0; }) -
        counts_.begin());
    const std::uint64_t all = std::accumulate(counts_.begin(), counts_.end(), std::uint64_t{0});
    Json json{{"behind_10_ms", above(first + lateSteps)}};
    json["behind_ns_99_9"] = quantile(first, all - all / 1000);
    json["behind_ns_worst"] = quantile(first, all);
    return json;
  }

 private:
  static constexpr std::int64_t stepNs = 100000;
  static constexpr std::size_t span = 40000;

  std::uint64_t above(std::size_t step) const {
    const std::size_t from = std::min(step, counts_.size());
    return std::accumulate(counts_.begin() + static_cast<std::ptrdiff_t>(from), counts_.end(),
                           std::uint64_t{0});
  }

  std::uint64_t quantile(std::size_t first, std::uint64_t count) const {
    std::uint64_t sum = 0;
    for (std::size_t step = first; step < counts_.size(); ++step) {
      sum += counts_[step];
      if (sum >= count) {
        return (step - first) * static_cast<std::uint64_t>(stepNs);
      }
    }
    return 0;
  }

  std::vector<std::uint64_t> counts_;
  std::optional<std::int64_t> base_;
};

class Port {
 public:
  explicit Port(const std::string &url)
      : socket_(openReceiver(readUrl(url, Url::Use::Input))), batch_(batchMost) {}

  // Takes all that has come.
  void receive() {
    for (std::size_t count = batchMost; count == batchMost;) {
      count = receiveBatch();
    }
  }

  Json report() const {
    return {{"datagrams", datagrams_},
            {"packets", packets_},
            {"scrambled", scrambled_},
            {"missing", missing_},
            {"foreign", foreign_}};
  }
  Json delays() const { return delays_.report(); }

 private:
  struct Place {
    std::array<std::uint8_t, datagramMost> bytes;
    alignas(cmsghdr) std::array<std::uint8_t, controlMost> control;
    iovec vector;
  };

  std::size_t receiveBatch() {
    std::array<mmsghdr, batchMost> messages{};
    for (std::size_t i = 0; i < batchMost; ++i) {
      Place &place = batch_[i];
      place.vector = {place.bytes.data(), place.bytes.size()};
      messages[i].msg_hdr.msg_iov = &place.vector;
      messages[i].msg_hdr.msg_iovlen = 1;
      messages[i].msg_hdr.msg_control = place.control.data();
      messages[i].msg_hdr.msg_controllen = place.control.size();
    }
    const int got = recvmmsg(socket_.file(), messages.data(), batchMost, MSG_DONTWAIT, nullptr);
    const std::size_t count = got < 0 ? 0 : static_cast<std::size_t>(got);
    for (std::size_t i = 0; i < count; ++i) {
      take(messages[i].msg_hdr, batch_[i].bytes.data(), messages[i].msg_len);
    }
    return count;
  }

  void take(const msghdr &message, const std::uint8_t *bytes, std::size_t size) {
    ++datagrams_;
    const std::optional<std::int64_t> came = takeControl(message);
    const std::optional<RtpHeader> rtp = readRtp(bytes, size);
    if (!rtp || rtp->payloadType != rtpPayloadTypeTs || rtp->payloadSize % tsPacketSize != 0) {
      ++foreign_;
      return;
    }
    takePayload(bytes + rtp->payloadBegin, rtp->payloadSize);
    // Nothing on the way puts datagrams out of order.
    missing_ += next_ ? static_cast<std::uint16_t>(rtp->sequence - *next_) : 0;
    next_ = static_cast<std::uint16_t>(rtp->sequence + 1);
    if (came) {
      addDelay(*rtp, *came);
    }
  }

  void addDelay(const RtpHeader &rtp, std::int64_t came) {
    stamp_ = stamp_.value_or(rtp.timestamp);
    stamped_ += static_cast<std::int32_t>(rtp.timestamp - *stamp_);
    stamp_ = rtp.timestamp;
    delays_.add(came - stamped_ * static_cast<std::int64_t>(nsPerMs) / rtpTicksPerMs);
  }

  // The kernel's stamp of arrival.
  std::optional<std::int64_t> takeControl(const msghdr &message) {
    std::optional<std::int64_t> came;
    auto *header = const_cast<msghdr *>(&message);
    for (cmsghdr *each = CMSG_FIRSTHDR(header); each != nullptr; each = CMSG_NXTHDR(header, each)) {
      if (each->cmsg_type == SO_TIMESTAMPNS) {
        timespec time{};
        std::memcpy(&time, CMSG_DATA(each), sizeof time);
        came = nsOf(time);
      }
    }
    return came;
  }

  void takePayload(const std::uint8_t *bytes, std::size_t size) {
    for (std::size_t at = 0; at < size; at += tsPacketSize) {
      TsPacket packet;
      std::copy_n(bytes + at, tsPacketSize, packet.begin());
      ++packets_;
      scrambled_ += PacketView(packet).scrambling() != 0 ? 1 : 0;
    }
  }

  Socket socket_;
  std::vector<Place> batch_;
  std::uint64_t datagrams_ = 0;
  std::uint64_t packets_ = 0;
  std::uint64_t scrambled_ = 0;
  std::uint64_t missing_ = 0;
  std::uint64_t foreign_ = 0;
  std::optional<std::uint16_t> next_;
  std::optional<std::uint32_t> stamp_;
  std::int64_t stamped_ = 0;  // since the first, in ticks
  Delays delays_;
};

void tell(const std::vector<Port> &ports, bool withDelays) {
  Json json{{"at_ns", Loop::nowNs()}};
  for (const Port &port : ports) {
    Json each = port.report();
    if (withDelays) {
      each.update(port.delays());
    }
    json["ports"].push_back(each);
  }
  std::printf("%s\n", json.dump().c_str());
  std::fflush(stdout);
}

bool inputEnded() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  char byte = 0;
  return poll(&input, 1, 0) > 0 && read(STDIN_FILENO, &byte, 1) <= 0;
}

void receive(const std::vector<std::string> &urls) {
  std::vector<Port> ports;
  ports.reserve(urls.size());
  for (const std::string &url : urls) {
    ports.emplace_back(url);
  }
  tell(ports, false);
  std::uint64_t tellNs = Loop::nowNs() + nsPerSecond;
  for (bool over = false; !over;) {
    sleepUntil(Loop::nowNs() + restNs);
    over = inputEnded();
    std::for_each(ports.begin(), ports.end(), [](Port &port) { port.receive(); });
    if (Loop::nowNs() >= tellNs) {
      tell(ports, false);
      tellNs += nsPerSecond;
    }
  }
  tell(ports, true);
}

int run(int argc, char **argv) {
  CLI::App app("Receives RTP on several ports until standard input ends.", "live-receive");
  std::vector<std::string> urls;
  app.add_option("URL", urls, "rtp://ADDRESS:PORT of each port")->required()->expected(1, -1);
  return parsed(app, argc, argv, [&urls] {
    receive(urls);
    return static_cast<int>(exitDone);
  });
}

}  // namespace

int main(int argc, char **argv) {
  return runProgram("live-receive", [&] { return run(argc, argv); });
}
