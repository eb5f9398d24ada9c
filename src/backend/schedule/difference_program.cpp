#include "backend/schedule/difference_program.h"

#include <lemon/network_simplex.h>
#include <lemon/smart_graph.h>

#include <deque>
#include <limits>
#include <numeric>
#include <span>

#include "util/failure.h"

namespace schedule {

std::optional<std::vector<std::int64_t>> DifferenceProgram::solve() const {
  lemon::SmartDigraph network;
  network.reserveNode(static_cast<int>(costs.size()));
  network.reserveArc(static_cast<int>(bounds.size()));
  for (std::size_t i = 0; i < costs.size(); ++i) network.addNode();
  for (const Bound& bound : bounds)
    network.addArc(lemon::SmartDigraph::nodeFromId(bound.from),
                   lemon::SmartDigraph::nodeFromId(bound.to));
  lemon::SmartDigraph::NodeMap<std::int64_t> supply(network);
  lemon::SmartDigraph::ArcMap<std::int64_t> cost(network);
  for (std::size_t i = 0; i < costs.size(); ++i)
    supply[lemon::SmartDigraph::nodeFromId(static_cast<int>(i))] = -costs[i];
  const auto nearOf = [&](int variable) { return nearValues[static_cast<std::size_t>(variable)]; };
  for (std::size_t i = 0; i < bounds.size(); ++i)
    cost[lemon::SmartDigraph::arcFromId(static_cast<int>(i))] =
        nearOf(bounds[i].to) - nearOf(bounds[i].from) - bounds[i].least;

  lemon::NetworkSimplex<lemon::SmartDigraph, std::int64_t> simplex(network);
  simplex.supplyMap(supply).costMap(cost);
  // No end to the flow means that some bounds add up to more than nothing round a circle.
  const auto end = simplex.run(simplex.CANDIDATE_LIST);
  if (end == simplex.UNBOUNDED) return std::nullopt;
  LOAM_ASSERT(end == simplex.OPTIMAL, "costs that add up to 0");
  // A bound's reduced cost, its cost + potential(from) - potential(to), is not negative at the end.
  std::vector<std::int64_t> values;
  const auto potential = [&](std::size_t i) {
    return simplex.potential(lemon::SmartDigraph::nodeFromId(static_cast<int>(i)));
  };
  for (std::size_t i = 0; i < costs.size(); ++i)
    values.push_back(nearValues[i] - nearValues[0] + potential(0) - potential(i));
  return values;
}

bool DifferenceProgram::hasSolution() const {
  // The least values: raised until all bounds are met, which would never end round a circle that
  // gains, but for variable 0, behind every one.
  std::vector<std::size_t> first(costs.size() + 2);
  for (const Bound& bound : bounds) ++first[static_cast<std::size_t>(bound.from) + 2];
  std::partial_sum(first.begin(), first.end(), first.begin());
  std::vector<Bound> sorted(bounds.size());
  for (const Bound& bound : bounds)
    sorted[first[static_cast<std::size_t>(bound.from) + 1]++] = bound;

  std::vector<std::int64_t> least(costs.size(), std::numeric_limits<std::int64_t>::min());
  std::vector<bool> isOpen(costs.size());
  std::deque<std::size_t> open{0};
  least[0] = 0;
  while (!open.empty()) {
    const std::size_t from = open.front();
    open.pop_front();
    isOpen[from] = false;
    for (const Bound& bound :
         std::span(sorted).subspan(first[from], first[from + 1] - first[from])) {
      const auto to = static_cast<std::size_t>(bound.to);
      if (least[from] + bound.least <= least[to]) continue;
      if (to == 0) return false;
      least[to] = least[from] + bound.least;
      if (!isOpen[to]) open.push_back(to);
      isOpen[to] = true;
    }
  }
  return true;
}

}  // namespace schedule
