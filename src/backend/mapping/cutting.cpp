#include "backend/mapping/cutting.h"

#include <algorithm>
#include <vector>

#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

// A shorter piece of carry chain saves little of the time that its entry and exit take.
constexpr int kShortestPiece = 8;
// Increments take four stages and about a fifth more tables.
constexpr std::size_t kFewestIncremented = 6;

int widestPiece(const device::Device& device, device::Picoseconds period) {
  return std::max(kShortestPiece + 1, device.widestAdder(period));
}

class Cutter {
 public:
  Cutter(Builder& builder, const device::Device& device, const MappingOptions& options)
      : b(builder), device(device), period(options.period), increments(options.carryIncrement) {}

  bool fits(const Graph& graph, NodeId id) const {
    return device.clockToOutput() + device.delayOf(graph, id) + device.longestRoute() +
               device.setup() <=
           period;
  }
  bool fits(Signal x) const { return fits(b.built(), x.node); }

  // A carry out makes each piece one bit wider than the bits it sums.
  Signal sum(Signal x, Signal y, Signal carry) {
    const std::vector<int> sizes = evenPieces(x.width, widestPiece(device, period) - 1);
    if (increments && sizes.size() >= kFewestIncremented) return incremented(x, y, carry, sizes);
    std::vector<Signal> pieces;
    int low = 0;
    for (const int size : sizes) {
      const bool isTop = low + size == x.width;
      const int width = size + (isTop ? 0 : 1);
      const auto piece = [&](Signal s) { return b.zeroExtend(b.slice(s, low, size), width); };
      const Signal part = b.addCarry(piece(x), piece(y), carry);
      pieces.push_back(b.slice(part, 0, size));
      if (!isTop) carry = b.topBit(part);
      low += size;
    }
    std::ranges::reverse(pieces);
    return b.concat(pieces);
  }

  // A carry goes on through a piece whose own sum is all ones. One short addition finds all of
  // them: of the pieces that make a carry and those that make or pass on one (Zimmermann, Binary
  // Adder Architectures for Cell-Based VLSI, 1997, on the carry-increment adder).
  Signal incremented(Signal x, Signal y, Signal carry, const std::vector<int>& sizes) {
    std::vector<Signal> pieces, makes, passes, ones;  // the latter of the inner pieces
    int low = 0;
    for (const int size : sizes) {
      const bool isFirst = low == 0, isTop = low + size == x.width;
      const auto piece = [&](Signal s) {
        return b.zeroExtend(b.slice(s, low, size), size + (isTop ? 0 : 1));
      };
      const Signal part = b.addCarry(piece(x), piece(y), isFirst ? carry : b.bit(false));
      pieces.push_back(b.slice(part, 0, size));
      if (isFirst) carry = b.topBit(part);
      if (!isFirst && !isTop) {
        makes.push_back(b.topBit(part));
        ones.push_back(reduced(pieces.back(), &Builder::reduceAnd));
        passes.push_back(b.bitOr(makes.back(), ones.back()));
      }
      low += size;
    }
    const int width = static_cast<int>(sizes.size()) - 1;
    const auto word = [&](std::vector<Signal> bits) {
      std::ranges::reverse(bits);
      return b.zeroExtend(b.concat(bits), width);
    };
    const Signal carries = b.bitXor(b.addCarry(word(passes), word(makes), carry), word(ones));
    for (std::size_t i = 1; i < pieces.size(); ++i)
      pieces[i] = b.addCarry(pieces[i], b.zeros(pieces[i].width),
                             b.bitOf(carries, static_cast<int>(i) - 1));
    std::ranges::reverse(pieces);
    return b.concat(pieces);
  }

  // Three addends become two first: pieces of three would pass on two carries.
  Signal sumOfThree(Signal x, Signal y, Signal z, Signal carry) {
    const Signal differ = b.bitXor(x, y);
    const Signal majority = b.bitOr(b.bitAnd(differ, z), b.bitAnd(x, y));
    return sum(b.bitXor(differ, z), b.concat({b.slice(majority, 0, x.width - 1), carry}),
               b.bit(false));
  }

  Signal less(Signal x, Signal y, bool isSigned) {
    std::vector<Order> orders;
    int low = 0;
    for (const int size : evenPieces(x.width, widestPiece(device, period))) {
      const Signal left = b.slice(x, low, size), right = b.slice(y, low, size);
      low += size;
      const bool hasSign = isSigned && low == x.width;
      orders.push_back({.less = hasSign ? b.lessSigned(left, right) : b.less(left, right),
                        .equal = equal(left, right)});
    }
    while (orders.size() > 1) {
      std::vector<Order> joined;
      for (std::size_t i = 0; i + 1 < orders.size(); i += 2)
        joined.push_back(joinedOrder(orders[i + 1], orders[i]));
      if (orders.size() % 2 == 1) joined.push_back(orders.back());
      orders = std::move(joined);
    }
    return orders[0].less;
  }

  Signal equal(Signal x, Signal y) {
    if (const Signal whole = b.equal(x, y); fits(whole)) return whole;
    return reduced(b.bitNot(b.bitXor(x, y)), &Builder::reduceAnd);
  }

  // Pieces are as wide as whole levels of tables allow, so that no level is filled in part twice.
  Signal reduced(Signal x, Signal (Builder::*reduce)(Signal)) {
    const Signal whole = (b.*reduce)(x);
    if (x.width <= kTableInputs || fits(whole)) return whole;
    int size = kTableInputs;
    while (size * kTableInputs < x.width && fits((b.*reduce)(b.slice(x, 0, size * kTableInputs))))
      size *= kTableInputs;
    std::vector<Signal> results;
    for (int low = 0; low < x.width; low += size)
      results.push_back((b.*reduce)(b.slice(x, low, std::min(size, x.width - low))));
    std::ranges::reverse(results);
    return reduced(b.concat(results), reduce);
  }

  Signal pick(Signal index, std::span<const Signal> choices) {
    const Signal whole = b.pick(index, choices);
    if (choices.size() <= 4 || fits(whole)) return whole;
    const Signal low = b.slice(index, 0, 2), high = b.slice(index, 2, index.width - 2);
    std::vector<Signal> groups;
    for (std::size_t first = 0; first < choices.size(); first += 4)
      groups.push_back(
          b.pick(low, choices.subspan(first, std::min<std::size_t>(4, choices.size() - first))));
    // An index past the last group must not choose inside it.
    groups.push_back(choices.back());
    return pick(high, std::span(groups).first(reachOf(high, groups.size())));
  }

  // By the top bits of the index.
  Signal table(Signal index, std::span<const util::MPZ> rows, int width) {
    const Signal whole = b.table(index, rows, width);
    if (index.width <= kTableInputs || fits(whole)) return whole;
    const int low = std::max(kTableInputs, index.width - 2);
    const std::size_t size = std::size_t{1} << low;
    std::vector<Signal> parts;
    for (std::size_t first = 0; first < rows.size(); first += size)
      parts.push_back(table(b.slice(index, 0, low), rows.subspan(first, size), width));
    return b.pick(b.slice(index, low, index.width - low), parts);
  }

 private:
  static constexpr int kTableInputs = 6;

  struct Order {
    Signal less, equal;
  };

  Order joinedOrder(const Order& high, const Order& low) {
    return {.less = b.bitOr(high.less, b.bitAnd(high.equal, low.less)),
            .equal = b.bitAnd(high.equal, low.equal)};
  }

  // How many of `choices` an index can tell apart.
  static std::size_t reachOf(Signal index, std::size_t choices) {
    return index.width < 20 ? std::min(choices, std::size_t{1} << index.width) : choices;
  }

  // `width` as pieces of at most `size` that differ by at most one.
  static std::vector<int> evenPieces(int width, int size) {
    const int count = (width + size - 1) / size;
    std::vector<int> pieces;
    for (int i = 0; i < count; ++i) pieces.push_back((width + i) / count);
    return pieces;
  }

  Builder& b;
  const device::Device& device;
  const device::Picoseconds period;
  const bool increments;
};

}  // namespace

bool canIncrement(const Graph& graph, NodeId id, const device::Device& device,
                  const MappingOptions& options) {
  const auto piece = static_cast<std::size_t>(widestPiece(device, options.period) - 1);
  return graph.node(id).op == Op::kAdd &&
         static_cast<std::size_t>(graph.node(id).width) > (kFewestIncremented - 1) * piece;
}

Signal cutToFit(Builder& builder, const Graph& graph, NodeId id, std::span<const Signal> x,
                const device::Device& device, const MappingOptions& options) {
  Cutter cutter(builder, device, options);
  if (cutter.fits(graph, id)) return {};
  switch (graph.node(id).op) {
    case Op::kAdd:
      return x.size() == 3 ? cutter.sum(x[0], x[1], x[2])
                           : cutter.sumOfThree(x[0], x[1], x[2], x[3]);
    case Op::kEqual:
      return cutter.equal(x[0], x[1]);
    case Op::kLess:
      return cutter.less(x[0], x[1], /*isSigned=*/false);
    case Op::kLessSigned:
      return cutter.less(x[0], x[1], /*isSigned=*/true);
    case Op::kReduceAnd:
      return cutter.reduced(x[0], &Builder::reduceAnd);
    case Op::kReduceOr:
      return cutter.reduced(x[0], &Builder::reduceOr);
    case Op::kReduceXor:
      return cutter.reduced(x[0], &Builder::reduceXor);
    case Op::kPick:
      return cutter.pick(x[0], x.subspan(1));
    case Op::kTable:
      return cutter.table(x[0], graph.rows(graph.node(id)), graph.node(id).width);
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kSlice:
    case Op::kConcat:
    case Op::kReplicate:
    case Op::kNot:
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
    case Op::kSelect:
    case Op::kLut:
    case Op::kMemory:
    case Op::kMultiply:
    case Op::kMultiplySigned:
    case Op::kHeap:
    case Op::kCount:
      return {};
  }
  LOAM_ASSERT(false, "an operation of the graph");
}

}  // namespace mapping
