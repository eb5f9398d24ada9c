#include "backend/arithmetic/square.h"

#include <algorithm>

namespace arithmetic {

std::vector<graph::HeapTerm> foldedSquare(graph::Builder& builder, graph::Signal x, int longSide,
                                          int shortSide) {
  std::vector<graph::HeapTerm> terms;
  for (int low = 0; low < x.width; low += shortSide) {
    const int above = std::min(low + shortSide, x.width);
    const graph::Signal limb = builder.slice(x, low, above - low);
    terms.push_back({builder.multiply(limb, limb), 2 * low});
    for (int tile = above; tile < x.width; tile += longSide) {
      const graph::Signal other = builder.slice(x, tile, std::min(longSide, x.width - tile));
      terms.push_back({builder.multiply(other, limb), low + tile + 1});
    }
  }
  return terms;
}

}  // namespace arithmetic
