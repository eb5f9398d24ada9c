#include <algorithm>
#include <array>

#include "backend/arithmetic/constant_plan.h"
#include "util/failure.h"

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;
using Term = AdderGraph::Term;

namespace {

// How many of the constants within the tolerance are worth a search for their adder graph.
constexpr std::size_t kSearched = 2;

// Constants within the tolerance that have few digits: multiples of high powers of two.
std::vector<MPZ> candidates(const MPZ& mantissa, const MPZ& tolerance) {
  if (tolerance.isZero()) return {mantissa};
  const MPZ low = mantissa - tolerance, high = mantissa + tolerance;
  const MPZ first = shortest(mantissa, tolerance);
  const auto highest = static_cast<long>(mpz_scan1(first.get(), 0));
  std::vector<std::pair<std::size_t, MPZ>> ranked;
  for (long places = highest; places >= std::max(0L, highest - 4); --places) {
    const MPZ step = MPZ::powerOfTwo(static_cast<unsigned long>(places));
    const auto shift = static_cast<unsigned long>(places);
    for (MPZ value = ((low + step - MPZ(1)) >> shift) << shift; value <= high; value += step)
      if (!value.isZero()) ranked.emplace_back(canonicalDigits(value).size(), value);
  }
  std::ranges::stable_sort(ranked, {}, [](const auto& row) { return row.first; });
  std::vector<MPZ> best;
  for (const auto& [digits, value] : ranked)
    if (best.size() < kSearched && std::ranges::find(best, value) == best.end())
      best.push_back(value);
  return best;
}

// ---- Widths, errors and cost of a graph ---------------------------------------------------------

// The bits that the sum's term number `index` has left in units of 2^dropped.
int keptBits(const ProductTask& task, const std::vector<MPZ>& multiples, const Term& term,
             int dropped) {
  const int width = task.x.times(multiples[static_cast<std::size_t>(term.node)]).width();
  return std::max(0, width - std::max(0, dropped - term.shift));
}

// What the sum misses its constant's product by when each term loses what stands below 2^dropped. A
// term that is subtracted is inverted, cut, and not made up for what inverting misses.
Interval cutError(const AdderGraph& graph, int dropped) {
  Interval error{0, 0};
  for (const Term& term : graph.sum) {
    if (term.shift >= dropped) continue;
    const MPZ grid = MPZ::powerOfTwo(static_cast<unsigned long>(dropped));
    const MPZ last = MPZ::powerOfTwo(static_cast<unsigned long>(term.shift));
    error = error + (term.negative ? Interval{-grid, -last} : Interval{last - grid, 0});
  }
  return error;
}

// Adders of the nodes without the places that pass beside them, then what the heap adds.
double costOf(const ProductTask& task, const AdderPlan& plan) {
  const std::vector<MPZ> multiples = plan.graph.multiples();
  double cost = 0;
  for (std::size_t k = 0; k < plan.graph.nodes.size(); ++k) {
    const auto& [first, second] = plan.graph.nodes[k];
    const Term& low = first.shift <= second.shift ? first : second;
    const Term& high = first.shift <= second.shift ? second : first;
    cost += task.x.times(multiples[k + 1]).width() - (low.negative ? 0 : high.shift);
  }
  const int width = sumWidth(task, plan.fraction, plan.dropped, plan.result);
  double bits = 0;
  for (const Term& term : plan.graph.sum)
    bits += std::min(keptBits(task, multiples, term, plan.dropped), width);
  return cost + std::max(0.0, bits - width);
}

AdderPlan exactPlan(const ProductTask& task, const MPZ& mantissa) {
  AdderPlan plan;
  const auto zeros = static_cast<int>(mpz_scan1(mantissa.get(), 0));
  plan.fraction = std::max(0, task.fraction - zeros);
  plan.mantissa = mantissa >> static_cast<unsigned long>(task.fraction - plan.fraction);
  plan.graph = shiftAndAdd(plan.mantissa);
  plan.constant = roundingConstant(task, plan.fraction);
  plan.result = exactResult(task, plan.mantissa, plan.fraction);
  plan.cost = costOf(task, plan);
  return plan;
}

// With as many places cut as the bound allows.
std::optional<AdderPlan> cutPlan(const ProductTask& task, const MPZ& mantissa) {
  AdderPlan plan{.graph = shiftAndAdd(mantissa), .mantissa = mantissa, .fraction = task.fraction};
  const Interval constantError = task.x.times(mantissa - task.mantissa);
  for (plan.dropped = task.fraction; plan.dropped >= 0; --plan.dropped) {
    const Interval error = constantError + cutError(plan.graph, plan.dropped);
    const auto correction = correctionFor(task, error, plan.dropped);
    if (!correction) continue;
    plan.constant = correction->value >> static_cast<unsigned long>(plan.dropped);
    plan.result = correction->result;
    plan.cost = costOf(task, plan);
    return plan;
  }
  return std::nullopt;
}

// ---- Circuits -----------------------------------------------------------------------------------

// A multiple of x.
struct Multiple {
  Signal bits;
  bool isSigned;
};

Signal extend(Builder& b, const Multiple& value, int width) {
  return value.isSigned ? b.signExtend(value.bits, width) : b.zeroExtend(value.bits, width);
}

// low + 2^shift * high, either one subtracted when its flag says so, in `width` bits.
Signal addShifted(Builder& b, const Multiple& low, bool lowNegative, const Multiple& high,
                  bool highNegative, int shift, int width) {
  const Signal shifted = b.slice(b.shiftedUp(extend(b, high, width), shift), 0, width);
  const Signal plain = extend(b, low, width);
  if (lowNegative && highNegative) return b.subtract(b.subtract(b.zeros(width), plain), shifted);
  if (lowNegative) return b.subtract(shifted, plain);
  if (shift >= width) return plain;
  // The places below the shifted term pass unchanged.
  const Signal upper = b.slice(plain, shift, width - shift);
  const Signal other = b.slice(shifted, shift, width - shift);
  const Signal sum = highNegative ? b.subtract(upper, other) : b.add(upper, other);
  return b.concat({sum, b.slice(plain, 0, shift)});
}

Signal addTerms(Builder& b, const std::vector<Multiple>& values, const Term& first,
                const Term& second, int width) {
  const Term& low = first.shift <= second.shift ? first : second;
  const Term& high = first.shift <= second.shift ? second : first;
  const Signal sum = addShifted(b, values[static_cast<std::size_t>(low.node)], low.negative,
                                values[static_cast<std::size_t>(high.node)], high.negative,
                                high.shift - low.shift, std::max(1, width - low.shift));
  return b.slice(b.shiftedUp(sum, low.shift), 0, width);
}

std::vector<Multiple> multiplesOf(Builder& b, const ProductTask& task, const AdderGraph& graph,
                                  Signal x) {
  std::vector<Multiple> values{{x, task.isSigned}};
  const std::vector<MPZ> multiples = graph.multiples();
  for (std::size_t k = 0; k < graph.nodes.size(); ++k) {
    const int width = task.x.times(multiples[k + 1]).width();
    values.push_back(
        {addTerms(b, values, graph.nodes[k].first, graph.nodes[k].second, width), task.isSigned});
  }
  return values;
}

// Adds one term in units of 2^dropped to a heap and to the constant beside it. With v bits,
//   -P - 1 = ~P - 2^v,   a signed P = (P with its sign inverted) - 2^(v-1).
void addCut(Builder& b, const Multiple& value, const Term& term, int dropped,
            std::vector<HeapTerm>& terms, MPZ& constant) {
  const int cut = std::max(0, dropped - term.shift), shift = std::max(0, term.shift - dropped);
  Signal bits = extend(b, value, std::max(value.bits.width, cut + 1));
  const int width = bits.width - cut;
  if (term.negative) bits = b.bitNot(bits);
  bits = b.slice(bits, cut, width);
  const auto places = static_cast<unsigned long>(shift);
  if (value.isSigned) {
    bits = b.concat({b.bitNot(b.topBit(bits)), b.slice(bits, 0, width - 1)});
    constant -= MPZ::powerOfTwo(static_cast<unsigned long>(width - 1)) << places;
  } else if (term.negative) {
    constant -= MPZ::powerOfTwo(static_cast<unsigned long>(width)) << places;
  }
  if (term.negative && cut == 0) constant += MPZ::powerOfTwo(places);
  terms.push_back({bits, shift});
}

}  // namespace

AdderPlan planAdders(const ProductTask& task) {
  std::optional<AdderPlan> best;
  const auto offer = [&](std::optional<AdderPlan> plan) {
    if (plan && (!best || plan->cost < best->cost)) best = std::move(plan);
  };
  if (task.goal.kind != ProductGoal::kWithin) {
    for (const MPZ& mantissa : candidates(task.mantissa, task.tolerance))
      offer(exactPlan(task, mantissa));
    return *best;
  }
  // A part of the bound to the constant, the rest to what the terms lose. What serves a bound of
  // one unit may be the best for a wider one, too.
  const MPZ unit = MPZ::powerOfTwo(static_cast<unsigned long>(task.fraction));
  for (const int bound : {1, task.goal.below + task.goal.above - 1})
    for (const int quarters : {0, 1, 2, 3}) {
      MPZ tolerance = unit * MPZ(bound * quarters);
      mpz_fdiv_q(tolerance.get(), tolerance.get(), (task.x.magnitude() * MPZ(4)).get());
      for (const MPZ& mantissa : candidates(task.mantissa, tolerance))
        offer(cutPlan(task, mantissa));
    }
  LOAM_ASSERT(best.has_value(), "the constant itself keeps every bound");
  return *best;
}

ConstantProduct buildAdders(Builder& b, const ProductTask& task, const AdderPlan& plan, Signal x) {
  const auto scope = b.scope("shift_and_add");
  const std::vector<Multiple> values = multiplesOf(b, task, plan.graph, x);
  const std::vector<Term>& sum = plan.graph.sum;
  const bool isWhole = plan.fraction == 0 || task.goal.kind == ProductGoal::kWhole;
  if (isWhole && plan.constant.isZero() && sum.size() <= 2) {
    const int width = sumWidth(task, plan.fraction, 0, plan.result);
    const Multiple& first = values[static_cast<std::size_t>(sum[0].node)];
    Signal bits;
    if (sum.size() == 2) {
      bits = addTerms(b, values, sum[0], sum[1], width);
    } else {
      bits = b.slice(b.shiftedUp(extend(b, first, width), sum[0].shift), 0, width);
      if (sum[0].negative) bits = b.subtract(b.zeros(width), bits);
    }
    return {bits, -plan.fraction, plan.result.low, plan.result.high};
  }
  std::vector<HeapTerm> terms;
  MPZ constant = plan.constant;
  for (const Term& term : sum)
    addCut(b, values[static_cast<std::size_t>(term.node)], term, plan.dropped, terms, constant);
  if (task.goal.kind != ProductGoal::kWithin) addRoundingBits(b, task, x, plan.fraction, terms);
  const int width = sumWidth(task, plan.fraction, plan.dropped, plan.result);
  terms.push_back({b.literal(constant, width), 0});
  return finishedProduct(b, task, terms, plan.fraction, plan.dropped, plan.result);
}

}  // namespace arithmetic
