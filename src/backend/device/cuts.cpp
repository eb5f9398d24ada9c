#include "backend/device/cuts.h"

#include <algorithm>

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// The bit itself, wiring and inversions left out; nothing for a constant.
std::optional<Input> bitOf(const Graph& graph, NodeId id, int bit) {
  for (;;) {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    switch (node.op) {
      case Op::kLiteral:
        return std::nullopt;
      case Op::kNot:
        id = operands[0];
        continue;
      case Op::kSlice:
        bit += static_cast<int>(node.aux);
        id = operands[0];
        continue;
      case Op::kReplicate:
        id = operands[0];
        bit %= graph.node(id).width;
        continue;
      case Op::kConcat:
        // Parts stand from the highest one.
        for (std::size_t i = operands.size(); i-- > 0;) {
          const int width = graph.node(operands[i]).width;
          if (bit < width) {
            id = operands[i];
            break;
          }
          bit -= width;
        }
        continue;
      default:
        return Input{id, {node.width == 1 ? 0 : bit, true}};
    }
  }
}

}  // namespace

Leaf Leaf::seenBy(const Graph& graph, const Input& input) const {
  if (bit.isFixed || graph.node(input.node).width == 1) return *this;
  const BitPlace seen{bit.offset + input.bit.offset, input.bit.isFixed};
  return {node, graph.node(node).width == 1 ? BitPlace{0, true} : seen};
}

bool Cut::takes(NodeId node) const {
  return std::ranges::find(allTaken(), node, &Taken::node) != allTaken().end();
}

bool Cut::add(const Leaf& leaf) {
  if (std::ranges::find(all(), leaf) != all().end()) return true;
  if (count == kMost) return false;
  leaves[static_cast<std::size_t>(count++)] = leaf;
  return true;
}

bool Cut::take(NodeId node, std::size_t cut) {
  for (const Leaf& leaf : all())
    if (leaf.node == node) return false;
  for (const Taken& other : allTaken())
    if (other.node == node) return other.cut == cut;
  if (takenCount == kMost) return false;
  taken[static_cast<std::size_t>(takenCount++)] = {node, static_cast<std::uint32_t>(cut)};
  return true;
}

bool isTransparent(const Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  return node.op == Op::kNot ||
         (traitsOf(node.op).wiring && node.op != Op::kState && node.op != Op::kInput);
}

std::optional<Input> inputOf(const Graph& graph, NodeId id, int width) {
  if (width == 1) return bitOf(graph, id, 0);
  int offset = 0;
  for (;;) {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    switch (node.op) {
      case Op::kLiteral:
        return std::nullopt;
      case Op::kNot:
        id = operands[0];
        continue;
      case Op::kSlice:
        offset += static_cast<int>(node.aux);
        id = operands[0];
        continue;
      case Op::kReplicate:
        if (graph.node(operands[0]).width != 1) return Input{id, {offset, false}};
        return bitOf(graph, operands[0], 0);
      case Op::kConcat: {
        // One word with constants around it, or a join.
        NodeId word;
        int words = 0, low = 0, wordLow = 0;
        for (std::size_t i = operands.size(); i-- > 0;) {
          if (graph.node(operands[i]).op != Op::kLiteral) {
            word = operands[i];
            wordLow = low;
            ++words;
          }
          low += graph.node(operands[i]).width;
        }
        if (words != 1 || graph.node(word).width == 1) return Input{id, {offset, false}};
        id = word;
        offset -= wordLow;
        continue;
      }
      default:
        return Input{id, {node.width == 1 ? 0 : offset, node.width == 1}};
    }
  }
}

std::optional<std::vector<Input>> inputsOfOneBit(const Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  std::vector<Input> inputs;
  const auto word = [&](NodeId operand) {
    if (const auto input = inputOf(graph, operand, node.width)) inputs.push_back(*input);
  };
  const auto everyBit = [&](NodeId operand) {
    // Most wide operands have few constants; those have too many bits.
    const int width = graph.node(operand).width;
    if (width > 4 * Cut::kMost) return false;
    for (int bit = 0; bit < width; ++bit)
      if (const auto input = bitOf(graph, operand, bit)) inputs.push_back(*input);
    return inputs.size() <= Cut::kMost;
  };
  switch (node.op) {
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
      for (const NodeId operand : operands) word(operand);
      break;
    case Op::kSelect:
    case Op::kPick:
      if (!everyBit(operands[0]) || operands.size() > 5) return std::nullopt;
      for (const NodeId operand : operands.subspan(1)) word(operand);
      break;
    case Op::kReduceAnd:
    case Op::kReduceOr:
    case Op::kReduceXor:
    case Op::kLut:
    case Op::kEqual:
    case Op::kLess:
    case Op::kLessSigned:
      for (const NodeId operand : operands)
        if (!everyBit(operand)) return std::nullopt;
      break;
    default:
      return std::nullopt;
  }
  if (inputs.size() > Cut::kMost) return std::nullopt;
  return inputs;
}

namespace {

// A run of bits of an addend from `low` up; its input counts from bit 0 of the sum.
struct Run {
  int low = 0;
  std::optional<Input> input;
};

// The runs of an addend, lowest first.
void addRuns(const Graph& graph, NodeId addend, int low, std::vector<Run>& runs) {
  const Node& node = graph.node(addend);
  const auto operands = graph.operands(node);
  if (node.op == Op::kNot && graph.node(operands[0]).op == Op::kConcat)
    return addRuns(graph, operands[0], low, runs);
  if (node.op == Op::kConcat) {
    for (std::size_t i = operands.size(); i-- > 0;) {
      addRuns(graph, operands[i], low, runs);
      low += graph.node(operands[i]).width;
    }
    return;
  }
  std::optional<Input> input = inputOf(graph, addend, node.width);
  if (input && !input->bit.isFixed) input->bit.offset -= low;
  runs.push_back({low, input});
}

}  // namespace

std::vector<SumSegment> segmentsOf(const Graph& graph, NodeId a, NodeId b) {
  const int width = graph.node(a).width;
  std::array<std::vector<Run>, 2> runs;
  addRuns(graph, a, 0, runs[0]);
  addRuns(graph, b, 0, runs[1]);
  std::array<std::size_t, 2> at{};
  std::vector<SumSegment> segments;
  for (int low = 0; low < width;) {
    const auto endOf = [&](std::size_t side) {
      const std::size_t next = at[side] + 1;
      return next < runs[side].size() ? runs[side][next].low : width;
    };
    const int end = std::min(endOf(0), endOf(1));
    segments.push_back({end - low, {runs[0][at[0]].input, runs[1][at[1]].input}});
    for (std::size_t side = 0; side < 2; ++side)
      if (endOf(side) == end) ++at[side];
    low = end;
  }
  return segments;
}

std::vector<NodeId> soleReaders(const Graph& graph) {
  const NodeId many{static_cast<std::uint32_t>(graph.size())};
  std::vector<NodeId> reader(graph.size());
  const auto readBy = [&](NodeId id, NodeId by) {
    NodeId& own = reader[id.index];
    // Wiring that no one reads stands for itself.
    own = by != NodeId{} && (own == NodeId{} || own == by) ? by : many;
  };
  for (const graph::Port& port : graph.outputs()) readBy(port.signal.node, many);
  for (const graph::State& state : graph.states()) readBy(state.next, many);
  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;)
    for (const NodeId operand : graph.operands(NodeId{i}))
      readBy(operand, isTransparent(graph, {i}) ? reader[i] : NodeId{i});
  for (NodeId& own : reader)
    if (own == many) own = {};
  return reader;
}

std::vector<int> fanOuts(const Graph& graph) {
  constexpr int kMany = 1 << 20;
  std::vector<int> fans(graph.size());
  const auto add = [&](NodeId id, int more) {
    fans[id.index] = std::min(kMany, fans[id.index] + more);
  };
  for (const graph::Port& port : graph.outputs()) add(port.signal.node, 1);
  for (const graph::State& state : graph.states()) add(state.next, 1);
  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;) {
    const Node& node = graph.nodes()[i];
    for (const NodeId operand : graph.operands(node)) {
      const bool spreads =
          graph.node(operand).width < node.width && node.op != Op::kConcat && node.op != Op::kAdd;
      const int readers = isTransparent(graph, {i}) ? fans[i] : 1;
      const int copies = !spreads                    ? 1
                         : node.op == Op::kReplicate ? node.width / graph.node(operand).width
                                                     : node.width;
      add(operand, static_cast<int>(std::min<long>(kMany, long{readers} * copies)));
    }
  }
  return fans;
}

}  // namespace device
