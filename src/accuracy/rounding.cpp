#include "accuracy/rounding.h"

#include <algorithm>

#include "util/failure.h"

void populateRoundingAndPrecisionVectors(const PortSpecList& outPorts,
                                         const TestingOptions& options, std::vector<mpfr_rnd_t>& up,
                                         std::vector<mpfr_rnd_t>& down,
                                         std::vector<mpfr_rnd_t>& user,
                                         std::vector<unsigned>& precisions) {
  constexpr mpfr_rnd_t kUser[] = {MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
  for (const PortSpec& port : outPorts) {
    const auto* fp = port.type.as_floating_point();
    const int bits = fp ? fp->frac + 1 : std::max(options.precision, port.type.width() + 1);
    precisions.push_back(static_cast<unsigned>(bits));
    up.push_back(MPFR_RNDU);
    down.push_back(MPFR_RNDD);
    if (options.roundType < 0 || options.roundType > 3) {
      util::exitWith({"Rounding mode is an option in the range 0-3"});
    }
    user.push_back(kUser[options.roundType]);
  }
}
