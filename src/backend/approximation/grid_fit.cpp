#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "backend/approximation/local_model.h"

namespace approximation {

using util::MPZ;

namespace {

using Polynomial = std::vector<double>;  // coefficient of s^j

// Points of [-1, 1], denser toward its ends, as errors' peaks are.
constexpr int kGridSteps = 96;
const std::array<double, kGridSteps + 1> kGrid = [] {
  std::array<double, kGridSteps + 1> points{};
  for (int i = 0; i <= kGridSteps; ++i)
    points[static_cast<std::size_t>(i)] = -std::cos(std::numbers::pi * i / kGridSteps);
  return points;
}();

// Values on the grid.
using GridValues = std::array<double, kGridSteps + 1>;
GridValues valuesOf(const Polynomial& p) {
  GridValues values{};
  for (std::size_t j = p.size(); j-- > 0;)
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = values[i] * kGrid[i] + p[j];
  return values;
}

// Monomial coefficients of the Chebyshev polynomial of degree n.
Polynomial chebyshev(int n) {
  Polynomial before{1}, current{0, 1};
  if (n == 0) return before;
  for (int i = 1; i < n; ++i) {
    Polynomial next(current.size() + 1, 0.0);
    for (std::size_t j = 0; j < current.size(); ++j) next[j + 1] = 2 * current[j];
    for (std::size_t j = 0; j < before.size(); ++j) next[j] -= before[j];
    before = std::move(current), current = std::move(next);
  }
  return current;
}

// Solves rows x = right by elimination with pivots; few unknowns, well conditioned.
std::vector<double> solve(std::vector<std::vector<double>> rows) {
  const std::size_t n = rows.size();
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t pivot = i;
    for (std::size_t k = i + 1; k < n; ++k)
      if (std::abs(rows[k][i]) > std::abs(rows[pivot][i])) pivot = k;
    std::swap(rows[i], rows[pivot]);
    for (std::size_t k = i + 1; k < n; ++k) {
      const double factor = rows[k][i] / rows[i][i];
      for (std::size_t j = i; j <= n; ++j) rows[k][j] -= factor * rows[i][j];
    }
  }
  std::vector<double> x(n);
  for (std::size_t i = n; i-- > 0;) {
    double sum = rows[i][n];
    for (std::size_t j = i + 1; j < n; ++j) sum -= rows[i][j] * x[j];
    x[i] = sum / rows[i][i];
  }
  return x;
}

struct Minimax {
  Polynomial q;
  double error = 0;
};

// The polynomial of `degree` that is closest to r on [-1, 1] (Remez' second algorithm on a fixed
// grid of points; within a percent of the best one).
Minimax minimax(const Polynomial& r, int degree) {
  constexpr int kRounds = 8;
  struct Basis {
    Polynomial p;
    GridValues values;
  };
  static const std::vector<Basis> basis = [] {
    std::vector<Basis> result;
    for (int n = 0; n <= 12; ++n) result.push_back({chebyshev(n), valuesOf(chebyshev(n))});
    return result;
  }();
  const auto count = static_cast<std::size_t>(degree) + 2;
  const GridValues values = valuesOf(r);
  std::vector<std::size_t> reference(count);
  for (std::size_t i = 0; i < count; ++i)
    reference[i] = static_cast<std::size_t>(
        std::lround(static_cast<double>(i * kGridSteps) / static_cast<double>(count - 1)));
  Minimax best;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::vector<double>> rows;
    for (std::size_t i = 0; i < count; ++i) {
      std::vector<double> row;
      for (int n = 0; n <= degree; ++n)
        row.push_back(basis[static_cast<std::size_t>(n)].values[reference[i]]);
      row.push_back(i % 2 == 0 ? 1 : -1);
      row.push_back(values[reference[i]]);
      rows.push_back(std::move(row));
    }
    const std::vector<double> x = solve(std::move(rows));
    Minimax found;
    found.q.assign(static_cast<std::size_t>(degree) + 1, 0.0);
    for (std::size_t n = 0; n <= static_cast<std::size_t>(degree); ++n)
      for (std::size_t j = 0; j <= n; ++j) found.q[j] += x[n] * basis[n].p[j];
    // The greatest error in each run of one sign takes the place of the reference point there.
    GridValues error = valuesOf(found.q);
    for (std::size_t i = 0; i < error.size(); ++i) error[i] = values[i] - error[i];
    std::vector<std::size_t> peaks;
    for (std::size_t i = 0; i < kGrid.size(); ++i) {
      found.error = std::max(found.error, std::abs(error[i]));
      if (!peaks.empty() && std::signbit(error[peaks.back()]) == std::signbit(error[i])) {
        if (std::abs(error[i]) > std::abs(error[peaks.back()])) peaks.back() = i;
      } else {
        peaks.push_back(i);
      }
    }
    const bool improves = round == 0 || found.error < best.error;
    if (improves) best = found;
    if (found.error <= 1.01 * std::abs(x.back()) || peaks.size() < count) break;
    // Surplus peaks go from the end where the error is less.
    while (peaks.size() > count) {
      if (std::abs(error[peaks.front()]) < std::abs(error[peaks.back()]))
        peaks.erase(peaks.begin());
      else
        peaks.pop_back();
    }
    if (peaks == reference) break;
    reference = std::move(peaks);
  }
  return best;
}

double asDouble(const MPZ& x, long exponent) {
  long own = 0;
  const double mantissa = mpz_get_d_2exp(&own, x.get());
  return std::ldexp(mantissa, static_cast<int>(own + exponent));
}
MPZ rounded(double x) {
  MPZ result;
  mpz_set_d(result.get(), std::nearbyint(x));
  return result;
}

// round(x / 2^shift), ties upwards.
MPZ roundedShift(const MPZ& x, long shift) {
  if (shift <= 0) return x << static_cast<unsigned long>(-shift);
  return (x + MPZ::powerOfTwo(static_cast<unsigned long>(shift) - 1)) >>
         static_cast<unsigned long>(shift);
}
MPZ shifted(const MPZ& x, long shift) {
  return shift >= 0 ? x << static_cast<unsigned long>(shift) : roundedShift(x, -shift);
}

}  // namespace

double minimaxError(const LocalModel& model, int degree) {
  Polynomial rest(model.a.size(), 0.0);
  for (std::size_t j = static_cast<std::size_t>(degree) + 1; j < rest.size(); ++j)
    rest[j] = asDouble(model.a[j], 0);
  const double radius = asDouble(model.radius, 0);
  return std::ldexp(minimax(rest, degree).error + radius, -model.fraction);
}

namespace {

// Rounds coefficients from the highest one down, and fits the lower ones again after each.
class GridFit {
 public:
  GridFit(const LocalModel& model, const Span& span, std::span<const int> lsb)
      : model(model), span(span), lsb(lsb), c(lsb.size()), b(lsb.size()) {
    for (std::size_t j = 0; j < std::min(lsb.size(), model.a.size()); ++j)
      b[j] = model.a[j] << kExtra;
    rest.resize(std::max(model.a.size(), lsb.size()), 0.0);
    for (std::size_t j = lsb.size(); j < model.a.size(); ++j) rest[j] = asDouble(model.a[j], 0);
  }

  // Coefficients in `otherWay` are rounded to the farther neighbour. Returns the error, about.
  double run(unsigned otherWay) {
    for (std::size_t j = lsb.size(); j-- > 0;) {
      refit(static_cast<int>(j));
      const long shift = kExtra + model.fraction + lsb[j] + static_cast<long>(j) * span.logHalf;
      c[j] = roundedShift(b[j], shift);
      if (otherWay >> j & 1) c[j] += shifted(c[j], shift) > b[j] ? MPZ(-1) : MPZ(1);
      const MPZ onGrid = shifted(c[j], shift);
      rest[j] += asDouble(b[j] - onGrid, -kExtra);
      b[j] = onGrid;
    }
    double error = 0;
    for (const double value : valuesOf(rest)) error = std::max(error, std::abs(value));
    return error;
  }
  // Half a unit of the lowest coefficient.
  double leastRounding() const { return std::ldexp(0.5, model.fraction + lsb[0]); }
  const std::vector<MPZ>& coefficients() const { return c; }

 private:
  // Bits of working coefficients below the model's, so that rounding them is no error.
  static constexpr long kExtra = 24;

  void refit(int degree) {
    const Minimax closest = minimax(rest, degree);
    for (std::size_t j = 0; j < closest.q.size(); ++j) {
      const MPZ step = rounded(std::ldexp(closest.q[j], kExtra));
      b[j] += step;
      rest[j] -= asDouble(step, -kExtra);
    }
  }

  const LocalModel& model;
  const Span& span;
  const std::span<const int> lsb;
  std::vector<MPZ> c, b;  // on the grids; and so far, in 2^-kExtra of the model's units
  Polynomial rest;        // what the polynomial of b misses, in the model's units
};

}  // namespace

std::vector<MPZ> fitOnGrid(const LocalModel& model, const Span& span, std::span<const int> lsb) {
  GridFit first(model, span, lsb);
  double error = first.run(0);
  std::vector<MPZ> best = first.coefficients();
  const double least =
      std::ldexp(minimaxError(model, static_cast<int>(lsb.size()) - 1), model.fraction) +
      first.leastRounding();
  // Where the grids are coarse a farther neighbour of one or two may fit the others better.
  unsigned chosen = 0;
  for (int round = 0; round < 2 && error > 1.1 * least; ++round) {
    unsigned better = chosen;
    for (std::size_t j = 1; j < lsb.size(); ++j) {
      GridFit fit(model, span, lsb);
      const unsigned tried = chosen ^ (1u << j);
      if (const double found = fit.run(tried); found < error)
        error = found, better = tried, best = fit.coefficients();
    }
    if (better == chosen) break;
    chosen = better;
  }
  return best;
}

}  // namespace approximation
