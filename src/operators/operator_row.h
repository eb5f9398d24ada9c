#pragma once

#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "backend/functions/unit.h"
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

// The words of an operator, counted from 1 as in its usage.
class Parameters {
 public:
  // `words` stand for the row's parameters and the further words behind these.
  Parameters(std::vector<std::string> words, std::size_t parameters)
      : words(std::move(words)), parameters(parameters) {}
  // The word as an integer, see util::integerOf().
  int operator[](std::size_t number) const { return util::integerOf(text(number).c_str()); }
  // The word as it stands on the line.
  const std::string& text(std::size_t number) const { return words.at(number - 1); }
  std::span<const std::string> further() const { return std::span(words).subspan(parameters); }
  // All words, further ones included.
  std::size_t size() const { return words.size(); }

 private:
  std::vector<std::string> words;
  std::size_t parameters;
};

// The ports that an operator declares, in the order of the columns of the vector files.
struct Ports {
  PortSpecList in, out;
};

// Words behind the parameters, as many as these tell.
struct FurtherWords {
  std::string_view name = {};  // of one of them
  std::size_t (*count)(const Parameters&) = nullptr;
};

enum class Spelling { kAnyCase, kExact };

// All that tells one operator of the classic flow from another.
struct OperatorRow {
  std::string_view word;
  std::span<const Parameter> parameters;
  Ports (*ports)(const Parameters&);
  std::string_view component;  // reported as @name
  std::string_view method =
      {};                 // reported as @method; the unit's description, or "default", if empty
  componentType type;     // steers the choice of vectors
  std::string_view unit;  // name of its row in backend/functions
  // What the unit is told beyond its formats; the unit states what the numbers and texts mean.
  functions::Variant (*variant)(const Parameters&);
  std::string_view unitName;
  std::string_view testName = {};  // of the twin that drives the vectors; unitName + "TestBench"
  int precision = 0;               // bits of working precision of the vectors; 0 leaves it
  // Prints what the operator announces before its ports are declared; usually nothing. Asserts what
  // the range of a parameter cannot say.
  void (*announce)(const Parameters&) = nullptr;
  // Instead of `method`, where that depends on the parameters.
  std::string_view (*methodOf)(const Parameters&) = nullptr;
  FurtherWords furtherWords = {};
  // What is wrong with words whose range is no interval, as the end of a line that begins with the
  // operator; or nothing.
  std::optional<std::string> (*refuses)(const Parameters&) = nullptr;
  Spelling spelling = Spelling::kAnyCase;
};

// All operators, in the order in which a word of the line is compared with them.
std::span<const OperatorRow> operatorRows();

// The first row called `word`, without regard to case where the row allows it, or null.
const OperatorRow* findOperator(const std::string& word);

// The name of the unit that drives the vectors.
std::string testNameOf(const OperatorRow& row);

// Reads the words behind an operator. Fails when the line ends too early, or when a value is out
// of the parameter's range.
util::Result<Parameters> readParameters(const OperatorRow& row, util::Words behind);

}  // namespace operators
