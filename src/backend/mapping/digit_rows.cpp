#include "backend/mapping/digit_rows.h"

#include <algorithm>
#include <array>

namespace mapping {

using graph::Builder;
using graph::Signal;

namespace {

// One chain: x times the bits [low, low + width) of y, the top one counting negatively if
// `isSigned`.
class Chain {
 public:
  Chain(Builder& b, const Factor& x, const Factor& y, int low, int width, bool isSigned)
      : b(b), x(x), y(y), low(low), width(width), isSigned(isSigned) {}

  void addTo(HeapTerms& terms) {
    const int rows = isSigned ? (width + 1) / 2 : width / 2 + 1;
    const int rowWidth = x.width() + 2;
    Signal sum = b.zeros(rowWidth);
    std::vector<Signal> topFirst;
    for (int row = 0; row < rows; ++row) {
      if (row > 0) {
        topFirst.insert(topFirst.begin(), b.slice(sum, 0, 2));
        sum = b.signExtend(b.slice(sum, 2, rowWidth - 2), rowWidth);
      }
      sum = withRow(sum, row);
    }
    topFirst.insert(topFirst.begin(), sum);
    const Signal whole = b.concat(topFirst);
    // The product's own width; an unsigned one has no sign.
    const bool hasSign = isSigned || x.isSigned;
    const Signal product = b.slice(whole, 0, std::min(whole.width, x.width() + width));
    const int shift = x.shift + y.shift + low;
    if (hasSign) {
      terms.addSigned(product, shift);
    } else {
      terms.add(product, shift);
    }
  }

 private:
  // Bit `place` of the factor; above its top copies of its sign.
  Signal bitAt(int place) const {
    const bool isInside = 0 <= place && place < width;
    if (!isInside && (place < 0 || !isSigned)) return b.bit(false);
    return b.bitOf(y.bits, low + std::min(place, width - 1));
  }

  // x times the digit y0 + y1 - 2 y2, less one where that is negative. Tables of six inputs take in
  // all of it and one bit more.
  Signal rowOf(Signal y2, Signal y1, Signal y0, int rowWidth) {
    const auto extended = [&](Signal bits) {
      return x.isSigned ? b.signExtend(bits, rowWidth) : b.zeroExtend(bits, rowWidth);
    };
    const Signal once = extended(x.bits), twice = extended(b.shiftedUp(x.bits, 1));
    const Signal index = b.bitXor(b.concat({y1, y0}), b.replicate(y2, 2));
    const Signal multiple = b.pick(index, std::array{b.zeros(rowWidth), once, once, twice});
    return b.bitXor(multiple, b.replicate(y2, rowWidth));
  }

  // sum + row: a difference, so that synthesis puts the sum and not the row on the chain's own
  // inputs. The row lacks a one where its digit is negative: a place below, y2 - 1, borrows where
  // it is not.
  Signal withRow(Signal sum, int row) {
    const Signal y2 = bitAt(2 * row + 1), y1 = bitAt(2 * row), y0 = bitAt(2 * row - 1);
    const Signal bits = rowOf(y2, y1, y0, sum.width);
    if (row == 0 && y2 == b.bit(false)) return bits;
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

void addDigitRows(Builder& b, HeapTerms& terms, const Factor& x, const Factor& y,
                  int bitsOfChain) {
  int low = 0;
  for (; y.width() - low > bitsOfChain; low += bitsOfChain)
    Chain(b, x, y, low, bitsOfChain, false).addTo(terms);
  Chain(b, x, y, low, y.width() - low, y.isSigned).addTo(terms);
}

}  // namespace mapping
