#include "backend/arithmetic/leading_zeros.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "backend/arithmetic/shifter.h"
#include "util/failure.h"

namespace arithmetic {

namespace {

struct Group {
  Signal any;    // a bit of the group is 1
  Signal count;  // leading zeros in the group
};

util::MPZ firstOneTable() {
  util::MPZ table;
  for (unsigned bits = 0; bits < 16; ++bits) {
    const unsigned index = bits == 0 ? 3 : static_cast<unsigned>(std::countl_zero(bits)) - 28;
    table = table | (util::MPZ(index) << (2 * bits));
  }
  return table;
}

// Of four bits, the top one first, the index of the first 1; 3 when only the last can be.
Signal firstOne(Builder& b, Signal four, FirstOne form) {
  static const util::MPZ table = firstOneTable();
  if (form == FirstOne::kTable) return b.lut(four, table, 2);
  const Signal high = b.bitNot(b.bitOr(b.bitOf(four, 3), b.bitOf(four, 2)));
  if (form == FirstOne::kOwnGates) {
    const Signal isOdd = b.bitOr(b.bitOf(four, 2), b.bitNot(b.bitOf(four, 1)));
    return b.concat({high, b.bitAnd(b.bitNot(b.bitOf(four, 3)), isOdd)});
  }
  return b.concat({high, b.bitNot(b.select(high, b.bitOf(four, 1), b.bitOf(four, 3)))});
}

}  // namespace

LeadingZeros countLeadingZeros(Builder& b, Signal x, FirstOne form) {
  const int width = x.width;
  // Zeros below fill the last group and never change the count of a number that is not zero.
  const int padded = (width + 3) / 4 * 4;
  const Signal filled = b.concat({x, b.zeros(padded - width)});
  std::vector<Group> groups;
  for (int low = padded - 4; low >= 0; low -= 4) {
    const Signal four = b.slice(filled, low, 4);
    groups.push_back({b.reduceOr(four), firstOne(b, four, form)});
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
      const Signal index = firstOne(b, anyBits, form);
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

NearlyNormalised normaliseNearly(Builder& b, Signal x, int counted) {
  LOAM_ASSERT(counted >= 2 && counted <= x.width, "bits to be counted");
  const int digits = std::bit_width(static_cast<unsigned>(counted - 1));
  const int left = digits % 2 == 0 ? 2 : 1;  // bits of the count that the last shift takes
  const int width = x.width;
  std::vector<Signal> count;
  for (int low = digits - 2; low >= left; low -= 2) {
    const int step = 1 << low;
    // 1 when bits [from, from + step) below the top are all zero; there are zeros below the word.
    const auto isEmpty = [&](int from) {
      const int bits = std::min(step, width - from);
      return bits > 0 ? b.isZero(b.slice(x, width - from - bits, bits)) : b.bit(true);
    };
    const Signal first = isEmpty(0), second = isEmpty(step), third = isEmpty(2 * step);
    const Signal high = b.bitAnd(first, second);
    const Signal index = b.concat({high, b.select(high, third, first)});
    std::array<Signal, 4> choices;
    for (int i = 0; i < 4; ++i) {
      const int kept = std::max(0, width - i * step);
      choices[i] = b.shiftedUp(b.slice(x, 0, kept), width - kept);
    }
    x = b.pick(index, choices);
    count.push_back(index);
  }
  NearlyNormalised result;
  result.bits = x;
  const Signal top = b.topBit(x);
  if (left == 1) {
    result.rest = b.bitNot(top);
  } else {
    const Signal second = b.bitOf(x, width - 2), third = b.bitOf(x, width - 3);
    const Signal high = b.bitNot(b.bitOr(top, second));
    result.rest = b.concat({high, b.select(high, b.bitNot(third), b.bitNot(top))});
  }
  count.push_back(result.rest);
  result.count = b.concat(count);
  // With a 1 among the counted bits one stands where the last shift reaches.
  const int reached = std::min(width, 1 << left);
  result.allZero = b.isZero(b.slice(x, width - reached, reached));
  return result;
}

Normalised normaliseUpTo(Builder& b, Signal x, Signal limit) {
  const LeadingZeros zeros = countLeadingZeros(b, x);
  const Signal count = smaller(b, zeros.count, limit);
  return {shiftLeft(b, x, count, x.width - 1), count, zeros.allZero};
}

NormalisedSticky normaliseSticky(Builder& b, Signal x, int kept, FirstOne form) {
  const LeadingZeros zeros = countLeadingZeros(b, x, form);
  const ShiftedLeft moved = shiftLeftSticky(b, x, zeros.count, x.width - 1, kept);
  return {moved.bits, moved.sticky, zeros.count, zeros.allZero};
}

NormalisedSticky normaliseUpToSticky(Builder& b, Signal x, Signal limit, int kept, FirstOne form) {
  const LeadingZeros zeros = countLeadingZeros(b, x, form);
  const Signal count = smaller(b, zeros.count, limit);
  const ShiftedLeft moved = shiftLeftSticky(b, x, count, x.width - 1, kept);
  return {moved.bits, moved.sticky, count, zeros.allZero};
}

}  // namespace arithmetic
