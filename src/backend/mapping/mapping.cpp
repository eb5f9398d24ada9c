#include "backend/mapping/mapping.h"

#include <vector>

#include "backend/graph/loops.h"
#include "backend/mapping/cutting.h"
#include "backend/mapping/heap_lowering.h"
#include "backend/mapping/product_tiling.h"
#include "backend/mapping/rebuild.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::HeapTerm;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

Graph mapGraph(const Graph& graph, const device::Device& device, const MappingOptions& options) {
  const Rewrite lowerSums = [&](Builder& b, const Graph& from, NodeId id,
                                std::span<const Signal> operands) -> Signal {
    const Node& node = from.node(id);
    if (node.op == Op::kMultiply || node.op == Op::kMultiplySigned)
      return lowerProduct(b, device, options, operands[0], operands[1],
                          node.op == Op::kMultiplySigned);
    if (node.op != Op::kHeap) return {};
    std::vector<HeapTerm> terms;
    for (std::size_t i = 0; i < operands.size(); ++i)
      terms.push_back({operands[i], static_cast<int>(from.shifts(node)[i])});
    return lowerHeap(b, device, options, terms, node.width);
  };
  const Rewrite keep = [](Builder&, const Graph&, NodeId, std::span<const Signal>) -> Signal {
    return {};
  };
  Graph mapped = rebuilt(graph, lowerSums);
  // After lowering, which makes additions of its own.
  if (!options.combinational) {
    // Pieces of what stands in a loop would share its stage, where they take longer than the whole.
    const graph::Loops loops(mapped);
    mapped = rebuilt(
        mapped,
        [&](Builder& b, const Graph& from, NodeId id, std::span<const Signal> operands) -> Signal {
          if (loops.isInLoop(id)) return {};
          return cutToFit(b, from, id, operands, device, options);
        });
  }
  // Last: folding and tried-out nodes leave some without readers.
  return rebuilt(mapped, keep);
}

}  // namespace mapping
