#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Input ports, the options of a run, and the values of one vector.
struct StimuliTest : testing::Test {
  void ports(const std::vector<kiln::Type>& types) {
    in = PortSpecList();
    for (const kiln::Type& type : types) in.push_back("p", type);
    values.resize(types.size());
  }
  double number(std::size_t port) const { return mpfr_get_d(values[port].real.get(), MPFR_RNDN); }
  // Equal as numbers, zeros by their sign too.
  void expectNumber(std::size_t port, double expected) const {
    const double seen = number(port);
    if (std::isnan(expected)) {
      EXPECT_TRUE(std::isnan(seen));
    } else {
      EXPECT_EQ(seen, expected);
      EXPECT_EQ(std::signbit(seen), std::signbit(expected));
    }
  }

  PortSpecList in;
  TestingOptions t;
  std::vector<NumValue> values;
};
