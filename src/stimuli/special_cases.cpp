#include "stimuli/special_cases.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "numbers/exponent_range.h"
#include "numbers/filters.h"
#include "numbers/packing.h"
#include "util/failure.h"

namespace {

std::uint32_t casesOf(const TestingOptions& t) { return t.subnormals ? 15 : 13; }

// FPLib ports have no subnormals, whatever the options say.
bool gradual(const kiln::FloatingPoint& fp, const TestingOptions& t) {
  return t.subnormals && !fp.is_fp_lib;
}

// Row `row` of the floating cases; a NaN beyond the last.
void setCase(mpfr_ptr x, std::uint32_t row, const kiln::FloatingPoint& fp,
             const TestingOptions& t) {
  constexpr double kNearPi = 3.141592;
  // MPFR's exponent of a power of two five binades below the top
  const mpfr_exp_t nearTop = (mpfr_exp_t{1} << (fp.exp - 1)) - 5;
  const mpfr_exp_t smallest = exponentLimits(fp, gradual(fp, t)).smallestAccepted;
  const bool odd = row % 2 == 1;
  switch (row) {
    case 0:
    case 1:
      return mpfr_set_zero(x, odd ? -1 : 1);
    case 2:
    case 3:
      mpfr_set_d(x, odd ? -kNearPi : kNearPi, MPFR_RNDN);
      return;
    case 4:
    case 5:
      return mpfr_set_inf(x, odd ? -1 : 1);
    case 7:
    case 8:
      mpfr_set_si(x, odd ? 1 : -1, MPFR_RNDN);
      return;
    case 9:
    case 10:
      mpfr_set_si_2exp(x, odd ? 1 : -1, nearTop - 1, MPFR_RNDN);
      return;
    case 11:
      mpfr_set_ui(x, 2, MPFR_RNDN);
      return mpfr_nextbelow(x);
    case 12:
      mpfr_set_ui(x, 1, MPFR_RNDN);
      return mpfr_nextabove(x);
    case 13:
    case 14:
      mpfr_set_si_2exp(x, odd ? 1 : -1, smallest - 1, MPFR_RNDN);
      return;
    default:
      return mpfr_set_nan(x);
  }
}

void setInteger(mpfr_ptr x, std::uint32_t digit, const kiln::FixedPoint& fx) {
  const bool negative = fx.sign() && fx.width() <= 32 && digit >> (fx.width() - 1) != 0;
  const std::int64_t modulus = negative ? std::int64_t{1} << fx.width() : 0;
  mpfr_set_si_2exp(x, static_cast<std::int64_t>(digit) - modulus, -fx.fraction(), MPFR_RNDN);
}

}  // namespace

int getSpecialCasesCount(const PortSpecList& inPorts, const TestingOptions& t) {
  std::uint32_t count = 1;
  for (const PortSpec& port : inPorts) {
    if (isFixedPoint(port)) {
      count <<= port.type.width() % 32;
    } else {
      count *= casesOf(t);
    }
  }
  return count == 1 ? 0 : static_cast<int>(count);
}

bool specialCasesOverflow(const PortSpecList& inPorts, const TestingOptions& t) {
  double bits = 0;
  for (const PortSpec& port : inPorts) {
    bits += isFixedPoint(port) ? port.type.width() : std::log2(casesOf(t));
  }
  return bits >= 31;
}

void generateSpecialCasesStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                 const TestingOptions& t, int testIndex, int /*testCount*/) {
  const FullExponentRange guard;
  thread_local std::vector<std::uint32_t> digits;  // storage only, as is the value
  thread_local NumValue unfiltered;
  digits.resize(inPorts.size());
  auto index = static_cast<std::uint32_t>(testIndex);
  for (std::size_t p = 0; p < inPorts.size(); ++p) {
    const int width = inPorts[p].type.width();
    std::uint32_t digit = index;
    if (!isFixedPoint(inPorts[p])) {
      digit = index % casesOf(t);
    } else if (width < 32) {
      digit = index % (std::uint32_t{1} << width);
    }
    digits[inPorts.size() - 1 - p] = digit;
    index = (index - digit) / casesOf(t);
  }
  for (std::size_t q = 0; q < inPorts.size(); ++q) {
    const kiln::Type& type = inPorts[q].type;
    unfiltered.type = NumType::kValue;
    if (const auto* fp = type.as_floating_point()) {
      setCase(unfiltered.real.prepare(fp->frac + 1), digits[q], *fp, t);
      fpRangeFilter(values[q], unfiltered, *fp, gradual(*fp, t));
    } else if (const auto* fx = type.as_fixed_point()) {
      setInteger(unfiltered.real.prepare(std::max(2, fx->width())), digits[q], *fx);
      fxpRangeFilter(values[q], unfiltered, *fx, t.precision);
    } else {
      loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Code should be unreachable");
    }
  }
}
