#include "backend/schedule/drawing.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "backend/schedule/stage_model.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') out += '\\';
    out += letter;
  }
  return out + "\"";
}

class Drawing {
 public:
  Drawing(const Graph& graph, const Schedule& schedule, bool isShort)
      : graph(graph),
        schedule(schedule),
        isShort(isShort),
        sources(graph.size()),
        innerScopes(graph.scopes().size()) {
    for (std::uint32_t inner = 1; inner < graph.scopes().size(); ++inner)
      innerScopes[static_cast<std::size_t>(graph.scopes()[inner].parent)].push_back(inner);
    for (std::uint32_t i = 0; i < graph.size(); ++i) place({i});
    for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
      const std::string name = fmt::format("out{}", port);
      const int cycle = schedule.cycleByOutput[port];
      columns[cycle][0].push_back(
          fmt::format("{} [label={}, shape=cds];", name,
                      quoted(fmt::format("{} {}", graph.outputs()[port].name,
                                         graph.outputs()[port].signal.width))));
      connect(sources[graph.outputs()[port].signal.node.index], name, cycle);
    }
    for (const graph::State& state : graph.states())
      for (const std::uint32_t source : sources[state.next.index])
        edges += fmt::format("  n{} -> n{} [style=dashed, constraint=false];\n", source,
                             state.node.index);
  }

  std::string text(const std::string& title) {
    std::string out = fmt::format(
        "digraph unit {{\n  label={};\n  labelloc=t;\n  rankdir=LR;\n  newrank=true;\n"
        "  node [shape=box, fontname=\"sans-serif\", fontsize=10, height=0.2, "
        "margin=\"0.06,0.02\"];"
        "\n  fontname=\"sans-serif\";\n",
        quoted(title));
    for (const auto& [cycle, boxes] : columns) {
      out += fmt::format(
          "  subgraph cluster_cycle{0} {{\n    label=\"cycle {0}\";\n"
          "    style=filled;\n    color=gray95;\n"
          "    start{0} [shape=point, style=invis];\n",
          cycle);
      out += boxText(boxes, cycle, 0, "    ") + "  }\n";
    }
    return out + edges + orderText() + "}\n";
  }

 private:
  using Boxes = std::map<std::uint32_t, std::vector<std::string>>;  // nodes by scope

  bool isDrawn(const Node& node) const {
    return !isShort || !isWiring(node) || node.op == Op::kInput || node.op == Op::kState;
  }

  std::string labelOf(NodeId id) const {
    const Node& node = graph.node(id);
    const std::string what = node.op == Op::kInput
                                 ? fmt::format("{} {}", graph.inputs()[node.aux].name, node.width)
                             : node.op == Op::kLiteral && !isShort
                                 ? fmt::format("{}'h{}", node.width, graph.literal(node).toText(16))
                                 : stepName(graph, id);
    if (isShort) return what;
    return fmt::format("{}: {} {}", id.index, what, graph.nameOf(id));
  }

  void place(NodeId id) {
    const Node& node = graph.node(id);
    std::set<std::uint32_t> behind;
    for (const NodeId operand : graph.operands(node))
      behind.insert(sources[operand.index].begin(), sources[operand.index].end());
    if (!isDrawn(node)) {
      sources[id.index].assign(behind.begin(), behind.end());
      return;
    }
    sources[id.index] = {id.index};
    const int cycle = schedule.cycleOf(id);
    const std::string name = fmt::format("n{}", id.index);
    const char* look = node.op == Op::kInput     ? ", shape=cds"
                       : node.op == Op::kState   ? ", shape=box3d"
                       : node.op == Op::kLiteral ? ", shape=plain"
                                                 : "";
    columns[cycle][node.scope].push_back(
        fmt::format("{} [label={}{}];", name, quoted(labelOf(id)), look));
    connect({behind.begin(), behind.end()}, name, cycle);
  }

  void connect(const std::vector<std::uint32_t>& from, const std::string& to, int cycle) {
    bool startsCycle = true;
    for (const std::uint32_t source : from) {
      const int registers = cycle - schedule.cycleByNode[source];
      const bool isFixed = graph.nodes()[source].op == Op::kLiteral;
      edges += fmt::format("  n{} -> {}{};\n", source, to,
                           registers > 0 && !isFixed ? " [color=gray50]" : "");
      if (registers > 0) continue;
      startsCycle = false;
      endings[cycle].erase(fmt::format("n{}", source));
    }
    if (startsCycle) starts[cycle].push_back(to);
    endings[cycle].insert(to);
  }

  // The nodes of a scope, then a box for each scope inside it that has any.
  std::string boxText(const Boxes& boxes, int cycle, std::uint32_t scope,
                      const std::string& indent) const {
    std::string out;
    if (const auto own = boxes.find(scope); own != boxes.end())
      for (const std::string& node : own->second) out += indent + node + "\n";
    for (const std::uint32_t inner : innerScopes[scope]) {
      const std::string content = boxText(boxes, cycle, inner, indent + "  ");
      if (content.empty()) continue;
      out += fmt::format(
          "{0}subgraph cluster_cycle{1}_{2} {{\n{0}  label={3};\n"
          "{0}  style=\"\";\n{0}  color=gray60;\n{4}{0}}}\n",
          indent, cycle, inner, quoted(graph.scopes()[inner].name), content);
    }
    return out;
  }

  // Invisible edges that keep each column to the right of the one before.
  std::string orderText() const {
    std::string out = "  edge [style=invis, weight=0];\n";
    for (auto column = columns.begin(); column != columns.end(); ++column) {
      const int cycle = column->first;
      if (const auto found = starts.find(cycle); found != starts.end())
        for (const std::string& name : found->second)
          out += fmt::format("  start{} -> {};\n", cycle, name);
      const auto next = std::next(column);
      if (next == columns.end()) break;
      out += fmt::format("  start{} -> start{};\n", cycle, next->first);
      if (const auto found = endings.find(cycle); found != endings.end())
        for (const std::string& name : found->second)
          out += fmt::format("  {} -> start{};\n", name, next->first);
    }
    return out;
  }

  const Graph& graph;
  const Schedule& schedule;
  const bool isShort;
  std::vector<std::vector<std::uint32_t>> sources;  // drawn nodes whose bits a node passes on
  std::vector<std::vector<std::uint32_t>> innerScopes;
  std::map<int, Boxes> columns;                    // by cycle
  std::map<int, std::vector<std::string>> starts;  // nothing of their own cycle before them
  std::map<int, std::set<std::string>> endings;    // and nothing behind
  std::string edges;
};

}  // namespace

std::string drawingText(const Graph& graph, const Schedule& schedule, const std::string& title,
                        bool isShort) {
  return Drawing(graph, schedule, isShort).text(title);
}

}  // namespace schedule
