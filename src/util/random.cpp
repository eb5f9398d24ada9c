#include "util/random.h"

#include <cstdint>

#include "util/failure.h"

namespace util {

namespace {

constexpr std::uint64_t kSeed = 0x2545f4914f6cdd1d;
std::uint64_t state = kSeed;

// SplitMix64: Steele, Lea and Flood, OOPSLA 2014.
std::uint64_t next() {
  std::uint64_t z = state += 0x9e3779b97f4a7c15;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return z ^ (z >> 31);
}

// Uniform in [0, n) for 1 <= n <= 2^32, without bias: Lemire, ACM TOMACS 2019.
std::uint32_t below(std::uint64_t n) {
  std::uint64_t product = (next() >> 32) * n;
  if (static_cast<std::uint32_t>(product) < n) {
    const std::uint64_t unfair = (std::uint64_t{1} << 32) % n;
    while (static_cast<std::uint32_t>(product) < unfair) product = (next() >> 32) * n;
  }
  return static_cast<std::uint32_t>(product >> 32);
}

}  // namespace

int GetRandom(int n) {
  LOAM_ASSERT(n >= 1, "a random number below " + std::to_string(n));
  return static_cast<int>(below(static_cast<std::uint64_t>(n)));
}

int GetRandomInRangeIncInc(int a, int b) {
  LOAM_ASSERT(a <= b, "a random number in an empty range");
  const auto count = static_cast<std::uint64_t>(std::int64_t{b} - a + 1);
  return static_cast<int>(std::int64_t{a} + below(count));
}

void restartRandom() { state = kSeed; }

}  // namespace util
