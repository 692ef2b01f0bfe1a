// Datagrams for tests, and a network of the test's own to send them in.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "base/InputError.h"
#include "io/Socket.h"
#include "io/Url.h"
#include "ts/TsPacket.h"

namespace testing_datagrams {

using Bytes = std::vector<std::uint8_t>;

inline chassis::TsPacket packet(unsigned number) {
  chassis::TsPacket packet;
  packet.fill(static_cast<std::uint8_t>(number));
  packet[0] = 0x47;
  packet[4] = static_cast<std::uint8_t>(number >> 8);
  return packet;
}

// What is wrong, in the words of who is to be told; empty: nothing.
template <typename Act>
std::string errorOf(const Act &act) {
  try {
    act();
  } catch (const chassis::InputError &error) {
    return error.what();
  }
  return "";
}

inline unsigned numberOf(const chassis::TsPacket &packet) {
  return static_cast<unsigned>(packet[4]) << 8 | packet[5];
}

inline Bytes packets(unsigned first, unsigned count) {
  Bytes bytes;
  for (unsigned i = 0; i < count; ++i) {
    const chassis::TsPacket one = packet(first + i);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  return bytes;
}

inline Bytes rtp(unsigned sequence, const Bytes &payload, std::uint8_t ssrc = 1,
                 std::uint8_t payloadType = 33) {
  Bytes bytes{0x80,
              payloadType,
              static_cast<std::uint8_t>(sequence >> 8),
              static_cast<std::uint8_t>(sequence),
              0,
              0,
              0,
              0,
              0,
              0,
              0,
              ssrc};
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

inline std::vector<unsigned> numbers(unsigned first, unsigned count) {
  std::vector<unsigned> all(count);
  for (unsigned i = 0; i < count; ++i) {
    all[i] = first + i;
  }
  return all;
}

// False: it did not come true within the bound.
inline bool waitFor(const std::function<bool()> &condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A port that nobody has.
inline std::uint16_t freePort(bool v6 = false) {
  const chassis::Socket socket(v6);
  sockaddr_storage address{};
  address.ss_family = v6 ? AF_INET6 : AF_INET;
  socklen_t size = v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  EXPECT_EQ(bind(socket.file(), reinterpret_cast<sockaddr *>(&address), size), 0);
  EXPECT_EQ(getsockname(socket.file(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  return ntohs(v6 ? reinterpret_cast<sockaddr_in6 *>(&address)->sin6_port
                  : reinterpret_cast<sockaddr_in *>(&address)->sin_port);
}

// Sends datagrams as they are; `from` is the address that they come from.
class Sender {
 public:
  explicit Sender(const std::string &url, const std::string &from = "")
      : socket_(chassis::openSender(chassis::readUrl(url, chassis::Url::Use::Output))) {
    if (!from.empty()) {
      socket_ = bound(url, from);
    }
  }
  std::string address() const {
    sockaddr_in6 own{};
    socklen_t size = sizeof own;
    getsockname(socket_.file(), reinterpret_cast<sockaddr *>(&own), &size);
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET6, &own.sin6_addr, text.data(), text.size());
  }
  void send(const Bytes &bytes) const {
    ASSERT_EQ(::send(socket_.file(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()))
        << std::strerror(errno);
  }

 private:
  static chassis::Socket bound(const std::string &text, const std::string &from) {
    const chassis::Url url = chassis::readUrl(text, chassis::Url::Use::Output);
    chassis::Socket socket(false);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, from.c_str(), &address.sin_addr);
    EXPECT_EQ(bind(socket.file(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ip_mreqn iface{};
    iface.imr_ifindex = static_cast<int>(chassis::interfaceOf(url));
    EXPECT_TRUE(socket.set(IPPROTO_IP, IP_MULTICAST_IF, iface));
    inet_pton(AF_INET, url.address.c_str(), &address.sin_addr);
    address.sin_port = htons(url.port);
    EXPECT_EQ(connect(socket.file(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return socket;
  }

  chassis::Socket socket_;
};

// The address from which an interface sends IPv6, once it has one.
inline std::string addressV6(const std::string &interface) {
  std::string address = "::";
  EXPECT_TRUE(waitFor([&] {
    try {
      address = Sender("udp://[ff02::1]:1?iface=" + interface).address();
    } catch (const chassis::InputError &) {
    }
    return address != "::";
  }));
  return address;
}

// Receives what leaves; empty: nothing came within the bound.
class Receiver {
 public:
  explicit Receiver(const std::string &url)
      : socket_(chassis::openReceiver(chassis::readUrl(url, chassis::Url::Use::Input))) {}

  Bytes next(int boundMs = 60000) const {
    pollfd file{socket_.file(), POLLIN, 0};
    Bytes bytes(65536);
    const bool there = poll(&file, 1, boundMs) == 1;
    const ssize_t size = there ? recv(socket_.file(), bytes.data(), bytes.size(), 0) : 0;
    bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return bytes;
  }
  int file() const { return socket_.file(); }

 private:
  chassis::Socket socket_;
};

inline void setUp(const std::string &interface) {
  const chassis::Socket socket(false);
  ifreq request{};
  interface.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING | IFF_MULTICAST;
  ASSERT_EQ(ioctl(socket.file(), SIOCSIFFLAGS, &request), 0) << std::strerror(errno);
}

// From now on this process is alone in a network of its own, without a route to anywhere. Its
// addresses of IPv6 are usable at once.
inline void enterOwnNetwork() {
  ASSERT_TRUE(unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0)
      << "no network of its own: " << std::strerror(errno);
  setUp("lo");
  std::ofstream detection("/proc/sys/net/ipv6/conf/default/accept_dad");
  ASSERT_TRUE(detection << "0" << std::flush);
}

// A pair of interfaces that carries groups of both families, and can go away.
class Interface {
 public:
  explicit Interface(const std::string &name) : name_(name) { add(); }
  void add() const {
    Bytes request = message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    attribute(request, IFLA_IFNAME, name_);
    const std::size_t info = open(request, IFLA_LINKINFO);
    attribute(request, IFLA_INFO_KIND, "veth");
    const std::size_t data = open(request, IFLA_INFO_DATA);
    const std::size_t peer = open(request, VETH_INFO_PEER);
    request.resize(request.size() + sizeof(ifinfomsg));
    attribute(request, IFLA_IFNAME, name_ + "peer");
    close(request, peer);
    close(request, data);
    close(request, info);
    send(request);
    setUp(name_);
    setUp(name_ + "peer");
  }
  void remove() const {
    Bytes request = message(RTM_DELLINK, 0);
    attribute(request, IFLA_IFNAME, name_);
    send(request);
  }

 private:
  static Bytes message(std::uint16_t type, std::uint16_t flags) {
    Bytes bytes(NLMSG_SPACE(sizeof(ifinfomsg)));
    auto *header = reinterpret_cast<nlmsghdr *>(bytes.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    return bytes;
  }
  static std::size_t open(Bytes &bytes, std::uint16_t type) {
    const std::size_t at = bytes.size();
    bytes.resize(at + RTA_LENGTH(0));
    reinterpret_cast<rtattr *>(bytes.data() + at)->rta_type = type;
    return at;
  }
  static void close(Bytes &bytes, std::size_t at) {
    reinterpret_cast<rtattr *>(bytes.data() + at)->rta_len =
        static_cast<std::uint16_t>(bytes.size() - at);
    bytes.resize(NLMSG_ALIGN(bytes.size()));
  }
  static void attribute(Bytes &bytes, std::uint16_t type, const std::string &text) {
    const std::size_t at = open(bytes, type);
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back(0);
    close(bytes, at);
  }
  static void send(Bytes &bytes) {
    reinterpret_cast<nlmsghdr *>(bytes.data())->nlmsg_len =
        static_cast<std::uint32_t>(bytes.size());
    const int file = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    ASSERT_EQ(::send(file, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    struct {
      nlmsghdr header;
      nlmsgerr error;
      std::array<char, 1024> more;
    } answer{};
    ASSERT_GT(recv(file, &answer, sizeof answer, 0), 0);
    ASSERT_EQ(answer.error.error, 0) << std::strerror(-answer.error.error);
    ::close(file);
  }
  const std::string name_;
};

}  // namespace testing_datagrams
