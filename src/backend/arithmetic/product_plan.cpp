#include "backend/arithmetic/product_plan.h"

#include <algorithm>
#include <cmath>

namespace arithmetic {

namespace {

// The widest number whose every function of one bit is one table.
constexpr int kTableInputs = 6;

int ceilDivide(int a, int b) { return (a + b - 1) / b; }

// Rows of digits for `width` bits.
int rowsOf(int width, bool isSigned) { return isSigned ? (width + 1) / 2 : width / 2 + 1; }

// x times digits of y.
ProductPlan digitPlan(int x, int y, bool ySigned, const ProductPrices& prices) {
  ProductPlan best;
  const double row = prices.rowEntry + prices.rowPerBit * (x + 3);
  // A row more than the time allows is still faster than the addition that joins two chains.
  const int most = std::max(2, static_cast<int>(prices.chainTime / row)) + 1;
  const auto consider = [&](int bits) {
    const int whole = bits >= y ? 0 : ceilDivide(y - bits, bits);
    const int left = y - whole * bits;
    const int rows = whole * rowsOf(bits, false) + rowsOf(left, ySigned);
    ProductPlan plan;
    plan.chainBits = bits;
    plan.termBits = (whole + 1) * x + y;
    // The first row of a chain has no carries to wait for; the lowest bits are plain functions.
    plan.luts = rows * (x + 2.0) - (whole + 1);
    if (best.chainBits == 0 || plan.luts + plan.termBits < best.luts + best.termBits)
      best = std::move(plan);
  };
  if (rowsOf(y, ySigned) <= most + 1) consider(y);
  for (int rows = 2; rows <= most && 2 * rows - 1 < y; ++rows) consider(2 * rows - 1);
  if (best.chainBits == 0) consider(y);
  return best;
}

ProductPlan logicPlan(const ProductShape& shape, const ProductPrices& prices) {
  if (shape.x + shape.y <= kTableInputs) {
    ProductPlan plan;
    plan.chainBits = std::max(shape.y, 1);
    plan.luts = plan.termBits = shape.x + shape.y;
    return plan;
  }
  ProductPlan overY = digitPlan(shape.x, shape.y, shape.ySigned, prices);
  overY.digitsOfY = true;
  ProductPlan overX = digitPlan(shape.y, shape.x, shape.xSigned, prices);
  return overX.luts + overX.termBits < overY.luts + overY.termBits ? overX : overY;
}

class Planner {
 public:
  explicit Planner(const ProductPrices& prices) : prices(prices) {}

  ProductPlan plan(const ProductShape& shape, int taken, int depth) const {
    if (shape.x <= 0 || shape.y <= 0) return {};
    ProductPlan best = logicPlan(shape, prices);
    const auto [wide, narrow] = std::pair{prices.dspWide, prices.dspNarrow};
    for (const auto& [sizeX, sizeY] : {std::pair{wide, narrow}, std::pair{narrow, wide}}) {
      const int columns = tilesOf(shape.x, sizeX, shape.xSigned);
      const int rows = tilesOf(shape.y, sizeY, shape.ySigned);
      // One tile less than would cover a factor leaves a strip; fewer leave room for a block.
      for (int c = std::max(1, columns - 1); c <= columns; ++c)
        for (int r = std::max(1, rows - 1); r <= rows; ++r)
          keepCheaper(best, grid(shape, c, r, sizeX, sizeY, taken, depth), taken);
      if (sizeX == sizeY) break;
    }
    return best;
  }

 private:
  static int tilesOf(int width, int size, bool isSigned) {
    return std::max(1, ceilDivide(width - (isSigned ? 1 : 0), size));
  }

  double total(const ProductPlan& plan, int taken) const {
    return plan.luts + plan.termBits + prices.priceOf(taken + plan.blocks);
  }
  void keepCheaper(ProductPlan& best, ProductPlan candidate, int taken) const {
    if (total(candidate, taken) < total(best, taken)) best = std::move(candidate);
  }

  ProductPlan grid(const ProductShape& shape, int columns, int rows, int sizeX, int sizeY,
                   int taken, int depth) const {
    ProductPlan plan;
    plan.columns = columns, plan.rows = rows, plan.sizeX = sizeX, plan.sizeY = sizeY;
    plan.blocks = columns * rows;
    const int mainX = ProductPlan::covered(columns, sizeX, shape.x, shape.xSigned);
    const int mainY = ProductPlan::covered(rows, sizeY, shape.y, shape.ySigned);
    // Blocks one above the other along their narrow side make one term.
    const bool cascadesY = sizeY <= sizeX;
    plan.termBits = cascadesY ? mainX + columns * mainY : mainY + rows * mainX;
    const ProductShape strips[] = {{shape.x - mainX, shape.y, shape.xSigned, shape.ySigned},
                                   {mainX, shape.y - mainY, mainX == shape.x && shape.xSigned,
                                    shape.ySigned}};
    for (const ProductShape& strip : strips) {
      // A strip's strips are no place for blocks.
      plan.strips.push_back(depth > 0 ? this->plan(strip, taken + plan.blocks, depth - 1)
                            : strip.x > 0 && strip.y > 0 ? logicPlan(strip, prices)
                                                         : ProductPlan{});
      const ProductPlan& made = plan.strips.back();
      plan.luts += made.luts, plan.termBits += made.termBits, plan.blocks += made.blocks;
    }
    return plan;
  }

  const ProductPrices& prices;
};

}  // namespace

int ProductPlan::covered(int count, int size, int width, bool isSigned) {
  const int all = count * size;
  return width - (isSigned ? 1 : 0) <= all ? width : all;
}

ProductPlan planProduct(const ProductShape& shape, const ProductPrices& prices, int taken) {
  ProductPlan plan = Planner(prices).plan(shape, taken, 2);
  // What was counted so far beside the additions that are left when the product's own bits remain.
  plan.luts += std::max(0.0, plan.termBits - shape.x - shape.y);
  return plan;
}

double priceOf(const ProductPlan& plan, const ProductPrices& prices) {
  return plan.luts + prices.priceOf(plan.blocks);
}

}  // namespace arithmetic
