#include "backend/schedule/stage_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/device/families.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Of a register behind which a product of one block reads its operand.
int setupBefore(const Graph& graph, const device::Device& device, NodeId product, int operand) {
  const auto operands = graph.operands(product);
  const auto width = [&](int i) { return graph.node(operands[static_cast<std::size_t>(i)]).width; };
  const device::Family& family = device.data();
  const bool isWide = width(operand) > width(1 - operand);
  const double inside = isWide ? family.dspWideSetup : family.dspNarrowSetup;
  return static_cast<int>(std::lround(inside * device.setup().value / family.setup));
}

// True where no more than one word stands among constants: a register of each of several words is
// none that a block takes.
bool isOneRun(const Graph& graph, std::span<const NodeId> parts) {
  return std::ranges::count_if(parts, [&](NodeId part) {
           return !isLiteral(graph.node(part)) && graph.node(part).op != Op::kReplicate;
         }) <= 1;
}

}  // namespace

StageModel::StageModel(const Graph& graph, const device::Device& device, device::Picoseconds period)
    : graph(graph),
      device(device),
      clockToOutput(device.clockToOutput().value),
      setup(device.setup().value),
      cover(graph, device, period),
      bits(graph, device, cover),
      loops(graph, cover.rootByNode()),
      laterSetup(graph.size()),
      isNextByNode(graph.size()) {
  delay.reserve(graph.size());
  delayToRegister.reserve(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    delay.push_back(cover.delay({i}));
    delayToRegister.push_back(cover.delayToRegister({i}));
  }
  for (const graph::State& state : graph.states()) isNextByNode[state.next.index] = true;
  findLaterSetups(period.value);
}

// Tools take a register into a product's block where the operand is one run of its bits, whoever
// else reads it and whatever clears or holds it.
void StageModel::findLaterSetups(int period) {
  std::vector<int> before(graph.size());  // of a register at the node
  for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;) {
    const NodeId id{i};
    const auto operands = graph.operands(id);
    if (device.isDspProduct(graph, graph.node(id)))
      for (int operand = 0; operand < 2; ++operand) {
        int& own = before[operands[static_cast<std::size_t>(operand)].index];
        own = std::max(own, setupBefore(graph, device, id, operand) - setup);
      }
    else if (isWiring(graph.node(id)) && isOneRun(graph, operands))
      for (const NodeId operand : operands)
        before[operand.index] = std::max(before[operand.index], before[i]);
  }
  for (const graph::State& state : graph.states())
    before[state.next.index] = std::max(before[state.next.index], before[state.node.index]);
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    if (isBlock({i}) || isLiteral(graph.nodes()[i])) continue;
    laterSetup[i] = before[i];
  }
  // Where even a stage of its own leaves no time for that, a step cannot be placed better.
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    if (const NodeId root = cover.rootOf({i});
        laterSetup[root.index] > 0 && (aloneStage(root) > period || aloneStage({i}) > period))
      laterSetup[root.index] = 0;
}

int StageModel::aloneStage(NodeId node) const {
  if (const NodeId root = cover.rootOf(node); root != node)
    return clockToOutput + delay[node.index] + end(root, {.level = setup});
  if (isNext(node)) return clockToOutput + delay[node.index] + laterSetup[node.index] + setup;
  const int before = clockToOutput + delayToRegister[node.index] + laterSetup[node.index];
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
