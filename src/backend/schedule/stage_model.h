#pragma once

#include <limits>
#include <vector>

#include "backend/device/bit_times.h"
#include "backend/device/cover.h"
#include "backend/device/device.h"
#include "backend/graph/graph.h"
#include "backend/graph/loops.h"
#include "backend/schedule/schedule.h"

namespace schedule {

bool isWiring(const graph::Node& node);
// Cycles from a node to all that reads it, at the least: 1 behind a memory block, which has no way
// past its register.
inline int readLag(const graph::Node& node) { return node.op == graph::Op::kMemory ? 1 : 0; }
bool isLiteral(const graph::Node& node);

// What the strategies ask about one graph on one device, in ps, looked up once.
//
// A stage begins at a register with the clock to output of what the register holds, passes clusters
// (device/cover.h) with their delays, the carries of neighbouring ones at the same time
// (device/bit_times.h), and ends at the next register with its setup. A cluster stands
// in one cycle; its delay is that of its root, the nodes inside have none. A product may have its
// first register inside its block: that one comes early and is slow to leave. A memory block always
// has it, so that its readers, wiring too, stand behind its cycle. What a state takes next ends its
// stage at the state's register, which is never one inside a block.
class StageModel {
 public:
  // Clusters are made for stages of that period.
  StageModel(const graph::Graph& graph, const device::Device& device, device::Picoseconds period);

  // The latest that a stage can be used before its end.
  static constexpr int kNever = std::numeric_limits<int>::max() / 2;

  const graph::Graph& graph;
  const device::Device& device;
  const int clockToOutput;
  const int setup;
  const device::Cover cover;
  const device::BitSteps bits;
  const graph::Loops loops;          // and clusters, which are placed as one as well
  std::vector<int> delay;            // by node, to a reader in the same stage
  std::vector<int> delayToRegister;  // to a register right behind
  // What the register behind a node takes beyond `setup`, as a product's block may take it in.
  std::vector<int> laterSetup;

  // From the clock to a node's result behind `registers` >= 1 registers.
  int fromRegister(graph::NodeId node, int registers) const {
    return device.clockToOutput(graph, node, registers).value;
  }
  bool isBlock(graph::NodeId node) const {
    return delay[node.index] != delayToRegister[node.index];
  }
  // Cycles from a node to its readers at the least.
  int lag(graph::NodeId node) const { return readLag(graph.node(node)); }
  // What a stage begins with behind a register.
  device::BitTimes start() const { return {.level = clockToOutput}; }
  // When a register behind the node can take it.
  int end(graph::NodeId node, const device::BitTimes& operands) const {
    return isBlock(node) && !isNext(node)
               ? operands.last() + delayToRegister[node.index]
               : bits.through(node, operands).last() + laterSetup[node.index];
  }
  // From the times of the operands to the end of a stage at that register, setup included.
  device::BitTimes tail(graph::NodeId node) const {
    const int own = delayToRegister[node.index] + setup;
    const int before = setup + laterSetup[node.index];
    return isBlock(node) && !isNext(node) ? device::BitTimes{own, own}
                                          : bits.before(node, {before, before});
  }
  // True for what some state takes next.
  bool isNext(graph::NodeId node) const { return isNextByNode[node.index]; }
  // The time of a stage that holds this node alone.
  int aloneStage(graph::NodeId node) const;

 private:
  void findLaterSetups(int period);

  std::vector<bool> isNextByNode;
};

// "add 32": how messages and reports call a node.
std::string stepName(const graph::Graph& graph, graph::NodeId node);

}  // namespace schedule
