#include "backend/arithmetic/digit_recurrence.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

namespace {

// `count` bits of x from `low` up, zeros where x has none.
Signal bitsFrom(Builder& b, Signal x, int low, int count) {
  const int from = std::max(low, 0), below = from - low;
  if (below >= count) return b.zeros(count);
  return b.shiftedUp(b.slice(x, from, count - below), below);
}

// `width` places of an addend from `low` up.
using Places = std::function<Signal(int low, int width)>;

// x, complemented where `inverts`, as an addend. Where the other addend of a chain, which has no
// logic in front of it, is a join, synthesis makes this one beside the chain instead of in it,
// unless it is a join of more parts.
Signal addendOf(Builder& b, int width, const Places& x, Signal inverts) {
  const auto part = [&](int low, int places) {
    return b.name(b.bitXor(x(low, places), b.replicate(inverts, places)), "addend");
  };
  const int single = std::min(3, width - 1);
  std::vector<Signal> parts{part(single, width - single)};
  for (int i = single; i-- > 0;) parts.push_back(part(i, 1));
  return b.concat(parts);
}

// subtractIf ? a 2^zeros - x : a 2^zeros + x, modulo 2^width.
Signal addOrSubtract(Builder& b, Signal a, int zeros, const Places& x, int width,
                     Signal subtractIf) {
  const Signal from = b.shiftedUp(b.slice(a, 0, width - zeros), zeros);
  return b.addCarry(from, addendOf(b, width, x, subtractIf), subtractIf);
}

bool isBelow(const MPZ& error, int scale, double units) {
  return mpz_cmp_d(error.get(), std::ldexp(units, scale)) < 0;
}

// Fraction bits that the first table of a root finds, and the radicand's that it reads.
constexpr int kTableDigits = 2, kTableBits = 2 + 2 * kTableDigits;

// Root with kTableDigits bits of fraction, less its top bit, and the remainder, for the leading
// kTableBits bits of a radicand; zeros for one below 1.
Signal rootTable(Builder& b, Signal leading, int remainderBits) {
  std::vector<MPZ> rows(std::size_t{1} << kTableBits);
  for (std::size_t x = rows.size() / 4; x < rows.size(); ++x) {
    std::size_t root = std::size_t{1} << kTableDigits;
    while ((root + 1) * (root + 1) <= x) ++root;
    rows[x] = (MPZ(root).lowBits(kTableDigits) << static_cast<unsigned long>(remainderBits)) |
              MPZ(x - root * root);
  }
  return b.table(leading, rows, kTableDigits + remainderBits);
}

}  // namespace

RowPlan exactRootPlan(int fractionBits) { return {fractionBits, fractionBits, 0, 0}; }

// The rows from J + 1 to n find no digits of the radicand. Row j makes up for what it drops by one
// unit of 4^(j - J) in the residual r[j], of which 4^j is 1: it adds at most 4^-J to the radicand,
// and nothing is ever taken away. So each row decides on its bit as if for a radicand + d, where d
// grows from row to row up to (n - J) 4^-J; once d is so large that the root leaves the bits found,
// ones follow. The bits are those of sqrt(radicand + d') for some d' of these, or all ones, and
// sqrt(radicand + d) - sqrt(radicand) <= d / 2.
RowPlan truncatedRootPlan(int fractionBits, int radicandFraction, double units) {
  LOAM_ASSERT(units <= 1, "an error below the last place");
  const int least = std::max(kTableDigits, (radicandFraction + 1) / 2);
  for (int exact = least; exact < fractionBits; ++exact) {
    // (n - J) 4^-J 2^n / 2 units of the last place, 2^-n.
    const MPZ rows(fractionBits - exact);
    const int scale = 2 * exact + 1 - fractionBits;
    const MPZ error = scale >= 0 ? rows : rows << static_cast<unsigned long>(-scale);
    if (isBelow(error, std::max(0, scale), units))
      return {fractionBits, exact, error, std::max(0, scale)};
  }
  return exactRootPlan(fractionBits);
}

// With X[j] = floor(radicand 4^j) and the bits Q[j] decided so far, r[j] = X[j] - (2 Q[j-1] + 1)^2
// tells bit j by its sign, and lies in [-4 Q[j-1] - 1, 4 Q[j-1] + 2], which j + 3 bits hold. From
//   r[j-1] >= 0:  r[j] = 4 r[j-1] + pair - (4 Q[j-1] + 1)
//   r[j-1] <  0:  r[j] = 4 r[j-1] + pair + (4 Q[j-1] + 3)
// the addend is the root's bits, inverted in the first case, and 11 behind them in either: pair + 3
// needs no chain, and the carry out of it is 1 unless the pair is 0.
DigitResult rootByDigits(Builder& b, Signal radicand, const RowPlan& plan) {
  const auto scope = b.scope("root");
  const int fraction = radicand.width - 2, n = plan.digits;
  LOAM_ASSERT(n >= 1 && plan.exactRows >= std::min(kTableDigits, n), "rows");
  const int remainderBits = kTableDigits + 2;
  const Signal found =
      rootTable(b, bitsFrom(b, radicand, fraction - 2 * kTableDigits, kTableBits), remainderBits);
  Signal root = b.concat({b.bit(true), b.slice(found, remainderBits, kTableDigits)});
  Signal residual = b.zeroExtend(b.slice(found, 0, remainderBits), remainderBits + 1);
  if (n <= kTableDigits) {
    const Signal rest = b.slice(radicand, 0, std::max(0, fraction - 2 * kTableDigits));
    const Signal further = b.slice(root, 0, kTableDigits - n);
    return {b.slice(root, kTableDigits - n, n + 1),
            b.reduceOr(b.concat({further, residual, rest}))};
  }

  // The root is kept inverted, as the residuals' signs tell it.
  Signal negative = b.bit(false), signs = b.bitNot(root), tried;  // tried: Q[j-1]
  for (int j = kTableDigits + 1; j <= n; ++j) {
    const auto row = b.scope("row");
    tried = signs;
    const bool isExact = j <= plan.exactRows;
    // Of the places of 4 r[j-1], all but two zeros are kept where places are dropped: its lowest is
    // 4^(j - J). What was added, less than 2^(j + 2), takes one place more on top.
    const int dropped = isExact ? 0 : 2 * (j - plan.exactRows - 1);
    const int width = (isExact ? j + 1 : j + 2) - dropped;
    const Signal whole = b.concat({b.ones(2), signs});
    const auto places = [&](int low, int count) { return b.slice(whole, dropped + low, count); };
    const Signal addend = addendOf(b, width, places, negative);
    const Signal from = b.slice(b.signExtend(residual, std::max(residual.width, width)), 0, width);
    if (isExact) {
      const Signal pair = bitsFrom(b, radicand, fraction - 2 * j, 2);
      const Signal low = b.bitOf(pair, 0), high = b.bitOf(pair, 1);
      const Signal sum = b.addCarry(from, addend, b.reduceOr(pair));
      residual = b.concat({sum, b.bitNot(b.bitXor(high, low)), b.bitNot(low)});
    } else {
      residual = b.addCarry(from, addend, b.bit(true));
    }
    negative = b.topBit(residual);
    signs = b.concat({signs, negative});
  }
  root = b.bitNot(signs);
  if (!plan.isExact()) return {root, {}};
  // A root with fewer bits ends in a 0, with r[n] = -(4 Q[n-1] + 1).
  const Signal last = b.concat({b.bit(false), b.bitNot(tried), b.zeros(2)});
  return {root, b.bitNot(b.equal(b.bitNot(residual), last))};
}

namespace {

// Where the choice of a digit changes, in quarters of 4 |w|, with y in [1, 2).
constexpr std::array kThresholds = {2, 3, 6, 7, 8, 10, 11};
constexpr int kDivisorBits = 3, kResidualBits = 6;  // that the choice looks at

// For y in [8 + i, 9 + i] / 8 the first threshold from which on a digit of at least `digit` leaves
// |4 w - digit y| <= 2/3 y, and up to which one less does:
//   (digit - 2/3) y <= threshold / 4 <= (digit - 1/3) y
constexpr int thresholdOf(int i, int digit) {
  for (const int threshold : kThresholds)
    if ((3 * digit - 2) * (9 + i) <= 6 * threshold && 6 * threshold <= (3 * digit - 1) * (8 + i))
      return threshold;
  return -1;
}
constexpr bool allIntervalsHaveThresholds() {
  for (int i = 0; i < 1 << kDivisorBits; ++i)
    if (thresholdOf(i, 1) < 0 || thresholdOf(i, 2) < 0) return false;
  return true;
}
static_assert(allIntervalsHaveThresholds());

int classOf(int magnitude) {
  return static_cast<int>(
      std::ranges::count_if(kThresholds, [&](int threshold) { return threshold <= magnitude; }));
}

// A digit, -2 to 2.
struct Digit {
  Signal negative;
  Signal magnitude;  // 2 bits
};

// The digit for a residual w. The magnitude of a negative residual is taken as its complement, the
// least unit less, which alters no more than on which side a threshold itself stands.
//   top          the kResidualBits top bits of 4 w, of which the lowest weighs 1/4
//   divisorBits  the kDivisorBits bits behind the divisor's top one
Digit digitOf(Builder& b, Signal top, Signal divisorBits) {
  constexpr int kClassBits = 3;
  std::vector<MPZ> classes, digits;
  for (int v = 0; v < 1 << kResidualBits; ++v) {
    const bool negative = v >> (kResidualBits - 1) != 0;
    classes.emplace_back(classOf((negative ? ~v : v) & ((1 << (kResidualBits - 1)) - 1)));
  }
  for (int i = 0; i < 1 << kDivisorBits; ++i)
    for (int c = 0; c < 1 << kClassBits; ++c)
      digits.emplace_back((c >= classOf(thresholdOf(i, 1)) ? 1 : 0) +
                          (c >= classOf(thresholdOf(i, 2)) ? 1 : 0));
  const Signal group = b.table(top, classes, kClassBits);
  return {b.topBit(top), b.table(b.concat({divisorBits, group}), digits, 2)};
}

// One unit more than a digit.
Digit raised(Builder& b, const Digit& digit) {
  std::vector<MPZ> rows;
  for (int row = 0; row < 8; ++row) {
    const int value = 1 + (row >> 2 != 0 ? -(row & 3) : row & 3);
    rows.emplace_back(value < 0 ? 4 - value : value);
  }
  const Signal sum = b.table(b.concat({digit.negative, digit.magnitude}), rows, 3);
  return {b.topBit(sum), b.slice(sum, 0, 2)};
}

// The digits of a quotient, of which the first weighs 1, and what they leave.
class Quotient {
 public:
  Quotient(Builder& b, Signal x, Signal y) : b(b), y(y), width(y.width) {
    LOAM_ASSERT(x.width == y.width && width >= 2, "factors of one width");
    divisorBits = bitsFrom(b, y, width - 1 - kDivisorBits, kDivisorBits);
    four = b.zeroExtend(x, width + 3);
  }

  void choose() {
    const int low = four.width - kResidualBits;
    digits.push_back(digitOf(b, bitsFrom(b, four, low, kResidualBits), divisorBits));
  }

  // Subtracts the multiple of the last digit. The lowest `dropped` places of the divisor are left
  // out: as many as with the digit before, or two more.
  void subtract(int dropped) {
    const Digit& digit = digits.back();
    const auto multiple = [&](int low, int places) {
      const auto times = [&](Signal x, int bit) {
        return b.bitAnd(b.slice(x, dropped + low, places),
                        b.replicate(b.bitOf(digit.magnitude, bit), places));
      };
      return b.bitOr(times(b.shiftedUp(y, 1), 1), times(b.zeroExtend(y, width + 1), 0));
    };
    four = addOrSubtract(b, four, lowest - dropped, multiple, width + 1 - dropped,
                         b.bitNot(digit.negative));
    lowest = dropped + 2;
  }

  void raiseLast() { digits.back() = raised(b, digits.back()); }

  // The sum of the digits, in units of the last one, with two bits before the fraction. Magnitudes
  // less twice those of the negative digits; so one addend is made of nothing but signals.
  Signal sum(Signal lessOne) {
    std::vector<Signal> all, negatives;
    for (const Digit& digit : digits) {
      all.push_back(digit.magnitude);
      negatives.push_back(b.bitAnd(digit.magnitude, b.replicate(digit.negative, 2)));
    }
    const Signal magnitudes = b.concat(all), twice = b.shiftedUp(b.concat(negatives), 1);
    return b.addCarry(magnitudes, b.bitNot(b.slice(twice, 0, magnitudes.width)), b.bitNot(lessOne));
  }

  Signal residual() const { return four; }

 private:
  Builder& b;
  Signal y;
  int width;
  Signal divisorBits;
  Signal four;     // 4 w, without the zeros at its end
  int lowest = 0;  // the place of its lowest bit
  std::vector<Digit> digits;
};

}  // namespace

DigitResult quotientByDigits(Builder& b, Signal x, Signal y, int digits) {
  const auto scope = b.scope("quotient");
  Quotient quotient(b, x, y);
  for (int j = 0; j <= digits; ++j) {
    const auto row = b.scope("row");
    quotient.choose();
    quotient.subtract(0);
  }
  // |w| <= 2/3 y: one bit more and the sign of 2 |w| - y, in two's complement, as what is left.
  const Signal w = quotient.residual(), negative = b.topBit(w);
  const auto divisor = [&](int low, int places) {
    return b.slice(b.zeroExtend(y, y.width + 1), low, places);
  };
  const Signal half = addOrSubtract(b, w, 1, divisor, y.width + 1, b.bitNot(negative));
  const Signal sum = quotient.sum(negative);
  return {b.concat({b.slice(sum, 0, sum.width - 1), b.bitNot(b.topBit(half))}), b.reduceOr(w)};
}

// Row j >= J leaves out less than 4^(j - J + 1) places of 2^(1 - width), which divided by y >= 1
// weigh 4^(k - j) in the last digit k: (k - J) 4^(k - J + 1) 2^(1 - width) altogether. Where the
// residual is off by so much that a digit is chosen that it would not choose, the digits behind it
// are the outermost until they have caught up, so that what is left at the end exceeds 2/3 y by no
// more than the sum.
RowPlan truncatedQuotientPlan(int digits, int width, double units) {
  // A quarter of the error is in the last residual, |w| < (2/3 + 1/3) y, of width + 1 bits.
  LOAM_ASSERT(3 * units <= 4, "residuals of width + 1 bits");
  for (int exact = 1; exact < digits; ++exact) {
    const int scale = width - 1 - 2 * (digits - exact + 1);
    const MPZ rows(digits - exact);
    const MPZ error = scale >= 0 ? rows : rows << static_cast<unsigned long>(-scale);
    if (isBelow(error, std::max(0, scale), units))
      return {digits, exact, error, std::max(0, scale)};
  }
  return {digits, digits, 0, 0};
}

double priceOfQuotient(int width, const RowPlan& plan) {
  constexpr double kChoice = 5;  // of a digit
  double price = kChoice * (plan.digits + 1) + 2 * (plan.digits + 1);
  for (int j = 0; j < plan.digits; ++j)
    price += std::max(0, width + 1 - 2 * std::max(0, j - plan.exactRows + 1));
  return plan.isExact() ? price + 2 * (width + 1) : price;
}

Signal nearQuotient(Builder& b, Signal x, Signal y, const RowPlan& plan, bool up) {
  const auto scope = b.scope("quotient");
  Quotient quotient(b, x, y);
  for (int j = 0; j < plan.digits; ++j) {
    const auto row = b.scope("row");
    quotient.choose();
    quotient.subtract(2 * std::max(0, j - plan.exactRows + 1));
  }
  quotient.choose();
  if (up) quotient.raiseLast();
  return quotient.sum(b.bit(false));
}

}  // namespace arithmetic
