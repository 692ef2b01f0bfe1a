// An open file as a stream buffer, which tells a read that fails from the end: it throws
// std::system_error. The file stays the caller's, at the place up to which it was read.
#pragma once

#include <unistd.h>

#include <array>
#include <cerrno>
#include <streambuf>
#include <system_error>

namespace chassis {

class DescriptorText : public std::streambuf {
 public:
  explicit DescriptorText(int file) : file_(file) {}

 protected:
  int_type underflow() override {
    const ssize_t size = readSome();
    if (size < 0) {
      throw std::system_error(errno, std::generic_category());
    }
    setg(buffer_.data(), buffer_.data(), buffer_.data() + size);
    return size == 0 ? traits_type::eof() : traits_type::to_int_type(buffer_[0]);
  }

 private:
  ssize_t readSome() {
    ssize_t size = 0;
    do {
      size = ::read(file_, buffer_.data(), buffer_.size());
    } while (size < 0 && errno == EINTR);
    return size;
  }

  const int file_;
  std::array<char, 4096> buffer_{};
};

}  // namespace chassis
