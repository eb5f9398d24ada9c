#pragma once

#include <vector>

#include "util/mpz.h"

namespace arithmetic {

// A product with a constant made of shifts and additions: node 0 is the factor itself, every
// further node the sum of two terms of earlier nodes, and the product the sum of `sum`.
struct AdderGraph {
  struct Term {
    int node = 0;
    int shift = 0;  // places up, at least 0
    bool negative = false;
    auto operator<=>(const Term&) const = default;
  };
  struct Node {
    Term first, second;  // the first is not negative where one of the two is not
  };
  std::vector<Node> nodes;  // nodes[k] is node k + 1
  std::vector<Term> sum;    // empty for the constant 0

  // Additions and subtractions, those of the sum included.
  int adders() const;
  // The multiple of the factor that each node stands for, node 0 included.
  std::vector<util::MPZ> multiples() const;
  // The constant: what the sum stands for.
  util::MPZ constant() const;
};

// The digits of the canonical signed-digit form (no two neighbours that are not zero), which has
// the fewest digits of all forms with -1, 0 and 1; as terms of node 0, lowest first.
std::vector<AdderGraph::Term> canonicalDigits(const util::MPZ& constant);

// An adder graph with few additions for any constant.
//
// Up to three additions are found where they suffice, for constants of up to 54 bits: every value
// of one addition, every further one of these, and the additions that lead on to the constant
// (Gustafsson, Dempster and Wanhammar, "Extended results for minimum-adder constant integer
// multipliers", ISCAS 2002, has the graphs). Beyond, a beam search takes common pairs of digits out
// of the canonical form and out of the binary one, each pair becoming a node that further pairs may
// hold (Hartley, "Subexpression sharing in filters using canonic signed digit multipliers", 1996).
AdderGraph shiftAndAdd(const util::MPZ& constant);

}  // namespace arithmetic
