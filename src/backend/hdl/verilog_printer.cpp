#include <fmt/format.h>

#include <algorithm>

#include "backend/hdl/printers.h"
#include "backend/hdl/text.h"
#include "util/failure.h"

namespace hdl {

namespace {

using graph::Node;
using graph::NodeId;
using graph::Op;

constexpr std::string_view kUnusedOff = "  // verilator lint_off UNUSEDSIGNAL\n";
constexpr std::string_view kUnusedOn = "  // verilator lint_on UNUSEDSIGNAL\n";

std::string literalText(const util::MPZ& value, int width) {
  if (width <= 8) return fmt::format("{}'b{}", width, binaryDigits(value, width));
  return fmt::format("{}'h{}", width, hexDigits(value, width));
}

std::string range(int width) {
  return width == 1 ? std::string() : fmt::format("[{}:0] ", width - 1);
}

// Prints expressions whose operands all have their own full width, so that no operator extends.
class Printer {
 public:
  explicit Printer(const Plan& plan) : plan(plan), graph(plan.graph) {}
  std::string design() const;

 private:
  bool isInlinedIn(NodeId id, int cycle) const {
    return plan.isInlined(id) && cycle == plan.cycleOf(id);
  }
  std::string operand(NodeId id, int cycle, bool bracket = true) const;
  std::string slice(NodeId id, int cycle) const;
  std::string expression(NodeId id) const;
  std::string sum(const Node& node, int cycle) const;
  std::string heap(const Node& node, int cycle) const;
  std::string gated(const Node& node, int cycle) const;
  std::string assignment(NodeId id) const;
  std::string pick(NodeId id) const;
  std::string ports() const;
  std::string lutFunction(const LutFunction& function) const;
  std::string rom(const Rom& rom) const;
  std::string process(const Process& process) const;
  std::string output(std::size_t port) const;
  bool isDirect(std::size_t port) const {
    return std::ranges::binary_search(plan.directOutputs, port);
  }

  const Plan& plan;
  const graph::Graph& graph;
};

std::string Printer::slice(NodeId id, int cycle) const {
  int low = 0;
  const int width = graph.node(id).width;
  while (isInlinedIn(id, cycle) && graph.node(id).op == Op::kSlice) {
    low += static_cast<int>(graph.node(id).aux);
    id = graph.operands(id)[0];
  }
  if (width == 1) return fmt::format("{}[{}]", plan.nameOf(id, cycle), low);
  return fmt::format("{}[{}:{}]", plan.nameOf(id, cycle), low + width - 1, low);
}

std::string Printer::operand(NodeId id, int cycle, bool bracket) const {
  const Node& node = graph.node(id);
  if (node.op == Op::kLiteral) return literalText(graph.literal(node), node.width);
  if (!isInlinedIn(id, cycle)) return plan.nameOf(id, cycle);
  if (node.op == Op::kSlice) return slice(id, cycle);
  const bool isClosed = node.op == Op::kConcat || node.op == Op::kReplicate ||
                        node.op == Op::kLut || node.op == Op::kTable || node.op == Op::kMemory;
  return bracket && !isClosed ? fmt::format("({})", expression(id)) : expression(id);
}

std::string Printer::sum(const Node& node, int cycle) const {
  const auto operands = graph.operands(node);
  if (const auto difference = plan.differenceOf(node, cycle))
    return fmt::format("{} - {}{}", operand(difference->from, cycle),
                       difference->isInverted ? "~" : "", operand(difference->what, cycle));
  std::string text;
  for (const NodeId addend : plan.addendsOf(node))
    text += (text.empty() ? "" : " + ") + operand(addend, cycle);
  const NodeId carry = operands[operands.size() - 1];
  if (plan.isLiteral(carry)) {
    if (!graph.literal(graph.node(carry)).isZero()) text += " + " + literalText(1, node.width);
  } else if (node.width == 1) {
    text += " + " + operand(carry, cycle);
  } else {
    text += fmt::format(" + {{{}, {}}}", literalText(0, node.width - 1), operand(carry, cycle));
  }
  return text;
}

std::string Printer::heap(const Node& node, int cycle) const {
  const auto operands = graph.operands(node);
  const auto shifts = graph.shifts(node);
  std::string sum;
  for (std::size_t i = 0; i < operands.size(); ++i) {
    const int width = graph.node(operands[i]).width, shift = static_cast<int>(shifts[i]);
    const int above = node.width - width - shift;
    LOAM_ASSERT(above >= 0, "a heap term inside its heap");
    std::string term = operand(operands[i], cycle);
    if (above > 0) term = literalText(0, above) + ", " + term;
    if (shift > 0) term += ", " + literalText(0, shift);
    sum += (i > 0 ? " + " : "") + (above + shift > 0 ? fmt::format("{{{}}}", term) : term);
  }
  return sum;
}

std::string Printer::gated(const Node& node, int cycle) const {
  const auto operands = graph.operands(node);
  const std::string condition = operand(operands[0], cycle, /*bracket=*/false);
  std::string text;
  for (const std::size_t choice : {1u, 2u})
    if (!plan.isZero(operands[choice]))
      text +=
          fmt::format("{}({}{{{}{{{}}}}} & {})", text.empty() ? "" : " | ", choice == 1 ? "" : "~",
                      node.width, condition, operand(operands[choice], cycle));
  return text;
}

std::string Printer::expression(NodeId id) const {
  const Node& node = graph.node(id);
  const int cycle = plan.cycleOf(id);
  const auto operands = graph.operands(node);
  const auto joined = [&](const char* between) {
    std::string text = operand(operands[0], cycle);
    for (std::size_t i = 1; i < operands.size(); ++i) text += between + operand(operands[i], cycle);
    return text;
  };
  const auto signedPair = [&](const char* between) {
    return fmt::format("$signed({}) {} $signed({})", operand(operands[0], cycle, false), between,
                       operand(operands[1], cycle, false));
  };
  switch (node.op) {
    case Op::kLiteral:
    case Op::kInput:
    case Op::kState:
    case Op::kSlice:
      return operand(id, cycle);
    case Op::kConcat:
      return fmt::format("{{{}}}", joined(", "));
    case Op::kReplicate:
      return fmt::format("{{{}{{{}}}}}", node.width / graph.node(operands[0]).width,
                         operand(operands[0], cycle, /*bracket=*/false));
    case Op::kNot:
      return fmt::format("~{}", operand(operands[0], cycle));
    case Op::kAnd:
      return joined(" & ");
    case Op::kOr:
      return joined(" | ");
    case Op::kXor:
      return joined(" ^ ");
    case Op::kReduceAnd:
      return fmt::format("&{}", operand(operands[0], cycle));
    case Op::kReduceOr:
      return fmt::format("|{}", operand(operands[0], cycle));
    case Op::kReduceXor:
      return fmt::format("^{}", operand(operands[0], cycle));
    case Op::kLut:
    case Op::kTable:
      return fmt::format("{}({})", plan.lutFunctionOf(id),
                         operand(operands[0], cycle, /*bracket=*/false));
    case Op::kMemory:
      return fmt::format("{}[{}]", plan.romOf(id), operand(operands[0], cycle, /*bracket=*/false));
    case Op::kAdd:
      return sum(node, cycle);
    case Op::kEqual:
      return joined(" == ");
    case Op::kLess:
      return joined(" < ");
    case Op::kLessSigned:
      return signedPair("<");
    case Op::kMultiply:
      return joined(" * ");
    case Op::kMultiplySigned:
      return signedPair("*");
    case Op::kHeap:
      return heap(node, cycle);
    case Op::kSelect:
      if (plan.isGated(id)) return gated(node, cycle);
      return fmt::format("{} ? {} : {}", operand(operands[0], cycle), operand(operands[1], cycle),
                         operand(operands[2], cycle));
    case Op::kPick:
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "a statement is no expression");
}

std::string Printer::pick(NodeId id) const {
  const int cycle = plan.cycleOf(id);
  const auto operands = graph.operands(id);
  const std::string& name = plan.nameOf(id, cycle);
  const NodeId last = operands[operands.size() - 1];
  const int width = graph.node(operands[0]).width;
  std::string text = fmt::format("    case ({})\n", operand(operands[0], cycle));
  for (std::size_t i = 1; i + 1 < operands.size(); ++i) {
    if (operands[i] == last) continue;
    text += statement(
        6, fmt::format("{}: {} = {};", literalText(static_cast<unsigned long>(i - 1), width), name,
                       operand(operands[i], cycle, /*bracket=*/false)));
  }
  text +=
      statement(6, fmt::format("default: {} = {};", name, operand(last, cycle, /*bracket=*/false)));
  return text + "    endcase\n";
}

std::string Printer::assignment(NodeId id) const {
  if (graph.node(id).op == Op::kPick) return pick(id);
  return statement(4, fmt::format("{} = {};", plan.nameOf(id, plan.cycleOf(id)), expression(id)));
}

std::string Printer::output(std::size_t port) const {
  return fmt::format("{} = {};", plan.outputNames[port],
                     operand(graph.outputs()[port].signal.node,
                             plan.design.schedule->cycleByOutput[port], /*bracket=*/false));
}

std::string Printer::process(const Process& process) const {
  std::string text =
      fmt::format("  always @{} begin : {}\n",
                  process.clocked ? fmt::format("(posedge {})", plan.clock) : "*", process.name);
  std::string partlyRead;
  for (const NodeId id : process.variables) {
    const std::string line =
        fmt::format("    reg {}{};\n", range(graph.node(id).width), plan.nameOf(id, process.cycle));
    (plan.isPartlyRead(id, process.cycle) ? partlyRead : text) += line;
  }
  if (!partlyRead.empty()) text += fmt::format("{}{}{}", kUnusedOff, partlyRead, kUnusedOn);
  std::uint32_t scope = 0;
  for (const NodeId id : process.variables) {
    if (const std::uint32_t own = graph.node(id).scope; own != scope) {
      scope = own;
      text += fmt::format("    // {}\n", graph.scopes()[scope].name);
    }
    text += assignment(id);
  }
  for (const std::size_t port : process.outputs) text += statement(4, output(port));
  const bool holds = process.clocked && !plan.enable.empty();
  if (holds) text += fmt::format("    if ({}) begin\n", plan.enable);
  std::string resets;
  for (const std::size_t index : process.registers) {
    const Register& row = plan.registers[index];
    const int width = graph.node(row.node).width;
    text += statement(
        holds ? 6 : 4,
        fmt::format("{} <= {};", row.name, operand(row.source, process.cycle, /*bracket=*/false)));
    if (row.hasReset)
      resets += statement(6, fmt::format("{} <= {};", row.name,
                                         row.initial.isZero() ? fmt::format("{}'b0", width)
                                                              : literalText(row.initial, width)));
  }
  if (holds) text += "    end\n";
  if (!resets.empty()) text += fmt::format("    if ({}) begin\n{}    end\n", plan.reset, resets);
  return text + "  end\n\n";
}

// Bits of constants, not cases: of those some tools make a memory and move the registers before it
// to its output, out of the blocks and away from the stages that they belong to.
std::string Printer::lutFunction(const LutFunction& function) const {
  const Node& node = graph.node(function.example);
  const int width = graph.node(graph.operands(node)[0]).width, rows = 1 << width;
  std::string text;
  std::vector<std::string> bits;  // the top one first
  for (int i = node.width; i-- > 0;) {
    const std::string& name = function.bitNames[static_cast<std::size_t>(i)];
    text += fmt::format("  localparam {}{} = {};\n", range(rows), name,
                        literalText(plan.columnOf(node, i), rows));
    bits.push_back(fmt::format("{}[{}]", name, plan.argument));
  }
  text += fmt::format("  function {}{};\n    input {}{};\n", range(node.width), function.name,
                      range(width), plan.argument);
  text += statement(
      4, bits.size() == 1 ? fmt::format("{} = {};", function.name, bits[0])
                          : fmt::format("{} = {{{}}}", function.name, fmt::join(bits, ", ")) + ";");
  return text + "  endfunction\n\n";
}

// A memory block: the attribute is what tools ask for, and the registers that read it have no
// reset.
std::string Printer::rom(const Rom& rom) const {
  const Node& node = graph.node(rom.node);
  const auto rows = graph.rows(node);
  std::string text =
      fmt::format("  (* rom_style = \"block\" *)\n  reg {}{} [0:{}];\n  initial begin\n",
                  range(node.width), rom.name, rows.size() - 1);
  for (std::size_t x = 0; x < rows.size(); ++x)
    text += fmt::format("    {}[{}] = {};\n", rom.name, x, literalText(rows[x], node.width));
  return text + "  end\n\n";
}

std::string Printer::ports() const {
  std::string text;
  const auto add = [&](bool isPartlyRead, const std::string& declaration, bool last) {
    if (isPartlyRead) text += kUnusedOff;
    text += "  " + declaration + (last ? "\n" : ",\n");
    if (isPartlyRead) text += kUnusedOn;
  };
  const bool isReset = std::ranges::any_of(plan.registers, &Register::hasReset);
  const std::size_t outputs = graph.outputs().size();
  const bool anyAfterReset = !graph.inputs().empty() || outputs > 0;
  add(plan.registers.empty(), "input wire " + plan.clock, false);
  add(!isReset, "input wire " + plan.reset, !anyAfterReset && plan.enable.empty());
  if (!plan.enable.empty())
    add(plan.registers.empty(), "input wire " + plan.enable, !anyAfterReset);
  for (std::size_t i = 0; i < graph.inputs().size(); ++i) {
    const graph::Signal signal = graph.inputs()[i].signal;
    add(plan.isPartlyRead(signal.node, plan.cycleOf(signal.node)),
        fmt::format("input wire [{}:0] {}", signal.width - 1, plan.inputNames[i]),
        outputs == 0 && i + 1 == graph.inputs().size());
  }
  for (std::size_t i = 0; i < outputs; ++i)
    add(false,
        fmt::format("output {} [{}:0] {}", isDirect(i) ? "wire" : "reg",
                    graph.outputs()[i].signal.width - 1, plan.outputNames[i]),
        i + 1 == outputs);
  return text;
}

std::string Printer::design() const {
  std::string text = headerLines(plan.design.header, "//");
  const bool hasOtherName = plan.entity != plan.design.name;
  if (hasOtherName) text += "// verilator lint_off DECLFILENAME\n";
  text += fmt::format("module {} (\n{});\n\n", plan.entity, ports());
  std::string whole, partlyRead;
  for (const Register& row : plan.registers)
    (plan.isPartlyRead(row.node, row.cycle) ? partlyRead : whole) +=
        fmt::format("  {}reg {}{};\n", row.isKept ? "(* keep *) " : "",
                    range(graph.node(row.node).width), row.name);
  text += whole;
  if (!partlyRead.empty()) text += fmt::format("{}{}{}", kUnusedOff, partlyRead, kUnusedOn);
  if (!plan.registers.empty()) text += "\n";
  for (const LutFunction& function : plan.lutFunctions) text += lutFunction(function);
  for (const Rom& row : plan.roms) text += rom(row);
  for (const std::size_t port : plan.directOutputs)
    text += statement(2, fmt::format("assign {}", output(port)));
  if (!plan.directOutputs.empty()) text += "\n";
  for (const Process& row : plan.processes) text += process(row);
  while (text.ends_with("\n\n")) text.pop_back();
  return text + "\nendmodule\n";
}

}  // namespace

std::string verilogText(const Plan& plan) { return Printer(plan).design(); }

}  // namespace hdl
