#include "backend/arithmetic/horner_plan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>

namespace arithmetic {

using approximation::Bounds;
using approximation::PolynomialShape;

namespace {

// What rounding of doubles may hide.
constexpr double kSlack = 1 - 1e-9;

// Staircases miss some of the bits that a room covers, and their joints cost something: fitted to
// mapped circuits of 12 to 53 bits, whose look-up tables estimates now hold within a quarter.
constexpr double kSavedInLogic = 0.6;

double asDouble(const util::MPZ& x) { return mpz_get_d(x.get()); }

struct WholeProduct {
  double inLogic = 0, withBlocks = 0;  // prices
  int blocks = 0;
};

class Planner {
 public:
  Planner(const PolynomialShape& shape, int resultLsb, const EvaluationPrices& prices)
      : shape(shape), resultLsb(resultLsb), prices(prices), logicOnly(prices.product) {
    logicOnly.lutPerDsp = logicOnly.lutPerFurtherDsp = 1e9;
    argumentBits = shape.segmentation->widestSegment();
    logHalf = argumentBits - 1 + shape.argument.lsb;
  }

  std::optional<HornerPlan> plan() {
    const double room = shape.left * kSlack;
    if (room <= 0) return std::nullopt;
    HornerPlan best;
    best.steps.resize(static_cast<std::size_t>(shape.degree));
    setEqualShares(best, room / (3 * shape.degree));
    measure(best);
    for (int tries = 0; best.error > room; ++tries) {
      if (tries > 8) return std::nullopt;
      setEqualShares(best, std::ldexp(room / (3 * shape.degree), -tries - 1));
      measure(best);
    }
    while (improve(best, room)) {
    }
    best.tableLuts = tablePart();
    return best;
  }

 private:
  static constexpr int kMostStride = 7;

  // A source of error of step i that is `share` units of the result, as the power of two of what it
  // may drop there: |t|^i weighs it.
  int shareOf(int i, double share) const { return std::ilogb(share) + resultLsb - i * logHalf; }
  // The greatest |r[i]|, as a power of two of its upper bound.
  double magnitude(int i) const {
    const auto at = static_cast<std::size_t>(i);
    return std::ldexp(asDouble(shape.partial[at].magnitude()) + 1, shape.lsb[at]);
  }
  int lsbOf(const HornerPlan& plan, int i) const {
    return i == shape.degree ? shape.lsb.back() : plan.steps[static_cast<std::size_t>(i)].lsb;
  }
  int productLsb(const HornerPlan& plan, int i) const {
    return shape.argument.lsb + plan.steps[static_cast<std::size_t>(i)].argumentCut +
           lsbOf(plan, i + 1);
  }

  void setEqualShares(HornerPlan& plan, double share) const {
    for (int i = shape.degree - 1; i >= 0; --i) {
      HornerStep& step = plan.steps[static_cast<std::size_t>(i)];
      // Half of what is cut off counts, since a constant stands for the other half.
      step.lsb = i == 0 ? resultLsb : shareOf(i, share) + 1;
      // (2^cut - 1) 2^argument.lsb |r[i + 1]|
      const int cut = shareOf(i, share) - std::ilogb(magnitude(i + 1)) - 1 - shape.argument.lsb;
      step.argumentCut = std::clamp(cut, 0, argumentBits - 1);
      step.roomBits = std::max(0, shareOf(i, share) + 1 - productLsb(plan, i));
    }
  }

  // |t| <= 2^logHalf weighs the error of r[i + 1] in r[i].
  double errorOf(const HornerPlan& plan) const {
    double error = 0;
    for (int i = shape.degree - 1; i >= 0; --i) {
      const HornerStep& step = plan.steps[static_cast<std::size_t>(i)];
      const double cut = std::ldexp(std::ldexp(1.0, step.argumentCut) - 1, shape.argument.lsb);
      const double room = std::ldexp(std::ldexp(1.0, step.roomBits) - 1, productLsb(plan, i));
      error = std::ldexp(error, logHalf) + cut * argumentWeight(i) + room / 2;
      // The constant that centres what is dropped is a multiple of 2^(lsb - 2).
      if (room > 0 || step.argumentCut > 0) error += std::ldexp(0.125, step.lsb);
      if (i > 0) error += std::ldexp(0.5, step.lsb);
    }
    return std::ldexp(error, -resultLsb);
  }
  // What a unit that t lacks costs: the error lies between 0 and -r[i + 1] times it, and where
  // r[i + 1] has one sign, half of the range does.
  double argumentWeight(int i) const {
    const Bounds& range = shape.partial[static_cast<std::size_t>(i) + 1];
    const double all = magnitude(i + 1);
    const bool oneSign = range.low.sign() >= 0 || range.high.sign() <= 0;
    return oneSign ? all / 2 : all;
  }

  void addPrices(const HornerPlan& plan, int i, HornerPlan& into) const {
    const HornerStep& step = plan.steps[static_cast<std::size_t>(i)];
    const auto above = static_cast<std::size_t>(i) + 1;
    const Bounds& range = i + 1 == shape.degree ? shape.coefficient[above] : shape.partial[above];
    const int shift = lsbOf(plan, i + 1) - shape.lsb[above];
    const Bounds inUnits = shift >= 0 ? Bounds{range.low >> static_cast<unsigned long>(shift),
                                               range.high >> static_cast<unsigned long>(shift)}
                                      : Bounds{range.low << static_cast<unsigned long>(-shift),
                                               range.high << static_cast<unsigned long>(-shift)};
    const ProductShape product{argumentBits - step.argumentCut, bitsOf(inUnits), true,
                               inUnits.low.sign() < 0};
    const double left = leftOutShare(product, step.roomBits);
    const WholeProduct& whole = wholeProduct(product);
    const double inLogic = whole.inLogic * (1 - kSavedInLogic * left);
    const double withBlocks = whole.withBlocks * (whole.blocks > 2 ? 1 - left / 2 : 1);
    into.productLuts += std::min(inLogic, withBlocks);
    const double top = std::ilogb(magnitude(i)) + 1;
    into.adderLuts += std::max(0.0, top - step.lsb) + 1;
  }
  // The same few shapes come up again and again.
  const WholeProduct& wholeProduct(const ProductShape& product) const {
    const auto [known, isNew] =
        wholeProducts.try_emplace({product.x, product.y, product.xSigned, product.ySigned});
    if (isNew) {
      const ProductPlan whole = planProduct(product, prices.product);
      known->second = {priceOf(planProduct(product, logicOnly), logicOnly),
                       priceOf(whole, prices.product), whole.blocks};
    }
    return known->second;
  }
  // Of the product's partial products, those of a weight that the room covers.
  static double leftOutShare(const ProductShape& product, int roomBits) {
    const double columns = roomBits - std::log2(std::max(2, roomBits));
    const double all = static_cast<double>(product.x) * product.y;
    return columns <= 0 || all <= 0 ? 0 : std::min(0.5, columns * columns / 2 / all);
  }

  void measure(HornerPlan& plan) const {
    plan.error = errorOf(plan);
    plan.productLuts = plan.adderLuts = 0;
    for (int i = 0; i < shape.degree; ++i) addPrices(plan, i, plan);
  }

  bool improve(HornerPlan& best, double room) const {
    HornerPlan next = best;
    double bestGain = 0;
    const auto consider = [&](const HornerPlan& candidate) {
      HornerPlan tried = candidate;
      tried.error = errorOf(tried);
      if (tried.error > room) return;
      measure(tried);
      const double saved = best.price() - tried.price();
      if (saved <= 1e-9) return;
      const double gain = saved / std::max(1e-6, (tried.error - best.error) / room);
      if (gain > bestGain) bestGain = gain, next = tried;
    };
    for (int i = 0; i < shape.degree; ++i)
      for (int stride = 1; stride <= kMostStride; ++stride) {
        const auto at = static_cast<std::size_t>(i);
        for (const auto knob :
             {&HornerStep::argumentCut, &HornerStep::lsb, &HornerStep::roomBits}) {
          if (knob == &HornerStep::lsb && i == 0) continue;
          HornerPlan candidate = best;
          HornerStep& step = candidate.steps[at];
          step.*knob += stride;
          if (step.argumentCut >= argumentBits) continue;
          // The room of a product is counted in its own units.
          if (knob == &HornerStep::argumentCut) step.roomBits = std::max(0, step.roomBits - stride);
          if (knob == &HornerStep::lsb) {
            HornerStep& below = candidate.steps[at - 1];
            below.roomBits = std::max(0, below.roomBits - stride);
          }
          consider(candidate);
        }
      }
    if (bestGain == 0) return false;
    best = std::move(next);
    return true;
  }

  double tablePart() const {
    int width = 0;
    for (const Bounds& range : shape.coefficient) width += bitsOf(range);
    double luts = tablePrice(shape.segmentation->rows(), width, prices.table);
    // Rows of hierarchical segments are looked up, and t is picked.
    const auto& segmentation = *shape.segmentation;
    if (!segmentation.isUniform())
      luts += 2 * segmentation.rowBits() + segmentation.deepest() +
              argumentBits * (segmentation.deepest() - segmentation.shallowest() > 0 ? 0.5 : 0);
    return luts;
  }

  const PolynomialShape& shape;
  const int resultLsb;
  const EvaluationPrices& prices;
  ProductPrices logicOnly;
  mutable std::map<std::tuple<int, int, bool, bool>, WholeProduct> wholeProducts;
  int argumentBits = 0, logHalf = 0;
};

}  // namespace

int bitsOf(const Bounds& range) {
  const int high = static_cast<int>(range.high.bitLength());
  if (range.low.sign() >= 0) return std::max(1, high);
  const int low = static_cast<int>((-range.low - util::MPZ(1)).bitLength());
  return std::max(low, range.high.sign() < 0 ? 0 : high) + 1;
}

std::optional<HornerPlan> planHorner(const PolynomialShape& shape, int resultLsb,
                                     const EvaluationPrices& prices) {
  return Planner(shape, resultLsb, prices).plan();
}

}  // namespace arithmetic
