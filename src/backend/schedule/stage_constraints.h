#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "backend/schedule/greedy_scheduler.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// Numbers of the things that have a cycle: first the nodes of the graph, then its output ports.
using Vertex = std::uint32_t;

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

// What keeps stages within the period, beside the order of operands and readers and the windows:
// together they are sufficient, and necessary but for one choice. A product that may share a stage
// with its reader, or else leave its block slowly from the register inside, does what it does in
// `earliest`, which therefore meets all constraints.
//
// Two nodes must stand a cycle apart when the way from the registers before the first to the end
// of the second exceeds the period (Leiserson and Saxe, Algorithmica 1991). Of these pairs only
// those are given that no other pair and no window implies.
std::vector<Constraint> stageConstraints(const StageModel& model, const Request& request,
                                         const Schedule& earliest, const Windows& windows);

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
