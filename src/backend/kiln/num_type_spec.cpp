#include "backend/kiln/num_type_spec.h"

#include "backend/kiln/attributes.h"
#include "util/failure.h"

namespace kiln {

NumTypeSpec NumTypeSpec::ufixed(int integerBits, int fractionBits) {
  return {A_NUMTYPE_UFIXED, {integerBits, fractionBits}, 2};
}

NumTypeSpec NumTypeSpec::fixed(bool sign, int integerBits, int fractionBits) {
  return {A_NUMTYPE_FIXED, {sign, integerBits, fractionBits}, 3};
}

NumTypeSpec NumTypeSpec::sfloatIEEE(int fraction, int exponent) {
  return {A_NUMTYPE_SFLOAT_IEEE, {fraction, exponent}, 2};
}

NumTypeSpec NumTypeSpec::sfloatFPLib(int fraction, int exponent) {
  return {A_NUMTYPE_SFLOAT_FPLIB, {fraction, exponent}, 2};
}

// An FPLib port answers as_floating_point, too, and is asked for first.
NumTypeSpec NumTypeSpec::of(const Type& type) {
  if (const FloatingPoint* lib = type.as_fp_lib()) return sfloatFPLib(lib->frac, lib->exp);
  if (const FloatingPoint* ieee = type.as_floating_point())
    return sfloatIEEE(ieee->frac, ieee->exp);
  if (const FixedPoint* number = type.as_fixed_point())
    return fixed(number->sign(), number->width() - number->fraction(), number->fraction());
  loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Code should be unreachable");
}

PureValueRef NumTypeSpec::toValue(Context* context) const {
  std::vector<PureValueRef> elements = {*kind};
  for (int k = 0; k < count; ++k) elements.push_back(NumberValue::get(numbers[k], context));
  return PureTupleValue::get(elements, context);
}

Type NumTypeSpec::typeOf(const PureValue* value) {
  const auto* tuple = dynamic_cast<const PureTupleValue*>(value);
  LOAM_ASSERT(tuple && tuple->elements().size() >= 3, "a type pin holds a number format");
  const auto number = [&](std::size_t place) {
    const auto* held = dynamic_cast<const NumberValue*>(tuple->elements().at(place).get_ptr());
    LOAM_ASSERT(held, "a number format is made of numbers");
    return static_cast<int>(held->value());
  };
  const PureValue* kind = tuple->elements()[0].get_ptr();
  if (kind == &A_NUMTYPE_UFIXED) return FixedPoint(number(1) + number(2), number(2), false);
  if (kind == &A_NUMTYPE_FIXED) return FixedPoint(number(2) + number(3), number(3), number(1) != 0);
  if (kind == &A_NUMTYPE_SFLOAT_IEEE) return ieee(number(2), number(1));
  LOAM_ASSERT(kind == &A_NUMTYPE_SFLOAT_FPLIB, "a number format is of a known kind");
  return fpLib(number(2), number(1));
}

}  // namespace kiln
