#include "backend/model/hard_float.h"

#include <gtest/gtest.h>

namespace {

functions::Request requestFor(const kiln::FloatingPoint& format) {
  functions::Request request;
  request.signature.in = {format, format};
  request.signature.out = {format};
  request.accuracy = {{functions::Accuracy::kWithin, 1}};
  return request;
}

class HardFloatBlocks : public testing::Test {
 protected:
  std::optional<HardFloat> blockOn(const char* family) {
    return hardFloatFor(*functions::findUnit("CFloatAdd"), request, options,
                        *device::deviceFactory.GetDevice(family, "", "fast", "Auto", ""));
  }
  int latency() { return blockOn("Merrow10")->latency; }

  CModelOptions options{true};
  functions::Request request = requestFor(kiln::ieee(8, 23));
};

TEST_F(HardFloatBlocks, ServeSinglePrecisionWhereTheFamilyHasThemAndTheyAreAskedFor) {
  EXPECT_FALSE(blockOn("Merrow10"));
  options.setOptionValue(floatOption::enableHardFP, 1);
  EXPECT_TRUE(blockOn("Merrow10"));
  EXPECT_TRUE(blockOn("Halvard10"));
  EXPECT_FALSE(blockOn("TarnV"));

  request.subnormals = true;
  EXPECT_FALSE(blockOn("Merrow10"));
  request.subnormals = false;
  request.rounding.fixed = arithmetic::RoundMode::kUp;
  EXPECT_TRUE(blockOn("Merrow10"));  // a faithful result may be rounded to nearest
  request.accuracy[0].kind = functions::Accuracy::kCorrect;
  EXPECT_FALSE(blockOn("Merrow10"));
  request = requestFor(kiln::ieee(5, 10));
  EXPECT_FALSE(blockOn("Merrow10"));
  request = requestFor(kiln::fpLib(8, 23));
  EXPECT_FALSE(blockOn("Merrow10"));
  request = requestFor(kiln::ieee(8, 23));
  options.setOptionValue(floatOption::simulateHardFP, 1);
  EXPECT_FALSE(blockOn("Merrow10"));
}

TEST_F(HardFloatBlocks, TakeTheRegistersThatTheOptionsGiveThem) {
  options.setOptionValue(floatOption::enableHardFP, 1);
  options.setOptionValue(floatOption::hardFPMultLatency, 9);
  const int usual = latency();
  EXPECT_GT(usual, 0);
  options.setOptionValue(floatOption::hardFPAddLatency, usual + 2);
  EXPECT_EQ(latency(), usual + 2);
  options.setOptionValue(floatOption::overrideHardFPRegisters, 1);
  EXPECT_EQ(latency(), 1);
  options.setOptionValue(synthOption::forceCombinational, 1);
  EXPECT_EQ(latency(), 0);
}

}  // namespace
