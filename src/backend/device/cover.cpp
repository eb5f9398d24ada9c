#include "backend/device/cover.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "backend/device/cuts.h"
#include "backend/device/families.h"
#include "backend/device/gate_network.h"
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
  // With `cycles` for fewest tables, and no cluster across registers.
  Coverer(const Graph& graph, const Device& device, Picoseconds period,
          std::span<const int> cycles = {})
      : graph(graph),
        device(device),
        limit(period - device.clockToOutput() - device.setup()),
        cycles(cycles),
        loops(graph),
        readers(soleReaders(graph)),
        fans(fanOuts(graph)),
        cuts(graph.size()),
        arrival(graph.size()),
        flow(graph.size()),
        reach(graph.size()) {
    for (const graph::State& state : graph.states()) {
      const Node& next = graph.node(state.next);
      if (next.op != Op::kSelect || fans[state.next.index] != 1) continue;
      const auto choices = graph.operands(next).subspan(1);
      if (std::ranges::find(choices, state.node) != choices.end())
        enables.push_back(state.next.index);
    }
    std::ranges::sort(enables);
  }

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
    return (own.empty() ? device.delayOf(graph, id).value : own[0].delay) + route(id);
  }
  // Of the nodes that sums take in, by node.
  std::vector<int> delaysInside(const std::vector<NodeId>& roots) const {
    std::vector<int> delays(graph.size());
    for (std::uint32_t i = 0; i < graph.size(); ++i)
      if (roots[i] == NodeId{i} && !cuts[i].empty())
        for (const Taken& taken : cuts[i][0].allTaken()) delays[taken.node.index] = taken.delay;
    return delays;
  }
  int delayToRegister(NodeId id) const {
    const Picoseconds alone = device.delayToRegister(graph, id);
    return alone == device.delayOf(graph, id) ? delayOfRoot(id) : alone.value;
  }
  Cost costOf(const std::vector<NodeId>& roots) const {
    Cost total;
    for (std::uint32_t i = 0; i < graph.size(); ++i) {
      if (roots[i] != NodeId{i}) continue;
      const Cost own = costOfRoot({i});
      total.luts += own.luts;
      total.dsps += own.dsps;
      total.ramBits += own.ramBits;
      total.ramBlocks += own.ramBlocks;
    }
    return total;
  }
  Cost costOfRoot(NodeId id) const {
    const auto& own = cuts[id.index];
    return own.empty() ? device.costOf(graph, id) : Cost{.luts = own[0].tables};
  }

 private:
  // Wiring takes no route of its own, and neither does what vanishes in its reader; a state is a
  // register, which starts its stage with the clock to output like all others.
  int route(NodeId id) const {
    const Op op = graph.node(id).op;
    return isTransparent(graph, id) || op == Op::kInput || op == Op::kState
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

  // True for a state's next value or itself, which its register's enable chooses.
  bool isEnable(NodeId id) const { return std::ranges::binary_search(enables, id.index); }

  void makeCuts(NodeId id) {
    if (isEnable(id)) {
      Cut none;
      none.arrival = arrival[id.index];
      cuts[id.index].push_back(none);
      return;
    }
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
      case Op::kTable:
      case Op::kMemory:
      case Op::kMultiply:
      case Op::kMultiplySigned:
      case Op::kHeap:
      case Op::kCount:
        return;
    }
  }

  // The smaller the better.
  std::pair<double, double> meritOf(const Cut& cut) const {
    return cycles.empty() ? std::pair<double, double>(cut.arrival, cut.area)
                          : std::pair<double, double>(cut.area, cut.arrival);
  }

  bool mayTakeIn(NodeId inner, NodeId root) const {
    return readers[inner.index] == root && !cuts[inner.index].empty() &&
           cuts[inner.index][0].isTable &&
           (cycles.empty() || cycles[inner.index] == cycles[root.index]) &&
           loops.isInLoop(inner) == loops.isInLoop(root) &&
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
    std::ranges::stable_sort(own, [&](const Cut& a, const Cut& b) {
      const auto merit = meritOf(a) <=> meritOf(b);
      return merit < 0 || (merit == 0 && a.count < b.count);
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
    cut.delay = std::max(cut.delay, delayBehindPieces(id, cut));
    cut.arrival += cut.delay;
    const bool isAlone = cut.takenCount == 0;
    if (isAlone || cut.delay + route(id) <= limit.value) found.push_back(cut);
  }

  // Tools undo the cut of a wide reduction into pieces, and then all is as late as if there were
  // none.
  int delayBehindPieces(NodeId id, const Cut& cut) const {
    const Op op = graph.node(id).op;
    int bits = 0, before = 0;
    for (const Leaf& leaf : cut.all()) {
      const bool isPiece = graph.node(leaf.node).op == op && reach[leaf.node.index] > 0;
      bits += isPiece ? reach[leaf.node.index] : 1;
      if (isPiece) before = std::max(before, cuts[leaf.node.index][0].delay);
    }
    return before > 0 ? device.treeDelay(op, bits).value - before : 0;
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
      reach[id.index] = bits;
      const bool fits = wide.delay + route(id) <= limit.value;
      if (wide.takenCount == 0 || (fits && (!cycles.empty() || wide.arrival <= cut.arrival)))
        cut = wide;
    }
    cut.area = cut.tables;
    cuts[id.index].push_back(cut);
  }

  // A sum of two addends: the table of each bit that adds them takes in the logic before the
  // addends, as long as that makes the sum no later. Where it takes in both, the chain has a second
  // table. Different bits may have different logic before them.
  void makeSumCuts(NodeId id) {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    if (operands.size() != 3 || device.isDspSum(graph, node)) return;
    const std::vector<SumSegment> segments = segmentsOf(graph, operands[0], operands[1]);
    const auto carry = inputOf(graph, operands[2], 1);
    std::vector<NodeId> candidates;
    for (const SumSegment& segment : segments)
      for (const auto& addend : segment.addends)
        if (addend && mayTakeIn(addend->node, id) && !(carry && carry->node == addend->node))
          candidates.push_back(addend->node);
    std::ranges::sort(candidates, [&](NodeId x, NodeId y) {
      return std::pair(arrival[y.index], x) < std::pair(arrival[x.index], y);
    });
    candidates.erase(std::ranges::unique(candidates).begin(), candidates.end());

    Cut best = *sumCut(id, segments, {});
    for (const NodeId candidate : candidates) {
      for (std::size_t k = 0; k < cuts[candidate.index].size(); ++k) {
        Cut wider;
        for (const Taken& taken : best.allTaken()) wider.take(taken.node, taken.cut);
        if (!wider.take(candidate, k)) continue;
        const auto cut = sumCut(id, segments, wider.allTaken());
        if (!cut || meritOf(*cut) > meritOf(best)) continue;
        best = *cut;
        break;
      }
    }
    cuts[id.index].push_back(best);
  }

  // The sum with those nodes taken in; nothing where a bit would need more inputs than a table has,
  // or the sum more than a stage. Its delay is that of a plain one: what passes a larger table
  // first takes the difference inside the node that was taken in.
  std::optional<Cut> sumCut(NodeId id, std::span<const SumSegment> segments,
                            std::span<const Taken> taken) const {
    const int width = graph.node(id).width;
    const auto operands = graph.operands(id);
    const Node& carry = graph.node(operands[2]);
    const bool hasCarry = carry.op != Op::kLiteral;
    // What is subtracted never stands on the chain's own inputs.
    const auto isSubtracted = [&](std::size_t side) {
      return !hasCarry && !graph.literal(carry).isZero() &&
             graph.node(operands[side]).op == Op::kNot;
    };
    Cut cut;
    for (const Taken& inner : taken) cut.take(inner.node, inner.cut);
    const std::span<Taken> own(cut.taken.data(), taken.size());
    cut.delay = device.sumDelayBehind(width, 2).value;
    cut.arrival = arrival[operands[2].index] + cut.delay;
    int low = 0;
    for (const SumSegment& segment : segments) {
      Cut bit;
      std::array<Taken*, 2> inner{};
      for (std::size_t side = 0; side < 2; ++side) {
        const auto& addend = segment.addends[side];
        if (!addend) continue;
        const auto found = std::ranges::find(own, addend->node, &Taken::node);
        if (found == own.end()) {
          if (!bit.add({addend->node, addend->bit})) return std::nullopt;
          continue;
        }
        inner[side] = &*found;
        for (const Leaf& leaf : cuts[addend->node.index][found->cut].all())
          if (!bit.add(leaf.seenBy(graph, *addend))) return std::nullopt;
      }
      // What enters the chain at a higher bit passes less of it.
      const int plain = device.sumDelayBehind(width - low, 2).value;
      const int behindTable = device.sumDelayBehind(width - low, bit.count).value;
      for (std::size_t side = 0; side < 2; ++side) {
        const auto& addend = segment.addends[side];
        if (!addend) continue;
        if (!inner[side]) {
          cut.arrival = std::max(cut.arrival, arrival[addend->node.index] + plain);
          continue;
        }
        inner[side]->delay = std::max(inner[side]->delay, behindTable - plain);
        for (const Leaf& leaf : cuts[addend->node.index][inner[side]->cut].all())
          cut.arrival = std::max(cut.arrival, arrival[leaf.node.index] + behindTable);
      }
      const int present = (segment.addends[0] ? 1 : 0) + (segment.addends[1] ? 1 : 0);
      const bool takesOne = !inner[0] != !inner[1], takesBoth = inner[0] && inner[1];
      const bool needsSecond =
          takesBoth || (takesOne && present == 2 && !hasCarry && !isSubtracted(inner[0] ? 0 : 1));
      cut.tables += segment.width * ((present == 2 || takesOne ? 1 : 0) + (needsSecond ? 1 : 0));
      low += segment.width;
    }
    int longest = 0;
    for (const Taken& each : own) longest = std::max(longest, each.delay);
    if (!own.empty() && cut.delay + longest + route(id) > limit.value) return std::nullopt;
    cut.area = cut.tables;
    for (const NodeId node : nodesBefore(segments, taken)) cut.area += flow[node.index];
    return cut;
  }

  // What a sum with those nodes taken in reads, each once.
  std::vector<NodeId> nodesBefore(std::span<const SumSegment> segments,
                                  std::span<const Taken> taken) const {
    std::vector<NodeId> nodes;
    for (const SumSegment& segment : segments)
      for (const auto& addend : segment.addends)
        if (addend && std::ranges::find(taken, addend->node, &Taken::node) == taken.end())
          nodes.push_back(addend->node);
    for (const Taken& inner : taken)
      for (const Leaf& leaf : cuts[inner.node.index][inner.cut].all()) nodes.push_back(leaf.node);
    std::ranges::sort(nodes);
    nodes.erase(std::ranges::unique(nodes).begin(), nodes.end());
    return nodes;
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
  const std::span<const int> cycles;
  const graph::Loops loops;
  const std::vector<NodeId> readers;  // the only one, seen through wiring; none where several read
  const std::vector<int> fans;
  std::vector<std::vector<Cut>> cuts;  // of logic, best first
  std::vector<int> arrival;            // in ps, without registers
  std::vector<double> flow;            // tables, shared among readers
  std::vector<int> reach;              // bits that a wide reduction reads, 0 for others
  std::vector<std::uint32_t> enables;  // nodes that isEnable(), in order
};

}  // namespace

Cover::Cover(const Graph& graph, const Device& device, Picoseconds period) {
  Coverer coverer(graph, device, period);
  coverer.run();
  roots = coverer.chooseRoots();
  total = coverer.costOf(roots);
  const std::vector<int> inside = coverer.delaysInside(roots);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const NodeId id{i};
    const bool isRoot = !isInner(id);
    delays.push_back(isRoot ? coverer.delayOfRoot(id) : inside[i]);
    delaysToRegister.push_back(isRoot ? coverer.delayToRegister(id) : inside[i]);
  }
}

Cost Cover::costBetweenRegisters(const Graph& graph, const Device& device,
                                 std::span<const int> cycles, std::span<const NodeId> lateClears,
                                 Logic asked) {
  // Larger graphs are counted by words.
  constexpr long kMostBits = 100000;
  if (const auto logic = logicBetweenRegisters(graph, device, cycles, lateClears, kMostBits)) {
    Cost total = logic->others;
    total.luts += asked == Logic::kAsToolsMapIt ? expectedTables(logic->network)
                                                : countTables(logic->network);
    return total;
  }
  constexpr Picoseconds kAnyDelay{std::numeric_limits<int>::max() / 2};
  Coverer coverer(graph, device, kAnyDelay, cycles);
  coverer.run();
  const std::vector<NodeId> roots = coverer.chooseRoots();
  return coverer.costOf(roots);
}

}  // namespace device
