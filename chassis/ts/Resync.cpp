#include "ts/Resync.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace chassis {
namespace {

// Less than these stand by chance in any bytes.
constexpr std::size_t fewSyncs = 3;

// The next sync byte from an offset on; end when there is none before it.
std::size_t nextSync(const std::uint8_t *bytes, std::size_t offset, std::size_t end) {
  const void *found = offset < end ? std::memchr(bytes + offset, syncByte, end - offset) : nullptr;
  return found == nullptr
             ? end
             : static_cast<std::size_t>(static_cast<const std::uint8_t *>(found) - bytes);
}

}  // namespace

// How many packets in a row have their sync byte from here on, five at most; 0: one has none. The
// window from here on is there, but for the last bytes.
std::size_t Resync::row(const View &view, std::size_t offset, const Form &form) {
  std::size_t syncs = 0;
  for (; offset < view.size && syncs < syncsInARow; offset += form.size, ++syncs) {
    if (view.bytes[offset] != syncByte) {
      return 0;
    }
  }
  return syncs;
}

// Bytes at the same distance that are no sync bytes have others beside them. The upper two bytes of
// a time stamp stand still for many packets, and those of the packets follow three or four further
// on. Lines of a text, and records, come again after a part of 192 or 204 bytes; 188 has next to
// none.
bool Resync::hasTwin(const View &view, std::size_t offset, const Form &form) {
  return std::any_of(std::begin(form.twins), std::end(form.twins), [&](std::size_t further) {
    return further > 0 && row(view, offset + further, form) >= fewSyncs - 1;
  });
}

// Whether what is left is packets and nothing else, and may be.
bool Resync::isLast(const View &view, std::size_t offset, const Form &form) const {
  const bool whole = (view.size - offset + form.before) % form.size == 0;
  const bool plain = form.size == tsPacketSize;
  const bool all = !anyPacket_ && gap_ == 0 && offset == form.before;
  return (all && (plain || whole)) || (anyPacket_ && whole && (plain || form.size == form_.size));
}

bool Resync::begins(const View &view, std::size_t offset, const Form &form) const {
  const std::size_t syncs = row(view, offset, form);
  return syncs >= fewSyncs ? !hasTwin(view, offset, form) : syncs > 0 && isLast(view, offset, form);
}

// The size of the last packet goes before the others.
const Resync::Form *Resync::formAt(const View &view, std::size_t offset) const {
  if (begins(view, offset, form_)) {
    return &form_;
  }
  const auto *const form = std::find_if(std::begin(forms), std::end(forms), [&](const Form &each) {
    return begins(view, offset, each);
  });
  return form == std::end(forms) ? nullptr : form;
}

// The bytes of the gap that belong to the packet before it. Where the size changes to 204, the
// first packet has been taken for one of the size before.
std::size_t Resync::ownBehind(const Form &next) const {
  const bool distance = anyPacket_ && gap_ == next.behind;
  return std::min<std::size_t>(gap_, distance ? next.behind : form_.behind);
}

Resync::Step Resync::take(std::size_t bytes, const Form &form) {
  gap_ += bytes;
  const std::size_t rest = gap_ - ownBehind(form);
  skipped_ += rest - std::min(rest, form.before);
  gap_ = 0;
  form_ = form;
  inStep_ = anyPacket_ = true;
  return {bytes, true};
}

Resync::Step Resync::pass(std::size_t bytes, bool last) {
  gap_ += bytes;
  inStep_ = inStep_ && bytes == 0;
  if (last) {
    skipped_ += gap_ - ownBehind(form_);
    gap_ = 0;
  }
  return {bytes, false};
}

Resync::Step Resync::search(const View &view) {
  const std::size_t needed = view.last ? tsPacketSize : window;
  if (view.size < needed) {
    return pass(view.last ? view.size : 0, view.last);
  }
  const std::size_t end = view.size - needed + 1;
  for (std::size_t offset = nextSync(view.bytes, 0, end); offset < end;
       offset = nextSync(view.bytes, offset + 1, end)) {
    if (const Form *form = formAt(view, offset)) {
      return take(offset, *form);
    }
  }
  return pass(view.last ? view.size : end, view.last);
}

}  // namespace chassis
