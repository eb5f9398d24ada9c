#pragma once

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "backend/graph/graph.h"
#include "backend/hdl/emission.h"
#include "backend/hdl/names.h"

namespace hdl {

// One register: the value of `node`, readable in cycle `cycle`. It takes what `source` is in cycle
// `writtenIn`: the node itself in the cycle before or, for a state, its next value in its own
// cycle.
struct Register {
  graph::NodeId node;
  int cycle = 0;
  std::string name;
  graph::NodeId source;
  int writtenIn = 0;
  bool hasReset = true;
  bool isKept = false;  // tools may not move it
  util::MPZ initial{};  // after a reset
};

// One process of the printed design, for the logic of one cycle: clocked, when it ends in the
// registers of the next cycle, or combinational, when it ends in output ports.
struct Process {
  int cycle = 0;
  bool clocked = false;
  std::string name;
  std::vector<graph::NodeId> variables;  // computed in this order, each from earlier ones
  std::vector<std::size_t> registers;    // written at the clock edge; indices into Plan::registers
  std::vector<std::size_t> outputs;      // ports driven
};

// A function of some bits, shared by all lut or table nodes with the same contents and widths.
struct LutFunction {
  std::string name;
  graph::NodeId example;                // one of the nodes
  std::vector<std::string> bitNames{};  // of constants: each bit's values, the lowest bit first
};

// The contents of one memory block or of several side by side, read by one memory node.
struct Rom {
  std::string name, type;
  graph::NodeId node;
};

// What both languages print of a design: its registers, its processes, which nodes are variables
// and which stand inside the expression of their only reader, and the names of all. The graph
// itself is the expression tree. The design must outlive it unchanged.
class Plan {
 public:
  explicit Plan(const Design& design);

  const Design& design;
  const graph::Graph& graph;
  std::string entity, clock, reset;
  std::string enable;  // empty without one
  std::vector<std::string> inputNames, outputNames;
  std::vector<Register> registers;
  std::vector<Process> processes;
  std::vector<std::size_t> directOutputs;  // ports that need no variable: driven by themselves
  std::vector<LutFunction> lutFunctions;
  std::vector<Rom> roms;
  std::string flagFunction, replicateFunction;  // names of the VHDL print's helpers
  std::string argument, count, result, index;   // inside functions

  int cycleOf(graph::NodeId id) const { return design.schedule->cycleOf(id); }
  bool isLiteral(graph::NodeId id) const { return graph.node(id).op == graph::Op::kLiteral; }
  // States and inputs are there when their cycle starts.
  bool isComputed(graph::NodeId id) const {
    const graph::Op op = graph.node(id).op;
    return op != graph::Op::kInput && op != graph::Op::kState;
  }
  // True for what some output depends on; nothing else is printed.
  bool isLive(graph::NodeId id) const { return live[id.index] != 0; }
  // True where a node has no name of its own: its reader holds its expression.
  bool isInlined(graph::NodeId id) const { return inlined[id.index]; }
  // True for a select that is printed as gates, of which tools make no clear of a register.
  bool isGated(graph::NodeId id) const;
  // An addition of two addends and a one, as a difference: a + not b + 1 is a - b, the `not`
  // inlined, and a + b + 1 is a - not b, which tools put on one chain and into no block. Nothing
  // for other additions.
  struct Difference {
    graph::NodeId from, what;
    bool isInverted = false;  // `what` has to be
  };
  std::optional<Difference> differenceOf(const graph::Node& add, int cycle) const;
  // The addends of a sum without its carry: those that are not zero, or one that is.
  std::vector<graph::NodeId> addendsOf(const graph::Node& add) const;
  bool isZero(graph::NodeId id) const {
    return isLiteral(id) && graph.literal(graph.node(id)).isZero();
  }
  // The name under which `cycle` reads a node that is neither literal nor inlined there.
  const std::string& nameOf(graph::NodeId id, int cycle) const;
  const std::string& lutFunctionOf(graph::NodeId lut) const;
  const std::string& romOf(graph::NodeId memory) const;
  // Bit `bit` of all values of a lut or table, that for the index x at place x.
  util::MPZ columnOf(const graph::Node& table, int bit) const;
  // The register that holds the node's value in `cycle`, later than its own. A state's own register
  // stands elsewhere.
  const Register& registerOf(graph::NodeId id, int cycle) const {
    return registers[firstRegister[id.index] + static_cast<std::size_t>(cycle - cycleOf(id) - 1)];
  }
  // True when some bit of the signal that `cycle` reads of this node has no reader.
  bool isPartlyRead(graph::NodeId id, int cycle) const;

 private:
  // Operation, literal or table, widths out and in.
  using LutKey = std::tuple<graph::Op, std::uint32_t, int, int>;
  bool isLiveState(const graph::State& state) const { return live[state.node.index] != 0; }
  void findLiveNodes();
  void findLastReads();
  void chooseInlined();
  void nameEverything();
  void nameRegisters(Names& names);
  void chooseResets();
  void resetEndsOfChains();
  bool mayPassBits(const graph::Node& sum) const;
  void keepSumsOutOfBlocks();
  void makeProcesses();
  void markReads();
  std::vector<graph::NodeId> variablesBehind(const std::vector<graph::NodeId>& roots, int cycle);
  LutKey lutKey(const graph::Node& node) const;
  std::uint64_t readingKey(graph::NodeId id, int cycle) const;

  std::vector<char> live;
  std::vector<int> lastRead;  // the last cycle in which a live reader wants the node
  std::vector<char> inlined;
  std::vector<int> mark;  // by variablesBehind
  int marks = 0;
  std::vector<std::size_t> firstRegister;
  std::vector<std::string> variableNames;
  std::map<LutKey, std::size_t> lutByContents;
  std::map<graph::NodeId, std::size_t> romByNode;
  std::map<std::uint64_t, std::vector<char>> readBits;  // by node and cycle
};

}  // namespace hdl
