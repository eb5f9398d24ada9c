#include "backend/arithmetic/product_plan.h"

#include <algorithm>
#include <cmath>

namespace arithmetic {

namespace {

// The widest number whose every function of one bit is one table.
constexpr int kTableInputs = 6;

int ceilDivide(int a, int b) { return (a + b - 1) / b; }

// Additions of a chain for `width` bits, whose lone lowest bit makes a row more.
int additionsOf(int width, bool isSigned) { return std::max(1, (width + (isSigned ? 0 : 1)) / 2); }
bool hasLoneBit(int width, bool isSigned) { return width > 1 && width % 2 == (isSigned ? 1 : 0); }

// x times digits of y.
ProductPlan digitPlan(int x, int y, bool ySigned, const ProductPrices& prices) {
  const auto rowTables = [&](int bits, bool isSigned) {
    return additionsOf(bits, isSigned) * (x + 2.0) - 1 + (hasLoneBit(bits, isSigned) ? x : 0);
  };
  ProductPlan best;
  const auto consider = [&](int bits) {
    const int whole = bits >= y ? 0 : ceilDivide(y - bits, bits);
    const int left = y - whole * bits;
    ProductPlan plan;
    plan.chainBits = bits;
    plan.termBits = (whole + 1) * x + y;
    plan.luts = whole * rowTables(bits, false) + rowTables(left, ySigned);
    if (best.chainBits == 0 || plan.luts + plan.termBits < best.luts + best.termBits)
      best = std::move(plan);
  };
  const int perStage = prices.rowsOfStage(x + 3), most = prices.chainStages * perStage;
  if (additionsOf(y, ySigned) <= (prices.chainStages + 1) * perStage) consider(y);
  for (int bits = 2; bits <= 2 * most && bits < y; ++bits) consider(bits);
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
  // Rows that no stage holds are no choice beside shorter ones.
  const auto isLong = [&](int row) { return !prices.isRowOfStage(row + 3); };
  if (isLong(shape.x) != isLong(shape.y)) return isLong(shape.x) ? overX : overY;
  if (isLong(shape.x)) return shape.x < shape.y ? overY : overX;
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
          if (prices.priceOf(taken + c * r) < total(best, taken))
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
    const int terms = ceilDivide(cascadesY ? rows : columns, prices.cascade);
    plan.termBits = cascadesY ? terms * mainX + columns * mainY : terms * mainY + rows * mainX;
    const ProductShape strips[] = {
        {shape.x - mainX, shape.y, shape.xSigned, shape.ySigned},
        {mainX, shape.y - mainY, mainX == shape.x && shape.xSigned, shape.ySigned}};
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

ProductPlan planRows(const ProductShape& shape, const ProductPrices& prices) {
  return logicPlan(shape, prices);
}

double priceOf(const ProductPlan& plan, const ProductPrices& prices) {
  return plan.luts + prices.priceOf(plan.blocks);
}

}  // namespace arithmetic
