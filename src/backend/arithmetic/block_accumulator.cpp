#include "backend/arithmetic/block_accumulator.h"

#include <algorithm>
#include <vector>

namespace arithmetic {

Signal accumulate(Builder& b, Signal term, Signal carryIn, Signal restarts) {
  const auto scope = b.scope("accumulate");
  const auto continued = [&](Signal state) {
    return b.bitAnd(state, b.replicate(b.bitNot(restarts), state.width));
  };
  std::vector<Signal> digits, carries;  // top first, for one long word each
  Signal fromBelow = carryIn;
  for (int low = 0; low < term.width; low += kAccumulatorDigit) {
    const int width = std::min(kAccumulatorDigit, term.width - low);
    const bool isTop = low + width == term.width;
    const int reach = isTop ? width : width + 1;
    const Signal digit = b.state(width);
    const Signal sum = b.addCarry(b.zeroExtend(continued(digit), reach),
                                  b.zeroExtend(b.slice(term, low, width), reach), fromBelow);
    b.setNext(digit, b.slice(sum, 0, width));
    digits.insert(digits.begin(), b.slice(sum, 0, width));
    if (isTop) break;
    const Signal saved = b.state(1), carry = b.topBit(sum);
    b.setNext(saved, carry);
    fromBelow = continued(saved);
    // The carry out of this digit counts in the lowest place of the one above.
    const int above = std::min(kAccumulatorDigit, term.width - low - width);
    carries.insert(carries.begin(), b.concat({b.zeros(above - 1), carry}));
  }
  if (carries.empty()) return digits[0];
  carries.push_back(b.zeros(kAccumulatorDigit));
  return b.add(b.concat(digits), b.concat(carries));
}

}  // namespace arithmetic
