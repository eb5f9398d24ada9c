#include "backend/arithmetic/function_circuit.h"

#include <fmt/format.h>

namespace arithmetic {

util::Result<PlannedFunction> planFunction(const PolynomialRequest& request) {
  // Half a unit is the final rounding's, so that polynomials need more.
  const bool canBePolynomial = request.promise > 0.5 && request.argument.bits > 1;
  std::optional<PlannedFunction> best;
  std::optional<util::Failure> failure;
  const auto keepCheaper = [&](const auto& planned, auto priceOf) {
    if (!planned) {
      failure = planned.failure();
      return;
    }
    if (const double price = priceOf(*planned); !best || price < best->price)
      best = PlannedFunction{*planned, price};
  };
  if (canBePolynomial)
    keepCheaper(planPolynomial(request), [](const PlannedPolynomial& p) { return p.price(); });
  if (request.argument.bits <= kMostCompetingBits)
    keepCheaper(planTable({request.function, request.argument, request.resultLsb, request.promise,
                           request.prices.table}),
                [](const PlannedTable& t) { return t.price; });
  if (best) return std::move(*best);
  return failure ? *failure
                 : util::Failure{fmt::format("no table of {} bits for \"{}\"",
                                             request.argument.bits, request.function)};
}

std::string PlannedFunction::description() const {
  if (const auto* planned = std::get_if<PlannedPolynomial>(&method)) {
    const auto& p = planned->polynomial;
    return fmt::format("{} {}polynomials of degree {}", p.segmentation.rows(),
                       p.segmentation.isUniform() ? "" : "unequal ", p.degree());
  }
  const auto& table = std::get<PlannedTable>(method).table;
  return table.groups.empty() ? "one table"
         : table.groups.size() == 1
             ? "bipartite table"
             : fmt::format("multipartite table of {}", table.groups.size() + 1);
}

EvaluatedFunction evaluateFunction(Builder& b, Signal x, const PlannedFunction& plan,
                                   const PolynomialRequest& request) {
  if (const auto* planned = std::get_if<PlannedPolynomial>(&plan.method))
    return evaluatePolynomial(b, x, planned->polynomial, planned->plan, request.promise,
                              request.prices);
  return evaluateTable(b, x, std::get<PlannedTable>(plan.method).table, request.promise);
}

}  // namespace arithmetic
