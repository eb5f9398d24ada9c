#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kiln {

// What a unit is told when it builds itself into a model. The kind says what the option means; some
// kinds bear a value.
class FunctionGenerationOption {
 public:
  enum Kind : std::int32_t {
    kCorrectRounding = 0,
    kSubnormals = 1,
    kCompareType = 3,
    kNoRangeReduction = 4,
    kDivisionVersion1 = 7,
    kOutFPType = 9,
    kOutFXPType = 10,
    kAbsoluteValues = 12,
    kMaximum = 13,
    kRoundingAtRunTime = 16,
    kRoundingMode = 17,
    kTieBreak = 18,
    kDegradeAccuracy = 19,
    kAddArchitecture = 20,
  };

  explicit FunctionGenerationOption(std::int32_t kind) : kind(kind) {}
  virtual ~FunctionGenerationOption() = default;
  // The numbers of the value, in the order of its fields; none without a value.
  virtual std::vector<int> numbers() const { return {}; }

  const std::int32_t kind;
};

// The output format of a conversion or a product.
struct functionGenerationOptionOutFPType {
  int exponent, fraction;
};
struct functionGenerationOptionOutFXPType {
  int width, fraction;
  bool sign;
};
enum class FunctionGenerationOptionCmpTypes : int { kLT, kLE, kEQ, kGE, kGT, kNEQ };
enum class FunctionGenerationOptionFPAddTypes : int { kSinglePath, kDualPath };

inline std::vector<int> numbersOf(int value) { return {value}; }
inline std::vector<int> numbersOf(FunctionGenerationOptionCmpTypes type) {
  return {static_cast<int>(type)};
}
inline std::vector<int> numbersOf(FunctionGenerationOptionFPAddTypes type) {
  return {static_cast<int>(type)};
}
inline std::vector<int> numbersOf(const functionGenerationOptionOutFPType& type) {
  return {type.exponent, type.fraction};
}
inline std::vector<int> numbersOf(const functionGenerationOptionOutFXPType& type) {
  return {type.width, type.fraction, type.sign};
}

template <typename Value>
class FunctionGenerationOptionValue : public FunctionGenerationOption {
 public:
  FunctionGenerationOptionValue(std::int32_t kind, const Value& value)
      : FunctionGenerationOption(kind), value(value) {}
  std::vector<int> numbers() const override { return numbersOf(value); }

  const Value value;
};

}  // namespace kiln
