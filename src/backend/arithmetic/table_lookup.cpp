#include "backend/arithmetic/table_lookup.h"

#include <algorithm>
#include <bit>

#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

double tablePrice(std::size_t rows, int width, const TablePrices& prices) {
  // Behind so many address bits, multiplexers take look-up tables, too.
  constexpr int kFreeInputs = 8;
  constexpr double kDeepShare = 1.35;
  if (width <= 0 || rows <= 1) return 0;
  const int indexWidth = std::bit_width(rows - 1);
  const double logic =
      std::max<double>(width, static_cast<double>(rows) * width * prices.lutPerBit *
                                  (indexWidth > kFreeInputs ? kDeepShare : 1));
  return std::min(logic,
                  graph::memoryBlocks(prices.memory, indexWidth, width) * prices.lutPerMemory);
}

Signal tableLookup(Builder& b, Signal index, std::span<const MPZ> rows, int width) {
  LOAM_ASSERT(!rows.empty() && rows.size() <= std::size_t{1} << index.width,
              "rows that an index reaches");
  if (rows.size() == 1 || width == 0) return b.literal(rows[0], width);
  // A row that no index reaches repeats one that differs in its highest address bits alone.
  const int used = std::bit_width(rows.size() - 1);
  std::vector<MPZ> all;
  for (std::size_t row = 0; row < std::size_t{1} << used; ++row)
    all.push_back(rows[row < rows.size() ? row : row - std::bit_floor(row)].lowBits(
        static_cast<unsigned long>(width)));
  return b.table(b.slice(index, 0, used), all, width);
}

}  // namespace arithmetic
