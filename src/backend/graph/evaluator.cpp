#include "backend/graph/evaluator.h"

#include <algorithm>
#include <bit>

#include "util/failure.h"

namespace graph {

using util::MPZ;

namespace {

constexpr int kLimbBits = 64;

mp_limb_t maskOf(int width) {
  return width >= kLimbBits ? ~mp_limb_t{0} : (mp_limb_t{1} << width) - 1;
}

// Clears the bits above `width` in its top limb.
void trim(mp_limb_t* limbs, int width) {
  if (width % kLimbBits != 0) limbs[limbsOf(width) - 1] &= maskOf(width % kLimbBits);
}

bool bitAt(const mp_limb_t* limbs, int position) {
  return (limbs[position / kLimbBits] >> (position % kLimbBits)) & 1;
}

// result |= (the `width` bits of source from `from` up) << to.
void orBits(mp_limb_t* result, int to, const mp_limb_t* source, int from, int width) {
  while (width > 0) {
    const int offset = from % kLimbBits, place = to % kLimbBits;
    const int count = std::min({width, kLimbBits - offset, kLimbBits - place});
    const mp_limb_t piece = (source[from / kLimbBits] >> offset) & maskOf(count);
    result[to / kLimbBits] |= piece << place;
    from += count, to += count, width -= count;
  }
}

// result += source << shift, in `count` limbs; what passes the top is lost.
void addShifted(mp_limb_t* result, std::size_t count, const mp_limb_t* source,
                std::size_t sourceCount, std::uint32_t shift) {
  const std::uint32_t offset = shift % kLimbBits;
  const auto addAt = [&](std::size_t place, mp_limb_t value) {
    if (place < count && value != 0)
      mpn_add_1(result + place, result + place, static_cast<mp_size_t>(count - place), value);
  };
  for (std::size_t i = 0, place = shift / kLimbBits; i < sourceCount; ++i, ++place) {
    addAt(place, source[i] << offset);
    if (offset != 0) addAt(place + 1, source[i] >> (kLimbBits - offset));
  }
}

// The number of `width` bits whose sign is its top bit, in a whole limb.
mp_limb_t signExtended(mp_limb_t bits, int width) {
  const mp_limb_t sign = mp_limb_t{1} << (width - 1);
  return (bits ^ sign) - sign;
}

// The product of two numbers of at most one limb, as two limbs.
void multiplyLimbs(mp_limb_t a, mp_limb_t b, bool isSigned, mp_limb_t* result) {
  result[1] = mpn_mul_1(result, &a, 1, b);
  if (!isSigned) return;
  // A sign bit that was counted as 2^63 weighs 2^64 less.
  if (a >> (kLimbBits - 1)) result[1] -= b;
  if (b >> (kLimbBits - 1)) result[1] -= a;
}

void addInto(mp_limb_t* sum, const mp_limb_t* addend, std::size_t count) {
  mpn_add_n(sum, sum, addend, static_cast<mp_size_t>(count));
}

int compare(const mp_limb_t* a, const mp_limb_t* b, int width) {
  return mpn_cmp(a, b, static_cast<mp_size_t>(limbsOf(width)));
}

// The index of the choice that an index value picks.
std::size_t choiceOf(const mp_limb_t* index, int width, std::size_t choices) {
  for (std::size_t i = 1; i < limbsOf(width); ++i)
    if (index[i] != 0) return choices - 1;
  return std::min<std::size_t>(index[0], choices - 1);
}

}  // namespace

void evaluateNode(const Graph& graph, const Node& node, std::span<const mp_limb_t* const> operands,
                  mp_limb_t* result) {
  const std::size_t count = limbsOf(node.width);
  const auto widthOf = [&](std::size_t i) { return graph.node(graph.operands(node)[i]).width; };
  const auto clear = [&] { std::fill_n(result, count, mp_limb_t{0}); };
  const auto limbwise = [&](auto operation) {
    for (std::size_t i = 0; i < count; ++i) result[i] = operation(operands[0][i], operands[1][i]);
  };
  switch (node.op) {
    case Op::kInput:
    case Op::kState:
      return;
    case Op::kLiteral:
      toLimbs(graph.literal(node), node.width, result);
      return;
    case Op::kSlice:
      clear();
      orBits(result, 0, operands[0], static_cast<int>(node.aux), node.width);
      return;
    case Op::kConcat: {
      clear();
      int top = node.width;
      for (std::size_t i = 0; i < operands.size(); ++i) {
        top -= widthOf(i);
        orBits(result, top, operands[i], 0, widthOf(i));
      }
      return;
    }
    case Op::kReplicate: {
      const int width = widthOf(0);
      clear();
      for (int low = 0; low < node.width; low += width) orBits(result, low, operands[0], 0, width);
      return;
    }
    case Op::kNot:
      for (std::size_t i = 0; i < count; ++i) result[i] = ~operands[0][i];
      trim(result, node.width);
      return;
    case Op::kAnd:
      return limbwise([](mp_limb_t a, mp_limb_t b) { return a & b; });
    case Op::kOr:
      return limbwise([](mp_limb_t a, mp_limb_t b) { return a | b; });
    case Op::kXor:
      return limbwise([](mp_limb_t a, mp_limb_t b) { return a ^ b; });
    case Op::kSelect:
      std::copy_n(operands[operands[0][0] != 0 ? 1 : 2], count, result);
      return;
    case Op::kPick:
      std::copy_n(operands[1 + choiceOf(operands[0], widthOf(0), operands.size() - 1)], count,
                  result);
      return;
    case Op::kReduceAnd: {
      const int width = widthOf(0);
      result[0] = 1;
      for (std::size_t i = 0; i < limbsOf(width); ++i)
        if (operands[0][i] != maskOf(std::min(kLimbBits, width - static_cast<int>(i) * kLimbBits)))
          result[0] = 0;
      return;
    }
    case Op::kReduceOr:
      result[0] = mpn_zero_p(operands[0], static_cast<mp_size_t>(limbsOf(widthOf(0)))) == 0;
      return;
    case Op::kReduceXor:
      result[0] = mpn_popcount(operands[0], static_cast<mp_size_t>(limbsOf(widthOf(0)))) & 1;
      return;
    case Op::kLut:
      toLimbs(graph.literal(node) >> (operands[0][0] * static_cast<unsigned long>(node.width)),
              node.width, result);
      return;
    case Op::kTable:
    case Op::kMemory:
      toLimbs(graph.rows(node)[operands[0][0]], node.width, result);
      return;
    case Op::kAdd:
      std::copy_n(operands[0], count, result);
      for (std::size_t i = 1; i + 1 < operands.size(); ++i) addInto(result, operands[i], count);
      mpn_add_1(result, result, static_cast<mp_size_t>(count), operands[operands.size() - 1][0]);
      trim(result, node.width);
      return;
    case Op::kEqual:
      result[0] = compare(operands[0], operands[1], widthOf(0)) == 0;
      return;
    case Op::kLess:
      result[0] = compare(operands[0], operands[1], widthOf(0)) < 0;
      return;
    case Op::kLessSigned: {
      const bool a = bitAt(operands[0], widthOf(0) - 1), b = bitAt(operands[1], widthOf(0) - 1);
      result[0] = a != b ? a : compare(operands[0], operands[1], widthOf(0)) < 0;
      return;
    }
    case Op::kMultiply:
    case Op::kMultiplySigned: {
      const bool isSigned = node.op == Op::kMultiplySigned;
      if (count == 2 && widthOf(0) <= kLimbBits && widthOf(1) <= kLimbBits) {
        const auto factor = [&](std::size_t i) {
          return isSigned ? signExtended(operands[i][0], widthOf(i)) : operands[i][0];
        };
        multiplyLimbs(factor(0), factor(1), isSigned, result);
        trim(result, node.width);
        return;
      }
      MPZ a = fromLimbs(operands[0], widthOf(0)), b = fromLimbs(operands[1], widthOf(1));
      if (isSigned) a = a.asSigned(widthOf(0)), b = b.asSigned(widthOf(1));
      toLimbs(a * b, node.width, result);
      return;
    }
    case Op::kHeap: {
      clear();
      for (std::size_t i = 0; i < operands.size(); ++i)
        addShifted(result, count, operands[i], limbsOf(widthOf(i)), graph.shifts(node)[i]);
      trim(result, node.width);
      return;
    }
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "an operation of the graph");
}

void toLimbs(const MPZ& pattern, int width, mp_limb_t* limbs) {
  if (pattern.sign() < 0)
    return toLimbs(pattern.lowBits(static_cast<unsigned long>(width)), width, limbs);
  for (std::size_t i = 0; i < limbsOf(width); ++i)
    limbs[i] = mpz_getlimbn(pattern.get(), static_cast<mp_size_t>(i));  // 0 past the last
  trim(limbs, width);
}

MPZ fromLimbs(const mp_limb_t* limbs, int width) {
  if (width <= kLimbBits) return limbs[0];
  MPZ result;
  mpz_import(result.get(), limbsOf(width), -1, sizeof(mp_limb_t), 0, 0, limbs);
  return result;
}

Evaluator::Evaluator(const Graph& graph) : graph(graph), narrow(graph) {
  std::size_t total = 0;
  offsets.reserve(graph.size());
  for (const Node& node : graph.nodes()) {
    offsets.push_back(total);
    total += limbsOf(node.width);
  }
  limbs.resize(total);
  for (std::size_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    firstOperand.push_back(operandPointers.size());
    for (const NodeId operand : graph.operands(node))
      operandPointers.push_back(limbs.data() + offsets[operand.index]);
    if (node.op == Op::kLiteral) toLimbs(graph.literal(node), node.width, &limbs[offsets[i]]);
  }
  resetStates();
}

void Evaluator::resetStates() {
  for (const State& state : graph.states())
    toLimbs(state.initial, graph.node(state.node).width, &limbs[offsets[state.node.index]]);
}

void Evaluator::clock() {
  // One state may be the next value of another: all are read before any is written.
  nextStates.clear();
  for (const State& state : graph.states()) {
    const mp_limb_t* next = &limbs[offsets[state.next.index]];
    nextStates.insert(nextStates.end(), next, next + limbsOf(graph.node(state.next).width));
  }
  const mp_limb_t* next = nextStates.data();
  for (const State& state : graph.states()) {
    const std::size_t count = limbsOf(graph.node(state.node).width);
    std::copy_n(next, count, &limbs[offsets[state.node.index]]);
    next += count;
  }
}

void Evaluator::setInput(std::size_t port, const MPZ& pattern) {
  const Signal signal = graph.inputs()[port].signal;
  toLimbs(pattern, signal.width, &limbs[offsets[signal.node.index]]);
}

void Evaluator::run() {
  for (std::size_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    const mp_limb_t* const* operands = operandPointers.data() + firstOperand[i];
    if (narrow.covers(i))
      limbs[offsets[i]] = narrow.evaluate(i, operands);
    else if (node.op != Op::kLiteral)
      evaluateNode(graph, node, {operands, node.operandCount}, &limbs[offsets[i]]);
  }
}

MPZ Evaluator::valueOf(NodeId id) const {
  return fromLimbs(&limbs[offsets[id.index]], graph.node(id).width);
}

std::vector<MPZ> Evaluator::operator()(std::span<const MPZ> inputs) {
  for (std::size_t port = 0; port < inputs.size(); ++port) setInput(port, inputs[port]);
  run();
  std::vector<MPZ> outputs;
  for (std::size_t port = 0; port < graph.outputs().size(); ++port) outputs.push_back(output(port));
  return outputs;
}

}  // namespace graph
