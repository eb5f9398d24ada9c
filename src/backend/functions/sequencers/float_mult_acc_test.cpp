#include "backend/functions/sequencers/float_mult_acc.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

// One accumulator as a circuit with its valid bit, beside a running result in MPFR.
class Accumulator {
 public:
  Accumulator(int wE, int wF, bool sum, RoundMode mode, bool subnormals)
      : port{ieee(wE, wF), subnormals, subnormals},
        sums(sum),
        mode(mode),
        last(port.precision()),
        request(requestFor(port, sum, mode)),
        circuit("CFloatMultAcc", request, /*hasValid=*/true) {}

  // One cycle; false when a valid one gives another pattern than MPFR.
  bool step(bool valid, bool continues, const MPZ& a, const MPZ& b) {
    std::vector<MPZ> row{MPZ(valid), MPZ(continues), a, b};
    if (sums) row.pop_back();
    const MPZ got = circuit(row)[0];
    circuit.clock();
    if (!valid) return true;
    std::vector<Real> terms{decode(a, port), decode(b, port), Real(port.precision())};
    if (sums) mpfr_set_ui(terms[1].prepare(2), 1, MPFR_RNDN);
    const bool negative =
        (mpfr_signbit(terms[0].get()) != 0) != (mpfr_signbit(terms[1].get()) != 0);
    if (continues)
      mpfr_set(terms[2].get(), last.get(), MPFR_RNDN);
    else
      mpfr_set_zero(terms[2].get(), negative ? -1 : 1);
    const MPZ expected = encode(Truth(ofThree<mpfr_fma>, terms, port).inMode(mode).get(), port);
    EXPECT_EQ(got, expected) << a.toText(2) << " " << b.toText(2) << " continues " << continues
                             << ": " << got.toText(2) << " for " << expected.toText(2);
    const bool referenceAgrees = checkReference(continues, terms, expected);
    last = decode(expected, port);
    return got == expected && referenceAgrees;
  }

  const Port port;

 private:
  static Request requestFor(const Port& port, bool sum, RoundMode mode) {
    Request request;
    request.signature = {{FixedPoint{1, 0, false}, port.format}, {port.format}, {{sum}}};
    if (!sum) request.signature.in.push_back(port.format);
    request.accuracy = {{Accuracy::kWithin, 1}};
    request.rounding.fixed = mode;
    request.subnormals = request.quietNaN = port.subnormals;
    return request;
  }
  bool checkReference(bool continues, const std::vector<Real>& terms, const MPZ& expected) {
    std::vector<NumValue> inputs(4), results;
    inputs[0].real = Real(2);
    mpfr_set_ui(inputs[0].real.get(), continues, MPFR_RNDN);
    for (int i = 0; i < 3; ++i) inputs[1 + i].real = terms[i];
    if (sums) inputs.resize(2);
    circuit.row.evaluate(request.signature, results, inputs,
                         {static_cast<unsigned>(port.precision())}, {directionOf(mode)},
                         port.subnormals);
    if (sums && continues) return results[0].type == NumType::kDontCare;
    const MPZ reference = encode(results[0].real.get(), port);
    EXPECT_EQ(reference, expected);
    return reference == expected && results[0].type == NumType::kValue;
  }

  bool sums;
  RoundMode mode;
  Real last;
  Request request;
  UnitCircuit circuit;
};

// Every last result with every term: a first step sets the result, a second one adds.
TEST(FloatMultAcc, AllStepsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 2}, {3, 1}})
    for (const bool sum : {false, true})
      for (const bool subnormals : {false, true})
        for (const RoundMode mode : kModes) {
          Accumulator unit(wE, wF, sum, mode, subnormals);
          const MPZ one = MPZ((1L << (wE - 1)) - 1) << wF;
          const auto patterns = allPatterns(unit.port.format);
          for (const MPZ& start : patterns)
            for (const MPZ& a : patterns)
              for (const MPZ& b : patterns) {
                if (sum && b != patterns[0]) continue;
                if (!unit.step(true, false, start, one) || !unit.step(true, true, a, b))
                  FAIL() << "format " << wE << " " << wF;
              }
        }
}

// Long sums with restarts and gaps: small terms that stay in range, drawn ones that do not. What
// comes in while the inputs do not count leaves no trace.
TEST(FloatMultAcc, LongSequencesOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{3, 2}, {5, 10}, {8, 23}, {11, 52}, {15, 112}})
    for (const bool sum : {false, true})
      for (const bool subnormals : {false, true})
        for (const RoundMode mode : kModes) {
          Accumulator unit(wE, wF, sum, mode, subnormals);
          Draws draws(seed++);
          const MPZ one = MPZ((1L << (wE - 1)) - 1) << wF;
          for (int i = 0; i < 3000; ++i) {
            MPZ a = draws.number(unit.port.format), b = draws.number(unit.port.format);
            if (i % 100 < 60) {  // near 1, either sign
              const MPZ spread = MPZ(draws.below(8)) << wF;
              a = (MPZ(draws.below(2)) << (wE + wF)) + one + (wE > 4 ? spread : MPZ(0)) +
                  draws.bits(wF);
              b = one + draws.bits(wF);
            }
            const bool restarts = draws.below(40) == 0 || i == 0;
            if (!unit.step(draws.below(4) != 0 || i == 0, !restarts, a, b))
              FAIL() << "format " << wE << " " << wF << " step " << i << " seed " << seed;
          }
        }
}

}  // namespace
}  // namespace functions::testing
