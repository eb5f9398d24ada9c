#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>

#include "backend/approximation/piecewise_polynomial.h"

namespace approximation {

using util::MPZ;

namespace {

constexpr int kMostDegree = 8;
// Segments of one size whose errors stand for all of them; where an argument has several units,
// each of which may have a function of its own, their first and last ones as well.
constexpr int kSamples = 9;
constexpr int kMostSampledUnitBits = 6;
// Shares of the room, beside the approximation error, that rounding of coefficients may take.
constexpr double kCoefficientShares[] = {0.5, 0.25};
// Approximation errors of more than this share leave too little for all else.
constexpr double kMostApproximation = 0.8;
// More bits of rows than the least that a degree asks for.
constexpr int kMoreRowBits = 2;
constexpr int kMostBlockBits = 5;
constexpr int kMostFits = 6;
// Coefficients err less than estimates have it, which leaves more room for cheaper steps.
constexpr double kEstimateExceeds = 1.05;
// A fit of so many rows more ends the search, if there is one.
constexpr std::size_t kMostFittedRows = 6000;

// A segment's best errors by degree, in units of the target, and its coefficients, in units of 1.
struct Estimate {
  bool isSmooth = false;
  std::array<double, kMostDegree + 1> error{};
  std::array<double, kMostDegree + 1> coefficient{};
};

struct Candidate {
  Segmentation segmentation;
  std::vector<int> lsb;
  double price = 0;
};

class Search {
 public:
  Search(const Function& f, const PolynomialTarget& target, const PolynomialCost& cost)
      : f(f),
        target(target),
        cost(cost),
        models(f, target.argument, logToleranceFor(target.lsb, target.room)) {}

  util::Result<PiecewisePolynomial> run() {
    const int mostBits = std::min(target.mostRowBits, target.argument.bits - 1);
    std::array<int, kMostDegree + 1> least;
    least.fill(-1);
    for (int bits = 0; bits <= mostBits; ++bits) {
      const std::vector<double> errors = sampledErrors(bits);
      for (int degree = 1; degree <= mostDegree(); ++degree) {
        if (errors[static_cast<std::size_t>(degree)] > kMostApproximation * target.room) continue;
        int& first = least[static_cast<std::size_t>(degree)];
        if (first < 0) first = bits;
        if (bits > first + kMoreRowBits) continue;
        consider(Segmentation::uniform(target.argument.bits, bits), degree,
                 errors[static_cast<std::size_t>(degree)]);
        if (target.hierarchical && bits > 1) considerSplits(bits, degree);
      }
    }
    return cheapestFit();
  }

 private:
  int mostDegree() const { return std::min(target.mostDegree, kMostDegree); }

  // Of segment `index` among 2^bits equal ones.
  const Estimate& estimate(int bits, std::size_t index) {
    const auto [entry, isNew] = estimates.try_emplace({bits, index});
    Estimate& result = entry->second;
    if (!isNew) return result;
    const int logSize = target.argument.bits - bits;
    const Segmentation::Segment segment{
        MPZ(static_cast<unsigned long>(index)) << static_cast<unsigned long>(logSize), logSize};
    const std::optional<LocalModel>& model = models.of(segment);
    if (!model) return result;
    const int logHalf = segment.span(target.argument).logHalf;
    result.isSmooth = true;
    for (int degree = 0; degree <= mostDegree(); ++degree) {
      const auto at = static_cast<std::size_t>(degree);
      result.error[at] = std::ldexp(minimaxError(*model, degree), -target.lsb);
      if (at >= model->a.size()) continue;
      long exponent = 0;
      const double mantissa = mpz_get_d_2exp(&exponent, model->a[at].get());
      result.coefficient[at] =
          std::ldexp(mantissa, static_cast<int>(exponent) - model->fraction - degree * logHalf);
    }
    return result;
  }

  std::vector<std::size_t> samples(std::size_t count) const {
    std::vector<std::size_t> result;
    const int unitBits = target.argument.bits + target.argument.lsb;
    if (unitBits > 0 && unitBits <= kMostSampledUnitBits)
      for (std::size_t last = 0, inUnit = count >> unitBits; inUnit > 0 && last < count;) {
        result.push_back(last);
        last += inUnit;
        result.push_back(last - 1);
      }
    const std::size_t most = std::min<std::size_t>(kSamples, count);
    for (std::size_t i = 0; i < most; ++i)
      result.push_back(most == 1 ? 0 : i * (count - 1) / (most - 1));
    return result;
  }

  std::vector<double> sampledErrors(int bits) {
    std::vector<double> worst(kMostDegree + 1, 0.0);
    for (const std::size_t index : samples(std::size_t{1} << bits)) {
      const Estimate& sample = estimate(bits, index);
      for (std::size_t degree = 0; degree < worst.size(); ++degree)
        worst[degree] =
            std::max(worst[degree], sample.isSmooth ? sample.error[degree]
                                                    : std::numeric_limits<double>::infinity());
      if (!sample.isSmooth) break;
    }
    return worst;
  }

  // Segments of 2^-bits of the range where f is hardest, larger ones elsewhere.
  void considerSplits(int bits, int degree) {
    const double limit = kMostApproximation * target.room;
    for (int top = 1; top <= std::min(kMostBlockBits, bits); ++top) {
      Segmentation split{target.argument.bits, top, {}};
      double worst = 0;
      for (std::size_t block = 0; block < std::size_t{1} << top; ++block) {
        int depth = 0;
        for (; depth <= bits - top; ++depth) {
          const double error = blockError(top, block, depth, degree);
          if (error > limit) continue;
          worst = std::max(worst, error);
          break;
        }
        if (depth > bits - top) return;
        split.splits.push_back(depth);
      }
      // Selecting costs something: fewer rows by an eighth at least.
      if (split.isUniform() || split.rows() * 8 > (std::size_t{7} << bits)) continue;
      consider(split, degree, worst);
    }
  }
  double blockError(int top, std::size_t block, int depth, int degree) {
    double worst = 0;
    const std::size_t count = std::size_t{1} << depth;
    for (const std::size_t index : {std::size_t{0}, count / 2, count - 1}) {
      const Estimate& sample = estimate(top + depth, block * count + index);
      if (!sample.isSmooth) return std::numeric_limits<double>::infinity();
      worst = std::max(worst, sample.error[static_cast<std::size_t>(degree)]);
    }
    return worst;
  }

  void consider(const Segmentation& segmentation, int degree, double error) {
    const double free = target.room - error;
    const int logHalf = segmentation.widestSegment() - 1 + target.argument.lsb;
    for (const double share : kCoefficientShares) {
      Candidate candidate{segmentation, {}, 0};
      for (int j = 0; j <= degree; ++j) {
        // Rounding c[j] moves the error by half a unit of |t|^j, of which lower powers take back
        // all but 1 / 2^(j - 1).
        const double allowed = free * share / (degree + 1) * std::ldexp(2.0, std::max(0, j - 1));
        candidate.lsb.push_back(std::ilogb(allowed) + target.lsb - j * logHalf);
      }
      candidate.price = cost(estimatedShape(candidate, degree, free * (1 - share)));
      if (std::isfinite(candidate.price)) candidates.push_back(std::move(candidate));
    }
  }

  PolynomialShape estimatedShape(const Candidate& candidate, int degree, double left) {
    PolynomialShape shape{degree, target.argument, &candidate.segmentation, candidate.lsb, {}, {},
                          left};
    const int bits = target.argument.bits - candidate.segmentation.widestSegment();
    for (int j = 0; j <= degree; ++j) {
      double low = std::numeric_limits<double>::infinity(), high = -low;
      for (const std::size_t index : samples(std::size_t{1} << bits)) {
        const double value = estimate(bits, index).coefficient[static_cast<std::size_t>(j)];
        low = std::min(low, value), high = std::max(high, value);
      }
      const auto inUnits = [&](double value) {
        MPZ result;
        mpz_set_d(result.get(), std::ldexp(value, -candidate.lsb[static_cast<std::size_t>(j)]));
        return result;
      };
      shape.coefficient.push_back({inUnits(low), inUnits(high)});
      shape.partial.push_back(shape.coefficient.back());
    }
    return shape;
  }

  util::Result<PiecewisePolynomial> cheapestFit() {
    std::ranges::stable_sort(candidates, {}, &Candidate::price);
    std::optional<PiecewisePolynomial> best;
    double lowest = std::numeric_limits<double>::infinity();
    int fits = 0;
    std::size_t fittedRows = 0;
    for (const Candidate& candidate : candidates) {
      if (candidate.price >= lowest * kEstimateExceeds) break;
      if (best && (fits >= kMostFits || fittedRows > kMostFittedRows)) break;
      auto fitted = fitPiecewise(f, target.argument, candidate.segmentation, candidate.lsb,
                                 target.lsb, target.room, models);
      ++fits;
      fittedRows += candidate.segmentation.rows();
      if (!fitted) continue;
      const double price = cost(shapeOf(*fitted, target.room - fitted->errorIn(target.lsb)));
      if (price < lowest) lowest = price, best = std::move(fitted);
    }
    if (!best)
      return util::Failure{"no piecewise polynomial of up to 2^" +
                           std::to_string(target.mostRowBits) + " segments for \"" + f.text() +
                           "\""};
    return std::move(*best);
  }

  const Function& f;
  const PolynomialTarget& target;
  const PolynomialCost& cost;
  LocalModels models;
  std::map<std::pair<int, std::size_t>, Estimate> estimates;
  std::vector<Candidate> candidates;
};

}  // namespace

util::Result<PiecewisePolynomial> searchPolynomial(const Function& f,
                                                   const PolynomialTarget& target,
                                                   const PolynomialCost& cost) {
  return Search(f, target, cost).run();
}

}  // namespace approximation
