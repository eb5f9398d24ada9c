#include "backend/graph/narrow_steps.h"

#include <algorithm>
#include <bit>

#include "util/failure.h"

namespace graph {

namespace {

constexpr int kWordBits = 64;

std::uint64_t lowOnes(int width) {
  return width >= kWordBits ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
}

std::uint64_t signBit(int width) { return std::uint64_t{1} << (width - 1); }

// The two's-complement number whose sign has weight `sign`, in a whole word.
std::uint64_t extended(std::uint64_t bits, std::uint64_t sign) { return (bits ^ sign) - sign; }

}  // namespace

NarrowSteps::NarrowSteps(const Graph& graph) : graph(graph) {
  steps.reserve(graph.size());
  for (const Node& node : graph.nodes()) {
    const bool isComputed =
        node.op != Op::kInput && node.op != Op::kLiteral && node.op != Op::kState;
    bool isNarrow = isComputed && node.width <= kWordBits;
    for (const NodeId operand : graph.operands(node))
      isNarrow = isNarrow && graph.node(operand).width <= kWordBits;
    steps.push_back(isNarrow ? stepOf(node) : Step{});
  }
}

NarrowSteps::Step NarrowSteps::stepOf(const Node& node) {
  const auto operands = graph.operands(node);
  const auto widthOf = [&](std::size_t i) { return graph.node(operands[i]).width; };
  Step step{.op = node.op,
            .isCovered = true,
            .operandCount = node.operandCount,
            .first = static_cast<std::uint32_t>(words.size()),
            .mask = lowOnes(node.width)};
  switch (node.op) {
    case Op::kSlice:
      step.constant = node.aux;
      break;
    case Op::kConcat:
      for (std::size_t i = 0; i < operands.size(); ++i)
        words.push_back(static_cast<std::uint64_t>(widthOf(i)));
      break;
    case Op::kReplicate:  // a product with a one for each copy
      for (int low = 0; low < node.width; low += widthOf(0)) step.constant |= 1ull << low;
      break;
    case Op::kReduceAnd:
      step.constant = lowOnes(widthOf(0));
      break;
    case Op::kLut:
      for (unsigned long x = 0; x < 1ul << widthOf(0); ++x)
        words.push_back((graph.literal(node) >> (x * static_cast<unsigned long>(node.width)))
                            .lowBits(static_cast<unsigned long>(node.width))
                            .toUint64());
      break;
    case Op::kTable:
    case Op::kMemory:
      for (const util::MPZ& row : graph.rows(node)) words.push_back(row.toUint64());
      break;
    case Op::kLessSigned:
      step.constant = signBit(widthOf(0));
      break;
    case Op::kMultiplySigned:
      step.constant = signBit(widthOf(0));
      step.constant2 = signBit(widthOf(1));
      break;
    case Op::kHeap:
      for (const std::uint32_t shift : graph.shifts(node)) words.push_back(shift);
      break;
    case Op::kNot:
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
    case Op::kSelect:
    case Op::kPick:
    case Op::kReduceOr:
    case Op::kReduceXor:
    case Op::kAdd:
    case Op::kEqual:
    case Op::kLess:
    case Op::kMultiply:
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kCount:
      break;
  }
  return step;
}

std::uint64_t NarrowSteps::evaluate(std::size_t node, const mp_limb_t* const* operands) const {
  const Step& step = steps[node];
  const auto value = [&](std::size_t i) -> std::uint64_t { return *operands[i]; };
  switch (step.op) {
    case Op::kSlice:
      return (value(0) >> step.constant) & step.mask;
    case Op::kConcat: {
      std::uint64_t bits = value(0);
      for (std::uint32_t i = 1; i < step.operandCount; ++i)
        bits = (bits << words[step.first + i]) | value(i);
      return bits;
    }
    case Op::kReplicate:
      return value(0) * step.constant;
    case Op::kNot:
      return ~value(0) & step.mask;
    case Op::kAnd:
      return value(0) & value(1);
    case Op::kOr:
      return value(0) | value(1);
    case Op::kXor:
      return value(0) ^ value(1);
    case Op::kSelect:
      return value(0) != 0 ? value(1) : value(2);
    case Op::kPick:
      return value(1 + std::min<std::uint64_t>(value(0), step.operandCount - 2));
    case Op::kReduceAnd:
      return value(0) == step.constant;
    case Op::kReduceOr:
      return value(0) != 0;
    case Op::kReduceXor:
      return std::popcount(value(0)) & 1;
    case Op::kLut:
    case Op::kTable:
    case Op::kMemory:
      return words[step.first + value(0)];
    case Op::kAdd: {
      std::uint64_t sum = 0;
      for (std::uint32_t i = 0; i < step.operandCount; ++i) sum += value(i);
      return sum & step.mask;
    }
    case Op::kEqual:
      return value(0) == value(1);
    case Op::kLess:
      return value(0) < value(1);
    case Op::kLessSigned:
      return (value(0) ^ step.constant) < (value(1) ^ step.constant);
    case Op::kMultiply:
      return value(0) * value(1);
    case Op::kMultiplySigned:
      return (extended(value(0), step.constant) * extended(value(1), step.constant2)) & step.mask;
    case Op::kHeap: {
      std::uint64_t sum = 0;
      for (std::uint32_t i = 0; i < step.operandCount; ++i)
        sum += value(i) << words[step.first + i];
      return sum & step.mask;
    }
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "a node that is computed");
}

}  // namespace graph
