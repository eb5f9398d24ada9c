#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/approximation/interval.h"
#include "util/failure.h"

namespace approximation {

// A real function of x as an expression, in Sollya's notation: numbers, x, pi, + - * /, ^ (a power
// by a whole number, or of a positive base), and exp, expm1, log, log2, log10, log1p, sqrt, sin,
// cos, tan, asin, acos, atan, sinh, cosh, tanh, floor of one argument. "(2^x - 1)/x" is fine at 0
// and around it: a quotient by x whose numerator vanishes at 0 goes on without a gap. With floor(x)
// and x - floor(x) each unit of x may have a function of its own: between two integers floor is the
// lower one, and stays it up to the higher one at the end of an interval.
// "x < 1 ? f : g" is f below the number and g from there on: an interval up to the number has f,
// one from it has g, and one with both has no enclosure.
class Function {
 public:
  // Fails with the place where the text stops being an expression.
  static util::Result<Function> parse(const std::string& text);

  const std::string& text() const { return source; }

  // Enclosures of f^(n)(y) / n! for all y in x, n = 0 to `order`, at the precision of x; nothing
  // where the expression has no bounded enclosure (a pole, a branch point, or too wide an x).
  //
  // By power-series arithmetic on intervals (Moore, "Interval analysis", 1966). A quotient u / x
  // near 0 with u(0) = 0 uses u(y) / y = the integral of u'(s y) over s in [0, 1], so that its
  // coefficient n is one of the values that coefficient n + 1 of u takes between 0 and y.
  std::optional<std::vector<Interval>> taylor(const Interval& x, int order) const;
  // Enclosure of f over x.
  std::optional<Interval> value(const Interval& x) const;

  enum class Kind {
    kVariable,
    kNumber,
    kPi,
    kAdd,
    kSubtract,
    kNegate,
    kMultiply,
    kDivide,
    kPower,
    kExp,
    kLog,
    kSqrt,
    kSin,
    kCos,
    kAsin,
    kAtan,
    kFloor,
    kChoice  // left below number / 10^digits, right from there on
  };
  struct Node {
    Kind kind;
    int left = -1, right = -1;  // earlier nodes
    util::MPZ number = 0;       // kNumber: number / 10^digits; kPower: the exponent, not negative
    int digits = 0;
  };

 private:
  Function() = default;
  std::string source;
  std::vector<Node> nodes;  // the last one is the function
};

}  // namespace approximation
