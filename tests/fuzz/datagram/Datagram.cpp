// Sequences of datagrams with times: whatever comes, packets leave in order, each datagram and each
// packet is accounted for, and what waits is bounded.
#include <bitstream/ietf/rtp.h>

#include <algorithm>
#include <set>
#include <vector>

#include "Input.h"
#include "io/DatagramPackets.h"
#include "ts/Rtp.h"
#include "ts/TsPacket.h"

using chassis::DatagramPackets;
using chassis::RtpSequence;
using chassis::SourceCounters;
using chassis::TsPacket;
using chassis::tsPacketSize;
using fuzz::Input;
using fuzz::require;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr size_t packetsMost = 40;
constexpr uint64_t ms = 1000000;

// What a datagram holds, read apart from the chassis: bit by bit, and by no rule of order.
struct Content {
  bool rtp = false;
  bool foreign = true;
  uint32_t ssrc = 0;
  size_t packets = 0;  // with a sync byte
  size_t others = 0;
};

size_t payloadFrom(const Bytes &bytes) {
  const size_t lists = 12 + size_t{bytes[0] & 15U} * 4;
  if ((bytes[0] & 16) == 0) {
    return lists;
  }
  return lists + 4 > bytes.size()
             ? SIZE_MAX
             : lists + 4 + (size_t{bytes[lists + 2]} * 256 + bytes[lists + 3]) * 4;
}

bool isRtp(const Bytes &bytes) {
  if (bytes.size() < 12 || bytes[0] / 64 != 2 || (bytes[1] & 127) != 33) {
    return false;
  }
  const size_t from = payloadFrom(bytes);
  const bool padded = (bytes[0] & 32) != 0;
  return from <= bytes.size() &&
         (!padded || (bytes.back() > 0 && bytes.back() <= bytes.size() - from));
}

void readPackets(Content &content, const uint8_t *begin, const uint8_t *end) {
  const auto size = static_cast<size_t>(end - begin);
  content.foreign = size == 0 || size % tsPacketSize != 0 || *begin != 0x47;
  for (const uint8_t *at = begin; !content.foreign && at != end; at += tsPacketSize) {
    ++(*at == 0x47 ? content.packets : content.others);
  }
}

Content contentOf(const Bytes &bytes, bool cut) {
  Content content;
  content.rtp = isRtp(bytes);
  const size_t from = content.rtp ? payloadFrom(bytes) : 0;
  const size_t padding = content.rtp && (bytes[0] & 32) != 0 ? bytes.back() : 0;
  if (!cut) {
    readPackets(content, bytes.data() + from, bytes.data() + bytes.size() - padding);
  }
  if (content.rtp) {
    content.ssrc =
        static_cast<uint32_t>(bytes[8]) << 24 | bytes[9] << 16 | bytes[10] << 8 | bytes[11];
  }
  return content;
}

// ------------------------------------------------------------------------------------------------
// Datagrams that the input chooses: raw, of packets, or RTP with numbers near the last ones.
// ------------------------------------------------------------------------------------------------

class Maker {
 public:
  Bytes next(Input &input) {
    const uint32_t form = input.below(16);
    if (form == 0) {
      return input.bytes(input.below(64));
    }
    const Bytes payload = packets(input);
    return form < 4 ? payload : rtp(input, payload);
  }

 private:
  // Each packet tells which of all it is.
  Bytes packets(Input &input) {
    const uint32_t shape = input.byte();
    Bytes bytes((shape % 8) * tsPacketSize);
    for (size_t at = 0; at < bytes.size(); at += tsPacketSize) {
      bytes[at] = 0x47;
      for (size_t i = 0; i < 4; ++i) {
        bytes[at + 4 + i] = static_cast<uint8_t>(made_ >> (8 * i));
      }
      ++made_;
    }
    if (shape >= 240 && !bytes.empty()) {
      bytes[input.below(static_cast<uint32_t>(bytes.size()))] ^= 0x10;
    } else if (shape >= 224) {
      bytes.resize(bytes.size() + 1 + input.below(20));
    }
    return bytes;
  }

  uint16_t sequence(Input &input) {
    const uint32_t step = input.byte();
    if (step < 128) {
      return sequence_++;
    }
    if (step < 240) {
      return static_cast<uint16_t>(sequence_ + static_cast<int>(step) - 200);
    }
    const auto far = static_cast<uint16_t>(sequence_ + input.word());
    sequence_ = step < 248 ? static_cast<uint16_t>(far + 1) : sequence_;
    return far;
  }

  Bytes rtp(Input &input, const Bytes &payload) {
    const uint32_t shape = input.byte();
    Bytes bytes(RTP_HEADER_SIZE + size_t{shape < 16 ? shape : 0U} * 4);
    rtp_set_hdr(bytes.data());
    rtp_set_cc(bytes.data(), static_cast<uint8_t>(shape < 16 ? shape : 0));
    rtp_set_type(bytes.data(), shape == 16 ? 96 : RTP_TYPE_TS);
    rtp_set_seqnum(bytes.data(), sequence(input));
    ssrc_ += shape == 17 ? 1 : 0;
    rtp_set_int_ssrc(bytes.data(), shape == 18 ? ssrc_ + 7 : ssrc_);
    rtp_set_timestamp(bytes.data(), shape == 19 ? input.word() * 65536U : 0);
    if (shape >= 20 && shape < 32) {
      extend(input, bytes);
    }
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    if (shape >= 28 && shape < 40) {
      pad(input, bytes);
    }
    return bytes;
  }

  static void extend(Input &input, Bytes &bytes) {
    rtp_set_extension(bytes.data());
    const uint8_t words = static_cast<uint8_t>(input.below(5));
    bytes.insert(bytes.end(), {0, 0, 0, words});
    bytes.resize(bytes.size() + size_t{words} * 4 - (words > 3 ? 1 : 0));
  }

  static void pad(Input &input, Bytes &bytes) {
    rtp_set_padding(bytes.data());
    const uint8_t size = input.byte();
    bytes.resize(bytes.size() + size % 8);
    bytes.back() = static_cast<uint8_t>(size / 8 < 16 ? size % 8 : size);
  }

  uint32_t made_ = 0;
  uint16_t sequence_ = 65500;
  uint32_t ssrc_ = 1;
};

// ------------------------------------------------------------------------------------------------
// What must hold
// ------------------------------------------------------------------------------------------------

// What the counters must add up to, known from the datagrams alone.
class Ledger {
 public:
  void take(const Content &content) {
    ++datagrams_;
    foreign_ += content.foreign ? 1 : 0;
    packets_ += content.packets;
    others_ += content.others;
    if (content.rtp && !content.foreign && (!begun_ || content.ssrc != ssrc_)) {
      ++senders_;
      begun_ = true;
      ssrc_ = content.ssrc;
    }
  }

  void check(const DatagramPackets &all) const {
    const SourceCounters &counters = all.counters();
    require(counters.datagrams == datagrams_, "datagrams are miscounted");
    require(counters.foreign == foreign_, "foreign datagrams are miscounted");
    require(counters.senders == senders_, "senders are miscounted");
    require(all.size() <= packetsMost, "more packets wait than may");
    require(all.held() <= RtpSequence::windowMost, "more datagrams are held than may");
    const uint64_t gone = counters.packets + all.size() + counters.dropped;
    require(gone <= packets_, "packets came from nowhere");
    require(counters.skippedBytes <= others_ * tsPacketSize, "skipped bytes came from nowhere");
    const uint64_t without = counters.duplicates + counters.late + all.held();
    const uint64_t left = packets_ + others_ - gone - counters.skippedBytes / tsPacketSize;
    require(without <= left && left <= without * 7, "packets are missing without a count");
  }

 private:
  uint64_t datagrams_ = 0, foreign_ = 0, packets_ = 0, others_ = 0, senders_ = 0;
  bool begun_ = false;
  uint32_t ssrc_ = 0;
};

class Taker {
 public:
  void take(DatagramPackets &all, size_t most) {
    TsPacket packet;
    uint64_t cameNs = 0;
    for (size_t i = 0; i < most && all.next(packet, cameNs); ++i) {
      require(packet[0] == 0x47, "a packet begins without a sync byte");
      require(cameNs >= cameNs_, "the times of the packets fall");
      cameNs_ = cameNs;
    }
  }

 private:
  uint64_t cameNs_ = 0;
};

void checkPackets(Input input) {
  DatagramPackets all(packetsMost);
  Maker maker;
  Ledger ledger;
  Taker taker;
  for (uint64_t nowNs = 0; input.left() > 0;) {
    const uint32_t act = input.byte();
    nowNs += (act & 7) == 7 ? input.below(60) * ms : act & 7;
    const bool cut = (act & 0xF8) == 0xF8;
    const Bytes bytes = maker.next(input);
    ledger.take(contentOf(bytes, cut));
    all.take(bytes.data(), bytes.size(), cut, nowNs);
    ledger.check(all);
    taker.take(all, act / 8 % 16);
    if ((act & 0x80) != 0) {
      all.expire(nowNs);
    }
    ledger.check(all);
  }
  all.expire(UINT64_MAX);
  taker.take(all, SIZE_MAX);
  ledger.check(all);
  // One that may be the first of a restart waits for the next.
  require(all.held() <= 1, "datagrams are held for good");
}

// Numbers of one sender that stay within the window: what comes out is all that came, in order and
// once, and what did not come is lost.
void checkOrder(Input input) {
  const uint16_t first = input.word();
  std::vector<uint32_t> out;
  RtpSequence rtp([&out](const uint8_t *payload, size_t, uint64_t) {
    out.push_back(payload[0] | payload[1] << 8 | payload[2] << 16);
  });
  uint32_t next = 0;  // in order
  std::set<uint32_t> came;
  uint64_t taken = 0;
  while (input.left() > 0 || next == 0) {
    const uint32_t step = next == 0 ? 0 : input.byte();
    const uint32_t number = step < 160 ? next + step / 64 : next - std::min(next, step - 160);
    const Bytes payload{static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
                        static_cast<uint8_t>(number >> 16)};
    chassis::RtpHeader header;
    header.sequence = static_cast<uint16_t>(first + number);
    rtp.take(header, payload.data(), payload.size(), 0);
    ++taken;
    came.insert(number);
    next = std::max(next, number + 1);
  }
  rtp.expire(UINT64_MAX);
  const chassis::RtpCounters &counters = rtp.counters();
  require(rtp.held() == 0, "datagrams are held for good");
  require(std::adjacent_find(out.begin(), out.end(), std::greater_equal<>()) == out.end(),
          "payloads are out of order, or doubled");
  require(std::includes(came.begin(), came.end(), out.begin(), out.end()), "a payload was made up");
  require(taken == out.size() + counters.duplicates + counters.late, "a datagram is not counted");
  require(next == out.size() + counters.lost, "a number is neither delivered nor lost");
  require(counters.reordered <= out.size() && counters.senders == 1, "counted too often");
  require(came.size() <= out.size() + counters.late, "one that came was dropped as a duplicate");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  if (input.flag()) {
    checkOrder(input);
  } else {
    checkPackets(input);
  }
  return 0;
}
