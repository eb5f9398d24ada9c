#include "backend/device/device.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <span>
#include <unordered_set>
#include <utility>

#include "backend/device/families.h"
#include "backend/graph/table_blocks.h"
#include "util/failure.h"

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// A product narrower than this is logic; a wider one occupies DSP blocks.
constexpr int kNarrowestDspProduct = 9;

// Tools make tables of eight inputs out of tables and multiplexers: so many inputs have two levels.
constexpr int kInputsOfTwoLevels = 64;

// Look-up tables of each bit of a pick of more than four ways, for each way but one.
constexpr double kTablesPerWay = 0.385;

int widthOf(const Graph& graph, const Node& node, std::size_t operand) {
  return graph.node(graph.operands(node)[operand]).width;
}

int ceilDivide(int a, int b) { return (a + b - 1) / b; }

// Levels of additions of three addends that bring `addends` numbers down to one.
int sumLevels(int addends) {
  int levels = 0;
  for (; addends > 1; addends = ceilDivide(addends, 3)) ++levels;
  return levels;
}

// How many bits of a node are no constants.
int variableBits(const Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op == Op::kLiteral) return 0;
  if (node.op != Op::kConcat) return node.width;
  int bits = 0;
  for (const NodeId part : graph.operands(node)) bits += variableBits(graph, part);
  return bits;
}

// Look-up tables of an addition: one for each bit that two addends reach, two for three. A constant
// takes none: the chain alone adds it.
double sumTables(const Graph& graph, const Node& node) {
  const auto operands = graph.operands(node);
  std::array<int, 3> bits{};
  for (std::size_t i = 0; i + 1 < operands.size(); ++i) bits[i] = variableBits(graph, operands[i]);
  std::ranges::sort(bits, std::greater<>());
  return bits[1] + bits[2];
}

// Look-up tables of a table in logic: one for each function of six inputs that is left when the
// further bits of the index are fixed, equal or complementary ones shared. Up to eight inputs the
// multiplexers behind them are free; tools then cut deeper tables less well. Measured: 0.9 to 1.25
// times this, smooth contents the most.
double logicTables(std::span<const util::MPZ> rows, int width) {
  constexpr std::size_t kRows = 64;
  constexpr double kDeepShare = 1.35;
  std::unordered_set<std::uint64_t> parts;
  for (std::size_t first = 0; first < rows.size(); first += kRows)
    for (int bit = 0; bit < width; ++bit) {
      std::uint64_t part = 0;
      for (std::size_t x = 0; x < std::min(kRows, rows.size()); ++x)
        part |= std::uint64_t{rows[first + x].bit(static_cast<unsigned long>(bit))} << x;
      part = std::min(part, ~part);
      if (part != 0) parts.insert(part);
    }
  return std::ceil(static_cast<double>(parts.size()) * (rows.size() > 4 * kRows ? kDeepShare : 1));
}

}  // namespace

Device::Device(const Family& family, std::string speedGrade, double gradeFactor, std::string part)
    : family(family), grade(std::move(speedGrade)), factor(gradeFactor), part(std::move(part)) {}

bool Device::SupportsHyperRegisters() const { return family.hyperRegisters; }
bool Device::hasHardFloat() const { return family.hardFloat; }
std::string_view Device::familyName() const { return family.name; }
bool Device::isCalibrated() const { return family.calibrated; }

Picoseconds Device::scaled(double picoseconds) const {
  return {static_cast<int>(std::lround(picoseconds * factor))};
}
Picoseconds Device::clockToOutput() const { return scaled(family.clockToOutput); }
Picoseconds Device::setup() const { return scaled(family.setup); }
Picoseconds Device::clearDelay(bool needsInverter) const {
  return scaled(family.clearSetup + (needsInverter ? family.lut[1] : 0));
}

double Device::plainSum(int width, int addends) const {
  return family.sumEntry + family.sumPerBit * width + (addends > 2 ? family.thirdAddend : 0);
}

double Device::lessDelay(int width) const { return family.lessEntry + family.lessPerBit * width; }

// A tree of look-up tables that computes a function of `inputs` bits which can be cut anywhere.
double Device::functionDelay(Op op, int inputs) const {
  if (inputs <= family.lutInputs())
    return family.lut[static_cast<std::size_t>(std::max(inputs, 0))];
  const double doublings = std::log2(static_cast<double>(inputs) / family.lutInputs());
  const bool isParity = op == Op::kReduceXor && inputs > 8;
  const bool isThreeLevels = inputs > kInputsOfTwoLevels;
  return std::max(isThreeLevels ? family.threeLevels
                  : isParity    ? family.wideParity
                                : family.wideTable,
                  family.lut.back() + family.treePerDoubling * doublings);
}

// Four ways fill a table of six inputs, two ways one of three.
double Device::pickDelay(std::size_t choices) const {
  if (choices <= 2) return family.lut[3];
  const double doublings = std::log2(static_cast<double>(std::max<std::size_t>(choices, 4)) / 4);
  return family.lut.back() + family.pickPerDoubling * doublings;
}

Picoseconds Device::tableDelay(int inputs) const {
  return scaled(family.lut[static_cast<std::size_t>(inputs)]);
}

Picoseconds Device::sumDelayBehind(int width, int inputs) const {
  const double table = family.lut[static_cast<std::size_t>(std::max(inputs, 2))];
  return scaled(plainSum(width, 2) + table - family.lut[2]);
}

Picoseconds Device::carryDelay(int bits) const { return scaled(family.sumPerBit * bits); }
Picoseconds Device::comparedDelay(int bits) const { return scaled(family.lessPerBit * bits); }

double Device::wideTableDelay(int indexWidth) const {
  if (indexWidth <= 8) return family.tableOfEight;
  return family.tableOfNine + family.tablePerInput * (indexWidth - 9);
}

// Trees of gates fill tables well; of comparisons and parities tools make wide multiplexers.
double Device::functionTables(Op op, int inputs) const {
  constexpr double kTablesPerBit = 0.36;
  constexpr int kNarrow = 16;
  const double tree = std::ceil((inputs - 1) / (family.lutInputs() - 1.0));
  const bool isTree = inputs <= kNarrow || op == Op::kReduceAnd || op == Op::kReduceOr;
  return isTree ? tree : std::ceil(kTablesPerBit * inputs);
}

Picoseconds Device::routeOf(int readers) const {
  const int counted = std::clamp(readers, 1, Family::kMostReaders);
  return scaled(family.routePerDoubling * std::log2(counted));
}

Picoseconds Device::longestRoute() const { return routeOf(Family::kMostReaders); }

int Device::tiles(int a, int b, bool isSigned) const {
  const int sign = isSigned ? 1 : 0;
  const auto count = [&](int x, int y) {
    return std::max(1, ceilDivide(x - sign, family.dsp.wide - 1)) *
           std::max(1, ceilDivide(y - sign, family.dsp.narrow - 1));
  };
  return std::min(count(a, b), count(b, a));
}

bool Device::isDspProduct(const Graph& graph, const Node& node) const {
  if (node.op != Op::kMultiply && node.op != Op::kMultiplySigned) return false;
  return node.width >= kNarrowestDspProduct &&
         tiles(widthOf(graph, node, 0), widthOf(graph, node, 1), node.op == Op::kMultiplySigned) ==
             1;
}

// A product of one block plus a constant: its way out leads through the adder anyway.
bool Device::isDspConstantSum(const Graph& graph, const Node& node) const {
  if (node.op != Op::kAdd) return false;
  const auto operands = graph.operands(node);
  const auto isLiteral = [&](NodeId id) { return graph.node(id).op == Op::kLiteral; };
  const auto isProduct = [&](NodeId id) {
    const Node& part = graph.node(id);
    const auto parts = graph.operands(part);
    if (part.op == Op::kConcat && parts.size() == 2 && isLiteral(parts[0])) id = parts[1];
    return isDspProduct(graph, graph.node(id));
  };
  return operands.size() == 3 && isLiteral(operands[2]) &&
         ((isProduct(operands[0]) && isLiteral(operands[1])) ||
          (isProduct(operands[1]) && isLiteral(operands[0])));
}

// The same, or a product of one block plus the part of another sum or product that stands above the
// narrow side of a block: the adder behind the product does it.
bool Device::isDspSum(const Graph& graph, const Node& node) const {
  if (node.op != Op::kAdd) return false;
  if (isDspConstantSum(graph, node)) return true;
  if (!cascadesFit()) return false;
  const auto operands = graph.operands(node);
  const auto isZero = [&](NodeId id) {
    return graph.node(id).op == Op::kLiteral && graph.literal(graph.node(id)).isZero();
  };
  if (operands.size() != 3 || !isZero(operands[2])) return false;
  const auto isShifted = [&](NodeId id) {
    const Node* part = &graph.node(id);
    if (part->op == Op::kConcat && graph.operands(*part).size() == 2 &&
        (isZero(graph.operands(*part)[0]) ||
         graph.node(graph.operands(*part)[0]).op == Op::kReplicate))
      part = &graph.node(graph.operands(*part)[1]);
    if (part->op != Op::kSlice || static_cast<int>(part->aux) != family.dsp.narrow - 1)
      return false;
    const Node& below = graph.node(graph.operands(*part)[0]);
    return isDspProduct(graph, below) || isDspSum(graph, below);
  };
  const NodeId x = operands[0], y = operands[1];
  return (isDspProduct(graph, graph.node(x)) && isShifted(y)) ||
         (isDspProduct(graph, graph.node(y)) && isShifted(x));
}

bool Device::cascadesFit() const {
  return scaled(family.dspFromInnerRegister + family.dspSum + family.setup) <= period();
}

NodeId Device::productBehind(const Graph& graph, NodeId sum) const {
  if (!isDspSum(graph, graph.node(sum))) return {};
  const auto isJoin = [&](NodeId id) { return graph.node(id).op == Op::kConcat; };
  for (NodeId id : graph.operands(sum)) {
    if (isDspConstantSum(graph, graph.node(sum)) && isJoin(id)) id = graph.operands(id)[1];
    if (isDspProduct(graph, graph.node(id))) return id;
  }
  LOAM_ASSERT(false, "a product beside what its block adds");
}

int Device::memoryBlocks(int width, int indexWidth) const {
  const graph::MemoryShape shape{family.memoryWidth, family.memoryBits / family.memoryWidth};
  return graph::memoryBlocks(shape, indexWidth, width);
}

double Device::productDelay(int a, int b, bool isSigned) const {
  if (a + b < kNarrowestDspProduct)  // the tables before the chains make the rows
    return std::max<int>(1, std::bit_width(static_cast<unsigned>(std::min(a, b) - 1))) *
           plainSum(a + b, 2);
  return family.dspProduct + sumLevels(tiles(a, b, isSigned)) * plainSum(a + b, 3);
}

Picoseconds Device::delayOf(const Graph& graph, NodeId id) const {
  const Node& node = graph.node(id);
  const auto operandCount = graph.operands(node).size();
  switch (node.op) {
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kSlice:
    case Op::kConcat:
    case Op::kReplicate:
    case Op::kNot:  // vanishes in the function that reads it
      return {0};
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
      return scaled(family.lut[2]);
    case Op::kSelect:
      return scaled(family.lut[3]);
    case Op::kPick:
      return scaled(pickDelay(operandCount - 1));
    case Op::kReduceAnd:
    case Op::kReduceOr:
    case Op::kReduceXor:
    case Op::kLut:
      return scaled(functionDelay(node.op, widthOf(graph, node, 0)));
    case Op::kTable:
      return scaled(wideTableDelay(widthOf(graph, node, 0)));
    case Op::kMemory:  // were there a way past its register
      return scaled(family.memoryToRegister + family.memoryFromRegister);
    case Op::kAdd:
      if (isDspConstantSum(graph, node)) return {0};
      if (isDspSum(graph, node)) return scaled(family.dspSum);
      return scaled(plainSum(node.width, static_cast<int>(operandCount) - 1));
    case Op::kEqual:
      return scaled(functionDelay(node.op, 2 * widthOf(graph, node, 0)));
    case Op::kLess:
    case Op::kLessSigned:
      return scaled(lessDelay(widthOf(graph, node, 0)));
    case Op::kMultiply:
    case Op::kMultiplySigned:
      return scaled(productDelay(widthOf(graph, node, 0), widthOf(graph, node, 1),
                                 node.op == Op::kMultiplySigned));
    case Op::kHeap:
      return scaled(sumLevels(static_cast<int>(operandCount)) * plainSum(node.width, 3));
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "an operation of the graph");
}

Picoseconds Device::delayToRegister(const Graph& graph, NodeId id) const {
  if (graph.node(id).op == Op::kMemory) return scaled(family.memoryToRegister);
  return isDspProduct(graph, graph.node(id)) ? scaled(family.dspToRegister) : delayOf(graph, id);
}

Picoseconds Device::clockToOutput(const Graph& graph, NodeId id, int registers) const {
  if (isDspSum(graph, graph.node(id))) return scaled(family.dspFromRegister);
  if (graph.node(id).op == Op::kMemory && registers <= 2)
    return scaled(registers == 1 ? family.memoryFromRegister : family.memoryFromOutput);
  // A block has two registers behind its product; a third one is a register like any other.
  if (registers > 2 || !isDspProduct(graph, graph.node(id))) return clockToOutput();
  return scaled(registers == 1 ? family.dspFromInnerRegister : family.dspFromRegister);
}

Cost Device::costOf(const Graph& graph, NodeId id) const {
  const Node& node = graph.node(id);
  const auto operandCount = static_cast<int>(graph.operands(node).size());
  const double width = node.width;
  switch (node.op) {
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kSlice:
    case Op::kConcat:
    case Op::kReplicate:
    case Op::kNot:
      return {};
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
    case Op::kSelect:
      return {.luts = width};
    case Op::kPick:
      return {.luts = width * (operandCount <= 5 ? 1 : kTablesPerWay * (operandCount - 2))};
    case Op::kReduceAnd:
    case Op::kReduceOr:
    case Op::kReduceXor:
      return {.luts = functionTables(node.op, widthOf(graph, node, 0))};
    case Op::kLut:
      return {.luts = width};
    case Op::kTable:
      return {.luts = logicTables(graph.rows(node), node.width)};
    case Op::kMemory: {
      const auto rows = static_cast<double>(graph.rows(node).size());
      return {.ramBits = rows * width,
              .ramBlocks = 1.0 * memoryBlocks(node.width, widthOf(graph, node, 0))};
    }
    case Op::kAdd:
      if (isDspSum(graph, node)) return {};
      return {.luts = sumTables(graph, node)};
    case Op::kEqual:
      return {.luts = functionTables(node.op, 2 * widthOf(graph, node, 0))};
    case Op::kLess:
    case Op::kLessSigned:
      return {.luts = std::ceil(widthOf(graph, node, 0) * 0.7)};
    case Op::kMultiply:
    case Op::kMultiplySigned: {
      const int a = widthOf(graph, node, 0), b = widthOf(graph, node, 1);
      if (a + b < kNarrowestDspProduct) return {.luts = 1.0 * a * b};
      const int blocks = tiles(a, b, node.op == Op::kMultiplySigned);
      return {.luts = (blocks - 1) * width, .dsps = 1.0 * blocks};
    }
    case Op::kHeap:
      return {.luts = (operandCount - 1) * width};
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "an operation of the graph");
}

int Device::widestSum(Picoseconds period, int addends) const {
  const Picoseconds left = period - clockToOutput() - setup() - longestRoute();
  int width = static_cast<int>((left.value / factor - plainSum(0, addends)) / family.sumPerBit);
  while (width > 1 && scaled(plainSum(width, addends)) > left) --width;  // delays are rounded
  return std::max(1, width);
}

}  // namespace device
