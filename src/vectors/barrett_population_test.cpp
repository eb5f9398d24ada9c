#include "vectors/barrett_population.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "vectors/population.h"
#include "vectors/population_test_folder.h"

namespace {

using kiln::FixedPoint;

// a * b mod m, of four integer ports.
void modularProduct(mpfr_ptr q, const std::vector<NumValue>& inputs, mpfr_rnd_t rounding,
                    std::size_t) {
  util::MPZ x[3];
  for (std::size_t k = 0; k < 3; ++k) mpfr_get_z(x[k].get(), inputs[k].real.get(), MPFR_RNDZ);
  util::MPZ product = x[0] * x[1];
  mpz_mod(product.get(), product.get(), x[2].get());
  mpfr_set_z(q, product.get(), rounding);
}

class BarrettPopulation : public PopulationFolder {
 protected:
  void setWidth(int w) {
    width = w;
    in = out = {};
    for (const char* name : {"x", "y", "z"}) in.push_back(name, FixedPoint(w, 0, false));
    in.push_back("v", FixedPoint(w + 1, 0, false));
    out.push_back("r", FixedPoint(w, 0, false));
    t.errorBounds = {0.5f};
    t.componentType = MODULAR_MULT_BARRETT;
  }

  int populate(int latency) { return PopulationFolder::populate(unit, latency); }

  struct Test {
    util::MPZ a, b, m;
  };
  // The tests of the files, each row checked: flow, a normalised modulus, its reciprocal (cut to
  // the port) and the product.
  std::vector<Test> checkedTests(int latency, int firstKind) const {
    const auto stimuli = rowsOf("unit/unit_xIn.stm"), responses = rowsOf("unit/unit_xOut.stm");
    EXPECT_EQ(stimuli.size(), responses.size());
    std::vector<Test> tests;
    const std::string zeros(static_cast<std::size_t>(width), '0');
    for (int i = 0; i < latency; ++i) {
      EXPECT_EQ(responses.at(i), " 0  00000000  " + zeros + " ");
      EXPECT_EQ(stimuli.at(stimuli.size() - 1 - i),
                fmt::format(" 0  00000001  {0}  {0}  {0}  {0}0 ", zeros));
    }
    for (std::size_t i = 0; i + latency < stimuli.size(); ++i) {
      const auto column = columnsIn(stimuli[i]), response = columnsIn(responses[i + latency]);
      const auto k = static_cast<int>(i);
      EXPECT_EQ(column.at(0), "1");
      EXPECT_EQ(column.at(1), fmt::format("{:08b}", (k < firstKind ? k : k - firstKind) & 255));
      EXPECT_EQ(response.at(1), column.at(1));
      Test test{*util::MPZ::fromText(column.at(2), 2), *util::MPZ::fromText(column.at(3), 2),
                *util::MPZ::fromText(column.at(4), 2)};
      EXPECT_EQ(column.at(4).front(), '1');
      // mu m <= 4^w < (mu + 1) m, or all ones where m is a power of two
      const auto bits = static_cast<unsigned long>(width);
      const util::MPZ mu = *util::MPZ::fromText(column.at(5), 2);
      const util::MPZ square = util::MPZ::powerOfTwo(2 * bits);
      if (test.m == util::MPZ::powerOfTwo(bits - 1)) {
        EXPECT_EQ(mu, util::MPZ::allOnes(bits + 1));
      } else {
        EXPECT_TRUE(mu * test.m <= square && square < mu * test.m + test.m);
      }
      const util::MPZ remainder = *util::MPZ::fromText(response.at(2), 2);
      EXPECT_LT(remainder, test.m);
      EXPECT_TRUE(mpz_congruent_p((test.a * test.b).get(), remainder.get(), test.m.get()));
      tests.push_back(std::move(test));
    }
    return tests;
  }

  TestUnit unit{modularProduct};
  int width = 0;
};

TEST_F(BarrettPopulation, MeetsAllFactorsWithAllNormalisedModuli) {
  for (const int w : {2, 3}) {
    setWidth(w);
    t.exhaustiveTests = true;
    const int total = 1 << (3 * w - 1);
    EXPECT_EQ(populate(2), total);
    const auto tests = checkedTests(2, 0);
    ASSERT_EQ(tests.size(), static_cast<std::size_t>(total));
    std::size_t n = 0;
    for (int a = 0; a < 1 << w; ++a) {
      for (int b = 0; b < 1 << w; ++b) {
        for (int m = 1 << (w - 1); m < 1 << w; ++m, ++n) {
          EXPECT_TRUE(tests[n].a == a && tests[n].b == b && tests[n].m == m) << n;
        }
      }
    }
    EXPECT_NE(console.find(fmt::format("\n Should generate at least {} test vectors \n0%", total)),
              std::string::npos);
  }
}

TEST_F(BarrettPopulation, DrawsFactorsBeyondTheModulus) {
  setWidth(65);
  t.randomTests = true;
  t.testCount = 400;
  EXPECT_EQ(populate(0), 400);
  const auto tests = checkedTests(0, 400);
  EXPECT_TRUE(std::ranges::any_of(tests, [](const Test& test) { return test.a >= test.m; }));
  EXPECT_TRUE(std::ranges::any_of(tests, [](const Test& test) { return test.b < test.m; }));
}

TEST_F(BarrettPopulation, RunsRandomTestsFirstAndStartsTheChannelAnew) {
  setWidth(3);
  t.randomTests = t.exhaustiveTests = true;
  t.testCount = 300;
  EXPECT_EQ(populate(1), 300 + 256);
  EXPECT_EQ(checkedTests(1, 300).size(), 556U);
  t.testCount = 0;
  EXPECT_EQ(populate(1), 256);
}

TEST_F(BarrettPopulation, AssertsItsOperator) {
  setWidth(4);
  t.componentType = FPADD;
  EXPECT_EXIT(populateStmFiles_ModularMultBarrett(&unit, "unit", in, out, 3, t),
              testing::ExitedWithCode(255), "testOptions.componentType == MODULAR_MULT_BARRETT");
  t.componentType = MODULAR_MULT_BARRETT;
  in.push_back("c", FixedPoint(4, 0, false));
  expectExit(unit, "inFormats.size\\(\\) == 4");
}

}  // namespace
