#pragma once

#include <string>
#include <vector>

#include "util/mpz.h"

namespace arithmetic {

class ErrorBudget;
// What a circuit states while it is built, for record and comments; each budget once.
using ErrorBudgets = std::vector<ErrorBudget>;

// The error of one output: where it arises, and that its parts keep the promise. Bounds are exact,
// numerator / 2^log2Denominator, in ulps of the exact result; only a rounding to nearest attains
// its own.
class ErrorBudget {
 public:
  struct Term {
    std::string name;
    util::MPZ numerator;
    int log2Denominator = 0;

    double ulps() const;  // not below the exact bound
    bool operator==(const Term&) const = default;
  };

  // The name says which errors of a unit these are, such as those below the exact result.
  explicit ErrorBudget(double promisedUlps, std::string name = "error")
      : promised(promisedUlps), budgetName(std::move(name)) {}
  void add(const std::string& name, const util::MPZ& numerator, int log2Denominator = 0);
  const std::vector<Term>& terms() const { return rows; }
  const std::string& name() const { return budgetName; }
  double promise() const { return promised; }
  double sum() const;  // not below the exact sum
  // Ends the run when the sum exceeds the promise: the circuit would break it. One that holds is
  // put beside those stated already, if somebody collects them.
  void assertKept(ErrorBudgets* stated = nullptr) const;

  bool operator==(const ErrorBudget&) const = default;

 private:
  double promised;
  std::string budgetName;
  std::vector<Term> rows;
};

// States that an exact result is rounded once: half an ulp to nearest, one in any other direction.
void stateRounding(ErrorBudgets* stated, bool toNearest);

// States what a result with this error on the grid of normal numbers errs by as a subnormal, whose
// last place is coarser by a bit or more: half the error and half a unit where it is rounded to
// nearest there, any part of a unit where it is cut off. No more than before if that is above a
// unit.
void stateSubnormal(ErrorBudgets* stated, const ErrorBudget& normal, bool toNearest);

}  // namespace arithmetic
