#include "backend/functions/fixed_mult.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/arithmetic/truncated_product.h"
#include "backend/functions/integer_values.h"

namespace functions {

using arithmetic::ProductFactor;
using arithmetic::TruncatedProduct;
using graph::Builder;
using graph::HeapTerm;
using graph::Signal;
using util::MPZ;

namespace {

// A bound above which a product would lose all of its bits.
constexpr double kMostUlps = 1 << 20;

MPZ powerOfTwo(int exponent) { return MPZ::powerOfTwo(static_cast<unsigned long>(exponent)); }

void evaluateProduct(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const kiln::FixedPoint &a = fixedPoint(signature.in[0]), &b = fixedPoint(signature.in[1]),
                         &out = fixedPoint(signature.out[0]);
  thread_local MPZ product, factor, limit;
  readFixed(product, inputs[0], a);
  readFixed(factor, inputs[1], b);
  product *= factor;
  results.resize(1);
  // `product` and the limits in one unit, the finer of the two.
  const int below = a.fraction() + b.fraction() - out.fraction();
  if (below < 0) product <<= static_cast<unsigned long>(-below);
  for (const bool isHigh : {false, true}) {
    limit = isHigh ? highestOf(out) : lowestOf(out);
    if (below > 0) limit <<= static_cast<unsigned long>(below);
    if (isHigh ? product > limit : product < limit) product = limit;
  }
  mpfr_set_z_2exp(results[0].real.prepare(static_cast<mpfr_prec_t>(precisions[0])), product.get(),
                  -out.fraction() - std::max(below, 0), roundings[0]);
  results[0].type = NumType::kValue;
  results[0].raw = false;
}

// All that an exact product can be, and what it can be but for its greatest value.
struct ProductRange {
  MPZ low, high, nextHigh;
};
ProductRange rangeOf(const kiln::FixedPoint& a, const kiln::FixedPoint& b) {
  const MPZ lowA = lowestOf(a), highA = highestOf(a), lowB = lowestOf(b), highB = highestOf(b);
  const auto [low, high] = std::minmax({lowA * lowB, lowA * highB, highA * lowB, highA * highB});
  ProductRange range{low, high, high};
  if (a.sign() && b.sign())
    range.nextHigh = std::max({highA * highB, lowA * (lowB + MPZ(1)), (lowA + MPZ(1)) * lowB});
  return range;
}

// Builds q for one set of ports. The sum is that of the exact product, what rounds it, and the
// excess of a truncated product; q is its integer part in places of the result.
class Multiplier {
 public:
  Multiplier(Builder& b, const Request& request, std::span<const Signal> inputs)
      : b(b),
        request(request),
        inputA(inputs[0]),
        inputB(inputs[1]),
        a(fixedPoint(request.signature.in[0])),
        factor(fixedPoint(request.signature.in[1])),
        out(fixedPoint(request.signature.out[0])),
        range(rangeOf(a, factor)),
        below(a.fraction() + factor.fraction() - out.fraction()),
        drop(std::max(0, below)),
        place(powerOfTwo(drop)),
        low(lowestOf(out) << static_cast<unsigned long>(drop)),
        end((highestOf(out) + MPZ(1)) << static_cast<unsigned long>(drop)) {
    if (below < 0)
      for (MPZ* bound : {&range.low, &range.high, &range.nextHigh})
        *bound <<= static_cast<unsigned long>(-below);
  }

  Signal build() {
    const Accuracy accuracy = request.accuracy.empty() ? Accuracy{} : request.accuracy[0];
    const bool isNearest = accuracy.kind != Accuracy::kWithin || accuracy.ulps < 1;
    // The one product above all others, of the lowest numbers, shows as one place less.
    const bool stepsDown = range.high == end && range.nextHigh < end &&
                           !(isNearest && range.nextHigh + (place >> 1) >= end);
    MPZ highest = stepsDown ? std::max(range.nextHigh, end - place) : range.high;
    MPZ lowest = range.low;

    const Room room = isNearest ? Room{} : roomFor(accuracy.ulps, highest);
    const int width = sumWidth(lowest - room.lowered, highest + room.size + place);
    const TruncatedProduct product =
        arithmetic::truncatedProduct(b, {inputA, a.sign()}, {inputB, factor.sign()}, width,
                                     room.size, productPrices(request.prices));
    // What is left out may be less than there is room for.
    const MPZ lowered = std::max(MPZ(0), room.lowered - (room.size - product.excess));
    std::vector<HeapTerm> terms = product.terms;
    if (below < 0)
      for (HeapTerm& term : terms) term.shift -= below;
    addConstant(terms, -lowered, width);
    lowest -= lowered;
    // All bits of two unsigned numbers are ones where the sum is greatest, those left out too.
    if (a.sign() || factor.sign()) highest += product.excess - lowered;
    if (stepsDown) addLess(terms, areLowest(), drop, width);
    if (isNearest && below > 0) {
      // Ties away from zero: below it the half is a step less.
      addConstant(terms, place >> 1, width);
      if (a.sign() || factor.sign()) addLess(terms, isNegative(), 0, width);
      highest += place >> 1;
    }
    if (isNearest) {
      arithmetic::stateRounding(request.budgets, true);
    } else {
      assertBudget(accuracy.ulps, product.excess - lowered, lowered);
    }
    return saturated(b.heap(terms, width), lowest, highest);
  }

 private:
  // How much a truncated product may exceed the exact one, once `lowered` is taken off it.
  struct Room {
    MPZ size, lowered;
  };

  // q lies in (p - 1, p + bound) for an unsigned result; near zero one of either sign is accepted
  // on one side only, by the step that the exact one has, so a signed result stays in (p - 2, p +
  // 1).
  Room roomFor(double ulps, const MPZ& highest) const {
    if (request.wholeProducts || below <= 0) return {};
    const auto whole = static_cast<unsigned long>(std::min(ulps, kMostUlps));
    const bool isSigned = out.sign() || a.sign() || factor.sign();
    Room room{place * MPZ(isSigned ? 1ul : whole) - MPZ(1), {}};
    // No sum reaches what would need a further test for its range.
    if (isSigned) {
      const MPZ left = end - MPZ(1) - highest;
      if (left.sign() > 0) room.size = std::min(room.size, left);
      if (highest >= end) return room;  // saturates anyway
      if (left.sign() <= 0) return {};
      if (whole >= 2 && range.low - place >= low && out.sign()) room = {room.size + place, place};
    }
    return room;
  }

  void assertBudget(double ulps, const MPZ& above, const MPZ& lowered) const {
    arithmetic::ErrorBudget under(ulps, "below"), over(ulps, "above");
    if (lowered.sign() > 0) under.add("partial products left out", lowered, drop);
    under.add("truncation", 1);
    under.assertKept(request.budgets);
    if (above.sign() <= 0) return;
    over.add("constant for partial products left out", above, drop);
    over.assertKept(request.budgets);
  }

  // Bits of two's complement that hold all from `least` to `most`; the sum has its bits below the
  // product's where the result has more places.
  int sumWidth(const MPZ& least, const MPZ& most) const {
    const auto bits = [](const MPZ& n) {
      return static_cast<int>((n.sign() < 0 ? -n - MPZ(1) : n).bitLength()) + 1;
    };
    return std::max({bits(least), bits(most), out.width() + drop + 1});
  }

  void addConstant(std::vector<HeapTerm>& terms, const MPZ& value, int width) const {
    if (!value.isZero()) terms.push_back({b.literal(value, width), 0});
  }
  // - bit 2^shift = (1 - bit) 2^shift - 2^shift
  void addLess(std::vector<HeapTerm>& terms, Signal bit, int shift, int width) const {
    terms.push_back({b.bitNot(bit), shift});
    addConstant(terms, -powerOfTwo(shift), width);
  }

  Signal areLowest() const {
    const auto isLowest = [&](Signal x) {
      if (x.width == 1) return x;
      return b.bitAnd(b.topBit(x), b.isZero(b.slice(x, 0, x.width - 1)));
    };
    return b.bitAnd(isLowest(inputA), isLowest(inputB));
  }
  // Of a zero with a negative number as well, which the half step less leaves at zero.
  Signal isNegative() const {
    const Signal signA = a.sign() ? b.topBit(inputA) : b.bit(false);
    return b.bitXor(signA, factor.sign() ? b.topBit(inputB) : b.bit(false));
  }

  // The sum in [lowest, highest] cut off at the result's last place and held in its range.
  Signal saturated(Signal sum, const MPZ& lowest, const MPZ& highest) const {
    const int width = out.width();
    Signal result = b.slice(sum, drop, width);
    const Signal sign = b.topBit(sum);
    // The bits above those of a number in range are copies of its sign.
    const int inside = drop + width - (out.sign() ? 1 : 0);
    const Signal above = b.slice(sum, inside, sum.width - inside);
    if (highest >= end) {
      const Signal tooHigh = b.bitAnd(b.bitNot(sign), b.reduceOr(above));
      result = b.select(tooHigh, b.literal(highestOf(out), width), result);
    }
    if (lowest < low) {
      const Signal tooLow = b.bitAnd(sign, b.bitNot(b.reduceAnd(above)));
      result = b.select(out.sign() ? tooLow : sign, b.literal(lowestOf(out), width), result);
    }
    return result;
  }

  Builder& b;
  const Request& request;
  const Signal inputA, inputB;
  const kiln::FixedPoint &a, &factor, &out;
  ProductRange range;  // in units of the sum
  const int below;     // bits of the product below the result's last place; negative: zeros there
  const int drop;      // bits of the sum there
  const MPZ place;     // the result's last place
  const MPZ low, end;  // of the range of results: the sum is to be in [low, end)
};

std::vector<Signal> decomposeProduct(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  return {Multiplier(b, request, inputs).build()};
}

std::optional<std::string> refuseProduct(const Request& request) {
  const Signature& signature = request.signature;
  if (signature.in.size() != 2 || signature.out.size() != 1)
    return fmt::format("{} inputs and {} outputs are not the 2 and 1 of this unit",
                       signature.in.size(), signature.out.size());
  for (const kiln::Type& type : {signature.in[0], signature.in[1], signature.out[0]})
    if (!type.as_fixed_point()) return "a port is not a fixed-point port";
  if (auto reason = inputWidthOutOfRange(signature, 1024)) return reason;
  if (auto reason = refuseFixedPoint(fixedPoint(signature.out[0]))) return reason;
  const kiln::FixedPoint &a = fixedPoint(signature.in[0]), &b = fixedPoint(signature.in[1]);
  // A result that no bit of the product reaches, or that saturates for all but zero.
  const int fraction = a.fraction() + b.fraction();
  return outOfRange("output fraction", fixedPoint(signature.out[0]).fraction(), fraction - 4096,
                    fraction + 4096);
}

constexpr UnitRow kRows[] = {{"CFxPTruncMult", evaluateProduct, decomposeProduct, refuseProduct}};

}  // namespace

std::span<const UnitRow> fixedMultUnits() { return kRows; }

}  // namespace functions
