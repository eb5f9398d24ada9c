#pragma once

#include <fmt/format.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "backend/graph/builder.h"

namespace graph {

// Graphs and patterns for the tests of everything that reads graphs.

// A pattern of `width` bits: drawn, or one of those that find carries and signs.
inline util::MPZ drawPattern(std::mt19937_64& random, int width) {
  util::MPZ value;
  for (int bits = 0; bits < width; bits += 64)
    value = (value << 64u) | util::MPZ(static_cast<unsigned long>(random()));
  switch (random() % 8) {
    case 0:
      return util::MPZ(0);
    case 1:
      return util::MPZ::allOnes(width);
    case 2:
      return util::MPZ::powerOfTwo(random() % static_cast<unsigned long>(width));
    case 3:
      return util::MPZ::allOnes(1 + random() % static_cast<unsigned long>(width));
    default:
      return value.lowBits(width);
  }
}

// Rows of a table in which some bits depend on few bits of the index, or on none.
inline std::vector<util::MPZ> drawRows(std::mt19937_64& random, int indexWidth, int width) {
  std::vector<util::MPZ> rows;
  const util::MPZ always = drawPattern(random, width), below = drawPattern(random, width);
  for (unsigned long x = 0; x < 1ul << indexWidth; ++x) {
    const util::MPZ drawn = drawPattern(random, width);
    rows.push_back(x < 1ul << (indexWidth - 1) ? (drawn & below) | always : drawn | always);
  }
  return rows;
}

// Every operation on two inputs `a<width>` and `b<width>`, each result an output of its own called
// after operation and width. `s` is an input of one bit.
inline void buildEveryOperation(Builder& b, const std::vector<int>& widths) {
  const Signal s = b.input("s", 1);
  for (const int width : widths) {
    const auto named = [&](const char* name) { return fmt::format("{}{}", name, width); };
    const Signal x = b.input(named("a"), width), y = b.input(named("b"), width);
    const util::MPZ odd = util::MPZ::allOnes(width) - (util::MPZ::allOnes(width) >> 1u);
    const Signal constant = b.literal(odd + util::MPZ(1), width);
    const auto out = [&](const char* name, Signal value) { b.output(named(name), value); };
    out("literal", constant);
    out("input", x);
    out("slice", b.slice(b.bitXor(x, y), width / 3, width - width / 2));
    out("concat", b.concat({b.bitAnd(x, y), b.literal(5, 3), b.bitOf(y, width / 2), x}));
    out("replicate", b.replicate(b.bitOr(x, y), 3));
    out("signExtend", b.signExtend(y, width + 7));
    out("not", b.bitNot(x));
    out("and", b.bitAnd(x, b.bitNot(y)));
    out("or", b.bitOr(x, constant));
    out("xor", b.bitXor(b.bitOr(x, y), b.bitAnd(x, constant)));
    out("select", b.select(s, x, y));
    out("selectEqual", b.select(b.equal(x, y), constant, b.bitXor(x, y)));
    out("selectZero", b.select(b.isZero(x), y, b.select(b.topBit(x), constant, b.bitNot(y))));
    const std::array choices{x, y, constant, b.bitNot(x), b.bitXor(x, y), x};
    const Signal index = b.slice(b.concat({s, x, y}), 0, 3);
    out("pick", b.pick(index, choices));
    out("pickWide", b.pick(b.concat({x, s}), std::span(choices).first(3)));
    out("reduceAnd", b.reduceAnd(b.bitOr(x, y)));
    out("reduceOr", b.reduceOr(b.bitAnd(x, y)));
    out("reduceXor", b.reduceXor(x));
    const int few = std::min(width, 5);
    out("lut",
        b.lut(b.concat({s, b.slice(y, 0, few)}), odd * util::MPZ(0x5bd1e995) + odd, few + 1));
    out("lutAgain",
        b.lut(b.concat({s, b.slice(x, 0, few)}), odd * util::MPZ(0x5bd1e995) + odd, few + 1));
    const int some = std::min(2 * width + 1, 8);
    std::mt19937_64 random(static_cast<std::uint64_t>(width));
    out("table", b.table(b.slice(b.concat({s, x, y}), 0, some), drawRows(random, some, width + 2),
                         width + 2));
    out("add", b.addCarry(x, y, s));
    out("addThree", b.addThree(x, y, b.bitNot(x), b.topBit(y)));
    out("subtract", b.subtract(x, y));
    out("addOrSubtract", b.addOrSubtract(x, y, s));
    out("increment", b.addCarry(x, b.zeros(width), b.bit(true)));
    out("carryOnly", b.addCarry(b.zeros(width), b.zeros(width), s));
    out("constantsAndCarry", b.addCarry(constant, b.literal(odd, width), b.topBit(x)));
    out("twoConstants", b.addThree(constant, b.literal(odd, width), x, b.bit(true)));
    out("equal", b.equal(x, constant));
    out("less", b.less(x, y));
    out("lessSigned", b.lessSigned(x, y));
    out("lessConstant", b.lessSigned(constant, b.bitXor(x, y)));
    out("multiply", b.multiply(x, y));
    out("multiplyMixed", b.multiply(b.concat({y, s}), constant));
    out("multiplySum", b.multiply(b.addCarry(x, y, s), b.bitNot(b.bitXor(x, y))));
    out("multiplySigned", b.multiplySigned(x, y));
    out("multiplySignedMixed", b.multiplySigned(constant, b.concat({y, s})));
    const std::array<HeapTerm, 5> terms{
        {{x, 0}, {y, 2}, {b.multiply(x, y), 1}, {s, width}, {constant, 1}}};
    out("heap", b.heap(terms, width + 3));
  }
}

// A drawn graph of about `size` operations over drawn widths up to `widest`, in which results are
// read often and from far back.
inline void buildDrawn(Builder& b, std::mt19937_64& random, int size, int widest) {
  const auto upTo = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  std::vector<Signal> made;
  for (int i = 0; i < 6; ++i) made.push_back(b.input(fmt::format("in{}", i), 1 + upTo(widest)));
  const auto any = [&] { return made[upTo(static_cast<int>(made.size()))]; };
  // Some signal, cut or extended to a width.
  const auto fitted = [&](int width) {
    if (upTo(8) == 0) return b.literal(drawPattern(random, width), width);
    const Signal x = any();
    if (x.width > width) return b.slice(x, upTo(x.width - width + 1), width);
    return upTo(2) != 0 ? b.signExtend(x, width) : b.zeroExtend(x, width);
  };
  while (static_cast<int>(made.size()) < size) {
    const int w = 1 + upTo(widest);
    const auto one = [&] { return fitted(1); };
    Signal x;
    switch (upTo(17)) {
      case 0:
        x = b.bitAnd(fitted(w), fitted(w));
        break;
      case 1:
        x = b.bitOr(fitted(w), b.bitNot(fitted(w)));
        break;
      case 2:
        x = b.bitXor(fitted(w), fitted(w));
        break;
      case 3:
        x = b.addCarry(fitted(w), fitted(w), one());
        break;
      case 4:
        x = b.addThree(fitted(w), fitted(w), fitted(w), one());
        break;
      case 5:
        x = b.select(one(), fitted(w), fitted(w));
        break;
      case 6:
        x = b.concat({b.less(fitted(w), fitted(w)), b.lessSigned(fitted(w), fitted(w))});
        break;
      case 7:
        x = b.select(b.equal(fitted(w), fitted(w)), fitted(w), fitted(w));
        break;
      case 8:
        x = b.concat({fitted(w), b.reduceOr(fitted(w)), b.reduceXor(fitted(w))});
        break;
      case 9:
        x = b.lut(fitted(4), drawPattern(random, 48), 3);
        break;
      case 10: {
        const std::array choices{fitted(w), fitted(w), fitted(w), fitted(w), fitted(w)};
        x = b.pick(fitted(3), choices);
        break;
      }
      case 11:
        x = b.multiply(fitted(w), fitted(1 + w / 2));
        break;
      case 12:
        x = b.multiplySigned(fitted(w), fitted(1 + w / 2));
        break;
      case 13: {
        const std::array<HeapTerm, 3> terms{{{fitted(w), 0}, {fitted(w), 3}, {one(), 1}}};
        x = b.heap(terms, w + 2);
        break;
      }
      case 14:
        x = b.replicate(fitted(1 + w / 3), 2);
        break;
      case 15:
        x = b.select(b.isZero(fitted(w)), b.bitNot(fitted(w)), fitted(w));
        break;
      case 16:
        x = b.table(fitted(7 + w % 3), drawRows(random, 7 + w % 3, w), w);
        break;
    }
    made.push_back(b.slice(x, 0, std::min(x.width, 2 * widest)));
  }
  for (int i = 0; i < 8; ++i)
    b.output(fmt::format("out{}", i), made[made.size() - 1 - static_cast<std::size_t>(upTo(12))]);
}

}  // namespace graph
