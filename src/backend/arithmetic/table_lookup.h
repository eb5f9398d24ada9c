#pragma once

#include <span>
#include <vector>

#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// What tables cost on a device: in logic by the bit, or in memory blocks.
struct TablePrices {
  int lutInputs = 6;
  double lutPerBit = 1.0 / 64;
  double lutPerMemory = 100;  // a block of memoryWidth * memoryDepth bits; none where it is 0
  int memoryWidth = 18, memoryDepth = 1024;
};

// The price in look-up tables of `rows` rows of `width` bits.
double tablePrice(std::size_t rows, int width, const TablePrices& prices);

// The low `width` bits of row number `index`; rows past the last one may give anything. Negative
// rows are two's complement. Columns that are the same in every row, or equal to another one, cost
// nothing.
Signal tableLookup(Builder& b, Signal index, std::span<const util::MPZ> rows, int width);

}  // namespace arithmetic
