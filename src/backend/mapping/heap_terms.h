#pragma once

#include <vector>

#include "backend/graph/builder.h"

namespace mapping {

// Terms of a sum modulo 2^width as they come, those that count negatively among them: each as an
// unsigned number and its part of one constant.
class HeapTerms {
 public:
  HeapTerms(graph::Builder& builder, int width) : b(builder), width(width) {}

  void add(graph::Signal bits, int shift) { rows.push_back({bits, shift}); }
  // -v = ~v - (2^width - 1)
  void subtract(graph::Signal bits, int shift) {
    add(b.bitNot(bits), shift);
    constant -= util::MPZ::allOnes(bits.width) << static_cast<unsigned long>(shift);
  }
  void addConstant(const util::MPZ& value) { constant += value; }
  // The constant in units of 2^shift, where it is a positive whole number of them up to `most`; it
  // is no part of the sum from then on. Otherwise 0.
  util::MPZ takeConstant(int shift, const util::MPZ& most) {
    const auto unit = static_cast<unsigned long>(shift);
    const util::MPZ units = constant >> unit;
    if (constant < util::MPZ(0) || units > most || units << unit != constant) return {};
    constant = {};
    return units;
  }
  // A number in two's complement: its sign bit's complement weighs the same beside a constant.
  void addSigned(graph::Signal bits, int shift) {
    const int top = bits.width - 1;
    if (shift + top >= width - 1) return add(bits, shift);
    add(b.concat({b.bitNot(b.topBit(bits)), b.slice(bits, 0, top)}), shift);
    constant -= util::MPZ::powerOfTwo(static_cast<unsigned long>(shift + top));
  }

  int modulus() const { return width; }  // its logarithm
  // What was added, with the constant.
  std::vector<graph::HeapTerm> all() const {
    std::vector<graph::HeapTerm> terms = rows;
    terms.push_back({b.literal(constant, width), 0});
    return terms;
  }

 private:
  graph::Builder& b;
  int width;
  std::vector<graph::HeapTerm> rows;
  util::MPZ constant;
};

// Part of a factor: the number in `bits` times 2^shift. Nothing when it has no bits.
struct Factor {
  graph::Signal bits;
  int shift = 0;
  bool isSigned = false;
  int width() const { return bits.width; }
};

}  // namespace mapping
