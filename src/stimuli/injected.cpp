#include "stimuli/injected.h"

#include <fmt/format.h>

#include <algorithm>

#include "numbers/exponent_range.h"
#include "numbers/filters.h"
#include "numbers/packing.h"

namespace {

void inject(NumValue& value, mpfr_srcptr source, const kiln::Type& type) {
  const auto* fp = type.as_floating_point();
  mpfr_set(value.real.prepare(fp ? fp->frac + 1 : type.width() + 1), source, MPFR_RNDN);
  mpz_set_ui(value.pattern.get(), 0);
  value.type = NumType::kValue;
  value.raw = false;
}

bool portCarries(const NumValue& value, const kiln::Type& type, const TestingOptions& t) {
  mpfr_srcptr x = value.real.get();
  if (const auto* fx = type.as_fixed_point()) {
    const NumValue inRange = fxpRangeFilter(value, *fx, t.precision);
    return mpfr_number_p(x) && mpfr_equal_p(inRange.real.get(), x);
  }
  if (!mpfr_regular_p(x)) return true;
  const kiln::FloatingPoint& fp = *type.as_floating_point();
  const ExponentLimits limits = exponentLimits(fp, t.subnormals && !fp.is_fp_lib);
  return limits.smallestAccepted <= mpfr_get_exp(x) && mpfr_get_exp(x) <= limits.largest;
}

}  // namespace

void generateInjectedTestVectorStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                       const TestingOptions& t, int /*testIndex*/,
                                       int /*testCount*/) {
  for (std::size_t p = 0; p < inPorts.size(); ++p) {
    inject(values[p], t.injectedVector[p].get(), inPorts[p].type);
  }
}

std::optional<std::string> injectionRefused(const PortSpecList& inPorts, const TestingOptions& t) {
  const FullExponentRange guard;
  if (t.injectedVector.size() < inPorts.size()) {
    return fmt::format("-injectTestVector: {} values for {} inputs", t.injectedVector.size(),
                       inPorts.size());
  }
  for (std::size_t p = 0; p < inPorts.size(); ++p) {
    NumValue value;
    inject(value, t.injectedVector[p].get(), inPorts[p].type);
    if (portCarries(value, inPorts[p].type, t)) continue;
    char number[64];
    mpfr_snprintf(number, sizeof number, "%.6Rg", t.injectedVector[p].get());
    return fmt::format("-injectTestVector: {} is out of the range of input {}", number,
                       inPorts[p].name);
  }
  return std::nullopt;
}
