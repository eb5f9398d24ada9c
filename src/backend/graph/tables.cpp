// The tables of a builder, and what folds of them.

#include <algorithm>
#include <bit>
#include <map>
#include <optional>

#include "backend/graph/builder.h"
#include "util/failure.h"

namespace graph {

using util::MPZ;

namespace {

constexpr int kLutInputs = 6;
constexpr int kWordBits = 64;

// One bit of all rows, as words: bit x of the column is that of row x.
using Column = std::vector<std::uint64_t>;

bool valueAt(const Column& column, std::size_t x) {
  return (column[x / kWordBits] >> (x % kWordBits)) & 1;
}

// In words, the bits whose number has a zero in place 0, 1, ...
constexpr std::uint64_t kWithoutBit[] = {0x5555555555555555, 0x3333333333333333,
                                         0x0F0F0F0F0F0F0F0F, 0x00FF00FF00FF00FF,
                                         0x0000FFFF0000FFFF, 0x00000000FFFFFFFF};

bool dependsOn(const Column& column, int position) {
  if (position < kLutInputs) {
    const std::uint64_t low = kWithoutBit[position];
    return std::ranges::any_of(column, [&](std::uint64_t word) {
      return ((word ^ (word >> (1u << position))) & low) != 0;
    });
  }
  const std::size_t distance = std::size_t{1} << (position - kLutInputs);
  for (std::size_t i = 0; i < column.size(); ++i)
    if ((i & distance) == 0 && column[i] != column[i + distance]) return true;
  return false;
}

// The positions of the index that a column depends on, a bit for each.
std::uint32_t supportOf(const Column& column, int indexWidth) {
  std::uint32_t support = 0;
  for (int position = 0; position < indexWidth; ++position)
    if (dependsOn(column, position)) support |= 1u << position;
  return support;
}

// The index whose bits at `positions` are the bits of `packed`, all others zero.
std::size_t spread(std::size_t packed, std::uint32_t positions) {
  std::size_t index = 0;
  for (; positions != 0; positions &= positions - 1, packed >>= 1)
    if (packed & 1) index |= std::size_t{1} << std::countr_zero(positions);
  return index;
}

std::vector<Column> columnsOf(std::span<const MPZ> rows, int width) {
  std::vector<Column> columns(static_cast<std::size_t>(width));
  for (std::size_t bit = 0; bit < columns.size(); ++bit) {
    columns[bit].resize((rows.size() + kWordBits - 1) / kWordBits);
    for (std::size_t x = 0; x < rows.size(); ++x)
      if (rows[x].bit(bit)) columns[bit][x / kWordBits] |= std::uint64_t{1} << (x % kWordBits);
  }
  return columns;
}

// Rows with the bits of those columns, the lowest first, for the indices over `support`.
std::vector<MPZ> rowsOf(const std::vector<const Column*>& columns, std::uint32_t support) {
  std::vector<MPZ> rows(std::size_t{1} << std::popcount(support));
  for (std::size_t packed = 0; packed < rows.size(); ++packed) {
    const std::size_t x = spread(packed, support);
    for (std::size_t bit = 0; bit < columns.size(); ++bit)
      if (valueAt(*columns[bit], x)) mpz_setbit(rows[packed].get(), bit);
  }
  return rows;
}

std::size_t hashOf(std::span<const MPZ> rows) {
  std::size_t hash = rows.size();
  for (const MPZ& row : rows)
    for (std::size_t i = 0; i < std::max<std::size_t>(mpz_size(row.get()), 1); ++i)
      hash = (hash ^ (hash >> 29) ^ mpz_getlimbn(row.get(), static_cast<mp_size_t>(i))) *
             0xBF58476D1CE4E5B9u;
  return hash;
}

}  // namespace

std::uint32_t Builder::tableIndex(std::span<const MPZ> rows) {
  std::vector<std::uint32_t>& alike = tablesByHash[hashOf(rows)];
  for (const std::uint32_t index : alike)
    if (std::ranges::equal(graph.tables[index], rows)) return index;
  alike.push_back(static_cast<std::uint32_t>(graph.tables.size()));
  graph.tables.emplace_back(rows.begin(), rows.end());
  return alike.back();
}

Signal Builder::bitsAt(Signal x, std::uint32_t positions) {
  if (positions == (1u << x.width) - 1) return x;
  std::vector<Signal> bits;
  for (int position = x.width; position-- > 0;)
    if (positions >> position & 1) bits.push_back(bitOf(x, position));
  return concat(bits);
}

Signal Builder::memory(Signal index, std::span<const MPZ> rows, int width) {
  LOAM_ASSERT(index.width <= kWidestIndex && rows.size() == std::size_t{1} << index.width,
              "a table has a row for each index");
  if (isLiteral(index)) return literal(rows[valueOf(index).toUint64()], width);
  return make(Op::kMemory, width, {index}, tableIndex(rows));
}

// An index that holds literals, or a bit twice, reaches a part of the rows only. Of the columns
// that are left, those that need a table share one.
Signal Builder::table(Signal index, std::span<const MPZ> rows, int width) {
  LOAM_ASSERT(index.width <= kWidestIndex && rows.size() == std::size_t{1} << index.width,
              "a table has a row for each index");
  if (isLiteral(index)) return literal(rows[valueOf(index).toUint64()], width);

  const Op source = graph.node(index.node).op;
  if (source == Op::kConcat || source == Op::kReplicate) {
    std::size_t fixed = 0;
    std::uint32_t free = 0;
    std::map<NodeId, std::size_t> masks;  // of the places where a bit stands
    std::vector<std::size_t> places;      // the same by free bit, the lowest first
    for (int position = 0; position < index.width; ++position) {
      const Signal bit = bitOf(index, position);
      if (isLiteral(bit)) {
        if (!valueOf(bit).isZero()) fixed |= std::size_t{1} << position;
        continue;
      }
      if (masks[bit.node] == 0) free |= 1u << position;
      masks[bit.node] |= std::size_t{1} << position;
    }
    if (std::popcount(free) < index.width) {
      for (int position = 0; position < index.width; ++position)
        if (free >> position & 1) places.push_back(masks[bitOf(index, position).node]);
      std::vector<MPZ> reached(std::size_t{1} << places.size());
      for (std::size_t x = 0; x < reached.size(); ++x) {
        std::size_t row = fixed;
        for (std::size_t bit = 0; bit < places.size(); ++bit)
          if (x >> bit & 1) row |= places[bit];
        reached[x] = rows[row];
      }
      return table(bitsAt(index, free), reached, width);
    }
  }

  const std::vector<Column> columns = columnsOf(rows, width);
  std::vector<Signal> bits(columns.size());               // the lowest first
  std::map<std::uint32_t, std::vector<std::size_t>> few;  // columns of a small table, by support
  std::vector<std::size_t> many;
  std::uint32_t supportOfMany = 0;
  std::map<Column, std::size_t> first;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!first.emplace(columns[i], i).second) continue;
    const std::uint32_t support = supportOf(columns[i], index.width);
    const int inputs = std::popcount(support);
    if (inputs == 0) {
      bits[i] = bit(valueAt(columns[i], 0));
    } else if (inputs == 1) {
      const Signal input = bitOf(index, std::countr_zero(support));
      bits[i] = valueAt(columns[i], 0) ? bitNot(input) : input;
    } else if (inputs <= kLutInputs) {
      few[support].push_back(i);
    } else {
      many.push_back(i);
      supportOfMany |= support;
    }
  }
  const auto made = [&](const std::vector<std::size_t>& group, std::uint32_t support,
                        const auto& make) {
    std::vector<const Column*> wanted;
    for (const std::size_t i : group) wanted.push_back(&columns[i]);
    const Signal together =
        make(bitsAt(index, support), rowsOf(wanted, support), static_cast<int>(group.size()));
    for (std::size_t i = 0; i < group.size(); ++i)
      bits[group[i]] = bitOf(together, static_cast<int>(i));
  };
  for (const auto& [support, group] : few)
    made(group, support, [&](Signal x, const std::vector<MPZ>& part, int partWidth) {
      MPZ contents;
      for (std::size_t row = part.size(); row-- > 0;)
        contents = (contents << static_cast<unsigned long>(partWidth)) | part[row];
      return lut(x, contents, partWidth);
    });
  if (!many.empty())
    made(many, supportOfMany, [&](Signal x, const std::vector<MPZ>& part, int partWidth) {
      return make(Op::kTable, partWidth, {x}, tableIndex(part));
    });
  std::vector<Signal> topFirst;
  for (std::size_t i = columns.size(); i-- > 0;) topFirst.push_back(bits[first.at(columns[i])]);
  return concat(topFirst);
}

}  // namespace graph
