#pragma once

#include <span>

#include "backend/functions/float_reference.h"
#include "backend/functions/unit.h"

namespace functions {

// A real function of the inputs in MPFR's manner: rounded once into `result`, to its precision in
// the direction asked; returns MPFR's ternary value. Special operands as docs/semantics-fp.md says;
// MPFR's own cover most.
using RealFunction = int (*)(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction);

// MPFR's function `f` of the first input.
template <auto f>
int ofFirst(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction) {
  return f(result, inputs[0].get(), direction);
}

// The reference of a unit with floating inputs and one floating output that owes a real function:
// `f` of what the ports carry, rounded once. What readFloat() and deliverOdd() say holds.
void evaluateRealFunction(RealFunction f, const Signature& signature,
                          std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                          const std::vector<unsigned>& precisions,
                          const std::vector<mpfr_rnd_t>& roundings, bool subnormals);

// The same as the function of a unit's row.
template <RealFunction f>
void evaluateReal(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateRealFunction(f, signature, results, inputs, precisions, roundings, subnormals);
}

}  // namespace functions
