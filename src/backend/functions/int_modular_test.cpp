#include "backend/functions/int_modular.h"

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

const UnitRow& row() { return modularUnits()[0]; }

Signature barrett(int width) {
  const kiln::Type word = integers(width, false);
  return {.in = {word, word, word, integers(width + 1, false)}, .out = {word}, .variant = {{14}}};
}

MPZ residue(const std::vector<MPZ>& values) {
  MPZ rest;
  mpz_tdiv_r(rest.get(), (values[0] * values[1]).get(), values[2].get());
  return rest;
}

// floor(4^w / z) as a port of w + 1 bits shows it.
MPZ reciprocal(const MPZ& z, int width) {
  MPZ v;
  mpz_tdiv_q(v.get(), MPZ::powerOfTwo(2 * width).get(), z.get());
  return std::min(v, MPZ::allOnes(width + 1));
}

TEST(BarrettProduct, IsExactForAllFactorsAndNormalisedModuliOfSmallWidths) {
  for (int width = 1; width <= 5; ++width) {
    IntegerUnit unit(row(), barrett(width));
    const unsigned long size = 1ul << width;
    for (unsigned long z = size / 2; z < size; ++z)
      for (unsigned long x = 0; x < size; ++x)
        for (unsigned long y = 0; y < size; ++y)
          ASSERT_TRUE(unit.agrees({x, y, z, reciprocal(z, width)}, residue)) << width;
  }
}

// Moduli at both ends, in the middle and drawn; factors at their ends, around z and its multiples'
// ends, and drawn. The products where a quotient estimate is worst stand among them.
TEST(BarrettProduct, IsExactForEdgesAndDrawsOfWideWords) {
  gmp_randstate_t state;
  gmp_randinit_default(state);
  for (const int width : {8, 23, 24, 64, 65, 256, 521, 1024}) {
    IntegerUnit unit(row(), barrett(width));
    const MPZ top = MPZ::powerOfTwo(width - 1), ones = MPZ::allOnes(width);
    const auto drawn = [&] {
      MPZ value;
      mpz_rrandomb(value.get(), state, static_cast<unsigned long>(width));
      return value;
    };
    for (const MPZ& z : {top, top + MPZ(1), top + (top >> 1), ones - MPZ(1), ones, drawn(), drawn(),
                         drawn() | MPZ(1)}) {
      const MPZ v = reciprocal(z, width);
      const MPZ factors[] = {0,
                             1,
                             z - MPZ(1),
                             z,
                             (z + MPZ(1)).lowBits(width),
                             top,
                             ones,
                             top - MPZ(1),
                             ones - MPZ(1),
                             drawn(),
                             drawn()};
      for (const MPZ& x : factors)
        for (const MPZ& y : factors) ASSERT_TRUE(unit.agrees({x, y, z, v}, residue)) << width;
    }
    for (int draw = 0; draw < 200; ++draw) {
      const MPZ z = drawn() | top, x = drawn();
      MPZ y;
      mpz_urandomb(y.get(), state, static_cast<unsigned long>(width));
      ASSERT_TRUE(unit.agrees({x, y, z, reciprocal(z, width)}, residue)) << width;
    }
  }
  gmp_randclear(state);
}

// The tiles left out must be left out: a short product is what the quotient and the rest need.
TEST(BarrettProduct, TakesFewerTilesThanThreeWholeProducts) {
  const IntegerUnit unit(row(), barrett(256));
  int tiles = 0;
  for (const graph::Node& node : unit.graph().nodes())
    tiles += node.op == graph::Op::kMultiply && node.width <= 41;
  // 11 by 16 tiles each; the quotient's lower corner and the rest's upper half are gone.
  EXPECT_LE(tiles, 2 * 176 - 40 - 70);
}

}  // namespace
}  // namespace functions
