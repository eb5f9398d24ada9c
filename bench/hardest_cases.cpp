// The inputs of single precision whose results come nearest to where a rounding changes, over all
// 2^32 of them and the binades that an FPLib port has besides.
//   hardest_cases NAME [SHARD SHARDS]   NAME is a unit's; minutes on one core, less for a shard of
//                                       SHARDS (SHARD counts from 0)
// Prints the function's lines of src/backend/functions/kept_gaps.txt; of several shards keep the
// greater bits.
//
// A filter in double precision passes on what is within 2^-17 of half an ulp of a place, and MPFR
// measures that. A value of the filter is taken to be within 2^-45 of its size from the true one
// (the library claims about 2^-52), so that all within 2^-17 - 2^-20 are seen, and the nearest
// found are nearer than that by far.

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "backend/functions/rounding_gap.h"

namespace {

constexpr int kExponentBits = 8, kFractionBits = 23;
constexpr double kPi = 3.14159265358979323846;

struct Row {
  std::string_view name;
  functions::RealFunction exact;
  double (*filter)(double);
  int leastExponent;       // below, the result's rounding is known otherwise
  int mostExponent = 128;  // above, every result overflows, underflows or is exact
};

template <auto f>
int unary(mpfr_ptr result, std::span<const Real> x, mpfr_rnd_t direction) {
  return f(result, x[0].get(), direction);
}

// x - 2 round(x / 2), which is exact, folded to [-1/2, 1/2] for the sine.
double sinPi(double x) {
  double r = x - 2 * std::nearbyint(x / 2);
  if (std::fabs(r) > 0.5) r = std::copysign(1, r) - r;
  return std::sin(kPi * r);
}
double cosPi(double x) {
  const double r = std::fabs(x - 2 * std::nearbyint(x / 2));
  return r <= 0.25 ? std::cos(kPi * r) : std::sin(kPi * (0.5 - r));
}

constexpr Row kRows[] = {
    {"DMFloatExpE", unary<mpfr_exp>, std::exp, -26, 7},
    {"DMFloatExp2", unary<mpfr_exp2>, std::exp2, -26, 7},
    {"DMFloatLoge", unary<mpfr_log>, std::log, functions::kEveryInput},
    {"DMFloatLog2", unary<mpfr_log2>, std::log2, functions::kEveryInput},
    {"DMFloatLog10", unary<mpfr_log10>, std::log10, functions::kEveryInput},
    {"DMFloatSinX", unary<mpfr_sin>, std::sin, -12},
    {"DMFloatCosX", unary<mpfr_cos>, std::cos, -13},
    {"DMFloatSinPiX", unary<mpfr_sinpi>, sinPi, functions::kEveryInput, 22},
    {"DMFloatCosPiX", unary<mpfr_cospi>, cosPi, -14, 22},
};

struct Found {
  bool isMidpoint;
  int bits;
  double input;
};

// True when y, of precision 24, may be within 2^-17 of half a unit in its last place of a place.
bool mayBeNear(double y) {
  if (!std::isfinite(y)) return false;
  constexpr int kBelow = 28;  // bits of a double below half an ulp
  constexpr std::uint64_t kRoom = std::uint64_t{1} << (kBelow - 17);
  const std::uint64_t rest = std::bit_cast<std::uint64_t>(y) + kRoom;
  if ((rest & ((std::uint64_t{1} << kBelow) - 1)) <= 2 * kRoom) return true;
  const double magnitude = std::fabs(y);
  if (magnitude >= 0x1p-126 || magnitude < 0x1p-151) return false;
  const double halves = magnitude * 0x1p150;
  return std::fabs(halves - std::nearbyint(halves)) * 0x1p-150 <= magnitude * 0x1p-41;
}

class Search {
 public:
  explicit Search(const Row& row) : row(row) {}

  // All numbers with this exponent and sign.
  void binade(int exponent, double sign) {
    const double ulp = std::ldexp(sign, exponent - kFractionBits);
    // Below FPLib's lowest binade only the subnormals of an IEEE-style port.
    const long step = exponent < -127 ? 1L << (-126 - exponent) : 1;
    for (long fraction = 0; fraction < 1L << kFractionBits; fraction += step) {
      const double x = static_cast<double>((1L << kFractionBits) + fraction) * ulp;
      if (mayBeNear(row.filter(x))) measure(x);
    }
  }

  void print() {
    int most[2] = {1, 1};
    std::string inputs;
    for (const bool isMidpoint : {true, false}) {
      std::erase_if(found[isMidpoint], [](const Found& f) { return f.bits <= 0; });
      std::ranges::stable_sort(found[isMidpoint], std::greater(), &Found::bits);
      double last = 0;
      int count = 0;
      for (const Found& f : found[isMidpoint]) {
        most[isMidpoint] = std::max(most[isMidpoint], f.bits);
        if (f.input == last || count == 6) continue;
        inputs += fmt::format("{}{:a}", inputs.empty() ? "" : ", ", last = f.input);
        ++count;
      }
    }
    const std::string least = row.leastExponent == functions::kEveryInput
                                  ? "kEveryInput"
                                  : std::to_string(row.leastExponent);
    fmt::print("{{\"{}\", {}, {}, {}, {{{}, {}}},\n {{{}}}}},\n", row.name, kExponentBits,
               kFractionBits, least, most[1], most[0], inputs);
  }

 private:
  void measure(double input) {
    mpfr_set_d(x[0].get(), input, MPFR_RNDN);
    for (const functions::ResultGrid& grid : grids)
      if (const auto near = functions::nearnessOf(row.exact, x, grid))
        found[near->isMidpoint].push_back({near->isMidpoint, near->bits, input});
  }

  const Row& row;
  const functions::ResultGrid grids[2] = {
      functions::gridOf(kiln::fpLib(kExponentBits, kFractionBits), false),
      functions::gridOf(kiln::ieee(kExponentBits, kFractionBits), true)};
  Real x[1] = {Real(kFractionBits + 1)};
  std::vector<Found> found[2];  // numbers, midpoints
};

}  // namespace

int main(int argc, char** argv) {
  const std::string name = argc > 1 ? argv[1] : "";
  const auto row = std::ranges::find(kRows, name, &Row::name);
  const int shard = argc > 3 ? std::atoi(argv[2]) : 0, shards = argc > 3 ? std::atoi(argv[3]) : 1;
  if (row == std::end(kRows) || shards < 1 || shard < 0 || shard >= shards) {
    std::fprintf(stderr, "hardest_cases: NAME [SHARD SHARDS]\n");
    return 255;
  }
  const FullExponentRange range;
  Search search(*row);
  int count = 0;
  for (int exponent = std::max(-149, row->leastExponent); exponent <= row->mostExponent; ++exponent)
    for (const double sign : {1.0, -1.0})
      if (count++ % shards == shard) search.binade(exponent, sign);
  search.print();
}
