#include "backend/graph/builder.h"

#include <algorithm>
#include <utility>

#include "util/failure.h"

namespace graph {

using util::MPZ;

namespace {

// Orders the operands of a commutative operation, so that a^b and b^a are one node.
void sortPair(Signal& a, Signal& b) {
  if (b.node < a.node) std::swap(a, b);
}

}  // namespace

std::size_t Builder::KeyHash::operator()(const Key& key) const {
  std::size_t hash = static_cast<std::size_t>(key.op) * 31 + static_cast<std::size_t>(key.width);
  hash = hash * 0x9E3779B97F4A7C15u + key.aux;
  for (const std::uint32_t word : key.words)
    hash = (hash ^ (hash >> 29)) * 0xBF58476D1CE4E5B9u + word;
  return hash;
}

Signal Builder::make(Op op, int width, std::span<const Signal> operands, std::uint32_t aux,
                     std::span<const std::uint32_t> shifts) {
  LOAM_ASSERT(width > 0, "a node has at least one bit");
  Key key{op, width, op == Op::kHeap ? 0 : aux, {}};
  key.words.reserve(operands.size() + shifts.size());
  for (const Signal& operand : operands) key.words.push_back(operand.node.index);
  key.words.insert(key.words.end(), shifts.begin(), shifts.end());
  if (const auto found = made.find(key); found != made.end()) return {found->second, width};

  const NodeId id{static_cast<std::uint32_t>(graph.nodeRows.size())};
  if (op == Op::kHeap) {
    aux = static_cast<std::uint32_t>(graph.shiftRows.size());
    graph.shiftRows.insert(graph.shiftRows.end(), shifts.begin(), shifts.end());
  }
  graph.nodeRows.push_back({.op = op,
                            .width = width,
                            .firstOperand = static_cast<std::uint32_t>(graph.operandRows.size()),
                            .operandCount = static_cast<std::uint32_t>(operands.size()),
                            .aux = aux,
                            .scope = currentScope});
  for (const Signal& operand : operands) graph.operandRows.push_back(operand.node);
  made.emplace(std::move(key), id);
  return {id, width};
}

std::uint32_t Builder::literalIndex(const MPZ& value) {
  const auto [row, isNew] = literalByText.try_emplace(
      value.toText(62), static_cast<std::uint32_t>(graph.literalRows.size()));
  if (isNew) graph.literalRows.push_back(value);
  return row->second;
}

bool Builder::isOnesLiteral(Signal x) const {
  return isLiteral(x) && valueOf(x) == MPZ::allOnes(x.width);
}

Signal Builder::input(const std::string& name, int width, bool isControl) {
  const Signal port =
      make(Op::kInput, width, {}, static_cast<std::uint32_t>(graph.inputPorts.size()));
  graph.inputPorts.push_back({name, port, isControl});
  return port;
}

void Builder::output(const std::string& name, Signal signal) {
  graph.outputPorts.push_back({name, signal, false});
}

Signal Builder::state(int width, const MPZ& initial) {
  const Signal held =
      make(Op::kState, width, {}, static_cast<std::uint32_t>(graph.stateRows.size()));
  graph.stateRows.push_back({held.node, NodeId{}, initial.lowBits(width)});
  return held;
}

void Builder::setNext(Signal state, Signal next) {
  const Node& node = graph.node(state.node);
  LOAM_ASSERT(node.op == Op::kState && next.width == node.width, "a state takes its own width");
  graph.stateRows[node.aux].next = next.node;
}

Signal Builder::literal(const MPZ& value, int width) {
  if (width == 0) return {};
  return make(Op::kLiteral, width, {}, literalIndex(value.lowBits(width)));
}

Signal Builder::slice(Signal x, int low, int width) {
  LOAM_ASSERT(low >= 0 && width >= 0 && low + width <= x.width, "slice inside its operand");
  if (width == 0) return {};
  if (width == x.width) return x;
  const Node& node = graph.node(x.node);
  const auto operands = graph.operands(node);
  if (node.op == Op::kLiteral) return literal(graph.literal(node) >> low, width);
  if (node.op == Op::kSlice)
    return slice(graph.signal(operands[0]), low + static_cast<int>(node.aux), width);
  if (node.op == Op::kReplicate && graph.node(operands[0]).width == 1)
    return replicate(graph.signal(operands[0]), width);
  if (node.op == Op::kConcat) {
    // The parts that the slice covers, bottom first.
    std::vector<Signal> parts;
    const std::vector<NodeId> pieces(operands.begin(), operands.end());
    int base = 0;
    for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
      const Signal part = graph.signal(*piece);
      const int from = std::max(low, base), to = std::min(low + width, base + part.width);
      if (from < to) parts.push_back(slice(part, from - base, to - from));
      base += part.width;
    }
    std::ranges::reverse(parts);
    return concat(parts);
  }
  return make(Op::kSlice, width, {x}, static_cast<std::uint32_t>(low));
}

Signal Builder::concat(std::span<const Signal> topFirst) {
  // Flatten, then join neighbours that are literals or touching slices of one signal.
  std::vector<Signal> flat;
  const auto join = [&](Signal top, Signal bottom) -> Signal {
    if (isLiteral(top) && isLiteral(bottom))
      return literal((valueOf(top) << bottom.width) | valueOf(bottom), top.width + bottom.width);
    const Node &a = graph.node(top.node), &b = graph.node(bottom.node);
    if (a.op == Op::kSlice && b.op == Op::kSlice && graph.operands(a)[0] == graph.operands(b)[0] &&
        a.aux == b.aux + static_cast<std::uint32_t>(bottom.width))
      return slice(graph.signal(graph.operands(a)[0]), static_cast<int>(b.aux),
                   top.width + bottom.width);
    return {};
  };
  const auto append = [&](Signal part) {
    if (!flat.empty()) {
      if (const Signal joined = join(flat.back(), part)) {
        flat.back() = joined;
        return;
      }
    }
    flat.push_back(part);
  };
  int width = 0;
  for (const Signal& part : topFirst) {
    if (part.width == 0) continue;
    width += part.width;
    if (graph.node(part.node).op == Op::kConcat) {
      const auto pieces = graph.operands(part.node);
      for (const NodeId piece : std::vector<NodeId>(pieces.begin(), pieces.end()))
        append(graph.signal(piece));
    } else {
      append(part);
    }
  }
  if (flat.empty()) return {};
  if (flat.size() == 1) return flat[0];
  if (std::ranges::all_of(flat, [&](Signal s) { return s == flat[0]; }))
    return replicate(flat[0], static_cast<int>(flat.size()));
  return make(Op::kConcat, width, flat);
}

Signal Builder::replicate(Signal x, int count) {
  LOAM_ASSERT(count >= 0, "a count");
  if (count == 0 || x.width == 0) return {};
  if (count == 1) return x;
  if (isLiteral(x)) {
    MPZ value;
    for (int i = 0; i < count; ++i) value = (value << x.width) | valueOf(x);
    return literal(value, x.width * count);
  }
  return make(Op::kReplicate, x.width * count, {x});
}

Signal Builder::zeroExtend(Signal x, int width) {
  if (width <= x.width) return slice(x, 0, width);
  return concat({zeros(width - x.width), x});
}

Signal Builder::signExtend(Signal x, int width) {
  if (width <= x.width) return slice(x, 0, width);
  return concat({replicate(topBit(x), width - x.width), x});
}

Signal Builder::bitNot(Signal x) {
  if (isLiteral(x)) return literal(valueOf(x) ^ MPZ::allOnes(x.width), x.width);
  const Node& node = graph.node(x.node);
  if (node.op == Op::kNot) return graph.signal(graph.operands(node)[0]);
  return make(Op::kNot, x.width, {x});
}

Signal Builder::bitXor(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "xor of unequal widths");
  if (a == b) return zeros(a.width);
  if (isLiteral(a) && isLiteral(b)) return literal(valueOf(a) ^ valueOf(b), a.width);
  if (isZeroLiteral(a)) return b;
  if (isZeroLiteral(b)) return a;
  if (isOnesLiteral(a)) return bitNot(b);
  if (isOnesLiteral(b)) return bitNot(a);
  sortPair(a, b);
  return make(Op::kXor, a.width, {a, b});
}

Signal Builder::select(Signal condition, Signal ifOne, Signal ifZero) {
  LOAM_ASSERT(condition.width == 1 && ifOne.width == ifZero.width, "select of unequal widths");
  if (ifOne == ifZero) return ifOne;
  if (isLiteral(condition)) return valueOf(condition).isZero() ? ifZero : ifOne;
  const Node& node = graph.node(condition.node);
  if (node.op == Op::kNot) return select(graph.signal(graph.operands(node)[0]), ifZero, ifOne);
  if (ifOne.width == 1) {
    if (isLiteral(ifOne))
      return valueOf(ifOne).isZero() ? bitAnd(bitNot(condition), ifZero) : bitOr(condition, ifZero);
    if (isLiteral(ifZero))
      return valueOf(ifZero).isZero() ? bitAnd(condition, ifOne) : bitOr(bitNot(condition), ifOne);
  }
  return make(Op::kSelect, ifOne.width, {condition, ifOne, ifZero});
}

Signal Builder::pick(Signal index, std::span<const Signal> choices) {
  LOAM_ASSERT(!choices.empty(), "a pick has choices");
  const std::size_t reach = index.width < 20 ? std::size_t{1} << index.width : choices.size();
  choices = choices.first(std::min(choices.size(), reach));
  for (const Signal& choice : choices)
    LOAM_ASSERT(choice.width == choices[0].width, "pick of unequal widths");
  if (std::ranges::all_of(choices, [&](Signal s) { return s == choices[0]; })) return choices[0];
  if (isLiteral(index)) {
    const MPZ last(static_cast<unsigned long>(choices.size() - 1));
    return choices[std::min(valueOf(index), last).toUint64()];
  }
  if (index.width == 1) return select(index, choices[1], choices[0]);
  std::vector<Signal> operands{index};
  operands.insert(operands.end(), choices.begin(), choices.end());
  return make(Op::kPick, choices[0].width, operands);
}

Signal Builder::reduceAnd(Signal x) {
  x = withoutLiterals(x, /*neutral=*/true);
  if (x.width == 1) return x;
  if (isLiteral(x)) return bit(isOnesLiteral(x));
  return make(Op::kReduceAnd, 1, {x});
}

Signal Builder::reduceOr(Signal x) {
  x = withoutLiterals(x, /*neutral=*/false);
  if (x.width == 1) return x;
  if (isLiteral(x)) return bit(!isZeroLiteral(x));
  return make(Op::kReduceOr, 1, {x});
}

// The parts of a concatenation without literals whose bits all are `neutral`; the one bit that is
// not where a literal has one.
Signal Builder::withoutLiterals(Signal x, bool neutral) {
  const Node node = graph.node(x.node);
  if (node.op != Op::kConcat) return x;
  std::vector<Signal> parts;
  for (const NodeId id : graph.operands(node)) {
    const Signal part = graph.signal(id);
    if (!isLiteral(part)) {
      parts.push_back(part);
    } else if (neutral ? !isOnesLiteral(part) : !isZeroLiteral(part)) {
      return bit(!neutral);
    }
  }
  return parts.size() == node.operandCount ? x : concat(parts);
}

Signal Builder::reduceXor(Signal x) {
  if (x.width == 1) return x;
  if (isLiteral(x)) return bit(mpz_popcount(valueOf(x).get()) % 2 == 1);
  return make(Op::kReduceXor, 1, {x});
}

Signal Builder::lut(Signal x, const MPZ& contents, int width) {
  LOAM_ASSERT(x.width <= 6, "a lut has at most six inputs");
  if (isLiteral(x)) return literal(contents >> (valueOf(x).toUint64() * width), width);
  const MPZ row = contents.lowBits(static_cast<unsigned long>(width) << x.width);
  return make(Op::kLut, width, {x}, literalIndex(row));
}

Signal Builder::addCarry(Signal a, Signal b, Signal carryIn) {
  LOAM_ASSERT(a.width == b.width && carryIn.width == 1, "sum of unequal widths");
  if (isLiteral(a) && isLiteral(b) && isLiteral(carryIn))
    return literal(valueOf(a) + valueOf(b) + valueOf(carryIn), a.width);
  if (isZeroLiteral(carryIn)) {
    if (isZeroLiteral(a)) return b;
    if (isZeroLiteral(b)) return a;
    // Bits below the lowest one of the other addend are no sum.
    for (const auto& [x, y] : {std::pair(a, b), std::pair(b, a)})
      if (const int low = zerosBelow(y))
        return concat(
            {addCarry(slice(x, low, x.width - low), slice(y, low, y.width - low), carryIn),
             slice(x, 0, low)});
  }
  sortPair(a, b);
  return make(Op::kAdd, a.width, {a, b, carryIn});
}

int Builder::zerosBelow(Signal x) const {
  const Node& node = graph.node(x.node);
  if (node.op != Op::kConcat) return 0;
  const Signal lowest = graph.signal(graph.operands(node).back());
  return isZeroLiteral(lowest) ? lowest.width : 0;
}

Signal Builder::addThree(Signal a, Signal b, Signal c, Signal carryIn) {
  LOAM_ASSERT(a.width == b.width && a.width == c.width && carryIn.width == 1,
              "sum of unequal widths");
  if (isZeroLiteral(a)) return addCarry(b, c, carryIn);
  if (isZeroLiteral(b)) return addCarry(a, c, carryIn);
  if (isZeroLiteral(c)) return addCarry(a, b, carryIn);
  const auto sumOf = [&](Signal x, Signal y) { return literal(valueOf(x) + valueOf(y), x.width); };
  if (isLiteral(a) && isLiteral(b)) return addCarry(sumOf(a, b), c, carryIn);
  if (isLiteral(a) && isLiteral(c)) return addCarry(sumOf(a, c), b, carryIn);
  if (isLiteral(b) && isLiteral(c)) return addCarry(sumOf(b, c), a, carryIn);
  sortPair(a, b), sortPair(b, c), sortPair(a, b);
  return make(Op::kAdd, a.width, {a, b, c, carryIn});
}

Signal Builder::addOrSubtract(Signal a, Signal b, Signal subtractIf) {
  return addCarry(a, bitXor(b, replicate(subtractIf, b.width)), subtractIf);
}

Signal Builder::equal(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "comparison of unequal widths");
  if (a == b) return bit(true);
  if (isLiteral(a) && isLiteral(b)) return bit(valueOf(a) == valueOf(b));
  if (isZeroLiteral(a)) return isZero(b);
  if (isZeroLiteral(b)) return isZero(a);
  if (isOnesLiteral(a)) return reduceAnd(b);
  if (isOnesLiteral(b)) return reduceAnd(a);
  sortPair(a, b);
  return make(Op::kEqual, 1, {a, b});
}

Signal Builder::less(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "comparison of unequal widths");
  if (a == b || isZeroLiteral(b) || isOnesLiteral(a)) return bit(false);
  if (isLiteral(a) && isLiteral(b)) return bit(valueOf(a) < valueOf(b));
  if (isZeroLiteral(a)) return reduceOr(b);
  if (isOnesLiteral(b)) return bitNot(reduceAnd(a));
  if (isLiteral(a) || isLiteral(b)) return make(Op::kLess, 1, {a, b});
  if (const Signal x = outerLiteral(a, /*isTop=*/true), y = outerLiteral(b, /*isTop=*/true);
      x && y) {
    const int width = std::min(x.width, y.width), rest = a.width - width;
    const MPZ high = valueOf(slice(a, rest, width)), other = valueOf(slice(b, rest, width));
    return high == other ? less(slice(a, 0, rest), slice(b, 0, rest)) : bit(high < other);
  }
  if (const Signal shorter = lessAboveLiteral(a, b, &Builder::less)) return shorter;
  return make(Op::kLess, 1, {a, b});
}

// The literal at one end of a join that holds others, too; none elsewhere.
Signal Builder::outerLiteral(Signal x, bool isTop) const {
  if (opOf(x) != Op::kConcat) return {};
  const Signal part = operandOf(x, isTop ? 0 : graph.operands(x.node).size() - 1);
  return isLiteral(part) ? part : Signal{};
}

// Compares by `order` where the low bits of one side are constant; nothing where they are not.
// What they say becomes one bit of either side, 0 and 1 where the low part of `a` is the lesser
// one, else 1 and 0: table mappers take a word with constants for constant, and put twice the bits
// before each table of a chain.
Signal Builder::lessAboveLiteral(Signal a, Signal b, Signal (Builder::*order)(Signal, Signal)) {
  int width = 0;
  for (const Signal x : {a, b})
    if (const Signal low = outerLiteral(x, /*isTop=*/false)) width = std::max(width, low.width);
  if (width == 0) return {};
  const Signal isLess = less(slice(a, 0, width), slice(b, 0, width));
  const int rest = a.width - width;
  a = slice(a, width, rest), b = slice(b, width, rest);
  if (!isLiteral(isLess)) return (this->*order)(concat({a, bitNot(isLess)}), concat({b, isLess}));
  return isZeroLiteral(isLess) ? (this->*order)(a, b) : bitNot((this->*order)(b, a));
}

Signal Builder::lessSigned(Signal a, Signal b) {
  LOAM_ASSERT(a.width == b.width, "comparison of unequal widths");
  if (a == b) return bit(false);
  if (isLiteral(a) && isLiteral(b))
    return bit(valueOf(a).asSigned(a.width) < valueOf(b).asSigned(b.width));
  if (isZeroLiteral(b)) return topBit(a);
  if (!isLiteral(a) && !isLiteral(b))
    if (const Signal shorter = lessAboveLiteral(a, b, &Builder::lessSigned)) return shorter;
  return make(Op::kLessSigned, 1, {a, b});
}

Signal Builder::multiply(Signal a, Signal b) {
  const int width = a.width + b.width;
  if (isLiteral(a) && isLiteral(b)) return literal(valueOf(a) * valueOf(b), width);
  if (isZeroLiteral(a) || isZeroLiteral(b)) return zeros(width);
  if (a.width == 1 || b.width == 1) {
    const Signal one = a.width == 1 ? a : b, other = a.width == 1 ? b : a;
    return concat({zeros(1), bitAnd(replicate(one, other.width), other)});
  }
  sortPair(a, b);
  return make(Op::kMultiply, width, {a, b});
}

Signal Builder::multiplySigned(Signal a, Signal b) {
  const int width = a.width + b.width;
  if (isLiteral(a) && isLiteral(b))
    return literal(valueOf(a).asSigned(a.width) * valueOf(b).asSigned(b.width), width);
  if (isZeroLiteral(a) || isZeroLiteral(b)) return zeros(width);
  sortPair(a, b);
  return make(Op::kMultiplySigned, width, {a, b});
}

Signal Builder::heap(std::span<const HeapTerm> terms, int width) {
  std::vector<Signal> operands;
  std::vector<std::uint32_t> shifts;
  MPZ constant;
  for (const HeapTerm& term : terms) {
    LOAM_ASSERT(term.shift >= 0, "a heap has no bits below its own");
    if (term.bits.width == 0 || term.shift >= width) continue;
    const Signal bits = slice(term.bits, 0, std::min(term.bits.width, width - term.shift));
    if (isLiteral(bits)) {
      constant += valueOf(bits) << term.shift;
      continue;
    }
    operands.push_back(bits);
    shifts.push_back(static_cast<std::uint32_t>(term.shift));
  }
  constant = constant.lowBits(width);
  if (operands.empty()) return literal(constant, width);
  if (operands.size() == 1 && constant.isZero())
    return zeroExtend(shiftedUp(operands[0], static_cast<int>(shifts[0])), width);
  if (!constant.isZero()) {
    operands.push_back(literal(constant, width));
    shifts.push_back(0);
  }
  return make(Op::kHeap, width, operands, 0, shifts);
}

Signal Builder::copy(const Graph& other, NodeId id, std::span<const Signal> operands) {
  const Node& node = other.node(id);
  LOAM_ASSERT(node.op != Op::kInput, "a node that is no port");
  if (node.op == Op::kState) return state(node.width, other.states()[node.aux].initial);
  if (node.op == Op::kHeap) return make(node.op, node.width, operands, 0, other.shifts(node));
  if (node.op == Op::kTable || node.op == Op::kMemory)
    return make(node.op, node.width, operands, tableIndex(other.rows(node)));
  const bool hasContents = node.op == Op::kLiteral || node.op == Op::kLut;
  return make(node.op, node.width, operands,
              hasContents ? literalIndex(other.literal(node)) : node.aux);
}

Signal Builder::name(Signal x, const std::string& text) {
  if (x.width > 0) graph.names.try_emplace(x.node.index, text);
  return x;
}

Builder::ScopeGuard::ScopeGuard(Builder& builder, const std::string& name)
    : builder(builder), outer(builder.currentScope) {
  builder.currentScope = static_cast<std::uint32_t>(builder.graph.scopeRows.size());
  builder.graph.scopeRows.push_back({name, static_cast<int>(outer)});
}

Builder::ScopeGuard::~ScopeGuard() { builder.currentScope = outer; }

}  // namespace graph
