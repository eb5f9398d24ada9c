#include "backend/functions/fixed_const_mult.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/functions/constant_word.h"
#include "backend/functions/integer_values.h"

namespace functions {

using arithmetic::ConstantArchitecture;
using arithmetic::ConstantProduct;
using arithmetic::Dyadic;
using arithmetic::ProductGoal;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

enum Number { kCorrect, kConstantBits, kArchitecture, kCropped };

// Bits of a product that vectors show exactly.
constexpr long kMostProductBits = 200;
constexpr long kMostWidth = 4096;

bool isCropped(const Signature& signature) { return signature.variant[kCropped] != 0; }

Dyadic constantOf(const Signature& signature) {
  return exactConstant(constantWord(signature), static_cast<int>(signature.variant[kConstantBits]));
}

struct Limits {
  MPZ low, high;
};
Limits limitsOf(const kiln::FixedPoint& format) {
  const auto width = static_cast<unsigned long>(format.width());
  if (!format.sign()) return {0, MPZ::allOnes(width)};
  return {-MPZ::powerOfTwo(width - 1), MPZ::allOnes(width - 1)};
}

// n * 2^places, rounded to an integer by one of GMP's divisions.
using Division = void (*)(mpz_ptr, mpz_srcptr, mp_bitcnt_t);
MPZ scaled(const MPZ& n, long places, Division division) {
  if (places >= 0) return n << static_cast<unsigned long>(places);
  MPZ result;
  division(result.get(), n.get(), static_cast<mp_bitcnt_t>(-places));
  return result;
}

void evaluateProduct(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const kiln::FixedPoint &in = fixedPoint(signature.in[0]), &out = fixedPoint(signature.out[0]);
  const Dyadic constant = constantOf(signature);
  MPZ product;
  readInteger(product, inputs[0], in);
  product *= constant.mantissa;
  results.resize(1);
  const auto deliver = [&](const MPZ& n) {
    writeInteger(results[0], n, out, precisions[0], roundings[0]);
  };
  // The product in units of the result's last place is `product` * 2^places.
  const long places = constant.exponent - in.fraction() + out.fraction();
  if (isCropped(signature)) {
    MPZ whole = scaled(product, places, mpz_tdiv_q_2exp);
    wrapInto(whole, out);
    return deliver(whole);
  }
  const Limits limits = limitsOf(out);
  if (scaled(product, places, mpz_cdiv_q_2exp) > limits.high) return deliver(limits.high);
  if (scaled(product, places, mpz_fdiv_q_2exp) < limits.low) return deliver(limits.low);
  mpfr_set_z_2exp(results[0].real.prepare(static_cast<mpfr_prec_t>(precisions[0])), product.get(),
                  places - out.fraction(), roundings[0]);
  results[0].type = NumType::kValue;
  results[0].raw = false;
}

ProductGoal goalOf(const Request& request) {
  if (isCropped(request.signature)) return {ProductGoal::kTowardZero};
  const Accuracy accuracy = request.accuracy.empty() ? Accuracy{} : request.accuracy[0];
  if (accuracy.kind != Accuracy::kWithin || accuracy.ulps < 1) return {ProductGoal::kNearestAway};
  // What is accepted beside the neighbours of a number near zero lies on one side of it only: below
  // a positive number by one step, above a negative one by none.
  const int ulps = static_cast<int>(std::min(accuracy.ulps, 64.0));
  const bool isSigned = fixedPoint(request.signature.out[0]).sign();
  if (isSigned) return {ProductGoal::kWithin, std::min(ulps, 2), 1};
  return {ProductGoal::kWithin, 1, ulps};
}

// The number in [low, high] of the format that is closest to the product.
Signal saturated(Builder& b, const ConstantProduct& product, const kiln::FixedPoint& format) {
  const Limits limits = limitsOf(format);
  const int width = format.width();
  const bool isNegative = product.low.sign() < 0;
  const int wide = std::max(product.bits.width, width) + 1;
  const Signal bits =
      isNegative ? b.signExtend(product.bits, wide) : b.zeroExtend(product.bits, wide);
  Signal result = b.slice(bits, 0, width);
  const Signal sign = b.topBit(bits);
  // The bits above those of a number in range are copies of its sign.
  const int inside = format.sign() ? width - 1 : width;
  const Signal above = b.slice(bits, inside, wide - inside);
  if (product.high > limits.high) {
    const Signal tooHigh = b.bitAnd(b.bitNot(sign), b.reduceOr(above));
    result = b.select(tooHigh, b.literal(limits.high, width), result);
  }
  if (product.low < limits.low) {
    const Signal tooLow = b.bitAnd(sign, b.bitNot(b.reduceAnd(above)));
    result = b.select(format.sign() ? tooLow : sign, b.literal(limits.low, width), result);
  }
  return result;
}

std::vector<Signal> decomposeProduct(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  const kiln::FixedPoint &in = fixedPoint(signature.in[0]), &out = fixedPoint(signature.out[0]);
  Dyadic constant = constantOf(signature);
  constant.exponent += out.fraction() - in.fraction();
  arithmetic::ConstantProductOptions options{.goal = goalOf(request),
                                             .lutInputs = request.prices.lutInputs};
  if (signature.variant[kArchitecture] == 1) options.architecture = ConstantArchitecture::kTables;
  if (signature.variant[kArchitecture] == 2)
    options.architecture = ConstantArchitecture::kShiftAndAdd;
  if (isCropped(signature)) {
    options.width = out.width();
    const auto product = multiplyByConstant(b, inputs[0], in.sign(), constant, options);
    return {product.low.sign() < 0 ? b.signExtend(product.bits, out.width())
                                   : b.zeroExtend(product.bits, out.width())};
  }
  return {saturated(b, multiplyByConstant(b, inputs[0], in.sign(), constant, options), out)};
}

std::optional<std::string> refuseProduct(const Request& request) {
  const Signature& signature = request.signature;
  if (signature.in.size() != 1 || signature.out.size() != 1)
    return fmt::format("{} inputs and {} outputs are not the 1 and 1 of this unit",
                       signature.in.size(), signature.out.size());
  if (!signature.in[0].as_fixed_point() || !signature.out[0].as_fixed_point())
    return "a port is not a fixed-point port";
  const kiln::FixedPoint &in = fixedPoint(signature.in[0]), &out = fixedPoint(signature.out[0]);
  if (signature.variant.texts.empty()) return "the constant is missing";
  if (!std::isfinite(constantWord(signature)))
    return fmt::format("constant {} is not finite", signature.variant.texts[0]);
  if (isCropped(signature)) {
    if (in.fraction() != 0 || out.fraction() != 0)
      return fmt::format("f {} is not 0", in.fraction() != 0 ? in.fraction() : out.fraction());
  }
  const Dyadic constant = constantOf(signature);
  const long most = isCropped(signature)
                        ? kMostWidth
                        : kMostProductBits - static_cast<long>(constant.mantissa.bitLength());
  if (auto reason = outOfRange("width", in.width(), 1, most)) return reason;
  if (auto reason = outOfRange("output width", out.width(), 1, kMostWidth)) return reason;
  // A result that no bit of the product reaches, or that saturates for every other number.
  const long shift = constant.exponent + out.fraction() - in.fraction();
  if (!isCropped(signature) && !constant.mantissa.isZero())
    return outOfRange("output fraction", out.fraction(), out.fraction() - shift - kMostWidth,
                      out.fraction() - shift + kMostWidth);
  return std::nullopt;
}

constexpr UnitRow kRows[] = {{"CFxPConstMult", evaluateProduct, decomposeProduct, refuseProduct}};

}  // namespace

std::span<const UnitRow> fixedConstMultUnits() { return kRows; }

}  // namespace functions
