#include "stimuli/exhaustive.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "numbers/exponent_range.h"
#include "util/failure.h"
#include "util/mpz.h"

namespace {

using Count = std::uint64_t;

constexpr int kTrace = 9, kTraceMore = 19;  // verbosity beyond which steps are told
constexpr Count kBeyondIndices = Count{1} << 32;
constexpr int kOneWord = 64;  // bits

Count expRangeOf(const kiln::FloatingPoint& fp, const TestingOptions& t) {
  const std::int64_t last = std::int64_t{t.expRangeMax} - t.expRangeMin;
  return last < 0 ? Count{1} << fp.exp : static_cast<Count>(last) + 1;
}

bool expRestricted(const TestingOptions& t) { return t.expRangeMax >= t.expRangeMin; }

Count signRangeOf(const TestingOptions& t) {
  return t.positiveStimuli == t.negativeStimuli ? 2 : 1;
}

Count cut(Count& number, Count radix) {
  const Count digit = number % radix;
  number /= radix;
  return digit;
}

// The radix of a port's share of an index; any that no index reaches is as good as another.
Count radixOf(int width, const TestingOptions& t) {
  if (t.valRangeMax < t.valRangeMin) return width < 32 ? Count{1} << width : kBeyondIndices;
  thread_local util::MPZ size;  // storage only
  mpz_sub(size.get(), t.valRangeMax.get(), t.valRangeMin.get());
  if (mpz_sizeinbase(size.get(), 2) > 32) return kBeyondIndices;
  return size.toUint64() + 1;
}

// The integer that a fixed-point port shows for `number`, whatever bounds were given.
void bringToPort(mpz_ptr number, const kiln::FixedPoint& fx) {
  thread_local util::MPZ modulus;  // storage only
  const auto width = static_cast<mp_bitcnt_t>(fx.width());
  mpz_set_ui(modulus.get(), 0);
  mpz_setbit(modulus.get(), width);
  if (fx.sign()) {
    mpz_fdiv_r_2exp(number, number, width);
    if (mpz_tstbit(number, width - 1)) mpz_sub(number, number, modulus.get());
  } else if (mpz_sgn(number) < 0) {
    mpz_set_ui(number, 0);
  } else if (mpz_cmp(number, modulus.get()) >= 0) {
    mpz_sub_ui(number, modulus.get(), 1);
  }
}

void setFixed(NumValue& value, const kiln::FixedPoint& fx, const TestingOptions& t, Count& index) {
  thread_local util::MPZ number;  // storage only
  mpz_set_ui(number.get(), cut(index, radixOf(fx.width(), t)));
  if (t.valRangeMin <= t.valRangeMax) {
    mpz_add(number.get(), number.get(), t.valRangeMin.get());
  }
  bringToPort(number.get(), fx);
  mpfr_set_z_2exp(value.real.prepare(fx.width() + 1), number.get(), -fx.fraction(), MPFR_RNDN);
  value.raw = false;
  mpz_set_ui(value.pattern.get(), 0);
}

// The parts of a floating-point pattern; the fraction is in the pattern's low bits.
struct Fields {
  Count exponent, sign, exception;
};

// Whether the fields stand for a number that is not zero; otherwise makes x what they stand for.
bool isRegular(mpfr_ptr x, const Fields& f, bool fractionIsZero, const kiln::FloatingPoint& fp,
               bool subnormals) {
  enum { kZero, kRegular, kInfinity, kNaN };
  Count kind = f.exception;
  if (!fp.is_fp_lib) {
    const bool above = f.exponent > (Count{1} << fp.exp) - 2;
    const bool below = f.exponent < 1;
    kind = kRegular;
    if (above) kind = fractionIsZero ? kInfinity : kNaN;
    if (below && (fractionIsZero || !subnormals)) kind = kZero;
  }
  const int sign = f.sign ? -1 : 1;
  if (kind == kZero) mpfr_set_zero(x, sign);
  if (kind == kInfinity) mpfr_set_inf(x, sign);
  if (kind == kNaN) mpfr_set_nan(x);
  return kind == kRegular;
}

// x becomes the number of wF + 1 bits that the fields and the fraction in `pattern` stand for.
void setNumber(mpfr_ptr x, const util::MPZ& pattern, const Fields& f, const kiln::FloatingPoint& fp,
               const TestingOptions& t) {
  const bool subnormal = !fp.is_fp_lib && f.exponent == 0;
  const bool hidden = !subnormal || expRestricted(t);
  const std::int64_t bias = (std::int64_t{1} << (fp.exp - 1)) - 1;
  const std::int64_t unit =
      (subnormal ? 1 : static_cast<std::int64_t>(f.exponent)) - bias - fp.frac;
  if (fp.width <= kOneWord) {
    const Count hiddenBit = Count{1} << fp.frac;
    const Count fraction = pattern.toUint64() & (hiddenBit - 1);
    if (!isRegular(x, f, fraction == 0, fp, t.subnormals)) return;
    mpfr_set_ui_2exp(x, hidden ? fraction + hiddenBit : fraction, unit, MPFR_RNDN);
  } else {
    thread_local util::MPZ significand;  // storage only
    const auto wF = static_cast<mp_bitcnt_t>(fp.frac);
    mpz_fdiv_r_2exp(significand.get(), pattern.get(), wF);
    if (!isRegular(x, f, significand.isZero(), fp, t.subnormals)) return;
    if (hidden) mpz_setbit(significand.get(), wF);
    mpfr_set_z_2exp(x, significand.get(), unit, MPFR_RNDN);
  }
  if (f.sign) mpfr_neg(x, x, MPFR_RNDN);
}

// What stands above the fraction.
Count headOf(const util::MPZ& pattern, const kiln::FloatingPoint& fp) {
  if (fp.width <= kOneWord) return pattern.toUint64() >> fp.frac;
  thread_local util::MPZ head;  // storage only
  mpz_fdiv_q_2exp(head.get(), pattern.get(), static_cast<mp_bitcnt_t>(fp.frac));
  return head.toUint64();
}

int asInt(const util::MPZ& number) { return static_cast<int>(mpz_get_si(number.get())); }

void traceCut(const kiln::FloatingPoint& fp, const TestingOptions& t, Count radix, Count digit,
              const util::MPZ& pattern) {
  if (t.verbosity <= kTrace) return;
  std::printf("\t\tFP(%d,%d)\n", fp.exp, fp.frac);
  std::printf("\t\tvMin=%d vMax=%d\n", asInt(t.valRangeMin), asInt(t.valRangeMax));
  if (t.verbosity > kTraceMore) std::printf("\t\t valRange=%d\n", static_cast<int>(radix));
  std::printf("\t\tfpValPre=%d\n", static_cast<int>(digit));
  std::printf("\t\tfpVal=%d\n", asInt(pattern));
}

void traceFields(const kiln::FloatingPoint& fp, const TestingOptions& t, const Fields& f,
                 const NumValue& value) {
  if (t.verbosity <= kTrace) return;
  const auto wF = static_cast<unsigned long>(fp.frac);
  std::printf("\t\tfracRange=%d\n", asInt(util::MPZ::powerOfTwo(wF)));
  std::printf("\t\texpRange=%d\n", static_cast<int>(expRangeOf(fp, t)));
  std::printf("\t\tsignRange=%d\n", static_cast<int>(signRangeOf(t)));
  std::printf("\t\texcRange=%d\n", fp.is_fp_lib ? 4 : 1);
  std::printf("\t\t(integer) s=%d, e=%d, f=%d\n", static_cast<int>(f.sign),
              static_cast<int>(f.exponent), asInt(value.pattern.lowBits(wF)));
  std::printf("\t\tx=%e\n", mpfr_get_d(value.real.get(), MPFR_RNDN));
}

void setFloating(NumValue& value, const kiln::FloatingPoint& fp, const TestingOptions& t,
                 Count& index, int offset) {
  const Count radix = radixOf(fp.width, t);
  const Count digit = cut(index, radix);
  util::MPZ& pattern = value.pattern;
  mpz_set_ui(pattern.get(), digit);
  if (t.valRangeMin <= t.valRangeMax) {
    mpz_add(pattern.get(), pattern.get(), t.valRangeMin.get());
    mpz_fdiv_q_2exp(pattern.get(), pattern.get(), static_cast<mp_bitcnt_t>(offset));
    mpz_fdiv_r_2exp(pattern.get(), pattern.get(), static_cast<mp_bitcnt_t>(fp.width));
  }
  value.raw = true;
  traceCut(fp, t, radix, digit, pattern);

  Count rest = headOf(pattern, fp);
  Fields f;
  f.exponent = cut(rest, expRangeOf(fp, t));
  f.sign = cut(rest, signRangeOf(t));
  f.exception = rest % 4;
  if (t.positiveStimuli != t.negativeStimuli) f.sign = t.negativeStimuli ? 1 : 0;
  setNumber(value.real.prepare(fp.frac + 1), pattern, f, fp, t);
  traceFields(fp, t, f, value);
}

}  // namespace

int getExhaustiveTestCount(const PortSpecList& inPorts, const TestingOptions& t) {
  const bool restricted = t.valRangeMin <= t.valRangeMax;
  const util::MPZ rangeSize = t.valRangeMax - t.valRangeMin + util::MPZ(1);
  util::MPZ total = 1;
  for (const PortSpec& port : inPorts) {
    const auto* fp = port.type.as_floating_point();
    const auto* fx = port.type.as_fixed_point();
    if (fx) {
      total *=
          restricted ? rangeSize : util::MPZ::powerOfTwo(static_cast<unsigned long>(fx->width()));
    } else if (!fp) {
      loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Code should be unreachable");
    } else if (restricted && !expRestricted(t)) {
      total = rangeSize;
    } else {
      total *= util::MPZ(signRangeOf(t) * expRangeOf(*fp, t));
      total <<= static_cast<unsigned long>(fp->frac);
    }
  }
  if (inPorts.empty()) return 0;
  constexpr int kMost = std::numeric_limits<int>::max();
  if (total > util::MPZ(kMost)) {
    util::exitWith(
        {fmt::format("-exhaustiveTests: 2^{} vectors or more, where {} are the most; "
                     "-valRange selects fewer",
                     total.bitLength() - 1, kMost)});
  }
  return asInt(total);
}

void generateExhaustiveStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                               const TestingOptions& t, int testIndex) {
  const FullExponentRange guard;
  const bool trace = t.verbosity > kTrace;
  if (trace) std::printf("======== Test index %d======== \n", testIndex);
  auto index = static_cast<Count>(testIndex);
  int offset = 0;  // of the port's pattern in that of all ports
  for (std::size_t i = 0; i < inPorts.size(); ++i) {
    if (trace) std::printf("\tinput %d\n", static_cast<int>(i));
    const auto* fp = inPorts[i].type.as_floating_point();
    const auto* fx = inPorts[i].type.as_fixed_point();
    if (fx) {
      setFixed(values[i], *fx, t, index);
    } else if (fp) {
      setFloating(values[i], *fp, t, index, offset);
    } else {
      loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Work in progress");
    }
    values[i].type = NumType::kValue;
    offset += inPorts[i].type.width();
  }
}
