#include "backend/functions/float_inverse.h"

#include "backend/functions/float_sqrt.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/real_function.h"

namespace functions {

using arithmetic::Root;
using graph::Builder;
using graph::Signal;

namespace {

int inverse(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction) {
  return mpfr_ui_div(result, 1, inputs[0].get(), direction);
}

int inverseSqrt(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction) {
  if (mpfr_zero_p(inputs[0].get())) {
    mpfr_set_inf(result, mpfr_signbit(inputs[0].get()) ? -1 : 1);
    return 0;
  }
  return mpfr_rec_sqrt(result, inputs[0].get(), direction);
}

template <Root root>
std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  return decomposeFloatRoot(b, request, inputs, root);
}

template <Root root>
std::optional<std::string> refuse(const Request& request) {
  return refuseFloatRoot(request, root);
}

constexpr UnitRow kRows[] = {
    {"DMFloatInverse", evaluateReal<inverse>, decompose<Root::kReciprocal>,
     refuse<Root::kReciprocal>},
    {"DMFloatInverseSqrt", evaluateReal<inverseSqrt>, decompose<Root::kReciprocalSquareRoot>,
     refuse<Root::kReciprocalSquareRoot>},
};

}  // namespace

std::span<const UnitRow> floatInverseUnits() { return kRows; }

}  // namespace functions
