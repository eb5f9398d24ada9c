#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace schedule {

// A linear program over differences of integer variables: the smallest sum of cost(v) * v under
// v(to) - v(from) >= least. Its dual is a flow of minimum cost, solved by the network simplex.
//
// The costs must add up to 0. Where the bounds leave a solution there is a best one in integers.
class DifferenceProgram {
 public:
  // The next variable's number, counted from 0. Where the values `near` of all variables meet all
  // bounds, which they need not, the flow has no negative costs and is found several times faster.
  int addVariable(std::int64_t near) {
    costs.push_back(0);
    nearValues.push_back(near);
    return static_cast<int>(costs.size()) - 1;
  }
  void addCost(int variable, std::int64_t cost) {
    costs[static_cast<std::size_t>(variable)] += cost;
  }
  void require(int from, int to, std::int64_t least) { bounds.push_back({from, to, least}); }

  // The best value of each variable, variable 0 at 0; nothing when the bounds contradict each
  // other.
  std::optional<std::vector<std::int64_t>> solve() const;
  // False when solve() finds nothing, known much sooner (label correcting: Cherkassky et al.,
  // "Shortest paths algorithms", Math. Programming 1996). For programs in which variable 0 bounds
  // all others from both sides.
  bool hasSolution() const;

 private:
  struct Bound {
    int from, to;
    std::int64_t least;
  };
  std::vector<std::int64_t> costs;
  std::vector<std::int64_t> nearValues;
  std::vector<Bound> bounds;
};

}  // namespace schedule
