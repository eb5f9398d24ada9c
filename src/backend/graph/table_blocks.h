#pragma once

#include <algorithm>

namespace graph {

// The widest word of one memory block and how many of them it holds. Half the width holds twice as
// many.
struct MemoryShape {
  int width = 0;
  int depth = 0;
};

// How many blocks hold a table of 2^indexWidth words of `width` bits. Two blocks side by side can
// be one of twice the depth, which keeps the width that a single deep one may lose by rounding.
constexpr int memoryBlocks(MemoryShape shape, int indexWidth, int width) {
  int halvings = 0;
  while ((long{shape.depth} << halvings) < (1L << indexWidth)) ++halvings;
  const int single = shape.width >> std::min(halvings, 30);
  const int pair = halvings == 0 ? 2 * shape.width : shape.width >> std::min(halvings - 1, 30);
  if (pair == 0) return 2 * memoryBlocks(shape, indexWidth - 1, width);
  int fewest = 2 * ((width + pair - 1) / pair);
  for (int pairs = 0; single > 0 && pairs * pair < width; ++pairs)
    fewest = std::min(fewest, 2 * pairs + (width - pairs * pair + single - 1) / single);
  return fewest;
}

}  // namespace graph
