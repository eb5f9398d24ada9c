#pragma once

#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// How the index of the first 1 among four bits is made. None is the best everywhere: a row of a
// unit may name one to be tried beside the first.
enum class FirstOne {
  kSharedGates,  // an or is shared, a table of its own: the low bit stands behind two tables
  kOwnGates,     // each bit has gates of its own: one level
  kTable,        // one table for both bits: one level, but slow picks behind it where tools count a
                 // function of eight inputs as one
};

struct LeadingZeros {
  Signal count;    // zeros above the highest 1; undefined when there is none
  Signal allZero;  // 1 bit
};

// Counts leading zeros by a tree of radix 4, shaped for six-input LUTs: a group of four says which
// of its bits is the first 1 and whether there is any; four groups join by the same choice over
// their "any" bits and a pick of the counts below. The count has the fewest bits that hold width
// - 1.
LeadingZeros countLeadingZeros(Builder& b, Signal x, FirstOne form = FirstOne::kSharedGates);

struct Normalised {
  Signal bits;     // x shifted left until its top bit is 1, or by the limit
  Signal count;    // places shifted, undefined when allZero
  Signal allZero;  // 1 bit, about x
};

// Normalises x. With a limit (unsigned, any width) the shift does not exceed it.
Normalised normalise(Builder& b, Signal x);
Normalised normaliseUpTo(Builder& b, Signal x, Signal limit);

// x shifted left until its highest 1 stands at most 2^k - 1 places below the top, k = 1 or 2 bits
// of `rest`; a rounding addition does the rest for nothing.
struct NearlyNormalised {
  Signal bits;
  Signal rest;     // places still to be shifted
  Signal count;    // places altogether, rest included; undefined when allZero
  Signal allZero;  // of the first `counted` bits of x
};
// Two bits of the count a level, each level finding its own from the word as it is shifted so far:
// three or-gates and a choice of four in place of a counter. The highest 1 stands among the first
// `counted` bits, or there is none.
NearlyNormalised normaliseNearly(Builder& b, Signal x, int counted);

// The highest `kept` bits of the same, and whether a 1 stands below them.
struct NormalisedSticky {
  Signal bits, sticky;
  Signal count;    // places shifted, undefined when allZero
  Signal allZero;  // 1 bit, about x
};
NormalisedSticky normaliseSticky(Builder& b, Signal x, int kept,
                                 FirstOne form = FirstOne::kSharedGates);
NormalisedSticky normaliseUpToSticky(Builder& b, Signal x, Signal limit, int kept,
                                     FirstOne form = FirstOne::kSharedGates);

// The smaller of two unsigned numbers, in the width of `a`.
Signal smaller(Builder& b, Signal a, Signal other);

}  // namespace arithmetic
