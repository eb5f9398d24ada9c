#pragma once

#include <mpfr.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>

// Where the exact results of functions stand among the numbers of single precision, for every
// input: a fast way in doubles, whose error is bounded below, and MPFR for what that bound leaves
// open and to confirm it.
namespace truth {

enum class Function { kExp, kExp2, kLn, kLog2, kLog10, kSqrt, kRecipSqrt, kInverse, kSinPi, kSin };

constexpr std::uint32_t kInfinity = 0x7f800000, kNaN = 0x7f800001, kSign = 0x80000000;
constexpr std::int64_t kSmallestNormal = 1 << 23;

// An exact result. Patterns of magnitudes go on beyond both ends of the format, 2^23 a binade.
struct Place {
  bool isSpecial = false;    // `floor` is the pattern, sign included
  bool isExact = false;      // the result is `floor` itself
  bool isNearAbove = false;  // floor + 1 is the number to nearest even
  std::uint32_t sign = 0;
  std::int64_t floor = 0;  // the magnitude rounded toward zero
  double rest = 0;         // what lies beyond it, in ulps
};

inline Place special(std::uint32_t pattern) {
  Place place;
  place.isSpecial = place.isExact = true;
  place.floor = pattern;
  return place;
}

constexpr std::uint32_t magnitudeOf(std::uint32_t x) { return x & ~kSign; }

// The place of an input whose result is no rounded number: NaN, infinities, zeros, poles, exact
// zeros of a sine. `x` has been flushed already.
template <Function f>
bool isSpecialInput(std::uint32_t x, Place& place) {
  const std::uint32_t magnitude = magnitudeOf(x), sign = x & kSign;
  const auto is = [&](std::uint32_t pattern) { return place = special(pattern), true; };
  if (magnitude > kInfinity) return is(kNaN);
  constexpr std::uint32_t kOne = 0x3f800000;
  switch (f) {
    case Function::kExp:
    case Function::kExp2:
      if (magnitude == kInfinity) return is(sign ? 0 : kInfinity);
      return magnitude == 0 && is(kOne);
    case Function::kLn:
    case Function::kLog2:
    case Function::kLog10:
      if (magnitude == 0) return is(kSign | kInfinity);
      if (sign) return is(kNaN);
      if (x == kInfinity) return is(kInfinity);
      return x == kOne && is(0);
    case Function::kSqrt:
      if (magnitude == 0) return is(x);
      if (sign) return is(kNaN);
      return x == kInfinity && is(kInfinity);
    case Function::kRecipSqrt:
      if (magnitude == 0) return is(sign | kInfinity);
      if (sign) return is(kNaN);
      return x == kInfinity && is(0);
    case Function::kInverse:
      if (magnitude == 0) return is(sign | kInfinity);
      return magnitude == kInfinity && is(sign);
    case Function::kSinPi:
      if (magnitude == kInfinity) return is(kNaN);
      if (magnitude >= 0x4b000000) return is(sign);  // 2^23: integers only
      return std::nearbyint(std::bit_cast<float>(x)) == std::bit_cast<float>(x) && is(sign);
    case Function::kSin:
      if (magnitude == kInfinity) return is(kNaN);
      return magnitude == 0 && is(sign);
  }
  return false;
}

class Truth {
 public:
  // Doubles carry a result to within kScreen of its magnitude; what the proofs below give is less
  // than 2^-49. A place nearer than kOpen to a number or to a tie is MPFR's.
  static constexpr double kScreen = 0x1p-40, kOpen = 0x1p-16;  // 2^24 ulps in the magnitude

  explicit Truth(bool subnormals) : subnormals(subnormals) {
    mpfr_inits2(kBits, x, y, scaled, nullptr);
    makeTables();
  }
  ~Truth() { mpfr_clears(x, y, scaled, nullptr); }
  Truth(const Truth&) = delete;

  std::uint32_t flushed(std::uint32_t pattern) const {
    return subnormals || magnitudeOf(pattern) >= kSmallestNormal ? pattern : pattern & kSign;
  }
  // The place of a result that isSpecialInput() leaves; false while it is open whether a boundary
  // is below or above it. Its `rest` is off by less than kOpen.
  template <Function f>
  bool fast(std::uint32_t pattern, Place& place) const;
  // The same in MPFR, of any precision that it takes: exact, but for `rest`, a double.
  template <Function f>
  Place exact(std::uint32_t pattern);
  // The pattern of floor or floor + 1 as a unit without a wider range delivers it.
  std::uint32_t delivered(const Place& place, bool above) const {
    if (place.isSpecial) return static_cast<std::uint32_t>(place.floor);
    const std::int64_t magnitude = place.floor + above;
    if (magnitude < (subnormals ? 0 : kSmallestNormal)) return place.sign;
    return place.sign |
           (magnitude >= kInfinity ? kInfinity : static_cast<std::uint32_t>(magnitude));
  }

 private:
  static constexpr int kBits = 96;
  using Wide = unsigned __int128;

  void makeTables();
  double exponential(double z, int n) const;
  double logarithm(std::uint32_t pattern) const;
  double sineOfCell(int cell, double h) const;
  double sine(std::uint32_t pattern) const;
  static double sineSeries(double z);
  template <Function f>
  double magnitude(double a, std::uint32_t pattern) const;
  bool locate(double magnitude, Place& place) const;
  template <Function f>
  bool isNearLimit(std::uint32_t pattern, Place& place) const;
  static bool locateRoot(std::uint32_t pattern, Place& place);
  template <Function f>
  int evaluate();

  bool subnormals;
  std::array<double, 64> powers;          // 2^(j/64)
  std::array<double, 128> centres, logs;  // c near the reciprocal of a cell, -ln c
  std::array<double, 33> sines, cosines;  // of j pi / 64
  std::array<Wide, 136> inverses;         // 2^(k - 31) / pi modulo 2, in units of 2^-127
  double ln2, ln2High, ln2Low, perLn10, perLn2, pi, perStep;
  mpfr_t x, y, scaled;
};

// Each table entry is MPFR's value rounded once: u = 2^-53 of itself.
inline void Truth::makeTables() {
  mpfr_t t, s;
  mpfr_inits2(400, t, s, nullptr);
  const auto rounded = [&] { return mpfr_get_d(t, MPFR_RNDN); };
  for (int j = 0; j < 64; ++j) {
    mpfr_set_d(t, j / 64.0, MPFR_RNDN);
    mpfr_exp2(t, t, MPFR_RNDN);
    powers[j] = rounded();
  }
  for (int j = 0; j < 128; ++j) {
    // Cells of [1, 2); from 1.5 on they serve half the number. The outer ones have c = 1.
    const bool isHalved = j >= 64;
    const double middle = (1 + (j + 0.5) / 128) / (isHalved ? 2 : 1);
    centres[j] = j == 0 || j == 127 ? 1 : std::nearbyint(1024 / middle) / 1024;
    mpfr_set_d(t, centres[j], MPFR_RNDN);
    mpfr_log(t, t, MPFR_RNDN);
    logs[j] = 0 - rounded();
  }
  for (int j = 0; j <= 32; ++j) {
    mpfr_set_d(t, j / 64.0, MPFR_RNDN);
    mpfr_cospi(s, t, MPFR_RNDN);
    mpfr_sinpi(t, t, MPFR_RNDN);
    sines[j] = rounded();
    cosines[j] = mpfr_get_d(s, MPFR_RNDN);
  }
  mpfr_const_pi(t, MPFR_RNDN);
  pi = rounded();
  for (std::size_t k = 0; k < inverses.size(); ++k) {
    mpfr_ui_div(s, 1, t, MPFR_RNDN);
    mpfr_mul_2si(s, s, static_cast<long>(k) - 32, MPFR_RNDN);
    mpfr_frac(s, s, MPFR_RNDN);  // of a half: modulo 2 below
    inverses[k] = 0;
    for (int bit = 127; bit >= 0; --bit) {
      mpfr_mul_2ui(s, s, 1, MPFR_RNDN);
      if (mpfr_cmp_ui(s, 1) < 0) continue;
      mpfr_sub_ui(s, s, 1, MPFR_RNDN);
      inverses[k] |= Wide{1} << bit;
    }
  }
  mpfr_const_log2(t, MPFR_RNDN);
  ln2 = rounded();
  mpfr_div_ui(t, t, 64, MPFR_RNDN);
  ln2High = std::bit_cast<double>(std::bit_cast<std::uint64_t>(rounded()) >> 18 << 18);
  mpfr_sub_d(t, t, ln2High, MPFR_RNDN);
  ln2Low = rounded();
  perStep = 1 / (ln2High + ln2Low);
  mpfr_const_log2(t, MPFR_RNDN);
  mpfr_ui_div(t, 1, t, MPFR_RNDN);
  perLn2 = rounded();
  mpfr_log_ui(t, 10, MPFR_RNDN);
  mpfr_ui_div(t, 1, t, MPFR_RNDN);
  perLn10 = rounded();
  mpfr_clears(t, s, nullptr);
}

// 2^(n/64) e^z, |z| < 2^-7. The series ends before z^7/5040 < 2^-61; its steps add less than 3 u,
// the table 1 u, the product 1 u: in all 2^-50 of the result, and the error of z.
inline double Truth::exponential(double z, int n) const {
  const double series =
      1 + z * (1 + z * (1 / 2.0 + z * (1 / 6.0 + z * (1 / 24.0 + z * (1 / 120.0 + z / 720)))));
  const std::uint64_t power = static_cast<std::uint64_t>(1023 + (n >> 6)) << 52;
  return powers[n & 63] * series * std::bit_cast<double>(power);
}

// |ln| of a positive number but 1, with its sign. m c has 34 bits, r = m c - 1 is exact, |r| <
// 2^-7. The series ends before r^9/9, 2^-59 of it, and adds 4 u. Near 1, E = 0 and c = 1: nothing
// else. With E = 0 and another c, |ln c| > 3/2 |series|: errors of 6 u of the addends are 18 u of
// the sum. Else |E| ln 2, with 2 u, is at least 1.5 times the rest. In all below 2^-48 of the
// result.
inline double Truth::logarithm(std::uint32_t pattern) const {
  const double a = std::bit_cast<float>(pattern);  // a subnormal becomes a normal double
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(a);
  const int cell = static_cast<int>(bits >> 45 & 127);
  const bool isHalved = cell >= 64;
  const int exponent = static_cast<int>(bits >> 52) - 1023 + isHalved;
  const double m = std::bit_cast<double>((bits & 0xfffffffffffff) |
                                         static_cast<std::uint64_t>(1023 - isHalved) << 52);
  const double r = m * centres[cell] - 1;
  const double tail =
      r * r *
      (-1 / 2.0 +
       r * (1 / 3.0 + r * (-1 / 4.0 + r * (1 / 5.0 + r * (-1 / 6.0 + r * (1 / 7.0 - r / 8))))));
  return (exponent * ln2 + logs[cell]) + (r + tail);
}

// sin z to within 4 u, |z| < 2^-5: it ends before z^9/362880, 2^-58 of it.
inline double Truth::sineSeries(double z) {
  const double s = z * z;
  return z + z * s * (-1 / 6.0 + s * (1 / 120.0 - s / 5040));
}

// sin pi (cell/64 + h), |h| <= 1/128: for the first cell the series; for others the sum of
// S cos + C sin, where S cos is at least twice |C sin|, so that 8 u of the addends are 24 u of the
// sum: below 2^-48.
inline double Truth::sineOfCell(int cell, double h) const {
  const double z = pi * h, s = z * z;
  if (cell == 0) return sineSeries(z);
  const double cosine = 1 - s * (1 / 2.0 - s * (1 / 24.0 - s * (1 / 720.0 - s / 40320)));
  return sines[cell] * cosine + cosines[cell] * sineSeries(z);
}

// sin of radians. a/pi modulo 2 is a product of 24 bits with the 128 bits of a table: off by less
// than 2^-103. An angle nearer than 2^-50 to a multiple of pi would be told; there is none.
inline double Truth::sine(std::uint32_t pattern) const {
  const double a = std::bit_cast<float>(magnitudeOf(pattern));
  const double sign = pattern & kSign ? -1 : 1;
  if (a < 0x1p-8) return sign * sineSeries(a);
  const int exponent = static_cast<int>(magnitudeOf(pattern) >> 23) - 150;  // of the last place
  const Wide turns = ((pattern & 0x7fffff) | 0x800000) * inverses[exponent + 31];
  const bool isLower = turns >> 127;
  Wide half = turns & ~(Wide{1} << 127);            // below 1 half turn
  if (half >> 126) half = (Wide{1} << 127) - half;  // sin pi (1 - t) = sin pi t
  const int cell = static_cast<int>((half + (Wide{1} << 120)) >> 121);
  const auto offset = static_cast<__int128>(half - (static_cast<Wide>(cell) << 121));
  if (half >> 77 == 0) std::abort();
  const double value = sineOfCell(cell, static_cast<double>(offset) * 0x1p-127);
  return isLower ? -sign * value : sign * value;
}

template <Function f>
double Truth::magnitude(double a, std::uint32_t pattern) const {
  switch (f) {
    case Function::kExp: {
      // n ln2High has 49 bits; a minus it is exact, being a multiple of 2^-42 below 2^-6 (or n is
      // 0). The rest of n ln2/64 is below 2^-27 with 1 u: z is exact to 2^-58.
      if (a > 200 || a < -200) return a > 0 ? 0x1p200 : 0x1p-200;
      const double n = std::nearbyint(a * perStep);
      return exponential((a - n * ln2High) - n * ln2Low, static_cast<int>(n));
    }
    case Function::kExp2: {
      if (a > 200 || a < -200) return a > 0 ? 0x1p200 : 0x1p-200;
      const double n = std::nearbyint(a * 64);
      return exponential((a - n / 64) * ln2, static_cast<int>(n));
    }
    case Function::kLn:
      return logarithm(pattern);
    case Function::kLog2:
      return logarithm(pattern) * perLn2;
    case Function::kLog10:
      return logarithm(pattern) * perLn10;
    case Function::kSqrt:
      return std::sqrt(a);
    case Function::kRecipSqrt:
      return 1 / std::sqrt(a);
    case Function::kInverse:
      return 1 / a;
    case Function::kSinPi: {
      const double t = a - 2 * std::nearbyint(a / 2);  // exact, in [-1, 1]
      double half = std::fabs(t);
      if (half > 0.5) half = 1 - half;  // exact
      const double cell = std::nearbyint(half * 64);
      return std::copysign(sineOfCell(static_cast<int>(cell), half - cell / 64), t);
    }
    case Function::kSin:
      return sine(pattern);
  }
  return 0;
}

inline bool Truth::locate(double magnitude, Place& place) const {
  const auto steps = static_cast<std::int64_t>(std::bit_cast<std::uint64_t>(magnitude)) -
                     (std::int64_t{1023 - 127} << 52);
  place.floor = steps >> 29;
  place.rest = static_cast<double>(steps & 0x1fffffff) * 0x1p-29;
  place.isExact = place.isNearAbove = false;
  // Nothing is decided by the last places of what lies beyond the range.
  if (place.floor > kInfinity + 1 || (!subnormals && place.floor < kSmallestNormal - 2))
    return true;
  bool isTiny = false;
  if (subnormals && place.floor < kSmallestNormal) {
    const double ulps = magnitude * 0x1p149;
    place.floor = static_cast<std::int64_t>(ulps);
    place.rest = ulps - static_cast<double>(place.floor);
    isTiny = ulps < 0.25;  // a magnitude is not zero: no boundary below it
  }
  place.isNearAbove = place.rest > 0.5;
  return (place.rest > kOpen || isTiny) && place.rest < 1 - kOpen &&
         std::fabs(place.rest - 0.5) > kOpen;
}

// The square root by integers: of X = M 2^k of 47 or 48 bits, so that it has 24. The double's root
// of X is off by less than 2^-29 and n + 1 - sqrt(X) is at least 2^-25: its integer part is n.
inline bool Truth::locateRoot(std::uint32_t pattern, Place& place) {
  int exponent = static_cast<int>(pattern >> 23);
  std::uint64_t significand = pattern & 0x7fffff;
  if (exponent == 0) {
    const int shift = std::countl_zero(significand) - 40;
    significand <<= shift;
    exponent = 1 - shift;
  } else {
    significand |= 0x800000;
  }
  const bool isOdd = (exponent & 1) == 0;  // the true exponent is exponent - 127
  const std::uint64_t square = significand << (isOdd ? 24 : 23);
  const double root = std::sqrt(static_cast<double>(square));
  const auto n = static_cast<std::uint64_t>(root);
  if (n * n > square || (n + 1) * (n + 1) <= square) std::abort();
  place.floor = (static_cast<std::int64_t>((exponent - 127 - isOdd) / 2 + 126) << 23) +
                static_cast<std::int64_t>(n);
  // The difference of squares is exact, its quotient off by 2 u.
  place.rest = static_cast<double>(square - n * n) / (root + static_cast<double>(n));
  place.isExact = n * n == square;
  place.isNearAbove = (2 * n + 1) * (2 * n + 1) < 4 * square;
  return true;
}

// Results that a double does not tell from their limit, 1 for an exponential and a for a sine: on
// which side of it they are is known, and the first term of the series says how far. The next term
// is below 2^-20 ulps.
template <Function f>
bool Truth::isNearLimit(std::uint32_t pattern, Place& place) const {
  constexpr std::int64_t kOne = 0x3f800000;
  const double a = std::fabs(std::bit_cast<float>(pattern));
  place.isExact = false;
  if ((f == Function::kExp || f == Function::kExp2) && a < 0x1p-26) {
    const bool isBelow = pattern & kSign;
    const double step = a * (f == Function::kExp ? 1 : ln2);
    place.floor = kOne - isBelow;
    place.rest = isBelow ? 1 - step * 0x1p24 : step * 0x1p23;
    place.isNearAbove = isBelow;
    return true;
  }
  if (f == Function::kSin && a < 0x1p-13) {
    place.sign = pattern & kSign;
    place.floor = static_cast<std::int64_t>(magnitudeOf(pattern)) - 1;
    const bool isNormal = place.floor >= kSmallestNormal || !subnormals;
    const int unit = isNormal ? static_cast<int>(place.floor >> 23) - 150 : -149;
    place.rest = 1 - std::ldexp(a * a / 6 * a, -unit);
    place.isNearAbove = true;
    return true;
  }
  return false;
}

template <Function f>
bool Truth::fast(std::uint32_t pattern, Place& place) const {
  place.isSpecial = false;
  place.sign = 0;
  if constexpr (f == Function::kSqrt) return locateRoot(pattern, place);
  if (isNearLimit<f>(pattern, place)) return true;
  const double value = magnitude<f>(std::bit_cast<float>(pattern), pattern);
  if (std::signbit(value)) place.sign = kSign;
  return locate(std::fabs(value), place);
}

template <Function f>
int Truth::evaluate() {
  switch (f) {
    case Function::kExp:
      return mpfr_exp(y, x, MPFR_RNDN);
    case Function::kExp2:
      return mpfr_exp2(y, x, MPFR_RNDN);
    case Function::kLn:
      return mpfr_log(y, x, MPFR_RNDN);
    case Function::kLog2:
      return mpfr_log2(y, x, MPFR_RNDN);
    case Function::kLog10:
      return mpfr_log10(y, x, MPFR_RNDN);
    case Function::kSqrt:
      return mpfr_sqrt(y, x, MPFR_RNDN);
    case Function::kRecipSqrt:
      return mpfr_rec_sqrt(y, x, MPFR_RNDN);
    case Function::kInverse:
      return mpfr_ui_div(y, 1, x, MPFR_RNDN);
    case Function::kSinPi:
      return mpfr_sinpi(y, x, MPFR_RNDN);
    case Function::kSin:
      return mpfr_sin(y, x, MPFR_RNDN);
  }
  return 0;
}

template <Function f>
Place Truth::exact(std::uint32_t pattern) {
  mpfr_set_flt(x, std::bit_cast<float>(pattern), MPFR_RNDN);
  // Beyond 200 an exponential is beyond both ends of the format.
  if ((f == Function::kExp || f == Function::kExp2) && mpfr_cmpabs_ui(x, 200) > 0)
    mpfr_set_si(x, pattern & kSign ? -200 : 200, MPFR_RNDN);
  Place place;
  for (mpfr_prec_t bits = kBits;; bits *= 2) {
    mpfr_set_prec(y, bits);
    mpfr_set_prec(scaled, bits);
    const bool isRounded = evaluate<f>() != 0;
    place.sign = mpfr_signbit(y) ? kSign : 0;
    mpfr_abs(y, y, MPFR_RNDN);
    long unit = mpfr_get_exp(y) - 24;
    if (subnormals && unit < -149) unit = -149;
    mpfr_mul_2si(scaled, y, -unit, MPFR_RNDN);
    const unsigned long ulps = mpfr_get_ui(scaled, MPFR_RNDD);
    mpfr_sub_ui(scaled, scaled, ulps, MPFR_RNDN);
    place.floor = (std::int64_t{unit + 149} << 23) + static_cast<std::int64_t>(ulps);
    place.rest = mpfr_get_d(scaled, MPFR_RNDZ);
    place.isExact = !isRounded && mpfr_zero_p(scaled);
    const int toTie = mpfr_cmp_d(scaled, 0.5);
    place.isNearAbove = toTie > 0 || (toTie == 0 && (ulps & 1));
    if (!isRounded) return place;
    // Off by less than 2^(24 - bits) ulps. A result below half the least number is not zero.
    const double open = std::ldexp(1, 25 - static_cast<int>(bits));
    const bool isTiny = ulps == 0 && unit == -149 && place.rest < 0.25;
    mpfr_ui_sub(y, 1, scaled, MPFR_RNDN);
    const double toNext = mpfr_get_d(y, MPFR_RNDN);
    mpfr_sub_d(scaled, scaled, 0.5, MPFR_RNDN);
    const double fromTie = std::fabs(mpfr_get_d(scaled, MPFR_RNDN));
    if ((place.rest > open || isTiny) && fromTie > open && toNext > open) return place;
    if (bits > 4000) std::abort();
  }
}

}  // namespace truth
