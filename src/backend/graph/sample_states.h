#pragma once

#include "backend/graph/builder.h"

namespace graph {

// Loops of every kind for tests: an accumulator that can start anew, a counter, a state that takes
// what another one was, states of more than one word, of one bit and one that stays as it is. All
// hold unless `go`, so that cycles before the first inputs leave them alone.
inline void buildStates(Builder& b, Signal go) {
  const Signal x = b.input("a", 12), y = b.input("b", 12);
  const Signal product = b.multiply(x, y);
  const Signal sum = b.name(b.state(24, 0x123456), "sum"), earlier = b.state(24, 3);
  const Signal count = b.state(9, 505), wide = b.name(b.state(70, util::MPZ::powerOfTwo(66)), "w");
  const Signal odd = b.state(1, 1), still = b.state(30, 0x2000001f);
  const Signal anew = b.name(b.isZero(b.slice(x, 0, 4)), "anew");
  const Signal total = b.add(b.select(anew, b.zeros(24), sum), product);
  b.setNext(sum, b.select(go, total, sum));
  b.setNext(earlier, b.select(go, sum, earlier));
  b.setNext(count, b.add(count, b.zeroExtend(go, 9)));
  b.setNext(odd, b.bitXor(odd, b.bitAnd(go, b.reduceXor(sum))));
  b.setNext(still, still);
  const Signal turned = b.concat({b.slice(wide, 0, 57), b.slice(wide, 57, 13)});
  b.setNext(wide, b.select(go, b.bitXor(turned, b.zeroExtend(total, 70)), wide));
  b.output("total", total);
  b.output("late", b.add(b.multiply(b.slice(earlier, 5, 12), b.slice(sum, 9, 12)),
                         b.zeroExtend(b.concat({odd, count, b.bitXor(x, y)}), 24)));
  b.output("wide", wide);
  b.output("still", b.bitXor(still, b.zeroExtend(y, 30)));
}

}  // namespace graph
