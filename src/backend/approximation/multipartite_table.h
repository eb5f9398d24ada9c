#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "backend/approximation/segmentation.h"

namespace approximation {

// f(X) as a sum of tables: one of values by the highest bits of X, and for each group of lower bits
// one of differences, which depend on that group and on the highest few bits of X only. Without
// groups it is a plain table, with one a bipartite one, with several a multipartite one.
//
// The result is floor(sum / 2^guardBits) * 2^lsb. Differences are antisymmetric about their group's
// middle, so each table holds the upper half of it: entry v stands for v + 1/2, and its complement
// for the mirrored one. (de Dinechin and Tisserand, "Multipartite table methods", 2005.)
struct MultipartiteTable {
  struct Group {
    int addressBits = 0;  // highest bits of X that choose the slope
    int low = 0, bits = 0;
    // Row = address * 2^(bits - 1) + the group's lower bits, complemented where its top bit is 0;
    // then the complement of the entry counts. In units of 2^(lsb - guardBits), without the half.
    std::vector<std::int64_t> rows;
    bool isSigned() const;
    int width() const;  // with a sign where there is one
  };
  ArgumentFormat argument;
  int lsb = 0, guardBits = 0;
  int valueBits = 0;                 // highest bits of X that choose the value
  std::vector<std::int64_t> values;  // these hold halves and the final rounding's constant as well
  std::vector<Group> groups;
  // Over all X: results, in units of 2^lsb, and result - f(X), in units of 2^-errorFraction: proven
  // by computing every one of them beside an enclosure of f.
  std::int64_t least = 0, greatest = 0;
  Bounds error;
  int errorFraction = 0;

  int sumBits() const;  // of the sum, two's complement where results are negative
  double errorIn(int unit) const;
  // The result for X, as the tables have it.
  std::int64_t at(std::uint64_t x) const;
  std::int64_t differences(std::uint64_t x) const;  // the groups' part of the sum
};

// One table's rows and bits a row.
struct TableSize {
  std::size_t rows = 0;
  int width = 0;
};
// The price of tables whose entries are summed in `sumBits` bits.
using TableCost = std::function<double(const std::vector<TableSize>& tables, int sumBits)>;

// The widest argument for which all values are computed.
inline constexpr int kMostTabulatedBits = 16;

// The cheapest table, multipartite or plain, whose error is at most promise * 2^lsb (promise at
// least 1/2, which only plain tables reach). argument.bits is at most kMostTabulatedBits. Fails
// where f has no bounded enclosure for an argument.
util::Result<MultipartiteTable> searchTable(const Function& f, const ArgumentFormat& argument,
                                            int lsb, double promise, const TableCost& cost);

}  // namespace approximation
