#include "vectors/mac_population.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <deque>

#include "vectors/population.h"
#include "vectors/population_test_folder.h"

namespace {

using kiln::FixedPoint;

// acc ? sum + a * b : a * b, the sum behind the ports.
struct MultAcc final : CFuncUnitFunctionInterface {
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool /*subnormals*/) override {
    ASSERT_EQ(inputs.size(), 4U);
    ASSERT_EQ(mpfr_get_prec(inputs[3].real.get()), 24);
    results.resize(1);
    mpfr_ptr q = results[0].real.prepare(precisions[0]);
    const bool accumulate = mpfr_sgn(inputs[0].real.get()) != 0;
    const bool isOpen = inputs[1].type == NumType::kDontCare ||
                        (accumulate && inputs[3].type == NumType::kDontCare);
    results[0].type = isOpen ? NumType::kDontCare : NumType::kValue;
    if (isOpen) {
      mpfr_set_zero(q, 1);
    } else if (accumulate) {
      mpfr_fma(q, inputs[1].real.get(), inputs[2].real.get(), inputs[3].real.get(), roundings[0]);
    } else {
      mpfr_mul(q, inputs[1].real.get(), inputs[2].real.get(), roundings[0]);
    }
  }
};

class MultAccPopulation : public PopulationFolder {
 protected:
  MultAccPopulation() {
    in.push_back("acc", FixedPoint(1, 0, false));
    in.push_back("a", kiln::ieee(8, 23));
    in.push_back("b", kiln::ieee(8, 23));
    out.push_back("q", kiln::ieee(8, 23));
    t.errorBounds = {0.5f};
    t.randomTests = true;
    t.componentType = FPMULTACC;
    t.genNaNs = t.genInfs = false;
    t.expRangeMin = -20;  // sums that neither overflow nor lose what is added
    t.expRangeMax = 3;
  }

  int populate(int latency) { return PopulationFolder::populate(unit, latency); }

  // The responses to the stimulus rows, by the machine's own fused product: operands that arrive
  // latency - 1 accepted rows late, a sum that takes each ordinary result at once, and one more
  // register behind it.
  std::vector<std::string> responses(int latency) const {
    struct Operands {
      std::string flow;
      bool isOpen;
      bool accumulate;
      float a, b;
    };
    const std::string open = fmt::format(" {:-<32} ", "");
    std::deque<Operands> arriving(static_cast<std::size_t>(std::max(latency - 1, 0)),
                                  {" 0  00000000 ", true, false, 0, 0});
    std::string shown = " 0  00000000 " + open;
    bool hasSum = false;
    float sum = 0;
    std::vector<std::string> rows;
    for (const std::string& row : rowsOf("unit/unit_xIn.stm")) {
      const std::vector<std::string> column = columnsIn(row);
      arriving.push_back({fmt::format(" {}  {} ", column.at(0), column.at(1)), false,
                          column.at(2) == "1", floatOf(column.at(3)), floatOf(column.at(4))});
      const bool enabled = !t.enable || column.at(5) == "1";
      const Operands now = arriving.front();
      if (enabled) {
        arriving.pop_front();
      } else {
        arriving.pop_back();
      }
      std::string result = open;
      if (!now.isOpen && (!now.accumulate || hasSum)) {
        sum = now.accumulate ? std::fma(now.a, now.b, sum) : now.a * now.b;
        hasSum = true;
        result = fmt::format(" {:032b} ", std::bit_cast<std::uint32_t>(sum));
      }
      rows.push_back(shown);
      if (enabled) shown = now.flow + result;
    }
    return rows;
  }

  MultAcc unit;
};

TEST_F(MultAccPopulation, CarriesTheSumFromRowToRow) {
  for (const bool enable : {false, true}) {
    for (const int latency : {0, 1, 2, 7}) {
      t.enable = enable;
      t.testCount = 500;
      const int count = populate(latency);
      const std::vector<std::string> rows = rowsOf("unit/unit_xOut.stm");
      EXPECT_EQ(rows, responses(latency)) << enable << latency;
      EXPECT_EQ(count, static_cast<int>(rows.size()));
      EXPECT_EQ(rowsOf("unit/unit_xIn.stm").size(), rows.size());
      // Without stalls the run is over when the last operands have arrived.
      if (!enable) {
        EXPECT_EQ(count, 500 + std::max(latency - 1, 0));
      }
      EXPECT_NE(rows[0].find('-'), std::string::npos);
      EXPECT_EQ(rows.back().find('-'), std::string::npos);
    }
  }
}

TEST_F(MultAccPopulation, TellsWhatItDoes) {
  t.testCount = 2;
  populate(1);
  const std::string bar = "100% [" + std::string(40, '=') + "]\r";
  EXPECT_EQ(console,
            "input  file = ./unit/unit_xIn.stm\noutput file = ./unit/unit_xOut.stm\n"
            "FPMULTACC : Using function-specific testbench generation\n"
            "FPMULTACC : RandomTestCount = 2\n0% [" +
                std::string(40, ' ') + "]\r50% [" + std::string(20, '=') + std::string(20, ' ') +
                "]\r" + bar);
  t.exhaustiveTests = true;
  const std::string afterwards = console.substr(console.find("0% ["));
  EXPECT_EQ(populate(1), 2);
  EXPECT_THAT(console,
              testing::HasSubstr("FPMULTACC : RandomTestCount = 2\n"
                                 "\n Should generate at least 2147483647 test vectors \n"
                                 "\n However, exhaustive tests are not supported for FloatMultAcc, "
                                 "therefore no exahustive tests will be generated. \n" +
                                 afterwards));
  t.randomTests = false;
  t.noChanValid = true;
  EXPECT_EQ(populate(9), 0);
  EXPECT_TRUE(rowsOf("unit/unit_xIn.stm").empty());
}

TEST_F(MultAccPopulation, AssertsItsOperator) {
  t.componentType = FPADD;
  EXPECT_EXIT(populateStmFiles_FPMultAcc(&unit, "unit", in, out, 3, t),
              testing::ExitedWithCode(255), "testOptions.componentType == FPMULTACC");
  t.componentType = FPMULTACC;
  in.push_back("c", kiln::ieee(8, 23));
  expectExit(unit, "inFormats.size\\(\\) == 3");
}

}  // namespace
