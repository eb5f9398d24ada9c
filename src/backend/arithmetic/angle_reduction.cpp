#include "backend/arithmetic/angle_reduction.h"

#include <mpfr.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <map>
#include <tuple>

#include "backend/arithmetic/constant_multiplier.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "backend/arithmetic/table_lookup.h"
#include "util/failure.h"

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;

namespace {

// The exponent of the numbers in [1, 2), whose window smaller ones share.
constexpr int kLeastExponent = 0;

// Places of the window below those whose lack makes up one of the fixed-point angle's.
constexpr int kWindowGuard = 3;

MPZ powerOfTwo(int exponent) { return MPZ::powerOfTwo(static_cast<unsigned long>(exponent)); }

// floor(2^bits / pi).
MPZ inverseOfPi(int bits) {
  mpfr_t value;
  MPZ ends[2];
  for (const mpfr_rnd_t down : {MPFR_RNDD, MPFR_RNDU}) {
    mpfr_init2(value, bits + 64);
    mpfr_const_pi(value, down == MPFR_RNDD ? MPFR_RNDU : MPFR_RNDD);
    mpfr_ui_div(value, 1, value, down);
    mpfr_mul_2si(value, value, bits, down);
    mpfr_get_z(ends[down == MPFR_RNDU].get(), value, MPFR_RNDD);
    mpfr_clear(value);
  }
  LOAM_ASSERT(ends[0] == ends[1], "enough bits of pi");
  return ends[0];
}

int greatestExponent(const FloatFormat& format) { return format.maxExponent() - format.bias(); }

NearestMultiple searchNearest(const FloatFormat& format) {
  const int wF = format.fractionBits, most = std::max(0, greatestExponent(format));
  // M C errs by less than 2^(wF + 1) units of 2^-places; the distance is about 2^-(wF + wE + 3).
  const int places = 2 * (wF + 1) + 2 * format.exponentBits + 32;
  const MPZ inverse = inverseOfPi(places + most), greatestM = powerOfTwo(wF + 1) - MPZ(1);
  NearestMultiple nearest{0, powerOfTwo(places), places};
  for (int exponent = 0; exponent <= most; ++exponent) {
    // C modulo 1, cut off to `places` places.
    const MPZ scaled = inverse >> static_cast<unsigned long>(most - exponent + wF);
    const Dyadic c = dyadic(scaled.lowBits(static_cast<unsigned long>(places)), -places);
    const MPZ distance =
        (separation(c, greatestM) << static_cast<unsigned long>(places + c.exponent)) -
        powerOfTwo(wF + 1);
    nearest.distance = std::min(nearest.distance, distance);
  }
  LOAM_ASSERT(nearest.distance.sign() > 0, "places that tell the least distance");
  // distance >= 2^(its length - 1)
  nearest.bits = places - static_cast<int>(nearest.distance.bitLength());
  return nearest;
}

// Windows by the exponent's distance from kLeastExponent: a row for each 2^fineBits of them, with
// so many more bits below that a shift brings any of these to the top.
std::vector<MPZ> windowRows(const RadianPlan& plan) {
  const int wF = plan.format.fractionBits, last = greatestExponent(plan.format);
  const int slack = (1 << plan.fineBits) - 1, width = plan.windowBits + 1 + slack;
  // A window of exponent e is floor(2^(windowBits + e - wF) / pi) modulo 2^(windowBits + 1).
  const int most = plan.windowBits + std::max(last, 0) + slack + 1;
  const MPZ inverse = inverseOfPi(most);
  std::vector<MPZ> rows;
  for (int exponent = kLeastExponent; exponent <= std::max(last, kLeastExponent);
       exponent += 1 << plan.fineBits) {
    const int bits = plan.windowBits + exponent - wF + slack;
    rows.push_back((inverse >> static_cast<unsigned long>(most - bits))
                       .lowBits(static_cast<unsigned long>(width)));
  }
  return rows;
}

// Levels of a choice of four or two a bit.
double shiftPrice(int width, int fineBits) { return width * (fineBits / 2 + (fineBits % 2) * 0.5); }

// The significand times the window modulo 2^(windowBits + 1), cut off to fractionBits + 1 bits.
//
// The window's digits are as wide as a block's narrow factor. Above the point less bits of the
// significand count. Products by every other digit overlap little, so that each half of them is
// summed by itself, mostly in few additions.
Signal fixedPointAngle(Builder& b, Signal significand, Signal window, const RadianPlan& plan,
                       const ProductPrices& prices) {
  const int width = window.width, bits = significand.width;
  std::vector<HeapTerm> halves[2];
  for (int end = width, number = 0; end > 0; end -= prices.dspNarrow, ++number) {
    const int low = std::max(0, end - prices.dspNarrow);
    const Signal factor = b.slice(significand, 0, std::min(bits, width - low));
    const Signal product = b.multiply(factor, b.slice(window, low, end - low));
    halves[number % 2].push_back({b.slice(product, 0, std::min(product.width, width - low)), low});
  }
  const Signal sum = b.add(b.heap(halves[0], width), b.heap(halves[1], width));
  return b.slice(sum, plan.windowBits - plan.fractionBits, plan.fractionBits + 1);
}

}  // namespace

const NearestMultiple& nearestMultipleOfPi(const FloatFormat& format) {
  static std::map<std::tuple<int, int, bool>, NearestMultiple> found;
  const std::tuple key{format.exponentBits, format.fractionBits, format.fpLib};
  auto place = found.find(key);
  if (place == found.end()) place = found.emplace(key, searchNearest(format)).first;
  return place->second;
}

RadianPlan planRadians(const FloatFormat& format, int angleBits, const EvaluationPrices& prices) {
  const int wF = format.fractionBits;
  RadianPlan plan{.format = format, .angleBits = angleBits};
  // A subnormal has up to wF zeros more than the numbers in [1, 2), which have one at most.
  const NearestMultiple& nearest = nearestMultipleOfPi(format);
  plan.mostZeros = std::max(nearest.bits, (format.gradual ? wF : 0) + 2);
  // The fixed-point angle, too small by up to two of its places, must not have one zero more.
  if (nearest.distance < powerOfTwo(nearest.places - nearest.bits - 1) +
                             powerOfTwo(nearest.places - nearest.bits - angleBits))
    plan.mostZeros = std::max(plan.mostZeros, nearest.bits + 1);
  // With all these zeros the angle still has the significand's bits.
  plan.fractionBits = plan.mostZeros + angleBits + 1;
  // Of the window M < 2^(wF + 1) units are lacking.
  plan.windowBits = plan.fractionBits + wF + 1 + kWindowGuard;
  double cheapest = std::numeric_limits<double>::infinity();
  const int exponents = std::max(greatestExponent(format), kLeastExponent) - kLeastExponent + 1;
  int best = 0;
  for (int fine = 0; 1 << fine <= exponents; ++fine) {
    const int slack = (1 << fine) - 1, width = plan.windowBits + 1;
    const auto rows = static_cast<std::size_t>((exponents + slack) >> fine);
    const double price = tablePrice(std::bit_ceil(rows), width + slack, prices.table) +
                         shiftPrice(width + slack / 2, fine);
    if (price < cheapest) cheapest = price, best = fine;
  }
  plan.fineBits = best;
  return plan;
}

ReducedRadians reduceRadians(Builder& b, const Unpacked& x, const RadianPlan& plan,
                             const ProductPrices& prices) {
  const auto scope = b.scope("radians");
  const FloatFormat& format = x.format;
  const int width = format.exponentBits + 2;
  const Signal above =
      b.subtract(b.zeroExtend(x.exponent, width), b.literal(format.bias() + kLeastExponent, width));
  const Signal isSmall = b.topBit(above);
  const std::vector<MPZ> rows = windowRows(plan);
  const int rowBits = std::bit_width(rows.size() - 1);
  const Signal number = b.bitAnd(b.slice(above, 0, rowBits + plan.fineBits),
                                 b.replicate(b.bitNot(isSmall), rowBits + plan.fineBits));
  const int slack = (1 << plan.fineBits) - 1;
  Signal window =
      tableLookup(b, b.slice(number, plan.fineBits, rowBits), rows, plan.windowBits + 1 + slack);
  if (plan.fineBits > 0)
    window =
        shiftLeftSticky(b, window, b.slice(number, 0, plan.fineBits), slack, plan.windowBits + 1)
            .bits;
  const Signal angle = fixedPointAngle(b, x.significand, window, plan, prices);

  // Of an angle in (1/2, 1) half turns the complement counts, one unit less than the distance to 1.
  // What the window lacks and the cut make the angle too small by less than 9/8 of a unit, and so
  // the complement too large by less than 1/8 or too small by less than 1.
  // Only a small number's may have a 1 on top. The complement is had behind the shifter, which has
  // less bits there and has none to fill in.
  const Signal fraction = b.slice(angle, 0, plan.fractionBits);
  const Signal mirrors = b.bitAnd(b.topBit(fraction), b.bitNot(isSmall));
  const auto mirrored = [&](Signal bits) {
    return b.bitXor(bits, b.replicate(mirrors, bits.width));
  };
  const int counted = plan.mostZeros + 1;
  const Signal count =
      countLeadingZeros(b, mirrored(b.slice(fraction, fraction.width - counted, counted))).count;
  const Signal m =
      mirrored(shiftLeftSticky(b, fraction, count, plan.mostZeros, plan.angleBits + 1).bits);

  const Signal small = b.bitAnd(b.subtract(b.zeros(width), above), b.replicate(isSmall, width));
  const int zerosWidth = std::max(width, count.width + 1);
  const Signal zeros = b.add(b.zeroExtend(small, zerosWidth), b.zeroExtend(count, zerosWidth));
  return {m, zeros, b.topBit(angle)};
}

}  // namespace arithmetic
