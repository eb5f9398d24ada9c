#include "backend/arithmetic/leading_zeros.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "backend/arithmetic/shifter.h"

namespace arithmetic {

namespace {

struct Group {
  Signal any;    // a bit of the group is 1
  Signal count;  // leading zeros in the group
};

// For four bits, top first: the index of the first 1 (3 when only the last can be).
util::MPZ firstOneTable() {
  util::MPZ table;
  for (unsigned bits = 0; bits < 16; ++bits) {
    const unsigned index = bits == 0 ? 3 : static_cast<unsigned>(std::countl_zero(bits)) - 28;
    table = table | (util::MPZ(index) << (2 * bits));
  }
  return table;
}

Signal firstOne(Builder& b, Signal four) {
  static const util::MPZ table = firstOneTable();
  return b.lut(four, table, 2);
}

}  // namespace

LeadingZeros countLeadingZeros(Builder& b, Signal x) {
  const int width = x.width;
  // Zeros below fill the last group and never change the count of a number that is not zero.
  const int padded = (width + 3) / 4 * 4;
  const Signal filled = b.concat({x, b.zeros(padded - width)});
  std::vector<Group> groups;
  for (int low = padded - 4; low >= 0; low -= 4) {
    const Signal four = b.slice(filled, low, 4);
    groups.push_back({b.reduceOr(four), firstOne(b, four)});
  }
  while (groups.size() > 1) {
    std::vector<Group> joined;
    for (std::size_t first = 0; first < groups.size(); first += 4) {
      std::array<Signal, 4> any, counts;
      for (std::size_t i = 0; i < 4; ++i) {
        const bool exists = first + i < groups.size();
        any[i] = exists ? groups[first + i].any : b.bit(false);
        counts[i] = exists ? groups[first + i].count : counts[i - 1];
      }
      const Signal anyBits = b.concat(any);
      const Signal index = firstOne(b, anyBits);
      joined.push_back({b.reduceOr(anyBits), b.concat({index, b.pick(index, counts)})});
    }
    groups = std::move(joined);
  }
  const int needed =
      std::max(1, static_cast<int>(std::bit_width(static_cast<unsigned>(width - 1))));
  return {b.zeroExtend(groups[0].count, needed), b.bitNot(groups[0].any)};
}

Signal smaller(Builder& b, Signal a, Signal other) {
  const int width = std::max(a.width, other.width);
  const Signal otherIsLess = b.less(b.zeroExtend(other, width), b.zeroExtend(a, width));
  return b.select(otherIsLess, b.zeroExtend(other, a.width), a);
}

Normalised normalise(Builder& b, Signal x) {
  const LeadingZeros zeros = countLeadingZeros(b, x);
  return {shiftLeft(b, x, zeros.count, x.width - 1), zeros.count, zeros.allZero};
}

Normalised normaliseUpTo(Builder& b, Signal x, Signal limit) {
  const LeadingZeros zeros = countLeadingZeros(b, x);
  const Signal count = smaller(b, zeros.count, limit);
  return {shiftLeft(b, x, count, x.width - 1), count, zeros.allZero};
}

NormalisedSticky normaliseSticky(Builder& b, Signal x, int kept) {
  const LeadingZeros zeros = countLeadingZeros(b, x);
  const ShiftedLeft moved = shiftLeftSticky(b, x, zeros.count, x.width - 1, kept);
  return {moved.bits, moved.sticky, zeros.count, zeros.allZero};
}

NormalisedSticky normaliseUpToSticky(Builder& b, Signal x, Signal limit, int kept) {
  const LeadingZeros zeros = countLeadingZeros(b, x);
  const Signal count = smaller(b, zeros.count, limit);
  const ShiftedLeft moved = shiftLeftSticky(b, x, count, x.width - 1, kept);
  return {moved.bits, moved.sticky, count, zeros.allZero};
}

}  // namespace arithmetic
