#include "backend/arithmetic/polynomial_circuit.h"

#include <fmt/format.h>

#include <limits>
#include <map>

namespace arithmetic {

namespace {

// All that a search depends on.
std::string keyOf(const PolynomialRequest& r) {
  const ProductPrices& product = r.prices.product;
  const TablePrices& table = r.prices.table;
  return fmt::format("{}|{} {} {} {} {} {} {} {}|{} {} {} {} {} {} {} {} {}|{} {} {} {}",
                     r.function, r.argument.bits, r.argument.lsb, r.argument.first.toText(16),
                     r.resultLsb, r.promise, r.mostDegree, r.mostRowBits, r.hierarchical,
                     product.lutPerDsp, product.lutPerFurtherDsp, product.dspWide,
                     product.dspNarrow, product.stageTime, product.rowEntry, product.rowPerBit,
                     product.rowNext, product.cascade, table.lutPerBit, table.lutPerMemory,
                     table.memory.width, table.memory.depth);
}

util::Result<PlannedPolynomial> search(const PolynomialRequest& r) {
  const auto function = approximation::Function::parse(r.function);
  if (!function) return function.failure();
  // Half a unit is the final rounding's.
  const approximation::PolynomialTarget target{r.argument,   r.resultLsb,   r.promise - 0.5,
                                               r.mostDegree, r.mostRowBits, r.hierarchical};
  const auto planOf = [&](const approximation::PolynomialShape& shape) {
    return planHorner(shape, r.resultLsb, r.prices);
  };
  auto found = approximation::searchPolynomial(
      *function, target, [&](const approximation::PolynomialShape& shape) {
        const auto plan = planOf(shape);
        return plan ? plan->price() : std::numeric_limits<double>::infinity();
      });
  if (!found) return found.failure();
  const auto plan = planOf(shapeOf(*found, target.room - found->errorIn(r.resultLsb)));
  return PlannedPolynomial{std::move(*found), *plan};
}

}  // namespace

util::Result<PlannedPolynomial> planPolynomial(const PolynomialRequest& request) {
  static std::map<std::string, util::Result<PlannedPolynomial>> cache;
  const std::string key = keyOf(request);
  auto found = cache.find(key);
  if (found == cache.end()) found = cache.emplace(key, search(request)).first;
  return found->second;
}

}  // namespace arithmetic
