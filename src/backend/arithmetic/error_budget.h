#pragma once

#include <string>
#include <vector>

#include "util/mpz.h"

namespace arithmetic {

// The error of one output: where it arises, and that its parts keep the promise. Bounds are exact,
// numerator / 2^log2Denominator, in ulps of the exact result, and are not attained.
class ErrorBudget {
 public:
  struct Term {
    std::string name;
    util::MPZ numerator;
    int log2Denominator = 0;
  };

  explicit ErrorBudget(double promisedUlps) : promised(promisedUlps) {}
  void add(const std::string& name, const util::MPZ& numerator, int log2Denominator = 0);
  const std::vector<Term>& terms() const { return rows; }
  double sum() const;
  // Ends the run when the sum exceeds the promise: the circuit would break it.
  void assertKept() const;

 private:
  double promised;
  std::vector<Term> rows;
};

}  // namespace arithmetic
