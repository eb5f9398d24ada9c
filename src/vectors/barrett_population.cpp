#include "vectors/barrett_population.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "numbers/draws.h"
#include "util/failure.h"
#include "vectors/population_parts.h"
#include "vectors/stm_writer.h"

namespace {

void requireBarrett(const PortSpecList& inPorts, const TestingOptions& options) {
  if (options.componentType != MODULAR_MULT_BARRETT) {
    loam_assert_handler("testOptions.componentType == MODULAR_MULT_BARRETT", "cmdGauge", __LINE__,
                        __func__, "");
  }
  if (inPorts.size() != 4) {
    loam_assert_handler("inFormats.size() == 4", "cmdGauge", __LINE__, __func__, "");
  }
}

class BarrettTests {
 public:
  BarrettTests(CFuncUnitFunctionInterface& unit, const PortSpecList& inPorts,
               const PortSpecList& outPorts, const TestingOptions& options, VectorFiles& files)
      : unit(unit),
        inPorts(inPorts),
        outPorts(outPorts),
        options(options),
        files(files),
        e(outPorts, options),
        stimulus(4),
        width(static_cast<unsigned long>(inPorts[0].type.width())) {}

  void random(gmp_randstate_t& state) {
    for (int i = 0; i < options.testCount; ++i) {
      progressBar(i, options.testCount, progressStep(options.testCount));
      for (std::size_t k = 0; k < 3; ++k) {
        genRandFXP(stimulus[k].real, state, *inPorts[k].type.as_fixed_point(), options);
      }
      mpfr_get_z(modulus.get(), stimulus[2].real.get(), MPFR_RNDN);
      mpz_setbit(modulus.get(), width - 1);
      mpfr_set_z(stimulus[2].real.get(), modulus.get(), MPFR_RNDN);
      writeTest(i);
    }
  }

  void exhaustive() {
    // A count of 32 bits, which is the real one up to a width of 10.
    const auto total = static_cast<std::int32_t>(std::uint32_t{1} << ((3 * width - 1) % 32));
    std::printf("\n Should generate at least %d test vectors \n", total);
    const auto step = static_cast<int>(
        std::max<std::int64_t>(1, std::min<std::int64_t>(1000, std::int64_t{total} - 1)));
    // Beyond 62 bits no run comes to its end.
    const std::int64_t factors = std::int64_t{1} << std::min(width, 62UL), moduli = factors / 2;
    std::int64_t n = 0;
    for (std::int64_t a = 0; a < factors; ++a) {
      for (std::int64_t b = 0; b < factors; ++b) {
        for (std::int64_t m = moduli; m < factors; ++m, ++n) {
          progressBar(static_cast<int>(n), total, step);
          set(stimulus[0], a);
          set(stimulus[1], b);
          set(stimulus[2], m);
          modulus = m;
          writeTest(n);
        }
      }
    }
  }

  int count() const { return static_cast<int>(tests); }

 private:
  void set(NumValue& value, std::int64_t number) {
    const auto precision = std::max<mpfr_prec_t>(static_cast<mpfr_prec_t>(width), MPFR_PREC_MIN);
    mpfr_set_si(value.real.prepare(precision), number, MPFR_RNDN);
  }

  // Completes the stimulus by the reciprocal of `modulus` and writes test n of its kind.
  void writeTest(std::int64_t n) {
    if (n % 1000 == 0) files.check();
    mpz_set_ui(reciprocal.get(), 0);
    mpz_setbit(reciprocal.get(), 2 * width);
    mpz_tdiv_q(reciprocal.get(), reciprocal.get(), modulus.get());
    mpfr_set_z(stimulus[3].real.prepare(static_cast<mpfr_prec_t>(width) + 1), reciprocal.get(),
               MPFR_RNDN);
    e.evaluate(unit, stimulus, options.subnormals);
    filterAndOutToFile(outPorts, e.down, e.up, e.nearest, e.precisions, inPorts, stimulus, options,
                       files.in, files.out, static_cast<int>(n & 255));
    ++tests;
  }

  CFuncUnitFunctionInterface& unit;
  const PortSpecList &inPorts, &outPorts;
  const TestingOptions& options;
  VectorFiles& files;
  Evaluations e;
  std::vector<NumValue> stimulus;  // a, b, m, mu
  unsigned long width;
  util::MPZ modulus, reciprocal;
  std::int64_t tests = 0;
};

}  // namespace

int populateStmFiles_ModularMultBarrett(CFuncUnitFunctionInterface* unit,
                                        const std::string& baseName, const PortSpecList& inPorts,
                                        const PortSpecList& outPorts, int latency,
                                        const TestingOptions& options) {
  requireBarrett(inPorts, options);
  VectorFiles files(baseName);
  RandomState random(options.testCount);
  BarrettTests tests(*unit, inPorts, outPorts, options, files);
  initialOutputPipelineFill(files.out, outPorts, latency, options);
  if (options.randomTests) tests.random(random.state);
  if (options.exhaustiveTests) tests.exhaustive();
  drainRows(files.in, inPorts, latency, options);
  progressBar(options.testCount, options.testCount, 1);
  files.close();
  return tests.count();
}
