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

  int cycle(Vertex v) const { return cycleOf(schedule, graph, v); }

  LastRead lastReadOf(Vertex v, Vertex except) const {
    LastRead last;
    for (const Vertex reader : readers.of(v)) {
      if (reader == except || cycle(reader) < last.cycle) continue;
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
                   !readers.of(v).empty() && model.loops.dependsOnInputs({v}) &&
                   !model.loops.isInLoop({v}) && !model.isNext({v}) && !isInverted[v];
    }
  }

  std::vector<Vertex> operandsOf(Vertex v) const {
    std::vector<Vertex> operands;
    for (const NodeId operand : graph.operands(NodeId{v}))
      if (!isLiteral(graph.node(operand))) operands.push_back(operand.index);
    std::ranges::sort(operands);
    operands.erase(std::ranges::unique(operands).begin(), operands.end());
    return operands;
  }

  // Register bits are linear in the cycle between its ends and the last reads of the operands by
  // others, so only those are tried; where two are equally good the node stays nearer.
  void move(Vertex v) {
    if (!movable[v]) return;
    const std::vector<Vertex> operands = operandsOf(v);
    int low = windows.first[v], high = windows.last[v];
    for (const std::uint32_t i : constraintsOf.of(v)) {
      const Constraint& rule = rules.constraints[i];
      if (rule.to == v) low = std::max(low, cycle(rule.from) + rule.cycles);
      if (rule.from == v) high = std::min(high, cycle(rule.to) - rule.cycles);
    }
    for (const Vertex reader : readers.of(v)) high = std::min(high, cycle(reader));
    std::vector<int> others;
    for (const Vertex operand : operands) {
      low = std::max(low, cycle(operand));
      const LastRead& last = lastRead[operand];
      const bool isOnlyLast = last.cycle == cycle(v) && last.readers == 1;
      others.push_back(isOnlyLast ? lastReadOf(operand, v).cycle : last.cycle);
    }
    const auto bitsAt = [&](int place) {
      long bits = -static_cast<long>(graph.nodes()[v].width) * place;
      for (std::size_t i = 0; i < operands.size(); ++i)
        bits += static_cast<long>(graph.nodes()[operands[i]].width) * std::max(others[i], place);
      return bits;
    };
    const int before = cycle(v);
    int best = before;
    const auto attempt = [&](int place) {
      if (place < low || place > high || bitsAt(place) >= bitsAt(best)) return;
      schedule.cycleByNode[v] = place;
      if (meetsSlowProducts(v)) best = place;
    };
    attempt(low);
    attempt(high);
    for (const int other : others) attempt(other);
    schedule.cycleByNode[v] = best;
    if (best == before) return;
    for (const Vertex operand : operands) {
      LastRead& last = lastRead[operand];
      if (before == last.cycle) --last.readers;
      if (best == last.cycle) ++last.readers;
      if (best > last.cycle)
        last = {best, 1};
      else if (last.readers == 0)
        last = lastReadOf(operand, kNobody);
    }
  }

  bool meetsSlowProducts(Vertex v) const {
    return std::ranges::all_of(slowProductsOf.of(v), [&](std::uint32_t i) {
      return rules.slowProducts[i].isMet(schedule, graph);
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
