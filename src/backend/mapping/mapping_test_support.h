#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "backend/device/families.h"
#include "backend/graph/builder.h"
#include "backend/graph/evaluator.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::Op;
using graph::Signal;
using util::MPZ;

inline const device::Device& deviceOf(const std::string& family) {
  return *device::deviceFactory.GetDevice(family, "", "fast", "", "");
}
inline const device::Device& tarn() {
  static const device::Device& made = deviceOf("TarnV");
  return made;
}

inline int countOf(const Graph& graph, Op op) {
  return static_cast<int>(std::ranges::count(graph.nodes(), op, &graph::Node::op));
}

}  // namespace mapping
