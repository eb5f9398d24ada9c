#include "backend/arithmetic/truncated_product.h"

#include <algorithm>

namespace arithmetic {

using util::MPZ;

namespace {

// Widths up to which staircases of two corners are tried as well.
constexpr int kWidestStairs = 64;

// A constant makes a third row of two, or an addition where there was none.
constexpr double kTablesPerConstantBit = 0.5;

// (2^x - 1) (2^y - 1)
MPZ cornerSum(int x, int y) { return MPZ::allOnes(x) * MPZ::allOnes(y); }

// The highest y <= most with (2^x - 2^skipped) (2^y - 1) <= room.
int highest(int x, int skipped, const MPZ& room, int most) {
  const MPZ columns = MPZ::powerOfTwo(x) - MPZ::powerOfTwo(skipped);
  int y = std::clamp(static_cast<int>(room.bitLength()) - static_cast<int>(columns.bitLength()) + 1,
                     0, most);
  while (y > 0 && columns * MPZ::allOnes(y) > room) --y;
  return y;
}

// A part of the product that is kept: bits [x, x + width) of the one factor times those of the
// other from y up.
struct Kept {
  int x, width, y;
};
std::vector<Kept> keptParts(const LeftOut& leftOut, int width) {
  std::vector<Kept> kept;
  int x = 0;
  for (const LeftOut::Corner& corner : leftOut.corners) {
    if (corner.x > x) kept.push_back({x, corner.x - x, corner.y});
    x = corner.x;
  }
  if (width > x) kept.push_back({x, width - x, 0});
  return kept;
}

// All parts and the additions that join them, and the constant.
double priceOfKept(const LeftOut& leftOut, const ProductShape& shape, const ProductPrices& prices) {
  double luts = 0;
  int blocks = 0, lowest = shape.x + shape.y;
  for (const Kept& part : keptParts(leftOut, shape.x)) {
    if (part.y >= shape.y) continue;
    const bool isTop = part.x + part.width == shape.x;
    const ProductPlan plan = planProduct(
        {part.width, shape.y - part.y, isTop && shape.xSigned, shape.ySigned}, prices, blocks);
    luts += plan.luts + part.width + shape.y - part.y;
    blocks += plan.blocks;
    lowest = std::min(lowest, part.x + part.y);
  }
  const double constant = leftOut.corners.empty() ? 0 : kTablesPerConstantBit * (shape.x + shape.y);
  return luts - (shape.x + shape.y - lowest) + constant + prices.priceOf(blocks);
}

}  // namespace

MPZ LeftOut::most() const {
  MPZ sum;
  int x = 0;
  for (const Corner& corner : corners) {
    sum += (MPZ::powerOfTwo(corner.x) - MPZ::powerOfTwo(x)) * MPZ::allOnes(corner.y);
    x = corner.x;
  }
  return sum;
}

LeftOut planLeftOut(const ProductShape& shape, const MPZ& room, const ProductPrices& prices) {
  const int mostX = shape.x - (shape.xSigned ? 1 : 0), mostY = shape.y - (shape.ySigned ? 1 : 0);
  LeftOut best;
  double lowest = priceOfKept(best, shape, prices);
  const auto consider = [&](LeftOut candidate) {
    if (const double price = priceOfKept(candidate, shape, prices); price < lowest)
      lowest = price, best = std::move(candidate);
  };
  for (int x = 1; x <= mostX; ++x) {
    const int y = highest(x, 0, room, mostY);
    if (y == 0) break;
    consider({{{x, y}}});
  }
  if (std::max(shape.x, shape.y) > kWidestStairs) return best;
  for (int x = 2; x <= mostX; ++x)
    for (int y = highest(x, 0, room, mostY), tries = 0; y > 0 && tries < 2; --y, ++tries) {
      // What the wide corner leaves of the room goes to a high one at its side.
      const MPZ left = room - cornerSum(x, y);
      for (int narrow = 1; narrow < x; ++narrow) {
        const MPZ more = left + cornerSum(narrow, y);
        const int high = highest(narrow, 0, more, mostY);
        if (high > y) consider({{{narrow, high}, {x, y}}});
      }
    }
  return best;
}

TruncatedProduct truncatedProduct(Builder& b, const ProductFactor& x, const ProductFactor& y,
                                  int width, const MPZ& room, const ProductPrices& prices) {
  const auto scope = b.scope("truncated_product");
  const LeftOut leftOut =
      planLeftOut({x.bits.width, y.bits.width, x.isSigned, y.isSigned}, room, prices);
  TruncatedProduct result{{}, leftOut.most()};
  if (!result.excess.isZero()) result.terms.push_back({b.literal(result.excess, width), 0});
  for (const Kept& part : keptParts(leftOut, x.bits.width)) {
    const int height = y.bits.width - part.y, shift = part.x + part.y;
    if (height == 0 || shift >= width) continue;
    const bool xSigned = x.isSigned && part.x + part.width == x.bits.width;
    const Signal low = b.slice(x.bits, part.x, part.width), high = b.slice(y.bits, part.y, height);
    if (!xSigned && !y.isSigned) {
      result.terms.push_back({b.multiply(low, high), shift});
      continue;
    }
    const auto asSigned = [&](Signal bits, bool isSigned) {
      return isSigned ? bits : b.zeroExtend(bits, bits.width + 1);
    };
    const Signal product = b.multiplySigned(asSigned(low, xSigned), asSigned(high, y.isSigned));
    result.terms.push_back({b.signExtend(product, std::max(product.width, width - shift)), shift});
  }
  return result;
}

}  // namespace arithmetic
