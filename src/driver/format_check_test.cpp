#include "driver/format_check.h"

#include <gtest/gtest.h>

namespace driver {
namespace {

std::string failureOf(const kiln::Type& in, const kiln::Type& out) {
  PortSpecList inputs, outputs;
  inputs.push_back("a", in);
  outputs.push_back("q", out);
  const auto failure = formatFailure("FPX", inputs, outputs, /*precision=*/200);
  return failure ? failure->message : "";
}

TEST(FormatCheck, NamesThePortAndItsRange) {
  using kiln::FixedPoint;
  using kiln::ieee;
  EXPECT_EQ(failureOf(ieee(2, 1), ieee(15, 112)), "");
  EXPECT_EQ(failureOf(FixedPoint(1, -32768, true), FixedPoint(200, 32768, false)), "");
  EXPECT_EQ(failureOf(ieee(1, 0), ieee(8, 23)), "FPX: wE 1 of port a is out of range 2 to 15");
  EXPECT_EQ(failureOf(ieee(8, 0), ieee(8, 0)), "FPX: wF 0 of port a is out of range 1 to 112");
  EXPECT_EQ(failureOf(ieee(8, 23), ieee(16, 23)), "FPX: wE 16 of port q is out of range 2 to 15");
  EXPECT_EQ(failureOf(ieee(8, 23), ieee(8, 113)), "FPX: wF 113 of port q is out of range 1 to 112");
  EXPECT_EQ(failureOf(FixedPoint(0, 0, false), ieee(8, 23)),
            "FPX: w 0 of port a is out of range 1 to 200");
  EXPECT_EQ(failureOf(ieee(8, 23), FixedPoint(201, 0, false)),
            "FPX: w 201 of port q is out of range 1 to 200");
  EXPECT_EQ(failureOf(ieee(8, 23), FixedPoint(8, 32769, false)),
            "FPX: f 32769 of port q is out of range -32768 to 32768");
}

}  // namespace
}  // namespace driver
