#pragma once

#include <vector>

#include "backend/device/bit_times.h"
#include "backend/device/cover.h"
#include "backend/device/device.h"
#include "backend/graph/graph.h"

namespace mapping {

// When a result is there: in that stage, in ps from its start.
struct Arrival {
  int cycle = 0;
  int time = 0;
};

// The earliest stage of every node and its arrival there, all inputs and states coming from
// registers in stage 0: the estimate by which sums are shaped. It places clusters as the earliest
// schedule does, but for loops, which it does not know. Linear in nodes and operands.
class Arrivals {
 public:
  Arrivals(const graph::Graph& graph, const device::Device& device, device::Picoseconds period);

  // kNever as the time of a result that only a register can take.
  static constexpr int kNever = 1 << 28;
  Arrival of(graph::NodeId node) const {
    return {places[node.index].cycle, places[node.index].times.last()};
  }
  // The time in a stage `cycle`, not before the node's own.
  int timeIn(graph::NodeId node, int cycle) const { return timesIn(node, cycle).last(); }
  const device::Cover& clusters() const { return cover; }

 private:
  bool isBlock(graph::NodeId node) const {
    return cover.delay(node) != cover.delayToRegister(node);
  }
  device::BitTimes timesIn(graph::NodeId node, int cycle) const;
  device::BitTimes timesOfOperands(graph::NodeId node, int cycle) const;
  void place(graph::NodeId node);

  const graph::Graph& graph;
  const device::Device& device;
  const device::Cover cover;
  const int latest;  // end of a stage before the register's setup
  struct Place {
    int cycle = 0;
    device::BitTimes times{.level = 0};
  };
  const device::BitSteps bits;
  std::vector<Place> places;
  std::vector<device::BitTimes> inside;  // of a cluster, from the register before it to here
  // The last product that is seen here through wiring alone; the node itself where there is none.
  std::vector<graph::NodeId> blocks;
};

}  // namespace mapping
