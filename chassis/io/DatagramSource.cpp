#include "io/DatagramSource.h"

#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/InputError.h"
#include "base/Units.h"
#include "kernel/Loop.h"

namespace chassis {
namespace {

constexpr std::size_t controlMost = 128;
constexpr std::uint64_t tellAgainMs = 1000;
constexpr std::uint64_t lookMs = 1000;

std::int64_t nsOf(const timespec &time) {
  return static_cast<std::int64_t>(time.tv_sec) * nsPerSecond + time.tv_nsec;
}

std::int64_t realtimeNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return nsOf(now);
}

// How far CLOCK_REALTIME is ahead of CLOCK_MONOTONIC. The two are read one after the other, and who
// is set aside in between finds them apart by that: of a few readings the closest counts.
std::int64_t realtimeAheadNs() {
  constexpr int readings = 4;
  constexpr std::uint64_t closeNs = 10000;
  std::uint64_t closest = UINT64_MAX;
  std::int64_t ahead = 0;
  for (int i = 0; i < readings && closest > closeNs; ++i) {
    const std::uint64_t before = Loop::nowNs();
    const std::int64_t realtime = realtimeNs();
    const std::uint64_t apart = Loop::nowNs() - before;
    if (apart < closest) {
      closest = apart;
      ahead = realtime - static_cast<std::int64_t>(before);
    }
  }
  return ahead;
}

// What the kernel tells beside a datagram.
struct Beside {
  std::optional<std::int64_t> realtimeNs;
  std::optional<std::uint32_t> overflow;
};

template <typename Value>
Value valueOf(const cmsghdr *control) {
  Value value{};
  std::memcpy(&value, CMSG_DATA(control), sizeof value);
  return value;
}

Beside besideOf(const msghdr &message) {
  auto *header = const_cast<msghdr *>(&message);
  Beside beside;
  for (cmsghdr *control = CMSG_FIRSTHDR(header); control != nullptr;
       control = CMSG_NXTHDR(header, control)) {
    if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SO_TIMESTAMPNS) {
      beside.realtimeNs = nsOf(valueOf<timespec>(control));
    } else if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SO_RXQ_OVFL) {
      beside.overflow = valueOf<std::uint32_t>(control);
    }
  }
  return beside;
}

}  // namespace

struct DatagramSource::Batch {
  std::array<mmsghdr, datagramBatch> messages{};
  std::array<iovec, datagramBatch> vectors{};
  std::array<std::array<std::uint8_t, datagramMost>, datagramBatch> bytes;
  alignas(cmsghdr) std::array<std::array<std::uint8_t, controlMost>, datagramBatch> control;

  void prepare() {
    for (std::size_t i = 0; i < datagramBatch; ++i) {
      vectors[i] = {bytes[i].data(), bytes[i].size()};
      msghdr &message = messages[i].msg_hdr;
      message = {};
      message.msg_iov = &vectors[i];
      message.msg_iovlen = 1;
      message.msg_control = control[i].data();
      message.msg_controllen = control[i].size();
    }
  }
};

void DatagramSource::BatchEnd::operator()(Batch *batch) const {
  delete batch;
}

DatagramSource::DatagramSource(const Url &url, ToChassis toChassis, Tell tell)
    : url_(url),
      toChassis_(std::move(toChassis)),
      tell_(std::move(tell)),
      socket_(openReceiver(url)),
      interface_(interfaceOf(url)),
      batch_(new Batch),
      emptyNs_(Loop::nowNs()) {}

std::size_t DatagramSource::due(std::uint64_t nowMs) {
  watchInterface(nowMs);
  receive();
  packets_.expire(Loop::nowNs());
  tellNotices(nowMs);
  while (due_ < packets_.size() && toChassis_(packets_.cameNs(due_)) <= nowMs * nsPerMs) {
    ++due_;
  }
  return due_;
}

bool DatagramSource::next(TsPacket &packet, std::uint64_t &cameNs) {
  std::uint64_t realNs = 0;
  if (!packets_.next(packet, realNs)) {
    return false;
  }
  due_ -= due_ > 0 ? 1 : 0;
  handedNs_ = std::max(handedNs_, toChassis_(realNs));
  cameNs = handedNs_;
  return true;
}

// ------------------------------------------------------------------------------------------------
// The socket
// ------------------------------------------------------------------------------------------------

void DatagramSource::receive() {
  const std::uint64_t beginNs = Loop::nowNs();
  const std::int64_t ahead = realtimeAheadNs();
  std::size_t batch = datagramBatch;
  for (std::size_t all = 0; batch == datagramBatch && all < datagramsPerCall; all += batch) {
    batch = receiveBatch(ahead);
  }
  if (batch < datagramBatch) {
    emptyNs_ = beginNs;
  }
}

std::size_t DatagramSource::receiveBatch(std::int64_t realtimeAhead) {
  batch_->prepare();
  const int count =
      recvmmsg(socket_.file(), batch_->messages.data(), datagramBatch, MSG_DONTWAIT, nullptr);
  const std::uint64_t nowNs = Loop::nowNs();
  for (int i = 0; i < count; ++i) {
    const auto at = static_cast<std::size_t>(i);
    take(batch_->messages[at], batch_->bytes[at].data(), nowNs, realtimeAhead);
  }
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

// The kernel's stamp is of a clock that somebody may set; what the socket did not have when it was
// last empty has come since then.
void DatagramSource::take(const mmsghdr &message, const std::uint8_t *bytes, std::uint64_t nowNs,
                          std::int64_t realtimeAhead) {
  const Beside beside = besideOf(message.msg_hdr);
  const auto now = static_cast<std::int64_t>(nowNs);
  const std::int64_t came = beside.realtimeNs ? *beside.realtimeNs - realtimeAhead : now;
  const std::int64_t bounded = std::clamp(came, static_cast<std::int64_t>(emptyNs_), now);
  countOverflow(beside.overflow.value_or(overflow_));
  packets_.take(bytes, message.msg_len, (message.msg_hdr.msg_flags & MSG_TRUNC) != 0,
                static_cast<std::uint64_t>(bounded));
}

void DatagramSource::countOverflow(std::uint32_t overflow) {
  packets_.countKernelLost(overflow - overflow_);
  overflow_ = overflow;
}

// ------------------------------------------------------------------------------------------------
// The interface
// ------------------------------------------------------------------------------------------------

void DatagramSource::watchInterface(std::uint64_t nowMs) {
  if (url_.iface.empty() || nowMs - interfaceLookMs_ < lookMs) {
    return;
  }
  interfaceLookMs_ = nowMs;
  const unsigned index = interfaceOf(url_);
  if (index == 0) {
    interfaceGone();
  } else if (index != interface_) {
    openAgain(index);
  }
}

void DatagramSource::interfaceGone() {
  interface_ = 0;
  if (!std::exchange(gone_, true)) {
    tell_({{}, event::InterfaceGone{{url_.text, url_.iface}}});
  }
}

// An interface of the same name is another one to the kernel, and the group is not joined there.
// Until that works, once a second.
void DatagramSource::openAgain(unsigned index) {
  try {
    socket_ = openReceiver(url_);
  } catch (const InputError &) {
    interfaceGone();
    return;
  }
  overflow_ = 0;
  interface_ = index;
  gone_ = false;
  tell_({{}, event::InterfaceBack{{url_.text, url_.iface}}});
}

// ------------------------------------------------------------------------------------------------
// What a person should know
// ------------------------------------------------------------------------------------------------

void DatagramSource::tellNotices(std::uint64_t nowMs) {
  if (!std::exchange(bufferTold_, true)) {
    tellBuffer();
  }
  tellForeign(nowMs);
  tellSender(nowMs);
}

void DatagramSource::tellBuffer() {
  const ReceiveBuffer buffer = receiveBufferOf(socket_, url_);
  if (buffer.got < buffer.asked) {
    tell_({{}, event::BufferSmall{url_.text, buffer.got, buffer.asked}});
  }
}

// Once, until none has come for a while.
void DatagramSource::tellForeign(std::uint64_t nowMs) {
  const std::uint64_t foreign = counters().foreign;
  if (foreign == foreignSeen_) {
    foreignTold_ = foreignTold_ && nowMs - foreignMs_ < tellAgainMs;
    return;
  }
  foreignSeen_ = foreign;
  foreignMs_ = nowMs;
  if (!std::exchange(foreignTold_, true)) {
    tell_({{}, event::InputForeign{url_.text, packets_.lastForeign()}});
  }
}

// Two senders at once would tell with every datagram.
void DatagramSource::tellSender(std::uint64_t nowMs) {
  const std::uint64_t senders = counters().senders;
  if (senders <= sendersTold_ || nowMs < senderTellMs_) {
    return;
  }
  sendersTold_ = senders;
  senderTellMs_ = nowMs + tellAgainMs;
  tell_({{}, event::SenderChanged{url_.text, senders}});
}

}  // namespace chassis
