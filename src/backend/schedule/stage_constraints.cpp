#include "backend/schedule/stage_constraints.h"

#include <algorithm>
#include <functional>
#include <queue>

#include "util/failure.h"

namespace schedule {

using device::BitTimes;
using graph::Graph;
using graph::NodeId;
using graph::Op;

namespace {

bool isPort(const Graph& graph, Vertex v) { return v >= graph.size(); }

// Passes bits on in no time; a state starts a stage.
bool passesOn(const Graph& graph, Vertex v) {
  return !isPort(graph, v) && isWiring(graph.node({v})) && graph.node({v}).op != Op::kState;
}

class PairFinder {
 public:
  PairFinder(const StageModel& model, const Request& request, const Windows& windows)
      : model(model),
        graph(model.graph),
        windows(windows),
        readers(graph),
        limit(request.period - model.setup),
        reached(graph.size() + graph.outputs().size()),
        seen(reached.size()) {}

  StageRules run(bool registerOutputs) {
    for (Vertex v = 0; v < graph.size(); ++v)
      if (!isWiring(graph.nodes()[v]) && model.lag({v}) == 0 &&
          (!model.cover.isInner({v}) || model.delay[v] > 0))
        addPairsFrom(v);
    for (Vertex v = 0; v < graph.size(); ++v)
      if (model.isBlock({v})) addPairsBehindBlock(v);
    if (registerOutputs)
      for (std::size_t port = 0; port < graph.outputs().size(); ++port) addOutputRegister(port);
    return std::move(rules);
  }

 private:
  // The times of a vertex's operands on all ways from where a search begins; and the same if there
  // were an ordinary register behind that.
  struct Ways {
    BitTimes whole, behindRegister;
  };

  // When a stage ends at a vertex's register, or at a port.
  int endAt(Vertex v, const BitTimes& operands) const {
    return isPort(graph, v) ? operands.last() : model.end({v}, operands);
  }
  // A cluster ends with its root.
  bool endsStage(Vertex v) const {
    if (isPort(graph, v)) return true;
    return model.isNext({v}) || (!passesOn(graph, v) && !model.cover.isInner({v}));
  }

  bool areApart(Vertex from, Vertex to, int cycles) const {
    return windows.first[to] >= windows.last[from] + cycles;
  }
  bool shareSet(Vertex a, Vertex b) const {
    return !isPort(graph, a) && !isPort(graph, b) &&
           model.loops.setOf({a}) == model.loops.setOf({b});
  }
  void require(Vertex from, Vertex to, int cycles) {
    if (!areApart(from, to, cycles)) rules.constraints.push_back({from, to, cycles});
  }

  void reach(Vertex v, const Ways& ways) {
    if (seen[v] != search) {
      seen[v] = search;
      reached[v] = ways;
      open.push(v);
    } else {
      reached[v] = {later(reached[v].whole, ways.whole),
                    later(reached[v].behindRegister, ways.behindRegister)};
    }
  }
  void reachReaders(Vertex v, const Ways& ways) {
    for (const Vertex reader : readers.of(v))
      reach(reader, {model.bits.seen({v}, {reader}, ways.whole),
                     model.bits.seen({v}, {reader}, ways.behindRegister)});
  }

  // Follows all that was reached in topological order and reports each end that comes too late,
  // but would not behind a register; beyond late ends it does not go, nor where `isApart` says that
  // the stage cannot come to.
  template <typename IsApart, typename Late>
  void follow(const IsApart& isApart, const Late& late) {
    while (!open.empty()) {
      const Vertex v = open.top();
      open.pop();
      if (isApart(v)) continue;
      const Ways& ways = reached[v];
      if (endsStage(v) && endAt(v, ways.whole) > limit) {
        if (endAt(v, ways.behindRegister) <= limit) late(v);
        continue;
      }
      if (!isPort(graph, v))
        reachReaders(
            v, {model.bits.through({v}, ways.whole), model.bits.through({v}, ways.behindRegister)});
    }
  }

  // A pair with a later beginning, if it is too long as well, lies inside.
  void addPairsFrom(Vertex from) {
    ++search;
    reachReaders(from, {model.bits.through({from}, model.start()), model.start()});
    follow([&](Vertex v) { return areApart(from, v, 1); },
           [&](Vertex v) {
             LOAM_ASSERT(!shareSet(from, v), "a period in which every loop fits alone");
             rules.constraints.push_back({from, v, 1});
           });
  }

  // Ends that come too late when `start` is the time at which `reader` sees a product, and only for
  // that: not when it sees an ordinary register.
  std::vector<Vertex> lateBehind(Vertex reader, int start) {
    std::vector<Vertex> found;
    ++search;
    reach(reader, {{.level = start}, model.start()});
    follow([&](Vertex v) { return v != reader && areApart(reader, v, 1); },
           [&](Vertex v) { found.push_back(v); });
    return found;
  }

  // One register behind a product lies inside its block and two do at its pins.
  void addPairsBehindBlock(Vertex block) {
    const int one = std::max(model.clockToOutput, model.fromRegister({block}, 1));
    const int two = std::max(model.clockToOutput, model.fromRegister({block}, 2));
    for (const Vertex reader : readersThroughWiring(block)) {
      if (shareSet(block, reader)) continue;
      // A reader that cannot share the product's stage stands behind a register at least.
      const BitTimes shared = model.bits.through({block}, model.start());
      const bool canShare = model.lag({block}) == 0 && endAt(reader, shared.flat()) <= limit;
      if (one > model.clockToOutput)
        for (const Vertex end : lateBehind(reader, one)) {
          if (canShare)
            rules.slowProducts.push_back({block, reader, end, 1});
          else
            require(block, end, 2);
        }
      if (two > model.clockToOutput)
        for (const Vertex end : lateBehind(reader, two))
          rules.slowProducts.push_back({block, reader, end, 2});
    }
  }

  std::vector<Vertex> readersThroughWiring(Vertex driver) {
    std::vector<Vertex> found, wires{driver};
    ++search;
    while (!wires.empty()) {
      const Vertex wire = wires.back();
      wires.pop_back();
      for (const Vertex reader : readers.of(wire)) {
        if (seen[reader] == search) continue;
        seen[reader] = search;
        (passesOn(graph, reader) ? wires : found).push_back(reader);
      }
    }
    std::ranges::sort(found);
    return found;
  }

  // Logic and states stand before the register behind their port; wiring need not.
  void addOutputRegister(std::size_t port) {
    const Vertex end = static_cast<Vertex>(graph.size() + port);
    std::vector<Vertex> wires{graph.outputs()[port].signal.node.index};
    ++search;
    while (!wires.empty()) {
      const Vertex wire = wires.back();
      wires.pop_back();
      if (seen[wire] == search || isLiteral(graph.nodes()[wire])) continue;
      seen[wire] = search;
      if (passesOn(graph, wire))
        for (const NodeId operand : graph.operands(NodeId{wire})) wires.push_back(operand.index);
      else if (graph.nodes()[wire].op != Op::kInput)
        require(wire, end, 1);
    }
  }

  const StageModel& model;
  const Graph& graph;
  const Windows& windows;
  const Readers readers;
  const int limit;
  StageRules rules;
  // One search at a time.
  std::vector<Ways> reached;
  std::vector<std::uint32_t> seen;  // by the number of the search
  std::uint32_t search = 0;
  std::priority_queue<Vertex, std::vector<Vertex>, std::greater<>> open;
};

// How late a vertex can stand, and what its stage still has to do from then on.
class Latest {
 public:
  Latest(const StageModel& model, const Request& request, const Schedule& earliest)
      : model(model), graph(model.graph), limit(request.period), readers(graph) {
    const std::size_t vertices = graph.size() + graph.outputs().size();
    cycles.assign(vertices, 0);
    tails.assign(vertices, kRegistered);
    for (std::size_t port = 0; port < graph.outputs().size(); ++port) {
      cycles[graph.size() + port] = earliest.cycleByOutput[port];
      const int tail = request.registerOutputs ? StageModel::kNever : model.setup;
      tails[graph.size() + port] = {tail, tail};
    }
    // What no output reads may stand behind them all.
    int latest = earliest.latency();
    for (const int cycle : earliest.cycleByNode) latest = std::max(latest, cycle);
    for (std::size_t set = model.loops.setCount(); set-- > 0;) {
      const auto members = model.loops.members(set);
      int last = StageModel::kNever;
      for (const NodeId id : members) {
        cycles[id.index] = latest;
        place(id.index, set);
        last = std::min(last, cycles[id.index]);
      }
      for (const NodeId id : members) cycles[id.index] = last;
      for (std::size_t i = members.size(); i-- > 0;)
        tails[members[i].index] =
            model.loops.isLoop(set) ? model.tail(members[i]) : tailOf(members[i].index);
    }
    // A state stands where its next value does.
    for (const graph::State& state : graph.states()) {
      const int last = std::min(cycles[state.node.index], cycles[state.next.index]);
      cycles[state.node.index] = cycles[state.next.index] = last;
    }
  }

  std::vector<int> cycles;

 private:
  static constexpr BitTimes kRegistered{};  // no stage ends behind

  // Readers in other sets stand already. What has to be done is never taken for more than it is.
  void place(Vertex v, std::size_t set) {
    const auto canShare = [&](Vertex reader) {
      const BitTimes behind = model.bits.before({v}, tailBehind(v, reader));
      return model.clockToOutput + behind.level <= limit;
    };
    for (const Vertex reader : readers.of(v)) {
      if (reader < graph.size() && model.loops.setOf({reader}) == set) continue;
      const bool shares = passesOn(graph, v) || (model.lag({v}) == 0 && canShare(reader));
      cycles[v] = std::min(cycles[v], cycles[reader] - (shares ? 0 : 1));
    }
  }

  BitTimes tailBehind(Vertex v, Vertex reader) const {
    return model.bits.seenBefore({v}, {reader}, tails[reader]);
  }

  // Of a vertex whose readers stand already. Each node but those inside a cluster has to be there
  // at the end of its stage.
  BitTimes tailOf(Vertex v) const {
    const bool isEnd = !passesOn(graph, v) && !model.cover.isInner({v});
    BitTimes behind = kRegistered;
    for (const Vertex reader : readers.of(v))
      if (cycles[reader] == cycles[v]) behind = later(behind, tailBehind(v, reader));
    BitTimes tail = model.bits.before({v}, behind);
    if (isEnd) tail = later(tail, model.tail({v}));
    return {std::min(tail.level, StageModel::kNever), std::min(tail.ramp, StageModel::kNever)};
  }

  const StageModel& model;
  const Graph& graph;
  const int limit;
  const Readers readers;
  // From the times of a vertex's operands to the end of its stage.
  std::vector<BitTimes> tails;
};

}  // namespace

Readers::Readers(const Graph& graph) : first(graph.size() + graph.outputs().size() + 1) {
  // Nodes are visited in order, so a reader that reads twice comes twice in a row.
  std::vector<Vertex> last(graph.size(), UINT32_MAX);
  const auto forEachRead = [&](const auto& visit) {
    std::ranges::fill(last, UINT32_MAX);
    for (Vertex v = 0; v < graph.size() + graph.outputs().size(); ++v) {
      const auto read = [&](NodeId operand) {
        if (isLiteral(graph.node(operand)) || last[operand.index] == v) return;
        last[operand.index] = v;
        visit(operand.index, v);
      };
      if (v >= graph.size())
        read(graph.outputs()[v - graph.size()].signal.node);
      else
        for (const NodeId operand : graph.operands(NodeId{v})) read(operand);
    }
  };
  forEachRead([&](Vertex driver, Vertex) { ++first[driver + 1]; });
  for (std::size_t v = 1; v < first.size(); ++v) first[v] += first[v - 1];
  readers.resize(first.back());
  std::vector<std::size_t> next(first.begin(), first.end() - 1);
  forEachRead([&](Vertex driver, Vertex reader) { readers[next[driver]++] = reader; });
}

int cycleOf(const Schedule& schedule, const Graph& graph, Vertex v) {
  return isPort(graph, v) ? schedule.cycleByOutput[v - graph.size()] : schedule.cycleByNode[v];
}

Windows windowsOf(const StageModel& model, const Request& request, const Schedule& earliest) {
  Windows windows;
  windows.first = earliest.cycleByNode;
  windows.first.insert(windows.first.end(), earliest.cycleByOutput.begin(),
                       earliest.cycleByOutput.end());
  windows.last = std::move(Latest(model, request, earliest).cycles);
  return windows;
}

bool SlowProduct::isMet(const Schedule& schedule, const Graph& graph) const {
  const int read = cycleOf(schedule, graph, reader);
  return read != cycleOf(schedule, graph, product) + registers ||
         cycleOf(schedule, graph, end) != read;
}

std::vector<Constraint> settled(const SlowProduct& slow, const Schedule& guide, const Graph& graph,
                                Settle way) {
  const auto& [product, reader, end, registers] = slow;
  const int apart = cycleOf(guide, graph, reader) - cycleOf(guide, graph, product);
  if (apart < registers) return {{reader, product, 1 - registers}};
  if (registers == 1) return {{product, reader, 1}, {product, end, 2}};
  const bool isReaderLater =
      slow.isMet(guide, graph) ? apart > registers : way == Settle::kReaderLater;
  if (isReaderLater) return {{product, reader, registers + 1}};
  return {{reader, end, 1}};
}

StageRules stageRules(const StageModel& model, const Request& request, const Windows& windows) {
  return PairFinder(model, request, windows).run(request.registerOutputs);
}

}  // namespace schedule
