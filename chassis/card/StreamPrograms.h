// Which programs stream files carry and whether they tell their bitrate, read no further than the
// question needs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/LongWork.h"

namespace chassis {

class StreamPrograms {
 public:
  // begin: of each reading of a file, which asks what it returns; null: nobody is asked.
  explicit StreamPrograms(BeginWork begin = nullptr) : begin_(std::move(begin)) {}

  // Throws InputError that names the file: not readable, empty, no transport stream, no PAT, no
  // program with a PMT; and Interrupted. What is wrong behind the first tables is not seen.
  void require(const std::string &path);

  // Throws as require does, and where the PCRs do not tell the bitrate: with the words of
  // scanStream.
  void requireBitrate(const std::string &path);

  // Of a file that require has let pass: whether any table of it has the program. Throws
  // Interrupted.
  bool carries(const std::string &path, std::uint16_t program);

  // Of such a file: the programs of its first tables.
  const std::vector<std::uint16_t> &first(const std::string &path);

 private:
  struct Known {
    std::vector<std::uint16_t> first;
    std::vector<std::uint16_t> all;  // empty until it is asked for
    std::optional<std::string> bitrateTrouble;
  };
  GoOn begun() const;

  const BeginWork begin_;
  std::map<std::string, Known> files_;
};

}  // namespace chassis
