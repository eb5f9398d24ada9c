#include "vectors/directed_sweeps.h"

#include <algorithm>
#include <vector>

#include "numbers/draws.h"
#include "numbers/filters.h"
#include "util/random.h"
#include "vectors/stm_writer.h"

namespace {

constexpr int kLongestWalk = 1000;

// One result of every output in one direction.
struct Rounded {
  std::vector<mpfr_rnd_t> roundings;
  std::vector<NumValue> computed, onPorts;
};

class Sweeps {
 public:
  Sweeps(CFuncUnitFunctionInterface& unit, const PortSpecList& inPorts,
         const PortSpecList& outPorts, const TestingOptions& t, const SweepFiles& files)
      : unit(unit),
        inPorts(inPorts),
        outPorts(outPorts),
        t(t),
        files(files),
        format(*inPorts[0].type.as_floating_point()),
        half(mpfr_exp_t{1} << (format.exp - 1)),
        trials(t.testCount / 10),
        working(inPorts.size()),
        stimulus(inPorts.size()) {
    for (std::size_t i = 0; i < inPorts.size(); ++i) {
      mpfr_set_zero(working[i].real.prepare(i < 2 ? format.frac + 1 : 2), 1);
    }
    x = working[0].real.get();
    y = working[1].real.get();
    delta.prepare(format.frac + 1);
    for (const PortSpec& port : outPorts) {
      formats.push_back(port.type.as_floating_point());
      precisions.push_back(static_cast<unsigned>(formats.back()->frac + 1));
    }
    down.roundings.assign(outPorts.size(), MPFR_RNDD);
    up.roundings.assign(outPorts.size(), MPFR_RNDU);
    nearest.roundings.assign(outPorts.size(), MPFR_RNDN);
  }

  void cancellation(gmp_randstate_t& state) {
    constexpr int kSteps = 500;
    for (int trial = 0; trial < trials; ++trial) {
      genRandFP(drawn, state, format, t);
      mpfr_set(x, drawn.get(), MPFR_RNDN);
      for (int pass = 0; pass < 2; ++pass) {
        mpfr_neg(y, x, MPFR_RNDN);
        for (int i = 0; i < kSteps; ++i) {
          if (i > 0) pass == 0 ? mpfr_nextabove(y) : mpfr_nextbelow(y);
          test(i + kSteps * pass + 2 * kSteps * trial);
        }
      }
      files.check();
    }
  }

  // Sums that walk down, an ulp a row, from the threshold where the largest number overflows.
  void sumsNearInfinity() {
    for (int trial = 0; trial < trials; ++trial) {
      mpfr_set_si_2exp(x, 1, half, MPFR_RNDN);
      mpfr_nextbelow(x);
      mpfr_set(y, x, MPFR_RNDN);
      mpfr_nextbelow(y);
      mpfr_sub(delta.get(), x, y, MPFR_RNDN);
      const int rows = util::GetRandom(kLongestWalk);
      mpfr_mul_si(y, delta.get(), rows, MPFR_RNDN);
      mpfr_sub(x, x, y, MPFR_RNDN);
      mpfr_add(y, y, delta.get(), MPFR_RNDN);
      walkDownByDelta(rows);
      files.check();
    }
  }

  // Differences that walk away from zero, then across the border of the subnormals.
  void sumsNearZero() {
    for (int trial = 0; trial < trials; ++trial) {
      setSmallestNormal(x);
      mpfr_set(y, x, MPFR_RNDN);
      mpfr_nextabove(y);
      mpfr_sub(delta.get(), y, x, MPFR_RNDN);
      const int rows = util::GetRandom(kLongestWalk);
      mpfr_mul_si(y, delta.get(), rows, MPFR_RNDN);
      mpfr_add(x, x, y, MPFR_RNDN);
      mpfr_neg(y, x, MPFR_RNDN);
      walkDownByDelta(rows);
      mpfr_neg(y, x, MPFR_RNDN);
      mpfr_mul_2ui(y, y, 1, MPFR_RNDN);
      mpfr_add(y, y, delta.get(), MPFR_RNDN);
      walkDownByNeighbours(rows);
      files.check();
    }
  }

  // Products that walk down across the border of the subnormals.
  void productsNearZero() {
    constexpr double kAboveOne = 4.7683715820312e-7, kFactor = 6170.396201344;
    for (int trial = 1; trial <= trials; ++trial) {
      setSmallestNormal(x);
      mpfr_mul_si(x, x, trial, MPFR_RNDN);
      mpfr_set_si(y, 1, MPFR_RNDN);
      mpfr_add_d(y, y, kAboveOne, MPFR_RNDN);
      mpfr_div_si(y, y, trial, MPFR_RNDN);
      const int rows = util::GetRandom(kLongestWalk);
      walkDownByNeighbours(rows);
      mpfr_mul_d(x, x, kFactor, MPFR_RNDN);
      mpfr_mul_si(x, x, trial, MPFR_RNDN);
      setSmallestNormal(delta.get());
      mpfr_div(y, delta.get(), x, MPFR_RNDN);
      walkDownByNeighbours(rows);
      files.check();
    }
  }

  int rowCount() const { return count; }

 private:
  void setSmallestNormal(mpfr_ptr number) const {
    mpfr_set_si_2exp(number, 1, 2 - half, MPFR_RNDN);
  }

  void walkDownByDelta(int rows) {
    for (int i = 0; i < rows; ++i) {
      test(count + 1);
      mpfr_sub(y, y, delta.get(), MPFR_RNDN);
    }
  }

  void walkDownByNeighbours(int rows) {
    for (int i = 0; i < rows; ++i) {
      test(count + 1);
      mpfr_nextbelow(y);
    }
  }

  void test(int channelCount) {
    ++count;
    const int channel = channelCount & 255;
    for (std::size_t i = 0; i < inPorts.size(); ++i) {
      if (const auto* fp = inPorts[i].type.as_floating_point()) {
        fpRangeFilter(stimulus[i], working[i], *fp, gradual(*fp));
      } else {
        stimulus[i] = working[i];
      }
    }
    printToStimuliFile(files.in, stimulus, inPorts, /*valid=*/1, channel, t, /*enable=*/1);
    if (t.faithfulRounding) {
      evaluate(down);
      evaluate(up);
      printToStimuliFile(files.out, down.onPorts, up.onPorts, formats, channel, t);
    } else {
      evaluate(nearest);
      printToStimuliFile(files.out, nearest.onPorts, outPorts, /*valid=*/1, channel, t,
                         /*enable=*/1);
    }
  }

  void evaluate(Rounded& results) {
    unit.evaluate(results.computed, stimulus, precisions, results.roundings, t.subnormals);
    results.onPorts.resize(formats.size());
    for (std::size_t j = 0; j < formats.size(); ++j) {
      fpRangeFilter(results.onPorts[j], results.computed[j], *formats[j], gradual(*formats[j]));
    }
  }

  // FPLib ports have no subnormals, whatever the options say.
  bool gradual(const kiln::FloatingPoint& fp) const { return t.subnormals && !fp.is_fp_lib; }

  CFuncUnitFunctionInterface& unit;
  const PortSpecList& inPorts;
  const PortSpecList& outPorts;
  const TestingOptions& t;
  const SweepFiles& files;
  const kiln::FloatingPoint& format;  // of the first input, which both operands take
  const mpfr_exp_t half;
  const int trials;
  int count = 0;
  std::vector<NumValue> working, stimulus;  // before and after the ports' filters
  mpfr_ptr x, y;                            // the first two working inputs
  Real delta, drawn;
  std::vector<const kiln::FloatingPoint*> formats;  // of the outputs
  std::vector<unsigned> precisions;
  Rounded down, up, nearest;
};

bool allFloating(const PortSpecList& ports) { return std::ranges::all_of(ports, isFloatingPoint); }

}  // namespace

bool hasDirectedSweeps(const PortSpecList& inPorts, const PortSpecList& outPorts,
                       const TestingOptions& t) {
  const bool selected =
      (t.componentType == FPADD && (t.cancellationTests || t.nearInfinityTests)) ||
      ((t.componentType == FPADD || t.componentType == FPMUL) && t.nearZeroTests);
  return selected && inPorts.size() >= 2 && isFloatingPoint(inPorts[0]) &&
         isFloatingPoint(inPorts[1]) && allFloating(outPorts);
}

bool sweepsDrawNumbers(const PortSpecList& inPorts, const PortSpecList& outPorts,
                       const TestingOptions& t) {
  return t.componentType == FPADD && t.cancellationTests && hasDirectedSweeps(inPorts, outPorts, t);
}

int runDirectedSweeps(CFuncUnitFunctionInterface& unit, const PortSpecList& inPorts,
                      const PortSpecList& outPorts, const TestingOptions& t, gmp_randstate_t& state,
                      const SweepFiles& files) {
  if (!hasDirectedSweeps(inPorts, outPorts, t)) return 0;
  Sweeps sweeps(unit, inPorts, outPorts, t, files);
  if (t.componentType == FPADD) {
    if (t.cancellationTests) sweeps.cancellation(state);
    if (t.nearInfinityTests) sweeps.sumsNearInfinity();
    if (t.nearZeroTests) sweeps.sumsNearZero();
  } else {
    sweeps.productsNearZero();
  }
  return sweeps.rowCount();
}
