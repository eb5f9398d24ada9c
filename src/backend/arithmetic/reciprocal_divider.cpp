#include "backend/arithmetic/reciprocal_divider.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "backend/arithmetic/truncated_product.h"
#include "util/failure.h"

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;

namespace {

MPZ powerOf(int exponent) { return MPZ::powerOfTwo(static_cast<unsigned long>(exponent)); }
MPZ shifted(const MPZ& x, int places) { return x << static_cast<unsigned long>(places); }

// The digits of 2^-n, decimal.
std::string decimalOf(int n) {
  MPZ digits = 1;
  for (int i = 0; i < n; ++i) digits *= MPZ(5);
  const std::string text = digits.toText(10);
  return "0." + std::string(static_cast<std::size_t>(n) - text.size(), '0') + text;
}

Signal topBits(Builder& b, Signal x, int count) { return b.slice(x, x.width - count, count); }

// The sum of a product's terms and others, from `low` up, as `width` bits.
Signal sumOf(Builder& b, std::vector<HeapTerm> terms, std::initializer_list<HeapTerm> others,
             int low, int width) {
  terms.insert(terms.end(), others.begin(), others.end());
  return b.slice(b.heap(terms, low + width), low, width);
}

// The last places of a reciprocal: its error, twice, takes half of the room at most, times x < 2.
int reciprocalLsb(const QuotientGoal& goal) { return -(goal.fractionBits + 4 - goal.room); }

const char* nameOf(const QuotientGoal& goal) { return goal.notAbove ? "candidate" : "above"; }

}  // namespace

std::optional<ReciprocalPlan> planReciprocal(int width, const QuotientGoal& goal,
                                             const EvaluationPrices& prices, double mostPrice) {
  const int lsb = reciprocalLsb(goal);
  const ProductPlan product =
      planProduct({.x = width, .y = 1 - lsb, .xSigned = false, .ySigned = false}, prices.product);
  const double productPrice = priceOf(product, prices.product);
  // The reciprocal takes a product of its own at least, of half the width.
  const ProductPlan least = planProduct(
      {.x = width / 2, .y = width / 2, .xSigned = false, .ySigned = false}, prices.product);
  if (width < 3 || productPrice + priceOf(least, prices.product) >= mostPrice) return std::nullopt;
  const PolynomialRequest request{.function = "1/(1+x)",
                                  .argument = {width - 1, 1 - width},
                                  .resultLsb = lsb,
                                  .promise = 1,
                                  .prices = prices};
  const auto function = planFunction(request);
  if (!function) return std::nullopt;
  const double price = productPrice + function->price;
  if (price >= mostPrice) return std::nullopt;
  return ReciprocalPlan{request, *function, price};
}

// |x r - x / y| < 2 units of r's last place.
NearQuotient quotientByReciprocal(Builder& b, Signal x, Signal y, const ReciprocalPlan& plan,
                                  const QuotientGoal& goal) {
  const auto scope = b.scope("reciprocal");
  const int fraction = x.width - 1, lsb = plan.request.resultLsb;
  const auto reciprocal = evaluateFunction(b, b.slice(y, 0, fraction), plan.function, plan.request);
  const FixedSignal& r = reciprocal.result;
  LOAM_ASSERT(r.lsb == lsb && !r.isSigned(), "a positive reciprocal with the places asked for");

  // Units of the product's last place from here on.
  const int scale = fraction - lsb, unit = scale - goal.fractionBits;
  const MPZ error = powerOf(fraction + 1), room = shifted(MPZ(goal.room), unit);
  const int width = unit + goal.fractionBits + 1;
  const TruncatedProduct product = truncatedProduct(
      b, {x}, {r.bits}, width, room - error - error - MPZ(1), plan.request.prices.product);
  const MPZ bias = goal.notAbove ? -(error + product.excess) : error;

  NearQuotient result{
      sumOf(b, product.terms, {{b.literal(bias, width), 0}}, unit, goal.fractionBits + 1),
      ErrorBudget(goal.room, nameOf(goal))};
  result.budget.add("reciprocal", error, unit);
  result.budget.add("kept to one side", error, unit);
  result.budget.add("partial products left out", product.excess, unit);
  result.budget.assertKept();
  return result;
}

namespace {

// Bounds of errors are numerators of 2^kScale.
constexpr int kScale = 512;
MPZ part(int exponent) { return powerOf(kScale - exponent); }  // 2^-exponent
MPZ times(const MPZ& x, const MPZ& y) {                        // rounded up, of magnitudes
  return ((x * y) >> kScale) + MPZ(1);
}

// The places of the steps for quotients whose middle step has `half` bits.
struct NewtonPlan {
  int half;   // bits of the dividend, the reciprocal and the quotient before the last step
  int seed;   // of the seed
  int finer;  // of the first step's products
  int last;   // of the remainder that the last step reads
};

// What each step may be off, every product leaving out as much as its cut.
struct NewtonErrors {
  MPZ seed, error, remainder, reciprocal, quotient;
};

// With r0 for 1 / y and e = 1 - y r0, 1 / y - r0 (1 + e) = e^2 / y. y in [1, 2) and both
// reciprocals at most 9/8.
//   seed        |r0 - 1/y| <= 2^-seed for its places + 2^-(seed + 2) for those of y it reads
//   error       |e| <= 2 seed, and what is computed of it
//   reciprocal  e^2 / y <= 2 seed^2, and what y, e, and the step itself lose
//   remainder   y times what the first quotient is off: 2 reciprocal, and the cuts of x, r1, q0
//   quotient    remainder times what r1 is off, and the cut of the remainder
NewtonErrors errorsOf(const NewtonPlan& plan) {
  NewtonErrors e;
  e.seed = part(plan.seed) + part(plan.seed + 2);
  const MPZ lost = part(plan.finer) * MPZ(4);  // of e: y times r0, the product, the cut
  e.error = e.seed + e.seed + lost;
  e.reciprocal = times(e.seed, e.seed) * MPZ(2) + lost + (lost >> 3) + part(plan.finer) * MPZ(2);
  const MPZ cut = part(plan.half);
  e.remainder = (e.reciprocal * MPZ(2) + cut * MPZ(2) + cut + (cut >> 3) + cut * MPZ(2)) * MPZ(2) +
                part(plan.last) * MPZ(2);
  const MPZ dropped = part(plan.last) * MPZ(2);
  e.quotient = times(e.remainder, e.reciprocal + cut) + dropped + (dropped >> 3);
  return e;
}

NewtonPlan newtonPlan(const QuotientGoal& goal) {
  for (int half = goal.fractionBits / 2;; ++half) {
    const NewtonPlan plan{half, (half + 1) / 2, half + 3, goal.fractionBits + 4};
    // To one side, beside a product that leaves out an eighth of a place.
    const MPZ room = part(goal.fractionBits) * MPZ(goal.room);
    if (errorsOf(plan).quotient * MPZ(2) + part(goal.fractionBits + 3) * MPZ(2) <= room)
      return plan;
  }
}

// Places above 2^-result for a two's-complement number of magnitude up to `most`.
int signPlace(const MPZ& most) {
  int place = 0;
  while (most + MPZ(1) < part(place + 1)) ++place;
  return place;
}

}  // namespace

NearQuotient quotientByNewton(Builder& b, Signal x, Signal y, const QuotientGoal& goal,
                              const EvaluationPrices& prices) {
  const auto scope = b.scope("newton");
  const NewtonPlan plan = newtonPlan(goal);
  const NewtonErrors errors = errorsOf(plan);
  const int fraction = x.width - 1, half = plan.half, f = goal.fractionBits;
  LOAM_ASSERT(plan.finer <= fraction && plan.last >= fraction && plan.last <= half + fraction,
              "significands of so many bits");

  // Of y it reads `seed` + 1 bits, as if the middle of what those may be.
  const int read = plan.seed + 1;
  const PolynomialRequest request{.function = "1/(1+x+" + decimalOf(read + 1) + ")",
                                  .argument = {read, -read},
                                  .resultLsb = -plan.seed,
                                  .promise = 1,
                                  .prices = prices};
  const auto planned = planFunction(request);
  LOAM_ASSERT(static_cast<bool>(planned), "a seed");
  const auto seed =
      evaluateFunction(b, b.slice(y, fraction - read, read), *planned, request).result;
  LOAM_ASSERT(seed.lsb == -plan.seed && !seed.isSigned(), "a positive seed");
  LOAM_ASSERT(shifted(seed.high, 3) <= shifted(MPZ(9), plan.seed), "a seed of at most 9/8");
  const Signal r0 = seed.bits;

  // e = 1 - y r0, modulo the place of its sign: the complement of the product.
  Signal e;
  {
    const auto step = b.scope("error");
    const int lsb = plan.finer + plan.seed, low = lsb - plan.finer;
    const int width = plan.finer - signPlace(errors.error) + 1;
    const auto product = truncatedProduct(b, {topBits(b, y, plan.finer + 1)}, {r0}, low + width,
                                          powerOf(low) - MPZ(1), prices.product);
    e = b.bitNot(sumOf(b, product.terms, {}, low, width));
  }
  Signal r1;
  {
    const auto step = b.scope("reciprocal");
    const int lsb = plan.seed + plan.finer, low = lsb - plan.finer;
    const auto product =
        truncatedProduct(b, {e, true}, {r0}, lsb + 1, powerOf(low) - MPZ(1), prices.product);
    r1 = sumOf(b, product.terms, {{r0, plan.finer}}, low, plan.finer + 1);
    r1 = topBits(b, r1, half + 1);
  }
  Signal q0;
  {
    const auto step = b.scope("first_quotient");
    const auto product = truncatedProduct(b, {topBits(b, x, half + 1)}, {r1}, 2 * half + 2,
                                          powerOf(half) - MPZ(1), prices.product);
    q0 = sumOf(b, product.terms, {}, half, half + 2);
  }
  Signal d;
  {
    const auto step = b.scope("remainder");
    const int lsb = half + fraction, low = lsb - plan.last;
    const int width = plan.last - signPlace(errors.remainder) + 1;
    const auto product =
        truncatedProduct(b, {q0}, {y}, low + width, powerOf(low) - MPZ(1), prices.product);
    const Signal taken = sumOf(b, product.terms, {}, low, width);
    const Signal whole = b.shiftedUp(x, plan.last - fraction);
    d = b.addCarry(b.slice(whole, 0, width), b.bitNot(taken), b.bit(false));
  }
  const auto step = b.scope("last_quotient");
  const int lsb = plan.last + half, low = lsb - f;
  const int width = lsb + 1;
  const auto product =
      truncatedProduct(b, {d, true}, {r1}, width, powerOf(low - 3), prices.product);
  // The remainder's cuts make v too small only, but the bound is taken for either side.
  const MPZ error = (errors.quotient >> (kScale - lsb)) + MPZ(1);
  const MPZ bias = goal.notAbove ? -(error + product.excess) : error;
  NearQuotient result{
      sumOf(b, product.terms, {{q0, plan.last}, {b.literal(bias, width), 0}}, low, f + 1),
      ErrorBudget(goal.room, nameOf(goal))};
  result.budget.add("reciprocal times remainder",
                    times(errors.remainder, errors.reciprocal + part(half)), kScale - f);
  result.budget.add("remainder cut off", (part(plan.last) * MPZ(9)) >> 2, kScale - f);
  result.budget.add("kept to one side", error, low);
  result.budget.add("partial products left out", product.excess, low);
  result.budget.assertKept();
  return result;
}

// With X and Y the significands as integers and Q the candidate, what Q + 1 leaves, X 2^f - (Q + 1)
// Y, is in [-Y, Y), so that width + 1 bits tell it; of X 2^f these are zeros.
CheckedQuotient checkedQuotient(Builder& b, Signal near, Signal y) {
  const auto scope = b.scope("check");
  const int width = y.width + 1;
  LOAM_ASSERT(near.width == width + 1, "a candidate of f + 1 bits");
  const Signal product =
      b.heap(std::array{HeapTerm{b.multiply(b.slice(near, 0, width), y), 0}}, width);
  const Signal left = b.add(product, b.zeroExtend(y, width));  // inverted
  const Signal isZero = b.isZero(left), reaches = b.bitOr(b.topBit(left), isZero);
  return {b.addCarry(near, b.zeros(near.width), reaches),
          b.bitNot(b.bitOr(isZero, b.isZero(product)))};
}

double priceOfCheck(int width, const EvaluationPrices& prices) {
  // About half of the product lies above what is needed.
  const ProductShape shape{.x = width + 1, .y = width, .xSigned = false, .ySigned = false};
  return 0.6 * priceOf(planProduct(shape, prices.product), prices.product) + 3 * width;
}

}  // namespace arithmetic
