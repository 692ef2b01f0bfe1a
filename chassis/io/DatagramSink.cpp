#include "io/DatagramSink.h"

#include <bitstream/ietf/rtp.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <utility>

#include "base/InputError.h"
#include "base/Units.h"
#include "ts/Rtp.h"

namespace chassis {
namespace {

constexpr std::uint64_t openAgainNs = nsPerSecond;
constexpr std::uint64_t endMarginNs = 100 * nsPerMs;

// The socket is as it should be, and the next datagram may find its way.
bool passesByItself(int error) {
  return error == EAGAIN || error == ENOBUFS || error == ENOMEM || error == ECONNREFUSED;
}

}  // namespace

DatagramSink::DatagramSink(const Url &url, ToReal toReal, Loop &loop)
    : url_(url), toReal_(std::move(toReal)), loop_(loop), socket_(openSender(url)) {
  static_assert(headerMost == RTP_HEADER_SIZE);
  std::random_device random;
  ssrc_ = random();
  sequence_ = static_cast<std::uint16_t>(random());
  timed_ = loop.add(*this);
}

std::uint64_t DatagramSink::leavesNs(const Datagram &datagram) const {
  return toReal_(datagram.cameNs + url_.delayMs * nsPerMs);
}

// What came when it has to leave already goes with the next one.
bool DatagramSink::takesMore(std::uint64_t cameNs) const {
  return !waiting_.empty() && waiting_.back().packets < packetsPerDatagram &&
         cameNs <= waiting_.back().cameNs + url_.delayMs * nsPerMs;
}

// Descrambling for this output has kept all the others from the loop.
void DatagramSink::write(const TsPacket *packets, const std::uint64_t *cameNs, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    writePacket(packets[i], cameNs[i]);
  }
  loop_.serveTimed();
}

void DatagramSink::writePacket(const TsPacket &packet, std::uint64_t cameNs) {
  if (!takesMore(cameNs)) {
    if (waiting_.size() >= heldMost) {
      lose(1, "more waits for its time than there is room for");
      return;
    }
    Datagram &begun = waiting_.emplace_back();
    begun.cameNs = cameNs;
    begun.packets = 0;
  }
  Datagram &datagram = waiting_.back();
  const std::size_t at = headerMost + datagram.packets * tsPacketSize;
  std::copy(packet.begin(), packet.end(), datagram.bytes.data() + at);
  ++datagram.packets;
}

std::uint64_t DatagramSink::dueNs() const {
  return waiting_.empty() ? Loop::never : leavesNs(waiting_.front());
}

std::size_t DatagramSink::countDue(std::uint64_t nowNs) const {
  std::size_t due = 0;
  while (due < std::min(datagramBatch, waiting_.size()) && leavesNs(waiting_[due]) <= nowNs) {
    ++due;
  }
  return due;
}

void DatagramSink::serve(std::uint64_t nowNs) {
  for (std::size_t due = countDue(nowNs); due > 0; due = countDue(nowNs)) {
    const std::size_t count = sendBatch(due);
    const int error = errno;
    sent(count);
    if (count == 0) {
      cannotSend(error);
    }
  }
}

// The time stamp is that of the first packet's arrival.
void DatagramSink::writeHeader(Datagram &datagram, std::uint16_t sequence) const {
  std::uint8_t *header = datagram.bytes.data();
  constexpr std::uint64_t ticks = rtpTicksPerMs / 10;
  constexpr std::uint64_t ns = nsPerMs / 10;
  rtp_set_hdr(header);
  rtp_set_type(header, RTP_TYPE_TS);
  rtp_set_seqnum(header, sequence);
  rtp_set_timestamp(header, static_cast<std::uint32_t>(datagram.cameNs * ticks / ns));
  rtp_set_int_ssrc(header, ssrc_);
}

// How many were sent; 0: errno tells why not the first.
std::size_t DatagramSink::sendBatch(std::size_t most) {
  std::array<mmsghdr, datagramBatch> messages{};
  std::array<iovec, datagramBatch> vectors{};
  for (std::size_t i = 0; i < most; ++i) {
    Datagram &datagram = waiting_[i];
    writeHeader(datagram, static_cast<std::uint16_t>(sequence_ + i));
    vectors[i] = {datagram.bytes.data() + headerMost - headerSize(),
                  headerSize() + datagram.packets * tsPacketSize};
    messages[i].msg_hdr.msg_iov = &vectors[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  const int count =
      sendmmsg(socket_.file(), messages.data(), static_cast<unsigned>(most), MSG_DONTWAIT);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void DatagramSink::sent(std::size_t count) {
  const std::uint64_t nowNs = Loop::nowNs();
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t leaves = leavesNs(waiting_.front());
    const std::uint64_t behind = nowNs - std::min(nowNs, leaves);
    ++lateness_.datagrams;
    lateness_.late += behind > lateNs ? 1 : 0;
    lateness_.worstNs = std::max(lateness_.worstNs, behind);
    written_ += waiting_.front().packets;
    waiting_.pop_front();
    ++sequence_;
  }
}

// Its sequence number is gone too: a receiver counts what could not be sent as lost.
void DatagramSink::cannotSend(int error) {
  lose(waiting_.front().packets, std::strerror(error));
  waiting_.pop_front();
  ++sequence_;
  if (!passesByItself(error)) {
    openAgain();
  }
}

// The interface may be another one of the same name.
void DatagramSink::openAgain() {
  const std::uint64_t nowNs = Loop::nowNs();
  if (nowNs - openedNs_ < openAgainNs) {
    return;
  }
  openedNs_ = nowNs;
  try {
    socket_ = openSender(url_);
  } catch (const InputError &) {
    // The next datagram that cannot be sent tries again.
  }
}

void DatagramSink::lose(std::size_t packets, const std::string &why) {
  lost_ += packets;
  if (trouble_.empty()) {
    trouble_ = why;
  }
}

bool DatagramSink::letGo() {
  if (letGoNs_ == 0) {
    letGoNs_ = Loop::nowNs() + url_.delayMs * nsPerMs + endMarginNs;
  }
  return waiting_.empty() || dueNs() > letGoNs_;
}

void DatagramSink::end() {
  while (!letGo()) {
    Loop().wait(dueNs());
    serve(Loop::nowNs());
  }
  serve(Loop::never - 1);
  timed_.reset();
}

}  // namespace chassis
