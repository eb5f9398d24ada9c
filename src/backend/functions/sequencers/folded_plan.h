#pragma once

#include <optional>
#include <vector>

#include "backend/arithmetic/newton_seed.h"
#include "backend/functions/unit.h"

// What a folded ALU multiplies in which cycle, and the widths for which that is accurate.
namespace functions {

// Opcodes; further ones work as a product.
enum FoldedOp { kReciprocalRoot, kRoot, kReciprocal, kQuotient, kProduct };
// Cycles from go to the result.
inline constexpr int kFoldedCycles[] = {23, 26, 19, 22, 6};

// Where the factors of a pass come from. x and y: the significands, which are whole below 2.
enum class FoldedA { kX, kY, kSeed, kHalfCandidate };
enum class FoldedB {
  kY,
  kSlope,      // of the seed's line
  kSeed,       // r1, doubled for a root with an odd exponent where both factors are the seed
  kLast,       // the last product p, below 2
  kTwoLess,    // 2 - p
  kThreeLess,  // (3 - p) / 2
  kCandidate,  // what the check of the result multiplies
  kSquare,     // of the candidate, from the product of its halves
};

// One multiplication: `cycle` after go its factors are chosen and enter registers; its product can
// be read three cycles later.
struct FoldedPass {
  int cycle;
  FoldedA a;
  FoldedB b;
};
std::vector<FoldedPass> foldedPasses(FoldedOp op, bool checked);
// The cycle in which the seed's line is complete.
inline constexpr int kSeedCycle = 5;

// Numbers are unsigned. Factor A has one bit above the point and `aBits` - 1 below, factor B one
// and `fraction`, a product two. With p = wF + 1 bits of significand:
//   reciprocal  r1 = (1 + d) / y; t = y r1; r2 = r1 (2 - t) = (1 - d^2) / y
//   root        r1 = (1 + d) / sqrt(z); t = z r1^2; r2 = r1 (3 - t) / 2
//                  = (1 - 3/2 d^2 - 1/2 d^3) / sqrt(z)
//   quotient x r2, square root x r2 (twice that for odd exponents)
// d is the seed's error. Factors B are cut below their last bit.
struct FoldedPlan {
  int significandBits = 0;  // p
  bool checked = false;     // candidates are compared with the exact result: any rounding is exact
  arithmetic::NewtonSeed reciprocal{}, root{};
  int aBits = 0, fraction = 0;
  // Of the register of factor B; wider than `fraction` + 1 where a square has to fit in.
  int bBits = 0;

  int productBits() const { return aBits + fraction + 1; }
};

// The plan with the fewest blocks, then the smallest tables; nothing where none is accurate enough.
// Asserts its error budgets and states them, if asked to. A result that is rounded to nearest is
// off by at most 3/8 ulp before; a candidate, which stands on a grid of half an ulp, by a quarter
// of the grid.
std::optional<FoldedPlan> planFolded(int fractionBits, bool checked, const Prices& prices,
                                     arithmetic::ErrorBudgets* budgets);

}  // namespace functions
