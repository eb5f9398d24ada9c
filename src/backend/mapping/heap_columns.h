#pragma once

#include <array>
#include <span>
#include <vector>

#include "backend/graph/builder.h"

namespace mapping {

// Rows that one addition takes.
inline constexpr int kRows = 3;

// The terms of one sum modulo 2^width; what is constant in them stands in `constant`.
struct Terms {
  std::vector<graph::HeapTerm> rows;
  util::MPZ constant;
  int width = 0;
};

// The terms below 2^width, their literal parts and copies of signs taken to the constant; `width`
// no more than the sum can reach.
Terms partsOf(graph::Builder& builder, std::span<const graph::HeapTerm> terms, int width);

// Bit `index` of `source`.
struct Bit {
  graph::Signal source;
  int index = 0;
};

struct Columns {
  std::vector<std::vector<Bit>> bits;  // by weight; the earliest bits of a column first
  util::MPZ ones;                      // a one in each of these columns
  graph::Signal carryIn;               // of the last addition, weight 2^carryColumn
  int carryColumn = 0;

  int width() const { return static_cast<int>(bits.size()); }
  int height(int column) const {
    return static_cast<int>(bits[column].size()) + (ones.bit(column) ? 1 : 0);
  }
  int highest(int from) const;
  // The lowest column that needs an addition, or the width.
  int lowestSum() const;
};

Columns columnsOf(const Terms& terms);

// Gives the carry in of the last addition the constant of the lowest column, or a bit that would
// else be a row of its own.
void takeCarryIn(graph::Builder& builder, Columns& columns);

// One level of counters, after which no column is higher than `target`.
void compressTo(graph::Builder& builder, Columns& columns, int target);

// True when counters that leave two rows take fewer look-up tables than a third addend does: two
// each, against one a column. Both take the same time.
bool isCheaperInTwoRows(const Columns& columns);

// The columns [low, high), none above three, as addends; an addend goes on with the signal that it
// holds where it can.
std::array<graph::Signal, kRows> addendsOf(graph::Builder& builder, const Columns& columns, int low,
                                           int high);

}  // namespace mapping
