// How programs are told what a fact that is one of a few is.
#include <cstddef>
#include <iterator>

#include "event/CamFacts.h"
#include "event/CheckFacts.h"
#include "event/LineFacts.h"
#include "event/StreamFacts.h"

namespace chassis::event {
namespace {

// In the order of the enumeration, of which `last` is the last one.
template <auto last, std::size_t count>
constexpr const char *pick(const char *const (&names)[count], decltype(last) value) {
  static_assert(count == static_cast<std::size_t>(last) + 1);
  return names[static_cast<std::size_t>(value)];
}

}  // namespace

const char *nameOf(NoEffectReason reason) {
  constexpr const char *names[] = {"program_not_in_stream", "not_assigned", "pid_not_in_stream",
                                   "not_judged"};
  return pick<NoEffectReason::NotJudged>(names, reason);
}

const char *nameOf(WriterGoneReason reason) {
  constexpr const char *names[] = {"waits", "at_end", "unreadable"};
  return pick<WriterGoneReason::Unreadable>(names, reason);
}

const char *nameOf(ForeignReason reason) {
  constexpr const char *names[] = {"noise", "cut", "payload_type", "payload"};
  return pick<ForeignReason::Payload>(names, reason);
}

const char *nameOf(StartReason reason) {
  constexpr const char *names[] = {"inserted", "reset", "went_down"};
  return pick<StartReason::WentDown>(names, reason);
}

const char *nameOf(CommandFailure reason) {
  constexpr const char *names[] = {"not_run", "signal", "exit_status"};
  return pick<CommandFailure::ExitStatus>(names, reason);
}

const char *nameOf(Awaited awaited) {
  constexpr const char *names[] = {"ca_info", "reply"};
  return pick<Awaited::Reply>(names, awaited);
}

const char *nameOf(FeedReason reason) {
  constexpr const char *names[] = {"ecms_come",    "refused",       "not_entitled", "no_ecm",
                                   "damaged_ecms", "other_ecm_pid", "not_selected"};
  return pick<FeedReason::NotSelected>(names, reason);
}

const char *nameOf(Reading reading) {
  constexpr const char *names[] = {
      "measured",       "clear",          "without_packets", "not_yet",       "learning",
      "missing_behind", "nothing_behind", "silent_before",   "silent_behind", "silent_both"};
  return pick<Reading::SilentBoth>(names, reading);
}

}  // namespace chassis::event
