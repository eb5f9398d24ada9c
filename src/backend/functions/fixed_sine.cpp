#include "backend/functions/fixed_sine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

#include "backend/arithmetic/function_circuit.h"
#include "backend/functions/integer_values.h"
#include "backend/functions/rounding_gap.h"

namespace functions {

using arithmetic::PlannedFunction;
using arithmetic::PolynomialRequest;
using graph::Builder;
using graph::Signal;
using kiln::FixedPoint;
using util::MPZ;

namespace {

constexpr std::size_t kOutputs = 1;  // place in the variant
enum Outputs { kBoth, kSineOnly, kCosineOnly };

constexpr long kMostWidth = 1024, kMostFraction = 1024, kMostOutputFraction = 96;

bool isCosine(const Signature& signature, std::size_t output) {
  return output > 0 || signature.variant[kOutputs] == kCosineOnly;
}

void evaluateSine(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const FixedPoint& in = fixedPoint(signature.in[0]);
  thread_local MPZ integer;
  thread_local Real angle;
  readFixed(integer, inputs[0], in);
  mpfr_ptr a = angle.prepare(std::max<mpfr_prec_t>(2, in.width() + 1));
  mpfr_set_z_2exp(a, integer.get(), -in.fraction(), MPFR_RNDN);
  results.resize(signature.out.size());
  for (std::size_t k = 0; k < results.size(); ++k) {
    mpfr_ptr result = results[k].real.prepare(static_cast<mpfr_prec_t>(precisions[k]));
    (isCosine(signature, k) ? mpfr_cospi : mpfr_sinpi)(result, a, roundings[k]);
    if (mpfr_zero_p(result)) mpfr_set_zero(result, 1);
    results[k].type = NumType::kValue;
    results[k].raw = false;
  }
}

const Accuracy& accuracyOf(const Request& request, std::size_t output) {
  static const Accuracy faithful;
  return output < request.accuracy.size() ? request.accuracy[output] : faithful;
}

// Where nothing is known of the hardest results: a rounding is right but within 2^-20 of a place of
// where it changes.
constexpr int kMostSearchedBits = 16;
// Errors are to stay below the promise, not to reach it.
constexpr double kBelowOne = 1 - 0x1p-12;

// How near sin(pi X 2^-fraction), 0 < X < 2^bits, comes to odd multiples of 2^-(outFraction + 1):
// all are 2^-gap places of the result or more away. Nothing where there are too many to look at.
std::optional<int> gapOf(int bits, int fraction, int outFraction) {
  if (bits > kMostSearchedBits) return std::nullopt;
  static std::map<std::tuple<int, int, int>, int> found;
  const auto [place, isNew] = found.try_emplace({bits, fraction, outFraction}, 1);
  if (!isNew) return place->second;
  const FullExponentRange range;
  // No dyadic angle but those of 0 and 1 has a rational sine, so that some precision tells.
  const mpfr_prec_t precision = outFraction + 2 * bits + 64;
  Real x(bits + 1), sine(precision), nearest(precision);
  for (unsigned long i = 1; i < 1ul << bits; ++i) {
    mpfr_set_ui_2exp(x.get(), i, -fraction, MPFR_RNDN);
    mpfr_sinpi(sine.get(), x.get(), MPFR_RNDN);
    mpfr_mul_2si(sine.get(), sine.get(), outFraction, MPFR_RNDN);
    // The distance to the nearest odd half: of 1/2 more, to the nearest integer.
    mpfr_sub_d(sine.get(), sine.get(), 0.5, MPFR_RNDN);
    mpfr_rint(nearest.get(), sine.get(), MPFR_RNDN);
    mpfr_sub(nearest.get(), sine.get(), nearest.get(), MPFR_RNDN);
    LOAM_ASSERT(mpfr_regular_p(nearest.get()) && mpfr_get_exp(nearest.get()) > -bits - 48,
                "enough bits to tell a sine from a midpoint");
    place->second = std::max(place->second, 2 - static_cast<int>(mpfr_get_exp(nearest.get())));
  }
  return place->second;
}

// How the sine of y in [0, 1/2) half turns is made.
struct SinePlan {
  int argumentBits = 0;  // of y; 0: there are only 0 and 1/2
  int cut = 0;           // low bits of y that are not looked at; y is then known less exactly
  bool isCorrect = false, isKnown = false;
  int guardBits = 0;  // behind the result's last place, before it is rounded
  PolynomialRequest request;
  double angleError = 0;  // in units of the function's last place
  std::optional<PlannedFunction> function;
};

// A place of y this far below the last one of the function moves it by less than a 20th.
constexpr int kAngleGuard = 5;

SinePlan planOf(const Request& request, std::size_t output) {
  const Accuracy& accuracy = accuracyOf(request, output);
  const FixedPoint &in = fixedPoint(request.signature.in[0]),
                   &out = fixedPoint(request.signature.out[output]);
  SinePlan plan;
  const int fraction = in.fraction();
  // The angle of a cosine is a right one less a.
  const int mostBits = isCosine(request.signature, output) ? fraction : in.width();
  const int bits = plan.argumentBits = std::max(0, std::min(fraction - 1, mostBits));
  if (bits == 0) return plan;
  plan.isCorrect = accuracy.kind != Accuracy::kWithin || accuracy.ulps < 1;
  // A result of 2 or more would not fit.
  const double mostUlps = std::ldexp(1.0, std::max(0, out.fraction() - 2));
  double promise = kBelowOne * (plan.isCorrect ? 1 : std::min(accuracy.ulps, mostUlps));
  if (plan.isCorrect) {
    const auto gap = gapOf(bits, fraction, out.fraction());
    plan.isKnown = gap.has_value();
    plan.guardBits = gap ? *gap : kUnknownGap;
  }
  const int resultLsb = -out.fraction() - plan.guardBits;
  std::string angle = "x";
  plan.cut = std::max(0, fraction + resultLsb - kAngleGuard);
  if (plan.cut >= bits) plan.cut = 0;
  const int lsb = plan.cut - fraction;
  if (plan.cut > 0) {
    // y lies up to one of its places above what is left of it.
    angle = fmt::format("(x + 1 / 2^{})", 1 - lsb);
    plan.angleError = std::ldexp(3.1416, lsb - 1 - resultLsb);
  }
  plan.request = {.function = "sin(pi * " + angle + ")",
                  .argument = {bits - plan.cut, lsb},
                  .resultLsb = resultLsb,
                  .promise = promise - plan.angleError,
                  .prices = evaluationPrices(request.prices),
                  .mostDegree = 8};
  const auto keep = [&](const PolynomialRequest& candidate) {
    auto planned = arithmetic::planFunction(candidate);
    if (!planned || (plan.function && plan.function->price <= planned->price)) return false;
    plan.function = std::move(*planned);
    plan.request = candidate;
    return true;
  };
  keep(plan.request);
  // One table may hold the rounded results.
  if (plan.isCorrect && plan.isKnown && bits <= arithmetic::kMostCompetingBits) {
    PolynomialRequest rounded = plan.request;
    rounded.function = "sin(pi * x)";
    rounded.argument = {bits, -fraction};
    rounded.resultLsb = -out.fraction();
    rounded.promise = 0.5;
    if (keep(rounded)) plan.cut = plan.guardBits = 0, plan.angleError = 0;
  }
  return plan;
}

void stateBudget(const Request& request, const SinePlan& plan, const Accuracy& accuracy,
                 const arithmetic::ErrorBudget& ofFunction) {
  const bool isBesideRounding = plan.isKnown && plan.guardBits > 0;
  const double promise = isBesideRounding ? std::ldexp(1.0, -plan.guardBits)
                         : plan.isKnown   ? 0.5
                         : plan.isCorrect ? 0.5 + std::ldexp(1.0, -kUnknownGap)
                                          : accuracy.ulps;
  arithmetic::ErrorBudget budget(
      promise, isBesideRounding ? "error before a rounding that does not see it" : "error");
  for (const auto& term : ofFunction.terms())
    budget.add(term.name, term.numerator, term.log2Denominator + plan.guardBits);
  if (plan.angleError > 0) {
    constexpr int kTermBits = 40;
    MPZ numerator;
    mpz_set_d(numerator.get(), std::ceil(std::ldexp(plan.angleError, kTermBits)));
    budget.add("angle", numerator, kTermBits + plan.guardBits);
  }
  if (plan.isCorrect && !isBesideRounding && plan.guardBits > 0) budget.add("rounding", 1, 1);
  budget.assertKept(request.budgets);
  if (isBesideRounding) arithmetic::stateRounding(request.budgets, true);
}

// sin(pi a) for a modulo 2 in fixed point, `fraction` >= 1 bits behind the point.
Signal sineOf(Builder& b, Signal a, int fraction, const Request& request, const SinePlan& plan,
              const Accuracy& accuracy, const FixedPoint& out) {
  const int width = out.width();
  const Signal isOdd = b.topBit(a), mirrors = b.bitOf(a, fraction - 1);
  const Signal low = b.slice(a, 0, fraction - 1);
  const Signal isMultiple = fraction > 1 ? b.isZero(low) : b.bit(true);
  const Signal one = b.literal(MPZ::powerOfTwo(static_cast<unsigned long>(out.fraction())), width);
  Signal magnitude = b.zeros(width);
  if (plan.argumentBits > 0) {
    const int bits = plan.argumentBits - plan.cut;
    // The distance to the next integer; where its low bits do not count, one unit less.
    Signal y = b.bitXor(low, b.replicate(mirrors, low.width));
    if (plan.cut == 0) y = b.addCarry(y, b.zeros(y.width), mirrors);
    const auto sine =
        arithmetic::evaluateFunction(b, b.slice(y, plan.cut, bits), *plan.function, plan.request);
    stateBudget(request, plan, accuracy, sine.budget);
    const int wide = std::max(width + plan.guardBits, sine.result.bits.width);
    magnitude = sine.result.isSigned() ? b.signExtend(sine.result.bits, wide)
                                       : b.zeroExtend(sine.result.bits, wide);
    if (plan.guardBits > 0)
      magnitude =
          b.add(magnitude,
                b.literal(MPZ::powerOfTwo(static_cast<unsigned long>(plan.guardBits - 1)), wide));
    magnitude = b.slice(magnitude, plan.guardBits, width);
  }
  // 0 and 1 are exact.
  magnitude = b.select(isMultiple, b.bitAnd(one, b.replicate(mirrors, width)), magnitude);
  return b.addCarry(b.bitXor(magnitude, b.replicate(isOdd, width)), b.zeros(width), isOdd);
}

std::vector<Signal> decomposeSine(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  const auto scope = b.scope("sine");
  const Signature& signature = request.signature;
  const FixedPoint& in = fixedPoint(signature.in[0]);
  const int fraction = std::max(1, in.fraction());
  // a modulo 2
  Signal a = inputs[0];
  if (in.fraction() < 1) a = b.shiftedUp(a, 1 - in.fraction());
  a = in.sign() ? b.signExtend(a, fraction + 1) : b.zeroExtend(a, fraction + 1);
  std::vector<Signal> results;
  for (std::size_t k = 0; k < signature.out.size(); ++k) {
    const FixedPoint& out = fixedPoint(signature.out[k]);
    const SinePlan plan = planOf(request, k);
    Signal angle = a;
    if (isCosine(signature, k)) {
      // cos(pi a) = sin(pi (a + 1/2))
      const Signal half = b.bitOf(a, fraction - 1);
      angle = b.concat({b.bitXor(b.topBit(a), half), b.bitNot(half), b.slice(a, 0, fraction - 1)});
    }
    results.push_back(sineOf(b, angle, fraction, request, plan, accuracyOf(request, k), out));
  }
  return results;
}

std::optional<std::string> refuseSine(const Request& request) {
  const Signature& signature = request.signature;
  const std::size_t outputs = signature.variant[kOutputs] == kBoth ? 2 : 1;
  if (signature.in.size() != 1 || signature.out.size() != outputs)
    return fmt::format("{} inputs and {} outputs are not the 1 and {} of this unit",
                       signature.in.size(), signature.out.size(), outputs);
  for (const auto* side : {&signature.in, &signature.out})
    for (const kiln::Type& type : *side)
      if (!type.as_fixed_point()) return "a port is not a fixed-point port";
  const FixedPoint& in = fixedPoint(signature.in[0]);
  if (auto reason = inputWidthOutOfRange(signature, kMostWidth)) return reason;
  if (auto reason = outOfRange("fIn", in.fraction(), -kMostFraction, kMostFraction)) return reason;
  for (std::size_t k = 0; k < outputs; ++k) {
    const FixedPoint& out = fixedPoint(signature.out[k]);
    if (!out.sign() || out.width() != out.fraction() + 2)
      return "a result is not a signed fixed-point port of range -2 to 2";
    if (auto reason = outOfRange("fOut", out.fraction(), 0, kMostOutputFraction)) return reason;
    const SinePlan plan = planOf(request, k);
    if (plan.argumentBits > 0 && !plan.function)
      return fmt::format("no polynomials are known for a sine of {} bits",
                         out.fraction() + plan.guardBits);
  }
  return std::nullopt;
}

constexpr UnitRow kRows[] = {{"DMFxPSinCosPiX", evaluateSine, decomposeSine, refuseSine}};

}  // namespace

std::span<const UnitRow> fixedSineUnits() { return kRows; }

}  // namespace functions
