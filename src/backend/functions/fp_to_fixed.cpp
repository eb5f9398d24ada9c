#include "backend/functions/fp_to_fixed.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "backend/arithmetic/carry_logic.h"
#include "backend/arithmetic/shifter.h"
#include "backend/functions/float_flags.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/integer_values.h"

namespace functions {

using arithmetic::FloatFormat;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

constexpr std::size_t kMode = 6;  // place in the variant of DMFPToFxP

// What a unit does to the digits that the port has no place for.
enum class Way { kFixed, kSelected, kDirected, kTruth };
struct Choice {
  Way way = Way::kFixed;
  RoundMode mode = RoundMode::kTowardZero;
};

Choice choiceByMode(const Signature& signature) {
  if (signature.in.size() > 1) return {Way::kSelected};
  constexpr Choice kChoices[] = {{Way::kFixed, RoundMode::kTowardZero},
                                 {Way::kFixed, RoundMode::kNearestAway},
                                 {Way::kFixed, RoundMode::kNearestEven},
                                 {Way::kFixed, RoundMode::kTowardZero},  // the select, tied to 0
                                 {Way::kFixed, RoundMode::kDown},
                                 {Way::kFixed, RoundMode::kUp},
                                 {Way::kTruth}};
  return kChoices[signature.variant[kMode]];
}

Choice choiceByDirection(const Signature&) { return {Way::kDirected}; }

// The reference.

void roundToInteger(mpfr_ptr r, mpfr_srcptr x, RoundMode mode) {
  switch (mode) {
    case RoundMode::kNearestEven:
      mpfr_roundeven(r, x);
      return;
    case RoundMode::kDown:
      mpfr_floor(r, x);
      return;
    case RoundMode::kUp:
      mpfr_ceil(r, x);
      return;
    case RoundMode::kTowardZero:
      mpfr_trunc(r, x);
      return;
    case RoundMode::kNearestAway:
      mpfr_round(r, x);
      return;
  }
}

RoundMode modeFor(const Choice& choice, const std::vector<NumValue>& inputs) {
  constexpr RoundMode kDirections[] = {RoundMode::kNearestEven, RoundMode::kDown, RoundMode::kUp,
                                       RoundMode::kTowardZero};
  if (choice.way == Way::kSelected)
    return readBit(inputs[1]) ? RoundMode::kNearestAway : RoundMode::kTowardZero;
  return choice.way == Way::kDirected ? kDirections[readSelect(inputs[1], 2)] : choice.mode;
}

// `n` becomes x * 2^fraction as an integer of the port; returns the overflow and underflow flags.
unsigned holdRounded(MPZ& n, mpfr_srcptr x, const kiln::FixedPoint& out, RoundMode mode) {
  const MPZ low = lowestOf(out), high = highestOf(out);
  if (mpfr_nan_p(x)) {
    n = high;
    return 0;
  }
  const MPZ& limit = mpfr_signbit(x) ? low : high;
  if (mpfr_inf_p(x)) {
    n = limit;
    return kOverflow;
  }
  thread_local Real integer;
  mpfr_ptr r = integer.prepare(mpfr_get_prec(x));
  mpfr_mul_2si(r, x, out.fraction(), MPFR_RNDN);  // exact
  roundToInteger(r, r, mode);
  // A number far outside is never written out in full.
  const bool isFar = mpfr_regular_p(r) && mpfr_get_exp(r) > out.width() + 1;
  if (!isFar) mpfr_get_z(n.get(), r, MPFR_RNDN);
  if (isFar || n < low || n > high) {
    n = limit;
    return kOverflow;
  }
  const bool vanishes = n.isZero() && !mpfr_zero_p(x);
  return vanishes ? unsigned{kUnderflow} : 0;
}

template <Choice (*choiceOf)(const Signature&)>
void evaluateConversion(const Signature& signature, std::vector<NumValue>& results,
                        const std::vector<NumValue>& inputs,
                        const std::vector<unsigned>& precisions,
                        const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(signature.out.size());
  const kiln::FixedPoint& out = fixedPoint(signature.out[0]);
  const Choice choice = choiceOf(signature);
  {
    const FullExponentRange range;
    thread_local Real x;
    thread_local MPZ n;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    unsigned flags = 0;
    if (choice.way == Way::kTruth) {
      n = MPZ(mpfr_zero_p(x.get()) ? 0 : 1);
      wrapInto(n, out);
      if (mpfr_inf_p(x.get())) flags |= kOverflow;
    } else {
      flags = holdRounded(n, x.get(), out, modeFor(choice, inputs));
    }
    writeInteger(results[0], n, out, precisions[0], roundings[0]);
    if (results.size() > 1) {
      if (mpfr_nan_p(x.get())) flags |= kNan;
      if (n.sign() < 0) flags |= kNegative;
      if (n.isZero()) flags |= kZero;
      writeInteger(results[1], MPZ(flags), fixedPoint(signature.out[1]), precisions[1],
                   roundings[1]);
    }
  }
  fitToCallersRange(results, roundings);
}

// The circuit.

// Where the digits of a number stand in the port.
struct Grid {
  long top;              // the highest place of the shifted significand, from the port's lowest
  long nearest;          // the distance from there of the top digit of a number of exponent 0
  long greatest, least;  // places of the top digits of the largest and the lowest binade
  int nearBits;          // of a distance: a larger one leaves no digit of the port

  // Digits of a number of exponent 0 are below the half of the port's lowest place.
  bool isFarAtZero() const { return nearest > 1L << nearBits; }
};

Grid gridOf(const FloatFormat& format, const kiln::FixedPoint& out) {
  const long width = out.width();
  // The significand's top bit stands at exponent + offset in the integer.
  const long offset = long{out.fraction()} - format.bias();
  Grid grid;
  grid.greatest = format.maxExponent() + offset;
  grid.least = format.minExponent() + offset;
  // Subnormals stand in the lowest binade, which may lie above the port's highest digit.
  grid.top = std::min(width - 1, grid.greatest);
  if (format.gradual)
    grid.top = std::max(grid.top, std::min(grid.least, width - 1 + format.fractionBits));
  grid.top = std::max(grid.top, 0L);
  grid.nearest = grid.top - offset;
  grid.nearBits = static_cast<int>(std::bit_width(static_cast<unsigned long>(grid.top)));
  return grid;
}

// |a| on the grid of the port.
struct Placed {
  Signal integer;  // the port's width at most; but for its last bit undefined where `isFar`
  Signal isFar;    // it is below 1
  arithmetic::Remainder rest;
  Signal exceeds;  // it has digits above those of the port, or is infinite or a NaN
};

Placed place(Builder& b, const arithmetic::Unpacked& x, const Grid& grid, int width) {
  const auto scope = b.scope("place");
  const auto& format = x.format;
  const long greatestExponent = (1L << format.exponentBits) - 1;  // of infinities and NaNs
  const int distanceWidth =
      arithmetic::signedWidth(grid.nearest - greatestExponent, std::max(grid.nearest, 0L));
  const Signal distance =
      b.subtract(b.literal(grid.nearest, distanceWidth), b.zeroExtend(x.exponent, distanceWidth));
  const int word = static_cast<int>(grid.top + 2);
  const int nearBits = std::min(grid.nearBits, distanceWidth - 1);
  const auto moved =
      arithmetic::shiftDownFromTop(b, x.significand, b.slice(distance, 0, nearBits), word);
  const int kept = static_cast<int>(std::min(grid.top + 1, long{width}));

  Signal exceeds = b.bitOr(x.isInf, x.isNan);
  if (grid.greatest >= grid.top) {
    // Infinities and NaNs are above the port by their exponents.
    exceeds = b.topBit(distance);
    const int lowest = format.gradual ? format.minExponent() : 0;
    if (grid.nearest < lowest) exceeds = b.select(x.isZero, b.bit(false), exceeds);
  }
  const Signal above = b.slice(moved.bits, kept + 1, moved.bits.width - kept - 1);
  if (above.width > 0) exceeds = b.bitOr(exceeds, b.reduceOr(above));

  Placed result{
      b.slice(moved.bits, 1, kept), b.bit(false), {b.bitOf(moved.bits, 0), moved.sticky}, exceeds};
  const Signal farBits = b.slice(distance, nearBits, distanceWidth - 1 - nearBits);
  if (farBits.width == 0) return result;
  // One bit clears the integer of a number that is far below; its rest is told apart.
  const Signal isFar = result.isFar = b.reduceOr(farBits);
  result.integer = b.concat({b.slice(result.integer, 1, kept - 1),
                             b.bitAnd(b.bitOf(result.integer, 0), b.bitNot(isFar))});
  Signal half = b.bit(false), beyond = b.bitNot(x.isZero);
  if (word > 1 << nearBits) {
    const Signal isAtHalf = b.equal(b.slice(distance, 0, distanceWidth - 1),
                                    b.literal(util::MPZ::powerOfTwo(nearBits), distanceWidth - 1));
    half = b.bitAnd(isAtHalf, b.topBit(x.significand));
    const Signal fraction = b.slice(x.significand, 0, format.fractionBits);
    beyond = b.select(isAtHalf, b.reduceOr(fraction), beyond);
  }
  result.rest = {b.select(isFar, half, result.rest.half),
                 b.select(isFar, beyond, result.rest.beyond)};
  return result;
}

// The port's bits, and what became of a number; infinities and NaNs are outside.
struct Held {
  Signal bits;
  Signal isOutside, becomesZero;
};

// One carry chain rounds and negates: -(m + r) is ~m + 1 - r.
Held holdSigned(Builder& b, const arithmetic::Unpacked& x, const Placed& m, Signal raise,
                int width) {
  const int sumWidth = std::min(width + 1, m.integer.width + 2);
  const Signal integer = b.bitAnd(m.integer, b.replicate(b.bitNot(m.isFar), m.integer.width));
  const Signal magnitude = b.zeroExtend(integer, sumWidth);
  const Signal sum = b.addCarry(b.bitXor(magnitude, b.replicate(x.sign, sumWidth)),
                                b.zeros(sumWidth), b.bitXor(raise, x.sign));
  Signal isOutside = m.exceeds;
  if (sumWidth > width)
    isOutside = b.bitOr(isOutside, b.bitXor(b.topBit(sum), b.bitOf(sum, width - 1)));
  const Signal isLow = b.bitAnd(x.sign, b.bitNot(x.isNan));
  const Signal limit = b.concat({isLow, b.replicate(b.bitNot(isLow), width - 1)});
  return {b.select(isOutside, limit, b.signExtend(sum, width)), isOutside, b.isZero(sum)};
}

// A negative number is 0, unless it is a NaN, and outside unless it rounds to 0.
Held holdUnsigned(Builder& b, const arithmetic::Unpacked& x, const Placed& m, Signal raise,
                  int width) {
  const int sumWidth = std::min(width + 1, m.integer.width + 1);
  const Signal sum = b.addCarry(b.zeroExtend(m.integer, sumWidth), b.zeros(sumWidth), raise);
  const Signal carry = sumWidth > width ? b.topBit(sum) : b.bit(false);
  const Signal isHigh = b.bitOr(m.exceeds, carry);
  const Signal isLow = b.bitAnd(x.sign, b.bitNot(x.isNan));
  // Behind the sum a digit that is not there costs nothing.
  const Signal isFar = b.bitAnd(m.isFar, b.bitNot(m.exceeds)), isGone = b.bitOr(isLow, isFar);
  const Signal held = b.bitOr(b.zeroExtend(sum, width), b.replicate(isHigh, width));
  const Signal bits =
      b.bitAnd(held, b.concat({b.replicate(b.bitNot(isGone), width - 1), b.bitNot(isLow)}));
  const Signal high = b.slice(sum, 1, sumWidth - 1);
  const Signal becomesZero =
      b.bitNot(b.bitOr(b.bitOf(sum, 0), b.select(m.isFar, b.bit(false), b.reduceOr(high))));
  const Signal isAbove = b.bitAnd(carry, b.bitNot(m.isFar));
  return {bits, b.bitOr(m.exceeds, b.select(x.sign, b.bitNot(becomesZero), isAbove)), becomesZero};
}

Held hold(Builder& b, const arithmetic::Unpacked& x, const Choice& choice,
          std::span<const Signal> inputs, const kiln::FixedPoint& out, const Grid& grid) {
  const int width = out.width();
  if (choice.way == Way::kTruth)
    return {b.zeroExtend(b.bitNot(x.isZero), width), b.bit(false), x.isZero};
  const Placed m = place(b, x, grid, width);
  const auto scope = b.scope("round");
  arithmetic::RoundingRule rule{.mode = choice.mode};
  if (choice.way == Way::kDirected) rule.port = inputs[1];
  const Signal raise = choice.way == Way::kSelected
                           ? b.bitAnd(inputs[1], m.rest.half)
                           : arithmetic::raises(b, rule, x.sign, b.bitOf(m.integer, 0), m.rest);
  return out.sign() ? holdSigned(b, x, m, raise, width) : holdUnsigned(b, x, m, raise, width);
}

template <Choice (*choiceOf)(const Signature&)>
std::vector<Signal> decomposeConversion(Builder& b, const Request& request,
                                        std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  const kiln::FixedPoint& out = fixedPoint(signature.out[0]);
  const FloatFormat format = inputFormat(request, 0);
  const Grid grid = gridOf(format, out);
  // What the pattern of a zero has besides leaves no trace far below the port.
  const auto zeros =
      grid.isFarAtZero() ? arithmetic::ZeroFields::kAsTheyAre : arithmetic::ZeroFields::kCleared;
  auto x = arithmetic::unpack(b, inputs[0], format, zeros);
  x.isNan = arithmetic::isNanByCarry(b, inputs[0], format);  // all bits wait for it
  const Held held = hold(b, x, choiceOf(signature), inputs, out, grid);
  if (signature.out.size() == 1) return {held.bits};
  const Signal number = b.bitNot(x.isNan);
  const Signal isSmall = b.reduceAnd(b.concat(
      {held.becomesZero, b.bitNot(held.isOutside), b.bitNot(x.isZero), b.bitNot(x.isInf)}));
  return {held.bits, flagBits(b, {.packed = held.bits,
                                  .overflow = b.bitAnd(b.bitOr(held.isOutside, x.isInf), number),
                                  .underflow = b.bitAnd(isSmall, number),
                                  .isNan = x.isNan,
                                  .isNegative = out.sign() ? b.topBit(held.bits) : b.bit(false),
                                  .isZero = b.isZero(held.bits)})};
}

// Refuses unless the ports are a number, `controls` bits that choose the rounding, a fixed-point
// number and flags where `flagged`.
std::optional<std::string> refusePorts(const Request& request, int controls, bool flagged) {
  const auto& [in, out, variant] = request.signature;
  const std::size_t inputs = controls > 0 ? 2 : 1, outputs = flagged ? 2 : 1;
  if (in.size() != inputs || out.size() != outputs)
    return fmt::format("{} inputs and {} outputs are not the {} and {} of this unit", in.size(),
                       out.size(), inputs, outputs);
  if (!in[0].as_floating_point() || in[0].as_floating_point()->is_fp_lib)
    return "its operand is not an IEEE-style number";
  if (inputs == 2 && !isControl(in[1], controls))
    return fmt::format("its rounding is not a port of {} bits", controls);
  if (!out[0].as_fixed_point()) return "its result is not a fixed-point number";
  if (flagged && !isControl(out[1], 5)) return "its flags are not a port of 5 bits";
  if (auto reason = refuseFixedPoint(*out[0].as_fixed_point())) return reason;
  return refuseFormats(request);
}

std::optional<std::string> refuseByMode(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (auto reason = outOfRange("rounding mode", variant[kMode], 0, 6)) return reason;
  return refusePorts(request, in.size() > 1 ? 1 : 0, out.size() > 1);
}

std::optional<std::string> refuseByDirection(const Request& request) {
  return refusePorts(request, 2, /*flagged=*/true);
}

constexpr UnitRow kRows[] = {
    {"DMFPToFxP", evaluateConversion<choiceByMode>, decomposeConversion<choiceByMode>,
     refuseByMode},
    {"DMFPToFXPExpert", evaluateConversion<choiceByDirection>,
     decomposeConversion<choiceByDirection>, refuseByDirection},
};

}  // namespace

std::span<const UnitRow> floatToFixedUnits() { return kRows; }

}  // namespace functions
