#pragma once

#include <optional>
#include <span>
#include <vector>

#include "backend/arithmetic/constant_multiplier.h"

// The two architectures of a product with a constant, behind one question: what would it cost?
// Shared by the files of the constant multiplier only.
namespace arithmetic {

// The integers that an operand or a result takes.
struct Interval {
  util::MPZ low, high;
  util::MPZ magnitude() const;
  // Bits that hold all of them, in two's complement where some are negative.
  int width() const;
  Interval times(const util::MPZ& factor) const;
  friend Interval operator+(const Interval& a, const Interval& b) {
    return {a.low + b.low, a.high + b.high};
  }
};

// A product to build: x * mantissa in units of 2^-fraction, the unit of all errors below.
struct ProductTask {
  Interval x = {};
  bool isSigned = false;
  int xWidth = 0;
  util::MPZ mantissa = {};
  int fraction = 0;
  ProductGoal goal = {};
  // Exact kinds: the mantissa may be any number that lies at most so far from it.
  util::MPZ tolerance = {};
  int lutInputs = 6;
  std::optional<int> modulo;  // bits of the result that are wanted
};

// The integer parts of a sum that misses the product by `error` keep the goal once `correction` is
// added: where the sum is a multiple of 2^dropped and `correction` is too.
struct Correction {
  util::MPZ value;
  Interval result;  // of the integers
};
// Nothing when no correction keeps the goal, which is kWithin.
std::optional<Correction> correctionFor(const ProductTask& task, const Interval& error,
                                        int dropped);

// The integers that an exact kind gives, and what is added before the fraction is cut off: a
// constant, and for products of one sign more (see addRoundingBits).
Interval exactResult(const ProductTask& task, const util::MPZ& mantissa, int fraction);
util::MPZ roundingConstant(const ProductTask& task, int fraction);
void addRoundingBits(Builder& b, const ProductTask& task, Signal x, int fraction,
                     std::vector<graph::HeapTerm>& terms);

// The value that the goal gives for x = n; for kWithin the integer below the middle.
util::MPZ resultFor(const ProductTask& task, const util::MPZ& n, const util::MPZ& mantissa,
                    int fraction);

// The multiple of the highest power of two in [value - tolerance, value + tolerance], the closest
// one to `value`.
util::MPZ shortest(const util::MPZ& value, const util::MPZ& tolerance);

// A way to build the product, priced in look-up tables.
struct TablePlan {
  struct Table {
    int low = 0, width = 0;            // the digit of x
    std::vector<util::MPZ> sums = {};  // by the digit's pattern, in units of 2^dropped
  };
  std::vector<Table> tables = {};  // lowest digit first
  util::MPZ mantissa = {};         // the constant that they hold
  int fraction = 0, dropped = 0;
  Interval result = {};
  double cost = 0;
};
TablePlan planTables(const ProductTask& task);
ConstantProduct buildTables(Builder& b, const ProductTask& task, const TablePlan& plan, Signal x);

struct AdderPlan {
  AdderGraph graph = {};
  util::MPZ mantissa = {};
  int fraction = 0, dropped = 0;
  util::MPZ constant = {};  // to be added, in units of 2^dropped
  Interval result = {};
  double cost = 0;
};
AdderPlan planAdders(const ProductTask& task);
ConstantProduct buildAdders(Builder& b, const ProductTask& task, const AdderPlan& plan, Signal x);

// The product from the sum of `terms`, in units of 2^dropped, the plan's constant already in it.
ConstantProduct finishedProduct(Builder& b, const ProductTask& task,
                                std::span<const graph::HeapTerm> terms, int fraction, int dropped,
                                const Interval& result);
// Bits of that sum.
int sumWidth(const ProductTask& task, int fraction, int dropped, const Interval& result);

}  // namespace arithmetic
