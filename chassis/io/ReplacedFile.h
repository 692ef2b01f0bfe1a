// A file that is written anew: it gets its name when it is whole, and until then what was there
// stays. A symbolic link stays one. What is no file, a FIFO or a character device, is written
// through.
#pragma once

#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace chassis {

// An output has lost data. The text names it and tells why.
class OutputLost : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One at a time: a signal that ends the program takes what is not whole away.
class ReplacedFile {
 public:
  // Throws InputError that names the path and tells why it cannot be written.
  explicit ReplacedFile(const std::string &path);
  ~ReplacedFile();  // without finish, nothing is left of what was written
  ReplacedFile(const ReplacedFile &) = delete;
  ReplacedFile &operator=(const ReplacedFile &) = delete;

  // Both throw OutputLost.
  void write(const void *bytes, std::size_t size);
  void finish();

 private:
  void openTemporary();
  void openThrough();
  void giveUp();
  [[noreturn]] void refuse(const std::string &why) const;
  void require(bool fine) const;

  const std::string path_;
  const std::string target_;  // behind all links, where it is a file or none yet
  std::string temporary_;     // empty: written through
  std::FILE *file_ = nullptr;
};

}  // namespace chassis
