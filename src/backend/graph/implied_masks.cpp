#include <algorithm>

#include "backend/graph/builder.h"
#include "util/failure.h"

// Conjunctions and disjunctions, with the identities of Boolean algebra that circuits made of
// building blocks are full of: masks that something else implies.
namespace graph {

namespace {

// Implications are followed through so many operations.
constexpr int kDeepest = 5;

}  // namespace

bool Builder::areComplements(Signal a, Signal b) const {
  const auto isNotOf = [&](Signal x, Signal y) {
    const Node& node = graph.node(x.node);
    return node.op == Op::kNot && graph.operands(node)[0] == y.node;
  };
  return isNotOf(a, b) || isNotOf(b, a);
}

Signal Builder::operandOf(Signal x, std::size_t index) const {
  return graph.signal(graph.operands(x.node)[index]);
}

Op Builder::opOf(Signal x) const { return graph.node(x.node).op; }

Signal Builder::maskBit(Signal x) const {
  if (x.width == 1) return x;
  if (opOf(x) != Op::kReplicate) return {};
  const Signal bit = operandOf(x, 0);
  return bit.width == 1 ? bit : Signal{};
}

bool Builder::isPartOf(Signal x, Signal whole) const {
  return x == whole || (opOf(x) == Op::kSlice && operandOf(x, 0) == whole);
}

// True where every bit of x that is 1 says that `bit` is 1.
bool Builder::bitsImply(Signal x, Signal bit, int depth) const {
  if (x == bit || isZeroLiteral(x)) return true;
  if (depth == 0) return false;
  const auto next = [&](std::size_t index) {
    return bitsImply(operandOf(x, index), bit, depth - 1);
  };
  switch (opOf(bit)) {
    case Op::kReduceOr:
      if (isPartOf(x, operandOf(bit, 0))) return true;
      if (opOf(x) == Op::kReduceAnd && operandOf(x, 0) == operandOf(bit, 0)) return true;
      break;
    case Op::kOr:
      for (const std::size_t index : {0u, 1u})
        if (bitsImply(x, operandOf(bit, index), depth - 1)) return true;
      break;
    default:
      break;
  }
  switch (opOf(x)) {
    case Op::kAnd:
      return next(0) || next(1);
    case Op::kOr:
      return next(0) && next(1);
    case Op::kSlice:
    case Op::kReplicate:
      return next(0);
    case Op::kNot:
      return absenceImplies(operandOf(x, 0), bit, depth - 1);
    case Op::kConcat:
      return std::ranges::all_of(graph.operands(x.node), [&](NodeId part) {
        return bitsImply(graph.signal(part), bit, depth - 1);
      });
    default:
      return false;
  }
}

// True where every bit of x that is 0 says that `bit` is 1.
bool Builder::absenceImplies(Signal x, Signal bit, int depth) const {
  if (opOf(x) == Op::kNot && bitsImply(operandOf(x, 0), bit, depth - 1)) return true;
  if (x.width == 1 && opOf(bit) == Op::kNot && bitsImply(operandOf(bit, 0), x, depth - 1))
    return true;
  if (depth <= 0) return false;
  const auto next = [&](std::size_t index) {
    return absenceImplies(operandOf(x, index), bit, depth - 1);
  };
  switch (opOf(x)) {
    case Op::kAnd:
      return next(0) && next(1);
    case Op::kOr:
      return next(0) || next(1);
    case Op::kSlice:
    case Op::kReplicate:
      return next(0);
    default:
      return false;
  }
}

// True where `bit` says that all bits of x are 1.
bool Builder::bitImpliesAll(Signal bit, Signal x, int depth) const {
  if (depth == 0) return false;
  if (const Signal single = maskBit(x)) return bitsImply(bit, single, depth);
  if (opOf(bit) == Op::kReduceAnd && isPartOf(x, operandOf(bit, 0))) return true;
  if (opOf(bit) == Op::kAnd)
    for (const std::size_t index : {0u, 1u})
      if (bitImpliesAll(operandOf(bit, index), x, depth - 1)) return true;
  if (opOf(x) == Op::kOr)
    return bitImpliesAll(bit, operandOf(x, 0), depth - 1) ||
           bitImpliesAll(bit, operandOf(x, 1), depth - 1);
  return false;
}

// a where (a and m) says no more than a, m being one bit or that bit repeated.
bool Builder::isImpliedMask(Signal mask, Signal x) const {
  const Signal bit = maskBit(mask);
  return bit && bitsImply(x, bit, kDeepest);
}

Signal Builder::bitAnd(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "and of unequal widths");
  if (a == b || isOnesLiteral(b) || isZeroLiteral(a)) return a;
  if (isOnesLiteral(a) || isZeroLiteral(b)) return b;
  if (isLiteral(a) && isLiteral(b)) return literal(valueOf(a) & valueOf(b), a.width);
  if (areComplements(a, b)) return zeros(a.width);
  if (isImpliedMask(b, a)) return a;
  if (isImpliedMask(a, b)) return b;
  // (x and m) and n, where n says that m is 1.
  for (const auto& [outer, inner] : {std::pair{a, b}, {b, a}}) {
    if (opOf(inner) != Op::kAnd || !maskBit(outer)) continue;
    for (const std::size_t index : {0u, 1u})
      if (isImpliedMask(operandOf(inner, index), outer))
        return bitAnd(operandOf(inner, 1 - index), outer);
  }
  if (b.node < a.node) std::swap(a, b);
  return make(Op::kAnd, a.width, {a, b});
}

Signal Builder::bitOr(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "or of unequal widths");
  if (a == b || isZeroLiteral(b) || isOnesLiteral(a)) return a;
  if (isZeroLiteral(a) || isOnesLiteral(b)) return b;
  if (isLiteral(a) && isLiteral(b)) return literal(valueOf(a) | valueOf(b), a.width);
  if (areComplements(a, b)) return ones(a.width);
  if (isImpliedMask(b, a)) return b;
  if (isImpliedMask(a, b)) return a;
  for (const auto& [x, mask] : {std::pair{a, b}, {b, a}}) {
    const Signal bit = maskBit(mask);
    if (bit && bitImpliesAll(bit, x, kDeepest)) return x;
  }
  // (x and m) or (x and not m).
  if (opOf(a) == Op::kAnd && opOf(b) == Op::kAnd)
    for (const std::size_t i : {0u, 1u})
      for (const std::size_t j : {0u, 1u})
        if (operandOf(a, i) == operandOf(b, j) &&
            areComplements(operandOf(a, 1 - i), operandOf(b, 1 - j)))
          return operandOf(a, i);
  if (b.node < a.node) std::swap(a, b);
  return make(Op::kOr, a.width, {a, b});
}

}  // namespace graph
