#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "Cases.h"
#include "Told.h"

namespace {

using Call = std::tuple<std::string, std::uint32_t, std::uint32_t, std::uint32_t>;
std::vector<Call> calls;

std::vector<Call> callsOf(void (*function)()) {
  calls.clear();
  function();
  return calls;
}

constexpr std::size_t programs = 32;
constexpr std::size_t pids = 32 * 32;
constexpr std::size_t lists = programs + pids;
constexpr std::size_t cams = 2;
constexpr std::size_t entries = 32;

// A cycle beside its PIDs: per CAM 20 to match and schedule, 4 and the form for the CA PIDs, 10 to
// measure and 7 for the reset policy; per card the table, 6 for the controller and the clear.
constexpr std::size_t cycleFixed = cams * (20 + 5 + entries + 10 + 7) + 1 + 6 + 1;

constexpr std::array<std::size_t, caseCount> formula = {
    cycleFixed + cams * pids * 2,
    cycleFixed + cams *pids *(2 + 3 * entries),
    6 + lists *entries,
    3 + pids + 0x2000 + 2 + 2 * pids / 2,
    1,
    3 + lists *entries,
    9 * 3,
};

TEST(PlatformCalls, FloorMakesTheModulesCallsInItsOrder) {
  for (const Case &each : cases) {
    loadCard(0, each.load);
    camStatusCheck(0);
    const std::vector<Call> module = callsOf(each.module);
    EXPECT_FALSE(module.empty()) << each.name;
    EXPECT_TRUE(module == callsOf(each.floor)) << each.name;
  }
}

void expectCounts(const std::array<std::size_t, caseCount> &expected) {
  for (std::size_t i = 0; i < caseCount; ++i) {
    loadCard(0, cases[i].load);
    camStatusCheck(0);
    EXPECT_EQ(callsOf(cases[i].module).size(), expected[i]) << cases[i].name;
  }
}

TEST(PlatformCalls, AreAsManyAsTheFormulaSays) {
  expectCounts(formula);
}

TEST(PlatformCalls, AreTheseNumbers) {
  expectCounts({4252, 200860, 33798, 10245, 1, 33795, 27});
}

}  // namespace

void told(const char *name, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
  calls.emplace_back(name, a, b, c);
}
