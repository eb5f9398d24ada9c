#include "backend/schedule/fewest_registers_scheduler.h"

#include <algorithm>

#include "backend/schedule/difference_program.h"
#include "backend/schedule/scopes_scheduler.h"
#include "backend/schedule/stage_constraints.h"
#include "backend/schedule/timed_scheduler.h"
#include "backend/schedule/wiring_placement.h"
#include "util/failure.h"

namespace schedule {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

namespace {

// A cycle as a variable of the program and a constant; variable 0 is cycle 0.
struct Place {
  int variable = 0;
  int offset = 0;
};

class RegisterProgram {
 public:
  // `guide` is any valid schedule with the outputs of `earliest`.
  RegisterProgram(const StageModel& model, const Request& request, const Schedule& earliest,
                  const Schedule& guide)
      : model(model),
        graph(model.graph),
        request(request),
        windows(windowsOf(model, request, earliest)),
        readers(graph),
        rules(stageRules(model, request, windows)),
        known(guide) {
    placeWiring(graph, known);
    program.addVariable(0);
    placeVertices();
    keepOrder();
    if (!graph.states().empty()) keepInversionsLate();
    require(program, rules.constraints);
    countRegisters();
  }

  // Slow products leave a choice, which no program of differences knows. The best schedule without
  // regard to them is the best of all where it meets them. Elsewhere those that it does not meet
  // are settled in a way that suits it, and so on; and, since this may lead nowhere, all of them as
  // they are in the known schedule, whose bits are never exceeded. Nothing when the known schedule
  // leaves the windows, which what no output reads may do.
  std::optional<Schedule> run() {
    const std::optional<Schedule> free = solve(program);
    if (!free) return std::nullopt;
    isBest = graph.states().empty() && unmet(*free).empty();
    if (unmet(*free).empty()) return *free;
    DifferenceProgram asKnown = program;
    for (const SlowProduct& slow : rules.slowProducts)
      require(asKnown, settled(slow, known, graph, Settle::kEndLater));
    std::optional<Schedule> best = solve(asKnown);
    LOAM_ASSERT(best, "a known schedule that keeps the rules");
    for (const Settle way : {Settle::kEndLater, Settle::kReaderLater}) {
      const std::optional<Schedule> other = settledFrom(*free, way);
      if (other && registerBits(graph, *other) < registerBits(graph, *best)) best = other;
    }
    return best;
  }
  // True when no schedule at all can have fewer bits than what run() has found: no choice was open,
  // and nothing had to stay where the guide has it.
  bool foundBest() const { return isBest; }

 private:
  static constexpr int kRounds = 4;

  std::optional<Schedule> solve(const DifferenceProgram& asked) const {
    const auto values = asked.solve();
    if (!values) return std::nullopt;
    Schedule schedule = known;
    for (Vertex v = 0; v < graph.size(); ++v)
      schedule.cycleByNode[v] =
          static_cast<int>((*values)[static_cast<std::size_t>(places[v].variable)]) +
          places[v].offset;
    return schedule;
  }

  std::optional<Schedule> settledFrom(std::optional<Schedule> schedule, Settle way) const {
    DifferenceProgram narrowed = program;
    for (int round = 0; round < kRounds && schedule; ++round) {
      const std::vector<SlowProduct> open = unmet(*schedule);
      if (open.empty()) return schedule;
      for (const SlowProduct& slow : open) require(narrowed, settled(slow, *schedule, graph, way));
      schedule = solve(narrowed);
    }
    return std::nullopt;
  }

  std::vector<SlowProduct> unmet(const Schedule& schedule) const {
    std::vector<SlowProduct> found;
    for (const SlowProduct& slow : rules.slowProducts)
      if (!slow.isMet(schedule, graph)) found.push_back(slow);
    return found;
  }

  void require(const Place& from, const Place& to, int cycles) {
    if (from.variable != to.variable)
      program.require(from.variable, to.variable, cycles + from.offset - to.offset);
  }
  void require(DifferenceProgram& asked, const std::vector<Constraint>& constraints) const {
    for (const auto& [from, to, cycles] : constraints)
      if (const Place a = places[from], b = places[to]; a.variable != b.variable)
        asked.require(a.variable, b.variable, cycles + a.offset - b.offset);
  }

  // A loop is one variable. Inputs, outputs and what runs by itself, and so has to start with the
  // inputs, stay where they are, and so does a state in no loop with what it takes next: a later
  // one would have taken values from before the first inputs.
  void placeVertices() {
    places.resize(windows.first.size());
    for (std::size_t set = 0; set < model.loops.setCount(); ++set) {
      const auto members = model.loops.members(set);
      const Place place = placeOfSet(members[0]);
      for (const NodeId id : members) {
        places[id.index] = place;
        require({}, place, windows.first[id.index]);
        require(place, {}, -windows.last[id.index]);
      }
    }
    for (Vertex v = static_cast<Vertex>(graph.size()); v < places.size(); ++v)
      places[v] = {0, windows.first[v]};
    for (const graph::State& state : graph.states()) {
      if (isLiteral(graph.node(state.next))) continue;
      require(places[state.node.index], places[state.next.index], 0);
      require(places[state.next.index], places[state.node.index], 0);
    }
  }

  Place placeOfSet(NodeId id) {
    const Node& node = graph.node(id);
    const bool delays = node.op == Op::kState && !model.loops.isInLoop(id);
    if (node.op == Op::kInput || delays || !model.loops.dependsOnInputs(id))
      return {0, known.cycleOf(id)};
    return {program.addVariable(known.cycleOf(id)), 0};
  }

  void keepOrder() {
    for (Vertex v = 0; v < graph.size(); ++v)
      for (const Vertex reader : readers.of(v)) require(places[v], places[reader], 0);
  }

  // A register behind an inversion is zero after reset, as if the bits before it were ones, and a
  // loop that holds while a bit is zero would not hold before its first inputs (placeWiring).
  // Inversions and their wiring therefore stay with the reader with which they stand already.
  void keepInversionsLate() {
    std::vector<bool> isInverted(graph.size());
    for (Vertex v = 0; v < graph.size(); ++v) {
      const Node& node = graph.nodes()[v];
      isInverted[v] = node.op == Op::kNot;
      if (isWiring(node))
        for (const NodeId operand : graph.operands(node))
          isInverted[v] = isInverted[v] || isInverted[operand.index];
      if (!isInverted[v]) continue;
      for (const Vertex reader : readers.of(v)) {
        if (cycleOf(known, graph, reader) != known.cycleByNode[v]) continue;
        require(places[reader], places[v], 0);
        break;
      }
    }
  }

  // A value is kept from its own cycle to that of its last reader.
  void countRegisters() {
    for (Vertex v = 0; v < graph.size(); ++v) {
      const auto all = readers.of(v);
      if (all.empty()) continue;
      const int width = graph.nodes()[v].width;
      int last = places[all[0]].variable;
      if (all.size() > 1) {
        int lastRead = 0;
        for (const Vertex reader : all)
          lastRead = std::max(lastRead, cycleOf(known, graph, reader));
        last = program.addVariable(lastRead);
        for (const Vertex reader : all) require(places[reader], {last, 0}, 0);
      }
      program.addCost(last, width);
      program.addCost(places[v].variable, -width);
    }
  }

  const StageModel& model;
  const Graph& graph;
  const Request& request;
  const Windows windows;
  const Readers readers;
  const StageRules rules;
  Schedule known;  // one that keeps all rules
  DifferenceProgram program;
  std::vector<Place> places;  // by vertex
  bool isBest = false;
};

}  // namespace

// What the program may not change depends on the schedule that guides it. Where that counts the
// other strategies guide it too, so that none of them needs fewer bits.
Schedule fewestRegisters(const StageModel& model, const Request& request,
                         const Schedule& earliest) {
  RegisterProgram program(model, request, earliest, earliest);
  std::optional<Schedule> best = program.run();
  LOAM_ASSERT(best, "the earliest schedule keeps the rules");
  if (program.foundBest()) return *best;
  std::vector<Schedule> guides{timedSchedule(model, request, earliest)};
  Schedule scopes = scopesSchedule(model, request);
  if (std::ranges::equal(scopes.cycleByOutput, earliest.cycleByOutput, std::ranges::less_equal{})) {
    scopes.cycleByOutput = earliest.cycleByOutput;
    guides.push_back(std::move(scopes));
  }
  for (const Schedule& guide : guides) {
    const std::optional<Schedule> other = RegisterProgram(model, request, earliest, guide).run();
    if (other && registerBits(model.graph, *other) < registerBits(model.graph, *best)) best = other;
  }
  return *best;
}

}  // namespace schedule
