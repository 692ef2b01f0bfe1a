#include "io/Socket.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/InputError.h"

namespace chassis {
namespace {

constexpr std::uint32_t sendBuffer = 4 << 20;  // bytes

struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;

  const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage); }
};

SocketAddress addressV4(const std::string &numeric, std::uint16_t port) {
  SocketAddress address;
  auto *in = reinterpret_cast<sockaddr_in *>(&address.storage);
  in->sin_family = AF_INET;
  in->sin_port = htons(port);
  inet_pton(AF_INET, numeric.c_str(), &in->sin_addr);
  address.size = sizeof *in;
  return address;
}

SocketAddress addressV6(const std::string &numeric, std::uint16_t port, unsigned iface) {
  SocketAddress address;
  auto *in = reinterpret_cast<sockaddr_in6 *>(&address.storage);
  in->sin6_family = AF_INET6;
  in->sin6_port = htons(port);
  in->sin6_scope_id = iface;
  inet_pton(AF_INET6, numeric.c_str(), &in->sin6_addr);
  address.size = sizeof *in;
  return address;
}

SocketAddress addressOf(const Url &url, const std::string &numeric, std::uint16_t port) {
  return url.v6 ? addressV6(numeric, port, interfaceOf(url)) : addressV4(numeric, port);
}

int levelOf(const Url &url) {
  return url.v6 ? IPPROTO_IPV6 : IPPROTO_IP;
}

[[noreturn]] void refuse(const Url &url, const std::string &what, int error,
                         const std::string &right) {
  const std::string why = std::strerror(error);
  throw InputError("'" + url.text + "' " + what + ": " + why + (right.empty() ? "" : "; " + right));
}

void require(bool done, const Url &url, const std::string &what, const std::string &right = "") {
  if (const int error = errno; !done) {
    refuse(url, what, error, right);
  }
}

std::string bindAdvice(const Url &url, int error) {
  switch (error) {
    case EADDRNOTAVAIL:
      return "an address of this machine is needed, or " +
             std::string(url.v6 ? "[::]" : "0.0.0.0") + " for all of them";
    case EADDRINUSE:
      return "another program receives there";
    case EACCES:
      return "a port from 1024 on is free for everybody";
    default:
      return "";
  }
}

std::string routeAdvice(const Url &url) {
  return url.iface.empty() ? "an interface that leads there is named by ?iface="
                           : "an interface that leads there is needed, not " + url.iface;
}

void join(const Socket &socket, const Url &url) {
  const SocketAddress group = addressOf(url, url.address, 0);
  bool joined = false;
  if (url.source.empty()) {
    group_req request{};
    request.gr_interface = interfaceOf(url);
    request.gr_group = group.storage;
    joined = socket.set(levelOf(url), MCAST_JOIN_GROUP, request);
  } else {
    group_source_req request{};
    request.gsr_interface = interfaceOf(url);
    request.gsr_group = group.storage;
    request.gsr_source = addressOf(url, url.source, 0).storage;
    joined = socket.set(levelOf(url), MCAST_JOIN_SOURCE_GROUP, request);
  }
  require(joined, url, "cannot be joined", routeAdvice(url));
}

// Of a group, other programs may receive as well.
void prepareGroup(const Socket &socket, const Url &url) {
  socket.set(SOL_SOCKET, SO_REUSEADDR, 1);
  // Without this it would hear every group of its port that anybody on this machine has joined.
  socket.set(levelOf(url), url.v6 ? IPV6_MULTICAST_ALL : IP_MULTICAST_ALL, 0);
}

void useInterface(const Socket &socket, const Url &url) {
  const bool needed = !url.multicast && !url.iface.empty();
  require(!needed || setsockopt(socket.file(), SOL_SOCKET, SO_BINDTODEVICE, url.iface.c_str(),
                                static_cast<socklen_t>(url.iface.size())) == 0,
          url, "cannot use " + url.iface);
}

void askForBuffer(const Socket &socket, const Url &url) {
  const int bytes = static_cast<int>(url.rcvbuf.value_or(usualReceiveBuffer));
  if (!socket.set(SOL_SOCKET, SO_RCVBUFFORCE, bytes)) {
    socket.set(SOL_SOCKET, SO_RCVBUF, bytes);
  }
}

Socket openSocket(const Url &url) {
  Socket socket(url.v6);
  require(socket.file() >= 0, url, "gets no socket");
  useInterface(socket, url);
  return socket;
}

void setHops(const Socket &socket, const Url &url) {
  const int hops = url.ttl.value_or(0);
  const int v4 = url.multicast ? IP_MULTICAST_TTL : IP_TTL;
  const int v6 = url.multicast ? IPV6_MULTICAST_HOPS : IPV6_UNICAST_HOPS;
  require(!url.ttl || socket.set(levelOf(url), url.v6 ? v6 : v4, hops), url, "cannot have its ttl");
}

void setClass(const Socket &socket, const Url &url) {
  constexpr int ecnBits = 2;
  const int value = url.dscp.value_or(0) << ecnBits;
  require(!url.dscp || socket.set(levelOf(url), url.v6 ? IPV6_TCLASS : IP_TOS, value), url,
          "cannot have its dscp");
}

void setSendingInterface(const Socket &socket, const Url &url) {
  if (!url.multicast || url.iface.empty()) {
    return;
  }
  ip_mreqn v4{};
  v4.imr_ifindex = static_cast<int>(interfaceOf(url));
  const bool set = url.v6 ? socket.set(IPPROTO_IPV6, IPV6_MULTICAST_IF, v4.imr_ifindex)
                          : socket.set(IPPROTO_IP, IP_MULTICAST_IF, v4);
  require(set, url, "cannot use " + url.iface);
}

}  // namespace

Socket::Socket(bool v6)
    : file_(::socket(v6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}

Socket::~Socket() {
  if (file_ >= 0) {
    ::close(file_);
  }
}

Socket::Socket(Socket &&other) noexcept : file_(std::exchange(other.file_, -1)) {}

Socket &Socket::operator=(Socket &&other) noexcept {
  std::swap(file_, other.file_);
  return *this;
}

unsigned interfaceOf(const Url &url) {
  return url.iface.empty() ? 0 : if_nametoindex(url.iface.c_str());
}

Socket openReceiver(const Url &url) {
  Socket socket = openSocket(url);
  if (url.multicast) {
    prepareGroup(socket, url);
  }
  if (url.v6) {
    socket.set(IPPROTO_IPV6, IPV6_V6ONLY, 1);
  }
  askForBuffer(socket, url);
  socket.set(SOL_SOCKET, SO_RXQ_OVFL, 1);
  socket.set(SOL_SOCKET, SO_TIMESTAMPNS, 1);
  const SocketAddress address = addressOf(url, url.address, url.port);
  if (bind(socket.file(), address.get(), address.size) != 0) {
    refuse(url, "cannot be received", errno, bindAdvice(url, errno));
  }
  if (url.multicast) {
    join(socket, url);
  }
  return socket;
}

// The kernel counts its own overhead in, as much again.
ReceiveBuffer receiveBufferOf(const Socket &socket, const Url &url) {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  getsockopt(socket.file(), SOL_SOCKET, SO_RCVBUF, &bytes, &size);
  return {url.rcvbuf.value_or(usualReceiveBuffer), static_cast<std::uint32_t>(bytes) / 2};
}

Socket openSender(const Url &url) {
  Socket socket = openSocket(url);
  const int bytes = sendBuffer;
  if (!socket.set(SOL_SOCKET, SO_SNDBUFFORCE, bytes)) {
    socket.set(SOL_SOCKET, SO_SNDBUF, bytes);
  }
  setHops(socket, url);
  setClass(socket, url);
  setSendingInterface(socket, url);
  const SocketAddress address = addressOf(url, url.address, url.port);
  require(connect(socket.file(), address.get(), address.size) == 0, url, "cannot be reached",
          routeAdvice(url));
  return socket;
}

}  // namespace chassis
