#pragma once

#include <compare>
#include <string>
#include <string_view>
#include <vector>

#include "backend/graph/graph.h"

// The output language of a run: VHDL 0, Verilog 1; 2 for a name that is no language.
enum LANGUAGE : int { LANGUAGE_VHDL = 0, LANGUAGE_VERILOG = 1, LANGUAGE_UNKNOWN = 2 };

// The language called `name`, without regard to case ("vhdl", "verilog").
LANGUAGE GetLanguageFromName(const std::string& name);

namespace device {

struct Picoseconds {
  int value = 0;
  auto operator<=>(const Picoseconds&) const = default;
  friend Picoseconds operator+(Picoseconds a, Picoseconds b) { return {a.value + b.value}; }
  friend Picoseconds operator-(Picoseconds a, Picoseconds b) { return {a.value - b.value}; }
};

struct Cost {
  double luts = 0;
  double dsps = 0;
  double ramBits = 0;
  double ramBlocks = 0;
};

// One family's data: a row of the table in families.cpp, which tells where each figure comes from.
struct Family;

// One device at one clock: the questions that mapping, scheduling and the report ask.
class Device {
 public:
  Device(const Family& family, std::string speedGrade, double gradeFactor, std::string part = "");

  // The clock; the three further settings are kept for callers that pass them and mean nothing.
  void SetSystemSettings(double megahertz, int, int, int) { clock = megahertz; }
  double megahertz() const { return clock; }
  Picoseconds period() const { return {static_cast<int>(1e6 / clock)}; }
  LANGUAGE toSupportedLanguage(LANGUAGE language) const { return language; }
  bool SupportsHyperRegisters() const;
  bool hasHardFloat() const;  // floating-point blocks, single precision
  std::string_view familyName() const;
  const std::string& speedGradeName() const { return grade; }
  const std::string& partName() const { return part; }  // as it was asked for
  // True for the family whose figures are measured; the others are stated models.
  bool isCalibrated() const;
  const Family& data() const { return family; }

  // From the arrival of a node's last operand to its result, the route to one reader included; 0
  // for wiring. What a node has by itself; the clusters of Cover have what it takes among others.
  Picoseconds delayOf(const graph::Graph& graph, graph::NodeId node) const;
  // The same when a register takes the result: it may lie inside the block that computes it.
  Picoseconds delayToRegister(const graph::Graph& graph, graph::NodeId node) const;
  // From the clock to a node's result behind `registers` >= 1 registers: what a stage that reads it
  // pays at its start.
  Picoseconds clockToOutput(const graph::Graph& graph, graph::NodeId node, int registers) const;
  // What every stage pays at its start and at its end.
  Picoseconds clockToOutput() const;
  Picoseconds setup() const;
  // From what chooses a constant to the end of the stage, where the choice is a register's clear or
  // set: setup, and an inverter where no table before it can take that in.
  Picoseconds clearDelay(bool needsInverter) const;
  // True where the clock leaves a block the time to add another one's product to its own: at higher
  // clocks tools make such a sum in logic.
  bool cascadesFit() const;
  // The product of the block whose adder does an addition; none for an addition in logic. No more
  // than one register may stand between them.
  graph::NodeId productBehind(const graph::Graph& graph, graph::NodeId sum) const;
  // True for an addition that the adder behind a product's block does.
  bool isDspSum(const graph::Graph& graph, const graph::Node& node) const;
  // True for a product that one block computes.
  bool isDspProduct(const graph::Graph& graph, const graph::Node& node) const;
  // Look-up tables, DSP and memory blocks of one node; registers are not counted here.
  Cost costOf(const graph::Graph& graph, graph::NodeId node) const;
  // Memory blocks that hold a table of 2^indexWidth words of `width` bits.
  int memoryBlocks(int width, int indexWidth) const;
  // The widest addition of two addends that fits into one stage of `period`; at least 1.
  int widestAdder(Picoseconds period) const { return widestSum(period, 2); }
  // The same for two or three addends.
  int widestSum(Picoseconds period, int addends) const;

  // What Cover asks: one table that uses `inputs` pins; a tree of tables over `inputs` bits; an
  // addition of two addends whose first table uses `inputs` pins, two when nothing stands before
  // it.
  Picoseconds tableDelay(int inputs) const;
  Picoseconds treeDelay(graph::Op op, int inputs) const {
    return scaled(functionDelay(op, inputs));
  }
  Picoseconds sumDelayBehind(int width, int inputs) const;
  // Of an addition of two or three addends by itself.
  Picoseconds sumDelay(int width, int addends) const { return scaled(plainSum(width, addends)); }
  // What so many bits of a carry chain add to the delay of a sum, or of a comparison.
  Picoseconds carryDelay(int bits) const;
  Picoseconds comparedDelay(int bits) const;
  // Look-up tables of a reduction or comparison of equality over `inputs` bits in all.
  double functionTables(graph::Op op, int inputs) const;
  // The allowance for the route to that many readers, and the most that it can be.
  Picoseconds routeOf(int readers) const;
  Picoseconds longestRoute() const;

 private:
  Picoseconds scaled(double picoseconds) const;
  double plainSum(int width, int addends) const;
  double lessDelay(int width) const;
  double functionDelay(graph::Op op, int inputs) const;
  double pickDelay(std::size_t choices) const;
  double wideTableDelay(int indexWidth) const;
  double productDelay(int a, int b, bool isSigned) const;
  int tiles(int a, int b, bool isSigned) const;
  bool isDspConstantSum(const graph::Graph& graph, const graph::Node& node) const;

  const Family& family;
  std::string grade;
  double factor;
  std::string part;
  double clock = 50;
};

class DeviceFactory {
 public:
  // The device of a family ("TarnV" or "Tarn V", without regard to case and blanks) at a speed
  // grade; it lives to the end of the run. Ends the run with one line that lists what is known when
  // family or grade is not. The second and the fifth text mean nothing; `part` is only recorded.
  Device* GetDevice(const std::string& family, const std::string&, const std::string& speedGrade,
                    const std::string& part, const std::string&);
};
extern DeviceFactory deviceFactory;

}  // namespace device
