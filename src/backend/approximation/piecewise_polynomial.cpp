#include "backend/approximation/piecewise_polynomial.h"

#include <algorithm>
#include <cmath>

#include "util/long_run.h"

namespace approximation {

using util::MPZ;

namespace {

// Bits that a model resolves below the room.
constexpr int kToleranceBits = 8;

// Bounds of the partial polynomial from power `first` up, in units of 2^lsb[first], rounded
// outward.
Bounds partialBounds(std::span<const MPZ> c, std::span<const int> lsb, std::size_t first,
                     int logHalf) {
  if (first + 1 == c.size()) return {c[first], c[first]};
  // The finest of the terms' units; all terms are whole in it.
  long finest = lsb[first];
  for (std::size_t j = first; j < c.size(); ++j)
    finest = std::min(finest, lsb[j] + static_cast<long>(j - first) * logHalf);
  std::vector<MPZ> d;
  for (std::size_t j = first; j < c.size(); ++j)
    d.push_back(c[j] << static_cast<unsigned long>(lsb[j] + static_cast<long>(j - first) * logHalf -
                                                   finest));
  const Bounds fine = polynomialBounds(d);
  const auto shift = static_cast<unsigned long>(lsb[first] - finest);
  return {fine.low >> shift, -(-fine.high >> shift)};
}

void widen(Bounds& bounds, const Bounds& more, bool isFirst) {
  bounds.low = isFirst ? more.low : std::min(bounds.low, more.low);
  bounds.high = isFirst ? more.high : std::max(bounds.high, more.high);
}

}  // namespace

double PiecewisePolynomial::errorIn(int unit) const {
  long exponent = 0;
  const MPZ magnitude = error.magnitude();
  const double mantissa = mpz_get_d_2exp(&exponent, magnitude.get());
  return std::ldexp(std::nextafter(mantissa, 2.0),
                    static_cast<int>(exponent) - errorFraction - unit);
}

PolynomialShape shapeOf(const PiecewisePolynomial& p, double left) {
  return {p.degree(), p.argument, &p.segmentation, p.lsb, p.coefficient, p.partial, left};
}

const std::optional<LocalModel>& LocalModels::of(const Segmentation::Segment& segment) {
  const auto [found, isNew] = models.try_emplace({segment.logSize, segment.first});
  std::optional<LocalModel>& model = found->second;
  if (isNew) {
    model = localModel(f, segment.span(argument), 0, logTolerance, lastDegree + 2);
    if (model) lastDegree = static_cast<int>(model->a.size()) - 1;
  }
  return model;
}

int logToleranceFor(int unit, double room) { return unit + std::ilogb(room) - kToleranceBits; }

std::optional<PiecewisePolynomial> fitPiecewise(const Function& f, const ArgumentFormat& argument,
                                                const Segmentation& segmentation,
                                                const std::vector<int>& lsb, int unit, double room,
                                                LocalModels& models) {
  PiecewisePolynomial result;
  result.argument = argument, result.segmentation = segmentation, result.lsb = lsb;
  bool isFirst = true;
  result.coefficient.resize(lsb.size());
  result.partial.resize(lsb.size());
  util::LongRun run("Segments of " + f.text());
  for (const Segmentation::Segment& segment : segmentation.segments()) {
    run.show(result.rows.size(), segmentation.rows());
    const Span span = segment.span(argument);
    const std::optional<LocalModel>& model = models.of(segment);
    if (!model) return std::nullopt;
    result.errorFraction = model->fraction;
    std::vector<MPZ> c = fitOnGrid(*model, span, lsb);
    widen(result.error, approximationError(*model, span, c, lsb), isFirst);
    if (result.errorIn(unit) > room) return std::nullopt;
    for (std::size_t j = 0; j < c.size(); ++j) {
      widen(result.coefficient[j], {c[j], c[j]}, isFirst);
      widen(result.partial[j], partialBounds(c, lsb, j, span.logHalf), isFirst);
    }
    result.rows.push_back(std::move(c));
    isFirst = false;
  }
  return result;
}

}  // namespace approximation
