#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <unordered_map>

#include "backend/device/gate_network.h"
#include "util/failure.h"

namespace device {

namespace {

constexpr int kMostInputs = 8;
constexpr int kTableInputs = 6;
// What mapping weighs a function with, by its inputs. Two tables behind a multiplexer of the slice
// make one of seven, four one of eight.
constexpr std::array<double, kMostInputs + 1> kWeights = {0, 2, 2, 3, 5, 5, 5, 10, 20};
// What a gate is for each row of its cut's leaves.
using Truth = std::bitset<1 << kMostInputs>;
constexpr std::size_t kKept = 8;           // cuts of a gate
constexpr std::size_t kMostInside = 1000;  // gates that are looked at for the function of a cut
constexpr int kAnyDepth = std::numeric_limits<int>::max();

struct Cut {
  std::array<std::uint32_t, kMostInputs> leaves{};
  int count = 0;
  int depth = 0;
  double flow = 0;
  double sharing = 0;       // readers of its leaves, on average
  std::uint64_t rests = 0;  // of the leaves by 64, a bit each
  long roundedFlow = 0;     // flows that differ by less are the same
  std::span<const std::uint32_t> all() const {
    return std::span(leaves).first(static_cast<std::size_t>(count));
  }
  bool holds(const Cut& other) const {
    return count >= other.count && (other.rests & ~rests) == 0 &&
           std::ranges::includes(all(), other.all());
  }
};

class Mapper {
 public:
  Mapper(const GateNetwork& network, Mapping mapping)
      : network(network),
        isThorough(mapping == Mapping::kThorough),
        gates(network.gates()),
        cuts(gates.size()),
        depth(gates.size()),
        required(gates.size(), kAnyDepth),
        flow(gates.size()),
        readers(gates.size()),
        expected(gates.size()) {
    // A value and its inverse are the same: cells that only invert are no tables.
    std::set<std::uint32_t> distinct;
    for (const Literal root : network.roots()) distinct.insert(gateOf(root));
    for (const std::uint32_t gate : distinct)
      if (!gates[gate].isInput) rootGates.push_back(gate);
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput)
        for (const Literal operand : {gates[i].a, gates[i].b}) expected[gateOf(operand)] += 1;
    for (const std::uint32_t gate : rootGates) expected[gate] += 1;
    isOfOwn.resize(gates.size());
    for (const std::uint32_t gate : rootGates) isOfOwn[gate] = true;
    for (std::size_t i = gates.size(); i-- > 0;)
      if (isOfOwn[i] && !gates[i].isInput)
        isOfOwn[gateOf(gates[i].a)] = isOfOwn[gateOf(gates[i].b)] = true;
  }

  int count() {
    constexpr int kAreaPasses = 2;
    if (isThorough) pass(Order::kLeaves);
    pass(Order::kDepth);
    if (isThorough) pass(Order::kFlow);
    pass(Order::kFlow);
    for (int i = 0; i < kAreaPasses; ++i) shrink();
    int tables = 0;
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput && readers[i] > 0) tables += tablesOf(i, cuts[i][0]);
    return tables;
  }

 private:
  // What comes first in the choice of a cut; of leaves, behind the depth; of area, what it needs
  // beside what is in use.
  enum class Order { kLeaves, kDepth, kFlow, kArea };
  void pass(Order order) {
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput) choose(i, order);
    derive();
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      expected[i] = (expected[i] + 2.0 * readers[i]) / 3;
  }

  static double weightOf(const Cut& cut) { return kWeights[static_cast<std::size_t>(cut.count)]; }

  // A function of more inputs than a table has is chosen by its latest ones among functions of the
  // others, of which constants take no table.
  int tablesOf(std::uint32_t gate, const Cut& cut) {
    if (cut.count <= kTableInputs) return 1;
    truths.clear();
    for (int k = 0; k < cut.count; ++k) {
      Truth& leaf = truths[cut.leaves[static_cast<std::size_t>(k)]].emplace();
      for (std::size_t row = 0; row < leaf.size(); ++row) leaf[row] = row >> k & 1;
    }
    const std::optional<Truth> whole = truthOf(gate);
    constexpr std::size_t kRows = std::size_t{1} << kTableInputs;
    int tables = 0;
    for (std::size_t first = 0; first < std::size_t{1} << cut.count; first += kRows) {
      if (!whole) {
        ++tables;
        continue;
      }
      std::uint64_t rows = 0;
      for (std::size_t row = 0; row < kRows; ++row)
        rows |= std::uint64_t{(*whole)[first + row]} << row;
      const bool isConstant = rows == 0 || ~rows == 0;
      tables += isConstant || (isThorough && isKnown(cut, rows)) ? 0 : 1;
    }
    return tables;
  }
  // True for a table of the first leaves of a cut that is one of them or has been made.
  bool isKnown(const Cut& cut, std::uint64_t rows) {
    constexpr std::array<std::uint64_t, kTableInputs> kLeaf = {
        0xaaaaaaaaaaaaaaaa, 0xcccccccccccccccc, 0xf0f0f0f0f0f0f0f0,
        0xff00ff00ff00ff00, 0xffff0000ffff0000, 0xffffffff00000000};
    std::array<std::uint32_t, kTableInputs> leaves{};
    std::copy_n(cut.leaves.begin(), kTableInputs, leaves.begin());
    return std::ranges::any_of(kLeaf, [&](std::uint64_t x) { return rows == x || rows == ~x; }) ||
           !madeTables.emplace(leaves, rows).second;
  }
  // Nothing where it takes more than the leaves, as a gate may whose cut is that of a choice.
  std::optional<Truth> truthOf(std::uint32_t gate) {
    if (const auto found = truths.find(gate); found != truths.end()) return found->second;
    const auto operand = [&](Literal x) {
      std::optional<Truth> truth = truthOf(gateOf(x));
      if (truth && x % 2 != 0) truth->flip();
      return truth;
    };
    std::optional<Truth> truth;
    if (gate == 0) truth.emplace();
    if (!gates[gate].isInput && truths.size() < kMostInside) {
      const auto a = operand(gates[gate].a), b = operand(gates[gate].b);
      if (a && b) truth = *a & *b;
      for (const Literal other : network.choicesOf(gate))
        if (!truth) truth = operand(other);
    }
    truths.emplace(gate, truth);
    return truth;
  }

  void rate(Cut& cut) const {
    cut.depth = 0;
    cut.flow = weightOf(cut);
    cut.sharing = 0;
    for (const std::uint32_t leaf : cut.all()) {
      cut.depth = std::max(cut.depth, depth[leaf] + 1);
      cut.flow += flow[leaf];
      cut.sharing += expected[leaf] / cut.count;
    }
  }

  // Merges the cuts of the operands; the best comes first.
  void choose(std::uint32_t gate, Order order) {
    const bool byDepth = order == Order::kDepth || order == Order::kLeaves;
    found.clear();
    if (!cuts[gate].empty()) found.push_back(cuts[gate][0]);
    const std::uint32_t a = gateOf(gates[gate].a), b = gateOf(gates[gate].b);
    const Cut onlyA = alone(a), onlyB = alone(b);
    const auto mergeAll = [&](const Cut& x) {
      for (const Cut& y : cuts[b])
        if (Cut cut; merge(x, y, cut)) add(cut);
      if (Cut cut; merge(x, onlyB, cut)) add(cut);
    };
    for (const Cut& x : cuts[a]) mergeAll(x);
    mergeAll(onlyA);
    for (const Literal other : network.choicesOf(gate))
      for (const Cut& cut : cuts[gateOf(other)]) add(cut);
    for (Cut& cut : found) {
      rate(cut);
      if (order == Order::kArea && readers[gate] > 0) {
        cut.flow = take(cut);
        giveBack(cut);
      }
      cut.roundedFlow = std::lround(cut.flow * 200);
    }
    const int latest = byDepth ? kAnyDepth : required[gate];
    const std::size_t kept = std::min(found.size(), kKept);
    const auto end = found.begin() + static_cast<std::ptrdiff_t>(kept);
    std::ranges::partial_sort(found, end, [&](const Cut& x, const Cut& y) {
      if (byDepth && x.depth != y.depth) return x.depth < y.depth;
      if (order == Order::kLeaves && x.count != y.count) return x.count < y.count;
      if ((x.depth <= latest) != (y.depth <= latest)) return x.depth <= latest;
      if (x.roundedFlow != y.roundedFlow) return x.flow < y.flow;
      if (x.sharing != y.sharing) return x.sharing > y.sharing;
      return x.depth != y.depth ? x.depth < y.depth : x.count < y.count;
    });
    depth[gate] = found[0].depth;
    if (order != Order::kArea) flow[gate] = found[0].flow / std::max(1.0, expected[gate]);
    cuts[gate].assign(found.begin(), end);
  }

  // Of two cuts one of which has all leaves of the other only the smaller one counts.
  void add(const Cut& cut) {
    if (std::ranges::any_of(found, [&](const Cut& other) { return cut.holds(other); })) return;
    std::erase_if(found, [&](const Cut& other) { return other.holds(cut); });
    found.push_back(cut);
  }

  static Cut alone(std::uint32_t gate) {
    Cut own;
    own.leaves[0] = gate;
    own.count = 1;
    own.rests = std::uint64_t{1} << gate % 64;
    return own;
  }

  static bool merge(const Cut& x, const Cut& y, Cut& cut) {
    cut.rests = x.rests | y.rests;
    if (std::popcount(cut.rests) > kMostInputs) return false;
    std::array<std::uint32_t, 2 * kMostInputs> both;
    const auto end = std::ranges::set_union(x.all(), y.all(), both.begin()).out;
    const auto size = end - both.begin();
    if (size > kMostInputs) return false;
    std::copy(both.begin(), end, cut.leaves.begin());
    cut.count = static_cast<int>(size);
    return true;
  }

  // What the roots need of the best cuts, and how late each may come.
  void derive() {
    std::ranges::fill(readers, 0);
    std::ranges::fill(required, kAnyDepth);
    int deepest = 0;
    for (const std::uint32_t gate : rootGates) deepest = std::max(deepest, depth[gate]);
    for (const std::uint32_t gate : rootGates) {
      ++readers[gate];
      required[gate] = deepest;
    }
    for (std::uint32_t i = static_cast<std::uint32_t>(gates.size()); i-- > 0;) {
      if (gates[i].isInput || readers[i] == 0) continue;
      for (const std::uint32_t leaf : cuts[i][0].all()) {
        ++readers[leaf];
        required[leaf] = std::min(required[leaf], required[i] - 1);
      }
    }
  }

  // The weight of what a cut needs beside what is in use, and takes into use.
  double take(const Cut& cut) {
    double weight = weightOf(cut);
    for (const std::uint32_t leaf : cut.all())
      if (readers[leaf]++ == 0 && !gates[leaf].isInput) weight += take(cuts[leaf][0]);
    return weight;
  }
  double giveBack(const Cut& cut) {
    double weight = weightOf(cut);
    for (const std::uint32_t leaf : cut.all())
      if (--readers[leaf] == 0 && !gates[leaf].isInput) weight += giveBack(cuts[leaf][0]);
    return weight;
  }

  // For each gate the cut that needs least beside what is in use; choices have their cuts.
  void shrink() {
    for (std::uint32_t i = 0; i < gates.size(); ++i) {
      if (gates[i].isInput || (!isOfOwn[i] && readers[i] == 0)) continue;
      if (readers[i] > 0) giveBack(cuts[i][0]);
      choose(i, Order::kArea);
      if (readers[i] > 0) take(cuts[i][0]);
    }
    derive();
  }

  const GateNetwork& network;
  const bool isThorough;
  const std::vector<GateNetwork::Gate>& gates;
  std::vector<std::uint32_t> rootGates;
  std::vector<std::vector<Cut>> cuts;  // by gate, the best first
  std::vector<Cut> found;              // of the gate that is looked at
  std::vector<int> depth, required;
  std::vector<double> flow;
  std::vector<bool> isOfOwn;  // read without a choice
  std::vector<int> readers;
  std::vector<double> expected;  // readers, about
  // Inside the cut that tablesOf() looks at.
  std::unordered_map<std::uint32_t, std::optional<Truth>> truths;
  std::set<std::pair<std::array<std::uint32_t, kTableInputs>, std::uint64_t>> madeTables;
};

}  // namespace

int countTables(const GateNetwork& network, Mapping mapping) {
  return Mapper(network, mapping).count();
}

}  // namespace device
