#include "backend/device/bit_times.h"

#include <span>

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Carry chains are made of blocks whose bits come in no order: so many bits are not told apart.
constexpr int kBlockOfSum = 4;
constexpr int kBlockOfLess = 8;
// The same of a sum right behind another one. Measured: 800 to 900 ps for each further sum of 10 to
// 32 bits that starts two bits higher, for which this gives 986.
constexpr int kBlockOfChained = 2;

// True where bit i of the result reads bit i of the operands alone.
bool isBitwise(Op op) {
  return op == Op::kNot || op == Op::kAnd || op == Op::kOr || op == Op::kXor || op == Op::kSelect ||
         op == Op::kPick;
}

}  // namespace

BitSteps::BitSteps(const Graph& graph, const Device& device, const Cover& cover)
    : graph(graph), device(device), cover(cover), steps(graph.size()), tops(graph.size(), kNoRamp) {
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    firstFlattened.push_back(flattened.size());
    flattenOperands({i});
    add({i});
  }
}

bool BitSteps::isListed(NodeId node, NodeId reader) const {
  const auto own = std::span(flattened).subspan(
      firstFlattened[reader.index], firstFlattenedEnd(reader) - firstFlattened[reader.index]);
  return std::ranges::find(own, node) != own.end();
}

// A condition or a carry in; and words with a lower top than others, which would make all bits
// above it late.
void BitSteps::flattenOperands(NodeId id) {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  const auto topOf = [&](NodeId operand) { return tops[operand.index]; };
  const auto flatten = [&](NodeId operand) {
    if (topOf(operand) != kNoRamp) flattened.push_back(operand);
  };
  if (node.op == Op::kSelect || node.op == Op::kPick) flatten(operands.front());
  if (node.op == Op::kAdd) flatten(operands.back());
  if (isBitwise(node.op) || node.op == Op::kAdd) {
    int widest = kNoRamp;
    for (const NodeId operand : operands) widest = std::max(widest, topOf(operand));
    for (const NodeId operand : operands)
      if (topOf(operand) < widest / 2) flatten(operand);
  } else if (node.op == Op::kConcat) {
    int widest = kNoRamp;  // from the top part down
    for (const NodeId operand : operands) {
      widest = std::max(widest, topOf(operand));
      if (topOf(operand) < widest / 2) flatten(operand);
    }
  }
}

// The lowest bit from which on the operands' ramps are over; kNoRamp where they have none.
int BitSteps::topOfOperands(NodeId id) const {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  int top = kNoRamp, low = 0;
  for (std::size_t i = operands.size(); i-- > 0;) {
    if (const int own = tops[operands[i].index]; own != kNoRamp && !isFlattened(operands[i], id))
      top = top == kNoRamp ? low + own : std::min(top, low + own);
    if (node.op == Op::kConcat) low += graph.node(operands[i]).width;
  }
  return top;
}

void BitSteps::add(NodeId id) {
  const Node& node = graph.node(id);
  const int delay = cover.delay(id);
  int top = topOfOperands(id);
  BitStep& step = steps[id.index];
  // What all bits of the result wait for.
  step = {.levelToLevel = delay, .rampToLevel = delay};
  const auto saved = [&](int block) { return std::max(0, top + 1 - block); };
  if (node.op == Op::kAdd && !device.isDspSum(graph, node)) {
    tops[id.index] = node.width - 1;
    step = {.levelToLevel = delay - device.carryDelay(std::max(0, node.width - kBlockOfSum)).value,
            .rampToLevel = BitTimes::kNone,
            .levelToRamp = delay,
            .rampToRamp = delay - device.carryDelay(saved(kBlockOfChained)).value};
  } else if (top == kNoRamp) {
    return;
  } else if (node.op == Op::kLess || node.op == Op::kLessSigned) {
    step.rampToLevel = delay - device.comparedDelay(saved(kBlockOfLess)).value;
  } else if (node.op == Op::kSlice) {
    top -= static_cast<int>(node.aux);
    if (top < 0) return;
    tops[id.index] = std::min(top, node.width - 1);
    step = {.levelToLevel = 0, .rampToRamp = 0};
  } else if (isBitwise(node.op) || node.op == Op::kConcat || node.op == Op::kReplicate) {
    tops[id.index] = top;
    step = {.levelToLevel = delay, .rampToRamp = delay};
  }
}

}  // namespace device
