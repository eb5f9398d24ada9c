#include "backend/functions/float_const_mult.h"

#include <algorithm>
#include <cmath>

#include "backend/arithmetic/leading_zeros.h"
#include "backend/functions/constant_word.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using arithmetic::ConstantProduct;
using arithmetic::Dyadic;
using arithmetic::FloatFormat;
using arithmetic::ProductGoal;
using arithmetic::RoundingRule;
using arithmetic::signedWidth;
using arithmetic::Unpacked;
using arithmetic::Unrounded;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

void evaluateProduct(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, constant, product;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    mpfr_set_d(constant.prepare(53), constantWord(signature), MPFR_RNDN);
    mpfr_ptr odd = product.prepare(oddPrecision(precisions[0]));
    roundToOdd(odd, mpfr_mul(odd, x.get(), constant.get(), MPFR_RNDZ));
    deliverOdd(results[0], odd,
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

// A product in [1, 4) (below 1 for subnormal factors that stay as they are), the bit of weight 2 on
// top; it lies within what `rounding` needs.
struct Significands {
  Signal bits;
  RoundingRule rounding;
  bool isExact;  // as far as that rounding needs
};

// The significand times the constant's, which lies in [1, 2).
Significands multiply(Builder& b, const Request& request, std::span<const Signal> inputs,
                      const Unpacked& x, const MPZ& mantissa, const FloatFormat& out) {
  // In units of the last place of a product below 2. The unit above 2 is twice as large, so that an
  // integer that misses the product by less than one unit may lose its last bit there.
  const long scale =
      out.fractionBits - x.format.fractionBits - (static_cast<long>(mantissa.bitLength()) - 1);
  const Dyadic constant = arithmetic::dyadic(mantissa, scale);
  const int width = out.fractionBits + 2;
  arithmetic::ConstantProductOptions options{.lutInputs = request.prices.lutInputs};
  const double ulps = ulpsOf(request, 0);
  if (ulps >= 1) {
    // Never below the exact product's integer part: a number stays in its binade. Without gradual
    // underflow a number must not be raised out of what is a zero, either.
    const int above = out.gradual ? static_cast<int>(std::min(ulps, 64.0)) : 1;
    options.goal = {ProductGoal::kWithin, 1, above};
    const auto product = multiplyByConstant(b, x.significand, false, constant, options);
    if (product.high < MPZ::powerOfTwo(static_cast<unsigned long>(width)))
      return {
          b.zeroExtend(product.bits, width), {.mode = RoundMode::kTowardZero, .port = {}}, false};
  }
  options.goal = {ProductGoal::kWhole};
  const auto product = multiplyByConstant(b, x.significand, false, constant, options);
  return {b.zeroExtend(product.bits, width - product.lsb), roundingOf(request, false, inputs),
          true};
}

// a * k for finite k other than 0.
Unrounded finiteProduct(Builder& b, const Request& request, std::span<const Signal> inputs,
                        Unpacked x, double k, RoundingRule& rounding) {
  const FloatFormat out = outputFormat(request, 0);
  const FloatFormat& in = x.format;
  const Dyadic constant = exactConstant(std::fabs(k));
  const long weight =
      constant.exponent + static_cast<long>(constant.mantissa.bitLength()) - 1;  // of its top bit
  const long highest = (1L << in.exponentBits) - 1;
  const long lowest = in.minExponent() - (in.gradual ? in.fractionBits : 0);
  // Beyond these offsets nothing changes: every number overflows, or lies below a quarter of the
  // smallest one.
  const long offset = std::clamp(weight + out.bias() - in.bias(),
                                 out.minExponent() - out.fractionBits - 4 - highest,
                                 out.maxExponent() + 1 - lowest);
  const int width = std::max({signedWidth(lowest + offset - 1, highest + offset + 2),
                              signedWidth(lowest, highest),
                              signedWidth(std::min(0L, offset), std::max(0L, offset))});

  x.exponent = b.zeroExtend(x.exponent, width);
  // A subnormal factor whose product stays at or below the lowest binade needs no leading 1.
  const bool staysBelow = out.gradual && in.minExponent() + offset <= out.minExponent();
  if (in.gradual && !staysBelow) {
    const auto significand = arithmetic::normalise(b, x.significand);
    x.significand = significand.bits;
    x.exponent = b.subtract(x.exponent, b.zeroExtend(significand.count, width));
  }
  const Significands product = multiply(b, request, inputs, x, constant.mantissa, out);
  rounding = product.rounding;
  const Signal isTwoOrMore = b.topBit(product.bits);
  const Signal below = b.shiftedUp(b.slice(product.bits, 0, product.bits.width - 1), 1);
  Unrounded result{.sign = b.bitXor(x.sign, b.bit(std::signbit(k))),
                   .exponent = b.addCarry(x.exponent, b.literal(offset, width), isTwoOrMore),
                   .significand = b.select(isTwoOrMore, product.bits, below),
                   .sticky = b.bit(false),
                   .isZero = x.isZero,
                   .isInf = x.isInf,
                   .isNan = x.isNan};
  // One binade for the product, one for the rounding.
  result.canOverflow = in.maxExponent() + offset + 2 > out.maxExponent();
  const long least = staysBelow ? in.minExponent() : lowest;
  if (out.gradual && least + offset < out.minExponent())
    result = denormalise(b, result, out, /*needsSticky=*/product.isExact);
  return result;
}

// a * k for a zero, an infinity or a NaN: no number comes out.
Unrounded specialProduct(Builder& b, const Request& request, const Unpacked& x, double k) {
  const FloatFormat out = outputFormat(request, 0);
  const bool isZero = k == 0;
  Signal isNan = b.bitOr(x.isNan, isZero ? x.isInf : x.isZero);
  if (std::isnan(k)) isNan = b.bit(true);
  return {.sign = b.bitXor(x.sign, b.bit(std::signbit(k))),
          .exponent = b.literal(out.minExponent(), out.exponentBits + 2),
          .significand = b.literal(MPZ::powerOfTwo(static_cast<unsigned long>(out.fractionBits)),
                                   out.fractionBits + 1),
          .sticky = b.bit(false),
          .isZero = b.bit(isZero),
          .isInf = b.bit(!isZero),
          .isNan = isNan,
          .canOverflow = false};
}

std::vector<Signal> decomposeProduct(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const double k = constantWord(request.signature);
  RoundingRule rounding;
  const Unrounded product = std::isfinite(k) && k != 0
                                ? finiteProduct(b, request, inputs, x, k, rounding)
                                : specialProduct(b, request, x, k);
  return {
      arithmetic::roundAndPack(b, product, outputFormat(request, 0), rounding, request.quietNaN)};
}

std::optional<std::string> refuseProduct(const Request& request) {
  if (request.signature.variant.texts.empty()) return "the constant is missing";
  return refusePorts(request, 1, 0, 1);
}

constexpr UnitRow kRows[] = {{"CFPConstMult", evaluateProduct, decomposeProduct, refuseProduct}};

}  // namespace

std::span<const UnitRow> floatConstMultUnits() { return kRows; }

}  // namespace functions
