#include "vectors/folded_population.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <set>

#include "vectors/population.h"
#include "vectors/population_test_folder.h"

namespace {

using kiln::FixedPoint;

// 1/sqrt(a), sqrt(a), 1/a, a / b, a * b by the opcode.
void apply(mpfr_ptr q, const std::vector<NumValue>& inputs, mpfr_rnd_t direction, std::size_t) {
  mpfr_srcptr a = inputs[0].real.get(), b = inputs[1].real.get();
  ASSERT_TRUE(mpfr_cmp_si(inputs[3].real.get(), 1) == 0);
  const long opcode = mpfr_get_si(inputs[2].real.get(), MPFR_RNDN);
  if (opcode == 0) mpfr_rec_sqrt(q, a, direction);
  if (opcode == 1) mpfr_sqrt(q, a, direction);
  if (opcode == 2) mpfr_ui_div(q, 1, a, direction);
  if (opcode == 3) mpfr_div(q, a, b, direction);
  if (opcode == 4) mpfr_mul(q, a, b, direction);
}

class FoldedPopulation : public PopulationFolder {
 protected:
  FoldedPopulation() {
    in.push_back("x", kiln::ieee(8, 23));
    in.push_back("y", kiln::ieee(8, 23));
    in.push_back("op", FixedPoint(3, 0, false));
    in.push_back("n", FixedPoint(1, 0, false));
    out.push_back("r", kiln::ieee(8, 23));
    t.componentType = FPFOLDEDALU;
    t.errorBounds = {0.5f};
    t.genNaNs = t.genInfs = false;
    t.expRangeMin = -20;
    t.expRangeMax = 20;
  }

  int populate(int latency) { return PopulationFolder::populate(unit, latency); }

  static std::string rowOf(const std::string& value) { return " 1  00000000  " + value + " "; }

  // Checks every row of every instruction; the opcodes in their order.
  std::vector<int> checkedOpcodes() const {
    const auto stimuli = rowsOf("unit/unit_xIn.stm"), responses = rowsOf("unit/unit_xOut.stm");
    EXPECT_EQ(stimuli.size(), responses.size());
    const std::string open(32, '-');
    std::vector<int> opcodes;
    for (std::size_t first = 0; first < stimuli.size();) {
      const auto issue = columnsIn(stimuli[first]);
      EXPECT_EQ(issue.size(), 6U);
      const int opcode = std::stoi(issue[4], nullptr, 2);
      const std::size_t cycles = std::array{23, 26, 19, 22, 6}.at(static_cast<std::size_t>(opcode));
      opcodes.push_back(opcode);
      EXPECT_EQ(issue[5], "1");
      EXPECT_EQ(issue[2] == issue[3], opcode < 3);
      for (std::size_t j = 0; j < cycles; ++j) {
        EXPECT_EQ(responses.at(first + j), rowOf(open));
        EXPECT_EQ(stimuli.at(first + j + 1),
                  fmt::format(" 1  00000000  {}  {}  {}  0 ", issue[2], issue[3], issue[4]));
      }
      const float a = floatOf(issue[2]), b = floatOf(issue[3]);
      const double x = a;
      const std::array expected = {static_cast<float>(1 / std::sqrt(x)), std::sqrt(a), 1 / a, a / b,
                                   a * b};
      const float result = expected.at(static_cast<std::size_t>(opcode));
      const float shown = floatOf(columnsIn(responses.at(first + cycles)).at(2));
      EXPECT_TRUE(shown == result || (std::isnan(shown) && std::isnan(result))) << first;
      first += cycles + 1;
    }
    return opcodes;
  }

  TestUnit unit{apply};
};

TEST_F(FoldedPopulation, WritesWholeInstructions) {
  t.testCount = 300;
  for (const int latency : {0, 5}) {
    EXPECT_EQ(populate(latency), 300);
    const std::vector<int> opcodes = checkedOpcodes();
    EXPECT_EQ(opcodes.size(), 300U);
    EXPECT_EQ(std::set<int>(opcodes.begin(), opcodes.end()), (std::set{0, 1, 2, 3, 4}));
  }
  EXPECT_EQ(console, "input  file = ./unit/unit_xIn.stm\noutput file = ./unit/unit_xOut.stm\n0% [" +
                         std::string(40, ' ') + "]\r");
}

TEST_F(FoldedPopulation, HasAsManyColumnsAsTheBoundAllows) {
  t.errorBounds = {2.0f};
  t.testCount = 20;
  populate(0);
  const auto rows = rowsOf("unit/unit_xOut.stm");
  for (const std::string& row : rows) EXPECT_EQ(columnsIn(row).size(), 6U);
  EXPECT_EQ(columnsIn(rows[0])[5], std::string(32, '-'));
}

TEST_F(FoldedPopulation, MayBeEmpty) {
  t.testCount = 0;
  EXPECT_EQ(populate(3), 0);
  EXPECT_TRUE(rowsOf("unit/unit_xIn.stm").empty());
  EXPECT_TRUE(rowsOf("unit/unit_xOut.stm").empty());
}

TEST_F(FoldedPopulation, AssertsItsOperator) {
  t.componentType = FPADD;
  EXPECT_EXIT(populateStmFiles_FPFoldedALU(&unit, "unit", in, out, 0, t),
              testing::ExitedWithCode(255), "testOptions.componentType == FPFOLDEDALU");
}

}  // namespace
