#include "backend/approximation/multipartite_table.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

namespace approximation {

using util::MPZ;

namespace {

constexpr int kFractionBits = 24;  // of a value, below the result's last place
constexpr int kMostGroups = 3;
constexpr int kMostGuardBits = 4;
constexpr int kMostValueBits = 38;  // of a result, so that sums of values fit 64 bits

int bitsOf(std::int64_t low, std::int64_t high) {
  const int above = high < 0 ? 0 : std::bit_width(static_cast<std::uint64_t>(high));
  if (low >= 0) return above;
  return std::max(above, static_cast<int>(std::bit_width(static_cast<std::uint64_t>(-(low + 1))))) +
         1;
}

// Every value of f, as value <= f 2^fraction <= value + radius.
struct Tabulated {
  std::vector<std::int64_t> values;
  std::int64_t radius = 0;
  int fraction = 0;
};

util::Result<Tabulated> tabulate(const Function& f, const ArgumentFormat& argument, int lsb) {
  Tabulated all;
  all.fraction = kFractionBits - lsb;
  const auto precision = static_cast<mpfr_prec_t>(128 + std::max(0, all.fraction));
  for (unsigned long x = 0; x < 1ul << argument.bits; ++x) {
    const auto value = f.value(Interval(argument.first + MPZ(x), argument.lsb, precision));
    if (!value)
      return util::Failure{"\"" + f.text() + "\" has no value at " +
                           (argument.first + MPZ(x)).toText(10) + " * 2^" +
                           std::to_string(argument.lsb)};
    const MPZ low = value->lowFixed(all.fraction), high = value->highFixed(all.fraction);
    if (std::max(low.bitLength(), high.bitLength()) > kMostValueBits + kFractionBits)
      return util::Failure{"\"" + f.text() + "\" has values too large for a table"};
    all.values.push_back(mpz_get_si(low.get()));
    all.radius = std::max(all.radius, static_cast<std::int64_t>(mpz_get_si((high - low).get())));
  }
  return all;
}

// How the bits of X are shared: the groups from the highest one down.
struct Layout {
  int valueBits = 0;
  std::vector<int> bits, addressBits;
  double price = 0;
};

class Search {
 public:
  Search(Tabulated all, const ArgumentFormat& argument, int lsb, double promise,
         const TableCost& cost)
      : all(std::move(all)), argument(argument), lsb(lsb), promise(promise), cost(cost) {
    const auto [low, high] = std::ranges::minmax(this->all.values);
    resultBits = bitsOf(low >> kFractionBits, (high >> kFractionBits) + 1);
    // The greatest slope, for an estimate of the differences' widths.
    for (std::size_t x = 1; x < this->all.values.size(); ++x)
      steepest = std::max(
          steepest,
          std::abs(std::ldexp(static_cast<double>(this->all.values[x] - this->all.values[x - 1]),
                              -kFractionBits)));
  }

  MultipartiteTable run() {
    layouts.push_back(priced({argument.bits, {}, {}, 0}));
    if (promise > 0.5)
      for (int groups = 1; groups <= kMostGroups; ++groups)
        for (int low = groups; low < argument.bits; ++low)
          addLayouts({argument.bits - low, {}, {}, 0}, low, groups);
    std::ranges::stable_sort(layouts, {}, &Layout::price);
    std::optional<MultipartiteTable> best;
    double lowest = std::numeric_limits<double>::infinity();
    for (const Layout& layout : layouts) {
      // Estimates hold fewer guard bits than a table may need, so none is too high.
      if (layout.price >= lowest) break;
      for (int guard = layout.bits.empty() ? 0 : 1; guard <= kMostGuardBits; ++guard) {
        auto table = build(layout, guard);
        if (!table) {
          if (layout.bits.empty()) break;
          continue;
        }
        const double price = cost(sizesOf(*table), table->sumBits());
        if (price < lowest) lowest = price, best = std::move(table);
        break;
      }
    }
    LOAM_ASSERT(best, "a plain table rounds to nearest");
    return std::move(*best);
  }

 private:
  static std::vector<TableSize> sizesOf(const MultipartiteTable& table) {
    std::vector<TableSize> sizes{{table.values.size(), table.sumBits()}};
    for (const auto& group : table.groups) sizes.push_back({group.rows.size(), group.width()});
    return sizes;
  }

  // All ways to share `low` bits among `groups` more groups.
  void addLayouts(Layout layout, int low, int groups) {
    if (groups == 0) {
      if (low == 0) layouts.push_back(priced(std::move(layout)));
      return;
    }
    for (int bits = groups == 1 ? low : 1; bits <= low - groups + 1; ++bits) {
      // Lower groups move the value less, so they need not know more of the slope.
      const int most =
          std::min(layout.valueBits,
                   layout.addressBits.empty() ? layout.valueBits : layout.addressBits.back());
      for (int address = 1; address <= most; ++address) {
        Layout next = layout;
        next.bits.push_back(bits);
        next.addressBits.push_back(address);
        addLayouts(std::move(next), low - bits, groups - 1);
      }
    }
  }

  Layout priced(Layout layout) const {
    const int guard = layout.bits.empty() ? 0 : 1;
    std::vector<TableSize> sizes{{std::size_t{1} << layout.valueBits, resultBits + guard}};
    int low = argument.bits - layout.valueBits;
    for (std::size_t i = 0; i < layout.bits.size(); ++i) {
      const double most = steepest * std::ldexp(0.5, low + guard);
      sizes.push_back({std::size_t{1} << (layout.addressBits[i] + layout.bits[i] - 1),
                       std::max(1, static_cast<int>(std::ceil(std::log2(most + 1)) - 1))});
      low -= layout.bits[i];
    }
    layout.price = cost(sizes, resultBits + guard);
    return layout;
  }

  // The middle slope of each address, in units of a value for one step of X.
  std::vector<double> slopes(int addressBits, int low, int bits) const {
    std::vector<double> result;
    const std::size_t block = std::size_t{1} << (argument.bits - addressBits);
    const std::size_t step = ((std::size_t{1} << bits) - 1) << low;
    for (std::size_t first = 0; first < all.values.size(); first += block) {
      const std::size_t last = first + block - 1;
      const auto rise = [&](std::size_t from) {
        return static_cast<double>(all.values[from + step] - all.values[from]);
      };
      result.push_back((rise(first) + rise(last - step)) / 2 / static_cast<double>(step));
    }
    return result;
  }

  std::optional<MultipartiteTable> build(const Layout& layout, int guard) const {
    MultipartiteTable table;
    table.argument = argument, table.lsb = lsb, table.guardBits = guard;
    table.valueBits = layout.valueBits;
    const double unit = std::ldexp(1.0, kFractionBits - guard);
    int low = argument.bits - layout.valueBits;
    for (std::size_t i = 0; i < layout.bits.size(); ++i) {
      low -= layout.bits[i];
      MultipartiteTable::Group group{layout.addressBits[i], low, layout.bits[i], {}};
      for (const double slope : slopes(group.addressBits, low, group.bits))
        for (std::size_t j = 0; j < std::size_t{1} << (group.bits - 1); ++j)
          group.rows.push_back(static_cast<std::int64_t>(
              std::floor(slope * std::ldexp(static_cast<double>(j) + 0.5, low) / unit)));
      table.groups.push_back(std::move(group));
    }
    table.errorFraction = all.fraction;
    const std::size_t blocks = std::size_t{1} << table.valueBits;
    table.values.resize(blocks);
    // The ends first: most layouts fail there.
    if (!fillBlock(table, 0) || !fillBlock(table, blocks - 1)) return std::nullopt;
    for (std::size_t block = 1; block + 1 < blocks; ++block)
      if (!fillBlock(table, block)) return std::nullopt;
    prove(table);
    if (table.errorIn(lsb) > promise) return std::nullopt;
    return table;
  }

  // The value that centres the block's errors before the final cut; false where they are too great.
  bool fillBlock(MultipartiteTable& table, std::size_t block) const {
    const int within = argument.bits - table.valueBits, shift = kFractionBits - table.guardBits;
    std::int64_t least = std::numeric_limits<std::int64_t>::max(), greatest = -least;
    for (std::size_t i = 0; i < std::size_t{1} << within; ++i) {
      const std::size_t x = (block << within) + i;
      const std::int64_t rest = all.values[x] - table.differences(x) * (std::int64_t{1} << shift);
      least = std::min(least, rest), greatest = std::max(greatest, rest);
    }
    const double spread = std::ldexp(static_cast<double>(greatest - least) / 2, -kFractionBits);
    if (spread > promise - 0.5) return false;
    // To nearest: the middle and half a unit of the result. Rounding it down to the sum's unit
    // makes good, on average, for what the cut of whole sums drops less than one of reals.
    const std::int64_t centre =
        least + (greatest - least) / 2 + (std::int64_t{1} << (kFractionBits - 1));
    table.values[block] = centre >> shift;
    return true;
  }

  void prove(MultipartiteTable& table) const {
    std::int64_t low = 0, high = 0;
    for (std::size_t x = 0; x < all.values.size(); ++x) {
      const std::int64_t result = table.at(x);
      const std::int64_t error = result * (std::int64_t{1} << kFractionBits) - all.values[x];
      if (x == 0) low = high = error, table.least = table.greatest = result;
      low = std::min(low, error), high = std::max(high, error);
      table.least = std::min(table.least, result),
      table.greatest = std::max(table.greatest, result);
    }
    table.error = {MPZ(static_cast<long>(low - all.radius)), MPZ(static_cast<long>(high))};
  }

  const Tabulated all;
  const ArgumentFormat argument;
  const int lsb;
  const double promise;
  const TableCost& cost;
  int resultBits = 0;
  double steepest = 0;
  std::vector<Layout> layouts;
};

}  // namespace

bool MultipartiteTable::Group::isSigned() const {
  return std::ranges::any_of(rows, [](std::int64_t row) { return row < 0; });
}
int MultipartiteTable::Group::width() const {
  const auto [low, high] = std::ranges::minmax(rows);
  return bitsOf(low, high);
}
int MultipartiteTable::sumBits() const { return std::max(1, bitsOf(least, greatest)) + guardBits; }

double MultipartiteTable::errorIn(int unit) const {
  const MPZ magnitude = error.magnitude();
  return std::ldexp(mpz_get_d(magnitude.get()), -errorFraction - unit);
}

std::int64_t MultipartiteTable::differences(std::uint64_t x) const {
  std::int64_t sum = 0;
  for (const Group& group : groups) {
    const std::uint64_t half = std::uint64_t{1} << (group.bits - 1);
    const std::uint64_t part = x >> group.low & (2 * half - 1);
    const std::uint64_t address = x >> (argument.bits - group.addressBits);
    const bool isUpper = part >= half;
    const std::int64_t entry =
        group.rows[address * half + (isUpper ? part - half : half - 1 - part)];
    sum += isUpper ? entry : ~entry;
  }
  return sum;
}

std::int64_t MultipartiteTable::at(std::uint64_t x) const {
  return (values[x >> (argument.bits - valueBits)] + differences(x)) >> guardBits;
}

util::Result<MultipartiteTable> searchTable(const Function& f, const ArgumentFormat& argument,
                                            int lsb, double promise, const TableCost& cost) {
  LOAM_ASSERT(argument.bits >= 1 && argument.bits <= kMostTabulatedBits && promise >= 0.5,
              "an argument that is tabulated");
  auto all = tabulate(f, argument, lsb);
  if (!all) return all.failure();
  return Search(std::move(*all), argument, lsb, promise, cost).run();
}

}  // namespace approximation
