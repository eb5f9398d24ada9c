#include "util/mpz.h"

namespace util {

std::optional<MPZ> MPZ::fromText(const std::string& text, int base) {
  MPZ result;
  if (mpz_set_str(result.value, text.c_str(), base) != 0) return std::nullopt;
  return result;
}

MPZ MPZ::powerOfTwo(unsigned long exponent) { return MPZ(1) << exponent; }

MPZ MPZ::allOnes(unsigned long width) { return powerOfTwo(width) - MPZ(1); }

MPZ MPZ::lowBits(unsigned long width) const {
  MPZ result;
  mpz_fdiv_r_2exp(result.value, value, width);
  return result;
}

MPZ MPZ::asSigned(unsigned long width) const {
  MPZ result = lowBits(width);
  if (width > 0 && result.bit(width - 1)) result -= powerOfTwo(width);
  return result;
}

std::string MPZ::toText(int base) const {
  std::string text(mpz_sizeinbase(value, base) + 2, '\0');
  mpz_get_str(text.data(), base, value);
  text.resize(text.find('\0'));
  return text;
}

MPZ& MPZ::operator+=(const MPZ& other) {
  mpz_add(value, value, other.value);
  return *this;
}

MPZ& MPZ::operator-=(const MPZ& other) {
  mpz_sub(value, value, other.value);
  return *this;
}

MPZ& MPZ::operator*=(const MPZ& other) {
  mpz_mul(value, value, other.value);
  return *this;
}

MPZ& MPZ::operator<<=(unsigned long count) {
  mpz_mul_2exp(value, value, count);
  return *this;
}

MPZ& MPZ::operator>>=(unsigned long count) {
  mpz_fdiv_q_2exp(value, value, count);
  return *this;
}

}  // namespace util
