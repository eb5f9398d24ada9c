#pragma once

#include <gmp.h>

#include <cstdint>

namespace util {

// The value as a signed 64-bit integer; beyond that range its low 64 bits in two's complement.
inline std::int64_t mpzToSINT(mpz_srcptr number) {
  const std::uint64_t magnitude = mpz_get_ui(number);
  return static_cast<std::int64_t>(mpz_sgn(number) < 0 ? -magnitude : magnitude);
}

}  // namespace util
