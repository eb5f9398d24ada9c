#include "backend/mapping/product_tiling.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "backend/arithmetic/product_plan.h"
#include "backend/device/families.h"
#include "backend/mapping/digit_rows.h"
#include "backend/mapping/heap_lowering.h"

namespace mapping {

using arithmetic::ProductPlan;
using arithmetic::ProductPrices;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

// The widest number whose every function of one bit is one table.
constexpr int kTableInputs = 6;
// Blocks of a column that add up in a cascade: each takes a stage more.
constexpr int kCascade = 2;
// Without stages: as with one of an addition of so many bits.
constexpr int kWidestCombinational = 70;
// The bits of a limb whose square is no more logic than a block is worth.
constexpr int kLogicSquare = 10;

// Takes off what says nothing: zeros below, zeros or further copies of the sign on top.
Factor trimmed(Builder& b, Signal x, bool isSigned) {
  const auto isZeroAt = [&](int position) {
    const Signal bit = b.bitOf(x, position);
    return b.isLiteral(bit) && b.valueOf(bit).isZero();
  };
  int top = x.width;
  if (isSigned && isZeroAt(top - 1)) isSigned = false;
  if (isSigned) {
    while (top > 1 && b.bitOf(x, top - 1) == b.bitOf(x, top - 2)) --top;
  } else {
    while (top > 0 && isZeroAt(top - 1)) --top;
  }
  int low = 0;
  while (low < top && isZeroAt(low)) ++low;
  return {b.slice(x, low, top - low), low, isSigned};
}

bool isTable(const Factor& x, const Factor& y) { return x.width() + y.width() <= kTableInputs; }

// The prices of the options on this device; the time of two stages for a chain of rows.
ProductPrices pricesOf(const device::Device& device, const MappingOptions& options) {
  const device::Family& family = device.data();
  ProductPrices prices{.lutPerDsp = options.lutPerDsp.value_or(family.lutPerDsp),
                       .lutPerFurtherDsp = options.lutPerDsp.value_or(family.lutPerFurtherDsp),
                       .dspWide = family.dsp.wide - 1,
                       .dspNarrow = family.dsp.narrow - 1,
                       .rowPerBit = family.sumPerBit,
                       .chainStages = options.sums.chainStages,
                       .cascade = options.sums.cascades && device.cascadesFit() ? kCascade : 1};
  // At the fastest grade: relations are what counts.
  const double tables = family.lut[kTableInputs] - family.lut[2];
  const int widest =
      options.combinational ? kWidestCombinational : device.widestAdder(options.period);
  prices.stageTime = family.sumEntry + family.sumPerBit * widest;
  prices.rowEntry = family.sumEntry + tables;
  prices.rowNext = family.sumEntry + 5 * family.sumPerBit;
  return prices;
}

class ProductBuilder {
 public:
  ProductBuilder(Builder& builder, HeapTerms& terms, const ProductPrices& prices)
      : b(builder), terms(terms), prices(prices) {}

  // Blocks are chosen by what they are worth in the cheapest shape of all.
  ProductPlan planOf(const Factor& x, const Factor& y) const {
    ProductPrices cheapest = prices;
    cheapest.chainStages = ProductPrices{}.chainStages;
    return arithmetic::planProduct(shapeOf(x, y), cheapest);
  }

  // The product of two factors in one table or one block, as wide as both together.
  Signal single(const Factor& x, const Factor& y) {
    if (isTable(x, y)) return table(x, y);
    if (!x.isSigned && !y.isSigned) return b.multiply(x.bits, y.bits);
    const auto asSigned = [&](const Factor& factor) {
      return factor.isSigned ? factor.bits : b.zeroExtend(factor.bits, factor.width() + 1);
    };
    return b.slice(b.multiplySigned(asSigned(x), asSigned(y)), 0, x.width() + y.width());
  }

  void addProduct(const Factor& x, const Factor& y) { addPlanned(x, y, planOf(x, y)); }

  // Adds x x. Each limb is squared, and each limb times all that stands above it is multiplied once
  // and counted twice by one place more of shift: about half the tiles of a product of two numbers.
  void addSquare(const Factor& x) {
    if (x.width() <= kTableInputs) return terms.add(squareTable(x), 2 * x.shift);
    if (!x.isSigned) return addUnsignedSquare(x);
    // With x = low - s 2^k: low low - s low 2^(k+1) + s 2^2k.
    const int k = x.width() - 1;
    const Signal low = b.slice(x.bits, 0, k), sign = b.topBit(x.bits);
    addUnsignedSquare({low, x.shift, false});
    terms.subtract(b.bitAnd(low, b.replicate(sign, k)), 2 * x.shift + k + 1);
    terms.add(sign, 2 * (x.shift + k));
  }

 private:
  static arithmetic::ProductShape shapeOf(const Factor& x, const Factor& y) {
    return {x.width(), y.width(), x.isSigned, y.isSigned};
  }

  Factor part(const Factor& x, int low, int width) {
    const bool isTop = low + width == x.width();
    return {b.slice(x.bits, low, width), x.shift + low, isTop && x.isSigned};
  }

  // `count` pieces of `size` bits from below; the top one takes what is left, a sign with it.
  std::vector<Factor> cut(const Factor& x, int size, int count) {
    std::vector<Factor> pieces;
    for (int i = 0; i < count; ++i)
      pieces.push_back(part(x, i * size, i + 1 == count ? x.width() - i * size : size));
    return pieces;
  }

  void addPlanned(const Factor& x, const Factor& y, const ProductPlan& plan) {
    if (x.width() == 0 || y.width() == 0) return;
    if (isTable(x, y)) return addTerm(table(x, y), x, y);
    if (plan.columns == 0) return addLogic(x, y);
    const int mainX = ProductPlan::covered(plan.columns, plan.sizeX, x.width(), x.isSigned);
    const int mainY = ProductPlan::covered(plan.rows, plan.sizeY, y.width(), y.isSigned);
    const Factor lowX = part(x, 0, mainX), lowY = part(y, 0, mainY);
    const auto columns = cut(lowX, plan.sizeX, plan.columns);
    const auto rows = cut(lowY, plan.sizeY, plan.rows);
    // The narrow side of the blocks is their step in a cascade.
    const bool rowsAreNarrow = plan.sizeY <= plan.sizeX;
    for (const Factor& wide : rowsAreNarrow ? columns : rows)
      addColumn(wide, rowsAreNarrow ? rows : columns);
    addPlanned(part(x, mainX, x.width() - mainX), y, plan.strips[0]);
    addPlanned(lowX, part(y, mainY, y.width() - mainY), plan.strips[1]);
  }

  void addLogic(const Factor& x, const Factor& y) {
    const ProductPlan plan = arithmetic::planRows(shapeOf(x, y), prices);
    const Factor& multiplier = plan.digitsOfY ? y : x;
    const Factor& multiplicand = plan.digitsOfY ? x : y;
    addDigitRows(b, terms, multiplicand, multiplier, plan.chainBits);
  }

  void addTerm(Signal bits, const Factor& x, const Factor& y) {
    if (x.isSigned || y.isSigned) {
      terms.addSigned(bits, x.shift + y.shift);
    } else {
      terms.add(bits, x.shift + y.shift);
    }
  }

  // Adds x times each of `rows`, which stand one above the other.
  void addColumn(const Factor& x, std::span<const Factor> rows) {
    const auto step = static_cast<std::size_t>(prices.cascade);
    for (std::size_t first = 0; first < rows.size(); first += step)
      addCascade(x, rows.subspan(first, std::min(step, rows.size() - first)));
  }

  // Each block adds to its product what the one below it has above the step, without any logic.
  void addCascade(const Factor& x, std::span<const Factor> rows) {
    std::vector<Signal> topFirst;
    Signal sum = single(x, rows[0]);
    bool isSigned = x.isSigned || rows[0].isSigned;
    if (!isSigned) sum = withConstant(sum, x, rows);
    for (std::size_t i = 1; i < rows.size(); ++i) {
      const int step = rows[i - 1].width();
      const Signal product = single(x, rows[i]);
      const Signal carried = b.slice(sum, step, sum.width - step);
      topFirst.insert(topFirst.begin(), b.slice(sum, 0, step));
      sum = b.add(product, isSigned ? b.signExtend(carried, product.width)
                                    : b.zeroExtend(carried, product.width));
      isSigned = isSigned || rows[i].isSigned;
    }
    topFirst.insert(topFirst.begin(), sum);
    const Signal whole = b.concat(topFirst);
    if (isSigned) {
      terms.addSigned(whole, x.shift + rows[0].shift);
    } else {
      terms.add(whole, x.shift + rows[0].shift);
    }
  }

  // The lowest product of an unsigned cascade and the constant of the whole sum, if the cascade has
  // room for it: the adder behind the block does that as well.
  Signal withConstant(Signal product, const Factor& x, std::span<const Factor> rows) {
    int height = 0;
    for (const Factor& row : rows) {
      if (row.isSigned) return product;
      height += row.width();
    }
    const int width = x.width() + height;
    const MPZ room =
        MPZ::powerOfTwo(width) - MPZ(1) - MPZ::allOnes(x.width()) * MPZ::allOnes(height);
    const MPZ constant =
        terms.takeConstant(x.shift + rows[0].shift, std::min(room, MPZ::allOnes(product.width)));
    if (constant.isZero()) return product;
    const int sumWidth = product.width + (rows.size() > 1 ? 1 : 0);
    return b.add(b.zeroExtend(product, sumWidth), b.literal(constant, sumWidth));
  }

  static MPZ valueOf(const Factor& factor, unsigned long bits) {
    const MPZ pattern = MPZ(bits).lowBits(factor.width());
    return factor.isSigned ? pattern.asSigned(factor.width()) : pattern;
  }

  // One table of at most six inputs for each bit of the product.
  Signal table(const Factor& x, const Factor& y) {
    const int width = x.width() + y.width();
    MPZ contents;
    for (unsigned long row = 0; row < 1ul << width; ++row)
      contents += (valueOf(x, row >> y.width()) * valueOf(y, row)).lowBits(width)
                  << (row * static_cast<unsigned long>(width));
    return b.lut(b.concat({x.bits, y.bits}), contents, width);
  }

  // The same for a square, which is never negative.
  Signal squareTable(const Factor& x) {
    const int width = 2 * x.width();
    MPZ contents;
    for (unsigned long row = 0; row < 1ul << x.width(); ++row)
      contents += valueOf(x, row) * valueOf(x, row) << (row * static_cast<unsigned long>(width));
    return b.lut(x.bits, contents, width);
  }

  void addUnsignedSquare(const Factor& x) {
    const int size = prices.dspNarrow;
    for (int low = 0; low < x.width(); low += size) {
      const int above = std::min(low + size, x.width());
      const Factor limb = part(x, low, above - low);
      addLimbSquare(limb);
      if (above == x.width()) return;
      Factor rest = part(x, above, x.width() - above);
      ++rest.shift;
      addProduct(rest, limb);
    }
  }

  // A limb's square by its own table or block, or in logic: bit i times all bits above it, twice,
  // and bit i itself make one row.
  void addLimbSquare(const Factor& x) {
    const int width = x.width();
    if (width <= kTableInputs) return terms.add(squareTable(x), 2 * x.shift);
    if (width > kLogicSquare) return terms.add(b.multiply(x.bits, x.bits), 2 * x.shift);
    for (int i = 0; i < width; ++i) {
      const Signal bit = b.bitOf(x.bits, i);
      const int above = width - i - 1;
      const Signal row =
          above == 0 ? Signal{} : b.bitAnd(b.slice(x.bits, i + 1, above), b.replicate(bit, above));
      terms.add(b.concat({row, b.bit(false), bit}), 2 * (x.shift + i));
    }
  }

  Builder& b;
  HeapTerms& terms;
  const ProductPrices& prices;
};

}  // namespace

void addProduct(Builder& builder, HeapTerms& terms, const device::Device& device,
                const MappingOptions& options, Signal a, Signal b, bool isSigned, int shift) {
  Factor x = trimmed(builder, a, isSigned);
  const Factor y = trimmed(builder, b, isSigned);
  if (x.width() == 0 || y.width() == 0) return;
  const ProductPrices prices = pricesOf(device, options);
  ProductBuilder product(builder, terms, prices);
  if (a == b && shift % 2 == 0) {
    x.shift += shift / 2;
    return product.addSquare(x);
  }
  x.shift += shift;
  product.addProduct(x, y);
}

Signal lowerProduct(Builder& builder, const device::Device& device, const MappingOptions& options,
                    Signal a, Signal b, bool isSigned) {
  const int width = a.width + b.width;
  const Factor x = trimmed(builder, a, isSigned), y = trimmed(builder, b, isSigned);
  if (x.width() == 0 || y.width() == 0) return builder.zeros(width);

  HeapTerms terms(builder, width);
  const ProductPrices prices = pricesOf(device, options);
  ProductBuilder product(builder, terms, prices);
  const bool isSquare = a == b;
  const ProductPlan plan = product.planOf(x, y);
  const bool isSingle = isTable(x, y) || (plan.blocks == 1 && plan.strips.size() == 2 &&
                                          plan.strips[0].termBits + plan.strips[1].termBits == 0);
  if (isSingle && !(isSquare && x.width() <= kTableInputs)) {
    const int shift = x.shift + y.shift;
    const Signal bits = product.single(x, y);
    return builder.shiftedUp(x.isSigned || y.isSigned ? builder.signExtend(bits, width - shift)
                                                      : builder.zeroExtend(bits, width - shift),
                             shift);
  }
  if (isSquare) {
    product.addSquare(x);
  } else {
    product.addProduct(x, y);
  }
  return lowerHeap(builder, device, options, terms.all(), width);
}

}  // namespace mapping
