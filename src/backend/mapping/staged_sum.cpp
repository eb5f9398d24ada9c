#include "backend/mapping/staged_sum.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/mapping/arrivals.h"
#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;
using util::MPZ;

namespace {

// A shorter carry chain saves little of the time that its entry and exit take.
constexpr int kShortestBlock = 12;
// Columns without anything to add that end a block.
constexpr int kGap = 4;
// Blocks of the last addition whose carries are selected.
constexpr int kMostSelected = 3;

class StagedSum {
 public:
  StagedSum(Builder& builder, const device::Device& device, const MappingOptions& options,
            const Terms& terms)
      : b(builder),
        device(device),
        arrivals(b.built(), device, options.period),
        known(b.built().size()),
        end((options.period - device.setup()).value),
        counts(options.sums.counters),
        apart(options.sums.apart),
        columns(columnsOf(terms)) {}

  Signal operator()() {
    int first = columns.width() == 0 ? 0 : Arrivals::kNever, last = 0;
    forEachBit([&](const Bit& bit) {
      first = std::min(first, arrivalOf(bit).cycle);
      last = std::max(last, arrivalOf(bit).cycle);
    });
    for (cycle = std::min(first, last);; ++cycle) {
      bool isStuck = true;
      do {
        if (cycle < last) continue;
        if (const Signal sum = lastAddition()) return sum;
        if (cycle > last && columns.highest(0) < kRows) return rippled();
      } while (reduce() && (isStuck = false, true));
      if (cycle > last && isStuck) return rippled();
      last = std::max(last, newest);
    }
  }

 private:
  // ---- When bits are there --------------------------------------------------------------------

  // The node that makes a bit, seen through wiring.
  NodeId driverOf(const Bit& bit) const {
    NodeId id = bit.source.node;
    int index = bit.index;
    for (;;) {
      const Node& node = b.built().node(id);
      const auto operands = b.built().operands(node);
      if (node.op == Op::kSlice) {
        index += static_cast<int>(node.aux);
        id = operands[0];
      } else if (node.op == Op::kReplicate) {
        index %= b.built().node(operands[0]).width;
        id = operands[0];
      } else if (node.op == Op::kNot) {
        id = operands[0];
      } else if (node.op == Op::kConcat) {
        std::size_t part = operands.size() - 1;  // the lowest one
        while (index >= b.built().node(operands[part]).width)
          index -= b.built().node(operands[part--]).width;
        id = operands[part];
      } else {
        return id;
      }
    }
  }

  Arrival arrivalOf(const Bit& bit) const {
    const NodeId driver = driverOf(bit);
    if (driver.index < known) return arrivals.of(driver);
    const auto found = made.find(driver.index);
    return found == made.end() ? Arrival{} : found->second;
  }
  // In this cycle, which is not before the bit's own.
  int timeOf(const Bit& bit) const {
    const NodeId driver = driverOf(bit);
    if (driver.index < known) return arrivals.timeIn(driver, cycle);
    const auto found = made.find(driver.index);
    if (found == made.end()) return 0;  // a literal
    return found->second.cycle == cycle ? found->second.time : device.clockToOutput().value;
  }
  // A carry chain's result in the stage that computes it, where a counter of so many inputs stands
  // now or could be placed: table mappers do not know how late the chain is and put it behind more
  // tables than one where they can. One table of three they leave, but not by
  // options.sums.apart where others follow.
  bool isBesideChain(const Bit& bit, int inputs, bool isOnly = false) const {
    const NodeId driver = driverOf(bit);
    const Node& node = b.built().node(driver);
    if (node.op != Op::kAdd || device.isDspSum(b.built(), node)) return false;
    const Arrival arrival = arrivalOf(bit);
    return arrival.cycle == cycle || ((inputs > kRows || (apart && !isOnly)) &&
                                      arrival.time + device.tableDelay(inputs).value <= end);
  }

  void setArrival(NodeId node, int time) {
    made[node.index] = {cycle, time};
    newest = std::max(newest, cycle);
  }

  template <typename Visit>
  void forEachBit(const Visit& visit) const {
    for (const std::vector<Bit>& column : columns.bits)
      for (const Bit& bit : column) visit(bit);
  }

  int sumDelay(int width, int addends) const { return device.sumDelay(width, addends).value; }
  // The widest sum from `start` on that leaves this stage in time.
  int widestFrom(int start, int addends) const {
    const int left = end - device.routeOf(2).value - start - sumDelay(0, addends);
    return left <= 0 ? 0
                     : static_cast<int>(left / (sumDelay(1000, addends) / 1000.0 -
                                                sumDelay(0, addends) / 1000.0));
  }

  // ---- Additions of blocks --------------------------------------------------------------------

  // Adds in this cycle what is there and leaves time, where that saves bits; true if there was any.
  bool reduce() {
    if (counts) countOnce();
    const int latest = end - sumDelay(kShortestBlock, kRows);
    std::vector<std::vector<Bit>> here(columns.bits.size()), later(columns.bits.size());
    for (int column = 0; column < columns.width(); ++column)
      for (const Bit& bit : columns.bits[column]) {
        const bool isHere = arrivalOf(bit).cycle <= cycle && timeOf(bit) <= latest;
        (isHere ? here : later)[column].push_back(bit);
      }
    bool any = false;
    int column = 0;
    for (;;) {
      column = nextToAdd(here, column);
      if (column == columns.width()) break;
      int top = column;
      while (top < columns.width() && nextToAdd(here, top) < top + kGap) ++top;
      if (addBlocks(here, later, column, std::min(top, columns.width()))) {
        any = true;
        column = 0;
      } else {
        column = top;
      }
    }
    for (int i = 0; i < columns.width(); ++i) {
      here[i].insert(here[i].end(), later[i].begin(), later[i].end());
      std::ranges::stable_sort(here[i], {}, [&](const Bit& bit) {
        return std::pair(arrivalOf(bit).cycle, arrivalOf(bit).time);
      });
    }
    columns.bits = std::move(here);
    return any;
  }

  // Counters in the columns of more than three and at most six bits that come from registers or
  // products and leave time for an addition behind.
  void countOnce() {
    const int latest = end - sumDelay(kShortestBlock, kRows) - device.tableDelay(6).value;
    Columns here;
    here.bits.resize(columns.bits.size());
    std::vector<std::vector<Bit>> later(columns.bits.size());
    for (int column = 0; column < columns.width(); ++column)
      for (const Bit& bit : columns.bits[column]) {
        const bool isHere =
            arrivalOf(bit).cycle <= cycle && timeOf(bit) <= latest && !isBesideChain(bit, kRows);
        (isHere ? here.bits : later)[column].push_back(bit);
      }
    if (const int highest = here.highest(0); highest <= kRows || highest > 2 * kRows) return;
    compressLevel(here, kRows);
    for (int i = 0; i < columns.width(); ++i)
      here.bits[i].insert(here.bits[i].end(), later[i].begin(), later[i].end());
    columns.bits = std::move(here.bits);
  }

  static int nextToAdd(const std::vector<std::vector<Bit>>& here, int from) {
    const int width = static_cast<int>(here.size());
    while (from < width && here[from].size() < 2) ++from;
    return from;
  }

  // One addition over each part of the columns [low, top) that fits; false if that is no gain.
  bool addBlocks(std::vector<std::vector<Bit>>& here, std::vector<std::vector<Bit>>& later, int low,
                 int top) {
    int third = 0, saved = 0, start = 0;
    for (int column = low; column < top; ++column) {
      third += here[column].size() >= kRows ? 1 : 0;
      for (const Bit& bit : here[column]) start = std::max(start, timeOf(bit));
    }
    const int addends = 2 * third >= top - low ? kRows : 2;
    for (int column = low; column < top; ++column)
      saved += std::clamp(static_cast<int>(here[column].size()), 1, addends) - 1;
    if (2 * saved < top - low) return false;
    const int widest = std::max(kShortestBlock, widestFrom(start, addends) - addends + 1);
    const int pieces = (top - low + widest - 1) / widest;
    for (int piece = 0; piece < pieces; ++piece)
      addBlock(here, later, low + (top - low) * piece / pieces,
               low + (top - low) * (piece + 1) / pieces, addends);
    return true;
  }

  void addBlock(std::vector<std::vector<Bit>>& here, std::vector<std::vector<Bit>>& later, int low,
                int top, int addends) {
    Columns block;
    block.bits.resize(columns.width());
    int start = 0;
    const auto take = [&](int column) {
      const Bit bit = here[column].front();
      here[column].erase(here[column].begin());
      start = std::max(start, timeOf(bit));
      return bit;
    };
    Signal carry = b.bit(false);
    if (static_cast<int>(here[low].size()) > addends) {
      const Bit bit = take(low);
      carry = b.bitOf(bit.source, bit.index);
    }
    for (int column = low; column < top; ++column) {
      const int taken = std::min(addends, static_cast<int>(here[column].size()));
      for (int i = 0; i < taken; ++i) block.bits[column].push_back(take(column));
      if (taken < addends && columns.ones.bit(column)) {
        block.ones += MPZ::powerOfTwo(column);
        columns.ones -= MPZ::powerOfTwo(column);
      }
    }
    // Three rows and a carry in are below 3 * 2^w, as are two rows below 2 * 2^w.
    const int width = std::min(top - low + addends - 1, columns.width() - low);
    const auto rows = addendsOf(b, block, low, top);
    const auto wide = [&](Signal row) { return b.zeroExtend(row, width); };
    const Signal sum = addends == 2
                           ? b.addCarry(wide(rows[0]), wide(rows[1]), carry)
                           : b.addThree(wide(rows[0]), wide(rows[1]), wide(rows[2]), carry);
    for (int i = 0; i < width; ++i) {
      const Bit bit{sum, i};
      const NodeId driver = driverOf(bit);
      if (driver.index >= known && !made.contains(driver.index) &&
          b.built().node(driver).op == Op::kAdd)
        setArrival(driver, start + sumDelay(width, addends));
      later[low + i].push_back(bit);
    }
  }

  // ---- The last addition ----------------------------------------------------------------------

  // One level of counters; false if one of them stands beside a carry chain whose results it
  // counts.
  bool compressLevel(Columns& rest, int target, bool isOnly = false) {
    const auto before = static_cast<std::uint32_t>(b.built().size());
    compressTo(b, rest, target);
    bool isApart = true;
    for (std::uint32_t i = before; i < b.built().size(); ++i) {
      const Node& node = b.built().node(NodeId{i});
      if (node.op != Op::kLut) continue;
      const Signal inputs = b.built().signal(b.built().operands(node)[0]);
      int start = 0;
      for (int k = 0; k < inputs.width; ++k) {
        isApart = isApart && !isBesideChain({inputs, k}, inputs.width, isOnly);
        start = std::max(start, timeOf({inputs, k}));
      }
      made[i] = {cycle, start + device.tableDelay(inputs.width).value + device.routeOf(3).value};
    }
    return isApart;
  }

  int startOf(const Columns& rest) const {
    int start = rest.carryIn.width > 0 ? timeOf({rest.carryIn, 0}) : 0;
    for (int column = rest.carryColumn; column < rest.width(); ++column)
      for (const Bit& bit : rest.bits[column]) start = std::max(start, timeOf(bit));
    return start;
  }

  // The whole sum if it fits into this stage, else nothing.
  Signal lastAddition() {
    Columns rest = columns;
    takeCarryIn(b, rest);
    const int low = rest.carryColumn, width = rest.width() - low;
    for (int column = 0; column < low; ++column)
      for (const Bit& bit : rest.bits[column])
        if (timeOf(bit) > end) return {};
    if (width == 0) return lastOf(rest, 1);
    for (int height = rest.highest(0); height > kRows; height = rest.highest(0)) {
      int target = kRows;
      while (2 * target < height) target *= 2;
      if (!compressLevel(rest, target)) return {};
    }
    if (rest.highest(0) == kRows && widestFrom(startOf(rest), kRows) >= width &&
        !isCheaperInTwoRows(rest))
      return lastOf(rest, 1);
    const bool isOnly = columns.highest(0) <= kRows;
    if (rest.highest(0) == kRows && !compressLevel(rest, 2, isOnly)) return {};
    const int start = startOf(rest);
    for (int blocks = 1; blocks <= kMostSelected; ++blocks) {
      const int piece = (width + blocks - 1) / blocks + (blocks > 1 ? 2 : 0);
      const int select = device.tableDelay(3).value + device.routeOf(piece).value;
      if (piece >= kShortestBlock / 2 && widestFrom(start + (blocks - 1) * select, 2) >= piece)
        return lastOf(rest, blocks);
    }
    return {};
  }

  Signal lastOf(const Columns& rest, int blocks) {
    const int low = rest.carryColumn, width = rest.width() - low;
    const Signal below = addendsOf(b, rest, 0, low)[0];
    if (width == 0) return b.zeroExtend(below, rest.width());
    const auto rows = addendsOf(b, rest, low, rest.width());
    if (blocks == 1) return b.concat({b.addThree(rows[0], rows[1], rows[2], rest.carryIn), below});
    std::vector<Signal> topFirst{below};
    Signal carry = rest.carryIn;
    for (int block = 0; block < blocks; ++block) {
      const int from = width * block / blocks, to = width * (block + 1) / blocks;
      const int out = to == width ? 0 : 1;
      const auto part = [&](Signal row) {
        return b.zeroExtend(b.slice(row, from, to - from), to - from + out);
      };
      const Signal x = part(rows[0]), y = part(rows[1]);
      const Signal sum =
          block == 0 ? b.addCarry(x, y, carry) : b.select(carry, sumAndOne(x, y), b.add(x, y));
      topFirst.insert(topFirst.begin(), b.slice(sum, 0, to - from));
      carry = b.topBit(sum);
    }
    return b.concat(topFirst);
  }

  // x + y + 1 with the one at a place below: from two sums that differ in the carry in alone
  // synthesis makes one, whose carry comes late.
  Signal sumAndOne(Signal x, Signal y) {
    const Signal one = b.bit(true);
    return b.slice(b.add(b.concat({x, one}), b.concat({y, one})), 1, x.width);
  }

  // Longer than a stage: pieces linked by their carries come later.
  Signal rippled() {
    Columns rest = columns;
    takeCarryIn(b, rest);
    while (rest.highest(0) > kRows) compressTo(b, rest, std::max(kRows, rest.highest(0) / 2));
    return lastOf(rest, 1);
  }

  Builder& b;
  const device::Device& device;
  const Arrivals arrivals;
  const std::size_t known;  // nodes that `arrivals` knows
  const int end;            // of a stage, before the register's setup
  const bool counts, apart;
  Columns columns;
  int cycle = 0, newest = 0;
  std::unordered_map<std::uint32_t, Arrival> made;
};

}  // namespace

Signal stagedSum(Builder& builder, const device::Device& device, const MappingOptions& options,
                 const Terms& terms) {
  return StagedSum(builder, device, options, terms)();
}

}  // namespace mapping
