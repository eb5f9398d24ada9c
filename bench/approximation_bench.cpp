// What the search for polynomials finds, and how long it takes: functions of as many bits as their
// results have, faithful, on a device with DSP blocks and memories and on one without.

#include <fmt/format.h>

#include <chrono>
#include <string>

#include "backend/arithmetic/multipartite_circuit.h"
#include "backend/arithmetic/polynomial_circuit.h"

namespace {

using namespace arithmetic;

constexpr const char* kFunctions[] = {"2^x - 1", "log2(1 + x)", "1 / (1 + x)", "sqrt(1 + x)",
                                      "sin(pi * x / 2)"};
constexpr int kWidestTable = 14;

double milliseconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since)
      .count();
}

EvaluationPrices withoutBlocks() {
  EvaluationPrices prices;
  prices.product.lutPerDsp = prices.product.lutPerFurtherDsp = 1e5;
  prices.table.lutPerMemory = std::numeric_limits<double>::infinity();
  return prices;
}

std::string products(const PlannedPolynomial& planned) {
  const auto& p = planned.polynomial;
  std::string text;
  for (int i = p.degree() - 1; i >= 0; --i) {
    const auto above = static_cast<std::size_t>(i) + 1;
    const bool isFirst = i + 1 == p.degree();
    const int bits = isFirst
                         ? bitsOf(p.coefficient[above])
                         : bitsOf(p.partial[above]) + p.lsb[above] - planned.plan.steps[above].lsb;
    text += fmt::format("{}{}x{}", isFirst ? "" : " ",
                        p.segmentation.widestSegment() - planned.plan.steps[above - 1].argumentCut,
                        bits);
  }
  return text;
}

void showPolynomial(const char* function, int width, const char* device,
                    const EvaluationPrices& prices) {
  const auto start = std::chrono::steady_clock::now();
  const auto planned = planPolynomial({.function = function,
                                       .argument = {width, -width},
                                       .resultLsb = -width,
                                       .promise = 1,
                                       .prices = prices});
  const double time = milliseconds(start);
  if (!planned) {
    fmt::print("{}\n", planned.failure().message);
    return;
  }
  const auto& p = planned->polynomial;
  int bits = 0;
  for (const auto& range : p.coefficient) bits += bitsOf(range);
  fmt::print("| {} | {} | {} | {} | {}{} | {} | {} | {:.3f} | {:.0f} | {:.0f} |\n", width, function,
             device, p.degree(), p.segmentation.rows(), p.segmentation.isUniform() ? "" : " split",
             bits, products(*planned), p.errorIn(-width), planned->price(), time);
}

void showTable(const char* function, int width, const EvaluationPrices& prices) {
  const auto start = std::chrono::steady_clock::now();
  const auto planned = planTable({function, {width, -width}, -width, 1, prices.table});
  if (!planned) return;
  std::string sizes = fmt::format("{}x{}", planned->table.values.size(), planned->table.sumBits());
  for (const auto& group : planned->table.groups)
    sizes += fmt::format(" {}x{}", group.rows.size(), group.width());
  fmt::print("| {} | {} | tables | | {} | | | {:.3f} | {:.0f} | {:.0f} |\n", width, function, sizes,
             planned->table.errorIn(-width), planned->price, milliseconds(start));
}

}  // namespace

int main() {
  fmt::print(
      "| bits | function | device | degree | rows | bits a row | products | error ulp | "
      "price | ms |\n|--:|---|---|--:|--:|--:|---|--:|--:|--:|\n");
  for (const int width : {8, 12, 16, 24, 32, 53})
    for (const char* function : kFunctions) {
      if (width <= kWidestTable) showTable(function, width, withoutBlocks());
      showPolynomial(function, width, "blocks", {});
      showPolynomial(function, width, "logic", withoutBlocks());
    }
}
