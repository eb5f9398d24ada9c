#pragma once

#include "backend/arithmetic/float_root.h"
#include "backend/functions/unit.h"

namespace functions {

// DMFloatSqrt: the square root of a floating-point number, by tables, polynomials and products.
// Number 4 of the variant asks for a digit recurrence.
std::span<const UnitRow> floatSqrtUnits();

// What a request for a root of one floating-point port asks of the circuit.
arithmetic::FloatRoot floatRootOf(const Request& request, arithmetic::Root root);

// Refuses other ports, mixed formats, and those that no approximation serves.
std::optional<std::string> refuseFloatRoot(const Request& request, arithmetic::Root root);

}  // namespace functions
