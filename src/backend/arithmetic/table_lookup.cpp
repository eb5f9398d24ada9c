#include "backend/arithmetic/table_lookup.h"

#include <algorithm>
#include <cmath>

#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

namespace {

constexpr int kLutInputs = 6;

// A table of whole columns: tables of six address bits, and a pick among them by the bits above.
Signal wholeTable(Builder& b, Signal index, std::span<const MPZ> rows, int width) {
  const int low = std::min(kLutInputs, index.width);
  const std::size_t each = std::size_t{1} << low;
  std::vector<Signal> parts;
  for (std::size_t first = 0; first < rows.size(); first += each) {
    MPZ contents;
    for (std::size_t i = std::min(each, rows.size() - first); i-- > 0;) {
      contents <<= static_cast<unsigned long>(width);
      contents += rows[first + i].lowBits(static_cast<unsigned long>(width));
    }
    parts.push_back(b.lut(b.slice(index, 0, low), contents, width));
  }
  if (parts.size() == 1) return parts[0];
  return b.pick(b.slice(index, low, index.width - low), parts);
}

}  // namespace

double tablePrice(std::size_t rows, int width, const TablePrices& prices) {
  if (width <= 0 || rows <= 1) return 0;
  const double lutRows = std::ldexp(1.0, prices.lutInputs);
  const double count = static_cast<double>(rows);
  const double logic = width * std::max(1.0, count * prices.lutPerBit * 64 / lutRows);
  if (prices.lutPerMemory <= 0) return logic;
  // A block may be half as deep and twice as wide, and so on down to twice its width.
  double blocks = std::ceil(width / static_cast<double>(prices.memoryWidth)) *
                  std::ceil(count / prices.memoryDepth);
  blocks = std::min(blocks, std::ceil(width / (2.0 * prices.memoryWidth)) *
                                std::ceil(2 * count / prices.memoryDepth));
  return std::min(logic, blocks * prices.lutPerMemory);
}

Signal tableLookup(Builder& b, Signal index, std::span<const MPZ> rows, int width) {
  LOAM_ASSERT(!rows.empty() && rows.size() <= std::size_t{1} << index.width,
              "rows that an index reaches");
  if (rows.size() == 1 || width == 0) return b.literal(rows[0], width);
  std::vector<MPZ> columns;  // bit by row
  for (int position = 0; position < width; ++position) {
    MPZ column;
    for (std::size_t row = 0; row < rows.size(); ++row)
      if (rows[row].bit(static_cast<unsigned long>(position))) mpz_setbit(column.get(), row);
    columns.push_back(std::move(column));
  }
  const MPZ all = MPZ::allOnes(rows.size());
  const auto isConstant = [&](const MPZ& column) { return column.isZero() || column == all; };
  // The columns that the table holds; where each of the result's stands among them.
  std::vector<int> kept, place;
  for (int position = 0; position < width; ++position) {
    const MPZ& column = columns[static_cast<std::size_t>(position)];
    if (isConstant(column)) {
      place.push_back(-1);
      continue;
    }
    const auto same = std::ranges::find_if(
        kept, [&](int other) { return columns[static_cast<std::size_t>(other)] == column; });
    place.push_back(static_cast<int>(same - kept.begin()));
    if (same == kept.end()) kept.push_back(position);
  }
  Signal table;
  if (!kept.empty()) {
    std::vector<MPZ> narrow(rows.size());
    for (std::size_t row = 0; row < rows.size(); ++row)
      for (std::size_t i = 0; i < kept.size(); ++i)
        if (rows[row].bit(static_cast<unsigned long>(kept[i]))) mpz_setbit(narrow[row].get(), i);
    table = wholeTable(b, index, narrow, static_cast<int>(kept.size()));
  }
  std::vector<Signal> topFirst;
  for (int position = width; position-- > 0;) {
    const int at = place[static_cast<std::size_t>(position)];
    topFirst.push_back(at < 0 ? b.bit(!columns[static_cast<std::size_t>(position)].isZero())
                              : b.bitOf(table, at));
  }
  return b.concat(topFirst);
}

}  // namespace arithmetic
