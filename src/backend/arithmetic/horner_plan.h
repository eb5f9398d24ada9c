#pragma once

#include <optional>
#include <vector>

#include "backend/approximation/piecewise_polynomial.h"
#include "backend/arithmetic/product_plan.h"
#include "backend/arithmetic/table_lookup.h"

namespace arithmetic {

struct EvaluationPrices {
  ProductPrices product;
  TablePrices table;
};

// r[i] = c[i] + t r[i + 1] for i = degree - 1 down to 0, r[degree] = c[degree]: what each of these
// steps drops.
struct HornerStep {
  int argumentCut = 0;  // low bits of t that its product does without
  int lsb = 0;          // r[i] is cut off below 2^lsb
  int roomBits = 0;  // partial products may be left out up to 2^roomBits - 1 units of the product
};

struct HornerPlan {
  std::vector<HornerStep> steps;  // by power
  double error = 0;  // of the evaluation, at most about, in units of 2^lsb of the result
  double tableLuts = 0, productLuts = 0, adderLuts = 0;
  double price() const { return tableLuts + productLuts + adderLuts; }
};

// The number of bits that hold low to high, at least 1: two's complement where low is negative.
int bitsOf(const approximation::Bounds& range);

// The cheapest steps, about, whose errors stay within shape.left units of 2^resultLsb, beside half
// a unit of the final cut. Nothing where there are none.
//
// At first every source of error gets the same share. Then, as long as it saves, that step drops
// more which saves most for the room it takes.
std::optional<HornerPlan> planHorner(const approximation::PolynomialShape& shape, int resultLsb,
                                     const EvaluationPrices& prices);

}  // namespace arithmetic
