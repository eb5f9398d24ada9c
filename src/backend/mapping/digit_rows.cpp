#include "backend/mapping/digit_rows.h"

#include <algorithm>
#include <array>

namespace mapping {

using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

// One chain: x times the bits [low, low + width) of y, the top one counting negatively if
// `isSigned`.
class Chain {
 public:
  Chain(Builder& b, const Factor& x, const Factor& y, int low, int width, bool isSigned)
      : b(b), x(x), y(y), low(low), width(width), isSigned(isSigned) {}

  void addTo(HeapTerms& terms) {
    // The lowest bit by itself, without a carry, where that leaves whole digits.
    const bool hasLoneBit = width % 2 == (isSigned ? 1 : 0) && width > 1;
    const int first = hasLoneBit ? 1 : 0;
    const int digits = isSigned ? (width - first + 1) / 2 : (width - first) / 2 + 1;
    const int rowWidth = x.width() + 2;
    const bool hasSign = isSigned || x.isSigned;
    Signal sum = b.zeros(rowWidth);
    std::vector<Signal> topFirst;
    const auto shiftedDown = [&](int count) {
      topFirst.insert(topFirst.begin(), b.slice(sum, 0, count));
      return b.signExtend(b.slice(sum, count, rowWidth - count), rowWidth);
    };
    if (!hasLoneBit && !hasSign) sum = constantOf(terms, rowWidth);
    if (hasLoneBit) {
      sum = b.bitAnd(extended(x.bits, rowWidth), b.replicate(bitAt(0), rowWidth));
      sum = shiftedDown(1);
    }
    for (int digit = 0; digit < digits; ++digit) {
      if (digit > 0) sum = shiftedDown(2);
      const int place = first + 2 * digit;
      const Signal below = digit > 0 ? bitAt(place - 1) : b.bit(false);
      sum = withRow(sum, bitAt(place + 1), bitAt(place), below);
    }
    topFirst.insert(topFirst.begin(), sum);
    const Signal whole = b.concat(topFirst);
    // The product's own width; an unsigned one has no sign.
    const Signal product = b.slice(whole, 0, std::min(whole.width, x.width() + width));
    if (hasSign) {
      terms.addSigned(product, shift());
    } else {
      terms.add(product, shift());
    }
  }

 private:
  int shift() const { return x.shift + y.shift + low; }

  // The constant of the whole sum, if the chain's product leaves room for it: the first row is
  // added to it. Below 2^width(x) no row's sum outgrows its two bits more.
  Signal constantOf(HeapTerms& terms, int rowWidth) {
    const MPZ most = MPZ::allOnes(x.width());
    const MPZ room = MPZ::powerOfTwo(x.width() + width) - MPZ(1) - most * MPZ::allOnes(width);
    return b.literal(terms.takeConstant(shift(), std::min(room, most)), rowWidth);
  }

  // Bit `place` of the factor; above its top copies of its sign.
  Signal bitAt(int place) const {
    const bool isInside = 0 <= place && place < width;
    if (!isInside && (place < 0 || !isSigned)) return b.bit(false);
    return b.bitOf(y.bits, low + std::min(place, width - 1));
  }

  Signal extended(Signal bits, int rowWidth) {
    return x.isSigned ? b.signExtend(bits, rowWidth) : b.zeroExtend(bits, rowWidth);
  }

  // x times the digit y0 + y1 - 2 y2, less one where that is negative. Tables of six inputs take in
  // all of it and one bit more.
  Signal rowOf(Signal y2, Signal y1, Signal y0, int rowWidth) {
    const Signal once = extended(x.bits, rowWidth);
    const Signal twice = extended(b.shiftedUp(x.bits, 1), rowWidth);
    const Signal index = b.bitXor(b.concat({y1, y0}), b.replicate(y2, 2));
    const Signal multiple = b.pick(index, std::array{b.zeros(rowWidth), once, once, twice});
    return b.bitXor(multiple, b.replicate(y2, rowWidth));
  }

  // sum + row: a difference, so that synthesis puts the sum and not the row on the chain's own
  // inputs. The row lacks a one where its digit is negative: a place below, y2 - 1, borrows where
  // it is not.
  Signal withRow(Signal sum, Signal y2, Signal y1, Signal y0) {
    const Signal bits = rowOf(y2, y1, y0, sum.width);
    if (sum == b.zeros(sum.width) && y2 == b.bit(false)) return bits;
    const Signal complement = b.concat({b.bitNot(bits), b.bit(true)});
    return b.slice(b.subtract(b.concat({sum, y2}), complement), 1, sum.width);
  }

  Builder& b;
  const Factor& x;
  const Factor& y;
  int low, width;
  bool isSigned;
};

}  // namespace

void addDigitRows(Builder& b, HeapTerms& terms, const Factor& x, const Factor& y, int bitsOfChain) {
  int low = 0;
  for (; y.width() - low > bitsOfChain; low += bitsOfChain)
    Chain(b, x, y, low, bitsOfChain, false).addTo(terms);
  Chain(b, x, y, low, y.width() - low, y.isSigned).addTo(terms);
}

}  // namespace mapping
