#include "backend/hdl/subcomponents.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>

#include "backend/graph/builder.h"
#include "backend/hdl/names.h"
#include "backend/hdl/plan.h"
#include "backend/hdl/structure.h"

namespace hdl {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

// The outermost scope of each node, 0 for what belongs to the unit itself. Wiring stays with what
// it reads, so that ports carry only what is read and no register is far from its driver.
std::vector<std::uint32_t> partsOf(const Graph& graph) {
  std::vector<std::uint32_t> outermost;
  for (std::size_t i = 0; i < graph.scopes().size(); ++i) {
    const int parent = graph.scopes()[i].parent;
    outermost.push_back(parent <= 0 ? static_cast<std::uint32_t>(i)
                                    : outermost[static_cast<std::size_t>(parent)]);
  }
  std::vector<std::uint32_t> parts;
  for (const Node& node : graph.nodes()) {
    std::uint32_t part = node.op == Op::kInput ? 0 : outermost[node.scope];
    if (graph::traitsOf(node.op).wiring) {
      std::optional<std::uint32_t> source;
      bool isOne = true;
      for (const NodeId operand : graph.operands(node)) {
        if (graph.node(operand).op == Op::kLiteral) continue;
        isOne = isOne && source.value_or(parts[operand.index]) == parts[operand.index];
        source = parts[operand.index];
      }
      if (source && isOne && *source != 0) part = *source;
    }
    parts.push_back(part);
  }
  return parts;
}

// True for copies of control inputs, whose registers keep their reset in every entity.
std::vector<bool> controlNodes(const Graph& graph) {
  std::vector<bool> isControl;
  for (const Node& node : graph.nodes()) {
    const auto operands = graph.operands(node);
    isControl.push_back(node.op == Op::kInput
                            ? graph.inputs()[node.aux].isControl
                            : graph::traitsOf(node.op).wiring && !operands.empty() &&
                                  std::ranges::all_of(operands, [&](NodeId operand) {
                                    return isControl[operand.index] ||
                                           graph.node(operand).op == Op::kLiteral;
                                  }));
  }
  return isControl;
}

// Takes a design apart into the entities of its outermost scopes.
class Partition {
 public:
  explicit Partition(const Design& design)
      : design(design),
        whole(*design.graph),
        partOf(partsOf(whole)),
        isControl(controlNodes(whole)),
        made(whole.size()) {
    const Plan top(design);
    claimNames(top);
    for (std::uint32_t i = 0; i < whole.size(); ++i)
      if (const Node& node = whole.nodes()[i];
          top.isLive({i}) && node.op != Op::kInput && node.op != Op::kLiteral)
        copyNode({i});
    for (const graph::State& state : whole.states()) {
      if (!top.isLive(state.node)) continue;
      Entity& entity = entityOf(partOf[state.node.index]);
      const Signal next = read(entity, state.next, cycleOf(state.node));
      entity.builder.setNext(made[state.node.index], next);
    }
    for (std::size_t port = 0; port < whole.outputs().size(); ++port) showOutput(port);
  }

  std::string text(LANGUAGE language) {
    std::vector<Part> parts;
    for (const auto& [scope, entity] : entities)
      if (!entity.outputWires.empty()) parts.push_back(partFor(scope, entity));
    if (parts.size() < 2) return designText(design, language);
    return structureText(design, parts, nets, language);
  }

 private:
  // A node as a cycle reads it.
  using Reading = std::pair<std::uint32_t, int>;

  struct Entity {
    Graph graph;
    graph::Builder builder{graph};
    schedule::Schedule schedule;
    std::map<Reading, Signal> inputs;
    std::map<std::uint32_t, Signal> literals;
    std::vector<Wire> inputWires, outputWires;
  };

  int cycleOf(NodeId id) const { return design.schedule->cycleOf(id); }

  void claimNames(const Plan& top) {
    for (const std::string& name : {top.clock, top.reset, top.enable, top.entity})
      if (!name.empty()) names.claim(name);
    for (const auto& ports : {top.inputNames, top.outputNames})
      for (const std::string& name : ports) names.claim(name);
    names.claim("structure");
    inputNames = top.inputNames;
  }

  Entity& entityOf(std::uint32_t scope) { return entities[scope]; }

  // Nodes that were made last stand in `cycle`.
  static void placeNew(Entity& entity, int cycle) {
    entity.schedule.cycleByNode.resize(entity.graph.size(), cycle);
  }

  void copyNode(NodeId id) {
    Entity& entity = entityOf(partOf[id.index]);
    std::vector<Signal> operands;
    for (const NodeId operand : whole.operands(id))
      operands.push_back(read(entity, operand, cycleOf(id)));
    entity.builder.enterScope(0);
    Signal& copy = made[id.index];
    copy = entity.builder.copy(whole, id, operands);
    if (const auto name = whole.nameOf(id); !name.empty())
      entity.builder.name(copy, std::string(name));
    placeNew(entity, cycleOf(id));
  }

  // What stands for a node in an entity whose cycle `cycle` reads it.
  Signal read(Entity& reader, NodeId id, int cycle) {
    const Node& node = whole.node(id);
    if (node.op == Op::kLiteral) {
      Signal& literal = reader.literals[id.index];
      if (!literal) literal = reader.builder.copy(whole, id, {});
      placeNew(reader, 0);
      return literal;
    }
    const bool isPort = node.op == Op::kInput && (cycle == cycleOf(id) || ownsDelays(reader));
    if (isPort) cycle = cycleOf(id);
    Entity& driver = entityOf(partOf[id.index]);
    if (!isPort && &driver == &reader) return made[id.index];
    Signal& input = reader.inputs[{id.index, cycle}];
    if (input) return input;
    const Wire wire =
        isPort ? Wire{static_cast<std::size_t>(node.aux)} : Wire{netOf(driver, id, cycle), true};
    input = reader.builder.input(isPort ? inputNames[node.aux] : nets[wire.place].name, node.width,
                                 isControl[id.index]);
    reader.inputWires.push_back(wire);
    placeNew(reader, cycle);
    return input;
  }

  // Registers of the top's inputs stand in the entity that belongs to no scope.
  bool ownsDelays(const Entity& reader) { return &reader == &entityOf(0); }

  // The net that carries a node as `cycle` reads it, driven by an output of the node's entity.
  std::size_t netOf(Entity& driver, NodeId id, int cycle) {
    const auto [found, isNew] = netByReading.try_emplace({id.index, cycle}, nets.size());
    if (isNew) {
      std::string name(whole.nameOf(id));
      if (whole.node(id).op == Op::kInput) name = inputNames[whole.node(id).aux];
      if (name.empty()) {
        name = graph::traitsOf(whole.node(id).op).name;
        name += fmt::format("_{}", id.index);
      }
      nets.push_back({names.claim(fmt::format("{}_c{}", name, cycle)), whole.node(id).width});
      addOutput(driver, nets.back().name, read(driver, id, cycle), cycle,
                {found->second, /*isNet=*/true});
    }
    return found->second;
  }

  static void addOutput(Entity& driver, const std::string& name, Signal value, int cycle,
                        Wire wire) {
    driver.builder.output(name, value);
    driver.schedule.cycleByOutput.push_back(cycle);
    driver.outputWires.push_back(wire);
  }

  void showOutput(std::size_t port) {
    const graph::Port& shown = whole.outputs()[port];
    const int cycle = design.schedule->cycleByOutput[port];
    const bool isLiteral = whole.node(shown.signal.node).op == Op::kLiteral;
    Entity& driver = entityOf(isLiteral ? 0 : partOf[shown.signal.node.index]);
    addOutput(driver, shown.name, read(driver, shown.signal.node, cycle), cycle, {port});
  }

  Part partFor(std::uint32_t scope, const Entity& entity) {
    Part part{design, entity.inputWires, entity.outputWires};
    part.design.graph = &entity.graph;
    part.design.schedule = &entity.schedule;
    part.design.entity =
        names.claim(fmt::format("{}_{}", design.entity, whole.scopes()[scope].name));
    part.design.name = part.design.entity;
    part.design.header.clear();
    return part;
  }

  const Design& design;
  const Graph& whole;
  const std::vector<std::uint32_t> partOf;  // by node
  const std::vector<bool> isControl;
  std::vector<Signal> made;  // by node of the whole, in its own entity
  std::map<std::uint32_t, Entity> entities;
  std::map<Reading, std::size_t> netByReading;
  std::vector<Net> nets;
  std::vector<std::string> inputNames;
  Names names;
};

}  // namespace

std::string subcomponentsText(const Design& design, LANGUAGE language) {
  return Partition(design).text(language);
}

}  // namespace hdl
