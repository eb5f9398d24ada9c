#include "backend/schedule/stage_model.h"

#include <fmt/format.h>

#include <algorithm>

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

StageModel::StageModel(const Graph& graph, const device::Device& device, device::Picoseconds period)
    : graph(graph),
      device(device),
      clockToOutput(device.clockToOutput().value),
      setup(device.setup().value),
      cover(graph, device, period),
      bits(graph, device, cover),
      loops(graph, cover.rootByNode()),
      isNextByNode(graph.size()) {
  delay.reserve(graph.size());
  delayToRegister.reserve(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    delay.push_back(cover.delay({i}));
    delayToRegister.push_back(cover.delayToRegister({i}));
  }
  for (const graph::State& state : graph.states()) isNextByNode[state.next.index] = true;
}

int StageModel::aloneStage(NodeId node) const {
  if (const NodeId root = cover.rootOf(node); root != node)
    return clockToOutput + delay[node.index] + end(root, {.level = setup});
  if (isNext(node)) return clockToOutput + delay[node.index] + setup;
  const int before = clockToOutput + delayToRegister[node.index];
  return std::max(before, isBlock(node) ? fromRegister(node, 1) : 0) + setup;
}

bool isWiring(const Node& node) { return traitsOf(node.op).wiring; }
bool isLiteral(const Node& node) { return node.op == Op::kLiteral; }

std::string stepName(const Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  const std::string_view name = traitsOf(node.op).name;
  const auto width = [&](std::size_t i) { return graph.node(operands[i]).width; };
  if (node.op == Op::kMultiply || node.op == Op::kMultiplySigned)
    return fmt::format("{} {}x{}", name, width(0), width(1));
  if (node.op == Op::kTable || node.op == Op::kMemory)
    return fmt::format("{} {}x{}", name, graph.rows(node).size(), node.width);
  if (node.op == Op::kPick)
    return fmt::format("{} of {} {}", name, operands.size() - 1, node.width);
  // A node of one bit is as slow as what it reads is wide.
  const bool reduces = node.width == 1 && !operands.empty();
  return fmt::format("{} {}", name, reduces ? width(0) : node.width);
}

}  // namespace schedule
