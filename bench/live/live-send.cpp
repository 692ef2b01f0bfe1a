// Plays a stream file as RTP to several receivers at once, at a constant bitrate, for a time; then
// tells in JSON how many datagrams each of them was sent.
#include <bitstream/ietf/rtp.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Ends.h"
#include "app/CommandLine.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "card/StreamScan.h"
#include "io/FileSource.h"
#include "io/Socket.h"
#include "io/Url.h"
#include "kernel/Loop.h"
#include "ts/Rtp.h"

namespace {

using namespace chassis;
using namespace live;

constexpr std::uint32_t ssrc = 0x11FEBE7C;
constexpr std::uint64_t tailMs = 500;
constexpr std::uint64_t tailStepMs = 10;

struct Datagram {
  std::array<std::uint8_t, RTP_HEADER_SIZE + payloadMost> bytes;
};

struct Receiver {
  Socket socket;
  std::uint64_t unsent = 0;
};

FileSource::Pace paceOf(const std::string &path, std::uint64_t bitrate) {
  FileSource::Pace pace;
  pace.bitrate = bitrate;
  pace.ccStep = scanStream(path, bitrate).ccStep;
  return pace;
}

// All receivers get the same datagrams.
class Sender {
 public:
  Sender(const std::string &path, std::uint64_t bitrate, const std::vector<std::string> &urls)
      : source_(path, paceOf(path, bitrate)) {
    for (const std::string &url : urls) {
      receivers_.push_back({openSender(readUrl(url, Url::Use::Output))});
    }
  }

  void play(std::uint64_t forMs) {
    beginNs_ = Loop::nowNs();
    for (std::uint64_t ms = 1; ms <= forMs; ++ms) {
      sendDue(ms, SIZE_MAX);
    }
    // What a receiver's kernel dropped last, it tells with the next datagram that it takes.
    for (std::uint64_t ms = forMs; ms < forMs + tailMs; ms += tailStepMs) {
      sendDue(ms, 1);
    }
  }

  nlohmann::ordered_json report() const {
    nlohmann::ordered_json json{{"datagrams", datagrams_}, {"worst_behind_ns", worstBehindNs_}};
    for (const Receiver &receiver : receivers_) {
      json["unsent"].push_back(receiver.unsent);
    }
    return json;
  }

 private:
  void sendDue(std::uint64_t ms, std::size_t most) {
    const std::uint64_t dueNs = beginNs_ + ms * nsPerMs;
    sleepUntil(dueNs);
    worstBehindNs_ = std::max(worstBehindNs_, Loop::nowNs() - dueNs);
    for (std::size_t left = std::min(most, source_.due(ms) / packetsPerDatagram); left > 0;) {
      const std::size_t count = std::min(left, batchMost);
      fill(count);
      for (Receiver &receiver : receivers_) {
        send(receiver, count);
      }
      left -= count;
    }
  }

  void fill(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      std::uint8_t *bytes = batch_[i].bytes.data();
      std::uint64_t firstNs = 0;
      for (std::size_t packet = 0; packet < packetsPerDatagram; ++packet) {
        TsPacket ts;
        std::uint64_t cameNs = 0;
        if (!source_.next(ts, cameNs)) {
          throw InputError("the stream cannot be read any further");
        }
        firstNs = packet == 0 ? cameNs : firstNs;
        std::copy(ts.begin(), ts.end(), bytes + RTP_HEADER_SIZE + packet * tsPacketSize);
      }
      writeHeader(bytes, firstNs);
    }
  }

  void writeHeader(std::uint8_t *bytes, std::uint64_t ns) {
    rtp_set_hdr(bytes);
    rtp_set_type(bytes, RTP_TYPE_TS);
    rtp_set_seqnum(bytes, static_cast<std::uint16_t>(datagrams_++));
    rtp_set_timestamp(bytes, static_cast<std::uint32_t>(ns * rtpTicksPerMs / nsPerMs));
    rtp_set_int_ssrc(bytes, ssrc);
  }

  void send(Receiver &receiver, std::size_t count) {
    std::array<mmsghdr, batchMost> messages{};
    std::array<iovec, batchMost> vectors{};
    for (std::size_t i = 0; i < count; ++i) {
      vectors[i] = {batch_[i].bytes.data(), batch_[i].bytes.size()};
      messages[i].msg_hdr.msg_iov = &vectors[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (std::size_t done = 0; done < count;) {
      const int sent = sendmmsg(receiver.socket.file(), &messages[done],
                                static_cast<unsigned>(count - done), MSG_DONTWAIT);
      receiver.unsent += sent > 0 ? 0 : 1;
      done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
  }

  FileSource source_;
  std::vector<Receiver> receivers_;
  std::array<Datagram, batchMost> batch_{};
  std::uint64_t beginNs_ = 0;
  std::uint64_t datagrams_ = 0;
  std::uint64_t worstBehindNs_ = 0;
};

int run(int argc, char **argv) {
  CLI::App app("Plays a stream as RTP to several receivers at once.", "live-send");
  std::string path;
  std::uint64_t bitrate = 0;
  std::uint64_t seconds = 0;
  std::vector<std::string> urls;
  app.add_option("--bitrate", bitrate, "bit/s")->required()->check(CLI::Range(1U, 1000000000U));
  app.add_option("--for", seconds, "seconds")->required()->check(CLI::Range(1U, 100000U));
  app.add_option("FILE", path, "the stream")->required();
  app.add_option("URL", urls, "rtp://ADDRESS:PORT of each receiver")->required()->expected(1, -1);
  return parsed(app, argc, argv, [&] {
    Sender sender(path, bitrate, urls);
    sender.play(seconds * 1000);
    std::printf("%s\n", sender.report().dump().c_str());
    return static_cast<int>(exitDone);
  });
}

}  // namespace

int main(int argc, char **argv) {
  return runProgram("live-send", [&] { return run(argc, argv); });
}
