#include "backend/functions/fixed_root.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/root_circuit.h"
#include "backend/arithmetic/shifter.h"
#include "backend/functions/integer_values.h"

namespace functions {

using arithmetic::PlannedFunction;
using arithmetic::Root;
using arithmetic::RootComparison;
using arithmetic::RootRequest;
using graph::Builder;
using graph::Signal;
using kiln::FixedPoint;
using util::MPZ;

namespace {

constexpr std::size_t kInOneTwo = 0, kFunction = 2;  // places in the variant
constexpr int kWidest = 200;
constexpr int kWidestTabulated = 8;  // operands up to this width are the index of one table
constexpr double kLessThanOne = 1 - 0x1p-20;

// The root of a port's number, within the limits of the result; rounded once.
void rootOf(mpfr_ptr result, Root root, const MPZ& a, const FixedPoint& in, const FixedPoint& out,
            mpfr_rnd_t rounding) {
  const bool hasRoot = a.sign() > 0 || (root == Root::kSquareRoot && a.isZero()) ||
                       (root == Root::kReciprocal && !a.isZero());
  Real limit(out.width() + 1);
  mpfr_set_z_2exp(limit.get(), highestOf(out).get(), -out.fraction(), MPFR_RNDN);
  if (!hasRoot) {
    mpfr_set(result, limit.get(), rounding);
    return;
  }
  Real x(in.width() + 1);
  mpfr_set_z_2exp(x.get(), a.get(), -in.fraction(), MPFR_RNDN);
  switch (root) {
    case Root::kReciprocal:
      mpfr_ui_div(result, 1, x.get(), rounding);
      break;
    case Root::kSquareRoot:
      mpfr_sqrt(result, x.get(), rounding);
      break;
    case Root::kReciprocalSquareRoot:
      mpfr_rec_sqrt(result, x.get(), rounding);
      break;
  }
  // The limits have fewer bits than the result, so that no rounding passes them.
  if (mpfr_cmp(result, limit.get()) > 0) mpfr_set(result, limit.get(), rounding);
  mpfr_set_z_2exp(limit.get(), lowestOf(out).get(), -out.fraction(), MPFR_RNDN);
  if (mpfr_cmp(result, limit.get()) < 0) mpfr_set(result, limit.get(), rounding);
}

Root rootOf(const Signature& signature, Root root) {
  if (root != Root::kReciprocal) return root;
  constexpr Root kRoots[] = {Root::kReciprocal, Root::kSquareRoot, Root::kReciprocalSquareRoot};
  return kRoots[signature.variant[kFunction]];
}

template <Root unit>
void evaluate(const Signature& signature, std::vector<NumValue>& results,
              const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
              const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  thread_local MPZ a;
  const FixedPoint& in = fixedPoint(signature.in[0]);
  readFixed(a, inputs[0], in);
  results.resize(1);
  rootOf(results[0].real.prepare(static_cast<mpfr_prec_t>(precisions[0])), rootOf(signature, unit),
         a, in, fixedPoint(signature.out[0]), roundings[0]);
  results[0].type = NumType::kValue;
  results[0].raw = false;
}

double ulpsOf(const Request& request) {
  const Accuracy accuracy = request.accuracy.empty() ? Accuracy{} : request.accuracy[0];
  return accuracy.kind == Accuracy::kWithin ? accuracy.ulps : 0.5;
}

long floorHalf(long x) { return x >= 0 ? x / 2 : -((1 - x) / 2); }

// The operand is A 2^-fIn for a positive integer A of `bits` bits with n zeros on top: m 2^e, m in
// [1, 2). The result is y 2^x units of its last place, y in [1, 2] as RootRequest has it.
struct Scaling {
  Root root;
  int bits, fIn, fOut;

  long exponent(int zeros) const { return bits - 1 - zeros - fIn; }  // e
  bool isOdd(int zeros) const { return exponent(zeros) % 2 != 0; }
  long place(int zeros) const {  // x
    const long e = exponent(zeros), half = floorHalf(e);
    switch (root) {
      case Root::kReciprocal:
        return fOut - e - 1;
      case Root::kSquareRoot:
        return fOut + half;
      case Root::kReciprocalSquareRoot:
        return fOut - half - 1;
    }
    return 0;
  }
};

// What is settled before anything is built. The candidate is the result cut to its last place,
// which keeps it within one unit of the root, or where it is to be rounded to nearest to half of
// that: a candidate that is even then is the nearest number, and an odd one is compared with the
// root. It is cut from y with `point` places, which are its own where the result is largest.
struct RootPlan {
  Scaling scaling{};
  bool isNearest = false;
  bool inOneTwo = false;
  int resultBits = 0;  // of the magnitude
  int most = 0;        // the highest x of a result that fits
  int point = 0;       // places of y, as it is cut
  RootRequest request;
  PlannedFunction function;
  RootComparison comparison;

  bool saturates(int zeros) const { return scaling.place(zeros) >= resultBits; }
  // Places that are cut off y.
  long cut(int zeros) const {
    const long own = scaling.place(zeros) + (isNearest ? 1 : 0);
    return std::clamp(point - own, 0L, static_cast<long>(point) + 2);
  }
};

// T = 2 q, T an integer; q^2 or 1 / q is a multiple of the operand, times a power of two.
RootComparison comparisonOf(const RootPlan& plan, const Request& request) {
  const auto& [root, bits, fIn, fOut] = plan.scaling;
  RootComparison comparison{.root = root, .prices = productPrices(request.prices)};
  const int most = std::max(0, plan.most);
  switch (root) {
    case Root::kReciprocal:
      // T A < 2^scale; |T - r| < 1 for the root r.
      comparison.scale = fIn + fOut + 1;
      comparison.logDifference = bits;
      break;
    case Root::kSquareRoot:
      // T^2 < 2^scale A; T and r are at most 2^(most + 2).
      comparison.scale = 2 * fOut - fIn + 2;
      comparison.logDifference = most + 3 + std::max(0, -comparison.scale);
      break;
    case Root::kReciprocalSquareRoot: {
      // T^2 A < 2^scale; (T + r) A <= (2 r + 1) A = 2 sqrt(2^scale A) + A.
      comparison.scale = fIn + 2 * fOut + 2;
      const int product = (std::max(0, comparison.scale) + bits + 1) / 2;
      comparison.logDifference = 1 + std::max(product + 1, bits);
      break;
    }
  }
  return comparison;
}

util::Result<RootPlan> planOf(const Request& request, Root unit) {
  const FixedPoint &in = fixedPoint(request.signature.in[0]),
                   &out = fixedPoint(request.signature.out[0]);
  RootPlan plan;
  const Root root = rootOf(request.signature, unit);
  const bool hasNegative = in.sign() && root == Root::kReciprocal;
  const int bits = std::max(1, in.width() - (in.sign() && !hasNegative ? 1 : 0));
  plan.scaling = {root, bits, in.fraction(), out.fraction()};
  plan.resultBits = out.width() - (out.sign() ? 1 : 0);
  plan.inOneTwo =
      request.signature.variant[kInOneTwo] != 0 && !in.sign() && in.fraction() == in.width() - 1;
  const double ulps = ulpsOf(request);
  plan.isNearest = ulps < 1;
  const long least = plan.scaling.place(0), last = plan.scaling.place(plan.inOneTwo ? 0 : bits - 1);
  // The least and the greatest place of all that fit.
  plan.most = static_cast<int>(
      std::clamp(std::max(least, last), -1L, static_cast<long>(plan.resultBits) - 1));
  plan.point = std::max(1, plan.most + (plan.isNearest ? 1 : 0));
  const int coarser = plan.isNearest ? 0 : std::min(std::ilogb(ulps), plan.point - 1);
  plan.request = {.root = root,
                  .fractionBits = bits - 1,
                  .resultLsb = coarser - plan.point,
                  .promise = kLessThanOne * (plan.isNearest ? 1 : std::ldexp(ulps, -coarser)),
                  .isEven = plan.inOneTwo && root != Root::kReciprocal,
                  .prices = evaluationPrices(request.prices)};
  plan.comparison = comparisonOf(plan, request);
  auto function = planFunction(polynomialOf(plan.request));
  if (!function) return function.failure();
  plan.function = std::move(*function);
  return plan;
}

// The nearest number to the root, ties away from zero.
MPZ nearestRoot(Root root, const MPZ& a, const FixedPoint& in, const FixedPoint& out) {
  // Cutting leaves the root on its side of every half.
  Real exact(out.width() + in.width() + 64);
  rootOf(exact.get(), root, a, in, out, MPFR_RNDZ);
  MPZ result;
  mpfr_mul_2si(exact.get(), exact.get(), out.fraction(), MPFR_RNDN);
  mpfr_round(exact.get(), exact.get());
  mpfr_get_z(result.get(), exact.get(), MPFR_RNDN);
  return std::clamp(result, lowestOf(out), highestOf(out));
}

Signal tabulated(Builder& b, const Request& request, Root root, Signal a) {
  const FixedPoint &in = fixedPoint(request.signature.in[0]),
                   &out = fixedPoint(request.signature.out[0]);
  std::vector<MPZ> rows;
  for (unsigned long pattern = 0; pattern < 1ul << in.width(); ++pattern) {
    const auto width = static_cast<unsigned long>(in.width());
    const MPZ value = in.sign() ? MPZ(pattern).asSigned(width) : MPZ(pattern);
    rows.push_back(nearestRoot(root, value, in, out));
  }
  arithmetic::stateRounding(request.budgets, true);
  return arithmetic::tableLookup(b, a, rows, out.width());
}

class Circuit {
 public:
  Circuit(Builder& b, const Request& request, Root unit, Signal a)
      : b(b),
        request(request),
        plan(*planOf(request, unit)),
        in(fixedPoint(request.signature.in[0])),
        out(fixedPoint(request.signature.out[0])),
        a(a),
        bits(plan.scaling.bits) {}

  Signal build() {
    const auto scope = b.scope("root");
    const bool isReciprocal = plan.scaling.root == Root::kReciprocal;
    const Signal sign = in.sign() ? b.topBit(a) : b.bit(false);
    magnitude = b.slice(a, 0, bits);
    if (in.sign() && isReciprocal)
      magnitude = b.addCarry(b.bitXor(a, b.replicate(sign, bits)), b.zeros(bits), sign);
    normalised();
    Signal c = candidate();
    Signal raise = b.bit(false);
    if (plan.isNearest) {
      raise = b.bitAnd(b.bitOf(c, 0), isBelow(c));
      c = b.slice(c, 1, c.width - 1);
    }
    // Of a negative number minus the magnitude: its complement, and one unless it is raised.
    const Signal isNegative = isReciprocal ? sign : b.bit(false);
    const int width = plan.resultBits + 2;
    Signal sum = b.addCarry(b.bitXor(b.zeroExtend(c, width), b.replicate(isNegative, width)),
                            b.zeros(width), b.bitXor(isNegative, raise));
    const Signal overflow = b.bitXor(b.bitOf(sum, plan.resultBits), b.topBit(sum));
    Signal isLimit = b.bitOr(overflow, saturates);
    Signal isHighest = isReciprocal ? b.bit(false) : sign;
    if (plan.scaling.root == Root::kSquareRoot) {
      sum = b.bitAnd(sum, b.replicate(b.bitNot(isZero), width));
      isLimit = b.bitAnd(isLimit, b.bitNot(isZero));
    } else {
      isHighest = b.bitOr(isHighest, isZero);
    }
    isLimit = b.bitOr(isLimit, isHighest);
    const Signal limitSign = b.bitAnd(isNegative, b.bitNot(isHighest));
    const Signal limit =
        out.sign() ? b.concat({limitSign, b.replicate(b.bitNot(limitSign), plan.resultBits)})
                   : b.ones(plan.resultBits);
    return b.select(isLimit, limit, b.slice(sum, 0, out.width()));
  }

 private:
  // The operand from its highest 1, and what its zeros tell.
  void normalised() {
    if (plan.inOneTwo) {
      significand = magnitude, isZero = saturates = isOdd = b.bit(false);
      return;
    }
    const auto moved = arithmetic::normalise(b, magnitude);
    significand = moved.bits, isZero = moved.allZero;
    int cutBits = 1;
    long greatest = 0;
    for (int zeros = 0; zeros < bits; ++zeros)
      if (!plan.saturates(zeros)) greatest = std::max(greatest, plan.cut(zeros));
    while (greatest >> cutBits > 0) ++cutBits;
    // From the top: saturates, is odd, places cut.
    std::vector<MPZ> rows;
    for (int zeros = 0; zeros < bits; ++zeros) {
      const bool isLimit = plan.saturates(zeros);
      const long flags = (isLimit ? 2 : 0) + (plan.scaling.isOdd(zeros) ? 1 : 0);
      rows.push_back((MPZ(flags) << static_cast<unsigned long>(cutBits)) +
                     MPZ(isLimit ? 0 : plan.cut(zeros)));
    }
    const Signal row = arithmetic::tableLookup(b, moved.count, rows, cutBits + 2);
    cut = b.slice(row, 0, cutBits);
    isOdd = b.bitOf(row, cutBits);
    saturates = b.bitOf(row, cutBits + 1);
  }

  Signal candidate() {
    const Signal argument = rootArgument(b, plan.request, b.slice(significand, 0, bits - 1), isOdd);
    const auto f = evaluateFunction(b, argument, plan.function, polynomialOf(plan.request));
    const int coarser = plan.point + plan.request.resultLsb, width = plan.point + 2 - coarser;
    const Signal y = f.result.isSigned() ? b.signExtend(f.result.bits, width)
                                         : b.zeroExtend(f.result.bits, width);
    if (plan.isNearest) {
      arithmetic::stateRounding(request.budgets, true);
    } else {
      // With s places cut the error is below 1 - 2^-s places and 2^-s of y's.
      arithmetic::ErrorBudget budget(ulpsOf(request));
      for (const auto& term : f.budget.terms())
        budget.add(term.name, term.numerator << static_cast<unsigned long>(coarser),
                   term.log2Denominator);
      budget.assertKept(request.budgets);
    }
    const Signal whole = b.shiftedUp(y, coarser);
    if (!plan.inOneTwo) return arithmetic::shiftRight(b, whole, cut);
    const int places = std::min(static_cast<int>(plan.cut(0)), whole.width - 1);
    return b.slice(whole, places, whole.width - places);
  }

  Signal isBelow(Signal c) {
    // A negative power of two is less than any product of positive integers.
    const bool isProduct = plan.scaling.root != Root::kSquareRoot;
    if (isProduct && plan.comparison.scale < 0) return b.bit(false);
    // Even candidates are not asked. Ties go away from zero.
    const Signal t =
        c.width > 1 ? b.concat({b.slice(c, 1, c.width - 1), b.bit(true)}) : b.bit(true);
    return isBelowRoot(b, t, magnitude, b.bit(true), plan.comparison);
  }

  Builder& b;
  const Request& request;
  const RootPlan plan;
  const FixedPoint &in, &out;
  const Signal a;
  const int bits;
  Signal magnitude, significand, isZero, isOdd, saturates, cut;
};

template <Root unit>
std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  if (inputs[0].width <= kWidestTabulated)
    return {tabulated(b, request, rootOf(request.signature, unit), inputs[0])};
  return {Circuit(b, request, unit, inputs[0]).build()};
}

template <Root unit>
std::optional<std::string> refuse(const Request& request) {
  const Signature& signature = request.signature;
  if (signature.in.size() != 1 || signature.out.size() != 1)
    return fmt::format("{} inputs and {} outputs are not the 1 and 1 of this unit",
                       signature.in.size(), signature.out.size());
  for (const kiln::Type& type : {signature.in[0], signature.out[0]}) {
    const FixedPoint* port = type.as_fixed_point();
    if (!port) return "a port is not a fixed-point port";
    if (auto reason = outOfRange("width", port->width(), 1, kWidest)) return reason;
    if (auto reason = outOfRange("fraction", port->fraction(), -1024, 1024)) return reason;
  }
  if (unit == Root::kReciprocal)
    if (auto reason = outOfRange("function", signature.variant[kFunction], 0, 2)) return reason;
  if (fixedPoint(signature.in[0]).sign() && !fixedPoint(signature.out[0]).sign() &&
      rootOf(signature, unit) == Root::kReciprocal)
    return "the reciprocal of a signed number has a sign";
  if (signature.in[0].width() <= kWidestTabulated) return std::nullopt;
  const auto plan = planOf(request, unit);
  if (!plan)
    return fmt::format("width {} is more than its approximations serve: {}",
                       signature.in[0].width(), plan.failure().message);
  return std::nullopt;
}

std::string_view describe(const Signature& signature) {
  return signature.in[0].width() <= kWidestTabulated ? "table" : "polynomial approximation";
}

template <Root unit>
constexpr UnitRow rowOf(std::string_view name) {
  return {.name = name,
          .evaluate = evaluate<unit>,
          .decompose = decompose<unit>,
          .refuses = refuse<unit>,
          .description = describe};
}

constexpr UnitRow kRows[] = {rowOf<Root::kSquareRoot>("DMFxPSQRT"),
                             rowOf<Root::kReciprocalSquareRoot>("DMFxPInvSQRT"),
                             rowOf<Root::kReciprocal>("DMFxPReciprocal")};

}  // namespace

std::span<const UnitRow> fixedRootUnits() { return kRows; }

}  // namespace functions
