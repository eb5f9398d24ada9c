#pragma once

#include <array>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

// Inside covering: functions of four bits as and-gates.

namespace device {

// Bit x of it is the value for the inputs x, input 0 lowest.
using Function = std::uint16_t;
constexpr std::array<Function, 4> kInputFunctions = {0xaaaa, 0xcccc, 0xf0f0, 0xff00};

// And-gates with inverted operands. A literal is 2 * index, plus 1 for the inverse, of an input
// (below 4) or of gate `index - 4`.
struct Formula {
  std::vector<std::pair<std::uint8_t, std::uint8_t>> gates;
  std::uint8_t result = 0;
};

// Formulas of few gates, made when they are first asked for: those with an input on top, alone or
// choosing, and those in which two inputs enter by one bit.
class SmallFunctions {
 public:
  // Up to kMost different ones, smallest first; the function is no constant.
  static constexpr std::size_t kMost = 5;
  const std::vector<Formula>& formulasOf(Function function);

 private:
  // The last step towards a function.
  struct Step {
    enum class Kind : std::uint8_t { kLiteral, kAnd, kOr, kXor, kChoice, kOrAnd, kInner } kind;
    std::uint8_t input = 0;  // the one on top, inverted when odd
    Function x = 0, y = 0;   // what is left
    int gates = 0;           // in all
  };
  std::vector<Step> stepsOf(Function function);
  int gatesOf(Function function);
  const Step& bestOf(Function function);
  std::uint8_t add(const Step& step, const std::array<std::uint8_t, 4>& inputs, Formula& formula);
  std::uint8_t add(Function function, const std::array<std::uint8_t, 4>& inputs, Formula& formula);

  std::unordered_map<Function, Step> best;
  std::unordered_map<Function, std::vector<Formula>> formulas;
};

}  // namespace device
