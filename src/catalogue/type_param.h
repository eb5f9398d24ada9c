#pragma once

#include <cstdint>
#include <vector>

// One integer parameter of an operator, as the command line gave it.
struct Parameter {
  std::int32_t value = 0;
};

// The rule by which a port's number format follows from the operator's parameters. What the
// integers mean lies in the class alone: positions in the parameter list, or, in the classes called
// Val, the width itself.
class TypeParam {
 public:
  TypeParam() = default;
  explicit TypeParam(std::int32_t a) : indices{a} {}
  TypeParam(std::int32_t a, std::int32_t b) : indices{a, b} {}
  TypeParam(std::int32_t a, std::int32_t b, std::int32_t c) : indices{a, b, c} {}
  virtual ~TypeParam() = default;

  std::vector<std::int32_t> indices;
};

// Exponent width, fraction width: an IEEE-style number.
class TypeParamFP : public TypeParam {
  using TypeParam::TypeParam;
};

// Width, fraction width, sign: a fixed-point number, signed when the sign parameter is exactly 1.
class TypeParamFXP : public TypeParam {
  using TypeParam::TypeParam;
};

// One unsigned bit.
class TypeParamBool : public TypeParam {
  using TypeParam::TypeParam;
};

// Width: an unsigned integer.
class TypeParamUnsigned : public TypeParam {
  using TypeParam::TypeParam;
};

// Width: a signed integer.
class TypeParamSigned : public TypeParam {
  using TypeParam::TypeParam;
};

// An unsigned integer of that very width.
class TypeParamUnsignedVal : public TypeParam {
  using TypeParam::TypeParam;
};

// A signed integer of that very width.
class TypeParamSignedVal : public TypeParam {
  using TypeParam::TypeParam;
};
