#include "backend/arithmetic/adder_graph.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace arithmetic {

using util::MPZ;
using Term = AdderGraph::Term;
using Node = AdderGraph::Node;

namespace {

MPZ valueOf(const Term& term, const std::vector<MPZ>& multiples) {
  const MPZ value = multiples[static_cast<std::size_t>(term.node)]
                    << static_cast<unsigned long>(term.shift);
  return term.negative ? -value : value;
}

// ---- All graphs of at most three additions ------------------------------------------------------

using Multiple = std::int64_t;

// Wider constants are left to the sharing of digits.
constexpr int kMostBitsForSearch = 54;

int trailingZeros(Multiple value) { return std::countr_zero(static_cast<std::uint64_t>(value)); }

// The multiples that stand ready, all odd and positive; the first is 1.
struct Ready {
  std::array<Multiple, 3> values{1};
  int count = 1;
};

// An addition of two of the ready multiples that gives the odd `target`, if there is one: one of
// the two is shifted.
std::optional<Node> reach(Multiple target, const Ready& ready) {
  for (int v = 0; v < ready.count; ++v) {
    const Multiple plain = ready.values[static_cast<std::size_t>(v)];
    for (const bool negative : {false, true}) {
      // target = +-(u << shift) + plain, or (u << shift) - plain
      const Multiple rest = negative ? target + plain : target - plain;
      if (rest == 0) continue;
      const Multiple magnitude = rest < 0 ? -rest : rest;
      const int shift = trailingZeros(magnitude);
      for (int u = 0; u < ready.count; ++u)
        if (magnitude >> shift == ready.values[static_cast<std::size_t>(u)]) {
          if (rest > 0) return Node{{u, shift, false}, {v, 0, negative}};
          return Node{{v, 0, false}, {u, shift, true}};
        }
    }
  }
  return std::nullopt;
}

// Calls `visit(value, node)` for every odd multiple below `limit` that one addition of ready ones
// gives, until it returns true; true when it did.
template <typename Visit>
bool forEachNext(const Ready& ready, Multiple limit, const Visit& visit) {
  for (int u = 0; u < ready.count; ++u)
    for (int v = 0; v < ready.count; ++v) {
      const Multiple plain = ready.values[static_cast<std::size_t>(v)];
      for (int shift = 1;; ++shift) {
        const Multiple shifted = ready.values[static_cast<std::size_t>(u)] << shift;
        if (shifted - plain >= limit) break;
        const Term up{u, shift, false}, low{v, 0, false};
        if (shifted + plain < limit && visit(shifted + plain, Node{up, low})) return true;
        const Multiple difference = shifted - plain;
        const bool found = difference > 0 ? visit(difference, Node{up, {v, 0, true}})
                                          : visit(-difference, Node{low, {u, shift, true}});
        if (found) return true;
      }
    }
  return false;
}

AdderGraph finished(std::vector<Node> nodes, const Node& last) {
  return {std::move(nodes), {last.first, last.second}};
}

// A graph of at most three additions for an odd target above 1.
std::optional<AdderGraph> searched(Multiple target) {
  Ready one;
  if (const auto last = reach(target, one)) return finished({}, *last);
  const Multiple limit = Multiple{2} << std::bit_width(static_cast<std::uint64_t>(target));
  std::optional<AdderGraph> found;
  forEachNext(one, limit, [&](Multiple first, const Node& firstNode) {
    if (first == 1) return false;
    const auto last = reach(target, {{1, first}, 2});
    if (last) found = finished({firstNode}, *last);
    return found.has_value();
  });
  if (found) return found;
  forEachNext(one, limit, [&](Multiple first, const Node& firstNode) {
    if (first == 1) return false;
    const Ready two{{1, first}, 2};
    return forEachNext(two, limit, [&](Multiple second, const Node& secondNode) {
      if (second == 1 || second == first) return false;
      const auto last = reach(target, {{1, first, second}, 3});
      if (last) found = finished({firstNode, secondNode}, *last);
      return found.has_value();
    });
  });
  return found;
}

// Constants of more bits would take too long for a fourth addition.
constexpr int kMostBitsForFourth = 24;

// A graph of four additions whose last one adds a power of two, or a graph of three additions to a
// multiple of its own result.
std::optional<AdderGraph> searchedWithOneMore(Multiple target) {
  const int bits = std::bit_width(static_cast<std::uint64_t>(target));
  for (int shift = 0; shift <= bits; ++shift)
    for (const bool negative : {false, true}) {
      const Multiple power = Multiple{1} << shift, ends = negative ? -1 : 1;
      const Multiple rest = target - ends * power;
      if (rest > 1) {
        const int zeros = trailingZeros(rest);
        if (auto graph = searched(rest >> zeros)) {
          for (Term& term : graph->sum) term.shift += zeros;
          graph->sum.push_back({0, shift, negative});
          return graph;
        }
      }
      const Multiple factor = power + ends;
      if (shift > 1 && target % factor == 0 && target / factor > 1)
        if (auto graph = searched(target / factor)) {
          const int node = static_cast<int>(graph->nodes.size()) + 1;
          graph->nodes.push_back({graph->sum[0], graph->sum[1]});
          graph->sum = {{node, shift, false}, {node, 0, negative}};
          return graph;
        }
    }
  return std::nullopt;
}

// ---- Sharing of digit pairs ---------------------------------------------------------------------

// A pair of terms without its place: `second` lies `distance` places above `first`.
struct Pair {
  int first, second, distance;
  bool differ;  // in sign
  auto operator<=>(const Pair&) const = default;
};

// A sum of terms sorted by shift, and the nodes that they refer to.
struct State {
  std::vector<Node> nodes;
  std::vector<MPZ> multiples;  // of each node, node 0 included
  std::vector<Term> terms;
  std::size_t adders() const { return nodes.size() + terms.size(); }
};

bool isLower(const Term& a, const Term& b) {
  return std::tie(a.shift, a.node) < std::tie(b.shift, b.node);
}

Pair pairOf(const Term& low, const Term& high) {
  return {low.node, high.node, high.shift - low.shift, low.negative != high.negative};
}

// `state` with the places of `pair`, as many as share no term, each made one term of a new node.
// Empty when the pair cancels itself.
std::optional<State> shared(const State& state, const Pair& pair) {
  State next{state.nodes, state.multiples, {}};
  const int node = static_cast<int>(state.nodes.size()) + 1;
  Term low{pair.first, 0, false}, high{pair.second, pair.distance, false};
  const MPZ above = valueOf(high, state.multiples), below = valueOf(low, state.multiples);
  if (pair.differ && above == below) return std::nullopt;
  // Nodes are positive: of two terms that differ in sign the smaller one is subtracted.
  const bool lowLeads = pair.differ && above < below;
  (lowLeads ? high : low).negative = pair.differ;
  next.nodes.push_back(lowLeads ? Node{low, high} : Node{high, low});
  next.multiples.push_back(valueOf(high, state.multiples) + valueOf(low, state.multiples));
  std::vector<bool> taken(state.terms.size());
  for (std::size_t i = 0; i < state.terms.size(); ++i) {
    for (std::size_t j = i + 1; j < state.terms.size() && !taken[i]; ++j)
      if (!taken[j] && pairOf(state.terms[i], state.terms[j]) == pair) {
        taken[i] = taken[j] = true;
        const bool negative = state.terms[lowLeads ? i : j].negative;
        next.terms.push_back({node, state.terms[i].shift, negative});
      }
    if (!taken[i]) next.terms.push_back(state.terms[i]);
  }
  std::ranges::sort(next.terms, isLower);
  return next;
}

// The pairs that stand at two or more places, the most frequent ones first.
std::vector<Pair> frequentPairs(const State& state, std::size_t most) {
  std::map<Pair, int> counts;
  for (std::size_t i = 0; i < state.terms.size(); ++i)
    for (std::size_t j = i + 1; j < state.terms.size(); ++j)
      ++counts[pairOf(state.terms[i], state.terms[j])];
  std::vector<std::pair<int, Pair>> ranked;
  for (const auto& [pair, count] : counts)
    if (count > 1) ranked.emplace_back(-count, pair);
  std::ranges::sort(ranked);
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < ranked.size() && i < most; ++i) pairs.push_back(ranked[i].second);
  return pairs;
}

std::vector<Term> binaryDigits(const MPZ& constant) {
  std::vector<Term> digits;
  for (std::size_t place = 0; place < constant.bitLength(); ++place)
    if (constant.bit(place)) digits.push_back({0, static_cast<int>(place), false});
  return digits;
}

AdderGraph byShared(const MPZ& constant) {
  std::vector<State> beam{{{}, {1}, canonicalDigits(constant)}, {{}, {1}, binaryDigits(constant)}};
  const std::size_t digits = beam[0].terms.size();
  // Long constants are searched more narrowly, so that the time stays short.
  const std::size_t width = std::clamp<std::size_t>(4000 / (digits * digits + 1), 1, 16);
  State best = beam[0];
  while (!beam.empty()) {
    std::vector<State> next;
    std::set<std::vector<Term>> seen;
    for (const State& state : beam)
      for (const Pair& pair : frequentPairs(state, width)) {
        std::optional<State> made = shared(state, pair);
        if (!made || made->adders() >= state.adders()) continue;
        if (made->adders() < best.adders()) best = *made;
        if (seen.insert(made->terms).second) next.push_back(std::move(*made));
      }
    std::ranges::stable_sort(next, {}, &State::adders);
    if (next.size() > width) next.erase(next.begin() + static_cast<long>(width), next.end());
    beam = std::move(next);
  }
  return {best.nodes, best.terms};
}

}  // namespace

int AdderGraph::adders() const {
  return static_cast<int>(nodes.size() + (sum.empty() ? 0 : sum.size() - 1));
}

std::vector<MPZ> AdderGraph::multiples() const {
  std::vector<MPZ> values{1};
  for (const Node& node : nodes)
    values.push_back(valueOf(node.first, values) + valueOf(node.second, values));
  return values;
}

MPZ AdderGraph::constant() const {
  const std::vector<MPZ> values = multiples();
  MPZ total;
  for (const Term& term : sum) total += valueOf(term, values);
  return total;
}

std::vector<Term> canonicalDigits(const MPZ& constant) {
  std::vector<Term> digits;
  MPZ rest = constant;
  for (int place = 0; !rest.isZero(); ++place, rest >>= 1) {
    if (!rest.bit(0)) continue;
    const bool negative = rest.bit(1);  // ...11 is -1 and a carry
    digits.push_back({0, place, negative});
    rest += MPZ(negative ? 1 : -1);
  }
  return digits;
}

AdderGraph shiftAndAdd(const MPZ& constant) {
  if (constant.isZero()) return {};
  const bool negative = constant.sign() < 0;
  MPZ odd = negative ? -constant : constant;
  const int zeros = static_cast<int>(mpz_scan1(odd.get(), 0));
  odd >>= static_cast<unsigned long>(zeros);

  AdderGraph graph;
  const auto bits = static_cast<int>(odd.bitLength());
  std::optional<AdderGraph> found;
  if (1 < bits && bits <= kMostBitsForSearch)
    found = searched(static_cast<Multiple>(odd.toUint64()));
  if (found) {
    graph = *found;
  } else if (bits == 1) {
    graph.sum = {{}};
  } else {
    graph = byShared(odd);
    if (graph.adders() > 4 && bits <= kMostBitsForFourth)
      if (auto four = searchedWithOneMore(static_cast<Multiple>(odd.toUint64()))) graph = *four;
  }
  for (Term& term : graph.sum) {
    term.shift += zeros;
    term.negative = term.negative != negative;
  }
  return graph;
}

}  // namespace arithmetic
