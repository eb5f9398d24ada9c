#include "backend/device/cover.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <optional>

#include "backend/device/cuts.h"
#include "backend/graph/loops.h"

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Of the bits that one word of a wide function reads, this many may come from logic that it takes
// in.
constexpr int kMostBitsOfWidePart = 3;

class Coverer {
 public:
  Coverer(const Graph& graph, const Device& device, Picoseconds period)
      : graph(graph),
        device(device),
        limit(period - device.clockToOutput() - device.setup()),
        loops(graph),
        readers(soleReaders(graph)),
        fans(fanOuts(graph)),
        cuts(graph.size()),
        arrival(graph.size()),
        flow(graph.size()) {}

  void run() {
    for (std::uint32_t i = 0; i < graph.size(); ++i) visit({i});
  }

  // Readers come before what they read.
  std::vector<NodeId> chooseRoots() {
    std::vector<NodeId> roots(graph.size());
    for (std::uint32_t i = 0; i < graph.size(); ++i) roots[i] = {i};
    for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;)
      if (roots[i] == NodeId{i} && !cuts[i].empty()) takeIn(cuts[i][0], {i}, roots);
    return roots;
  }

  // The clusters' delays and cost, once their roots are chosen.
  int delayOfRoot(NodeId id) const {
    const auto& own = cuts[id.index];
    return (own.empty() ? device.delayOf(graph, id).value : own[0].delay - own[0].takenDelay) +
           route(id);
  }
  // Of the nodes that sums take in, by node.
  std::vector<int> delaysInside(const std::vector<NodeId>& roots) const {
    std::vector<int> delays(graph.size());
    for (std::uint32_t i = 0; i < graph.size(); ++i)
      if (roots[i] == NodeId{i} && !cuts[i].empty())
        for (const Taken& taken : cuts[i][0].allTaken())
          delays[taken.node.index] = cuts[i][0].takenDelay;
    return delays;
  }
  int delayToRegister(NodeId id) const {
    const Picoseconds alone = device.delayToRegister(graph, id);
    return alone == device.delayOf(graph, id) ? delayOfRoot(id) : alone.value;
  }
  Cost costOfRoot(NodeId id) const {
    const auto& own = cuts[id.index];
    return own.empty() ? device.costOf(graph, id) : Cost{.luts = own[0].tables};
  }

 private:
  // Wiring takes no route of its own, and neither does what vanishes in its reader.
  int route(NodeId id) const {
    return isTransparent(graph, id) || graph.node(id).op == Op::kInput
               ? 0
               : device.routeOf(fans[id.index]).value;
  }

  void visit(NodeId id) {
    const Node& node = graph.node(id);
    for (const NodeId operand : graph.operands(node)) {
      arrival[id.index] = std::max(arrival[id.index], arrival[operand.index]);
      if (isTransparent(graph, id)) flow[id.index] += flow[operand.index];
    }
    if (isTransparent(graph, id)) return;
    makeCuts(id);
    const auto& own = cuts[id.index];
    if (own.empty()) {
      arrival[id.index] += device.delayOf(graph, id).value;
      flow[id.index] = 0;
    } else {
      arrival[id.index] = own[0].arrival;
      flow[id.index] = own[0].area / std::max(1, fans[id.index]);
    }
  }

  void makeCuts(NodeId id) {
    switch (graph.node(id).op) {
      case Op::kAnd:
      case Op::kOr:
      case Op::kXor:
      case Op::kSelect:
      case Op::kPick:
      case Op::kReduceAnd:
      case Op::kReduceOr:
      case Op::kReduceXor:
      case Op::kLut:
      case Op::kEqual:
      case Op::kLess:
      case Op::kLessSigned:
        return makeTableCuts(id);
      case Op::kAdd:
        return makeSumCuts(id);
      case Op::kInput:
      case Op::kLiteral:
      case Op::kState:
      case Op::kSlice:
      case Op::kConcat:
      case Op::kReplicate:
      case Op::kNot:
      case Op::kMultiply:
      case Op::kMultiplySigned:
      case Op::kHeap:
      case Op::kCount:
        return;
    }
  }

  bool mayTakeIn(NodeId inner, NodeId root) const {
    return readers[inner.index] == root && !cuts[inner.index].empty() &&
           cuts[inner.index][0].isTable && loops.isInLoop(inner) == loops.isInLoop(root) &&
           (!loops.isInLoop(root) || loops.setOf(inner) == loops.setOf(root));
  }

  // All functions of one table that compute `id`, best first; for a wider function the tree that it
  // takes.
  void makeTableCuts(NodeId id) {
    const auto inputs = inputsOfOneBit(graph, id);
    if (!inputs) return makeWideCut(id);
    std::vector<Cut>& own = cuts[id.index];
    Cut start;
    start.isTable = true;
    extend(id, *inputs, 0, start, own);
    std::ranges::stable_sort(own, [](const Cut& a, const Cut& b) {
      return std::tie(a.arrival, a.area, a.count) < std::tie(b.arrival, b.area, b.count);
    });
    if (own.size() > kMostCuts) own.resize(kMostCuts);
  }

  // Tries each way to provide inputs[next] and those behind it.
  void extend(NodeId id, std::span<const Input> inputs, std::size_t next, const Cut& cut,
              std::vector<Cut>& found) {
    if (next == inputs.size()) return finish(id, cut, found);
    const Input& input = inputs[next];
    if (!cut.takes(input.node)) {
      Cut longer = cut;
      if (longer.add({input.node, input.bit})) extend(id, inputs, next + 1, longer, found);
    }
    if (!mayTakeIn(input.node, id)) return;
    const std::vector<Cut>& inner = cuts[input.node.index];
    for (std::size_t k = 0; k < inner.size(); ++k) {
      Cut longer = cut;
      if (!longer.take(input.node, k)) continue;
      bool fits = true;
      for (const Leaf& leaf : inner[k].all()) fits = fits && longer.add(leaf.seenBy(graph, input));
      if (fits) extend(id, inputs, next + 1, longer, found);
    }
  }

  void finish(NodeId id, Cut cut, std::vector<Cut>& found) {
    const Node& node = graph.node(id);
    cut.delay = device.tableDelay(cut.count).value;
    cut.tables = node.width;
    cut.area = cut.tables;
    cut.arrival = 0;
    for (const Leaf& leaf : cut.all()) {
      cut.arrival = std::max(cut.arrival, arrival[leaf.node.index]);
      cut.area += flow[leaf.node.index];
    }
    cut.arrival += cut.delay;
    const bool isAlone = cut.takenCount == 0;
    if (isAlone || cut.delay + route(id) <= limit.value) found.push_back(cut);
  }

  // A tree of tables over more bits than one has: it takes in the narrow logic right before it.
  void makeWideCut(NodeId id) {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    Cut cut;
    const Picoseconds alone = device.delayOf(graph, id);
    cut.delay = alone.value;
    cut.tables = device.costOf(graph, id).luts;
    cut.arrival = arrival[id.index] + cut.delay;
    const bool reduces = node.op == Op::kReduceAnd || node.op == Op::kReduceOr ||
                         node.op == Op::kReduceXor || node.op == Op::kEqual;
    if (reduces) {
      int bits = 0, latest = 0;
      Cut wide;
      for (const NodeId operand : operands)
        forEachPart(graph, operand, [&](const Input& part, int width) {
          int each = 1;
          if (mayTakeIn(part.node, id) && wide.takenCount < Cut::kMost &&
              cuts[part.node.index][0].count <= kMostBitsOfWidePart && wide.take(part.node, 0)) {
            const Cut& inner = cuts[part.node.index][0];
            each = inner.count;
            latest = std::max(latest, inner.arrival - inner.delay);
          } else {
            latest = std::max(latest, arrival[part.node.index]);
          }
          bits += width * each;
        });
      wide.delay = device.treeDelay(node.op, bits).value;
      wide.tables = device.functionTables(node.op, bits);
      wide.arrival = latest + wide.delay;
      const bool fits = wide.delay + route(id) <= limit.value;
      if (wide.takenCount == 0 || (fits && wide.arrival <= cut.arrival)) cut = wide;
    }
    cut.area = cut.tables;
    cuts[id.index].push_back(cut);
  }

  // A sum of two addends: the table of each bit that adds them takes in the logic before one
  // addend, or before both, for which the chain then has a further table.
  void makeSumCuts(NodeId id) {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    if (operands.size() != 3 || device.isDspSum(graph, node)) return;
    const NodeId carry = operands[2];
    const bool hasCarry = graph.node(carry).op != Op::kLiteral;
    // What is subtracted never stands on the chain's own inputs.
    const auto isSubtracted = [&](std::size_t side) {
      return !hasCarry && !graph.literal(graph.node(carry)).isZero() &&
             graph.node(operands[side]).op == Op::kNot;
    };
    std::array<std::optional<Input>, 2> addends{inputOf(graph, operands[0], node.width),
                                                inputOf(graph, operands[1], node.width)};
    std::optional<Cut> best;
    for (int taken = 0; taken < 4; ++taken) {
      Cut cut;
      int latest = arrival[carry.index], latestTaken = 0;
      bool fits = true;
      for (int side = 0; side < 2 && fits; ++side) {
        const auto& input = addends[static_cast<std::size_t>(side)];
        const bool isTaken = taken >> side & 1;
        if (!input) {
          fits = !isTaken;
          continue;
        }
        if (!isTaken) {
          fits = cut.add({input->node, input->bit});
          latest = std::max(latest, arrival[input->node.index]);
          continue;
        }
        fits = mayTakeIn(input->node, id) && cut.take(input->node, 0);
        if (!fits) break;
        const Cut& inner = cuts[input->node.index][0];
        for (const Leaf& leaf : inner.all()) fits = fits && cut.add(leaf.seenBy(graph, *input));
        latestTaken = std::max(latestTaken, inner.arrival - inner.delay);
      }
      if (!fits) continue;
      cut.delay = device.sumDelayBehind(node.width, cut.count).value;
      if (taken == 1 || taken == 2) {
        cut.takenDelay = cut.delay - device.sumDelayBehind(node.width, 2).value;
        const NodeId other = operands[static_cast<std::size_t>(2 - taken)];
        if (followsSum(other, *addends[static_cast<std::size_t>(taken - 1)]))
          cut.takenDelay =
              cut.delay - std::min(cut.delay - cut.takenDelay, device.chainedSumDelay().value);
      }
      if (taken != 0 && cut.delay + route(id) > limit.value) continue;
      cut.arrival = std::max(latest - cut.takenDelay, latestTaken) + cut.delay;
      // Bits of both addends need a table, and so do those of logic that was taken in.
      double each = device.costOf(graph, id).luts;
      if (taken != 0) each = std::max(each, takenBits(addends, taken, node.width));
      const bool needsSecond = taken == 3 || (taken != 0 && !hasCarry &&
                                              !isSubtracted(static_cast<std::size_t>(taken - 1)));
      cut.tables = each + (needsSecond ? takenBits(addends, taken, node.width) : 0);
      cut.area = cut.tables;
      for (const Leaf& leaf : cut.all()) cut.area += flow[leaf.node.index];
      if (!best || std::tie(cut.arrival, cut.area) < std::tie(best->arrival, best->area))
        best = cut;
    }
    if (best) cuts[id.index].push_back(*best);
  }

  // True when an addend is the result of another sum, beside bits that the logic before the other
  // addend reads as well. Carries of two sums one behind the other run at the same time, so only
  // the way through that logic, which no stage lacks, takes the whole sum.
  bool followsSum(NodeId addend, const Input& logic) const {
    bool follows = true;
    forEachPart(graph, addend, [&](const Input& part, int) {
      const auto leaves = cuts[logic.node.index][0].all();
      follows = follows && (graph.node(part.node).op == Op::kAdd ||
                            std::ranges::find(leaves, part.node, &Leaf::node) != leaves.end());
    });
    return follows;
  }

  double takenBits(const std::array<std::optional<Input>, 2>& addends, int taken, int width) const {
    int bits = 0;
    for (int side = 0; side < 2; ++side)
      if (taken >> side & 1)
        bits = std::max(bits, graph.node(addends[static_cast<std::size_t>(side)]->node).width);
    return std::min(bits, width);
  }

  void takeIn(const Cut& cut, NodeId root, std::vector<NodeId>& roots) const {
    for (const Taken& taken : cut.allTaken()) {
      roots[taken.node.index] = root;
      takeIn(cuts[taken.node.index][taken.cut], root, roots);
    }
  }

  const Graph& graph;
  const Device& device;
  const Picoseconds limit;
  const graph::Loops loops;
  const std::vector<NodeId> readers;  // the only one, seen through wiring; none where several read
  const std::vector<int> fans;
  std::vector<std::vector<Cut>> cuts;  // of logic, best first
  std::vector<int> arrival;            // in ps, without registers
  std::vector<double> flow;            // tables, shared among readers
};

}  // namespace

Cover::Cover(const Graph& graph, const Device& device, Picoseconds period) {
  Coverer coverer(graph, device, period);
  coverer.run();
  roots = coverer.chooseRoots();
  const std::vector<int> inside = coverer.delaysInside(roots);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id{i};
    const bool isRoot = !isInner(id);
    delays.push_back(isRoot ? coverer.delayOfRoot(id) : inside[i]);
    delaysToRegister.push_back(isRoot ? coverer.delayToRegister(id) : inside[i]);
    if (!isRoot) continue;
    const Cost own = coverer.costOfRoot(id);
    total.luts += own.luts;
    total.dsps += own.dsps;
    total.ramBits += own.ramBits;
    total.ramBlocks += own.ramBlocks;
  }
}

}  // namespace device
