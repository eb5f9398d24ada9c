#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "numbers/component_type.h"
#include "numbers/ports.h"
#include "util/failure.h"
#include "util/words.h"

namespace operators {

// One word that stands behind an operator on the command line, and the values for which a circuit
// exists. A word that chooses something (a flag, an architecture) takes every value.
struct Parameter {
  std::string_view name;
  int low = std::numeric_limits<int>::min();
  int high = std::numeric_limits<int>::max();
};

// The values of an operator's parameters, counted from 1 as in the operator's usage.
class Parameters {
 public:
  explicit Parameters(std::vector<int> values) : values(std::move(values)) {}
  int operator[](std::size_t number) const { return values.at(number - 1); }

 private:
  std::vector<int> values;
};

// The ports that an operator declares, in the order of the columns of the vector files.
struct Ports {
  PortSpecList in, out;
};

// All that tells one operator of the classic flow from another.
struct OperatorRow {
  std::string_view word;
  std::span<const Parameter> parameters;
  Ports (*ports)(const Parameters&);
  std::string_view component;  // reported as @name
  std::string_view method;     // reported as @method; "default" when empty
  componentType type;          // steers the choice of vectors
  std::string_view unit;       // name of its row in backend/functions
  // The numbers of functions::Variant, whose meaning the unit states.
  std::vector<std::int64_t> (*variant)(const Parameters&);
  std::string_view unitName;
  std::string_view testName = {};  // of the twin that drives the vectors; unitName + "TestBench"
  int precision = 0;               // bits of working precision of the vectors; 0 leaves it
  // Prints what the operator announces before its ports are declared; usually nothing.
  void (*announce)() = nullptr;
};

// All operators, in the order in which a word of the line is compared with them.
std::span<const OperatorRow> operatorRows();

// The first row called `word`, without regard to case, or null.
const OperatorRow* findOperator(const std::string& word);

// Reads the words behind an operator. Fails when the line ends too early, or when a value is out
// of the parameter's range.
util::Result<Parameters> readParameters(const OperatorRow& row, util::Words behind);

}  // namespace operators
