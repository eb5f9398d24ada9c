#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"

// Inside covering: logic bit by bit.

namespace device {

// The value of a gate or its inverse: 2 * gate + 1 for the inverse. Gate 0 is the constant 0.
using Literal = std::uint32_t;
inline constexpr Literal kFalse = 0, kTrue = 1;
constexpr Literal inverse(Literal x) { return x ^ 1; }
constexpr std::uint32_t gateOf(Literal x) { return x >> 1; }

// And-gates with inverted operands, each different one once, in topological order (an and-inverter
// graph: Kuehlmann et al., IEEE Trans. CAD 2002).
class GateNetwork {
 public:
  struct Gate {
    Literal a = kFalse, b = kFalse;
    bool isInput = true;
  };

  Literal input();
  Literal both(Literal a, Literal b);
  Literal either(Literal a, Literal b) { return inverse(both(inverse(a), inverse(b))); }
  Literal differ(Literal a, Literal b);
  Literal choice(Literal condition, Literal ifOne, Literal ifZero);
  // What something other than a table reads: a register, a port, a carry chain, a block.
  void addRoot(Literal x) { rootRows.push_back(x); }

  // A gate of its own, even where there is one like it.
  Literal append(Literal a, Literal b);
  // Earlier gates that have the same value as a gate and that only other ones of the kind read.
  void setChoices(std::uint32_t gate, std::vector<Literal> choices);
  std::span<const Literal> choicesOf(std::uint32_t gate) const {
    if (gate >= choiceRows.size()) return {};
    return choiceRows[gate];
  }

  const std::vector<Gate>& gates() const { return gateRows; }
  const std::vector<Literal>& roots() const { return rootRows; }

 private:
  std::vector<Gate> gateRows{Gate{}};
  std::vector<Literal> rootRows;
  std::vector<std::vector<Literal>> choiceRows;  // by gate, as far as there are any
  std::unordered_map<std::uint64_t, Literal> made;
};

// The logic of a graph between the registers that `cycles` (by node) leaves, constants and equal
// gates removed, and what stands beside it: carry chains and blocks are inputs and roots of the
// network. Each bit of a chain has a root for what it passes on, the exclusive or, and one for an
// addend; three addends stand behind a row of full adders. A sum that tools move into the block of
// a product takes nothing, and neither does a register's enable. A choice of a constant that only a
// register reads is that register's clear and takes what drives it, but for those in `lateClears`.
// Comparisons of more than two groups of bits are chains, too. Nothing where the graph has more
// than `mostBits` bits of logic.
struct LogicBetweenRegisters {
  GateNetwork network;
  Cost others;  // of what is none of the network's
};
std::optional<LogicBetweenRegisters> logicBetweenRegisters(
    const graph::Graph& graph, const Device& device, std::span<const int> cycles,
    std::span<const graph::NodeId> lateClears, long mostBits);

// A network with equal gates as one, and with gates of `others`, which have its inputs and roots,
// as choices beside their equals (Chatterjee et al., "Reducing structural bias in technology
// mapping", ICCAD 2005). What is the same in some thirty thousand samples counts as equal, so it
// serves for estimates only. Linear in the gates but for a sort.
GateNetwork withChoices(const GateNetwork& network, std::span<const GateNetwork> others);

// What tools make of a network before they map it, as an estimate: equal gates are one; where
// another structure of a function of four bits makes more gates superfluous than it adds, and no
// longest way longer, it takes their place (Mishchenko et al., "DAG-aware AIG rewriting", DAC
// 2006), and conjunctions are joined from what is there first. Linear in the gates but for a sort.
GateNetwork simplified(const GateNetwork& network);
// The same, with gates of two other forms, not rewritten and rewritten less, as choices.
GateNetwork simplifiedWithChoices(const GateNetwork& network);

// How many look-up tables of six inputs a network takes; functions of seven and eight are made of
// several behind the multiplexers of a slice, constants and inverters of none. Cuts of least depth
// come first, then, where the depth allows, those of least area flow and of least area itself
// (Mishchenko et al., "Improvements to technology mapping for LUT-based FPGAs", IEEE Trans. CAD
// 2007). Linear in the gates.
//
// Quick, for comparing; or thorough, as tools do it: the least depth is also looked for by cuts of
// few leaves (Mishchenko et al., "Combinational and sequential mapping with priority cuts", ICCAD
// 2007), which takes more tables where it is found, and tables of wide functions that are alike are
// one.
enum class Mapping { kQuick, kThorough };
int countTables(const GateNetwork& network, Mapping mapping = Mapping::kQuick);

// How many tools are expected to make of it. Which of several equal forms they map is chance for
// all that is known here, and each has its kind of logic of which it makes too many or too few: the
// geometric mean of the network as it stands, simplified, simplified further, mapped quickly and
// thoroughly, and simplified with choices. Of a much larger network, in which chance evens out,
// that of the first two.
double expectedTables(const GateNetwork& network);

}  // namespace device
