#include "backend/arithmetic/fused_multiply_add.h"

#include <algorithm>

#include "backend/arithmetic/shifter.h"
#include "util/failure.h"

namespace arithmetic {

namespace {

// Places count from the product's lowest bit, as the product stands in the window.
struct Window {
  int significand = 0;  // bits of the addend
  int highest = 0;      // place of the addend's lowest bit when the product is far below it
  int floor = 0;        // lowest place of the aligned addend
  int lowest = 0;       // of the window, without the sticky bit
  bool sticky = true;

  int top() const { return highest + significand; }  // holds the carry
  int width() const { return top() - lowest + 1 + (sticky ? 1 : 0); }
  int addendWidth() const { return top() - floor; }
};

// With p bits a factor the product is at least 2^(2p-2), or 2^(p-1) with one subnormal factor; with
// two the result's last place is that of the subnormals, far above the product.
//
// At the highest place p bits of addend stand above two zeros: what is below them is less than a
// quarter of the addend's last place, less than half of the result's, wherever it is.
//
// An addend that loses bits at the floor is at most half the product, so the result keeps half of
// the product: its leading bit is at 2p-3, or p-2, or higher. Rounding wants p bits and the half
// below them above the sticky bit. Without rounding the floor may be the result's last place.
Window windowOf(const FloatFormat& format, bool rounds) {
  const int p = format.fractionBits + 1;
  const int leading = format.gradual ? p - 2 : 2 * p - 3;
  Window window{.significand = p, .highest = 2 * p + 2, .sticky = rounds};
  window.floor = rounds ? std::min(0, leading - p) : leading - (p - 1);
  window.lowest = std::min(0, window.floor);
  return window;
}

// The addend in the window, and the biased exponent of a number whose leading bit is the window's
// top one.
struct AlignedAddend {
  Signal bits, sticky;
  Signal exponent;  // unsigned
};
AlignedAddend alignAddend(Builder& b, const ExactProduct& product, const Unpacked& addend,
                          const Window& window) {
  const auto scope = b.scope("align");
  const FloatFormat& format = product.format;
  // The exponent of an addend that stands at the highest place.
  const long offset = window.highest - (format.fractionBits + format.bias());
  const long most = (1L << format.exponentBits) - 1;
  const int width = signedWidth(std::min(0L, offset) - most, 2 * most + std::max(0L, offset) + 1);
  const Signal reference = b.add(b.zeroExtend(product.exponent, width), b.literal(offset, width));
  const Signal own = b.zeroExtend(addend.exponent, width);
  const Signal distance = b.subtract(reference, own);
  // The product is so small that it counts as anything between 0 and the addend's last place.
  const Signal isTiny = b.bitOr(b.topBit(distance), product.isZero);
  const Signal amount =
      b.bitAnd(b.slice(distance, 0, width - 1), b.replicate(b.bitNot(isTiny), width - 1));
  const ShiftedRight moved = shiftDownFromTop(b, addend.significand, amount, window.addendWidth());
  const Signal exponent = b.addCarry(b.select(isTiny, own, reference), b.zeros(width), b.bit(true));
  return {moved.bits, moved.sticky, b.slice(exponent, 0, width - 1)};
}

RoundingRule ruleOf(const FusedAddOptions& options) {
  return options.ulps < 1 ? options.rounding : RoundingRule{.mode = RoundMode::kTowardZero};
}

// Without rounding what an addend loses at the floor makes a difference too large, and dropping the
// bits behind the result's last place makes a result too small.
void stateErrors(const FusedAddOptions& options) {
  if (options.ulps < 1) return stateRounding(options.budgets, options.rounding.isNearest());
  for (const auto& [side, term] : {std::pair{"above", "alignment"}, {"below", "truncation"}}) {
    ErrorBudget budget(options.ulps, side);
    budget.add(term, 1);
    budget.assertKept(options.budgets);
  }
}

Signal flipped(Builder& b, Signal bits, Signal flip) {
  return b.bitXor(bits, b.replicate(flip, bits.width));
}

// The magnitude of the product plus or minus the addend.
struct WindowSum {
  // Its highest 1 stands where the magnitude has it: where the bits of a sum of either sign first
  // change, which waits for no sign.
  Signal leading;
  // 1 when the magnitude is one unit of the last place too low. It is then normalised as if ones
  // followed it, which that unit turns into a carry: into the significand, when all that is dropped
  // is ones.
  Signal lacksOne;
  Signal shifted;  // the magnitude, or its complement when it lacks one: zeros follow it then
  Signal hasAddendsSign;
};

// For a rounding, whose addition takes the missing unit: one subtraction, the product less the
// addend, gives the magnitude of either sign.
WindowSum addForRounding(Builder& b, Signal product, Signal addend, Signal subtracts) {
  const int width = product.width + 1;
  const Signal sum =
      b.add(b.zeroExtend(product, width), b.zeroExtend(flipped(b, addend, subtracts), width));
  const Signal bits = b.slice(sum, 0, width - 1);
  const Signal shifted = flipped(b, bits, subtracts), lacksOne = b.bitAnd(subtracts, b.topBit(sum));
  const Signal isNegative = b.bitAnd(subtracts, b.bitNot(b.topBit(sum)));
  return {.leading = b.bitXor(bits, b.concat({isNegative, b.slice(bits, 1, width - 2)})),
          .lacksOne = lacksOne,
          .shifted = shifted,
          .hasAddendsSign = isNegative};
}

// For a truncation, which has no addition behind it: the operands are put in order first. What a
// sum leaves out of the addend, in the lowest `below` bits, counts as if it reached up to the next
// multiple of the product's lowest bit, so that an exact sum stays exact.
WindowSum addForTruncation(Builder& b, Signal product, Signal addend, int below, Signal subtracts) {
  const Signal swaps = b.bitAnd(subtracts, b.less(product, addend));
  const Signal reachedUp = b.concat(
      {b.slice(addend, below, addend.width - below), b.replicate(b.bitNot(subtracts), below)});
  const Signal magnitude = b.addOrSubtract(b.select(swaps, addend, product),
                                           b.select(swaps, product, reachedUp), subtracts);
  return {magnitude, b.bit(false), magnitude, swaps};
}

WindowSum addInWindow(Builder& b, const AlignedAddend& addend, const ExactProduct& product,
                      const Window& window, Signal subtracts) {
  const auto scope = b.scope("add");
  const int below = window.floor - window.lowest;
  const Signal productBits =
      b.concat({b.zeros(window.top() + 1 - product.significand.width), product.significand,
                b.zeros((window.sticky ? 1 : 0) - window.lowest)});
  const Signal addendBits =
      b.concat({b.zeros(1), addend.bits, b.zeros(below), window.sticky ? addend.sticky : Signal{}});
  return window.sticky ? addForRounding(b, productBits, addendBits, subtracts)
                       : addForTruncation(b, productBits, addendBits, below, subtracts);
}

}  // namespace

ExactProduct multiplyExactly(Builder& b, const Unpacked& x, const Unpacked& y) {
  LOAM_ASSERT(x.exponent.width == y.exponent.width && x.significand.width == y.significand.width,
              "the factors have one format");
  const auto scope = b.scope("multiply");
  const int width = x.exponent.width + 1;
  const Signal isZero = b.bitOr(x.isZero, y.isZero);
  // Fields of a zero are cleared in one factor for both.
  const Signal first =
      x.format.gradual
          ? x.significand
          : b.bitAnd(x.significand, b.replicate(b.bitNot(isZero), x.significand.width));
  return {.format = x.format,
          .sign = b.bitXor(x.sign, y.sign),
          .exponent = b.add(b.zeroExtend(x.exponent, width), b.zeroExtend(y.exponent, width)),
          .significand = b.multiply(first, y.significand),
          .isZero = isZero,
          .isInf = b.bitOr(x.isInf, y.isInf),
          .isNan = b.reduceOr(b.concat(
              {x.isNan, y.isNan, b.bitAnd(x.isZero, y.isInf), b.bitAnd(x.isInf, y.isZero)}))};
}

Unrounded addToProductUnrounded(Builder& b, const ExactProduct& product, const Unpacked& addend,
                                const FusedAddOptions& options) {
  const auto scope = b.scope("fused_add");
  const FloatFormat& format = product.format;
  LOAM_ASSERT(!format.fpLib && addend.significand.width == format.fractionBits + 1,
              "the addend has the factors' format");
  stateErrors(options);
  const Window window = windowOf(format, options.ulps < 1);
  const Signal subtracts = b.bitXor(product.sign, addend.sign);
  const AlignedAddend aligned = alignAddend(b, product, addend, window);
  const WindowSum sum = addInWindow(b, aligned, product, window, subtracts);

  const LeadingZeros zeros =
      countLeadingZeros(b, b.concat({sum.leading, sum.lacksOne}), options.firstOne);
  const Signal count =
      format.gradual ? smaller(b, zeros.count,
                               b.subtract(aligned.exponent, b.literal(1, aligned.exponent.width)))
                     : zeros.count;
  const int kept = format.fractionBits + (window.sticky ? 2 : 1);
  const ShiftedLeft normal =
      shiftLeftSticky(b, b.shiftedUp(sum.shifted, 1), count, window.width(), kept);

  const int width = std::max(aligned.exponent.width + 2, count.width + 1);
  const Signal topExponent = b.zeroExtend(aligned.exponent, width);
  const Signal isInf = b.bitOr(product.isInf, addend.isInf);
  const Signal infSign = b.select(product.isInf, product.sign, addend.sign);
  const Signal zeroSign = b.select(subtracts, roundsDown(b, ruleOf(options)), product.sign);
  const Signal sign = b.select(sum.hasAddendsSign, addend.sign, product.sign);
  const Signal opposed = b.reduceAnd(b.concat({product.isInf, addend.isInf, subtracts}));
  Unrounded result{.sign = {},
                   .exponent = {},
                   .significand = {},
                   .sticky = normal.sticky,
                   .isZero = zeros.allZero,
                   .isInf = isInf,
                   .isNan = {}};
  // So many bits, each beside the flip, take no more than three tables behind each other.
  constexpr int kThreeLevels = 5 * 5 * 5;
  if (options.inLoop || !window.sticky || window.width() <= kThreeLevels) {
    result.sign = b.select(isInf, infSign, b.select(zeros.allZero, zeroSign, sign));
    result.exponent = b.subtract(topExponent, b.zeroExtend(count, width));
    result.significand = flipped(b, normal.bits, sum.lacksOne);
  } else {
    // The top bit tells what the wide zero test does, and comes when there is time for it: with the
    // sign right behind that test, the count's stage would be longer by a table.
    result.significand = flipped(b, normal.bits, sum.lacksOne);
    const Signal hasNoTop = b.bitNot(b.topBit(result.significand));
    const Signal isZero = format.gradual ? b.bitAnd(zeros.allZero, hasNoTop) : hasNoTop;
    if (!format.gradual) result.isZero = isZero;
    result.sign =
        b.select(isZero, b.select(isInf, infSign, zeroSign), b.select(isInf, infSign, sign));
    result.exponent = b.subtract(topExponent, b.zeroExtend(count, width));
  }
  result.isNan = b.reduceOr(b.concat({product.isNan, addend.isNan, opposed}));
  result.oneMore = b.bitAnd(sum.lacksOne, b.bitNot(normal.sticky));
  return result;
}

Signal addToProduct(Builder& b, const ExactProduct& product, const Unpacked& addend,
                    const FusedAddOptions& options) {
  return roundAndPack(b, addToProductUnrounded(b, product, addend, options), product.format,
                      ruleOf(options), options.quietNaN);
}

}  // namespace arithmetic
