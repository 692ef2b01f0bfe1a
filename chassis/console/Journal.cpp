#include "console/Journal.h"

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

// What came at once is one event, on however many rows.
void Journal::keep(const std::string &whole) {
  lines_.push_back(whole.substr(0, whole.size() - 1));
  while (lines_.size() > capacity) {
    lines_.pop_front();
  }
}

}  // namespace chassis
