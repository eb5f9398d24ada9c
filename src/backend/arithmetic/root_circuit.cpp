#include "backend/arithmetic/root_circuit.h"

#include <fmt/format.h>

#include <algorithm>

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;

namespace {

// x y modulo 2^width, shifted.
struct LowProduct {
  Signal x, y;
  int shift = 0;
};

// The low bits of a product as strips, each of as many bits of x as a block takes and of no more
// bits of y than still count.
void addLowProduct(Builder& b, std::vector<HeapTerm>& terms, const LowProduct& product, int width,
                   const ProductPrices& prices) {
  const auto& [x, y, shift] = product;
  for (int low = 0; low < x.width && low + shift < width; low += prices.dspNarrow) {
    const int left = width - shift - low;
    const Signal strip = b.slice(x, low, std::min({prices.dspNarrow, x.width - low, left}));
    terms.push_back({b.multiply(b.slice(y, 0, std::min(y.width, left)), strip), low + shift});
  }
}

// x^2 modulo 2^width as (x0 + 2^(k + 1) x1) x0 + 2^(2 k) x1^2 for x = x0 + 2^k x1.
void addLowSquare(Builder& b, std::vector<HeapTerm>& terms, Signal x, int shift, int width,
                  const ProductPrices& prices) {
  const int bits = std::min(x.width, width - shift);
  if (bits <= 0) return;
  const int half = std::max(1, std::min((width - shift + 1) / 2, (bits + 1) / 2));
  const Signal low = b.slice(x, 0, half), high = b.slice(x, half, bits - half);
  addLowProduct(b, terms, {low, high.width > 0 ? b.concat({high, b.zeros(1), low}) : low, shift},
                width, prices);
  addLowSquare(b, terms, high, shift + 2 * half, width, prices);
}

void addConstant(Builder& b, std::vector<HeapTerm>& terms, const MPZ& value, int width) {
  if (!value.isZero()) terms.push_back({b.literal(value, width), 0});
}

// The low `width` bits of T^2.
std::vector<HeapTerm> lowSquare(Builder& b, Signal t, bool plusOne, int width,
                                const ProductPrices& prices) {
  std::vector<HeapTerm> terms;
  const bool isOdd = !plusOne && b.isLiteral(b.bitOf(t, 0)) && !b.valueOf(b.bitOf(t, 0)).isZero();
  if (isOdd) {  // (2 k + 1)^2 = 4 (k^2 + k) + 1
    const Signal k = b.slice(t, 1, t.width - 1);
    if (k.width > 0) {
      addLowSquare(b, terms, k, 2, width, prices);
      terms.push_back({k, 2});
    }
    addConstant(b, terms, 1, width);
    return terms;
  }
  addLowSquare(b, terms, t, 0, width, prices);
  if (plusOne) {  // t^2 + 2 t + 1
    terms.push_back({t, 1});
    addConstant(b, terms, 1, width);
  }
  return terms;
}

// The low `width` bits of T y.
std::vector<HeapTerm> lowProduct(Builder& b, Signal t, bool plusOne, Signal y, int width,
                                 const ProductPrices& prices) {
  std::vector<HeapTerm> terms;
  const bool isOdd = !plusOne && b.isLiteral(b.bitOf(t, 0)) && !b.valueOf(b.bitOf(t, 0)).isZero();
  if (isOdd && t.width > 1) {
    addLowProduct(b, terms, {b.slice(t, 1, t.width - 1), y, 1}, width, prices);
    terms.push_back({y, 0});
    return terms;
  }
  addLowProduct(b, terms, {t, y, 0}, width, prices);
  if (plusOne) terms.push_back({y, 0});
  return terms;
}

bool hasParity(const RootRequest& r) { return r.root != Root::kReciprocal && !r.isEven; }

}  // namespace

PolynomialRequest polynomialOf(const RootRequest& r) {
  const std::string less =
      r.lowered ? fmt::format(" - 1 / {}", MPZ::powerOfTwo(-r.resultLsb).toText(10)) : "";
  const auto rootOf = [&](const std::string& begin) {
    const std::string even = begin + "sqrt(1 + x)" + less;
    return r.isEven ? even : "x < 1 ? " + even + " : " + begin + "sqrt(2 * x)" + less;
  };
  std::string function;
  switch (r.root) {
    case Root::kReciprocal:
      function = "2 / (1 + x)" + less;
      break;
    case Root::kSquareRoot:
      function = rootOf("");
      break;
    case Root::kReciprocalSquareRoot:
      function = rootOf("2 / ");
      break;
  }
  return {.function = function,
          .argument = {r.fractionBits + (hasParity(r) ? 1 : 0), -r.fractionBits},
          .resultLsb = r.resultLsb,
          .promise = r.promise,
          .prices = r.prices};
}

Signal rootArgument(Builder& b, const RootRequest& request, Signal fraction, Signal isOdd) {
  return hasParity(request) ? b.concat({isOdd, fraction}) : fraction;
}

Signal isBelowRoot(Builder& b, Signal t, Signal a, Signal orEqual, const RootComparison& how) {
  const auto scope = b.scope("remainder");
  const int width = how.logDifference + 1;
  std::vector<HeapTerm> terms;  // the left side less the right one, less one where `orEqual`
  switch (how.root) {
    case Root::kReciprocal:
      terms = lowProduct(b, t, how.plusOne, a, width, how.prices);
      break;
    case Root::kSquareRoot:
      terms = lowSquare(b, t, how.plusOne, width, how.prices);
      if (how.scale < 0)
        for (HeapTerm& term : terms) term.shift -= how.scale;
      break;
    case Root::kReciprocalSquareRoot: {
      const int all = 2 * (t.width + (how.plusOne ? 1 : 0));
      const int bits = std::min(width, all);
      const Signal square = b.heap(lowSquare(b, t, how.plusOne, bits, how.prices), bits);
      addLowProduct(b, terms, {a, square, 0}, width, how.prices);
      break;
    }
  }
  if (how.root == Root::kSquareRoot) {  // -a = ~a + 1
    const int shift = std::max(0, how.scale);
    if (shift < width) {
      terms.push_back({b.bitNot(b.zeroExtend(a, width - shift)), shift});
      addConstant(b, terms, MPZ::powerOfTwo(static_cast<unsigned long>(shift)), width);
    }
  } else if (how.scale < width) {
    addConstant(b, terms, -MPZ::powerOfTwo(static_cast<unsigned long>(how.scale)), width);
  }
  terms.push_back({b.replicate(orEqual, width), 0});
  return b.topBit(b.heap(terms, width));
}

double priceOf(const RootComparison& how, int tBits, int aBits) {
  const int width = how.logDifference + 1;
  const auto product = [&](int x, int y) {
    const auto plan = planProduct({std::min(x, width), std::min(y, width)}, how.prices);
    const double kept = x + y > width ? 0.75 : 1;
    return kept * priceOf(plan, how.prices);
  };
  switch (how.root) {
    case Root::kReciprocal:
      return product(tBits, aBits);
    case Root::kSquareRoot:
      return product((std::min(tBits, width) + 1) / 2, tBits);
    case Root::kReciprocalSquareRoot:
      return product(tBits, tBits) + product(2 * tBits, aBits);
  }
  return 0;
}

}  // namespace arithmetic
