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

// Where the factors of a pass come from. x and y: the significands.
enum class FoldedA { kX, kY, kNewSeed, kSeed, kHalfCandidate };
enum class FoldedB {
  kSlope,      // of the seed's line
  kLast,       // the last product t; under a root with an odd exponent 2t
  kTwoLess,    // 2 - t
  kThreeLess,  // (3 - t) / 2
  kHalfLast,   // half of kLast
  kSquare,     // of the candidate, from the product of its halves
  // Sums and what is normalised, which are late.
  kNewSeed,  // r1 in the cycle in which it is complete
  kY,
  kCandidate,  // the last product on the grid of candidates; of a root its upper half
};
constexpr bool isLate(FoldedB b) { return b >= FoldedB::kNewSeed; }

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
//   quotient x r2, root z r2, to be checked half of that
// d is the seed's error. Factors B are cut below their last bit.
struct FoldedPlan {
  int significandBits = 0;  // p
  bool checked = false;     // candidates are compared with the exact result: any rounding is exact
  arithmetic::NewtonSeed reciprocal{}, root{};
  int aBits = 0, fraction = 0;
  // Of the register of factor B, and how many of them the product is made of; what a square has
  // above that is multiplied apart.
  int bBits = 0, productB = 0;

  int productBits() const { return aBits + productB; }
};

// The plan with the fewest blocks, then the smallest tables; nothing where none is accurate enough.
// Asserts its error budgets and states them, if asked to. A result that is rounded to nearest is
// off by at most 3/8 ulp before; a candidate, which stands on a grid of half an ulp, by a quarter
// of the grid.
std::optional<FoldedPlan> planFolded(int fractionBits, bool checked, const Prices& prices,
                                     arithmetic::ErrorBudgets* budgets);

}  // namespace functions
