#include "Traffic.h"

Traffic trafficOf(const chassis::Card &card) {
  Traffic traffic;
  for (std::uint16_t pid = 0; pid < chassis::pidCount; ++pid) {
    traffic.packets += card.before(pid).packets;
    traffic.scrambled += card.before(pid).scrambled;
    traffic.left += card.behind(pid).scrambled;
  }
  return traffic;
}

Traffic operator+(const Traffic &a, const Traffic &b) {
  return {a.packets + b.packets, a.scrambled + b.scrambled, a.left + b.left};
}

Traffic operator-(const Traffic &a, const Traffic &b) {
  return {a.packets - b.packets, a.scrambled - b.scrambled, a.left - b.left};
}
