#include "backend/mapping/sum_shapes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <unordered_map>
#include <vector>

#include "backend/device/families.h"
#include "backend/mapping/arrivals.h"
#include "backend/mapping/cutting.h"
#include "backend/mapping/rebuild.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

// A stage more holds each bit of the result and of what goes along with it once more: two registers
// to a table beside it, and as much for what waits for the result.
constexpr double kTablesPerBitAndStage = 6;
// What is left of the last stage is of use to what follows, if there is any.
constexpr double kPartOfLastStage = 0.5;

constexpr std::array kShapes{
    SumShape{},
    SumShape{.inStages = true},
    SumShape{.inStages = true, .counters = true},
    SumShape{.chainStages = 1},
    SumShape{.inStages = true, .chainStages = 1},
    SumShape{.inStages = true, .counters = true, .chainStages = 1},
    SumShape{.inStages = true, .counters = true, .apart = true, .chainStages = 1},
    SumShape{.inStages = true, .chainStages = 1, .cascades = false},
};

// The operands in a graph of their own, of which they are inputs, but for wiring and products.
class Operands {
 public:
  Operands(const Builder& from, Builder& to) : from(from.built()), to(to) {}

  Signal copyOf(Signal signal) {
    if (const auto found = copies.find(signal.node.index); found != copies.end())
      return found->second;
    const Node node = from.node(signal.node);
    Signal copy;
    if (node.op == Op::kLiteral) {
      copy = to.literal(from.literal(node), node.width);
    } else if (staysItself(node.op)) {
      std::vector<Signal> operands;
      for (const NodeId operand : from.operands(node))
        operands.push_back(copyOf(from.signal(operand)));
      copy = to.copy(from, signal.node, operands);
    } else {
      copy = to.input(fmt::format("x{}", inputs.size()), node.width);
      inputs.push_back(signal);
    }
    copies.emplace(signal.node.index, copy);
    return copy;
  }

  std::vector<Signal> inputs;  // what the inputs stand for

 private:
  static bool staysItself(Op op) {
    switch (op) {
      case Op::kSlice:
      case Op::kConcat:
      case Op::kReplicate:
      case Op::kNot:
      case Op::kMultiply:
      case Op::kMultiplySigned:
        return true;
      default:
        return false;
    }
  }

  const Graph& from;
  Builder& to;
  std::unordered_map<std::uint32_t, Signal> copies;
};

struct Trial {
  Graph graph;
  std::vector<Signal> inputs;  // of the graph that wants the sum
  double price = std::numeric_limits<double>::infinity();
  double blocks = 0;
};

Trial tried(const Builder& builder, const device::Device& device, const MappingOptions& options,
            std::span<const Signal> operands, const MakeSum& make) {
  Trial trial;
  Builder b(trial.graph);
  Operands copies(builder, b);
  std::vector<Signal> own;
  for (const Signal operand : operands) own.push_back(copies.copyOf(operand));
  b.output("sum", make(b, own, options));
  trial.inputs = std::move(copies.inputs);

  const Graph cut = rebuilt(
      trial.graph, [&](Builder& to, const Graph& from, NodeId id, std::span<const Signal> x) {
        return cutToFit(to, from, id, x, device, options);
      });
  const Arrivals arrivals(cut, device, options.period);
  const Signal sum = cut.outputs()[0].signal;
  Arrival end = arrivals.of(sum.node);
  if (end.time >= Arrivals::kNever) end = {end.cycle + 1, 0};
  const double stages =
      end.cycle + kPartOfLastStage * std::min(1.0, 1.0 * end.time / options.period.value);
  trial.price = arrivals.clusters().cost().luts + kTablesPerBitAndStage * sum.width * stages;
  trial.blocks = arrivals.clusters().cost().dsps;
  return trial;
}

// Adds what a graph computes from `inputs`, its own, to the builder's.
Signal inlined(Builder& b, const Graph& graph, std::span<const Signal> inputs) {
  std::vector<Signal> made(graph.size());
  for (std::size_t i = 0; i < inputs.size(); ++i)
    made[graph.inputs()[i].signal.node.index] = inputs[i];
  std::vector<Signal> operands;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (made[i]) continue;
    operands.clear();
    for (const NodeId operand : graph.operands(NodeId{i})) operands.push_back(made[operand.index]);
    made[i] = graph.node(NodeId{i}).op == Op::kLiteral
                  ? b.literal(graph.literal(graph.node(NodeId{i})), graph.node(NodeId{i}).width)
                  : b.copy(graph, NodeId{i}, operands);
  }
  return made[graph.outputs()[0].signal.node.index];
}

}  // namespace

Signal cheapestSum(Builder& builder, const device::Device& device, const MappingOptions& options,
                   std::span<const Signal> operands, const MakeSum& make) {
  const auto trialOf = [&](const SumShape& shape) {
    MappingOptions shaped = options;
    shaped.sums = shape;
    return tried(builder, device, shaped, operands, make);
  };
  // What a block is worth is decided already.
  Trial best = trialOf(kShapes[0]);
  const double blocks = best.blocks;
  for (const SumShape& shape : std::span(kShapes).subspan(1))
    if (Trial trial = trialOf(shape); trial.blocks <= blocks && trial.price < best.price)
      best = std::move(trial);
  const Graph live =
      rebuilt(best.graph,
              [](Builder&, const Graph&, NodeId, std::span<const Signal>) -> Signal { return {}; });
  return inlined(builder, live, best.inputs);
}

}  // namespace mapping
