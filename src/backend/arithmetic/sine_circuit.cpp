#include "backend/arithmetic/sine_circuit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

namespace {

constexpr double kSmallAngle = 5.17;  // above pi^3 / 6
constexpr double kHalfPi = 1.5708;    // above pi / 2, the greatest slope of P by m's fraction
constexpr int kMostZeroBits = 6;
constexpr int kMostDegree = 8, kMostRowBits = 13;
// Wider results than these many bits a degree need no higher one.
constexpr int kLeastBitsOfDegree = 8;
// Terms of a budget are rounded up to multiples of 2^-40.
constexpr int kTermBits = 40;

// P by zeros + m's fraction f: 2^n sin(pi 2^-n (1 + f) / 2) in unit n, and 1 in unit 0. Where
// m is not exact it is the function of the middle of what f may be.
std::string sineText(int zeroBits, const SineRequest& r) {
  const long units = 1L << zeroBits;
  const std::string isAngle = fmt::format("floor((floor(x) + {}) / {})", units - 1, units);
  const std::string cut = r.angleError > 0 ? fmt::format(" + 1 / 2^{}", r.angleBits + 1) : "";
  return fmt::format("2^floor(x) * sin(pi * (1 + {} * (x - floor(x){})) / 2^(floor(x) + 1))",
                     isAngle, cut);
}

}  // namespace

util::Result<PlannedSine> planSine(const SineRequest& r) {
  util::Result<PlannedSine> best = util::Failure{"no room for the error of a sine"};
  for (int zeroBits = 1; zeroBits <= kMostZeroBits; ++zeroBits) {
    PlannedSine planned;
    planned.zeroBits = zeroBits;
    const int most = (1 << zeroBits) - 1;
    planned.smallAngles = std::ldexp(kSmallAngle, -2 * most - r.resultLsb);
    planned.angles = std::ldexp(kHalfPi * r.angleError, -r.angleBits - r.resultLsb);
    const double left =
        r.promise - planned.smallAngles - planned.angles - std::ldexp(1.0, 2 - kTermBits);
    if (left < 0.5 + 0x1p-4) continue;
    planned.request = {
        .function = sineText(zeroBits, r),
        .argument = {zeroBits + r.angleBits, -r.angleBits},
        .resultLsb = r.resultLsb,
        .promise = left,
        .prices = r.prices,
        .mostDegree = std::clamp(-r.resultLsb / kLeastBitsOfDegree + 1, 2, kMostDegree),
        .mostRowBits = kMostRowBits};
    auto plan = planFunction(planned.request);
    if (!plan) {
      if (!best) best = plan.failure();
      continue;
    }
    planned.plan = std::move(*plan);
    if (!best || planned.plan.price < best->plan.price) best = std::move(planned);
    // One more bit doubles the tables; it pays at most where the room was scarce.
    if (planned.smallAngles < 0.25) break;
  }
  return best;
}

EvaluatedFunction evaluateSine(Builder& b, Signal zeros, Signal significand,
                               const PlannedSine& planned, const SineRequest& r) {
  const auto scope = b.scope("sine");
  LOAM_ASSERT(significand.width == r.angleBits + 1, "the significand of an angle");
  const int bits = planned.zeroBits;
  if (zeros.width < bits) zeros = b.zeroExtend(zeros, bits);
  Signal unit = b.slice(zeros, 0, bits);
  if (zeros.width > bits) {
    const Signal isMore = b.reduceOr(b.slice(zeros, bits, zeros.width - bits));
    unit = b.bitOr(unit, b.replicate(isMore, bits));
  }
  const Signal x = b.concat({unit, b.slice(significand, 0, r.angleBits)});
  EvaluatedFunction sine = evaluateFunction(b, x, planned.plan, planned.request);

  ErrorBudget budget(r.promise);
  for (const ErrorBudget::Term& term : sine.budget.terms())
    budget.add(term.name, term.numerator, term.log2Denominator);
  const auto add = [&](const char* name, double units) {
    MPZ numerator;
    mpz_set_d(numerator.get(), std::ceil(std::ldexp(units, kTermBits)));
    if (!numerator.isZero()) budget.add(name, numerator, kTermBits);
  };
  add("small angles", planned.smallAngles);
  add("angle", planned.angles);
  budget.assertKept();

  // P + error < 4
  const int width = 2 - r.resultLsb;
  FixedSignal& p = sine.result;
  LOAM_ASSERT(!p.isSigned() && p.high.bitLength() <= static_cast<std::size_t>(width),
              "a sine below 4");
  p.bits = b.zeroExtend(p.bits, width);
  return {p, std::move(budget)};
}

}  // namespace arithmetic
