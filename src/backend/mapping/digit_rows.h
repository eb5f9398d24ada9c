#pragma once

#include "backend/mapping/heap_terms.h"

namespace mapping {

// Adds x * y in logic: y in digits of -2 to 2, two bits each, and one row x * digit for each. A row
// is added to the sum of those below it by one carry chain whose tables make the row as well, so a
// row of w bits takes w + 2 of them (Booth, "A signed binary multiplication technique", 1951;
// Kumm, Abbas and Zipf, "An efficient softcore multiplier architecture", ARITH 2015). What is
// below the next row is a result at once.
//
// `bitsOfChain` >= 1 bits of y make one chain, the last one takes what is left; each is a term of
// its own. The lowest of an even number of bits makes a row without a carry; the digit on top is
// not negative, unless y is and that is its sign.
void addDigitRows(graph::Builder& builder, HeapTerms& terms, const Factor& x, const Factor& y,
                  int bitsOfChain);

}  // namespace mapping
