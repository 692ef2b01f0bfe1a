// UDP sockets for the streams that a URL names.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "io/Url.h"

namespace chassis {

// Closed with its owner; no call on it waits.
class Socket {
 public:
  explicit Socket(bool v6);  // without a descriptor, errno tells why
  ~Socket();
  Socket(Socket &&other) noexcept;
  Socket &operator=(Socket &&other) noexcept;
  Socket(const Socket &) = delete;
  Socket &operator=(const Socket &) = delete;

  int file() const { return file_; }

  // False: errno tells why.
  template <typename Value>
  bool set(int level, int option, const Value &value) const {
    return setsockopt(file_, level, option, &value, sizeof value) == 0;
  }

 private:
  int file_;
};

// The interface that the URL names, as the kernel counts them; 0: it names none, or none is there.
unsigned interfaceOf(const Url &url);

constexpr std::uint32_t usualReceiveBuffer = 4 << 20;  // bytes
constexpr std::size_t datagramBatch = 64;              // that one call of the kernel moves

// Bound, and a member of the group. Throws InputError that names the URL and what would be right.
Socket openReceiver(const Url &url);

// How many bytes its receive buffer was asked to have, and how many it has got.
struct ReceiveBuffer {
  std::uint32_t asked;
  std::uint32_t got;
};
ReceiveBuffer receiveBufferOf(const Socket &socket, const Url &url);

// Connected to where the URL leads. Throws likewise.
Socket openSender(const Url &url);

}  // namespace chassis
