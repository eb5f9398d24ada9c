#include <algorithm>

#include "backend/arithmetic/constant_plan.h"
#include "util/failure.h"

namespace arithmetic {

using graph::HeapTerm;
using util::MPZ;

namespace {

using Table = TablePlan::Table;

// The number that pattern `pattern` of a table's digit stands for; the highest digit of a signed
// operand is signed.
MPZ digitOf(const ProductTask& task, const Table& table, unsigned long pattern) {
  const bool isTop = table.low + table.width == task.xWidth;
  const MPZ digit(pattern);
  return task.isSigned && isTop ? digit.asSigned(static_cast<unsigned long>(table.width)) : digit;
}

std::vector<Table> digitsOf(const ProductTask& task) {
  std::vector<Table> tables;
  for (int low = 0; low < task.xWidth; low += task.lutInputs)
    tables.push_back({low, std::min(task.lutInputs, task.xWidth - low), {}});
  return tables;
}

// Fills the tables with the digits' products, rounded to multiples of 2^dropped, and returns the
// error of their sum.
Interval fill(const ProductTask& task, TablePlan& plan) {
  const auto dropped = static_cast<unsigned long>(plan.dropped);
  const MPZ half = dropped > 0 ? MPZ::powerOfTwo(dropped - 1) : MPZ(0);
  Interval total{0, 0};
  for (Table& table : plan.tables) {
    table.sums.clear();
    Interval error{0, 0};  // that of the digit 0
    for (unsigned long pattern = 0; pattern < 1ul << table.width; ++pattern) {
      const MPZ exact = (digitOf(task, table, pattern) * plan.mantissa)
                        << static_cast<unsigned long>(table.low);
      table.sums.push_back((exact + half) >> dropped);
      const MPZ off = (table.sums.back() << dropped) - exact;
      error = {std::min(error.low, off), std::max(error.high, off)};
    }
    total = total + error;
  }
  return total;
}

unsigned long commonZeros(const std::vector<MPZ>& sums) {
  MPZ all;
  for (const MPZ& sum : sums) all = all | sum;
  return all.isZero() ? 0 : mpz_scan1(all.get(), 0);
}

unsigned long bitsOf(const std::vector<MPZ>& sums) {
  MPZ all;
  for (const MPZ& sum : sums) all = all | sum;
  return all.bitLength();
}

// Makes every entry a pattern: what is negative in the tables, and `constant`, go to the highest
// table as far as its places reach, the rest to the lowest.
void gatherConstants(std::vector<Table>& tables, MPZ constant, int width) {
  for (Table& table : tables) {
    const MPZ least = *std::ranges::min_element(table.sums);
    for (MPZ& sum : table.sums) sum -= least;
    constant += least;
  }
  if (constant.isZero()) return;
  std::vector<MPZ>& top = tables.back().sums;
  const unsigned long zeros = tables.size() == 1 ? 0 : commonZeros(top);
  const MPZ high = (constant >> zeros) << zeros;
  for (MPZ& sum : top) sum = (sum + high).lowBits(static_cast<unsigned long>(width));
  if (tables.size() == 1) return;
  for (MPZ& sum : tables[0].sums) sum += constant - high;
}

// One look-up table for each bit of an entry, and one for each bit that the heap adds. A digit of
// one bit only switches a constant.
double costOf(const TablePlan& plan, int width, bool hasRoundingBit) {
  double tables = 0, bits = hasRoundingBit ? 1 : 0;
  for (const Table& table : plan.tables) {
    const auto entry = static_cast<double>(bitsOf(table.sums) - commonZeros(table.sums));
    bits += entry;
    if (table.width > 1) tables += entry;
  }
  return tables + std::max(0.0, bits - width);
}

// The whole operand is one digit: the table holds the results themselves.
TablePlan planResults(const ProductTask& task) {
  TablePlan plan{.tables = digitsOf(task), .mantissa = task.mantissa};
  Table& table = plan.tables[0];
  for (unsigned long pattern = 0; pattern < 1ul << table.width; ++pattern)
    table.sums.push_back(
        resultFor(task, digitOf(task, table, pattern), task.mantissa, task.fraction));
  plan.result = exactResult(task, task.mantissa, task.fraction);
  return plan;
}

}  // namespace

TablePlan planTables(const ProductTask& task) {
  TablePlan plan;
  MPZ constant;
  if (task.xWidth <= task.lutInputs && task.goal.kind != ProductGoal::kWhole) {
    plan = planResults(task);
  } else if (task.goal.kind == ProductGoal::kWithin) {
    plan = {.tables = digitsOf(task), .mantissa = task.mantissa, .fraction = task.fraction};
    std::optional<Correction> correction;
    for (plan.dropped = task.fraction; !correction; --plan.dropped) {
      LOAM_ASSERT(plan.dropped >= 0, "exact tables keep every bound");
      correction = correctionFor(task, fill(task, plan), plan.dropped);
      if (correction) break;
    }
    constant = correction->value >> static_cast<unsigned long>(plan.dropped);
    plan.result = correction->result;
  } else {
    plan.tables = digitsOf(task);
    plan.mantissa = shortest(task.mantissa, task.tolerance);
    const auto zeros = static_cast<int>(mpz_scan1(plan.mantissa.get(), 0));
    plan.fraction = std::max(0, task.fraction - zeros);
    plan.mantissa >>= static_cast<unsigned long>(task.fraction - plan.fraction);
    fill(task, plan);
    constant = roundingConstant(task, plan.fraction);
    plan.result = exactResult(task, plan.mantissa, plan.fraction);
  }
  const int width = sumWidth(task, plan.fraction, plan.dropped, plan.result);
  gatherConstants(plan.tables, constant, width);
  plan.cost = costOf(plan, width, task.goal.kind != ProductGoal::kWithin);
  return plan;
}

ConstantProduct buildTables(Builder& b, const ProductTask& task, const TablePlan& plan, Signal x) {
  const auto scope = b.scope("tables");
  std::vector<HeapTerm> terms;
  for (const Table& table : plan.tables) {
    const unsigned long zeros = commonZeros(table.sums);
    const auto width = static_cast<int>(bitsOf(table.sums) - zeros);
    MPZ contents;
    for (std::size_t i = 0; i < table.sums.size(); ++i)
      contents += (table.sums[i] >> zeros) << (i * static_cast<unsigned long>(width));
    if (width == 0) continue;
    const Signal digit = b.slice(x, table.low, table.width);
    terms.push_back({b.lut(digit, contents, width), static_cast<int>(zeros)});
  }
  if (task.goal.kind != ProductGoal::kWithin) addRoundingBits(b, task, x, plan.fraction, terms);
  return finishedProduct(b, task, terms, plan.fraction, plan.dropped, plan.result);
}

}  // namespace arithmetic
