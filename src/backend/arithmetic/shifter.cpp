#include "backend/arithmetic/shifter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

namespace arithmetic {

namespace {

// Bits that hold every amount in [0, maxAmount].
int amountBits(int maxAmount) { return std::bit_width(static_cast<unsigned>(maxAmount)); }

Signal movedUp(Builder& b, Signal x, int count) {
  if (count >= x.width) return b.zeros(x.width);
  return b.shiftedUp(b.slice(x, 0, x.width - count), count);
}

Signal movedDown(Builder& b, Signal x, int count) {
  if (count >= x.width) return b.zeros(x.width);
  return b.zeroExtend(b.slice(x, count, x.width - count), x.width);
}

// Two bits of a shift amount (one at the top of an odd width).
struct Digit {
  Signal index;
  int weight;  // places that an index of 1 shifts
  int choices() const { return 1 << index.width; }
};

// The digits of `amount` from bit `first` on, low first.
std::vector<Digit> digitsOf(Builder& b, Signal amount, int first = 0) {
  std::vector<Digit> digits;
  for (int low = first; low < amount.width; low += 2)
    digits.push_back({b.slice(amount, low, std::min(2, amount.width - low)), 1 << low});
  return digits;
}

// The part of an amount that can leave bits of a word of `width` bits, and whether more is asked.
struct SplitAmount {
  Signal low, beyond;
};
SplitAmount splitAmount(Builder& b, Signal amount, int width) {
  const int needed = std::min(amount.width, amountBits(width - 1));
  const Signal high = b.slice(amount, needed, amount.width - needed);
  return {b.slice(amount, 0, needed), high.width == 0 ? b.bit(false) : b.reduceOr(high)};
}

Signal maskedUnless(Builder& b, Signal condition, Signal x) {
  return b.bitAnd(x, b.replicate(b.bitNot(condition), x.width));
}

// Shifts x right by the digits, low first, and to 0 when `beyond` or not `present`; what is lost in
// front of it counts as dropped.
ShiftedRight shiftByLevels(Builder& b, Signal x, std::span<const Digit> digits, Signal lost,
                           Signal beyond, Signal present) {
  // A present number is not 0.
  std::vector<Signal> dropped{present ? beyond : b.bitAnd(beyond, b.reduceOr(b.concat({x, lost})))};
  if (lost.width > 0) dropped.push_back(b.reduceOr(lost));
  for (const Digit& digit : digits) {
    std::array<Signal, 4> choices, losses;
    for (int i = 0; i < digit.choices(); ++i) {
      const int count = i * digit.weight;
      choices[i] = movedDown(b, x, count);
      losses[i] = count == 0 ? b.bit(false) : b.reduceOr(b.slice(x, 0, std::min(count, x.width)));
    }
    dropped.push_back(b.pick(digit.index, std::span(losses).first(digit.choices())));
    x = b.pick(digit.index, std::span(choices).first(digit.choices()));
  }
  const Signal any = b.reduceOr(b.concat(dropped));
  if (!present) return {maskedUnless(b, beyond, x), any};
  return {maskedUnless(b, b.bitOr(beyond, b.bitNot(present)), x), b.bitAnd(any, present)};
}

// x * 2^(2^(width of amount) - 1 - amount). Products of the pieces of x with a power of two have no
// bit in common, so no carry joins them.
Signal shiftUpByProducts(Builder& b, Signal x, Signal amount, const BlockShape& shape) {
  if (amount.width == 0) return x;
  const int powers = 1 << amount.width;
  util::MPZ table;
  for (int i = 0; i < powers; ++i)
    table = table | util::MPZ::powerOfTwo(static_cast<unsigned long>(i * powers + powers - 1 - i));
  const Signal power = b.lut(amount, table, powers);
  const int pieces = (x.width + shape.wide - 1) / shape.wide;
  Signal result;
  int end = 0;
  for (int piece = 1; piece <= pieces; ++piece) {
    const int from = end;
    end = x.width * piece / pieces;
    const Signal product = b.multiply(b.slice(x, from, end - from), power);
    if (piece == 1) {
      result = product;
      continue;
    }
    const int shared = result.width - from;
    result = b.concat({b.slice(product, shared, product.width - shared),
                       b.bitOr(b.slice(result, from, shared), b.slice(product, 0, shared)),
                       b.slice(result, 0, from)});
  }
  return b.slice(result, 0, result.width - 1);  // the top bit is never set
}

}  // namespace

Signal shiftLeft(Builder& b, Signal x, Signal amount, int maxAmount) {
  const auto digits =
      digitsOf(b, b.slice(amount, 0, std::min(amount.width, amountBits(maxAmount))));
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    std::array<Signal, 4> choices;
    for (int i = 0; i < digit->choices(); ++i) choices[i] = movedUp(b, x, i * digit->weight);
    x = b.pick(digit->index, std::span(choices).first(digit->choices()));
  }
  return x;
}

ShiftedLeft shiftLeftSticky(Builder& b, Signal x, Signal amount, int maxAmount, int kept) {
  const auto digits =
      digitsOf(b, b.slice(amount, 0, std::min(amount.width, amountBits(maxAmount))));
  std::vector<Signal> dropped;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    // The levels behind this one shift by less than its weight.
    const int next = std::min(x.width, kept + digit->weight - 1);
    std::array<Signal, 4> choices, losses;
    for (int i = 0; i < digit->choices(); ++i) {
      const int lost = std::max(0, x.width - i * digit->weight - next);
      const Signal moved = movedUp(b, x, i * digit->weight);
      choices[i] = b.slice(moved, x.width - next, next);
      losses[i] = lost > 0 ? b.reduceOr(b.slice(x, 0, lost)) : b.bit(false);
    }
    x = b.pick(digit->index, std::span(choices).first(digit->choices()));
    dropped.push_back(b.pick(digit->index, std::span(losses).first(digit->choices())));
  }
  kept = std::min(kept, x.width);
  const Signal below = b.slice(x, 0, x.width - kept);
  if (below.width > 0) dropped.push_back(b.reduceOr(below));
  return {b.slice(x, x.width - kept, kept),
          dropped.empty() ? b.bit(false) : b.reduceOr(b.concat(dropped))};
}

ShiftedRight shiftRightSticky(Builder& b, Signal x, Signal amount, Signal present) {
  const auto [low, beyond] = splitAmount(b, amount, x.width);
  return shiftByLevels(b, x, digitsOf(b, low), {}, beyond, present);
}

bool canShiftByProducts(int width, const BlockShape& shape) {
  constexpr int kBlocks = 4;
  return shape.wide > 0 && shape.narrow > 1 && width <= kBlocks * shape.wide;
}

ShiftedRight shiftRightByProducts(Builder& b, Signal x, int below, Signal amount,
                                  const BlockShape& shape, Signal present) {
  const auto [low, beyond] = splitAmount(b, amount, x.width + below);
  const int digits = std::min(low.width, amountBits(shape.narrow) - 1);
  Signal up = shiftUpByProducts(b, x, b.slice(low, 0, digits), shape);
  // It stands 2^digits - 1 places above x, less the amount.
  int places = up.width - x.width - below;
  if (places < 0) up = b.shiftedUp(up, -places), places = 0;
  return shiftByLevels(b, b.slice(up, places, up.width - places), digitsOf(b, low, digits),
                       b.slice(up, 0, places), beyond, present);
}

ShiftedRight shiftDownFromTop(Builder& b, Signal x, Signal amount, int width) {
  const int excess = std::max(0, x.width - width);
  Signal bits = b.slice(x, excess, x.width - excess);
  std::vector<Signal> dropped;
  if (excess > 0) dropped.push_back(b.reduceOr(b.slice(x, 0, excess)));
  int low = 0;
  for (; low < amount.width && (1 << low) < width; low += 2) {
    const Signal digit = b.slice(amount, low, std::min(2, amount.width - low));
    const int choices = 1 << digit.width;
    const int next = std::min(width, bits.width + ((choices - 1) << low));
    std::array<Signal, 4> words, losses;
    for (int i = 0; i < choices; ++i) {
      const int zeros = std::min(i << low, next);
      const int kept = std::min(bits.width, next - zeros);
      words[i] = b.concat(
          {b.zeros(zeros), b.slice(bits, bits.width - kept, kept), b.zeros(next - zeros - kept)});
      losses[i] =
          kept < bits.width ? b.reduceOr(b.slice(bits, 0, bits.width - kept)) : b.bit(false);
    }
    bits = b.pick(digit, std::span(words).first(choices));
    dropped.push_back(b.pick(digit, std::span(losses).first(choices)));
  }
  bits = b.shiftedUp(bits, width - bits.width);
  if (low < amount.width) {
    const Signal beyond = b.reduceOr(b.slice(amount, low, amount.width - low));
    dropped.push_back(b.bitAnd(beyond, b.reduceOr(x)));
    bits = b.bitAnd(bits, b.replicate(b.bitNot(beyond), width));
  }
  return {bits, dropped.empty() ? b.bit(false) : b.reduceOr(b.concat(dropped))};
}

Signal shiftRight(Builder& b, Signal x, Signal amount, int nearBits, Signal present) {
  nearBits = std::min(nearBits, x.width - 1);
  Signal near;
  if (nearBits > 0) {
    const Signal once =
        b.select(b.bitOf(amount, 0), b.slice(x, 1, nearBits), b.slice(x, 0, nearBits));
    const Signal far =
        amount.width > 1 ? b.reduceOr(b.slice(amount, 1, amount.width - 1)) : b.bit(false);
    near = maskedUnless(b, present ? b.bitOr(far, b.bitNot(present)) : far, once);
    x = b.slice(x, nearBits, x.width - nearBits);
  }
  const auto [low, beyond] = splitAmount(b, amount, x.width);
  for (const Digit& digit : digitsOf(b, low)) {
    std::array<Signal, 4> choices;
    for (int i = 0; i < digit.choices(); ++i) choices[i] = movedDown(b, x, i * digit.weight);
    x = b.pick(digit.index, std::span(choices).first(digit.choices()));
  }
  const Signal isGone = present ? b.bitOr(beyond, b.bitNot(present)) : beyond;
  return b.concat({maskedUnless(b, isGone, x), near});
}

}  // namespace arithmetic
