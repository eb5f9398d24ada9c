#include "backend/schedule/fewest_registers_scheduler.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include "backend/schedule/block_registers.h"
#include "backend/schedule/difference_program.h"
#include "backend/schedule/lengthening.h"
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

// Wiring behind a product: where it takes the fewest bits of all registers, or where the registers
// inside the block end, at the latest.
enum class Slices { kAsPlaced, kInBlocks };

// Where the first good answer is taken, not the best of several.
bool isLarge(const Graph& graph) {
  constexpr std::size_t kLarge = 5'000;  // nodes
  return graph.size() > kLarge;
}

// What every schedule with the outputs of the earliest one keeps.
struct Rules {
  Rules(const StageModel& model, const Request& request, const Schedule& earliest)
      : windows(windowsOf(model, request, earliest)),
        stages(stageRules(model, request, windows)),
        readers(model.graph) {}

  const Windows windows;
  const StageRules stages;
  const Readers readers;
};

// The cycles whose nodes may move; the others stay as the guide has them.
struct Span {
  int first = 0;
  int last = StageModel::kNever;
  bool holds(int cycle) const { return first <= cycle && cycle <= last; }
};

class RegisterProgram {
 public:
  // `guide` is any valid schedule that keeps the rules.
  RegisterProgram(const StageModel& model, const Rules& all, const Schedule& guide, Slices slices,
                  const Span& span = {})
      : model(model),
        graph(model.graph),
        windows(all.windows),
        readers(all.readers),
        rules(all.stages),
        span(span),
        products(productByNode(model.graph, model.device)),
        known(guide) {
    placeWiring(graph, known);
    if (slices == Slices::kInBlocks) keepSlicesInBlocks();
    program.addVariable(0);
    placeVertices();
    keepOrder();
    if (!graph.states().empty()) keepInversionsLate();
    require(program, rules.constraints);
    keepSumsInBlocks();
    countRegisters();
  }

  // Slow products leave a choice, which no program of differences knows. The best schedule without
  // regard to them is the best of all where it meets them. Elsewhere those that it does not meet
  // are settled in a way that suits it, and so on; and, since this may lead nowhere, all of them as
  // they are in the known schedule, whose bits are never exceeded; in large graphs only then.
  // Nothing when the known schedule leaves the windows, which what no output reads may do.
  std::optional<Schedule> run() {
    const std::optional<Schedule> free = solve(program);
    if (!free) return std::nullopt;
    isBest = graph.states().empty() && unmet(*free).empty() && !hasWiredProducts();
    if (unmet(*free).empty()) return *free;
    std::optional<Schedule> best;
    const auto take = [&](const std::optional<Schedule>& other, auto isBetter) {
      if (other && (!best || isBetter(bitsOf(*other), bitsOf(*best)))) best = other;
    };
    for (const Settle way : {Settle::kEndLater, Settle::kReaderLater})
      take(settledFrom(*free, way), std::less{});
    if (best && isLarge(graph) && bitsOf(*best) <= bitsOf(known)) return best;
    DifferenceProgram asKnown = program;
    for (const SlowProduct& slow : rules.slowProducts)
      require(asKnown, settled(slow, known, graph, Settle::kEndLater));
    take(solve(asKnown), std::less_equal{});
    LOAM_ASSERT(best, "a known schedule that keeps the rules");
    return best;
  }
  long bitsOf(const Schedule& schedule) const {
    return registerBitsOutsideBlocks(graph, model.device, schedule);
  }
  // True when no schedule at all can have fewer bits than what run() has found: no choice was open,
  // and nothing had to stay where the guide has it.
  bool foundBest() const { return isBest; }

 private:
  static constexpr int kRounds = 4;
  // What a bit outside blocks costs in bits inside, which are there anyway.
  static constexpr int kOutside = 1000;

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
      if (!narrowed.hasSolution()) return std::nullopt;
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

  bool hasWiredProducts() const {
    for (Vertex v = 0; v < graph.size(); ++v)
      if (products[v] != NodeId{} && products[v] != NodeId{v}) return true;
    return false;
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

  // A block adds to its product behind one register at most.
  void keepSumsInBlocks() {
    for (Vertex v = 0; v < graph.size(); ++v) {
      const NodeId product = model.device.productBehind(graph, {v});
      if (product != NodeId{} && known.cycleByNode[v] - known.cycleOf(product) <= 1)
        require(places[v], places[product.index], -1);
    }
  }

  void keepSlicesInBlocks() {
    for (Vertex v = 0; v < graph.size(); ++v) {
      const NodeId product = products[v];
      if (product == NodeId{} || product == NodeId{v} || model.isNext({v})) continue;
      if (model.loops.isJoint(model.loops.setOf({v}))) continue;
      int& cycle = known.cycleByNode[v];
      cycle = std::min(cycle, known.cycleOf(product) + kBlockRegisters);
    }
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
    if (!span.holds(known.cycleOf(id))) return {0, known.cycleOf(id)};
    if (node.op == Op::kInput || delays || !model.loops.dependsOnInputs(id))
      return {0, known.cycleOf(id)};
    return {program.addVariable(known.cycleOf(id)), 0};
  }

  void keepOrder() {
    for (Vertex v = 0; v < graph.size(); ++v)
      for (const Vertex reader : readers.of(v)) require(places[v], places[reader], model.lag({v}));
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

  // A value is kept from its own cycle to that of its last reader, but for the registers that the
  // block of its product has. Wiring behind a product may stand before the end of those, and then
  // costs nothing up to there, or behind it: on the side where the known schedule has it.
  void countRegisters() {
    for (Vertex v = 0; v < graph.size(); ++v) {
      const auto all = readers.of(v);
      if (all.empty()) continue;
      const int width = graph.nodes()[v].width;
      Place end;
      int endOfBlock = 0;
      bool isInBlock = false;
      if (products[v] != NodeId{}) {
        end = places[products[v].index];
        end.offset += kBlockRegisters;
        endOfBlock = known.cycleOf(products[v]) + kBlockRegisters;
        isInBlock = known.cycleByNode[v] < endOfBlock;
        isInBlock ? require(places[v], end, 0) : require(end, places[v], 0);
      }
      const int last = lastOf(all);
      program.addCost(last, (isInBlock ? 1 : kOutside) * width);
      program.addCost(places[v].variable, -(isInBlock ? 1 : kOutside) * width);
      if (!isInBlock) continue;
      const int behind = program.addVariable(std::max(endOfBlock, lastReadOf(all)));
      require({last, 0}, {behind, 0}, 0);
      require(end, {behind, 0}, 0);
      program.addCost(behind, kOutside * width);
      program.addCost(end.variable, -kOutside * width);
    }
  }

  int lastReadOf(std::span<const Vertex> all) const {
    int last = 0;
    for (const Vertex reader : all) last = std::max(last, cycleOf(known, graph, reader));
    return last;
  }

  // A variable that no reader is behind.
  int lastOf(std::span<const Vertex> all) {
    if (all.size() == 1) return places[all[0]].variable;
    const int last = program.addVariable(lastReadOf(all));
    for (const Vertex reader : all) require(places[reader], {last, 0}, 0);
    return last;
  }

  const StageModel& model;
  const Graph& graph;
  const Windows& windows;
  const Readers& readers;
  const StageRules& rules;
  const Span span;
  const std::vector<NodeId> products;
  Schedule known;  // one that keeps all rules
  DifferenceProgram program;
  std::vector<Place> places;  // by vertex
  bool isBest = false;
};

// Cycles that together have about `most` arcs each, moved on by `shift` parts of one.
std::vector<Span> spansOf(const Graph& graph, const Rules& rules, const Schedule& guide,
                          std::size_t arcs, std::size_t most, double shift) {
  std::vector<double> upTo(
      static_cast<std::size_t>(*std::ranges::max_element(guide.cycleByNode) + 2));
  const auto count = [&](Vertex v) { ++upTo[static_cast<std::size_t>(guide.cycleByNode[v]) + 1]; };
  for (const Constraint& rule : rules.stages.constraints) count(rule.from);
  for (Vertex v = 0; v < graph.size(); ++v)
    for (std::size_t i = 0; i < rules.readers.of(v).size() + 2; ++i) count(v);
  std::vector<Span> spans{{}};
  const double part = static_cast<double>(arcs) / std::ceil(1.0 * arcs / most);
  double begun = -shift * part;
  for (std::size_t i = 1; i < upTo.size(); ++i) {
    upTo[i] += upTo[i - 1];
    const int cycle = static_cast<int>(i) - 1;
    if (upTo[i] - begun <= part || cycle == spans.back().first) continue;
    spans.back().last = cycle - 1;
    spans.push_back({.first = cycle});
    begun = upTo[i - 1];
  }
  return spans;
}

// The best of each span of cycles in turn, in two ways to part them: in time that grows with the
// graph alone, and never more bits than the guide has.
Schedule fewestBySpans(const StageModel& model, const Rules& rules, Schedule guide,
                       std::size_t arcs, std::size_t most) {
  for (const double shift : {0.0, 0.5})
    for (const Span& span : spansOf(model.graph, rules, guide, arcs, most, shift)) {
      RegisterProgram program(model, rules, guide, Slices::kAsPlaced, span);
      const std::optional<Schedule> found = program.run();
      if (found && program.bitsOf(*found) < program.bitsOf(guide)) guide = *found;
    }
  return guide;
}

}  // namespace

// What the program may not change depends on the schedule that guides it. Where that counts it
// guides the next one, and the other strategies guide it too, so that none of them needs fewer
// bits; in large graphs the others are only compared.
Schedule fewestRegisters(const StageModel& model, const Request& request,
                         const Schedule& earliest) {
  const auto bitsOf = [&](const Schedule& schedule) {
    return registerBitsOutsideBlocks(model.graph, model.device, schedule);
  };
  const Rules rules(model, request, earliest);
  std::size_t arcs = rules.stages.constraints.size();
  for (Vertex v = 0; v < model.graph.size(); ++v) arcs += rules.readers.of(v).size() + 2;
  if (arcs > request.mostArcs) {
    Schedule guide = timedSchedule(model, request, earliest);
    placeWiring(model.graph, guide);
    return fewestBySpans(model, rules, std::move(guide), arcs, request.mostArcs);
  }
  std::optional<Schedule> best;
  // True when the best of all is found.
  const auto follow = [&](Schedule guide, Slices slices) {
    constexpr int kRounds = 4;
    for (int round = 0; round < (isLarge(model.graph) ? 1 : kRounds); ++round) {
      RegisterProgram program(model, rules, guide, slices);
      const std::optional<Schedule> found = program.run();
      const bool isBetter = found && (!best || bitsOf(*found) < bitsOf(*best));
      if (isBetter) best = found;
      if (program.foundBest()) return true;
      if (!isBetter) return false;
      guide = *found;
    }
    return false;
  };
  const bool isDone = follow(earliest, Slices::kInBlocks);
  LOAM_ASSERT(best, "the earliest schedule keeps the rules");
  if (isDone) return *best;

  std::vector<Schedule> guides{earliest, timedSchedule(model, request, earliest)};
  Schedule scopes = scopesSchedule(model, request);
  if (std::ranges::equal(scopes.cycleByOutput, earliest.cycleByOutput, std::ranges::less_equal{}))
    guides.push_back(std::move(scopes));
  const Schedule shortest = greedySchedule(model, request);
  if (const int more = earliest.latency() - shortest.latency(); more > 0) {
    guides.push_back(fewestRegisters(model, request, shortest));
    lengthen(model, guides.back(), more, request);
  }
  for (Schedule& guide : guides) {
    guide.cycleByOutput = earliest.cycleByOutput;
    placeWiring(model.graph, guide);
    if (bitsOf(guide) < bitsOf(*best)) best = guide;
    if (!isLarge(model.graph)) follow(guide, Slices::kAsPlaced);
  }
  return *best;
}

}  // namespace schedule
