#include "backend/approximation/local_model.h"

#include <algorithm>

namespace approximation {

using util::MPZ;

namespace {

// Orders at which a model is looked for; each try costs the square of it. Coefficients do not
// depend on the order.
constexpr int kOrders[] = {7, 14, 28, 56};

// Bits that intermediate results have below the tolerance.
constexpr int kGuardBits = 16;

// Centre and half-width are powers of two apart from the numerator, so a few bits more than the
// numbers need hold them exactly.
mpfr_prec_t precisionFor(const Span& span, int fraction) {
  const int integer =
      std::max(0, static_cast<int>(span.centreNumerator.bitLength()) + span.centreLsb);
  return std::max({fraction, -span.centreLsb, -span.logHalf, 24}) + integer + kGuardBits + 24;
}

Interval wholeSpan(const Span& span, mpfr_prec_t precision) {
  const Interval centre(span.centreNumerator, span.centreLsb, precision);
  const Interval half(MPZ(1), span.logHalf, precision);
  return hull(centre - half, centre + half);
}

// ceil(x / 2^shift), shift of either sign.
MPZ scaledUp(MPZ x, long shift) {
  if (shift <= 0) return std::move(x) << static_cast<unsigned long>(-shift);
  mpz_cdiv_q_2exp(x.get(), x.get(), static_cast<mp_bitcnt_t>(shift));
  return x;
}

MPZ magnitudeOf(const Interval& x, int fraction) {
  MPZ low = x.lowFixed(fraction), high = x.highFixed(fraction);
  if (low.sign() < 0) low = -low;
  if (high.sign() < 0) high = -high;
  return std::max(low, high);
}

}  // namespace

std::optional<LocalModel> localModel(const Function& f, const Span& span, int leastDegree,
                                     int logTolerance, int firstOrder) {
  LocalModel model;
  model.fraction = kGuardBits - logTolerance;
  const mpfr_prec_t precision = precisionFor(span, model.fraction);
  const MPZ tolerance = MPZ::powerOfTwo(kGuardBits - 1);
  std::vector<int> orders{firstOrder};
  std::ranges::copy_if(kOrders, std::back_inserter(orders), [&](int k) { return k > firstOrder; });
  for (const int order : orders) {
    if (order <= leastDegree) continue;
    const auto over = f.taylor(wholeSpan(span, precision), order);
    if (!over) return std::nullopt;
    int degree = leastDegree;
    MPZ remainder;
    for (; degree < order; ++degree) {
      // The remainder's coefficient times half-width^(degree + 1).
      const Interval& next = (*over)[static_cast<std::size_t>(degree) + 1];
      remainder = magnitudeOf(next, model.fraction + (degree + 1) * span.logHalf);
      if (remainder <= tolerance) break;
    }
    if (degree == order) continue;
    const auto about = f.taylor(Interval(span.centreNumerator, span.centreLsb, precision), degree);
    if (!about) return std::nullopt;
    model.radius = remainder;
    for (int j = 0; j <= degree; ++j) {
      const Interval& coefficient = (*about)[static_cast<std::size_t>(j)];
      const MPZ low = coefficient.lowFixed(model.fraction + j * span.logHalf);
      model.a.push_back(low);
      model.radius += coefficient.highFixed(model.fraction + j * span.logHalf) - low;
    }
    if (model.radius > MPZ::powerOfTwo(kGuardBits)) return std::nullopt;
    return model;
  }
  return std::nullopt;
}

MPZ Bounds::magnitude() const {
  MPZ below = low.sign() < 0 ? -low : low, above = high.sign() < 0 ? -high : high;
  return std::max(std::move(below), std::move(above));
}

namespace {

MPZ binomial(unsigned long n, unsigned long k) {
  MPZ result;
  mpz_bin_uiui(result.get(), n, k);
  return result;
}

// Bernstein coefficients times 2^scale.
struct Piece {
  std::vector<MPZ> b;
  int scale = 0;
};

// Of the sum of d[j] s^j on [-1, 1], times `factor`: b[i] = the sum over j of C(i, j) / C(n, j)
// e[j] for the polynomial sum of e[j] v^j on [0, 1], s = 2 v - 1; `factor` makes them whole.
Piece bernsteinForm(std::span<const MPZ> d, MPZ& factor) {
  const std::size_t n = d.size() - 1;
  std::vector<MPZ> e(d.size());
  for (std::size_t j = 0; j <= n; ++j)
    for (std::size_t k = 0; k <= j; ++k) {
      const MPZ term = (binomial(j, k) << k) * d[j];
      e[k] += (j - k) % 2 == 0 ? term : -term;
    }
  factor = 1;
  for (std::size_t j = 0; j <= n; ++j) mpz_lcm(factor.get(), factor.get(), binomial(n, j).get());
  Piece piece;
  for (std::size_t i = 0; i <= n; ++i) {
    MPZ sum;
    for (std::size_t j = 0; j <= i; ++j) {
      MPZ weight = factor * binomial(i, j);
      mpz_divexact(weight.get(), weight.get(), binomial(n, j).get());
      sum += weight * e[j];
    }
    piece.b.push_back(std::move(sum));
  }
  return piece;
}

// The halves of a piece, by de Casteljau's scheme; each level of it doubles the scale instead of
// halving sums.
std::pair<Piece, Piece> halved(const Piece& piece) {
  const std::size_t n = piece.b.size() - 1;
  std::vector<MPZ> row = piece.b;
  Piece left, right;
  left.b.resize(n + 1), right.b.resize(n + 1);
  left.scale = right.scale = piece.scale + static_cast<int>(n);
  for (std::size_t level = 0; level <= n; ++level) {
    left.b[level] = row[0] << (n - level);
    right.b[n - level] = row[n - level] << (n - level);
    for (std::size_t i = 0; i + level < n; ++i) row[i] += row[i + 1];
  }
  return {std::move(left), std::move(right)};
}

// The greatest value, exceeded by less than a 128th of `size` (which grows to the greatest
// magnitude seen); in the units of d, rounded up.
MPZ greatest(const Piece& whole, const MPZ& factor) {
  // Values are compared as ceil(x / 2^scale), in units of 1 / factor.
  const auto top = [](const Piece& p) { return scaledUp(*std::ranges::max_element(p.b), p.scale); };
  const auto ends = [](const Piece& p) {
    return scaledUp(std::max(p.b.front(), p.b.back()), p.scale);
  };
  MPZ size = 1, attained = ends(whole), bound;
  for (const MPZ& b : whole.b) {
    // Ends of the first piece only: the others are not attained.
    if (&b != &whole.b.front() && &b != &whole.b.back()) continue;
    size = std::max(size, b.sign() < 0 ? -b : b);
  }
  bool first = true;
  const auto settle = [&](const MPZ& value) {
    if (first || value > bound) bound = value;
    first = false;
  };
  constexpr int kDeepest = 40;
  std::vector<std::pair<Piece, int>> open{{whole, 0}};
  while (!open.empty()) {
    const auto [piece, depth] = std::move(open.back());
    open.pop_back();
    attained = std::max(attained, ends(piece));
    size = std::max(size, attained.sign() < 0 ? MPZ(1) : attained);
    const MPZ above = top(piece);
    if (depth == kDeepest || above <= attained + (size >> 7) + MPZ(1)) {
      settle(above);
      continue;
    }
    auto [left, right] = halved(piece);
    open.emplace_back(std::move(left), depth + 1);
    open.emplace_back(std::move(right), depth + 1);
  }
  mpz_cdiv_q(bound.get(), bound.get(), factor.get());
  return bound;
}

}  // namespace

Bounds polynomialBounds(std::span<const MPZ> d) {
  if (d.empty()) return {};
  MPZ factor;
  Piece piece = bernsteinForm(d, factor);
  Bounds bounds;
  bounds.high = greatest(piece, factor);
  for (MPZ& b : piece.b) b = -b;
  bounds.low = -greatest(piece, factor);
  return bounds;
}

Bounds approximationError(const LocalModel& model, const Span& span, std::span<const MPZ> c,
                          std::span<const int> lsb) {
  std::vector<MPZ> difference(std::max(model.a.size(), c.size()));
  for (std::size_t j = 0; j < model.a.size(); ++j) difference[j] = -model.a[j];
  MPZ radius = model.radius;
  for (std::size_t j = 0; j < c.size(); ++j) {
    const long shift = model.fraction + lsb[j] + static_cast<long>(j) * span.logHalf;
    if (shift >= 0) {
      difference[j] += c[j] << static_cast<unsigned long>(shift);
    } else {
      difference[j] += c[j] >> static_cast<unsigned long>(-shift);
      radius += 1;  // what the shift drops
    }
  }
  Bounds bounds = polynomialBounds(difference);
  bounds.low -= radius;
  bounds.high += radius;
  return bounds;
}

}  // namespace approximation
