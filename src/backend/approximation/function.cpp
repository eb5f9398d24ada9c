#include "backend/approximation/function.h"

#include <algorithm>

namespace approximation {

namespace {

using Series = std::vector<Interval>;
using Kind = Function::Kind;
using Node = Function::Node;

Interval zero(mpfr_prec_t precision) { return Interval(0, precision); }

// Coefficients 0 to `order` of an expression's power series about any point of an interval, or an
// empty series where it has none. Constants stay short: what is beyond a series' end is 0.
class SeriesEvaluator {
 public:
  SeriesEvaluator(const std::vector<Node>& nodes, mpfr_prec_t precision)
      : nodes(nodes), precision(precision) {}

  Series evaluate(int index, const Interval& x, int order) const {
    const Node& node = nodes[static_cast<std::size_t>(index)];
    if (node.kind == Kind::kVariable) return {x, Interval(1, precision)};
    if (node.kind == Kind::kPi) return {pi(precision)};
    if (node.kind == Kind::kNumber) return {number(node)};
    if (node.kind == Kind::kDivide && isVariable(node.right)) {
      Series quotient = quotientByVariable(node.left, x, order);
      if (!quotient.empty()) return quotient;
    }
    if (node.kind == Kind::kChoice) {
      if (compareToNumber(x.low(), node) >= 0) return evaluate(node.right, x, order);
      if (compareToNumber(x.high(), node) <= 0) return evaluate(node.left, x, order);
      return {};
    }
    const Series left = evaluate(node.left, x, order);
    if (left.empty()) return {};
    if (node.right < 0) return checked(unary(node, left, order), order);
    const Series right = evaluate(node.right, x, order);
    if (right.empty()) return {};
    return checked(binary(node.kind, left, right, order), order);
  }

 private:
  bool isVariable(int index) const {
    return nodes[static_cast<std::size_t>(index)].kind == Kind::kVariable;
  }
  // Cut to the coefficients that are right, or empty where one has no bound.
  static Series checked(Series series, int order) {
    if (static_cast<int>(series.size()) > order + 1)
      series.erase(series.begin() + order + 1, series.end());
    for (const Interval& coefficient : series)
      if (!coefficient.isBounded()) return {};
    return series;
  }
  Interval number(const Node& node) const {
    Interval value(node.number, 0, precision);
    if (node.digits == 0) return value;
    util::MPZ power;
    mpz_ui_pow_ui(power.get(), 10, static_cast<unsigned long>(node.digits));
    return value / Interval(power, 0, precision);
  }

  // The sign of x less the node's number, exactly.
  static int compareToNumber(mpfr_srcptr x, const Node& node) {
    mpq_t number;
    mpq_init(number);
    mpz_set(mpq_numref(number), node.number.get());
    mpz_ui_pow_ui(mpq_denref(number), 10, static_cast<unsigned long>(node.digits));
    mpq_canonicalize(number);
    const int order = mpfr_cmp_q(x, number);
    mpq_clear(number);
    return order;
  }

  // Empty unless x is at 0 or close to it for its width, and the numerator vanishes there.
  Series quotientByVariable(int numerator, const Interval& x, int order) const {
    if (x.isPoint() && !x.isZero()) return {};
    const Interval around = hull(x, zero(precision));
    if (!x.containsZero()) {
      const Interval reach = around - around, width = x - x;
      const Interval limit = times(width, 8);
      if (mpfr_cmp(reach.high(), limit.high()) > 0) return {};
    }
    const Series atZero = evaluate(numerator, zero(precision), 0);
    if (atZero.empty() || !atZero[0].isZero()) return {};
    Series series = evaluate(numerator, around, order + 1);
    if (series.empty()) return {};
    series.erase(series.begin());
    if (series.empty()) series.push_back(zero(precision));
    return series;
  }

  Series binary(Kind kind, const Series& a, const Series& b, int order) const {
    if (kind == Kind::kMultiply) return product(a, b, order);
    if (kind == Kind::kDivide) return quotient(a, b, order);
    Series sum;
    for (std::size_t n = 0; n < std::max(a.size(), b.size()); ++n) {
      if (n >= b.size())
        sum.push_back(a[n]);
      else if (n >= a.size())
        sum.push_back(kind == Kind::kAdd ? b[n] : -b[n]);
      else
        sum.push_back(kind == Kind::kAdd ? a[n] + b[n] : a[n] - b[n]);
    }
    return sum;
  }

  Series unary(const Node& node, const Series& u, int order) const {
    switch (node.kind) {
      case Kind::kNegate: {
        Series result;
        for (const Interval& coefficient : u) result.push_back(-coefficient);
        return result;
      }
      case Kind::kPower: {
        Series result{Interval(1, precision)};
        for (util::MPZ n = node.number; n.sign() > 0; n -= 1) result = product(result, u, order);
        return result;
      }
      case Kind::kExp:
        return exponential(u, order);
      case Kind::kLog:
        // log(u)' = u' / u.
        return antiderivative(log(u[0]), quotient(derivative(u), u, order));
      case Kind::kSqrt:
        return root(u, order);
      case Kind::kSin:
        return sineAndCosine(u, order).first;
      case Kind::kCos:
        return sineAndCosine(u, order).second;
      case Kind::kAsin: {
        if (order == 0) return {asin(u[0])};
        const Series rest =
            binary(Kind::kSubtract, {Interval(1, precision)}, product(u, u, order), order);
        return antiderivative(asin(u[0]), quotient(derivative(u), root(rest, order), order));
      }
      case Kind::kAtan: {
        const Series rest =
            binary(Kind::kAdd, {Interval(1, precision)}, product(u, u, order), order);
        return antiderivative(atan(u[0]), quotient(derivative(u), rest, order));
      }
      case Kind::kFloor:
        return {floor(u[0])};
      case Kind::kVariable:
      case Kind::kNumber:
      case Kind::kPi:
      case Kind::kAdd:
      case Kind::kSubtract:
      case Kind::kMultiply:
      case Kind::kDivide:
      case Kind::kChoice:
        break;
    }
    return {};
  }

  // The sum of a[i] b[n - i] for i from `first`.
  Interval convolution(const Series& a, const Series& b, int n, int first) const {
    Interval sum = zero(precision);
    const int lastB = static_cast<int>(b.size()) - 1, lastA = static_cast<int>(a.size()) - 1;
    for (int i = std::max(first, n - lastB); i <= std::min(n, lastA); ++i)
      sum += a[static_cast<std::size_t>(i)] * b[static_cast<std::size_t>(n - i)];
    return sum;
  }
  Series product(const Series& a, const Series& b, int order) const {
    const int degree = static_cast<int>(a.size() + b.size()) - 2;
    Series result;
    for (int n = 0; n <= std::min(order, degree); ++n) result.push_back(convolution(a, b, n, 0));
    return result;
  }
  Series quotient(const Series& a, const Series& b, int order) const {
    if (b.empty() || !b[0].isBounded() || b[0].containsZero()) return {};
    const bool isConstant = b.size() == 1;
    Series result;
    for (int n = 0; n <= (isConstant ? static_cast<int>(a.size()) - 1 : order); ++n) {
      const Interval above =
          static_cast<std::size_t>(n) < a.size() ? a[static_cast<std::size_t>(n)] : zero(precision);
      result.push_back((above - convolution(b, result, n, 1)) / b[0]);
    }
    return result;
  }
  Series derivative(const Series& u) const {
    Series result;
    for (std::size_t n = 1; n < u.size(); ++n) result.push_back(times(u[n], n));
    if (result.empty()) result.push_back(zero(precision));
    return result;
  }
  Series antiderivative(const Interval& first, const Series& slope) const {
    if (slope.empty()) return {};
    Series result{first};
    for (std::size_t n = 0; n < slope.size(); ++n) result.push_back(dividedBy(slope[n], n + 1));
    if (slope.size() == 1 && slope[0].isZero()) result.pop_back();
    return result;
  }
  // n e_n = the sum of i u_i e_(n - i).
  Series exponential(const Series& u, int order) const {
    Series result{exp(u[0])};
    if (u.size() == 1) return result;
    const Series slope = derivative(u);
    for (int n = 1; n <= order; ++n)
      result.push_back(
          dividedBy(convolution(slope, result, n - 1, 0), static_cast<unsigned long>(n)));
    return result;
  }
  // 2 r_0 r_n = u_n - the sum of r_i r_(n - i) for 0 < i < n.
  Series root(const Series& u, int order) const {
    Series result{sqrt(u[0])};
    if (u.size() == 1 || order == 0) return result;
    if (mpfr_sgn(u[0].low()) <= 0) return {};
    const Interval twice = times(result[0], 2);
    for (int n = 1; n <= order; ++n) {
      const Interval above =
          static_cast<std::size_t>(n) < u.size() ? u[static_cast<std::size_t>(n)] : zero(precision);
      // The convolution ends before r_n, which is not there yet.
      result.push_back((above - convolution(result, result, n, 1)) / twice);
    }
    return result;
  }
  std::pair<Series, Series> sineAndCosine(const Series& u, int order) const {
    Series sine{sin(u[0])}, cosine{cos(u[0])};
    if (u.size() == 1) return {sine, cosine};
    const Series slope = derivative(u);
    for (int n = 1; n <= order; ++n) {
      const auto divisor = static_cast<unsigned long>(n);
      Interval next = dividedBy(convolution(slope, cosine, n - 1, 0), divisor);
      cosine.push_back(dividedBy(-convolution(slope, sine, n - 1, 0), divisor));
      sine.push_back(std::move(next));
    }
    return {sine, cosine};
  }

  const std::vector<Node>& nodes;
  const mpfr_prec_t precision;
};

}  // namespace

std::optional<std::vector<Interval>> Function::taylor(const Interval& x, int order) const {
  const SeriesEvaluator evaluator(nodes, x.precision());
  Series series = evaluator.evaluate(static_cast<int>(nodes.size()) - 1, x, order);
  if (series.empty()) return std::nullopt;
  series.resize(static_cast<std::size_t>(order) + 1, zero(x.precision()));
  return series;
}

std::optional<Interval> Function::value(const Interval& x) const {
  auto series = taylor(x, 0);
  if (!series) return std::nullopt;
  return std::move((*series)[0]);
}

}  // namespace approximation
