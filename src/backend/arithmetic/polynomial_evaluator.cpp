#include "backend/arithmetic/polynomial_evaluator.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/arithmetic/truncated_product.h"

namespace arithmetic {

using approximation::Bounds;
using approximation::PiecewisePolynomial;
using approximation::Segmentation;
using graph::HeapTerm;
using util::MPZ;

namespace {

// x * 2^shift, rounded away from zero where the shift is negative and x is not negative.
MPZ shiftedUp(const MPZ& x, int shift) {
  return shift >= 0 ? x << static_cast<unsigned long>(shift)
                    : -(-x >> static_cast<unsigned long>(-shift));
}
MPZ shiftedDown(const MPZ& x, int shift) {
  return shift >= 0 ? x << static_cast<unsigned long>(shift)
                    : x >> static_cast<unsigned long>(-shift);
}

// Row and distance from the centre of the segment that x lies in.
struct Place {
  Signal row, t;  // t is two's complement
};

// The low `logSize` bits of x less 2^(logSize - 1), as a number of `width` bits.
Signal distance(Builder& b, Signal x, int logSize, int width) {
  if (logSize == 0) return b.zeros(width);
  const Signal top = b.bitNot(b.bitOf(x, logSize - 1));
  return b.signExtend(b.concat({top, b.slice(x, 0, logSize - 1)}), width);
}

Place placeOf(Builder& b, Signal x, const Segmentation& s) {
  const int widest = s.widestSegment(), within = s.argumentBits - s.topBits;
  const Signal block = b.slice(x, within, s.topBits);
  if (s.isUniform()) return {block, distance(b, x, widest, widest)};
  const auto scope = b.scope("segment");
  const auto ofBlocks = [&](auto value, int width) {
    std::vector<MPZ> rows;
    for (std::size_t i = 0; i < s.splits.size(); ++i) rows.push_back(value(i));
    return tableLookup(b, block, rows, width);
  };
  const int rowBits = s.rowBits(), least = s.shallowest(), depths = s.deepest() - least + 1;
  int depthBits = 0;
  while (1 << depthBits < depths) ++depthBits;
  const std::vector<std::size_t> firstRows = s.firstRows();
  const Signal first = ofBlocks(
      [&](std::size_t i) { return MPZ(static_cast<unsigned long>(firstRows[i])); }, rowBits);
  std::vector<Signal> subs, distances;
  for (int depth = least; depth <= s.deepest(); ++depth) {
    subs.push_back(b.zeroExtend(b.slice(x, within - depth, depth), rowBits));
    distances.push_back(distance(b, x, within - depth, widest));
  }
  if (depths == 1) return {b.bitOr(first, subs[0]), distances[0]};
  const Signal depth = ofBlocks([&](std::size_t i) { return MPZ(s.splits[i] - least); }, depthBits);
  return {b.bitOr(first, b.pick(depth, subs)), b.pick(depth, distances)};
}

class Evaluator {
 public:
  Evaluator(Builder& b, const PiecewisePolynomial& p, const HornerPlan& plan, double promise,
            const EvaluationPrices& prices)
      : b(b), p(p), plan(plan), prices(prices), budget(promise) {
    resultLsb = plan.steps[0].lsb;
    widest = p.segmentation.widestSegment();
    logHalf = widest - 1 + p.argument.lsb;
    unit = resultLsb - kUnitBits;
  }

  EvaluatedFunction build(Signal x) {
    const auto scope = b.scope("polynomial");
    place = placeOf(b, x, p.segmentation);
    const int denominator = p.errorFraction + resultLsb;
    budget.add("approximation", shiftedUp(p.error.magnitude(), std::max(0, -denominator)),
               std::max(0, denominator));
    const auto top = static_cast<std::size_t>(p.degree());
    const Bounds& range = p.coefficient[top];
    FixedSignal r{tableLookup(b, place.row, column(top), bitsOf(range)), p.lsb[top], range.low,
                  range.high};
    for (int i = p.degree() - 1; i >= 0; --i) r = step(r, i);
    budget.assertKept();
    return {r, std::move(budget)};
  }

 private:
  static constexpr int kUnitBits = 40;  // errors are counted in 2^-40 of the result's last place
  std::vector<MPZ> column(std::size_t power) const {
    std::vector<MPZ> values;
    for (const auto& row : p.rows) values.push_back(row[power]);
    return values;
  }

  // Adds an error of r[i], at most numerator * 2^lsb / 2, as it weighs in the result.
  MPZ charge(const std::string& name, int i, const MPZ& numerator, int lsb) {
    if (numerator.isZero()) return 0;
    budget.add(name, shiftedUp(numerator, lsb - 1 + i * logHalf - unit), kUnitBits);
    return shiftedUp(numerator, lsb - 1 - unit);
  }

  FixedSignal step(const FixedSignal& above, int i) {
    const HornerStep& cuts = plan.steps[static_cast<std::size_t>(i)];
    const auto power = static_cast<std::size_t>(i);
    const int productLsb = p.argument.lsb + cuts.argumentCut + above.lsb;
    // All terms are whole in this unit, and so is the constant that centres the errors.
    const int fine = std::min({productLsb, p.lsb[power], cuts.lsb - 2});
    const Signal t = b.slice(place.t, cuts.argumentCut, widest - cuts.argumentCut);
    const ProductFactor factor{above.bits, above.isSigned()};

    // t lacks 0 to `lacking` units of the argument: the product errs by minus r[i + 1] times that.
    const MPZ lacking = MPZ::powerOfTwo(static_cast<unsigned long>(cuts.argumentCut)) - MPZ(1);
    const int lackLsb = p.argument.lsb + above.lsb;
    MPZ low = std::min(MPZ(0), -(lacking * above.high)),
        high = std::max(MPZ(0), -(lacking * above.low));
    const MPZ lackWidth = high - low;
    // Twice the middle of all errors of this step, in units of 2^twiceLsb.
    const int twiceLsb = std::min(fine, lackLsb);
    MPZ twiceMiddle = (low + high) << static_cast<unsigned long>(lackLsb - twiceLsb);

    const int productShift = productLsb - fine;
    const MPZ room = MPZ::allOnes(static_cast<unsigned long>(cuts.roomBits));
    const Bounds partial = p.partial[power];
    const int mostHeap = heapWidth(partial, i, fine);
    TruncatedProduct product =
        truncatedProduct(b, {t, true}, factor, mostHeap - productShift, room, prices.product);
    twiceMiddle += product.excess << static_cast<unsigned long>(productLsb - twiceLsb);
    const MPZ cutWidth = MPZ::powerOfTwo(static_cast<unsigned long>(cuts.lsb - fine)) - MPZ(1);
    twiceMiddle -= cutWidth << static_cast<unsigned long>(fine - twiceLsb);

    // The constant, -middle rounded to a multiple of 2^(lsb - 2), and what it leaves.
    const int stepLsb = cuts.lsb - 2;
    const MPZ step = MPZ::powerOfTwo(static_cast<unsigned long>(stepLsb + 1 - twiceLsb));
    MPZ count = -twiceMiddle + (step >> 1);
    mpz_fdiv_q(count.get(), count.get(), step.get());
    MPZ residue = twiceMiddle + count * step;
    if (residue.sign() < 0) residue = -residue;

    const std::string name = fmt::format("step {}: ", i);
    MPZ error = shiftedUp(total, logHalf);
    error += charge(name + "argument", i, lackWidth, lackLsb);
    error += charge(name + "product", i, product.excess, productLsb);
    error += charge(name + "cut", i, cutWidth, fine);
    error += charge(name + "centring", i, residue, twiceLsb);
    total = error;

    // In the table: coefficient, centring, and the constant of what the product leaves out.
    MPZ constant = count << static_cast<unsigned long>(stepLsb - fine);
    if (!product.excess.isZero()) {
      LOAM_ASSERT(b.isLiteral(product.terms[0].bits), "a constant for partial products left out");
      product.terms.erase(product.terms.begin());
      constant += product.excess << static_cast<unsigned long>(productShift);
    }
    std::vector<MPZ> rows = column(power);
    for (MPZ& row : rows) row = (row << static_cast<unsigned long>(p.lsb[power] - fine)) + constant;

    FixedSignal r{{},
                  cuts.lsb,
                  shiftedDown(partial.low, p.lsb[power] - cuts.lsb),
                  shiftedUp(partial.high, p.lsb[power] - cuts.lsb)};
    const MPZ errorUnits = shiftedUp(total, unit - cuts.lsb);
    r.low -= errorUnits;
    r.high += errorUnits;
    const int width = bitsOf({r.low, r.high}), heap = width + cuts.lsb - fine;
    LOAM_ASSERT(heap <= mostHeap, "errors that leave a step its width");
    std::vector<HeapTerm> terms;
    for (const HeapTerm& term : product.terms) {
      const int shift = term.shift + productShift;
      if (shift < heap)
        terms.push_back({b.slice(term.bits, 0, std::min(term.bits.width, heap - shift)), shift});
    }
    terms.push_back({tableLookup(b, place.row, rows, heap), 0});
    r.bits = b.slice(b.heap(terms, heap), cuts.lsb - fine, width);
    return r;
  }

  // Wide enough for r[i] whatever its errors are, if they keep the promise.
  int heapWidth(const Bounds& partial, int i, int fine) const {
    const auto power = static_cast<std::size_t>(i);
    return bitsOf(partial) + p.lsb[power] - fine + 4 +
           std::max(0, plan.steps[power].lsb - p.lsb[power]);
  }

  Builder& b;
  const PiecewisePolynomial& p;
  const HornerPlan& plan;
  const EvaluationPrices& prices;
  ErrorBudget budget;
  Place place;
  MPZ total;  // error of r[i + 1] and then of r[i], in units of 2^unit
  int resultLsb = 0, widest = 0, logHalf = 0, unit = 0;
};

}  // namespace

EvaluatedFunction evaluatePolynomial(Builder& b, Signal x, const PiecewisePolynomial& p,
                                     const HornerPlan& plan, double promise,
                                     const EvaluationPrices& prices) {
  LOAM_ASSERT(x.width == p.argument.bits && p.degree() >= 1, "an argument of a polynomial");
  return Evaluator(b, p, plan, promise, prices).build(x);
}

}  // namespace arithmetic
