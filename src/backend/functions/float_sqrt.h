#pragma once

#include "backend/arithmetic/float_root.h"
#include "backend/functions/unit.h"

namespace functions {

// DMFloatSqrt: the square root of a floating-point number, by tables, polynomials and products.
// Number 4 of the variant asks for a digit recurrence.
std::span<const UnitRow> floatSqrtUnits();

// The circuit of a root of one floating-point port.
std::vector<graph::Signal> decomposeFloatRoot(graph::Builder& b, const Request& request,
                                              std::span<const graph::Signal> inputs,
                                              arithmetic::Root root);

// Refuses other ports, mixed formats, and those that no approximation serves.
std::optional<std::string> refuseFloatRoot(const Request& request, arithmetic::Root root);

}  // namespace functions
