#include "backend/functions/sequencers/folded_circuit.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/running_sum.h"
#include "backend/arithmetic/shifter.h"
#include "backend/arithmetic/table_lookup.h"
#include "util/failure.h"

namespace functions {

using arithmetic::FloatFormat;
using arithmetic::Unpacked;
using arithmetic::Unrounded;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

constexpr int kOpBits = 3, kStepBits = 5;

// Columns of the sequencer's word, from the lowest bit up.
struct Field {
  int low, width;
};
constexpr Field kFactorB{0, 3}, kLateB{3, 2}, kFactorA{5, 3}, kLoads{8, 1}, kTakesSeed{9, 1},
    kTakesCandidate{10, 1};
constexpr int kWordBits = 11;

class Circuit {
 public:
  Circuit(Builder& b, const FoldedPlan& plan, const FoldedOptions& options)
      : b(b), plan(plan), options(options), p(plan.significandBits), format(options.format) {}

  Signal build(std::span<const Signal> inputs, Signal go) {
    hold(inputs, go);
    sequence(go);
    lookUpSeed();
    const Signal product = b.state(plan.productBits());
    chooseFactors(product);
    b.setNext(product, multiply(factorA, b.slice(factorB, 0, plan.productB), plan.productBits()));
    const Unrounded aligned = registered(align(product));
    const auto scope = b.scope("result");
    const Signal rounded = registered(arithmetic::roundHeld(
        b, aligned, format, plan.checked ? options.rounding : arithmetic::RoundMode::kNearestEven));
    return arithmetic::pack(b, arithmetic::readHeld(b, rounded, format), options.quietNaN);
  }

 private:
  // An operand, normalised, with its parts as the port has it.
  struct Operand {
    Unpacked parts;
    Signal significand;  // the top bit 1, but for a zero
    Signal exponent;     // signed
    Signal isOdd;        // the exponent without its bias
  };

  Signal registered(Signal next) {
    const Signal state = b.state(next.width);
    b.setNext(state, next);
    return state;
  }
  Signal held(Signal takes, Signal next) {
    const Signal state = b.state(next.width);
    b.setNext(state, b.select(takes, next, state));
    return state;
  }
  Unrounded registered(Unrounded x) {
    for (Signal* part :
         {&x.sign, &x.exponent, &x.significand, &x.sticky, &x.isZero, &x.isInf, &x.isNan})
      *part = registered(*part);
    return x;
  }
  Signal scaledUp(Signal x, int zeros, int width) {
    return b.zeroExtend(b.shiftedUp(x, zeros), width);
  }
  Signal isOp(FoldedOp code) { return b.equal(op, b.literal(code, kOpBits)); }

  int exponentBits() const {
    const long most = 4L << format.exponentBits;
    return arithmetic::signedWidth(-most - 2L * format.fractionBits, most);
  }

  void hold(std::span<const Signal> inputs, Signal go) {
    op = held(go, inputs[2]);
    for (std::size_t i = 0; i < 2; ++i) {
      const auto scope = b.scope(i == 0 ? "x" : "y");
      Operand& operand = operands[i];
      const auto zeroFields = format.gradual ? arithmetic::ZeroFields::kAsTheyAre
                                             : arithmetic::ZeroFields::kLikeRegular;
      const Unpacked arriving = arithmetic::unpack(b, inputs[i], format, zeroFields);
      operand.parts = arriving;
      for (Signal Unpacked::*part : {&Unpacked::sign, &Unpacked::exponent, &Unpacked::significand,
                                     &Unpacked::isZero, &Unpacked::isInf, &Unpacked::isNan})
        operand.parts.*part = held(go, arriving.*part);
      operand.significand = operand.parts.significand;
      operand.exponent = b.zeroExtend(operand.parts.exponent, exponentBits());
      Signal low = b.bitOf(operand.parts.exponent, 0);
      if (format.gradual) {
        // Of a subnormal number, as the fraction alone tells.
        const Signal isRegular = b.topBit(arriving.significand);
        const Signal fraction = b.slice(arriving.significand, 0, p - 1);
        const Signal count =
            arithmetic::countLeadingZeros(b, b.concat({b.bit(false), fraction})).count;
        const Signal zeros =
            held(go, b.bitAnd(count, b.replicate(b.bitNot(isRegular), count.width)));
        operand.significand =
            arithmetic::shiftLeft(b, operand.significand, zeros, format.fractionBits);
        operand.exponent = b.subtract(operand.exponent, b.zeroExtend(zeros, exponentBits()));
        low = b.bitXor(low, b.bitOf(zeros, 0));
      }
      operand.isOdd = b.bitNot(low);
    }
    isRoot = b.isZero(b.slice(op, 1, 2));
    isProduct = b.topBit(op);
  }

  // Counts the cycles since go; the word says what this one does.
  void sequence(Signal go) {
    const auto scope = b.scope("sequencer");
    int last = 0;
    std::vector<MPZ> words(std::size_t{1} << (kOpBits + kStepBits));
    const auto set = [&](int code, int step, const Field& field, int value) {
      MPZ& word = words[static_cast<std::size_t>((code << kStepBits) + step)];
      word = word | (MPZ(value) << static_cast<unsigned long>(field.low));
    };
    for (int code = 0; code < 1 << kOpBits; ++code) {
      const auto kind = static_cast<FoldedOp>(std::min<int>(code, kProduct));
      const std::vector<FoldedPass> passes = foldedPasses(kind, plan.checked);
      // Three cycles of a product, those of its check, and two before the one that packs.
      const int check = !plan.checked || kind == kProduct ? 0 : kind == kReciprocalRoot ? 1 : 2;
      LOAM_ASSERT(passes.back().cycle + 3 + check + 2 <= kFoldedCycles[kind],
                  "a result in the opcode's cycles");
      for (const FoldedPass& pass : passes) {
        set(code, pass.cycle, kLoads, 1);
        set(code, pass.cycle, kFactorA, static_cast<int>(pass.a));
        constexpr int kFirstLate = static_cast<int>(FoldedB::kNewSeed) - 1;
        const int place = static_cast<int>(pass.b);
        set(code, pass.cycle, isLate(pass.b) ? kLateB : kFactorB,
            isLate(pass.b) ? place - kFirstLate : place);
        if (pass.cycle == kSeedCycle) set(code, pass.cycle, kTakesSeed, 1);
        if (pass.b == FoldedB::kCandidate) set(code, pass.cycle, kTakesCandidate, 1);
        last = std::max(last, pass.cycle);
      }
    }
    const Signal step = b.state(kStepBits);
    std::vector<MPZ> following;
    for (int i = 0; i < 1 << kStepBits; ++i)
      following.emplace_back(i == 0 || i >= last ? 0 : i + 1);
    const Signal next = arithmetic::tableLookup(b, step, following, kStepBits);
    b.setNext(step, b.select(go, b.literal(1, kStepBits), next));
    word = arithmetic::tableLookup(b, b.concat({op, step}), words, kWordBits);
  }
  Signal field(const Field& field) { return b.slice(word, field.low, field.width); }

  // The line of the divisor's or radicand's segment.
  void lookUpSeed() {
    const auto scope = b.scope("seed");
    const int index = plan.root.indexBits, bits = plan.root.bits, slopeBits = plan.root.slopeBits;
    const auto top = [&](Signal significand, int count) {
      return b.slice(significand, p - 1 - count, count);
    };
    const Signal divisor = b.select(isOp(kQuotient), top(operands[1].significand, index),
                                    top(operands[0].significand, index));
    const Signal radicand = b.concat({operands[0].isOdd, top(operands[0].significand, index - 1)});
    const Signal segment = registered(b.concat({isRoot, b.select(isRoot, radicand, divisor)}));
    std::vector<MPZ> rows;
    for (const arithmetic::NewtonSeed* seed : {&plan.reciprocal, &plan.root})
      for (std::size_t i = 0; i < seed->offsets.size(); ++i)
        rows.push_back((seed->slopes[i] << static_cast<unsigned long>(bits + 1)) |
                       seed->offsets[i].lowBits(static_cast<unsigned long>(bits + 1)));
    const Signal line = arithmetic::tableLookup(b, segment, rows, bits + 1 + slopeBits + 1);
    slope = b.slice(line, bits + 1, slopeBits + 1);
    offset = registered(b.slice(line, 0, bits + 1));
  }

  void chooseFactors(Signal product) {
    const auto scope = b.scope("factors");
    const int a = plan.aBits, f = plan.fraction, bits = plan.root.bits, point = a - 1 + f;
    const Signal x = operands[0].significand, y = operands[1].significand;
    const Signal last = b.slice(product, a - 1, f + 1), less = b.bitNot(last);
    const Signal doubled =
        b.select(registered(b.bitAnd(isRoot, operands[0].isOdd)), b.slice(product, a - 2, f + 2),
                 b.zeroExtend(b.slice(product, a - 1, f + 1), f + 2));
    const Signal newSeed = b.subtract(offset, b.slice(product, point - bits, bits + 1));
    const Signal seed = held(field(kTakesSeed), newSeed);

    std::vector<Signal> as = {scaledUp(x, a - p, a), scaledUp(y, a - p, a),
                              scaledUp(newSeed, a - 1 - bits, a), scaledUp(seed, a - 1 - bits, a)};
    std::vector<Signal> bs = {
        scaledUp(slope, f - plan.root.slopeBits, f + 1), b.slice(doubled, 0, f + 1), less,
        b.concat({b.topBit(less), b.bitNot(b.topBit(less)), b.slice(less, 1, f - 1)})};
    std::vector<Signal> late = {scaledUp(newSeed, f - bits, f + 1),
                                scaledUp(y, f - (p - 1), f + 1)};
    if (plan.checked) {
      // In units of a grid of half a last place, two bits below: a quarter more, cut.
      const Signal value = b.slice(product, point - (p + 3), p + 4);
      const Signal near = b.slice(b.add(value, b.literal(1, p + 4)), 2, p + 2);
      const Signal upperHalf = b.slice(b.add(value, b.literal(5, p + 4)), 3, p + 1);
      candidate = held(field(kTakesCandidate), near);
      as.push_back(scaledUp(b.slice(near, 1, p), a - p, a));
      late.push_back(
          b.select(isRoot, scaledUp(upperHalf, f - p, f + 1), scaledUp(near, f - p - 1, f + 1)));
      bs.push_back(b.slice(doubled, 1, f + 1));
      // (2h + l)^2 = 4 h (h + l) + l for the last bit l.
      bs.push_back(b.concat(
          {b.slice(product, (a - p) + (f - p), 2 * p), b.bit(false), b.bitOf(candidate, 0)}));
    }
    for (auto* choices : {&bs, &late})
      for (Signal& choice : *choices) choice = b.zeroExtend(choice, plan.bBits);
    late.insert(late.begin(), b.pick(field(kFactorB), bs));
    factorA = held(field(kLoads), b.pick(field(kFactorA), as));
    factorB = held(field(kLoads), b.pick(field(kLateB), late));
  }

  // A block's product for each pair of parts of the factors, a register, and their sum.
  Signal multiply(Signal a, Signal factor, int width) {
    const auto scope = b.scope("product");
    const int wide = std::max(options.dsp.width, 8), narrow = std::max(options.dsp.depth, 8);
    std::vector<graph::HeapTerm> terms;
    for (int i = 0; i < a.width; i += wide)
      for (int j = 0; j < factor.width && i + j < width; j += narrow) {
        const Signal part = b.multiply(b.slice(a, i, std::min(wide, a.width - i)),
                                       b.slice(factor, j, std::min(narrow, factor.width - j)));
        const Signal kept = registered(part);
        terms.push_back({b.slice(kept, 0, std::min(kept.width, width - i - j)), i + j});
      }
    return b.heap(terms, width);
  }

  // The result in two bits above the point and p + 1 below, and what is below that.
  struct Magnitude {
    Signal bits, sticky;
  };
  Magnitude magnitudeOf(Signal product) {
    const int point = plan.aBits - 1 + plan.fraction;
    const int below = point - (p + 1);
    Magnitude whole{b.slice(product, below, p + 3), b.reduceOr(b.slice(product, 0, below))};
    if (!plan.checked) return whole;
    const auto [isAbove, isInexact] = checkOf(product);
    const Signal above = registered(isAbove), inexact = registered(isInexact);
    const Signal lower = registered(b.add(candidate, b.ones(p + 2)));
    return {b.select(isProduct, whole.bits, b.zeroExtend(b.select(above, lower, candidate), p + 3)),
            b.select(isProduct, whole.sticky, inexact)};
  }

  // Whether the candidate is above the exact result, and whether it is another number, from the
  // last product. With m the candidate in units of 2^-(p+1), less than a unit from the result, and
  // integer significands X and divisor D:
  //   quotient  D m - N 2^(p+1) is below 2^p in magnitude
  //   root      m = 2h + l; h (h + l) - X' 2^(p-1), X' = X or 2X, is at most 2^p; the exact
  //             difference is l/4 more
  //   1/root    X m^2 - 2^(3p+1) or half that is below 2^(2p+3)
  // so that the lowest bits tell. With p >= 4 the last power of two has none of them.
  struct Check {
    Signal isAbove, isInexact;
  };
  Check checkOf(Signal product) {
    const auto scope = b.scope("check");
    const int a = plan.aBits, f = plan.fraction;
    const auto differs = [&](Signal difference) {
      const Signal nonZero = b.reduceOr(difference);
      return Check{b.bitAnd(nonZero, b.bitNot(b.topBit(difference))), nonZero};
    };
    const Check reciprocalRoot = squareCheck(product);
    // Those with time to spare are looked at in two cycles.
    const Signal ofQuotient = b.slice(product, (a - p) + (f - p - 1), p + 1);
    const Check quotient =
        differs(b.concat({registered(b.topBit(ofQuotient)), registered(b.reduceOr(ofQuotient))}));
    const Signal halves = b.slice(product, (a - p) + (f - p), p + 2);
    const Signal x = operands[0].significand;
    const Signal lowX =
        registered(b.select(operands[0].isOdd, b.shiftedUp(b.slice(x, 0, 2), 1), b.slice(x, 0, 3)));
    const Signal high = registered(b.subtract(b.slice(halves, p - 1, 3), lowX));
    Check root = differs(b.concat({high, registered(b.reduceOr(b.slice(halves, 0, p - 1)))}));
    const Signal isOdd = b.bitOf(candidate, 0);
    root.isAbove = b.select(isOdd, b.bitNot(b.topBit(high)), root.isAbove);
    root.isInexact = b.bitOr(isOdd, root.isInexact);
    const auto chosen = [&](Signal Check::*part) {
      return b.pick(op, std::array{reciprocalRoot.*part, root.*part, quotient.*part});
    };
    return {chosen(&Check::isAbove), chosen(&Check::isInexact)};
  }

  // The last of them, of which a product holds the lower part only.
  Check squareCheck(Signal product) {
    const int low = plan.aBits - p, cut = plan.productB, end = low + 2 * p + 4;
    Signal top = b.slice(product, cut, end - cut), sum = top;
    Signal rest = b.slice(product, low, cut - low);
    if (plan.bBits > cut) {
      const int upper = plan.bBits - cut;
      const Signal further = registered(
          multiply(factorA, b.slice(factorB, cut, upper), std::min(end - cut, plan.aBits + upper)));
      const Signal addend = b.zeroExtend(further, top.width);
      sum = b.add(top, addend);
      // A sum is zero where each carry in, which is then the or below, meets its complement.
      top = b.bitXor(b.bitXor(top, addend),
                     b.slice(b.shiftedUp(b.bitOr(top, addend), 1), 0, top.width));
    }
    const Signal nonZero = b.bitOr(b.reduceOr(top), b.reduceOr(rest));
    return {b.bitAnd(nonZero, b.bitNot(b.topBit(sum))), nonZero};
  }

  // The exponent of a magnitude in [2, 4), all of it known before the magnitude is; and how far it
  // lies below the lowest one.
  struct Exponent {
    Signal high, depth;
  };
  Exponent exponentOf() {
    const auto scope = b.scope("exponent");
    const int width = exponentBits();
    const long bias = format.bias(), half = (bias - 1) / 2;
    const Signal ex = registered(operands[0].exponent), ey = registered(operands[1].exponent);
    const Signal quarter = b.signExtend(b.slice(ex, 1, width - 1), width);
    const Signal isOdd = b.zeroExtend(operands[0].isOdd, width), none = b.zeros(width);
    const Signal isEven = b.zeroExtend(b.bitNot(operands[0].isOdd), width);
    const Signal first = b.pick(op, std::array{b.bitNot(quarter), quarter, b.bitNot(ex), ex, ex});
    const Signal second = b.pick(op, std::array{isOdd, isEven, none, b.bitNot(ey), ey});
    // A checked root is brought to [1/2, 1).
    const std::array<long, 5> constants = {bias + half + 2, bias - half + (plan.checked ? 1 : 0),
                                           2 * bias + 2, bias + 2, 1 - bias};
    std::vector<Signal> third, less;
    for (const long constant : constants) {
      third.push_back(b.literal(constant, width));
      less.push_back(b.literal(format.minExponent() + 2 - constant, width));
    }
    Exponent exponent;
    exponent.high = registered(b.addThree(first, second, b.pick(op, third), b.bit(false)));
    if (format.gradual)
      exponent.depth =
          registered(b.addThree(b.bitNot(first), b.bitNot(second), b.pick(op, less), b.bit(false)));
    return exponent;
  }

  Unrounded align(Signal product) {
    const auto [high, depth] = exponentOf();
    const Magnitude magnitude = magnitudeOf(product);
    const auto scope = b.scope("align");
    const int width = high.width, bits = magnitude.bits.width;
    const Signal top = b.bitOf(magnitude.bits, bits - 1), next = b.bitOf(magnitude.bits, bits - 2);
    Unrounded x;
    if (format.gradual)
      x = alignGradually(magnitude, high, depth);
    else {
      const Signal leftShift =
          b.concat({b.bitNot(b.bitOr(top, next)), b.bitAnd(b.bitNot(top), next)});
      x.significand = arithmetic::shiftLeft(b, magnitude.bits, leftShift, 2);
      x.sticky = magnitude.sticky;
      x.exponent = b.subtract(high, b.zeroExtend(leftShift, width));
    }
    setSpecials(x);
    return x;
  }

  // A magnitude below the lowest exponent goes down to it, by what is known beforehand; another one
  // up by its zeros, at most as far as it is above that.
  Unrounded alignGradually(const Magnitude& magnitude, Signal high, Signal depth) {
    constexpr int kLow = 2;  // bits of an amount that the magnitude may decide
    const int width = high.width, bits = magnitude.bits.width;
    const Signal isDeep = b.bitNot(b.topBit(depth));
    const Signal isLow = registered(isDeep), isOne = registered(b.reduceAnd(depth));
    // Down from two places up.
    const int amountBits = std::bit_width(static_cast<unsigned>(bits + 2));
    const Signal isFar = b.reduceOr(b.slice(depth, amountBits, width - amountBits));
    const Signal places = b.bitOr(b.slice(depth, 0, amountBits), b.replicate(isFar, amountBits));
    std::vector<MPZ> amounts, masks;
    for (int i = 0; i < 1 << amountBits; ++i) {
      amounts.emplace_back(std::min(i + 2, (1 << amountBits) - 1));
      masks.push_back(MPZ::allOnes(static_cast<unsigned long>(std::min(i, bits))));
    }
    const auto whereDeep = [&](Signal x) { return b.bitAnd(x, b.replicate(isDeep, x.width)); };
    const Signal down =
        registered(whereDeep(arithmetic::tableLookup(b, places, amounts, amountBits)));
    // What is lost to the right, beside the shifter.
    const Signal lost = registered(whereDeep(arithmetic::tableLookup(b, places, masks, bits)));

    const Signal lead = b.slice(magnitude.bits, bits - 2, 2);
    // By the leading bits and, above them, whether there is one place only.
    const Signal key = b.concat({isOne, lead});
    const auto row = [](std::initializer_list<int> values) {
      MPZ contents;
      int at = 0;
      for (const int value : values)
        contents = contents | (MPZ(value) << static_cast<unsigned long>(kLow * at++));
      return contents;
    };
    const Signal up = b.lut(key, row({2, 1, 0, 0, 1, 1, 0, 0}), kLow);
    const Signal rest = b.lut(key, row({0, 1, 2, 2, 1, 1, 2, 2}), kLow);
    const Signal moved =
        arithmetic::shiftRight(b, b.shiftedUp(magnitude.bits, 2),
                               b.shiftedUp(b.slice(down, kLow, amountBits - kLow), kLow));
    std::vector<Signal> choices;
    for (int i = 0; i < 1 << kLow; ++i)
      choices.push_back(b.zeroExtend(b.slice(moved, i, moved.width - i), bits));
    Unrounded x;
    x.significand = b.pick(b.select(isLow, b.slice(down, 0, kLow), rest), choices);
    x.sticky = b.bitOr(magnitude.sticky, b.reduceOr(b.bitAnd(magnitude.bits, lost)));
    x.exponent = b.select(isLow, b.literal(format.minExponent(), width),
                          b.subtract(high, b.zeroExtend(up, width)));
    return x;
  }

  void setSpecials(Unrounded& result) {
    const Unpacked &x = operands[0].parts, &y = operands[1].parts;
    const auto allOf = [&](std::initializer_list<Signal> bits) {
      return b.reduceAnd(b.concat(bits));
    };
    const auto anyOf = [&](std::initializer_list<Signal> bits) {
      return b.reduceOr(b.concat(bits));
    };
    const auto byOp = [&](std::array<Signal, 5> choices) {
      return registered(b.pick(op, choices));
    };
    const Signal xor2 = b.bitXor(x.sign, y.sign);
    const Signal imaginary = b.bitOr(x.isNan, b.bitAnd(x.sign, b.bitNot(x.isZero)));
    const Signal anyNan = b.bitOr(x.isNan, y.isNan);
    const Signal noQuotient =
        anyOf({anyNan, allOf({x.isZero, y.isZero}), allOf({x.isInf, y.isInf})});
    const Signal noProduct =
        anyOf({anyNan, allOf({x.isZero, y.isInf}), allOf({x.isInf, y.isZero})});
    result.sign = byOp({x.sign, x.sign, x.sign, xor2, xor2});
    result.isNan = byOp({imaginary, imaginary, x.isNan, noQuotient, noProduct});
    result.isInf =
        byOp({x.isZero, x.isInf, x.isZero, b.bitOr(x.isInf, y.isZero), b.bitOr(x.isInf, y.isInf)});
    result.isZero =
        byOp({x.isInf, x.isZero, x.isInf, b.bitOr(x.isZero, y.isInf), b.bitOr(x.isZero, y.isZero)});
  }

  Builder& b;
  const FoldedPlan& plan;
  const FoldedOptions& options;
  const int p;
  const FloatFormat format;
  std::array<Operand, 2> operands;
  Signal op, isRoot, isProduct, word;
  Signal slope, offset;
  Signal factorA, factorB;
  Signal candidate;  // in units of 2^-(p+1)
};

}  // namespace

Signal foldedCircuit(Builder& b, const FoldedPlan& plan, const FoldedOptions& options,
                     std::span<const Signal> inputs, Signal go) {
  return Circuit(b, plan, options).build(inputs, go);
}

}  // namespace functions
