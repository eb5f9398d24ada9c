#pragma once

#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// Shifters take two bits of the amount a level, as a choice of four: one six-input LUT a bit.

// x * 2^amount, modulo 2^(width of x). The amount's high digit is used first: a leading-zero count
// has it first.
//   maxAmount  the largest amount that occurs; larger ones give undefined bits
Signal shiftLeft(Builder& b, Signal x, Signal amount, int maxAmount);

// The highest `kept` bits of what shiftLeft() gives, and whether a 1 stands below them. Each level
// leaves out what the levels behind it cannot bring up.
struct ShiftedLeft {
  Signal bits;
  Signal sticky;  // 1 bit
};
ShiftedLeft shiftLeftSticky(Builder& b, Signal x, Signal amount, int maxAmount, int kept);

struct ShiftedRight {
  Signal bits;    // floor(x / 2^amount)
  Signal sticky;  // 1 when a bit that is 1 was shifted out
};

// Shifts right by any amount, also one beyond the width. The amount's low digit is used first: a
// subtraction has it first. What each level drops is gathered beside the data, not behind it.
//   present  when it is a signal: 1 for an x that is not 0, which counts as it is; with 0 x counts
//            as 0, for no more than the last level's price
ShiftedRight shiftRightSticky(Builder& b, Signal x, Signal amount, Signal present = {});

// Widths of the factors of one product in a DSP block, unsigned; none by default.
struct BlockShape {
  int wide = 0, narrow = 0;
};
// True when the blocks for shiftRightByProducts() are few: no more than four.
bool canShiftByProducts(int width, const BlockShape& shape);

// shiftRightSticky() of x * 2^below. The low digits of the amount shift as a product with a power
// of two, a block for each piece of x; only the high ones are levels of choices.
ShiftedRight shiftRightByProducts(Builder& b, Signal x, int below, Signal amount,
                                  const BlockShape& shape, Signal present = {});

// floor(x * 2^(width - x.width) / 2^amount): shifts x down from the top of a word of `width` bits,
// by any amount. Low digit first, so that the word grows only as far as its bits have come.
ShiftedRight shiftDownFromTop(Builder& b, Signal x, Signal amount, int width);

// floor(x / 2^amount), but the lowest `nearBits` bits of the result are 0 when amount > 1. Those
// columns cost one level and one LUT instead of one a level.
Signal shiftRight(Builder& b, Signal x, Signal amount, int nearBits = 0, Signal present = {});

}  // namespace arithmetic
