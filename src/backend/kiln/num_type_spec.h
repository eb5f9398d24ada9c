#pragma once

#include <array>

#include "backend/kiln/values.h"
#include "numbers/ports.h"

namespace kiln {

// The description of a number format as a value of the kit: the text form of a port's type.
class NumTypeSpec {
 public:
  static NumTypeSpec ufixed(int integerBits, int fractionBits);
  static NumTypeSpec fixed(bool sign, int integerBits, int fractionBits);
  // Both forms take the fraction's width first.
  static NumTypeSpec sfloatIEEE(int fraction, int exponent);
  static NumTypeSpec sfloatFPLib(int fraction, int exponent);
  static NumTypeSpec of(const Type& type);

  // (NUMTYPE_..., the arguments in their order).
  PureValueRef toValue(Context* context) const;
  // The format that toValue() described. Anything else is a failed assertion.
  static Type typeOf(const PureValue* value);

 private:
  NumTypeSpec(const StaticString& kind, std::array<int, 3> numbers, int count)
      : kind(&kind), numbers(numbers), count(count) {}

  const StaticString* kind;
  std::array<int, 3> numbers;  // the first `count` of them
  int count;
};

}  // namespace kiln
