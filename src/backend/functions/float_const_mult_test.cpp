#include "backend/functions/float_const_mult.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

constexpr const char* kWords[] = {"3.14159",    "-0.1",     "1",           "-1",   "2",     "0.5",
                                  "0",          "-0",       "1e-3",        "1e30", "1e-40", "-7",
                                  "0.99999999", "1e300",    "-1e-300",     "inf",  "-inf",  "nan",
                                  "1e-310",     "0x1.8p-1", "1.0000000001"};
constexpr std::size_t kCount = std::size(kWords);

// Made before a test narrows MPFR's exponent range.
const std::array<Real, kCount> kConstants = [] {
  std::array<Real, kCount> values;
  for (std::size_t i = 0; i < kCount; ++i)
    mpfr_set_d(values[i].prepare(53), std::strtod(kWords[i], nullptr), MPFR_RNDN);
  return values;
}();

template <std::size_t Index>
int product(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_mul(r, in[0].get(), kConstants[Index].get(), direction);
}

template <std::size_t... Index>
constexpr std::array<Operation, sizeof...(Index)> products(std::index_sequence<Index...>) {
  return {product<Index>...};
}
constexpr auto kProducts = products(std::make_index_sequence<kCount>());

std::vector<Config> multipliers(const Ports& ports, bool subnormals, std::size_t constant) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions) {
    if (precision.tiesAway != 0 || (precision.degrade > 0 && precision.accuracy.ulps == 2))
      continue;
    Config config =
        configOf("CFPConstMult", ports, precision, 0, 0, subnormals, {kProducts[constant]});
    config.label += fmt::format(" times {}", kWords[constant]);
    config.request.signature.variant = {{0, 0, 0}, {kWords[constant]}};
    configs.push_back(std::move(config));
  }
  return configs;
}

void checkAllNumbers(const Ports& ports, std::size_t constants) {
  for (const bool subnormals : {false, true})
    for (std::size_t constant = 0; constant < constants; ++constant)
      checkAll(multipliers(ports, subnormals, constant));
}

TEST(FloatConstMult, AllNumbersOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {4, 3}, {5, 5}}) {
    const auto i = ieee(wE, wF), f = fpLib(wE, wF);
    checkAllNumbers({"IEEE", {i}, {i}}, kCount);
    checkAllNumbers({"FPLib", {f}, {f}}, kCount);
  }
}

TEST(FloatConstMult, AllNumbersOfMixedFormats) {
  checkAllNumbers({"4 6 to 3 2", {ieee(4, 6)}, {ieee(3, 2)}}, kCount);
  checkAllNumbers({"3 3 to 5 7", {ieee(3, 3)}, {ieee(5, 7)}}, kCount);
  checkAllNumbers({"4 4 to FPLib", {ieee(4, 4)}, {fpLib(4, 4)}}, kCount);
}

TEST(FloatConstMult, AllNumbersOfSixteenBits) {
  for (const auto& format : {ieee(5, 10), ieee(8, 7)})
    checkAllNumbers({"sixteen bits", {format}, {format}}, 11);
}

TEST(FloatConstMult, DrawnAndHardNumbersOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& format : {ieee(8, 23), ieee(11, 52), ieee(5, 10), ieee(2, 40), ieee(15, 112)})
    for (const bool subnormals : {false, true})
      for (std::size_t constant = 0; constant < kCount; ++constant)
        checkDrawn(multipliers({"same", {format}, {format}}, subnormals, constant), 300, seed++);
}

TEST(FloatConstMult, PowersOfTwoNeedNoMultiplier) {
  const auto bits = [](const char* word) {
    Request request;
    request.signature = {{ieee(8, 23)}, {ieee(8, 23)}, {{8, 23, 0}, {word}}};
    return logicBits(UnitCircuit("CFPConstMult", request).graph);
  };
  EXPECT_LT(bits("0.25"), 200);
  EXPECT_LT(bits("0.25"), bits("0.3"));
  EXPECT_LT(bits("3"), bits("3.1"));
}

}  // namespace
}  // namespace functions::testing
