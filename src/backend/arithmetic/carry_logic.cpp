#include "backend/arithmetic/carry_logic.h"

#include <algorithm>
#include <vector>

namespace arithmetic {

using util::MPZ;

namespace {

Signal groupsOf(Builder& b, Signal x, int perTable, Signal (Builder::*reduce)(Signal)) {
  std::vector<Signal> groups;
  for (int low = 0; low < x.width; low += perTable)
    groups.push_back((b.*reduce)(b.slice(x, low, std::min(perTable, x.width - low))));
  return b.concat(groups);
}

// The carry out of x + y.
Signal carryOf(Builder& b, Signal x, const MPZ& y) {
  return b.topBit(b.add(b.zeroExtend(x, x.width + 1), b.literal(y, x.width + 1)));
}

}  // namespace

Signal anyByCarry(Builder& b, Signal x, int perTable, Signal gate) {
  // A group makes a carry or passes one on, the gate only passes one.
  const Signal groups = groupsOf(b, x, perTable, &Builder::reduceOr);
  return carryOf(b, gate ? b.concat({gate, groups}) : groups, MPZ::allOnes(groups.width));
}

Signal allByCarry(Builder& b, Signal x) {
  return carryOf(b, groupsOf(b, x, kTableInputs, &Builder::reduceAnd), MPZ(1));
}

Signal isNanByCarry(Builder& b, Signal port, const FloatFormat& format) {
  // The fraction's groups make a carry, which those of the exponent pass on.
  const Signal fraction = b.slice(port, 0, format.fractionBits);
  const Signal field = b.slice(port, format.fractionBits, format.exponentBits);
  const Signal making = groupsOf(b, fraction, kTableInputs, &Builder::reduceOr);
  const Signal passing = groupsOf(b, field, kTableInputs, &Builder::reduceAnd);
  return carryOf(b, b.concat({passing, making}), MPZ::allOnes(making.width));
}

}  // namespace arithmetic
