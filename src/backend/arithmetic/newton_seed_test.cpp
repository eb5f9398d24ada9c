#include "backend/arithmetic/newton_seed.h"

#include <gtest/gtest.h>

#include <cmath>

namespace arithmetic {
namespace {

// The stated error against the worst of all significands of some bits; it may be little larger.
TEST(NewtonSeed, StatesItsWorstError) {
  for (const SeedOf function : {SeedOf::kReciprocal, SeedOf::kReciprocalRoot})
    for (const int index : {3, 5, 7}) {
      const int bits = 2 * index + 5, fraction = 14;
      const NewtonSeed seed = newtonSeed(function, index, bits);
      const bool isRoot = function == SeedOf::kReciprocalRoot;
      ASSERT_EQ(seed.offsets.size(), std::size_t{1} << index);
      double worst = 0;
      for (long x = 1L << fraction; x < 2L << fraction; ++x)
        for (int parity = 0; parity <= isRoot; ++parity) {
          const double s = std::ldexp(static_cast<double>(x), -fraction);
          const int top = isRoot ? index - 1 : index;
          const auto row =
              static_cast<std::size_t>((parity << top) + ((x >> (fraction - top)) - (1L << top)));
          const util::MPZ product = seed.slopes[row] * util::MPZ(x);
          const util::MPZ r =
              seed.offsets[row] - (product << static_cast<unsigned long>(bits) >>
                                   static_cast<unsigned long>(fraction + seed.slopeBits));
          const double exact = isRoot ? 1 / std::sqrt(std::ldexp(s, parity)) : 1 / s;
          const double shown = std::ldexp(static_cast<double>(r.toUint64()), -bits);
          worst = std::max(worst, std::fabs(shown / exact - 1));
        }
      const double stated =
          std::ldexp(mpz_get_d(seed.relativeError.get()), -NewtonSeed::kErrorBits);
      EXPECT_LE(worst, stated);
      EXPECT_LE(stated, 1.25 * worst);
      EXPECT_LE(stated, std::ldexp(1.0, -2 * index));
    }
}

}  // namespace
}  // namespace arithmetic
