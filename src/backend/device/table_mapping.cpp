#include <algorithm>
#include <array>
#include <limits>
#include <set>

#include "backend/device/gate_network.h"
#include "util/failure.h"

namespace device {

namespace {

constexpr int kMostInputs = 6;
constexpr std::size_t kKept = 8;  // cuts of a gate
constexpr int kAnyDepth = std::numeric_limits<int>::max();

struct Cut {
  std::array<std::uint32_t, kMostInputs> leaves{};
  int count = 0;
  int depth = 0;
  double flow = 0;
  std::span<const std::uint32_t> all() const {
    return std::span(leaves).first(static_cast<std::size_t>(count));
  }
  bool isSame(const Cut& other) const {
    return count == other.count && std::ranges::equal(all(), other.all());
  }
};

class Mapper {
 public:
  Mapper(const GateNetwork& network, int inputs)
      : gates(network.gates()),
        inputs(inputs),
        cuts(gates.size()),
        depth(gates.size()),
        required(gates.size(), kAnyDepth),
        flow(gates.size()),
        readers(gates.size()),
        expected(gates.size()) {
    std::set<Literal> distinct(network.roots().begin(), network.roots().end());
    for (const Literal root : distinct) {
      const std::uint32_t gate = gateOf(root);
      if (gate == 0) continue;
      if (gates[gate].isInput) {
        inverters += static_cast<int>(root % 2);
        continue;
      }
      // A table gives a value or its inverse.
      if (root % 2 == 1 && distinct.contains(inverse(root))) ++inverters;
      rootGates.push_back(gate);
    }
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput)
        for (const Literal operand : {gates[i].a, gates[i].b}) expected[gateOf(operand)] += 1;
    for (const std::uint32_t gate : rootGates) expected[gate] += 1;
  }

  int count() {
    constexpr int kFlowPasses = 2, kAreaPasses = 2;
    pass(/*byDepth=*/true);
    for (int i = 0; i < kFlowPasses; ++i) pass(/*byDepth=*/false);
    for (int i = 0; i < kAreaPasses; ++i) shrink();
    int tables = inverters;
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput && readers[i] > 0) ++tables;
    return tables;
  }

 private:
  void pass(bool byDepth) {
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      if (!gates[i].isInput) choose(i, byDepth);
    derive();
    for (std::uint32_t i = 0; i < gates.size(); ++i)
      expected[i] = (expected[i] + 2.0 * readers[i]) / 3;
  }

  void rate(Cut& cut) const {
    cut.depth = 0;
    cut.flow = 1;
    for (const std::uint32_t leaf : cut.all()) {
      cut.depth = std::max(cut.depth, depth[leaf] + 1);
      cut.flow += flow[leaf];
    }
  }

  // Merges the cuts of the operands; the best comes first.
  void choose(std::uint32_t gate, bool byDepth) {
    std::vector<Cut> found;
    if (!cuts[gate].empty()) found.push_back(cuts[gate][0]);
    const std::vector<Cut> mine = withItself(gateOf(gates[gate].a)),
                           others = withItself(gateOf(gates[gate].b));
    for (const Cut& x : mine)
      for (const Cut& y : others)
        if (Cut cut; merge(x, y, cut) &&
                     std::ranges::none_of(found, [&](const Cut& c) { return c.isSame(cut); }))
          found.push_back(cut);
    for (Cut& cut : found) rate(cut);
    const int latest = byDepth ? kAnyDepth : required[gate];
    std::ranges::sort(found, [&](const Cut& x, const Cut& y) {
      if (byDepth && x.depth != y.depth) return x.depth < y.depth;
      if ((x.depth <= latest) != (y.depth <= latest)) return x.depth <= latest;
      if (x.flow != y.flow) return x.flow < y.flow;
      return x.depth != y.depth ? x.depth < y.depth : x.count < y.count;
    });
    if (found.size() > kKept) found.resize(kKept);
    depth[gate] = found[0].depth;
    flow[gate] = found[0].flow / std::max(1.0, expected[gate]);
    cuts[gate] = std::move(found);
  }

  std::vector<Cut> withItself(std::uint32_t gate) const {
    std::vector<Cut> all = cuts[gate];
    Cut own;
    own.leaves[0] = gate;
    own.count = 1;
    all.push_back(own);
    return all;
  }

  bool merge(const Cut& x, const Cut& y, Cut& cut) const {
    std::array<std::uint32_t, 2 * kMostInputs> both{};
    const auto end = std::ranges::set_union(x.all(), y.all(), both.begin()).out;
    const auto size = end - both.begin();
    if (size > inputs) return false;
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

  // Tables that a cut needs beside those in use, and takes into use.
  int take(const Cut& cut) {
    int tables = 1;
    for (const std::uint32_t leaf : cut.all())
      if (readers[leaf]++ == 0 && !gates[leaf].isInput) tables += take(cuts[leaf][0]);
    return tables;
  }
  int giveBack(const Cut& cut) {
    int tables = 1;
    for (const std::uint32_t leaf : cut.all())
      if (--readers[leaf] == 0 && !gates[leaf].isInput) tables += giveBack(cuts[leaf][0]);
    return tables;
  }

  // For each gate in use the cut that needs fewest tables.
  void shrink() {
    for (std::uint32_t i = 0; i < gates.size(); ++i) {
      if (gates[i].isInput) continue;
      for (Cut& cut : cuts[i]) rate(cut);
      if (readers[i] > 0) {
        giveBack(cuts[i][0]);
        std::size_t best = 0;
        int fewest = std::numeric_limits<int>::max();
        for (std::size_t k = 0; k < cuts[i].size(); ++k) {
          if (cuts[i][k].depth > required[i]) continue;
          const int tables = take(cuts[i][k]);
          giveBack(cuts[i][k]);
          if (tables < fewest) {
            fewest = tables;
            best = k;
          }
        }
        std::swap(cuts[i][0], cuts[i][best]);
        take(cuts[i][0]);
      }
      depth[i] = cuts[i][0].depth;
    }
    derive();
  }

  const std::vector<GateNetwork::Gate>& gates;
  const int inputs;
  std::vector<std::uint32_t> rootGates;
  int inverters = 0;
  std::vector<std::vector<Cut>> cuts;  // by gate, the best first
  std::vector<int> depth, required;
  std::vector<double> flow;
  std::vector<int> readers;
  std::vector<double> expected;  // readers, about
};

}  // namespace

int countTables(const GateNetwork& network, int inputs) {
  return Mapper(network, std::min(inputs, kMostInputs)).count();
}

}  // namespace device
