#pragma once

#include <algorithm>
#include <vector>

#include "backend/device/cover.h"
#include "backend/device/device.h"
#include "backend/graph/graph.h"

namespace device {

// When the bits of a word are there, in ps: all by `level`, but for those that a carry chain brings
// one after another, the last of them by `ramp` and each one below earlier by what the chain takes
// for a bit. Which bit is the last one is fixed by the graph (BitSteps).
struct BitTimes {
  static constexpr int kNone = -(1 << 28);

  int level = kNone;
  int ramp = kNone;

  // When the whole word is there.
  int last() const { return std::max(level, ramp); }
  BitTimes flat() const { return {last(), kNone}; }
  BitTimes delayed(int delay) const { return {plus(level, delay), plus(ramp, delay)}; }
  static int plus(int a, int b) { return std::max(kNone, a + b); }
  friend BitTimes later(const BitTimes& a, const BitTimes& b) {
    return {std::max(a.level, b.level), std::max(a.ramp, b.ramp)};
  }
};

// A step from the times of operands to those of the result: a matrix where `+` is the later time
// and `*` the sum of delays. Steps along a path multiply, those of several paths add up, so a
// stage's time is the longest of all paths through it.
struct BitStep {
  int levelToLevel = BitTimes::kNone;
  int rampToLevel = BitTimes::kNone;
  int levelToRamp = BitTimes::kNone;
  int rampToRamp = BitTimes::kNone;

  BitTimes operator()(const BitTimes& in) const {
    return {std::max(BitTimes::plus(in.level, levelToLevel), BitTimes::plus(in.ramp, rampToLevel)),
            std::max(BitTimes::plus(in.level, levelToRamp), BitTimes::plus(in.ramp, rampToRamp))};
  }
  // From the operands to the end of a stage, when `tail` is what the result's times have before
  // them.
  BitTimes before(const BitTimes& tail) const {
    return {
        std::max(BitTimes::plus(levelToLevel, tail.level), BitTimes::plus(levelToRamp, tail.ramp)),
        std::max(BitTimes::plus(rampToLevel, tail.level), BitTimes::plus(rampToRamp, tail.ramp))};
  }
};

// The steps of all nodes of a graph, with the delays that their clusters have. Sums one behind the
// other overlap: a carry runs through the second one while it still runs through the first, and so
// does one of a comparison behind a sum. No word is later than if each node waited for its operands
// whole. The low bits of a sum by themselves count as late as the sum: table mappers do not know
// that they come early, and make of what a schedule puts behind them more tables than that saves
// registers. Linear in nodes and operands.
class BitSteps {
 public:
  BitSteps(const graph::Graph& graph, const Device& device, const Cover& cover);

  // The times of a node's operand, as `reader` takes them.
  BitTimes seen(graph::NodeId node, graph::NodeId reader, const BitTimes& times) const {
    return isFlattened(node, reader) ? times.flat() : times;
  }
  BitTimes through(graph::NodeId node, const BitTimes& operands) const {
    return steps[node.index](operands);
  }
  // The same backwards: of what is before the reader's operands, what is before this node's result;
  // and before its operands.
  BitTimes seenBefore(graph::NodeId node, graph::NodeId reader, const BitTimes& tail) const {
    return isFlattened(node, reader) ? BitTimes{tail.level, tail.level} : tail;
  }
  BitTimes before(graph::NodeId node, const BitTimes& tail) const {
    return steps[node.index].before(tail);
  }

 private:
  static constexpr int kNoRamp = -1;

  bool isFlattened(graph::NodeId node, graph::NodeId reader) const {
    return reader.index < graph.size() &&
           firstFlattened[reader.index] < firstFlattenedEnd(reader) && isListed(node, reader);
  }
  std::size_t firstFlattenedEnd(graph::NodeId reader) const {
    return reader.index + 1 < firstFlattened.size() ? firstFlattened[reader.index + 1]
                                                    : flattened.size();
  }
  bool isListed(graph::NodeId node, graph::NodeId reader) const;
  void flattenOperands(graph::NodeId node);
  int topOfOperands(graph::NodeId node) const;
  void add(graph::NodeId node);

  const graph::Graph& graph;
  const Device& device;
  const Cover& cover;
  std::vector<BitStep> steps;  // indexed by NodeId::index, as are all
  std::vector<int> tops;       // the bit that comes at `ramp`, and all above it at the latest
  // Operands whose readers wait for the whole word: of reader v from firstFlattened[v] on.
  std::vector<std::size_t> firstFlattened;
  std::vector<graph::NodeId> flattened;
};

}  // namespace device
