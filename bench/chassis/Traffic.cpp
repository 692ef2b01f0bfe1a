#include "Traffic.h"

Traffic trafficOf(const chassis::Card &card) {
  Traffic traffic;
  for (std::uint16_t pid = 0; pid < chassis::pidCount; ++pid) {
    traffic.packets += card.before(pid).packets;
    traffic.scrambled += card.before(pid).scrambled;
    traffic.left += card.behind(pid).scrambled;
    traffic.noise += card.behind(pid).lastPesBad ? 1 : 0;
  }
  return traffic;
}

Traffic operator+(const Traffic &a, const Traffic &b) {
  return {a.packets + b.packets, a.scrambled + b.scrambled, a.left + b.left, a.noise + b.noise};
}

Traffic since(const Traffic &earlier, const Traffic &later) {
  return {later.packets - earlier.packets, later.scrambled - earlier.scrambled,
          later.left - earlier.left, later.noise};
}
