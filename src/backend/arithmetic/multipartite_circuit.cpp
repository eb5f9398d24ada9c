#include "backend/arithmetic/multipartite_circuit.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace arithmetic {

using approximation::MultipartiteTable;
using graph::HeapTerm;
using util::MPZ;

namespace {

std::vector<MPZ> asRows(const std::vector<std::int64_t>& values) {
  std::vector<MPZ> rows;
  for (const std::int64_t value : values) rows.emplace_back(static_cast<long>(value));
  return rows;
}

util::Result<PlannedTable> search(const TableRequest& r) {
  const auto function = approximation::Function::parse(r.function);
  if (!function) return function.failure();
  const auto cost = [&](const std::vector<approximation::TableSize>& tables, int sumBits) {
    double luts = (static_cast<double>(tables.size()) - 1) * sumBits;
    for (const auto& table : tables) luts += tablePrice(table.rows, table.width, r.prices);
    return luts;
  };
  auto found = approximation::searchTable(*function, r.argument, r.lsb, r.promise, cost);
  if (!found) return found.failure();
  std::vector<approximation::TableSize> sizes{{found->values.size(), found->sumBits()}};
  for (const auto& group : found->groups) sizes.push_back({group.rows.size(), group.width()});
  const double price = cost(sizes, found->sumBits());
  return PlannedTable{std::move(*found), price};
}

}  // namespace

util::Result<PlannedTable> planTable(const TableRequest& r) {
  static std::map<std::string, util::Result<PlannedTable>> cache;
  const std::string key =
      fmt::format("{}|{} {} {} {} {}|{} {} {} {}", r.function, r.argument.bits, r.argument.lsb,
                  r.argument.first.toText(16), r.lsb, r.promise, r.prices.lutPerBit,
                  r.prices.lutPerMemory, r.prices.memory.width, r.prices.memory.depth);
  auto found = cache.find(key);
  if (found == cache.end()) found = cache.emplace(key, search(r)).first;
  return found->second;
}

EvaluatedFunction evaluateTable(Builder& b, Signal x, const MultipartiteTable& table,
                                double promise) {
  LOAM_ASSERT(x.width == table.argument.bits, "an argument of a table");
  const auto scope = b.scope("table");
  const int width = table.sumBits();
  const auto highest = [&](int count) { return b.slice(x, x.width - count, count); };
  std::vector<HeapTerm> terms{
      {tableLookup(b, highest(table.valueBits), asRows(table.values), width), 0}};
  for (const MultipartiteTable::Group& group : table.groups) {
    const Signal mirrors = b.bitNot(b.bitOf(x, group.low + group.bits - 1));
    const Signal address = highest(group.addressBits);
    Signal index = address;
    if (group.bits > 1) {
      const Signal part = b.slice(x, group.low, group.bits - 1);
      index = b.concat({address, b.bitXor(part, b.replicate(mirrors, part.width))});
    }
    const int entryBits = std::min(width, group.width() + (group.isSigned() ? 0 : 1));
    const Signal entry = tableLookup(b, index, asRows(group.rows), entryBits);
    const Signal difference = b.bitXor(entry, b.replicate(mirrors, entryBits));
    terms.push_back({b.signExtend(difference, width), 0});
  }
  const Signal sum = terms.size() == 1 ? terms[0].bits : b.heap(terms, width);
  EvaluatedFunction result{
      {b.slice(sum, table.guardBits, width - table.guardBits), table.lsb,
       MPZ(static_cast<long>(table.least)), MPZ(static_cast<long>(table.greatest))},
      ErrorBudget(promise)};
  const int denominator = table.errorFraction + table.lsb;
  result.budget.add("tables and rounding", table.error.magnitude(), denominator);
  result.budget.assertKept();
  return result;
}

}  // namespace arithmetic
