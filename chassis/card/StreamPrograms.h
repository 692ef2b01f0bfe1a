// Which programs stream files carry, read no further than the question needs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace chassis {

class StreamPrograms {
 public:
  // Throws InputError that names the file: not readable, empty, no transport stream, no PAT, no
  // program with a PMT. What is wrong behind the first tables is not seen.
  void require(const std::string &path);

  // Of a file that require has let pass: whether any table of it has the program.
  bool carries(const std::string &path, std::uint16_t program);

  // Of such a file: the programs of its first tables.
  const std::vector<std::uint16_t> &first(const std::string &path);

 private:
  struct Known {
    std::vector<std::uint16_t> first;
    std::vector<std::uint16_t> all;  // empty until it is asked for
  };
  std::map<std::string, Known> files_;
};

}  // namespace chassis
