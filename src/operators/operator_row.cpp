#include "operators/operator_row.h"

#include <fmt/format.h>

#include <algorithm>

#include "operators/floating_rows.h"
#include "operators/integer_rows.h"
#include "util/strings.h"

namespace operators {

namespace {

// "wE wF": the names as the usage shows them.
std::string namesOf(std::span<const Parameter> parameters) {
  std::string names;
  for (const Parameter& parameter : parameters) {
    if (!names.empty()) names += ' ';
    names += parameter.name;
  }
  return names;
}

std::vector<OperatorRow> chain() {
  std::vector<OperatorRow> rows;
  for (std::span<const OperatorRow> part : {floatingRows(), integerRows()})
    rows.insert(rows.end(), part.begin(), part.end());
  return rows;
}

}  // namespace

std::span<const OperatorRow> operatorRows() {
  static const std::vector<OperatorRow> rows = chain();
  return rows;
}

const OperatorRow* findOperator(const std::string& word) {
  const auto rows = operatorRows();
  const auto found = std::ranges::find_if(rows, [&](const OperatorRow& row) {
    return util::caseInsensitiveEquals(word, std::string(row.word));
  });
  return found == rows.end() ? nullptr : &*found;
}

util::Result<Parameters> readParameters(const OperatorRow& row, util::Words behind) {
  if (auto failure = util::missingWords(std::string(row.word), namesOf(row.parameters), behind))
    return *failure;
  std::vector<int> values;
  for (std::size_t k = 0; k < row.parameters.size(); ++k) {
    const auto& [name, low, high] = row.parameters[k];
    values.push_back(util::integerOf(behind[k]));
    if (values.back() < low || values.back() > high)
      return util::Failure{
          fmt::format("{}: {} {} is out of range {} to {}", row.word, name, behind[k], low, high)};
  }
  return Parameters(std::move(values));
}

}  // namespace operators
