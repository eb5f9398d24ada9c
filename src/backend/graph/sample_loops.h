#pragma once

#include <fmt/format.h>

#include <vector>

#include "backend/graph/builder.h"

namespace graph {

// Accumulators for tests. Inputs: `v` (1 bit; nothing changes without it) and `x`. An output `sum`
// shows the sum up to and with this cycle's x.

inline Signal heldWithout(Builder& b, Signal valid, Signal state, Signal next) {
  const Signal held = b.select(valid, next, state);
  b.setNext(state, held);
  return held;
}

// One addition from state to state, modulo 2^width.
inline void buildAccumulator(Builder& b, int width, const util::MPZ& initial = 0) {
  const Signal valid = b.input("v", 1, true), x = b.input("x", width);
  const Signal sum = b.state(width, initial);
  b.output("sum", heldWithout(b, valid, sum, b.add(sum, x)));
}

// `blocks` loops of `width` bits each. The carry of a block goes straight into the next block's
// addition, so that a block may stand in a later stage than the one before.
inline void buildBlockAccumulator(Builder& b, int blocks, int width) {
  const Signal valid = b.input("v", 1, true), x = b.input("x", blocks * width);
  std::vector<Signal> parts;
  Signal carry = b.bit(false);
  for (int i = 0; i < blocks; ++i) {
    const Signal part = b.state(width);
    const Signal sum = b.addCarry(b.zeroExtend(part, width + 1),
                                  b.zeroExtend(b.slice(x, i * width, width), width + 1), carry);
    carry = b.topBit(sum);
    parts.insert(parts.begin(), heldWithout(b, valid, part, b.slice(sum, 0, width)));
  }
  b.output("sum", b.concat(parts));
}

// The same with saved carries: each block adds the carry that the one before has kept since its
// last sum. `sum` and `carries`, at their weights, add up to the sum.
inline void buildCarrySaveAccumulator(Builder& b, int blocks, int width) {
  const Signal valid = b.input("v", 1, true), x = b.input("x", blocks * width);
  std::vector<Signal> parts, carries;
  Signal saved = b.bit(false);
  for (int i = 0; i < blocks; ++i) {
    const Signal part = b.state(width), carry = b.state(1);
    const Signal sum = b.addCarry(b.zeroExtend(part, width + 1),
                                  b.zeroExtend(b.slice(x, i * width, width), width + 1), saved);
    parts.insert(parts.begin(), heldWithout(b, valid, part, b.slice(sum, 0, width)));
    const Signal kept = heldWithout(b, valid, carry, b.topBit(sum));
    if (i + 1 < blocks) carries.insert(carries.begin(), b.zeroExtend(kept, width));
    saved = carry;
  }
  carries.push_back(b.zeros(width));
  b.output("sum", b.concat(parts));
  b.output("carries", b.concat(carries));
}

// Two states, each of which takes what it makes of both.
inline void buildCoupledStates(Builder& b, int width) {
  const Signal valid = b.input("v", 1, true), x = b.input("x", width);
  const Signal p = b.state(width, 1), q = b.state(width, 2);
  const Signal nextP = heldWithout(b, valid, p, b.bitXor(q, x));
  const Signal nextQ = heldWithout(b, valid, q, b.add(p, q));
  b.output("sum", b.add(nextP, nextQ));
}

}  // namespace graph
