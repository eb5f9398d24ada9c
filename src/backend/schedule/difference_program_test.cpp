#include "backend/schedule/difference_program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "backend/graph/random_graph.h"

namespace schedule {
namespace {

// Four variables from 0 to 4, bounds between them that often contradict each other: as a search of
// all values finds it.
TEST(DifferenceProgram, FindsTheBestValuesOfDrawnPrograms) {
  constexpr int kVariables = 5, kLast = 4;  // the first one is 0
  struct Bound {
    int from, to, least;
  };
  graph::RandomGraph draw(7);
  int impossible = 0;
  for (int round = 0; round < 400; ++round) {
    DifferenceProgram program;
    std::array<int, kVariables> costs{};
    std::vector<Bound> bounds;
    for (int v = 0; v < kVariables; ++v) {
      program.addVariable(draw.upTo(kLast));
      if (v == 0) continue;
      bounds.push_back({0, v, 0});
      bounds.push_back({v, 0, -kLast});
      costs[static_cast<std::size_t>(v)] = draw.upTo(9) - 5;
      costs[0] -= costs[static_cast<std::size_t>(v)];
    }
    for (int i = 0; i < 4; ++i) {
      const int from = draw.upTo(kVariables) - 1;
      const int to = (from + draw.upTo(kVariables - 1)) % kVariables;
      bounds.push_back({from, to, draw.upTo(2 * kLast) - kLast});
    }
    for (const Bound& bound : bounds) program.require(bound.from, bound.to, bound.least);
    for (int v = 0; v < kVariables; ++v) program.addCost(v, costs[static_cast<std::size_t>(v)]);

    std::array<int, kVariables> values{};
    const auto costOf = [&](const auto& at) {
      long sum = 0;
      for (std::size_t v = 0; v < kVariables; ++v) sum += costs[v] * static_cast<long>(at[v]);
      return sum;
    };
    const auto meets = [&](const auto& at) {
      return std::ranges::all_of(bounds, [&](const Bound& bound) {
        return at[static_cast<std::size_t>(bound.to)] - at[static_cast<std::size_t>(bound.from)] >=
               bound.least;
      });
    };
    std::optional<long> best;
    const auto search = [&](const auto& self, std::size_t v) -> void {
      if (v == kVariables) {
        if (meets(values) && (!best || costOf(values) < *best)) best = costOf(values);
        return;
      }
      for (values[v] = 0; values[v] <= kLast; ++values[v]) self(self, v + 1);
    };
    search(search, 1);

    const auto solution = program.solve();
    ASSERT_EQ(solution.has_value(), best.has_value()) << round;
    ASSERT_EQ(program.hasSolution(), best.has_value()) << round;
    if (!best) {
      ++impossible;
      continue;
    }
    EXPECT_TRUE(meets(*solution)) << round;
    EXPECT_EQ(costOf(*solution), *best) << round;
  }
  EXPECT_GT(impossible, 50);
  EXPECT_LT(impossible, 350);
}

}  // namespace
}  // namespace schedule
