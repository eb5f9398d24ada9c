#include "backend/approximation/piecewise_polynomial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "backend/approximation/sample_functions.h"
#include "backend/approximation/sollya.h"

namespace approximation {
namespace {

using util::MPZ;

Function parsed(const std::string& text) { return *Function::parse(text); }

std::vector<int> gridsFor(int width, int degree, int rowBits, int guard) {
  std::vector<int> lsb;
  for (int j = 0; j <= degree; ++j) lsb.push_back(-width - guard + j * (rowBits + 1));
  return lsb;
}

// p(X) - f(X) in units of 2^-fraction, both rounded.
MPZ sampledError(const SampleFunction& sample, const PiecewisePolynomial& p, std::size_t row,
                 const Segmentation::Segment& segment, const MPZ& x, int fraction) {
  const MPZ t = x - segment.span(p.argument).centreNumerator;
  MPZ value, power = 1;
  for (std::size_t j = 0; j < p.lsb.size(); ++j) {
    const long shift = fraction + p.lsb[j] + static_cast<long>(j) * p.argument.lsb;
    const MPZ term = p.rows[row][j] * power;
    value += shift >= 0 ? term << static_cast<unsigned long>(shift)
                        : term >> static_cast<unsigned long>(-shift);
    power *= t;
  }
  return value - sampleValue(sample, x, p.argument.lsb, fraction);
}

// Every segment, all arguments up to 16 bits and many beyond: the proven bound holds, and is hardly
// above the greatest error that was seen.
void checkBound(const SampleFunction& sample, int width, int degree, int rowBits) {
  SCOPED_TRACE(std::string(sample.text) + " " + std::to_string(width) + " bits, degree " +
               std::to_string(degree) + ", 2^" + std::to_string(rowBits) + " rows");
  const ArgumentFormat argument{width, -width};
  const Function f = parsed(sample.text);
  LocalModels models(f, argument, logToleranceFor(-width, 4.0));
  const auto p = fitPiecewise(f, argument, Segmentation::uniform(width, rowBits),
                              gridsFor(width, degree, rowBits, 4), -width, 4.0, models);
  ASSERT_TRUE(p);
  const int fraction = p->errorFraction + 8;
  MPZ low, high;
  const auto segments = p->segmentation.segments();
  for (std::size_t row = 0; row < segments.size(); ++row) {
    const int logStep = std::max(0, segments[row].logSize - std::max(4, 12 - rowBits));
    const MPZ step = MPZ::powerOfTwo(static_cast<unsigned long>(logStep));
    const MPZ end =
        segments[row].first + MPZ::powerOfTwo(static_cast<unsigned long>(segments[row].logSize));
    for (MPZ x = segments[row].first; x < end; x += step) {
      const MPZ error = sampledError(sample, *p, row, segments[row], x, fraction);
      low = std::min(low, error), high = std::max(high, error);
    }
  }
  const MPZ rounding = 16;  // of the terms that were summed up
  EXPECT_LE((p->error.low << 8), low + rounding);
  EXPECT_GE((p->error.high << 8), high - rounding);
  const double seen = std::ldexp(mpz_get_d(std::max(-low, high).get()), -fraction + width);
  // The last argument of a segment stands a unit before its end.
  EXPECT_LE(p->errorIn(-width), seen * 1.05 + 0.01 + std::ldexp(1.0, -width)) << seen;
}

TEST(PiecewisePolynomial, BoundsHoldAndAreTight) {
  for (const SampleFunction& sample : kSampleFunctions) {
    checkBound(sample, 12, 1, 4);
    checkBound(sample, 16, 2, 4);
    checkBound(sample, 24, 2, 7);
    checkBound(sample, 24, 3, 4);
    checkBound(sample, 53, 5, 8);
  }
}

TEST(PiecewisePolynomial, AgreesWithSupnormAndFpminimax) {
  constexpr const char* kFunctions[][2] = {{"log2(1 + x)", "log2(1 + {} + x)"},
                                           {"sqrt(1 + x)", "sqrt(1 + {} + x)"},
                                           {"1 / (1 + x)", "1 / (1 + {} + x)"}};
  for (const auto& [text, moved] : kFunctions)
    for (const auto& [width, degree, rowBits] :
         {std::tuple{12, 1, 3}, {24, 2, 6}, {32, 4, 4}, {53, 6, 5}}) {
      SCOPED_TRACE(std::string(text) + " " + std::to_string(width));
      const Segmentation segmentation = Segmentation::uniform(width, rowBits);
      const std::vector<int> lsb = gridsFor(width, degree, rowBits, 3);
      const auto segments = segmentation.segments();
      for (const std::size_t row : {std::size_t{0}, segments.size() - 1}) {
        const Span span = segments[row].span({width, -width});
        const auto model = localModel(parsed(text), span, 0, -width - 8);
        ASSERT_TRUE(model);
        const std::vector<MPZ> c = fitOnGrid(*model, span, lsb);
        const auto magnitude = [&](const std::vector<MPZ>& coefficients) {
          const Bounds error = approximationError(*model, span, coefficients, lsb);
          return std::ldexp(mpz_get_d(error.magnitude().get()), -model->fraction);
        };
        const sollya::Domain domain{-1, 1, span.logHalf};
        std::string shifted = moved;
        shifted.replace(shifted.find("{}"), 2,
                        span.centreNumerator.toText(10) + " * 2^(" + std::to_string(-width) + ")");
        const auto norm = sollya::supnorm(shifted, domain, c, lsb);
        ASSERT_TRUE(norm) << norm.failure().message;
        const double resolution = std::ldexp(1.0, -width - 8);
        EXPECT_LE(mpfr_get_d(norm->low(), MPFR_RNDD), magnitude(c));
        EXPECT_GE(mpfr_get_d(norm->high(), MPFR_RNDU) * 1.02 + resolution, magnitude(c));
        const auto best = sollya::fpminimax(shifted, domain, lsb);
        ASSERT_TRUE(best) << best.failure().message;
        // Within a quarter of the lowest coefficient's unit of the lattice's best.
        EXPECT_LE(magnitude(c), magnitude(*best) * 1.1 + std::ldexp(0.25, lsb[0]) + resolution);
      }
    }
}

TEST(PiecewisePolynomial, BoundsOfKnownPolynomials) {
  // Chebyshev's polynomial of degree 5 lies between -1 and 1.
  const std::vector<MPZ> chebyshev{0, 5000, 0, -20000, 0, 16000};
  const Bounds bounds = polynomialBounds(chebyshev);
  EXPECT_GE(bounds.high, MPZ(1000));
  EXPECT_LE(bounds.high, MPZ(1010));
  EXPECT_LE(bounds.low, MPZ(-1000));
  EXPECT_GE(bounds.low, MPZ(-1010));
  EXPECT_EQ(polynomialBounds(std::vector<MPZ>{-7}), (Bounds{-7, -7}));
  // 100 s^2 + 3, whose least value is inside.
  const Bounds square = polynomialBounds(std::vector<MPZ>{3, 0, 100});
  EXPECT_EQ(square.high, MPZ(103));
  EXPECT_LE(square.low, MPZ(3));
  EXPECT_GE(square.low, MPZ(1));
}

TEST(Segmentation, RowsOfBlocksAreAligned) {
  const Segmentation split{10, 2, {0, 3, 1, 3}};
  EXPECT_EQ(split.rows(), 19u);
  EXPECT_EQ(split.rowBits(), 5);
  EXPECT_EQ(split.firstRows(), (std::vector<std::size_t>{18, 0, 16, 8}));
  EXPECT_EQ(split.widestSegment(), 8);
  const auto segments = split.segments();
  ASSERT_EQ(segments.size(), 19u);
  EXPECT_EQ(segments[0].first, MPZ(256));  // the first of block 1
  EXPECT_EQ(segments[0].logSize, 5);
  EXPECT_EQ(segments[17].first, MPZ(512 + 128));
  EXPECT_EQ(segments[18].first, MPZ(0));
  EXPECT_EQ(segments[18].logSize, 8);
}

TEST(PolynomialSearch, SplitsWhereTheFunctionIsHard) {
  // Near 0 the root is steep.
  const Function f = parsed("sqrt(x + 0.001)");
  const auto rowsOnly = [](const PolynomialShape& shape) {
    return shape.left <= 0.1 ? std::numeric_limits<double>::infinity()
                             : static_cast<double>(shape.segmentation->rows()) * shape.degree;
  };
  PolynomialTarget target{{16, -16}, -14, 0.4};
  const auto split = searchPolynomial(f, target, rowsOnly);
  target.hierarchical = false;
  const auto uniform = searchPolynomial(f, target, rowsOnly);
  ASSERT_TRUE(split && uniform);
  EXPECT_FALSE(split->segmentation.isUniform());
  EXPECT_TRUE(uniform->segmentation.isUniform());
  EXPECT_LT(split->segmentation.rows() * 2, uniform->segmentation.rows());
  for (const auto* p : {&*split, &*uniform}) EXPECT_LE(p->errorIn(-14), 0.4);
  target.mostRowBits = 1;
  target.mostDegree = 1;
  const auto none = searchPolynomial(f, target, rowsOnly);
  ASSERT_FALSE(none);
  EXPECT_NE(none.failure().message.find("2^1 segments"), std::string::npos);
}

}  // namespace
}  // namespace approximation
