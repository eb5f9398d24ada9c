#include "backend/mapping/mapping.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "backend/device/families.h"
#include "backend/graph/loops.h"
#include "backend/mapping/arrivals.h"
#include "backend/mapping/cutting.h"
#include "backend/mapping/heap_lowering.h"
#include "backend/mapping/product_tiling.h"
#include "backend/mapping/rebuild.h"
#include "backend/mapping/sum_shapes.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::HeapTerm;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

bool isProduct(const Node& node) {
  return node.op == Op::kMultiply || node.op == Op::kMultiplySigned;
}

// The product that a term of a heap is, times 2^shift modulo 2^width; none for other terms. A
// signed one counts with its sign: as far as the sum goes, or extended to there.
NodeId productOf(const Graph& graph, NodeId term, int shift, int width) {
  const Node& node = graph.node(term);
  if (node.op == Op::kMultiply) return term;
  if (shift + node.width < width) return {};
  if (node.op == Op::kMultiplySigned) return term;
  const auto parts = graph.operands(node);
  if (node.op != Op::kConcat || parts.size() != 2) return {};
  const Node& copies = graph.node(parts[0]);
  if (graph.node(parts[1]).op != Op::kMultiplySigned || copies.op != Op::kReplicate) return {};
  const Node& sign = graph.node(graph.operands(copies)[0]);
  const bool isSign = sign.op == Op::kSlice && sign.width == 1 &&
                      graph.operands(sign)[0] == parts[1] &&
                      static_cast<int>(sign.aux) == graph.node(parts[1]).width - 1;
  return isSign ? parts[1] : NodeId{};
}

// How often the nodes that a heap would take a product from read it.
int readsOf(const Graph& graph, NodeId term) { return isProduct(graph.node(term)) ? 1 : 2; }

// True for each product that nothing but one heap reads: its parts become terms there.
std::vector<bool> productsInHeaps(const Graph& graph) {
  std::vector<int> reads(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    for (const NodeId operand : graph.operands(NodeId{i})) ++reads[operand.index];
  for (const graph::Port& port : graph.outputs()) reads[port.signal.node.index] += 2;
  for (const graph::State& state : graph.states()) reads[state.next.index] += 2;
  std::vector<bool> inHeap(graph.size());
  for (const Node& node : graph.nodes()) {
    if (node.op != Op::kHeap) continue;
    const auto terms = graph.operands(node);
    for (std::size_t i = 0; i < terms.size(); ++i) {
      const NodeId product =
          productOf(graph, terms[i], static_cast<int>(graph.shifts(node)[i]), node.width);
      if (product != NodeId{} && reads[terms[i].index] == 1 &&
          reads[product.index] == readsOf(graph, terms[i]))
        inHeap[product.index] = true;
    }
  }
  return inHeap;
}

class Lowering {
 public:
  Lowering(const Graph& graph, const device::Device& device, const MappingOptions& options)
      : device(device), options(options), inHeap(productsInHeaps(graph)), loops(graph) {}

  Signal operator()(Builder& b, const Graph& from, NodeId id, std::span<const Signal> operands) {
    const Node& node = from.node(id);
    if ((isProduct(node) && inHeap[id.index]) || (!isProduct(node) && node.op != Op::kHeap))
      return {};
    const MakeSum make = [&](Builder& to, std::span<const Signal> x, const MappingOptions& shaped) {
      return isProduct(node)
                 ? lowerProduct(to, device, shaped, x[0], x[1], node.op == Op::kMultiplySigned)
                 : heapOf(to, from, node, x, shaped);
    };
    if (options.combinational || loops.isInLoop(id)) return make(b, operands, options);
    return cheapestSum(b, device, options, operands, make);
  }

 private:
  Signal heapOf(Builder& b, const Graph& from, const Node& node, std::span<const Signal> operands,
                const MappingOptions& shaped) {
    HeapTerms terms(b, node.width);
    const auto isConstant = [&](std::size_t i) { return b.isLiteral(operands[i]); };
    // Constants first: a product's block can add one.
    for (std::size_t i = 0; i < operands.size(); ++i)
      if (isConstant(i)) terms.addConstant(b.valueOf(operands[i]) << from.shifts(node)[i]);
    for (std::size_t i = 0; i < operands.size(); ++i)
      if (!isConstant(i))
        addTerm(b, from, from.operands(node)[i], operands[i],
                static_cast<int>(from.shifts(node)[i]), terms, shaped);
    return lowerHeap(b, device, shaped, terms.all(), node.width);
  }

  // A product that was kept is one still, unless folding made something simpler of it.
  void addTerm(Builder& b, const Graph& from, NodeId before, Signal term, int shift,
               HeapTerms& terms, const MappingOptions& shaped) {
    const NodeId old = productOf(from, before, shift, terms.modulus());
    const NodeId kept = old != NodeId{} && inHeap[old.index]
                            ? productOf(b.built(), term.node, shift, terms.modulus())
                            : NodeId{};
    if (kept == NodeId{}) return terms.add(term, shift);
    const Node product = b.built().node(kept);
    const Signal x = b.built().signal(b.built().operands(product)[0]);
    const Signal y = b.built().signal(b.built().operands(product)[1]);
    addProduct(b, terms, device, shaped, x, y, product.op == Op::kMultiplySigned, shift);
  }

  const device::Device& device;
  const MappingOptions& options;
  std::vector<bool> inHeap;
  const graph::Loops loops;
};

// True where a table that some logic reads may wait a cycle: outside of loops, and before no state.
std::vector<bool> nodesThatMayWait(const Graph& graph, const graph::Loops& loops) {
  std::vector<bool> may(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i) may[i] = !loops.isInLoop({i});
  for (const graph::State& state : graph.states()) may[state.next.index] = false;
  return may;
}

// The table in memory blocks where that is cheaper and fast enough; no signal elsewhere.
Signal storedTable(Builder& b, const Graph& from, NodeId id, Signal index,
                   const device::Device& device, const MappingOptions& options) {
  const Node& node = from.node(id);
  const double price = options.lutPerMemory.value_or(device.data().lutPerMemory);
  if (device.memoryBlocks(node.width, index.width) * price >= device.costOf(from, id).luts)
    return {};
  const Signal stored = b.memory(index, from.rows(node), node.width);
  if (b.isLiteral(stored)) return stored;
  const device::Picoseconds stage =
      std::max(device.clockToOutput(b.built(), stored.node, 1),
               device.clockToOutput() + device.delayToRegister(b.built(), stored.node)) +
      device.setup();
  return stage <= options.period ? stored : Signal{};
}

// Cycles that increments have to save to be worth their tables.
constexpr int kCyclesOfIncrements = 2;

int lastCycle(const Graph& graph, const device::Device& device, const MappingOptions& options) {
  const Arrivals arrivals(graph, device, options.period);
  int last = 0;
  for (const graph::Port& port : graph.outputs())
    last = std::max(last, arrivals.of(port.signal.node).cycle);
  return last;
}

}  // namespace

Graph mapGraph(const Graph& graph, const device::Device& device, const MappingOptions& options) {
  const Rewrite keep = [](Builder&, const Graph&, NodeId, std::span<const Signal>) -> Signal {
    return {};
  };
  Graph mapped = rebuilt(graph, Lowering(graph, device, options));
  // After lowering, which makes additions of its own.
  if (!options.combinational) {
    // Pieces of what stands in a loop would share its stage, where they take longer than the whole.
    const graph::Loops loops(mapped);
    const std::vector<bool> mayWait = nodesThatMayWait(mapped, loops);
    const auto cut = [&](const MappingOptions& by) {
      return rebuilt(
          mapped,
          [&](Builder& b, const Graph& from, NodeId id,
              std::span<const Signal> operands) -> Signal {
            if (loops.isInLoop(id)) return {};
            if (from.node(id).op == Op::kTable && mayWait[id.index])
              if (const Signal stored = storedTable(b, from, id, operands[0], device, options))
                return stored;
            return cutToFit(b, from, id, operands, device, by);
          });
    };
    Graph rippled = cut(options);
    MappingOptions incremented = options;
    incremented.carryIncrement = true;
    bool can = false;
    for (std::uint32_t i = 0; i < mapped.size() && !can; ++i)
      can = !loops.isInLoop({i}) && canIncrement(mapped, {i}, device, options);
    // Ripples of sums one behind the other overlap, increments do not.
    if (can)
      if (Graph other = cut(incremented); lastCycle(other, device, options) + kCyclesOfIncrements <=
                                          lastCycle(rippled, device, options))
        rippled = std::move(other);
    mapped = std::move(rippled);
  }
  // Last: folding and tried-out nodes leave some without readers.
  return rebuilt(mapped, keep);
}

}  // namespace mapping
