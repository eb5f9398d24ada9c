#include "backend/mapping/heap_columns.h"

#include <algorithm>
#include <utility>

#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::HeapTerm;
using graph::Op;
using graph::Signal;
using util::MPZ;

namespace {

// ---- Terms as they come in ----------------------------------------------------------------------

// Adds `bits` * 2^shift to `terms` with literal parts taken to the constant. A run of copies of one
// bit s, as a sign extension has, weighs s * (2^top - 2^low): two bits instead of many, since
// -s * 2^low = (1 - s) * 2^low - 2^low.
void addParts(Builder& b, Terms& terms, Signal bits, int shift) {
  bits = b.slice(bits, 0, std::min(bits.width, terms.width - shift));
  const graph::Node node = b.built().node(bits.node);
  const auto operandsOf = [&] {
    const auto ids = b.built().operands(node);
    return std::vector<graph::NodeId>(ids.begin(), ids.end());
  };
  if (node.op == Op::kLiteral) {
    terms.constant += b.valueOf(bits) << shift;
    return;
  }
  if (node.op == Op::kReplicate && bits.width > 2) {
    const Signal copied = b.built().signal(operandsOf()[0]);
    if (copied.width == 1) {
      const int top = shift + bits.width;
      if (top < terms.width) terms.rows.push_back({copied, top});
      terms.rows.push_back({b.bitNot(copied), shift});
      terms.constant -= MPZ::powerOfTwo(shift);
      return;
    }
  }
  if (node.op == Op::kConcat) {
    const auto isSpecial = [&](graph::NodeId id) {
      const graph::Node& part = b.built().node(id);
      return part.op == Op::kLiteral || (part.op == Op::kReplicate && part.width > 2);
    };
    const std::vector<graph::NodeId> parts = operandsOf();
    if (std::ranges::any_of(parts, isSpecial)) {
      // Neighbours without anything special stay one row.
      std::vector<Signal> run;
      int low = shift + bits.width;
      const auto flush = [&] {
        if (const Signal joined = b.concat(run)) terms.rows.push_back({joined, low});
        run.clear();
      };
      for (const graph::NodeId id : parts) {
        const Signal part = b.built().signal(id);
        if (isSpecial(id)) {
          flush();
          low -= part.width;
          addParts(b, terms, part, low);
        } else {
          run.push_back(part);
          low -= part.width;
        }
      }
      flush();
      return;
    }
  }
  terms.rows.push_back({bits, shift});
}

}  // namespace

Terms partsOf(Builder& builder, std::span<const HeapTerm> terms, int width) {
  Terms heap{.rows = {}, .constant = 0, .width = width};
  for (const HeapTerm& term : terms)
    if (term.bits.width > 0 && term.shift < width) addParts(builder, heap, term.bits, term.shift);
  heap.constant = heap.constant.lowBits(width);

  // No carry gets past the highest bit that all ones everywhere would give.
  MPZ greatest = heap.constant;
  for (const HeapTerm& row : heap.rows)
    greatest += (MPZ::allOnes(row.bits.width) << static_cast<unsigned long>(row.shift));
  heap.width = std::min(width, static_cast<int>(greatest.bitLength()));
  return heap;
}

// ---- Columns of bits, compressed by counters ----------------------------------------------------

int Columns::highest(int from) const {
  int most = 0;
  for (int column = from; column < width(); ++column) most = std::max(most, height(column));
  return most;
}

int Columns::lowestSum() const {
  int column = 0;
  while (column < width() && height(column) < 2) ++column;
  return column;
}

Columns columnsOf(const Terms& terms) {
  Columns columns;
  columns.bits.resize(terms.width);
  columns.ones = terms.constant;
  for (const HeapTerm& row : terms.rows)
    for (int i = 0; i < row.bits.width; ++i) columns.bits[row.shift + i].push_back({row.bits, i});
  return columns;
}

// Gives the carry in of the last addition the constant of the lowest column, or a bit that would
// else be a row of its own.
void takeCarryIn(Builder& b, Columns& columns) {
  const int low = columns.lowestSum();
  columns.carryIn = b.bit(false);
  columns.carryColumn = low;
  if (low == columns.width()) return;
  if (columns.ones.bit(low)) {
    columns.carryIn = b.bit(true);
    columns.ones -= MPZ::powerOfTwo(low);
  } else if (columns.height(low) > std::max(2, columns.highest(low + 1))) {
    std::vector<Bit>& bits = columns.bits[low];
    auto chosen = std::ranges::find(bits, 1, [](const Bit& bit) { return bit.source.width; });
    if (chosen == bits.end()) --chosen;
    columns.carryIn = b.bitOf(chosen->source, chosen->index);
    bits.erase(chosen);
  }
}

namespace {

// The table of a counter: for each of 2^bits inputs the number of its ones, plus one if `plusOne`,
// modulo 2^width.
const MPZ& counterTable(std::size_t bits, bool plusOne, int width) {
  static const auto tables = [] {
    std::array<std::array<std::array<MPZ, 4>, 2>, 7> made;
    for (unsigned long n = 0; n < 7; ++n)
      for (int one = 0; one < 2; ++one)
        for (unsigned long w = 1; w < 4; ++w)
          for (unsigned long input = 0; input < 1ul << n; ++input)
            made[n][one][w] += MPZ(__builtin_popcountl(input) + one).lowBits(w) << (input * w);
    return made;
  }();
  return tables[bits][plusOne ? 1 : 0][width];
}

// The number of ones among `bits` (at most six), plus one if `plusOne`, modulo 2^width.
Signal countOf(Builder& b, std::span<const Bit> bits, bool plusOne, int width) {
  std::vector<Signal> inputs;
  for (const Bit& bit : bits) inputs.push_back(b.bitOf(bit.source, bit.index));
  if (bits.size() == 1 && plusOne)
    return b.zeroExtend(b.concat({inputs[0], b.bitNot(inputs[0])}), width);
  return b.lut(b.concat(inputs), counterTable(bits.size(), plusOne, width), width);
}

}  // namespace

void compressTo(Builder& b, Columns& columns, int target) {
  std::vector<std::vector<Bit>> next(columns.bits.size());
  for (int column = 0; column < columns.width(); ++column) {
    std::span<const Bit> left = columns.bits[column];
    int height = columns.height(column) + static_cast<int>(next[column].size());
    while (height > target && !left.empty()) {
      const bool plusOne = columns.ones.bit(column);
      const int one = plusOne ? 1 : 0;
      // A counter of n bits leaves one of them here. One of three bits costs no more than of two,
      // and one of a single bit and a constant costs nothing.
      const int wanted = std::clamp(height - target + 1 - one, 3, 6);
      const int taken = std::min(wanted, static_cast<int>(left.size()));
      if (taken + one < 2) break;
      const int width =
          std::min(static_cast<int>(MPZ(taken + one).bitLength()), columns.width() - column);
      const Signal count = countOf(b, left.first(taken), plusOne, width);
      for (int i = 0; i < width; ++i) next[column + i].push_back({count, i});
      if (plusOne) columns.ones -= MPZ::powerOfTwo(column);
      left = left.subspan(taken);
      height -= taken + one - 1;
    }
    next[column].insert(next[column].begin(), left.begin(), left.end());
  }
  columns.bits = std::move(next);
}

bool isCheaperInTwoRows(const Columns& columns) {
  int counters = 0;
  bool carry = false;
  for (int column = columns.carryColumn; column < columns.width(); ++column) {
    carry = columns.height(column) + (carry ? 1 : 0) > 2;
    counters += carry ? 1 : 0;
  }
  return counters > 0 && 2 * counters < columns.width() - columns.carryColumn;
}

namespace {

// ---- Rows of bits -------------------------------------------------------------------------------

// One addend, put together from below out of runs of neighbouring bits.
class RowOfBits {
 public:
  bool continuesWith(const Bit& bit) const {
    return !runs.empty() && runs.back().source == bit.source &&
           runs.back().first + runs.back().count == bit.index;
  }
  void append(const Bit& bit) {
    if (continuesWith(bit)) {
      ++runs.back().count;
    } else {
      runs.push_back({bit.source, bit.index, 1});
    }
  }
  void append(Builder& b, bool constant) {
    const Signal literal = b.bit(constant);
    if (!runs.empty() && runs.back().source == literal) {
      ++runs.back().count;  // copies of the one-bit literal
    } else {
      runs.push_back({literal, 0, 1});
    }
  }
  Signal joined(Builder& b) const {
    std::vector<Signal> topFirst;
    for (auto run = runs.rbegin(); run != runs.rend(); ++run)
      topFirst.push_back(b.isLiteral(run->source) ? b.replicate(run->source, run->count)
                                                  : b.slice(run->source, run->first, run->count));
    return b.concat(topFirst);
  }

 private:
  struct Run {
    Signal source;
    int first;
    int count;
  };
  std::vector<Run> runs;
};

// The columns [low, high) as addends; a row goes on with the signal that it holds where it can.
std::array<RowOfBits, kRows> rowsOf(Builder& b, const Columns& columns, int low, int high) {
  std::array<RowOfBits, kRows> rows;
  for (int column = low; column < high; ++column) {
    std::array<bool, kRows> used{};
    std::vector<Bit> fresh;
    for (const Bit& bit : columns.bits[column]) {
      // A row has one bit of each column, though bits of two copies of a signal may follow on it.
      auto row = rows.begin();
      while (row != rows.end() && (used[row - rows.begin()] || !row->continuesWith(bit))) ++row;
      if (row == rows.end()) {
        fresh.push_back(bit);
      } else {
        row->append(bit);
        used[row - rows.begin()] = true;
      }
    }
    auto one = columns.ones.bit(column);
    auto bit = fresh.begin();
    for (int row = 0; row < kRows; ++row) {
      if (used[row]) continue;
      if (bit != fresh.end()) {
        rows[row].append(*bit++);
      } else {
        rows[row].append(b, std::exchange(one, false));
      }
    }
  }
  return rows;
}

}  // namespace

std::array<Signal, kRows> addendsOf(Builder& b, const Columns& columns, int low, int high) {
  const auto rows = rowsOf(b, columns, low, high);
  return {rows[0].joined(b), rows[1].joined(b), rows[2].joined(b)};
}

}  // namespace mapping
