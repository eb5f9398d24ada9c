#include "operators/operator_row.h"

#include <fmt/format.h>

#include <algorithm>

#include "operators/row_tables.h"
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
  for (std::span<const OperatorRow> part :
       {floatFunctionRows(), floatSumRows(), floatProductRows(), fixedRows(), longIntegerRows()})
    rows.insert(rows.end(), part.begin(), part.end());
  return rows;
}

bool isCalled(const OperatorRow& row, const std::string& word) {
  if (row.spelling == Spelling::kExact) return row.word == word;
  return util::caseInsensitiveEquals(word, std::string(row.word));
}

}  // namespace

std::span<const OperatorRow> operatorRows() {
  static const std::vector<OperatorRow> rows = chain();
  return rows;
}

const OperatorRow* findOperator(const std::string& word) {
  const auto rows = operatorRows();
  const auto found =
      std::ranges::find_if(rows, [&](const OperatorRow& row) { return isCalled(row, word); });
  return found == rows.end() ? nullptr : &*found;
}

std::string testNameOf(const OperatorRow& row) {
  return row.testName.empty() ? std::string(row.unitName) + "TestBench" : std::string(row.testName);
}

util::Result<Parameters> readParameters(const OperatorRow& row, util::Words behind) {
  if (auto failure = util::missingWords(std::string(row.word), namesOf(row.parameters), behind))
    return *failure;
  const std::size_t named = row.parameters.size();
  for (std::size_t k = 0; k < named; ++k) {
    const auto& [name, low, high] = row.parameters[k];
    const int value = util::integerOf(behind[k]);
    if (value < low || value > high)
      return util::Failure{
          fmt::format("{}: {} {} is out of range {} to {}", row.word, name, behind[k], low, high)};
  }
  const auto taken = [&](std::size_t count) {
    return Parameters({behind.begin(), behind.begin() + static_cast<std::ptrdiff_t>(count)}, named);
  };
  if (!row.furtherWords.count) return taken(named);
  const std::size_t further = row.furtherWords.count(taken(named));
  if (behind.size() - named < further)
    return util::Failure{fmt::format("{}: the line ends before {} {} of {}", row.word,
                                     row.furtherWords.name, behind.size() - named + 1, further)};
  return taken(named + further);
}

}  // namespace operators
