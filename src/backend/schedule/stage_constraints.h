#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// Numbers of the things that have a cycle: first the nodes of the graph, then its output ports.
using Vertex = std::uint32_t;

int cycleOf(const Schedule& schedule, const graph::Graph& graph, Vertex v);

// cycle(to) >= cycle(from) + cycles.
struct Constraint {
  Vertex from, to;
  int cycles;
};

// The first and the last cycle in which each vertex can stand.
struct Windows {
  std::vector<int> first, last;
};

// The windows of all schedules in which no vertex stands before its cycle in `earliest`, a valid
// schedule, and the outputs show their results as they do there.
Windows windowsOf(const StageModel& model, const Request& request, const Schedule& earliest);

// A product is slow to leave its block behind `registers` = 1 or 2 registers: `end` must not stand
// in the cycle of `reader`, a reader of the product, when that is the product's plus `registers`.
struct SlowProduct {
  Vertex product, reader, end;
  int registers;

  bool isMet(const Schedule& schedule, const graph::Graph& graph) const;
};

// Constraints that make `slow` met. A guide that meets it keeps them; for one that does not, which
// of the two goes to a later cycle.
enum class Settle { kEndLater, kReaderLater };
std::vector<Constraint> settled(const SlowProduct& slow, const Schedule& guide,
                                const graph::Graph& graph, Settle way);

// What keeps stages within the period, beside the order of operands and readers and the windows:
// all together necessary and sufficient.
struct StageRules {
  std::vector<Constraint> constraints;
  std::vector<SlowProduct> slowProducts;
};

// Two nodes must stand a cycle apart when the way from the registers before the first to the end
// of the second exceeds the period (Leiserson and Saxe, Algorithmica 1991). Of these pairs only
// those are given that no other pair and no window implies.
StageRules stageRules(const StageModel& model, const Request& request, const Windows& windows);

// Who reads each vertex: readers of vertex v stand in [first[v], first[v + 1]), each once.
struct Readers {
  explicit Readers(const graph::Graph& graph);
  std::span<const Vertex> of(Vertex v) const {
    return std::span(readers).subspan(first[v], first[v + 1] - first[v]);
  }

 private:
  std::vector<std::size_t> first;
  std::vector<Vertex> readers;
};

}  // namespace schedule
