#include "backend/functions/float_flags.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::FixedPoint;
using kiln::ieee;

int operate(bool multiplies, bool subtracts, mpfr_ptr r, const std::vector<Real>& in,
            mpfr_rnd_t direction) {
  if (multiplies) return mpfr_mul(r, in[0].get(), in[1].get(), direction);
  return subtracts ? mpfr_sub(r, in[0].get(), in[1].get(), direction)
                   : mpfr_add(r, in[0].get(), in[1].get(), direction);
}

constexpr mpfr_rnd_t kDirections[] = {MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
constexpr RoundMode kModes[] = {RoundMode::kNearestEven, RoundMode::kDown, RoundMode::kUp,
                                RoundMode::kTowardZero};

struct Owed {
  MPZ pattern, flags;
};

// A unit with flags against MPFR in the port's own exponent range.
class FlagBench {
 public:
  // `direction`: a number of kDirections, or -1 for a rounding port.
  FlagBench(bool multiplies, int wE, int wF, int direction, bool subnormals)
      : multiplies(multiplies), direction(direction), port{ieee(wE, wF), subnormals, subnormals} {
    request.signature.in.assign(2, port.format);
    if (!multiplies) request.signature.in.emplace_back(FixedPoint(1, 0, false));
    if (direction < 0) request.signature.in.emplace_back(FixedPoint(2, 0, false));
    request.signature.out = {port.format, FixedPoint(5, 0, false)};
    request.signature.variant.numbers = {wE, wF, 1, direction < 0 ? 1 : 0, subnormals ? 1 : 0};
    request.accuracy.resize(2);
    if (direction >= 0) request.rounding.fixed = kModes[direction];
    request.subnormals = request.quietNaN = subnormals;
    row = findUnit(multiplies ? "DMFPMult" : "DMFPALU");
    EXPECT_EQ(row->refuses(request).value_or(""), "");
    graph::Builder builder(circuit);
    std::vector<graph::Signal> inputs;
    for (const kiln::Type& type : request.signature.in)
      inputs.push_back(builder.input(fmt::format("i{}", inputs.size()), type.width()));
    const auto outputs = row->decompose(builder, request, inputs);
    builder.output("q", outputs[0]);
    builder.output("flags", outputs[1]);
    evaluator = std::make_unique<graph::Evaluator>(circuit);
  }

  const std::vector<kiln::Type>& in() const { return request.signature.in; }

  bool check(const std::vector<MPZ>& patterns) {
    std::vector<Real> values;
    stimulus.resize(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
      values.emplace_back(64);
      if (i < 2)
        values[i] = decode(patterns[i], port);
      else
        mpfr_set_z(values[i].get(), patterns[i].get(), MPFR_RNDN);
      stimulus[i].real = values[i];
    }
    const bool subtracts = !multiplies && patterns[2] != MPZ(0);
    const mpfr_rnd_t rounding =
        kDirections[direction < 0 ? patterns.back().toUint64() : static_cast<unsigned>(direction)];
    const Owed owed = expected(values, subtracts, rounding);
    const std::vector<MPZ> built = (*evaluator)(patterns);

    // A prescribed rounding does not follow the caller's.
    const mpfr_rnd_t asked = direction < 0 ? MPFR_RNDU : rounding;
    row->evaluate(request.signature, results, stimulus,
                  {static_cast<unsigned>(port.format.frac + 1), 5}, {asked, asked},
                  port.subnormals);
    const Owed referred{encode(results[0].real.get(), port),
                        MPZ(mpfr_get_ui(results[1].real.get(), MPFR_RNDN))};
    const bool right = built[0] == owed.pattern && built[1] == owed.flags &&
                       referred.pattern == owed.pattern && referred.flags == owed.flags;
    EXPECT_TRUE(right) << (multiplies  ? "mult"
                           : subtracts ? "subtract"
                                       : "add")
                       << " " << port.format.exp << " " << port.format.frac << " rounding "
                       << rounding << " subnormals " << port.subnormals << " x "
                       << patterns[0].toText(2) << " y " << patterns[1].toText(2) << ": owed "
                       << owed.pattern.toText(2) << " " << owed.flags.toText(2) << ", circuit "
                       << built[0].toText(2) << " " << built[1].toText(2) << ", reference "
                       << referred.pattern.toText(2) << " " << referred.flags.toText(2);
    return right;
  }

 private:
  Owed expected(const std::vector<Real>& values, bool subtracts, mpfr_rnd_t rounding) const {
    // Once with an unbounded exponent, once in the range of the port.
    Real unbounded(port.precision()), bounded(port.precision());
    operate(multiplies, subtracts, unbounded.get(), values, rounding);
    const mpfr_exp_t emin = mpfr_get_emin(), emax = mpfr_get_emax();
    mpfr_set_emin(port.lowestNormal() - (port.gradual() ? port.format.frac : 0));
    mpfr_set_emax(port.largest());
    mpfr_clear_flags();
    int ternary = operate(multiplies, subtracts, bounded.get(), values, rounding);
    const bool overflow = mpfr_overflow_p() != 0;
    if (port.gradual()) ternary = mpfr_subnormalize(bounded.get(), ternary, rounding);
    mpfr_set_emin(emin);
    mpfr_set_emax(emax);
    // A fixed rounding overflows to infinity in every direction.
    if (overflow && direction >= 0)
      mpfr_set_inf(bounded.get(), mpfr_signbit(unbounded.get()) ? -1 : 1);
    const bool tiny =
        mpfr_regular_p(unbounded.get()) && mpfr_get_exp(unbounded.get()) < port.lowestNormal();
    // Without subnormals all that is tiny is flushed.
    if (tiny && !port.gradual())
      mpfr_set_zero(bounded.get(), mpfr_signbit(unbounded.get()) ? -1 : 1);
    const bool isNan = mpfr_nan_p(bounded.get()) != 0;
    unsigned flags = overflow ? 16 : 0;
    if (tiny && (!port.gradual() || ternary != 0)) flags |= 8;
    if (isNan) flags |= 4;
    if (!isNan && mpfr_signbit(bounded.get())) flags |= 2;
    if (mpfr_zero_p(bounded.get())) flags |= 1;
    return {encode(bounded.get(), port), MPZ(static_cast<unsigned long>(flags))};
  }

  bool multiplies;
  int direction;
  Port port;
  Request request;
  const UnitRow* row;
  graph::Graph circuit;
  std::unique_ptr<graph::Evaluator> evaluator;
  std::vector<NumValue> stimulus, results;
};

// Every combination of patterns on all ports.
void checkAll(FlagBench& bench) {
  int bits = 0, wrong = 0;
  for (const kiln::Type& type : bench.in()) bits += type.width();
  for (unsigned long row = 0; row < 1ul << bits && wrong < 5; ++row) {
    std::vector<MPZ> patterns;
    unsigned long rest = row;
    for (const kiln::Type& type : bench.in()) {
      patterns.push_back(MPZ(rest).lowBits(static_cast<unsigned long>(type.width())));
      rest >>= type.width();
    }
    if (!bench.check(patterns)) ++wrong;
  }
}

TEST(FloatFlags, AllPairsInEveryRounding) {
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
      for (const bool subnormals : {false, true})
        for (int direction = -1; direction < 4; ++direction) {
          FlagBench bench(multiplies, wE, wF, direction, subnormals);
          checkAll(bench);
        }
}

TEST(FloatFlags, DrawnPairsOfLargeFormats) {
  unsigned seed = 1;
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}, {15, 112}})
      for (const bool subnormals : {false, true})
        for (const int direction : {-1, 0}) {
          FlagBench bench(multiplies, wE, wF, direction, subnormals);
          Draws draws(seed++);
          int wrong = 0;
          for (int i = 0; i < 4000 && wrong < 5; ++i)
            if (!bench.check(draws.row(bench.in()))) ++wrong;
        }
}

// Products and differences within a few units of the smallest normal number and of the largest
// finite one, where one rounding more or less decides the flags.
TEST(FloatFlags, ResultsBesideBothEndsOfTheRange) {
  unsigned seed = 100;
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{8, 23}, {11, 52}})
      for (const bool subnormals : {false, true}) {
        FlagBench bench(multiplies, wE, wF, -1, subnormals);
        const Port port{ieee(wE, wF), subnormals};
        Draws draws(seed++);
        int wrong = 0;
        for (int i = 0; i < 6000 && wrong < 5; ++i) {
          std::vector<MPZ> row = draws.row(bench.in());
          Real end(port.precision()), other(port.precision());
          mpfr_set_si_2exp(end.get(), 1, i % 2 ? port.lowestNormal() - 1 : port.largest(),
                           MPFR_RNDN);
          if (multiplies)
            mpfr_div(other.get(), end.get(), decode(row[0], port).get(), MPFR_RNDN);
          else
            mpfr_sub(other.get(), end.get(), decode(row[0], port).get(), MPFR_RNDN);
          const MPZ near = encode(other.get(), port) + MPZ(draws.below(5) - 2);
          if (near >= MPZ(0)) row[1] = near.lowBits(wE + wF + 1);
          if (!bench.check(row)) ++wrong;
        }
      }
}

}  // namespace
}  // namespace functions::testing
