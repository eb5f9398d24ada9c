#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "backend/graph/builder.h"

namespace graph {

// Drawn graphs and inputs for tests. The same seed gives the same graph on every machine.
class RandomGraph {
 public:
  explicit RandomGraph(std::uint32_t seed) : engine(seed) {}

  struct Shape {
    int nodes = 60;     // operations drawn; folding and sharing leave fewer
    int maxWidth = 20;  // of any signal drawn, products and heaps apart
    int inputs = 5;
    int outputs = 3;
    // Each holds unless an input `valid` (the last one) is set, so that it waits for its first
    // inputs in a pipeline; each is read from where it is drawn on and takes what stands a few
    // nodes later, or any node at all.
    int states = 0;
    // Tables of more than six bits, and memory blocks, which only graphs without states may hold.
    bool tables = false, memories = false;
  };

  Graph make(const Shape& shape) {
    Graph graph;
    Builder b(graph);
    pool.clear();
    for (int i = 0; i < shape.inputs; ++i)
      pool.push_back(b.input(fmt::format("in{}", i), upTo(shape.maxWidth), i == 0));
    const int constant = upTo(1000);
    pool.push_back(b.literal(constant, upTo(shape.maxWidth)));
    const Signal valid = shape.states > 0 ? b.input("valid", 1, true) : Signal{};
    std::vector<OpenState> open;
    for (int i = 0; i < shape.nodes; ++i) {
      for (int state = 0; state < shape.states; ++state)
        if (state * shape.nodes / shape.states == i) open.push_back(openState(b, i, shape));
      closeStates(b, open, i, valid);
      const auto scope = b.scope(fmt::format("step{}", i % 7));
      const Signal made = b.name(operation(b, shape), fmt::format("n{}", i));
      if (made.width > 0) pool.push_back(b.slice(made, 0, std::min(made.width, shape.maxWidth)));
    }
    closeStates(b, open, shape.nodes + kLongestWay, valid);
    for (int i = 0; i < shape.outputs; ++i)
      b.output(fmt::format("out{}", i), pool[pool.size() - 1 - static_cast<std::size_t>(i)]);
    b.output("any", any());
    return graph;
  }

  // A pattern of `width` bits in which long runs of equal bits are as likely as mixed ones.
  util::MPZ pattern(int width) {
    util::MPZ value;
    const bool inRuns = upTo(2) == 1;
    bool bit = upTo(2) == 1;
    for (int i = 0; i < width; ++i) {
      if (!inRuns || upTo(6) == 1) bit = upTo(2) == 1;
      value = (value << 1) | util::MPZ(bit ? 1 : 0);
    }
    return value;
  }
  std::vector<util::MPZ> inputsOf(const Graph& graph) {
    std::vector<util::MPZ> patterns;
    for (const Port& port : graph.inputs()) patterns.push_back(pattern(port.signal.width));
    return patterns;
  }
  // A number from 1 to `limit`.
  int upTo(int limit) { return 1 + static_cast<int>(engine() % static_cast<unsigned>(limit)); }

 private:
  static constexpr int kLongestWay = 10;
  struct OpenState {
    Signal state;
    int closeAt;  // the node drawn from which on it takes a next value
  };
  OpenState openState(Builder& b, int node, const Shape& shape) {
    const int width = upTo(shape.maxWidth), way = upTo(kLongestWay);
    const Signal state = b.name(b.state(width, pattern(width)), fmt::format("s{}", node));
    pool.push_back(state);
    return {state, upTo(4) == 1 ? shape.nodes : node + way};
  }
  void closeStates(Builder& b, std::vector<OpenState>& open, int node, Signal valid) {
    std::erase_if(open, [&](const OpenState& o) {
      if (o.closeAt > node) return false;
      Signal next = ofWidth(b, o.state.width);
      // A constant would fold with the hold into logic that need not hold.
      if (b.isLiteral(next)) next = b.bitNot(o.state);
      b.setNext(o.state, b.select(valid, next, o.state));
      return true;
    });
  }

  Signal any() { return pool[static_cast<std::size_t>(upTo(static_cast<int>(pool.size()))) - 1]; }
  Signal recent() {
    const int window = std::min<int>(12, static_cast<int>(pool.size()));
    return upTo(3) == 1 ? any() : pool[pool.size() - static_cast<std::size_t>(upTo(window))];
  }
  Signal ofWidth(Builder& b, int width) {
    const Signal x = recent();
    return upTo(2) == 1 ? b.zeroExtend(x, width) : b.signExtend(x, width);
  }
  Signal bitFrom(Builder& b) {
    const Signal x = any();
    return b.bitOf(x, upTo(x.width) - 1);
  }

  std::vector<util::MPZ> rowsOf(int indexWidth, int width) {
    std::vector<util::MPZ> rows;
    for (int x = 0; x < 1 << indexWidth; ++x) rows.push_back(pattern(width));
    return rows;
  }

  Signal operation(Builder& b, const Shape& shape) {
    const int maxWidth = shape.maxWidth, width = upTo(maxWidth);
    // Drawn one by one: the order in which a call's arguments are drawn would be the compiler's.
    const Signal x = ofWidth(b, width), y = ofWidth(b, width), z = ofWidth(b, width);
    const Signal old = any(), fresh = recent(), bit = bitFrom(b);
    const int small = upTo(6);
    switch (upTo(shape.memories ? 23 : shape.tables ? 21 : 20)) {
      case 1:
        return b.bitNot(x);
      case 2:
        return b.bitAnd(x, y);
      case 3:
        return b.bitOr(x, y);
      case 4:
        return b.bitXor(x, y);
      case 5:
        return b.select(bit, x, y);
      case 6: {
        std::vector<Signal> choices{x, y};
        for (int i = upTo(20); i > 0; --i) choices.push_back(ofWidth(b, width));
        return b.pick(fresh, choices);
      }
      case 7:
        return b.reduceAnd(fresh);
      case 8:
        return b.reduceOr(fresh);
      case 9:
        return b.reduceXor(fresh);
      case 10:
        return b.lut(b.zeroExtend(old, small), pattern(width << small), width);
      case 11:
      case 12:
        return b.addCarry(x, y, bit);
      case 13:
        return b.addThree(x, y, z, bit);
      case 14:
        return b.equal(x, y);
      case 15:
        return b.less(x, y);
      case 16:
        return b.lessSigned(x, y);
      case 17:
        return b.multiply(old, fresh);
      case 18:
        return b.multiplySigned(old, fresh);
      case 19:
        return b.concat({old, b.literal(width, small), fresh});
      case 21:
        return b.table(b.zeroExtend(fresh, 6 + small / 2), rowsOf(6 + small / 2, width), width);
      case 22:
      case 23:
        return b.memory(b.zeroExtend(fresh, small), rowsOf(small, width), width);
      default: {
        std::vector<HeapTerm> terms;
        for (int i = upTo(7); i >= 0; --i) terms.push_back({recent(), upTo(maxWidth) - 1});
        return b.heap(terms, width);
      }
    }
  }

  std::mt19937 engine;
  std::vector<Signal> pool;
};

}  // namespace graph
