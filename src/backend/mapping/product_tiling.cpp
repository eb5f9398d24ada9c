#include "backend/mapping/product_tiling.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "backend/device/families.h"
#include "backend/mapping/heap_lowering.h"

namespace mapping {

using graph::Builder;
using graph::HeapTerm;
using graph::Op;
using graph::Signal;
using util::MPZ;

namespace {

// Look-up tables up to which a tile beside others is logic rather than a DSP block, and a product
// that would have a block of its own.
constexpr int kMostTablesOfTile = 112;
constexpr int kMostTablesOfProduct = 40;
// A factor of so few bits makes a product cheaper in logic, however long the other is.
constexpr int kThin = 4;
// The longest addition in a strip of logic beside blocks.
constexpr int kStripLength = 64;
// The widest number whose every function of one bit is one table.
constexpr int kTableInputs = 6;

// Part of a factor: the number in `bits` times 2^shift. Nothing when it has no bits.
struct Piece {
  Signal bits;
  int shift = 0;
  bool isSigned = false;
  int width() const { return bits.width; }
};

// Takes off what says nothing: zeros below, zeros or further copies of the sign on top.
Piece trimmed(Builder& b, Signal x, bool isSigned) {
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

// Look-up tables of a product in logic, as synthesised ones have it: two a bit for two rows and
// three a bit for each further two. A sign makes one row more.
int tablesOf(const Piece& x, const Piece& y) {
  const int rows = std::min(x.width(), y.width()), length = std::max(x.width(), y.width());
  const int signs = (x.isSigned ? 1 : 0) + (y.isSigned ? 1 : 0);
  return (3 * (rows + signs) - 2) * length / 2;
}

class ProductBuilder {
 public:
  ProductBuilder(Builder& builder, device::DspShape shape) : b(builder), shape(shape) {}

  // True when one block, one table or next to no logic holds the product.
  bool isSingle(const Piece& x, const Piece& y) const {
    return isTable(x, y) || (fitsBlock(x, y) && tablesOf(x, y) > kMostTablesOfProduct);
  }

  // The product of two pieces that are single, as wide as both together.
  Signal single(const Piece& x, const Piece& y) {
    if (isTable(x, y)) return table(x, y);
    if (!x.isSigned && !y.isSigned) return b.multiply(x.bits, y.bits);
    const auto asSigned = [&](const Piece& piece) {
      return piece.isSigned ? piece.bits : b.zeroExtend(piece.bits, piece.width() + 1);
    };
    return b.slice(b.multiplySigned(asSigned(x), asSigned(y)), 0, x.width() + y.width());
  }

  // Adds x y in tiles, the larger ones a block each; all in logic when that is cheaper.
  void addTiles(const Piece& x, const Piece& y) {
    const bool isThin = std::min(x.width(), y.width()) <= kThin;
    if (isThin || tablesOf(x, y) <= kMostTablesOfTile) return addLogic(x, y);
    int sizeX = shape.wide - 1, sizeY = shape.narrow - 1;
    if (costOf(cut(x, sizeY), cut(y, sizeX)) < costOf(cut(x, sizeX), cut(y, sizeY)))
      std::swap(sizeX, sizeY);
    const auto [mainX, stripX] = splitOff(x, sizeX, std::min(sizeY, y.width()));
    const auto [mainY, stripY] = splitOff(y, sizeY, std::min(sizeX, x.width()));
    // The narrow side of the blocks is their step in a cascade.
    const bool rowsAreNarrow = sizeY < sizeX;
    const std::vector<Piece> columns = cut(mainX, sizeX), rows = cut(mainY, sizeY);
    for (const Piece& wide : rowsAreNarrow ? columns : rows)
      addColumn(wide, rowsAreNarrow ? rows : columns);
    addStrip(stripX, y);
    addStrip(stripY, mainX);
  }

  // Adds x x. Each limb is squared, and each limb times all that stands above it is multiplied once
  // and counted twice by one place more of shift: about half the tiles of a product of two numbers.
  void addSquare(const Piece& x) {
    if (x.width() <= kTableInputs) return add(squareTable(x), 2 * x.shift);
    if (!x.isSigned) return addUnsignedSquare(x);
    // With x = low - s 2^k: low low - s low 2^(k+1) + s 2^2k.
    const int k = x.width() - 1;
    const Signal low = b.slice(x.bits, 0, k), sign = b.topBit(x.bits);
    if (k > 0) {
      addUnsignedSquare({low, x.shift, false});
      subtract(b.bitAnd(low, b.replicate(sign, k)), 2 * x.shift + k + 1);
    }
    add(sign, 2 * (x.shift + k));
  }

  // What was added, with the constant, modulo 2^width.
  std::vector<HeapTerm> terms(int width) const {
    std::vector<HeapTerm> all = added;
    all.push_back({b.literal(constant, width), 0});
    return all;
  }

 private:
  static bool isTable(const Piece& x, const Piece& y) {
    return x.width() + y.width() <= kTableInputs;
  }

  bool fitsBlock(const Piece& x, const Piece& y) const {
    const auto within = [](const Piece& piece, int width) {
      return piece.width() <= (piece.isSigned ? width : width - 1);
    };
    return (within(x, shape.wide) && within(y, shape.narrow)) ||
           (within(y, shape.wide) && within(x, shape.narrow));
  }

  // Look-up tables of all tiles and of adding them up, a block counting as many as logic may cost.
  static int costOf(const std::vector<Piece>& columns, const std::vector<Piece>& rows) {
    int cost = 0;
    for (const Piece& x : columns)
      for (const Piece& y : rows)
        cost += std::min(tablesOf(x, y), kMostTablesOfTile) + x.width() + y.width();
    return cost;
  }

  // Pieces of `size` bits from below; the top one carries the sign, if any, and may then be a bit
  // wider.
  std::vector<Piece> cut(const Piece& x, int size) {
    std::vector<Piece> pieces;
    int low = 0;
    for (; x.width() - low > size + (x.isSigned ? 1 : 0); low += size)
      pieces.push_back({b.slice(x.bits, low, size), x.shift + low, false});
    pieces.push_back({b.slice(x.bits, low, x.width() - low), x.shift + low, x.isSigned});
    return pieces;
  }

  struct Split {
    Piece main, strip;
  };

  // What is left of x on top when blocks have taken `size` bits each, if it makes logic of a tile
  // with `other` bits.
  Split splitOff(const Piece& x, int size, int other) {
    const Piece top = cut(x, size).back();
    const int low = x.width() - top.width();
    if (low == 0 || tablesOf(top, {b.zeros(other), 0, false}) > kMostTablesOfTile) return {x, {}};
    return {{b.slice(x.bits, 0, low), x.shift, false}, top};
  }

  void addStrip(const Piece& strip, const Piece& along) {
    if (strip.width() == 0) return;
    for (const Piece& piece : cut(along, kStripLength)) addLogic(strip, piece);
  }

  void add(Signal bits, int shift) { added.push_back({bits, shift}); }
  // -v = ~v - (2^width - 1)
  void subtract(Signal bits, int shift) {
    add(b.bitNot(bits), shift);
    constant -= MPZ::allOnes(bits.width) << static_cast<unsigned long>(shift);
  }
  // The sign bit's complement weighs the same beside a constant.
  void addSigned(Signal bits, int shift) {
    const int top = bits.width - 1;
    add(b.concat({b.bitNot(b.topBit(bits)), b.slice(bits, 0, top)}), shift);
    constant -= MPZ::powerOfTwo(static_cast<unsigned long>(shift + top));
  }

  bool isBlock(const Piece& x, const Piece& y) const {
    return !isTable(x, y) && tablesOf(x, y) > kMostTablesOfTile;
  }

  // Adds x times each of `rows`, which stand one above the other. Blocks two by two: the second
  // adds the first one's product, shifted by the step, to its own, without any logic.
  void addColumn(const Piece& x, std::span<const Piece> rows) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const bool hasNext = i + 1 < rows.size() && !x.isSigned && !rows[i + 1].isSigned;
      if (!hasNext || rows[i].width() != shape.narrow - 1 || !isBlock(x, rows[i]) ||
          !isBlock(x, rows[i + 1])) {
        addTile(x, rows[i]);
        continue;
      }
      const int step = rows[i].width();
      const Signal low = b.multiply(x.bits, rows[i].bits);
      const Signal high = b.multiply(x.bits, rows[i + 1].bits);
      const Signal carried = b.zeroExtend(b.slice(low, step, low.width - step), high.width);
      add(b.concat({b.add(high, carried), b.slice(low, 0, step)}), x.shift + rows[i].shift);
      ++i;
    }
  }

  void addTile(const Piece& x, const Piece& y) {
    const int shift = x.shift + y.shift;
    if (!isTable(x, y) && !isBlock(x, y)) return addLogic(x, y);
    const Signal product = single(x, y);
    if (x.isSigned || y.isSigned) {
      addSigned(product, shift);
    } else {
      add(product, shift);
    }
  }

  static MPZ valueOf(const Piece& piece, unsigned long bits) {
    const MPZ pattern = MPZ(bits).lowBits(piece.width());
    return piece.isSigned ? pattern.asSigned(piece.width()) : pattern;
  }

  // One table of at most six inputs for each bit of the product.
  Signal table(const Piece& x, const Piece& y) {
    const int width = x.width() + y.width();
    MPZ contents;
    for (unsigned long row = 0; row < 1ul << width; ++row)
      contents += (valueOf(x, row >> y.width()) * valueOf(y, row)).lowBits(width)
                  << (row * static_cast<unsigned long>(width));
    return b.lut(b.concat({x.bits, y.bits}), contents, width);
  }

  // The same for a square, which is never negative.
  Signal squareTable(const Piece& x) {
    const int width = 2 * x.width();
    MPZ contents;
    for (unsigned long row = 0; row < 1ul << x.width(); ++row)
      contents += valueOf(x, row) * valueOf(x, row) << (row * static_cast<unsigned long>(width));
    return b.lut(x.bits, contents, width);
  }

  // The rows of the longer factor, two or three in one addition each. Sign bits count negatively,
  // so they make rows of their own.
  void addLogic(const Piece& x, const Piece& y) {
    const int shift = x.shift + y.shift;
    if (x.width() < y.width()) return addLogic(y, x);
    if (y.isSigned) {
      const int k = y.width() - 1;
      addMultipleOfSign(x, b.topBit(y.bits), shift + k);
      if (k > 0) addLogic(x, {b.slice(y.bits, 0, k), y.shift, false});
      return;
    }
    if (x.isSigned) {
      const int k = x.width() - 1;
      subtract(b.bitAnd(y.bits, b.replicate(b.topBit(x.bits), y.width())), shift + k);
      if (k > 0) addLogic({b.slice(x.bits, 0, k), x.shift, false}, y);
      return;
    }
    // Two rows at a time; an odd one goes with the last two.
    for (int low = 0; low < y.width();) {
      const int rows = y.width() - low == 3 ? 3 : std::min(2, y.width() - low);
      const int width = x.width() + rows;
      const auto row = [&](int i) {
        return b.zeroExtend(b.shiftedUp(rowOf(x, y, low + i), i), width);
      };
      const Signal sum = rows == 1   ? rowOf(x, y, low)
                         : rows == 2 ? b.add(row(0), row(1))
                                     : b.addThree(row(0), row(1), row(2), b.bit(false));
      add(sum, shift + low);
      low += rows;
    }
  }

  Signal rowOf(const Piece& x, const Piece& y, int position) {
    return b.bitAnd(x.bits, b.replicate(b.bitOf(y.bits, position), x.width()));
  }

  // Takes x * sign * 2^shift off.
  void addMultipleOfSign(const Piece& x, Signal sign, int shift) {
    const Signal row = b.bitAnd(x.bits, b.replicate(sign, x.width()));
    if (!x.isSigned) return subtract(row, shift);
    const int k = x.width() - 1;
    if (k > 0) subtract(b.slice(row, 0, k), shift);
    add(b.topBit(row), shift + k);
  }

  void addUnsignedSquare(const Piece& x) {
    const int size = shape.narrow - 1;
    for (int low = 0; low < x.width(); low += size) {
      const int above = std::min(low + size, x.width());
      const Piece limb{b.slice(x.bits, low, above - low), x.shift + low, false};
      addLimbSquare(limb);
      if (above == x.width()) return;
      const Piece rest{b.slice(x.bits, above, x.width() - above), x.shift + above + 1, false};
      for (const Piece& tile : cut(rest, shape.wide - 1)) addTile(tile, limb);
    }
  }

  // A limb's square by its own table or block, or in logic: bit i times all bits above it, twice,
  // and bit i itself make one row.
  void addLimbSquare(const Piece& x) {
    const int width = x.width();
    if (width <= kTableInputs) return add(squareTable(x), 2 * x.shift);
    if (width * width > kMostTablesOfTile) return add(b.multiply(x.bits, x.bits), 2 * x.shift);
    for (int i = 0; i < width; ++i) {
      const Signal bit = b.bitOf(x.bits, i);
      const int above = width - i - 1;
      const Signal row =
          above == 0 ? Signal{} : b.bitAnd(b.slice(x.bits, i + 1, above), b.replicate(bit, above));
      add(b.concat({row, b.bit(false), bit}), 2 * (x.shift + i));
    }
  }

  Builder& b;
  device::DspShape shape;
  std::vector<HeapTerm> added;
  MPZ constant;
};

}  // namespace

Signal lowerProduct(Builder& builder, const device::Device& device, const MappingOptions& options,
                    Signal a, Signal b, bool isSigned) {
  const int width = a.width + b.width;
  const Piece x = trimmed(builder, a, isSigned), y = trimmed(builder, b, isSigned);
  if (x.width() == 0 || y.width() == 0) return builder.zeros(width);

  ProductBuilder product(builder, device.data().dsp);
  const bool isSquare = a == b;
  if (product.isSingle(x, y) && !(isSquare && x.width() <= kTableInputs)) {
    const int shift = x.shift + y.shift;
    const Signal bits = product.single(x, y);
    return builder.shiftedUp(x.isSigned || y.isSigned ? builder.signExtend(bits, width - shift)
                                                      : builder.zeroExtend(bits, width - shift),
                             shift);
  }
  if (isSquare) {
    product.addSquare(x);
  } else {
    product.addTiles(x, y);
  }
  return lowerHeap(builder, device, options, product.terms(width), width);
}

}  // namespace mapping
