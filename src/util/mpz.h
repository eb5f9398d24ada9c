#pragma once

#include <gmp.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace util {

// An integer of any size that owns its limbs; bit patterns of any width are non-negative ones.
class MPZ {
 public:
  MPZ() { mpz_init(value); }
  MPZ(long number) { mpz_init_set_si(value, number); }
  MPZ(int number) { mpz_init_set_si(value, number); }
  MPZ(unsigned long number) { mpz_init_set_ui(value, number); }
  MPZ(unsigned number) { mpz_init_set_ui(value, number); }
  explicit MPZ(mpz_srcptr other) { mpz_init_set(value, other); }
  MPZ(const MPZ& other) { mpz_init_set(value, other.value); }
  MPZ(MPZ&& other) noexcept {
    mpz_init(value);
    mpz_swap(value, other.value);
  }
  MPZ& operator=(const MPZ& other) {
    mpz_set(value, other.value);
    return *this;
  }
  MPZ& operator=(MPZ&& other) noexcept {
    mpz_swap(value, other.value);
    return *this;
  }
  ~MPZ() { mpz_clear(value); }

  // The number that `text` spells in `base` (0, or 2 to 62 as GMP has it); empty when it spells none.
  static std::optional<MPZ> fromText(const std::string& text, int base);
  // 2^exponent; exponent >= 0.
  static MPZ powerOfTwo(unsigned long exponent);
  // 2^width - 1.
  static MPZ allOnes(unsigned long width);

  mpz_ptr get() { return value; }
  mpz_srcptr get() const { return value; }

  int sign() const { return mpz_sgn(value); }
  bool isZero() const { return mpz_sgn(value) == 0; }
  // Bits of the magnitude; 0 for zero.
  std::size_t bitLength() const { return isZero() ? 0 : mpz_sizeinbase(value, 2); }
  // Bit `position` of the two's-complement form.
  bool bit(unsigned long position) const { return mpz_tstbit(value, position) != 0; }
  // The value modulo 2^width, in [0, 2^width).
  MPZ lowBits(unsigned long width) const;
  // The signed number whose two's-complement pattern of `width` bits this is.
  MPZ asSigned(unsigned long width) const;
  // The low 64 bits of a non-negative number.
  std::uint64_t toUint64() const { return mpz_get_ui(value); }
  std::string toText(int base) const;

  MPZ& operator+=(const MPZ& other);
  MPZ& operator-=(const MPZ& other);
  MPZ& operator*=(const MPZ& other);
  // Shifts toward more weight, and toward less with rounding toward minus infinity.
  MPZ& operator<<=(unsigned long count);
  MPZ& operator>>=(unsigned long count);

  friend MPZ operator+(MPZ a, const MPZ& b) { return a += b; }
  friend MPZ operator-(MPZ a, const MPZ& b) { return a -= b; }
  friend MPZ operator*(MPZ a, const MPZ& b) { return a *= b; }
  friend MPZ operator<<(MPZ a, unsigned long count) { return a <<= count; }
  friend MPZ operator>>(MPZ a, unsigned long count) { return a >>= count; }
  friend MPZ operator-(MPZ a) {
    mpz_neg(a.value, a.value);
    return a;
  }
  friend MPZ operator&(MPZ a, const MPZ& b) {
    mpz_and(a.value, a.value, b.value);
    return a;
  }
  friend MPZ operator|(MPZ a, const MPZ& b) {
    mpz_ior(a.value, a.value, b.value);
    return a;
  }
  friend MPZ operator^(MPZ a, const MPZ& b) {
    mpz_xor(a.value, a.value, b.value);
    return a;
  }
  friend bool operator==(const MPZ& a, const MPZ& b) { return mpz_cmp(a.value, b.value) == 0; }
  friend std::strong_ordering operator<=>(const MPZ& a, const MPZ& b) {
    return mpz_cmp(a.value, b.value) <=> 0;
  }

 private:
  mpz_t value;
};

}  // namespace util
