#include "backend/functions/undecided_results.h"

#include <algorithm>

#include "backend/functions/float_reference.h"
#include "backend/functions/rounding_gap.h"

namespace functions {

namespace {

// Digits of an odd value with which neither a step nor a rounding behind it sees that it is no more
// than the exact result's place between two numbers.
constexpr unsigned kFurther = kUnknownGap + 4;
constexpr int kWideExponent = 60;  // of a floating format without subnormals and overflow

Signature withWideResults(const Signature& signature) {
  Signature wide = signature;
  for (kiln::Type& type : wide.out) {
    const kiln::FloatingPoint* format = type.as_floating_point();
    if (!format) continue;
    kiln::FloatingPoint widened = *format;
    widened.exp = kWideExponent;
    type = widened;
  }
  return wide;
}

// Of two neighbours the one that has the last digit: no rounding to fewer is one of it. Beside a
// zero or an infinity the one that is a number.
mpfr_srcptr oddOf(mpfr_srcptr a, mpfr_srcptr b) {
  const auto isOdd = [](mpfr_srcptr x) {
    return mpfr_regular_p(x) && static_cast<mpfr_prec_t>(mpfr_min_prec(x)) == mpfr_get_prec(x);
  };
  return isOdd(b) || !mpfr_regular_p(a) ? b : a;
}

void deliverFixed(NumValue& result, mpfr_srcptr value, const kiln::FixedPoint& format) {
  mpfr_ptr r = result.real.prepare(mpfr_get_prec(value));
  mpfr_mul_2si(r, value, format.fraction(), MPFR_RNDN);
  mpfr_round(r, r);
  mpfr_mul_2si(r, r, -format.fraction(), MPFR_RNDN);
}

}  // namespace

void evaluateUndecided(const UnitRow& unit, const Signature& signature, std::vector<NumValue>& low,
                       std::vector<NumValue>& high, const std::vector<NumValue>& inputs,
                       const std::vector<unsigned>& precisions,
                       const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  {
    const FullExponentRange range;
    const Signature wide = withWideResults(signature);
    std::vector<unsigned> more = precisions;
    for (std::size_t k = 0; k < more.size(); ++k)
      more[k] = std::max<unsigned>(more[k], signature.out[k].width()) + kFurther;
    const auto evaluate = [&](std::vector<NumValue>& results, mpfr_rnd_t direction) {
      unit.evaluate(wide, results, inputs, more, std::vector(more.size(), direction), subnormals);
    };
    evaluate(low, MPFR_RNDD), evaluate(high, MPFR_RNDU);

    thread_local Real odd, step, moved;
    for (std::size_t k = 0; k < low.size(); ++k) {
      if (low[k].type != NumType::kValue) continue;
      mpfr_srcptr below = low[k].real.get(), above = high[k].real.get();
      const bool isExact = mpfr_nan_p(below) || mpfr_equal_p(below, above);
      mpfr_srcptr nearest = isExact ? below : oddOf(below, above);
      mpfr_set(odd.prepare(mpfr_get_prec(nearest)), nearest, MPFR_RNDN);
      const kiln::FloatingPoint* format = signature.out[k].as_floating_point();
      mpfr_exp_t place = -kUnknownGap;
      if (!format)
        place -= signature.out[k].as_fixed_point()->fraction();
      else if (mpfr_regular_p(odd.get()))
        place += mpfr_get_exp(odd.get()) - (format->frac + 1);
      for (const auto& [results, sign] : {std::pair{&low, -1}, std::pair{&high, 1}}) {
        mpfr_ptr near = moved.prepare(mpfr_get_prec(odd.get()) + 2);
        mpfr_set(near, odd.get(), MPFR_RNDN);
        mpfr_set_si_2exp(step.prepare(2), sign, place, MPFR_RNDN);
        if (!isExact) mpfr_add(near, near, step.get(), MPFR_RNDN);
        NumValue& result = (*results)[k];
        if (!format)
          deliverFixed(result, near, *signature.out[k].as_fixed_point());
        else
          deliverOdd(result, near,
                     {.port = *format,
                      .precision = precisions[k],
                      .rounding = roundings[k],
                      .subnormals = subnormals});
      }
    }
  }
  fitToCallersRange(low, roundings), fitToCallersRange(high, roundings);
}

}  // namespace functions
