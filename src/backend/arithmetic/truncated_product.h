#pragma once

#include <span>
#include <vector>

#include "backend/arithmetic/product_plan.h"
#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// An integer factor, two's complement if isSigned.
struct ProductFactor {
  Signal bits;
  bool isSigned = false;
};

// Partial products of low weight that a product does without: for each corner the low `x` bits of
// the one factor times the low `y` bits of the other. Corners stand as a staircase, x ascending and
// y descending; sign bits stay out of them.
struct LeftOut {
  struct Corner {
    int x, y;
  };
  std::vector<Corner> corners;
  util::MPZ most() const;  // the greatest sum of all that is left out; the least is 0
};

// What saves most by the prices among corners whose sum is at most `room` >= 0; nothing where that
// saves nothing.
LeftOut planLeftOut(const ProductShape& shape, const util::MPZ& room, const ProductPrices& prices);

// A product as terms of a heap of `width` bits, where other terms may join it. Modulo 2^width they
// sum to x y + e with 0 <= e <= excess <= room: a constant stands for what is left out, as large as
// that can get (Schulte and Swartzlander, "Truncated multiplication with correction constant",
// 1993), so a caller that cuts the sum off at 2^k > excess gets x y / 2^k itself where that is
// whole, and else one of its two neighbours. Of two unsigned factors the sum exceeds no exact
// product of their widths.
//
// The terms are products of parts of the factors; how each becomes blocks and logic is settled when
// the heap is mapped.
struct TruncatedProduct {
  std::vector<graph::HeapTerm> terms;
  util::MPZ excess;
};
TruncatedProduct truncatedProduct(Builder& b, const ProductFactor& x, const ProductFactor& y,
                                  int width, const util::MPZ& room, const ProductPrices& prices);

}  // namespace arithmetic
