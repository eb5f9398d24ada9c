#include "backend/functions/integer_values.h"

#include <fmt/format.h>

#include <algorithm>

#include "util/failure.h"

namespace functions {

using util::MPZ;

const kiln::FixedPoint& fixedPoint(const kiln::Type& type) {
  const kiln::FixedPoint* format = type.as_fixed_point();
  LOAM_ASSERT(format != nullptr, "a fixed-point port");
  return *format;
}

void readInteger(MPZ& value, const NumValue& input, const kiln::FixedPoint& format) {
  if (format.fraction() == 0) {
    mpfr_get_z(value.get(), input.real.get(), MPFR_RNDZ);
    return;
  }
  thread_local Real scaled;
  mpfr_mul_2si(scaled.prepare(mpfr_get_prec(input.real.get())), input.real.get(), format.fraction(),
               MPFR_RNDZ);
  mpfr_get_z(value.get(), scaled.get(), MPFR_RNDZ);
}

void readFixed(MPZ& value, const NumValue& input, const kiln::FixedPoint& format) {
  if (!input.real || mpfr_nan_p(input.real.get())) {
    mpz_set_ui(value.get(), 0);
    return;
  }
  mpfr_srcptr x = input.real.get();
  const bool isFar = mpfr_inf_p(x) || (mpfr_regular_p(x) &&
                                       mpfr_get_exp(x) + format.fraction() > format.width() + 1);
  if (isFar) {
    value = mpfr_signbit(x) ? lowestOf(format) : highestOf(format);
    return;
  }
  readInteger(value, input, format);
  value = std::clamp(value, lowestOf(format), highestOf(format));
}

MPZ lowestOf(const kiln::FixedPoint& format) {
  return format.sign() ? -MPZ::powerOfTwo(static_cast<unsigned long>(format.width() - 1)) : MPZ(0);
}

MPZ highestOf(const kiln::FixedPoint& format) {
  return MPZ::allOnes(static_cast<unsigned long>(format.width() - (format.sign() ? 1 : 0)));
}

void writeInteger(NumValue& result, const MPZ& n, const kiln::FixedPoint& format,
                  unsigned precision, mpfr_rnd_t rounding) {
  mpfr_set_z_2exp(result.real.prepare(static_cast<mpfr_prec_t>(precision)), n.get(),
                  -format.fraction(), rounding);
  result.type = NumType::kValue;
  result.raw = false;
}

void wrapInto(MPZ& value, const kiln::FixedPoint& format) {
  const auto width = static_cast<unsigned long>(format.width());
  mpz_fdiv_r_2exp(value.get(), value.get(), width);
  if (!format.sign() || !value.bit(width - 1)) return;
  thread_local MPZ modulus;
  mpz_set_ui(modulus.get(), 1);
  mpz_mul_2exp(modulus.get(), modulus.get(), width);
  value -= modulus;
}

bool isControl(const kiln::Type& type, int width) {
  const kiln::FixedPoint* format = type.as_fixed_point();
  return format && format->width() == width && format->fraction() == 0 && !format->sign();
}

std::optional<std::string> refuseFixedPoint(const kiln::FixedPoint& format) {
  if (auto reason = outOfRange("width", format.width(), 1, 4096)) return reason;
  return outOfRange("fraction", format.fraction(), -65536, 65536);
}

std::optional<std::string> outOfRange(std::string_view what, long value, long least,
                                      long greatest) {
  if (least <= value && value <= greatest) return std::nullopt;
  return fmt::format("{} {} is out of range {} to {}", what, value, least, greatest);
}

std::optional<std::string> inputWidthOutOfRange(const Signature& signature, long greatest) {
  for (const kiln::Type& type : signature.in)
    if (auto reason = outOfRange("width", type.width(), 1, greatest)) return reason;
  return std::nullopt;
}

}  // namespace functions
