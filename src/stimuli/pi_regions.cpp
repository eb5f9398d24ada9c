#include "stimuli/pi_regions.h"

#include "numbers/exponent_range.h"
#include "numbers/filters.h"
#include "util/failure.h"

namespace {

constexpr mpfr_prec_t kPiBits = 2000;

const Real& piOverTwo() {
  static const Real value = [] {
    Real x(kPiBits);
    mpfr_const_pi(x.get(), MPFR_RNDN);
    mpfr_div_2ui(x.get(), x.get(), 1, MPFR_RNDN);
    return x;
  }();
  return value;
}

}  // namespace

void generatePiOverTwoRegionStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                    const TestingOptions& t, int testIndex) {
  const FullExponentRange guard;
  thread_local NumValue unfiltered;  // storage only
  const int place = testIndex % t.piTestInterval;
  const auto multiple = static_cast<unsigned long>(testIndex / t.piTestInterval) + 1;
  const int steps = place - t.piTestInterval / 2;
  for (std::size_t i = 0; i < inPorts.size(); ++i) {
    const auto* fp = inPorts[i].type.as_floating_point();
    const auto* fx = inPorts[i].type.as_fixed_point();
    LOAM_ASSERT(fp || fx, "Code should be unreachable");
    mpfr_ptr x = unfiltered.real.prepare(fp ? fp->frac + 1 : fx->width());
    mpfr_mul_ui(x, piOverTwo().get(), multiple, MPFR_RNDN);
    for (int k = 0; k > steps; --k) mpfr_nextbelow(x);
    for (int k = 0; k < steps; ++k) mpfr_nextabove(x);
    if (fp) {
      fpRangeFilter(values[i], unfiltered, *fp, /*subnormals=*/false);
    } else {
      fxpRangeFilter(values[i], unfiltered, *fx, t.precision);
    }
  }
}
