#include "backend/arithmetic/constant_multiplier.h"

#include <algorithm>

#include "backend/arithmetic/constant_plan.h"
#include "backend/arithmetic/error_budget.h"
#include "util/failure.h"

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;

namespace {

MPZ magnitudeOf(const MPZ& value) { return value.sign() < 0 ? -value : value; }

MPZ quotientDown(const MPZ& value, const MPZ& divisor) {
  MPZ result;
  mpz_fdiv_q(result.get(), value.get(), divisor.get());
  return result;
}

bool isExactKind(const ProductTask& task) { return task.goal.kind != ProductGoal::kWithin; }

// How far the mantissa may lie from its own value so that no result of an exact kind changes.
MPZ exactTolerance(const ProductTask& task) {
  if (task.fraction == 0) return 0;
  // Halves decide for all but a truncation.
  const int scale = task.goal.kind == ProductGoal::kTowardZero ? 0 : 1;
  if (task.fraction <= scale) return 0;
  const MPZ most = task.x.magnitude();
  const MPZ distance = separation({task.mantissa, scale - task.fraction}, most);
  return distance.isZero() ? MPZ(0) : quotientDown(distance - MPZ(1), most);
}

}  // namespace

Dyadic dyadic(MPZ mantissa, long exponent) {
  if (mantissa.isZero()) return {};
  const unsigned long zeros = mpz_scan1(mantissa.get(), 0);
  mantissa >>= zeros;
  return {std::move(mantissa), exponent + static_cast<long>(zeros)};
}

MPZ Interval::magnitude() const { return std::max(magnitudeOf(low), magnitudeOf(high)); }

int Interval::width() const {
  if (low.sign() >= 0) return static_cast<int>(std::max<std::size_t>(high.bitLength(), 1));
  const MPZ below = -low - MPZ(1);
  const std::size_t positive = high.sign() > 0 ? high.bitLength() : 0;
  return 1 + static_cast<int>(std::max(below.bitLength(), positive));
}

Interval Interval::times(const MPZ& factor) const {
  const MPZ a = low * factor, b = high * factor;
  return {std::min(a, b), std::max(a, b)};
}

MPZ separation(const Dyadic& constant, const MPZ& most) {
  LOAM_ASSERT(constant.exponent < 0, "a constant with a fraction");
  const MPZ denominator = MPZ::powerOfTwo(static_cast<unsigned long>(-constant.exponent));
  // Convergents p/q of the fraction of K by Euclid's algorithm; what remains of the dividend is
  // |q K - p| times the denominator.
  MPZ dividend = denominator;
  MPZ rest = constant.mantissa.lowBits(static_cast<unsigned long>(-constant.exponent));
  MPZ before = 0, q = 1;
  while (!rest.isZero()) {
    const MPZ digit = quotientDown(dividend, rest);
    const MPZ next = digit * q + before;
    if (next > most) break;
    MPZ remainder = dividend - digit * rest;
    dividend = rest;
    rest = std::move(remainder);
    before = q;
    q = next;
  }
  // For a fraction above 1/2 the convergent 0/1 is followed by 1/1, which is closer.
  return rest;
}

std::optional<Correction> correctionFor(const ProductTask& task, const Interval& error,
                                        int dropped) {
  const auto places = static_cast<unsigned long>(dropped);
  const MPZ grid = MPZ::powerOfTwo(places);
  const auto fraction = static_cast<unsigned long>(task.fraction);
  // Cutting the fraction off loses up to 2^fraction - grid, so that error.low + value must exceed
  // 2^fraction - grid - below * 2^fraction.
  const MPZ lowest = (MPZ(1 - task.goal.below) << fraction) - grid - error.low + MPZ(1);
  Correction correction;
  if (lowest.sign() > 0) correction.value = ((lowest + grid - MPZ(1)) >> places) << places;
  const MPZ high = error.high + correction.value;
  if (high >= MPZ(task.goal.above) << fraction) return std::nullopt;

  ErrorBudget below(task.goal.below), above(task.goal.above);
  const MPZ down = -(error.low + correction.value);
  if (down.sign() > 0) below.add("constant and terms", down, task.fraction);
  below.add("integer part", (MPZ(1) << fraction) - grid, task.fraction);
  below.assertKept();
  if (high.sign() > 0) above.add("constant, terms and correction", high, task.fraction);
  above.assertKept();

  const Interval sum = task.x.times(task.mantissa) + error;
  const unsigned long rest = fraction - places;
  correction.result = {((sum.low + correction.value + grid - MPZ(1)) >> places) >> rest,
                       (sum.high + correction.value) >> fraction};
  return correction;
}

MPZ roundingConstant(const ProductTask& task, int fraction) {
  if (fraction == 0 || task.goal.kind == ProductGoal::kWhole) return 0;
  // Ties and truncations go by the sign of the product: see addRoundingBits().
  return task.goal.kind == ProductGoal::kNearestAway
             ? MPZ::powerOfTwo(static_cast<unsigned long>(fraction - 1)) - MPZ(1)
             : MPZ(-1);
}

void addRoundingBits(Builder& b, const ProductTask& task, Signal x, int fraction,
                     std::vector<HeapTerm>& terms) {
  if (fraction == 0 || task.goal.kind == ProductGoal::kWhole) return;
  // The product 0 may count as either.
  const bool negativeConstant = task.mantissa.sign() < 0;
  Signal negative = task.isSigned ? b.topBit(x) : b.bit(false);
  if (negativeConstant) negative = b.bitNot(negative);
  // Nearest: half, less one unit for a negative product. Toward zero: 2^fraction less one unit for
  // a negative one, else nothing.
  terms.push_back({b.bitNot(negative), 0});
  if (task.goal.kind == ProductGoal::kTowardZero) terms.push_back({negative, fraction});
}

MPZ resultFor(const ProductTask& task, const MPZ& n, const MPZ& mantissa, int fraction) {
  const MPZ product = n * mantissa;
  const auto places = static_cast<unsigned long>(fraction);
  MPZ result = magnitudeOf(product);
  switch (task.goal.kind) {
    case ProductGoal::kWhole:
      return product;
    case ProductGoal::kWithin:
    case ProductGoal::kNearestAway:
      if (fraction > 0) result += MPZ::powerOfTwo(places - 1);
      break;
    case ProductGoal::kTowardZero:
      break;
  }
  result >>= places;
  return product.sign() < 0 ? -result : result;
}

Interval exactResult(const ProductTask& task, const MPZ& mantissa, int fraction) {
  const MPZ a = resultFor(task, task.x.low, mantissa, fraction);
  const MPZ b = resultFor(task, task.x.high, mantissa, fraction);
  return {std::min(a, b), std::max(a, b)};
}

MPZ shortest(const MPZ& value, const MPZ& tolerance) {
  if (tolerance.isZero() || value.isZero()) return value;
  const MPZ low = value - tolerance, high = value + tolerance;
  for (auto places = static_cast<unsigned long>(value.bitLength());; --places) {
    const MPZ closest =
        places == 0 ? value : ((value + MPZ::powerOfTwo(places - 1)) >> places) << places;
    if (low <= closest && closest <= high && !closest.isZero()) return closest;
  }
}

int sumWidth(const ProductTask& task, int fraction, int dropped, const Interval& result) {
  if (task.goal.kind == ProductGoal::kWhole) return result.width();
  const int integer = task.modulo ? std::min(*task.modulo, result.width()) : result.width();
  return integer + fraction - dropped;
}

ConstantProduct finishedProduct(Builder& b, const ProductTask& task,
                                std::span<const HeapTerm> terms, int fraction, int dropped,
                                const Interval& result) {
  const int width = sumWidth(task, fraction, dropped, result);
  const Signal sum = b.heap(terms, width);
  if (task.goal.kind == ProductGoal::kWhole) return {sum, -fraction, result.low, result.high};
  const int cut = fraction - dropped;
  return {b.slice(sum, cut, width - cut), 0, result.low, result.high};
}

ConstantProduct multiplyByConstant(Builder& b, Signal x, bool isSigned, const Dyadic& constant,
                                   const ConstantProductOptions& options) {
  const auto scope = b.scope("constant_product");
  const auto places = static_cast<unsigned long>(isSigned ? x.width - 1 : x.width);
  ProductTask task{.x = {isSigned ? -MPZ::powerOfTwo(places) : MPZ(0), MPZ::allOnes(places)},
                   .isSigned = isSigned,
                   .xWidth = x.width,
                   .goal = options.goal,
                   .lutInputs = options.lutInputs,
                   .modulo = options.width};
  const ConstantProduct nothing{b.zeros(1), 0, 0, 0};
  const MPZ whole = task.x.magnitude() * constant.mantissa;
  if (whole.isZero()) return nothing;
  if (options.width && constant.exponent >= *options.width) return nothing;
  // Below 1/2 every kind that gives integers gives 0.
  if (options.goal.kind != ProductGoal::kWhole &&
      static_cast<long>(whole.bitLength()) + constant.exponent < 0)
    return nothing;

  task.fraction = static_cast<int>(std::max(0L, -constant.exponent));
  task.mantissa = constant.mantissa << static_cast<unsigned long>(std::max(0L, constant.exponent));
  if (isExactKind(task)) task.tolerance = exactTolerance(task);

  const bool asked = options.architecture != ConstantArchitecture::kAuto;
  if (!asked && x.width <= options.lutInputs && options.goal.kind != ProductGoal::kWhole)
    return buildTables(b, task, planTables(task), x);
  if (options.architecture == ConstantArchitecture::kTables)
    return buildTables(b, task, planTables(task), x);
  const AdderPlan adders = planAdders(task);
  if (options.architecture == ConstantArchitecture::kAuto)
    if (const TablePlan tables = planTables(task); tables.cost < adders.cost)
      return buildTables(b, task, tables, x);
  return buildAdders(b, task, adders, x);
}

}  // namespace arithmetic
