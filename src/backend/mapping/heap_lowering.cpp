#include "backend/mapping/heap_lowering.h"

#include <algorithm>
#include <queue>
#include <utility>
#include <vector>

#include "backend/mapping/heap_columns.h"
#include "backend/mapping/staged_sum.h"
#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::HeapTerm;
using graph::Op;
using graph::Signal;
using util::MPZ;

namespace {

// A heap of more bits is first brought down by additions of three whole rows. Counters take as many
// look-up tables for the same bits and are faster, but cost the graph several nodes a bit.
constexpr long kMostBitsForCounters = 65536;

int topOf(const HeapTerm& term) { return term.shift + term.bits.width; }

long bitsIn(const std::vector<HeapTerm>& rows) {
  long bits = 0;
  for (const HeapTerm& row : rows) bits += row.bits.width;
  return bits;
}

// ---- Very large heaps: whole rows, three by three -----------------------------------------------

// Joins terms that share no column into as few rows as the highest column has bits.
std::vector<HeapTerm> packedIntoRows(Builder& b, std::vector<HeapTerm> terms) {
  std::ranges::stable_sort(terms, {}, &HeapTerm::shift);
  std::vector<std::vector<HeapTerm>> rows;
  using Free = std::pair<int, std::size_t>;  // the column from which a row is free
  std::priority_queue<Free, std::vector<Free>, std::greater<>> free;
  for (const HeapTerm& term : terms) {
    std::size_t row = rows.size();
    if (!free.empty() && free.top().first <= term.shift) {
      row = free.top().second;
      free.pop();
    } else {
      rows.emplace_back();
    }
    rows[row].push_back(term);
    free.push({topOf(term), row});
  }
  std::vector<HeapTerm> packed;
  for (const std::vector<HeapTerm>& row : rows) {
    std::vector<Signal> topFirst;
    int top = topOf(row.back());
    for (auto term = row.rbegin(); term != row.rend(); ++term) {
      topFirst.push_back(b.zeros(top - topOf(*term)));
      topFirst.push_back(term->bits);
      top = term->shift;
    }
    packed.push_back({b.concat(topFirst), row.front().shift});
  }
  return packed;
}

// Up to three rows as one, as wide as their sum can get below weight 2^width.
HeapTerm sumOf(Builder& b, std::span<const HeapTerm> rows, int width) {
  if (rows.size() == 1) return rows[0];
  const int low = std::ranges::min(rows, {}, &HeapTerm::shift).shift;
  const int growth = static_cast<int>(rows.size()) - 1;
  const int top = std::min(width, topOf(std::ranges::max(rows, {}, topOf)) + growth);
  const auto addend = [&](std::size_t i) {
    return b.zeroExtend(b.shiftedUp(rows[i].bits, rows[i].shift - low), top - low);
  };
  const Signal sum = rows.size() == 2 ? b.add(addend(0), addend(1))
                                      : b.addThree(addend(0), addend(1), addend(2), b.bit(false));
  return {sum, low};
}

void addRowsByThrees(Builder& b, Terms& terms) {
  while (bitsIn(terms.rows) > kMostBitsForCounters) {
    const std::vector<HeapTerm> rows = packedIntoRows(b, std::move(terms.rows));
    terms.rows.clear();
    if (rows.size() <= kRows) {
      terms.rows = rows;
      return;
    }
    for (std::size_t first = 0; first < rows.size(); first += 3)
      terms.rows.push_back(
          sumOf(b, std::span(rows).subspan(first, std::min<std::size_t>(3, rows.size() - first)),
                terms.width));
  }
}

// Counters of six bits halve the height of a heap, so the levels aim at 3, 6, 12, ... rows.
void compress(Builder& b, Columns& columns) {
  for (int height = columns.highest(0); height > kRows; height = columns.highest(0)) {
    int target = kRows;
    while (2 * target < height) target *= 2;
    compressTo(b, columns, target);
    LOAM_ASSERT(columns.highest(0) < height, "each level of counters lowers the heap");
  }
  if (isCheaperInTwoRows(columns)) compressTo(b, columns, 2);
}

// ---- The last addition --------------------------------------------------------------------------

Signal lastAddition(Builder& b, const Columns& columns) {
  const int low = columns.carryColumn;
  const Signal below = addendsOf(b, columns, 0, low)[0];
  if (low == columns.width()) return below;
  const auto rows = addendsOf(b, columns, low, columns.width());
  const Signal sum = b.addThree(rows[0], rows[1], rows[2], columns.carryIn);
  return b.concat({sum, below});
}

}  // namespace

Signal lowerHeap(Builder& builder, const device::Device& device, const MappingOptions& options,
                 std::span<const HeapTerm> terms, int width) {
  Terms heap = partsOf(builder, terms, width);
  if (heap.width == 0) return builder.zeros(width);
  if (options.sums.inStages && bitsIn(heap.rows) <= kMostBitsForCounters)
    return builder.zeroExtend(stagedSum(builder, device, options, heap), width);
  addRowsByThrees(builder, heap);
  Columns columns = columnsOf(heap);
  takeCarryIn(builder, columns);
  compress(builder, columns);
  return builder.zeroExtend(lastAddition(builder, columns), width);
}

}  // namespace mapping
