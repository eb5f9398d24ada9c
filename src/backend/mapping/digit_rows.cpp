#include "backend/mapping/digit_rows.h"

#include <algorithm>
#include <array>
#include <optional>

namespace mapping {

using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

// One bit that a table reads: a signal, or a constant.
struct Bit {
  Signal signal;
  bool one = false;
};

// The bits of a row: x times the digit that three neighbouring bits of y make, each bit a table of
// at most five inputs.
class Row {
 public:
  // y2 y1 y0: the digit is y0 + y1 - 2 y2.
  Row(Builder& b, const Factor& x, std::array<Bit, 3> digit) : b(b), x(x), digit(digit) {}

  // Bit `place` of the row's complement without its sign's one.
  Signal complementAt(int place) const {
    const std::array<Bit, 5> read{bitOf(place), bitOf(place - 1), digit[0], digit[1], digit[2]};
    std::vector<Signal> inputs;
    for (const Bit& bit : read)
      if (bit.signal) inputs.push_back(bit.signal);
    MPZ contents;
    for (unsigned long pattern = 0; pattern < 1ul << inputs.size(); ++pattern) {
      std::array<bool, 5> v{};
      std::size_t left = inputs.size();
      for (std::size_t i = 0; i < read.size(); ++i)
        v[i] = read[i].signal ? (pattern >> --left & 1) != 0 : read[i].one;
      const auto [here, below, y2, y1, y0] = v;
      const bool single = y1 != y0, twofold = y2 != y1 && y1 == y0;
      const bool bit = ((single && here) || (twofold && below)) != y2;
      if (!bit) contents += MPZ::powerOfTwo(pattern);
    }
    if (inputs.empty()) return b.bit(contents.bit(0));
    return b.lut(b.concat(inputs), contents, 1);
  }

 private:
  Bit bitOf(int place) const {
    if (place < 0) return {};
    if (place < x.width()) return {b.bitOf(x.bits, place)};
    return x.isSigned ? Bit{b.topBit(x.bits)} : Bit{};
  }

  Builder& b;
  const Factor& x;
  std::array<Bit, 3> digit;
};

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
  Bit bitAt(int place) const {
    if (place < 0) return {};
    if (place < width) return {b.bitOf(y.bits, low + place)};
    return isSigned ? Bit{b.bitOf(y.bits, low + width - 1)} : Bit{};
  }

  // sum + row: a difference, so that synthesis puts the sum and not the row on the chain's own
  // inputs. The row's complement lacks a one where its digit is negative; a place below, y2 - 1,
  // borrows where it is not.
  Signal withRow(Signal sum, int row) {
    const Bit y2 = bitAt(2 * row + 1), y1 = bitAt(2 * row), y0 = bitAt(2 * row - 1);
    const Row made(b, x, {y2, y1, y0});
    std::vector<Signal> complement;
    for (int place = sum.width - 1; place >= 0; --place)
      complement.push_back(made.complementAt(place));
    if (!y2.signal && row == 0) return b.bitNot(b.concat(complement));
    complement.push_back(b.bit(true));
    const Signal low = y2.signal ? y2.signal : b.bit(false);
    return b.slice(b.subtract(b.concat({sum, low}), b.concat(complement)), 1, sum.width);
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
