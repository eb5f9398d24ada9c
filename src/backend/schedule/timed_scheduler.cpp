#include "backend/schedule/timed_scheduler.h"

#include <algorithm>

#include "backend/schedule/stage_constraints.h"
#include "backend/schedule/wiring_placement.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// Who is bound by each rule: numbers of rules by vertex.
class Incidence {
 public:
  explicit Incidence(std::size_t vertices) : rulesOf(vertices) {}
  void add(Vertex v, std::size_t rule) {
    auto& rules = rulesOf[v];
    if (rules.empty() || rules.back() != rule) rules.push_back(static_cast<std::uint32_t>(rule));
  }
  std::span<const std::uint32_t> of(Vertex v) const { return rulesOf[v]; }

 private:
  std::vector<std::vector<std::uint32_t>> rulesOf;
};

class Sweeper {
 public:
  Sweeper(const StageModel& model, const Request& request, const Schedule& earliest)
      : model(model),
        graph(model.graph),
        windows(windowsOf(model, request, earliest)),
        rules(stageRules(model, request, windows)),
        readers(graph),
        constraintsOf(windows.first.size()),
        slowProductsOf(windows.first.size()),
        schedule(earliest) {
    placeWiring(graph, schedule);
    for (std::size_t i = 0; i < rules.constraints.size(); ++i) {
      constraintsOf.add(rules.constraints[i].from, i);
      constraintsOf.add(rules.constraints[i].to, i);
    }
    for (std::size_t i = 0; i < rules.slowProducts.size(); ++i)
      for (const Vertex v :
           {rules.slowProducts[i].product, rules.slowProducts[i].reader, rules.slowProducts[i].end})
        slowProductsOf.add(v, i);
    lastRead.resize(graph.size());
    for (Vertex v = 0; v < graph.size(); ++v) lastRead[v] = lastReadOf(v, kNobody);
    findMovable();
  }

  Schedule run() {
    for (Vertex v = static_cast<Vertex>(graph.size()); v-- > 0;) move(v);
    for (Vertex v = 0; v < graph.size(); ++v) move(v);
    return std::move(schedule);
  }

 private:
  static constexpr Vertex kNobody = UINT32_MAX;

  struct LastRead {
    int cycle = -1;
    int readers = 0;  // in that cycle
  };

  bool isInSetOf(Vertex v, Vertex member) const {
    return member != kNobody && v < graph.size() &&
           model.loops.setOf({v}) == model.loops.setOf({member});
  }
  // A cluster by its last node, its root.
  std::span<const NodeId> membersWith(Vertex root) const {
    return model.loops.members(model.loops.setOf({root}));
  }

  int cycle(Vertex v) const { return cycleOf(schedule, graph, v); }

  // By all but the set of `except`.
  LastRead lastReadOf(Vertex v, Vertex except) const {
    LastRead last;
    for (const Vertex reader : readers.of(v)) {
      if (isInSetOf(reader, except) || cycle(reader) < last.cycle) continue;
      if (cycle(reader) > last.cycle) last = {cycle(reader), 0};
      ++last.readers;
    }
    return last;
  }

  // Inputs stay, and so does what a state holds to its cycle: loops, and inversions, which a loop
  // may need where they are (placeWiring).
  void findMovable() {
    movable.resize(graph.size());
    std::vector<bool> isInverted(graph.size());
    for (Vertex v = 0; v < graph.size(); ++v) {
      const Node& node = graph.nodes()[v];
      isInverted[v] = node.op == Op::kNot && !graph.states().empty();
      if (isWiring(node))
        for (const NodeId operand : graph.operands(node))
          isInverted[v] = isInverted[v] || isInverted[operand.index];
      movable[v] = node.op != Op::kInput && node.op != Op::kState && !isLiteral(node) &&
                   membersWith(v).back() == NodeId{v} && !readers.of(v).empty() &&
                   model.loops.dependsOnInputs({v}) && !model.loops.isInLoop({v}) &&
                   !model.isNext({v}) && !isInverted[v];
    }
  }

  struct Operand {
    Vertex node;
    int readers = 0;  // in the cluster
  };
  std::vector<Operand> operandsOf(Vertex root) const {
    std::vector<Vertex> reads;
    for (const NodeId member : membersWith(root)) {
      const std::size_t first = reads.size();
      for (const NodeId operand : graph.operands(member))
        if (!isLiteral(graph.node(operand)) && !isInSetOf(operand.index, root))
          reads.push_back(operand.index);
      const auto own = reads.begin() + static_cast<std::ptrdiff_t>(first);
      std::sort(own, reads.end());
      reads.erase(std::unique(own, reads.end()), reads.end());
    }
    std::ranges::sort(reads);
    std::vector<Operand> operands;
    for (const Vertex read : reads) {
      if (operands.empty() || operands.back().node != read) operands.push_back({read});
      ++operands.back().readers;
    }
    return operands;
  }

  // Moves a cluster. Register bits are linear in its cycle between its ends and the last reads of
  // the operands by others, so only those are tried; where two are equally good it stays nearer.
  void move(Vertex root) {
    if (!movable[root]) return;
    const std::vector<Operand> operands = operandsOf(root);
    int low = windows.first[root], high = windows.last[root];
    for (const NodeId member : membersWith(root)) {
      const Vertex v = member.index;
      low = std::max(low, windows.first[v]);
      high = std::min(high, windows.last[v]);
      for (const std::uint32_t i : constraintsOf.of(v)) {
        const Constraint& rule = rules.constraints[i];
        if (rule.to == v) low = std::max(low, cycle(rule.from) + rule.cycles);
        if (rule.from == v) high = std::min(high, cycle(rule.to) - rule.cycles);
      }
    }
    for (const Vertex reader : readers.of(root))
      high = std::min(high, cycle(reader) - model.lag({root}));
    std::vector<int> others;
    for (const auto& [operand, inCluster] : operands) {
      low = std::max(low, cycle(operand) + model.lag({operand}));
      const LastRead& last = lastRead[operand];
      const bool isOnlyLast = last.cycle == cycle(root) && last.readers == inCluster;
      others.push_back(isOnlyLast ? lastReadOf(operand, root).cycle : last.cycle);
    }
    const auto bitsAt = [&](int place) {
      long bits = -static_cast<long>(graph.nodes()[root].width) * place;
      for (std::size_t i = 0; i < operands.size(); ++i)
        bits +=
            static_cast<long>(graph.nodes()[operands[i].node].width) * std::max(others[i], place);
      return bits;
    };
    const int before = cycle(root);
    int best = before;
    const auto attempt = [&](int place) {
      if (place < low || place > high || bitsAt(place) >= bitsAt(best)) return;
      placeIn(root, place);
      if (meetsSlowProducts(root)) best = place;
    };
    attempt(low);
    attempt(high);
    for (const int other : others) attempt(other);
    placeIn(root, best);
    if (best == before) return;
    for (const auto& [operand, inCluster] : operands) {
      LastRead& last = lastRead[operand];
      if (before == last.cycle) last.readers -= inCluster;
      if (best == last.cycle) last.readers += inCluster;
      if (best > last.cycle)
        last = {best, inCluster};
      else if (last.readers == 0)
        last = lastReadOf(operand, kNobody);
    }
  }

  void placeIn(Vertex root, int place) {
    for (const NodeId member : membersWith(root)) schedule.cycleByNode[member.index] = place;
  }

  bool meetsSlowProducts(Vertex root) const {
    return std::ranges::all_of(membersWith(root), [&](NodeId member) {
      return std::ranges::all_of(slowProductsOf.of(member.index), [&](std::uint32_t i) {
        return rules.slowProducts[i].isMet(schedule, graph);
      });
    });
  }

  const StageModel& model;
  const Graph& graph;
  const Windows windows;
  const StageRules rules;
  const Readers readers;
  Incidence constraintsOf, slowProductsOf;
  Schedule schedule;
  std::vector<LastRead> lastRead;  // by node
  std::vector<bool> movable;
};

bool isInTime(const Schedule& schedule, const Schedule& earliest) {
  for (std::size_t port = 0; port < schedule.cycleByOutput.size(); ++port)
    if (schedule.cycleByOutput[port] > earliest.cycleByOutput[port]) return false;
  return true;
}

}  // namespace

Schedule timedSchedule(const StageModel& model, const Request& request, const Schedule& earliest) {
  Request met = request;
  for (int tooShort = request.shortestPeriod - 1; met.period - tooShort > 1;) {
    Request tried = request;
    tried.period = tooShort + (met.period - tooShort) / 2;
    if (isInTime(greedySchedule(model, tried), earliest))
      met = tried;
    else
      tooShort = tried.period;
  }
  Schedule even = greedySchedule(model, met);
  even.cycleByOutput = earliest.cycleByOutput;
  return Sweeper(model, met, even).run();
}

}  // namespace schedule
