#include "backend/functions/fixed_sine.h"

#include <optional>
#include <random>

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

enum { kBoth, kSine, kCosine };

// The values that a port of `fOut` places may show for a sine or cosine, as integers.
bool isAccepted(const MPZ& got, mpfr_srcptr exact, int fOut, const Accuracy& accuracy) {
  Real scaled(mpfr_get_prec(exact)), below(mpfr_get_prec(exact));
  mpfr_mul_2si(scaled.get(), exact, fOut, MPFR_RNDN);
  MPZ down, up, nearest;
  mpfr_get_z(down.get(), scaled.get(), MPFR_RNDD);
  mpfr_get_z(up.get(), scaled.get(), MPFR_RNDU);
  mpfr_round(below.get(), scaled.get());
  mpfr_get_z(nearest.get(), below.get(), MPFR_RNDZ);
  if (accuracy.kind != Accuracy::kWithin) return got == nearest;
  const MPZ slack = MPZ(static_cast<long>(accuracy.ulps) - 1);
  return down == up ? got == down : got >= down - slack && got <= up + slack;
}

// The angles of one port through the circuits of several bounds, and the reference.
class Bench {
 public:
  Bench(const FixedPoint& in, int fOut, int outputs, const std::vector<Accuracy>& accuracies)
      : in(in), fOut(fOut), outputs(outputs), accuracies(accuracies) {
    std::vector<Request> requests;
    for (const Accuracy& accuracy : accuracies) {
      requests.push_back(requestOf(accuracy));
      requests.back().budgets = &budgets;
    }
    circuit.emplace("DMFxPSinCosPiX", requests);
  }

  bool check(const MPZ& pattern) {
    const std::vector<MPZ> results = (*circuit)({pattern});
    const MPZ integer = integerOf(pattern, in);
    std::vector<NumValue> referred, input(1);
    mpfr_ptr a = input[0].real.prepare(in.width() + 1);
    mpfr_set_z_2exp(a, integer.get(), -in.fraction(), MPFR_RNDN);
    const std::size_t count = outputs == kBoth ? 2 : 1;
    circuit->row.evaluate(requestOf(kFaithful).signature, referred, input,
                          std::vector<unsigned>(count, 200),
                          std::vector<mpfr_rnd_t>(count, MPFR_RNDD), false);
    bool right = true;
    for (std::size_t k = 0; k < count; ++k) {
      Real exact(200);
      const bool isSine = outputs == kSine || (outputs == kBoth && k == 0);
      (isSine ? mpfr_sinpi : mpfr_cospi)(exact.get(), a, MPFR_RNDD);
      const bool isMinusZero =
          mpfr_zero_p(referred[k].real.get()) && mpfr_signbit(referred[k].real.get());
      if (!mpfr_equal_p(referred[k].real.get(), exact.get()) || isMinusZero) {
        ADD_FAILURE() << "reference of " << integer.toText(10);
        right = false;
      }
      for (std::size_t i = 0; i < accuracies.size(); ++i) {
        const MPZ got = results[i * count + k].asSigned(static_cast<unsigned long>(fOut + 2));
        if (isAccepted(got, exact.get(), fOut, accuracies[i])) continue;
        ADD_FAILURE() << in.width() << " " << in.fraction() << " " << in.sign() << " to " << fOut
                      << (isSine ? ": sine of " : ": cosine of ") << integer.toText(10)
                      << " within " << accuracies[i].ulps << " ulp is " << got.toText(10);
        right = false;
      }
    }
    return right;
  }

  void checkAll() {
    for (unsigned long i = 0; i < 1ul << in.width(); ++i) ASSERT_TRUE(check(MPZ(i)));
  }
  // Random angles, and those around multiples of 1/4.
  void checkDrawn(int draws) {
    std::mt19937 random(1);
    for (int i = 0; i < draws; ++i) {
      MPZ pattern;
      for (int low = 0; low < in.width(); low += 32)
        pattern = (pattern << 32) | MPZ(static_cast<unsigned long>(random() & 0xFFFFFFFFu));
      if (i % 2 == 0 && in.fraction() > 2) {
        const auto places = static_cast<unsigned long>(in.fraction() - 2);
        pattern = ((pattern >> places) << places) + MPZ(static_cast<long>(random() % 9) - 4);
      }
      ASSERT_TRUE(check(pattern.lowBits(static_cast<unsigned long>(in.width()))));
    }
  }

  arithmetic::ErrorBudgets budgets;

 private:
  Request requestOf(const Accuracy& accuracy) const {
    Request request;
    const FixedPoint out(fOut + 2, fOut, true);
    request.signature = {{in}, {out}, {{7, outputs}}};
    if (outputs == kBoth) request.signature.out.push_back(out);
    request.accuracy.assign(request.signature.out.size(), accuracy);
    return request;
  }

  FixedPoint in;
  int fOut, outputs;
  std::vector<Accuracy> accuracies;
  std::optional<UnitCircuit> circuit;
};

TEST(FixedSine, AllAnglesOfNarrowPorts) {
  for (const bool isSigned : {false, true})
    for (const auto& [width, fraction] :
         {std::pair{4, 2}, {1, 0}, {3, -2}, {3, 1}, {6, 6}, {5, 9}, {8, 5}, {2, 7}})
      for (const int fOut : {0, 1, 3, 7})
        Bench({width, fraction, isSigned}, fOut, kBoth, {kFaithful, kNearest, kTwo, kFive})
            .checkAll();
}

TEST(FixedSine, DrawnAnglesOfWidePorts) {
  Bench({16, 15, true}, 14, kBoth, {kFaithful, kNearest, kTwo}).checkDrawn(2000);
  Bench({12, 11, true}, 20, kSine, {kFaithful, kNearest}).checkAll();
  Bench({24, 20, false}, 24, kCosine, {kFaithful, kNearest, kFive}).checkDrawn(500);
  Bench({32, 31, true}, 30, kSine, {kFaithful, kNearest}).checkDrawn(300);
  Bench({70, 60, true}, 12, kBoth, {kFaithful, kNearest}).checkDrawn(300);
  Bench({53, 51, true}, 48, kSine, {kFaithful}).checkDrawn(200);
}

// Not among the tests for its time.
TEST(FixedSine, DISABLED_AllAndDrawnAnglesOfFurtherPorts) {
  for (const int fOut : {14, 7})
    Bench({16, 15, true}, fOut, kBoth, {kFaithful, kNearest}).checkAll();
  for (const auto& [width, fraction, fOut] :
       {std::tuple{32, 31, 30}, {48, 47, 46}, {64, 63, 62}, {64, 40, 30}})
    for (const bool isSigned : {false, true})
      Bench({width, fraction, isSigned}, fOut, kBoth, {kFaithful, kNearest, kFive})
          .checkDrawn(20000);
}

}  // namespace
}  // namespace functions
