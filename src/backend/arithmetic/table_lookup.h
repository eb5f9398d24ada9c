#pragma once

#include <span>
#include <vector>

#include "backend/graph/builder.h"
#include "backend/graph/table_blocks.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// What tables cost on a device: in logic by the bit, or in memory blocks.
struct TablePrices {
  double lutPerBit = 1.0 / 64;
  double lutPerMemory = 100;  // each memory block; infinite where there are none
  graph::MemoryShape memory{36, 512};
};

// The price in look-up tables of `rows` rows of `width` bits.
double tablePrice(std::size_t rows, int width, const TablePrices& prices);

// The low `width` bits of row number `index`; rows past the last one may give anything. Negative
// rows are two's complement. Mapping chooses between logic and memory blocks.
Signal tableLookup(Builder& b, Signal index, std::span<const util::MPZ> rows, int width);

}  // namespace arithmetic
