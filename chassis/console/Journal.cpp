#include "console/Journal.h"

#include <sstream>

namespace chassis {

Journal::Journal(std::function<void(const std::string &)> show) : show_(std::move(show)) {}

Journal::int_type Journal::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    pending_ += traits_type::to_char_type(c);
  }
  return traits_type::not_eof(c);
}

std::streamsize Journal::xsputn(const char *text, std::streamsize size) {
  pending_.append(text, static_cast<std::size_t>(size));
  return size;
}

int Journal::sync() {
  const std::size_t end = pending_.rfind('\n') + 1;
  if (end > 0) {
    const std::string whole = pending_.substr(0, end);
    pending_.erase(0, end);
    keep(whole);
    show_(whole);
  }
  return 0;
}

void Journal::keep(const std::string &whole) {
  std::istringstream stream(whole);
  for (std::string line; std::getline(stream, line);) {
    lines_.push_back(line);
  }
  while (lines_.size() > capacity) {
    lines_.pop_front();
  }
}

}  // namespace chassis
