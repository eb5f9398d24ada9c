#pragma once

#include "backend/approximation/multipartite_table.h"
#include "backend/arithmetic/polynomial_evaluator.h"

namespace arithmetic {

// The cheapest sum of tables for a function of (argument.first + x) * 2^argument.lsb, within
// `promise` units of 2^lsb; found once in a run. argument.bits is at most
// approximation::kMostTabulatedBits. Fails as approximation::searchTable does, or where the text is
// no function.
struct TableRequest {
  std::string function;
  approximation::ArgumentFormat argument;
  int lsb = 0;
  double promise = 1;
  TablePrices prices;
};
struct PlannedTable {
  approximation::MultipartiteTable table;
  double price = 0;
};
util::Result<PlannedTable> planTable(const TableRequest& request);

// Its circuit: the lookups and one sum. The budget holds the error of all inputs, computed exactly,
// and keeps `promise`, or the run ends.
EvaluatedFunction evaluateTable(Builder& b, Signal x, const approximation::MultipartiteTable& table,
                                double promise);

}  // namespace arithmetic
