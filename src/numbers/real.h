#pragma once

#include <mpfr.h>

#include <utility>

// An MPFR number that owns its limbs, or no number. The storage is kept when the number is dropped
// or takes another precision, so that values made row after row cost no allocation.
class Real {
 public:
  Real() = default;
  explicit Real(mpfr_prec_t precision) { prepare(precision); }
  Real(const Real& other) { *this = other; }
  Real(Real&& other) noexcept { swap(other); }
  Real& operator=(const Real& other) {
    if (this == &other) return *this;
    if (!other.present) {
      present = false;
    } else {
      mpfr_set(prepare(mpfr_get_prec(other.value)), other.value, MPFR_RNDN);
    }
    return *this;
  }
  Real& operator=(Real&& other) noexcept {
    swap(other);
    return *this;
  }
  ~Real() {
    if (initialised) mpfr_clear(value);
  }

  explicit operator bool() const { return present; }
  mpfr_ptr get() { return value; }
  mpfr_srcptr get() const { return value; }
  // Becomes a number of `precision` bits whose value is a NaN until it is set.
  mpfr_ptr prepare(mpfr_prec_t precision) {
    if (initialised) {
      mpfr_set_prec(value, precision);
    } else {
      mpfr_init2(value, precision);
      initialised = true;
    }
    present = true;
    return value;
  }
  void drop() { present = false; }
  void swap(Real& other) noexcept {
    std::swap(value[0], other.value[0]);
    std::swap(initialised, other.initialised);
    std::swap(present, other.present);
  }

 private:
  mpfr_t value;
  bool initialised = false;  // `value` owns limbs
  bool present = false;      // and stands for a number
};
