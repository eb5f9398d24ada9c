#include "backend/hdl/plan.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/hdl/names.h"
#include "util/failure.h"

namespace hdl {

using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Names in one expression, at most; more is hard to read.
constexpr int kExpressionSize = 6;

// Operations that may stand inside the expression of their reader. The others are statements in one
// of the languages, or, as products, would take another width or sign there.
bool isExpression(Op op) {
  switch (op) {
    case Op::kSlice:
    case Op::kConcat:
    case Op::kReplicate:
    case Op::kNot:
    case Op::kAnd:
    case Op::kOr:
    case Op::kXor:
    case Op::kReduceAnd:
    case Op::kReduceOr:
    case Op::kReduceXor:
    case Op::kLut:
    case Op::kTable:
    case Op::kAdd:
    case Op::kEqual:
    case Op::kLess:
    case Op::kLessSigned:
      return true;
    case Op::kInput:
    case Op::kLiteral:
    case Op::kState:
    case Op::kSelect:
    case Op::kPick:
    case Op::kMemory:
    case Op::kMultiply:
    case Op::kMultiplySigned:
    case Op::kHeap:
    case Op::kCount:
      break;
  }
  return false;
}

// True when a reader needs operand `position` as a plain name, not an expression. The factors of a
// product would be computed at the width of the product in Verilog, and keep carries; so does the
// index of a memory in Icarus.
bool wantsName(Op reader, std::size_t position) {
  return reader == Op::kSlice || reader == Op::kMultiply || reader == Op::kMultiplySigned ||
         reader == Op::kMemory || (reader == Op::kPick && position == 0);
}

std::vector<NodeId> idsOf(const graph::Graph& graph) {
  std::vector<NodeId> ids(graph.size());
  for (std::size_t i = 0; i < ids.size(); ++i) ids[i].index = static_cast<std::uint32_t>(i);
  return ids;
}

}  // namespace

Plan::Plan(const Design& design) : design(design), graph(*design.graph) {
  findLiveNodes();
  findLastReads();
  chooseInlined();
  nameEverything();
  chooseResets();
  keepSumsOutOfBlocks();
  makeProcesses();
  markReads();
}

// All that reaches an output, through states too.
void Plan::findLiveNodes() {
  live.assign(graph.size(), 0);
  std::vector<NodeId> open;
  const auto visit = [&](NodeId id) {
    if (live[id.index]) return;
    live[id.index] = 1;
    open.push_back(id);
  };
  for (const graph::Port& port : graph.outputs()) visit(port.signal.node);
  while (!open.empty()) {
    const NodeId id = open.back();
    open.pop_back();
    for (const NodeId operand : graph.operands(id)) visit(operand);
    if (graph.node(id).op == Op::kState) visit(graph.states()[graph.node(id).aux].next);
  }
}

void Plan::findLastReads() {
  lastRead.assign(graph.size(), 0);
  const auto read = [&](NodeId id, int cycle) {
    LOAM_ASSERT(isLiteral(id) || cycle >= cycleOf(id), "a value is read after it is computed");
    lastRead[id.index] = std::max(lastRead[id.index], cycle);
  };
  for (std::size_t i = 0; i < graph.outputs().size(); ++i)
    read(graph.outputs()[i].signal.node, design.schedule->cycleByOutput[i]);
  for (const NodeId id : idsOf(graph)) {
    if (!live[id.index]) continue;
    for (const NodeId operand : graph.operands(id)) read(operand, cycleOf(id));
  }
  for (const graph::State& state : graph.states())
    if (isLiveState(state)) read(state.next, cycleOf(state.node));
}

void Plan::chooseInlined() {
  std::vector<int> uses(graph.size(), 0);
  std::vector<char> mustHaveName(graph.size(), 0);
  for (const NodeId id : idsOf(graph)) {
    if (!live[id.index]) continue;
    if (lastRead[id.index] > cycleOf(id)) ++uses[id.index];
    const auto operands = graph.operands(id);
    for (std::size_t i = 0; i < operands.size(); ++i) {
      if (cycleOf(operands[i]) != cycleOf(id)) continue;
      ++uses[operands[i].index];
      if (wantsName(graph.node(id).op, i)) mustHaveName[operands[i].index] = 1;
    }
  }
  for (std::size_t i = 0; i < graph.outputs().size(); ++i) {
    const NodeId id = graph.outputs()[i].signal.node;
    if (cycleOf(id) == design.schedule->cycleByOutput[i]) ++uses[id.index];
  }
  for (const graph::State& state : graph.states())
    if (isLiveState(state) && cycleOf(state.next) == cycleOf(state.node)) ++uses[state.next.index];
  inlined.assign(graph.size(), 0);
  std::vector<int> size(graph.size(), 1);
  for (const NodeId id : idsOf(graph)) {
    const Op op = graph.node(id).op;
    if (op == Op::kSlice || op == Op::kMemory) {
      inlined[id.index] = 1;  // of a name: a name as well; and what only a register reads
      continue;
    }
    int names = 0;
    for (const NodeId operand : graph.operands(id))
      names += inlined[operand.index] && cycleOf(operand) == cycleOf(id) ? size[operand.index] : 1;
    size[id.index] = names;
    inlined[id.index] = isExpression(op) && uses[id.index] == 1 && !mustHaveName[id.index] &&
                        names <= kExpressionSize && graph.nameOf(id).empty();
  }
}

void Plan::nameEverything() {
  Names names;
  clock = names.claim("clk");
  reset = names.claim("reset");
  if (design.hasEnable) enable = names.claim("en");
  entity = names.claim(design.entity);
  for (const graph::Port& port : graph.inputs()) inputNames.push_back(names.claim(port.name));
  for (const graph::Port& port : graph.outputs()) outputNames.push_back(names.claim(port.name));
  names.claim("rtl");
  names.claim("rom_style");
  argument = names.claim("x");
  count = names.claim("copies");
  result = names.claim("joined");
  index = names.claim("copy");
  flagFunction = names.claim("flag");
  replicateFunction = names.claim("replicate");
  variableNames.resize(graph.size());
  for (const NodeId id : idsOf(graph)) {
    const Node& node = graph.node(id);
    if (!live[id.index]) continue;
    if (node.op == Op::kMemory) {
      romByNode.emplace(id, roms.size());
      const std::string name = names.claim(fmt::format("rom_{}", roms.size() + 1));
      roms.push_back({name, names.claim(name + "_words"), id});
    }
    if (node.op == Op::kLut || node.op == Op::kTable) {
      const auto [row, isNew] = lutByContents.try_emplace(lutKey(node), lutFunctions.size());
      if (isNew) {
        const std::string_view kind = graph::traitsOf(node.op).name;
        LutFunction function{names.claim(fmt::format("{}_{}", kind, lutFunctions.size() + 1)), id};
        for (int i = 0; i < node.width; ++i)
          function.bitNames.push_back(names.claim(fmt::format("{}_bit_{}", function.name, i)));
        lutFunctions.push_back(std::move(function));
      }
    }
    if (node.op == Op::kLiteral) continue;
    if (node.op == Op::kInput) {
      variableNames[id.index] = inputNames[node.aux];
    } else if (!graph.nameOf(id).empty()) {
      variableNames[id.index] = names.claim(graph.nameOf(id));
    } else if (!inlined[id.index] || lastRead[id.index] > cycleOf(id)) {
      std::string kind(graph::traitsOf(node.op).name);
      std::ranges::replace(kind, '-', '_');
      variableNames[id.index] = names.claim(fmt::format("{}_{}", kind, id.index));
    }
  }
  nameRegisters(names);
}

void Plan::nameRegisters(Names& names) {
  firstRegister.assign(graph.size(), 0);
  for (const NodeId id : idsOf(graph)) {
    firstRegister[id.index] = registers.size();
    if (!live[id.index] || isLiteral(id)) continue;
    for (int cycle = cycleOf(id) + 1; cycle <= lastRead[id.index]; ++cycle)
      registers.push_back(
          {.node = id,
           .cycle = cycle,
           .name = names.claim(fmt::format("{}_r{}", variableNames[id.index], cycle)),
           .source = id,
           .writtenIn = cycle - 1});
  }
  for (const graph::State& state : graph.states()) {
    if (!isLiveState(state)) continue;
    const int cycle = cycleOf(state.node);
    registers.push_back({.node = state.node,
                         .cycle = cycle,
                         .name = variableNames[state.node.index],
                         .source = state.next,
                         .writtenIn = cycle,
                         .initial = state.initial});
  }
  int lastCycle = -1;
  for (const int cycle : design.schedule->cycleByOutput) lastCycle = std::max(lastCycle, cycle);
  for (int cycle = 0; cycle <= lastCycle; ++cycle) {
    processes.push_back({cycle, true, names.claim(fmt::format("cycle_{}", cycle)), {}, {}, {}});
    processes.push_back({cycle, false, names.claim(fmt::format("result_{}", cycle)), {}, {}, {}});
  }
}

void Plan::chooseResets() {
  // Memory blocks have two registers, which few devices can reset.
  constexpr int kInMemory = 2;
  for (Register& row : registers)
    if (graph.node(row.node).op == Op::kMemory && row.cycle <= cycleOf(row.node) + kInMemory)
      row.hasReset = false;
  if (!design.dontCareOnReset) return;
  // Control registers hold nothing but copies of control inputs.
  std::vector<char> isControl(graph.size(), 0);
  for (const NodeId id : idsOf(graph)) {
    const Node& node = graph.node(id);
    if (node.op == Op::kInput) {
      isControl[id.index] = graph.inputs()[node.aux].isControl;
    } else if (graph::traitsOf(node.op).wiring && node.operandCount > 0) {
      isControl[id.index] = std::ranges::all_of(graph.operands(id), [&](NodeId operand) {
        return isControl[operand.index] || isLiteral(operand);
      });
    }
  }
  for (Register& row : registers) {
    const bool isState = graph.node(row.node).op == Op::kState && row.cycle == cycleOf(row.node);
    row.hasReset = isState || isControl[row.node.index];
  }
  resetEndsOfChains();
}

// Tools make a shift register of three registers without reset, and that is slower to leave than a
// register by more than a look-up table takes. What logic reads behind two or more registers has a
// reset therefore, which keeps it apart. Wiring counts whole: a reset too many does no harm.
void Plan::resetEndsOfChains() {
  constexpr int kShiftRegister = 3;
  std::vector<std::vector<int>> logicReads(graph.size());  // cycles, by node
  for (std::size_t i = 0; i < graph.outputs().size(); ++i)
    logicReads[graph.outputs()[i].signal.node.index].push_back(design.schedule->cycleByOutput[i]);
  for (const graph::State& state : graph.states())
    if (isLiveState(state)) logicReads[state.next.index].push_back(cycleOf(state.node));
  const auto isReadByLogic = [&](NodeId id, int cycle) {
    return std::ranges::find(logicReads[id.index], cycle) != logicReads[id.index].end();
  };
  for (std::size_t i = graph.size(); i-- > 0;) {
    const NodeId id{static_cast<std::uint32_t>(i)};
    const int cycle = cycleOf(id);
    const bool isWiring = graph::traitsOf(graph.node(id).op).wiring;
    if (!live[i] || (isWiring && !isReadByLogic(id, cycle))) continue;
    for (const NodeId operand : graph.operands(id))
      if (!isReadByLogic(operand, cycle)) logicReads[operand.index].push_back(cycle);
  }

  std::vector<int> atNode(graph.size()), atRegister(registers.size());
  for (const NodeId id : idsOf(graph)) {
    if (!live[id.index] || isLiteral(id)) continue;
    int& length = atNode[id.index];
    if (graph::traitsOf(graph.node(id).op).wiring || mayPassBits(graph.node(id)))
      for (const NodeId operand : graph.operands(id)) {
        if (isLiteral(operand)) continue;
        const int apart = cycleOf(id) - cycleOf(operand);
        length = std::max(
            length,
            apart == 0
                ? atNode[operand.index]
                : atRegister[firstRegister[operand.index] + static_cast<std::size_t>(apart) - 1]);
      }
    int before = length;
    for (int cycle = cycleOf(id) + 1; cycle <= lastRead[id.index]; ++cycle) {
      const std::size_t row =
          firstRegister[id.index] + static_cast<std::size_t>(cycle - cycleOf(id)) - 1;
      ++before;
      if (before >= kShiftRegister && isReadByLogic(id, cycle)) registers[row].hasReset = true;
      if (registers[row].hasReset) before = 0;
      atRegister[row] = before;
    }
  }
}

// True for a sum with constants in the lowest bit of an addend: some of its bits may be wires.
bool Plan::mayPassBits(const Node& sum) const {
  if (sum.op != Op::kAdd) return false;
  const auto isConstantBelow = [&](NodeId id) {
    for (int bit = 0;;) {
      const Node& node = graph.node(id);
      if (node.op == Op::kLiteral) return true;
      if (node.op == Op::kSlice) bit += static_cast<int>(node.aux);
      if (node.op == Op::kSlice || node.op == Op::kNot) {
        id = graph.operands(node)[0];
      } else if (node.op == Op::kConcat) {
        const auto parts = graph.operands(node);
        std::size_t part = parts.size() - 1;
        for (; bit >= graph.node(parts[part]).width; --part) bit -= graph.node(parts[part]).width;
        id = parts[part];
      } else {
        return false;
      }
    }
  };
  const auto operands = graph.operands(sum);
  return std::ranges::any_of(operands.first(operands.size() - 1), isConstantBelow);
}

std::vector<NodeId> Plan::variablesBehind(const std::vector<NodeId>& roots, int cycle) {
  ++marks;
  std::vector<NodeId> variables, open;
  const auto visit = [&](NodeId id) {
    if (isLiteral(id) || cycleOf(id) != cycle || mark[id.index] == marks) return;
    mark[id.index] = marks;
    open.push_back(id);
  };
  for (const NodeId root : roots) visit(root);
  while (!open.empty()) {
    const NodeId id = open.back();
    open.pop_back();
    if (!inlined[id.index] && isComputed(id)) variables.push_back(id);
    for (const NodeId operand : graph.operands(id)) visit(operand);
  }
  std::ranges::sort(variables);
  return variables;
}

// Tools move a sum and its register into the block of the product that reads it, where the sum's
// operands have to be there a good deal earlier.
void Plan::keepSumsOutOfBlocks() {
  std::vector<char> isFactor(graph.size(), 0);
  for (std::size_t i = graph.size(); i-- > 0;) {
    const NodeId id{static_cast<std::uint32_t>(i)};
    const Node& node = graph.node(id);
    const bool isProduct = node.op == Op::kMultiply || node.op == Op::kMultiplySigned;
    if (!isProduct && !(isFactor[i] && graph::traitsOf(node.op).wiring)) {
      if (isFactor[i] && node.op == Op::kAdd && live[i] && lastRead[i] > cycleOf(id))
        registers[firstRegister[i]].isKept = true;
      continue;
    }
    for (const NodeId operand : graph.operands(id)) isFactor[operand.index] = 1;
  }
}

void Plan::makeProcesses() {
  mark.assign(graph.size(), 0);
  for (std::size_t i = 0; i < registers.size(); ++i)
    processes[2 * static_cast<std::size_t>(registers[i].writtenIn)].registers.push_back(i);
  for (std::size_t i = 0; i < graph.outputs().size(); ++i) {
    const int cycle = design.schedule->cycleByOutput[i];
    if (variablesBehind({graph.outputs()[i].signal.node}, cycle).empty())
      directOutputs.push_back(i);
    else
      processes[2 * static_cast<std::size_t>(cycle) + 1].outputs.push_back(i);
  }
  for (Process& process : processes) {
    std::vector<NodeId> roots;
    for (const std::size_t row : process.registers) roots.push_back(registers[row].source);
    for (const std::size_t port : process.outputs)
      roots.push_back(graph.outputs()[port].signal.node);
    process.variables = variablesBehind(roots, process.cycle);
  }
  std::erase_if(processes, [](const Process& process) {
    return process.registers.empty() && process.outputs.empty();
  });
}

std::uint64_t Plan::readingKey(NodeId id, int cycle) const {
  return (std::uint64_t{id.index} << 32) | static_cast<std::uint32_t>(cycle);
}

void Plan::markReads() {
  const auto read = [&](NodeId id, int cycle, int low, int width) {
    if (isLiteral(id)) return;
    std::vector<char>& bits = readBits[readingKey(id, cycle)];
    bits.resize(static_cast<std::size_t>(graph.node(id).width));
    std::fill_n(bits.begin() + low, width, 1);
  };
  const auto readAll = [&](NodeId id, int cycle) { read(id, cycle, 0, graph.node(id).width); };
  for (const NodeId id : idsOf(graph)) {
    if (!live[id.index]) continue;
    const Node& node = graph.node(id);
    for (const NodeId operand : graph.operands(id)) {
      if (node.op == Op::kSlice)
        read(operand, cycleOf(id), static_cast<int>(node.aux), node.width);
      else
        readAll(operand, cycleOf(id));
    }
    for (int cycle = cycleOf(id); cycle < lastRead[id.index]; ++cycle) readAll(id, cycle);
  }
  for (const graph::State& state : graph.states())
    if (isLiveState(state)) readAll(state.next, cycleOf(state.node));
  for (std::size_t i = 0; i < graph.outputs().size(); ++i)
    readAll(graph.outputs()[i].signal.node, design.schedule->cycleByOutput[i]);
}

bool Plan::isPartlyRead(NodeId id, int cycle) const {
  const auto found = readBits.find(readingKey(id, cycle));
  return found == readBits.end() || std::ranges::count(found->second, 1) != graph.node(id).width;
}

bool Plan::isGated(NodeId id) const {
  return std::ranges::binary_search(design.schedule->lateClears, id);
}

std::optional<Plan::Difference> Plan::differenceOf(const Node& add, int cycle) const {
  const auto operands = graph.operands(add);
  const NodeId carry = operands[operands.size() - 1];
  if (operands.size() != 3 || !isLiteral(carry) || isZero(carry)) return {};
  for (const int place : {0, 1}) {
    const NodeId id = operands[static_cast<std::size_t>(place)];
    const NodeId other = operands[static_cast<std::size_t>(1 - place)];
    if (graph.node(id).op == Op::kNot && isInlined(id) && cycleOf(id) == cycle)
      return Difference{other, graph.operands(id)[0]};
  }
  if (isLiteral(operands[0]) || isLiteral(operands[1])) return {};
  return Difference{operands[0], operands[1], true};
}

std::vector<NodeId> Plan::addendsOf(const Node& add) const {
  std::vector<NodeId> addends;
  const auto operands = graph.operands(add);
  for (const NodeId id : operands.first(operands.size() - 1))
    if (!isZero(id)) addends.push_back(id);
  if (addends.empty()) addends.push_back(operands[0]);
  return addends;
}

const std::string& Plan::nameOf(NodeId id, int cycle) const {
  return cycle > cycleOf(id) ? registerOf(id, cycle).name : variableNames[id.index];
}

Plan::LutKey Plan::lutKey(const Node& node) const {
  return {node.op, node.aux, node.width, graph.node(graph.operands(node)[0]).width};
}

const std::string& Plan::lutFunctionOf(NodeId lut) const {
  return lutFunctions[lutByContents.at(lutKey(graph.node(lut)))].name;
}

const std::string& Plan::romOf(NodeId memory) const { return roms[romByNode.at(memory)].name; }

util::MPZ Plan::columnOf(const Node& table, int bit) const {
  const unsigned long rows = 1ul << graph.node(graph.operands(table)[0]).width;
  util::MPZ column;
  for (unsigned long x = 0; x < rows; ++x) {
    const bool isSet = table.op == Op::kLut
                           ? graph.literal(table).bit(x * static_cast<unsigned long>(table.width) +
                                                      static_cast<unsigned long>(bit))
                           : graph.rows(table)[x].bit(static_cast<unsigned long>(bit));
    if (isSet) mpz_setbit(column.get(), x);
  }
  return column;
}

}  // namespace hdl
