#pragma once

#include <span>
#include <vector>

#include "backend/functions/unit.h"

namespace functions {

// The square root of a floating-point number by digit recurrence, in logic alone. Rounded as asked;
// from 1 ulp on, rows of the recurrence drop what the bound leaves room for.
std::vector<graph::Signal> decomposeSqrtLogic(graph::Builder& b, const Request& request,
                                              std::span<const graph::Signal> inputs);

}  // namespace functions
