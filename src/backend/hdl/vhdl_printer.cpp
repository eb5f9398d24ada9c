#include <fmt/format.h>
#include <fmt/ranges.h>

#include "backend/hdl/printers.h"
#include "backend/hdl/text.h"
#include "util/failure.h"

namespace hdl {

namespace {

using graph::Node;
using graph::NodeId;
using graph::Op;

// Bit strings of up to this width are printed in binary.
constexpr int kBinaryWidth = 8;

std::string literalText(const util::MPZ& value, int width) {
  if (width <= kBinaryWidth) return fmt::format("\"{}\"", binaryDigits(value, width));
  const std::string size = width % 4 == 0 ? "" : std::to_string(width);
  return fmt::format("{}x\"{}\"", size, hexDigits(value, width));
}

std::string vectorType(std::string_view type, int width) {
  return fmt::format("{}({} downto 0)", type, width - 1);
}

// A named value, or some bits of one.
struct Bits {
  std::string name;
  int low = 0, width = 0;
  bool isWhole = false;
  bool isPort = false;  // a std_logic_vector, not an unsigned

  std::string text() const {
    return isWhole ? name : fmt::format("{}({} downto {})", name, low + width - 1, low);
  }
};

// Prints expressions over `unsigned`, one bit being a vector too.
class Printer {
 public:
  explicit Printer(const Plan& plan) : plan(plan), graph(plan.graph) {}
  std::string design();

 private:
  bool isInlinedIn(NodeId id, int cycle) const {
    return plan.isInlined(id) && cycle == plan.cycleOf(id);
  }
  Bits bitsOf(NodeId id, int cycle) const;
  // An operand as `cycle` reads it; atoms need no brackets anywhere.
  std::string operand(NodeId id, int cycle, bool bracket = true) const;
  std::string expression(NodeId id) const;
  std::string condition(NodeId id, int cycle, bool isTrue = true) const;
  std::string comparison(const Node& node, int cycle) const;
  std::string asSigned(NodeId id, int cycle) const;
  std::string heap(const Node& node, int cycle) const;
  std::string gated(const Node& node, int cycle) const;
  std::string assignment(NodeId id, int indent) const;
  std::string pick(NodeId id, int indent) const;
  std::string entity() const;
  std::string functions() const;
  std::string lutFunction(const LutFunction& function) const;
  std::string tableFunction(const LutFunction& function) const;
  std::string roms() const;
  std::string process(const Process& process) const;
  std::string output(std::size_t port) const;

  const Plan& plan;
  const graph::Graph& graph;
  mutable bool usesFlag = false, usesReplicate = false;
};

Bits Printer::bitsOf(NodeId id, int cycle) const {
  Bits bits;
  bits.width = graph.node(id).width;
  while (isInlinedIn(id, cycle) && graph.node(id).op == Op::kSlice) {
    bits.low += static_cast<int>(graph.node(id).aux);
    id = graph.operands(id)[0];
  }
  bits.name = plan.nameOf(id, cycle);
  bits.isWhole = bits.width == graph.node(id).width;
  bits.isPort = graph.node(id).op == Op::kInput && cycle == plan.cycleOf(id);
  return bits;
}

std::string Printer::operand(NodeId id, int cycle, bool bracket) const {
  const Node& node = graph.node(id);
  if (node.op == Op::kLiteral) return literalText(graph.literal(node), node.width);
  if (isInlinedIn(id, cycle) && node.op != Op::kSlice) {
    const bool isCall = node.op == Op::kReplicate || node.op == Op::kLut || node.op == Op::kTable ||
                        node.op == Op::kMemory || node.op == Op::kReduceAnd ||
                        node.op == Op::kReduceOr || node.op == Op::kReduceXor ||
                        node.op == Op::kEqual || node.op == Op::kLess || node.op == Op::kLessSigned;
    return bracket && !isCall ? fmt::format("({})", expression(id)) : expression(id);
  }
  const Bits bits = bitsOf(id, cycle);
  return bits.isPort ? fmt::format("unsigned({})", bits.text()) : bits.text();
}

std::string Printer::asSigned(NodeId id, int cycle) const {
  const char* quote = plan.isLiteral(id) ? "'" : "";
  return fmt::format("signed{}({})", quote, operand(id, cycle, /*bracket=*/false));
}

std::string Printer::comparison(const Node& node, int cycle) const {
  const auto operands = graph.operands(node);
  if (node.op == Op::kLessSigned)
    return fmt::format("{} < {}", asSigned(operands[0], cycle), asSigned(operands[1], cycle));
  return fmt::format("{} {} {}", operand(operands[0], cycle), node.op == Op::kEqual ? "=" : "<",
                     operand(operands[1], cycle));
}

// A boolean: is this one bit set (or clear)?
std::string Printer::condition(NodeId id, int cycle, bool isTrue) const {
  const Node& node = graph.node(id);
  const char* bit = isTrue ? "'1'" : "'0'";
  if (!isInlinedIn(id, cycle) || node.op == Op::kSlice) {
    const Bits bits = bitsOf(id, cycle);
    return fmt::format("{}({}) = {}", bits.name, bits.low, bit);
  }
  const NodeId first = graph.operands(id)[0];
  switch (node.op) {
    case Op::kEqual:
    case Op::kLess:
    case Op::kLessSigned:
      return isTrue ? comparison(node, cycle) : fmt::format("not ({})", comparison(node, cycle));
    case Op::kNot:
      return condition(first, cycle, !isTrue);
    case Op::kReduceAnd:
      return fmt::format("(and {}) = {}", operand(first, cycle), bit);
    case Op::kReduceOr:
      return fmt::format("(or {}) = {}", operand(first, cycle), bit);
    case Op::kReduceXor:
      return fmt::format("(xor {}) = {}", operand(first, cycle), bit);
    default:
      return fmt::format("{} = \"{}\"", operand(id, cycle), isTrue ? 1 : 0);
  }
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
    if (above > 0) term = literalText(0, above) + " & " + term;
    if (shift > 0) term += " & " + literalText(0, shift);
    sum += (i > 0 ? " + " : "") + (above + shift > 0 ? fmt::format("({})", term) : term);
  }
  return sum;
}

std::string Printer::gated(const Node& node, int cycle) const {
  const auto operands = graph.operands(node);
  usesReplicate = true;
  const std::string mask = fmt::format("{}({}, {})", plan.replicateFunction,
                                       operand(operands[0], cycle, /*bracket=*/false), node.width);
  std::string text;
  for (const std::size_t choice : {1u, 2u})
    if (!plan.isZero(operands[choice]))
      text += fmt::format("{}({}{} and {})", text.empty() ? "" : " or ", choice == 1 ? "" : "not ",
                          mask, operand(operands[choice], cycle));
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
  const auto flag = [&](const std::string& text) {
    usesFlag = true;
    return fmt::format("{}({})", plan.flagFunction, text);
  };
  switch (node.op) {
    case Op::kLiteral:
    case Op::kInput:
    case Op::kState:
    case Op::kSlice:
      return operand(id, cycle);
    case Op::kConcat:
      return joined(" & ");
    case Op::kReplicate:
      usesReplicate = true;
      return fmt::format("{}({}, {})", plan.replicateFunction,
                         operand(operands[0], cycle, /*bracket=*/false),
                         node.width / graph.node(operands[0]).width);
    case Op::kNot:
      return fmt::format("not {}", operand(operands[0], cycle));
    case Op::kAnd:
      return joined(" and ");
    case Op::kOr:
      return joined(" or ");
    case Op::kXor:
      return joined(" xor ");
    case Op::kReduceAnd:
      return flag(fmt::format("and {}", operand(operands[0], cycle)));
    case Op::kReduceOr:
      return flag(fmt::format("or {}", operand(operands[0], cycle)));
    case Op::kReduceXor:
      return flag(fmt::format("xor {}", operand(operands[0], cycle)));
    case Op::kLut:
    case Op::kTable:
      return fmt::format("{}({})", plan.lutFunctionOf(id),
                         operand(operands[0], cycle, /*bracket=*/false));
    case Op::kMemory:
      return fmt::format("unsigned({}(to_integer({})))", plan.romOf(id),
                         operand(operands[0], cycle, /*bracket=*/false));
    case Op::kAdd: {
      if (const auto difference = plan.differenceOf(node, cycle))
        return fmt::format("{} - {}{}", operand(difference->from, cycle),
                           difference->isInverted ? "not " : "", operand(difference->what, cycle));
      std::string sum;
      for (const NodeId addend : plan.addendsOf(node)) {
        if (!sum.empty()) sum += " + ";
        if (plan.isLiteral(addend))
          sum += fmt::format("unsigned'({})", operand(addend, cycle));
        else
          sum += operand(addend, cycle);
      }
      if (!plan.isZero(operands.back())) sum += " + " + operand(operands.back(), cycle);
      return sum;
    }
    case Op::kEqual:
    case Op::kLess:
    case Op::kLessSigned:
      return flag(comparison(node, cycle));
    case Op::kMultiply:
      return joined(" * ");
    case Op::kMultiplySigned:
      return fmt::format("unsigned({} * {})", asSigned(operands[0], cycle),
                         asSigned(operands[1], cycle));
    case Op::kHeap:
      return heap(node, cycle);
    case Op::kSelect:
    case Op::kPick:
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "a statement is no expression");
}

std::string Printer::pick(NodeId id, int indent) const {
  const int cycle = plan.cycleOf(id);
  const auto operands = graph.operands(id);
  const std::string& name = plan.nameOf(id, cycle);
  const NodeId last = operands[operands.size() - 1];
  const int width = graph.node(operands[0]).width;
  const auto choice = [&](const std::string& when, NodeId value) {
    return statement(indent + 2, fmt::format("when {} => {} := {};", when, name,
                                             operand(value, cycle, /*bracket=*/false)));
  };
  std::string text =
      statement(indent, fmt::format("case {} is", bitsOf(operands[0], cycle).text()));
  for (std::size_t i = 1; i + 1 < operands.size(); ++i)
    if (operands[i] != last)
      text += choice(fmt::format("\"{}\"", binaryDigits(util::MPZ(i - 1), width)), operands[i]);
  return text + choice("others", last) + statement(indent, "end case;");
}

// A select is an if: GHDL 2.0 knows no conditional assignment in a process for all signals.
std::string Printer::assignment(NodeId id, int indent) const {
  const Node& node = graph.node(id);
  if (node.op == Op::kPick) return pick(id, indent);
  const int cycle = plan.cycleOf(id);
  const std::string& name = plan.nameOf(id, cycle);
  if (node.op != Op::kSelect)
    return statement(indent, fmt::format("{} := {};", name, expression(id)));
  if (plan.isGated(id))
    return statement(indent, fmt::format("{} := {};", name, gated(node, cycle)));
  const auto operands = graph.operands(node);
  return statement(indent, fmt::format("if {} then", condition(operands[0], cycle))) +
         statement(indent + 2, fmt::format("{} := {};", name, operand(operands[1], cycle, false))) +
         statement(indent, "else") +
         statement(indent + 2, fmt::format("{} := {};", name, operand(operands[2], cycle, false))) +
         statement(indent, "end if;");
}

std::string Printer::output(std::size_t port) const {
  const NodeId id = graph.outputs()[port].signal.node;
  const int cycle = plan.design.schedule->cycleByOutput[port];
  std::string value = operand(id, cycle, /*bracket=*/false);
  const bool isName = !isInlinedIn(id, cycle) || graph.node(id).op == Op::kSlice;
  if (!plan.isLiteral(id)) {
    const bool isPort = isName && bitsOf(id, cycle).isPort;
    value = isPort ? bitsOf(id, cycle).text() : fmt::format("std_logic_vector({})", value);
  }
  return fmt::format("{} <= {};", plan.outputNames[port], value);
}

std::string Printer::process(const Process& process) const {
  std::string text =
      fmt::format("  {} : process ({})\n", process.name, process.clocked ? plan.clock : "all");
  for (const NodeId id : process.variables)
    text += fmt::format("    variable {} : {};\n", plan.nameOf(id, process.cycle),
                        vectorType("unsigned", graph.node(id).width));
  text += "  begin\n";
  if (process.clocked) text += fmt::format("    if rising_edge({}) then\n", plan.clock);
  const int indent = process.clocked ? 6 : 4;
  std::uint32_t scope = 0;
  for (const NodeId id : process.variables) {
    if (const std::uint32_t own = graph.node(id).scope; own != scope) {
      scope = own;
      text += fmt::format("{:{}}-- {}\n", "", indent, graph.scopes()[scope].name);
    }
    text += assignment(id, indent);
  }
  for (const std::size_t port : process.outputs) text += statement(indent, output(port));
  const bool holds = process.clocked && !plan.enable.empty();
  if (holds) text += fmt::format("      if {} = '1' then\n", plan.enable);
  std::string resets;
  for (const std::size_t index : process.registers) {
    const Register& row = plan.registers[index];
    text += statement(
        holds ? 8 : 6,
        fmt::format("{} <= {};", row.name, operand(row.source, process.cycle, /*bracket=*/false)));
    if (row.hasReset)
      resets +=
          statement(8, fmt::format("{} <= {};", row.name,
                                   row.initial.isZero()
                                       ? "(others => '0')"
                                       : literalText(row.initial, graph.node(row.node).width)));
  }
  if (holds) text += "      end if;\n";
  if (!resets.empty())
    text += fmt::format("      if {} = '1' then\n{}      end if;\n", plan.reset, resets);
  if (process.clocked) text += "    end if;\n";
  return text + "  end process;\n\n";
}

std::string Printer::lutFunction(const LutFunction& function) const {
  const Node& node = graph.node(function.example);
  const int width = graph.node(graph.operands(node)[0]).width;
  const auto valueAt = [&](unsigned long x) {
    return literalText((graph.literal(node) >> (x * static_cast<unsigned long>(node.width)))
                           .lowBits(static_cast<unsigned long>(node.width)),
                       node.width);
  };
  const unsigned long rows = 1ul << width;
  std::string text = fmt::format(
      "  function {}({} : unsigned({} downto 0)) return unsigned is\n  begin\n    case {} is\n",
      function.name, plan.argument, width - 1, plan.argument);
  for (unsigned long x = 0; x + 1 < rows; ++x)
    if (valueAt(x) != valueAt(rows - 1))
      text += fmt::format("      when \"{}\" => return {};\n", binaryDigits(x, width), valueAt(x));
  return text + fmt::format("      when others => return {};\n    end case;\n  end function;\n\n",
                            valueAt(rows - 1));
}

// Bits of constants: of rows tools would make a memory.
std::string Printer::tableFunction(const LutFunction& function) const {
  const Node& node = graph.node(function.example);
  const int width = graph.node(graph.operands(node)[0]).width, rows = 1 << width;
  std::string text = fmt::format("  function {}({} : unsigned({} downto 0)) return unsigned is\n",
                                 function.name, plan.argument, width - 1);
  std::vector<std::string> bits;  // the top one first
  for (int i = node.width; i-- > 0;) {
    const std::string& name = function.bitNames[static_cast<std::size_t>(i)];
    text += fmt::format("    constant {} : {} := {};\n", name, vectorType("unsigned", rows),
                        literalText(plan.columnOf(node, i), rows));
    bits.push_back(fmt::format("{}({})", name, plan.index));
  }
  text +=
      fmt::format("    variable {} : natural range 0 to {};\n  begin\n    {} := to_integer({});\n",
                  plan.index, rows - 1, plan.index, plan.argument);
  text += bits.size() == 1 ? fmt::format("    return (0 downto 0 => {});\n", bits[0])
                           : statement(4, fmt::format("return {}", fmt::join(bits, " & ")) + ";");
  return text + "  end function;\n\n";
}

// A memory block: the attribute is what tools ask for, and the registers that read it have no
// reset.
std::string Printer::roms() const {
  if (plan.roms.empty()) return {};
  std::string text = "  attribute rom_style : string;\n";
  for (const Rom& rom : plan.roms) {
    const Node& node = graph.node(rom.node);
    const auto rows = graph.rows(node);
    std::vector<std::string> words;
    for (const util::MPZ& row : rows) words.push_back(literalText(row, node.width));
    text += fmt::format("  type {} is array (0 to {}) of {};\n  constant {} : {} := (\n", rom.type,
                        rows.size() - 1, vectorType("std_logic_vector", node.width), rom.name,
                        rom.type) +
            statement(4, fmt::format("{}", fmt::join(words, ", ")) + ");") +
            fmt::format("  attribute rom_style of {} : constant is \"block\";\n\n", rom.name);
  }
  return text;
}

std::string Printer::functions() const {
  std::string text;
  if (usesFlag)
    text += fmt::format(
        "  -- A condition, or one bit, as a vector.\n"
        "  function {0}({1} : boolean) return unsigned is\n"
        "  begin\n"
        "    if {1} then\n"
        "      return \"1\";\n"
        "    end if;\n"
        "    return \"0\";\n"
        "  end function;\n\n"
        "  function {0}({1} : std_ulogic) return unsigned is\n"
        "  begin\n"
        "    return (0 downto 0 => {1});\n"
        "  end function;\n\n",
        plan.flagFunction, plan.argument);
  if (usesReplicate)
    text += fmt::format(
        "  -- Copies of a vector, side by side.\n"
        "  function {0}({1} : unsigned; {2} : positive) return unsigned is\n"
        "    variable {3} : unsigned({1}'length * {2} - 1 downto 0);\n"
        "  begin\n"
        "    for {4} in 0 to {2} - 1 loop\n"
        "      {3}({1}'length * ({4} + 1) - 1 downto {1}'length * {4}) := {1};\n"
        "    end loop;\n"
        "    return {3};\n"
        "  end function;\n\n",
        plan.replicateFunction, plan.argument, plan.count, plan.result, plan.index);
  for (const LutFunction& function : plan.lutFunctions)
    text += graph.node(function.example).op == Op::kTable ? tableFunction(function)
                                                          : lutFunction(function);
  return text;
}

std::string Printer::entity() const {
  std::string ports =
      fmt::format("    {} : in std_logic;\n    {} : in std_logic", plan.clock, plan.reset);
  if (!plan.enable.empty()) ports += fmt::format(";\n    {} : in std_logic", plan.enable);
  for (std::size_t i = 0; i < graph.inputs().size(); ++i)
    ports += fmt::format(";\n    {} : in {}", plan.inputNames[i],
                         vectorType("std_logic_vector", graph.inputs()[i].signal.width));
  for (std::size_t i = 0; i < graph.outputs().size(); ++i)
    ports += fmt::format(";\n    {} : out {}", plan.outputNames[i],
                         vectorType("std_logic_vector", graph.outputs()[i].signal.width));
  return fmt::format(
      "library ieee;\nuse ieee.std_logic_1164.all;\nuse ieee.numeric_std.all;\n\n"
      "entity {} is\n  port (\n{}\n  );\nend entity;\n\n",
      plan.entity, ports);
}

std::string Printer::design() {
  std::string body;
  for (const std::size_t port : plan.directOutputs) body += statement(2, output(port));
  if (!body.empty()) body += "\n";
  for (const Process& row : plan.processes) body += process(row);
  while (body.ends_with("\n\n")) body.pop_back();
  std::string text = headerLines(plan.design.header, "--") + entity();
  text += fmt::format("architecture rtl of {} is\n\n", plan.entity) + functions() + roms();
  for (const Register& row : plan.registers)
    text += fmt::format("  signal {} : {};\n", row.name,
                        vectorType("unsigned", graph.node(row.node).width));
  return text + "begin\n\n" + body + "\nend architecture;\n";
}

}  // namespace

std::string vhdlText(const Plan& plan) { return Printer(plan).design(); }

}  // namespace hdl
