#include "backend/functions/float_test_support.h"
#include "backend/functions/rounding_gap.h"

namespace functions::testing {
namespace {

using kiln::fpLib;
using kiln::ieee;

int exponential(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_exp(r, in[0].get(), direction);
}
int powerOfTwo(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_exp2(r, in[0].get(), direction);
}

struct Unit {
  const char* name;
  Operation operation;
};
int logarithm(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_log(r, in[0].get(), direction);
}
int logarithmToTwo(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_log2(r, in[0].get(), direction);
}

constexpr Unit kUnits[] = {{"DMFloatExpE", exponential},
                           {"DMFloatExp2", powerOfTwo},
                           {"DMFloatLoge", logarithm},
                           {"DMFloatLog2", logarithmToTwo}};

Bench benchOf(const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const auto& [name, operation] : kUnits)
    for (const Precision& precision : kPrecisions)
      if (precision.tiesAway == 0)
        configs.push_back(configOf(name, ports, precision, 0, 0, subnormals, {operation}));
  return Bench(configs);
}

TEST(FloatElementary, AllNumbersOfSmallFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 4}, {4, 3}, {5, 4}, {2, 7}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)}) {
        if (format.is_fp_lib && subnormals) continue;
        const Ports ports{format.is_fp_lib ? "FPLib" : "", {format}, {format}};
        SCOPED_TRACE(fmt::format("{} {}", wE, wF));
        Bench bench = benchOf(ports, subnormals);
        checkAll(bench, ports.in);
      }
}

}  // namespace
}  // namespace functions::testing
