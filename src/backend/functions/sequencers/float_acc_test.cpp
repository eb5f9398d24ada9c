#include "backend/functions/sequencers/float_acc.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

struct Window {
  int wE, wF;
  long lsbA, msbA, maxMSBX;
};

int copied(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_set(r, in[0].get(), direction);
}

// One long accumulator as a circuit with its valid bit, beside an exact sum.
class LongAccumulator {
 public:
  LongAccumulator(const Window& window, bool subnormals, RoundMode mode, Accuracy accuracy)
      : port{ieee(window.wE, window.wF), subnormals, subnormals},
        window(window),
        mode(mode),
        request(requestFor(port, window, mode, accuracy)),
        circuit("CFloatAcc", request, /*hasValid=*/true) {}

  // One cycle; false when a valid one differs from the exact sum.
  bool step(bool valid, const MPZ& x, bool restarts) {
    const std::vector<MPZ> got = circuit(std::vector<MPZ>{MPZ(valid), x, MPZ(restarts)});
    circuit.clock();
    if (!valid) return true;
    const Real value = decode(x, port);
    const bool tooLarge = mpfr_nan_p(value.get()) || isAtLeast(value, window.maxMSBX + 1);
    const bool tooSmall = mpfr_regular_p(value.get()) && !isAtLeast(value, window.lsbA);
    MPZ term = 0;
    if (!tooLarge && mpfr_regular_p(value.get())) {
      Real scaled = value;
      mpfr_mul_2si(scaled.get(), scaled.get(), -window.lsbA, MPFR_RNDZ);
      mpfr_get_z(term.get(), scaled.get(), MPFR_RNDZ);
    }
    if (restarts) sum = 0, hasLeft = false;
    sum += term;
    const MPZ limit = MPZ::powerOfTwo(static_cast<unsigned long>(window.msbA - window.lsbA));
    hasLeft = hasLeft || sum >= limit || sum < MPZ(0) - limit;
    bool right = got[1] == MPZ(tooLarge) && got[2] == MPZ(tooSmall) && got[3] == MPZ(hasLeft);
    if (!hasLeft) {
      const auto accepted = acceptedSums();
      right = right && std::ranges::find(accepted, got[0]) != accepted.end();
    }
    EXPECT_TRUE(right) << "x " << x.toText(2) << " restarts " << restarts << ": sum "
                       << sum.toText(10) << " of 2^" << window.lsbA << " gives " << got[0].toText(2)
                       << ", xo xu ao " << got[1].toText(2) << got[2].toText(2) << got[3].toText(2);
    return checkReference(value, restarts, tooLarge, tooSmall) && right;
  }

  const Port port;

 private:
  static Request requestFor(const Port& port, const Window& window, RoundMode mode,
                            Accuracy accuracy) {
    const FixedPoint bit{1, 0, false};
    Request request;
    request.signature = {{port.format, bit},
                         {port.format, bit, bit, bit},
                         {{window.lsbA, window.msbA, window.maxMSBX}}};
    request.accuracy.assign(4, accuracy);
    request.rounding.fixed = mode;
    request.subnormals = request.quietNaN = port.subnormals;
    return request;
  }
  static bool isAtLeast(const Real& value, long exponent) {
    Real power(2);
    mpfr_set_ui_2exp(power.get(), 1, exponent, MPFR_RNDN);
    return mpfr_cmpabs(value.get(), power.get()) >= 0;
  }

  std::vector<MPZ> acceptedSums() const {
    std::vector<Real> exact{Real(std::max<long>(2, window.msbA - window.lsbA + 2))};
    mpfr_set_z_2exp(exact[0].get(), sum.get(), window.lsbA, MPFR_RNDN);
    if (sum.isZero()) return {MPZ(0)};
    const Truth truth(copied, exact, port);
    if (request.accuracy[0].kind == Accuracy::kWithin) return truth.within(1);
    return {encode(truth.inMode(mode).get(), port)};
  }

  // Knows a sum of one term only.
  bool checkReference(const Real& value, bool restarts, bool tooLarge, bool tooSmall) {
    std::vector<NumValue> inputs(2), results;
    inputs[0].real = value;
    inputs[1].real = Real(2);
    mpfr_set_ui(inputs[1].real.get(), restarts, MPFR_RNDN);
    const unsigned precision = static_cast<unsigned>(port.precision());
    circuit.row.evaluate(request.signature, results, inputs, {precision, 64, 64, 64},
                         std::vector<mpfr_rnd_t>(4, directionOf(mode)), port.subnormals);
    const auto isValue = [&](int k) { return results[k].type == NumType::kValue; };
    const bool known = restarts && !tooLarge;
    bool right = isValue(1) && isValue(2) && isValue(3) == known &&
                 isValue(0) == (known && !hasLeft) &&
                 mpfr_cmp_ui(results[1].real.get(), tooLarge) == 0 &&
                 mpfr_cmp_ui(results[2].real.get(), tooSmall) == 0 &&
                 (!known || mpfr_cmp_ui(results[3].real.get(), hasLeft) == 0);
    if (known && !hasLeft) {
      const auto accepted = acceptedSums();
      right = right &&
              std::ranges::find(accepted, encode(results[0].real.get(), port)) != accepted.end();
    }
    EXPECT_TRUE(right) << "reference of " << mpfr_get_d(value.get(), MPFR_RNDN) << " restarts "
                       << restarts;
    return right;
  }

  Window window;
  RoundMode mode;
  MPZ sum = 0;
  bool hasLeft = false;
  Request request;
  UnitCircuit circuit;
};

std::vector<Precision> precisions() {
  return {kPrecisions[0], kPrecisions[1], kPrecisions[2], kPrecisions[3], kPrecisions[5]};
}

// Windows inside the format's range, across its ends, of one bit, far below it.
TEST(FloatAcc, AllTermsOfSmallFormatsAsSumsOfTwo) {
  constexpr Window kWindows[] = {{3, 2, -4, 2, 1}, {3, 2, -6, 6, 5},    {2, 1, -1, 0, -1},
                                 {2, 1, -3, 9, 2}, {3, 1, -9, -3, -4},  {3, 2, 0, 3, 3},
                                 {2, 2, 1, 12, 1}, {3, 2, -20, -2, -19}};
  for (const Window& window : kWindows)
    for (const bool subnormals : {false, true})
      for (const Precision& precision : precisions()) {
        LongAccumulator unit(window, subnormals, precision.mode, precision.accuracy);
        const auto patterns = allPatterns(unit.port.format);
        for (const MPZ& x : patterns)
          for (const MPZ& y : patterns)
            if (!unit.step(true, x, true) || !unit.step(true, y, false))
              FAIL() << "window " << window.lsbA << " " << window.msbA << " " << window.maxMSBX;
      }
}

// Long sums, with carries that run through many digits, sums that leave the range, restarts and
// cycles that do not count.
TEST(FloatAcc, LongSequencesAgainstExactSums) {
  unsigned seed = 1;
  constexpr Window kWindows[] = {{5, 10, -24, 20, 15},  {8, 23, -20, 10, 8},
                                 {8, 23, -30, 40, 20},  {8, 23, -149, 140, 127},
                                 {11, 52, -60, 60, 20}, {11, 52, -1080, -1000, -1010},
                                 {15, 112, -120, 7, 3}};
  for (const Window& window : kWindows)
    for (const bool subnormals : {false, true})
      for (const Precision& precision : precisions()) {
        LongAccumulator unit(window, subnormals, precision.mode, precision.accuracy);
        Draws draws(seed++);
        const long bias = (1L << (window.wE - 1)) - 1;
        const long low = std::max(0L, window.lsbA - 2 + bias);
        const long high = std::min((1L << window.wE) - 1, window.maxMSBX + bias);
        int sign = 0;
        for (int i = 0; i < 2500; ++i) {
          // Runs of one sign, so that sums grow, cross zero and leave the range.
          if (draws.below(50) == 0) sign = draws.below(3);
          const long exponent = draws.below(3) == 0
                                    ? high - draws.below(3)
                                    : low + draws.below(static_cast<int>(high - low + 2));
          const MPZ field = MPZ(std::clamp(exponent, 0L, (1L << window.wE) - 1));
          const MPZ x =
              (((MPZ(sign < 2 ? sign : draws.below(2)) << window.wE) | field) << window.wF) |
              (draws.below(4) == 0 ? MPZ::allOnes(window.wF) : draws.bits(window.wF));
          if (!unit.step(draws.below(4) != 0, x, draws.below(200) == 0))
            FAIL() << "window " << window.lsbA << " " << window.msbA << ", step " << i;
        }
      }
}

}  // namespace
}  // namespace functions::testing
