#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/horner_plan.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/product_plan.h"
#include "backend/arithmetic/rounding.h"
#include "backend/graph/builder.h"
#include "backend/graph/table_blocks.h"
#include "numbers/ports.h"

namespace functions {

using arithmetic::Rounding;
using arithmetic::RoundMode;

// What one output owes. kWithin: at most `ulps` from the exact result, so 1 is faithful rounding.
struct Accuracy {
  enum Kind { kExact, kCorrect, kWithin } kind = kWithin;
  double ulps = 1.0;
};

struct Shape {
  int width = 0, depth = 0;
};

// All that a unit knows of a device.
struct Prices {
  double lutPerDsp = 120;              // each of the first two blocks of a product
  double lutPerFurtherDsp = 280;       // each further one
  double lutPerMemory = 100;           // each memory block
  Shape dsp{24, 17};                   // widths of the two unsigned factors of one DSP product
  graph::MemoryShape memory{36, 512};  // of one block
  int lutInputs = 6;                   // of a look-up table
  int levelsPerStage = 5;
};

// The same for products; the time of a row of logic is left at the yardstick's.
arithmetic::ProductPrices productPrices(const Prices& prices);
// And for tables and polynomials.
arithmetic::EvaluationPrices evaluationPrices(const Prices& prices);

// What an operator's words say beyond formats: architecture, tie rule, shift limit. Each unit says
// at its row which number means what; a number that is missing reads as 0. Texts are words that an
// integer cannot hold exactly, such as constants, as they stand on the command line.
struct Variant {
  std::vector<std::int64_t> numbers;
  std::vector<std::string> texts = {};
  std::int64_t operator[](std::size_t index) const {
    return index < numbers.size() ? numbers[index] : 0;
  }
};

// The formats of a unit's ports and the meaning of its words: what fixes the function.
struct Signature {
  std::vector<kiln::Type> in, out;
  Variant variant;
};

// What a circuit may be made of in another form.
struct Form {
  arithmetic::FirstOne firstOne = arithmetic::FirstOne::kSharedGates;  // of leading-zero counters
  bool codesKind = false;      // as arithmetic::Unrounded has it, of products
  bool raisesByCarry = false;  // all that a rounding to an integer waits for is one carry
};

// What is asked of the circuit for a signature. Format, rounding and options reach it here only.
struct Request {
  Signature signature;
  std::vector<Accuracy> accuracy;  // one for each output
  Rounding rounding;
  bool subnormals = false;
  bool quietNaN = false;
  bool wholeProducts = false;  // no partial products are left out
  Prices prices;
  bool alignsInDsps = false;  // adders shift the lesser operand in DSP blocks
  // 1 in the cycles whose inputs count, for units that keep a state; no signal: in every cycle.
  graph::Signal valid{};
  // Takes the error budgets that the circuit keeps, if not null; tried candidates state none.
  arithmetic::ErrorBudgets* budgets = nullptr;
  Form form;
};

// The mathematical function, in MPFR or exact integers, never with the circuit's code. Writes one
// value for each output port into `results` (resized to fit, storage reused), each rounded once to
// its precision in its direction; special cases as docs/semantics-fp.md and semantics-fxp.md say.
// Works in MPFR's full exponent range and restores the caller's.
using EvaluateFn = void (*)(const Signature& signature, std::vector<NumValue>& results,
                            const std::vector<NumValue>& inputs,
                            const std::vector<unsigned>& precisions,
                            const std::vector<mpfr_rnd_t>& roundings, bool subnormals);

// The circuit: one signal for each output port, of that port's width.
using DecomposeFn = std::vector<graph::Signal> (*)(graph::Builder& builder, const Request& request,
                                                   std::span<const graph::Signal> inputs);

// A reason why no circuit or function exists for this request, as the end of a line that begins
// with the operator ("wE 1 is out of range 2 to 15"), or nothing.
using RefuseFn = std::optional<std::string> (*)(const Request& request);

enum class Protocol { kStream, kAccumulate, kSequence };

struct UnitRow {
  std::string_view name;  // CFloatAdd, DMFxPModularMult, ...
  EvaluateFn evaluate;
  DecomposeFn decompose;
  RefuseFn refuses;
  Protocol protocol = Protocol::kStream;
  int minimumLatency = 0;  // cycles from inputs to outputs
  // What the report calls the method, where the unit chooses it; else the operator's row names it.
  std::string_view (*description)(const Signature& signature) = nullptr;
  // Where the circuit follows Request::form: the one that is tried, too; the better circuit is
  // taken.
  std::optional<Form> otherForm = {};
};

// The row called `name`, or null. Rows stand in unit_table.cpp.
const UnitRow* findUnit(std::string_view name);

}  // namespace functions
