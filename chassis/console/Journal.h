// What the timeline writes, event by event: shown, and the last events kept.
#pragma once

#include <deque>
#include <functional>
#include <streambuf>
#include <string>

namespace chassis {

class Journal : public std::streambuf {
 public:
  static constexpr std::size_t capacity = 1000;  // older events are forgotten

  // show: gets whole lines with their ends, as soon as the stream is flushed.
  explicit Journal(std::function<void(const std::string &)> show);

  // One for each event: a line without its end, or several rows of a narrow terminal.
  const std::deque<std::string> &lines() const { return lines_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char *text, std::streamsize size) override;
  int sync() override;

 private:
  void keep(const std::string &whole);

  const std::function<void(const std::string &)> show_;
  std::string pending_;
  std::deque<std::string> lines_;
};

}  // namespace chassis
